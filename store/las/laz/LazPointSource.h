#pragma once

#include "store/io/FileReader.h"
#include "store/las/PointSource.h"
#include "store/las/laz/LazChunkDecoder.h"

#include <VelThreads/Mutex.h>

#include <atomic>
#include <memory>
#include <vector>

namespace VelBrx {

/// The points of a LAZ file, a chunk a part.
class LazPointSource final : public PointSource
{
public:
    /// `file` has compressed points.
    explicit LazPointSource(LasFile file);
    ~LazPointSource() override;

    uint64_t partCount() const override;
    Status readPart(uint64_t index, const Use& use, RecordFields fields, uint64_t most) const override;
    uint64_t decodedSize(uint64_t part) const override;
    std::vector<std::string> notes() const override;

private:
    /// What a thread needs to decode a chunk.
    struct Worker
    {
        explicit Worker(const LazItems& items) : decoder(items) {}

        LazChunkDecoder decoder;
        std::vector<uint8_t> bytes; ///< of the chunk, compressed
        PointBatch batch;
    };

    std::unique_ptr<Worker> takeWorker() const;
    void giveBack(std::unique_ptr<Worker> worker) const;
    Status decode(Worker& worker, const LazChunk& chunk, RecordFields fields, uint64_t points,
                  const Use& use) const;

    mutable VelThreads::Mutex _mutex;
    mutable std::vector<std::unique_ptr<Worker>> _idle VEL_GUARDED_BY(_mutex);
    mutable uint64_t _partsRead VEL_GUARDED_BY(_mutex) = 0; ///< of this pass over the file
    mutable std::atomic<uint64_t> _doubtful{0};             ///< chunks read that do not end where they should
};

} // namespace VelBrx
