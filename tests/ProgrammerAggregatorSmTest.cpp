#include <gtest/gtest.h>

#include <map>
#include <tuple>

#include "ChangeRecorder.h"
#include "TraceCapture.h"
#include "VyrPtp/ProgrammerAggregatorSm.h"

using namespace VyrPtp::Programmer;
using Wyx::IntfId;

namespace {

using F = Ptp::HwIntfStatus::F;

// Everything an entry publishes, for comparing two hardware statuses.
using EntryState = std::tuple<Ptp::LinuxTsOptions, bool, bool, bool, bool, std::uint32_t, std::uint32_t, bool,
                              Pondo::Duration, Pondo::Duration>;
std::map<IntfId, EntryState> stateOf(const Ptp::HwStatus& hw) {
   std::map<IntfId, EntryState> m;
   for (const auto& [k, e] : hw.intfStatus()) {
      m[k] = {e->linuxTsOptions(),
              e->intfReadyForTxPacket(),
              e->intfReadyForRxPacket(),
              e->twoStepClock(),
              e->timestampAtPacketEnd(),
              e->timestampMultiplier(),
              e->timestampDivider(),
              e->zeroMsb32Bits(),
              e->egressTimestampExpiryInterval(),
              e->negativeTsDeltaThreshold()};
   }
   return m;
}

class ProgrammerAggregatorSmTest : public ::testing::Test {
  protected:
   const IntfId et1{"Ethernet1/1"};
   const IntfId et2{"Ethernet2/1"};

   TraceCapture traces{"ProgrammerAggregatorSm"};
   Pondo::Ptr<Status> status = statusFactory();
   Pondo::Ptr<Ptp::HwStatus> hw = Kiv::make<Ptp::HwStatus>("hw");
   Pondo::Ptr<AggregatorSm> sm;

