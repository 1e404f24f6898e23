#include "viewer/edit/PictureMarks.h"

#include <VelOsgDBBrx/PointCloudHelper.h>

using VelOsgDBBrx::PointCloudHelper;

namespace {

constexpr int kEnhancedSize = 6;
const osg::Vec4f kEnhancedColor(1, 1, 0, 1);

} // namespace

PictureMarks::PictureMarks(Scene& scene, osgViewer::Viewer& viewer) : _scene(scene)
{
    for (const Scene::Cloud& cloud : scene.clouds())
        _state.stacks.emplace_back(&viewer, cloud.node);
}

void PictureMarks::restore(const State& state)
{
    _state = state;
    for (State::Stack& stack : _state.stacks)
        stack.apply();
    applyLine();
}

void PictureMarks::select(osg::Camera& camera, std::vector<osg::Vec2d> polygon, bool add)
{
    for (State::Stack& stack : _state.stacks) {
        stack.setCamera(&camera);
        stack.selectPushAndApply(polygon, add);
    }
}

void PictureMarks::segment(bool selectedOnly)
{
    for (State::Stack& stack : _state.stacks)
        stack.selectConvertSegment(!selectedOnly);
}

void PictureMarks::setLine(const std::vector<osg::Vec2f>& outline)
{
    _state.line = outline;
    applyLine();
}

void PictureMarks::applyLine()
{
    if (_state.line.empty())
        PointCloudHelper::clearEnhancedLine(_scene.root());
    else
        PointCloudHelper::setEnhancedLine(_scene.root(), _state.line, kEnhancedColor, kEnhancedSize);
}

void PictureMarks::clear()
{
    for (State::Stack& stack : _state.stacks)
        stack.clearAndApply();
    setLine({});
}

bool PictureMarks::isEmpty() const
{
    return !hasSelection() && !_state.stacks.front().hasSegment() && _state.line.empty();
}
