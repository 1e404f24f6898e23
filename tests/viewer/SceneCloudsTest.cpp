#include "tests/support/LasRecords.h"
#include "tests/support/Settle.h"
#include "tests/support/ThreadingModels.h"
#include "tests/viewer/ShownSurvey.h"
#include "viewer/edit/SceneEditing.h"
#include "viewer/scene/StoreCache.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;
using VelOsgDBBrx::EditOutcome;

namespace {

const std::vector<osg::Vec2d> kEverything = {{-10, -10}, {210, -10}, {210, 210}, {-10, 210}};
const std::vector<osg::Vec2d> kStrip = {{0, 80}, {200, 80}, {200, 130}, {0, 130}};
const std::vector<osg::Vec2d> kSlanted = {{20, 30}, {190, 60}, {120, 170}};

/// Two tiles side by side, of which the eastern one comes and goes.
class SceneClouds : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
protected:
    SceneClouds()
    {
        TestSurvey tile = shown.survey;
        tile.x += tile.side;
        tile.z += 10;
        EXPECT_TRUE(tile.write(shown.folder.file("east.las")));
        EXPECT_TRUE(findOrBuildStore(shown.folder.file("east.las"), false, east));
        osg::BoundingBoxd both = shown.scene.bounds();
        both.expandBy(osg::Vec3d(tile.x + tile.side, tile.y, tile.z));
        CameraView top;
        top.kind = CameraView::TOP;
        const Look look = lookAt(top, both, 1.0);
        shown.host.camera().setViewMatrixAsLookAt(look.eye, look.center, look.up);
        shown.show();
        editing.emplace(shown.scene, *shown.host.viewer);
    }

    /// Its id.
    uint64_t addEast()
    {
        std::vector<OpenedStore> opened(1);
        std::string note;
        EXPECT_TRUE(openStore(east, "", opened[0], note));
        EXPECT_TRUE(editing->addClouds(std::move(opened)));
        return shown.scene.clouds().back().id;
    }

    EditOutcome done(bool started)
    {
        EXPECT_TRUE(started);
        EditOutcome outcome = editing->wait();
        EXPECT_TRUE(outcome.ok) << outcome.message;
        return outcome;
    }

    osg::ref_ptr<osg::Image> picture()
    {
        EXPECT_TRUE(shown.services->settle(*shown.host.viewer, std::chrono::seconds(60)));
        return shown.host.picture();
    }

    int pointsIn(const osg::Image& picture) { return countOtherThan(picture, osg::Vec3ub(28, 31, 36)); }

    uint64_t hiddenIn(const std::string& store)
    {
        const LasRecords records(store);
        uint64_t hidden = 0;
        for (size_t i = 0; i < records.size(); ++i)
            hidden += (records.flags(i) & 0x0f) != 0;
        return hidden;
    }

    static auto openFiles() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

    /// Frames that are still drawn hold what they draw.
    bool isLetGo(const std::string& path)
    {
        return drawUntil({shown.host.viewer}, [&] { return !isMapped(path); });
    }

    static bool isMapped(const std::string& path)
    {
        std::ifstream maps("/proc/self/maps");
        const std::string text(std::istreambuf_iterator<char>(maps), {});
        return text.find(path) != std::string::npos;
    }

    ShownSurvey shown{GetParam(), 3};
    std::string east;
    std::optional<SceneEditing> editing; ///< ends before the viewer
};

INSTANTIATE_TEST_SUITE_P(Every, SceneClouds, everyThreadingModel(), threadingModelName);

} // namespace

TEST_P(SceneClouds, ACloudThatComesAgainLooksAsTheOthersDoAndIsEditedAlone)
{
    const auto alone = picture();
    shown.scene.setColorMode(ColorMode::ELEVATION);
    const double south = shown.survey.y + 4;
    shown.scene.setClipPlanes({{0, 1, 0, -south}});
    const uint64_t first = addEast();
    shown.scene.setEyeDomeLighting(true);
    done(editing->select(kSlanted, true));
    done(editing->segment(false));
    done(editing->select(kStrip, true));
    const auto both = picture();
    EXPECT_TRUE(editing->removeCloud(first));
    EXPECT_FALSE(editing->removeCloud(first));
    EXPECT_LT(pointsIn(*picture()), pointsIn(*both));
    EXPECT_FALSE(shown.scene.bounds().contains(osg::Vec3d(shown.survey.x + 30, south, shown.survey.z)));
    const uint64_t second = addEast();
    EXPECT_NE(second, first) << "a pick of the first would be taken for one of the second";
    EXPECT_TRUE(samePixels(*picture(), *both)) << "scale, clip planes, shading, segments, selection";

    EXPECT_EQ(addEast(), second) << "it is shown already";
    ASSERT_EQ(editing->notes().size(), 1u);
    EXPECT_NE(editing->notes()[0].find(east + ": is the same file as"), std::string::npos);
    done(editing->undoAll());
    shown.scene.setClipPlanes({});
    shown.scene.setEyeDomeLighting(false);
    shown.scene.setColorMode(ColorMode::AUTOMATIC);
    editing->setShown(second, false);
    EXPECT_TRUE(samePixels(*picture(), *alone));
    EXPECT_EQ(done(editing->hide(kEverything)).points, 400u);
    EXPECT_EQ(hiddenIn(east), 0u);
    EXPECT_EQ(pointsIn(*picture()), 0);
    editing->setShown(second, true);
    EXPECT_GT(pointsIn(*picture()), 0) << "it is paged again";
}

TEST_P(SceneClouds, UndoGoesOnWhenAStoreOfAStepIsGoneAndWhenItIsBack)
{
    const uint64_t first = addEast();
    picture();
    EXPECT_EQ(done(editing->classify(VelOsgDBBrx::PointSelection(), {9, {}, false})).points, 800u);
    EXPECT_EQ(done(editing->hide(kEverything)).points, 800u);
    EXPECT_TRUE(editing->removeCloud(first));
    EXPECT_EQ(editing->unsavedPoints().size(), 1u);
    EXPECT_EQ(done(editing->undo()).points, 400u);
    EXPECT_EQ(done(editing->undo()).points, 400u);
    EXPECT_TRUE(editing->unsavedPoints().empty());
    EXPECT_EQ(hiddenIn(shown.store()), 0u);
    EXPECT_EQ(hiddenIn(east), 400u);

    addEast();
    EXPECT_EQ(editing->unsavedPoints()[east], 400u);
    EXPECT_EQ(done(editing->undo()).points, 400u);
    EXPECT_EQ(hiddenIn(east), 0u);
    EXPECT_EQ(done(editing->undo()).points, 400u);
    EXPECT_TRUE(editing->unsavedPoints().empty());
}

TEST_P(SceneClouds, OpenedAndClosedAgainWhilePagingNothingIsLeftOpen)
{
    picture();
    long files = 0;
    for (int round = 0; round < 60; ++round) {
        const uint64_t id = addEast();
        for (int frame = 0; frame < round % 5; ++frame)
            shown.host.frame();
        if (round % 10 == 0) done(editing->hide(kSlanted));
        EXPECT_TRUE(editing->removeCloud(id));
        if (round % 10 == 0) done(editing->undo());
        if (round == 10) files = openFiles();
    }
    picture();
    EXPECT_TRUE(isLetGo(east));
    EXPECT_EQ(openFiles(), files);
    editing.reset();
    shown.scene.remove(shown.scene.clouds().front().id);
    EXPECT_EQ(pointsIn(*picture()), 0);
    EXPECT_TRUE(isLetGo(shown.store()));
    EXPECT_EQ(shown.scene.legend().title, "");
}
