#include "store/journal/PointMatch.h"

#include "store/io/ByteIo.h"
#include "store/io/TemporaryFile.h"

#include <VelBrx/PointRecord.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <mutex>
#include <tuple>

#include <sys/mman.h>

namespace VelBrx::Journal {

namespace {

constexpr uint64_t kBlock = 65536; ///< points that a thread takes at once

const uint8_t* recordOf(const MatchedStore& store, uint64_t point)
{
    return store.records + point * PointRecord::kPointSize;
}

/// What tells points in one place apart.
auto valuesOf(const MatchedStore& store, uint64_t point)
{
    const uint8_t* const record = recordOf(store, point);
    return std::tuple(loadLe<uint64_t>(record + PointRecord::kGpsTime), // as bits: also NaN has an order
                      loadLe<uint16_t>(record + PointRecord::kIntensity), record[PointRecord::kReturns],
                      loadLe<uint16_t>(record + PointRecord::kPointSource));
}

uint64_t hashOf(const std::array<int32_t, 3>& place)
{
    uint64_t hash = 0;
    for (const int32_t number : place) {
        hash = (hash ^ static_cast<uint32_t>(number)) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 29;
    }
    return hash;
}

} // namespace

struct PointMatch::Entry
{
    Place place;
    uint32_t high; ///< of the point: halves keep the entry at 20 bytes
    uint32_t low;

    uint64_t point() const { return uint64_t{high} << 32 | low; }
    bool operator<(const Entry& other) const
    {
        return std::tie(place, high, low) < std::tie(other.place, other.high, other.low);
    }
};

/// Places are taken in parts that fit the memory.
struct PointMatch::Pass
{
    uint64_t part;
    uint64_t parts;
};

PointMatch::PointMatch(const MatchedStore& from, const MatchedStore& to)
    : _from(from), _to(to), _bits((from.count + 63) / 64)
{
    for (size_t axis = 0; axis < 3; ++axis) {
        const MatchedStore& coarser = from.scale[axis] > to.scale[axis] ? from : to;
        _scale[axis] = coarser.scale[axis];
        _offset[axis] = coarser.offset[axis];
    }
}

PointMatch::~PointMatch()
{
    if (_partners) munmap(_partners, _asked * sizeof *_partners);
}

void PointMatch::ask(uint64_t first, uint64_t count)
{
    for (; count > 0; ++first, --count)
        _bits[first / 64] |= uint64_t{1} << first % 64;
}

/// False where the point lies outside all places that the coarser store can have.
bool PointMatch::placeOf(const MatchedStore& store, uint64_t point, Place& place) const
{
    const uint8_t* const record = recordOf(store, point);
    for (size_t axis = 0; axis < 3; ++axis) {
        const double coordinate =
            loadLe<int32_t>(record + PointRecord::kX + 4 * axis) * store.scale[axis] + store.offset[axis];
        const double steps = std::round((coordinate - _offset[axis]) / _scale[axis]);
        if (!(std::abs(steps) <= std::numeric_limits<int32_t>::max())) return false;
        place[axis] = static_cast<int32_t>(steps);
    }
    return true;
}

void PointMatch::countAsked()
{
    _ranks.resize(_bits.size());
    for (size_t word = 0; word < _bits.size(); ++word) {
        _ranks[word] = _asked;
        _asked += static_cast<uint64_t>(__builtin_popcountll(_bits[word]));
    }
}

uint64_t PointMatch::rank(uint64_t point) const
{
    const uint64_t before = (uint64_t{1} << point % 64) - 1;
    return _ranks[point / 64] + static_cast<uint64_t>(__builtin_popcountll(_bits[point / 64] & before));
}

Status PointMatch::makePartners(const std::string& folder)
{
    int descriptor = -1;
    if (Status status = openTemporaryFile(folder, descriptor); !status) return status;
    _file.take(descriptor, folder + ": a temporary file");
    const uint64_t size = _asked * sizeof *_partners;
    Status status = _file.reserve(size);
    if (status) status = _file.cut(size);
    if (!status) return status;
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) return systemFailure(folder + ": a temporary file cannot be mapped", errno);
    _partners = static_cast<uint64_t*>(memory);
    return {};
}

/// Few points of a store share their place's bit with one that is asked for: the others are left out early.
void PointMatch::notePlaces()
{
    uint64_t bits = uint64_t{1} << 16;
    while (bits < _asked * 8 && bits < uint64_t{1} << 31)
        bits *= 2;
    _places.assign(bits / 64, 0);
    for (uint64_t point = 0; point < _from.count; ++point) {
        Place place;
        if (!isAsked(point) || !placeOf(_from, point, place)) continue;
        const uint64_t bit = hashOf(place) & (bits - 1);
        _places[bit / 64] |= uint64_t{1} << bit % 64;
    }
}

