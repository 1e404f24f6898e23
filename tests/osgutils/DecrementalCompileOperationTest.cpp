#include <VelOsgUtils/DecrementalCompileOperation.h>

#include <gtest/gtest.h>

namespace {

using VelOsgUtils::DecrementalCompileOperation;

class DecrementalCompileOperationTest : public testing::Test
{
protected:
    DecrementalCompileOperationTest()
    {
        operation->setMaximumTimePerFrame(10);
        for (auto& node : nodes) {
            node = new osg::Node;
            group->addChild(node);
        }
    }

    osg::ref_ptr<DecrementalCompileOperation> operation = new DecrementalCompileOperation;
    osg::ref_ptr<osg::Group> group = new osg::Group;
    std::array<osg::ref_ptr<osg::Node>, 5> nodes;
};

TEST_F(DecrementalCompileOperationTest, RemovesInOrderNoMoreThanTheMaximumPerFrame)
{
    operation->setMaximumPerFrame(2);
    for (const auto& node : nodes)
        operation->add(group, node);
    EXPECT_EQ(group->getNumChildren(), 5u) << "nothing may happen outside the update traversal";
    (*operation)(nullptr);
    EXPECT_EQ(operation->pending(), 3u);
    EXPECT_FALSE(group->containsNode(nodes[0]) || group->containsNode(nodes[1]));
    EXPECT_TRUE(group->containsNode(nodes[2]));
    operation->finish();
    EXPECT_EQ(group->getNumChildren(), 0u);
}

TEST_F(DecrementalCompileOperationTest, StopsWhenTheTimeOfAFrameIsOverButAlwaysGetsOn)
{
    operation->setMaximumTimePerFrame(0);
    for (const auto& node : nodes)
        operation->add(group, node);
    for (unsigned left = 4; left > 0; --left) {
        (*operation)(nullptr);
        EXPECT_EQ(group->getNumChildren(), left);
    }
}

TEST_F(DecrementalCompileOperationTest, AWithdrawnRemovalNeverHappensAndCostsNoPlaceInAFrame)
{
    operation->setMaximumPerFrame(1);
    operation->add(group, nodes[0]);
    operation->add(group, nodes[1]);
    EXPECT_TRUE(operation->withdraw(group, nodes[0]));
    EXPECT_FALSE(operation->withdraw(group, nodes[0]));
    (*operation)(nullptr);
    EXPECT_TRUE(group->containsNode(nodes[0]));
    EXPECT_FALSE(group->containsNode(nodes[1]));
    EXPECT_FALSE(operation->withdraw(group, nodes[1])) << "it has been done";
}

TEST_F(DecrementalCompileOperationTest, ARemovalQueuedAgainAfterAWithdrawalHappensOnce)
{
    operation->add(group, nodes[0]);
    operation->withdraw(group, nodes[0]);
    operation->add(group, nodes[0]);
    operation->add(group, nodes[0]);
    EXPECT_EQ(operation->pending(), 1u);
    (*operation)(nullptr);
    EXPECT_EQ(operation->pending(), 0u);
    group->addChild(nodes[0]);
    (*operation)(nullptr);
    EXPECT_TRUE(group->containsNode(nodes[0]));
}

TEST_F(DecrementalCompileOperationTest, WithdrawingFromOneGroupLeavesTheRemovalFromAnother)
{
    const osg::ref_ptr<osg::Group> other = new osg::Group;
    other->addChild(nodes[0]);
    operation->add(group, nodes[0]);
    operation->add(other, nodes[0]);
    EXPECT_TRUE(operation->withdraw(other, nodes[0]));
    operation->finish();
    EXPECT_FALSE(group->containsNode(nodes[0]));
    EXPECT_TRUE(other->containsNode(nodes[0]));
}

TEST_F(DecrementalCompileOperationTest, HoldsTheNodeButNotTheGroupAndAcceptsNullForEither)
{
    osg::observer_ptr<osg::Node> node = nodes[0].get();
    operation->add(nullptr, nodes[0]);
    operation->add(group, nodes[1]);
    operation->add(group, nullptr);
    nodes[0] = nullptr;
    group = nullptr;
    EXPECT_TRUE(node.valid());
    EXPECT_EQ(operation->pending(), 2u);
    operation->finish();
    EXPECT_FALSE(node.valid());
}

} // namespace
