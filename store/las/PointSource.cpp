#include "store/las/PointSource.h"

#include "store/FileReader.h"

#include <algorithm>

namespace VelBrx {

namespace {

constexpr uint64_t kBatchPoints = 1 << 16;

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

    uint64_t batchCount() const override { return (file().pointCount + kBatchPoints - 1) / kBatchPoints; }

    Status readBatch(uint64_t index, PointBatch& batch) const override
    {
        batch.first = index * kBatchPoints;
        const uint64_t count = std::min(kBatchPoints, file().pointCount - batch.first);
        batch.records.resize(count * file().recordLength);
        const uint64_t start = file().pointDataStart + batch.first * file().recordLength;
        if (_input.read(static_cast<int64_t>(start), batch.records.data(), batch.records.size())) return {};
        return Status::failure(file().path + ": its points cannot be read");
    }

private:
    FileReader _input;
};

} // namespace

Status openPointSource(const std::string& path, std::unique_ptr<PointSource>& source)
{
    LasFile file;
    if (Status status = readLasFile(path, file); !status) return status;
    auto lasSource = std::make_unique<LasPointSource>(std::move(file));
    if (Status status = lasSource->open(); !status) return status;
    source = std::move(lasSource);
    return {};
}

} // namespace VelBrx
