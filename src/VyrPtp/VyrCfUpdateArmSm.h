// Correction-field programming. Per logical FAP, VyrCfUpdateLogicalFapArmSm
// writes one receive and one transmit correction-field control row per
// interface from the platform's records, whenever a record's generation
// changes, and keeps the chip's set of programmed interfaces.
// VyrCfUpdateArmSm keeps one such machine and one programmed-interface record
// per logical FAP, and registers "CF_UPDATE" among the agent's active
// programmers while some chip has an interface programmed.
#pragma once

#include "Asic/CfControlTable.h"
#include "Kiv/Reactor.h"
#include "Statebase/EntityManager.h"
#include "VyrPtp/Export.h"
#include "VyrPtp/PlatformCfUpdateInfoTypes.h"
#include "VyrPtp/ProgrammerTypes.h"

namespace CorrectionField {

class VyrCfUpdateArmSm;
class VyrCfUpdateLogicalFapArmSm;

// Watches one interface's record on behalf of its chip's machine: binding to
// a record and every change of its generation program the interface.
class VYRPTP_EXPORT NestedSm_IntfInfo final
    : public Kiv::NestedSm<VyrCfUpdateLogicalFapArmSm, const PlatformCfUpdateIntfInfo> {
  public:
   NestedSm_IntfInfo(Pondo::Ptr<const PlatformCfUpdateIntfInfo> intfInfo, VyrCfUpdateLogicalFapArmSm* owner);

   const PlatformCfUpdateIntfInfo* intfInfo() const { return notifier(); }

  private:
   void handleGeneration();
   void handleBinding(const PlatformCfUpdateIntfInfo* previous, bool initial);
   void program() const;
};

class VYRPTP_EXPORT VyrCfUpdateLogicalFapArmSm final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         cfUpdateLogicalFapInfo,
         statebaseEm,
         cfUpdateStatus,
         rxCfControlTable,
         txCfControlTable,
         intfInfo
      };
   };
   VyrCfUpdateLogicalFapArmSm(Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> cfUpdateLogicalFapInfo,
                              Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                              Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateStatus);
   // Compared when the owner is asked again for the machine of a logical FAP.
   auto fixedArgs() const { return std::make_tuple(cfUpdateLogicalFapInfo_.ptr(), statebaseEm_, cfUpdateStatus_); }

   const PlatformCfUpdateLogicalFapInfo* cfUpdateLogicalFapInfo() const { return cfUpdateLogicalFapInfo_.get(); }
   Statebase::EntityManager* statebaseEm() const { return statebaseEm_.get(); }
   CfUpdateProgrammedStatus* cfUpdateStatus() const { return cfUpdateStatus_.get(); }
   LogicalFapId logicalFapId() const { return cfUpdateLogicalFapInfo_->logicalFapId(); }
   Asic::RxCfControlTable* rxCfControlTable() const { return rxCfControlTable_.get(); }
   Asic::TxCfControlTable* txCfControlTable() const { return txCfControlTable_.get(); }

   const NestedSm_IntfInfo* intfInfo(Wyx::IntfId i) const { return intfInfo_.find(i); }

   NestedSm_IntfInfo* intfInfo(Wyx::IntfId i) { return intfInfo_.find(i); }
   const Kiv::Collection<Wyx::IntfId, NestedSm_IntfInfo>& intfInfo() const { return intfInfo_; }
   // Creates the interface's nested machine, or binds the present one to
   // `intfInfo`; binding programs the interface.
   Pondo::Ptr<NestedSm_IntfInfo> intfInfoIs(const Pondo::Ptr<const PlatformCfUpdateIntfInfo>& intfInfo);
   // Drops the nested machine only: the rows and the programmed set stay.
   Pondo::Ptr<NestedSm_IntfInfo> intfInfoDel(Wyx::IntfId i);

   void programAllIntfs();
   void programIntf(Wyx::IntfId intfId);

   // The framework's hooks, also callable directly.
   void handleInitialized() override;
   void onConstruct() override;
   void onDestruct() override;

  private:
   void handleIntfInfo(Wyx::IntfId intfId);
   void unprogrammed(Wyx::IntfId intfId);

   Kiv::Input<const PlatformCfUpdateLogicalFapInfo> cfUpdateLogicalFapInfo_;
   Pondo::Ptr<Statebase::EntityManager> statebaseEm_;
   Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateStatus_;
   Pondo::Ptr<Asic::RxCfControlTable> rxCfControlTable_;
   Pondo::Ptr<Asic::TxCfControlTable> txCfControlTable_;
   Kiv::Collection<Wyx::IntfId, NestedSm_IntfInfo> intfInfo_{this, F::intfInfo, "intfInfo"};
};

