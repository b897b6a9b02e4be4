// Publishers, subscribers and the change record delivered between them.
#pragma once

#include <cstdint>
#include <vector>

#include "Pondo/Ptr.h"

namespace Pondo {

// Identity of an attribute within its entity type (declaration order).
using FieldId = std::uint16_t;

class Publisher;

// One attribute change, delivered synchronously to every subscriber.
//  - scalar attribute: kind attribute, oldValue and newValue point at the values;
//  - collection member: kind added, changed or removed, key points at the key,
//    oldValue/newValue at the member before/after (null where there is none).
// `source` is the entity whose attribute changed; a change inside a member of a
// collection is also delivered to the owner's subscribers with the same record.
struct Change {
   enum class Kind : std::uint8_t { attribute, added, changed, removed };

   const Publisher* source;
   FieldId field;
   Kind kind = Kind::attribute;
   const void* key = nullptr;
   const void* oldValue = nullptr;
   const void* newValue = nullptr;

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

// Anything changes are delivered to: a Subscriber, or an object whose member
// function handles them (the input handlers of a state machine).
class Receiver {
  protected:
   virtual ~Receiver() = default;
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

// A counted object that delivers changes to its subscribers and then to the
// subscribers of the entity that owns it (recursive publication).
//
// Delivery is re-entrant: a subscriber removed during delivery leaves a hole
// that is compacted when the outermost delivery returns; one added during
// delivery hears from the next change on; a publisher whose last use goes
// while its changes are being delivered (to its subscribers or its owners')
// stays alive, with the change's source and values, until that delivery
// returns. An exception escaping a handler stops the process.
class Publisher : public Object {
  public:
   using Handler = void (Receiver::*)(const Change&);

   void subscriberAdd(Subscriber* s) const { handlerAdd(s, onChange(), nullptr); }
   void subscriberRemove(Subscriber* s) const { handlerRemove(s, onChange()); }
   // Delivers changes to `target`'s member `handler` while `*active` (always
   // when null), with one call per change: what state machine inputs use.
   void handlerAdd(Receiver* target, Handler handler, const bool* active) const {
      subs_.push_back({target, handler, active ? active : &kOn});
   }
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
   struct Entry {
      Receiver* target;
      Handler handler;
      const bool* active;  // &kOff: removed during delivery
   };
   static constexpr bool kOn = true;
   static constexpr bool kOff = false;
   static Handler onChange() { return static_cast<Handler>(&Subscriber::onChange); }

   void lastReferenceGone() final {
      if (delivering_) {
         released_ = true;
      } else {
         destroy();
      }
   }
   void deliver(const Change& c) const {
      ++delivering_;
      const std::size_t n = subs_.size();
      std::size_t i = 0;
      try {
         for (; i < n; ++i) {
            const Entry& e = subs_[i];  // read before the call, which may add entries
            if (*e.active) (e.target->*e.handler)(c);
         }
      } catch (...) {
         handlerThrew(*subs_[i].target);
      }
      if (owner_) owner_->publish(c);
      if (--delivering_ == 0 && (holes_ | released_)) settle();
   }
   // After the outermost delivery: compacts the holes, ends a released publisher.
   void settle() const;

   mutable std::vector<Entry> subs_;
   mutable std::uint32_t delivering_ = 0;
   mutable bool holes_ = false;
   bool released_ = false;
   const Publisher* owner_ = nullptr;
   FieldId ownerField_ = 0;
};

}  // namespace Pondo
