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

class Subscriber {
  public:
   virtual void onChange(const Change& change) = 0;

  protected:
   ~Subscriber() = default;
};

// A counted object that delivers changes to its subscribers and then to the
// subscribers of the entity that owns it (recursive publication).
//
// Delivery is re-entrant: a subscriber removed during delivery leaves a hole
// that is compacted when the outermost delivery returns; one added during
// delivery hears from the next change on; a publisher released by one of its
// own subscribers stays alive until its delivery returns.
class Publisher : public Object {
  public:
   void subscriberAdd(Subscriber* s) const { subs_.push_back(s); }
   void subscriberRemove(Subscriber* s) const;
   std::size_t subscribers() const;

   // The entity whose collection holds this one, or null.
   const Publisher* owner() const { return owner_; }
   FieldId ownerField() const { return ownerField_; }
   void ownerIs(const Publisher* owner, FieldId field) {
      owner_ = owner;
      ownerField_ = field;
   }

   void publish(const Change& c) const {
      if (subs_.empty() && !owner_) return;  // nobody listens
      deliver(c);
   }

  private:
   void deliver(const Change& c) const;

   mutable std::vector<Subscriber*> subs_;
   mutable std::uint32_t delivering_ = 0;
   mutable bool holes_ = false;
   const Publisher* owner_ = nullptr;
   FieldId ownerField_ = 0;
};

}  // namespace Pondo
