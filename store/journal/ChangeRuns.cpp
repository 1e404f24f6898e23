#include "store/journal/ChangeRuns.h"

#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"

#include <algorithm>

namespace VelBrx::Journal {

namespace {

constexpr size_t kBlockHead = 32;
constexpr size_t kMostData = 65536; ///< bytes of a block behind its head
constexpr uint64_t kShort = 4;      ///< points; shorter runs side by side are written value by value

/// How the values of a run are written.
enum Form : unsigned
{
    SAME = 0,      ///< those of the last CONSTANT run of the block
    CONSTANT = 1,  ///< before, after
    FROM_EACH = 2, ///< after, then before of each point
    EACH = 3,      ///< before of each point, then after of each
    FORM_BITS = 2
};

void putNumber(std::vector<uint8_t>& data, uint64_t value)
{
    for (; value >= 0x80; value >>= 7)
        data.push_back(static_cast<uint8_t>(value | 0x80));
    data.push_back(static_cast<uint8_t>(value));
}

uint64_t foldSign(int64_t value)
{
    return static_cast<uint64_t>(value) << 1 ^ static_cast<uint64_t>(value >> 63);
}

int64_t unfoldSign(uint64_t value)
{
    return static_cast<int64_t>(value >> 1 ^ (0 - (value & 1)));
}

Status damaged(const char* what)
{
    return Status::failure(what, Status::Kind::DAMAGED);
}

/// The data of a block, read from its front.
class Cursor
{
public:
    Cursor(const uint8_t* data, size_t length) : _next(data), _end(data + length) {}

    bool atEnd() const { return _next == _end; }

    bool number(uint64_t& value)
    {
        value = 0;
        for (unsigned shift = 0; shift < 64 && _next < _end; shift += 7) {
            const uint8_t byte = *_next++;
            value |= uint64_t{byte & 0x7Fu} << shift;
            if (byte < 0x80) return shift < 63 || byte < 2;
        }
        return false;
    }

