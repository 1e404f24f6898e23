#pragma once

#include <VelBrx/ExportLas.h>
#include <VelThreads/Mutex.h>

#include "store/export/LasHead.h"
#include "store/io/FileReader.h"
#include "store/io/OutputFile.h"
#include "store/io/ParallelRun.h"
#include "store/las/RecordFormat.h"
#include "store/las/laz/LazPointWriter.h"

#include <cstdint>
#include <memory>
#include <string>

namespace VelBrx {

/// Whether an export may make a file at `path`: it is not the store, and replaces nothing unless told to.
Status checkOutput(const ExportOptions& options, const std::string& path);

/// One LAS or LAZ file that is being exported. `write` may be called from any thread.
class ExportOutput
{
public:
    /// `points` records of `recordLength` bytes will stand behind `head`.
    ExportOutput(std::string path, LasHead head, uint16_t recordLength, uint64_t points);

    const std::string& path() const { return _path; }
    uint64_t points() const { return _points; }
    uint64_t changed() const;

    /// In bytes; of a compressed file about what it takes at least.
    uint64_t size() const;

    /// The header describes the points that are written instead of what it states.
    void recount() { _recounts = true; }

    /// The points are compressed. Before `open`. False where the head has no room to say so.
    bool compress(uint8_t pointFormat);

    /// Makes the file unless that was done.
    Status open(bool overwrite);

    /// Writes whole records from the point with number `first` on, of which `changed` were edited.
    Status write(uint64_t first, const std::vector<uint8_t>& records, const RecordFormat& format,
                 uint64_t changed);

    /// Writes what is around the points and closes the file, which has no name yet.
    Status finish(const FileReader& store, ParallelRun& run);

    /// Gives the file its name. Call `finish` first.
    Status commit() { return _file.commit(); }

private:
    const std::string _path;
    LasHead _head;
    const uint16_t _recordLength;
    const uint64_t _points;
    uint64_t _plainPointsEnd = 0;               ///< where the points would end if they were not compressed
    std::unique_ptr<LazPointWriter> _lazPoints; ///< of a compressed file
    bool _recounts = false;
    bool _isOpen = false;
    OutputFile _file;
    mutable VelThreads::Mutex _mutex;
    RecordScan _scan VEL_GUARDED_BY(_mutex);
    uint64_t _changed VEL_GUARDED_BY(_mutex) = 0;
};

} // namespace VelBrx
