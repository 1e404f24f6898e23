// Programs that display and edit while a disk fills, the clock is set back, descriptors are spent or a
// context is lost: what they reported as done is there, and what they show is right.

#include "tests/support/HeadlessViewer.h"
#include "tests/support/JsonLines.h"
#include "tests/support/PagingScene.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/ReadFile.h"
#include "tests/support/ThreadingModels.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelBrx/Verify.h>
#include <VelOsgDBBrx/GlobalObject.h>

#include <gtest/gtest.h>

#include <filesystem>

namespace fs = std::filesystem;
using nlohmann::json;
using Words = std::vector<std::string>;

namespace {

class UnderLoad : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(runProgram({VELBRX_BRX, "sample", survey, "--points", "60000"}).exitStatus, 0);
        ASSERT_EQ(runProgram({VELBRX_BRX, "build", survey, "-o", store}).exitStatus, 0);
    }

    std::string write(const std::string& name, const json& value) const
    {
        const std::string text = value.dump();
        return folder.write(name, {text.begin(), text.end()});
    }

    /// A copy of the store.
    std::string copy(const std::string& name) const
    {
        fs::copy_file(store, folder.file(name));
        return folder.file(name);
    }

    const TempFolder folder;
    const std::string survey = folder.file("survey.las"), store = folder.file("survey.brx");
};

/// Edits of every other point, which journals cannot write briefly, with pictures and saves between them.
json longWork(const std::string& pictures)
{
    json steps = {{{"op", "window"}, {"width", 100}, {"height", 100}}};
    for (int i = 0; i < 24; ++i) {
        const json odd = {{"everywhere", true}, {"where", {{"intensity", {i * 700, 60000 - i * 900}}}}};
        if (i % 2)
            steps.push_back({{"op", i % 4 == 1 ? "cull" : "uncull"}, {"points", odd}});
        else
            steps.push_back({{"op", "classify"}, {"points", odd}, {"to", 20 + i}});
        if (i % 5 == 4) steps.push_back({{"op", "save"}});
        if (i % 8 == 7) steps.push_back({{"op", "render"}, {"file", pictures + std::to_string(i) + ".png"}});
    }
    return steps;
}

} // namespace

/// On a disk of its own, which only processes that may make one can have.
TEST_F(UnderLoad, ADiskThatFillsKeepsWhatWasReportedAndNothingMore)
{
    const std::string disk = folder.file("disk"), left = folder.file("left");
    fs::create_directory(disk);
    const json steps = longWork(folder.file("full"));
    const std::string script = write("work.json", steps);
    const auto workOn = [&](uint64_t bytes) {
        fs::remove_all(left);
        fs::create_directory(left);
        return runProgram({"unshare", "--map-root-user", "--mount", "/bin/sh", "-c",
                           "mount -t tmpfs -o size=" + std::to_string(bytes) + " tmpfs " + disk + " && cp " +
                               store + " " + disk + "/s.brx && " VELBRX_VIEWER " --force --script " + script +
                               " " + disk + "/s.brx; status=$?; cp " + disk + "/* " + left +
                               "; exit $status"},
                          {"DISPLAY"});
    };
    if (runProgram({"unshare", "--map-root-user", "--mount", "true"}).exitStatus != 0)
        GTEST_SKIP() << "no disk can be mounted here";
    int failures = 0;
    for (const uint64_t room : {8000, 40000, 90000, 200000, 4000000}) {
        SCOPED_TRACE(std::to_string(room) + " bytes of room");
        const ProgramResult result = workOn(fs::file_size(store) + room);
        const std::vector<json> lines = jsonLines(result.out);
        if (result.exitStatus != 0) {
            ++failures;
            EXPECT_NE(result.err.find("disk"), std::string::npos) << result.err;
        }
        ASSERT_GT(lines.size(), 0u) << result.err;
        // What was reported, done again where there is room.
        json reported = json::array();
        for (const json& line : lines)
            if (line.contains("operation") && !line.contains("error"))
                reported.push_back(steps.at(line["operation"].get<size_t>() - 1));
        reported.push_back({{"op", "save"}});
        const std::string model = copy("model.brx");
        const Words again = {VELBRX_VIEWER, "--force", "--script", write("again.json", reported), model};
        ASSERT_EQ(runProgram(again, {"DISPLAY"}).exitStatus, 0);
        EXPECT_EQ(VelBrx::verifyEdits(left + "/s.brx"), std::vector<std::string>());
        std::shared_ptr<VelBrx::EditJournal> journal;
        const VelBrx::Status opened = VelBrx::EditJournal::open(left + "/s.brx", journal);
        ASSERT_TRUE(opened) << opened.message();
        uint64_t points = 0;
        EXPECT_TRUE(journal->save("", points));
        journal.reset();
        EXPECT_TRUE(readFile(left + "/s.brx") == readFile(model)) << reported.size() << " operations";
        fs::remove(model);
        fs::remove(model + ".edits");
    }
    EXPECT_GE(failures, 2) << "the disks were too large";
    EXPECT_LE(failures, 4) << "the disks were too small";
}

