// Builds the published hardware status from the active programmers' reports:
// an interface has an entry while at least one active programmer reports on
// it, is ready when every such report is flagged valid, and carries the static
// timestamping properties that the programmers recorded for it.
#pragma once

#include <deque>

#include "Kiv/Reactor.h"
#include "Ptp/HwStatus.h"
#include "VyrPtp/Export.h"
#include "VyrPtp/ProgrammerTypes.h"

namespace VyrPtp::Programmer {

class AggregatorSm;

// Watches one report and hands a change of its generation to the aggregator.
class VYRPTP_EXPORT NestedSm_IntfStatus : public Kiv::NestedSm<AggregatorSm, const IntfInfo> {
  public:
   NestedSm_IntfStatus(Pondo::Ptr<const IntfInfo> intfInfo, AggregatorSm* aggregator);

   // Compared when the aggregator is asked again for the machine of a report.
   auto fixedArgs() const { return std::make_tuple(Pondo::Ptr<const IntfInfo>(notifier()), ownerSm()); }

  private:
   void handleGeneration();
};

class VYRPTP_EXPORT AggregatorSm : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId { intfStatus };
   };
   AggregatorSm(Pondo::Ptr<const Status> programmerStatus, Pondo::Ptr<Ptp::HwStatus> hwStatus);

   const Status* programmerStatus() const { return programmerStatus_.get(); }
   Ptp::HwStatus* hwStatus() const { return hwStatus_.get(); }

   // Judges every reported interface.
   void handleIntfStatus();
   // Judges the interface of `k` from the reports of all active programmers.
   // Asked again while judging (a report reacting to the readiness written),
   // it judges once the present judgement has written both directions.
   void handleIntfStatus(const ProgrammerIntfId& k);
   // Copies the static timestamping properties into the published entry.
   void updateStaticHwIntfStatus(Wyx::IntfId intfId);

   const NestedSm_IntfStatus* intfStatus(const ProgrammerIntfId& k) const { return intfStatus_.find(k); }

   NestedSm_IntfStatus* intfStatus(const ProgrammerIntfId& k) { return intfStatus_.find(k); }
   const Kiv::Collection<ProgrammerIntfId, NestedSm_IntfStatus>& intfStatus() const { return intfStatus_; }
   // Keyed by the key of `intfInfo`.
   Pondo::Ptr<NestedSm_IntfStatus> intfStatusIs(const Pondo::Ptr<const IntfInfo>& intfInfo);
   Pondo::Ptr<NestedSm_IntfStatus> intfStatusDel(const ProgrammerIntfId& k);
   void intfStatusDelAll();

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   void on_intfStatus(const ProgrammerIntfId& k);
   void judge(const ProgrammerIntfId& k);

   Kiv::Input<const Status> programmerStatus_;
   Pondo::Ptr<Ptp::HwStatus> hwStatus_;
   Kiv::Collection<ProgrammerIntfId, NestedSm_IntfStatus> intfStatus_{this, F::intfStatus, "intfStatus"};
   std::deque<ProgrammerIntfId> judging_;  // the judgement running, then those asked for meanwhile
};

VYRPTP_EXPORT Pondo::Ptr<AggregatorSm> aggregatorSmFactory(Pondo::Ptr<const Status> programmerStatus,
                                                           Pondo::Ptr<Ptp::HwStatus> hwStatus);
VYRPTP_EXPORT Pondo::Ptr<AggregatorSm> AggregatorSmIs(Pondo::Ptr<const Status> programmerStatus,
                                                      Pondo::Ptr<Ptp::HwStatus> hwStatus);
VYRPTP_EXPORT Pondo::Ptr<NestedSm_IntfStatus> nestedSm_IntfStatusFactory(Pondo::Ptr<const IntfInfo> intfInfo,
                                                                         AggregatorSm* aggregator);
VYRPTP_EXPORT Pondo::Ptr<NestedSm_IntfStatus> NestedSm_IntfStatusIs(Pondo::Ptr<const IntfInfo> intfInfo,
                                                                    AggregatorSm* aggregator);

}  // namespace VyrPtp::Programmer
