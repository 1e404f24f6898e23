#include "tests/support/HeadlessViewer.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "tests/support/ThreadingModels.h"

#include <gtest/gtest.h>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <chrono>
#include <fstream>
#include <thread>

// This program links nothing of the point cloud libraries: it is the host that knows nothing of them.

namespace {

using ReadResult = osgDB::ReaderWriter::ReadResult;

const osg::Vec3ub kBlack(0, 0, 0);
const osg::Vec3ub kColor(255, 128, 0);
constexpr int kSize = 100;

/// A store in a folder of the test's own, and the plugin where osgDB finds it.
class Plugin : public testing::Test
{
protected:
    Plugin()
    {
        EXPECT_TRUE(TestSurvey().write(_folder.file("grid.las")));
        const ProgramResult built = runProgram({BRX, "build", _folder.file("grid.las"), "-o", _store});
        EXPECT_EQ(built.exitStatus, 0) << built.err;
        osgDB::Registry::instance()->getLibraryFilePathList().push_front(OSGDB_BRX_FOLDER);
    }
    ReadResult read(const std::string& path) const
    {
        return osgDB::Registry::instance()->readNode(path, nullptr);
    }

    const TempFolder _folder;
    const std::string _store = _folder.file("grid.brx");
};

/// Looks straight down on the whole of `node`.
void lookDownOn(osg::Node& node, HeadlessViewer& host)
{
    const osg::Vec3d center = node.getBound().center();
    host.camera().setViewMatrixAsLookAt(center + osg::Vec3d(0, 0, node.getBound().radius() * 4), center,
                                        osg::Vec3d(0, 1, 0));
}

/// Draws frames as a host that draws on demand does, until nothing asks for one.
void drawOnDemand(HeadlessViewer& host)
{
    host.viewer->setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    host.viewer->requestRedraw();
    while (host.viewer->checkNeedToDoFrame()) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "frames are asked for without end";
        host.frame();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

class PluginInThreadingModel : public Plugin,
                               public testing::WithParamInterface<osgViewer::ViewerBase::ThreadingModel>
{
};

INSTANTIATE_TEST_SUITE_P(All, PluginInThreadingModel, everyThreadingModel(), threadingModelName);

} // namespace

TEST_P(PluginInThreadingModel, AHostThatDrawsOnDemandShowsAllPoints)
{
    const osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(_store);
    ASSERT_TRUE(node);
    HeadlessViewer host(kSize, kSize, GetParam());
    lookDownOn(*node, host);
    host.show(node);
    drawOnDemand(host);
    const auto picture = host.picture();
    EXPECT_EQ(pixel(*picture, kSize / 2, kSize / 2), kColor);
    EXPECT_EQ(pixel(*picture, 2, 2), kBlack);
    EXPECT_GT(countOtherThan(*picture, kBlack), kSize * kSize / 8);
}

TEST_F(Plugin, SeveralHostsOneAfterTheOtherShowTheStore)
{
    for (int i = 0; i < 3; ++i) {
        const osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(_store);
        ASSERT_TRUE(node);
        HeadlessViewer host(kSize, kSize);
        lookDownOn(*node, host);
        host.show(node);
        drawOnDemand(host);
        EXPECT_EQ(pixel(*host.picture(), kSize / 2, kSize / 2), kColor) << "host " << i;
    }
}

TEST_F(Plugin, TheNodeStandsInFileCoordinates)
{
    const osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(_store);
    ASSERT_TRUE(node);
    const TestSurvey survey;
    EXPECT_NEAR(node->getBound().center().x(), survey.x + survey.side / 2.0, 1.0);
    EXPECT_NEAR(node->getBound().center().y(), survey.y + survey.side / 2.0, 1.0);
}

TEST_F(Plugin, WhatIsWrongWithAFileIsTold)
{
    EXPECT_EQ(read(_folder.file("missing.brx")).status(), ReadResult::FILE_NOT_FOUND);

    const std::string damaged = _folder.file("damaged.brx");
    std::ofstream(damaged) << "LASF, but not for long";
    const ReadResult result = read(damaged);
    EXPECT_EQ(result.status(), ReadResult::ERROR_IN_READING_FILE);
    EXPECT_NE(result.message().find(damaged), std::string::npos) << result.message();

    osgDB::ReaderWriter* plugin = osgDB::Registry::instance()->getReaderWriterForExtension("brx");
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(plugin->readNode(_folder.file("grid.las"), nullptr).status(), ReadResult::FILE_NOT_HANDLED);
}

TEST_F(Plugin, AHostThatExitsWhileItDrawsEndsCleanly)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto drawAndExit = [this] {
        const osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(_store);
        HeadlessViewer host(kSize, kSize, osgViewer::ViewerBase::DrawThreadPerContext);
        lookDownOn(*node, host);
        host.show(node);
        for (int i = 0; i < 5; ++i)
            host.frame();
        host.viewer->stopThreading();
        std::exit(0);
    };
    EXPECT_EXIT(drawAndExit(), testing::ExitedWithCode(0), "");
}
