// Counts the points of stores by class and finds the highest one, with neither OpenSceneGraph nor OpenGL.
#include <VelBrx/PointCounts.h>
#include <VelBrx/PointVisit.h>
#include <VelBrx/Version.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <mutex>

namespace {

/// Of the points that are not hidden.
VelBrx::Status findHighest(const std::string& store, double& height)
{
    VelBrx::PointVisit wanted;
    wanted.store = store;
    wanted.part.visibleOnly = true;
    std::mutex mutex;
    return VelBrx::visitPoints(wanted, [&](const VelBrx::PointBlock& block) {
        double highest = -std::numeric_limits<double>::infinity();
        for (size_t point = 0; point < block.count; ++point)
            highest = std::max(highest, block.coordinate(point, 2));
        const std::lock_guard<std::mutex> lock(mutex); // blocks come on several threads
        height = std::max(height, highest);
    });
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::cerr << "usage: stores STORE.brx... (library " << VelBrx::version() << ")\n";
        return 1;
    }
    for (int i = 1; i < argc; ++i) {
        VelBrx::PointCounts counts;
        if (const VelBrx::Status status = VelBrx::countPoints(argv[i], counts); !status) {
            std::cerr << "stores: " << status.message() << "\n";
            return 1;
        }
        double highest = -std::numeric_limits<double>::infinity();
        if (const VelBrx::Status status = findHighest(argv[i], highest); !status) {
            std::cerr << "stores: " << status.message() << "\n";
            return 1;
        }
        std::cout << argv[i] << ": highest point at " << highest << ", " << counts.hidden << " hidden";
        for (size_t code = 0; code < counts.byClass.size(); ++code)
            if (counts.byClass[code] > 0) std::cout << ", " << counts.byClass[code] << " of class " << code;
        std::cout << "\n";
    }
}
