#include "viewer/edit/EditSession.h"

#include "tests/support/LasRecords.h"
#include "tests/support/NoRoom.h"
#include "tests/viewer/ShownSurvey.h"
#include "viewer/scene/StoreCache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

using VelOsgDBBrx::Type;

namespace {

/// A corner of the window: mirrored or turned, it covers other points.
const Polygon kCorner = {{0, 100}, {0, 0}, {130, 0}};
const Polygon kAll = {{-10, -10}, {210, -10}, {210, 210}, {-10, 210}};

class EditSessionTest : public testing::Test
{
protected:
    void show()
    {
        shown.show();
        session.emplace(shown.scene, *shown.host.viewer);
    }

    /// Unsaved classes belong to the process.
    void TearDown() override
    {
        if (!session) return;
        session->undoAll();
        session->wait();
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

    std::map<int, size_t> pointsByClass()
    {
        const LasRecords records(shown.store());
        std::map<int, size_t> counts;
        for (size_t i = 0; i < records.size(); ++i)
            ++counts[records.classOf(i)];
        return counts;
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

    EditOutcome classify(const Outline& polygon, int toClass, std::vector<int> fromClasses = {},
                         bool dryRun = false)
    {
        return done(session->classify(polygon, {toClass, std::move(fromClasses), dryRun}));
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
    std::optional<EditSession> session; ///< ends before the viewer
};

} // namespace

TEST_F(EditSessionTest, ActsOnExactlyThePointsUnderThePolygonInAViewportAnywhereInItsWindow)
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
    const EditOutcome outcome = done(session->hide(polygon, Type::INSIDE));
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.operation, "hide inside");
    EXPECT_EQ(outcome.points, count(expected));
    EXPECT_EQ(hidden(), expected);
    EXPECT_EQ(done(session->show(kAll)).points, count(expected));
    EXPECT_EQ(count(hidden()), 0u);
    EXPECT_EQ(done(session->hide(polygon, Type::OUTSIDE)).points, count(others));
    EXPECT_EQ(hidden(), others);
    drawn();
    EXPECT_TRUE(samePixels(*shown.host.picture(), *selectedOnly)) << "the renderer selects others";
}

TEST_F(EditSessionTest, UndoTakesBackTheNewestEditOfWhateverKind)
{
    show();
    const int before = drawn();
    done(session->hide(kCorner, Type::INSIDE));
    const int withHole = drawn();
    EXPECT_LT(withHole, before);
    classify(kAll, 6);
    const std::vector<bool> corner = hidden();
    const Polygon other = {{200, 200}, {120, 200}, {200, 150}};
    EXPECT_EQ(done(session->hide(other, Type::INSIDE)).points, count(under(other)));
    done(session->select(kAll, true));
    done(session->segment(false));
    EXPECT_EQ(drawn(), 0) << "everything is selected, and left out of the picture";
    EXPECT_EQ(done(session->hide(Polygon{{300, 300}, {310, 300}, {300, 310}}, Type::INSIDE)).points, 0u)
        << "changes nothing, so that there is nothing to undo";

    EXPECT_EQ(done(session->undo()).operation, "undo show all but selected");
    EXPECT_LT(drawn(), withHole);
    EXPECT_EQ(done(session->undo()).operation, "undo select");
    EXPECT_FALSE(done(session->segment(true)).ok) << "nothing is selected any more";
    EXPECT_EQ(done(session->undo()).points, count(under(other))) << "the newer of two";
    EXPECT_EQ(hidden(), corner);
    const EditOutcome undone = done(session->undo());
    EXPECT_EQ(undone.operation, "undo classify");
    EXPECT_EQ(undone.points, 400 - count(under(kCorner)));
    EXPECT_TRUE(session->unsavedPoints().empty());
    EXPECT_EQ(drawn(), withHole);
    EXPECT_EQ(done(session->undo()).operation, "undo hide inside");
    EXPECT_EQ(drawn(), before);
    EXPECT_EQ(count(hidden()), 0u);
    EXPECT_EQ(done(session->undo()).message, "there is nothing to undo");
}

TEST_F(EditSessionTest, UndoAllTakesEverythingBackAndResetShowsEverything)
{
    show();
    const auto classesBefore = pointsByClass();
    for (const bool reset : {false, true}) {
        done(session->hide(kCorner, Type::INSIDE));
        classify(kAll, 6, {2});
        done(session->select(kCorner, true));
        done(session->hide(Polygon{{150, 0}, {200, 0}, {200, 80}}, Type::INSIDE));
        const uint64_t hiddenPoints = count(hidden());
        const uint64_t reclassified = session->unsavedPoints()[shown.store()];
        const EditOutcome outcome = done(reset ? session->reset() : session->undoAll());
        EXPECT_EQ(count(hidden()), 0u);
        EXPECT_FALSE(done(session->segment(true)).ok) << "nothing is selected";
        if (reset) {
            EXPECT_EQ(outcome.points, hiddenPoints);
            EXPECT_EQ(session->unsavedPoints()[shown.store()], reclassified) << "classes stay";
            EXPECT_EQ(done(session->undo()).operation, "undo classify");
        } else {
            EXPECT_EQ(outcome.points, hiddenPoints + reclassified);
        }
        EXPECT_TRUE(session->unsavedPoints().empty());
        EXPECT_EQ(done(session->undo()).message, "there is nothing to undo");
    }
    EXPECT_EQ(pointsByClass(), classesBefore);
}

TEST_F(EditSessionTest, WhatAFullDiskLeavesHiddenCanBeUndoneOnceMore)
{
    shown.show();
    appendHole(shown.store());
    Scene scene;
    ASSERT_TRUE(scene.load({shown.store()}, Options()));
    session.emplace(scene, *shown.host.viewer);
    for (const bool all : {true, false}) {
        const uint64_t corner = done(session->hide(kCorner, Type::INSIDE)).points;
        EXPECT_EQ(done(session->hide(kAll, Type::INSIDE)).points, 400 - corner);
        {
            const NoRoom noRoom(0);
            EXPECT_FALSE(done(all ? session->undoAll() : session->undo()).ok);
            EXPECT_EQ(count(hidden()), 400u);
        }
        EXPECT_EQ(done(session->undo()).points, 400 - corner) << "the newer of the two";
        EXPECT_EQ(done(session->undo()).points, corner);
    }
    EXPECT_EQ(done(session->undo()).message, "there is nothing to undo");
    session.reset();
}

TEST_F(EditSessionTest, EditsSeveralCloudsAsOneAndLeavesOutThoseAside)
{
    shown.show();
    Scene scene;
    std::vector<std::string> stores;
    for (const double east : {0.0, 10.0, 500.0}) {
        TestSurvey survey = shown.survey;
        survey.x += east;
        survey.y += 1000;
        const std::string name = shown.folder.file(std::to_string(east) + ".las");
        ASSERT_TRUE(survey.write(name));
        ASSERT_TRUE(findOrBuildStore(name, false, stores.emplace_back()));
    }
    ASSERT_TRUE(scene.load(stores, Options()));
    const osg::Vec3d center(shown.survey.x + 14.5, shown.survey.y + 1009.5, shown.survey.z);
    shown.host.camera().setViewMatrixAsLookAt(center + osg::Vec3d(0, 0, 90), center, osg::Vec3d(0, 1, 0));
    session.emplace(scene, *shown.host.viewer);
    const EditOutcome outcome = classify(kAll, 9);
    EXPECT_EQ(outcome.points, 800u);
    EXPECT_EQ(outcome.classes->selected, 800u);
    const auto unsaved = session->unsavedPoints();
    EXPECT_EQ(unsaved.size(), 2u);
    EXPECT_EQ(done(session->undo()).points, 800u) << "one step";
    EXPECT_EQ(done(session->undo()).message, "there is nothing to undo");
    EXPECT_EQ(done(session->hide(kAll, Type::OUTSIDE)).points, 400u) << "the cloud aside";
    session->undoAll();
    session->wait();
    session.reset();
}

TEST_F(EditSessionTest, OneOperationRunsAtATimeAndNonsenseIsRefused)
{
    show();
    ASSERT_TRUE(session->hide(kAll, Type::INSIDE));
    EXPECT_FALSE(session->undo());
    EXPECT_FALSE(session->classify(kAll, Classification()));
    EXPECT_TRUE(session->isBusy());
    EXPECT_EQ(session->wait().points, 400u);
    EXPECT_FALSE(session->isBusy());
    done(session->undo());

    EXPECT_EQ(done(session->hide(Polygon{{0, 0}, {9, 9}}, Type::OUTSIDE)).message,
              "needs at least 3 vertices, 2 are given");
    EXPECT_FALSE(done(session->line(Polygon{{0, 0}, {9, 9}}, 0)).ok);
    EXPECT_FALSE(done(session->select(kAll, false)).ok);
    EXPECT_FALSE(classify(kAll, 256).ok);
    EXPECT_FALSE(classify(kAll, 6, {255}).ok);
    EXPECT_EQ(count(hidden()), 0u);
}

TEST_F(EditSessionTest, AnOutlineBeyondTheWindowIsMeantWholeOnlyInTheWorld)
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
    EXPECT_EQ(done(session->hide(most, Type::INSIDE)).points, count(expected));
    EXPECT_EQ(hidden(), expected);
    const EditOutcome undone = done(session->undo());
    EXPECT_EQ(undone.undone, "hide inside");
    EXPECT_EQ(undone.points, count(expected));
    ASSERT_LT(shown.onScreen(world(0, 9)).x(), 0);
    // Higher points of the row stand further from the middle of the picture; the next row is 31 pixels away.
    shown.scene.setClipPlanes({{0, -1, 0, shown.survey.y + 9.2}});
    EXPECT_EQ(done(session->line(std::vector{world(-30, 9), world(50, 9)}, 20)).points, 20u);
    EXPECT_FALSE(
        done(session->hide(std::vector{world(-1e6, 0), world(1e6, 0), world(0, 1e6)}, Type::INSIDE)).ok);
    EXPECT_EQ(
        done(session->hide(std::vector{world(0, 0), world(1, 0), world(0, 0, 13)}, Type::INSIDE)).message,
        "vertex 3 is behind the camera");
    EXPECT_EQ(count(hidden()), 0u);
}

