#pragma once

#include <VelBrx/File.h>
#include <VelBrx/PointRecord.h>
#include <VelBrx/ReadErrors.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <limits>
#include <vector>

/// The point records of a store as commands and picks see them. Hidden bits are written as a single byte, so
/// that a point is always either as before or as wanted, also after a kill.

constexpr int kRecordSize = VelBrx::PointRecord::kPointSize;
constexpr int kFlagByte = VelBrx::PointRecord::kFlags;
constexpr int kClassByte = VelBrx::PointRecord::kClass;
constexpr int kGpsTimeByte = VelBrx::PointRecord::kGpsTime;
using VelBrx::PointRecord::kCulledBit;
using VelBrx::PointRecord::kHiddenBits;

/// Calls `visit(records, count, first)` for each run of records of a cell, which are `segments` of a file
/// whose first record is at byte `start`; `first` is the place of the run's first point in the cell's point
/// order. False when a run could not be mapped, which is left out while its points keep their places, or
/// could not be read: `visit` has seen zeros then.
template <class Visit>
bool forEachRun(VelBrx::File& file, int64_t start, const std::vector<VelBrx::Segment>& segments, Visit visit)
{
    constexpr int64_t kLargestIndex = std::numeric_limits<int64_t>::max() / kRecordSize / 2;
    bool complete = true;
    int64_t first = 0;
    for (const VelBrx::Segment& segment : segments) {
        if (segment.count <= 0) continue;
        const int64_t next = first + segment.count;
        const bool sane = segment.first >= 0 && segment.first <= kLargestIndex &&
                          next <= std::numeric_limits<uint32_t>::max();
        if (!sane) return false;
        const int64_t length = segment.count * kRecordSize;
        void* memory = file.map(start + segment.first * kRecordSize, length);
        if (memory) {
            visit(static_cast<uint8_t*>(memory), segment.count, static_cast<uint32_t>(first));
            complete = VelBrx::wasRead(memory, length) && complete;
            file.unmap(memory);
        } else
            complete = false;
        first = next;
    }
    return complete;
}

/// The same for a cell of an open octree.
template <class Visit>
bool forEachRun(const OctreeInfo& octree, const CellData& cell, Visit visit)
{
    return forEachRun(*octree.pointFile, octree.pointDataStart, cell.record.segments, visit);
}
