#include "tests/support/HeadlessViewer.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "tests/support/ThreadingModels.h"

#include <gtest/gtest.h>
#include <osg/MatrixTransform>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgDB/WriteFile>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
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
    ReadResult read(const std::string& path, const std::string& options = "") const
    {
        const osg::ref_ptr<osgDB::Options> asked = new osgDB::Options(options);
        return osgDB::Registry::instance()->readNode(path, asked);
    }
    /// Runs a program that loads the plugin, behind the words `before`.
    static ProgramResult runHost(std::vector<std::string> before, const std::vector<std::string>& words)
    {
        before.insert(before.end(), {"env", std::string("OSG_LIBRARY_PATH=") + OSGDB_BRX_FOLDER});
#ifdef SANITIZER_RUNTIME
        // The host is built without it, and what it keeps until its end is its own.
        before.insert(before.end(), {"LD_PRELOAD=" SANITIZER_RUNTIME, "ASAN_OPTIONS=detect_leaks=0"});
#endif
        before.insert(before.end(), words.begin(), words.end());
        return runProgram(before);
    }
    static ProgramResult osgconv(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "osgconv");
        return runHost({}, arguments);
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

/// A picture of a scene from above, once all its points are there.
osg::ref_ptr<osg::Image> pictureOf(osg::Node& node)
{
    HeadlessViewer host(kSize, kSize);
    lookDownOn(node, host);
    host.show(&node);
    drawOnDemand(host);
    return host.picture();
}

std::string textOf(const std::string& file)
{
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string withoutSpaces(std::string text)
{
    text.erase(std::remove_if(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c); }),
               text.end());
    return text;
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

TEST_F(Plugin, SceneFilesKeepACloudAndItsDisplay)
{
    const std::string options = "mode=class edl point-size=2 budget=1M";
    ReadResult shown = read(_store, options);
    ASSERT_TRUE(shown.validNode()) << shown.message();
    const auto expected = pictureOf(*shown.getNode());
    EXPECT_GT(countOtherThan(*expected, kBlack), kSize * kSize / 8);
    EXPECT_EQ(countOf(*expected, kColor), 0) << "the display is not the default";

    std::filesystem::create_directory(_folder.path() / "moved");
    for (const std::string name : {"scene.osgt", "scene.osgb", "scene.osgx"}) {
        SCOPED_TRACE(name);
        const std::string scene = _folder.file(name);
        const ProgramResult converted = osgconv({"-O", options, _store, scene});
        EXPECT_EQ(converted.exitStatus, 0) << converted.err << converted.out;
        EXPECT_LT(std::filesystem::file_size(scene), 100000u) << "a reference, no points and no shaders";
        ReadResult again = read(scene);
        ASSERT_TRUE(again.validNode()) << again.message();
        EXPECT_TRUE(samePixels(*pictureOf(*again.getNode()), *expected));
        std::filesystem::rename(scene, _folder.path() / "moved" / name);
    }

    // Scene and store may move together; without its store a scene is an error that names the store.
    std::filesystem::rename(_store, _folder.file("moved/grid.brx"));
    ReadResult moved = read(_folder.file("moved/scene.osgt"));
    ASSERT_TRUE(moved.validNode()) << moved.message();
    EXPECT_TRUE(samePixels(*pictureOf(*moved.getNode()), *expected));
    std::filesystem::rename(_folder.file("moved/grid.brx"), _folder.file("moved/else.brx"));
    ReadResult lost = read(_folder.file("moved/scene.osgt"));
    EXPECT_FALSE(lost.validNode());
    EXPECT_NE(lost.message().find(_store + ": cannot be opened"), std::string::npos) << lost.message();
}

TEST_F(Plugin, FormatsThatLoseCloudsAreRefused)
{
    for (const std::string name : {"scene.osg", "scene.ive", "scene.obj", "scene.ive.gz"}) {
        const ProgramResult converted = osgconv({_store, _folder.file(name)});
        EXPECT_NE((converted.out + converted.err).find(name + ": not written"), std::string::npos)
            << converted.out << converted.err;
        EXPECT_FALSE(std::filesystem::exists(_folder.file(name)));
    }
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    EXPECT_TRUE(osgDB::writeNodeFile(*scene, _folder.file("empty.osg"))) << "no cloud, no refusal";
    scene->addChild(osgDB::readRefNodeFile(_store));
    EXPECT_FALSE(osgDB::writeNodeFile(*scene, _folder.file("scene.osg")));
    EXPECT_FALSE(osgDB::writeObjectFile(*scene, _folder.file("scene.osg")));
}

TEST_F(Plugin, NormalsAreLitAsAsked)
{
    const ProgramResult made = runProgram({BRX, "normals", _store});
    ASSERT_EQ(made.exitStatus, 0) << made.err;
    const std::pair<std::string, int> red[] = {{"", 255}, {"light=off", 255}, {"light=90,30", 166}};
    for (const auto& [options, expected] : red) {
        ReadResult shown = read(_store, options);
        ASSERT_TRUE(shown.validNode()) << shown.message();
        EXPECT_NEAR(pixel(*pictureOf(*shown.getNode()), kSize / 2, kSize / 2).r(), expected, 12) << options;
    }
}

