#include "viewer/window/WaitingBoxes.h"

#include "viewer/edit/WindowView.h"
#include "viewer/window/WorldLines.h"

#include <algorithm>

namespace {

constexpr size_t kMostBoxes = 300; ///< a list of Dear ImGui has room for some 600
constexpr ImU32 kNext = IM_COL32(150, 160, 175, 150);
constexpr ImU32 kAll = IM_COL32(150, 160, 175, 255);

void drawBox(const WorldLines& lines, const osg::BoundingBoxd& box, ImU32 color, float width)
{
    for (unsigned corner = 0; corner < 8; ++corner)
        for (const unsigned axis : {1u, 2u, 4u})
            if (!(corner & axis)) lines.draw(box.corner(corner), box.corner(corner | axis), color, width);
}

void drawWaiting(const Scene& scene, const Sight& sight, float unit)
{
    const std::optional<WindowView> window = windowViewOf(*sight.camera);
    if (!window) return;
    const std::vector<std::string> next = wantedStores(scene.waiting(), volumesOf({sight}));
    const WorldLines lines(*sight.camera, *window);
    osg::BoundingBoxd all;
    for (size_t i = 0; i < next.size(); ++i) {
        const osg::BoundingBoxd& box = scene.waiting().at(next[i]).bounds;
        all.expandBy(box);
        if (i < kMostBoxes) drawBox(lines, box, kNext, unit);
    }
    if (all.valid()) drawBox(lines, all, kAll, unit);
}

} // namespace

std::vector<ViewVolume> volumesOf(const std::vector<Sight>& sights)
{
    std::vector<ViewVolume> views;
    for (const Sight& sight : sights)
        views.push_back({sight.camera->getViewMatrix() * sight.camera->getProjectionMatrix(), sight.planes});
    return views;
}

void drawWaitingBoxes(const Scene& scene, const std::vector<Sight>& sights, float unit)
{
    if (scene.waiting().empty()) return;
    for (const Sight& sight : sights)
        drawWaiting(scene, sight, unit);
}
