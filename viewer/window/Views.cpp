#include "viewer/window/Views.h"

#include <osg/GraphicsContext>

#include <algorithm>

namespace {

/// Of a window that is smaller than its panels.
constexpr int kSmallest = 1; ///< pixels
constexpr double kSmallestShare = 0.1;

/// Draw threads may still use the viewport of the last frame: the camera gets another one.
void place(osg::Camera& camera, int x, int y, int width, int height)
{
    width = std::max(width, kSmallest);
    height = std::max(height, kSmallest);
    const osg::Viewport* const now = camera.getViewport();
    if (now && now->x() == x && now->y() == y && now->width() == width && now->height() == height) return;
    camera.setViewport(new osg::Viewport(x, y, width, height));
}

bool isIn(const osg::Camera& camera, double x, double y)
{
    const osg::Viewport* const area = camera.getViewport();
    return area && x >= area->x() && x < area->x() + area->width() && y >= area->y() &&
           y < area->y() + area->height();
}

/// Drawn before the main picture, after which the window's panels are.
osg::ref_ptr<osg::Camera> makeSectionCamera(osgViewer::Viewer& viewer)
{
    const osg::Camera& main = *viewer.getCamera();
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setNodeMask(0);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setProjectionResizePolicy(osg::Camera::FIXED);
    camera->setRenderOrder(main.getRenderOrder(), main.getRenderOrderNum() - 1);
    camera->setAllowEventFocus(false);
    camera->setViewport(0, 0, kSmallest, kSmallest);
    camera->setDrawBuffer(main.getDrawBuffer());
    camera->setReadBuffer(main.getReadBuffer());
    camera->setGraphicsContext(const_cast<osg::GraphicsContext*>(main.getGraphicsContext()));
    const bool runs = viewer.areThreadsRunning();
    if (runs) viewer.stopThreading();
    if (camera->getGraphicsContext()) viewer.addSlave(camera);
    if (runs) viewer.startThreading();
    return camera;
}

} // namespace

Views::Views(osgViewer::Viewer& viewer, const Scene& scene, const Look& home)
    : _viewer(viewer), _scene(scene), _manipulator(new SurveyManipulator(scene)),
      _camera(makeSectionCamera(viewer))
{
    _manipulator->start(Pose(home, Lens()));
    _viewer.setCameraManipulator(_manipulator);
    if (const osg::Viewport* whole = _viewer.getCamera()->getViewport())
        _area = {static_cast<int>(whole->x()), static_cast<int>(whole->y()), static_cast<int>(whole->width()),
                 static_cast<int>(whole->height())};
}

Sight Views::main() const
{
    return {_viewer.getCamera()};
}

Sight Views::under(double x, double y) const
{
    return isOverSection(x, y) ? Sight{_camera, _frame->section().planes()} : main();
}

std::vector<Sight> Views::all() const
{
    std::vector<Sight> sights = {main()};
    if (_frame) sights.push_back({_camera, _frame->section().planes()});
    return sights;
}

void Views::setArea(int x, int y, int width, int height)
{
    _area = {x, y, width, height};
    layOut();
}

/// The row below the divider.
int Views::dividerRow() const
{
    return _area.y + static_cast<int>((_area.height - kDivider) * _share);
}

void Views::layOut()
{
    if (!_frame) {
        place(*_viewer.getCamera(), _area.x, _area.y, _area.width, _area.height);
        return;
    }
    const int row = dividerRow();
    place(*_camera, _area.x, _area.y, _area.width, row - _area.y);
    place(*_viewer.getCamera(), _area.x, row + kDivider, _area.width,
          _area.y + _area.height - row - kDivider);
    _frame->place(*_camera);
}

std::optional<Section> Views::section() const
{
    return _frame ? std::optional<Section>(_frame->section()) : std::nullopt;
}

void Views::showSection(const std::optional<Section>& section)
{
    if (!_camera->getGraphicsContext()) return; // a main picture of several windows cannot be divided
    _frame.reset();
    if (section && !_scene.isEmpty()) {
        const double aspect = _area.width / std::max((_area.height - kDivider) * _share, 1.0);
        _frame = SectionFrame::whole(*section, _scene, aspect);
        clipPicture(*_camera, section->planes());
    }
    _camera->setNodeMask(_frame ? ~0u : 0u);
    layOut();
}

void Views::changeSection(const Section& section)
{
    if (!_frame) return;
    _frame->setSection(section);
    clipPicture(*_camera, section.planes());
    layOut();
}

void Views::drawSection()
{
    if (_drawing) _drawing();
}

void Views::setFrame(const SectionFrame& frame)
{
    _frame = frame;
    layOut();
}

bool Views::isOverSection(double x, double y) const
{
    return _frame && isIn(*_camera, x, y);
}

bool Views::isOnDivider(double x, double y) const
{
    const int row = dividerRow();
    return _frame && x >= _area.x && x < _area.x + _area.width && y >= row && y < row + kDivider;
}

void Views::moveDivider(double y)
{
    const double share = (y - kDivider / 2.0 - _area.y) / std::max(_area.height - kDivider, 1);
    _share = std::clamp(share, kSmallestShare, 1 - kSmallestShare);
    layOut();
}

osg::Vec2d Views::placeOf(const osg::Camera& camera, double x, double y)
{
    const osg::Viewport& area = *camera.getViewport();
    return osg::Vec2d(2 * (x - area.x()) / area.width() - 1, 2 * (y - area.y()) / area.height() - 1);
}
