#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgUtils/SpinLock.h>
#include <VelThreads/Mutex.h>

#include <osg/Texture2D>
#include <osg/ref_ptr>

#include <map>
#include <string>

namespace VelOsgDBBrx {

/// Process-wide cache of textures by the path of their image, so that all viewers and point clouds share one
/// texture an image. Any thread may call it; a slow image read makes other callers wait.
class VEL_OSGDB_BRX_EXPORT CommonDataManager
{
public:
    static CommonDataManager* getInstance();

    CommonDataManager(const CommonDataManager&) = delete;
    CommonDataManager& operator=(const CommonDataManager&) = delete;

    /// The texture of the image at `path`, which the cache keeps until the process ends. Null when the image
    /// cannot be read; a later call tries again.
    osg::Texture2D* getOrCreateTexture2D(const std::string& path);

private:
    CommonDataManager() = default;
    ~CommonDataManager() = default;

    VelOsgUtils::SpinLock _lock;
    std::map<std::string, osg::ref_ptr<osg::Texture2D>> _textures VEL_GUARDED_BY(_lock);
};

} // namespace VelOsgDBBrx
