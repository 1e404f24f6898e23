#include <VelBrx/MiraLasRead.h>

#include <VelBrx/StoreInfo.h>

#include "store/StoreHead.h"

#include <algorithm>
#include <new>
#include <utility>

namespace VelBrx {

namespace {

Status readInfo(const std::string& path, FileReader& file, FileReader::Access access, StoreInfo& info)
{
    StoreHead head;
    StoreIndex index;
    if (Status read = readStore(path, file, head, index, access); !read) return read.of(path);
    try {
        info.cells = deriveCells(index, file.identity());
    } catch (const std::bad_alloc&) {
        return Status::failure(path + ": needs more memory than there is; close other programs",
                               Status::Kind::NO_MEMORY);
    }
    info.header = std::move(head.header);
    info.statistics = std::move(index.statistics);
    return {};
}

} // namespace

Status readStoreInfo(const std::string& path, StoreInfo& info)
{
    FileReader file;
    return readInfo(path, file, FileReader::Access::READ, info);
}

Status openStore(const std::string& path, StoreInfo& info, std::unique_ptr<File>& file)
{
    FileReader reader;
    if (Status read = readInfo(path, reader, FileReader::Access::WRITE_WHERE_PERMITTED, info); !read)
        return read;
    file.reset(new File(path, reader.descriptor(), reader.isWritable()));
    return {};
}

bool MiraLasRead::getBrxHeader(BrxHeader& header, const char* path)
{
    FileReader file;
    StoreHead head;
    StoreIndex index;
    if (!path || !readStore(path, file, head, index)) return false;
    header = std::move(head.header);
    return true;
}

void MiraLasRead::getOctree(std::vector<CellWithSegment>& cells, BoundBoxWithOffset& box, const char* path,
                            int64_t& pointDataStart, double& scaleX, double& scaleY, double& scaleZ)
{
    cells.clear();
    StoreInfo info;
    if (!path || !readStoreInfo(path, info)) return;
    const BrxHeader& header = info.header;
    std::copy(std::begin(header.min), std::end(header.min), box.min);
    std::copy(std::begin(header.max), std::end(header.max), box.max);
    std::copy(std::begin(header.offset), std::end(header.offset), box.offset);
    pointDataStart = header.pointDataStart;
    scaleX = header.scale[0];
    scaleY = header.scale[1];
    scaleZ = header.scale[2];
    cells = std::move(info.cells);
}

bool MiraLasRead::getStatistics(StoreStatistics& statistics, const char* path)
{
    FileReader file;
    StoreHead head;
    StoreIndex index;
    if (!path || !readStore(path, file, head, index)) return false;
    statistics = std::move(index.statistics);
    return true;
}

} // namespace VelBrx
