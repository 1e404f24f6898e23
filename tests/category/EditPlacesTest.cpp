#include "tests/category/CategoryScene.h"
#include "tests/support/HeadlessViewer.h"

#include <VelOsgDBBrx/LineEnHancement.h>
#include <VelOsgDBBrx/LineSearchCmd.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <osg/MatrixTransform>
#include <osg/Switch>

#include <set>

using namespace VelOsgDBBrx;

namespace {

const Polygon kLine = {{30.5, 20.5}, {160.5, 60.5}, {40.5, 130.5}};
const std::string kUid = "placed cloud";

const osg::Matrixd kInner = osg::Matrixd::rotate(1.1, osg::Vec3d(1, 2, 3)) * osg::Matrixd::scale(1.5, 0.5, 2);
const osg::Matrixd kOuter =
    osg::Matrixd::rotate(-0.4, osg::Vec3d(3, 1, 1)) * osg::Matrixd::translate(1234567, 7654321, 250);
const osg::Matrixd kElsewhere = osg::Matrixd::rotate(2, osg::X_AXIS) * osg::Matrixd::translate(4000, 100, 9);

/// A cloud below two transforms and an oblique camera that sees it.
class EditPlaces : public ClassifiedScene
{
protected:
    void SetUp() override
    {
        CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool);
        CategoryCalcTool::getInstance()->setPixelBufferTool(new ExactMaskTool);
        CategoryCalcTool::getInstance()->registerCloud(kUid, store.cloud);
        screen = Screen::lookingAt({1234400, 7654100, 400}, {1234567, 7654321, 250});
        root->addChild(outer);
        outer->addChild(inner);
        inner->addChild(store.cloud);
    }

    void show()
    {
        view.camera().setViewMatrix(screen.view);
        view.camera().setProjectionMatrix(screen.projection);
        view.show(root);
    }

    /// Every kind of edit reaches exactly the points that are under its outline when the cloud stands there.
    void expectEditsAt(const osg::Matrixd& localToWorld)
    {
        const std::vector<bool> under = pointsUnder(records, kArrow, screen, localToWorld);
        ASSERT_GT(std::count(under.begin(), under.end(), true), 500);
        expectHidden(Type::INSIDE, under);
        std::vector<bool> others = under;
        others.flip();
        expectHidden(Type::OUTSIDE, others);
        expectReclassified(under);
        expectOnLine(localToWorld);
        expectSelected(localToWorld);
    }

    void expectHidden(Type type, const std::vector<bool>& points)
    {
        run(polygonCmd<CullCmd>(store.octree(), kArrow, screen, type));
        EXPECT_EQ(readFile(path), hidden(records, points).bytes());
        run(new UndoCmd(2));
    }

    void expectReclassified(const std::vector<bool>& points)
    {
        pushAndWait(kUid, polygonEdit(kArrow, screen, 9));
        expectClasses(points, 9);
    }

    /// What the edits so far come to; takes them back.
    void expectClasses(const std::vector<bool>& points, int toClass)
    {
        const Classes expected =
            edited(before, points, toClass, [&](size_t i) { return !(records.flags(i) & kHiddenBits); });
        EXPECT_EQ(CategoryCalcTool::getInstance()->getAllModify64()[kUid], difference(before, expected));
        pushAndWait(Category::RESET);
    }

    using Times = std::set<uint64_t>; ///< they number the points

    static Times timesOf(const LineSearchCmd::Points& points)
    {
        Times times;
        for (const LineEnHancement::LineEnHancementPoint& point : points)
            times.insert(point.gpsTime);
        return times;
    }

    /// What the two commands find.
    std::pair<Times, Times> onLine(OctreeInfo* octree) const
    {
        std::vector<osg::observer_ptr<OctreeInfo>> octrees = {octree};
        osg::Matrixd vpw = screen.vpw();
        const osg::ref_ptr<LineEnHancement> stated =
            new LineEnHancement(kLine, 1, 9, LineEnHancement::ALL_POINTS, 2);
        stated->setOctreeInfos(octrees);
        stated->setVPW(vpw);
        run(stated);
        const osg::ref_ptr<LineSearchCmd> search = new LineSearchCmd(2);
        search->setLine(kLine, 9);
        search->setOctreeInfos(octrees);
        search->setVPW(vpw);
        search->setWidth(screen.width);
        search->setHeight(screen.height);
        run(search);
        return {timesOf(stated->getAllLineEnHancementPoint()), timesOf(search->points())};
    }

    /// The same points as those of a cloud in no scene whose place is known.
    void expectOnLine(const osg::Matrixd& localToWorld) const
    {
        const LoadedStore placed(path);
        placed.octree()->transform = localToWorld;
        const std::pair<Times, Times> expected = onLine(placed.octree());
        EXPECT_GT(expected.first.size(), 100u);
        EXPECT_GT(expected.second.size(), 100u);
        EXPECT_EQ(onLine(store.octree()), expected);
    }

