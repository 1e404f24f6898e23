#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include "tests/support/HeadlessViewer.h"

#include <osg/Geode>
#include <osg/Geometry>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using VelOsgDBBrx::VelIncrementalCompileOperation;
using CompileSet = osgUtil::IncrementalCompileOperation::CompileSet;

osg::ref_ptr<osg::Geode> makeGeode()
{
    const osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseDisplayList(false);
    geometry->setVertexArray(new osg::Vec3Array(10));
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 10));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

class CompileOperationTest : public testing::Test
{
protected:
    void SetUp() override
    {
        view.viewer->setIncrementalCompileOperation(operation);
        view.show(group);
    }

    osg::ref_ptr<CompileSet> makeSet() { return new CompileSet(group, makeGeode()); }

    HeadlessViewer view{8, 8};
    osg::ref_ptr<VelIncrementalCompileOperation> operation = new VelIncrementalCompileOperation;
    osg::ref_ptr<osg::Group> group = new osg::Group;
};

TEST_F(CompileOperationTest, ASetPushedToTheFrontIsMergedBeforeOlderOnes)
{
    operation->setMaximumNumOfObjectsToCompilePerFrame(1);
    const osg::ref_ptr<CompileSet> old = makeSet();
    const osg::ref_ptr<CompileSet> urgent = makeSet();
    operation->add(old);
    operation->pushFront(urgent, true);
    view.frame();
    view.frame();
    ASSERT_EQ(group->getNumChildren(), 1u);
    EXPECT_EQ(group->getChild(0), urgent->_subgraphToCompile);
    view.frame();
    EXPECT_EQ(group->getNumChildren(), 2u);
}

TEST_F(CompileOperationTest, FindKnowsOnlySetsThatWaitToBeCompiledAndIsEmptyKnowsBothLists)
{
    const osg::ref_ptr<CompileSet> set = makeSet();
    EXPECT_TRUE(operation->isEmpty());
    EXPECT_FALSE(operation->find(set));
    EXPECT_FALSE(operation->find(nullptr));
    operation->pushFront(nullptr, true);
    EXPECT_TRUE(operation->isEmpty());
    operation->add(set);
    EXPECT_TRUE(operation->find(set));
    EXPECT_FALSE(operation->find(makeSet()));
    EXPECT_FALSE(operation->isEmpty());
    view.frame(); // compiles
    EXPECT_FALSE(operation->find(set));
    EXPECT_FALSE(operation->isEmpty()) << "it still waits to be merged";
    EXPECT_EQ(group->getNumChildren(), 0u);
    view.frame(); // merges
    EXPECT_TRUE(operation->isEmpty());
    EXPECT_EQ(group->getNumChildren(), 1u);
}

TEST_F(CompileOperationTest, HundredSetsAreMergedInAFewFramesByDefault)
{
    for (int i = 0; i < 100; ++i)
        operation->add(makeSet());
    for (int frame = 0; frame < 5; ++frame)
        view.frame();
    EXPECT_EQ(group->getNumChildren(), 100u);
}

/// Contexts come while cells are read on other threads; sanitizers tell when the two meet.
TEST_F(CompileOperationTest, TakesSetsWhileContextsComeAndGo)
{
    view.frame();
    const osg::ref_ptr<EglGraphicsWindow> other = makeWindow(8, 8);
    constexpr int kSets = 300;
    std::atomic<int> pushed{0};
    std::thread reader([&] {
        for (; pushed < kSets; ++pushed)
            operation->pushBack(makeSet());
    });
    while (pushed < kSets) {
        operation->addGraphicsContext(other);
        operation->keepContexts({view.window, other});
        operation->removeGraphicsContext(other);
        operation->keepContexts({view.window});
    }
    reader.join();
    for (int frame = 0; frame < 100 && !operation->isEmpty(); ++frame)
        view.frame();
    EXPECT_EQ(group->getNumChildren(), static_cast<unsigned>(kSets));
}

} // namespace
