#pragma once

#include "tests/support/TempFolder.h"

#include <cstdint>
#include <string>
#include <vector>

/// The synthetic survey twice: cut into tiles of equally many points, each a store of its own, and as one
/// store. In a folder that goes away with the object. Throws when it cannot be made.
class TiledSurvey
{
public:
    /// `columns` x `rows` tiles.
    TiledSurvey(uint64_t points, size_t columns, size_t rows);

    const std::vector<std::string>& tiles() const { return _tiles; }
    const std::string& whole() const { return _whole; }
    uint64_t pointCount() const { return _pointCount; }

private:
    void buildTile(const std::vector<uint8_t>& survey, const std::vector<const uint8_t*>& records);

    TempFolder _folder;
    std::vector<std::string> _tiles;
    std::string _whole;
    uint64_t _pointCount = 0;
};
