// A thousand small stores as one scene of the viewer against one store of the same points: from the start of
// loading to the settled picture, and flying.

#include "bench/FinishFrame.h"
#include "bench/RatioReporter.h"
#include "bench/TiledSurvey.h"

#include "headless/EglGraphicsWindow.h"
#include "viewer/scene/Scene.h"
#include "viewer/window/Window.h"

#include <VelOsgDBBrx/CalcLevelVisitor.h>
#include <VelOsgDBBrx/ContextServices.h>

#include <cmath>
#include <optional>
#include <stdexcept>

namespace {

constexpr uint64_t kPoints = 1000000;
constexpr size_t kColumns = 40;
constexpr size_t kRows = 25;
constexpr int kWidth = 1280;
constexpr int kHeight = 720;

const TiledSurvey& survey()
{
    static const TiledSurvey made(kPoints, kColumns, kRows);
    return made;
}

using Stores = std::vector<std::string>;

/// The viewer without a display, on stores.
class Flight
{
public:
    Flight(const Stores& stores, bool edl)
    {
        Options options;
        options.edl = edl;
        if (const VelBrx::Status status = _scene.load(stores, options); !status)
            throw std::runtime_error(status.message());
        std::string reason;
        const osg::ref_ptr<EglGraphicsWindow> window = EglGraphicsWindow::create(kWidth, kHeight, reason);
        if (!window) throw std::runtime_error(reason);
        osg::Camera& camera = *_viewer->getCamera();
        window->attachTo(camera);
        camera.setFinalDrawCallback(new FinishFrame);
        setUpCamera(camera, static_cast<double>(kWidth) / kHeight);
        _viewer->setSceneData(_scene.root());
        _services.emplace(window, std::nullopt);
        _viewer->realize();
        place(0);
        _services->settle(*_viewer, std::chrono::seconds(60));
    }

    /// Draws the next frame on a circle around the middle.
    void fly()
    {
        constexpr double kStep = 0.02; // radians a frame
        place(_angle += kStep);
        _viewer->frame();
    }

    int64_t drawnPoints()
    {
        VelOsgDBBrx::CalcLevelVisitor levels;
        _scene.root()->accept(levels);
        int64_t points = 0;
        for (const auto& level : levels.getLevelWithNum())
            points += level.second;
        return points;
    }

private:
    void place(double angle)
    {
        const osg::BoundingBoxd& bounds = _scene.bounds();
        const double radius = bounds.radius();
        const osg::Vec3d eye(std::cos(angle) * radius, std::sin(angle) * radius, radius);
        _viewer->getCamera()->setViewMatrixAsLookAt(bounds.center() + eye, bounds.center(), osg::Z_AXIS);
    }

    Scene _scene;
    osg::ref_ptr<osgViewer::Viewer> _viewer = new osgViewer::Viewer;
    std::optional<VelOsgDBBrx::ContextServices> _services;
    double _angle = 0;
};

void open(benchmark::State& state, const Stores& stores)
{
    int64_t points = 0;
    for (auto _ : state)
        points += Flight(stores, false).drawnPoints();
    state.SetItemsProcessed(points);
}

void fly(benchmark::State& state, const Stores& stores, bool edl)
{
    Flight flight(stores, edl);
    int64_t points = 0;
    for (auto _ : state) {
        flight.fly();
        points += flight.drawnPoints();
    }
    state.SetItemsProcessed(points);
}

void compare(const std::string& name, void (*measure)(benchmark::State&, const Stores&))
{
    benchmark::RegisterBenchmark((name + "/ours").c_str(),
                                 [measure](benchmark::State& state) { measure(state, survey().tiles()); })
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((name + "/limit").c_str(),
                                 [measure](benchmark::State& state) { measure(state, {survey().whole()}); })
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv)
{
    compare("open 1000 stores", open);
    compare("fly over 1000 stores",
            [](benchmark::State& state, const Stores& stores) { fly(state, stores, false); });
    compare("fly over 1000 stores with EDL",
            [](benchmark::State& state, const Stores& stores) { fly(state, stores, true); });
    return runBenchmarks(argc, argv);
}
