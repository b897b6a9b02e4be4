#include <gtest/gtest.h>

#include "Hardware/Lag/Status.h"
#include "Ptp/HwConfig.h"
#include "Ptp/Status.h"
#include "Vyr/VyrCommonSmData.h"

using Wyx::IntfId;

TEST(ClockIdentity, PrintsAndParsesTheDottedHexForm) {
   const Ptp::ClockIdentity c(Ptp::ClockIdentity::Bytes{0x00, 0x1c, 0x73, 0xff, 0xfe, 0x0a, 0xbc, 0xde});
   EXPECT_EQ(c.toString(), "001c73.fffe.0abcde");
   EXPECT_EQ(fmt::format("{}", c), "001c73.fffe.0abcde");
   EXPECT_EQ(Ptp::ClockIdentity("001C73.FFFE.0ABCDE"), c);
   for (const char* bad : {"", "001c73fffe0abcde", "001c73.fffe.0abcd", "001c73.fffe.0abcdg", "001c7.3fffe.0abcde"}) {
      EXPECT_FALSE(Ptp::ClockIdentity::parse(bad)) << bad;
   }
   EXPECT_THROW(Ptp::ClockIdentity("x"), Pondo::RangeError);
}

TEST(PortDSKey, OrdersByInterfaceFirstAndPrints) {
   const Ptp::PortDSKey a(IntfId("Ethernet1"), 5, 2), b(IntfId("Ethernet2"), 0, 1);
   EXPECT_LT(a, b);
   EXPECT_LT(Ptp::PortDSKey(IntfId("Ethernet1"), 0, 9), a);
   EXPECT_EQ(fmt::format("{}", a), "Ethernet1 domain 5 port 2");
   EXPECT_EQ(a.intf(), IntfId("Ethernet1"));
}

TEST(PortDS, ClockIdentityIsFixedAtCreation) {
   auto status = Kiv::make<Ptp::Status>("status");
   const Ptp::PortDSKey k(IntfId("Ethernet1"));
   auto ds = status->portDSIs(k, Ptp::ClockIdentity("000000.0000.000001"));
   EXPECT_EQ(status->portDSIs(k, Ptp::ClockIdentity("000000.0000.000001")), ds);
   EXPECT_THROW(status->portDSIs(k, Ptp::ClockIdentity("000000.0000.000002")), Kiv::Error);
}

TEST(PlatformEnums, PrintForTraces) {
   EXPECT_EQ(fmt::format("{}", Ptp::PtpMode(7)), "7");
   EXPECT_EQ(fmt::format("{}", Ptp::PortState(144)), "slaveVariant");
   EXPECT_EQ(fmt::format("{}", Ptp::PortState(143)), "unknown(143)");
   // The location prints as its number, like the mode; its name is for scenarios and streams.
   EXPECT_EQ(fmt::format("{}", Ptp::Location::Location::externalPhy), "1");
   EXPECT_EQ(Pondo::enumName(Ptp::Location::Location::externalPhy), "externalPhy");
   EXPECT_EQ(fmt::format("{}", Vyr::VyrLagPortList{{IntfId("Ethernet1"), IntfId("Ethernet2")}}),
             "[Ethernet1, Ethernet2]");
}
