#include "VyrPtp/HwConfigAdapterSm.h"

#include <vector>

namespace VyrPtp {

namespace {
Kiv::Tracer trace{"AdapterSm"};

// The per-key form of a vcsd handler that also has a bulk form, for its binding.
constexpr auto perKey(void (HwConfigAdapterSm::*handler)(Wyx::IntfId)) { return handler; }
}  // namespace

// The adapter is checked before the configuration.
HwConfigAdapterSm::NestedSm_PtpHwIntfConfig::NestedSm_PtpHwIntfConfig(Wyx::IntfId intfId, HwConfigAdapterSm* adapter,
                                                                      Pondo::Ptr<const Ptp::HwIntfConfig> config)
    : NestedSm((Kiv::nonNull(adapter, "adapter"), Kiv::nonNull(config, "config")), adapter,
               Kiv::on<Ptp::HwIntfConfig::enabled_t, &NestedSm_PtpHwIntfConfig::handleEnabled>,
               Kiv::on<Ptp::HwIntfConfig::disableManagementMessageForwarding_t,
                       &NestedSm_PtpHwIntfConfig::handleDisableManagementMessageForwarding>),
      intfId_(intfId) {}

void HwConfigAdapterSm::NestedSm_PtpHwIntfConfig::handleEnabled() { processChanges(); }

void HwConfigAdapterSm::NestedSm_PtpHwIntfConfig::handleDisableManagementMessageForwarding() { processChanges(); }

void HwConfigAdapterSm::NestedSm_PtpHwIntfConfig::onConstruct() { processChanges(); }

// Notifications are already off when the adapter itself is being torn down:
// the adapter has then cleared the output and nothing is re-derived.
void HwConfigAdapterSm::NestedSm_PtpHwIntfConfig::onDestruct() {
   if (hasNotificationActive()) processChanges();
}

void HwConfigAdapterSm::NestedSm_PtpHwIntfConfig::processChanges() {
   trace(8, "processChanges intfId: {}", intfId_);
   if (Wyx::isPortChannelIntfId(intfId_)) {
      ownerSm()->processLag(intfId_);
   } else {
      ownerSm()->processIntf(intfId_);
   }
}

HwConfigAdapterSm::HwConfigAdapterSm(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                     Pondo::Ptr<const Vyr::VyrCommonSmData> vcsd,
                                     Pondo::Ptr<Ptp::HwConfig> outputPtpHwConfig)
    : ptpHwConfig_(
          this, std::move(ptpHwConfig), Kiv::on<Ptp::HwConfig::forwardPtpV1_t, &HwConfigAdapterSm::handleForwardPtpV1>,
          Kiv::on<Ptp::HwConfig::forwardUnicastApplicable_t, &HwConfigAdapterSm::handleForwardUnicastApplicable>,
          Kiv::on<Ptp::HwConfig::g82751Enabled_t, &HwConfigAdapterSm::handleG82751Enabled>,
          Kiv::on<Ptp::HwConfig::ptpMode_t, &HwConfigAdapterSm::handlePtpMode>,
          Kiv::on<Ptp::HwConfig::timestampLocation_t, &HwConfigAdapterSm::handleTimestampLocation>,
          Kiv::on<Ptp::HwConfig::intfConfig_t, &HwConfigAdapterSm::handleIntfConfig>),
      vcsd_(this, std::move(vcsd), Kiv::on<Vyr::VyrCommonSmData::intf_t, perKey(&HwConfigAdapterSm::handleIntf)>,
            Kiv::on<Vyr::VyrCommonSmData::portToLag_t, perKey(&HwConfigAdapterSm::handlePortToLag)>,
            Kiv::on<Vyr::VyrCommonSmData::lagToPort_t, perKey(&HwConfigAdapterSm::handleLagToPort)>),
      outputPtpHwConfig_(std::move(outputPtpHwConfig)) {}

HwConfigAdapterSm::~HwConfigAdapterSm() = default;

// Changes inside an interface configuration are its nested machine's. By
// presence: the entry as it is now, whatever the change said.
void HwConfigAdapterSm::handleIntfConfig(Wyx::IntfId intfId) {
   if (ptpHwConfig_->intfConfig(intfId)) {
      ptpHwIntfConfigIs(intfId);
   } else {
      ptpHwIntfConfigDel(intfId);
   }
}

const HwConfigAdapterSm::NestedSm_PtpHwIntfConfig* HwConfigAdapterSm::ptpHwIntfConfig(Wyx::IntfId intfId) const {
   return ptpHwIntfConfig_.find(intfId);
}

Pondo::Ptr<HwConfigAdapterSm::NestedSm_PtpHwIntfConfig> HwConfigAdapterSm::ptpHwIntfConfigIs(Wyx::IntfId intfId) {
   const Ptp::HwIntfConfig* config = ptpHwConfig_->intfConfig(intfId);
   Kiv::kassert(config, "ptpHwIntfConfigIs: no input configuration for {}", intfId);
   Kiv::shadow(ptpHwIntfConfig_, intfId, config,
               [&] { return Kiv::make<NestedSm_PtpHwIntfConfig>(intfId, this, config); });
   return ptpHwIntfConfig_.find(intfId);
}

Pondo::Ptr<HwConfigAdapterSm::NestedSm_PtpHwIntfConfig> HwConfigAdapterSm::ptpHwIntfConfigDel(Wyx::IntfId intfId) {
   return ptpHwIntfConfig_.del(intfId);
}

void HwConfigAdapterSm::ptpHwIntfConfigDelAll() { ptpHwIntfConfig_.delAll(); }

void HwConfigAdapterSm::handleForwardPtpV1() {
   trace(8, "forwardPtpV1: {}", ptpHwConfig_->forwardPtpV1());
   outputPtpHwConfig_->forwardPtpV1Is(ptpHwConfig_->forwardPtpV1());
}

void HwConfigAdapterSm::handleForwardUnicastApplicable() {
   trace(8, "forwardUnicastApplicable: {}", ptpHwConfig_->forwardUnicastApplicable());
   outputPtpHwConfig_->forwardUnicastApplicableIs(ptpHwConfig_->forwardUnicastApplicable());
}

void HwConfigAdapterSm::handleG82751Enabled() {
   trace(8, "g82751Enabled: {}", ptpHwConfig_->g82751Enabled());
   outputPtpHwConfig_->g82751EnabledIs(ptpHwConfig_->g82751Enabled());
}

void HwConfigAdapterSm::handlePtpMode() {
   trace(8, "mode: {}", ptpHwConfig_->ptpMode());
   outputPtpHwConfig_->ptpModeIs(ptpHwConfig_->ptpMode());
}

void HwConfigAdapterSm::handleTimestampLocation() {
   trace(8, "PTP timestamp location: {}", ptpHwConfig_->timestampLocation());
   outputPtpHwConfig_->timestampLocationIs(ptpHwConfig_->timestampLocation());
}

void HwConfigAdapterSm::handleIntf() {
   for (const auto& [intfId, handled] : vcsd_->intf()) handleIntf(intfId);
}

// Only this path asks whether the forwarding agent lists the interface;
// processIntf does not, so a configured port the agent does not list still
// gets an output entry when its configuration or LAG membership changes.
void HwConfigAdapterSm::handleIntf(Wyx::IntfId intfId) {
   trace(8, "intf: {}", intfId);
   if (!vcsd_->intf().contains(intfId)) {
      deleteIntf(intfId);
      return;
   }
   const Wyx::IntfId* lag = vcsd_->portToLag().find(intfId);
   trace(9, "Interface added, partOfLag: {}", lag != nullptr);
   if (lag) {
      copyConfig(*lag, intfId);
      return;
   }
   trace(9, "hasIntfHwConfig: {}", ptpHwConfig_->intfConfig(intfId) != nullptr);
   copyConfig(intfId, intfId);
}

void HwConfigAdapterSm::handlePortToLag() {
   for (const auto& [intfId, lag] : vcsd_->portToLag()) handlePortToLag(intfId);
}

void HwConfigAdapterSm::handlePortToLag(Wyx::IntfId intfId) {
   trace(8, "interface: {}", intfId);
   processIntf(intfId);
}

void HwConfigAdapterSm::handleLagToPort() {
   for (const auto& [lag, ports] : vcsd_->lagToPort()) handleLagToPort(lag);
}

void HwConfigAdapterSm::handleLagToPort(Wyx::IntfId lagIntfId) {
   trace(8, "lag: {}", lagIntfId);
   processLag(lagIntfId);
}

// A LAG member takes its LAG's configuration; its own input entry is ignored
// while it is in the LAG.
void HwConfigAdapterSm::processIntf(Wyx::IntfId intfId) {
   if (const Wyx::IntfId* lag = vcsd_->portToLag().find(intfId)) {
      trace(9, "Interface exists in LAG, hasLagHwIntfConfig: {}", ptpHwConfig_->intfConfig(*lag) != nullptr);
      copyConfig(*lag, intfId);
   } else {
      trace(9, "Interface not in LAG, hasHwIntfConfig: {}", ptpHwConfig_->intfConfig(intfId) != nullptr);
      copyConfig(intfId, intfId);
   }
}

// The LAG interface itself never gets an output entry.
void HwConfigAdapterSm::processLag(Wyx::IntfId lagIntfId) {
   trace(8, "{}", lagIntfId);
   const Vyr::VyrLagPortList* ports = vcsd_->lagToPort().find(lagIntfId);
   if (!ports) return;
   const Pondo::Ptr<const Ptp::HwIntfConfig> config = ptpHwConfig_->intfConfig(lagIntfId);
   trace(9, "LAG exists, hasLagHwIntfConfig: {}", config != nullptr);
   const std::vector<Wyx::IntfId> members = ports->member;
   for (Wyx::IntfId member : members) {
      trace(9, "Handling lagMember {}", member);
      if (config) {
         updateIntf(*config, member);
      } else {
         deleteIntf(member);
      }
   }
}

void HwConfigAdapterSm::copyConfig(Wyx::IntfId source, Wyx::IntfId intfId) {
   if (const Ptp::HwIntfConfig* config = ptpHwConfig_->intfConfig(source)) {
      updateIntf(*config, intfId);
   } else {
      deleteIntf(intfId);
   }
}

void HwConfigAdapterSm::updateIntf(const Ptp::HwIntfConfig& config, Wyx::IntfId intfId) {
   const Pondo::Ptr<Ptp::HwIntfConfig> out = outputPtpHwConfig_->intfConfigIs(intfId);
   out->enabledIs(config.enabled());
   out->disableManagementMessageForwardingIs(config.disableManagementMessageForwarding());
}

void HwConfigAdapterSm::deleteIntf(Wyx::IntfId intfId) { outputPtpHwConfig_->intfConfigDel(intfId); }

// Output entries without an input entry are what an earlier run left behind;
// LAG members among them are re-derived from their LAG by the steps after.
void HwConfigAdapterSm::onConstruct() {
   trace(8, "onConstruct");
   std::vector<Wyx::IntfId> stale;
   for (const auto& [intfId, config] : outputPtpHwConfig_->intfConfig()) {
      if (!ptpHwConfig_->intfConfig(intfId)) stale.push_back(intfId);
   }
   for (Wyx::IntfId intfId : stale) {
      trace(9, "Removing stale intf {} from output", intfId);
      outputPtpHwConfig_->intfConfigDel(intfId);
   }
   handleForwardPtpV1();
   handleForwardUnicastApplicable();
   handleG82751Enabled();
   handlePtpMode();
   handleTimestampLocation();
   handleIntf();
   handlePortToLag();
   handleLagToPort();
}

// The global output fields stay as they are.
void HwConfigAdapterSm::onDestruct() {
   trace(8, "onDestruct");
   outputPtpHwConfig_->intfConfigDelAll();
}

Pondo::Ptr<HwConfigAdapterSm> hwConfigAdapterSmFactory(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                                       Pondo::Ptr<const Vyr::VyrCommonSmData> vcsd,
                                                       Pondo::Ptr<Ptp::HwConfig> outputPtpHwConfig) {
   return Kiv::make<HwConfigAdapterSm>(std::move(ptpHwConfig), std::move(vcsd), std::move(outputPtpHwConfig));
}

Pondo::Ptr<HwConfigAdapterSm::NestedSm_PtpHwIntfConfig> nestedSm_PtpHwIntfConfigFactory(
    Wyx::IntfId intfId, HwConfigAdapterSm* adapter, Pondo::Ptr<const Ptp::HwIntfConfig> config) {
   return Kiv::make<HwConfigAdapterSm::NestedSm_PtpHwIntfConfig>(intfId, adapter, std::move(config));
}

Pondo::Ptr<HwConfigAdapterSm> HwConfigAdapterSmIs(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                                  Pondo::Ptr<const Vyr::VyrCommonSmData> vcsd,
                                                  Pondo::Ptr<Ptp::HwConfig> outputPtpHwConfig) {
   return hwConfigAdapterSmFactory(std::move(ptpHwConfig), std::move(vcsd), std::move(outputPtpHwConfig));
}

Pondo::Ptr<HwConfigAdapterSm::NestedSm_PtpHwIntfConfig> NestedSm_PtpHwIntfConfigIs(
    Wyx::IntfId intfId, HwConfigAdapterSm* adapter, Pondo::Ptr<const Ptp::HwIntfConfig> config) {
   return nestedSm_PtpHwIntfConfigFactory(intfId, adapter, std::move(config));
}

}  // namespace VyrPtp
