// The timer wheel on the activity loop's clock, in virtual time.
#include <gtest/gtest.h>

#include <malloc.h>

#include <memory>
#include <string>
#include <vector>

#include "Brim/TimerWheel.h"

namespace {

using Timer = Brim::TimerWheel::Timer;
using Strings = std::vector<std::string>;

class TimerWheel : public ::testing::Test {
  protected:
   void SetUp() override { loop.virtualTimeIs(0, 0); }

   // A timer that logs its name and the loop time (in ms) when it fires.
   std::unique_ptr<Timer> timer(const char* name) {
      return std::make_unique<Timer>(wheel, [this, name] { log.push_back(fmt::format("{} at {}", name, nowMs())); });
   }
   static long nowMs() { return std::lround(Kiv::currentTime() * 1000); }

   Kiv::ActivityManager& loop = Kiv::activityManager();
   // 10 ms ticks, 8 buckets: deadlines beyond 80 ms take more than one turn.
   Pondo::Ptr<Brim::TimerWheel> wheel = Brim::TimerWheelIs(loop.clock(), 10, 8, true, 4);
   Strings log;
};

// The wheel and its maker go by two names each.
TEST_F(TimerWheel, KnownAlsoAsKivTimerWheelMadeByTimerWheelIs) {
   static_assert(std::is_same_v<Kiv::TimerWheel, Brim::TimerWheel>);
   Pondo::Ptr<Kiv::TimerWheel> other = Brim::timerWheelIs(loop.clock(), 10, 8, true, 4);
   ASSERT_NE(other, nullptr);
   EXPECT_NE(other, wheel);
}

TEST_F(TimerWheel, DeadlinesAreRoundedUpToTheNextTick) {
   auto a = timer("a"), b = timer("b"), c = timer("c");
   a->timeMinIs(0.015);
   b->timeMinIs(0.030);  // on a tick: that tick
   c->timeMinIs(0.0301);
   EXPECT_EQ(wheel->pending(), 3u);
   EXPECT_DOUBLE_EQ(wheel->tick(), 0.010);
   loop.runFor(1);
   EXPECT_EQ(log, (Strings{"a at 20", "b at 30", "c at 40"}));
   EXPECT_EQ(wheel->pending(), 0u);
   EXPECT_EQ(a->timeMin(), Kiv::kNever);
}

TEST_F(TimerWheel, TimersOfOneTickFireInTheOrderTheyWereSet) {
   auto late = timer("late"), first = timer("first"), second = timer("second"), third = timer("third");
   late->timeMinIs(0.041);
   first->timeMinIs(0.025);
   second->timeMinIs(0.021);
   third->timeMinIs(0.029);
   loop.runFor(1);
   EXPECT_EQ(log, (Strings{"first at 30", "second at 30", "third at 30", "late at 50"}));
}

TEST_F(TimerWheel, SettingAgainMovesAndNeverOrDestructionCancels) {
   auto moved = timer("moved"), cancelled = timer("cancelled"), destroyed = timer("destroyed");
   moved->timeMinIs(0.05);
   moved->timeMinIs(0.02);
   cancelled->timeMinIs(0.03);
   cancelled->timeMinIs(Kiv::kNever);
   destroyed->timeMinIs(0.03);
   destroyed.reset();
   EXPECT_EQ(wheel->pending(), 1u);
   loop.runFor(1);
   EXPECT_EQ(log, (Strings{"moved at 20"}));
}

TEST_F(TimerWheel, CallbacksMaySetMoveAndDestroyTimers) {
   auto later = timer("later"), doomed = timer("doomed"), fresh = timer("fresh");
   std::unique_ptr<Timer> boss;
   boss = std::make_unique<Timer>(wheel, [&] {
      log.push_back(fmt::format("boss at {}", nowMs()));
      later->timeMinIs(0.07);  // was due in this very tick
      doomed.reset();          // also due in this tick
      fresh->timeMinIs(0.02);  // in the past: the next tick
   });
   boss->timeMinIs(0.01);
   later->timeMinIs(0.01);
   doomed->timeMinIs(0.01);
   loop.runFor(1);
   EXPECT_EQ(log, (Strings{"boss at 10", "fresh at 20", "later at 70"}));
}

TEST_F(TimerWheel, APeriodicTimerRearmsFromItsCallback) {
   std::unique_ptr<Timer> periodic;
   periodic = std::make_unique<Timer>(wheel, [&] {
      log.push_back(std::to_string(nowMs()));
      if (log.size() < 4) periodic->timeMinIs(Kiv::currentTime() + 0.025);
   });
   periodic->timeMinIs(0.01);
   loop.runFor(1);
   EXPECT_EQ(log, (Strings{"10", "40", "70", "100"}));
}

TEST_F(TimerWheel, FarDeadlinesTakeSeveralTurns) {
   auto far = timer("far"), farther = timer("farther"), near = timer("near");
   far->timeMinIs(0.25);      // 25 ticks: bucket 1 of a wheel of 8, three turns ahead
   farther->timeMinIs(1.01);  // same bucket, many turns ahead
   near->timeMinIs(0.01);     // bucket 1 as well, this turn
   loop.runUntil(0.2);
   EXPECT_EQ(log, (Strings{"near at 10"}));
   loop.runUntil(0.5);
   EXPECT_EQ(log, (Strings{"near at 10", "far at 250"}));
   loop.runFor(5);
   EXPECT_EQ(log, (Strings{"near at 10", "far at 250", "farther at 1010"}));
}

TEST_F(TimerWheel, AJumpOfManyTurnsFiresEverythingDueInOrder) {
   auto a = timer("a"), b = timer("b"), c = timer("c");
   c->timeMinIs(0.33);
   a->timeMinIs(0.11);
   b->timeMinIs(0.22);
   loop.virtualTimeIs(0.5, 0);  // time moved past all three before the wheel woke
   loop.runReady();
   EXPECT_EQ(log, (Strings{"a at 500", "b at 500", "c at 500"}));
}

// 262144.04 / 0.01 is 26214403.999999998 in doubles: rounding the time down
// to a tick missed the tick the wheel woke for, and it woke for it again and
// again without time moving (a 1 ms wheel met this after 9.1 hours).
TEST_F(TimerWheel, ATickFarFromZeroFiresWhenItsTimeComes) {
   loop.virtualTimeIs(262144, 0);
   auto a = timer("a"), b = timer("b");
   a->timeMinIs(262144.04);
   b->timeMinIs(262144.1);
   loop.runUntil(262145);
   EXPECT_EQ(log, (Strings{"a at 262144040", "b at 262144100"}));
   EXPECT_EQ(wheel->pending(), 0u);
}

TEST_F(TimerWheel, ACallbackMayDropTheLastUseOfTheWheel) {
   struct Owner {
      Pondo::Ptr<Brim::TimerWheel> wheel;
      std::unique_ptr<Timer> timer;
   };
   auto* owner = new Owner{wheel, nullptr};
   bool fired = false;
   owner->timer = std::make_unique<Timer>(owner->wheel, [&, owner] {
      fired = true;
      delete owner;
   });
   owner->timer->timeMinIs(0.01);
   wheel = nullptr;  // the owner and its timer now hold the only uses
   loop.runFor(1);
   EXPECT_TRUE(fired);
   EXPECT_EQ(loop.pendingTimers(), 0u);
}

// A poller on the egress collectors' wheel (1 ms ticks, 4096 buckets, room
// for 1024 timers per tick) visits every bucket within seconds; the wheel's
// memory must not grow with the buckets visited.
TEST(TimerWheelMemory, VisitingEveryBucketKeepsMemorySmall) {
#if defined(__SANITIZE_ADDRESS__)
   GTEST_SKIP() << "heap figures are the sanitizer's under AddressSanitizer";
#else
   Kiv::ActivityManager& loop = Kiv::activityManager();
   loop.virtualTimeIs(0, 0);
   const std::size_t before = mallinfo2().uordblks;
   auto wheel = Brim::TimerWheelIs(loop.clock(), 1, 655350, true, 1024);
   int fired = 0;
   std::unique_ptr<Timer> poller;
   poller = std::make_unique<Timer>(wheel, [&] {
      ++fired;
      poller->timeMinIs(Kiv::currentTime() + 0.004);
   });
   poller->timeMinIs(0.004);
   loop.runFor(20);  // 5,000 expiries across all 4,096 buckets
   EXPECT_EQ(fired, 5000);
   EXPECT_LT(mallinfo2().uordblks - before, std::size_t(1) << 20);
#endif
}

}  // namespace
