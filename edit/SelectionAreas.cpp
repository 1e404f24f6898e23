#include "edit/SelectionAreas.h"

#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <osg/ref_ptr>

#include <string>

using namespace VelOsgDBBrx;

namespace {

std::vector<PolygonArea> areasOf(const std::vector<ScreenPolygon>& polygons)
{
    std::vector<PolygonArea> areas;
    areas.reserve(polygons.size());
    for (const ScreenPolygon& polygon : polygons)
        areas.emplace_back(polygon.vertices);
    return areas;
}

} // namespace

SelectionAreas::SelectionAreas(PointSelection pointSelection, PixelBufferTool* tool)
    : SelectionAreas(std::move(pointSelection), std::nullopt, tool)
{
}

SelectionAreas::SelectionAreas(PointSelection pointSelection, std::optional<ScreenMask> known,
                               PixelBufferTool* tool)
    : selection(std::move(pointSelection)), status(checkSelection(selection)), mask(std::move(known))
{
    if (!status) return;
    if (const auto* screen = std::get_if<ScreenPlace>(&selection.place); screen && !mask) {
        const osg::ref_ptr<PixelBufferTool> used = tool ? tool : new PolygonMaskTool;
        mask.emplace(used.get(), screen->polygon, screen->width, screen->height);
        if (!mask->isValid())
            status = VelBrx::Status::failure(
                "no mask could be made for a window of " + std::to_string(screen->width) + " x " +
                std::to_string(screen->height) + " pixels; make the window smaller");
    }
    if (const auto* prism = std::get_if<MapPlace>(&selection.place)) map.emplace(prism->polygon);
    selected = areasOf(selection.selected);
    if (selection.undrawnToo) return;
    for (const ScreenSegment& segment : selection.drawn.segments)
        segments.push_back(areasOf(segment.polygons));
}
