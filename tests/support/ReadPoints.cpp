#include "tests/support/ReadPoints.h"

#include "store/las/PointSource.h"

using namespace VelBrx;

ReadPoints readPoints(const std::string& path, RecordFields fields)
{
    ReadPoints points;
    std::unique_ptr<PointSource> source;
    points.status = openPointSource(path, source);
    for (uint64_t part = 0; points.status && part < source->partCount(); ++part)
        points.status = source->readPart(
            part,
            [&](const PointBatch& batch) {
                if (batch.first * source->file().recordLength != points.records.size())
                    return Status::failure("a batch does not follow on the last one");
                points.records.insert(points.records.end(), batch.records.begin(), batch.records.end());
                return Status();
            },
            fields);
    if (!source) return points;
    points.file = source->file();
    points.notes = source->file().notes;
    for (const std::string& note : source->notes())
        points.notes.push_back(note);
    return points;
}

ReadPoints readPoints(const TempFolder& folder, const std::vector<uint8_t>& bytes)
{
    // A file system may wait for the disk when a file is written over, not when it is new.
    std::filesystem::remove(folder.file("test.laz"));
    return readPoints(folder.write("test.laz", bytes));
}
