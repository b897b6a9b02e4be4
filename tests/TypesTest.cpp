// Shared value types: Generation, U3, Duration, named enumerations, IntfId.
#include <gtest/gtest.h>

#include <unordered_set>

#include "Pondo/Enum.h"
#include "Pondo/Types.h"
#include "Ptp/Types.h"
#include "Wyx/IntfId.h"

using Pondo::Generation;
using Wyx::IntfId;

namespace {

TEST(Generation, EqualityComparesCounterAndFlag) {
   EXPECT_EQ(Generation(3, true), Generation(3, true));
   EXPECT_NE(Generation(3, true), Generation(3, false));
   EXPECT_NE(Generation(3, true), Generation(4, true));
   EXPECT_EQ(Generation(), Generation(0, false));
}

TEST(Generation, OrdersByCounterThenFlag) {
   EXPECT_LT(Generation(3, true), Generation(4, false));
   EXPECT_LT(Generation(3, false), Generation(3, true));
}

TEST(Generation, HashAndPrintableForm) {
   std::unordered_set<Generation> s{Generation(1, false), Generation(1, true), Generation(1, false)};
   EXPECT_EQ(s.size(), 2u);
   EXPECT_EQ(fmt::format("{}", Generation(7, true)), "(7, true)");
}

TEST(U3, HoldsZeroToSeven) {
   EXPECT_EQ(Pondo::U3().value(), 0);
   EXPECT_EQ(Pondo::U3(7).value(), 7);
   EXPECT_EQ(sizeof(Pondo::U3), 1u);
   EXPECT_EQ(fmt::format("{}", Pondo::U3(5)), "5");
}

TEST(U3, OutOfRangeIsARangeError) {
   for (int bad : {-1, 8, 255}) {
      try {
         Pondo::U3 u(bad);
         ADD_FAILURE() << "no error for " << bad << " (got " << int(u.value()) << ")";
      } catch (const Pondo::RangeError& e) {
         EXPECT_STREQ(e.what(), "U3::value < 0 or > 0x07 not allowed");
      }
   }
}

TEST(Duration, ConvertsAndCompares) {
   using Pondo::Duration;
   EXPECT_EQ(Duration::milliseconds(4).nanoseconds(), 4'000'000);
   EXPECT_EQ(Duration::seconds(0.5), Duration::milliseconds(500));
   EXPECT_DOUBLE_EQ((Duration::seconds(1) - Duration::milliseconds(1)).seconds(), 0.999);
   EXPECT_LT(Duration::nanoseconds(1), Duration::nanoseconds(2));
   EXPECT_EQ(fmt::format("{}", Duration::nanoseconds(12)), "12ns");
}

TEST(Enum, LooksUpByNameAndValueAndPrintsItsName) {
   using Ptp::MessageTypeNumber;
   EXPECT_EQ(Pondo::enumName(MessageTypeNumber::followUp), "FollowUp");
   EXPECT_EQ(Pondo::enumFromName<MessageTypeNumber>("Announce"), MessageTypeNumber::announce);
   EXPECT_EQ(Pondo::enumFromName<MessageTypeNumber>("announce"), std::nullopt);
   EXPECT_EQ(Pondo::enumFromValue<MessageTypeNumber>(0x9), MessageTypeNumber::delayResp);
   EXPECT_EQ(Pondo::enumFromValue<MessageTypeNumber>(0x4), std::nullopt);
   EXPECT_EQ(fmt::format("{}", Ptp::TransportMode::ipv6), "ipv6");
   EXPECT_EQ(fmt::format("{}", Ptp::PtpVersion(9)), "unknown(9)");
}

TEST(IntfId, FullAndShortNames) {
   IntfId et("Ethernet3/1");
   EXPECT_EQ(et.name(), "Ethernet3/1");
   EXPECT_EQ(et.shortName(), "Et3/1");
   EXPECT_EQ(IntfId("Et3/1"), et);
   EXPECT_EQ(IntfId("Po10").name(), "Port-Channel10");
   EXPECT_EQ(IntfId("Ethernet1/2/3").shortName(), "Et1/2/3");
   EXPECT_EQ(fmt::format("{}", et), "Ethernet3/1");
}

TEST(IntfId, NullMeansNone) {
   IntfId none;
   EXPECT_TRUE(none.isNull());
   EXPECT_FALSE(none);
   EXPECT_EQ(none.name(), "");
   EXPECT_EQ(fmt::format("{}", none), "");
   EXPECT_TRUE(IntfId("Et1"));
}

TEST(IntfId, KindsAndPortChannels) {
   EXPECT_TRUE(Wyx::isPortChannelIntfId(IntfId("Port-Channel1")));
   EXPECT_FALSE(Wyx::isPortChannelIntfId(IntfId("Ethernet1")));
   EXPECT_TRUE(Wyx::isEthernetIntfId(IntfId("Et1/1")));
   EXPECT_EQ(IntfId("Management1").kind(), IntfId::Kind::management);
   EXPECT_EQ(IntfId::fromValue(IntfId("Vlan100").value()), IntfId("Vl100"));
}

TEST(IntfId, OrdersByKindThenNumerically) {
   EXPECT_LT(IntfId("Ethernet2/1"), IntfId("Ethernet10/1"));
   EXPECT_LT(IntfId("Ethernet1"), IntfId("Ethernet1/1"));
   EXPECT_LT(IntfId("Ethernet1/2"), IntfId("Ethernet1/10"));
   EXPECT_LT(IntfId("Ethernet99"), IntfId("Port-Channel1"));
   std::unordered_set<IntfId> s{IntfId("Et1/1"), IntfId("Ethernet1/1"), IntfId("Et1/2")};
   EXPECT_EQ(s.size(), 2u);
}

TEST(IntfId, RejectsMalformedNames) {
   for (const char* bad : {"", "Ethernet", "Ethernet1/", "Ethernet/1", "Ethernet1/2/3/4", "Ethernet70000", "Foo1",
                           "Ethernet1x", "Ethernet-1"}) {
      EXPECT_EQ(IntfId::parse(bad), std::nullopt) << bad;
   }
   try {
      IntfId i("Ethernet1/");
      ADD_FAILURE() << i.name();
   } catch (const Pondo::RangeError& e) {
      EXPECT_STREQ(e.what(), "'Ethernet1/' is not an interface name");
   }
}

}  // namespace
