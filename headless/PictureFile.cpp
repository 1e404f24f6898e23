#include "headless/PictureFile.h"

#include <osgDB/Registry>
#include <unistd.h>

#include <filesystem>
#include <system_error>

bool writePicture(const osg::Image& picture, const std::string& path, std::string& reason)
{
    const std::filesystem::path target(path);
    // The extension stays last: it picks the format.
    const std::filesystem::path temporary =
        target.parent_path() /
        ("." + target.stem().string() + "." + std::to_string(getpid()) + target.extension().string());
    std::error_code error;
    if (osgDB::Registry::instance()->writeImage(picture, temporary.string(), nullptr).success()) {
        std::filesystem::rename(temporary, target, error);
        if (!error) return true;
        reason = path + ": " + error.message();
    } else {
        reason = path + ": cannot be written; check the folder, its free space and the extension (png, jpg)";
    }
    std::filesystem::remove(temporary, error);
    return false;
}
