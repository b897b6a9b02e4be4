#include "Kiv/Activity.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace Kiv {

namespace {

Seconds steadySeconds() {
   return std::chrono::duration<Seconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
Seconds systemSeconds() {
   return std::chrono::duration<Seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}
void sleepUntil(Seconds t) {
   if (Seconds wait = t - steadySeconds(); wait > 0) std::this_thread::sleep_for(std::chrono::duration<Seconds>(wait));
}

}  // namespace

Seconds Clock::now() const { return loop_->currentTime(); }

ActivityManager& activityManager() {
   static ActivityManager m;
   return m;
}

ActivityManager::ActivityManager() : clock_(make<Clock>(*this)) {}

void ActivityManager::virtualTimeIs(Seconds start, Seconds utcAtStart) {
   virtual_ = true;
   virtualNow_ = start;
   utcOffset_ = utcAtStart - start;
}

void ActivityManager::realTimeIs() { virtual_ = false; }

Seconds ActivityManager::currentTime() const { return virtual_ ? virtualNow_ : steadySeconds(); }

Seconds ActivityManager::currentTimeUtc() const { return virtual_ ? virtualNow_ + utcOffset_ : systemSeconds(); }

void ActivityManager::post(std::function<void()> work) { work_.push_back(std::move(work)); }

void ActivityManager::schedule(Seconds when, ClockTimer* t) {
   timers_.emplace_back();
   siftUp(timers_.size() - 1, {when, sequence_++, t});
}

void ActivityManager::move(ClockTimer* t, Seconds when) {
   const Entry e{when, sequence_++, t};
   const std::size_t i = t->slot_;
   if (e.before(timers_[i])) {
      siftUp(i, e);
   } else {
      siftDown(i, e);
   }
}

// The last entry fills the hole the timer leaves.
void ActivityManager::cancel(ClockTimer* t) {
   const std::size_t i = t->slot_;
   const Entry last = timers_.back();
   timers_.pop_back();
   if (i == timers_.size()) return;
   if (i > 0 && last.before(timers_[(i - 1) / 2])) {
      siftUp(i, last);
   } else {
      siftDown(i, last);
   }
}

void ActivityManager::siftUp(std::size_t i, const Entry& e) {
   for (std::size_t parent; i > 0 && e.before(timers_[parent = (i - 1) / 2]); i = parent) put(i, timers_[parent]);
   put(i, e);
}

void ActivityManager::siftDown(std::size_t i, const Entry& e) {
   for (std::size_t child; (child = 2 * i + 1) < timers_.size(); i = child) {
      if (child + 1 < timers_.size() && timers_[child + 1].before(timers_[child])) ++child;
      if (!timers_[child].before(e)) break;
      put(i, timers_[child]);
   }
   put(i, e);
}

void ActivityManager::put(std::size_t i, const Entry& e) {
   timers_[i] = e;
   e.timer->slot_ = i;
}

void ActivityManager::runUntil(Seconds until) {
   stopped_ = false;
   while (!stopped_) {
      if (workDone_ < work_.size()) {
         auto work = std::move(work_[workDone_++]);
         if (workDone_ == work_.size()) {
            work_.clear();
            workDone_ = 0;
         }
         ++eventsRun_;
         work();
         continue;
      }
      if (timers_.empty() || timers_.front().when > until) {
         if (!virtual_ && until != kNever) sleepUntil(until);  // nothing can happen before
         break;
      }
      const auto [when, sequence, timer] = timers_.front();
      if (virtual_) {
         if (when > virtualNow_) virtualNow_ = when;
      } else if (when > steadySeconds()) {
         sleepUntil(when);
         continue;  // time has moved; look again
      }
      cancel(timer);
      timer->scheduled_ = false;
      timer->timeMin_ = kNever;
      ++eventsRun_;
      timer->onTime_();
   }
   if (virtual_ && !stopped_ && until > virtualNow_ && until != kNever) virtualNow_ = until;
}

ClockTimer::ClockTimer(const Pondo::Ptr<Clock>& clock, std::function<void()> onTime)
    : clock_(clock), onTime_(std::move(onTime)) {}

ClockTimer::~ClockTimer() {
   if (scheduled_) clock_->loop().cancel(this);
}

// A NaN deadline would break the ordering of the pending timers.
void ClockTimer::timeMinIs(Seconds t) {
   if (std::isnan(t)) {
      throw Error(fmt::format("deadline NaN for the clock timer of {}", Pondo::typeName(onTime_.target_type())));
   }
   ActivityManager& loop = clock_->loop();
   timeMin_ = t;
   if (t == kNever) {
      if (scheduled_) loop.cancel(this);
      scheduled_ = false;
   } else if (scheduled_) {
      loop.move(this, t);
   } else {
      loop.schedule(t, this);
      scheduled_ = true;
   }
}

}  // namespace Kiv
