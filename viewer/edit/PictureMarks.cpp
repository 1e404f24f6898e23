#include "viewer/edit/PictureMarks.h"

#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>

#include <osg/Camera>

#include <utility>

using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::ScreenPolygon;
using VelOsgDBBrx::ScreenSegment;
using VelOsgDBBrx::SelectSegmentStack;

namespace {

constexpr int kEnhancedSize = 6;
const osg::Vec4f kEnhancedColor(1, 1, 0, 1);

/// Puts polygons into a stack as if they were drawn now, each over a camera that sees as theirs did.
void push(SelectSegmentStack& stack, osg::Camera& camera, const std::vector<ScreenPolygon>& polygons)
{
    const osg::Matrixd fromWindow = osg::Matrixd::inverse(camera.getViewport()->computeWindowMatrix());
    for (const ScreenPolygon& polygon : polygons) {
        camera.setProjectionMatrix(polygon.vpw * fromWindow);
        std::vector<osg::Vec2d> vertices = polygon.vertices;
        stack.selectPushAndApply(vertices, polygon.selects);
    }
}

/// Takes out what is on the negative side of a plane: all that a camera sees whose picture is one point.
ScreenPolygon deselectedBeyond(const osg::Vec4d& plane)
{
    osg::Matrixd vpw(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    for (int row = 0; row < 4; ++row)
        vpw(row, 3) = -plane[row]; // in front where this is positive
    return {{{-1, -1}, {1, -1}, {1, 1}, {-1, 1}}, vpw, false};
}

} // namespace

void PictureMarks::restore(const State& state)
{
    _state = state;
    markClouds();
    applyLine();
}

void PictureMarks::markClouds() const
{
    for (const Scene::Cloud& cloud : _scene.clouds())
        markCloud(cloud);
}

void PictureMarks::markCloud(const Scene::Cloud& cloud) const
{
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setViewport(0, 0, 1, 1);
    SelectSegmentStack stack(nullptr, cloud.node);
    stack.setCamera(camera);
    stack.clearAndApply();
    for (const ScreenSegment& segment : _state.segments) {
        push(stack, *camera, segment.polygons);
        stack.selectConvertSegment(segment.hidesSelected);
    }
    push(stack, *camera, _state.selection);
}

bool PictureMarks::select(const ScreenPolygon& polygon, const std::vector<osg::Vec4d>& planes)
{
    const bool isOfAnother = hasSelection() && !planes.empty() && planes != _state.planes;
    if (isOfAnother) _state.selection.clear();
    if (polygon.selects) _state.planes = planes;
    _state.selection.push_back(polygon);
    if (polygon.selects)
        for (const osg::Vec4d& plane : planes)
            _state.selection.push_back(deselectedBeyond(plane));
    markClouds();
    return isOfAnother;
}

void PictureMarks::segment(bool selectedOnly)
{
    _state.segments.push_back({!selectedOnly, std::exchange(_state.selection, {})});
    markClouds();
}

void PictureMarks::setLine(const std::vector<osg::Vec2f>& outline)
{
    _state.line = outline;
    applyLine();
}

void PictureMarks::applyLine() const
{
    if (_state.line.empty())
        PointCloudHelper::clearEnhancedLine(_scene.root());
    else
        PointCloudHelper::setEnhancedLine(_scene.root(), _state.line, kEnhancedColor, kEnhancedSize);
}

bool PictureMarks::isEmpty() const
{
    return !hasSelection() && _state.segments.empty() && _state.line.empty();
}
