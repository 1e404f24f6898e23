#pragma once

#include "store/journal/ChangeRuns.h"

#include <VelBrx/File.h>
#include <VelBrx/FileWriter.h>
#include <VelBrx/PointRecord.h>

#include <cstdint>
#include <vector>

namespace VelBrx::Journal {

/// One byte of all point records of a mapped store. One thread at a time.
class StoreField
{
public:
    /// `mask`: the bits of the byte that are read and set. The file outlives the field.
    StoreField(File& file, int64_t pointDataStart, uint64_t pointCount, uint8_t field, uint8_t mask);

    /// Gives the points of the runs the values after them, or those before. `changed` grows by the bytes that
    /// were others. The message of a failure follows the name of the store.
    Status set(const std::vector<ChangeRun>& runs, bool forward, uint64_t& changed);

    /// Whether each point has the value that the run says it has before or after. Otherwise the first that
    /// has neither, in `point`.
    bool agrees(const std::vector<ChangeRun>& runs, uint64_t& point) const;

    /// The point records; null where the store was cut.
    const uint8_t* records() const { return _records; }

private:
    /// Values that consecutive points are to have.
    struct Values
    {
        uint64_t first;
        uint64_t count;
        const uint8_t* values;
        size_t step;

        void dropFirst()
        {
            ++first;
            --count;
            values += step;
        }
    };

    bool has(uint64_t point, uint8_t value) const;
    void gather(Values wanted);
    bool setLong(Values wanted);
    bool setGathered();

    FileWriter _writer;
    uint8_t* const _records;
    const uint8_t _field;
    const uint8_t _mask;
    uint64_t _changed = 0;
    std::vector<uint64_t> _places; ///< points of short runs, and their values
    std::vector<uint8_t> _values;
};

} // namespace VelBrx::Journal
