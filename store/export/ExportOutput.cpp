#include "store/export/ExportOutput.h"

#include <algorithm>

#include <sys/stat.h>

namespace VelBrx {

namespace {

constexpr uint64_t kCopyBytes = 4 << 20;

bool isSameFile(const std::string& a, const std::string& b)
{
    struct stat one
    {
    };
    struct stat other
    {
    };
    return stat(a.c_str(), &one) == 0 && stat(b.c_str(), &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

} // namespace

Status checkOutput(const ExportOptions& options, const std::string& path)
{
    if (Status status = OutputFile::check(path, options.overwrite); !status) return status;
    if (isSameFile(path, options.store))
        return Status::failure(path + ": is the store that is exported; choose another name");
    return {};
}

ExportOutput::ExportOutput(std::string path, LasHead head, uint16_t recordLength, uint64_t points)
    : _path(std::move(path)), _head(std::move(head)), _recordLength(recordLength), _points(points)
{
}

uint64_t ExportOutput::changed() const
{
    const VelThreads::Lock lock(_mutex);
    return _changed;
}

uint64_t ExportOutput::size() const
{
    constexpr uint64_t kUsualCompression = 16;
    const uint64_t points = _points * _recordLength;
    return _head.bytes.size() + (_lazPoints ? points / kUsualCompression : points) + _head.tailLength;
}

bool ExportOutput::compress(uint8_t pointFormat)
{
    const LazItems items = makeLazItems(pointFormat, _recordLength);
    _plainPointsEnd = _head.bytes.size() + _points * _recordLength;
    if (!compressHead(items, _head)) return false;
    const auto write = [this](uint64_t position, const void* data, uint64_t length) {
        return _file.write(position, data, length);
    };
    _lazPoints = std::make_unique<LazPointWriter>(items, _head.bytes.size(), _points, write);
    return true;
}

Status ExportOutput::open(bool overwrite)
{
    if (_isOpen) return {};
    _isOpen = true;
    return _file.create(_path, overwrite, _lazPoints ? 0 : size());
}

Status ExportOutput::write(uint64_t first, const std::vector<uint8_t>& records, const RecordFormat& format,
                           uint64_t changed)
{
    RecordScan scan;
    if (_recounts) format.scan(records.data(), records.size() / _recordLength, scan);
    {
        const VelThreads::Lock lock(_mutex);
        _scan.add(scan);
        _changed += changed;
    }
    if (_lazPoints) return _lazPoints->write(first, records.data(), records.size() / _recordLength);
    return _file.write(_head.bytes.size() + first * _recordLength, records.data(), records.size());
}

Status ExportOutput::finish(const FileReader& store, ParallelRun& run)
{
    if (_recounts) {
        const VelThreads::Lock lock(_mutex);
        tellPoints(_scan, _points, _head);
    }
    uint64_t position = _head.bytes.size() + _points * _recordLength;
    if (_lazPoints) {
        if (Status status = _lazPoints->finish(position); !status) return status;
        moveTail(_plainPointsEnd, position, _head);
    }
    if (Status status = _file.write(0, _head.bytes.data(), _head.bytes.size()); !status) return status;
    for (const ByteRange& range : _head.tail) {
        std::vector<uint8_t> bytes;
        for (uint64_t done = 0; done < range.length; done += bytes.size(), position += bytes.size()) {
            bytes.resize(std::min(kCopyBytes, range.length - done));
            if (!store.read(static_cast<int64_t>(range.start + done), bytes.data(), bytes.size()))
                return Status::failure(_path + ": the store cannot be read to its end");
            if (Status status = _file.write(position, bytes.data(), bytes.size()); !status) return status;
            if (Status status = run.step(0); !status) return status;
        }
    }
    return _file.close();
}

} // namespace VelBrx
