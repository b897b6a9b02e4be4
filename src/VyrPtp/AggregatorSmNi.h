// Readiness from programmer reports: the protocol side bumps the generation of
// its actions; every programmer reports, per interface and for the pipeline,
// the generation it has finished and whether it succeeded. Once every report
// names the current generation, the interface (or the pipeline) is judged:
// ready when all succeeded, not ready otherwise. Until then nothing changes.
//
// AggregatorSmNi keeps one IntfInfoSm per interface that has both a report
// record and a hardware status entry, and one PipelineInfoSm, which writes its
// verdict with the judged generation into a PtpPipelineAggState of its own.
#pragma once

#include "Kiv/Reactor.h"
#include "Ptp/HwStatus.h"
#include "VyrPtp/ActionTypes.h"
#include "VyrPtp/AggregatorSmTypes.h"
#include "VyrPtp/Export.h"
#include "VyrPtp/ProgrammerTypes.h"

namespace VyrPtp {

class AggregatorSmNi;

// Judges one interface from its programmers' reports (its notifier, the
// interface's record among the reports) into its hardware status; a nested
// machine of the aggregator, or of none.
class VYRPTP_EXPORT IntfInfoSm : public Kiv::NestedSm<AggregatorSmNi, const Programmer::PtpIntfInfo> {
  public:
   IntfInfoSm(Pondo::Ptr<const Programmer::PtpIntfInfo> intfInfo, Pondo::Ptr<Ptp::HwIntfStatus> hwIntfStatus,
              Pondo::Ptr<const ActionTypes::PtpActions> ptpActions, AggregatorSmNi* owner = nullptr);

   const Programmer::PtpIntfInfo* intfInfo() const { return notifier(); }
   Ptp::HwIntfStatus* hwIntfStatus() const { return hwIntfStatus_.get(); }
   const ActionTypes::PtpActions* ptpActions() const { return ptpActions_.get(); }
   // Compared when the aggregator is asked again for the machine of an interface.
   auto fixedArgs() const { return std::make_tuple(intfInfo(), hwIntfStatus_, ptpActions(), ownerSm()); }

   // One readiness pass.
   void updateHwIntfStatus();
   // Sets both directions, transmit first.
   void intfReadyForPtpPacketIs(bool ready);

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   void on_programmerInfo(const Pondo::String& programmerName);
   void on_generation(const Programmer::PtpProgrammerInfo& report);

   Pondo::Ptr<Ptp::HwIntfStatus> hwIntfStatus_;
   Kiv::Input<const ActionTypes::PtpActions> ptpActions_;
};

// Judges the pipeline from the pipeline-wide reports into the aggregate state.
class VYRPTP_EXPORT PipelineInfoSm : public Kiv::Reactor {
  public:
   PipelineInfoSm(Pondo::Ptr<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus,
                  Pondo::Ptr<const ActionTypes::PtpActions> ptpActions,
                  Pondo::Ptr<PtpPipelineAggState> pipelineAggState, Kiv::Reactor* parent = nullptr);

   const Programmer::PtpPipelineInfoStatus* pipelineInfoStatus() const { return pipelineInfoStatus_.get(); }
   const ActionTypes::PtpActions* ptpActions() const { return ptpActions_.get(); }
   PtpPipelineAggState* pipelineAggState() const { return pipelineAggState_.get(); }

   // One readiness pass.
   void updateAggState();

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   void on_programmerInfo(const Pondo::String& programmerName);
   void on_generation(const Programmer::PtpProgrammerInfo& report);

