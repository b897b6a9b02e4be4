#include "VyrPtp/AggregatorSmNi.h"

namespace VyrPtp {

using ActionTypes::PtpActions;
using Programmer::PtpIntfInfo;
using Programmer::PtpIntfInfoStatus;
using Programmer::PtpPipelineInfoStatus;
using Programmer::PtpProgrammerInfo;

namespace {

Kiv::Tracer trace{"AggregatorSmNi"};

enum class Verdict { pending, notReady, ready };

// A readiness pass over one set of reports, in two walks of the same
// collection: first every counter must name the current generation (else some
// programmer is still at work and nothing is decided; flags are not looked
// at), then every flag must be set. No reports at all means ready.
Verdict judge(const Programmer::ProgrammerInfoCollection& reports, std::uint32_t current) {
   for (const auto& [name, r] : reports) {
      if (r->generation().counter != current) return Verdict::pending;
   }
   for (const auto& [name, r] : reports) {
      if (!r->generation().flag) return Verdict::notReady;
   }
   return Verdict::ready;
}

}  // namespace

// --- IntfInfoSm ---

IntfInfoSm::IntfInfoSm(Pondo::Ptr<const PtpIntfInfo> intfInfo, Pondo::Ptr<Ptp::HwIntfStatus> hwIntfStatus,
                       Pondo::Ptr<const PtpActions> ptpActions, AggregatorSmNi* owner)
    : NestedSm(std::move(intfInfo), owner, Kiv::on<PtpIntfInfo::programmerInfo_t, &IntfInfoSm::on_programmerInfo>,
               Kiv::on<Kiv::Inside<PtpIntfInfo::programmerInfo_t, PtpProgrammerInfo::generation_t>,
                       &IntfInfoSm::on_generation>),
      hwIntfStatus_(Kiv::nonNull(hwIntfStatus, "hwIntfStatus")),
      ptpActions_(this, std::move(ptpActions), Kiv::on<PtpActions::generation_t, &IntfInfoSm::updateHwIntfStatus>) {}

// The first pass, once both inputs are bound. The start replays the present
// reports as additions; they are judged here, once, instead.
void IntfInfoSm::handleInitialized() { updateHwIntfStatus(); }

// A report added or removed, or the generation of one changed.
void IntfInfoSm::on_programmerInfo(const Pondo::String&) {
   if (initialized()) updateHwIntfStatus();
}

void IntfInfoSm::on_generation(const PtpProgrammerInfo&) {
   if (initialized()) updateHwIntfStatus();
}

void IntfInfoSm::updateHwIntfStatus() {
   switch (judge(intfInfo()->programmerInfo(), ptpActions_->generation().counter)) {
      case Verdict::pending: return;
      case Verdict::notReady:
         trace(6, "hwIntfStatus for intfId: {} not ready for PTP", intfInfo()->intfId());
         intfReadyForPtpPacketIs(false);
         return;
      case Verdict::ready:
         trace(6, "hwIntfStatus for intfId: {} is now ready for PTP", intfInfo()->intfId());
         intfReadyForPtpPacketIs(true);
         return;
   }
}

void IntfInfoSm::intfReadyForPtpPacketIs(bool ready) {
   hwIntfStatus_->intfReadyForTxPacketIs(ready);
   hwIntfStatus_->intfReadyForRxPacketIs(ready);
}

// --- PipelineInfoSm ---

PipelineInfoSm::PipelineInfoSm(Pondo::Ptr<const PtpPipelineInfoStatus> pipelineInfoStatus,
                               Pondo::Ptr<const PtpActions> ptpActions,
                               Pondo::Ptr<PtpPipelineAggState> pipelineAggState, Kiv::Reactor* parent)
    : Kiv::Reactor(parent),
      pipelineInfoStatus_(this, std::move(pipelineInfoStatus),
                          Kiv::on<PtpPipelineInfoStatus::programmerInfo_t, &PipelineInfoSm::on_programmerInfo>,
                          Kiv::on<Kiv::Inside<PtpPipelineInfoStatus::programmerInfo_t, PtpProgrammerInfo::generation_t>,
                                  &PipelineInfoSm::on_generation>),
      ptpActions_(this, std::move(ptpActions), Kiv::on<PtpActions::generation_t, &PipelineInfoSm::updateAggState>),
      pipelineAggState_(Kiv::nonNull(pipelineAggState, "pipelineAggState")) {}

void PipelineInfoSm::handleInitialized() { updateAggState(); }

// A report added or removed, or the generation of one changed.
void PipelineInfoSm::on_programmerInfo(const Pondo::String&) {
   if (initialized()) updateAggState();
}

void PipelineInfoSm::on_generation(const PtpProgrammerInfo&) {
   if (initialized()) updateAggState();
}

// The verdict carries the judged generation, so a reader can tell "not ready
// for this generation" from "not judged yet".
void PipelineInfoSm::updateAggState() {
   const std::uint32_t current = ptpActions_->generation().counter;
   switch (judge(pipelineInfoStatus_->programmerInfo(), current)) {
      case Verdict::pending: return;
      case Verdict::notReady:
         trace(6, "Pipeline aggregate state not ready for PTP");
         pipelineAggState_->generationIs({current, false});
         return;
      case Verdict::ready:
         trace(6, "Pipeline aggregate state is now ready for PTP");
         pipelineAggState_->generationIs({current, true});
         return;
   }
}

// --- AggregatorSmNi ---

AggregatorSmNi::AggregatorSmNi(Pondo::Ptr<Ptp::HwStatus> hwStatus, Pondo::Ptr<const PtpIntfInfoStatus> intfInfoStatus,
                               Pondo::Ptr<const PtpPipelineInfoStatus> pipelineInfoStatus,
                               Pondo::Ptr<const PtpActions> ptpActions)
    : hwStatus_(this, std::move(hwStatus), Kiv::on<Ptp::HwStatus::intfStatus_t, &AggregatorSmNi::createIntfInfoSm>),
      intfInfoStatus_(this, std::move(intfInfoStatus),
                      Kiv::on<PtpIntfInfoStatus::intfInfo_t, &AggregatorSmNi::createIntfInfoSm>),
      pipelineInfoStatus_(Kiv::nonNull(pipelineInfoStatus, "pipelineInfoStatus")),
      ptpActions_(Kiv::nonNull(ptpActions, "ptpActions")) {}

void AggregatorSmNi::handleInitialized() { pipelineInfoSmIs(pipelineInfoStatus_, ptpActions_, pipelineAggStateIs()); }

// Bound to the entries coming and going on both inputs; changes inside an
// entry (among them the readiness that the interface machines write) do not
// matter.
void AggregatorSmNi::createIntfInfoSm(Wyx::IntfId k) {
   const PtpIntfInfo* intfInfo = intfInfoStatus_ ? intfInfoStatus_->intfInfo(k) : nullptr;
   Ptp::HwIntfStatus* hwIntfStatus = hwStatus_ ? hwStatus_->intfStatus(k) : nullptr;
   intfInfoSmDel(k);
   if (intfInfo && hwIntfStatus) {
      intfInfoSmIs(intfInfo, hwIntfStatus, ptpActions_);
      trace(5, "Created intfInfoSm for intfId: {}", k);
   } else {
      trace(5, "Attempted to delete intfInfoSm for intfId: {}", k);
   }
}

Pondo::Ptr<IntfInfoSm> AggregatorSmNi::intfInfoSmIs(const Pondo::Ptr<const PtpIntfInfo>& intfInfo,
                                                    const Pondo::Ptr<Ptp::HwIntfStatus>& hwIntfStatus,
                                                    const Pondo::Ptr<const PtpActions>& ptpActions) {
   Kiv::nonNull(intfInfo, "intfInfo");
   Kiv::nonNull(hwIntfStatus, "hwIntfStatus");
   Kiv::nonNull(ptpActions, "ptpActions");
   return intfInfoSm_.isFrom(intfInfo->intfId(), intfInfo, hwIntfStatus, ptpActions, this);
}

Pondo::Ptr<IntfInfoSm> AggregatorSmNi::intfInfoSmDel(Wyx::IntfId k) {
   if (IntfInfoSm* sm = intfInfoSm_.find(k)) sm->hasNotificationActiveIs(false);
   return intfInfoSm_.del(k);
}

void AggregatorSmNi::intfInfoSmDelAll() {
   for (const auto& [k, sm] : intfInfoSm_) sm->hasNotificationActiveIs(false);
   intfInfoSm_.delAll();
}

Pondo::Ptr<PipelineInfoSm> AggregatorSmNi::pipelineInfoSmIs(const Pondo::Ptr<const PtpPipelineInfoStatus>& status,
                                                            const Pondo::Ptr<const PtpActions>& ptpActions,
                                                            const Pondo::Ptr<PtpPipelineAggState>& pipelineAggState) {
   if (pipelineInfoSm_) {
      if (pipelineInfoSm_->pipelineInfoStatus() != status.get() || pipelineInfoSm_->ptpActions() != ptpActions.get() ||
          pipelineInfoSm_->pipelineAggState() != pipelineAggState.get()) {
         throw Kiv::Error("'pipelineInfoSm' exists with other fixed arguments");
      }
      return pipelineInfoSm_;
   }
   set(pipelineInfoSm_, Kiv::make<PipelineInfoSm>(status, ptpActions, pipelineAggState, this), F::pipelineInfoSm);
   return pipelineInfoSm_;
}

void AggregatorSmNi::pipelineInfoSmDel() {
   if (pipelineInfoSm_) pipelineInfoSm_->hasNotificationActiveIs(false);
   set(pipelineInfoSm_, Pondo::Ptr<PipelineInfoSm>(), F::pipelineInfoSm);
}

Pondo::Ptr<PtpPipelineAggState> AggregatorSmNi::pipelineAggStateIs() {
   if (!pipelineAggState_) set(pipelineAggState_, ptpPipelineAggStateFactory(), F::pipelineAggState);
   return pipelineAggState_;
}

void AggregatorSmNi::pipelineAggStateDel() {
   set(pipelineAggState_, Pondo::Ptr<PtpPipelineAggState>(), F::pipelineAggState);
}

Pondo::Ptr<AggregatorSmNi> aggregatorSmNiFactory(Pondo::Ptr<Ptp::HwStatus> hwStatus,
                                                 Pondo::Ptr<const PtpIntfInfoStatus> intfInfoStatus,
                                                 Pondo::Ptr<const PtpPipelineInfoStatus> pipelineInfoStatus,
                                                 Pondo::Ptr<const PtpActions> ptpActions) {
   return Kiv::make<AggregatorSmNi>(std::move(hwStatus), std::move(intfInfoStatus), std::move(pipelineInfoStatus),
                                    std::move(ptpActions));
}

Pondo::Ptr<PipelineInfoSm> pipelineInfoSmFactory(Pondo::Ptr<const PtpPipelineInfoStatus> pipelineInfoStatus,
                                                 Pondo::Ptr<const PtpActions> ptpActions,
                                                 Pondo::Ptr<PtpPipelineAggState> pipelineAggState) {
   return Kiv::make<PipelineInfoSm>(std::move(pipelineInfoStatus), std::move(ptpActions), std::move(pipelineAggState));
}

Pondo::Ptr<IntfInfoSm> intfInfoSmFactory(Pondo::Ptr<const PtpIntfInfo> intfInfo,
                                         Pondo::Ptr<Ptp::HwIntfStatus> hwIntfStatus,
                                         Pondo::Ptr<const PtpActions> ptpActions) {
   return Kiv::make<IntfInfoSm>(std::move(intfInfo), std::move(hwIntfStatus), std::move(ptpActions));
}

Pondo::Ptr<AggregatorSmNi> AggregatorSmNiIs(Pondo::Ptr<Ptp::HwStatus> hwStatus,
                                            Pondo::Ptr<const PtpIntfInfoStatus> intfInfoStatus,
                                            Pondo::Ptr<const PtpPipelineInfoStatus> pipelineInfoStatus,
                                            Pondo::Ptr<const PtpActions> ptpActions) {
   return aggregatorSmNiFactory(std::move(hwStatus), std::move(intfInfoStatus), std::move(pipelineInfoStatus),
                                std::move(ptpActions));
}

Pondo::Ptr<PipelineInfoSm> PipelineInfoSmIs(Pondo::Ptr<const PtpPipelineInfoStatus> pipelineInfoStatus,
                                            Pondo::Ptr<const PtpActions> ptpActions,
                                            Pondo::Ptr<PtpPipelineAggState> pipelineAggState) {
   return pipelineInfoSmFactory(std::move(pipelineInfoStatus), std::move(ptpActions), std::move(pipelineAggState));
}

Pondo::Ptr<IntfInfoSm> IntfInfoSmIs(Pondo::Ptr<const PtpIntfInfo> intfInfo, Pondo::Ptr<Ptp::HwIntfStatus> hwIntfStatus,
                                    Pondo::Ptr<const PtpActions> ptpActions) {
   return intfInfoSmFactory(std::move(intfInfo), std::move(hwIntfStatus), std::move(ptpActions));
}

}  // namespace VyrPtp
