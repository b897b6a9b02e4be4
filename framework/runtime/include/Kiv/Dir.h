// Directories: entities holding named references to other entities.
#pragma once

#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace Kiv {

class Dir : public Entity {
  public:
   struct F {
      enum : FieldId { name, entityPtr };
   };
   using entityPtr_t = Field<Dir, Map<Pondo::String, Pondo::Ptr<Entity>>, F::entityPtr>;

   explicit Dir(Pondo::String name) : name_(std::move(name)) {}
   const Pondo::String& name() const { return name_; }

   Entity* entityPtr(const Pondo::String& n) const {
      auto* p = entries_.find(n);
      return p ? p->get() : nullptr;
   }
   bool entityPtrHas(const Pondo::String& n) const { return entries_.contains(n); }
   void entityPtrIs(const Pondo::String& n, Pondo::Ptr<Entity> e) {
      nonNull(e, "entity");
      entries_.is(n, std::move(e));
   }
   bool entityPtrDel(const Pondo::String& n) { return entries_.del(n); }
   const Map<Pondo::String, Pondo::Ptr<Entity>>& entityPtr() const { return entries_; }

   // Creates an entity of type T from its name, enters it, and returns it; an
   // existing entry of that name is returned if it is a T.
   template <class T>
   Pondo::Ptr<T> entityIs(const Pondo::String& n) {
      if (Entity* e = entityPtr(n)) {
         auto* t = dynamic_cast<T*>(e);
         if (!t) throw Error(fmt::format("'{}' in directory '{}' is of another type", n, name_));
         return t;
      }
      auto t = make<T>(n);
      entityPtrIs(n, t);
      return t;
   }

  private:
   Pondo::String name_;
   Map<Pondo::String, Pondo::Ptr<Entity>> entries_{this, F::entityPtr, "entityPtr"};
};

}  // namespace Kiv