TEST_F(Plugin, SceneFilesKeepThePlaceOfACloudInFull)
{
    const osg::Matrixd place = osg::Matrixd::scale(1.1, 1.1, 1.1) *
                               osg::Matrixd::translate(1234567.891234567, -7654321.12345678, 0.1);
    const osg::ref_ptr<osg::MatrixTransform> scene = new osg::MatrixTransform(place);
    scene->addChild(osgDB::readRefNodeFile(_store));
    for (const std::string name : {"scene.osgt", "scene.osgb", "scene.osgx"}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(osgDB::writeNodeFile(*scene, _folder.file(name)));
        const osg::ref_ptr<osg::Node> again = osgDB::readRefNodeFile(_folder.file(name));
        ASSERT_TRUE(again);
        const osg::Matrixd& read = dynamic_cast<osg::MatrixTransform&>(*again).getMatrix();
        EXPECT_LT((read.getTrans() - place.getTrans()).length(), 1e-8);
        EXPECT_LT((read.getScale() - place.getScale()).length(), 1e-14);
        EXPECT_LT((again->getBound().center() - scene->getBound().center()).length(), 1e-6);
    }
}

TEST_F(Plugin, SceneFilesKeepEveryPlane)
{
    const std::string first = _folder.file("scene.osgt"), binary = _folder.file("scene.osgb");
    const std::string last = _folder.file("again.osgt"), none = "Planes 0";
    ASSERT_TRUE(osgDB::writeNodeFile(*osgDB::readRefNodeFile(_store), first));
    std::string planes = "Planes 1500\n";
    for (int i = 0; i < 1500; ++i)
        planes += "0 0 -1 " + std::to_string(5000000 + i) + ".1875 \n";
    std::string text = textOf(first);
    ASSERT_NE(text.find(none), std::string::npos);
    std::ofstream(first) << text.replace(text.find(none), none.size() + 1, planes);
    ASSERT_TRUE(osgDB::writeNodeFile(*osgDB::readRefNodeFile(first), binary));
    ASSERT_TRUE(osgDB::writeNodeFile(*osgDB::readRefNodeFile(binary), last));
    EXPECT_EQ(withoutSpaces(textOf(last)), withoutSpaces(text));
}

TEST_F(Plugin, AClonedSceneShowsTheCloud)
{
    const osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(_store);
    const auto expected = pictureOf(*node);
    for (const unsigned how : {osg::CopyOp::DEEP_COPY_NODES, osg::CopyOp::DEEP_COPY_ALL}) {
        const osg::ref_ptr<osg::Node> copy = osg::clone(node.get(), osg::CopyOp(how));
        EXPECT_TRUE(samePixels(*pictureOf(*copy), *expected)) << how;
    }
}

TEST_F(Plugin, OptionsAreListedCheckedAndMissedWhereTheyAreUnknown)
{
    const ProgramResult list = osgconv({"--format", "brx"});
    for (const char* option : {"mode=MODE", "edl", "point-size=N", "budget=N", "normals=FILE", "light=LIGHT"})
        EXPECT_NE(list.out.find(option), std::string::npos) << list.out << list.err;

    const ProgramResult unknown = osgconv({"-O", "edl colour=red", _store, _folder.file("unknown.osgt")});
    EXPECT_EQ(unknown.exitStatus, 0);
    EXPECT_NE((unknown.out + unknown.err).find("option colour=red is unknown"), std::string::npos)
        << unknown.out << unknown.err;

    const std::string other = _folder.file("other file.las");
    std::filesystem::copy(_folder.file("grid.las"), other);
    const std::pair<std::string, std::string> bad[] = {
        {"mode=sepia", "mode=sepia: expected rgb, single"},
        {"edl point-size=65", "point-size=65: expected 1 to 64"},
        {"budget=many", "budget=many: expected a number of points"},
        {"normals=", "normals=: expected the name"},
        {"light=315,91", "light=315,91: expected eye, off or AZIMUTH,HEIGHT"},
        {"normals=\"" + other + "\" edl", other + ": is not a normals file"}};
    for (const auto& [options, reason] : bad) {
        ReadResult result = read(_store, options);
        EXPECT_FALSE(result.validNode()) << options;
        EXPECT_NE(result.message().find(reason), std::string::npos) << result.message();
    }
}

TEST_F(Plugin, AHostWithTooLittleOpenGLIsToldInOneLine)
{
    const ProgramResult result =
        runHost(onDisplay({"env", "OSG_RUN_FRAME_COUNT=20", "MESA_GL_VERSION_OVERRIDE=3.3COMPAT"}),
                {"osgviewer", "--window", "10", "10", "320", "240", _store});
    const std::string said = result.out + result.err;
    if (said.empty()) GTEST_SKIP() << "this driver's version cannot be lowered";
    EXPECT_EQ(said.rfind("osgdb_brx: points need OpenGL 4.3", 0), 0u) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
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
