#include "viewer/Screenshot.h"

#include "headless/PictureFile.h"

#include <cstdio>
#include <filesystem>

void Screenshot::operator()(const osg::Image& picture, unsigned)
{
    std::string path;
    std::error_code error;
    int number = 0;
    do {
        path = "brxview-" + std::to_string(++number) + ".png";
    } while (std::filesystem::exists(path, error));
    std::string reason;
    const bool written = writePicture(picture, path, reason);
    std::fprintf(stderr, written ? "brxview: saved %s\n" : "brxview: %s\n",
                 written ? path.c_str() : reason.c_str());
}
