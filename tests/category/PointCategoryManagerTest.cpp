#include "category/PointCategoryManager.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>

namespace {

using VelOsgDBBrx::CategoryCmdInner;
using VelOsgDBBrx::CategoryData;

class RecordingOperation : public osg::Operation
{
public:
    RecordingOperation() : osg::Operation("RecordingOperation", true) {}

    void operator()(osg::Object* object) override
    {
        const auto& data = dynamic_cast<CategoryData&>(*object);
        const std::lock_guard<std::mutex> lock(_mutex);
        for (const auto& command : data.commands)
            _kinds.push_back(command->kind);
        _last = new CategoryData(data);
    }

    std::vector<int> kinds(size_t count)
    {
        for (int i = 0; i < 2000; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const std::lock_guard<std::mutex> lock(_mutex);
            if (_kinds.size() >= count) return _kinds;
        }
        return {};
    }

    osg::ref_ptr<CategoryData> last() { return _last; }

private:
    std::mutex _mutex;
    std::vector<int> _kinds;
    osg::ref_ptr<CategoryData> _last;
};

class PointCategoryManagerTest : public testing::Test
{
protected:
    PointCategoryManagerTest() { manager->setOperation(operation); }
    ~PointCategoryManagerTest() override { manager->stop(); }

    void push(int kind)
    {
        const osg::ref_ptr<CategoryCmdInner> command = new CategoryCmdInner;
        command->kind = kind;
        manager->pushCmd(command);
    }

    osg::ref_ptr<RecordingOperation> operation = new RecordingOperation;
    osg::ref_ptr<PointCategoryManager> manager = new PointCategoryManager;
};

TEST_F(PointCategoryManagerTest, EveryCommandReachesTheOperationOnceAndInOrder)
{
    push(10);
    manager->pushKind1();
    manager->start();
    manager->pushKind2();
    manager->pushKind3();
    manager->pushCmd(nullptr);
    std::vector<int> expected{10, 1, 2, 3};
    for (int kind = 11; kind < 500; ++kind) {
        push(kind);
        expected.push_back(kind);
    }
    EXPECT_EQ(operation->kinds(expected.size()), expected);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(operation->kinds(expected.size()), expected);
}

TEST_F(PointCategoryManagerTest, TheSnapshotHoldsTheMembersAndPlanesAsTheyAre)
{
    const osg::ref_ptr<osg::Referenced> stays = new osg::Referenced;
    const osg::ref_ptr<osg::Referenced> goes = new osg::Referenced;
    std::vector<osg::Vec4d> planes{osg::Vec4d(1, 2, 3, 4)};
    manager->addMember(stays);
    manager->addMember(goes);
    manager->addMember(stays);
    manager->removeMember(goes);
    manager->setClipPlanes(planes);
    manager->start();
    push(5);
    ASSERT_EQ(operation->kinds(1).size(), 1u);
    manager->stop();
    EXPECT_EQ(operation->last()->members, std::set<osg::ref_ptr<osg::Referenced>>{stays});
    EXPECT_EQ(operation->last()->clipPlanes, planes);
    EXPECT_EQ(goes->referenceCount(), 1);
}

TEST_F(PointCategoryManagerTest, ItStopsStartsAgainAndMayDieRunning)
{
    manager->start();
    manager->start();
    manager->stop();
    manager->stop();
    push(1);
    manager->start();
    EXPECT_EQ(operation->kinds(1).size(), 1u);
    manager->setOperationHolder(operation);
    EXPECT_EQ(manager->getOperationHolder(), operation);
    osg::ref_ptr<PointCategoryManager> running = new PointCategoryManager;
    running->start();
    running = nullptr;
}

} // namespace
