// The first picture of a store in a window that stands: seconds from the load call to the store opened, to
// the first frame that shows points, and to the settled picture. `--cold` takes the store's pages out of this
// machine's cache before.

#include "bench/FinishFrame.h"

#include "headless/EglGraphicsWindow.h"
#include "viewer/scene/Scene.h"
#include "viewer/window/Window.h"

#include <VelOsgDBBrx/CalcLevelVisitor.h>
#include <VelOsgDBBrx/ContextServices.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr std::chrono::seconds kTimeout(120);

using Clock = std::chrono::steady_clock;

bool evict(const std::string& file)
{
    const int descriptor = open(file.c_str(), O_RDONLY);
    if (descriptor < 0) return false;
    const bool isDone =
        fdatasync(descriptor) == 0 && posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED) == 0;
    close(descriptor);
    return isDone;
}

int64_t drawnPoints(const Scene& scene)
{
    VelOsgDBBrx::CalcLevelVisitor levels;
    scene.root()->accept(levels);
    int64_t points = 0;
    for (const auto& level : levels.getLevelWithNum())
        points += level.second;
    return points;
}

/// On the clock, and of the processor in all threads.
class Stopwatch
{
public:
    void print(const char* what, int64_t points) const
    {
        const std::chrono::duration<double> clock = Clock::now() - _start;
        const double processor = static_cast<double>(std::clock() - _processor) / CLOCKS_PER_SEC;
        std::printf("%-28s %8.3f s %8.3f s of the processor %12lld points\n", what, clock.count(), processor,
                    static_cast<long long>(points));
    }
    bool isOver() const { return Clock::now() - _start > kTimeout; }

private:
    const Clock::time_point _start = Clock::now();
    const std::clock_t _processor = std::clock();
};

int run(const std::string& store)
{
    std::string reason;
    const osg::ref_ptr<EglGraphicsWindow> window = EglGraphicsWindow::create(kWidth, kHeight, reason);
    if (!window) {
        std::fprintf(stderr, "%s\n", reason.c_str());
        return 1;
    }
    Scene scene;
    osgViewer::Viewer viewer;
    osg::Camera& camera = *viewer.getCamera();
    window->attachTo(camera);
    camera.setFinalDrawCallback(new FinishFrame);
    setUpCamera(camera, static_cast<double>(kWidth) / kHeight);
    viewer.setSceneData(scene.root());
    const VelOsgDBBrx::ContextServices services(window);
    viewer.realize();
    viewer.frame();

    const Stopwatch watch;
    if (const VelBrx::Status status = scene.load({store}, Options()); !status) {
        std::fprintf(stderr, "%s\n", status.message().c_str());
        return 1;
    }
    const osg::BoundingBoxd& bounds = scene.bounds();
    const double radius = bounds.radius();
    camera.setViewMatrixAsLookAt(bounds.center() + osg::Vec3d(0, -radius, radius), bounds.center(),
                                 osg::Z_AXIS);
    watch.print("opened", 0);
    while (drawnPoints(scene) == 0 && !watch.isOver())
        viewer.frame();
    viewer.frame();
    watch.print("first frame with points", drawnPoints(scene));
    const bool isSettled = services.settle(viewer, kTimeout);
    watch.print(isSettled ? "settled" : "not settled", drawnPoints(scene));
    return isSettled ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const bool isCold = argc == 3 && std::strcmp(argv[1], "--cold") == 0;
    if (argc != 2 && !isCold) {
        std::fprintf(stderr, "usage: bench_first_picture [--cold] STORE\n");
        return 2;
    }
    const std::string store = argv[argc - 1];
    if (isCold && !evict(store)) {
        std::perror(store.c_str());
        return 1;
    }
    return run(store);
}
