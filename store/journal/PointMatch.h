#pragma once

#include "store/io/DiskFile.h"
#include "store/io/ParallelRun.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx::Journal {

/// The point records of a store in memory, with what makes coordinates of their integers.
struct MatchedStore
{
    const uint8_t* records;
    uint64_t count;
    std::array<double, 3> scale;
    std::array<double, 3> offset;
};

/// Finds points of one store in another one that was built from other files, or from the same in another way.
///
/// Points are the same where their coordinates are, as far as the store with the coarser steps tells: rounded
/// to its grid, axis by axis. Of several points in one place those are paired first that have the same GPS
/// time, intensity, returns and source id, then the others in the order of these values. A point has one
/// partner at most, and one that is not asked for keeps its own partner.
///
/// Memory: a bit for each point of `from`, and what `run` is given. One thread at a time.
class PointMatch
{
public:
    static constexpr uint64_t kNone = ~uint64_t{0};

    /// The records of both outlive the match.
    PointMatch(const MatchedStore& from, const MatchedStore& to);
    ~PointMatch();
    PointMatch(const PointMatch&) = delete;
    PointMatch& operator=(const PointMatch&) = delete;

    /// Asks for points of `from`. Before `run`.
    void ask(uint64_t first, uint64_t count);

    /// Finds what was asked for. The partners stand in a file without a name on the disk of `folder`, eight
    /// bytes a point.
    Status run(const std::string& folder, uint64_t memory, ParallelRun& run);

    uint64_t asked() const { return _asked; }
    uint64_t found() const { return _found; }

    /// The partner in `to` of a point that was asked for, or `kNone`.
    uint64_t partner(uint64_t point) const;

private:
    using Place = std::array<int32_t, 3>;
    struct Entry;
    struct Pass;

    bool isAsked(uint64_t point) const { return (_bits[point / 64] >> point % 64 & 1) != 0; }
    uint64_t rank(uint64_t point) const;
    bool placeOf(const MatchedStore& store, uint64_t point, Place& place) const;
    void countAsked();
    Status makePartners(const std::string& folder);
    void notePlaces();
    Status gather(const MatchedStore& store, const Pass& pass, ParallelRun& run, std::vector<Entry>& entries);
    void pair(std::vector<Entry>& from, std::vector<Entry>& to);
    void pairGroup(const Entry* from, const Entry* fromEnd, const Entry* to, const Entry* toEnd);
    void setPartner(uint64_t point, uint64_t partner);

    const MatchedStore _from;
    const MatchedStore _to;
    std::array<double, 3> _scale; ///< of the grid on which places are compared
    std::array<double, 3> _offset;
    std::vector<uint64_t> _bits;   ///< of `from`: asked for
    std::vector<uint64_t> _ranks;  ///< points asked for before each word of `_bits`
    std::vector<uint64_t> _places; ///< bits of the hashes of places that are asked for
    uint64_t _asked = 0;
    uint64_t _found = 0;
    DiskFile _file;
    uint64_t* _partners = nullptr; ///< by rank: the partner and 1, 0 for none
};

} // namespace VelBrx::Journal
