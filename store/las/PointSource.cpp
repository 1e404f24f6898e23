#include "store/las/PointSource.h"

#include "store/FileReader.h"
#include "store/las/laz/LazPointSource.h"

#include <algorithm>

namespace VelBrx {

namespace {

/// Uncompressed records, read where they stand.
class LasPointSource final : public PointSource
{
public:
    explicit LasPointSource(LasFile file) : PointSource(std::move(file)) {}

    Status open()
    {
        const Status status = _input.open(file().path);
        return status ? status : Status::failure(file().path + ": " + status.message());
    }

    uint64_t partCount() const override { return (file().pointCount + kBatchPoints - 1) / kBatchPoints; }

    Status readPart(uint64_t index, const Use& use) const override
    {
        PointBatch batch;
        batch.first = index * kBatchPoints;
        const uint64_t count = std::min(kBatchPoints, file().pointCount - batch.first);
        batch.records.resize(count * file().recordLength);
        const uint64_t start = file().pointDataStart + batch.first * file().recordLength;
        if (!_input.read(static_cast<int64_t>(start), batch.records.data(), batch.records.size()))
            return Status::failure(file().path + ": its points cannot be read");
        return use(batch);
    }

private:
    FileReader _input;
};

template <typename Source>
Status openSource(LasFile file, std::unique_ptr<PointSource>& source)
{
    auto opened = std::make_unique<Source>(std::move(file));
    if (Status status = opened->open(); !status) return status;
    source = std::move(opened);
    return {};
}

} // namespace

Status openPointSource(const std::string& path, std::unique_ptr<PointSource>& source)
{
    LasFile file;
    if (Status status = readLasFile(path, file); !status) return status;
    return file.laz ? openSource<LazPointSource>(std::move(file), source)
                    : openSource<LasPointSource>(std::move(file), source);
}

} // namespace VelBrx
