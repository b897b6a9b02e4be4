// Correction-field programming on simulated chips: the rows each interface
// gets in the receive and transmit tables, the programmed-interface set of
// each chip, and "CF_UPDATE" among the active programmers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Asic/SimulatedChip.h"
#include "ChangeRecorder.h"
#include "TraceCapture.h"
#include "VyrPtp/VyrCfUpdateArmSm.h"

using namespace CorrectionField;
using Asic::RxCfControlTable;
using Asic::TxCfControlTable;
using Wyx::IntfId;

namespace Wyx {
void PrintTo(const IntfId& i, std::ostream* os) { *os << i.name(); }
}  // namespace Wyx

namespace {

const IntfId et1("Ethernet1/1"), et2("Ethernet1/2"), et3("Ethernet2/1"), et9("Ethernet9/1");
const Pondo::String cfUpdate = "CF_UPDATE";

using Rx = RxCfControlTable::Entry;
using Tx = TxCfControlTable::Entry;

// What the platform writes for one interface: the fields, then the generation.
struct Settings {
   bool ingress = false;
   EgressCFUpdateMode mode = EgressCFUpdateMode::none;
   bool dropInvalid = false;
   bool twoStep = false;
   bool forceSign = false;
};

void write(PlatformCfUpdateIntfInfo& info, const Settings& s, Pondo::Generation g) {
   info.ingressCfUpdateEnableIs(s.ingress);
   info.egressCfUpdateModeIs(s.mode);
   info.egressDropInvalid1588PktIs(s.dropInvalid);
   info.twoStepTsCfUpdateEnableIs(s.twoStep);
   info.ingressForceItsSignFromTsIs(s.forceSign);
   info.generationIs(g);
}

// Two chips: logical FAP 1 (et1 at row 10, et2 at row 11) and logical FAP 2
// (et3 at row 10), all valid and switched off unless a test says otherwise.
class CfUpdateTest : public ::testing::Test {
  protected:
   void SetUp() override {
      fap1 = cfInfo->logicalFapInfoIs(1, chip1->gif());
      fap2 = cfInfo->logicalFapInfoIs(2, chip2->gif());
      intf(fap1, et1, 10, {});
      intf(fap1, et2, 11, {});
      intf(fap2, et3, 10, {});
   }
   Pondo::Ptr<PlatformCfUpdateIntfInfo> intf(const Pondo::Ptr<PlatformCfUpdateLogicalFapInfo>& fap, IntfId i,
                                             std::uint32_t index, const Settings& s, Pondo::Generation g = {1, true}) {
      auto info = fap->intfInfoIs(i);
      info->swTableIndexIs(index);
      write(*info, s, g);
      return info;
   }
   static std::optional<Rx> rx(const Asic::SimulatedChip& chip, std::uint32_t index) {
      return chip.committed<Rx>(RxCfControlTable::name, index);
   }
   static std::optional<Tx> tx(const Asic::SimulatedChip& chip, std::uint32_t index) {
      return chip.committed<Tx>(TxCfControlTable::name, index);
   }
   static std::uint64_t commits(const Asic::SimulatedChip& chip) {
      return chip.commits(RxCfControlTable::name) + chip.commits(TxCfControlTable::name);
   }
   bool active() const { return programmerStatus->programmerActive(cfUpdate); }

