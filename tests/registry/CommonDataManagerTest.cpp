#include <VelOsgDBBrx/CommonDataManager.h>

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <osg/Image>
#include <osgDB/FileNameUtils>
#include <osgDB/Registry>
#include <osgDB/WriteFile>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

using VelOsgDBBrx::CommonDataManager;

namespace {

osg::ref_ptr<osg::Image> makeImage()
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE);
    std::memset(image->data(), 77, image->getTotalSizeInBytes());
    return image;
}

std::string writeImage(const TempFolder& folder, const std::string& name)
{
    EXPECT_TRUE(osgDB::writeImageFile(*makeImage(), folder.file(name)));
    return folder.file(name);
}

/// Takes its time for images of any name with the ending "slow".
class SlowReader : public osgDB::ReaderWriter
{
public:
    SlowReader() { supportsExtension("slow", "a test's images"); }

    ReadResult readImage(const std::string& path, const Options*) const override
    {
        if (!acceptsExtension(osgDB::getFileExtension(path))) return ReadResult::FILE_NOT_HANDLED;
        ++reads;
        mostAtOnce = std::max<int>(mostAtOnce, ++_atOnce);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        --_atOnce;
        return makeImage().release();
    }

    mutable std::atomic<int> reads{0};
    mutable std::atomic<int> mostAtOnce{0};

private:
    mutable std::atomic<int> _atOnce{0};
};

} // namespace

TEST(CommonDataManager, ReadsOneImageAtATimeAndEachOnceForCallersOnAnyThread)
{
    const osg::ref_ptr<SlowReader> reader = new SlowReader;
    osgDB::Registry::instance()->addReaderWriter(reader);
    CommonDataManager& manager = *CommonDataManager::getInstance();
    std::vector<osg::Texture2D*> textures(8);
    std::vector<std::thread> threads;
    for (osg::Texture2D*& texture : textures)
        threads.emplace_back([&] {
            texture = manager.getOrCreateTexture2D("flag.slow");
            manager.getOrCreateTexture2D(std::to_string(&texture - textures.data()) + ".slow");
        });
    for (std::thread& thread : threads)
        thread.join();
    osgDB::Registry::instance()->removeReaderWriter(reader);
    EXPECT_EQ(reader->reads, 1 + 8);
    EXPECT_EQ(reader->mostAtOnce, 1);
    ASSERT_NE(textures[0], nullptr);
    EXPECT_EQ(textures[0]->getImage()->s(), 2);
    for (const osg::Texture2D* texture : textures)
        EXPECT_EQ(texture, textures[0]);
}

TEST(CommonDataManager, TriesAnImageAgainThatCouldNotBeRead)
{
    const TempFolder folder;
    CommonDataManager& manager = *CommonDataManager::getInstance();
    EXPECT_EQ(manager.getOrCreateTexture2D(folder.file("late.png")), nullptr);
    EXPECT_EQ(manager.getOrCreateTexture2D(folder.file("late.png")), nullptr);
    writeImage(folder, "late.png");
    const osg::Texture2D* texture = manager.getOrCreateTexture2D(folder.file("late.png"));
    EXPECT_NE(texture, nullptr);
    EXPECT_NE(manager.getOrCreateTexture2D(writeImage(folder, "LATE.png")), texture)
        << "case tells paths apart";
}
