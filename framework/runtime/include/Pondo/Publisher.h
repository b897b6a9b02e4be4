// Publishers, receivers and the change record delivered between them.
#pragma once

#include <cstdint>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "Pondo/Ptr.h"

namespace Pondo {

// Identity of an attribute within its entity type (declaration order).
using FieldId = std::uint16_t;

class Publisher;
class Kept;

// How the key and the values of one type of change are copied when the change
// must wait (null: the change has none). One per collection or attribute type.
struct ChangeLayout {
   Kept (*key)(const void*);
   Kept (*value)(const void*);
};

// One attribute change, delivered to every subscriber.
//  - scalar attribute: kind attribute, oldValue and newValue point at the values;
//  - collection member: kind added, changed or removed, key points at the key,
//    oldValue/newValue at the member before/after (null where there is none).
// Key and values are those published, whatever handlers have changed since.
// `source` is the entity whose attribute changed; a change inside a member of a
// collection is also delivered to the owner's subscribers, as the same record
// one `depth` further up.
struct Change {
   enum class Kind : std::uint8_t { attribute, added, changed, removed };

   const Publisher* source;
   FieldId field;
   Kind kind = Kind::attribute;
   // How many owners up from `source` it is being delivered: 0 to the
   // source's own subscribers, 1 to those of the entity whose collection holds
   // it, and so on.
   std::uint8_t depth = 0;
   const void* key = nullptr;
   const void* oldValue = nullptr;
   const void* newValue = nullptr;
   const ChangeLayout* layout = nullptr;

   bool added() const { return kind == Kind::added; }
   bool removed() const { return kind == Kind::removed; }
   template <class K>
   const K& keyAs() const {
      return *static_cast<const K*>(key);
   }
   template <class V>
   const V& oldAs() const {
      return *static_cast<const V*>(oldValue);
   }
   template <class V>
   const V& newAs() const {
      return *static_cast<const V*>(newValue);
   }
};

// A key or value of a waiting change, kept alive by the change: `get()` is
// what the change points at.
class Kept {
  public:
   Kept() = default;
   Kept(const void* at, void (*drop)(const void*)) : at_(at), drop_(drop) {}
   Kept(Kept&& o) noexcept : at_(std::exchange(o.at_, nullptr)), drop_(std::exchange(o.drop_, nullptr)) {}
   Kept& operator=(Kept&& o) noexcept {
      std::swap(at_, o.at_);
      std::swap(drop_, o.drop_);
      return *this;
   }
   ~Kept() {
      if (drop_) drop_(at_);
   }
   const void* get() const { return at_; }

  private:
   const void* at_ = nullptr;
   void (*drop_)(const void*) = nullptr;
};

// A value is kept as a copy.
template <class T>
Kept keepCopy(const void* p) {
   return {new T(*static_cast<const T*>(p)), [](const void* q) { delete static_cast<const T*>(q); }};
}
// A member entity is kept by a use of it.
template <class E>
Kept keepEntity(const void* p) {
   static_cast<const E*>(p)->reference();
   return {p, [](const void* q) { static_cast<const E*>(q)->dereference(); }};
}

// Anything changes are delivered to: a Subscriber, or an object with a handler
// bound to it (the input handlers of a state machine).
//
// Its handlers never run inside one another: a change that reaches it while
// one runs waits, as a copy, and is delivered right after the outermost one
// returns, in arrival order.
class Receiver {
  public:
   // Runs `handler` as one of this receiver's handlers: changes reaching it
   // meanwhile wait. An exception escaping it stops the process.
   template <class F>
   void run(F handler) {
      ++gate_;
      try {
         handler();
      } catch (...) {
         handlerThrew();
      }
      leave();
   }
   bool running() const { return (gate_ & kRunning) != 0; }
   // Whether changes are delivered to it now (a machine: its notifications
   // are on); those reaching it while it runs wait either way.
   bool hasNotificationActive() const { return (gate_ & kOff) == 0; }
   void hasNotificationActiveIs(bool on) { gate_ = on ? gate_ & ~kOff : gate_ | kOff; }

  protected:
   virtual ~Receiver() = default;
   // Asks for afterRunning() once the outermost handler has returned.
   void afterRunningIs() { gate_ |= kAfterRunning; }
   virtual void afterRunning() {}

  private:
   friend class Publisher;
   // The gate word: zero exactly when a change may be delivered at once and
   // nothing is left to do after it, so a delivery tests it once and leaves
   // with one decrement.
   static constexpr std::uint64_t kRunning = 0xffff'ffff;  // nesting of its handlers
   static constexpr std::uint64_t kOff = 1ull << 32;       // notifications off
   static constexpr std::uint64_t kAfterRunning = 1ull << 33;
   static constexpr std::uint64_t kPending = 1ull << 34;  // unit of the count of changes waiting for it

   [[noreturn]] void handlerThrew() const;
   void leave() {
      if (--gate_ != 0 && (gate_ & kRunning) == 0 && gate_ >= kAfterRunning) idle();
   }
   // Delivers the waiting changes, then runs the requested hook.
   void idle();

