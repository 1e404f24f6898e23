// A host of two views: one store by its classes from above and from the side, next to each other in one
// window. It draws on demand: the library asks for frames while cells come in.
#include <VelBrx/ClassTable.h>
#include <VelOsgDBBrx/ContextServices.h>
#include <VelOsgDBBrx/LoadBrxTool.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointColors.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/MatrixTransform>
#include <osgGA/TrackballManipulator>
#include <osgViewer/CompositeViewer>

#include <iostream>

using namespace VelOsgDBBrx;

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;

osg::ref_ptr<osg::GraphicsContext> openWindow()
{
    osg::ref_ptr<osg::GraphicsContext::Traits> traits = new osg::GraphicsContext::Traits;
    traits->x = traits->y = 100;
    traits->width = kWidth;
    traits->height = kHeight;
    traits->windowDecoration = true;
    traits->doubleBuffer = true;
    traits->readDISPLAY();
    traits->setUndefinedScreenDetailsToDefaultScreen();
    return osg::GraphicsContext::createGraphicsContext(traits);
}

/// A view of the scene in one half of the window, looking along `direction`.
osg::ref_ptr<osgViewer::View> makeView(osg::GraphicsContext* window, osg::Node* scene, int half,
                                       const osg::Vec3d& direction, const osg::Vec3d& up)
{
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::Camera* camera = view->getCamera();
    camera->setGraphicsContext(window);
    camera->setViewport(half * kWidth / 2, 0, kWidth / 2, kHeight);
    camera->setProjectionMatrixAsPerspective(30, 0.5 * kWidth / kHeight, 1, 10000);
    camera->setDrawBuffer(GL_BACK);
    camera->setReadBuffer(GL_BACK);
    view->setSceneData(scene);

    osg::ref_ptr<osgGA::TrackballManipulator> manipulator = new osgGA::TrackballManipulator;
    const osg::BoundingSphere bound = scene->getBound();
    const osg::Vec3d center = bound.center();
    manipulator->setHomePosition(center - direction * (4 * bound.radius()), center, up);
    view->setCameraManipulator(manipulator);
    return view;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: composite STORE.brx\n";
        return 1;
    }
    osg::Vec3d offset;
    osg::ref_ptr<osg::Node> cloud = LoadBrxTool::loadBrxFileOffset(argv[1], offset, "");
    if (!cloud) {
        std::cerr << "composite: " << argv[1] << ": is no store; make one with brx build\n";
        return 1;
    }
    VelBrx::ClassTable classes; // those of the LAS standard
    classes.setName(64, "Fence");
    classes.setColor(64, 0x00a0a0);
    ShaderHelper::classificationColorShader(cloud, classColors(classes));
    osg::ref_ptr<osg::MatrixTransform> scene = new osg::MatrixTransform(osg::Matrixd::translate(offset));
    scene->addChild(cloud);

    const osg::ref_ptr<osg::GraphicsContext> window = openWindow();
    if (!window) {
        std::cerr << "composite: no window can be opened\n";
        return 1;
    }
    const osg::Vec3d x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    osg::ref_ptr<osgViewer::View> plan = makeView(window, scene, 0, -z, y);
    osg::ref_ptr<osgViewer::View> section = makeView(window, scene, 1, x, z);
    osg::ref_ptr<osgViewer::CompositeViewer> viewer = new osgViewer::CompositeViewer;
    viewer->addView(plan);
    viewer->addView(section);
    viewer->setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
    viewer->realize();

    const ContextServices services(window, 20000000); // ends before the viewer, which is older
    PCViewerManager::getInstance()->registerView(plan, "plan");
    PCViewerManager::getInstance()->registerView(section, "section");
    const int result = viewer->run();
    PCViewerManager::getInstance()->unRegisterViewer("plan");
    PCViewerManager::getInstance()->unRegisterViewer("section");
    return result;
}
