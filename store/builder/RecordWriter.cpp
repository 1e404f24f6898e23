#include "store/builder/RecordWriter.h"

#include "store/StoreIndex.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "store/las/LasLayout.h"

#include <iterator>

namespace VelBrx {

RecordWriter::RecordWriter(DiskFile& file, uint64_t start, uint64_t length)
    : _file(file), _start(start), _length(length)
{
}

Status RecordWriter::begin(uint16_t recordId, const char* description, const std::vector<uint8_t>& head)
{
    const auto header = storeRecordHeader(recordId, _length, description);
    if (Status status = _file.write(_start, header.data(), header.size()); !status) return status;
    return write(0, head.data(), head.size());
}

Status RecordWriter::write(uint64_t position, const void* data, uint64_t size)
{
    if (size == 0) return {};
    const uint32_t checksum = crc32c(static_cast<const uint8_t*>(data), size);
    {
        const VelThreads::Lock lock(_mutex);
        take(position, {size, checksum});
    }
    return _file.write(_start + LasLayout::kEvlrHeaderSize + position, data, size);
}

void RecordWriter::take(uint64_t position, Piece piece)
{
    const auto join = [](Piece first, Piece second) -> Piece {
        return {first.length + second.length, crc32cCombine(first.checksum, second.checksum, second.length)};
    };
    auto next = _pieces.lower_bound(position);
    if (next != _pieces.end() && next->first == position + piece.length) {
        piece = join(piece, next->second);
        next = _pieces.erase(next);
    }
    if (next != _pieces.begin()) {
        const auto before = std::prev(next);
        if (before->first + before->second.length == position) {
            before->second = join(before->second, piece);
            return;
        }
    }
    _pieces.emplace_hint(next, position, piece);
}

Status RecordWriter::finish()
{
    const uint64_t checksumAt = _length - kRecordChecksumSize;
    const VelThreads::Lock lock(_mutex);
    if (_pieces.size() != 1 || _pieces.begin()->first != 0 || _pieces.begin()->second.length != checksumAt)
        return Status::failure("a record of the store was not written whole; please report this");
    uint8_t bytes[kRecordChecksumSize];
    storeLe(bytes, _pieces.begin()->second.checksum);
    return _file.write(_start + LasLayout::kEvlrHeaderSize + checksumAt, bytes, sizeof bytes);
}

} // namespace VelBrx
