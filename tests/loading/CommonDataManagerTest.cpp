#include <VelOsgDBBrx/CommonDataManager.h>

#include <gtest/gtest.h>
#include <osg/Image>
#include <osgDB/WriteFile>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

using VelOsgDBBrx::CommonDataManager;

namespace {

class ImageFolder
{
public:
    ImageFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "velbrx-images-XXXXXX").string();
        _path = mkdtemp(name.data());
    }
    ~ImageFolder() { std::filesystem::remove_all(_path); }

    std::string path(const std::string& name) const { return (_path / name).string(); }

    std::string write(const std::string& name) const
    {
        osg::ref_ptr<osg::Image> image = new osg::Image;
        image->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE);
        std::memset(image->data(), 77, image->getTotalSizeInBytes());
        EXPECT_TRUE(osgDB::writeImageFile(*image, path(name)));
        return path(name);
    }

private:
    std::filesystem::path _path;
};

} // namespace

TEST(CommonDataManager, GivesEveryCallerTheSameTextureOfAPath)
{
    const ImageFolder folder;
    const std::string lower = folder.write("flag.png");
    const std::string upper = folder.write("FLAG.png");
    CommonDataManager& manager = *CommonDataManager::getInstance();
    std::vector<osg::Texture2D*> textures(8);
    std::vector<std::thread> threads;
    for (osg::Texture2D*& texture : textures)
        threads.emplace_back([&] { texture = manager.getOrCreateTexture2D(lower); });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_NE(textures[0], nullptr);
    EXPECT_EQ(textures[0]->getImage()->s(), 2);
    for (const osg::Texture2D* texture : textures)
        EXPECT_EQ(texture, textures[0]);
    EXPECT_NE(manager.getOrCreateTexture2D(upper), textures[0]) << "case tells paths apart";
}

TEST(CommonDataManager, TriesAnImageAgainThatCouldNotBeRead)
{
    const ImageFolder folder;
    CommonDataManager& manager = *CommonDataManager::getInstance();
    EXPECT_EQ(manager.getOrCreateTexture2D(folder.path("late.png")), nullptr);
    EXPECT_EQ(manager.getOrCreateTexture2D(folder.path("late.png")), nullptr);
    folder.write("late.png");
    EXPECT_NE(manager.getOrCreateTexture2D(folder.path("late.png")), nullptr);
}
