#include "viewer/edit/SceneEditing.h"

#include "tests/support/LasRecords.h"
#include "tests/viewer/ShownSurvey.h"
#include "viewer/edit/ClassCounts.h"
#include "viewer/operation/Operations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>

using VelOsgDBBrx::EditOutcome;

namespace {

/// A corner of the window: mirrored or turned, it covers other points.
const Polygon kCorner = {{0, 100}, {0, 0}, {130, 0}};
const Polygon kAll = {{-10, -10}, {210, -10}, {210, 210}, {-10, 210}};

class SceneEditingTest : public testing::Test
{
protected:
    void show()
    {
        shown.show();
        session.emplace(shown.scene, *shown.host.viewer);
    }

    std::vector<bool> under(const Polygon& polygon)
    {
        const LasRecords records(shown.store());
        std::vector<bool> result;
        for (size_t i = 0; i < records.size(); ++i) {
            const osg::Vec2d pixel = shown.onScreen(records.position(i));
            result.push_back(contains(polygon, pixel.x(), pixel.y()));
        }
        return result;
    }

    std::vector<bool> hidden()
    {
        const LasRecords records(shown.store());
        std::vector<bool> result;
        for (size_t i = 0; i < records.size(); ++i)
            result.push_back(records.flags(i) & 0x0f);
        return result;
    }

    /// Metres from the first point.
    osg::Vec3d world(double east, double north, double up = 0) const
    {
        return osg::Vec3d(shown.survey.x + east, shown.survey.y + north, shown.survey.z + up);
    }

    /// Waits for the operation that a call has started.
    EditOutcome done(bool started)
    {
        EXPECT_TRUE(started);
        return session->wait();
    }

    EditOutcome classify(const EditPlace& place, int toClass, std::vector<int> fromClasses = {},
                         bool dryRun = false)
    {
        return done(session->classify(place, {toClass, std::move(fromClasses), dryRun}));
    }

    static uint64_t count(const std::vector<bool>& set)
    {
        return static_cast<uint64_t>(std::count(set.begin(), set.end(), true));
    }

    /// Pixels of points in the picture.
    int drawn()
    {
        EXPECT_TRUE(shown.services->settle(*shown.host.viewer, std::chrono::seconds(60)));
        return countOtherThan(*shown.host.picture(), osg::Vec3ub(28, 31, 36));
    }

    ShownSurvey shown{osgViewer::ViewerBase::SingleThreaded, 3};
    std::optional<SceneEditing> session; ///< ends before the viewer
};

} // namespace

TEST_F(SceneEditingTest, ActsOnExactlyThePointsUnderThePolygonInAViewportAnywhereInItsWindow)
{
    shown.host.camera().setViewport(60, 15, 130, 90);
    shown.host.camera().setProjectionMatrixAsPerspective(kFieldOfView, 130.0 / 90, 1, 1e6);
    show();
    const Polygon polygon = {{70, 140}, {125, 100}, {125, 140}};
    const std::vector<bool> expected = under(polygon);
    std::vector<bool> others = expected;
    others.flip();
    ASSERT_GT(count(expected), 5u);
    EXPECT_EQ(done(session->select(polygon, true)).points, count(expected));
    done(session->segment(true));
    drawn();
    const auto selectedOnly = shown.host.picture();
    done(session->undo());
    done(session->undo());
    EXPECT_EQ(classify(polygon, 9).points, count(expected));
    const EditOutcome outcome = done(session->hide(polygon));
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.operation, "hide");
    EXPECT_EQ(outcome.points, count(expected));
    EXPECT_EQ(hidden(), expected);
    EXPECT_EQ(done(session->show(kAll)).points, count(expected));
    EXPECT_EQ(count(hidden()), 0u);
    EXPECT_EQ(done(session->hide(polygon, true)).points, count(others));
    EXPECT_EQ(hidden(), others);
    drawn();
    EXPECT_TRUE(samePixels(*shown.host.picture(), *selectedOnly)) << "the renderer selects others";
}

