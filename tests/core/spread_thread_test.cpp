#include "core/spread_thread.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <atomic>
#include <vector>

namespace usagekit {
namespace {

cpu_set_t coresOf(pthread_t thread) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    EXPECT_EQ(pthread_getaffinity_np(thread, sizeof cores, &cores), 0);
    return cores;
}

// The cores a new thread may use once running, seen from inside it.
cpu_set_t coresOfNewThread() {
    cpu_set_t seen;
    CPU_ZERO(&seen);
    SpreadThread thread([&] { seen = coresOf(pthread_self()); });
    thread.join();
    return seen;
}

TEST(SpreadThreadTest, RunsWithTheCreatorsCoresOnceStarted) {
    const cpu_set_t mine = coresOf(pthread_self());
    const cpu_set_t seen = coresOfNewThread();
    EXPECT_TRUE(CPU_EQUAL(&seen, &mine));

    // A creator held to one core hands that one on.
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    ASSERT_EQ(pthread_setaffinity_np(pthread_self(), sizeof one, &one), 0);
    const cpu_set_t seenFromOne = coresOfNewThread();
    EXPECT_TRUE(CPU_EQUAL(&seenFromOne, &one));
    ASSERT_EQ(pthread_setaffinity_np(pthread_self(), sizeof mine, &mine), 0);
}

TEST(SpreadThreadTest, EveryThreadRunsAndIsJoinedWhenItsHandleGoes) {
    std::atomic<int> ran{0};
    {
        std::vector<SpreadThread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] { ran.fetch_add(1); });
        SpreadThread moved = std::move(threads.back());
        EXPECT_FALSE(threads.back().joinable());
        EXPECT_TRUE(moved.joinable());
    }
    EXPECT_EQ(ran.load(), 8);
}

}  // namespace
}  // namespace usagekit
