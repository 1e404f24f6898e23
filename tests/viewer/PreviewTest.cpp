// What is shown of a survey while its store is built.

#include "tests/support/Eventually.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "viewer/files/CloudFiles.h"
#include "viewer/window/Window.h"

#include <VelOsgDBBrx/ContextServices.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <optional>

namespace fs = std::filesystem;

namespace {

constexpr int kSize = 200;
const std::vector<osg::Vec2d> kEverything = {{-10, -10}, {210, -10}, {210, 210}, {-10, 210}};

class Preview : public testing::Test
{
protected:
    Preview()
    {
        survey.side = 1800; // more than 3 million points
        survey.slope = 0.1;
        EXPECT_TRUE(survey.write(source));
        setUpCamera(host.camera(), 1.0);
        host.show(scene.root());
        services.emplace(host.window, std::nullopt);
        editing.emplace(scene, *host.viewer);
        files.emplace(*editing, scene, settings);
        files->open({source});
    }

    void take()
    {
        const CloudFiles::News news = files->update();
        problems.insert(problems.end(), news.problems.begin(), news.problems.end());
        done.insert(done.end(), news.done.begin(), news.done.end());
    }

    bool comes()
    {
        return eventually([&] { return take(), !scene.previews().empty(); });
    }

    int pointsInPicture()
    {
        CameraView top;
        top.kind = CameraView::TOP;
        const Look look = lookAt(top, scene.boundsFor(top), 1.0);
        host.camera().setViewMatrixAsLookAt(look.eye, look.center, look.up);
        EXPECT_TRUE(services->settle(*host.viewer, std::chrono::seconds(60)));
        return countOtherThan(*host.picture(), osg::Vec3ub(28, 31, 36));
    }

    VelOsgDBBrx::EditOutcome hide()
    {
        EXPECT_TRUE(editing->hide(Outline(kEverything)));
        return editing->wait();
    }

    static auto filesIn(const fs::path& folder) { return std::distance(fs::directory_iterator(folder), {}); }

    const TempFolder folder;
    const std::string source = folder.file("tile.las");
    TestSurvey survey;
    HeadlessViewer host{kSize, kSize, osgViewer::ViewerBase::SingleThreaded};
    Scene scene;
    Settings settings{""};
    std::optional<VelOsgDBBrx::ContextServices> services; ///< the others end before the viewer
    std::optional<SceneEditing> editing;
    std::optional<CloudFiles> files;
    std::vector<std::string> problems, done;
};

} // namespace

TEST_F(Preview, LooksAsTheStoreThatTakesItsPlaceAndCannotBeEdited)
{
    ASSERT_TRUE(comes());
    const Scene::Cloud preview = scene.previews().front();
    const osg::BoundingBoxd bounds = scene.bounds();
    EXPECT_TRUE(scene.clouds().empty());
    EXPECT_EQ(preview.store, source);
    EXPECT_EQ(preview.points, 1800u * 1800u);
    EXPECT_LT((bounds._min - osg::Vec3d(survey.x, survey.y, survey.z)).length(), 40);
    ASSERT_TRUE(files->openingOf(preview.id));
    EXPECT_LT(files->openingOf(preview.id)->share, 1);
    const VelOsgDBBrx::EditOutcome refused = hide();
    EXPECT_FALSE(refused.ok);
    EXPECT_NE(refused.message.find("preview of " + source), std::string::npos) << refused.message;
    const int shown = pointsInPicture();
    EXPECT_GT(shown, kSize * kSize / 2);
    EXPECT_TRUE(files->recent().empty() || !scene.clouds().empty());

    ASSERT_TRUE(eventually([&] { return take(), !scene.clouds().empty() && !files->openingOf(preview.id); }));
    ASSERT_EQ(scene.previews().size(), 1u) << "the picture would be empty until the store's points are there";
    EXPECT_LT((scene.bounds()._min - bounds._min).length(), 40);
    (void)services->settle(*host.viewer, std::chrono::seconds(60));
    EXPECT_TRUE(files->dropPreviews(true));
    EXPECT_TRUE(scene.previews().empty());
    EXPECT_NEAR(pointsInPicture(), shown, 0.05 * shown);
    EXPECT_EQ(hide().points, 1800u * 1800u);
    EXPECT_EQ(files->recent(), std::vector<std::string>{source});
    EXPECT_TRUE(problems.empty()) << problems.front();
}

TEST_F(Preview, GoesWithABuildThatIsCancelledOrFails)
{
    ASSERT_TRUE(comes());
    files->cancelOpening(files->openings().front().id);
    ASSERT_TRUE(eventually([&] { return take(), !files->isBusy(); }));
    EXPECT_TRUE(scene.isEmpty());
    EXPECT_EQ(done, std::vector<std::string>{source + ": cancelled"});
    EXPECT_EQ(filesIn(folder.path()), 1);

    const std::string there = folder.file("there");
    fs::create_directory(there);
    fs::copy_file(source, folder.file("there/tile.las"));
    folder.write("there/tile.las.brx.edits", {1, 2, 3}); // in the way of a new store
    files->open({folder.file("there/tile.las")});
    ASSERT_TRUE(eventually([&] { return take(), !files->isBusy(); }));
    EXPECT_TRUE(scene.isEmpty());
    EXPECT_EQ(problems.size(), 1u);
    EXPECT_EQ(filesIn(there), 2);
}