// Watches one chip's programmed-interface record for its owner: a change of
// the set re-evaluates "CF_UPDATE"; binding runs nothing.
class VYRPTP_EXPORT NestedSm_LogicalFapStatusWatcher final
    : public Kiv::NestedSm<VyrCfUpdateArmSm, const CfUpdateProgrammedStatus> {
  public:
   NestedSm_LogicalFapStatusWatcher(Pondo::Ptr<const CfUpdateProgrammedStatus> status, VyrCfUpdateArmSm* owner)
       : NestedSm(std::move(status), owner,
                  Kiv::on<CfUpdateProgrammedStatus::programmedIntf_t,
                          &NestedSm_LogicalFapStatusWatcher::handleProgrammedIntf>) {}
   auto fixedArgs() const { return std::make_tuple(Pondo::Ptr<const CfUpdateProgrammedStatus>(notifier()), ownerSm()); }

  private:
   void handleProgrammedIntf(Wyx::IntfId intfId);
};

class VYRPTP_EXPORT VyrCfUpdateArmSm final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         cfUpdateInfo,
         statebaseEm,
         programmerStatus,
         logicalFapSm,
         logicalFapStatus,
         logicalFapStatusWatcher
      };
   };
   // The name under which this programmer registers while it programs anything.
   static constexpr const char* programmerType = "CF_UPDATE";

   VyrCfUpdateArmSm(Pondo::Ptr<const PlatformCfUpdateInfo> cfUpdateInfo,
                    Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                    Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus);

   const PlatformCfUpdateInfo* cfUpdateInfo() const { return cfUpdateInfo_.get(); }
   Statebase::EntityManager* statebaseEm() const { return statebaseEm_.get(); }
   VyrPtp::Programmer::Status* programmerStatus() const { return programmerStatus_.get(); }

   const VyrCfUpdateLogicalFapArmSm* logicalFapSm(LogicalFapId id) const { return logicalFapSm_.find(id); }

   VyrCfUpdateLogicalFapArmSm* logicalFapSm(LogicalFapId id) { return logicalFapSm_.find(id); }
   const Kiv::Collection<LogicalFapId, VyrCfUpdateLogicalFapArmSm>& logicalFapSm() const { return logicalFapSm_; }
   Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> logicalFapSmIs(
       Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> logicalFapInfo,
       Pondo::Ptr<Statebase::EntityManager> statebaseEm, Pondo::Ptr<CfUpdateProgrammedStatus> status);
   Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> logicalFapSmDel(LogicalFapId id) { return logicalFapSm_.del(id); }

   const CfUpdateProgrammedStatus* logicalFapStatus(LogicalFapId id) const { return logicalFapStatus_.find(id); }

   CfUpdateProgrammedStatus* logicalFapStatus(LogicalFapId id) { return logicalFapStatus_.find(id); }
   const Kiv::Collection<LogicalFapId, CfUpdateProgrammedStatus>& logicalFapStatus() const { return logicalFapStatus_; }
   // Creates the chip's record, with its watcher, if absent.
   Pondo::Ptr<CfUpdateProgrammedStatus> logicalFapStatusIs(LogicalFapId id);
   // Drops the watcher, then the record.
   Pondo::Ptr<CfUpdateProgrammedStatus> logicalFapStatusDel(LogicalFapId id);

   const NestedSm_LogicalFapStatusWatcher* logicalFapStatusWatcher(LogicalFapId id) const {
      return logicalFapStatusWatcher_.find(id);
   }

   NestedSm_LogicalFapStatusWatcher* logicalFapStatusWatcher(LogicalFapId id) {
      return logicalFapStatusWatcher_.find(id);
   }
   const Kiv::Collection<LogicalFapId, NestedSm_LogicalFapStatusWatcher>& logicalFapStatusWatcher() const {
      return logicalFapStatusWatcher_;
   }
   Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> logicalFapStatusWatcherIs(
       const Pondo::Ptr<const CfUpdateProgrammedStatus>& status);
   Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> logicalFapStatusWatcherDel(LogicalFapId id);

   void handleLogicalFapInfo();
   void handleLogicalFapInfo(LogicalFapId logicalFapId);
   void handleProgrammedStatus();

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   void on_logicalFapInfo(LogicalFapId logicalFapId);

   Kiv::Input<const PlatformCfUpdateInfo> cfUpdateInfo_;
   Pondo::Ptr<Statebase::EntityManager> statebaseEm_;
   Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus_;
   Kiv::Collection<LogicalFapId, VyrCfUpdateLogicalFapArmSm> logicalFapSm_{this, F::logicalFapSm, "logicalFapSm"};
   Kiv::Collection<LogicalFapId, CfUpdateProgrammedStatus> logicalFapStatus_{this, F::logicalFapStatus,
                                                                             "logicalFapStatus"};
   Kiv::Collection<LogicalFapId, NestedSm_LogicalFapStatusWatcher> logicalFapStatusWatcher_{
       this, F::logicalFapStatusWatcher, "logicalFapStatusWatcher"};
};

