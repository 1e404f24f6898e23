// The smallest host: opens one store in a window, in its own colours.
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgDBBrx/ShaderHelper.h>

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
    OpenedCloud opened; // its node is in file coordinates: a translation by the store's offset
    if (const VelBrx::Status status = openCloud(argv[1], OpenOptions(), opened); !status) {
        std::cerr << "minimal: " << status.message() << "\n";
        return 1;
    }
    ShaderHelper::originColorShader(opened.cloud);

    osgViewer::Viewer viewer;
    viewer.setUpViewInWindow(100, 100, 1280, 720);
    viewer.setCameraManipulator(new osgGA::TrackballManipulator);
    viewer.setSceneData(opened.node);
    viewer.realize();

    osg::GraphicsContext* context = viewer.getCamera()->getGraphicsContext();
    IPointLoadManager* manager =
        GlobalObject::registerGraphicsContext(context);              // pages the points of the context
    manager->setLodOperation(new PixelSpacingLod(*manager));         // right for every field of view
    PCViewerManager::getInstance()->registerViewer(&viewer, "main"); // draws again when points come in
    const int result = viewer.run();
    PCViewerManager::getInstance()->unRegisterViewer("main");
    GlobalObject::unRegisterGraphicsContext(context);
    return result;
}
