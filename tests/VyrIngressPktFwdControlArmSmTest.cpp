// Ingress packet forwarding control on simulated chips: one message-type
// forwarding control table per chip with a row per ingress profile.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "Asic/SimulatedChip.h"
#include "Asic/UnitId.h"
#include "TraceCapture.h"
#include "VyrPtp/VyrIngressPktFwdControlArmSm.h"

using Asic::Ing1588MessageTypeFwdCtrlTable;
using Entry = Ing1588MessageTypeFwdCtrlTable::Entry;
using VyrPtp::Ing1588IngressProfile;
using VyrPtp::IngressPktFwdCtrl::VyrIngressPktFwdControlArmSm;

namespace {

// The row of each profile, flag 0 first.
const std::array<std::string, 11> expectedRows{
    "00000000000000000000",  // defaultProfile
    "11111111111111111111",  // boundaryClock
    "11111111111011111111",  // boundaryClockManagementDrop
    "01010101010101010101",  // boundaryClockFwdUnicast
    "01010101011001010101",  // boundaryClockFwdUnicastManagementDrop
    "00000000001000000000",  // managementDropOnly
    "01111100000001011101",  // twoStepE2ETransparentClock
    "01111100001001011101",  // twoStepE2ETransparentClockManagementDrop
    "10101100000011111101",  // twoStepP2PTransparentClock
    "10101100001011111101",  // twoStepP2PTransparentClockManagementDrop
    "10101010101010101010",  // dropAll
};

std::string flags(const Entry& e) {
   std::string s;
   for (std::uint8_t f : e.flag) s += f == 1 ? '1' : f == 0 ? '0' : '?';
   return s;
}

class IngressFwdCtrlTest : public ::testing::Test {
  protected:
   Pondo::Ptr<Asic::SimulatedChip> device0 = Kiv::make<Asic::SimulatedChip>();
   Pondo::Ptr<Asic::SimulatedChip> device1 = Kiv::make<Asic::SimulatedChip>();
   Pondo::Ptr<Asic::ChipInfo> chip0 = Kiv::make<Asic::ChipInfo>(0, "chip0", device0);
   Pondo::Ptr<Asic::ChipInfo> chip1 = Kiv::make<Asic::ChipInfo>(1, "chip1", device1);
   Pondo::Ptr<Statebase::EntityManager> em = Kiv::make<Statebase::EntityManager>();
   Pondo::Ptr<VyrPtp::PlatformGlobalChipInfo> global = VyrPtp::platformGlobalChipInfoFactory();

   Pondo::Ptr<VyrIngressPktFwdControlArmSm> make() {
      return VyrPtp::IngressPktFwdCtrl::vyrIngressPktFwdControlArmSmFactory(global, em);
   }
   static std::uint64_t commits(const Asic::SimulatedChip& d) {
      return d.commits(Ing1588MessageTypeFwdCtrlTable::name);
   }
   static std::optional<Entry> row(const Asic::SimulatedChip& d, std::uint32_t i) {
      return d.committed<Entry>(Ing1588MessageTypeFwdCtrlTable::name, i);
   }
   // Every profile's row of the device, as the chip holds it.
   static void expectProgrammed(const Asic::SimulatedChip& d) {
      ASSERT_EQ(d.committedIndexes(Ing1588MessageTypeFwdCtrlTable::name),
                (std::vector<std::uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
      for (std::uint32_t p = 0; p < expectedRows.size(); ++p) {
         EXPECT_EQ(flags(*row(d, p)), expectedRows[p]) << Pondo::enumName(Ing1588IngressProfile(p));
      }
   }
};

TEST_F(IngressFwdCtrlTest, EveryProfileRowIsCommittedFlagByFlag) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   auto sm = make();
   EXPECT_EQ(commits(*device0), 11u);
   expectProgrammed(*device0);
   ASSERT_NE(sm->ingressPktFwdControlTable("chip0"), nullptr);
   EXPECT_EQ(sm->ingressPktFwdControlTable().size(), 1u);
}

TEST_F(IngressFwdCtrlTest, ManagementDropVariantsAreTheirBaseWithFlag10SetAnd11Cleared) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   auto sm = make();
   const std::pair<Ing1588IngressProfile, Ing1588IngressProfile> pairs[] = {
       {Ing1588IngressProfile::boundaryClock, Ing1588IngressProfile::boundaryClockManagementDrop},
       {Ing1588IngressProfile::boundaryClockFwdUnicast, Ing1588IngressProfile::boundaryClockFwdUnicastManagementDrop},
       {Ing1588IngressProfile::twoStepE2ETransparentClock,
        Ing1588IngressProfile::twoStepE2ETransparentClockManagementDrop},
       {Ing1588IngressProfile::twoStepP2PTransparentClock,
        Ing1588IngressProfile::twoStepP2PTransparentClockManagementDrop},
   };
   for (auto [base, drop] : pairs) {
      Entry expected = *row(*device0, std::uint32_t(base));
      expected.flag[10] = 1;
      expected.flag[11] = 0;
      EXPECT_EQ(*row(*device0, std::uint32_t(drop)), expected) << Pondo::enumName(drop);
   }
   for (std::uint32_t p = 0; p < 11; ++p) {
      EXPECT_EQ(row(*device0, p)->flag[11], p == 1 || p == 3) << Pondo::enumName(Ing1588IngressProfile(p));
   }
}

TEST_F(IngressFwdCtrlTest, DefaultProfileRowIsCommittedAllZero) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   auto sm = make();
   ASSERT_TRUE(row(*device0, 0));
   EXPECT_EQ(*row(*device0, 0), Entry{});
}

