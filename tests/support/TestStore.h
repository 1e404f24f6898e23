#pragma once

#include "store/StoreIndex.h"
#include "tests/support/TestPoint.h"

#include <cstdint>
#include <string>
#include <vector>

/// A store put together in memory, point by point and without the builder, for tests of all that reads
/// stores.
struct TestStore
{
    double scale[3] = {0.01, 0.01, 0.01};
    double offset[3] = {0, 0, 0};
    std::string coordinateSystem; ///< OGC WKT; empty: none
    std::vector<TestPoint> points;
    VelBrx::StoreIndex index;

    /// Adds a cell with one segment of `cellPoints`, behind the points there are. Add coarse cells first, the
    /// cells of a level by ascending code.
    void addCell(uint8_t level, uint64_t code, const std::vector<TestPoint>& cellPoints);

    /// Fills `index.statistics` from the points.
    void updateStatistics();

    /// Byte position of the first point record, and of the index record's content.
    size_t pointDataStart() const;
    size_t indexStart() const;

    /// The bytes of the store's file.
    std::vector<uint8_t> bytes() const;
};

/// Three levels, five cells, the root in two segments, 14 points of which no two are alike.
TestStore smallStore();

/// Makes the checksums in `file`, a store of which nothing moved, fit its bytes.
void fitChecksums(std::vector<uint8_t>& file, const TestStore& store);