   Pondo::Ptr<Asic::SimulatedChip> device1 = Kiv::make<Asic::SimulatedChip>();
   Pondo::Ptr<Asic::SimulatedChip> device2 = Kiv::make<Asic::SimulatedChip>();
   Pondo::Ptr<Asic::ChipInfo> chip1 = Kiv::make<Asic::ChipInfo>(1, "chip1", device1);
   Pondo::Ptr<Asic::ChipInfo> chip2 = Kiv::make<Asic::ChipInfo>(2, "chip2", device2);
   Pondo::Ptr<Statebase::EntityManager> em = Kiv::make<Statebase::EntityManager>();
   Pondo::Ptr<PlatformCfUpdateInfo> cfInfo = platformCfUpdateInfoFactory();
   Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> fap1, fap2;
   Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus = VyrPtp::Programmer::statusFactory();
   TraceCapture traces{"VyrCfUpdateArmSm"};
};

// --- One chip ----------------------------------------------------------------------------------

class ChipMachine : public CfUpdateTest {
  protected:
   void create() { sm = vyrCfUpdateLogicalFapArmSmFactory(fap1, em, status); }
   Pondo::Ptr<CfUpdateProgrammedStatus> status = cfUpdateProgrammedStatusFactory(1);
   Pondo::Ptr<VyrCfUpdateLogicalFapArmSm> sm;
};

TEST_F(ChipMachine, ConstructionMountsBothTablesAndProgramsEveryInterfaceTwice) {
   create();
   ASSERT_NE(sm->rxCfControlTable(), nullptr);
   ASSERT_NE(sm->txCfControlTable(), nullptr);
   EXPECT_EQ(sm->rxCfControlTable()->unit(), 1u);
   EXPECT_EQ(sm->txCfControlTable()->chipInfoGif(), chip1->gif().get());
   EXPECT_NE(em->mount("hardware/rxCfControl/unit1"), nullptr);
   EXPECT_NE(em->mount("hardware/txCfControl/unit1"), nullptr);
   EXPECT_TRUE(traces.has(8, "logicalFapId: 1"));
   EXPECT_EQ(traces.count(8, "for intf: Ethernet1/1"), 2u);
   EXPECT_EQ(traces.count(8, "for intf: Ethernet1/2"), 2u);
   EXPECT_EQ(device1->commits(RxCfControlTable::name), 4u);
   EXPECT_EQ(device1->commits(TxCfControlTable::name), 4u);
   EXPECT_EQ(device1->committedIndexes(RxCfControlTable::name), (std::vector<std::uint32_t>{10, 11}));
   EXPECT_EQ(commits(*device2), 0u);
   ASSERT_NE(sm->intfInfo(et1), nullptr);
   EXPECT_EQ(sm->intfInfo(et1)->intfInfo(), fap1->intfInfo(et1));
   EXPECT_EQ(sm->intfInfo().size(), 2u);
}

// programAllIntfs writes every interface first, then each nested machine once more.
TEST_F(ChipMachine, AllInterfacesFirstThenEachNestedMachine) {
   create();
   std::vector<std::string> order;
   for (const auto& r : traces.records) {
      if (r.message.starts_with("for intf: ")) order.push_back(r.message.substr(10));
   }
   EXPECT_EQ(order, (std::vector<std::string>{"Ethernet1/1", "Ethernet1/2", "Ethernet1/1", "Ethernet1/2"}));
}

TEST_F(ChipMachine, MissingChipInfoGifStops) {
   auto noChip = platformCfUpdateLogicalFapInfoFactory(7, nullptr);
   EXPECT_DEATH(vyrCfUpdateLogicalFapArmSmFactory(noChip, em, status),
                ::testing::HasSubstr("Assertion failed: Missing required chipInfoGif ("));
}

TEST_F(ChipMachine, NullArgumentsAreRejectedByName) {
   EXPECT_THAT([&] { vyrCfUpdateLogicalFapArmSmFactory(nullptr, em, status); },
               ::testing::ThrowsMessage<Kiv::Error>(::testing::HasSubstr("cfUpdateLogicalFapInfo")));
   EXPECT_THAT([&] { VyrCfUpdateLogicalFapArmSmIs(fap1, em, nullptr); },
               ::testing::ThrowsMessage<Kiv::Error>(::testing::HasSubstr("cfUpdateStatus")));
}

TEST_F(ChipMachine, RowsCarryEveryFieldAndOneTwoStepFlagEnablesAllFour) {
   intf(fap1, et1, 10, {true, EgressCFUpdateMode::egressTimestamp, true, true, true});
   intf(fap1, et2, 11, {false, EgressCFUpdateMode::residenceTime, false, false, false});
   create();
   EXPECT_EQ(rx(*device1, 10), (Rx{1, 1}));
   EXPECT_EQ(tx(*device1, 10), (Tx{EgressCFUpdateMode::egressTimestamp, 1, {1, 1, 1, 1}}));
   EXPECT_EQ(rx(*device1, 11), (Rx{0, 0}));
   EXPECT_EQ(tx(*device1, 11), (Tx{EgressCFUpdateMode::residenceTime, 0, {0, 0, 0, 0}}));
   EXPECT_TRUE(status->programmedIntf(et1));
   EXPECT_TRUE(status->programmedIntf(et2));
   EXPECT_EQ(traces.count(6, "Adding Ethernet1/1 to programmed intf set"), 2u);
}

TEST_F(ChipMachine, AllZeroInterfaceGetsZeroRowsAndIsNotProgrammed) {
   create();
   EXPECT_EQ(rx(*device1, 10), Rx{});
   EXPECT_EQ(tx(*device1, 10), Tx{});
   EXPECT_FALSE(status->programmedIntf(et1));
   EXPECT_EQ(traces.count(6, "Removing Ethernet1/1 from programmed intf set"), 2u);
}

// Any single flag (the force-sign flag too) counts; cfUpdateBits does not.
TEST_F(ChipMachine, EachFlagAloneMakesTheInterfaceProgrammed) {
   create();
   const std::vector<Settings> single{{.ingress = true},
                                      {.mode = EgressCFUpdateMode::residenceTime},
                                      {.dropInvalid = true},
                                      {.twoStep = true},
                                      {.forceSign = true}};
   std::uint32_t counter = 2;
   for (const Settings& s : single) {
      write(*fap1->intfInfo(et1), s, {counter++, true});
      EXPECT_TRUE(status->programmedIntf(et1)) << "settings " << counter;
      write(*fap1->intfInfo(et1), {}, {counter++, true});
      EXPECT_FALSE(status->programmedIntf(et1));
   }
   fap1->intfInfo(et1)->cfUpdateBitsIs(0xff);
   fap1->intfInfo(et1)->generationIs({counter, true});
   EXPECT_FALSE(status->programmedIntf(et1));
   EXPECT_EQ(tx(*device1, 10), Tx{});
}

TEST_F(ChipMachine, ForceSignAloneIsWrittenInTheReceiveRow) {
   intf(fap1, et1, 10, {.forceSign = true});
   create();
   EXPECT_EQ(rx(*device1, 10), (Rx{0, 1}));
   EXPECT_EQ(tx(*device1, 10), Tx{});
   EXPECT_TRUE(status->programmedIntf(et1));
}

TEST_F(ChipMachine, SwitchingAnInterfaceOffClearsItsRows) {
   intf(fap1, et1, 10, {true, EgressCFUpdateMode::egressTimestamp, true, true, true});
   create();
   write(*fap1->intfInfo(et1), {}, {2, true});
   EXPECT_EQ(rx(*device1, 10), Rx{});
   EXPECT_EQ(tx(*device1, 10), Tx{});
   EXPECT_FALSE(status->programmedIntf(et1));
}

TEST_F(ChipMachine, ClearGenerationFlagRemovesFromSetWithoutWriting) {
   intf(fap1, et1, 10, {.ingress = true});
   create();
   ASSERT_TRUE(status->programmedIntf(et1));
   const std::uint64_t before = commits(*device1);
   traces.clear();
   fap1->intfInfo(et1)->generationIs({2, false});
   EXPECT_EQ(commits(*device1), before);
   EXPECT_EQ(rx(*device1, 10), (Rx{1, 0}));  // the hardware keeps what it had
   EXPECT_FALSE(status->programmedIntf(et1));
   EXPECT_EQ(traces.count(6, "Invalid generation for Ethernet1/1 intf info"), 1u);
   EXPECT_EQ(traces.count(6, "Removing Ethernet1/1 from programmed intf set"), 1u);
}

TEST_F(ChipMachine, FieldsChangedWithoutNewGenerationWriteNothing) {
   create();
   const std::uint64_t before = commits(*device1);
   PlatformCfUpdateIntfInfo& info = *fap1->intfInfo(et1);
   info.swTableIndexIs(20);
   info.cfUpdateBitsIs(1);
   write(info, {true, EgressCFUpdateMode::residenceTime, true, true, true}, info.generation());
   EXPECT_EQ(commits(*device1), before);
   EXPECT_FALSE(rx(*device1, 20));
   EXPECT_FALSE(status->programmedIntf(et1));
   info.generationIs({2, true});
   EXPECT_EQ(commits(*device1), before + 2);
   EXPECT_EQ(rx(*device1, 20), (Rx{1, 1}));
   EXPECT_EQ(rx(*device1, 10), Rx{});  // the old row is left
   EXPECT_TRUE(status->programmedIntf(et1));
}

TEST_F(ChipMachine, RemovedInfoLeavesRowsAndMembershipAndIsReprogrammedWhenBack) {
   intf(fap1, et1, 10, {.twoStep = true});
   create();
   const std::uint64_t before = commits(*device1);
   fap1->intfInfoDel(et1);
   EXPECT_EQ(sm->intfInfo(et1), nullptr);
   EXPECT_TRUE(status->programmedIntf(et1));
   EXPECT_EQ(tx(*device1, 10), (Tx{EgressCFUpdateMode::none, 0, {1, 1, 1, 1}}));
   EXPECT_EQ(commits(*device1), before);

   // Back as the platform writes it: created empty, fields, then the generation.
   auto back = fap1->intfInfoIs(et1);
   EXPECT_FALSE(status->programmedIntf(et1));  // the new record's generation is not valid yet
   EXPECT_EQ(commits(*device1), before);
   back->swTableIndexIs(12);
   write(*back, {.dropInvalid = true}, {1, true});
   EXPECT_EQ(commits(*device1), before + 2);
   EXPECT_EQ(tx(*device1, 12), (Tx{EgressCFUpdateMode::none, 1, {0, 0, 0, 0}}));
   EXPECT_TRUE(status->programmedIntf(et1));
   ASSERT_NE(sm->intfInfo(et1), nullptr);
   EXPECT_EQ(sm->intfInfo(et1)->intfInfo(), back.get());
}

TEST_F(ChipMachine, ReturningValidInfoIsProgrammedAtOnce) {
   create();
   auto kept = fap1->intfInfoDel(et2);
   write(*kept, {.ingress = true}, {5, true});
   const std::uint64_t before = commits(*device1);
   // A record that comes back whole is written by the binding of its nested machine.
   auto other = platformCfUpdateIntfInfoFactory(et2);
   other->swTableIndexIs(11);
   write(*other, {.ingress = true}, {5, true});
   sm->intfInfoIs(other);
   EXPECT_EQ(commits(*device1), before);  // its record is not in the platform's info
   EXPECT_TRUE(traces.has(6, "No intf info for Ethernet1/2, skipping programming"));
   auto again = fap1->intfInfoIs(et2);
   again->swTableIndexIs(11);
   write(*again, {.ingress = true}, {5, true});
   EXPECT_EQ(rx(*device1, 11), (Rx{1, 0}));
}

TEST_F(ChipMachine, RebindingANestedMachineProgramsTheInterface) {
   create();
   const std::uint64_t before = commits(*device1);
   auto replacement = platformCfUpdateIntfInfoFactory(et1);
   EXPECT_EQ(sm->intfInfoIs(replacement), sm->intfInfo(et1));
   EXPECT_EQ(sm->intfInfo(et1)->intfInfo(), replacement.get());
   EXPECT_EQ(commits(*device1), before + 2);  // from the platform's record of et1
   // The old record is no longer watched.
   write(*fap1->intfInfo(et1), {.ingress = true}, {9, true});
   EXPECT_EQ(commits(*device1), before + 2);
}

TEST_F(ChipMachine, ProgrammingAnUnknownInterfaceSkipsIt) {
   create();
   const std::uint64_t before = commits(*device1);
   traces.clear();
   sm->programIntf(et9);
   EXPECT_EQ(traces.count(8, "for intf: Ethernet9/1"), 1u);
   EXPECT_EQ(traces.count(6, "No intf info for Ethernet9/1, skipping programming"), 1u);
   EXPECT_EQ(commits(*device1), before);
}

TEST_F(ChipMachine, TeardownEmptiesTheProgrammedSetAndLeavesTheRows) {
   intf(fap1, et1, 10, {.ingress = true});
   intf(fap1, et2, 11, {.forceSign = true});
   create();
   ASSERT_EQ(status->programmedIntf().size(), 2u);
   sm = nullptr;
   EXPECT_TRUE(status->programmedIntf().empty());
   EXPECT_EQ(rx(*device1, 10), (Rx{1, 0}));
   EXPECT_EQ(rx(*device1, 11), (Rx{0, 1}));
   // Gone machines hear nothing more.
   const std::uint64_t before = commits(*device1);
   fap1->intfInfo(et1)->generationIs({3, true});
   EXPECT_EQ(commits(*device1), before);
}

// A reaction to the programmed set that switches another interface on is
// programmed while the first one is still being handled.
TEST_F(ChipMachine, ReactionToTheProgrammedSetMayProgramAnotherInterface) {
   create();
   struct OnFirst final : Pondo::Subscriber {
      Pondo::Ptr<PlatformCfUpdateIntfInfo> other;
      void onChange(const Pondo::Change& c) override {
         if (c.kind == Pondo::Change::Kind::added && c.keyAs<IntfId>() == et1) {
            write(*other, {.dropInvalid = true}, {7, true});
         }
      }
   } onFirst;
   onFirst.other = fap1->intfInfo(et2);
   status->subscriberAdd(&onFirst);
   write(*fap1->intfInfo(et1), {.ingress = true}, {7, true});
   status->subscriberRemove(&onFirst);
   EXPECT_TRUE(status->programmedIntf(et1));
   EXPECT_TRUE(status->programmedIntf(et2));
   EXPECT_EQ(tx(*device1, 11), (Tx{EgressCFUpdateMode::none, 1, {0, 0, 0, 0}}));
}

// --- The system machine ------------------------------------------------------------------------

class SystemMachine : public CfUpdateTest {
  protected:
   void create() { sm = vyrCfUpdateArmSmFactory(cfInfo, em, programmerStatus); }
   Pondo::Ptr<VyrCfUpdateArmSm> sm;
};

TEST_F(SystemMachine, OneStatusWatcherAndChipMachinePerLogicalFap) {
   create();
   EXPECT_EQ(traces.count(8, "for all logicalFapIds"), 1u);
   EXPECT_EQ(traces.count(8, "for logicalFapId: 1"), 1u);
   EXPECT_EQ(traces.count(8, "for logicalFapId: 2"), 1u);
   for (LogicalFapId id : {1, 2}) {
      ASSERT_NE(sm->logicalFapSm(id), nullptr);
      ASSERT_NE(sm->logicalFapStatus(id), nullptr);
      ASSERT_NE(sm->logicalFapStatusWatcher(id), nullptr);
      EXPECT_EQ(sm->logicalFapSm(id)->cfUpdateStatus(), sm->logicalFapStatus(id));
      EXPECT_EQ(sm->logicalFapSm(id)->statebaseEm(), em.get());
      EXPECT_EQ(sm->logicalFapStatusWatcher(id)->notifier(), sm->logicalFapStatus(id));
   }
   EXPECT_EQ(sm->logicalFapSm(1)->cfUpdateLogicalFapInfo(), fap1.get());
   EXPECT_EQ(rx(*device2, 10), Rx{});
   // Nothing switched on: the programmed sets never changed, so nothing was evaluated.
   EXPECT_FALSE(active());
   EXPECT_EQ(traces.count(8, "handleProgrammedStatus"), 0u);
}

TEST_F(SystemMachine, NullArgumentsAreRejectedByName) {
   EXPECT_THAT([&] { vyrCfUpdateArmSmFactory(nullptr, em, programmerStatus); },
               ::testing::ThrowsMessage<Kiv::Error>(::testing::HasSubstr("cfUpdateInfo")));
   EXPECT_THAT([&] { VyrCfUpdateArmSmIs(cfInfo, em, nullptr); },
               ::testing::ThrowsMessage<Kiv::Error>(::testing::HasSubstr("programmerStatus")));
}

TEST_F(SystemMachine, FirstInterfaceOnAddsCfUpdateAndLastOffRemovesIt) {
   create();
   traces.clear();
   write(*fap1->intfInfo(et1), {.ingress = true}, {2, true});
   EXPECT_TRUE(active());
   EXPECT_EQ(traces.count(7, "Adding CF_UPDATE to active programmers"), 1u);
   write(*fap2->intfInfo(et3), {.twoStep = true}, {2, true});
   EXPECT_TRUE(active());
   write(*fap1->intfInfo(et1), {}, {3, true});
   EXPECT_TRUE(active());  // chip 2 still has one
   traces.clear();
   write(*fap2->intfInfo(et3), {}, {3, true});
   EXPECT_FALSE(active());
   EXPECT_EQ(traces.count(7, "Removing CF_UPDATE from active programmers"), 1u);
}

TEST_F(SystemMachine, InterfacesOnAtStartAddCfUpdateThroughTheNewStatus) {
   intf(fap2, et3, 10, {.forceSign = true});
   create();
   EXPECT_TRUE(active());
   EXPECT_TRUE(sm->logicalFapStatus(2)->programmedIntf(et3));
   EXPECT_EQ(rx(*device2, 10), (Rx{0, 1}));
}

// The watcher is bound while the chip's record is still empty: its first
// evaluation comes from programmedIntfIs during the chip machine's construction.
TEST_F(SystemMachine, BindingAWatcherRunsNothing) {
   intf(fap1, et1, 10, {.ingress = true});
   create();
   Pondo::Ptr<const CfUpdateProgrammedStatus> status = sm->logicalFapStatus(1);
   sm->logicalFapStatusWatcherDel(1);
   programmerStatus->programmerActiveDel(cfUpdate);
   traces.clear();
   sm->logicalFapStatusWatcherIs(status);
   EXPECT_EQ(traces.count(8, "handleProgrammedStatus"), 0u);
   EXPECT_FALSE(active());
   EXPECT_EQ(sm->logicalFapStatusWatcherIs(status), sm->logicalFapStatusWatcher(1));
   EXPECT_THROW(sm->logicalFapStatusWatcherIs(cfUpdateProgrammedStatusFactory(1)), Kiv::Error);
}

TEST_F(SystemMachine, EvaluationWritesEveryTimeAlsoWhenNothingChanged) {
   intf(fap1, et1, 10, {.ingress = true});
   create();
   ChangeRecorder rec(programmerStatus);
   traces.clear();
   sm->handleProgrammedStatus();
   sm->handleProgrammedStatus();
   EXPECT_EQ(traces.count(8, "handleProgrammedStatus"), 2u);
   EXPECT_EQ(traces.count(7, "Adding CF_UPDATE to active programmers"), 2u);
   EXPECT_TRUE(rec.entries.empty());  // the set's own setter keeps it quiet
   // Registered from elsewhere, it is withdrawn at the next evaluation with nothing on.
   write(*fap1->intfInfo(et1), {}, {2, true});
   programmerStatus->programmerActiveIs(cfUpdate);
   sm->handleProgrammedStatus();
   EXPECT_FALSE(active());
}

// The chip machine goes first: its teardown empties the record, which
// re-evaluates "CF_UPDATE" while the record is still there; then the watcher
// and the record go.
TEST_F(SystemMachine, RemovingALogicalFapReEvaluatesThroughTheChipsTeardownFirst) {
   intf(fap1, et1, 10, {.ingress = true});
   create();
   ASSERT_TRUE(active());
   Pondo::Ptr<CfUpdateProgrammedStatus> status = sm->logicalFapStatus(1);

   std::vector<std::string> log;
   struct Log final : Pondo::Subscriber {
      Log(std::vector<std::string>& l, std::string n) : log(l), name(std::move(n)) {}
      void onChange(const Pondo::Change& c) override { log.push_back(fmt::format("{}:{}", name, c.field)); }
      std::vector<std::string>& log;
      std::string name;
   } onSm(log, "sm"), onProgrammers(log, "programmers");
   sm->subscriberAdd(&onSm);
   programmerStatus->subscriberAdd(&onProgrammers);
   traces.clear();
   cfInfo->logicalFapInfoDel(1);
   sm->subscriberRemove(&onSm);
   programmerStatus->subscriberRemove(&onProgrammers);

   using F = VyrCfUpdateArmSm::F;
   const std::vector<std::string> expected{
       fmt::format("sm:{}", F::logicalFapSm),
       // The watcher hears the emptied record before the record's owner passes it on.
       fmt::format("programmers:{}", VyrPtp::Programmer::Status::F::programmerActive),
       fmt::format("sm:{}", CfUpdateProgrammedStatus::F::programmedIntf),
       fmt::format("sm:{}", F::logicalFapStatusWatcher),
       fmt::format("sm:{}", F::logicalFapStatus),
   };
   EXPECT_EQ(log, expected);
   EXPECT_TRUE(status->programmedIntf().empty());
   EXPECT_FALSE(active());
   EXPECT_EQ(sm->logicalFapSm(1), nullptr);
   EXPECT_EQ(sm->logicalFapStatus(1), nullptr);
   EXPECT_EQ(sm->logicalFapStatusWatcher(1), nullptr);
   EXPECT_EQ(traces.count(8, "for logicalFapId: 1"), 1u);
   EXPECT_EQ(traces.count(7, "Removing CF_UPDATE from active programmers"), 1u);
   EXPECT_EQ(rx(*device1, 10), (Rx{1, 0}));  // rows are not cleared
   ASSERT_NE(sm->logicalFapSm(2), nullptr);
}

TEST_F(SystemMachine, ALogicalFapThatComesBackIsProgrammedAnew) {
   intf(fap1, et1, 10, {.ingress = true});
   create();
   cfInfo->logicalFapInfoDel(1);
   const std::uint64_t before = commits(*device1);
   auto again = cfInfo->logicalFapInfoIs(1, chip1->gif());
   intf(again, et1, 10, {.forceSign = true});
   EXPECT_TRUE(active());
   EXPECT_EQ(rx(*device1, 10), (Rx{0, 1}));
   EXPECT_GT(commits(*device1), before);
   EXPECT_EQ(sm->logicalFapSm(1)->cfUpdateLogicalFapInfo(), again.get());
}

TEST_F(SystemMachine, ChangesInsideALogicalFapDoNotReachTheSystemMachine) {
   create();
   traces.clear();
   write(*fap1->intfInfo(et2), {.ingress = true}, {4, true});
   fap1->intfInfoIs(et9);
   EXPECT_EQ(traces.count(8, "for logicalFapId: 1"), 0u);
   EXPECT_EQ(traces.count(8, "for intf: Ethernet1/2"), 1u);
}

TEST_F(SystemMachine, ALogicalFapWithoutChipStops) {
   create();
   EXPECT_DEATH(cfInfo->logicalFapInfoIs(9, nullptr),
                ::testing::HasSubstr("Assertion failed: Missing required chipInfoGif ("));
}

}  // namespace