    /// `count` bytes in place; null where there are fewer.
    const uint8_t* bytes(uint64_t count)
    {
        if (count > static_cast<uint64_t>(_end - _next)) return nullptr;
        const uint8_t* const found = _next;
        _next += count;
        return found;
    }

private:
    const uint8_t* _next;
    const uint8_t* const _end;
};

/// Reads the values of a run, whose count is set. `last` are those of the last CONSTANT run.
bool readValues(Cursor& cursor, unsigned form, const uint8_t*& last, ChangeRun& run)
{
    run.beforeStep = form >= FROM_EACH;
    run.afterStep = form == EACH;
    if (form == CONSTANT) last = cursor.bytes(2);
    if (form <= CONSTANT) {
        run.before = last;
        run.after = last ? last + 1 : nullptr;
    } else if (form == FROM_EACH) {
        run.after = cursor.bytes(1);
        run.before = cursor.bytes(run.count);
    } else {
        run.before = cursor.bytes(run.count);
        run.after = cursor.bytes(run.count);
    }
    return run.before && run.after;
}

bool fitsMask(const uint8_t* values, uint64_t count, size_t step, uint8_t mask)
{
    return std::all_of(values, values + (step ? count : 1),
                       [mask](uint8_t value) { return (value & ~mask) == 0; });
}

/// Decodes a block whose checksum is right. False where a value cannot be; the number of its points is then
/// undefined.
bool decodeBlock(const uint8_t* block, size_t length, uint8_t mask, uint64_t pointCount,
                 std::vector<ChangeRun>& runs, uint64_t& points)
{
    runs.clear();
    points = 0;
    uint64_t end = loadLe<uint64_t>(block + 16);
    const uint8_t* last = nullptr;
    for (Cursor cursor(block + kBlockHead, length); !cursor.atEnd();) {
        uint64_t gap = 0;
        uint64_t count = 0;
        if (end > pointCount || !cursor.number(gap) || !cursor.number(count)) return false;
        ChangeRun run{};
        run.first = end + static_cast<uint64_t>(unfoldSign(gap));
        run.count = count >> FORM_BITS;
        if (run.count == 0 || run.first > pointCount || run.count > pointCount - run.first ||
            !readValues(cursor, count & 3, last, run) ||
            !fitsMask(run.before, run.count, run.beforeStep, mask) ||
            !fitsMask(run.after, run.count, run.afterStep, mask))
            return false;
        end = run.first + run.count;
        points += run.count;
        runs.push_back(run);
    }
    return points == loadLe<uint64_t>(block + 24);
}

} // namespace

void RunEncoder::startRun(uint64_t first, uint64_t count, uint8_t before, uint8_t after)
{
    if (_run.count > 0) _stretch.push_back(_run);
    if (first != _end || _stretch.size() >= kMostStretch) {
        encodeStretch();
        _stretchStart = first;
    } else if (_stretch.empty())
        _stretchStart = first;
    _run = {count, before, after};
}

void RunEncoder::putCount(uint64_t count, unsigned form)
{
    if (_data.empty()) {
        _data.resize(kBlockHead);
        _base = _encodedEnd = _stretchStart;
    }
    putNumber(_data, foldSign(static_cast<int64_t>(_stretchStart - _encodedEnd)));
    putNumber(_data, count << FORM_BITS | form);
    _stretchStart += count;
    _encodedEnd = _stretchStart;
    _blockPoints += count;
}

void RunEncoder::putRun(const Run& run)
{
    const bool isSame = _hasLast && run.before == _lastBefore && run.after == _lastAfter;
    putCount(run.count, isSame ? SAME : CONSTANT);
    if (isSame) return;
    _data.push_back(_lastBefore = run.before);
    _data.push_back(_lastAfter = run.after);
    _hasLast = true;
}

void RunEncoder::putShortRuns(const Run* runs, const Run* end)
{
    uint64_t count = 0;
    bool oneAfter = true;
    for (const Run* run = runs; run != end; ++run) {
        count += run->count;
        oneAfter &= run->after == runs->after;
    }
    putCount(count, oneAfter ? FROM_EACH : EACH);
    if (oneAfter) _data.push_back(runs->after);
    for (const Run* run = runs; run != end; ++run)
        _data.insert(_data.end(), run->count, run->before);
    for (const Run* run = runs; run != end && !oneAfter; ++run)
        _data.insert(_data.end(), run->count, run->after);
}

void RunEncoder::encodeStretch()
{
    const Run* const end = _stretch.data() + _stretch.size();
    const auto isShort = [](const Run& run) { return run.count < kShort; };
    for (const Run* run = _stretch.data(); run != end;) {
        const Run* const next = std::find_if_not(run, end, isShort);
        if (next - run > 1)
            putShortRuns(run, next);
        else
            putRun(*run);
        run = std::max(next, run + 1);
    }
    _stretch.clear();
}

const std::vector<uint8_t>& RunEncoder::finishBlock()
{
    if (_run.count > 0) _stretch.push_back(_run);
    _run = {};
    encodeStretch();
    _finished.clear();
    _finished.swap(_data);
    if (_finished.empty()) return _finished;
    uint8_t* const head = _finished.data();
    storeLe(head, static_cast<uint32_t>(_finished.size() - kBlockHead));
    storeLe(head + 8, _number);
    storeLe(head + 16, _base);
    storeLe(head + 24, _blockPoints);
    storeLe(head + 4, crc32c(head + 8, _finished.size() - 8));
    _points += _blockPoints;
    _blockPoints = 0;
    _hasLast = false;
    return _finished;
}

Status readRuns(const DiskFile& file, const EntryHead& head, uint64_t position, uint64_t pointCount,
                const RunsVisitor& visit)
{
    std::vector<uint8_t> block(kBlockHead + kMostData);
    std::vector<ChangeRun> runs;
    uint64_t points = 0;
    position += kUnit + head.textLength();
    for (uint64_t left = head.runsLength; left > 0;) {
        if (left < kBlockHead) return damaged("the runs of an entry end in the middle of a block");
        if (!file.read(position, block.data(), kBlockHead)) return damaged("an entry cannot be read");
        const uint32_t length = loadLe<uint32_t>(block.data());
        if (length > kMostData || length > left - kBlockHead || loadLe<uint64_t>(&block[8]) != head.number)
            return damaged("a block of an entry's runs has a damaged head");
        if (!file.read(position + kBlockHead, block.data() + kBlockHead, length))
            return damaged("an entry cannot be read");
        if (loadLe<uint32_t>(&block[4]) != crc32c(&block[8], kBlockHead - 8 + length))
            return damaged("a block of an entry's runs has a wrong checksum");
        uint64_t blockPoints = 0;
        if (!decodeBlock(block.data(), length, head.mask, pointCount, runs, blockPoints))
            return damaged("a block of an entry's runs says what cannot be");
        points += blockPoints; // no sum overflows: a block has at most 2^15 runs of 2^48 points
        if (points > head.points) break;
        if (Status status = visit(runs); !status) return status;
        position += kBlockHead + length;
        left -= kBlockHead + length;
    }
    return points == head.points ? Status() : damaged("an entry does not have as many points as it says");
}

} // namespace VelBrx::Journal
