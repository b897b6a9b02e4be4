// The activity loop: virtual and real time, clock wake-ups, posted work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Kiv/Activity.h"

namespace {

using Kiv::ClockTimer;
using Strings = std::vector<std::string>;

class Activity : public ::testing::Test {
  protected:
   void SetUp() override { loop.virtualTimeIs(100, 1'700'000'000); }
   void TearDown() override { loop.virtualTimeIs(0, 0); }

   // A wake-up that logs its name and the loop time when it fires.
   std::unique_ptr<ClockTimer> timer(const char* name) {
      return std::make_unique<ClockTimer>(
          loop.clock(), [this, name] { log.push_back(fmt::format("{} at {}", name, Kiv::currentTime())); });
   }

   Kiv::ActivityManager& loop = Kiv::activityManager();
   Strings log;
};

TEST_F(Activity, VirtualTimeStandsStillBetweenRuns) {
   EXPECT_TRUE(loop.virtualTime());
   EXPECT_EQ(Kiv::currentTime(), 100);
   EXPECT_EQ(Kiv::currentTimeUtc(), 1'700'000'000);
   loop.runFor(2.5);
   EXPECT_EQ(Kiv::currentTime(), 102.5);
   EXPECT_EQ(Kiv::currentTimeUtc(), 1'700'000'002.5);
}

TEST_F(Activity, TimersFireInDeadlineOrderAtTheirDeadlines) {
   auto c = timer("c"), a = timer("a"), b = timer("b"), b2 = timer("b2");
   c->timeMinIs(103);
   a->timeMinIs(101);
   b->timeMinIs(102);
   b2->timeMinIs(102);  // same deadline: in the order they were set
   EXPECT_EQ(loop.pendingTimers(), 4u);
   loop.runUntil(102.5);
   EXPECT_EQ(log, (Strings{"a at 101", "b at 102", "b2 at 102"}));
   EXPECT_EQ(Kiv::currentTime(), 102.5);
   EXPECT_EQ(c->timeMin(), 103);
   EXPECT_EQ(a->timeMin(), Kiv::kNever);  // one-shot
   loop.runFor(10);
   EXPECT_EQ(log.back(), "c at 103");
   EXPECT_EQ(loop.pendingTimers(), 0u);
}

TEST_F(Activity, SettingTheDeadlineAgainMovesIt) {
   auto t = timer("t");
   t->timeMinIs(105);
   t->timeMinIs(101);
   t->timeMinIs(102);
   EXPECT_EQ(loop.pendingTimers(), 1u);
   loop.runFor(10);
   EXPECT_EQ(log, (Strings{"t at 102"}));
}

TEST_F(Activity, NeverOrDestructionCancels) {
   auto t = timer("t"), u = timer("u");
   t->timeMinIs(101);
   u->timeMinIs(101);
   t->timeMinIs(Kiv::kNever);
   u.reset();
   EXPECT_EQ(loop.pendingTimers(), 0u);
   loop.runFor(10);
   EXPECT_TRUE(log.empty());
}

TEST_F(Activity, APastDeadlineFiresAtOnceWithoutMovingTime) {
   auto t = timer("t");
   t->timeMinIs(50);
   loop.runReady();
   EXPECT_EQ(log, (Strings{"t at 100"}));
}

TEST_F(Activity, PostedWorkRunsBeforeTimersInPostingOrder) {
   auto t = timer("timer");
   t->timeMinIs(100);
   loop.post([&] { log.push_back("first"); });
   loop.post([&] {
      log.push_back("second");
      loop.post([&] { log.push_back("posted by second"); });
   });
   loop.runReady();
   EXPECT_EQ(log, (Strings{"first", "second", "posted by second", "timer at 100"}));
}

TEST_F(Activity, CallbacksMaySetMoveAndCancelWakeUps) {
   auto periodic = timer("unused"), victim = timer("victim"), moved = timer("moved");
   int ticks = 0;
   periodic = std::make_unique<ClockTimer>(loop.clock(), [&] {
      log.push_back(fmt::format("tick at {}", Kiv::currentTime()));
      if (++ticks == 1) {
         victim->timeMinIs(Kiv::kNever);
         moved->timeMinIs(101.5);
      }
      if (ticks < 3) periodic->timeMinIs(Kiv::currentTime() + 1);
   });
   periodic->timeMinIs(101);
   victim->timeMinIs(102);
   moved->timeMinIs(110);
   loop.runFor(20);
   EXPECT_EQ(log, (Strings{"tick at 101", "moved at 101.5", "tick at 102", "tick at 103"}));
}

// Many wake-ups set, moved and cancelled in random order fire by deadline and,
// at equal deadlines, in the order they were last set. Fixed seed, printed.
TEST_F(Activity, ManyWakeUpsFireByDeadlineThenBySettingOrder) {
   const unsigned seed = 1124;
   std::printf("seed %u\n", seed);
   std::mt19937 random(seed);
   constexpr int kTimers = 300;
   std::vector<int> fired;
   std::vector<std::unique_ptr<ClockTimer>> timers;
   for (int i = 0; i < kTimers; ++i) {
      timers.push_back(std::make_unique<ClockTimer>(loop.clock(), [&fired, i] { fired.push_back(i); }));
   }
   std::vector<std::pair<double, long>> expected(kTimers, {Kiv::kNever, 0});  // deadline, setting order
   long order = 0;
   for (int step = 0; step < 3000; ++step) {
      const int i = int(random() % kTimers);
      const double at = random() % 3 == 0 ? Kiv::kNever : 100 + double(random() % 50);  // many ties
      timers[std::size_t(i)]->timeMinIs(at);
      expected[std::size_t(i)] = {at, order++};
   }
   std::vector<int> want;
   for (int i = 0; i < kTimers; ++i) {
      if (expected[std::size_t(i)].first != Kiv::kNever) want.push_back(i);
   }
   std::sort(want.begin(), want.end(),
             [&](int a, int b) { return expected[std::size_t(a)] < expected[std::size_t(b)]; });
   loop.runFor(100);
   EXPECT_EQ(fired, want);
}

// A loop of one's own: its timers wait on it, whatever the global loop does.
TEST_F(Activity, AWakeUpWaitsOnTheLoopOfItsClock) {
   Kiv::ActivityManager own;
   own.virtualTimeIs(0, 0);
   const std::size_t global = loop.pendingTimers();
   bool fired = false;
   ClockTimer t(own.clock(), [&] { fired = true; });
   t.timeMinIs(1);
   EXPECT_EQ(own.pendingTimers(), 1u);
   EXPECT_EQ(loop.pendingTimers(), global);
   loop.runFor(5);
   EXPECT_FALSE(fired);
   own.runUntil(2);
   EXPECT_TRUE(fired);
   EXPECT_EQ(own.clock()->now(), 2);
   EXPECT_EQ(Kiv::currentTime(), 105);
}

TEST_F(Activity, ANaNDeadlineIsRejectedNamingTheTimer) {
   auto early = timer("early"), broken = timer("broken"), late = timer("late");
   early->timeMinIs(101);
   try {
      broken->timeMinIs(std::nan(""));
      FAIL() << "a NaN deadline was accepted";
   } catch (const Kiv::Error& e) {
      // The timer is named by the code that made its callback.
      EXPECT_STREQ(
          e.what(),
          "deadline NaN for the clock timer of (anonymous namespace)::Activity::timer(char const*)::{lambda()#1}");
   }
   EXPECT_EQ(broken->timeMin(), Kiv::kNever);
   late->timeMinIs(102);
   loop.runFor(5);
   EXPECT_EQ(log, (Strings{"early at 101", "late at 102"}));
   EXPECT_EQ(loop.pendingTimers(), 0u);
}

TEST_F(Activity, AnInfiniteDeadlineMeansNever) {
   auto t = timer("t");
   t->timeMinIs(std::numeric_limits<double>::infinity());
   EXPECT_EQ(loop.pendingTimers(), 0u);
   loop.runFor(1e9);
   EXPECT_TRUE(log.empty());
}

TEST_F(Activity, StopEndsTheRunAfterThePresentEvent) {
   auto a = timer("a"), b = timer("b");
   auto stopper = std::make_unique<ClockTimer>(loop.clock(), [&] { loop.stop(); });
   a->timeMinIs(101);
   stopper->timeMinIs(101);
   b->timeMinIs(102);
   loop.runFor(10);
   EXPECT_EQ(log, (Strings{"a at 101"}));
   EXPECT_EQ(Kiv::currentTime(), 101);
   loop.runFor(10);
   EXPECT_EQ(log.back(), "b at 102");
}

TEST_F(Activity, ARealTimeRunWaitsForItsWakeUpsAndItsEnd) {
   loop.realTimeIs();
   EXPECT_FALSE(loop.virtualTime());
   const double utc = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
   EXPECT_NEAR(Kiv::currentTimeUtc(), utc, 1.0);
   const double start = Kiv::currentTime();
   double firedAt = 0;
   ClockTimer t(loop.clock(), [&] { firedAt = Kiv::currentTime(); });
   t.timeMinIs(start + 0.02);
   loop.runFor(0.05);
   const double end = Kiv::currentTime();
   EXPECT_GE(firedAt, start + 0.02);
   EXPECT_LT(firedAt, end);
   EXPECT_GE(end, start + 0.05);  // nothing was left to run, yet the run lasted its span
}

}  // namespace