TEST_F(SceneEditingTest, StoresAndPictureGoBackAndForthInOneOrder)
{
    show();
    std::vector<int> pixels = {drawn()};
    const auto step = [&](bool started) {
        done(started);
        pixels.push_back(drawn());
    };
    step(session->hide(kCorner));
    step(session->select(Polygon{{100, 0}, {200, 0}, {200, 200}, {100, 200}}, true));
    step(session->segment(true));
    step(session->hide(Polygon{{120, 120}, {160, 120}, {160, 200}, {120, 200}}));
    step(session->line(Polygon{{0, 50}, {200, 50}}, 20));
    EXPECT_EQ(done(session->hide(Polygon{{300, 300}, {310, 300}, {300, 310}})).points, 0u)
        << "changes nothing, so that there is nothing to undo";
    step(session->reset());
    ASSERT_EQ(pixels.back(), pixels.front()) << "the selection and the line go, too";
    const std::vector<std::string> names = {"hide",       "select", "show selected only", "hide", "line",
                                            "drop marks", "reset"};
    ASSERT_EQ(session->steps().size(), names.size());
    pixels.insert(pixels.end() - 1, 0); // behind "drop marks", which no picture was made of
    for (size_t i = names.size(); i-- > 0;) {
        EXPECT_EQ(done(session->undo()).operation, "undo " + names[i]);
        if (i == 6) pixels[i] = drawn();
        EXPECT_EQ(drawn(), pixels[i]) << names[i];
    }
    EXPECT_FALSE(done(session->segment(true)).ok) << "nothing is selected any more";
    for (const std::string& name : names)
        EXPECT_EQ(done(session->redo()).operation, "redo " + name);
    EXPECT_EQ(done(session->redo()).message, "there is nothing to redo");
    for (const size_t steps : {3, 0, 5, 7}) {
        EXPECT_TRUE(done(session->stepTo(steps)).ok);
        EXPECT_EQ(drawn(), pixels[steps]) << steps;
    }
    EXPECT_FALSE(done(session->stepTo(8)).ok);
    done(session->undoAll());
    EXPECT_EQ(drawn(), pixels.front());
    EXPECT_EQ(count(hidden()), 0u);
}

TEST_F(SceneEditingTest, ReachesWhatIsDrawnOrSelectedAndTheOthersOnlyWhereThatIsChosen)
{
    show();
    done(session->hide(kCorner));
    const uint64_t corner = count(hidden());
    const Polygon west = {{0, 0}, {100, 0}, {100, 200}, {0, 200}};
    const std::vector<bool> inWest = under(west);
    shown.scene.setShownClasses(std::bitset<256>().set(3));        // every third column
    shown.scene.setClipPlanes({{0, -1, 0, shown.survey.y + 9.5}}); // the southern half
    const uint64_t south = done(session->select(west, true)).points;
    ASSERT_GT(south, 20u);
    EXPECT_EQ(classify(SelectedPoints(), 9, {}, true).points, south);
    EXPECT_EQ(done(session->hide(SelectedPoints())).points, south);
    done(session->undo());

    done(session->segment(false)); // leaves them out
    EXPECT_EQ(classify(west, 9, {}, true).classes->selected, 0u);
    EXPECT_EQ(done(session->hide(west)).points, 0u);
    shown.scene.setClipPlanes({});
    EXPECT_EQ(done(session->show(west)).points, 0u) << "the segment and the classes leave these out as well";

    shown.scene.setEditsUndrawn(true);
    EXPECT_EQ(classify(west, 9).points, count(inWest)) << "hidden ones too";
    EXPECT_EQ(done(session->show(kAll)).points, corner);
    done(session->undoAll());
    EXPECT_FALSE(done(session->hide(SelectedPoints())).ok) << "nothing is selected";

    VelOsgDBBrx::PointSelection selection;
    selection.place = VelOsgDBBrx::BoxPlace{world(-1, -1, -1), world(4.5, 2.5, 99)};
    EXPECT_EQ(classify(selection, 9, {}, true).points, 15u);
    shown.scene.setEditsUndrawn(false);
    EXPECT_EQ(classify(selection, 9, {}, true).points, 6u) << "two columns are drawn";
    selection.drawn.shownClasses.reset(200);
    EXPECT_EQ(done(session->hide(selection)).points, 15u) << "says itself what is drawn";
}

TEST_F(SceneEditingTest, OneOperationRunsAtATimeAndNonsenseIsRefused)
{
    show();
    ASSERT_TRUE(session->hide(kAll));
    EXPECT_FALSE(session->undo());
    EXPECT_FALSE(session->segment(true));
    EXPECT_FALSE(session->line(kAll, 5));
    EXPECT_FALSE(session->classify(kAll, VelOsgDBBrx::Classification()));
    EXPECT_EQ(session->wait().points, 400u);
    EXPECT_FALSE(session->isBusy());
    done(session->undo());

    EXPECT_EQ(done(session->hide(Polygon{{0, 0}, {9, 9}}, true)).message,
              "needs at least 3 vertices, 2 are given");
    EXPECT_FALSE(done(session->line(Polygon{{0, 0}, {9, 9}}, 0)).ok);
    EXPECT_FALSE(done(session->select(kAll, false)).ok);
    EXPECT_EQ(count(hidden()), 0u);
}

