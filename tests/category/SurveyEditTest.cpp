#include "tests/category/CategoryScene.h"

#include <VelBrx/Builder.h>
#include <VelBrx/PointCounts.h>
#include <VelBrx/Verify.h>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace VelOsgDBBrx;

namespace {

const std::string kUid = "survey";
const Polygon kStrip = {{31.4, 20.7}, {180.2, 55.1}, {160.9, 95.6}, {100.3, 80.2}, {25.8, 130.5}};

} // namespace

TEST(SurveyEdit, ReclassifiesEveryPointOfARealStoreUnderThePolygonOfAFarView)
{
    const char* data = std::getenv("VELBRX_TEST_DATA");
    if (!data) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of real files";
    TempFolder folder;
    VelBrx::BuildOptions options;
    options.inputs = {std::string(data) + "/survey/PDAL__autzen_trim_7.las"};
    options.output = folder.file("survey.brx");
    VelBrx::BuildReport report;
    const VelBrx::Status built = VelBrx::buildStore(options, report);
    ASSERT_TRUE(built.ok()) << built.message();

    LoadedStore store(options.output);
    const OctreeInfo& octree = *store.octree();
    const osg::Vec3d center = (octree.min + octree.max) / 2;
    const double size = (octree.max - octree.min).length();
    const Screen screen = Screen::lookingAt(center + osg::Vec3d(-0.5, -1, 0.8) * size, center);
    const LasRecords records(options.output);
    const Classes before = storedClasses(options.output);
    const std::vector<bool> under = pointsUnder(records, kStrip, screen);
    const Classes expected = edited(before, under, 20, [&](size_t i) {
        return !(records.flags(i) & 0x0F) && (before[i] == 2 || before[i] == 5);
    });
    const size_t changed = difference(before, expected).size();
    ASSERT_GT(changed, 1000u);

    CategoryCalcTool& tool = *CategoryCalcTool::getInstance();
    tool.setPixelBufferTool(new ExactMaskTool);
    tool.registerCloud(kUid, store.cloud);
    const osg::ref_ptr<PolygonCmd> edit = polygonEdit(kStrip, screen, 20);
    edit->base.setFromClasses({2, 5});
    EXPECT_EQ(pushAndWait(kUid, edit)->counts().changed, changed);
    EXPECT_EQ(tool.getAllModify64()[kUid], difference(before, expected));
    EXPECT_EQ(shownClasses(octree), expected);

    pushAndWait(Category::UNDO);
    EXPECT_EQ(shownClasses(octree), before);
    pushAndWait(kUid, edit);
    ASSERT_TRUE(tool.writeToStores().ok());
    tool.save();
    EXPECT_EQ(readFile(options.output), withClasses(records.bytes(), expected));
    EXPECT_TRUE(VelBrx::verifyStore(options.output).empty());
    VelBrx::PointCounts counts;
    ASSERT_TRUE(VelBrx::countPoints(options.output, counts).ok());
    EXPECT_EQ(counts.byClass[20], changed);

    store.cloud = nullptr;
    const LoadedStore reopened(options.output);
    EXPECT_EQ(shownClasses(*reopened.octree()), expected);
}
