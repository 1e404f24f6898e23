#include "store/builder/BuildMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

using namespace VelBrx;

TEST(PointGate, LetsInNoMorePointsThanItHasRoomForAndManyAlone)
{
    PointGate gate(10);
    std::atomic<int> inside{0};
    std::atomic<bool> tooMany{false};
    std::vector<std::thread> threads;
    for (int points : {4, 25, 6, 10, 3, 25, 1})
        threads.emplace_back([&, points] {
            for (int round = 0; round < 200; ++round) {
                const PointGate::Room room(gate, static_cast<uint64_t>(points));
                const int counted = std::min(points, 10);
                if (inside.fetch_add(counted) + counted > 10) tooMany = true;
                std::this_thread::yield();
                inside -= counted;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(tooMany);
}
