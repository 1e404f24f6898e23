#include "viewer/camera/SectionFrame.h"

#include "viewer/scene/StripHeights.h"

#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/SurfaceView.h>

#include <osg/Viewport>

#include <algorithm>

namespace {

constexpr double kFill = 0.92; ///< of the picture, by what is to be seen at first
constexpr double kSmallest = 1e-3;
constexpr double kLargest = 1e9;
constexpr double kInFront = 1; ///< world units from the eye to the strip

} // namespace

SectionFrame::SectionFrame(const Section& section, double low, double high, double aspect)
    : _section(section), _middle(section.length() / 2, (low + high) / 2)
{
    const double heights = std::max(high - low, 0.0) * section.exaggeration * aspect;
    _span = std::clamp(std::max(section.length(), heights) / kFill, kSmallest, kLargest);
}

SectionFrame SectionFrame::whole(const Section& section, const Scene& scene, double aspect)
{
    std::vector<osg::Vec4d> planes = section.planes();
    const osg::Vec2d way = section.along();
    planes.emplace_back(way.x(), way.y(), 0, -(way * section.from));
    planes.emplace_back(-way.x(), -way.y(), 0, way * section.to);
    const HeightSpan heights = heightsInside(scene, planes);
    return SectionFrame(section, heights.low, heights.high, aspect);
}

void SectionFrame::setSection(const Section& section)
{
    _middle.x() += (section.length() - _section.length()) / 2;
    _section = section;
}

osg::Vec2d SectionFrame::at(const osg::Vec2d& place, double aspect) const
{
    const double half = _span / 2;
    return _middle + osg::Vec2d(place.x() * half, place.y() * half / aspect / _section.exaggeration);
}

osg::Vec2d SectionFrame::placeOf(const osg::Vec2d& at, double aspect) const
{
    const osg::Vec2d way = (at - _middle) / (_span / 2);
    return osg::Vec2d(way.x(), way.y() * aspect * _section.exaggeration);
}

SectionFrame SectionFrame::moved(const osg::Vec2d& way) const
{
    SectionFrame frame = *this;
    frame._middle += way;
    return frame;
}

SectionFrame SectionFrame::zoomed(const osg::Vec2d& target, double part) const
{
    SectionFrame frame = *this;
    frame._span = std::clamp(_span * part, kSmallest, kLargest);
    frame._middle = target + (_middle - target) * (frame._span / _span);
    return frame;
}

osg::Vec3d SectionFrame::worldAt(const osg::Vec2d& at) const
{
    return osg::Vec3d(_section.from + _section.along() * at.x(), at.y());
}

osg::Vec2d SectionFrame::of(const osg::Vec3d& world) const
{
    return osg::Vec2d((osg::Vec2d(world.x(), world.y()) - _section.from) * _section.along(), world.z());
}

void SectionFrame::place(osg::Camera& camera) const
{
    const osg::Viewport* const viewport = camera.getViewport();
    const double aspect = viewport ? viewport->aspectRatio() : 1;
    const osg::Vec3d ahead(_section.ahead(), 0);
    const osg::Vec3d eye = worldAt(_middle) - ahead * (_section.width / 2 + kInFront);
    const double right = _span / 2;
    const double top = right / aspect / _section.exaggeration;
    camera.setViewMatrixAsLookAt(eye, eye + ahead, osg::Vec3d(0, 0, 1));
    camera.setProjectionMatrixAsOrtho(-right, right, -top, top, kInFront / 2, _section.width + 2 * kInFront);
    camera.setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
}

void clipPicture(osg::Camera& camera, const std::vector<osg::Vec4d>& planes)
{
    const osg::ref_ptr<osg::Node> holder = new osg::Node;
    holder->setStateSet(new osg::StateSet(*camera.getOrCreateStateSet()));
    VelOsgDBBrx::PointCloudHelper::setClipBox(holder, planes);
    camera.setStateSet(holder->getStateSet());
    VelOsgDBBrx::SurfaceView::setShownTo(camera, planes.empty()); // a strip is looked along, not at
}
