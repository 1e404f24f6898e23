#include "viewer/scene/WaitingStore.h"

#include "terminal/Text.h"
#include "viewer/scene/HomeBounds.h"

#include <VelBrx/FolderIndex.h>

#include <osg/Vec4d>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <utility>

namespace fs = std::filesystem;
using VelBrx::Status;

namespace {

osg::Vec4d inHomogeneous(const osg::Vec3d& place)
{
    return osg::Vec4d(place, 1);
}

/// How far a box is from the eye, of a parallel projection from the picture's middle: in no unit.
double distanceOf(const osg::BoundingBoxd& box, const ViewVolume& view)
{
    const osg::Vec4d place = inHomogeneous(box.center()) * view.toClip;
    return osg::Vec3d(place.x(), place.y(), place.w()).length2();
}

/// The paths of stores in views, the nearest first, and then of those of the others that `isWanted` says.
template <class IsWanted>
std::vector<std::string> inOrder(const WaitingStores& waiting, const std::vector<ViewVolume>& views,
                                 IsWanted isWanted)
{
    constexpr double kBehindAll = std::numeric_limits<double>::max();
    std::vector<std::pair<double, const std::string*>> wanted;
    for (const auto& [path, store] : waiting) {
        double distance = kBehindAll;
        for (const ViewVolume& view : views)
            if (view.reaches(store.bounds)) distance = std::min(distance, distanceOf(store.bounds, view));
        if (distance < kBehindAll || isWanted(store)) wanted.emplace_back(distance, &path);
    }
    std::stable_sort(wanted.begin(), wanted.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> paths;
    for (const auto& [distance, path] : wanted)
        paths.push_back(*path);
    return paths;
}

std::string storesText(size_t count)
{
    return grouped(count) + (count == 1 ? " store is" : " stores are");
}

} // namespace

bool isBeyond(const osg::BoundingBoxd& box, const std::vector<osg::Vec4d>& planes)
{
    return std::any_of(planes.begin(), planes.end(), [&](const osg::Vec4d& plane) {
        bool isInside = false;
        for (unsigned corner = 0; corner < 8 && !isInside; ++corner)
            isInside = inHomogeneous(box.corner(corner)) * plane >= 0;
        return !isInside;
    });
}

bool ViewVolume::reaches(const osg::BoundingBoxd& box) const
{
    // All corners beyond the same side: left, right, below, above, behind the eye.
    unsigned beyond = 0x1f;
    for (unsigned corner = 0; corner < 8 && beyond != 0; ++corner) {
        const osg::Vec4d place = inHomogeneous(box.corner(corner)) * toClip;
        beyond &= (place.x() < -place.w() ? 1u : 0u) | (place.x() > place.w() ? 2u : 0u) |
                  (place.y() < -place.w() ? 4u : 0u) | (place.y() > place.w() ? 8u : 0u) |
                  (place.w() <= 0 ? 16u : 0u);
    }
    return beyond == 0 && !isBeyond(box, planes);
}

bool hasIndexFile(const std::string& folder)
{
    std::error_code error;
    return fs::exists(VelBrx::folderIndexPath(folder), error);
}

Status readIndexedStores(const std::string& folder, std::vector<WaitingStore>& indexed,
                         std::vector<std::string>& notes, std::vector<std::string>& problems)
{
    VelBrx::FolderIndex index;
    VelBrx::FolderReport report;
    if (Status read = VelBrx::readFolder(folder, index, report); !read) return read;
    if (!report.remark.empty()) notes.push_back(report.remark);
    problems.insert(problems.end(), report.problems.begin(), report.problems.end());
    std::vector<std::optional<CoordinateSystem>> systems(index.systems.size());
    for (size_t i = 0; i < systems.size(); ++i)
        if (Status known = CoordinateSystem::read(index.systems[i], systems[i]); !known)
            notes.push_back(known.of(folder).message());
    for (VelBrx::IndexedStore& store : index.stores) {
        WaitingStore& waiting = indexed.emplace_back();
        waiting.path = (fs::path(folder) / store.name).string();
        waiting.bounds.set(store.min[0], store.min[1], store.min[2], store.max[0], store.max[1],
                           store.max[2]);
        waiting.bulk = bulkOf(store.bulk, store.statistics.elevation);
        waiting.points = store.points;
        waiting.statistics = std::move(store.statistics);
        waiting.system = systems[store.system];
        waiting.isEdited = store.edits > 0;
    }
    return {};
}

std::vector<std::string> wantedStores(const WaitingStores& waiting, const std::vector<ViewVolume>& views)
{
    return inOrder(waiting, views, [](const WaitingStore& store) { return store.isEdited; });
}

std::vector<std::string> allStores(const WaitingStores& waiting, const std::vector<ViewVolume>& views)
{
    return inOrder(waiting, views, [](const WaitingStore&) { return true; });
}

size_t countIn(const ViewVolume& view, const WaitingStores& waiting)
{
    return static_cast<size_t>(std::count_if(waiting.begin(), waiting.end(), [&](const auto& store) {
        return view.reaches(store.second.bounds);
    }));
}

std::string whyNotAll(const WaitingStores& waiting)
{
    return waiting.empty() ? ""
                           : storesText(waiting.size()) + " not open and would be left out: open all, by "
                                                          "openAll or in the panel, and try again";
}

std::string whyNotIn(const ViewVolume& view, const WaitingStores& waiting)
{
    const size_t count = countIn(view, waiting);
    return count == 0
               ? ""
               : storesText(count) + " not open yet under this outline: try again when they are, or open all";
}

std::string whyNoHistory(const WaitingStores& waiting)
{
    const auto count = std::count_if(waiting.begin(), waiting.end(),
                                     [](const auto& store) { return store.second.isEdited; });
    return count == 0 ? ""
                      : std::to_string(count) +
                            " stores with edits are not open yet: try again when they are, or open all";
}
