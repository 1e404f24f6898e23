#include "lod/PointCloudLOD.h"

#include "lod/PointCloudLodHandler.h"
#include "tests/support/HandOctree.h"
#include "tests/support/HeadlessViewer.h"

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osg/ValueObject>

#include <gtest/gtest.h>

namespace {

using EventType = osgGA::GUIEventAdapter;

osg::ref_ptr<CellLeaf> makeLeaf(uint8_t level, uint64_t code)
{
    const osg::ref_ptr<CellLeaf::CellKey> key = new CellLeaf::CellKey(level, code);
    return new CellLeaf(*key, osg::Vec3f(), osg::Vec3f());
}

class PointCloudLODTest : public testing::Test
{
protected:
    osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(2, osg::Vec3d(), 10));
    osg::ref_ptr<PointCloudLOD> lod = new PointCloudLOD(octree);
};

TEST_F(PointCloudLODTest, TakesLeavesOnceEachAndNothingElse)
{
    const osg::ref_ptr<CellLeaf> leaf = makeLeaf(3, 7);
    EXPECT_TRUE(lod->addChild(leaf));
    EXPECT_FALSE(lod->addChild(leaf.get()));
    EXPECT_FALSE(lod->addChild(osg::ref_ptr<osg::Node>(new osg::Group)));
    EXPECT_FALSE(lod->addChild(static_cast<osg::Node*>(nullptr)));
    EXPECT_EQ(lod->getNumChildren(), 1u);
    EXPECT_EQ(lod->getLeavesByLevel().at(3).count(leaf), 1u);

    EXPECT_FALSE(lod->removeChild(makeLeaf(3, 7)));
    EXPECT_TRUE(lod->removeChild(leaf));
    EXPECT_FALSE(lod->removeChild(leaf.get()));
    EXPECT_EQ(lod->getNumChildren(), 0u);
    EXPECT_TRUE(lod->getLeavesByLevel().at(3).empty()) << "the level stays listed";
    EXPECT_EQ(leaf->referenceCount(), 1);
}

TEST_F(PointCloudLODTest, EveryCellKnowsItAndForgetsItWhenItDies)
{
    visitCells(*octree->root, [&](CellData& cell) { EXPECT_EQ(cell.group, lod.get()); });
    lod = nullptr;
    visitCells(*octree->root, [&](CellData& cell) { EXPECT_FALSE(cell.group.valid()); });
}

TEST_F(PointCloudLODTest, TheBoundIsThatOfTheWholeFileThoughNothingIsLoaded)
{
    octree->min.set(-1, -2, -3);
    octree->max.set(5, 6, 7);
    EXPECT_EQ(lod->getBound().center(), osg::Vec3f(2, 2, 2));
    EXPECT_FLOAT_EQ(lod->getBound().radius(), osg::Vec3f(3, 4, 5).length());
    EXPECT_FALSE(osg::ref_ptr<PointCloudLOD>(new PointCloudLOD(nullptr))->getBound().valid());
    EXPECT_FALSE(lod->getCullingActive());
}

TEST_F(PointCloudLODTest, TheMouseSwitchesTheModeButTheLeftButtonAloneDoesNot)
{
    const osg::ref_ptr<PointCloudLodHandler> handler = new PointCloudLodHandler;
    const osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    const auto modeAfter = [&](EventType::EventType type, int buttons) {
        const osg::ref_ptr<EventType> event = new EventType;
        event->setEventType(type);
        event->setButtonMask(buttons);
        EXPECT_FALSE(handler->handle(*event, *view, lod, nullptr));
        return lod->getMode();
    };
    const int left = EventType::LEFT_MOUSE_BUTTON;
    const int middle = EventType::MIDDLE_MOUSE_BUTTON;
    EXPECT_EQ(lod->getMode(), PointCloudLOD::RELEASED);
    EXPECT_EQ(modeAfter(EventType::PUSH, left), PointCloudLOD::RELEASED);
    EXPECT_EQ(modeAfter(EventType::DRAG, left), PointCloudLOD::RELEASED);
    EXPECT_EQ(modeAfter(EventType::PUSH, middle), PointCloudLOD::PRESSED);
    EXPECT_EQ(modeAfter(EventType::MOVE, middle), PointCloudLOD::PRESSED);
    EXPECT_EQ(modeAfter(EventType::DRAG, left | middle), PointCloudLOD::DRAGGING);
    EXPECT_EQ(modeAfter(EventType::SCROLL, 0), PointCloudLOD::SCROLLED);
    EXPECT_EQ(modeAfter(EventType::PUSH, middle), PointCloudLOD::PRESSED);
    EXPECT_EQ(modeAfter(EventType::RELEASE, 0), PointCloudLOD::RELEASED);
    EXPECT_FALSE(handler->handle(*osg::ref_ptr<EventType>(new EventType), *view,
                                 osg::ref_ptr<osg::Group>(new osg::Group), nullptr));
}

