#include <VelOsgDBBrx/TaskManager.h>

#include "tests/support/Eventually.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace {

using VelOsgDBBrx::Task;
using VelOsgDBBrx::TaskManager;

class FunctionTask : public Task
{
public:
    explicit FunctionTask(std::function<void()> function) : _function(std::move(function)) {}
    void run() override { _function(); }

private:
    std::function<void()> _function;
};

class TaskManagerTest : public testing::Test
{
protected:
    TaskManagerTest() { manager.start(); }
    ~TaskManagerTest() override { manager.start(); }

    void push(std::function<void()> function) { manager.push(new FunctionTask(std::move(function))); }

    bool waitFor(const std::atomic<int>& value, int wanted)
    {
        return eventually([&] { return value == wanted; });
    }

    TaskManager& manager = *TaskManager::getInstance();
    std::atomic<int> done{0};
};

TEST_F(TaskManagerTest, TasksRunOneAtATimeInTheOrderOfTheirPushesAlsoThoseThatTasksPush)
{
    std::vector<int> order;
    for (int i = 0; i < 100; ++i)
        push([this, i, &order] {
            order.push_back(i);
            if (i == 50) push([this] { ++done; });
            ++done;
        });
    ASSERT_TRUE(waitFor(done, 101));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<size_t>(i)], i);
}

TEST_F(TaskManagerTest, StoppingReleasesWhatIsQueuedWithoutRunningItAndStartingResumes)
{
    std::atomic<int> entered{0};
    std::atomic<bool> leave{false};
    push([&] {
        ++entered;
        while (!leave)
            std::this_thread::yield();
    });
    ASSERT_TRUE(waitFor(entered, 1));
    const osg::ref_ptr<Task> queued = new FunctionTask([this] { done = -100; });
    manager.push(queued);
    manager.push(nullptr);
    std::thread stopper([this] { manager.stop(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // until the stop has been asked for
    leave = true;
    stopper.join();
    manager.stop();
    EXPECT_EQ(queued->referenceCount(), 1);
    EXPECT_TRUE(manager.getAllTask().empty());
    manager.start();
    manager.start();
    push([this] { ++done; });
    EXPECT_TRUE(waitFor(done, 1)) << "a released task ran";
}

TEST_F(TaskManagerTest, ACopyHasTheQueuedTasksAndLeavesTheWorkerAlone)
{
    manager.stop();
    push([this] { ++done; });
    {
        TaskManager copy = manager;
        EXPECT_EQ(copy.getAllTask().size(), 1u);
        manager.start();
        EXPECT_TRUE(waitFor(done, 1));
        copy.start();
        copy.stop();
        EXPECT_EQ(copy.getAllTask().size(), 1u);
    }
    push([this] { ++done; });
    EXPECT_TRUE(waitFor(done, 2)) << "the worker ended with the copy";
}

TEST_F(TaskManagerTest, ClearedTasksNeverRun)
{
    manager.stop();
    push([this] { done = -100; });
    manager.clear();
    push([this] { ++done; });
    manager.start();
    EXPECT_TRUE(waitFor(done, 1));
}

} // namespace
