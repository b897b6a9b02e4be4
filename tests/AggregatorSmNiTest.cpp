#include <gtest/gtest.h>

#include <map>

#include "ChangeRecorder.h"
#include "TraceCapture.h"
#include "VyrPtp/AggregatorSmNi.h"

using namespace VyrPtp;
using namespace VyrPtp::Programmer;
using VyrPtp::ActionTypes::PtpActions;
using Wyx::IntfId;

namespace {

using Readiness = std::pair<bool, bool>;  // (tx, rx)
constexpr Readiness kReady{true, true};
constexpr Readiness kNotReady{false, false};

std::map<IntfId, Readiness> readinessOf(const Ptp::HwStatus& hw) {
   std::map<IntfId, Readiness> m;
   for (const auto& [k, e] : hw.intfStatus()) m[k] = {e->intfReadyForTxPacket(), e->intfReadyForRxPacket()};
   return m;
}

std::string readyText(IntfId i) { return fmt::format("hwIntfStatus for intfId: {} is now ready for PTP", i); }
std::string notReadyText(IntfId i) { return fmt::format("hwIntfStatus for intfId: {} not ready for PTP", i); }
std::string createdText(IntfId i) { return fmt::format("Created intfInfoSm for intfId: {}", i); }
std::string deletedText(IntfId i) { return fmt::format("Attempted to delete intfInfoSm for intfId: {}", i); }
constexpr const char* kPipelineReady = "Pipeline aggregate state is now ready for PTP";
constexpr const char* kPipelineNotReady = "Pipeline aggregate state not ready for PTP";

class AggregatorSmNiTest : public ::testing::Test {
  protected:
   const IntfId et1{"Ethernet1/1"};
   const IntfId et2{"Ethernet2/1"};
   const IntfId et3{"Ethernet3/1"};

   TraceCapture traces{"AggregatorSmNi"};
   Pondo::Ptr<Ptp::HwStatus> hw = Kiv::make<Ptp::HwStatus>("hw");
   Pondo::Ptr<PtpIntfInfoStatus> intfInfos = ptpIntfInfoStatusFactory();
   Pondo::Ptr<PtpPipelineInfoStatus> pipeline = ptpPipelineInfoStatusFactory();
   Pondo::Ptr<PtpActions> actions = ActionTypes::ptpActionsFactory("actions");
   Pondo::Ptr<AggregatorSmNi> sm;

