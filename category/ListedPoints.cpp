#include "category/ListedPoints.h"

#include "edit/RecordRuns.h"
#include "edit/StoreEdit.h"

#include <VelOsgDBBrx/CellData.h>

#include <algorithm>
#include <map>

std::vector<CellPoints> sortByCell(const OctreeInfo& octree, std::vector<PointClass> points)
{
    std::stable_sort(points.begin(), points.end(),
                     [](const PointClass& a, const PointClass& b) { return a.first < b.first; });
    const std::vector<CellData*> all = allCells(octree);
    RecordRuns runs;
    for (size_t cell = 0; cell < all.size(); ++cell)
        runs.add(all[cell]->record.segments, cell);
    runs.sort();
    std::map<size_t, std::vector<std::pair<uint32_t, uint8_t>>> cells;
    for (size_t i = 0; i < points.size(); ++i) {
        const auto [index, toClass] = points[i];
        if (index < 0 || (i + 1 < points.size() && points[i + 1].first == index)) continue;
        runs.forEachCell(static_cast<uint64_t>(index), 1,
                         [&, &code = toClass](size_t cell, uint32_t place, uint64_t, uint64_t) {
                             cells[cell].emplace_back(place, code);
                         });
    }

    std::vector<CellPoints> sorted;
    for (auto& [cell, list] : cells) {
        std::sort(list.begin(), list.end());
        sorted.push_back({all[cell], std::move(list)});
    }
    return sorted;
}
