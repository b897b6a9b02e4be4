// The activity loop: one thread, its clock, one-shot clock wake-ups and
// deferred work. It runs in real time or in deterministic virtual time, where
// time jumps from one event to the next.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

#include "Kiv/Entity.h"

namespace Kiv {

// Loop time in seconds.
using Seconds = double;
inline constexpr Seconds kNever = std::numeric_limits<Seconds>::infinity();

class ActivityManager;
class ClockTimer;

// The clock of one activity loop: its time, and the loop its timers wait on.
class Clock : public Entity {
  public:
   explicit Clock(ActivityManager& loop) : loop_(&loop) {}
   Seconds now() const;
   ActivityManager& loop() const { return *loop_; }

  private:
   ActivityManager* loop_;
};

class ActivityManager {
  public:
   ActivityManager();
   ActivityManager(const ActivityManager&) = delete;
   ActivityManager& operator=(const ActivityManager&) = delete;

   // Virtual time starts at `start` (loop time) and `utcAtStart` (UTC seconds);
   // it moves only when run*() reaches the next event.
   void virtualTimeIs(Seconds start, Seconds utcAtStart);
   void realTimeIs();
   bool virtualTime() const { return virtual_; }

   Seconds currentTime() const;
   Seconds currentTimeUtc() const;
   const Pondo::Ptr<Clock>& clock() const { return clock_; }

   // Runs `work` on the loop after the present handler, in posting order.
   void post(std::function<void()> work);
   // Runs every event due up to `until`; the loop's time is then `until` (in
   // real time, it waits for it when no event is left before).
   void runUntil(Seconds until);
   void runFor(Seconds span) { runUntil(currentTime() + span); }
   // Runs what is due now, without moving time.
   void runReady() { runUntil(currentTime()); }
   // Ends a runUntil() in progress after the present event.
   void stop() { stopped_ = true; }

   std::size_t pendingTimers() const { return timers_.size(); }
   std::size_t pendingWork() const { return work_.size() - workDone_; }
   std::uint64_t eventsRun() const { return eventsRun_; }

  private:
   friend class ClockTimer;
   // A pending wake-up; ties in time go in the order they were set.
   struct Entry {
      Seconds when;
      std::uint64_t sequence;
      ClockTimer* timer;
      bool before(const Entry& o) const { return when < o.when || (when == o.when && sequence < o.sequence); }
   };
   void schedule(Seconds when, ClockTimer* t);
   // Gives a pending timer a new deadline where it is, as if set anew.
   void move(ClockTimer* t, Seconds when);
   void cancel(ClockTimer* t);
   // Moves `e` from the hole at `i` towards the top, or towards the leaves, to its place.
   void siftUp(std::size_t i, const Entry& e);
   void siftDown(std::size_t i, const Entry& e);
   void put(std::size_t i, const Entry& e);

   Pondo::Ptr<Clock> clock_;
   bool virtual_ = false;
   Seconds virtualNow_ = 0;
   Seconds utcOffset_ = 0;
   // A binary heap, the next wake-up on top; each timer knows its slot. Its
   // storage is kept, so re-arming allocates nothing in steady operation.
   std::vector<Entry> timers_;
   // Work not yet run is work_[workDone_, end); the storage is kept once all
   // has run, so posting allocates nothing in steady operation.
   std::vector<std::function<void()>> work_;
   std::size_t workDone_ = 0;
   std::uint64_t sequence_ = 0;
   std::uint64_t eventsRun_ = 0;
   bool stopped_ = false;
};

ActivityManager& activityManager();
inline Seconds currentTime() { return activityManager().currentTime(); }
inline Seconds currentTimeUtc() { return activityManager().currentTimeUtc(); }

// A one-shot wake-up on a clock: `onTime` runs once at or after timeMin, when
// the loop of that clock runs.
// Setting timeMin again moves the deadline; kNever (infinity) cancels it, and
// NaN is refused with Kiv::Error naming the timer by its callback's type.
class ClockTimer {
  public:
   ClockTimer(const Pondo::Ptr<Clock>& clock, std::function<void()> onTime);
   ~ClockTimer();
   ClockTimer(const ClockTimer&) = delete;
   ClockTimer& operator=(const ClockTimer&) = delete;

   Seconds timeMin() const { return timeMin_; }
   void timeMinIs(Seconds t);

  private:
   friend class ActivityManager;
   Pondo::Ptr<Clock> clock_;
   std::function<void()> onTime_;
   Seconds timeMin_ = kNever;
   std::size_t slot_ = 0;  // in the loop's heap, while scheduled
   bool scheduled_ = false;
};

}  // namespace Kiv
