// Where interfaces are timestamped when it is not at the forwarding chip: one
// entry per interface timestamped at an external PHY, carrying that
// interface's egress timestamping facts so that readers find them in one place.
// An interface without an entry is timestamped at the chip.
#pragma once

#include "Kiv/Entity.h"
#include "Ptp/ClockIdentity.h"
#include "Ptp/HwConfig.h"
#include "Wyx/IntfId.h"

namespace VyrPtp {

class PtpTimestampLocationIntfConfig : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfId, location, clockId, intfNeedsPolling, intfNeedsOneStepCfUpdate };
   };
   explicit PtpTimestampLocationIntfConfig(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }
   // Reads `chip` until it is set.
   Ptp::Location::Location location() const { return location_; }
   void locationIs(Ptp::Location::Location l) { set(location_, l, F::location); }
   const Ptp::ClockIdentity& clockId() const { return clockId_; }
   void clockIdIs(const Ptp::ClockIdentity& c) { set(clockId_, c, F::clockId); }
   bool intfNeedsPolling() const { return intfNeedsPolling_; }
   void intfNeedsPollingIs(bool v) { set(intfNeedsPolling_, v, F::intfNeedsPolling); }
   bool intfNeedsOneStepCfUpdate() const { return intfNeedsOneStepCfUpdate_; }
   void intfNeedsOneStepCfUpdateIs(bool v) { set(intfNeedsOneStepCfUpdate_, v, F::intfNeedsOneStepCfUpdate); }

  private:
   Wyx::IntfId intfId_;
   Ptp::Location::Location location_ = Ptp::Location::Location::chip;
   Ptp::ClockIdentity clockId_;
   bool intfNeedsPolling_ = false;
   bool intfNeedsOneStepCfUpdate_ = false;
};

class PtpTimestampLocationConfig : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, enabledPhysicalIntfConfig };
   };
   explicit PtpTimestampLocationConfig(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   const PtpTimestampLocationIntfConfig* enabledPhysicalIntfConfig(Wyx::IntfId i) const {
      return enabledPhysicalIntfConfig_.find(i);
   }
   PtpTimestampLocationIntfConfig* enabledPhysicalIntfConfig(Wyx::IntfId i) {
      return enabledPhysicalIntfConfig_.find(i);
   }
   const Kiv::Collection<Wyx::IntfId, PtpTimestampLocationIntfConfig>& enabledPhysicalIntfConfig() const {
      return enabledPhysicalIntfConfig_;
   }
   // Creates the interface's entry if absent and returns it.
   Pondo::Ptr<PtpTimestampLocationIntfConfig> enabledPhysicalIntfConfigIs(Wyx::IntfId i) {
      return enabledPhysicalIntfConfig_.is(i);
   }
   Pondo::Ptr<PtpTimestampLocationIntfConfig> enabledPhysicalIntfConfigDel(Wyx::IntfId i) {
      return enabledPhysicalIntfConfig_.del(i);
   }
   void enabledPhysicalIntfConfigDelAll() { enabledPhysicalIntfConfig_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Wyx::IntfId, PtpTimestampLocationIntfConfig> enabledPhysicalIntfConfig_{
       this, F::enabledPhysicalIntfConfig, "enabledPhysicalIntfConfig"};
};

}  // namespace VyrPtp