TEST_F(IngressFwdCtrlTest, TracesEachStepInOrder) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0 on Linecard3");
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   auto sm = make();
   std::vector<std::pair<unsigned, std::string>> expected{
       {8, "handleInitialized"},
       {8, "logicalFapId: 0"},
       {7, "chipInfoGif: chip0"},
       {8, "on Ing1588IngressCtrl table for the chip: chip0 on Linecard3"},
   };
   for (const auto& [value, name] : Pondo::EnumInfo<Ing1588IngressProfile>::names) {
      expected.push_back({8, fmt::format("for Ing1588Ingress table profile: {}", name)});
   }
   std::vector<std::pair<unsigned, std::string>> seen;
   for (const auto& r : traces.records) {
      seen.push_back({r.level, r.message});
      EXPECT_EQ(r.className, "VyrIngressPktFwdControlArmSm") << r.message;
   }
   EXPECT_EQ(seen, expected);
   EXPECT_EQ(traces.records.back().message, "for Ing1588Ingress table profile: dropAll");
}

TEST_F(IngressFwdCtrlTest, TableIsBoundToTheChipAsTheLogicalFapsUnit) {
   global->logicalFapInfoIs(5, chip1->gif(), "chip1");
   auto sm = make();
   Ing1588MessageTypeFwdCtrlTable* t = sm->ingressPktFwdControlTable("chip1");
   ASSERT_NE(t, nullptr);
   EXPECT_EQ(t->unit(), 5u);
   EXPECT_EQ(t->chipInfoGif(), chip1->gif().get());
   EXPECT_EQ(commits(*device1), 11u);
   EXPECT_EQ(commits(*device0), 0u);
}

TEST_F(IngressFwdCtrlTest, TwoLogicalFapsOnOneChipShareOneTableProgrammedOnce) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   global->logicalFapInfoIs(1, chip0->gif(), "chip0");
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   auto sm = make();
   EXPECT_EQ(sm->ingressPktFwdControlTable().size(), 1u);
   EXPECT_EQ(commits(*device0), 11u);
   expectProgrammed(*device0);
   EXPECT_EQ(traces.count(7, "Skip the duplicate SwTable initialization and programming for chip: chip0"), 1u);
   EXPECT_EQ(traces.count(8, "on Ing1588IngressCtrl table for the chip: chip0"), 1u);
   EXPECT_EQ(sm->ingressPktFwdControlTable("chip0")->unit(), 0u);  // the first logical FAP's
}

TEST_F(IngressFwdCtrlTest, LogicalFapAddedLaterOnAKnownChipIsSkippedOnANewChipProgrammed) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   auto sm = make();
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   global->logicalFapInfoIs(1, chip0->gif(), "chip0");
   EXPECT_EQ(traces.count(7, "Skip the duplicate SwTable initialization and programming for chip: chip0"), 1u);
   EXPECT_EQ(commits(*device0), 11u);
   global->logicalFapInfoIs(2, chip1->gif(), "chip1");
   EXPECT_EQ(commits(*device1), 11u);
   expectProgrammed(*device1);
   EXPECT_EQ(sm->ingressPktFwdControlTable().size(), 2u);
}

TEST_F(IngressFwdCtrlTest, UnknownLogicalFapOnlyTracesAndProgramsNothing) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   auto sm = make();
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   sm->handleLogicalFapInfo(9);
   ASSERT_EQ(traces.records.size(), 2u);
   EXPECT_EQ(traces.records[0].level, 8u);
   EXPECT_EQ(traces.records[0].message, "logicalFapId: 9");
   EXPECT_EQ(traces.records[1].level, 7u);
   EXPECT_EQ(traces.records[1].message, "LogicalFapId 9 does not exist in globalChipInfo");
   EXPECT_EQ(sm->ingressPktFwdControlTable().size(), 1u);
   EXPECT_EQ(commits(*device0), 11u);
}

TEST_F(IngressFwdCtrlTest, RemovedLogicalFapKeepsItsChipsTable) {
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   auto sm = make();
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   global->logicalFapInfoDel(0);
   EXPECT_TRUE(traces.has(7, "LogicalFapId 0 does not exist in globalChipInfo"));
   EXPECT_NE(sm->ingressPktFwdControlTable("chip0"), nullptr);
   // Coming back does not reprogram the chip.
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   EXPECT_TRUE(traces.has(7, "Skip the duplicate SwTable initialization and programming for chip: chip0"));
   EXPECT_EQ(commits(*device0), 11u);
}

