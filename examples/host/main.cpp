// A host with more than the smallest: several stores by height, shaded, under a budget, smooth to move in,
// and points that are picked and measured between.
#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/MoveLevel.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <VelOsgDBBrx/OpenGLCheck.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgDBBrx/PointPicker.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/Group>
#include <osgGA/GUIEventHandler>
#include <osgGA/TrackballManipulator>
#include <osgViewer/Viewer>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <optional>
#include <vector>

using namespace VelOsgDBBrx;

namespace {

/// The range of heights of all stores, for one scale of colours.
VelBrx::AttributeRange heightsOf(const std::vector<OpenedCloud>& clouds)
{
    VelBrx::AttributeRange all = clouds.front().statistics.elevation;
    for (const OpenedCloud& cloud : clouds) {
        const VelBrx::AttributeRange& own = cloud.statistics.elevation;
        all.low = std::min(all.low, own.low);
        all.high = std::max(all.high, own.high);
        all.min = std::min(all.min, own.min);
        all.max = std::max(all.max, own.max);
    }
    return all;
}

/// Tells the point under a click, and how far it is from the one before. The first picture that is complete
/// is asked for the point in its middle.
class Picking : public osgGA::GUIEventHandler
{
public:
    Picking(const std::vector<OpenedCloud>& clouds, PointPicker& picker, IPointLoadManager& manager)
        : _clouds(clouds), _picker(&picker), _manager(&manager)
    {
    }

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override
    {
        osg::Camera& camera = *action.asView()->getCamera();
        if (event.getEventType() == osgGA::GUIEventAdapter::PUSH)
            _picker->request(camera, event.getX(), event.getY());
        if (event.getEventType() != osgGA::GUIEventAdapter::FRAME) return false;

        if (++_frames > 2 && !_askedForTheMiddle && _manager->isSettled()) {
            const osg::Viewport& picture = *camera.getViewport();
            _askedForTheMiddle = _picker->request(camera, picture.x() + picture.width() / 2,
                                                  picture.y() + picture.height() / 2);
        }
        std::optional<PickedPoint> point; // empty where there was none under the mouse
        if (_picker->takeAnswer(point) && point) tell(*point);
        return false;
    }

private:
    void tell(const PickedPoint& point)
    {
        OctreeInfo& octree = *_clouds[point.cloudId - 1].cloud->getOctree();
        const std::optional<StoredPoint> stored = storedPoint(point, octree);
        if (!stored) return;
        const osg::Vec3d& place = stored->position;
        std::cout << std::fixed << std::setprecision(2) << "picked " << place.x() << " " << place.y() << " "
                  << place.z() << ", class " << int(stored->classCode);
        if (_last) std::cout << ", " << (place - *_last).length() << " from the last one";
        std::cout << std::endl;
        _last = place;
    }

    const std::vector<OpenedCloud>& _clouds;
    const osg::ref_ptr<PointPicker> _picker;
    const osg::ref_ptr<IPointLoadManager> _manager;
    std::optional<osg::Vec3d> _last;
    int _frames = 0;
    bool _askedForTheMiddle = false;
};

/// Draws fewer levels while the user drags, as many as leave 30 frames a second.
class SmoothDragging : public osgGA::GUIEventHandler
{
public:
    SmoothDragging(osg::Node* scene, osg::GraphicsContext* context)
        : _moveLevel(scene, GlobalObject::getIncrementalCompileOperation(context))
    {
    }

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter&) override
    {
        if (event.getEventType() != osgGA::GUIEventAdapter::FRAME) return false;
        const bool isWhole = event.getButtonMask() == 0;
        if (isWhole && _wasWhole) _moveLevel.wholeFrameTook(event.getTime() - _lastFrame, 30);
        _wasWhole = isWhole;
        _lastFrame = event.getTime();
        return false;
    }

private:
    MoveLevel _moveLevel;
    double _lastFrame = 0; // seconds
    bool _wasWhole = false;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::cerr << "usage: host STORE.brx...\n";
        return 1;
    }
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    std::vector<OpenedCloud> clouds;
    for (int i = 1; i < argc; ++i) {
        OpenedCloud cloud;
        if (const VelBrx::Status status = openCloud(argv[i], OpenOptions(), cloud); !status) {
            std::cerr << "host: " << status.message() << "\n"; // names the file, what is wrong, what to do
            return 1;
        }
        scene->addChild(cloud.node);
        clouds.push_back(cloud);
        PointCloudHelper::setPointCloudId(cloud.cloud, clouds.size()); // what picks tell of it
    }

    for (const OpenedCloud& cloud : clouds)
        DefaultDisplay::elevation(cloud.cloud, heightsOf(clouds));
    PointCloudHelper::setPointSize(scene, DefaultDisplay::kPointSize);
    ShaderHelper::switchEDLShader(scene, true); // eye-dome lighting
    PointCloudHelper::setBalancedEyeDomeLighting(scene);

    osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
    viewer->setUpViewInWindow(100, 100, 1280, 720);
    viewer->setCameraManipulator(new osgGA::TrackballManipulator);
    viewer->setSceneData(scene);
    const osg::ref_ptr<OpenGLCheck> check = new OpenGLCheck;
    viewer->setRealizeOperation(check);
    viewer->realize();
    if (!check->status()) {
        std::cerr << "host: " << check->status().message() << "\n"; // an OpenGL that cannot draw points
        return 1;
    }

    osg::GraphicsContext* const context = viewer->getCamera()->getGraphicsContext();
    IPointLoadManager* const manager = GlobalObject::registerGraphicsContext(context);
    manager->setLodOperation(new PixelSpacingLod(*manager));
    manager->setMaxNumOfPointCloud(20000000); // the budget: at most so many points are drawn
    PCViewerManager::getInstance()->registerViewer(viewer, "main");

    const osg::ref_ptr<PointPicker> picker = new PointPicker(scene);
    scene->addChild(picker);
    viewer->addEventHandler(new Picking(clouds, *picker, *manager));
    viewer->addEventHandler(new SmoothDragging(scene, context));
    const int result = viewer->run();

    PCViewerManager::getInstance()->unRegisterViewer("main");
    GlobalObject::unRegisterGraphicsContext(context);
    return result;
}
