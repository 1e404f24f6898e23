#include "bench/FinishFrame.h"
#include "bench/RatioReporter.h"
#include "bench/SampleStore.h"

#include "headless/EglGraphicsWindow.h"
#include "lod/PointCloudLOD.h"
#include "render/PointCloudImpl.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/LoadBrxTool.h>
#include <VelOsgDBBrx/SurfaceView.h>

#include <osg/Geometry>
#include <osg/Program>
#include <osgViewer/Viewer>

#include <stdexcept>

namespace {

constexpr uint64_t kPoints = 1000000;
constexpr int kWidth = 1280;
constexpr int kHeight = 720;

constexpr char kTrivialVertexShader[] = R"(#version 430 compatibility
layout(location = 12) in int categoryWithColorR;
layout(location = 13) in int colorGWithColorB;
out vec4 color;
void main()
{
    gl_Position = ftransform();
    color = vec4(categoryWithColorR & 0xffff, (colorGWithColorB >> 16) & 0xffff, colorGWithColorB & 0xffff, 65535)
            / 65535.0;
}
)";

constexpr char kTrivialFragmentShader[] = R"(#version 430 compatibility
in vec4 color;
out vec4 fragColor;
void main()
{
    fragColor = color;
}
)";

/// A window without a display that looks at a cloud from above, all of it in view.
class FrameViewer
{
public:
    FrameViewer(osg::Node* scene, const osg::BoundingSphere& bound)
    {
        std::string reason;
        const osg::ref_ptr<EglGraphicsWindow> window = EglGraphicsWindow::create(kWidth, kHeight, reason);
        if (!window) throw std::runtime_error(reason);
        osg::Camera& camera = *_viewer->getCamera();
        window->attachTo(camera);
        camera.setProjectionMatrixAsPerspective(30, static_cast<double>(kWidth) / kHeight, 1, 10000);
        camera.setViewMatrixAsLookAt(bound.center() + osg::Vec3d(0, -1, 1) * bound.radius() * 2.5,
                                     bound.center(), osg::Z_AXIS);
        camera.setFinalDrawCallback(new FinishFrame);
        _viewer->setThreadingModel(osgViewer::ViewerBase::SingleThreaded);
        _viewer->setSceneData(scene);
        _viewer->realize();
        _viewer->frame(); // compiles
    }

    void frame() { _viewer->frame(); }

private:
    osg::ref_ptr<osgViewer::Viewer> _viewer = new osgViewer::Viewer;
};

void addCells(CellData& cell, PointCloudLOD& lod)
{
    const osg::ref_ptr<osg::Node> leaf = VelOsgDBBrx::LasReaderWriter::read(&cell);
    if (leaf) lod.addChild(leaf);
    for (const osg::ref_ptr<CellData>& child : cell.children)
        addCells(*child, lod);
}

/// A cloud with all its cells, with a surface of its ground too, and the same arrays in plain geometries
/// under a trivial program.
class Scenes
{
public:
    Scenes() : _sample(kPoints)
    {
        const osg::ref_ptr<osg::Node> loaded = VelOsgDBBrx::LoadBrxTool::loadBrxFile(_sample.path(), "");
        auto* loadedCloud = dynamic_cast<VelOsgDBBrx::IPointCloud*>(loaded.get());
        if (!loadedCloud) throw std::runtime_error("the sample store does not load");
        const osg::ref_ptr<PointCloudLOD> lod = new PointCloudLOD(loadedCloud->getOctree());
        addCells(*lod->getOctree()->root, *lod);
        cloud = new PointCloudImpl(lod);
        for (unsigned i = 0; i < lod->getNumChildren(); ++i)
            plain->addChild(copyOf(*lod->getChild(i)->asGeode()->getDrawable(0)->asGeometry()));
        const osg::ref_ptr<osg::Program> program = new osg::Program;
        program->addShader(new osg::Shader(osg::Shader::VERTEX, kTrivialVertexShader));
        program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kTrivialFragmentShader));
        plain->getOrCreateStateSet()->setAttributeAndModes(program);
        surface->addChild(cloud);
        surface->setActive(true);
        bound = cloud->getBound();
    }

    osg::ref_ptr<PointCloudImpl> cloud;
    osg::ref_ptr<osg::Group> plain = new osg::Group;
    osg::ref_ptr<VelOsgDBBrx::SurfaceView> surface = new VelOsgDBBrx::SurfaceView; ///< of the cloud
    osg::BoundingSphere bound;

private:
    static osg::ref_ptr<osg::Geometry> copyOf(const osg::Geometry& cell)
    {
        osg::ref_ptr<osg::Geometry> copy = new osg::Geometry;
        copy->setUseDisplayList(false);
        copy->setUseVertexBufferObjects(true);
        copy->setVertexArray(osg::clone(cell.getVertexArray(), osg::CopyOp::DEEP_COPY_ALL));
        for (unsigned location = 7; location <= 13; ++location) {
            const osg::Array* array = cell.getVertexAttribArray(location);
            if (array)
                copy->setVertexAttribArray(location, osg::clone(array, osg::CopyOp::DEEP_COPY_ALL),
                                           osg::Array::BIND_PER_VERTEX);
        }
        copy->addPrimitiveSet(osg::clone(cell.getPrimitiveSet(0), osg::CopyOp::DEEP_COPY_ALL));
        return copy;
    }

    SampleStore _sample;
};

Scenes& scenes()
{
    static Scenes made;
    return made;
}

void drawFrames(benchmark::State& state, osg::Node* scene)
{
    FrameViewer viewer(scene, scenes().bound);
    for (auto _ : state)
        viewer.frame();
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kPoints));
}

void drawCloud(benchmark::State& state)
{
    drawFrames(state, scenes().cloud);
}

void drawPlainGeometries(benchmark::State& state)
{
    drawFrames(state, scenes().plain);
}

void drawSurface(benchmark::State& state)
{
    drawFrames(state, scenes().surface);
}

} // namespace

BENCHMARK(drawCloud)->Name("draw a million points/ours")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(drawPlainGeometries)->Name("draw a million points/limit")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(drawSurface)
    ->Name("draw a million points and a surface/ours")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(drawCloud)
    ->Name("draw a million points and a surface/limit")
    ->MeasureProcessCPUTime()
    ->UseRealTime();

int main(int argc, char** argv)
{
    return runBenchmarks(argc, argv);
}