TEST_F(IngressFwdCtrlTest, EmptyChipListProgramsNothing) {
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   auto sm = make();
   EXPECT_TRUE(sm->ingressPktFwdControlTable().empty());
   EXPECT_EQ(commits(*device0), 0u);
   ASSERT_EQ(traces.records.size(), 1u);
   EXPECT_EQ(traces.records[0].message, "handleInitialized");
}

TEST_F(IngressFwdCtrlTest, WithoutChipListNothingHappensUntilTheMachineIsInitialized) {
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   auto sm = VyrPtp::IngressPktFwdCtrl::VyrIngressPktFwdControlArmSmIs(nullptr, em);
   EXPECT_FALSE(sm->initialized());
   EXPECT_TRUE(traces.records.empty());
}

// A logical FAP that appears while the machine is setting up a chip (here
// from a subscriber of the machine's own table collection) is handled at once;
// the chip's table is already stored, so a second logical FAP of that chip is
// skipped and a new chip is programmed in full.
TEST_F(IngressFwdCtrlTest, LogicalFapAddedFromWithinTheHandlerIsHandledOnce) {
   struct AddOnTable final : Pondo::Subscriber {
      Pondo::Ptr<VyrPtp::PlatformGlobalChipInfo> global;
      Pondo::Ptr<Asic::ChipInfo> chip0, chip1;
      void onChange(const Pondo::Change& c) override {
         if (c.field != VyrIngressPktFwdControlArmSm::F::ingressPktFwdControlTable || !c.added()) return;
         if (c.keyAs<Pondo::String>() != "chip0") return;
         global->logicalFapInfoIs(1, chip0->gif(), "chip0");
         global->logicalFapInfoIs(2, chip1->gif(), "chip1");
      }
   } adder;
   adder.global = global;
   adder.chip0 = chip0;
   adder.chip1 = chip1;
   auto sm = make();
   sm->subscriberAdd(&adder);
   TraceCapture traces("VyrIngressPktFwdControlArmSm");
   global->logicalFapInfoIs(0, chip0->gif(), "chip0");
   sm->subscriberRemove(&adder);
   EXPECT_EQ(traces.count(7, "Skip the duplicate SwTable initialization and programming for chip: chip0"), 1u);
   EXPECT_EQ(commits(*device0), 11u);
   EXPECT_EQ(commits(*device1), 11u);
   expectProgrammed(*device0);
   expectProgrammed(*device1);
}

TEST(AsicUnitId, RangeErrorsNameTheBoundCrossed) {
   try {
      Asic::UnitId(-1);
      FAIL() << "-1 accepted";
   } catch (const Pondo::RangeError& e) {
      EXPECT_STREQ(e.what(), "Asic::UnitId::value < min() not allowed");
   }
   try {
      Asic::UnitId(Asic::UnitId::invalid() + 1);
      FAIL() << "invalid() + 1 accepted";
   } catch (const Pondo::RangeError& e) {
      EXPECT_STREQ(e.what(), "Asic::UnitId::value > invalid() not allowed");
   }
   EXPECT_EQ(Asic::UnitId(Asic::UnitId::min()).value(), 0u);
   EXPECT_TRUE(Asic::UnitId(Asic::UnitId::invalid() - 1).valid());
   EXPECT_FALSE(Asic::UnitId(Asic::UnitId::invalid()).valid());
   EXPECT_FALSE(Asic::UnitId().valid());
}

// A handler that meets such a logical FAP throws, which stops the process.
TEST_F(IngressFwdCtrlTest, LogicalFapBeyondTheUnitsIsARangeError) {
   const auto beyond = Pondo::LogicalFapId(Asic::UnitId::invalid() + 1);
   auto sm = make();
   sm->hasNotificationActiveIs(false);
   global->logicalFapInfoIs(beyond, chip0->gif(), "chip0");
   EXPECT_THROW(sm->handleLogicalFapInfo(beyond), Pondo::RangeError);
   EXPECT_EQ(commits(*device0), 0u);
}

TEST_F(IngressFwdCtrlTest, LogicalFapBeyondTheUnitsStopsTheProcess) {
   const auto beyond = Pondo::LogicalFapId(Asic::UnitId::invalid() + 1);
   {
      auto sm = make();
      EXPECT_DEATH(global->logicalFapInfoIs(beyond, chip0->gif(), "chip0"),
                   "Asic::UnitId::value > invalid\\(\\) not allowed");
   }
   global->logicalFapInfoIs(0xFFFF, chip0->gif(), "chip0");
   EXPECT_DEATH(make(), "Asic::UnitId::value > invalid\\(\\) not allowed");
}

TEST_F(IngressFwdCtrlTest, ProgrammingAChipWithoutTableStops) {
   auto sm = make();
   EXPECT_DEATH(sm->programEntry("chip7", Ing1588IngressProfile::dropAll),
                "no ing1588MessageTypeFwdCtrl table for chip chip7");
}

}  // namespace
