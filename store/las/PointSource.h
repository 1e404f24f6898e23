#pragma once

#include "store/las/LasFile.h"

#include <memory>
#include <vector>

namespace VelBrx {

/// Some consecutive records of one file.
struct PointBatch
{
    uint64_t first = 0;
    std::vector<uint8_t> records; ///< whole source records, uncompressed
};

/// The point records of one file in batches. `readBatch` may be called from any thread, several at once with
/// a batch of their own each; a compressed source decodes one chunk a batch.
class PointSource
{
public:
    virtual ~PointSource() = default;

    const LasFile& file() const { return _file; }
    virtual uint64_t batchCount() const = 0;
    virtual Status readBatch(uint64_t index, PointBatch& batch) const = 0;

protected:
    explicit PointSource(LasFile file) : _file(std::move(file)) {}

private:
    LasFile _file;
};

/// Opens the LAS file at `path`; fails with one line that names it.
Status openPointSource(const std::string& path, std::unique_ptr<PointSource>& source);

} // namespace VelBrx
