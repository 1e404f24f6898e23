#include "category/ListedPoints.h"

#include "edit/StoreEdit.h"

#include <VelOsgDBBrx/CellData.h>

#include <algorithm>
#include <map>

namespace {

/// A run of points in the point file and where it stands in its cell.
struct Run
{
    int64_t first;
    int64_t end;
    CellData* cell;
    uint32_t place;
};

/// All runs of the octree, ascending.
std::vector<Run> allRuns(const OctreeInfo& octree)
{
    std::vector<Run> runs;
    for (CellData* cell : allCells(octree)) {
        uint32_t place = 0;
        for (const VelBrx::Segment& segment : cell->record.segments) {
            if (segment.count <= 0) continue;
            runs.push_back({segment.first, segment.first + segment.count, cell, place});
            place += static_cast<uint32_t>(segment.count);
        }
    }
    std::sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.first < b.first; });
    return runs;
}

} // namespace

std::vector<CellPoints> sortByCell(const OctreeInfo& octree, std::vector<PointClass> points)
{
    std::stable_sort(points.begin(), points.end(),
                     [](const PointClass& a, const PointClass& b) { return a.first < b.first; });
    const std::vector<Run> runs = allRuns(octree);
    std::map<CellData*, std::vector<std::pair<uint32_t, uint8_t>>> cells;
    auto run = runs.begin();
    for (size_t i = 0; i < points.size(); ++i) {
        const auto [index, toClass] = points[i];
        if (i + 1 < points.size() && points[i + 1].first == index) continue;
        while (run != runs.end() && run->end <= index)
            ++run;
        if (run == runs.end()) break;
        if (index < run->first) continue;
        cells[run->cell].emplace_back(run->place + static_cast<uint32_t>(index - run->first), toClass);
    }

    std::vector<CellPoints> sorted;
    for (auto& [cell, list] : cells) {
        std::sort(list.begin(), list.end());
        sorted.push_back({cell, std::move(list)});
    }
    return sorted;
}
