// The global chip list: one record per logical FAP with the chip's generic
// interface and description.
#include <gtest/gtest.h>

#include <cstdlib>

#include "Asic/SimulatedChip.h"
#include "ChangeRecorder.h"
#include "VyrPtp/PlatformGlobalChipInfoTypes.h"

using namespace VyrPtp;
using Kind = Pondo::Change::Kind;

namespace {

Pondo::Ptr<Asic::ChipInfo> chip(std::uint32_t unit) {
   return Kiv::make<Asic::ChipInfo>(unit, fmt::format("chip{}", unit), Kiv::make<Asic::SimulatedChip>());
}

TEST(PlatformGlobalChipLogicalFapInfo, FactoryKeepsItsArgumentsAndRejectsANullChip) {
   auto c = chip(2);
   auto info = platformGlobalChipLogicalFapInfoFactory(7, c->gif(), "chip2 (slice 1)");
   EXPECT_EQ(info->logicalFapId(), 7);
   EXPECT_EQ(info->chipInfoGif(), c->gif());
   EXPECT_EQ(info->chipInfoString(), "chip2 (slice 1)");
   EXPECT_EQ(PlatformGlobalChipLogicalFapInfoIs(7, c->gif(), "x")->chipInfoString(), "x");
   try {
      platformGlobalChipLogicalFapInfoFactory(7, nullptr, "chip2");
      FAIL() << "a null chipInfoGif was accepted";
   } catch (const Kiv::Error& e) {
      EXPECT_NE(std::string(e.what()).find("chipInfoGif"), std::string::npos) << e.what();
   }
}

TEST(PlatformGlobalChipInfo, LogicalFapInfoIsCreatesOnceAndRejectsOtherFixedArguments) {
   auto global = PlatformGlobalChipInfoIs();
   ChangeRecorder changes(global);
   auto c = chip(0);
   auto fap = global->logicalFapInfoIs(3, c->gif(), "chip0");
   EXPECT_EQ(global->logicalFapInfoIs(3, c->gif(), "chip0"), fap);
   EXPECT_EQ(global->logicalFapInfo(3), fap.get());
   EXPECT_EQ(global->logicalFapInfo(4), nullptr);
   EXPECT_THROW(global->logicalFapInfoIs(3, chip(1)->gif(), "chip0"), Kiv::Error);
   EXPECT_THROW(global->logicalFapInfoIs(3, c->gif(), "chip9"), Kiv::Error);
   EXPECT_THROW(global->logicalFapInfoIs(5, nullptr, "chip0"), Kiv::Error);
   EXPECT_EQ(global->logicalFapInfo().size(), 1u);
   EXPECT_EQ(
       changes.entries,
       (std::vector<ChangeRecorder::Entry>{{global.get(), PlatformGlobalChipInfo::F::logicalFapInfo, Kind::added}}));
}

TEST(PlatformGlobalChipInfo, DelReturnsTheMemberAndDelAllRemovesEachWithItsNotification) {
   auto global = platformGlobalChipInfoFactory();
   auto c = chip(0);
   global->logicalFapInfoIs(0, c->gif(), "chip0");
   global->logicalFapInfoIs(1, c->gif(), "chip0");
   global->logicalFapInfoIs(2, c->gif(), "chip0");
   ChangeRecorder changes(global);
   EXPECT_EQ(global->logicalFapInfoDel(1)->logicalFapId(), 1);
   EXPECT_EQ(global->logicalFapInfoDel(1), nullptr);
   global->logicalFapInfoDelAll();
   EXPECT_TRUE(global->logicalFapInfo().empty());
   const ChangeRecorder::Entry removed{global.get(), PlatformGlobalChipInfo::F::logicalFapInfo, Kind::removed};
   EXPECT_EQ(changes.entries, (std::vector<ChangeRecorder::Entry>{removed, removed, removed}));
}

TEST(PlatformGlobalChipInfoDeathTest, AddLogicalFapInfoOnlyInSimulation) {
   auto global = platformGlobalChipInfoFactory();
   auto c = chip(4);
   ::unsetenv("SIMULATION_VMID");
   EXPECT_DEATH(global->addLogicalFapInfo(4, c, "chip4"), "This should only be called in testing!");
   EXPECT_TRUE(global->logicalFapInfo().empty());
}

TEST(PlatformGlobalChipInfo, AddLogicalFapInfoInSimulationIsLogicalFapInfoIsWithTheChipsInterface) {
   auto global = platformGlobalChipInfoFactory();
   auto c = chip(4);
   ::setenv("SIMULATION_VMID", "1", 1);
   auto fap = global->addLogicalFapInfo(4, c, "chip4");
   EXPECT_THROW(global->addLogicalFapInfo(4, chip(5), "chip4"), Kiv::Error);
   EXPECT_THROW(global->addLogicalFapInfo(6, nullptr, "chip6"), Kiv::Error);
   ::unsetenv("SIMULATION_VMID");
   EXPECT_EQ(global->logicalFapInfo(4), fap.get());
   EXPECT_EQ(fap->chipInfoGif(), c->gif());
   EXPECT_EQ(&fap->chipInfoGif()->chipInfo(), c.get());
   EXPECT_EQ(fap->chipInfoString(), "chip4");
   EXPECT_EQ(global->logicalFapInfoIs(4, c->gif(), "chip4"), fap);
}

}  // namespace
