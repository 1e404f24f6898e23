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
    if (!_records) return Status::failure("was cut; restore it from a copy");
    _changed = 0;
    bool isSet = true;
    for (const ChangeRun& run : runs) {
        if (run.count >= kLong) {
            isSet = isSet && setLong(run, forward);
            continue;
        }
        const uint8_t* values = forward ? run.after : run.before;
        const size_t step = forward ? run.afterStep : run.beforeStep;
        for (uint64_t i = 0; i < run.count; ++i, values += step) {
            _places.push_back(run.first + i);
            _values.push_back(*values);
        }
        if (_places.size() >= kGathered) isSet = setGathered() && isSet;
    }
    isSet = setGathered() && isSet;
    changed += _changed;
    return isSet ? Status() : Status::failure(_writer.problem(), Status::Kind::NO_SPACE);
}

bool StoreField::setLong(const ChangeRun& run, bool forward)
{
    const uint8_t* const values = forward ? run.after : run.before;
    const size_t step = forward ? run.afterStep : run.beforeStep;
    const uint8_t kept = static_cast<uint8_t>(~_mask);
    uint64_t changed = 0;
    const size_t done = _writer.set(_records, PointRecord::kPointSize, _field, Consecutive{run.first},
                                    run.count, [&](size_t i, uint8_t old) {
                                        const auto wanted =
                                            static_cast<uint8_t>((old & kept) | values[i * step]);
                                        changed += wanted != old;
                                        return wanted;
                                    });
    _changed += changed;
    return done == run.count;
}

bool StoreField::setGathered()
{
    const uint8_t kept = static_cast<uint8_t>(~_mask);
    const size_t done = _writer.set(_records, PointRecord::kPointSize, _field, _places.data(), _places.size(),
                                    [&](size_t i, uint8_t old) {
                                        const auto wanted = static_cast<uint8_t>((old & kept) | _values[i]);
                                        _changed += wanted != old;
                                        return wanted;
                                    });
    const bool isSet = done == _places.size();
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
