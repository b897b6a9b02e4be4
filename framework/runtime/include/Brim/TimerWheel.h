// A wheel of many timers of like period on the activity loop's clock.
//
// Deadlines are rounded up to the next tick; timers due at the same tick fire
// in the order they were set. The wheel holds a single clock wake-up, at its
// earliest pending tick.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "Kiv/Activity.h"

namespace Brim {

class TimerWheel : public Kiv::Entity {
  public:
   class Timer;

   // The wheel spans `initialMaxTicks` ticks before timers wrap around it (at
   // most 4096 buckets are kept; farther deadlines take extra turns). Room for
   // `defaultBucketSize` timers due at one tick is reserved once; buckets grow
   // only as far as their timers need, since their storage circulates through
   // the expiry.
   TimerWheel(const Pondo::Ptr<Kiv::Clock>& clock, std::uint32_t tickMsecs, std::uint32_t initialMaxTicks,
              bool preserveOrder, std::uint32_t defaultBucketSize);

   Kiv::Seconds tick() const { return tick_; }
   bool preserveOrder() const { return preserveOrder_; }
   std::size_t pending() const { return pending_; }

  private:
   struct Slot {
      Timer* timer;
      std::int64_t tick;
   };
   static constexpr std::size_t kFiring = SIZE_MAX;  // Timer::bucket_ while in firing_

   void add(Timer* t, std::int64_t tick);
   void place(Timer* t, std::int64_t tick);
   void remove(Timer* t);
   void expire();
   void rearm();

   Kiv::Seconds tick_;
   bool preserveOrder_;
   std::vector<std::vector<Slot>> buckets_;
   std::vector<Slot> firing_;  // the bucket being expired
   std::int64_t done_ = -1;    // last tick processed
   std::size_t pending_ = 0;
   Kiv::ClockTimer wakeUp_;
};

// A timer on a wheel: `onTime` runs once at or after timeMin (rounded up to
// the wheel's tick). Setting timeMin again moves the deadline.
class TimerWheel::Timer {
  public:
   Timer(const Pondo::Ptr<TimerWheel>& wheel, std::function<void()> onTime);
   ~Timer();
   Timer(const Timer&) = delete;
   Timer& operator=(const Timer&) = delete;

   Kiv::Seconds timeMin() const { return timeMin_; }
   void timeMinIs(Kiv::Seconds t);

  private:
   friend class TimerWheel;
   Pondo::Ptr<TimerWheel> wheel_;
   std::function<void()> onTime_;
   Kiv::Seconds timeMin_ = Kiv::kNever;
   std::size_t bucket_ = 0;
   std::size_t slot_ = 0;
   bool scheduled_ = false;
};

inline Pondo::Ptr<TimerWheel> TimerWheelIs(const Pondo::Ptr<Kiv::Clock>& clock, std::uint32_t tickMsecs,
                                           std::uint32_t initialMaxTicks, bool preserveOrder,
                                           std::uint32_t defaultBucketSize) {
   return Kiv::make<TimerWheel>(clock, tickMsecs, initialMaxTicks, preserveOrder, defaultBucketSize);
}
// The maker under the name the machines that share a wheel use for it.
inline constexpr auto& timerWheelIs = TimerWheelIs;

}  // namespace Brim

namespace Kiv {
// The wheel is one of the reactor framework's timers.
using TimerWheel = Brim::TimerWheel;
}  // namespace Kiv
