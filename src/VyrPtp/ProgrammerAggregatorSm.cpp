#include "VyrPtp/ProgrammerAggregatorSm.h"

namespace VyrPtp::Programmer {

namespace {
Kiv::Tracer trace{"ProgrammerAggregatorSm"};
}  // namespace

// --- NestedSm_IntfStatus ---

NestedSm_IntfStatus::NestedSm_IntfStatus(Pondo::Ptr<const IntfInfo> intfInfo, AggregatorSm* aggregator)
    : NestedSm(Kiv::nonNull(intfInfo, "intfInfo"), Kiv::nonNull(aggregator, "aggregator"),
               Kiv::on<IntfInfo::generation_t, &NestedSm_IntfStatus::handleGeneration>) {}

// Judged under the key of the report now watched, which notifierIs may have changed.
void NestedSm_IntfStatus::handleGeneration() { ownerSm()->handleIntfStatus(notifier()->intf()); }

// --- AggregatorSm ---

AggregatorSm::AggregatorSm(Pondo::Ptr<const Status> programmerStatus, Pondo::Ptr<Ptp::HwStatus> hwStatus)
    : programmerStatus_(this, std::move(programmerStatus), Kiv::on<Status::intfStatus_t, &AggregatorSm::on_intfStatus>),
      hwStatus_(Kiv::nonNull(hwStatus, "hwStatus")) {}

// Entries left from an earlier life are dropped; the reports rebuild the rest.
void AggregatorSm::handleInitialized() {
   trace(8, "handleInitialized");
   hwStatus_->intfStatusDelAll();
   handleIntfStatus();
}

// Reports coming and going. The start replays the present reports: their
// machines are made here, and handleInitialized judges them all.
void AggregatorSm::on_intfStatus(const ProgrammerIntfId& k) {
   if (initialized()) handleIntfStatus(k);
   if (const IntfInfo* report = programmerStatus_->intfStatus(k)) {
      intfStatusIs(report);
   } else {
      intfStatusDel(k);
   }
}

void AggregatorSm::handleIntfStatus() {
   trace(8, "handleIntfStatus");
   for (const auto& [k, report] : programmerStatus_->intfStatus()) handleIntfStatus(k);
}

void AggregatorSm::handleIntfStatus(const ProgrammerIntfId& k) {
   judging_.push_back(k);
   if (judging_.size() > 1) return;
   while (!judging_.empty()) {
      judge(judging_.front());
      judging_.pop_front();
   }
}

void AggregatorSm::judge(const ProgrammerIntfId& k) {
   const Wyx::IntfId intfId = k.intfId;
   trace(8, "handleIntfStatus: programmerType {}, intfId {}", k.programmerType, intfId);
   // Every active programmer is consulted for the interface, whichever one reported.
   unsigned count = 0;
   bool valid = true;
   for (const Pondo::String& type : programmerStatus_->programmerActive()) {
      const IntfInfo* report = programmerStatus_->intfStatus(ProgrammerIntfId{type, intfId});
      if (!report) {
         trace(5, "Status for programmer type {} doesn't exist yet", type);
         continue;
      }
      ++count;
      valid = valid && report->generation().flag;
      trace(5, "Status for programmer type {} exists, valid is now {}", type, valid);
   }
   trace(5, "programmers {}, valid {}", count, valid);
   if (count == 0) {
      hwStatus_->intfStatusDel(intfId);
      return;
   }
   const Ptp::HwIntfStatus* staticStatus = programmerStatus_->staticHwIntfStatus(intfId);
   Kiv::kassert(staticStatus, "staticStatus");
   Ptp::HwIntfStatus* entry = hwStatus_->intfStatus(intfId);
   if (!entry) entry = hwStatus_->intfStatusIs(intfId, staticStatus->linuxTsOptions()).get();
   updateStaticHwIntfStatus(intfId);
   entry->intfReadyForRxPacketIs(valid);
   entry->intfReadyForTxPacketIs(valid);
}

void AggregatorSm::updateStaticHwIntfStatus(Wyx::IntfId intfId) {
   trace(8, "updateStaticHwIntfStatus: intfId {}", intfId);
   const Ptp::HwIntfStatus* from = programmerStatus_->staticHwIntfStatus(intfId);
   Ptp::HwIntfStatus* to = hwStatus_->intfStatus(intfId);
   if (!from || !to) return;
   to->twoStepClockIs(from->twoStepClock());
   to->timestampAtPacketEndIs(from->timestampAtPacketEnd());
   to->timestampMultiplierIs(from->timestampMultiplier());
   to->timestampDividerIs(from->timestampDivider());
   to->zeroMsb32BitsIs(from->zeroMsb32Bits());
   to->egressTimestampExpiryIntervalIs(from->egressTimestampExpiryInterval());
   to->negativeTsDeltaThresholdIs(from->negativeTsDeltaThreshold());
}

Pondo::Ptr<NestedSm_IntfStatus> AggregatorSm::intfStatusIs(const Pondo::Ptr<const IntfInfo>& intfInfo) {
   Kiv::nonNull(intfInfo, "intfInfo");
   return intfStatus_.isFrom(intfInfo->intf(), intfInfo, this);
}

Pondo::Ptr<NestedSm_IntfStatus> AggregatorSm::intfStatusDel(const ProgrammerIntfId& k) {
   if (NestedSm_IntfStatus* sm = intfStatus_.find(k)) sm->hasNotificationActiveIs(false);
   return intfStatus_.del(k);
}

void AggregatorSm::intfStatusDelAll() {
   for (const auto& [k, sm] : intfStatus_) sm->hasNotificationActiveIs(false);
   intfStatus_.delAll();
}

Pondo::Ptr<AggregatorSm> aggregatorSmFactory(Pondo::Ptr<const Status> programmerStatus,
                                             Pondo::Ptr<Ptp::HwStatus> hwStatus) {
   return Kiv::make<AggregatorSm>(std::move(programmerStatus), std::move(hwStatus));
}

Pondo::Ptr<AggregatorSm> AggregatorSmIs(Pondo::Ptr<const Status> programmerStatus, Pondo::Ptr<Ptp::HwStatus> hwStatus) {
   return aggregatorSmFactory(std::move(programmerStatus), std::move(hwStatus));
}

Pondo::Ptr<NestedSm_IntfStatus> nestedSm_IntfStatusFactory(Pondo::Ptr<const IntfInfo> intfInfo,
                                                           AggregatorSm* aggregator) {
   return Kiv::make<NestedSm_IntfStatus>(std::move(intfInfo), aggregator);
}

Pondo::Ptr<NestedSm_IntfStatus> NestedSm_IntfStatusIs(Pondo::Ptr<const IntfInfo> intfInfo, AggregatorSm* aggregator) {
   return nestedSm_IntfStatusFactory(std::move(intfInfo), aggregator);
}

}  // namespace VyrPtp::Programmer
