#include "Pondo/Publisher.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <typeinfo>

#include <fmt/format.h>

#include "Pondo/Fatal.h"

namespace Pondo {

std::string typeName(const std::type_info& t) {
   int status = 0;
   std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(t.name(), nullptr, nullptr, &status), std::free);
   return status == 0 ? name.get() : t.name();
}

namespace {

Kept keep(Kept (*how)(const void*), const void* p) { return how && p ? how(p) : Kept{}; }

// A change that waits: its own copies of key and values, a use of its source.
class HeldChange {
  public:
   explicit HeldChange(const Change& c)
       : change_(c),
         source_(c.source),
         key_(keep(c.layout->key, c.key)),
         old_(keep(c.layout->value, c.oldValue)),
         new_(keep(c.layout->value, c.newValue)) {
      change_.key = key_.get();
      change_.oldValue = old_.get();
      change_.newValue = new_.get();
   }
   const Change& get() const { return change_; }

  private:
   Change change_;
   Ptr<const Publisher> source_;
   Kept key_, old_, new_;
};

// A change waiting for a publisher's present delivery to end (no target), or
// for a receiver's running handler to return.
struct Waiting {
   Ptr<const Publisher> publisher;
   Receiver* target;
   Publisher::Handler handler;
   HeldChange change;
};

// Waiting changes of this thread, oldest first.
std::deque<Waiting>& waiting() {
   thread_local std::deque<Waiting> w;
   return w;
}

// Removes and returns the oldest waiting change that `match` accepts.
template <class Match>
Waiting next(Match match) {
   auto& w = waiting();
   auto it = std::find_if(w.begin(), w.end(), match);
   Waiting found = std::move(*it);
   w.erase(it);
   return found;
}

}  // namespace

void handlerThrew(const Receiver& r) {
   std::string what = "unknown exception";
   try {
      throw;
   } catch (const std::exception& e) {
      what = typeName(typeid(e)) + ": " + e.what();
   } catch (...) {
   }
   fatal(fmt::format("exception escaped a handler of {}: {}", typeName(typeid(r)), what),
         std::source_location::current());
}

void Receiver::handlerThrew() const { Pondo::handlerThrew(*this); }

void Receiver::idle() {
   ++gate_;  // what reaches it meanwhile queues behind
   while (gate_ >= kPending) {
      gate_ -= kPending;
      Waiting w = next([this](const Waiting& x) { return x.target == this; });
      if (hasNotificationActive() && w.publisher->delivers(this, w.handler)) {
         try {
            w.handler(this, w.change.get());
         } catch (...) {
            handlerThrew();
         }
      }
   }
   --gate_;
   if (gate_ & kAfterRunning) {
      gate_ &= ~kAfterRunning;
      afterRunning();
   }
}

void Publisher::onChange(Receiver* r, const Change& c) { static_cast<Subscriber*>(r)->onChange(c); }

void Publisher::forward(const Change& c) const {
   Change up = c;
   ++up.depth;
   owner_->publish(up);
}

void Publisher::wait(const Change& c) const {
   state_ += kQueued;
   waiting().push_back({this, nullptr, nullptr, HeldChange(c)});
}

void Publisher::defer(const Entry& e, const Change& c) const {
   e.target->gate_ += Receiver::kPending;
   waiting().push_back({this, e.target, e.handler, HeldChange(c)});
}

bool Publisher::delivers(const Receiver* target, Handler handler) const {
   return std::any_of(subs_.begin(), subs_.end(),
                      [&](const Entry& e) { return e.target == target && e.handler == handler; });
}

void Publisher::handlerRemove(Receiver* target, Handler handler) const {
   auto it = std::find_if(subs_.begin(), subs_.end(),
                          [&](const Entry& e) { return e.target == target && e.handler == handler; });
   if (it == subs_.end()) return;
   if (state_ & kDelivering) {
      it->target = nullptr;
      state_ |= kHoles;
   } else {
      subs_.erase(it);
   }
}

std::size_t Publisher::subscribers() const {
   return static_cast<std::size_t>(
       std::count_if(subs_.begin(), subs_.end(), [](const Entry& e) { return e.target != nullptr; }));
}

void Publisher::settle() const {
   while (state_ >= kQueued) {
      state_ -= kQueued;
      Waiting w = next([this](const Waiting& x) { return x.publisher.get() == this && !x.target; });
      send(w.change.get());
   }
   const std::uint32_t left = std::exchange(state_, 0);
   if (left & kHoles) std::erase_if(subs_, [](const Entry& e) { return e.target == nullptr; });
   if ((left & kReleased) && references() == 0) {
      const_cast<Publisher*>(this)->destroy();  // unless counted again meanwhile
   }
}

}  // namespace Pondo