/// Notes the level of every leaf that the cull traversal reaches.
class CullNote : public osg::NodeCallback
{
public:
    explicit CullNote(std::multiset<int>& levels) : _levels(levels) {}
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        _levels.insert(static_cast<CellLeaf*>(node)->getLevel());
        traverse(node, visitor);
    }

private:
    std::multiset<int>& _levels;
};

class ThinnedDisplay : public PointCloudLODTest
{
protected:
    void SetUp() override
    {
        octree->min.set(-1, -1, -1);
        octree->max.set(1, 1, 1);
        octree->registered = true; // no manager is to take it
        for (uint8_t level : {0, 1, 1, 2, 3}) {
            const osg::ref_ptr<CellLeaf> leaf = makeLeaf(level, lod->getNumChildren());
            leaf->setCullingActive(false);
            leaf->setCullCallback(new CullNote(levels));
            lod->addChild(leaf);
        }
        view.viewer->setIncrementalCompileOperation(operation);
        view.camera().setViewMatrixAsLookAt(osg::Vec3d(0, -10, 0), osg::Vec3d(), osg::Vec3d(0, 0, 1));
        view.show(lod);
    }

    std::multiset<int> culledLevels()
    {
        levels.clear();
        view.frame();
        return levels;
    }

    using Levels = std::multiset<int>;
    Levels levels;
    HeadlessViewer view{8, 8};
    osg::ref_ptr<VelOsgDBBrx::VelIncrementalCompileOperation> operation =
        new VelOsgDBBrx::VelIncrementalCompileOperation;
};

TEST_F(ThinnedDisplay, DrawsTheLevelsDownToTheMoveLevelAndEverythingWhenReleased)
{
    EXPECT_EQ(culledLevels(), (Levels{0, 1, 1, 2, 3}));
    for (const int mode : {PointCloudLOD::PRESSED, PointCloudLOD::DRAGGING}) {
        lod->setMode(mode);
        operation->setMoveLevel(0);
        EXPECT_EQ(culledLevels(), (Levels{0}));
        operation->setMoveLevel(2);
        EXPECT_EQ(culledLevels(), (Levels{0, 1, 1, 2}));
        operation->setMoveLevel(-1);
        EXPECT_EQ(culledLevels(), Levels());
    }
    for (const int mode : {PointCloudLOD::SCROLLED, PointCloudLOD::RELEASED}) {
        lod->setMode(mode);
        EXPECT_EQ(culledLevels().size(), 5u);
    }
}

TEST_F(ThinnedDisplay, TheViewersDiluteValueThinsAlsoAReleasedDisplayButOnlyAsABool)
{
    operation->setMoveLevel(1);
    view.viewer->setUserValue("dilute", true);
    EXPECT_EQ(culledLevels(), (Levels{0, 1, 1}));
    view.viewer->setUserValue("dilute", false);
    EXPECT_EQ(culledLevels().size(), 5u);
    view.viewer->setUserValue("dilute", 1.0f);
    EXPECT_EQ(culledLevels().size(), 5u);
}

TEST_F(ThinnedDisplay, WithoutACompileOperationNothingIsDrawnThinned)
{
    view.viewer->setIncrementalCompileOperation(nullptr);
    lod->setMode(PointCloudLOD::PRESSED);
    EXPECT_EQ(culledLevels(), Levels());
}

TEST_F(ThinnedDisplay, OtherVisitorsSeeEveryLeaf)
{
    lod->setMode(PointCloudLOD::PRESSED);
    operation->setMoveLevel(-1);
    struct Counter : osg::NodeVisitor
    {
        Counter() : osg::NodeVisitor(TRAVERSE_ACTIVE_CHILDREN) {}
        void apply(osg::Geode&) override { ++leaves; }
        int leaves = 0;
    } counter;
    lod->accept(counter);
    EXPECT_EQ(counter.leaves, 5);
}

} // namespace
