// Egress timestamp collection. Per logical FAP, VyrEgressTsArmLogicalFapSm
// drains the chip's egress timestamp slot of every interface that needs
// timestamps, then reads it on every tick of a shared timer wheel, widens each
// latched 32-bit time to full time through a timestamp fetcher and publishes it
// into the timestamp table read by the protocol side. VyrEgressTsArmAggregateSm
// makes one collector and one fetcher per logical FAP; VyrEgressTsPollingAdapterSm
// keeps interfaces timestamped at an external PHY out of the chips' polling.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Asic/EgressTimestampTable.h"
#include "Brim/TimerWheel.h"
#include "Kiv/Reactor.h"
#include "Ptp/HwTimestampStatus.h"
#include "Ptp/PtpTimestampLocationConfig.h"
#include "PtpTimeSync/Config.h"
#include "PtpTimeSync/Status.h"
#include "Statebase/EntityManager.h"
#include "VyrPtp/EgressTimestampIntfSm.h"
#include "VyrPtp/Export.h"
#include "VyrPtp/PlatformEgressTsInfoTypes.h"
#include "VyrPtp/VyrHelperPtp.h"

namespace VyrPtp {

using Pondo::U3;

// The collector of one logical FAP. Per interface: not collected, draining
// (stale entries are read and dropped, one read outstanding at a time), or
// polled (read on every timer tick, valid entries published).
class VYRPTP_EXPORT VyrEgressTsArmLogicalFapSm final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         logicalFapId,
         egressTimestampIntfStatus,
         tsLogicalFapInfo,
         timestampFetcher,
         statebaseEm,
         timestampGlint,
         timerWheel,
         pollingPeriod,
         egressTsTable,
         pollInterface,
         drainInterface,
         swIndexToIntf
      };
   };
   using pollInterface_t = Kiv::Field<VyrEgressTsArmLogicalFapSm, Kiv::Set<Wyx::IntfId>, F::pollInterface>;
   using Key = Asic::EgressTsSwTableKey;
   using Entry = Asic::EgressTimestampTable::Entry;

   // Seconds between polls, as a single-precision constant (0.004999999888241291).
   static constexpr double defaultPollingPeriod = double(0.005f);
   // Taken off every expiry (0.0010000000474974513): the wheel rounds deadlines
   // up to its 1 ms tick, so polls come every 4 ms.
   static constexpr double expiryAdvance = double(0.001f);
   // A valid entry read at a later drain iteration ends the drain: at most
   // eight reads (iterations 0 to 7) per drain.
   static constexpr std::uint8_t lastDrainIterationToContinue = 6;

   VyrEgressTsArmLogicalFapSm(LogicalFapId logicalFapId,
                              Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
                              Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> tsLogicalFapInfo,
                              Pondo::Ptr<TimestampFetcherBase> timestampFetcher,
                              Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                              Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint,
                              Pondo::Ptr<Brim::TimerWheel> timerWheel);
   // Compared when the collection that owns collectors is asked for an existing one.
   auto fixedArgs() const {
      return std::make_tuple(egressTimestampIntfStatus_.ptr(), tsLogicalFapInfo_.ptr(), timestampFetcher_, statebaseEm_,
                             timestampGlint_, timerWheel_);
   }

   LogicalFapId logicalFapId() const { return logicalFapId_; }
   const EgressTimestampIntfStatus* egressTimestampIntfStatus() const { return egressTimestampIntfStatus_.get(); }
   const PlatformEgressTsLogicalFapInfo* tsLogicalFapInfo() const { return tsLogicalFapInfo_.get(); }
   TimestampFetcherBase* timestampFetcher() const { return timestampFetcher_.get(); }
   Statebase::EntityManager* statebaseEm() const { return statebaseEm_.get(); }
   Ptp::HwTimestampStatus* timestampGlint() const { return timestampGlint_.get(); }
   Brim::TimerWheel* timerWheel() const { return timerWheel_.get(); }
   // Timestamps are published as read from the chip, without a fetcher (see
   // simulationVmidSet()).
   bool simulation() const { return simulation_ ? *simulation_ : simulationVmidSet(); }
   void simulationIs(bool s) { simulation_ = s; }
   double pollingPeriod() const { return pollingPeriod_; }
   Asic::EgressTimestampTable* egressTsTable() const { return egressTsTable_.get(); }
   // When the next poll is due (loop time).
   Kiv::Seconds timeMin() const { return kivTimerWheel_.timeMin(); }

   // Interfaces whose slot is read on every tick.
   const Kiv::Set<Wyx::IntfId>& pollInterface() const { return pollInterface_; }
   void pollInterfaceIs(Wyx::IntfId i);
   bool pollInterfaceDel(Wyx::IntfId i);
   void pollInterfaceDelAll();

   // Drain iteration of the interfaces being drained. Storing a new iteration
   // runs handleDrainInterface, as a reaction to the attribute would; storing
   // the present one changes nothing.
   const Kiv::Map<Wyx::IntfId, U3>& drainInterface() const { return drainInterface_; }
   void drainInterfaceIs(Wyx::IntfId i, U3 iteration);
   // Stores (stored iteration, 0 if none) + n; Pondo::RangeError beyond 7.
   U3 drainInterfaceInc(Wyx::IntfId i, U3 n);
   bool drainInterfaceDel(Wyx::IntfId i) { return drainInterface_.del(i); }
   void drainInterfaceDelAll() { drainInterface_.delAll(); }

   // The interface for which each slot was last read.
   const Kiv::Map<Key, Wyx::IntfId>& swIndexToIntf() const { return swIndexToIntf_; }
   // The interface, or the null one.
   Wyx::IntfId swIndexToIntf(const Key& key) const;
   void swIndexToIntfIs(const Key& key, Wyx::IntfId i);
   bool swIndexToIntfDel(const Key& key);
   void swIndexToIntfDelAll();

   // Reactions.
   void handlePhysicalIntfNeedsPolling(Wyx::IntfId intfId);
   void handlePhysicalIntfNeedsPolling();
   void handleIntfInfo(Wyx::IntfId intfId);
   void handleIntfInfo();
   void handleDrainInterface(Wyx::IntfId intfId);
   void handleTimer();
   // Completions of drain reads and of poll reads.
   void callbackDrainFifo(const Key& key, const Entry& entry);
   void callbackTimestamp(const Key& key, const Entry& entry);

   void checkAllInputsPresent(Wyx::IntfId intfId);
   void sendFifoDrainReadReq(Wyx::IntfId intfId);
   void sendEgressTimestampReadReq();

   // The framework's hooks, also callable directly.
   void onConstruct() override;
   void onDestruct() override;

  private:
   void on_physicalIntfNeedsPolling(Wyx::IntfId intfId);
   void on_intfInfo(Wyx::IntfId intfId);
   // The interface's slot; index 0 and port type 0 when the interface has no info.
   Key swTableKey(Wyx::IntfId intfId) const;
   void assertKeyMatches(const Key& key, Wyx::IntfId intfId) const;
   // One polled interface as the poll issues its read.
   struct Polled {
      Wyx::IntfId intf;
      Key key;
      // swIndexWrites_ when swIndexToIntf was last seen to map `key` to `intf`.
      std::uint32_t mapped;
   };
   void polledRebuild();
   // The interface a completed poll read of `key` was issued for, when nothing
   // it was derived from (the slot map, the polled interfaces, the interface
   // infos) has changed since; else null, and the maps must be consulted.
   const Polled* unchangedSinceIssue(const Key& key, std::uint32_t request) const;
   // The completion of the poll read issued at position `request` of polled_;
   // kNoRequest for a completion called directly.
   static constexpr std::uint32_t kNoRequest = UINT32_MAX;
   void callbackTimestamp(const Key& key, const Entry& entry, std::uint32_t request);

   LogicalFapId logicalFapId_;
   Kiv::Input<const EgressTimestampIntfStatus> egressTimestampIntfStatus_;
   Kiv::Input<const PlatformEgressTsLogicalFapInfo> tsLogicalFapInfo_;
   Pondo::Ptr<TimestampFetcherBase> timestampFetcher_;
   Pondo::Ptr<Statebase::EntityManager> statebaseEm_;
   Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint_;
   Pondo::Ptr<Brim::TimerWheel> timerWheel_;
   std::optional<bool> simulation_;  // chosen by a test, else the environment
   double pollingPeriod_ = defaultPollingPeriod;
   Pondo::Ptr<Asic::EgressTimestampTable> egressTsTable_;
   Kiv::Set<Wyx::IntfId> pollInterface_{this, F::pollInterface, "pollInterface"};
   Kiv::Map<Wyx::IntfId, U3> drainInterface_{this, F::drainInterface, "drainInterface"};
   Kiv::Map<Key, Wyx::IntfId> swIndexToIntf_{this, F::swIndexToIntf, "swIndexToIntf"};
   // The polled interfaces with their slots, in polling order, rebuilt after
   // pollInterface or the interface infos change: the poll walks an array.
   std::vector<Polled> polled_;
   bool polledStale_ = true;
   // The simulation mode the last poll found: the completions of its reads go
   // by it, so the environment is looked at once per poll.
   bool pollSimulation_ = false;
   // Counts the changes of swIndexToIntf.
   std::uint32_t swIndexWrites_ = 1;
   Brim::TimerWheel::Timer kivTimerWheel_;
};

