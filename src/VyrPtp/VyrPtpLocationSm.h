// Where each PTP-enabled interface is timestamped: at the forwarding chip, or
// at an external PHY in front of it. Interfaces timestamped at a PHY get an
// entry in the location configuration, together with the egress timestamping
// facts of the interface, so that its readers find all they need in one
// place; every other interface is timestamped at the chip.
#pragma once

#include "Kiv/Reactor.h"
#include "Ptp/HwConfig.h"
#include "Ptp/PtpTimestampLocationConfig.h"
#include "PtpTimeSync/Config.h"
#include "VyrPtp/EgressTimestampIntfSm.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace VyrPtp::Location {

class VYRPTP_EXPORT VyrPtpLocationSm final : public Kiv::Reactor {
  public:
   // The time-sync configuration names an interface's timestamping PHY by
   // this prefix and the interface's full name.
   static constexpr const char* phyChipNameFmt = "PhyChip%s";
   static constexpr std::string_view phyChipPrefix = "PhyChip";

   VyrPtpLocationSm(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                    Pondo::Ptr<PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
                    Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig,
                    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus);

   const Ptp::HwConfig* ptpHwConfig() const { return ptpHwConfig_.get(); }
   PtpTimestampLocationConfig* externalPhyTimestampLocationConfig() const {
      return externalPhyTimestampLocationConfig_.get();
   }
   const PtpTimeSync::Config* ptpTimeSyncConfig() const { return ptpTimeSyncConfig_.get(); }
   const EgressTimestampIntfStatus* egressTimestampIntfStatus() const { return egressTimestampIntfStatus_.get(); }

   // Whether the interface is to be timestamped at its external PHY.
   bool externalPhyPtpApplicable(Wyx::IntfId intfId) const;
   // Whether the interface's PHY takes part in time synchronisation.
   bool ptpSupportedOnPhy(Wyx::IntfId intfId) const;

   // Reactions. Those for one interface that end in its full update run, in
   // order: computePtpLocation, then the one-step, polling and clock identity
   // copies.
   void handlePtpMode();
   void handleTimestampLocation();
   void handleTimestampLocation(Wyx::IntfId intfId);
   void handlePtpEnabled(Wyx::IntfId intfId);
   void handlePtpTimeSyncConfig(const Pondo::String& name);
   void handleIntfNeedsPolling(Wyx::IntfId intfId);
   void handleIntfNeedsPolling();
   void handleIntfNeedsOneStepCfUpdate(Wyx::IntfId intfId);
   void handleIntfNeedsOneStepCfUpdate();
   void handleClockId(Wyx::IntfId intfId);
   void handleClockId();
   void computePtpLocation(Wyx::IntfId intfId);

   // The framework's hooks, also callable directly.
   void onConstruct() override;

  private:
   void on_ptpMode();
   void on_timestampLocation();
   void on_intfConfig(Wyx::IntfId intfId);
   void on_enabled(const Ptp::HwIntfConfig& config);
   void on_switchAsic(const Pondo::String& name);
   void on_mode(const PtpTimeSync::SwitchConfig& chip);
   void on_physicalIntfNeedsPolling(Wyx::IntfId intfId);
   void on_physicalIntfNeedsOneStepCfUpdate(Wyx::IntfId intfId);
   void on_clockId(Wyx::IntfId intfId);
   void updateIntf(Wyx::IntfId intfId);

   Kiv::Input<const Ptp::HwConfig> ptpHwConfig_;
   Pondo::Ptr<PtpTimestampLocationConfig> externalPhyTimestampLocationConfig_;
   Kiv::Input<const PtpTimeSync::Config> ptpTimeSyncConfig_;
   Kiv::Input<const EgressTimestampIntfStatus> egressTimestampIntfStatus_;
};

VYRPTP_EXPORT Pondo::Ptr<VyrPtpLocationSm> vyrPtpLocationSmFactory(
    Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrPtpLocationSm> VyrPtpLocationSmIs(
    Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus);

}  // namespace VyrPtp::Location