   Kiv::Input<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus_;
   Kiv::Input<const ActionTypes::PtpActions> ptpActions_;
   Pondo::Ptr<PtpPipelineAggState> pipelineAggState_;
};

class VYRPTP_EXPORT AggregatorSmNi : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId { intfInfoSm, pipelineInfoSm, pipelineAggState };
   };
   // `hwStatus` and `intfInfoStatus` may be absent or replaced later; the
   // pipeline reports and the actions are fixed and required.
   AggregatorSmNi(Pondo::Ptr<Ptp::HwStatus> hwStatus, Pondo::Ptr<const Programmer::PtpIntfInfoStatus> intfInfoStatus,
                  Pondo::Ptr<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus,
                  Pondo::Ptr<const ActionTypes::PtpActions> ptpActions);

   Ptp::HwStatus* hwStatus() const { return hwStatus_.get(); }
   void hwStatusIs(Pondo::Ptr<Ptp::HwStatus> s) { hwStatus_ = std::move(s); }
   const Programmer::PtpIntfInfoStatus* intfInfoStatus() const { return intfInfoStatus_.get(); }
   void intfInfoStatusIs(Pondo::Ptr<const Programmer::PtpIntfInfoStatus> s) { intfInfoStatus_ = std::move(s); }

   const IntfInfoSm* intfInfoSm(Wyx::IntfId k) const { return intfInfoSm_.find(k); }

   IntfInfoSm* intfInfoSm(Wyx::IntfId k) { return intfInfoSm_.find(k); }
   const Kiv::Collection<Wyx::IntfId, IntfInfoSm>& intfInfoSm() const { return intfInfoSm_; }
   // Keyed by the interface of `intfInfo`.
   Pondo::Ptr<IntfInfoSm> intfInfoSmIs(const Pondo::Ptr<const Programmer::PtpIntfInfo>& intfInfo,
                                       const Pondo::Ptr<Ptp::HwIntfStatus>& hwIntfStatus,
                                       const Pondo::Ptr<const ActionTypes::PtpActions>& ptpActions);
   Pondo::Ptr<IntfInfoSm> intfInfoSmDel(Wyx::IntfId k);
   void intfInfoSmDelAll();

   PipelineInfoSm* pipelineInfoSm() const { return pipelineInfoSm_.get(); }
   Pondo::Ptr<PipelineInfoSm> pipelineInfoSmIs(const Pondo::Ptr<const Programmer::PtpPipelineInfoStatus>& status,
                                               const Pondo::Ptr<const ActionTypes::PtpActions>& ptpActions,
                                               const Pondo::Ptr<PtpPipelineAggState>& pipelineAggState);
   void pipelineInfoSmDel();

   // The pipeline verdict; readers may hold and watch it.
   const Pondo::Ptr<PtpPipelineAggState>& pipelineAggState() const { return pipelineAggState_; }
   Pondo::Ptr<PtpPipelineAggState> pipelineAggStateIs();
   void pipelineAggStateDel();

   // Builds the interface's machine afresh when both its report record and its
   // hardware status entry exist, and removes it otherwise.
   void createIntfInfoSm(Wyx::IntfId k);

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   // Declared so that teardown releases the interface machines, then the
   // pipeline machine, then the aggregate state, then the inputs.
   Kiv::Input<Ptp::HwStatus> hwStatus_;
   Kiv::Input<const Programmer::PtpIntfInfoStatus> intfInfoStatus_;
   Pondo::Ptr<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus_;
   Pondo::Ptr<const ActionTypes::PtpActions> ptpActions_;
   Pondo::Ptr<PtpPipelineAggState> pipelineAggState_;
   Pondo::Ptr<PipelineInfoSm> pipelineInfoSm_;
   Kiv::Collection<Wyx::IntfId, IntfInfoSm> intfInfoSm_{this, F::intfInfoSm, "intfInfoSm"};
};

VYRPTP_EXPORT Pondo::Ptr<AggregatorSmNi> aggregatorSmNiFactory(
    Pondo::Ptr<Ptp::HwStatus> hwStatus, Pondo::Ptr<const Programmer::PtpIntfInfoStatus> intfInfoStatus,
    Pondo::Ptr<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus,
    Pondo::Ptr<const ActionTypes::PtpActions> ptpActions);
VYRPTP_EXPORT Pondo::Ptr<PipelineInfoSm> pipelineInfoSmFactory(
    Pondo::Ptr<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus,
    Pondo::Ptr<const ActionTypes::PtpActions> ptpActions, Pondo::Ptr<PtpPipelineAggState> pipelineAggState);
// An interface machine of no aggregator.
VYRPTP_EXPORT Pondo::Ptr<IntfInfoSm> intfInfoSmFactory(Pondo::Ptr<const Programmer::PtpIntfInfo> intfInfo,
                                                       Pondo::Ptr<Ptp::HwIntfStatus> hwIntfStatus,
                                                       Pondo::Ptr<const ActionTypes::PtpActions> ptpActions);
VYRPTP_EXPORT Pondo::Ptr<AggregatorSmNi> AggregatorSmNiIs(
    Pondo::Ptr<Ptp::HwStatus> hwStatus, Pondo::Ptr<const Programmer::PtpIntfInfoStatus> intfInfoStatus,
    Pondo::Ptr<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus,
    Pondo::Ptr<const ActionTypes::PtpActions> ptpActions);
VYRPTP_EXPORT Pondo::Ptr<PipelineInfoSm> PipelineInfoSmIs(
    Pondo::Ptr<const Programmer::PtpPipelineInfoStatus> pipelineInfoStatus,
    Pondo::Ptr<const ActionTypes::PtpActions> ptpActions, Pondo::Ptr<PtpPipelineAggState> pipelineAggState);
VYRPTP_EXPORT Pondo::Ptr<IntfInfoSm> IntfInfoSmIs(Pondo::Ptr<const Programmer::PtpIntfInfo> intfInfo,
                                                  Pondo::Ptr<Ptp::HwIntfStatus> hwIntfStatus,
                                                  Pondo::Ptr<const ActionTypes::PtpActions> ptpActions);

}  // namespace VyrPtp
