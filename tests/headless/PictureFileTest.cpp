#include "headless/PictureFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

TEST(PictureFile, ReplacesAnOlderOneAndLeavesNothingElseNorAnythingWhenItFails)
{
    const TempFolder folder;
    const osg::ref_ptr<osg::Image> picture = new osg::Image;
    picture->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
    std::string reason;
    for (const std::string& path : {folder.file("missing/a.png"), folder.file("a.nosuchformat")}) {
        EXPECT_FALSE(writePicture(*picture, path, reason));
        EXPECT_NE(reason.find(path), std::string::npos);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    for (int time = 0; time < 2; ++time)
        EXPECT_TRUE(writePicture(*picture, folder.file("a.png"), reason)) << reason;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}
