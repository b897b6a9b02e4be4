#include "VyrPtp/VyrPtpLocationSm.h"

#include <vector>

#include <fmt/printf.h>

namespace VyrPtp::Location {

namespace {

Kiv::Tracer trace{"VyrPtpLocationSm"};

using Wyx::IntfId;

// The mode and location numbers of the PTP types library under which
// interfaces may be timestamped at their external PHY.
constexpr unsigned kExternalPhyPtpMode = 2;
constexpr unsigned kExternalPhyLocation = 1;

}  // namespace

VyrPtpLocationSm::VyrPtpLocationSm(Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                   Pondo::Ptr<PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
                                   Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig,
                                   Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus)
    : ptpHwConfig_(this, Kiv::nonNull(ptpHwConfig, "ptpHwConfig"),
                   Kiv::on<Ptp::HwConfig::ptpMode_t, &VyrPtpLocationSm::on_ptpMode>,
                   Kiv::on<Ptp::HwConfig::timestampLocation_t, &VyrPtpLocationSm::on_timestampLocation>,
                   Kiv::on<Ptp::HwConfig::intfConfig_t, &VyrPtpLocationSm::on_intfConfig>,
                   Kiv::on<Kiv::Inside<Ptp::HwConfig::intfConfig_t, Ptp::HwIntfConfig::enabled_t>,
                           &VyrPtpLocationSm::on_enabled>),
      externalPhyTimestampLocationConfig_(
          Kiv::nonNull(externalPhyTimestampLocationConfig, "externalPhyTimestampLocationConfig")),
      ptpTimeSyncConfig_(this, Kiv::nonNull(ptpTimeSyncConfig, "ptpTimeSyncConfig"),
                         Kiv::on<PtpTimeSync::Config::switchAsic_t, &VyrPtpLocationSm::on_switchAsic>,
                         Kiv::on<Kiv::Inside<PtpTimeSync::Config::switchAsic_t, PtpTimeSync::SwitchConfig::mode_t>,
                                 &VyrPtpLocationSm::on_mode>),
      egressTimestampIntfStatus_(this, Kiv::nonNull(egressTimestampIntfStatus, "egressTimestampIntfStatus"),
                                 Kiv::on<EgressTimestampIntfStatus::physicalIntfNeedsPolling_t,
                                         &VyrPtpLocationSm::on_physicalIntfNeedsPolling>,
                                 Kiv::on<EgressTimestampIntfStatus::physicalIntfNeedsOneStepCfUpdate_t,
                                         &VyrPtpLocationSm::on_physicalIntfNeedsOneStepCfUpdate>,
                                 Kiv::on<EgressTimestampIntfStatus::clockId_t, &VyrPtpLocationSm::on_clockId>) {}

// The initial pass is left to onConstruct, which walks every configured
// interface: until then, with notifications off, the bindings run nothing.
void VyrPtpLocationSm::on_ptpMode() {
   if (!hasNotificationActive()) return;
   handlePtpMode();
}

void VyrPtpLocationSm::on_timestampLocation() {
   if (!hasNotificationActive()) return;
   handleTimestampLocation();
}

void VyrPtpLocationSm::on_intfConfig(IntfId intfId) {
   if (!hasNotificationActive()) return;
   handlePtpEnabled(intfId);
}

void VyrPtpLocationSm::on_enabled(const Ptp::HwIntfConfig& config) {
   if (!hasNotificationActive()) return;
   handlePtpEnabled(config.intfId());
}

void VyrPtpLocationSm::on_switchAsic(const Pondo::String& name) {
   if (!hasNotificationActive()) return;
   handlePtpTimeSyncConfig(name);
}

void VyrPtpLocationSm::on_mode(const PtpTimeSync::SwitchConfig& chip) {
   if (!hasNotificationActive()) return;
   handlePtpTimeSyncConfig(chip.name());
}

void VyrPtpLocationSm::on_physicalIntfNeedsPolling(IntfId intfId) {
   if (!hasNotificationActive()) return;
   handleIntfNeedsPolling(intfId);
}

void VyrPtpLocationSm::on_physicalIntfNeedsOneStepCfUpdate(IntfId intfId) {
   if (!hasNotificationActive()) return;
   handleIntfNeedsOneStepCfUpdate(intfId);
}

void VyrPtpLocationSm::on_clockId(IntfId intfId) {
   if (!hasNotificationActive()) return;
   handleClockId(intfId);
}

// Rebuilds the location entries of every configured interface after a restart.
void VyrPtpLocationSm::onConstruct() { handleTimestampLocation(); }

bool VyrPtpLocationSm::externalPhyPtpApplicable(IntfId intfId) const {
   trace(8, "{}: check if external PHY PTP is applicable", intfId);
   if (unsigned(ptpHwConfig_->ptpMode()) != kExternalPhyPtpMode ||
       unsigned(ptpHwConfig_->timestampLocation()) != kExternalPhyLocation) {
      return false;
   }
   const Ptp::HwIntfConfig* config = ptpHwConfig_->intfConfig(intfId);
   return config && config->enabled() && ptpSupportedOnPhy(intfId);
}

bool VyrPtpLocationSm::ptpSupportedOnPhy(IntfId intfId) const {
   const Pondo::String chipName = fmt::sprintf(phyChipNameFmt, intfId.name());
   trace(8, "check timeSync config for: {}", chipName);
   const PtpTimeSync::SwitchConfig* chip = ptpTimeSyncConfig_->switchAsic(chipName);
   return chip && chip->mode() == PtpTimeSync::SwitchConfig::modePtp;
}

void VyrPtpLocationSm::handlePtpMode() {
   trace(8, "ptpMode: {}", ptpHwConfig_->ptpMode());
   handleTimestampLocation();
}

// The keys are taken first: readers of the location entries react while the walk goes on.
void VyrPtpLocationSm::handleTimestampLocation() {
   trace(8, "PTP timestamp location: {}", ptpHwConfig_->timestampLocation());
   std::vector<IntfId> intfs;
   intfs.reserve(ptpHwConfig_->intfConfig().size());
   for (const auto& [intfId, config] : ptpHwConfig_->intfConfig()) intfs.push_back(intfId);
   for (IntfId intfId : intfs) {
      trace(7, "process PTP timestamp location on: {}", intfId);
      handleTimestampLocation(intfId);
   }
}

void VyrPtpLocationSm::handleTimestampLocation(IntfId intfId) {
   trace(8, "{}", intfId);
   updateIntf(intfId);
}

void VyrPtpLocationSm::handlePtpEnabled(IntfId intfId) {
   trace(8, "{}", intfId);
   updateIntf(intfId);
}

// The interface is parsed from what follows the first seven characters of
// the name, wherever the prefix stands in it; the parser takes short and full
// names alike. A text that is no interface name gives the null interface,
// whose update finds nothing to do.
void VyrPtpLocationSm::handlePtpTimeSyncConfig(const Pondo::String& name) {
   trace(8, "{}", name);
   if (name.find(phyChipPrefix) == Pondo::String::npos) return;
   updateIntf(IntfId::parse(std::string_view(name).substr(phyChipPrefix.size())).value_or(IntfId()));
}

// The entry must exist (or be gone) before the facts are copied into it.
void VyrPtpLocationSm::updateIntf(IntfId intfId) {
   computePtpLocation(intfId);
   handleIntfNeedsOneStepCfUpdate(intfId);
   handleIntfNeedsPolling(intfId);
   handleClockId(intfId);
}

void VyrPtpLocationSm::computePtpLocation(IntfId intfId) {
   if (!externalPhyPtpApplicable(intfId)) {
      trace(7, "disabling: {}", intfId);
      externalPhyTimestampLocationConfig_->enabledPhysicalIntfConfigDel(intfId);
      return;
   }
   trace(7, "{}: location set to {} with mode {}.", intfId, ptpHwConfig_->timestampLocation(), ptpHwConfig_->ptpMode());
   externalPhyTimestampLocationConfig_->enabledPhysicalIntfConfigIs(intfId)->locationIs(
       ptpHwConfig_->timestampLocation());
}

void VyrPtpLocationSm::handleIntfNeedsPolling(IntfId intfId) {
   trace(8, "{}", intfId);
   PtpTimestampLocationIntfConfig* entry = externalPhyTimestampLocationConfig_->enabledPhysicalIntfConfig(intfId);
   if (!entry) return;
   const bool needsPolling = egressTimestampIntfStatus_->physicalIntfNeedsPolling().contains(intfId);
   trace(7, "{}, intfNeedsPolling: {}", intfId, needsPolling);
   entry->intfNeedsPollingIs(needsPolling);
}

void VyrPtpLocationSm::handleIntfNeedsPolling() {
   for (IntfId intfId : egressTimestampIntfStatus_->physicalIntfNeedsPolling()) handleIntfNeedsPolling(intfId);
}

// An interface without a stored decision needs no update; a stored false stays false.
void VyrPtpLocationSm::handleIntfNeedsOneStepCfUpdate(IntfId intfId) {
   trace(8, "{}", intfId);
   PtpTimestampLocationIntfConfig* entry = externalPhyTimestampLocationConfig_->enabledPhysicalIntfConfig(intfId);
   if (!entry) return;
   const bool* stored = egressTimestampIntfStatus_->physicalIntfNeedsOneStepCfUpdate().find(intfId);
   const bool needsOneStep = stored && *stored;
   trace(7, "{}, intfNeedsOneStepCfUpdate: {}", intfId, needsOneStep);
   entry->intfNeedsOneStepCfUpdateIs(needsOneStep);
}

void VyrPtpLocationSm::handleIntfNeedsOneStepCfUpdate() {
   for (const auto& [intfId, needs] : egressTimestampIntfStatus_->physicalIntfNeedsOneStepCfUpdate()) {
      handleIntfNeedsOneStepCfUpdate(intfId);
   }
}

// Without a clock identity in the egress status the entry gets the zero identity.
void VyrPtpLocationSm::handleClockId(IntfId intfId) {
   trace(8, "{}", intfId);
   PtpTimestampLocationIntfConfig* entry = externalPhyTimestampLocationConfig_->enabledPhysicalIntfConfig(intfId);
   if (!entry) return;
   const Ptp::ClockIdentity* stored = egressTimestampIntfStatus_->clockId().find(intfId);
   const Ptp::ClockIdentity clockId = stored ? *stored : Ptp::ClockIdentity();
   trace(7, "{}, clockId: {}", intfId, clockId);
   entry->clockIdIs(clockId);
}

void VyrPtpLocationSm::handleClockId() {
   for (const auto& [intfId, clockId] : egressTimestampIntfStatus_->clockId()) handleClockId(intfId);
}

Pondo::Ptr<VyrPtpLocationSm> vyrPtpLocationSmFactory(
    Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus) {
   return Kiv::make<VyrPtpLocationSm>(std::move(ptpHwConfig), std::move(externalPhyTimestampLocationConfig),
                                      std::move(ptpTimeSyncConfig), std::move(egressTimestampIntfStatus));
}

Pondo::Ptr<VyrPtpLocationSm> VyrPtpLocationSmIs(
    Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus) {
   return vyrPtpLocationSmFactory(std::move(ptpHwConfig), std::move(externalPhyTimestampLocationConfig),
                                  std::move(ptpTimeSyncConfig), std::move(egressTimestampIntfStatus));
}

}  // namespace VyrPtp::Location
