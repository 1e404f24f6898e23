#include "store/journal/StoreField.h"

namespace VelBrx::Journal {

namespace {

constexpr uint64_t kLong = 32;                ///< points of a run that is written by itself
constexpr size_t kGathered = size_t{1} << 14; ///< points of short runs that are written together

/// Consecutive places for FileWriter::set.
struct Consecutive
{
    uint64_t first;
    uint64_t operator[](size_t i) const { return first + i; }
};

uint8_t* mapRecords(File& file, int64_t start, uint64_t count)
{
    return static_cast<uint8_t*>(file.map(start, static_cast<int64_t>(count * PointRecord::kPointSize)));
}

} // namespace

StoreField::StoreField(File& file, int64_t pointDataStart, uint64_t pointCount, uint8_t field, uint8_t mask)
    : _writer(file), _records(mapRecords(file, pointDataStart, pointCount)), _field(field), _mask(mask)
{
}

Status StoreField::set(const std::vector<ChangeRun>& runs, bool forward, uint64_t& changed)
{
    if (!_records) return Status::failure("was cut, or cannot be read; restore it from a copy");
    _changed = 0;
    bool isSet = true;
    for (const ChangeRun& run : runs) {
        Values wanted{run.first, run.count, forward ? run.after : run.before,
                      forward ? run.afterStep : run.beforeStep};
        if (run.count >= kLong)
            isSet = setLong(wanted) && isSet;
        else
            gather(wanted);
        if (_places.size() >= kGathered) isSet = setGathered() && isSet;
    }
    isSet = setGathered() && isSet;
    changed += _changed;
    return isSet ? Status() : Status::failure(_writer.problem(), Status::Kind::NO_SPACE);
}

bool StoreField::has(uint64_t point, uint8_t value) const
{
    return (_records[point * PointRecord::kPointSize + _field] & _mask) == value;
}

void StoreField::gather(Values wanted)
{
    for (; wanted.count > 0; wanted.dropFirst()) {
        if (has(wanted.first, *wanted.values)) continue;
        _places.push_back(wanted.first);
        _values.push_back(*wanted.values);
    }
}

/// Points at the ends that have their value are left alone: where an edit was half done, taking it back needs
/// no room that it did not get.
bool StoreField::setLong(Values wanted)
{
    while (wanted.count > 0 && has(wanted.first, *wanted.values))
        wanted.dropFirst();
    while (wanted.count > 0 &&
           has(wanted.first + wanted.count - 1, wanted.values[(wanted.count - 1) * wanted.step]))
        --wanted.count;
    const uint8_t kept = static_cast<uint8_t>(~_mask);
    uint64_t changed = 0;
    const size_t done =
        _writer.set(_records, PointRecord::kPointSize, _field, Consecutive{wanted.first}, wanted.count,
                    [&](size_t i, uint8_t old) {
                        const auto made = static_cast<uint8_t>((old & kept) | wanted.values[i * wanted.step]);
                        changed += made != old;
                        return made;
                    });
    _changed += changed;
    return done == wanted.count;
}

bool StoreField::setGathered()
{
    const uint8_t kept = static_cast<uint8_t>(~_mask);
    const size_t done =
        _writer.set(_records, PointRecord::kPointSize, _field, _places.data(), _places.size(),
                    [&](size_t i, uint8_t old) { return static_cast<uint8_t>((old & kept) | _values[i]); });
    const bool isSet = done == _places.size();
    _changed += done;
    _places.clear();
    _values.clear();
    return isSet;
}

bool StoreField::agrees(const std::vector<ChangeRun>& runs, uint64_t& point) const
{
    for (const ChangeRun& run : runs) {
        const uint8_t* byte = _records + run.first * PointRecord::kPointSize + _field;
        for (uint64_t i = 0; i < run.count; ++i, byte += PointRecord::kPointSize) {
            const uint8_t value = *byte & _mask;
            if (value == run.before[i * run.beforeStep] || value == run.after[i * run.afterStep]) continue;
            point = run.first + i;
            return false;
        }
    }
    return true;
}

} // namespace VelBrx::Journal