   void start() { sm = aggregatorSmFactory(status, hw); }
   Pondo::Ptr<Ptp::HwIntfStatus> staticRecord(IntfId i) {
      auto s = status->staticHwIntfStatusIs(i, Ptp::LinuxTsOptions(0x5));
      s->twoStepClockIs(true);
      s->timestampAtPacketEndIs(true);
      s->timestampMultiplierIs(3);
      s->timestampDividerIs(2);
      s->zeroMsb32BitsIs(true);
      s->egressTimestampExpiryIntervalIs(Pondo::Duration::milliseconds(40));
      s->negativeTsDeltaThresholdIs(Pondo::Duration::nanoseconds(500));
      return s;
   }
   void report(const char* type, IntfId i, bool valid, std::uint32_t g = 1) {
      status->intfStatusIs({type, i})->generationIs({g, valid});
   }
   // (tx, rx), or nothing when the interface has no entry.
   std::optional<std::pair<bool, bool>> readiness(IntfId i) const {
      const Ptp::HwIntfStatus* e = hw->intfStatus(i);
      if (!e) return std::nullopt;
      return std::pair{e->intfReadyForTxPacket(), e->intfReadyForRxPacket()};
   }
};

const std::pair<bool, bool> kReady{true, true};
const std::pair<bool, bool> kNotReady{false, false};

TEST_F(ProgrammerAggregatorSmTest, WithoutActiveProgrammersEveryJudgementDeletesTheEntry) {
   staticRecord(et1);
   start();
   report("A", et1, true);
   EXPECT_FALSE(readiness(et1));
   hw->intfStatusIs(et1, Ptp::LinuxTsOptions());  // another writer's entry
   traces.clear();
   report("A", et1, false);
   EXPECT_FALSE(readiness(et1));
   EXPECT_EQ(traces.count(5, "programmers 0, valid true"), 1u);
}

TEST_F(ProgrammerAggregatorSmTest, OneOfTwoActiveProgrammersReportedDecidesAlone) {
   status->programmerActiveIs("A");
   status->programmerActiveIs("B");
   staticRecord(et1);
   start();
   report("A", et1, true);
   EXPECT_EQ(readiness(et1), kReady);
   std::vector<std::pair<unsigned, std::string>> seen;
   for (const auto& r : traces.records) seen.emplace_back(r.level, r.message);
   EXPECT_EQ(seen, (std::vector<std::pair<unsigned, std::string>>{
                       {8, "handleInitialized"},
                       {8, "handleIntfStatus"},
                       {8, "handleIntfStatus: programmerType A, intfId Ethernet1/1"},
                       {5, "Status for programmer type A exists, valid is now false"},
                       {5, "Status for programmer type B doesn't exist yet"},
                       {5, "programmers 1, valid false"},
                       {8, "updateStaticHwIntfStatus: intfId Ethernet1/1"},
                       {8, "handleIntfStatus: programmerType A, intfId Ethernet1/1"},
                       {5, "Status for programmer type A exists, valid is now true"},
                       {5, "Status for programmer type B doesn't exist yet"},
                       {5, "programmers 1, valid true"},
                       {8, "updateStaticHwIntfStatus: intfId Ethernet1/1"},
                   }));

   traces.clear();
   report("B", et1, false);
   EXPECT_EQ(readiness(et1), kNotReady);
   EXPECT_EQ(traces.count(5, "Status for programmer type B exists, valid is now false"), 2u);  // added, then reported
   EXPECT_EQ(traces.count(5, "programmers 2, valid false"), 2u);
}

TEST_F(ProgrammerAggregatorSmTest, EveryActiveProgrammerIsConsultedWhicheverReported) {
   status->programmerActiveIs("A");
   status->programmerActiveIs("B");
   staticRecord(et1);
   start();
   report("B", et1, false);
   report("A", et1, true);  // judged from A's change, B's verdict still counts
   EXPECT_EQ(readiness(et1), kNotReady);
   traces.clear();
   sm->handleIntfStatus({"SOMEONE_ELSE", et1});
   EXPECT_EQ(traces.count(5, "programmers 2, valid false"), 1u);
}

TEST_F(ProgrammerAggregatorSmTest, RemovedReportsLeaveTheRemainingProgrammersToDecide) {
   status->programmerActiveIs("A");
   status->programmerActiveIs("B");
   staticRecord(et1);
   start();
   report("A", et1, true);
   report("B", et1, false);
   ASSERT_EQ(readiness(et1), kNotReady);
   status->intfStatusDel({"B", et1});
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(sm->intfStatus({"B", et1}), nullptr);
   status->intfStatusDel({"A", et1});
   EXPECT_FALSE(readiness(et1));
   EXPECT_TRUE(sm->intfStatus().empty());
}

TEST_F(ProgrammerAggregatorSmTest, ReportsOfInactiveProgrammersAreIgnored) {
   status->programmerActiveIs("A");
   staticRecord(et1);
   staticRecord(et2);
   start();
   report("C", et2, true);
   EXPECT_FALSE(readiness(et2));
   report("C", et1, true);
   report("A", et1, false);
   EXPECT_EQ(readiness(et1), kNotReady);
   EXPECT_EQ(traces.count(5, "programmers 1, valid false"), 2u);  // A added, A reported
}

TEST_F(ProgrammerAggregatorSmTest, AReportWithoutAStaticRecordStopsTheProcess) {
   status->programmerActiveIs("A");
   start();
   EXPECT_DEATH(report("A", et1, true), "Assertion failed: staticStatus \\(");
}

TEST_F(ProgrammerAggregatorSmTest, StaticPropertiesAreCopiedInOrderBeforeReadinessReceiveFirst) {
   status->programmerActiveIs("A");
   staticRecord(et1);
   start();
   ChangeRecorder changes(hw);
   report("A", et1, true, 0);
   ASSERT_TRUE(readiness(et1));
   const Ptp::HwIntfStatus* entry = hw->intfStatus(et1);
   EXPECT_EQ(changes.entries.front(),
             (ChangeRecorder::Entry{hw.get(), Ptp::HwStatus::F::intfStatus, Kiv::Change::Kind::added}));
   EXPECT_EQ(
       changes.fieldsOf(entry),
       (std::vector<Kiv::FieldId>{F::twoStepClock, F::timestampAtPacketEnd, F::timestampMultiplier, F::timestampDivider,
                                  F::zeroMsb32Bits, F::egressTimestampExpiryInterval, F::negativeTsDeltaThreshold,
                                  F::intfReadyForRxPacket, F::intfReadyForTxPacket}));
   EXPECT_EQ(entry->linuxTsOptions(), Ptp::LinuxTsOptions(0x5));
   EXPECT_EQ(stateOf(*hw).at(et1), (EntryState{Ptp::LinuxTsOptions(0x5), true, true, true, true, 3, 2, true,
                                               Pondo::Duration::milliseconds(40), Pondo::Duration::nanoseconds(500)}));
}

TEST_F(ProgrammerAggregatorSmTest, ChangesOfActiveSetAndStaticRecordsWaitForTheNextJudgement) {
   status->programmerActiveIs("A");
   status->programmerActiveIs("B");
   auto s = staticRecord(et1);
   start();
   report("A", et1, true);
   report("B", et1, false);
   traces.clear();
   status->programmerActiveDel("B");
   s->timestampMultiplierIs(9);
   EXPECT_EQ(readiness(et1), kNotReady);
   EXPECT_EQ(hw->intfStatus(et1)->timestampMultiplier(), 3u);
   EXPECT_TRUE(traces.records.empty());

   report("A", et1, true, 2);
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(hw->intfStatus(et1)->timestampMultiplier(), 9u);
   status->programmerActiveDel("A");
   report("A", et1, true, 3);
   EXPECT_FALSE(readiness(et1));
}

TEST_F(ProgrammerAggregatorSmTest, AnExistingEntryIsKeptWithItsOptions) {
   status->programmerActiveIs("A");
   staticRecord(et1);
   start();
   auto entry = hw->intfStatusIs(et1, Ptp::LinuxTsOptions(0x1));  // another writer's entry
   report("A", et1, true);
   EXPECT_EQ(hw->intfStatus(et1), entry.get());
   EXPECT_EQ(entry->linuxTsOptions(), Ptp::LinuxTsOptions(0x1));
   EXPECT_EQ(entry->timestampMultiplier(), 3u);
   EXPECT_EQ(readiness(et1), kReady);
}

TEST_F(ProgrammerAggregatorSmTest, StartEmptiesThePublishedStatusAndRebuildsIt) {
   status->programmerActiveIs("A");
   staticRecord(et1);
   report("A", et1, true);
   hw->intfStatusIs(et2, Ptp::LinuxTsOptions());  // left from an earlier life
   hw->intfStatusIs(et1, Ptp::LinuxTsOptions(0x1));
   ChangeRecorder changes(hw);
   start();
   EXPECT_FALSE(readiness(et2));
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(hw->intfStatus(et1)->linuxTsOptions(), Ptp::LinuxTsOptions(0x5));
   EXPECT_EQ(traces.count(8, "handleInitialized"), 1u);
   // Nothing is judged before the start has emptied the status: et1 goes once.
   std::vector<Kiv::Change::Kind> membership;
   for (const auto& c : changes.entries) {
      if (c.source == hw.get()) membership.push_back(c.kind);
   }
   using K = Kiv::Change::Kind;
   EXPECT_EQ(membership, (std::vector<K>{K::removed, K::removed, K::added}));
   EXPECT_NE(sm->intfStatus({"A", et1}), nullptr);
}

TEST_F(ProgrammerAggregatorSmTest, BuiltOnAPopulatedStatusReachesTheStateOfOneThatWatchedItFill) {
   auto watchedHw = Kiv::make<Ptp::HwStatus>("watched");
   auto watcher = aggregatorSmFactory(status, watchedHw);
   status->programmerActiveIs("A");
   status->programmerActiveIs("B");
   staticRecord(et1);
   staticRecord(et2);
   report("A", et1, true);
   report("B", et1, true);
   report("A", et2, true);
   report("B", et2, false);
   report("C", et2, true);
   status->intfStatusDel({"A", et2});

   start();
   EXPECT_EQ(stateOf(*hw), stateOf(*watchedHw));
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(readiness(et2), kNotReady);
   EXPECT_EQ(sm->intfStatus().size(), watcher->intfStatus().size());
}

TEST_F(ProgrammerAggregatorSmTest, TeardownLeavesThePublishedEntries) {
   status->programmerActiveIs("A");
   staticRecord(et1);
   start();
   report("A", et1, true);
   Pondo::Ptr<const IntfInfo> report = status->intfStatus({"A", et1});
   sm = nullptr;
   EXPECT_EQ(status->subscribers(), 0u);
   EXPECT_EQ(report->subscribers(), 0u);
   traces.clear();
   status->intfStatusDel({"A", et1});
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_TRUE(traces.records.empty());
}

TEST_F(ProgrammerAggregatorSmTest, NestedMachinesFollowTheReports) {
   status->programmerActiveIs("A");
   staticRecord(et1);
   start();
   report("A", et1, false);
   NestedSm_IntfStatus* nested = sm->intfStatus({"A", et1});
   ASSERT_NE(nested, nullptr);
   EXPECT_EQ(nested->notifier(), status->intfStatus({"A", et1}));
   EXPECT_EQ(nested->parent(), sm.get());
   EXPECT_EQ(nested->ownerSm(), sm.get());
   EXPECT_THROW(sm->intfStatusIs(intfInfoFactory({"A", et1})), Kiv::Error);
   EXPECT_THROW(aggregatorSmFactory(status, nullptr), Kiv::Error);
}

TEST_F(ProgrammerAggregatorSmTest, ANestedMachineFollowsItsNotifierAndForwardsItsGeneration) {
   status->programmerActiveIs("A");
   status->programmerActiveIs("B");
   staticRecord(et1);
   staticRecord(et2);
   start();
   report("A", et1, true);
   report("B", et2, true);
   ASSERT_EQ(readiness(et1), kReady);
   NestedSm_IntfStatus* nested = sm->intfStatus({"A", et1});
   ASSERT_NE(nested, nullptr);
   Pondo::Ptr<IntfInfo> other = status->intfStatus({"B", et2});

   nested->notifierIs(other);
   EXPECT_EQ(nested->notifier(), other.get());
   EXPECT_EQ(sm->intfStatus({"A", et1}), nested);  // still under the key it was made for
   // The record it left is no longer heard.
   traces.clear();
   status->intfStatus({"A", et1})->generationIs({2, false});
   EXPECT_EQ(traces.count(8, "handleIntfStatus: programmerType A, intfId Ethernet1/1"), 0u);

   // onAttribute forwards a generation as if the record had published it.
   traces.clear();
   nested->onAttribute(IntfInfo::F::generation, Pondo::Generation{2, false});
   EXPECT_EQ(traces.count(8, "handleIntfStatus: programmerType B, intfId Ethernet2/1"), 1u);
   traces.clear();

   // The new one is, through its binding, judged under its own key; the
   // aggregator's own machine for (B, et2) judges it as well.
   other->generationIs({2, false});
   EXPECT_EQ(traces.count(8, "handleIntfStatus: programmerType B, intfId Ethernet2/1"), 2u);
   EXPECT_EQ(readiness(et2), kNotReady);
   EXPECT_EQ(readiness(et1), kReady);
}

TEST_F(ProgrammerAggregatorSmTest, ANestedMachineMadeOnItsOwnForwardsToItsOwner) {
   status->programmerActiveIs("A");
   staticRecord(et1);
   start();
   auto record = intfInfoFactory({"A", et1});
   auto viaFactory = nestedSm_IntfStatusFactory(record, sm.get());
   auto viaMaker = NestedSm_IntfStatusIs(record, sm.get());
   EXPECT_EQ(viaFactory->ownerSm(), sm.get());
   EXPECT_EQ(viaMaker->notifier(), record.get());
   EXPECT_EQ(record->subscribers(), 2u);
   traces.clear();
   record->generationIs({1, true});  // not in the status: both judge et1 from the status alone
   EXPECT_EQ(traces.count(8, "handleIntfStatus: programmerType A, intfId Ethernet1/1"), 2u);
   EXPECT_FALSE(readiness(et1));
   EXPECT_THROW(nestedSm_IntfStatusFactory(record, nullptr), Kiv::Error);
   EXPECT_THROW(NestedSm_IntfStatusIs(nullptr, sm.get()), Kiv::Error);
}

}  // namespace