   void start() { sm = aggregatorSmNiFactory(hw, intfInfos, pipeline, actions); }
   // An interface known to both sides, with its programmers.
   void intf(IntfId i, std::initializer_list<const char*> programmers = {}) {
      hw->intfStatusIs(i, Ptp::LinuxTsOptions());
      auto info = intfInfos->intfInfoIs(i);
      for (const char* p : programmers) info->programmerInfoIs(p);
   }
   void bump(std::uint32_t g) { actions->generationIs({g, true}); }
   void report(IntfId i, const char* programmer, std::uint32_t g, bool ok) {
      intfInfos->intfInfo(i)->programmerInfoIs(programmer)->generationIs({g, ok});
   }
   void reportPipeline(const char* programmer, std::uint32_t g, bool ok) {
      pipeline->programmerInfoIs(programmer)->generationIs({g, ok});
   }
   Readiness readiness(IntfId i) const {
      const Ptp::HwIntfStatus* e = hw->intfStatus(i);
      return {e->intfReadyForTxPacket(), e->intfReadyForRxPacket()};
   }
   std::size_t verdicts(IntfId i) const { return traces.count(6, readyText(i)) + traces.count(6, notReadyText(i)); }
};

TEST_F(AggregatorSmNiTest, WithoutReportsAnInterfaceIsReadyAtOnceAndOnEveryBump) {
   intf(et1);
   start();
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_TRUE(traces.has(6, readyText(et1)));

   hw->intfStatus(et1)->intfReadyForTxPacketIs(false);  // another writer
   hw->intfStatus(et1)->intfReadyForRxPacketIs(false);
   traces.clear();
   bump(1);
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(traces.count(6, readyText(et1)), 1u);
}

TEST_F(AggregatorSmNiTest, AReportOfThePreviousGenerationKeepsTheEarlierReadiness) {
   intf(et1, {"a", "b"});
   start();
   bump(1);
   report(et1, "a", 1, true);
   report(et1, "b", 1, true);
   ASSERT_EQ(readiness(et1), kReady);

   traces.clear();
   bump(2);
   report(et1, "a", 2, true);  // "b" still reports (1, true)
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(verdicts(et1), 0u);

   report(et1, "b", 2, false);
   ASSERT_EQ(readiness(et1), kNotReady);
   traces.clear();
   bump(3);
   report(et1, "a", 3, true);  // "b" still reports (2, false)
   report(et1, "b", 2, true);  // a late success for the previous generation
   EXPECT_EQ(readiness(et1), kNotReady);
   EXPECT_EQ(verdicts(et1), 0u);
}

TEST_F(AggregatorSmNiTest, OneFailedReportMakesBothDirectionsNotReadyTransmitFirst) {
   intf(et1, {"a", "b"});
   start();
   bump(1);
   report(et1, "a", 1, true);
   report(et1, "b", 1, true);
   ASSERT_EQ(readiness(et1), kReady);

   ChangeRecorder changes(hw);
   traces.clear();
   report(et1, "b", 1, false);
   EXPECT_EQ(readiness(et1), kNotReady);
   EXPECT_EQ(changes.fieldsOf(hw->intfStatus(et1)),
             (std::vector<Kiv::FieldId>{Ptp::HwIntfStatus::F::intfReadyForTxPacket,
                                        Ptp::HwIntfStatus::F::intfReadyForRxPacket}));
   ASSERT_EQ(traces.records.size(), 1u);
   EXPECT_EQ(traces.records[0].level, 6u);
   EXPECT_EQ(traces.records[0].message, notReadyText(et1));
   EXPECT_EQ(traces.records[0].className, "IntfInfoSm");
}

TEST_F(AggregatorSmNiTest, CountersAreAllCheckedBeforeAnyFlag) {
   intf(et1, {"a", "b"});
   start();
   bump(1);
   report(et1, "a", 1, true);
   report(et1, "b", 1, true);
   ASSERT_EQ(readiness(et1), kReady);
   traces.clear();
   bump(2);
   report(et1, "a", 2, false);  // walked first, but "b" has not caught up yet
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(traces.count(6, notReadyText(et1)), 0u);
}

TEST_F(AggregatorSmNiTest, RemovingAReportRerunsThePass) {
   intf(et1, {"a", "slow"});
   start();
   bump(1);
   report(et1, "a", 1, true);
   ASSERT_EQ(readiness(et1), kNotReady);
   intfInfos->intfInfo(et1)->programmerInfoDel("slow");
   EXPECT_EQ(readiness(et1), kReady);

   report(et1, "a", 1, false);
   intfInfos->intfInfo(et1)->programmerInfoIs("b")->generationIs({1, true});
   ASSERT_EQ(readiness(et1), kNotReady);
   intfInfos->intfInfo(et1)->programmerInfoDel("a");
   EXPECT_EQ(readiness(et1), kReady);
}

TEST_F(AggregatorSmNiTest, ReactionsToTheVerdictRunAfterThePassHasJudged) {
   intf(et1, {"a"});
   start();
   bump(1);
   // A programmer that starts handling the interface as soon as it sees it ready.
   struct LateProgrammer final : Pondo::Subscriber {
      PtpIntfInfo* info;
      void onChange(const Kiv::Change& c) override {
         if (c.field == Ptp::HwIntfStatus::F::intfReadyForTxPacket) info->programmerInfoIs("late");
      }
   } late;
   late.info = intfInfos->intfInfo(et1);
   hw->intfStatus(et1)->subscriberAdd(&late);
   hw->intfStatus(et1)->intfReadyForTxPacketIs(false);
   hw->intfStatus(et1)->intfReadyForRxPacketIs(false);
   report(et1, "a", 1, true);
   hw->intfStatus(et1)->subscriberRemove(&late);
   // The verdict on the reports as judged is written whole; the new report,
   // still at generation 0, holds the next pass back.
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_NE(intfInfos->intfInfo(et1)->programmerInfo("late"), nullptr);
   EXPECT_EQ(traces.count(6, readyText(et1)), 1u);
}

TEST_F(AggregatorSmNiTest, LosingTheHardwareEntryDeletesTheMachineAndKeepsReadiness) {
   intf(et1, {"a"});
   start();
   bump(1);
   report(et1, "a", 1, true);
   Pondo::Ptr<Ptp::HwIntfStatus> entry = hw->intfStatus(et1);
   ASSERT_NE(sm->intfInfoSm(et1), nullptr);

   hw->intfStatusDel(et1);
   EXPECT_EQ(sm->intfInfoSm(et1), nullptr);
   EXPECT_EQ(traces.count(5, deletedText(et1)), 1u);
   EXPECT_TRUE(entry->intfReadyForTxPacket());
   EXPECT_TRUE(entry->intfReadyForRxPacket());
   report(et1, "a", 1, false);  // nobody judges the interface any more
   EXPECT_TRUE(entry->intfReadyForTxPacket());
   EXPECT_EQ(intfInfos->intfInfo(et1)->subscribers(), 0u);
}

TEST_F(AggregatorSmNiTest, LosingTheReportRecordDeletesTheMachineAndKeepsReadiness) {
   intf(et1, {"a"});
   start();
   bump(1);
   report(et1, "a", 1, false);
   ASSERT_EQ(readiness(et1), kNotReady);
   intfInfos->intfInfoDel(et1);
   EXPECT_EQ(sm->intfInfoSm(et1), nullptr);
   EXPECT_EQ(traces.count(5, deletedText(et1)), 1u);
   bump(2);  // would make a report-less interface ready
   EXPECT_EQ(readiness(et1), kNotReady);
}

TEST_F(AggregatorSmNiTest, ReplacingAnEntryRebuildsItsMachine) {
   intf(et1, {"a"});
   start();
   Pondo::Ptr<IntfInfoSm> first = sm->intfInfoSm(et1);
   traces.clear();
   intfInfos->intfInfoDel(et1);
   auto info = intfInfos->intfInfoIs(et1);  // no programmers now
   ASSERT_NE(sm->intfInfoSm(et1), nullptr);
   EXPECT_NE(sm->intfInfoSm(et1), first.get());
   EXPECT_EQ(sm->intfInfoSm(et1)->intfInfo(), info.get());
   std::vector<std::string> messages;
   for (const auto& r : traces.records) messages.push_back(r.message);
   EXPECT_EQ(messages, (std::vector<std::string>{deletedText(et1), readyText(et1), createdText(et1)}));
   EXPECT_EQ(readiness(et1), kReady);
}

TEST_F(AggregatorSmNiTest, EachBoundInputBuildsTheMachinesOfItsEntriesAtStart) {
   intf(et1);
   hw->intfStatusIs(et2, Ptp::LinuxTsOptions());  // no report record
   start();
   // hwStatus is bound first, then intfInfoStatus; each runs createIntfInfoSm for
   // every entry it holds.
   EXPECT_EQ(traces.count(5, createdText(et1)), 2u);
   EXPECT_EQ(traces.count(6, readyText(et1)), 2u);
   EXPECT_EQ(traces.count(5, deletedText(et2)), 1u);
   EXPECT_EQ(sm->intfInfoSm().size(), 1u);
}

TEST_F(AggregatorSmNiTest, ReplacingTheHardwareStatusMovesTheMachines) {
   intf(et1);
   intf(et2);
   intfInfos->intfInfoIs(et3);
   start();
   auto other = Kiv::make<Ptp::HwStatus>("other");
   other->intfStatusIs(et1, Ptp::LinuxTsOptions());
   other->intfStatusIs(et3, Ptp::LinuxTsOptions());
   hw->intfStatus(et2)->intfReadyForTxPacketIs(false);

   sm->hwStatusIs(other);
   EXPECT_EQ(sm->intfInfoSm(et1)->hwIntfStatus(), other->intfStatus(et1));
   EXPECT_EQ(sm->intfInfoSm(et2), nullptr);
   EXPECT_EQ(sm->intfInfoSm(et3)->hwIntfStatus(), other->intfStatus(et3));
   EXPECT_EQ(readinessOf(*other), (std::map<IntfId, Readiness>{{et1, kReady}, {et3, kReady}}));
   EXPECT_FALSE(hw->intfStatus(et2)->intfReadyForTxPacket());  // the old entity is left alone
   hw->intfStatusDel(et1);
   EXPECT_NE(sm->intfInfoSm(et1), nullptr);  // and no longer watched

   traces.clear();
   sm->hwStatusIs(nullptr);
   EXPECT_TRUE(sm->intfInfoSm().empty());
   EXPECT_EQ(traces.count(5, deletedText(et3)), 1u);
}

TEST_F(AggregatorSmNiTest, ReplacingTheReportsMovesTheMachines) {
   intf(et1, {"a"});
   intf(et2);
   start();
   auto other = ptpIntfInfoStatusFactory();
   other->intfInfoIs(et2)->programmerInfoIs("b")->generationIs({0, false});
   sm->intfInfoStatusIs(other);
   EXPECT_EQ(sm->intfInfoSm(et1), nullptr);
   EXPECT_EQ(sm->intfInfoSm(et2)->intfInfo(), other->intfInfo(et2));
   EXPECT_EQ(readiness(et2), kNotReady);
}

TEST_F(AggregatorSmNiTest, PipelineVerdictCarriesTheJudgedGeneration) {
   start();
   ASSERT_NE(sm->pipelineAggState(), nullptr);
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{0, true}));  // no pipeline reports
   EXPECT_EQ(traces.count(6, kPipelineReady), 1u);

   bump(4);
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{4, true}));
   reportPipeline("p", 3, true);
   reportPipeline("q", 4, false);
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{4, true}));  // "p" is behind: no verdict
   reportPipeline("p", 4, true);
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{4, false}));
   EXPECT_EQ(traces.count(6, kPipelineNotReady), 1u);
   EXPECT_EQ(traces.records.back().className, "PipelineInfoSm");

   bump(5);  // nobody has caught up: the verdict for 4 stands
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{4, false}));
   reportPipeline("p", 5, true);
   reportPipeline("q", 5, true);
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{5, true}));
   pipeline->programmerInfoIs("r");  // a new programmer, at generation 0
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{5, true}));
   pipeline->programmerInfoDel("r");
   reportPipeline("q", 5, false);
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{5, false}));
}

