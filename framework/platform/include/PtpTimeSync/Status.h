// Status of the time-synchronisation service: which FPGA's PTP counter it uses.
#pragma once

#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace PtpTimeSync {

class Status : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, activeHpx };
   };
   explicit Status(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   // Name of the active Hpx; empty when none.
   const Pondo::String& activeHpx() const { return activeHpx_; }
   void activeHpxIs(Pondo::String n) { set(activeHpx_, std::move(n), F::activeHpx); }

  private:
   Pondo::String name_;
   Pondo::String activeHpx_;
};

}  // namespace PtpTimeSync
