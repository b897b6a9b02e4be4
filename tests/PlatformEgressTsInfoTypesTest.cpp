#include <gtest/gtest.h>

#include <cstdlib>
#include <unordered_set>

#include "Asic/SimulatedChip.h"
#include "VyrPtp/PlatformEgressTsInfoTypes.h"

using namespace VyrPtp;
using Wyx::IntfId;

namespace {

Pondo::Ptr<Asic::ChipInfo> chip(std::uint32_t unit) {
   return Kiv::make<Asic::ChipInfo>(unit, fmt::format("chip{}", unit), Kiv::make<Asic::SimulatedChip>());
}

TEST(EgressTsSwTableKey, SameIndexOtherPortTypeIsAnotherKey) {
   EgressTsSwTableKey a{7, PortType::network};
   EgressTsSwTableKey b{7, PortType::cpu};
   EXPECT_NE(a, b);
   EXPECT_LT(a, b);
   std::unordered_set<EgressTsSwTableKey> keys{a, b};
   EXPECT_EQ(keys.size(), 2u);
   EXPECT_EQ(fmt::format("{}", a), "(index: 7, portType: network)");
}

TEST(PlatformEgressTsIntfInfo, TextFormRoundTripsAndRejectsMalformedText) {
   PlatformEgressTsIntfInfo info{IntfId("Ethernet3/1"), 32, {12, PortType::recycle}};
   std::string text = info.toString();
   EXPECT_EQ(
       text,
       "PlatformEgressTsIntfInfo(intfId: Ethernet3/1, numBitsInAsicProvidedEgressTs: 32, swTableIndex: (index: 12, "
       "portType: recycle))");
   EXPECT_EQ(PlatformEgressTsIntfInfo::fromString(text), info);
   EXPECT_THROW(PlatformEgressTsIntfInfo::fromString("PlatformEgressTsIntfInfo(intfId: Et1)"), Pondo::RangeError);
   EXPECT_THROW(PlatformEgressTsIntfInfo::fromString(text + "x"), Pondo::RangeError);
   std::string badPort = text;
   badPort.replace(badPort.find("recycle"), 7, "warp");
   EXPECT_THROW(PlatformEgressTsIntfInfo::fromString(badPort), Pondo::RangeError);
}

TEST(PlatformEgressTsLogicalFapInfo, IntfInfoIsReplacesAnExistingInterface) {
   auto info = platformEgressTsInfoFactory();
   auto fap = info->logicalFapInfoIs(3, 5, chip(0));
   EXPECT_EQ(fap->asicTimeId(), 5);
   EXPECT_EQ(fap->chipInfoGif(), fap->chipInfo()->gif());
   fap->intfInfoIs({IntfId("Et1/1"), 32, {1, PortType::network}});
   fap->intfInfoIs({IntfId("Et1/1"), 30, {9, PortType::network}});
   ASSERT_EQ(fap->intfInfo().size(), 1u);
   EXPECT_EQ(fap->intfInfo(IntfId("Et1/1"))->swTableIndex.index, 9u);
   EXPECT_EQ(fap->intfInfo(IntfId("Et1/1"))->numBitsInAsicProvidedEgressTs, 30u);
}

TEST(PlatformEgressTsLogicalFapInfo, PrintsItsFieldsInOrder) {
   auto fap = platformEgressTsInfoFactory()->logicalFapInfoIs(3, 5, chip(0));
   fap->intfInfoIs({IntfId("Et1/1"), 32, {1, PortType::network}});
   EXPECT_EQ(fmt::format("{}", *fap),
             "VyrPtp::PlatformEgressTsLogicalFapInfo{logicalFapId: 3, asicTimeId: 5, chipInfo: Asic::ChipInfo, "
             "chipInfoGif: Asic::GenericIf, intfInfo: {Ethernet1/1: PlatformEgressTsIntfInfo(intfId: Ethernet1/1, "
             "numBitsInAsicProvidedEgressTs: 32, swTableIndex: (index: 1, portType: network))}}");
}

// The unit's types are named in its namespace, the egress table's and U3 too.
TEST(PlatformEgressTsInfoTypes, TableTypesAreNamedInTheNamespace) {
   static_assert(std::is_same_v<VyrPtp::EgressTimestampTable, Asic::EgressTimestampTable>);
   static_assert(std::is_same_v<VyrPtp::EgressTimestampTable::Entry, Asic::EgressTimestampEntry>);
   EXPECT_EQ(VyrPtp::U3(5).value(), 5);
}

TEST(PlatformEgressTsInfo, RecreatingWithAnotherChipIsAnError) {
   auto info = platformEgressTsInfoFactory();
   auto c = chip(0);
   auto fap = info->logicalFapInfoIs(1, 0, c);
   EXPECT_EQ(info->logicalFapInfoIs(1, 0, c), fap);
   EXPECT_THROW(info->logicalFapInfoIs(1, 0, chip(1)), Kiv::Error);
   EXPECT_THROW(info->logicalFapInfoIs(2, 0, nullptr), Kiv::Error);
}

TEST(PlatformEgressTsInfoDeathTest, AddLogicalFapInfoOnlyInSimulation) {
   auto info = platformEgressTsInfoFactory();
   ::unsetenv("SIMULATION_VMID");
   EXPECT_DEATH(info->addLogicalFapInfo(0, 0, chip(0)), "This should only be called in testing!");
   ::setenv("SIMULATION_VMID", "1", 1);
   auto fap = info->addLogicalFapInfo(0, 2, chip(0));
   ::unsetenv("SIMULATION_VMID");
   EXPECT_EQ(info->logicalFapInfo(0), fap.get());
   EXPECT_EQ(fap->asicTimeId(), 2);
}

TEST(ArmTables, TablesPerLogicalFapAndPortType) {
   auto tables = armTablesFactory();
   auto fap = tables->logicalFapTableIs(4);
   EXPECT_EQ(fap->logicalFapId(), 4);
   auto t = fap->egressTimestampStatusTableColIs(PortType::cpu);
   EXPECT_EQ(t->portType(), PortType::cpu);
   EXPECT_EQ(fap->egressTimestampStatusTableColIs(PortType::cpu), t);
   fap->egressTimestampStatusTableColDelAll();
   EXPECT_TRUE(fap->egressTimestampStatusTableCol().empty());
   EXPECT_EQ(logicalFapArmTablesFactory(9)->logicalFapId(), 9);
}

}  // namespace