// Passes on the interfaces that need egress timestamps, except those whose
// timestamps an external PHY takes.
class VYRPTP_EXPORT VyrEgressTsPollingAdapterSm final : public Kiv::Reactor {
  public:
   VyrEgressTsPollingAdapterSm(Pondo::Ptr<const PtpTimestampLocationConfig> ptpTimestampLocationConfig,
                               Pondo::Ptr<const EgressTimestampIntfStatus> inputEgressTsIntfStatus,
                               Pondo::Ptr<EgressTimestampIntfStatus> outputEgressTsIntfStatus);

   const PtpTimestampLocationConfig* ptpTimestampLocationConfig() const { return ptpTimestampLocationConfig_.get(); }
   const EgressTimestampIntfStatus* inputEgressTsIntfStatus() const { return inputEgressTsIntfStatus_.get(); }
   EgressTimestampIntfStatus* outputEgressTsIntfStatus() const { return outputEgressTsIntfStatus_.get(); }

   // Whether the chip must deliver the interface's egress timestamps.
   bool asicNeedsPolling(Wyx::IntfId intfId) const;

   void handlePhysicalIntfNeedsPolling(Wyx::IntfId intfId);
   void handlePhysicalIntfNeedsPolling();
   void handleLocation(Wyx::IntfId intfId);
   void handleLocation();
   void processPtpLocationAndPolling(Wyx::IntfId intfId);

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   void on_enabledPhysicalIntfConfig(Wyx::IntfId intfId);
   void on_location(const PtpTimestampLocationIntfConfig& entry);
   void on_physicalIntfNeedsPolling(Wyx::IntfId intfId);

