#include "store/las/laz/LazPointSource.h"

#include <algorithm>

namespace VelBrx {

LazPointSource::LazPointSource(LasFile file) : PointSource(std::move(file)) {}

LazPointSource::~LazPointSource() = default;

uint64_t LazPointSource::partCount() const
{
    return file().laz->chunks.chunks.size();
}

Status LazPointSource::readPart(uint64_t index, const Use& use, RecordFields fields, uint64_t most) const
{
    FileReader input;
    if (Status status = open(input); !status) return status;
    const LazChunk& chunk = file().laz->chunks.chunks[index];
    std::unique_ptr<Worker> worker = takeWorker();
    worker->bytes.resize(chunk.size);
    if (!input.read(static_cast<int64_t>(chunk.position), worker->bytes.data(), worker->bytes.size()))
        return Status::failure(file().path + ": its points cannot be read");
    const Status status = decode(*worker, chunk, fields, std::min(most, chunk.pointCount), use);
    if (status && most >= chunk.pointCount && file().laz->items.hasChunks() && !worker->decoder.endsExactly())
        ++_doubtful;
    giveBack(std::move(worker));
    return status;
}

/// Of the first `points` of a chunk.
Status LazPointSource::decode(Worker& worker, const LazChunk& chunk, RecordFields fields, uint64_t points,
                              const Use& use) const
{
    const auto failure = [&](const Status& status) {
        return Status::failure(file().path + ": its points from number " +
                               std::to_string(chunk.firstPoint + 1) +
                               " on cannot be read: " + status.message());
    };
    if (Status status =
            worker.decoder.start(worker.bytes.data(), worker.bytes.size(), chunk.pointCount, fields);
        !status)
        return failure(status);
    const uint64_t most = batchPoints(file().recordLength);
    for (uint64_t done = 0; done < points; done += most) {
        const uint64_t count = std::min(most, points - done);
        worker.batch.first = chunk.firstPoint + done;
        worker.batch.records.resize(count * file().recordLength);
        if (Status status = worker.decoder.read(worker.batch.records.data(), count); !status)
            return failure(status);
        if (Status status = use(worker.batch); !status) return status;
    }
    return {};
}

std::unique_ptr<LazPointSource::Worker> LazPointSource::takeWorker() const
{
    {
        const VelThreads::Lock lock(_mutex);
        if (!_idle.empty()) {
            std::unique_ptr<Worker> worker = std::move(_idle.back());
            _idle.pop_back();
            return worker;
        }
    }
    return std::make_unique<Worker>(file().laz->items);
}

/// At the end of a pass over the file the workers go: a build may have thousands of files.
void LazPointSource::giveBack(std::unique_ptr<Worker> worker) const
{
    const VelThreads::Lock lock(_mutex);
    _idle.push_back(std::move(worker));
    if (++_partsRead < partCount()) return;
    _partsRead = 0;
    _idle.clear();
}

uint64_t LazPointSource::decodedSize(uint64_t part) const
{
    return file().laz->chunks.chunks[part].pointCount * file().recordLength;
}

std::vector<std::string> LazPointSource::notes() const
{
    if (_doubtful == 0) return {};
    return {"some of its compressed points do not end where they should; they are probably damaged"};
}

} // namespace VelBrx
