#include <VelOsgDBBrx/CommonDataManager.h>

#include <osgDB/ReadFile>
#include <osgDB/Registry>

namespace VelOsgDBBrx {

CommonDataManager* CommonDataManager::getInstance()
{
    static CommonDataManager instance;
    return &instance;
}

osg::Texture2D* CommonDataManager::getOrCreateTexture2D(const std::string& path)
{
    const VelThreads::Lock lock(_lock);
    const auto known = _textures.find(path);
    if (known != _textures.end()) return known->second;

    const osg::ref_ptr<osg::Image> image =
        osgDB::readRefImageFile(path, osgDB::Registry::instance()->getOptions());
    if (!image) return nullptr;
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setImage(image);
    _textures[path] = texture;
    return texture;
}

} // namespace VelOsgDBBrx
