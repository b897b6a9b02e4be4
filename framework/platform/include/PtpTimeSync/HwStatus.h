// Status of hardware time synchronisation, one entity per slice: the
// synchronisation state of each chip of the slice, by chip name.
#pragma once

#include <cstdint>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace PtpTimeSync {

class SwitchStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, state };
   };
   // The chip's time follows the reference closely enough to timestamp with.
   static constexpr std::uint8_t stateStable = 5;

   explicit SwitchStatus(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   std::uint8_t state() const { return state_; }
   void stateIs(std::uint8_t s) { set(state_, s, F::state); }

  private:
   Pondo::String name_;
   std::uint8_t state_ = 0;
};

class HwStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, switchAsic };
   };
   explicit HwStatus(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   const SwitchStatus* switchAsic(const Pondo::String& k) const { return switchAsic_.find(k); }
   SwitchStatus* switchAsic(const Pondo::String& k) { return switchAsic_.find(k); }
   const Kiv::Collection<Pondo::String, SwitchStatus>& switchAsic() const { return switchAsic_; }
   Pondo::Ptr<SwitchStatus> switchAsicIs(const Pondo::String& k) { return switchAsic_.is(k); }
   Pondo::Ptr<SwitchStatus> switchAsicDel(const Pondo::String& k) { return switchAsic_.del(k); }
   void switchAsicDelAll() { switchAsic_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Pondo::String, SwitchStatus> switchAsic_{this, F::switchAsic, "switchAsic"};
};

}  // namespace PtpTimeSync
