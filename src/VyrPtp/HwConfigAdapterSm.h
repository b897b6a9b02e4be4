// Turns the protocol side's PTP hardware configuration, which is per logical
// interface (a LAG is one), into the per-physical-port configuration that the
// hardware-facing machines read: global settings are copied, and every member
// port of a LAG takes its LAG's interface configuration.
#pragma once

#include "Kiv/Reactor.h"
#include "Ptp/HwConfig.h"
#include "Vyr/VyrCommonSmData.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace VyrPtp {

class VYRPTP_EXPORT HwConfigAdapterSm : public Kiv::Reactor {
  public:
   class NestedSm_PtpHwIntfConfig;
   struct F {
      enum : Kiv::FieldId { ptpHwIntfConfig };
   };
   HwConfigAdapterSm(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig, Pondo::Ptr<const Vyr::VyrCommonSmData> vcsd,
                     Pondo::Ptr<Ptp::HwConfig> outputPtpHwConfig);
   ~HwConfigAdapterSm() override;

   const Ptp::HwConfig* ptpHwConfig() const { return ptpHwConfig_.get(); }
   const Vyr::VyrCommonSmData* vcsd() const { return vcsd_.get(); }
   Ptp::HwConfig* outputPtpHwConfig() const { return outputPtpHwConfig_.get(); }
   // The nested machines, one per input interface configuration.
   const NestedSm_PtpHwIntfConfig* ptpHwIntfConfig(Wyx::IntfId intfId) const;
   const Kiv::Collection<Wyx::IntfId, NestedSm_PtpHwIntfConfig>& ptpHwIntfConfig() const { return ptpHwIntfConfig_; }
   // Makes the machine of the input entry of `intfId`, which must exist, or
   // returns the one watching it; one watching an earlier entry is replaced.
   Pondo::Ptr<NestedSm_PtpHwIntfConfig> ptpHwIntfConfigIs(Wyx::IntfId intfId);
   Pondo::Ptr<NestedSm_PtpHwIntfConfig> ptpHwIntfConfigDel(Wyx::IntfId intfId);
   void ptpHwIntfConfigDelAll();

   void handleForwardPtpV1();
   void handleForwardUnicastApplicable();
   void handleG82751Enabled();
   void handlePtpMode();
   void handleTimestampLocation();
   // The per-key forms react to one entry of vcsd; the bulk forms run them for every key.
   void handleIntf();
   void handleIntf(Wyx::IntfId intfId);
   void handlePortToLag();
   void handlePortToLag(Wyx::IntfId intfId);
   void handleLagToPort();
   void handleLagToPort(Wyx::IntfId lagIntfId);

   // Re-derives the output entry of one port, or of every member of one LAG.
   void processIntf(Wyx::IntfId intfId);
   void processLag(Wyx::IntfId lagIntfId);
   void updateIntf(const Ptp::HwIntfConfig& config, Wyx::IntfId intfId);
   void deleteIntf(Wyx::IntfId intfId);

   // The framework's hooks, also callable directly.
   void onConstruct() override;
   void onDestruct() override;

  private:
   void handleIntfConfig(Wyx::IntfId intfId);
   // The output entry of `intfId` takes the input configuration of `source`, or goes if there is none.
   void copyConfig(Wyx::IntfId source, Wyx::IntfId intfId);

   Kiv::Input<const Ptp::HwConfig> ptpHwConfig_;
   Kiv::Input<const Vyr::VyrCommonSmData> vcsd_;
   Pondo::Ptr<Ptp::HwConfig> outputPtpHwConfig_;
   Kiv::Collection<Wyx::IntfId, NestedSm_PtpHwIntfConfig> ptpHwIntfConfig_{this, F::ptpHwIntfConfig, "ptpHwIntfConfig"};
};

// Watches one interface configuration of the input. Its construction, its
// destruction and every change of a copied field re-derive the output: the
// port's own entry, or every member's entry when the interface is a LAG.
class HwConfigAdapterSm::NestedSm_PtpHwIntfConfig : public Kiv::NestedSm<HwConfigAdapterSm, const Ptp::HwIntfConfig> {
  public:
   NestedSm_PtpHwIntfConfig(Wyx::IntfId intfId, HwConfigAdapterSm* adapter, Pondo::Ptr<const Ptp::HwIntfConfig> config);

   Wyx::IntfId intfId() const { return intfId_; }
   void handleEnabled();
   void handleDisableManagementMessageForwarding();

   // The framework's hooks, also callable directly.
   void onConstruct() override;
   void onDestruct() override;

  private:
   void processChanges();

   Wyx::IntfId intfId_;
};

VYRPTP_EXPORT Pondo::Ptr<HwConfigAdapterSm> hwConfigAdapterSmFactory(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                                                     Pondo::Ptr<const Vyr::VyrCommonSmData> vcsd,
                                                                     Pondo::Ptr<Ptp::HwConfig> outputPtpHwConfig);
VYRPTP_EXPORT Pondo::Ptr<HwConfigAdapterSm::NestedSm_PtpHwIntfConfig> nestedSm_PtpHwIntfConfigFactory(
    Wyx::IntfId intfId, HwConfigAdapterSm* adapter, Pondo::Ptr<const Ptp::HwIntfConfig> config);
VYRPTP_EXPORT Pondo::Ptr<HwConfigAdapterSm> HwConfigAdapterSmIs(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                                                Pondo::Ptr<const Vyr::VyrCommonSmData> vcsd,
                                                                Pondo::Ptr<Ptp::HwConfig> outputPtpHwConfig);
VYRPTP_EXPORT Pondo::Ptr<HwConfigAdapterSm::NestedSm_PtpHwIntfConfig> NestedSm_PtpHwIntfConfigIs(
    Wyx::IntfId intfId, HwConfigAdapterSm* adapter, Pondo::Ptr<const Ptp::HwIntfConfig> config);

}  // namespace VyrPtp