TEST_F(UnderLoad, AClockThatIsSetBackStopsNoWindowAndMixesNoEdits)
{
    if (VELBRX_WITH_SANITIZER) GTEST_SKIP() << "its runtime must be the first library";
    const std::string back = folder.file("back");
    const Words environment = {"LD_PRELOAD=" VELBRX_CLOCK, "VELBRX_CLOCK_FILE=" + back, "DISPLAY"};
    const json everything = {{"everywhere", true}};
    const json first = {{{"op", "window"}, {"width", 100}, {"height", 100}},
                        {{"op", "classify"}, {"points", everything}, {"to", 7}},
                        {{"op", "save"}}};
    const json second = {{{"op", "window"}, {"width", 100}, {"height", 100}},
                         {{"op", "cull"}, {"points", everything}},
                         {{"op", "undo"}},
                         {{"op", "undo"}},
                         {{"op", "save"}}};
    const std::string edited = copy("edited.brx");
    ASSERT_EQ(
        runProgram({VELBRX_VIEWER, "--script", write("first.json", first), edited}, environment).exitStatus,
        0);
    folder.write("back", {});
    ASSERT_EQ(
        runProgram({VELBRX_VIEWER, "--script", write("second.json", second), edited}, environment).exitStatus,
        0);
    VelBrx::EditHistory history;
    ASSERT_TRUE(VelBrx::readEditHistory(edited, history));
    ASSERT_GE(history.entries.size(), 4u);
    EXPECT_LT(history.entries.back().time, history.entries.front().time) << "the clock was not set back";
    EXPECT_TRUE(readFile(edited) == readFile(store)) << "all was undone";
    uint64_t forgotten = 0;
    EXPECT_TRUE(VelBrx::forgetEdits(edited, history.entries.front().time - 1, forgotten));
    EXPECT_EQ(forgotten, 0u) << "an older edit stays, and so do those that follow it";
    fs::remove(back);

    Words words = {"env"};
    words.insert(words.end(), environment.begin(), environment.end() - 1);
    for (const char* word :
         {VELBRX_VIEWER, "--view", "iso", "--no-legend", "--window", "0", "0", "640", "480"})
        words.push_back(word);
    words.push_back(store);
    ProgramWindow window(words, folder.path().string());
    const osg::ref_ptr<osg::Image> before = window.stillPicture();
    folder.write("back", {});
    window.press("T");
    EXPECT_TRUE(eventually([&] { return !samePixels(*window.picture(), *before); })) << "it does not move";
    const osg::ref_ptr<osg::Image> above = window.stillPicture();
    window.press("I");
    EXPECT_TRUE(eventually([&] { return !samePixels(*window.picture(), *above); }));
    window.program().signal(SIGTERM);
    EXPECT_EQ(window.program().wait().exitStatus, 0);
}

TEST_F(UnderLoad, MoreStoresThanDescriptorsAreShown)
{
    constexpr int kStores = 60;
    fs::create_directory(folder.file("many"));
    for (int i = 0; i < kStores; ++i)
        copy("many/" + std::to_string(i) + ".brx");
    const auto pictureWith = [&](const std::string& limit) {
        const std::string picture = folder.file(limit + ".png");
        const ProgramResult result =
            runProgram({"/bin/sh", "-c", "ulimit -n $0; exec \"$@\"", limit, VELBRX_VIEWER, "--render",
                        picture, "--size", "200x150", folder.file("many")},
                       {"DISPLAY"});
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        EXPECT_NE(result.out.rfind("points 0", 0), 0u) << result.out;
        return readFile(picture);
    };
    EXPECT_TRUE(pictureWith("12") == pictureWith("1024"));
}

/// The window goes with all that the card had, while cells come and go, and gets a context anew.
class LostContext : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
};

INSTANTIATE_TEST_SUITE_P(Faults, LostContext, everyThreadingModel(), threadingModelName);

TEST_P(LostContext, ThePictureIsTheSameInTheNextOne)
{
    const TempFolder folder;
    PlacedCloud cloud(writeRandomStore(folder, 4, 40));
    osg::ref_ptr<osg::Image> first;
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        HeadlessViewer view(64, 64, GetParam());
        const osg::Vec3d middle(500000, 4500000, 100);
        view.camera().setViewMatrixAsLookAt(middle + osg::Vec3d(30, -160, 70), middle, osg::Vec3d(0, 0, 1));
        VelOsgDBBrx::GlobalObject::registerGraphicsContext(view.window);
        view.show(cloud.root);
        if (round % 2) { // lost while cells are on their way to the card
            for (int frame = 0; frame < 2 + round; ++frame)
                view.frame();
        } else {
            ASSERT_TRUE(settle(view));
            EXPECT_EQ(cloud.drawn(), cloud.loaded());
            const osg::ref_ptr<osg::Image> picture = view.picture();
            if (!first) first = picture;
            EXPECT_GT(countOtherThan(*picture, osg::Vec3ub(0, 0, 0)), 100);
            EXPECT_TRUE(samePixels(*picture, *first));
        }
        view.viewer->stopThreading();
        view.window->close();
        view.frame(); // has no window, and the manager goes on
        VelOsgDBBrx::GlobalObject::unRegisterGraphicsContext(view.window);
    }
}
