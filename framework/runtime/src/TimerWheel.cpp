#include "Brim/TimerWheel.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace Brim {

namespace {
constexpr std::uint32_t kMaxBuckets = 4096;
}

TimerWheel::TimerWheel(const Pondo::Ptr<Kiv::Clock>& clock, std::uint32_t tickMsecs, std::uint32_t initialMaxTicks,
                       bool preserveOrder, std::uint32_t defaultBucketSize)
    : tick_(tickMsecs / 1000.0),
      preserveOrder_(preserveOrder),
      buckets_(std::bit_ceil(std::clamp<std::uint32_t>(initialMaxTicks, 1, kMaxBuckets))),
      wakeUp_(clock, [this] { expire(); }) {
   Kiv::kassert(tickMsecs > 0, "timer wheel tick must be at least 1 ms");
   firing_.reserve(defaultBucketSize);
}

void TimerWheel::place(Timer* t, std::int64_t tick) {
   auto& bucket = buckets_[std::size_t(tick) & (buckets_.size() - 1)];
   t->bucket_ = std::size_t(tick) & (buckets_.size() - 1);
   t->slot_ = bucket.size();
   bucket.push_back({t, tick});
}

void TimerWheel::add(Timer* t, std::int64_t tick) {
   place(t, tick);
   t->scheduled_ = true;
   ++pending_;
   Kiv::Seconds at = double(tick) * tick_;
   if (at < wakeUp_.timeMin()) wakeUp_.timeMinIs(at);
}

// Leaves a hole, compacted when the bucket fires, unless the timer is the
// bucket's last: a timer moved again and again then reuses its slot.
void TimerWheel::remove(Timer* t) {
   auto& bucket = t->bucket_ == kFiring ? firing_ : buckets_[t->bucket_];
   if (t->bucket_ != kFiring && t->slot_ + 1 == bucket.size()) {
      bucket.pop_back();
   } else {
      bucket[t->slot_].timer = nullptr;
   }
   t->scheduled_ = false;
   --pending_;
}

// Fires every timer due up to the present tick, tick by tick, in the order
// they were set within a tick. Callbacks may set, move or destroy any timer.
void TimerWheel::expire() {
   Pondo::Ptr<TimerWheel> hold(this);  // a callback may drop the last use of the wheel
   const Kiv::Seconds now = Kiv::currentTime();
   auto due = std::int64_t(std::floor(now / tick_ + 1e-9));
   // Far from zero the margin above is below the resolution of a double: a
   // tick whose wake-up, computed as rearm() computes it, has come is due,
   // or the wheel would wake at that time for ever.
   while (double(due + 1) * tick_ <= now) ++due;
   const auto mask = std::int64_t(buckets_.size()) - 1;
   for (std::int64_t t = std::max(done_ + 1, due - mask); t <= due && pending_; ++t) {
      done_ = t;
      auto& bucket = buckets_[std::size_t(t & mask)];
      if (bucket.empty()) continue;
      firing_.swap(bucket);
      for (std::size_t i = 0; i < firing_.size(); ++i) {
         if (Timer* timer = firing_[i].timer) {
            timer->bucket_ = kFiring;
            timer->slot_ = i;
         }
      }
      for (Slot& s : firing_) {
         Timer* timer = std::exchange(s.timer, nullptr);
         if (!timer) continue;
         if (s.tick > due) {  // due on a later turn of the wheel
            place(timer, s.tick);
            continue;
         }
         --pending_;
         timer->scheduled_ = false;
         timer->timeMin_ = Kiv::kNever;
         timer->onTime_();
      }
      firing_.clear();
   }
   done_ = due;
   rearm();
}

// Sets the wheel's wake-up to its earliest pending tick: the first bucket of
// the coming turn that holds a timer of that turn, else the earliest of all.
void TimerWheel::rearm() {
   if (!pending_) {
      wakeUp_.timeMinIs(Kiv::kNever);
      return;
   }
   const auto mask = std::int64_t(buckets_.size()) - 1;
   std::int64_t next = INT64_MAX;
   for (std::int64_t t = done_ + 1; t <= done_ + mask + 1 && next == INT64_MAX; ++t) {
      for (const Slot& s : buckets_[std::size_t(t & mask)]) {
         if (s.timer && s.tick == t) next = t;
      }
   }
   if (next == INT64_MAX) {
      for (const auto& bucket : buckets_) {
         for (const Slot& s : bucket) {
            if (s.timer) next = std::min(next, s.tick);
         }
      }
   }
   wakeUp_.timeMinIs(double(next) * tick_);
}

TimerWheel::Timer::Timer(const Pondo::Ptr<TimerWheel>& wheel, std::function<void()> onTime)
    : wheel_(wheel), onTime_(std::move(onTime)) {}

TimerWheel::Timer::~Timer() { timeMinIs(Kiv::kNever); }

void TimerWheel::Timer::timeMinIs(Kiv::Seconds t) {
   if (scheduled_) wheel_->remove(this);
   timeMin_ = t;
   if (t == Kiv::kNever) return;
   auto tick = std::int64_t(std::ceil(t / wheel_->tick_ - 1e-9));
   wheel_->add(this, std::max(tick, wheel_->done_ + 1));
}

}  // namespace Brim
