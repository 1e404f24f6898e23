#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The points of a store by level and place, for looking at how evenly its levels are thinned. Throws when
/// the store cannot be read.
class LevelDensity
{
public:
    explicit LevelDensity(const std::string& store);

    unsigned levelCount() const { return static_cast<unsigned>(_points.size()); }

    /// Divisions of the cube's edge on the sampling grid of a level.
    static unsigned gridDivisions(unsigned level) { return 128u << level; }

    /// The points of the levels [first, last] in each square of a grid of `divisions` x `divisions` over the
    /// cube's base, row by row from the smallest y.
    std::vector<uint32_t> counts(unsigned first, unsigned last, unsigned divisions) const;

private:
    struct Place
    {
        float x, y; ///< 0 to 1 over the cube's base
    };
    std::vector<std::vector<Place>> _points; ///< by level
};
