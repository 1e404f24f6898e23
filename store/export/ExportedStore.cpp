#include "store/export/ExportedStore.h"

namespace VelBrx {

bool isCompressedSource(const OriginSource& source)
{
    constexpr size_t kFormatByte = 104;
    constexpr uint8_t kCompressionBits = 0xC0;
    return source.head.size() > kFormatByte && (source.head[kFormatByte] & kCompressionBits);
}

Status ExportedStore::open(const std::string& path, ExportedStore& store, StoreIndex& index)
{
    store.path = path;
    Status status = readStore(path, store.file, store.head, index);
    if (status) status = readSourceRecords(store.file, store.head, store.records);
    return status.of(path);
}

} // namespace VelBrx
