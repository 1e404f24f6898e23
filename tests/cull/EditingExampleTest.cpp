// The code that docs/hiding-api.md shows, and a test that runs it.

#include "tests/support/DocsPage.h"
#include "tests/support/PagingScene.h"

#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/LineEnHancement.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>
#include <VelOsgDBBrx/ResetCmd.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <gtest/gtest.h>

#include <iostream>

using namespace VelOsgDBBrx;

namespace {

using Polygon = std::vector<osg::Vec2d>;
using Octrees = std::vector<osg::observer_ptr<OctreeInfo>>;

void startEditing(osgViewer::Viewer* viewer)
{
    CullCmdManager::getInstance()->setPixelBufferTool(new PolygonMaskTool);
    PCViewerManager::getInstance()->registerViewer(viewer, "main");
}

void keepJournal(IPointCloud& cloud)
{
    std::string note;
    const VelBrx::Status status = EditJournalling::switchOn(*cloud.getOctree(), "", note);
    if (!status) std::cerr << status.message() << "\n";
    if (!note.empty()) std::cerr << note << "\n";
}

template <class Cmd>
osg::ref_ptr<Cmd> makeCmd(osgViewer::Viewer& viewer, IPointCloud& cloud, Polygon polygon, int barrierCount)
{
    const osg::Camera& camera = *viewer.getCamera();
    const osg::GraphicsContext::Traits& window = *camera.getGraphicsContext()->getTraits();
    osg::Matrixd vpw =
        camera.getViewMatrix() * camera.getProjectionMatrix() * camera.getViewport()->computeWindowMatrix();
    for (osg::Vec2d& vertex : polygon)
        vertex.y() = window.height - vertex.y(); // OSG's events count y up, the command counts it down
    Octrees octrees = {cloud.getOctree()};

    osg::ref_ptr<Cmd> cmd = new Cmd(barrierCount);
    cmd->setPolygon(polygon);
    cmd->setVPW(vpw);
    cmd->setWidth(window.width);
    cmd->setHeight(window.height);
    cmd->setOctreeInfos(octrees);
    cmd->setUid("main");
    return cmd;
}

uint64_t hideInside(osgViewer::Viewer& viewer, IPointCloud& cloud, const Polygon& polygon)
{
    osg::ref_ptr<CullCmd> cmd = makeCmd<CullCmd>(viewer, cloud, polygon, 2);
    CullCmdManager::getInstance()->push(cmd);
    cmd->block();
    const CmdResult result = cmd->getResult();
    if (result.storesReadOnly) std::cerr << "the store cannot be written; nothing was hidden\n";
    if (result.storesReplaced) std::cerr << "the store was replaced; open the new one\n";
    return result.pointsChanged;
}

osg::ref_ptr<CullCmd> startKeepingInside(osgViewer::Viewer& viewer, IPointCloud& cloud,
                                         const Polygon& polygon)
{
    osg::ref_ptr<CullCmd> cmd = makeCmd<CullCmd>(viewer, cloud, polygon, 1);
    cmd->setType(Type::OUTSIDE);
    CullCmdManager::getInstance()->push(cmd);
    return cmd; // each frame: cmd->getResult().state == CmdResult::DONE
}

uint64_t undoLast()
{
    osg::ref_ptr<UndoCmd> cmd = new UndoCmd(2);
    CullCmdManager::getInstance()->push(cmd);
    cmd->block();
    return cmd->getResult().pointsChanged;
}

uint64_t showEverything(IPointCloud& cloud)
{
    Octrees octrees = {cloud.getOctree()};
    osg::ref_ptr<ResetCmd> cmd = new ResetCmd(2);
    cmd->setOctreeInfos(octrees);
    cmd->setUid("main");
    CullCmdManager::getInstance()->push(cmd);
    cmd->block();
    return cmd->getResult().pointsChanged;
}

void selectAndSegment(SelectSegmentStack& stack, Polygon building, Polygon tree)
{
    stack.selectPushAndApply(building, true); // select
    stack.selectPushAndApply(tree, false);    // but not these
    stack.selectConvertSegment(false);        // show nothing else
    stack.pop();                              // the selection again, with everything around it
}

std::vector<LineEnHancement::LineEnHancementPoint> pointsAlong(osgViewer::Viewer& viewer, IPointCloud& cloud,
                                                               const Polygon& line)
{
    const osg::Camera& camera = *viewer.getCamera();
    osg::Matrixd vpw =
        camera.getViewMatrix() * camera.getProjectionMatrix() * camera.getViewport()->computeWindowMatrix();
    Octrees octrees = {cloud.getOctree()};
    constexpr double kResolution = 1;
    constexpr double kWidth = 5;
    osg::ref_ptr<LineEnHancement> cmd =
        new LineEnHancement(line, kResolution, kWidth, LineEnHancement::VISIBLE_POINTS, 2);
    cmd->setVPW(vpw);
    cmd->setOctreeInfos(octrees);
    CullCmdManager::getInstance()->push(cmd);
    cmd->block();
    return cmd->getAllLineEnHancementPoint();
}

void highlight(IPointCloud& cloud, const Polygon& worldLine)
{
    const osg::Vec4f yellow(1, 1, 0, 1);
    PointCloudHelper::setEnhancedLine(&cloud, LineEnHancement::outline(worldLine, 0.5), yellow, 6);
}

} // namespace

