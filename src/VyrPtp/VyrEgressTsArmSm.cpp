#include "VyrPtp/VyrEgressTsArmSm.h"

#include "Platform/ProductAttributes.h"

namespace VyrPtp {

namespace {

Kiv::Tracer trace{"VyrEgressTsArmSm"};

using Wyx::IntfId;

}  // namespace

// --- VyrEgressTsArmLogicalFapSm ------------------------------------------------------

VyrEgressTsArmLogicalFapSm::VyrEgressTsArmLogicalFapSm(
    LogicalFapId logicalFapId, Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> tsLogicalFapInfo,
    Pondo::Ptr<TimestampFetcherBase> timestampFetcher, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint, Pondo::Ptr<Brim::TimerWheel> timerWheel)
    : logicalFapId_(logicalFapId),
      egressTimestampIntfStatus_(this, Kiv::nonNull(egressTimestampIntfStatus, "egressTimestampIntfStatus"),
                                 Kiv::on<EgressTimestampIntfStatus::physicalIntfNeedsPolling_t,
                                         &VyrEgressTsArmLogicalFapSm::on_physicalIntfNeedsPolling>),
      tsLogicalFapInfo_(this, Kiv::nonNull(tsLogicalFapInfo, "tsLogicalFapInfo"),
                        Kiv::on<PlatformEgressTsLogicalFapInfo::intfInfo_t, &VyrEgressTsArmLogicalFapSm::on_intfInfo>),
      timestampFetcher_(Kiv::nonNull(timestampFetcher, "timestampFetcher")),
      statebaseEm_(std::move(statebaseEm)),
      timestampGlint_(Kiv::nonNull(timestampGlint, "timestampGlint")),
      timerWheel_(Kiv::nonNull(timerWheel, "timerWheel")),
      kivTimerWheel_(timerWheel_, [this] { run([this] { handleTimer(); }); }) {}

// Changes heard during construction are ignored: onConstruct walks both inputs
// once the table exists.
void VyrEgressTsArmLogicalFapSm::on_physicalIntfNeedsPolling(IntfId intfId) {
   if (!egressTsTable_) return;
   handlePhysicalIntfNeedsPolling(intfId);
}

void VyrEgressTsArmLogicalFapSm::on_intfInfo(IntfId intfId) {
   polledStale_ = true;
   if (egressTsTable_) handleIntfInfo(intfId);
}

void VyrEgressTsArmLogicalFapSm::onConstruct() {
   trace(8, "logicalFapId: {}", logicalFapId_);
   const Pondo::Ptr<const Asic::GenericIf>& gif = tsLogicalFapInfo_->chipInfoGif();
   Kiv::kassert(gif, "tsLogicalFapInfo()->chipInfoGif()");
   auto table = Kiv::make<Asic::EgressTimestampTable>();
   table->doInit(gif->chipInfo().unit(), statebaseEm_, gif);
   table->publishMountInfo();
   set(egressTsTable_, std::move(table), F::egressTsTable);
   kivTimerWheel_.timeMinIs(Kiv::currentTime());
   // The inputs in their declaration order: the decisions, then the chip's interfaces.
   handlePhysicalIntfNeedsPolling();
   handleIntfInfo();
}

// Completions must not reach a machine that is gone.
void VyrEgressTsArmLogicalFapSm::onDestruct() {
   if (egressTsTable_) egressTsTable_->readsCancel();
}

void VyrEgressTsArmLogicalFapSm::handlePhysicalIntfNeedsPolling(IntfId intfId) { checkAllInputsPresent(intfId); }

void VyrEgressTsArmLogicalFapSm::handlePhysicalIntfNeedsPolling() {
   for (IntfId i : egressTimestampIntfStatus_->physicalIntfNeedsPolling()) handlePhysicalIntfNeedsPolling(i);
}

void VyrEgressTsArmLogicalFapSm::handleIntfInfo(IntfId intfId) { checkAllInputsPresent(intfId); }

void VyrEgressTsArmLogicalFapSm::handleIntfInfo() {
   for (const auto& [i, info] : tsLogicalFapInfo_->intfInfo()) handleIntfInfo(i);
}

// Enabling drains first, whatever the interface's state: polling starts once
// the slot's stale entries are gone. The slot-to-interface map is kept.
void VyrEgressTsArmLogicalFapSm::checkAllInputsPresent(IntfId intfId) {
   trace(8, "logicalFapId: {}, intfId: {}", logicalFapId_, intfId);
   if (!tsLogicalFapInfo_->intfInfo(intfId)) {
      trace(5, "{} not in this FAP, skipping", intfId);
      pollInterfaceDel(intfId);
      drainInterfaceDel(intfId);
      return;
   }
   if (egressTimestampIntfStatus_->physicalIntfNeedsPolling().contains(intfId)) {
      trace(5, "Enabling polling for {}", intfId);
      drainInterfaceIs(intfId, U3(0));
      return;
   }
   trace(5, "Disabling polling for {}", intfId);
   pollInterfaceDel(intfId);
   drainInterfaceDel(intfId);
}

void VyrEgressTsArmLogicalFapSm::drainInterfaceIs(IntfId i, U3 iteration) {
   const U3* stored = drainInterface_.find(i);
   if (stored && *stored == iteration) return;
   drainInterface_.is(i, iteration);
   handleDrainInterface(i);
}

U3 VyrEgressTsArmLogicalFapSm::drainInterfaceInc(IntfId i, U3 n) {
   const U3* stored = drainInterface_.find(i);
   const U3 next((stored ? stored->value() : 0) + n.value());
   drainInterfaceIs(i, next);
   return next;
}

void VyrEgressTsArmLogicalFapSm::pollInterfaceIs(IntfId i) {
   pollInterface_.is(i);
   polledStale_ = true;
}

bool VyrEgressTsArmLogicalFapSm::pollInterfaceDel(IntfId i) {
   polledStale_ = true;
   return pollInterface_.del(i);
}

void VyrEgressTsArmLogicalFapSm::pollInterfaceDelAll() {
   pollInterface_.delAll();
   polledStale_ = true;
}

// Writing the present value changes nothing, so it is not written: the poll
// sets the same slots to the same interfaces on every tick.
void VyrEgressTsArmLogicalFapSm::swIndexToIntfIs(const Key& key, IntfId i) {
   const IntfId* present = swIndexToIntf_.find(key);
   if (present && *present == i) return;
   swIndexToIntf_.is(key, i);
   ++swIndexWrites_;
}

bool VyrEgressTsArmLogicalFapSm::swIndexToIntfDel(const Key& key) {
   ++swIndexWrites_;
   return swIndexToIntf_.del(key);
}

void VyrEgressTsArmLogicalFapSm::swIndexToIntfDelAll() {
   ++swIndexWrites_;
   swIndexToIntf_.delAll();
}

IntfId VyrEgressTsArmLogicalFapSm::swIndexToIntf(const Key& key) const {
   const IntfId* i = swIndexToIntf_.find(key);
   return i ? *i : IntfId();
}

VyrEgressTsArmLogicalFapSm::Key VyrEgressTsArmLogicalFapSm::swTableKey(IntfId intfId) const {
   const PlatformEgressTsIntfInfo* info = tsLogicalFapInfo_->intfInfo(intfId);
   return info ? info->swTableIndex : Key{};
}

void VyrEgressTsArmLogicalFapSm::assertKeyMatches(const Key& key, IntfId intfId) const {
   Kiv::kassert(key == swTableKey(intfId), "swIndex == tsLogicalFapInfo()->intfInfo( intfId ).swTableIndex()");
}

void VyrEgressTsArmLogicalFapSm::handleDrainInterface(IntfId intfId) {
   trace(8, "logicalFapId: {}, intfId: {}", logicalFapId_, intfId);
   if (drainInterface_.contains(intfId)) sendFifoDrainReadReq(intfId);
}

void VyrEgressTsArmLogicalFapSm::sendFifoDrainReadReq(IntfId intfId) {
   trace(8, "logicalFapId: {}, intfId: {}", logicalFapId_, intfId);
   const Key key = swTableKey(intfId);
   swIndexToIntfIs(key, intfId);
   if (egressTsTable_) {
      egressTsTable_->read(key, [this](const Key& k, const Entry& e, std::uint32_t) { callbackDrainFifo(k, e); });
   }
}

// Drained entries are dropped. Nothing guards against a completion that
// arrives after the interface was disabled: it starts draining it again.
void VyrEgressTsArmLogicalFapSm::callbackDrainFifo(const Key& key, const Entry& entry) {
   trace(6, "logicalFapId: {}, swTableKey: (index: {}, portType: {})", logicalFapId_, key.index, key.portType);
   const IntfId intfId = swIndexToIntf(key);
   assertKeyMatches(key, intfId);
   const U3* stored = drainInterface_.find(intfId);
   const U3 drainIteration = stored ? *stored : U3(0);
   trace(6, "valid timestamp entry: {}, drainIteration: {}", entry.valid, drainIteration);
   if (entry.valid && drainIteration.value() <= lastDrainIterationToContinue) {
      drainInterfaceInc(intfId, U3(1));
      return;
   }
   drainInterfaceDel(intfId);
   pollInterfaceIs(intfId);
}

// The 1 ms advance is intended: with the wheel's rounding it makes a 4 ms period.
void VyrEgressTsArmLogicalFapSm::handleTimer() {
   trace(9, "logicalFapId: {}", logicalFapId_);
   sendEgressTimestampReadReq();
   const Kiv::Seconds expiryTime = pollingPeriod_ + Kiv::currentTime() - expiryAdvance;
   trace(6, "expiryTime for logicalFapId: {} is {}", logicalFapId_, expiryTime);
   kivTimerWheel_.timeMinIs(expiryTime);
}

// Both collections are in interface order: each polled interface's info is
// found by walking the infos alongside, without a look-up per interface.
void VyrEgressTsArmLogicalFapSm::polledRebuild() {
   polled_.clear();
   const auto& intfInfo = tsLogicalFapInfo_->intfInfo();
   auto info = intfInfo.begin();
   for (IntfId intfId : pollInterface_) {
      while (info != intfInfo.end() && (*info).first < intfId) ++info;
      const Key key = info != intfInfo.end() && (*info).first == intfId ? (*info).second.swTableIndex : Key{};
      polled_.push_back({intfId, key, 0});
   }
   polledStale_ = false;
}

void VyrEgressTsArmLogicalFapSm::sendEgressTimestampReadReq() {
   trace(9, "logicalFapId: {}", logicalFapId_);
   pollSimulation_ = simulation();
   if (polledStale_) polledRebuild();
   for (std::uint32_t request = 0; request < polled_.size(); ++request) {
      Polled& p = polled_[request];
      trace(7, "intfId: {}, swIndex: {}", p.intf, p.key);
      if (p.mapped != swIndexWrites_) {
         swIndexToIntfIs(p.key, p.intf);
         p.mapped = swIndexWrites_;
      }
      if (egressTsTable_) {
         egressTsTable_->read(
             p.key, [this](const Key& k, const Entry& e, std::uint32_t r) { callbackTimestamp(k, e, r); }, request);
      }
   }
}

const VyrEgressTsArmLogicalFapSm::Polled* VyrEgressTsArmLogicalFapSm::unchangedSinceIssue(const Key& key,
                                                                                          std::uint32_t request) const {
   if (polledStale_ || request >= polled_.size()) return nullptr;
   const Polled& p = polled_[request];
   return p.key == key && p.mapped == swIndexWrites_ ? &p : nullptr;
}

void VyrEgressTsArmLogicalFapSm::callbackTimestamp(const Key& key, const Entry& entry) {
   callbackTimestamp(key, entry, kNoRequest);
}

void VyrEgressTsArmLogicalFapSm::callbackTimestamp(const Key& key, const Entry& entry, std::uint32_t request) {
   trace(6, "logicalFapId: {}, swTableKey: (index: {}, portType: {})", logicalFapId_, key.index, key.portType);
   if (!entry.valid) {
      trace(6, "Invalid timestamp");
      return;
   }
   trace(6, "Valid timestamp {} with seqId {}", entry.timestamp, entry.sequenceId);
   IntfId intfId;
   if (const Polled* p = unchangedSinceIssue(key, request)) {
      // The slot map gives p->intf for the key, whose info gave the key: the
      // check below would hold.
      intfId = p->intf;
   } else {
      intfId = swIndexToIntf(key);
      assertKeyMatches(key, intfId);
   }
   U64 egressTime;
   if (request == kNoRequest ? simulation() : pollSimulation_) {
      trace(3, "Simulation mode, skip timestamp fetcher checks");
      egressTime = entry.timestamp;
   } else if (!timestampFetcher_->timestampReady()) {
      trace(1, "Failed to update egress timestamp: HW source for full TS not ready");
      return;
   } else {
      // 0 when the full time could not be read; published all the same.
      egressTime = timestampFetcher_->egressTimestamp(intfId, entry.sequenceId, U32(entry.timestamp));
   }
   timestampGlint_->intfTimestampIs(
       Ptp::IngressEgressTimes{intfId, std::uint8_t(entry.sequenceId & 0x3), 0, egressTime, entry.sequenceId});
}

// --- VyrEgressTsPollingAdapterSm ---------------------------------------------------------

VyrEgressTsPollingAdapterSm::VyrEgressTsPollingAdapterSm(
    Pondo::Ptr<const PtpTimestampLocationConfig> ptpTimestampLocationConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> inputEgressTsIntfStatus,
    Pondo::Ptr<EgressTimestampIntfStatus> outputEgressTsIntfStatus)
    : ptpTimestampLocationConfig_(this, Kiv::nonNull(ptpTimestampLocationConfig, "ptpTimestampLocationConfig"),
                                  Kiv::on<PtpTimestampLocationConfig::enabledPhysicalIntfConfig_t,
                                          &VyrEgressTsPollingAdapterSm::on_enabledPhysicalIntfConfig>,
                                  Kiv::on<Kiv::Inside<PtpTimestampLocationConfig::enabledPhysicalIntfConfig_t,
                                                      PtpTimestampLocationIntfConfig::location_t>,
                                          &VyrEgressTsPollingAdapterSm::on_location>),
      inputEgressTsIntfStatus_(this, Kiv::nonNull(inputEgressTsIntfStatus, "inputEgressTsIntfStatus"),
                               Kiv::on<EgressTimestampIntfStatus::physicalIntfNeedsPolling_t,
                                       &VyrEgressTsPollingAdapterSm::on_physicalIntfNeedsPolling>),
      outputEgressTsIntfStatus_(Kiv::nonNull(outputEgressTsIntfStatus, "outputEgressTsIntfStatus")) {}

// An entry's appearance, removal and location changes count; its copied facts do not.
void VyrEgressTsPollingAdapterSm::on_enabledPhysicalIntfConfig(IntfId intfId) {
   if (!initialized()) return;
   handleLocation(intfId);
}

void VyrEgressTsPollingAdapterSm::on_location(const PtpTimestampLocationIntfConfig& entry) {
   if (!initialized()) return;
   handleLocation(entry.intfId());
}

void VyrEgressTsPollingAdapterSm::on_physicalIntfNeedsPolling(IntfId intfId) {
   if (!initialized()) return;
   handlePhysicalIntfNeedsPolling(intfId);
}

// The inputs in their declaration order: the location entries, then the decisions.
void VyrEgressTsPollingAdapterSm::handleInitialized() {
   handleLocation();
   handlePhysicalIntfNeedsPolling();
}

void VyrEgressTsPollingAdapterSm::handlePhysicalIntfNeedsPolling(IntfId intfId) {
   trace(8, "intfId: {}", intfId);
   processPtpLocationAndPolling(intfId);
}

void VyrEgressTsPollingAdapterSm::handlePhysicalIntfNeedsPolling() {
   for (IntfId i : inputEgressTsIntfStatus_->physicalIntfNeedsPolling()) handlePhysicalIntfNeedsPolling(i);
}

void VyrEgressTsPollingAdapterSm::handleLocation(IntfId intfId) {
   trace(8, "intfId: {}", intfId);
   processPtpLocationAndPolling(intfId);
}

void VyrEgressTsPollingAdapterSm::handleLocation() {
   for (const auto& [i, entry] : ptpTimestampLocationConfig_->enabledPhysicalIntfConfig()) handleLocation(i);
}

void VyrEgressTsPollingAdapterSm::processPtpLocationAndPolling(IntfId intfId) {
   const bool needs = asicNeedsPolling(intfId);
   trace(5, "intfId: {}, asicNeedsPolling: {}", intfId, needs);
   if (needs) {
      outputEgressTsIntfStatus_->physicalIntfNeedsPollingIs(intfId);
   } else {
      outputEgressTsIntfStatus_->physicalIntfNeedsPollingDel(intfId);
   }
}

// Only interfaces timestamped at an external PHY have a location entry; one
// whose location is not set yet reads as the chip and is polled.
bool VyrEgressTsPollingAdapterSm::asicNeedsPolling(IntfId intfId) const {
   trace(8, "intfId: {},", intfId);
   if (!inputEgressTsIntfStatus_->physicalIntfNeedsPolling().contains(intfId)) return false;
   const PtpTimestampLocationIntfConfig* entry = ptpTimestampLocationConfig_->enabledPhysicalIntfConfig(intfId);
   return !entry || entry->location() == Ptp::Location::Location::chip;
}

// --- VyrEgressTsArmAggregateSm -----------------------------------------------------------

VyrEgressTsArmAggregateSm::VyrEgressTsArmAggregateSm(
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsInfo> tsInterfaceInfo, Pondo::Ptr<const PtpTimeSync::Config> timeSyncConfig,
    Pondo::Ptr<const PtpTimeSync::Status> timeSyncStatus, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint)
    : egressTimestampIntfStatus_(Kiv::nonNull(egressTimestampIntfStatus, "egressTimestampIntfStatus")),
      tsInterfaceInfo_(this, Kiv::nonNull(tsInterfaceInfo, "tsInterfaceInfo"),
                       Kiv::on<PlatformEgressTsInfo::logicalFapInfo_t, &VyrEgressTsArmAggregateSm::on_logicalFapInfo>),
      timeSyncConfig_(std::move(timeSyncConfig)),
      timeSyncStatus_(std::move(timeSyncStatus)),
      statebaseEm_(std::move(statebaseEm)),
      timestampGlint_(Kiv::nonNull(timestampGlint, "timestampGlint")) {}

// Only additions and removals of logical FAPs count, not changes inside them.
void VyrEgressTsArmAggregateSm::on_logicalFapInfo(LogicalFapId logicalFapId) {
   if (!initialized()) return;
   handleLogicalFapInfo(logicalFapId);
}

// Timestamps published before this start are stale: they go before any collector runs.
void VyrEgressTsArmAggregateSm::handleInitialized() {
   trace(8, "handleInitialized");
   timestampGlint_->intfTimestampDelAll();
   set(timerWheel_,
       Brim::TimerWheelIs(Kiv::activityManager().clock(), timerWheelTickMsecs, timerWheelInitialMaxTicks,
                          timerWheelPreserveOrder, timerWheelDefaultBucketSize),
       F::timerWheel);
   handleLogicalFapInfo();
}

void VyrEgressTsArmAggregateSm::handleLogicalFapInfo(LogicalFapId logicalFapId) { checkAllInputsPresent(logicalFapId); }

void VyrEgressTsArmAggregateSm::handleLogicalFapInfo() {
   for (const auto& [id, info] : tsInterfaceInfo_->logicalFapInfo()) handleLogicalFapInfo(id);
}

// A second creation for a logical FAP without a deletion in between is fatal,
// not a replacement.
void VyrEgressTsArmAggregateSm::checkAllInputsPresent(LogicalFapId logicalFapId) {
   trace(8, "logicalFapId: {}", logicalFapId);
   const Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> info = tsInterfaceInfo_->logicalFapInfo(logicalFapId);
   trace(5, "tsInfoExists: {}", bool(info));
   if (!info) {
      logicalFapSmDel(logicalFapId);
      asicTimeFetcherWrapperColDel(logicalFapId);
      return;
   }
   const Platform::ProductAttributes* product = Platform::productAttributes();
   Kiv::kassert(product, "Product attributes don't exist!");
   const Platform::Attributes* attributes = product->attributes();
   Kiv::kassert(attributes, "Attributes object for product doesn't exist!");

   Pondo::Ptr<TimestampFetcherBase> fetcher;
   if (attributes->chipTimeFromAsicTimeFile) {
      Kiv::kassert(!asicTimeFetcherWrapperCol_.contains(logicalFapId),
                   "asic-time fetcher already created for {}, may not have been cleaned up", logicalFapId);
      auto wrapper =
          asicTimestampFetcherWrapperFactory(info->asicTimeId(), attributes->asicTimeCounterNeedsInit, false);
      asicTimeFetcherWrapperColIs(logicalFapId, wrapper);
      fetcher = wrapper->timestampFetcher();
   } else {
      fetcher = timestampFetcherFactory(timeSyncStatus_, timeSyncConfig_);
   }
   logicalFapSmIs(logicalFapId, info, std::move(fetcher), timerWheel_);
}

Pondo::Ptr<VyrEgressTsArmLogicalFapSm> VyrEgressTsArmAggregateSm::logicalFapSmIs(
    LogicalFapId id, Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> info, Pondo::Ptr<TimestampFetcherBase> fetcher,
    Pondo::Ptr<Brim::TimerWheel> timerWheel) {
   return logicalFapSm_.is(id, egressTimestampIntfStatus_, info, fetcher, statebaseEm_, timestampGlint_, timerWheel);
}

// --- Factories ---------------------------------------------------------------------------------

Pondo::Ptr<VyrEgressTsArmLogicalFapSm> vyrEgressTsArmLogicalFapSmFactory(
    LogicalFapId logicalFapId, Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> tsLogicalFapInfo,
    Pondo::Ptr<TimestampFetcherBase> timestampFetcher, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint, Pondo::Ptr<Brim::TimerWheel> timerWheel) {
   return Kiv::make<VyrEgressTsArmLogicalFapSm>(
       logicalFapId, std::move(egressTimestampIntfStatus), std::move(tsLogicalFapInfo), std::move(timestampFetcher),
       std::move(statebaseEm), std::move(timestampGlint), std::move(timerWheel));
}

Pondo::Ptr<VyrEgressTsPollingAdapterSm> vyrEgressTsPollingAdapterSmFactory(
    Pondo::Ptr<const PtpTimestampLocationConfig> ptpTimestampLocationConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> inputEgressTsIntfStatus,
    Pondo::Ptr<EgressTimestampIntfStatus> outputEgressTsIntfStatus) {
   return Kiv::make<VyrEgressTsPollingAdapterSm>(
       std::move(ptpTimestampLocationConfig), std::move(inputEgressTsIntfStatus), std::move(outputEgressTsIntfStatus));
}

Pondo::Ptr<VyrEgressTsArmAggregateSm> vyrEgressTsArmAggregateSmFactory(
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsInfo> tsInterfaceInfo, Pondo::Ptr<const PtpTimeSync::Config> timeSyncConfig,
    Pondo::Ptr<const PtpTimeSync::Status> timeSyncStatus, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint) {
   return Kiv::make<VyrEgressTsArmAggregateSm>(std::move(egressTimestampIntfStatus), std::move(tsInterfaceInfo),
                                               std::move(timeSyncConfig), std::move(timeSyncStatus),
                                               std::move(statebaseEm), std::move(timestampGlint));
}

Pondo::Ptr<VyrEgressTsArmLogicalFapSm> VyrEgressTsArmLogicalFapSmIs(
    LogicalFapId logicalFapId, Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> tsLogicalFapInfo,
    Pondo::Ptr<TimestampFetcherBase> timestampFetcher, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint, Pondo::Ptr<Brim::TimerWheel> timerWheel) {
   return vyrEgressTsArmLogicalFapSmFactory(logicalFapId, std::move(egressTimestampIntfStatus),
                                            std::move(tsLogicalFapInfo), std::move(timestampFetcher),
                                            std::move(statebaseEm), std::move(timestampGlint), std::move(timerWheel));
}

Pondo::Ptr<VyrEgressTsPollingAdapterSm> VyrEgressTsPollingAdapterSmIs(
    Pondo::Ptr<const PtpTimestampLocationConfig> ptpTimestampLocationConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> inputEgressTsIntfStatus,
    Pondo::Ptr<EgressTimestampIntfStatus> outputEgressTsIntfStatus) {
   return vyrEgressTsPollingAdapterSmFactory(std::move(ptpTimestampLocationConfig), std::move(inputEgressTsIntfStatus),
                                             std::move(outputEgressTsIntfStatus));
}

Pondo::Ptr<VyrEgressTsArmAggregateSm> VyrEgressTsArmAggregateSmIs(
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsInfo> tsInterfaceInfo, Pondo::Ptr<const PtpTimeSync::Config> timeSyncConfig,
    Pondo::Ptr<const PtpTimeSync::Status> timeSyncStatus, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint) {
   return vyrEgressTsArmAggregateSmFactory(std::move(egressTimestampIntfStatus), std::move(tsInterfaceInfo),
                                           std::move(timeSyncConfig), std::move(timeSyncStatus), std::move(statebaseEm),
                                           std::move(timestampGlint));
}

}  // namespace VyrPtp
