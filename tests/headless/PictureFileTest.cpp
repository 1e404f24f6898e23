#include "headless/PictureFile.h"

#include <gtest/gtest.h>
#include <osgDB/ReadFile>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

class PictureFile : public testing::Test
{
protected:
    PictureFile()
    {
        fs::remove_all(_folder);
        fs::create_directories(_folder);
        _picture->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
        for (unsigned i = 0; i < 12; ++i)
            _picture->data()[i] = static_cast<unsigned char>(20 * i);
    }
    ~PictureFile() override { fs::remove_all(_folder); }

    const fs::path _folder =
        fs::path(testing::TempDir()) / testing::UnitTest::GetInstance()->current_test_info()->name();
    const osg::ref_ptr<osg::Image> _picture = new osg::Image;
    std::string _reason;
};

} // namespace

TEST_F(PictureFile, PixelsSurviveAndAnOlderFileIsReplaced)
{
    const fs::path path = _folder / "a picture.png";
    std::ofstream(path) << "older";
    ASSERT_TRUE(writePicture(*_picture, path.string(), _reason)) << _reason;

    const osg::ref_ptr<osg::Image> back = osgDB::readRefImageFile(path.string());
    ASSERT_TRUE(back);
    ASSERT_EQ(back->s(), 2);
    for (unsigned y = 0; y < 2; ++y)
        EXPECT_EQ(std::memcmp(back->data(0, y), _picture->data(0, y), 6), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(_folder), {}), 1) << "a temporary file is left";
}

TEST_F(PictureFile, AFailureNamesTheFileAndLeavesNothing)
{
    for (const fs::path& path : {_folder / "missing" / "a.png", _folder / "a.nosuchformat"}) {
        EXPECT_FALSE(writePicture(*_picture, path.string(), _reason));
        EXPECT_NE(_reason.find(path.string()), std::string::npos);
    }
    EXPECT_TRUE(fs::is_empty(_folder));
}
