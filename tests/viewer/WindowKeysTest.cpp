#include "headless/PictureReader.h"
#include "tests/viewer/ShownSurvey.h"
#include "viewer/HelpKey.h"
#include "viewer/ScreenshotKey.h"

#include <gtest/gtest.h>
#include <osgDB/ReadFile>
#include <osgGA/TrackballManipulator>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

class WindowKeys : public testing::Test
{
protected:
    WindowKeys() { fs::current_path(shown.folder.path()); }
    ~WindowKeys() override { fs::current_path(before); }

    osg::ref_ptr<osg::Image> picture() { return reader->drawFrame(*shown.host.viewer); }

    const fs::path before = fs::current_path();
    ShownSurvey shown;
    osg::ref_ptr<PictureReader> reader;
};

} // namespace

TEST_F(WindowKeys, AScreenshotHoldsWhatIsOnTheScreenOverlayIncludedAndLeavesItThere)
{
    osg::Camera& camera = *shown.host.viewer->getCamera();
    camera.addFinalDrawCallback(shown.overlay);
    shown.overlay->setLines({"a line of text"});
    shown.host.viewer->addEventHandler(new ScreenshotKey(camera));
    reader = PictureReader::attach(*shown.host.viewer);
    shown.show();
    const osg::ref_ptr<osg::Image> screen = picture();
    shown.overlay->setLines({});
    EXPECT_FALSE(samePixels(*picture(), *screen)) << "the overlay is seen";
    shown.overlay->setLines({"a line of text"});

    for (const std::string name : {"brxview-1.png", "brxview-2.png"}) {
        shown.pressKey('c');
        const osg::ref_ptr<osg::Image> saved = osgDB::readRefImageFile(name);
        ASSERT_TRUE(saved) << name;
        EXPECT_TRUE(samePixels(*saved, *screen)) << name;
        EXPECT_TRUE(samePixels(*picture(), *screen)) << name;
    }
    shown.pressKey('x');
    EXPECT_FALSE(fs::exists("brxview-3.png"));
}

TEST_F(WindowKeys, HelpIsDrawnOverThePictureAndGoesAgain)
{
    shown.host.viewer->getCamera()->addFinalDrawCallback(shown.overlay);
    const osg::ref_ptr<HelpKey> help = new HelpKey(*shown.overlay);
    help->add("Window", *help);
    help->add("Camera", osgGA::TrackballManipulator());
    shown.host.viewer->addEventHandler(help);
    reader = PictureReader::attach(*shown.host.viewer);
    shown.show();
    const osg::ref_ptr<osg::Image> without = picture();
    shown.pressKey('h');
    const osg::ref_ptr<osg::Image> with = picture();
    EXPECT_FALSE(samePixels(*with, *without));
    help->add("Edit", *help);
    shown.pressKey('h');
    EXPECT_TRUE(samePixels(*picture(), *without));
    shown.pressKey('h');
    EXPECT_FALSE(samePixels(*picture(), *with)) << "has another title";
}