TEST_F(AggregatorSmNiTest, OnlyTheActionGenerationTriggersAPass) {
   intf(et1);
   start();
   traces.clear();
   actions->forwardV1Is(true);
   actions->intfActionIs(et1)->dropMgmtMsgIs(true);
   actions->generationIs({0, true});  // the counter is unchanged: a pass runs, nothing changes
   EXPECT_EQ(traces.count(6, readyText(et1)), 1u);
   EXPECT_EQ(traces.count(6, kPipelineReady), 1u);
   EXPECT_EQ(traces.records.size(), 2u);
}

TEST_F(AggregatorSmNiTest, BuiltOnPopulatedInputsReachesTheStateOfOneThatWatchedThemFill) {
   auto watchedHw = Kiv::make<Ptp::HwStatus>("watched");
   auto watcher = aggregatorSmNiFactory(watchedHw, intfInfos, pipeline, actions);
   auto fill = [&](Ptp::HwStatus& h, IntfId i) { h.intfStatusIs(i, Ptp::LinuxTsOptions()); };
   bump(7);
   fill(*watchedHw, et1);
   intfInfos->intfInfoIs(et1)->programmerInfoIs("a");
   intfInfos->intfInfoIs(et2)->programmerInfoIs("a");
   intfInfos->intfInfoIs(et2)->programmerInfoIs("b");
   intfInfos->intfInfoIs(et3)->programmerInfoIs("a");
   report(et1, "a", 7, true);
   report(et2, "a", 7, true);
   fill(*watchedHw, et2);
   report(et2, "b", 7, false);
   report(et3, "a", 6, true);
   fill(*watchedHw, et3);
   reportPipeline("a", 7, true);
   reportPipeline("b", 7, true);

   for (IntfId i : {et1, et2, et3}) fill(*hw, i);
   start();
   EXPECT_EQ(readinessOf(*hw), readinessOf(*watchedHw));
   EXPECT_EQ(readinessOf(*hw), (std::map<IntfId, Readiness>{{et1, kReady}, {et2, kNotReady}, {et3, kNotReady}}));
   EXPECT_EQ(sm->pipelineAggState()->generation(), watcher->pipelineAggState()->generation());
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{7, true}));
   EXPECT_EQ(sm->intfInfoSm().size(), watcher->intfInfoSm().size());
}

