#include "viewer/Render.h"

#include "headless/EglGraphicsWindow.h"
#include "headless/PictureFile.h"
#include "headless/PictureReader.h"
#include "viewer/ContextServices.h"
#include "viewer/Overlay.h"
#include "viewer/Window.h"

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/NodeVisitor>
#include <osgDB/FileNameUtils>
#include <osgDB/Registry>

#include <cstdio>
#include <filesystem>

using VelBrx::Status;

namespace {

/// Counts what stands in the scene now.
class DrawnCounts : public osg::NodeVisitor
{
public:
    DrawnCounts() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

    void apply(osg::Geode& leaf) override
    {
        ++cells;
        traverse(leaf);
    }

    void apply(osg::Geometry& geometry) override
    {
        for (const auto& primitives : geometry.getPrimitiveSetList())
            points += primitives->getNumPrimitives();
    }

    uint64_t points = 0;
    uint64_t cells = 0;
};

/// Gives compiling all the time it wants: nobody watches these frames.
void compileWithoutPauses(osg::GraphicsContext* context)
{
    auto* compile = VelOsgDBBrx::GlobalObject::getIncrementalCompileOperation(context);
    compile->setMaximumNumOfObjectsToCompilePerFrame(10000);
    compile->setMinimumTimeAvailableForGLCompileAndDeletePerFrame(1.0);
}

osg::ref_ptr<EglGraphicsWindow> openPictureWindow(osgViewer::Viewer& viewer, const RenderRequest& request,
                                                  std::string& reason)
{
    const osg::ref_ptr<EglGraphicsWindow> window =
        EglGraphicsWindow::create(request.width, request.height, reason);
    if (!window) return nullptr;
    osg::Camera* camera = viewer.getCamera();
    camera->setGraphicsContext(window);
    camera->setViewport(0, 0, request.width, request.height);
    camera->setDrawBuffer(window->drawBuffer());
    camera->setReadBuffer(window->drawBuffer());
    return window;
}

void addOverlay(osg::Camera& camera, const Scene& scene)
{
    const osg::ref_ptr<Overlay> overlay = new Overlay;
    overlay->setLegend(scene.legend());
    camera.addFinalDrawCallback(overlay);
}

} // namespace

Status checkRenderOutput(const Options& options)
{
    const std::string& output = options.render->output;
    std::error_code error;
    if (!osgDB::Registry::instance()->getReaderWriterForExtension(osgDB::getLowerCaseFileExtension(output))) {
        return Status::failure(output + ": no picture format has this extension; use .png");
    }
    if (std::filesystem::exists(output, error) && !options.force) {
        return Status::failure(output + ": exists; --force replaces it");
    }
    return Status();
}

Status render(osgViewer::Viewer& viewer, const Scene& scene, const Options& options)
{
    const RenderRequest& request = *options.render;
    std::string reason;
    const osg::ref_ptr<EglGraphicsWindow> window = openPictureWindow(viewer, request, reason);
    if (!window) return Status::failure(request.output + ": cannot be drawn: " + reason);

    const double aspect = static_cast<double>(request.width) / request.height;
    const Look look = lookAt(options.view, scene.bounds(), aspect);
    viewer.getCamera()->setViewMatrixAsLookAt(look.eye, look.center, look.up);
    setUpCamera(*viewer.getCamera(), aspect);
    viewer.setSceneData(scene.root());
    if (options.legend) addOverlay(*viewer.getCamera(), scene);
    const osg::ref_ptr<PictureReader> reader = PictureReader::attach(viewer);
    const ContextServices services(window, options.budget);
    compileWithoutPauses(window);
    viewer.realize();
    if (!services.settle(viewer, std::chrono::duration<double>(request.timeoutSeconds))) {
        return Status::failure(request.output + ": not all points were there after " +
                               std::to_string(static_cast<int>(request.timeoutSeconds)) +
                               " s; give more time with --timeout or fewer points with --budget");
    }
    const osg::ref_ptr<osg::Image> picture = reader->drawFrame(viewer);
    viewer.stopThreading();
    if (!picture) return Status::failure(request.output + ": the frame was not drawn");
    if (!writePicture(*picture, request.output, reason)) return Status::failure(reason);

    DrawnCounts counts;
    scene.root()->accept(counts);
    std::printf("points %llu\ncells %llu\n", static_cast<unsigned long long>(counts.points),
                static_cast<unsigned long long>(counts.cells));
    return Status();
}
