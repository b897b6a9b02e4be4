// Configuration of the time-synchronisation service: the system-controller
// FPGAs (Hpx) by name, each with its hardware access object.
#pragma once

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

class Config : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, hpx };
   };
   explicit Config(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }

   HpxConfig* hpx(const Pondo::String& k) const { return hpx_.find(k); }
   const Kiv::Collection<Pondo::String, HpxConfig>& hpx() const { return hpx_; }
   Pondo::Ptr<HpxConfig> hpxIs(const Pondo::String& k) { return hpx_.is(k); }
   Pondo::Ptr<HpxConfig> hpxDel(const Pondo::String& k) { return hpx_.del(k); }
   void hpxDelAll() { hpx_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Pondo::String, HpxConfig> hpx_{this, F::hpx, "hpx"};
};

}  // namespace PtpTimeSync
