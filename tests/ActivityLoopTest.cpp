// The activity loop's deferred work and clock wake-ups: order, cancelling,
// and steady operation without allocation.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "AllocationCounter.h"
#include "Kiv/Activity.h"

namespace {

class ActivityLoop : public ::testing::Test {
  protected:
   void SetUp() override { loop.virtualTimeIs(0, 1.7e9); }
   Kiv::ActivityManager& loop = Kiv::activityManager();
};

TEST_F(ActivityLoop, WorkRunsInPostingOrderIncludingWorkPostedByWork) {
   std::vector<int> ran;
   loop.post([&] {
      ran.push_back(1);
      loop.post([&] { ran.push_back(3); });
   });
   loop.post([&] { ran.push_back(2); });
   EXPECT_EQ(loop.pendingWork(), 2u);
   loop.runReady();
   EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
   EXPECT_EQ(loop.pendingWork(), 0u);
}

TEST_F(ActivityLoop, WorkRunsBeforeTimersDueAtTheSameTime) {
   std::vector<int> ran;
   Kiv::ClockTimer timer(loop.clock(), [&] { ran.push_back(2); });
   timer.timeMinIs(0);
   loop.post([&] { ran.push_back(1); });
   loop.runReady();
   EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST_F(ActivityLoop, TimersDueTogetherFireInTheOrderTheyWereSetAndCanBeMovedOrCancelled) {
   std::vector<int> ran;
   Kiv::ClockTimer a(loop.clock(), [&] { ran.push_back(1); });
   Kiv::ClockTimer b(loop.clock(), [&] { ran.push_back(2); });
   Kiv::ClockTimer c(loop.clock(), [&] { ran.push_back(3); });
   b.timeMinIs(0.5);
   a.timeMinIs(0.5);
   c.timeMinIs(0.2);
   c.timeMinIs(0.7);  // moved
   loop.runUntil(0.6);
   EXPECT_EQ(ran, (std::vector<int>{2, 1}));
   EXPECT_EQ(a.timeMin(), Kiv::kNever);
   c.timeMinIs(Kiv::kNever);
   loop.runUntil(1.0);
   EXPECT_EQ(ran.size(), 2u);
   EXPECT_EQ(loop.pendingTimers(), 0u);
}

TEST_F(ActivityLoop, RearmingATimerAndPostingSmallWorkAllocateNothingOnceWarm) {
   int fired = 0;
   Kiv::ClockTimer timer(loop.clock(), [&] {
      ++fired;
      loop.post([&fired] { ++fired; });
      timer.timeMinIs(Kiv::currentTime() + 0.001);
   });
   timer.timeMinIs(0.001);
   loop.runUntil(0.01);
   const std::uint64_t before = allocations.load();
   loop.runUntil(1.0);
   EXPECT_EQ(allocations.load(), before);
   EXPECT_GE(fired, 2 * 999);
}

}  // namespace