   std::uint64_t gate_ = 0;
};

class Subscriber : public Receiver {
  public:
   virtual void onChange(const Change& change) = 0;

  protected:
   ~Subscriber() override = default;
};

// Stops the process for the exception in flight, which escaped a handler of
// `r`, naming both.
[[noreturn]] void handlerThrew(const Receiver& r);
// The readable name of a type.
std::string typeName(const std::type_info& t);

// A counted object that delivers changes to its subscribers and then to the
// subscribers of the entity that owns it (recursive publication).
//
// A change published while one of this publisher's changes is being delivered
// waits, as a copy, until that delivery is over, so every subscriber hears the
// changes of one publisher in the order they were made. A subscriber removed
// during delivery leaves a hole that is compacted when the outermost delivery
// returns; one added during delivery hears from the next change on; a
// publisher whose last use goes while its changes are being delivered (to its
// subscribers or its owners') stays alive, with the change's source and
// values, until that delivery returns. An exception escaping a handler stops
// the process.
class Publisher : public Object {
  public:
   // Delivers one change to its receiver: a plain function, so that a call
   // costs what a callback list's does (Kiv::on makes one per handler).
   using Handler = void (*)(Receiver*, const Change&);

   // The platform's publishers take a flag with each subscriber; every
   // subscriber here is delivered to alike, so it changes nothing.
   void subscriberAdd(Subscriber* s, [[maybe_unused]] bool flag = false) const { handlerAdd(s, &onChange); }
   void subscriberRemove(Subscriber* s) const { handlerRemove(s, &onChange); }
   // Delivers changes to `target` through `handler` while the target's
   // notifications are on, with one call per change: what state machine
   // inputs use.
   void handlerAdd(Receiver* target, Handler handler) const { subs_.push_back({target, handler}); }
   void handlerRemove(Receiver* target, Handler handler) const;
   std::size_t subscribers() const;

   // The entity whose collection holds this one, or null.
   const Publisher* owner() const { return owner_; }
   FieldId ownerField() const { return ownerField_; }
   void ownerIs(const Publisher* owner, FieldId field) {
      owner_ = owner;
      ownerField_ = field;
   }

   // Whether a change would reach anyone: a subscriber or an owner.
   bool listened() const { return !subs_.empty() || owner_; }
   void publish(const Change& c) const {
      if (listened()) deliver(c);
   }

  protected:
   // Ends the object once its last use is gone and no delivery of its changes
   // is running.
   virtual void destroy() { delete this; }

  private:
   friend class Receiver;
   struct Entry {
      Receiver* target;  // null: removed during delivery
      Handler handler;
   };
   // Delivery state: the flag of a delivery in progress, what it left to do
   // afterwards (holes, a release) and the count of changes waiting for it.
   // Zero outside a delivery, so one comparison tells a plain delivery.
   enum : std::uint32_t { kDelivering = 1, kHoles = 2, kReleased = 4, kQueued = 8 };
   // Calls Subscriber::onChange; defined once, so that every library adds and
   // removes subscribers with the same handler.
   static void onChange(Receiver* r, const Change& c);

   void lastReferenceGone() final {
      if (state_ & kDelivering) {
         state_ |= kReleased;
      } else {
         destroy();
      }
   }
   void deliver(const Change& c) const {
      if (state_) return wait(c);
      state_ = kDelivering;
      send(c);
      if (state_ != kDelivering) return settle();
      state_ = 0;
   }
   void send(const Change& c) const {
      const std::size_t n = subs_.size();
      std::size_t i = 0;
      try {
         for (; i < n; ++i) {
            const Entry& e = subs_[i];
            Receiver* r = e.target;
            if (!r) continue;
            if (r->gate_ == 0) {
               const Handler h = e.handler;  // the call may add entries, moving `e`
               r->gate_ = 1;
               h(r, c);
               r->leave();
            } else if (r->gate_ & Receiver::kRunning) {
               defer(e, c);  // also to a machine starting, which hears it once on
            }
            // Otherwise its notifications are off.
         }
      } catch (...) {
         handlerThrew(*subs_[i].target);
      }
      if (owner_) forward(c);
   }
   // Delivers `c` to the owner's subscribers, one depth further up.
   void forward(const Change& c) const;
   // Queues `c` behind the change being delivered.
   void wait(const Change& c) const;
   // Queues `c` for the receiver of `e`, whose handler is running.
   void defer(const Entry& e, const Change& c) const;
   bool delivers(const Receiver* target, Handler handler) const;
   // After a delivery: delivers the queued changes in order, then compacts
   // the holes and ends a released publisher.
   void settle() const;

   mutable std::vector<Entry> subs_;
   mutable std::uint32_t state_ = 0;
   const Publisher* owner_ = nullptr;
   FieldId ownerField_ = 0;
};

}  // namespace Pondo
