#include "viewer/picture/PictureView.h"

#include "headless/PictureFile.h"
#include "viewer/gui/Density.h"
#include "viewer/window/SectionMarks.h"
#include "viewer/window/Window.h"

#include <VelBrx/ReadErrors.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/NodeVisitor>
#include <osgDB/FileNameUtils>
#include <osgDB/Registry>

#include <filesystem>

using VelBrx::Status;

namespace {

class DrawnVisitor : public osg::NodeVisitor
{
public:
    DrawnVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

    void apply(osg::Geode& leaf) override
    {
        const uint64_t before = counts.points;
        traverse(leaf);
        if (counts.points > before) ++counts.cells;
    }

    void apply(osg::Geometry& geometry) override
    {
        for (const auto& primitives : geometry.getPrimitiveSetList())
            counts.points += primitives->getNumPrimitives();
    }

    DrawnCounts counts;
};

/// Gives compiling all the time it wants: nobody watches these frames.
void compileWithoutPauses(osg::GraphicsContext* context)
{
    auto* compile = VelOsgDBBrx::GlobalObject::getIncrementalCompileOperation(context);
    compile->setMaximumNumOfObjectsToCompilePerFrame(10000);
    compile->setMinimumTimeAvailableForGLCompileAndDeletePerFrame(1.0);
}

/// Fails where points of a store could not be read: a picture would lack them without a word.
Status checkPoints(const Scene& scene)
{
    for (const Scene::Cloud& cloud : scene.clouds())
        if (Status read = VelBrx::checkReads(*cloud.octree().pointFile); !read) return read.of(cloud.store);
    return Status();
}

} // namespace

Status checkPicturePath(const std::string& path, bool force)
{
    std::error_code error;
    if (!osgDB::Registry::instance()->getReaderWriterForExtension(osgDB::getLowerCaseFileExtension(path))) {
        return Status::failure(path + ": no picture format has this extension; use .png");
    }
    if (std::filesystem::exists(path, error) && !force) {
        return Status::failure(path + ": exists; --force replaces it");
    }
    return Status();
}

PictureView::~PictureView()
{
    _viewer.stopThreading();
    if (!_gui || !_window->makeCurrent()) return;
    _gui->giveBack(*_window->getState());
    _window->releaseContext();
}

Status PictureView::open(const PictureSize& size)
{
    std::string reason;
    _window = EglGraphicsWindow::create(size.width, size.height, reason);
    if (!_window) return Status::failure("cannot be drawn: " + reason);
    osg::Camera* camera = _viewer.getCamera();
    _window->attachTo(*camera);
    setUpCamera(*camera, aspect());
    _gui = new Gui(*camera, unitForRows(size.height));
    _gui->add([this] {
        if (_section) drawSectionScale(*_section, *_viewer.getCamera(), _scene.units().level, _gui->unit());
        _overlay->draw(*_gui);
    });
    _reader = PictureReader::attach(_viewer);
    _viewer.setSceneData(_scene.root());
    _services.emplace(_window, _scene.largestPoints());
    compileWithoutPauses(_window);
    _viewer.realize();
    return Status();
}

void PictureView::look(const Look& look, const Lens& lens)
{
    _look = look;
    _lens = lens;
    osg::Camera& camera = *_viewer.getCamera();
    camera.setViewMatrixAsLookAt(look.eye, look.center, look.up);
    camera.setProjectionMatrix(projectionOf(lens, aspect()));
}

void PictureView::show(const std::optional<SectionFrame>& section)
{
    _section = section;
    osg::Camera& camera = *_viewer.getCamera();
    clipPicture(camera, section ? section->section().planes() : std::vector<osg::Vec4d>());
    camera.setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES);
    if (section)
        section->place(camera);
    else
        look(_look, _lens);
}

void PictureView::setLegend(const Legend& legend)
{
    _overlay->setLegend(legend);
}

ViewVolume PictureView::volume() const
{
    const osg::Camera& camera = *_viewer.getCamera();
    return {camera.getViewMatrix() * camera.getProjectionMatrix(),
            _section ? _section->section().planes() : std::vector<osg::Vec4d>()};
}

double PictureView::aspect() const
{
    return _viewer.getCamera()->getViewport()->aspectRatio();
}

Status PictureView::settle(double timeoutSeconds, const std::atomic<bool>* cancel)
{
    _viewer.getCamera()->setClearColor(_scene.drawing().background);
    _services->setBudget(_scene.largestPoints());
    if (_services->settle(_viewer, std::chrono::duration<double>(timeoutSeconds), cancel))
        return checkPoints(_scene);
    if (cancel && *cancel) return Status::failure("cancelled before all points were there");
    return Status::failure("not all points were there after " +
                           std::to_string(static_cast<int>(timeoutSeconds)) +
                           " s; give more time with --timeout or fewer points with --budget");
}

Status PictureView::write(const std::string& path)
{
    for (int frame = 0; frame < Gui::kFramesToFit; ++frame)
        _gui->update();
    const osg::ref_ptr<osg::Image> picture = _reader->drawFrame(_viewer);
    if (!picture) return Status::failure(path + ": the frame was not drawn");
    std::string reason;
    return writePicture(*picture, path, reason) ? Status() : Status::failure(reason);
}

DrawnCounts PictureView::countDrawn() const
{
    DrawnVisitor visitor;
    _scene.root()->accept(visitor);
    return visitor.counts;
}