TEST_F(SceneEditingTest, AnOutlineBeyondTheWindowIsMeantWholeOnlyInTheWorld)
{
    show();
    const osg::Vec3d center(shown.survey.x + 9.5, shown.survey.y + 9.5, shown.survey.z);
    shown.host.camera().setViewMatrixAsLookAt(center + osg::Vec3d(0, 0, 12), center, osg::Vec3d(0, 1, 0));
    const std::vector<bool> inWindow = under({{0, 0}, {200, 0}, {200, 200}, {0, 200}});
    ASSERT_LT(count(inWindow), 300u);
    const Polygon allPixels = {{-3000, -3000}, {3000, -3000}, {3000, 3000}, {-3000, 3000}};
    EXPECT_EQ(classify(allPixels, 9, {}, true).points, count(inWindow));
    // The southern half and a part of the northern one.
    const std::vector<osg::Vec3d> most = {world(-9, -9), world(29, -9), world(29, 9.7), world(-9, 15.2)};
    Polygon seen;
    for (const osg::Vec3d& vertex : most)
        seen.push_back(shown.onScreen(vertex));
    const std::vector<bool> expected = under(seen);
    ASSERT_GT(count(expected), 200u);
    EXPECT_EQ(classify(most, 9, {}, true).points, count(expected));
    EXPECT_EQ(done(session->hide(most)).points, count(expected));
    EXPECT_EQ(hidden(), expected);
    const EditOutcome undone = done(session->undo());
    EXPECT_EQ(undone.undone, "hide");
    EXPECT_EQ(undone.points, count(expected));
    ASSERT_LT(shown.onScreen(world(0, 9)).x(), 0);
    // Higher points of the row stand further from the middle of the picture; the next row is 31 pixels away.
    shown.scene.setClipPlanes({{0, -1, 0, shown.survey.y + 9.2}});
    EXPECT_EQ(done(session->line(std::vector{world(-30, 9), world(50, 9)}, 20)).points, 20u);
    EXPECT_FALSE(done(session->hide(std::vector{world(-1e6, 0), world(1e6, 0), world(0, 1e6)})).ok);
    EXPECT_EQ(done(session->hide(std::vector{world(0, 0), world(1, 0), world(0, 0, 13)})).message,
              "vertex 3 is behind the camera");
    EXPECT_EQ(count(hidden()), 0u);
}

TEST_F(SceneEditingTest, ALineFindsThePointsUnderItsWholeWidthAndMakesThemStandOut)
{
    show();
    const osg::Vec2d west = shown.onScreen(osg::Vec3d(shown.survey.x, shown.survey.y + 5, shown.survey.z));
    const double spacing =
        west.y() - shown.onScreen(osg::Vec3d(shown.survey.x, shown.survey.y + 6, shown.survey.z)).y();
    const double half = 1.5 * spacing;
    const Polygon strip = {
        {0, west.y() - half}, {200, west.y() - half}, {200, west.y() + half}, {0, west.y() + half}};
    const uint64_t expected = count(under(strip)); // three rows of points
    ASSERT_GT(expected, 50u);
    EXPECT_EQ(done(session->line(Polygon{{0, west.y()}, {200, west.y()}}, 2 * half)).points, expected);

    shown.scene.setClipPlanes({{1, 0, 0, -(shown.survey.x + 9.5)}, {0, -1, 0, shown.survey.y + 9.5}});
    EXPECT_EQ(done(session->line(Polygon{{0, west.y()}, {200, west.y()}}, 2 * half)).points, expected / 2)
        << "ten of twenty columns, all in the southern half";
    shown.scene.setShownClasses({});
    EXPECT_EQ(done(session->line(Polygon{{0, west.y()}, {200, west.y()}}, 2 * half)).points, 0u);
    shown.scene.setClipPlanes({});
    shown.scene.setShownClasses(std::bitset<256>().set());
    EXPECT_FALSE(done(session->line(Polygon{{9, 9}, {9, 9}}, 5)).ok) << "there is nothing to search";
    EXPECT_EQ(done(session->line(Polygon{{0, west.y()}, {200, west.y()}}, 2 * half)).points, expected);

    const auto yellow = [&](double top, double bottom) {
        const auto picture = shown.host.picture();
        int count = 0;
        for (int row = 0; row < picture->t(); ++row)
            for (int column = 0; column < picture->s(); ++column)
                count += ShownSurvey::kSize - row > top && ShownSurvey::kSize - row < bottom &&
                         pixel(*picture, column, row) == osg::Vec3ub(255, 255, 0);
        return count;
    };
    EXPECT_GT(yellow(west.y() - half, west.y() + half), 300);
    EXPECT_EQ(yellow(0, west.y() - half - spacing), 0);
    EXPECT_EQ(done(session->undo()).operation, "undo line");
    EXPECT_EQ(yellow(0, ShownSurvey::kSize), 0);
}

