// The printed form every described entity has: its type, then each field in
// declaration order; collections and sets as their keys, value maps as their
// entries, entity references as the entity referred to, or null.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Asic/SimulatedChip.h"
#include "Example.h"
#include "VyrPtp/EgressTimestampIntfSm.h"
#include "VyrPtp/PlatformCfUpdateInfoTypes.h"
#include "VyrPtp/VyrHelperPtp.h"

namespace {

const Wyx::IntfId et1("Ethernet1"), et2("Ethernet2");

TEST(Print, KeyAndAttributesInDeclarationOrder) {
   auto port = Example::PortIs(et1);
   port->speedIs(100);
   EXPECT_EQ(port->toString(), "Example::Port{intf: Ethernet1, speed: 100}");
   // fmt prints it too, as it prints every type with toString().
   EXPECT_EQ(fmt::format("<{}>", *port), "<Example::Port{intf: Ethernet1, speed: 100}>");
}

TEST(Print, CollectionAsItsKeys) {
   auto chassis = Example::ChassisIs();
   EXPECT_EQ(chassis->toString(), fmt::format("Example::Chassis{{port: [], generation: {}}}", Pondo::Generation()));
   chassis->portIs(et2)->speedIs(10);
   chassis->portIs(et1);
   EXPECT_EQ(chassis->toString(),
             fmt::format("Example::Chassis{{port: [Ethernet1, Ethernet2], generation: {}}}", Pondo::Generation()));
}

TEST(Print, MapAsItsEntries) {
   auto summary = Example::SummaryIs();
   summary->speedIs(et2, 25);
   summary->speedIs(et1, 10);
   summary->generationsSeenIs(3);
   EXPECT_EQ(summary->toString(), "Example::Summary{speed: {Ethernet1: 10, Ethernet2: 25}, generationsSeen: 3}");
}

TEST(Print, SetAsItsKeys) {
   auto status = VyrPtp::EgressTimestampIntfStatusIs("status");
   status->physicalIntfNeedsPollingIs(et2);
   status->physicalIntfNeedsPollingIs(et1);
   EXPECT_NE(status->toString().find("physicalIntfNeedsPolling: [Ethernet1, Ethernet2]"), std::string::npos)
       << status->toString();
}

TEST(Print, NullReference) {
   auto info = CorrectionField::PlatformCfUpdateLogicalFapInfoIs(Pondo::LogicalFapId(2), nullptr);
   EXPECT_EQ(info->toString(),
             "CorrectionField::PlatformCfUpdateLogicalFapInfo{logicalFapId: 2, chipInfoGif: null, intfInfo: []}");
}

// A reference to an entity without a printed form of its own prints its type.
TEST(Print, ReferenceToEntityWithoutPrintedFormAsItsType) {
   auto chip = Kiv::make<Asic::ChipInfo>(1, "chip1", Kiv::make<Asic::SimulatedChip>());
   auto info = CorrectionField::PlatformCfUpdateLogicalFapInfoIs(Pondo::LogicalFapId(2), chip->gif());
   EXPECT_EQ(info->toString(),
             "CorrectionField::PlatformCfUpdateLogicalFapInfo{logicalFapId: 2, chipInfoGif: Asic::GenericIf, "
             "intfInfo: []}");
}

// A described entity referred to prints in full.
TEST(Print, ReferenceToDescribedEntityInFull) {
   auto config = VyrPtp::AsicTimestampFileConfigIs("/t", "/c", true, false);
   auto status = VyrPtp::AsicTimestampFileStatusIs();
   auto fetcher = VyrPtp::AsicTimestampFetcherIs(config, status);
   EXPECT_EQ(fetcher->toString(),
             fmt::format("VyrPtp::AsicTimestampFetcher{{fileConfig: {}, fileStatus: {}}}", *config, *status));
}

}  // namespace
