// The smallest host: opens one store in a window, in its own colours.
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/LoadBrxTool.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/MatrixTransform>
#include <osgGA/TrackballManipulator>
#include <osgViewer/Viewer>

#include <iostream>

using namespace VelOsgDBBrx;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: minimal STORE.brx\n";
        return 1;
    }
    osg::Vec3d offset;
    osg::ref_ptr<osg::Node> cloud = LoadBrxTool::loadBrxFileOffset(argv[1], offset, "");
    if (!cloud) {
        std::cerr << "minimal: " << argv[1] << ": is no store; make one with brx build\n";
        return 1;
    }
    ShaderHelper::originColorShader(cloud);

    osg::ref_ptr<osg::MatrixTransform> scene = new osg::MatrixTransform(osg::Matrixd::translate(offset));
    scene->addChild(cloud);
    osgViewer::Viewer viewer;
    viewer.setUpViewInWindow(100, 100, 1280, 720);
    viewer.setCameraManipulator(new osgGA::TrackballManipulator);
    viewer.setSceneData(scene);
    viewer.realize();

    osg::GraphicsContext* context = viewer.getCamera()->getGraphicsContext();
    GlobalObject::registerGraphicsContext(context);
    PCViewerManager::getInstance()->registerViewer(&viewer, "main");
    const int result = viewer.run();
    PCViewerManager::getInstance()->unRegisterViewer("main");
    GlobalObject::unRegisterGraphicsContext(context);
    return result;
}
