#include "VyrPtp/VyrPtpHwStatusSm.h"

#include <vector>

#include <fmt/printf.h>

#include "Kiv/Activity.h"
#include "Utils/SliceName.h"

namespace VyrPtp::Location {

namespace {

Kiv::Tracer trace{"VyrPtpHwStatusSm"};

using Wyx::IntfId;

// The product's attributes; a product without them cannot run this agent.
const Platform::Attributes& getProductAttributes() {
   constexpr const char* where = "ProductAttribute::Attributes::PtrConst getProductAttributes()";
   const Platform::ProductAttributes* productAttr = Platform::productAttributes();
   Kiv::kassert(productAttr, "{}: productAttr", where);
   const Platform::Attributes* attributes = productAttr->attributes();
   Kiv::kassert(attributes, "{}: attributes", where);
   return *attributes;
}

}  // namespace

// --- VyrPtpHwStatusFapSm ------------------------------------------------------------------

VyrPtpHwStatusFapSm::VyrPtpHwStatusFapSm(
    Pondo::Ptr<const PlatformUnitPortFapInfo> unitPortFapInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig, bool timeSyncSupported,
    Pondo::Ptr<Ptp::HwStatus> ptpHwStatus)
    : unitPortFapInfo_(Kiv::Input<const PlatformUnitPortFapInfo>::Optional{}, this, std::move(unitPortFapInfo),
                       Kiv::on<PlatformUnitPortFapInfo::intfInfo_t, &VyrPtpHwStatusFapSm::on_intfInfo>),
      ptpHwConfig_(this, Kiv::nonNull(ptpHwConfig, "ptpHwConfig"),
                   Kiv::on<Ptp::HwConfig::intfConfig_t, &VyrPtpHwStatusFapSm::on_intfConfig>,
                   Kiv::on<Kiv::Inside<Ptp::HwConfig::intfConfig_t, Ptp::HwIntfConfig::enabled_t>,
                           &VyrPtpHwStatusFapSm::on_enabled>),
      externalPhyTimestampLocationConfig_(
          this, Kiv::nonNull(externalPhyTimestampLocationConfig, "externalPhyTimestampLocationConfig"),
          Kiv::on<PtpTimestampLocationConfig::enabledPhysicalIntfConfig_t,
                  &VyrPtpHwStatusFapSm::on_enabledPhysicalIntfConfig>,
          Kiv::on<Kiv::Inside<PtpTimestampLocationConfig::enabledPhysicalIntfConfig_t,
                              PtpTimestampLocationIntfConfig::location_t>,
                  &VyrPtpHwStatusFapSm::on_location>),
      timeSyncSupported_(timeSyncSupported),
      ptpHwStatus_(Kiv::nonNull(ptpHwStatus, "ptpHwStatus")),
      ptpTimestampingStatus_(
          Kiv::Input<const PtpTimestampStatus>::Optional{}, this, nullptr,
          Kiv::on<PtpTimestampStatus::physicalIntfStatus_t, &VyrPtpHwStatusFapSm::on_physicalIntfStatus>,
          Kiv::on<Kiv::Inside<PtpTimestampStatus::physicalIntfStatus_t, PtpTimestampIntfStatus::intfReadyForRx_t>,
                  &VyrPtpHwStatusFapSm::on_intfReadyForPacket>,
          Kiv::on<Kiv::Inside<PtpTimestampStatus::physicalIntfStatus_t, PtpTimestampIntfStatus::intfReadyForTx_t>,
                  &VyrPtpHwStatusFapSm::on_intfReadyForPacket>),
      timeSyncStatus_(Kiv::Input<const PtpTimeSync::SwitchStatus>::Optional{}, this, nullptr,
                      Kiv::on<PtpTimeSync::SwitchStatus::state_t, &VyrPtpHwStatusFapSm::on_state>,
                      Kiv::onSelf<&VyrPtpHwStatusFapSm::onTimeSyncStatus>),
      asicTimestampFileStatus_(Kiv::Input<const AsicTimestampFileStatus>::Optional{}, this, nullptr,
                               Kiv::on<AsicTimestampFileStatus::timestampFd_t, &VyrPtpHwStatusFapSm::on_timestampFd>) {}

bool VyrPtpHwStatusFapSm::chipHas(IntfId intfId) const {
   return unitPortFapInfo_ && unitPortFapInfo_->intfInfo(intfId);
}

// Changes replayed while the machine is being built are left to onConstruct,
// which evaluates every interface once.
void VyrPtpHwStatusFapSm::on_intfInfo(IntfId intfId) {
   if (!hasNotificationActive()) return;
   handleIntfInfo(intfId);
   processIntfReady(intfId);
}

// The configuration, the location entries and the island status are shared by
// all chips: each chip's machine takes what concerns its own interfaces.
void VyrPtpHwStatusFapSm::on_intfConfig(IntfId intfId) {
   if (!hasNotificationActive() || !chipHas(intfId)) return;
   handleIntfEnabled(intfId);
   processIntfReady(intfId);
}

void VyrPtpHwStatusFapSm::on_enabled(const Ptp::HwIntfConfig& config) { on_intfConfig(config.intfId()); }

void VyrPtpHwStatusFapSm::on_enabledPhysicalIntfConfig(IntfId intfId) {
   if (!hasNotificationActive()) return;
   if (chipHas(intfId)) handleIntfTimestampLocation(intfId);
}

void VyrPtpHwStatusFapSm::on_location(const PtpTimestampLocationIntfConfig& entry) {
   on_enabledPhysicalIntfConfig(entry.intfId());
}

// A new island entity replays each interface it lists as added and each one
// only the previous entity listed as removed (with no source when cleared).
void VyrPtpHwStatusFapSm::on_physicalIntfStatus(IntfId intfId) {
   if (!hasNotificationActive() || !chipHas(intfId)) return;
   handleIntfReadyForPacket(intfId);
   processIntfReady(intfId);
}

void VyrPtpHwStatusFapSm::on_intfReadyForPacket(const PtpTimestampIntfStatus& phy) {
   on_physicalIntfStatus(phy.intfId());
}

void VyrPtpHwStatusFapSm::on_state() {
   if (!hasNotificationActive()) return;
   handleTimeSyncStatus();
   processIntfReady();
}

void VyrPtpHwStatusFapSm::onTimeSyncStatus(const PtpTimeSync::SwitchStatus*, bool initial) {
   if (initial) return;
   handleTimeSyncStatus();
   processIntfReady();
}

// Only a change between ready and not ready counts, not a new descriptor number.
void VyrPtpHwStatusFapSm::on_timestampFd(std::int32_t previous, std::int32_t now) {
   if (!hasNotificationActive()) return;
   if ((previous >= 0) == (now >= 0)) return;
   handleAsicTimestampFileStatus();
   processIntfReady();
}

void VyrPtpHwStatusFapSm::onConstruct() {
   const Platform::Attributes& attributes = getProductAttributes();
   if (attributes.chipTimeFromAsicTimeFile) startAsicTimestampFileSm(attributes);
   processIntfReady();
}

// The chip's kernel unit is its FAP number.
void VyrPtpHwStatusFapSm::startAsicTimestampFileSm(const Platform::Attributes& attributes) {
   const unsigned unit = unitPortFapInfo_ ? unsigned(unitPortFapInfo_->fapId()) : kernelUnitWithoutChip;
   const Pondo::String timestampPath = fmt::sprintf(AsicTimeConstants::defaultTimestampPathFmt(), unit);
   const Pondo::String counterConfigPath = fmt::sprintf(AsicTimeConstants::defaultCounterConfigPathFmt(), unit);
   trace(7, "starting asicTimestampFileSm: timestampConfigFile {}, counterConfigFile: {}", timestampPath,
         counterConfigPath);
   asicTimestampFileConfig_ =
       asicTimestampFileConfigFactory(timestampPath, counterConfigPath, attributes.asicTimeCounterNeedsInit, false);
   const Pondo::Ptr<AsicTimestampFileStatus> status = asicTimestampFileStatusFactory();
   asicTimestampFileStatus_ = status;
   asicTimestampFileSm_ = asicTimestampFileSmFactory(asicTimestampFileConfig_, status, Kiv::activityManager().clock());
}

// The file machine exists exactly when the product reads chip time through the files.
bool VyrPtpHwStatusFapSm::asicHardwareReady() const {
   bool ready = true;
   if (asicTimestampFileSm_) {
      ready = asicTimestampFileStatus_ && asicTimestampFileStatus_->ready();
      trace(7, "asicTimestampFileStatus: {}", ready);
   }
   if (timeSyncSupported_) {
      const bool stable = timeSyncStatus_ && timeSyncStatus_->state() == PtpTimeSync::SwitchStatus::stateStable;
      ready = ready && stable;
      trace(7, "timeSyncStatus stable: {}", stable);
   }
   return ready;
}

bool VyrPtpHwStatusFapSm::externalPhyHardwareStopped(IntfId intfId) const {
   const PtpTimestampIntfStatus* phy =
       ptpTimestampingStatus_ ? ptpTimestampingStatus_->physicalIntfStatus(intfId) : nullptr;
   if (!phy) return true;
   trace(7, "intfId: {}: externalPhy: intfReadyForRxPacket: {}, intfReadyForTxPacket: {}", intfId,
         phy->intfReadyForRx(), phy->intfReadyForTx());
   return !phy->intfReadyForRx() && !phy->intfReadyForTx();
}

Pondo::Ptr<Ptp::HwIntfStatus> VyrPtpHwStatusFapSm::getIntfStatus(IntfId intfId) {
   if (Ptp::HwIntfStatus* existing = ptpHwStatus_->intfStatus(intfId)) return existing;
   trace(7, "creating intfStatus: intfId: {}", intfId);
   Pondo::Ptr<Ptp::HwIntfStatus> status = ptpHwStatus_->intfStatusIs(intfId, Ptp::LinuxTsOptions(0));
   status->twoStepClockIs(true);
   status->timestampMultiplierIs(1);
   status->timestampDividerIs(1);
   status->timestampAtPacketEndIs(false);
   return status;
}

void VyrPtpHwStatusFapSm::handleIntfInfo(IntfId intfId) { trace(8, "intfId: {}", intfId); }

void VyrPtpHwStatusFapSm::handleIntfEnabled(IntfId intfId) { trace(8, "intfId: {}", intfId); }

// Nothing set up for the old location is trusted for the new one: readers see
// the interface not ready before its new readiness.
void VyrPtpHwStatusFapSm::handleIntfTimestampLocation(IntfId intfId) {
   trace(8, "intfId: {}", intfId);
   const Pondo::Ptr<Ptp::HwIntfStatus> status = getIntfStatus(intfId);
   status->intfReadyForRxPacketIs(false);
   status->intfReadyForTxPacketIs(false);
   trace(7, "intfId: {}, invalidated hw ready: intfReadyForRxPacket: {}, intfReadyForTxPacket: {}", intfId,
         status->intfReadyForRxPacket(), status->intfReadyForTxPacket());
   processIntfReady(intfId);
}

void VyrPtpHwStatusFapSm::handleIntfReadyForPacket(IntfId intfId) { trace(8, "intfId: {}", intfId); }

void VyrPtpHwStatusFapSm::handleTimeSyncStatus() {
   trace(8, "timeSyncStatus: {}", timeSyncStatus_ ? int(timeSyncStatus_->state()) : -1);
}

void VyrPtpHwStatusFapSm::handleAsicTimestampFileStatus() {
   trace(8, "asicTimestampFileStatus ready: {}", asicTimestampFileStatus_ && asicTimestampFileStatus_->ready());
}

void VyrPtpHwStatusFapSm::processIntfReady(IntfId intfId) {
   trace(8, "intfId: {}", intfId);
   const PtpTimestampLocationIntfConfig* entry = externalPhyTimestampLocationConfig_->enabledPhysicalIntfConfig(intfId);
   const Ptp::HwIntfConfig* config = ptpHwConfig_->intfConfig(intfId);
   bool rx = false;
   bool tx = false;
   if (!config || !config->enabled()) {
      // not enabled: not ready
   } else if (entry && entry->location() != Ptp::Location::Location::chip) {
      const PtpTimestampIntfStatus* phy =
          ptpTimestampingStatus_ ? ptpTimestampingStatus_->physicalIntfStatus(intfId) : nullptr;
      if (phy) {
         rx = phy->intfReadyForRx();
         tx = phy->intfReadyForTx();
         trace(7, "intfId: {}, externalPhy: intfRxReady: {}, intfTxReady: {}", intfId, rx, tx);
      }
   } else {
      rx = tx = externalPhyHardwareStopped(intfId) && asicHardwareReady();
      trace(7, "intfId: {}, asic: asicReady: {}", intfId, rx);
   }
   trace(7, "intfId: {}, timestampLocation: {}, intfReadyForRx: {}, intfReadyForTx: {}", intfId,
         entry ? entry->location() : Ptp::Location::Location::chip, rx, tx);
   const Pondo::Ptr<Ptp::HwIntfStatus> status = getIntfStatus(intfId);
   status->intfReadyForRxPacketIs(rx);
   status->intfReadyForTxPacketIs(tx);
}

// The interfaces are taken first: readers of the hardware status react while the pass goes on.
void VyrPtpHwStatusFapSm::processIntfReady() {
   if (!unitPortFapInfo_) return;
   const std::vector<IntfId> intfs(unitPortFapInfo_->intfInfo().begin(), unitPortFapInfo_->intfInfo().end());
   for (IntfId intfId : intfs) processIntfReady(intfId);
}

// --- VyrPtpHwStatusSm ---------------------------------------------------------------------

// A cleared notifier replays its chips as removed, with no source.
void VyrPtpHwStatusSm::NestedSm_TimeSyncHwStatus::handleSwitchAsic(const Pondo::String& chipName) {
   ownerSm()->handleTimeSyncHwStatus(sliceName_, chipName);
   ownerSm()->maybeSetTimeSyncStatus(sliceName_, chipName);
}

void VyrPtpHwStatusSm::NestedSm_TimeSyncHwStatus::handleState(const PtpTimeSync::SwitchStatus& chip) {
   handleSwitchAsic(chip.name());
}

VyrPtpHwStatusSm::VyrPtpHwStatusSm(Pondo::Ptr<const PlatformUnitPortInfo> unitPortInfo,
                                   Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                   Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
                                   Pondo::Ptr<const Kiv::Dir> ptpTimestampingStatusDir,
                                   Pondo::Ptr<const Kiv::Dir> timeSyncHwStatusDir, bool timeSyncSupported,
                                   Pondo::Ptr<Ptp::HwStatus> ptpHwStatus)
    : unitPortInfo_(this, Kiv::nonNull(unitPortInfo, "unitPortInfo"),
                    Kiv::on<PlatformUnitPortInfo::fapInfo_t, &VyrPtpHwStatusSm::handleFapId>),
      ptpHwConfig_(Kiv::nonNull(ptpHwConfig, "ptpHwConfig")),
      externalPhyTimestampLocationConfig_(
          Kiv::nonNull(externalPhyTimestampLocationConfig, "externalPhyTimestampLocationConfig")),
      ptpTimestampingStatusDir_(this, Kiv::nonNull(ptpTimestampingStatusDir, "ptpTimestampingStatusDir"),
                                Kiv::on<Kiv::Dir::entityPtr_t, &VyrPtpHwStatusSm::handlePtpTimestampingStatusDir>),
      timeSyncHwStatusDir_(this, Kiv::nonNull(timeSyncHwStatusDir, "timeSyncHwStatusDir"),
                           Kiv::on<Kiv::Dir::entityPtr_t, &VyrPtpHwStatusSm::handleTimeSyncHwStatusDir>),
      timeSyncSupported_(timeSyncSupported),
      ptpHwStatus_(Kiv::nonNull(ptpHwStatus, "ptpHwStatus")) {}

Pondo::String VyrPtpHwStatusSm::phyIslandName(const Pondo::String& sliceName) {
   return Pondo::String(phyIslandPrefix) + Utils::genericSliceName(sliceName);
}

void VyrPtpHwStatusSm::handlePtpTimestampingStatusDir(const Pondo::String& name) {
   handlePtpTimestampingStatus(name);
   maybeSetPtpTimestampStatus(name);
}

// An entity added, replaced or removed: the watcher of that slice follows the
// new entity (replaying its chips) or, cleared first, replays the old one's
// chips as removed and goes.
void VyrPtpHwStatusSm::handleTimeSyncHwStatusDir(const Pondo::String& sliceName) {
   const Pondo::Ptr<const PtpTimeSync::HwStatus> hwStatus =
       dynamic_cast<const PtpTimeSync::HwStatus*>(timeSyncHwStatusDir_->entityPtr(sliceName));
   if (NestedSm_TimeSyncHwStatus* sm = timeSyncHwStatusSm_.find(sliceName)) {
      sm->notifierIs(hwStatus);
      if (!hwStatus) timeSyncHwStatusSm_.del(sliceName);
   } else if (hwStatus) {
      timeSyncHwStatusSm_.insert(sliceName, Kiv::make<NestedSm_TimeSyncHwStatus>(hwStatus, this, sliceName));
   }
}

Pondo::Ptr<VyrPtpHwStatusFapSm> VyrPtpHwStatusSm::hwStatusFapSmIs(FapId fapId,
                                                                  Pondo::Ptr<const PlatformUnitPortFapInfo> info) {
   return hwStatusFapSm_.isFrom(fapId, std::move(info), ptpHwConfig_, externalPhyTimestampLocationConfig_,
                                timeSyncSupported_, ptpHwStatus_);
}

// The initial walk of the chips runs as the inputs are bound: each chip gets
// its machine, then its island and time-sync status from the directories.
void VyrPtpHwStatusSm::handleFapId(FapId fapId) {
   trace(8, "fapId: {}", fapId);
   const Pondo::Ptr<const PlatformUnitPortFapInfo> info = unitPortInfo_->fapInfo(fapId);
   if (!info) {
      trace(7, "removal: {}", fapId);
      hwStatusFapSmDel(fapId);
      return;
   }
   trace(7, "creation: {}", fapId);
   hwStatusFapSmIs(fapId, info);
   maybeSetPtpTimestampStatus(phyIslandName(info->sliceName()));
   maybeSetTimeSyncStatus(info->sliceName(), info->chipName());
}

void VyrPtpHwStatusSm::handlePtpTimestampingStatus(const Pondo::String& name) { trace(8, "{}", name); }

// Chips on slices of one kind share one island entity. The machines are
// picked first: setting their status starts readiness passes whose readers
// may change the chip list.
void VyrPtpHwStatusSm::maybeSetPtpTimestampStatus(const Pondo::String& name) {
   trace(8, "name: {}", name);
   const Pondo::Ptr<const PtpTimestampStatus> island =
       dynamic_cast<const PtpTimestampStatus*>(ptpTimestampingStatusDir_->entityPtr(name));
   std::vector<std::pair<Pondo::Ptr<VyrPtpHwStatusFapSm>, Pondo::Ptr<const PlatformUnitPortFapInfo>>> chips;
   for (const auto& [fapId, info] : unitPortInfo_->fapInfo()) {
      VyrPtpHwStatusFapSm* sm = hwStatusFapSm(fapId);
      if (sm && phyIslandName(info->sliceName()) == name) chips.emplace_back(sm, info);
   }
   for (const auto& [sm, info] : chips) {
      trace(7, "fapId: {}, sliceName: {}", info->fapId(), info->sliceName());
      sm->ptpTimestampingStatusIs(island);
   }
}

void VyrPtpHwStatusSm::handleTimeSyncHwStatus(const Pondo::String& sliceName, const Pondo::String& chipName) {
   trace(8, "{}, {}", sliceName, chipName);
}

void VyrPtpHwStatusSm::maybeSetTimeSyncStatus(const Pondo::String& sliceName, const Pondo::String& chipName) {
   trace(8, "sliceName: {}, chipName: {}", sliceName, chipName);
   const auto* hwStatus = dynamic_cast<const PtpTimeSync::HwStatus*>(timeSyncHwStatusDir_->entityPtr(sliceName));
   const Pondo::Ptr<const PtpTimeSync::SwitchStatus> switchStatus = hwStatus ? hwStatus->switchAsic(chipName) : nullptr;
   std::vector<std::pair<Pondo::Ptr<VyrPtpHwStatusFapSm>, FapId>> chips;
   for (const auto& [fapId, info] : unitPortInfo_->fapInfo()) {
      VyrPtpHwStatusFapSm* sm = hwStatusFapSm(fapId);
      if (sm && info->sliceName() == sliceName && info->chipName() == chipName) chips.emplace_back(sm, fapId);
   }
   for (const auto& [sm, fapId] : chips) {
      trace(7, "fapId: {}, sliceName: {}, chipName: {}", fapId, sliceName, chipName);
      sm->timeSyncStatusIs(switchStatus);
   }
}

// --- Factories ---------------------------------------------------------------------------------

Pondo::Ptr<VyrPtpHwStatusFapSm> vyrPtpHwStatusFapSmFactory(
    Pondo::Ptr<const PlatformUnitPortFapInfo> unitPortFapInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig, bool timeSyncSupported,
    Pondo::Ptr<Ptp::HwStatus> ptpHwStatus) {
   return Kiv::make<VyrPtpHwStatusFapSm>(std::move(unitPortFapInfo), std::move(ptpHwConfig),
                                         std::move(externalPhyTimestampLocationConfig), timeSyncSupported,
                                         std::move(ptpHwStatus));
}

Pondo::Ptr<VyrPtpHwStatusFapSm> VyrPtpHwStatusFapSmIs(
    Pondo::Ptr<const PlatformUnitPortFapInfo> unitPortFapInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig, bool timeSyncSupported,
    Pondo::Ptr<Ptp::HwStatus> ptpHwStatus) {
   return vyrPtpHwStatusFapSmFactory(std::move(unitPortFapInfo), std::move(ptpHwConfig),
                                     std::move(externalPhyTimestampLocationConfig), timeSyncSupported,
                                     std::move(ptpHwStatus));
}

Pondo::Ptr<VyrPtpHwStatusSm> vyrPtpHwStatusSmFactory(
    Pondo::Ptr<const PlatformUnitPortInfo> unitPortInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const Kiv::Dir> ptpTimestampingStatusDir, Pondo::Ptr<const Kiv::Dir> timeSyncHwStatusDir,
    bool timeSyncSupported, Pondo::Ptr<Ptp::HwStatus> ptpHwStatus) {
   return Kiv::make<VyrPtpHwStatusSm>(
       std::move(unitPortInfo), std::move(ptpHwConfig), std::move(externalPhyTimestampLocationConfig),
       std::move(ptpTimestampingStatusDir), std::move(timeSyncHwStatusDir), timeSyncSupported, std::move(ptpHwStatus));
}

Pondo::Ptr<VyrPtpHwStatusSm> VyrPtpHwStatusSmIs(
    Pondo::Ptr<const PlatformUnitPortInfo> unitPortInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const Kiv::Dir> ptpTimestampingStatusDir, Pondo::Ptr<const Kiv::Dir> timeSyncHwStatusDir,
    bool timeSyncSupported, Pondo::Ptr<Ptp::HwStatus> ptpHwStatus) {
   return vyrPtpHwStatusSmFactory(std::move(unitPortInfo), std::move(ptpHwConfig),
                                  std::move(externalPhyTimestampLocationConfig), std::move(ptpTimestampingStatusDir),
                                  std::move(timeSyncHwStatusDir), timeSyncSupported, std::move(ptpHwStatus));
}

Pondo::Ptr<VyrPtpHwStatusSm::NestedSm_TimeSyncHwStatus> nestedSm_TimeSyncHwStatusFactory(
    Pondo::Ptr<const PtpTimeSync::HwStatus> hwStatus, VyrPtpHwStatusSm* owner, Pondo::String sliceName) {
   return Kiv::make<VyrPtpHwStatusSm::NestedSm_TimeSyncHwStatus>(std::move(hwStatus), owner, std::move(sliceName));
}

Pondo::Ptr<VyrPtpHwStatusSm::NestedSm_TimeSyncHwStatus> NestedSm_TimeSyncHwStatusIs(
    Pondo::Ptr<const PtpTimeSync::HwStatus> hwStatus, VyrPtpHwStatusSm* owner, Pondo::String sliceName) {
   return nestedSm_TimeSyncHwStatusFactory(std::move(hwStatus), owner, std::move(sliceName));
}

}  // namespace VyrPtp::Location