TEST_F(EditSessionTest, AStoreThatWasBuiltAnewMeanwhileIsNamedAndLeftAlone)
{
    show();
    const std::string old = shown.folder.file("old.brx");
    std::filesystem::rename(shown.store(), old);
    std::filesystem::copy(old, shown.store());
    for (const EditOutcome& outcome :
         {done(session->hide(kAll, Type::INSIDE)), done(session->show(kAll)), done(session->reset())}) {
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.points, 0u);
        EXPECT_EQ(outcome.message.find(shown.store() + ": is no longer the file that was opened"), 0u)
            << outcome.message;
    }
    EXPECT_EQ(count(hidden()), 0u);
    EXPECT_EQ(done(session->undo()).message, "there is nothing to undo");

    std::filesystem::rename(old, shown.store());
    EXPECT_EQ(done(session->hide(kAll, Type::INSIDE)).points, 400u);
    std::filesystem::rename(shown.store(), old);
    const EditOutcome undone = done(session->undo());
    EXPECT_FALSE(undone.ok);
    EXPECT_NE(undone.message.find("is no longer the file"), std::string::npos) << undone.message;
    std::filesystem::rename(old, shown.store());
    EXPECT_EQ(count(hidden()), 400u);
    done(session->reset());
}

TEST_F(EditSessionTest, ALineFindsThePointsUnderItsWholeWidthAndMakesThemStandOut)
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
