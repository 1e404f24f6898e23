#include <VelOsgDBBrx/CommonDataManager.h>

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <osg/Image>
#include <osgDB/WriteFile>

#include <cstring>
#include <thread>
#include <vector>

using VelOsgDBBrx::CommonDataManager;

namespace {

std::string writeImage(const TempFolder& folder, const std::string& name)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE);
    std::memset(image->data(), 77, image->getTotalSizeInBytes());
    EXPECT_TRUE(osgDB::writeImageFile(*image, folder.file(name)));
    return folder.file(name);
}

} // namespace

TEST(CommonDataManager, GivesEveryCallerTheSameTextureOfAPath)
{
    const TempFolder folder;
    const std::string lower = writeImage(folder, "flag.png");
    const std::string upper = writeImage(folder, "FLAG.png");
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
    const TempFolder folder;
    CommonDataManager& manager = *CommonDataManager::getInstance();
    EXPECT_EQ(manager.getOrCreateTexture2D(folder.file("late.png")), nullptr);
    EXPECT_EQ(manager.getOrCreateTexture2D(folder.file("late.png")), nullptr);
    writeImage(folder, "late.png");
    EXPECT_NE(manager.getOrCreateTexture2D(folder.file("late.png")), nullptr);
}
