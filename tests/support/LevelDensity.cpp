#include "tests/support/LevelDensity.h"

#include "store/StoreHead.h"
#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <stdexcept>

using namespace VelBrx;

LevelDensity::LevelDensity(const std::string& store)
{
    FileReader file;
    StoreHead head;
    StoreIndex index;
    if (const Status status = readStore(store, file, head, index); !status)
        throw std::runtime_error(store + ": " + status.message());
    const BrxHeader& header = head.header;
    const auto place = [&](const uint8_t* coordinate, size_t axis) {
        const double value = loadLe<int32_t>(coordinate) * header.scale[axis] + header.offset[axis];
        return static_cast<float>((value - index.cubeMin[axis]) / index.cubeSize);
    };
    std::vector<uint8_t> records;
    for (const IndexCell& cell : index.cells) {
        if (_points.size() <= cell.level) _points.resize(cell.level + size_t{1});
        for (const Segment& run : cell.segments) {
            records.resize(static_cast<size_t>(run.count) * LasLayout::kPointSize);
            if (!file.read(header.pointDataStart + run.first * int64_t{LasLayout::kPointSize}, records.data(),
                           records.size()))
                throw std::runtime_error(store + ": its points cannot be read");
            for (size_t at = 0; at < records.size(); at += LasLayout::kPointSize)
                _points[cell.level].push_back(
                    {place(&records[at + LasLayout::kX], 0), place(&records[at + LasLayout::kX + 4], 1)});
        }
    }
}

std::vector<uint32_t> LevelDensity::counts(unsigned first, unsigned last, unsigned divisions) const
{
    std::vector<uint32_t> counts(size_t{divisions} * divisions);
    const auto square = [divisions](float place) {
        const auto number = static_cast<int>(place * static_cast<float>(divisions));
        return static_cast<size_t>(std::clamp(number, 0, static_cast<int>(divisions) - 1));
    };
    for (unsigned level = first; level <= last && level < levelCount(); ++level)
        for (const Place& point : _points[level])
            ++counts[square(point.y) * divisions + square(point.x)];
    return counts;
}