TEST_F(SceneEditingTest, ClassesAndHiddenPointsAreCountedAsTheyAreNowThroughEditsSavesAndOtherStores)
{
    show();
    const auto update = [](ClassCounts& counts) {
        for (counts.update(); counts.progress(); counts.update())
            std::this_thread::yield();
        return counts.points();
    };
    ClassCounts kept(shown.scene, *session);
    // What was followed step by step is what somebody who comes now counts.
    const auto points = [&](int code) {
        ClassCounts fresh(shown.scene, *session);
        EXPECT_EQ(update(kept), update(fresh));
        EXPECT_EQ(kept.hidden(), fresh.hidden());
        return kept.points()[static_cast<size_t>(code)];
    };
    kept.update();
    const ClassCounts::Counts built = kept.points();
    ASSERT_EQ(built[2] + built[3] + built[4], 400u);
    EXPECT_EQ(points(2), built[2]);
    classify(kAll, 9, {2});
    EXPECT_EQ(points(9), built[2]);
    EXPECT_EQ(points(2), 0u);
    done(session->undo());
    EXPECT_EQ(points(9), 0u);
    done(session->redo());
    classify(kCorner, 12);
    const uint64_t corner = points(12);
    EXPECT_EQ(corner, count(under(kCorner)));
    done(session->save());
    EXPECT_EQ(points(12), corner);
    done(session->undo()); // in memory alone
    EXPECT_EQ(points(12), 0u);
    done(session->stepTo(0));
    EXPECT_EQ(points(2), built[2]);
    // Nobody looked before a save, nor before the edit behind it.
    done(session->stepTo(2));
    done(session->save());
    EXPECT_EQ(points(12), corner);
    classify(kAll, 8, {12});
    done(session->save());
    classify(kAll, 12, {8});
    EXPECT_EQ(points(12), corner);
    done(session->save());
    classify(kAll, 7, {9});
    EXPECT_EQ(points(7) + points(12) + points(3) + points(4), 400u);
    EXPECT_EQ(points(12), corner);

    const std::string copy = shown.folder.file("copy.brx");
    std::filesystem::copy_file(shown.store(), copy);
    OpenedStore opened;
    std::string note;
    ASSERT_TRUE(openStore(copy, "", opened, note));
    std::vector<OpenedStore> more;
    more.push_back(std::move(opened));
    done(session->addClouds(std::move(more)));
    EXPECT_EQ(points(12), 2 * corner);               // saved in both
    EXPECT_EQ(points(7) + points(9), 2 * points(9)); // saved in the copy, and edited since in the first
    done(session->removeCloud(shown.scene.clouds().back().id));
    EXPECT_EQ(points(12), corner);
    // Hidden points come from no record that was read: what operations tell is followed.
    const auto hidden = [&] {
        points(2);
        return kept.hidden().value_or(9999);
    };
    EXPECT_EQ(hidden(), 0u);
    done(session->hide(kCorner));
    EXPECT_EQ(hidden(), corner);
    done(session->undo());
    EXPECT_EQ(hidden(), 0u);
    done(session->redo());
    opened = OpenedStore();
    ASSERT_TRUE(openStore(copy, "", opened, note));
    more.clear();
    more.push_back(std::move(opened));
    done(session->addClouds(std::move(more))); // that hides nothing yet
    EXPECT_EQ(hidden(), corner);
    done(session->hide(kAll));
    EXPECT_EQ(hidden(), 800u);
    done(session->undo());
    done(session->show(kCorner));
    EXPECT_EQ(hidden(), 0u);
    done(session->undo());
    done(session->hide(kAll));
    done(session->removeCloud(shown.scene.clouds().back().id));
    EXPECT_EQ(hidden(), 400u);
    done(session->reset());
    EXPECT_EQ(hidden(), 0u);
    done(session->undoAll());
    EXPECT_EQ(hidden(), 0u);
}

/// No class that may change is none, and not all of them.
TEST_F(SceneEditingTest, IsNotAskedByRequestsThatFailTheirCheck)
{
    show();
    const Stage stage{shown.scene, *session, {}};
    Request request(*findOperation("classify"));
    request.set("polygon", Outline(kAll));
    request.set("from", ClassSet());
    EXPECT_EQ(carryOut(request, stage).message,
              "classify: \"from\": expected a list of classes from 0 to 255");
    request.set("from", ClassSet().set());
    EXPECT_EQ(carryOut(request, stage).message, "classify: \"to\" is missing");
    EXPECT_FALSE(session->isBusy());
    request.set("to", 7);
    EXPECT_EQ(carryOut(request, stage).state, Begun::RUNNING);
    EXPECT_EQ(session->wait().points, count(std::vector<bool>(LasRecords(shown.store()).size(), true)));
}
