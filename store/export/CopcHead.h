#pragma once

#include "store/StoreIndex.h"
#include "store/export/LasHead.h"
#include "store/las/laz/LazChunkTable.h"

#include <array>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// The cube of a COPC file. It is the store's cube, moved down by a fraction of a step of the coordinates:
/// then no border of a node meets a coordinate, and readers that find nodes by halving the cube get those of
/// the store whatever their rounding.
struct CopcCube
{
    CopcCube(const StoreIndex& index, const BrxHeader& header);

    /// The corners of a node as readers find them, from the cube down.
    struct Box
    {
        std::array<double, 3> min;
        std::array<double, 3> max;
    };
    Box node(unsigned level, uint64_t code) const;

    std::array<double, 3> center;
    double halfSize;
    double spacing; ///< of the root's points, halved from level to level
};

/// Least and greatest GPS time; of no points both are 0.
struct GpsTimeRange
{
    double min = 0;
    double max = 0;
};

/// Turns the head of a LAS 1.4 file into the head of a COPC file: compressed points, and the record that says
/// so first of all VLRs. False where the head has no room.
bool makeCopcHead(const LazItems& items, LasHead& head);

/// Fills in that record, and where the EVLRs are. `hierarchyStart` is the position of the EVLR's head.
void tellCopc(const CopcCube& cube, const GpsTimeRange& times, uint64_t hierarchyStart,
              uint64_t hierarchyLength, LasHead& head);

/// The EVLR with the nodes: one for each cell, with its chunk.
std::vector<uint8_t> makeCopcHierarchy(const std::vector<IndexCell>& cells,
                                       const std::vector<LazChunk>& chunks);

/// Whether VLRs of the head give a coordinate system in the form that COPC readers know (WKT).
bool hasWkt(const LasHead& head);

} // namespace VelBrx