   Kiv::Input<const PtpTimestampLocationConfig> ptpTimestampLocationConfig_;
   Kiv::Input<const EgressTimestampIntfStatus> inputEgressTsIntfStatus_;
   Pondo::Ptr<EgressTimestampIntfStatus> outputEgressTsIntfStatus_;
};

// One collector and one full-time source per logical FAP with platform egress
// timestamp info, on one timer wheel. The source is the chip's ASIC time file
// when the product says so, else the FPGA counter that time synchronisation uses.
class VYRPTP_EXPORT VyrEgressTsArmAggregateSm final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         egressTimestampIntfStatus,
         tsInterfaceInfo,
         timeSyncConfig,
         timeSyncStatus,
         statebaseEm,
         timestampGlint,
         timerWheel,
         logicalFapSm,
         asicTimeFetcherWrapperCol
      };
   };
   using logicalFapSm_t = Kiv::Field<VyrEgressTsArmAggregateSm,
                                     Kiv::Collection<LogicalFapId, VyrEgressTsArmLogicalFapSm>, F::logicalFapSm>;
   // The shared timer wheel: 1 ms ticks over 655,350 ticks, timers of a tick
   // in the order they were set, room for 1,024 timers per bucket.
   static constexpr std::uint32_t timerWheelTickMsecs = 1;
   static constexpr std::uint32_t timerWheelInitialMaxTicks = 0x9FFF6;
   static constexpr bool timerWheelPreserveOrder = true;
   static constexpr std::uint32_t timerWheelDefaultBucketSize = 1024;

   VyrEgressTsArmAggregateSm(Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
                             Pondo::Ptr<const PlatformEgressTsInfo> tsInterfaceInfo,
                             Pondo::Ptr<const PtpTimeSync::Config> timeSyncConfig,
                             Pondo::Ptr<const PtpTimeSync::Status> timeSyncStatus,
                             Pondo::Ptr<Statebase::EntityManager> statebaseEm,
                             Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint);

   const EgressTimestampIntfStatus* egressTimestampIntfStatus() const { return egressTimestampIntfStatus_.get(); }
   const PlatformEgressTsInfo* tsInterfaceInfo() const { return tsInterfaceInfo_.get(); }
   const PtpTimeSync::Config* timeSyncConfig() const { return timeSyncConfig_.get(); }
   const PtpTimeSync::Status* timeSyncStatus() const { return timeSyncStatus_.get(); }
   Statebase::EntityManager* statebaseEm() const { return statebaseEm_.get(); }
   Ptp::HwTimestampStatus* timestampGlint() const { return timestampGlint_.get(); }
   Brim::TimerWheel* timerWheel() const { return timerWheel_.get(); }

   const VyrEgressTsArmLogicalFapSm* logicalFapSm(LogicalFapId id) const { return logicalFapSm_.find(id); }

   VyrEgressTsArmLogicalFapSm* logicalFapSm(LogicalFapId id) { return logicalFapSm_.find(id); }
   const Kiv::Collection<LogicalFapId, VyrEgressTsArmLogicalFapSm>& logicalFapSm() const { return logicalFapSm_; }
   Pondo::Ptr<VyrEgressTsArmLogicalFapSm> logicalFapSmIs(LogicalFapId id,
                                                         Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> info,
                                                         Pondo::Ptr<TimestampFetcherBase> fetcher,
                                                         Pondo::Ptr<Brim::TimerWheel> timerWheel);
   Pondo::Ptr<VyrEgressTsArmLogicalFapSm> logicalFapSmDel(LogicalFapId id) { return logicalFapSm_.del(id); }
   void logicalFapSmDelAll() { logicalFapSm_.delAll(); }

   const AsicTimestampFetcherWrapper* asicTimeFetcherWrapperCol(LogicalFapId id) const {
      return asicTimeFetcherWrapperCol_.find(id);
   }

   AsicTimestampFetcherWrapper* asicTimeFetcherWrapperCol(LogicalFapId id) {
      return asicTimeFetcherWrapperCol_.find(id);
   }
   const Kiv::Collection<LogicalFapId, AsicTimestampFetcherWrapper>& asicTimeFetcherWrapperCol() const {
      return asicTimeFetcherWrapperCol_;
   }
   Pondo::Ptr<AsicTimestampFetcherWrapper> asicTimeFetcherWrapperColIs(LogicalFapId id,
                                                                       Pondo::Ptr<AsicTimestampFetcherWrapper> w) {
      return asicTimeFetcherWrapperCol_.insert(id, std::move(w));
   }
   Pondo::Ptr<AsicTimestampFetcherWrapper> asicTimeFetcherWrapperColDel(LogicalFapId id) {
      return asicTimeFetcherWrapperCol_.del(id);
   }
   void asicTimeFetcherWrapperColDelAll() { asicTimeFetcherWrapperCol_.delAll(); }

   void handleLogicalFapInfo(LogicalFapId logicalFapId);
   void handleLogicalFapInfo();
   void checkAllInputsPresent(LogicalFapId logicalFapId);

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   void on_logicalFapInfo(LogicalFapId logicalFapId);

   Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus_;
   Kiv::Input<const PlatformEgressTsInfo> tsInterfaceInfo_;
   Pondo::Ptr<const PtpTimeSync::Config> timeSyncConfig_;
   Pondo::Ptr<const PtpTimeSync::Status> timeSyncStatus_;
   Pondo::Ptr<Statebase::EntityManager> statebaseEm_;
   Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint_;
   Pondo::Ptr<Brim::TimerWheel> timerWheel_;
   Kiv::Collection<LogicalFapId, VyrEgressTsArmLogicalFapSm> logicalFapSm_{this, F::logicalFapSm, "logicalFapSm"};
   Kiv::Collection<LogicalFapId, AsicTimestampFetcherWrapper> asicTimeFetcherWrapperCol_{
       this, F::asicTimeFetcherWrapperCol, "asicTimeFetcherWrapperCol"};
};

