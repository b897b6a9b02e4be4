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
   if (t->node_.empty()) {
      t->entry_ = timers_.emplace(when, sequence_++, t).first;
      return;
   }
   t->node_.value() = Entry(when, sequence_++, t);
   t->entry_ = timers_.insert(std::move(t->node_)).position;
}

void ActivityManager::cancel(ClockTimer* t) { t->node_ = timers_.extract(t->entry_); }

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
      if (timers_.empty() || std::get<0>(*timers_.begin()) > until) {
         if (!virtual_ && until != kNever) sleepUntil(until);  // nothing can happen before
         break;
      }
      auto [when, seq, timer] = *timers_.begin();
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
   if (scheduled_) {
      loop.cancel(this);
      scheduled_ = false;
   }
   timeMin_ = t;
   if (t != kNever) {
      loop.schedule(t, this);
      scheduled_ = true;
   }
}

}  // namespace Kiv
