// Configuration of the time-synchronisation service: the system-controller
// FPGAs (Hpx) by name, each with its hardware access object, and the chips
// (forwarding chips and timestamping PHYs) by name with their part in it.
#pragma once

#include <cstdint>

#include "Hpx/Ham.h"
#include "Kiv/Entity.h"

namespace PtpTimeSync {

class HpxConfig : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, ham };
   };
   explicit HpxConfig(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   // The device's access object, or null while it has none.
   Hpx::Ham* ham() const { return ham_.get(); }
   void hamIs(Pondo::Ptr<Hpx::Ham> h) { set(ham_, std::move(h), F::ham); }

  private:
   Pondo::String name_;
   Pondo::Ptr<Hpx::Ham> ham_;
};

// One chip's part in time synchronisation.
class SwitchConfig : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, mode };
   };
   // The chip takes part in PTP time synchronisation.
   static constexpr std::uint8_t modePtp = 1;

   explicit SwitchConfig(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   std::uint8_t mode() const { return mode_; }
   void modeIs(std::uint8_t m) { set(mode_, m, F::mode); }

  private:
   Pondo::String name_;
   std::uint8_t mode_ = 0;
};

class Config : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, hpx, switchAsic };
   };
   explicit Config(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }

   const HpxConfig* hpx(const Pondo::String& k) const { return hpx_.find(k); }

   HpxConfig* hpx(const Pondo::String& k) { return hpx_.find(k); }
   const Kiv::Collection<Pondo::String, HpxConfig>& hpx() const { return hpx_; }
   Pondo::Ptr<HpxConfig> hpxIs(const Pondo::String& k) { return hpx_.is(k); }
   Pondo::Ptr<HpxConfig> hpxDel(const Pondo::String& k) { return hpx_.del(k); }
   void hpxDelAll() { hpx_.delAll(); }

   const SwitchConfig* switchAsic(const Pondo::String& k) const { return switchAsic_.find(k); }

   SwitchConfig* switchAsic(const Pondo::String& k) { return switchAsic_.find(k); }
   const Kiv::Collection<Pondo::String, SwitchConfig>& switchAsic() const { return switchAsic_; }
   Pondo::Ptr<SwitchConfig> switchAsicIs(const Pondo::String& k) { return switchAsic_.is(k); }
   Pondo::Ptr<SwitchConfig> switchAsicDel(const Pondo::String& k) { return switchAsic_.del(k); }
   void switchAsicDelAll() { switchAsic_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Pondo::String, HpxConfig> hpx_{this, F::hpx, "hpx"};
   Kiv::Collection<Pondo::String, SwitchConfig> switchAsic_{this, F::switchAsic, "switchAsic"};
};

}  // namespace PtpTimeSync