TEST_F(AggregatorSmNiTest, TeardownStopsEverythingAndLeavesTheOutputs) {
   intf(et1, {"a"});
   start();
   bump(1);
   report(et1, "a", 1, true);
   reportPipeline("p", 1, true);
   Pondo::Ptr<PtpPipelineAggState> verdict = sm->pipelineAggState();

   sm = nullptr;
   EXPECT_EQ(hw->subscribers(), 0u);
   EXPECT_EQ(intfInfos->subscribers(), 0u);
   EXPECT_EQ(intfInfos->intfInfo(et1)->subscribers(), 0u);
   EXPECT_EQ(pipeline->subscribers(), 0u);
   EXPECT_EQ(actions->subscribers(), 0u);
   traces.clear();
   bump(2);
   report(et1, "a", 2, false);
   reportPipeline("p", 2, false);
   EXPECT_TRUE(traces.records.empty());
   EXPECT_EQ(readiness(et1), kReady);
   EXPECT_EQ(verdict->generation(), (Pondo::Generation{1, true}));
}

TEST_F(AggregatorSmNiTest, CollectionMutatorsCheckTheirArguments) {
   intf(et1);
   start();
   auto info = intfInfos->intfInfo(et1);
   try {
      sm->intfInfoSmIs(info, nullptr, actions);
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_STREQ(e.what(), "null entity reference for argument 'hwIntfStatus'");
   }
   EXPECT_EQ(sm->intfInfoSmIs(info, hw->intfStatus(et1), actions).get(), sm->intfInfoSm(et1));
   auto elsewhere = Kiv::make<Ptp::HwIntfStatus>(et1, Ptp::LinuxTsOptions());
   try {
      sm->intfInfoSmIs(info, elsewhere, actions);
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_STREQ(e.what(), "'intfInfoSm' exists with other fixed arguments");
   }
   EXPECT_THROW(aggregatorSmNiFactory(hw, intfInfos, pipeline, nullptr), Kiv::Error);
}

TEST_F(AggregatorSmNiTest, InputsMayArriveLater) {
   intf(et1);
   sm = aggregatorSmNiFactory(nullptr, intfInfos, pipeline, actions);
   EXPECT_EQ(sm->pipelineAggState(), nullptr);  // waits for every input
   EXPECT_TRUE(sm->intfInfoSm().empty());
   sm->hwStatusIs(hw);
   EXPECT_NE(sm->intfInfoSm(et1), nullptr);
   ASSERT_NE(sm->pipelineAggState(), nullptr);
   EXPECT_EQ(sm->pipelineAggState()->generation(), (Pondo::Generation{0, true}));
}

TEST_F(AggregatorSmNiTest, AStandalonePipelineMachineJudgesAtOnce) {
   auto state = ptpPipelineAggStateFactory();
   reportPipeline("p", 3, false);
   bump(3);
   auto p = pipelineInfoSmFactory(pipeline, actions, state);
   EXPECT_EQ(state->generation(), (Pondo::Generation{3, false}));
   EXPECT_EQ(traces.count(6, kPipelineNotReady), 1u);
   EXPECT_THROW(pipelineInfoSmFactory(pipeline, actions, nullptr), Kiv::Error);
}

}  // namespace