VYRPTP_EXPORT Pondo::Ptr<VyrEgressTsArmLogicalFapSm> vyrEgressTsArmLogicalFapSmFactory(
    LogicalFapId logicalFapId, Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> tsLogicalFapInfo,
    Pondo::Ptr<TimestampFetcherBase> timestampFetcher, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint, Pondo::Ptr<Brim::TimerWheel> timerWheel);
VYRPTP_EXPORT Pondo::Ptr<VyrEgressTsPollingAdapterSm> vyrEgressTsPollingAdapterSmFactory(
    Pondo::Ptr<const PtpTimestampLocationConfig> ptpTimestampLocationConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> inputEgressTsIntfStatus,
    Pondo::Ptr<EgressTimestampIntfStatus> outputEgressTsIntfStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrEgressTsArmAggregateSm> vyrEgressTsArmAggregateSmFactory(
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsInfo> tsInterfaceInfo, Pondo::Ptr<const PtpTimeSync::Config> timeSyncConfig,
    Pondo::Ptr<const PtpTimeSync::Status> timeSyncStatus, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint);
VYRPTP_EXPORT Pondo::Ptr<VyrEgressTsArmLogicalFapSm> VyrEgressTsArmLogicalFapSmIs(
    LogicalFapId logicalFapId, Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsLogicalFapInfo> tsLogicalFapInfo,
    Pondo::Ptr<TimestampFetcherBase> timestampFetcher, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint, Pondo::Ptr<Brim::TimerWheel> timerWheel);
VYRPTP_EXPORT Pondo::Ptr<VyrEgressTsPollingAdapterSm> VyrEgressTsPollingAdapterSmIs(
    Pondo::Ptr<const PtpTimestampLocationConfig> ptpTimestampLocationConfig,
    Pondo::Ptr<const EgressTimestampIntfStatus> inputEgressTsIntfStatus,
    Pondo::Ptr<EgressTimestampIntfStatus> outputEgressTsIntfStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrEgressTsArmAggregateSm> VyrEgressTsArmAggregateSmIs(
    Pondo::Ptr<const EgressTimestampIntfStatus> egressTimestampIntfStatus,
    Pondo::Ptr<const PlatformEgressTsInfo> tsInterfaceInfo, Pondo::Ptr<const PtpTimeSync::Config> timeSyncConfig,
    Pondo::Ptr<const PtpTimeSync::Status> timeSyncStatus, Pondo::Ptr<Statebase::EntityManager> statebaseEm,
    Pondo::Ptr<Ptp::HwTimestampStatus> timestampGlint);

}  // namespace VyrPtp
