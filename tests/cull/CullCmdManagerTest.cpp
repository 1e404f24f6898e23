#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <VelOsgUtils/ThreadCount.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

using namespace VelOsgDBBrx;

namespace {

using namespace std::chrono_literals;

/// Runs a function on the worker; its undo runs another.
class FunctionCmd : public BaseCmd
{
public:
    FunctionCmd(int barrierCount, std::function<void()> work, bool save = false,
                std::function<void()> undo = {})
        : BaseCmd(barrierCount, save), _work(std::move(work)), _undo(std::move(undo))
    {
    }

    void operator()(CullCmdManager*) override
    {
        _work();
        block(0);
    }

    void reset(CullCmdManager*) override
    {
        if (_undo) _undo();
    }

private:
    std::function<void()> _work;
    std::function<void()> _undo;
};

void runAndWait(BaseCmd* cmd)
{
    const osg::ref_ptr<BaseCmd> held = cmd;
    CullCmdManager::getInstance()->push(held);
    held->block();
}

/// Waits until everything pushed so far has run.
void drain()
{
    runAndWait(new FunctionCmd(2, [] {}));
}

void undoAll()
{
    runAndWait(new AllUndoCmd(2));
}

} // namespace

TEST(CullCmdManager, RunsCommandsOfSeveralThreadsOneByOneInTheOrderOfTheirPushes)
{
    constexpr int kThreads = 4;
    constexpr int kCommands = 200;
    std::mutex pushing;
    int pushed = 0;
    std::atomic<int> atOnce{0};
    std::atomic<bool> overlapped{false};
    std::vector<int> ran;
    std::vector<std::thread> clients;
    for (int t = 0; t < kThreads; ++t)
        clients.emplace_back([&] {
            for (int i = 0; i < kCommands; ++i) {
                const std::lock_guard<std::mutex> guard(pushing);
                CullCmdManager::getInstance()->push(new FunctionCmd(1, [&, number = pushed++] {
                    if (++atOnce > 1) overlapped = true;
                    ran.push_back(number);
                    --atOnce;
                }));
            }
        });
    for (std::thread& client : clients)
        client.join();
    drain();

    EXPECT_FALSE(overlapped);
    ASSERT_EQ(ran.size(), size_t{kThreads * kCommands});
    for (size_t i = 0; i < ran.size(); ++i)
        ASSERT_EQ(ran[i], static_cast<int>(i));
}

TEST(CullCmdManager, RunsACommandForWhichNobodyWaits)
{
    for (const int nobody : {0, -1, 1})
        CullCmdManager::getInstance()->push(new FunctionCmd(nobody, [] {}));
    std::promise<std::thread::id> where;
    CullCmdManager::getInstance()->push(
        new FunctionCmd(1, [&] { where.set_value(std::this_thread::get_id()); }));
    EXPECT_NE(where.get_future().get(), std::this_thread::get_id());
    EXPECT_FALSE(CullCmdManager::isWorkerThread());
    CullCmdManager::getInstance()->push(nullptr);
    drain();
}

TEST(CullCmdManager, UndoesSavedCommandsNewestFirst)
{
    std::vector<int> undone;
    for (int i = 0; i < 4; ++i) {
        runAndWait(new FunctionCmd(
            2, [] {}, true, [&, i] { undone.push_back(i); }));
        runAndWait(new FunctionCmd(
            2, [] {}, false, [&] { undone.push_back(-1); }));
    }
    runAndWait(new UndoCmd(2));
    EXPECT_EQ(undone, std::vector<int>{3});
    undoAll();
    EXPECT_EQ(undone, (std::vector<int>{3, 2, 1, 0}));
}

TEST(CullCmdManager, UndoOfNothingReleasesItsCaller)
{
    undoAll();
    runAndWait(new UndoCmd(2));
    runAndWait(new AllUndoCmd(2));
    bool empty = false;
    runAndWait(new FunctionCmd(2, [&] { empty = !CullCmdManager::getInstance()->pop(); }));
    EXPECT_TRUE(empty) << "undo commands do not enter the undo stack themselves";
}

TEST(CullCmdManagerDeathTest, ExitAbandonsQueuedCommandsAndReleasesTheirCallers)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exitWithCommandsQueued = [] {
        static std::atomic<int> ran{0};
        static std::atomic<int> released{0};
        std::promise<void> running;
        CullCmdManager* manager = CullCmdManager::getInstance();
        manager->push(new FunctionCmd(1, [&] {
            running.set_value();
            std::this_thread::sleep_for(200ms);
            ++ran;
        }));
        running.get_future().wait();
        static std::vector<osg::ref_ptr<BaseCmd>> queued;
        for (int i = 0; i < 3; ++i) {
            queued.push_back(new FunctionCmd(2, [] { ran += 100; }));
            manager->push(queued.back());
            std::thread([cmd = queued.back()] {
                cmd->block();
                released += cmd->getResult().state == CmdResult::ABANDONED;
            }).detach();
        }
        manager->shutdown();
        manager->shutdown();
        osg::ref_ptr<BaseCmd> late = new FunctionCmd(2, [] { ran += 100; });
        manager->push(late);
        late->block();
        released += late->getResult().state == CmdResult::ABANDONED;
        while (released < 4)
            std::this_thread::sleep_for(1ms);
        queued[0]->block(); // waits no more, ever
        std::_Exit(ran == 1 ? 0 : 1);
    };
    EXPECT_EXIT(exitWithCommandsQueued(), testing::ExitedWithCode(0), "");
}

TEST(CullCmdManagerDeathTest, ProcessExitDoesNotHangOnACallerWhoNeverCame)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exitWithoutWaiting = [] {
        CullCmdManager::getInstance()->push(new FunctionCmd(2, [] {}));
        CullCmdManager::getInstance()->push(new FunctionCmd(2, [] {}));
        while (VelOsgUtils::ThreadCount::running() == 0)
            std::this_thread::sleep_for(1ms);
        std::this_thread::sleep_for(50ms); // until the first command is at its barrier
        std::exit(0);
    };
    EXPECT_EXIT(exitWithoutWaiting(), testing::ExitedWithCode(0), "");
}
