// Counts the points of stores by class, with neither OpenSceneGraph nor OpenGL.
#include <VelBrx/PointCounts.h>
#include <VelBrx/Version.h>

#include <iostream>

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
        std::cout << argv[i] << ": " << counts.hidden << " hidden";
        for (size_t code = 0; code < counts.byClass.size(); ++code)
            if (counts.byClass[code] > 0) std::cout << ", " << counts.byClass[code] << " of class " << code;
        std::cout << "\n";
    }
}