TEST(EditingExample, DoesWhatThePageSays)
{
    PagingScene scene;
    ASSERT_TRUE(scene.settle());
    osgViewer::Viewer& viewer = *scene.view.viewer;
    IPointCloud& cloud = dynamic_cast<IPointCloud&>(*scene.cloud);
    const Polygon upper = {{-1, 32}, {65, 32}, {65, 65}, {-1, 65}}; // y up
    const Polygon all = {{-1, -1}, {65, -1}, {65, 65}, {-1, 65}};
    const auto litRows = [&] {
        const osg::ref_ptr<osg::Image> picture = scene.view.picture();
        int lower = 0, above = 0;
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 64; ++x)
                (y < 32 ? lower : above) += pixel(*picture, x, y) != osg::Vec3ub(0, 0, 0);
        return std::make_pair(lower > 0, above > 0);
    };

    startEditing(&viewer);
    keepJournal(cloud);
    EXPECT_GT(hideInside(viewer, cloud, upper), 100u);
    EXPECT_EQ(litRows(), std::make_pair(true, false));
    EXPECT_GT(undoLast(), 100u);
    const osg::ref_ptr<CullCmd> keep = startKeepingInside(viewer, cloud, upper);
    const uint64_t shownAgain = undoLast(); // runs after the cull, for which nobody waits
    EXPECT_GT(shownAgain, 100u);
    EXPECT_EQ(keep->getResult().pointsChanged, shownAgain);
    startKeepingInside(viewer, cloud, upper);
    EXPECT_EQ(showEverything(cloud), shownAgain);
    EXPECT_EQ(litRows(), std::make_pair(true, true));

    SelectSegmentStack stack(&viewer, &cloud);
    selectAndSegment(stack, all, upper);
    osg::Vec3d low(0, 0, -30);
    EXPECT_TRUE(stack.pointIsSelect(low));
    EXPECT_TRUE(stack.pointIsVisible(low));

    EXPECT_GT(pointsAlong(viewer, cloud, {{2, 2}, {62, 62}}).size(), 20u);
    highlight(cloud, {{500000, 4499960}, {500000, 4500040}});
    PCViewerManager::getInstance()->unRegisterViewer("main");
}

TEST(EditingPage, ShowsOnlyCodeThatIsCompiledHere)
{
    const std::string root = VELBRX_SOURCE_DIR;
    EXPECT_EQ(blocksNotIn(root + "/tests/cull/EditingExampleTest.cpp", root + "/docs/hiding-api.md"),
              std::vector<std::string>());
}
