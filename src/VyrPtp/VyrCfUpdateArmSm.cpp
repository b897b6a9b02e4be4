#include "VyrPtp/VyrCfUpdateArmSm.h"

namespace CorrectionField {

namespace {

Kiv::Tracer trace{"VyrCfUpdateArmSm"};

using Wyx::IntfId;

Asic::RxCfControlEntry rxRow(const PlatformCfUpdateIntfInfo& info) {
   return {.ingressCfUpdateEnable = info.ingressCfUpdateEnable(),
           .forceItsSignFromTs = info.ingressForceItsSignFromTs()};
}

// The one two-step flag enables every two-step path of the chip.
Asic::TxCfControlEntry txRow(const PlatformCfUpdateIntfInfo& info) {
   const std::uint8_t twoStep = info.twoStepTsCfUpdateEnable();
   return {.egressCfUpdateMode = info.egressCfUpdateMode(),
           .dropInvalid1588Pkt = info.egressDropInvalid1588Pkt(),
           .twoStepTsCfUpdateEnable = {twoStep, twoStep, twoStep, twoStep}};
}

// Whether the rows enable any correction-field handling (cfUpdateBits is not programmed).
bool enablesAny(const PlatformCfUpdateIntfInfo& info) {
   return info.ingressCfUpdateEnable() || info.egressCfUpdateMode() != EgressCFUpdateMode::none ||
          info.egressDropInvalid1588Pkt() || info.twoStepTsCfUpdateEnable() || info.ingressForceItsSignFromTs();
}

}  // namespace

// --- NestedSm_IntfInfo ---------------------------------------------------------------------

NestedSm_IntfInfo::NestedSm_IntfInfo(Pondo::Ptr<const PlatformCfUpdateIntfInfo> intfInfo,
                                     VyrCfUpdateLogicalFapArmSm* owner)
    : NestedSm(Kiv::nonNull(intfInfo, "intfInfo"), owner,
               Kiv::on<PlatformCfUpdateIntfInfo::generation_t, &NestedSm_IntfInfo::handleGeneration>,
               Kiv::onSelf<&NestedSm_IntfInfo::handleBinding>) {}

void NestedSm_IntfInfo::handleGeneration() { program(); }

void NestedSm_IntfInfo::handleBinding(const PlatformCfUpdateIntfInfo*, bool) {
   if (intfInfo()) program();
}

void NestedSm_IntfInfo::program() const {
   if (VyrCfUpdateLogicalFapArmSm* owner = ownerSm()) owner->programIntf(intfInfo()->intfId());
}

// --- VyrCfUpdateLogicalFapArmSm --------------------------------------------------------------

VyrCfUpdateLogicalFapArmSm::VyrCfUpdateLogicalFapArmSm(
    Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> cfUpdateLogicalFapInfo,
    Pondo::Ptr<Statebase::EntityManager> statebaseEm, Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateStatus)
    : cfUpdateLogicalFapInfo_(
          this, Kiv::nonNull(cfUpdateLogicalFapInfo, "cfUpdateLogicalFapInfo"),
          Kiv::on<PlatformCfUpdateLogicalFapInfo::intfInfo_t, &VyrCfUpdateLogicalFapArmSm::handleIntfInfo>),
      statebaseEm_(std::move(statebaseEm)),
      cfUpdateStatus_(Kiv::nonNull(cfUpdateStatus, "cfUpdateStatus")) {}

// Interfaces coming and going; generation changes reach the nested machines.
// The interfaces present at construction are taken up by onConstruct, once
// the tables exist.
void VyrCfUpdateLogicalFapArmSm::handleIntfInfo(IntfId intfId) {
   if (!initialized()) return;
   if (const PlatformCfUpdateIntfInfo* info = cfUpdateLogicalFapInfo_->intfInfo(intfId)) {
      intfInfoIs(info);
   } else {
      intfInfoDel(intfId);
   }
}

void VyrCfUpdateLogicalFapArmSm::handleInitialized() {
   trace(8, "logicalFapId: {}", logicalFapId());
   const Pondo::Ptr<const Asic::GenericIf>& gif = cfUpdateLogicalFapInfo_->chipInfoGif();
   Kiv::kassert(gif, "Missing required chipInfoGif");
   auto rx = Asic::rxCfControlTableFactory();
   rx->doInit(logicalFapId(), statebaseEm_, gif);
   rx->doPublishHwTableMountInfo();
   set(rxCfControlTable_, std::move(rx), F::rxCfControlTable);
   auto tx = Asic::txCfControlTableFactory();
   tx->doInit(logicalFapId(), statebaseEm_, gif);
   tx->doPublishHwTableMountInfo();
   set(txCfControlTable_, std::move(tx), F::txCfControlTable);
   programAllIntfs();
}

// Each new nested machine programs its interface once more: at start every
// interface is written twice, and that is kept.
void VyrCfUpdateLogicalFapArmSm::onConstruct() {
   for (const auto& [intfId, info] : cfUpdateLogicalFapInfo_->intfInfo()) intfInfoIs(info);
}

// The rows stay as they are: only the programmed set is emptied.
void VyrCfUpdateLogicalFapArmSm::onDestruct() {
   trace(8, "logicalFapId: {}", logicalFapId());
   cfUpdateStatus_->programmedIntfDelAll();
}

Pondo::Ptr<NestedSm_IntfInfo> VyrCfUpdateLogicalFapArmSm::intfInfoIs(
    const Pondo::Ptr<const PlatformCfUpdateIntfInfo>& intfInfo) {
   Kiv::nonNull(intfInfo, "intfInfo");
   if (NestedSm_IntfInfo* sm = intfInfo_.find(intfInfo->intfId())) {
      sm->notifierIs(intfInfo);
      return sm;
   }
   return intfInfo_.insert(intfInfo->intfId(), Kiv::make<NestedSm_IntfInfo>(intfInfo, this));
}

Pondo::Ptr<NestedSm_IntfInfo> VyrCfUpdateLogicalFapArmSm::intfInfoDel(IntfId i) {
   if (NestedSm_IntfInfo* sm = intfInfo_.find(i)) sm->hasNotificationActiveIs(false);
   return intfInfo_.del(i);
}

void VyrCfUpdateLogicalFapArmSm::programAllIntfs() {
   trace(8, "logicalFapId: {}", logicalFapId());
   for (const auto& [intfId, info] : cfUpdateLogicalFapInfo_->intfInfo()) programIntf(intfId);
}

// An all-zero row is written too: that is how an interface is switched off.
void VyrCfUpdateLogicalFapArmSm::programIntf(IntfId intfId) {
   trace(8, "for intf: {}", intfId);
   const PlatformCfUpdateIntfInfo* info = cfUpdateLogicalFapInfo_->intfInfo(intfId);
   if (!info) {
      trace(6, "No intf info for {}, skipping programming", intfId);
      return;
   }
   if (!info->generation().flag) {
      // The hardware keeps whatever was written before.
      trace(6, "Invalid generation for {} intf info", intfId);
      unprogrammed(intfId);
      return;
   }
   rxCfControlTable_->entryCommit(info->swTableIndex(), rxRow(*info));
   txCfControlTable_->entryCommit(info->swTableIndex(), txRow(*info));
   if (enablesAny(*info)) {
      trace(6, "Adding {} to programmed intf set", intfId);
      cfUpdateStatus_->programmedIntfIs(intfId);
   } else {
      unprogrammed(intfId);
   }
}

void VyrCfUpdateLogicalFapArmSm::unprogrammed(IntfId intfId) {
   trace(6, "Removing {} from programmed intf set", intfId);
   cfUpdateStatus_->programmedIntfDel(intfId);
}

// --- NestedSm_LogicalFapStatusWatcher ----------------------------------------------------------

// Replays of the binding arrive before the machine is initialized and are not changes.
void NestedSm_LogicalFapStatusWatcher::handleProgrammedIntf(IntfId) {
   if (!initialized()) return;
   if (parent()) ownerSm()->handleProgrammedStatus();
}

// --- VyrCfUpdateArmSm ----------------------------------------------------------------------------

VyrCfUpdateArmSm::VyrCfUpdateArmSm(Pondo::Ptr<const PlatformCfUpdateInfo> cfUpdateInfo,
                                   Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                                   Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus)
    : cfUpdateInfo_(this, Kiv::nonNull(cfUpdateInfo, "cfUpdateInfo"),
                    Kiv::on<PlatformCfUpdateInfo::logicalFapInfo_t, &VyrCfUpdateArmSm::on_logicalFapInfo>),
      statebaseEm_(std::move(statebaseEm)),
      programmerStatus_(Kiv::nonNull(programmerStatus, "programmerStatus")) {}

void VyrCfUpdateArmSm::handleInitialized() { handleLogicalFapInfo(); }

void VyrCfUpdateArmSm::handleLogicalFapInfo() {
   trace(8, "for all logicalFapIds");
   for (const auto& [id, info] : cfUpdateInfo_->logicalFapInfo()) handleLogicalFapInfo(id);
}

// Logical FAPs coming and going; changes inside them are their machines'
// business, and those arriving while the machine is built are left to
// handleInitialized.
void VyrCfUpdateArmSm::on_logicalFapInfo(LogicalFapId logicalFapId) {
   if (initialized()) handleLogicalFapInfo(logicalFapId);
}

// The chip machine goes before its record: its teardown empties the record,
// which re-evaluates "CF_UPDATE" through the watcher.
void VyrCfUpdateArmSm::handleLogicalFapInfo(LogicalFapId logicalFapId) {
   trace(8, "for logicalFapId: {}", logicalFapId);
   if (const PlatformCfUpdateLogicalFapInfo* info = cfUpdateInfo_->logicalFapInfo(logicalFapId)) {
      Pondo::Ptr<CfUpdateProgrammedStatus> status = logicalFapStatusIs(logicalFapId);
      logicalFapSmIs(info, statebaseEm_, status);
   } else {
      logicalFapSmDel(logicalFapId);
      logicalFapStatusDel(logicalFapId);
   }
}

// Written every time, also when nothing changed.
void VyrCfUpdateArmSm::handleProgrammedStatus() {
   trace(8, "handleProgrammedStatus");
   for (const auto& [id, status] : logicalFapStatus_) {
      if (!status->programmedIntf().empty()) {
         trace(7, "Adding CF_UPDATE to active programmers");
         programmerStatus_->programmerActiveIs(programmerType);
         return;
      }
   }
   trace(7, "Removing CF_UPDATE from active programmers");
   programmerStatus_->programmerActiveDel(programmerType);
}

Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> VyrCfUpdateArmSm::logicalFapSmIs(
    Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> logicalFapInfo, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<CfUpdateProgrammedStatus> status) {
   Kiv::nonNull(logicalFapInfo, "logicalFapInfo");
   const LogicalFapId id = logicalFapInfo->logicalFapId();
   return logicalFapSm_.isFrom(id, std::move(logicalFapInfo), std::move(statebaseEm), std::move(status));
}

Pondo::Ptr<CfUpdateProgrammedStatus> VyrCfUpdateArmSm::logicalFapStatusIs(LogicalFapId id) {
   Pondo::Ptr<CfUpdateProgrammedStatus> status = logicalFapStatus_.is(id);
   logicalFapStatusWatcherIs(status);
   return status;
}

Pondo::Ptr<CfUpdateProgrammedStatus> VyrCfUpdateArmSm::logicalFapStatusDel(LogicalFapId id) {
   logicalFapStatusWatcherDel(id);
   return logicalFapStatus_.del(id);
}

Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> VyrCfUpdateArmSm::logicalFapStatusWatcherIs(
    const Pondo::Ptr<const CfUpdateProgrammedStatus>& status) {
   Kiv::nonNull(status, "status");
   return logicalFapStatusWatcher_.isFrom(status->logicalFapId(), status, this);
}

Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> VyrCfUpdateArmSm::logicalFapStatusWatcherDel(LogicalFapId id) {
   if (NestedSm_LogicalFapStatusWatcher* w = logicalFapStatusWatcher_.find(id)) w->hasNotificationActiveIs(false);
   return logicalFapStatusWatcher_.del(id);
}

// --- Factories -----------------------------------------------------------------------------------

Pondo::Ptr<VyrCfUpdateArmSm> vyrCfUpdateArmSmFactory(Pondo::Ptr<const PlatformCfUpdateInfo> cfUpdateInfo,
                                                     Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                                                     Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus) {
   return Kiv::make<VyrCfUpdateArmSm>(std::move(cfUpdateInfo), std::move(statebaseEm), std::move(programmerStatus));
}

Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> vyrCfUpdateLogicalFapArmSmFactory(
    Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> cfUpdateLogicalFapInfo,
    Pondo::Ptr<Statebase::EntityManager> statebaseEm, Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateStatus) {
   return Kiv::make<VyrCfUpdateLogicalFapArmSm>(std::move(cfUpdateLogicalFapInfo), std::move(statebaseEm),
                                                std::move(cfUpdateStatus));
}

Pondo::Ptr<NestedSm_IntfInfo> nestedSm_IntfInfoFactory(Pondo::Ptr<const PlatformCfUpdateIntfInfo> intfInfo,
                                                       VyrCfUpdateLogicalFapArmSm* owner) {
   return Kiv::make<NestedSm_IntfInfo>(std::move(intfInfo), owner);
}

Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> nestedSm_LogicalFapStatusWatcherFactory(
    Pondo::Ptr<const CfUpdateProgrammedStatus> status, VyrCfUpdateArmSm* owner) {
   return Kiv::make<NestedSm_LogicalFapStatusWatcher>(std::move(status), owner);
}

Pondo::Ptr<VyrCfUpdateArmSm> VyrCfUpdateArmSmIs(Pondo::Ptr<const PlatformCfUpdateInfo> cfUpdateInfo,
                                                Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                                                Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus) {
   return vyrCfUpdateArmSmFactory(std::move(cfUpdateInfo), std::move(statebaseEm), std::move(programmerStatus));
}

Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> VyrCfUpdateLogicalFapArmSmIs(
    Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> cfUpdateLogicalFapInfo,
    Pondo::Ptr<Statebase::EntityManager> statebaseEm, Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateStatus) {
   return vyrCfUpdateLogicalFapArmSmFactory(std::move(cfUpdateLogicalFapInfo), std::move(statebaseEm),
                                            std::move(cfUpdateStatus));
}

Pondo::Ptr<NestedSm_IntfInfo> NestedSm_IntfInfoIs(Pondo::Ptr<const PlatformCfUpdateIntfInfo> intfInfo,
                                                  VyrCfUpdateLogicalFapArmSm* owner) {
   return nestedSm_IntfInfoFactory(std::move(intfInfo), owner);
}

Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> NestedSm_LogicalFapStatusWatcherIs(
    Pondo::Ptr<const CfUpdateProgrammedStatus> status, VyrCfUpdateArmSm* owner) {
   return nestedSm_LogicalFapStatusWatcherFactory(std::move(status), owner);
}

}  // namespace CorrectionField
