#pragma once

#include "store/las/LasFile.h"
#include "store/las/RecordFields.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace VelBrx {

/// Points that a batch of records of `recordLength` bytes holds at most.
constexpr uint64_t batchPoints(uint16_t recordLength)
{
    return std::min<uint64_t>(1 << 16, (8 << 20) / recordLength);
}

/// Some consecutive records of one file.
struct PointBatch
{
    uint64_t first = 0;
    std::vector<uint8_t> records; ///< whole source records, uncompressed
};

/// The point records of one file in parts. `readPart` may be called from any thread, several at once; a
/// compressed source decodes one chunk a part. The file is open only while a part is read: there may be more
/// sources than files that a process may open.
class PointSource
{
public:
    using Use = std::function<Status(const PointBatch&)>;

    static constexpr uint64_t kWholePart = std::numeric_limits<uint64_t>::max();

    virtual ~PointSource() = default;

    const LasFile& file() const { return _file; }
    virtual uint64_t partCount() const = 0;

    /// Hands the records of a part, at most its first `most`, to `use`, one batch after the other, so that a
    /// part may be larger than memory. A failure of `use` ends it and is returned.
    virtual Status readPart(uint64_t index, const Use& use, RecordFields fields = RecordFields::All,
                            uint64_t most = kWholePart) const = 0;

    /// The size of a part's records where they must be decoded, 0 where they are read as they stand.
    virtual uint64_t decodedSize(uint64_t /*part*/) const { return 0; }

    /// What seemed wrong with the points read until now, a line each without the path.
    virtual std::vector<std::string> notes() const { return {}; }

protected:
    explicit PointSource(LasFile file) : _file(std::move(file)) {}

    /// Opens the file to read points. Fails where it is another one by now, or was written to: its head says
    /// nothing of these points.
    Status open(FileReader& input) const;

private:
    LasFile _file;
};

/// Opens the LAS or LAZ file at `path`; fails with one line that names it.
Status openPointSource(const std::string& path, std::unique_ptr<PointSource>& source);

} // namespace VelBrx