    void expectSelected(const osg::Matrixd& localToWorld)
    {
        const osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
        viewer->getCamera()->setViewport(0, 0, screen.width, screen.height);
        viewer->getCamera()->setViewMatrix(screen.view);
        viewer->getCamera()->setProjectionMatrix(screen.projection);
        SelectSegmentStack stack(viewer, store.cloud);
        Polygon polygon = kArrow;
        stack.selectPushAndApply(polygon, true);
        int wrong = 0;
        for (size_t i = 0; i < records.size(); ++i) {
            osg::Vec3d local = records.position(i) - records.offset();
            const osg::Vec4d window = osg::Vec4d(local, 1) * localToWorld * screen.vpw();
            const bool selected =
                window.w() > 0 && contains(kArrow, window.x() / window.w(), window.y() / window.w());
            wrong += stack.pointIsSelect(local) != selected;
        }
        EXPECT_EQ(wrong, 0);
        stack.clearAndApply();
    }

    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> outer = new osg::MatrixTransform(kOuter);
    osg::ref_ptr<osg::MatrixTransform> inner = new osg::MatrixTransform(kInner);
    HeadlessViewer view{200, 150};
};

} // namespace

TEST_F(EditPlaces, AreThoseOfTheSceneBeforeTheFirstFrameAfterItAndWithoutAny)
{
    expectEditsAt(kInner * kOuter);
    show();
    expectEditsAt(kInner * kOuter);
    store.cloud->enableEyeDomeLighting();
    expectEditsAt(kInner * kOuter);
    view.frame();
    expectEditsAt(kInner * kOuter);
    outer->setMatrix(kElsewhere);
    view.frame();
    outer->setMatrix(kOuter);
    expectEditsAt(kInner * kOuter);
}

TEST_F(EditPlaces, DoNotDependOnNodeMasks)
{
    for (osg::Node* off : {static_cast<osg::Node*>(store.cloud), static_cast<osg::Node*>(outer)}) {
        SCOPED_TRACE(off->className());
        off->setNodeMask(0);
        expectEditsAt(kInner * kOuter);
        show();
        view.frame();
        expectEditsAt(kInner * kOuter);
        off->setNodeMask(~0u);
    }
}

TEST_F(EditPlaces, OfSeveralPathsAreThoseOfTheOneThatIsSwitchedOn)
{
    const osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    const osg::ref_ptr<osg::MatrixTransform> other = new osg::MatrixTransform(kElsewhere);
    inner->removeChild(store.cloud);
    other->addChild(store.cloud); // the first parent
    inner->addChild(store.cloud);
    root->addChild(choice);
    root->removeChild(outer);
    choice->addChild(other, false);
    choice->addChild(outer, true);
    expectEditsAt(kInner * kOuter);
    show();
    view.frame();
    expectEditsAt(kInner * kOuter);
}

TEST_F(EditPlaces, BelowAnAbsoluteTransformFollowTheEye)
{
    inner->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    inner->setMatrix(kInner * osg::Matrixd::translate(0, 0, -300));
    show();
    expectEditsAt(inner->getMatrix() * osg::Matrixd::inverse(screen.view));
    view.frame();
    expectEditsAt(inner->getMatrix() * osg::Matrixd::inverse(screen.view));
}

TEST_F(EditPlaces, AreThoseOfTheMomentOfThePush)
{
    show();
    const osg::ref_ptr<Gate> gate = new Gate;
    CullCmdManager::getInstance()->push(gate);
    const osg::ref_ptr<CullCmd> cmd = polygonCmd<CullCmd>(store.octree(), kArrow, screen);
    CullCmdManager::getInstance()->push(cmd);
    CategoryCalcTool& tool = *CategoryCalcTool::getInstance();
    store.octree()->pointFile->mutex.lock(); // the tool comes no further than to its first edit
    for (const int toClass : {9, 10})
        tool.push(osg::ref_ptr<Category>(new Category(kUid, polygonEdit(kArrow, screen, toClass))));
    outer->setMatrix(kElsewhere);
    view.frame();
    store.octree()->pointFile->mutex.unlock();
    tool.waitUntilHandled(); // it leaves hidden points out
    gate->open();
    cmd->block();
    const std::vector<bool> under = pointsUnder(records, kArrow, screen, kInner * kOuter);
    EXPECT_EQ(readFile(path), hidden(records, under).bytes());
    run(new UndoCmd(2));
    expectClasses(under, 10);
}

TEST_F(EditPlaces, LeaveNothingOutForBeingNear)
{
    const osg::Vec3d middle = osg::Vec3d() * kInner * kOuter;
    screen = Screen::lookingAt(middle - osg::Vec3d(3, 2, 1), middle + osg::Vec3d(20, 5, 4));
    const double aspect = 1.0 * screen.width / screen.height;
    for (const osg::Matrixd& projection : {osg::Matrixd::perspective(60, aspect, 40, 1000),
                                           osg::Matrixd::perspective(60, aspect, 0.001, 0.002),
                                           osg::Matrixd::ortho(-40 * aspect, 40 * aspect, -40, 40, 30, 90)}) {
        screen.projection = projection;
        expectEditsAt(kInner * kOuter);
    }
}
