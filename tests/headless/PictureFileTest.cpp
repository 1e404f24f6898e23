#include "headless/PictureFile.h"
#include "tests/support/TempFolder.h"

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
        _picture->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
        for (unsigned i = 0; i < 12; ++i)
            _picture->data()[i] = static_cast<unsigned char>(20 * i);
    }

    const TempFolder _folder;
    const osg::ref_ptr<osg::Image> _picture = new osg::Image;
    std::string _reason;
};

} // namespace

TEST_F(PictureFile, PixelsSurviveAndAnOlderFileIsReplaced)
{
    const std::string path = _folder.file("a picture.png");
    std::ofstream(path) << "older";
    ASSERT_TRUE(writePicture(*_picture, path, _reason)) << _reason;

    const osg::ref_ptr<osg::Image> back = osgDB::readRefImageFile(path);
    ASSERT_TRUE(back);
    ASSERT_EQ(back->s(), 2);
    for (unsigned y = 0; y < 2; ++y)
        EXPECT_EQ(std::memcmp(back->data(0, y), _picture->data(0, y), 6), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(_folder.path()), {}), 1) << "a temporary file is left";
}

TEST_F(PictureFile, AFailureNamesTheFileAndLeavesNothing)
{
    for (const std::string& path : {_folder.file("missing/a.png"), _folder.file("a.nosuchformat")}) {
        EXPECT_FALSE(writePicture(*_picture, path, _reason));
        EXPECT_NE(_reason.find(path), std::string::npos);
    }
    EXPECT_TRUE(fs::is_empty(_folder.path()));
}
