// The central state database's entity manager, as hardware tables see it:
// where they mount their status and configuration.
#pragma once

#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace Statebase {

class EntityManager : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { mount };
   };
   // Mount points by path ("hardware/egressTimestamp/unit0/network") with
   // what is mounted there.
   const Kiv::Map<Pondo::String, Pondo::String>& mount() const { return mount_; }
   const Pondo::String* mount(const Pondo::String& path) const { return mount_.find(path); }
   void mountIs(const Pondo::String& path, const Pondo::String& what) { mount_.is(path, what); }
   bool mountDel(const Pondo::String& path) { return mount_.del(path); }

  private:
   Kiv::Map<Pondo::String, Pondo::String> mount_{this, F::mount, "mount"};
};

}  // namespace Statebase
