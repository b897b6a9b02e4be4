// The agent's programmer records, entered in sysdb: every programmer of the
// simulator reports there, and the aggregators read them.
#pragma once

#include "VyrPtp/ProgrammerTypes.h"
#include "World.h"

namespace Sim {

struct ProgrammerRecords {
   explicit ProgrammerRecords(World& w)
       : intfInfoStatus(shared<VyrPtp::Programmer::PtpIntfInfoStatus>(w, "ptp/programmer/intfInfoStatus")),
         pipelineInfoStatus(shared<VyrPtp::Programmer::PtpPipelineInfoStatus>(w, "ptp/programmer/pipelineInfoStatus")),
         status(shared<VyrPtp::Programmer::Status>(w, "ptp/programmer/status")) {}

   // A programmer enters an interface's static timestamping record before its
   // first report on the interface.
   void staticRecordIs(Wyx::IntfId i) const {
      if (status->staticHwIntfStatus(i)) return;
      auto s = status->staticHwIntfStatusIs(i, Ptp::LinuxTsOptions());
      s->twoStepClockIs(true);
      s->timestampMultiplierIs(1);
      s->timestampDividerIs(1);
   }

   Pondo::Ptr<VyrPtp::Programmer::PtpIntfInfoStatus> intfInfoStatus;
   Pondo::Ptr<VyrPtp::Programmer::PtpPipelineInfoStatus> pipelineInfoStatus;
   Pondo::Ptr<VyrPtp::Programmer::Status> status;

  private:
   // The record of that name, made by whichever module comes first.
   template <class T>
   static Pondo::Ptr<T> shared(World& w, const char* name) {
      if (Kiv::Entity* e = w.sysdb->entityPtr(name)) return &dynamic_cast<T&>(*e);
      auto t = Kiv::make<T>();
      w.sysdb->entityPtrIs(name, t);
      return t;
   }
};

}  // namespace Sim