Status PointMatch::gather(const MatchedStore& store, const Pass& pass, ParallelRun& run,
                          std::vector<Entry>& entries)
{
    entries.clear();
    std::mutex mutex; // guards entries
    const uint64_t bits = _places.size() * 64;
    return run.forEach((store.count + kBlock - 1) / kBlock, [&](size_t block) {
        std::vector<Entry> found;
        const uint64_t first = block * kBlock;
        const uint64_t end = std::min(store.count, first + kBlock);
        for (uint64_t point = first; point < end; ++point) {
            Place place;
            if (!placeOf(store, point, place)) continue;
            const uint64_t hash = hashOf(place);
            const uint64_t bit = hash & (bits - 1);
            if ((_places[bit / 64] >> bit % 64 & 1) == 0 || (hash >> 32) % pass.parts != pass.part) continue;
            found.push_back({place, static_cast<uint32_t>(point >> 32), static_cast<uint32_t>(point)});
        }
        const std::lock_guard<std::mutex> guard(mutex);
        entries.insert(entries.end(), found.begin(), found.end());
        return run.step(0);
    });
}

void PointMatch::setPartner(uint64_t point, uint64_t partner)
{
    if (!isAsked(point)) return;
    _partners[rank(point)] = partner + 1;
    ++_found;
}

/// Pairs the points of one place.
void PointMatch::pairGroup(const Entry* from, const Entry* fromEnd, const Entry* to, const Entry* toEnd)
{
    if (fromEnd - from == 1 && toEnd - to == 1) return setPartner(from->point(), to->point());
    const auto sorted = [](const MatchedStore& store, const Entry* entry, const Entry* end) {
        std::vector<uint64_t> points;
        for (; entry != end; ++entry)
            points.push_back(entry->point());
        std::stable_sort(points.begin(), points.end(),
                         [&](uint64_t a, uint64_t b) { return valuesOf(store, a) < valuesOf(store, b); });
        return points;
    };
    const std::vector<uint64_t> ours = sorted(_from, from, fromEnd);
    const std::vector<uint64_t> theirs = sorted(_to, to, toEnd);
    std::vector<uint64_t> oursLeft;
    std::vector<uint64_t> theirsLeft;
    for (auto a = ours.begin(), b = theirs.begin(); a != ours.end() || b != theirs.end();) {
        if (b == theirs.end() || (a != ours.end() && valuesOf(_from, *a) < valuesOf(_to, *b)))
            oursLeft.push_back(*a++);
        else if (a == ours.end() || valuesOf(_to, *b) < valuesOf(_from, *a))
            theirsLeft.push_back(*b++);
        else
            setPartner(*a++, *b++);
    }
    for (size_t i = 0; i < std::min(oursLeft.size(), theirsLeft.size()); ++i)
        setPartner(oursLeft[i], theirsLeft[i]);
}

void PointMatch::pair(std::vector<Entry>& from, std::vector<Entry>& to)
{
    std::sort(from.begin(), from.end());
    std::sort(to.begin(), to.end());
    const Entry* b = to.data();
    const Entry* const bEnd = b + to.size();
    for (const Entry *a = from.data(), *aEnd = a + from.size(); a != aEnd;) {
        const Place place = a->place;
        const auto isThere = [&](const Entry& entry) { return entry.place == place; };
        const Entry* const next = std::find_if_not(a, aEnd, isThere);
        while (b != bEnd && b->place < place)
            ++b;
        const Entry* const bNext = std::find_if_not(b, bEnd, isThere);
        if (bNext != b) pairGroup(a, next, b, bNext);
        a = next;
        b = bNext;
    }
}

Status PointMatch::run(const std::string& folder, uint64_t memory, ParallelRun& run)
{
    countAsked();
    if (_asked == 0) return {};
    if (Status status = makePartners(folder); !status) return status;
    notePlaces();
    const uint64_t parts = _asked * 2 * 3 / 2 * sizeof(Entry) / memory + 1; // with what vectors grow ahead
    std::vector<Entry> from;
    std::vector<Entry> to;
    for (uint64_t part = 0; part < parts; ++part) {
        if (Status status = gather(_from, {part, parts}, run, from); !status) return status;
        if (Status status = gather(_to, {part, parts}, run, to); !status) return status;
        pair(from, to);
    }
    return {};
}

uint64_t PointMatch::partner(uint64_t point) const
{
    return _partners[rank(point)] - 1;
}

} // namespace VelBrx::Journal