VYRPTP_EXPORT Pondo::Ptr<VyrCfUpdateArmSm> vyrCfUpdateArmSmFactory(
    Pondo::Ptr<const PlatformCfUpdateInfo> cfUpdateInfo, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> vyrCfUpdateLogicalFapArmSmFactory(
    Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> cfUpdateLogicalFapInfo,
    Pondo::Ptr<Statebase::EntityManager> statebaseEm, Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateStatus);
VYRPTP_EXPORT Pondo::Ptr<NestedSm_IntfInfo> nestedSm_IntfInfoFactory(
    Pondo::Ptr<const PlatformCfUpdateIntfInfo> intfInfo, VyrCfUpdateLogicalFapArmSm* owner);
VYRPTP_EXPORT Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> nestedSm_LogicalFapStatusWatcherFactory(
    Pondo::Ptr<const CfUpdateProgrammedStatus> status, VyrCfUpdateArmSm* owner);
VYRPTP_EXPORT Pondo::Ptr<VyrCfUpdateArmSm> VyrCfUpdateArmSmIs(Pondo::Ptr<const PlatformCfUpdateInfo> cfUpdateInfo,
                                                              Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                                                              Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> VyrCfUpdateLogicalFapArmSmIs(
    Pondo::Ptr<const PlatformCfUpdateLogicalFapInfo> cfUpdateLogicalFapInfo,
    Pondo::Ptr<Statebase::EntityManager> statebaseEm, Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateStatus);

VYRPTP_EXPORT Pondo::Ptr<NestedSm_IntfInfo> NestedSm_IntfInfoIs(Pondo::Ptr<const PlatformCfUpdateIntfInfo> intfInfo,
                                                                VyrCfUpdateLogicalFapArmSm* owner);
VYRPTP_EXPORT Pondo::Ptr<NestedSm_LogicalFapStatusWatcher> NestedSm_LogicalFapStatusWatcherIs(
    Pondo::Ptr<const CfUpdateProgrammedStatus> status, VyrCfUpdateArmSm* owner);

}  // namespace CorrectionField
