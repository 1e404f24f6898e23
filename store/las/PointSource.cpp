#include "store/las/PointSource.h"

#include "store/io/FileReader.h"
#include "store/las/laz/LazPointSource.h"

#include <algorithm>

namespace VelBrx {

namespace {

/// Points of a batch whose records stay in the processor's cache while they are used.
constexpr uint64_t kCachedPoints = 1 << 13;

/// Uncompressed records, read where they stand.
class LasPointSource final : public PointSource
{
public:
    explicit LasPointSource(LasFile file) : PointSource(std::move(file)) {}

    uint64_t partCount() const override { return (file().pointCount + partPoints() - 1) / partPoints(); }

    Status readPart(uint64_t index, const Use& use, RecordFields, uint64_t most) const override
    {
        FileReader input;
        if (Status status = open(input); !status) return status;
        PointBatch batch;
        batch.first = index * partPoints();
        const uint64_t last = batch.first + std::min({partPoints(), file().pointCount - batch.first, most});
        for (Status status; batch.first < last; batch.first += kCachedPoints) {
            batch.records.resize(std::min(kCachedPoints, last - batch.first) * file().recordLength);
            const uint64_t start = file().pointDataStart + batch.first * file().recordLength;
            if (!input.read(static_cast<int64_t>(start), batch.records.data(), batch.records.size()))
                return Status::failure(file().path + ": its points cannot be read");
            if (status = use(batch); !status) return status;
        }
        return {};
    }

private:
    uint64_t partPoints() const { return batchPoints(file().recordLength); }
};

} // namespace

Status PointSource::open(FileReader& input) const
{
    if (Status status = input.open(_file.path); !status) return status.of(_file.path);
    if (input.state() == _file.state) return {};
    return Status::failure(_file.path + ": changed while it was read; try again when it is complete");
}

Status openPointSource(const std::string& path, std::unique_ptr<PointSource>& source)
{
    LasFile file;
    if (Status status = readLasFile(path, file); !status) return status;
    if (file.laz)
        source = std::make_unique<LazPointSource>(std::move(file));
    else
        source = std::make_unique<LasPointSource>(std::move(file));
    return {};
}

} // namespace VelBrx
