// The timestamp location machine: which interfaces are timestamped at their
// external PHY, and the egress facts copied into their location entries.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ChangeRecorder.h"
#include "TraceCapture.h"
#include "VyrPtp/VyrPtpLocationSm.h"

using Ptp::Location::Location;
using VyrPtp::PtpTimestampLocationIntfConfig;
using VyrPtp::Location::VyrPtpLocationSm;
using Wyx::IntfId;

namespace Wyx {
void PrintTo(const IntfId& i, std::ostream* os) { *os << i.name(); }
}  // namespace Wyx

namespace {

const IntfId et1("Ethernet1"), et2("Ethernet2"), et3("Ethernet3");
const Ptp::ClockIdentity clockA("001122.fffe.334455"), clockB("00aabb.fffe.ccddee");

class LocationTest : public ::testing::Test {
  protected:
   // Mode 2, timestamps at the external PHY.
   void externalPhyMode() {
      hwConfig->ptpModeIs(Ptp::PtpMode(2));
      hwConfig->timestampLocationIs(Location::externalPhy);
   }
   void enable(IntfId i, bool on = true) { hwConfig->intfConfigIs(i)->enabledIs(on); }
   // The interface's PHY in the time-sync configuration, with its mode byte.
   void phy(IntfId i, std::uint8_t mode) { timeSyncConfig->switchAsicIs("PhyChip" + i.name())->modeIs(mode); }
   // An interface ready to be timestamped at its PHY.
   void phyTimestamped(IntfId i) {
      enable(i);
      phy(i, 1);
   }
   void start() { sm = VyrPtp::Location::vyrPtpLocationSmFactory(hwConfig, location, timeSyncConfig, egress); }
   PtpTimestampLocationIntfConfig* entry(IntfId i) const { return location->enabledPhysicalIntfConfig(i); }
   // The level-7 messages, in order.
   std::vector<std::string> decisions() const {
      std::vector<std::string> m;
      for (const auto& r : traces.records) {
         if (r.level == 7) m.push_back(r.message);
      }
      return m;
   }

   Pondo::Ptr<Ptp::HwConfig> hwConfig = Kiv::make<Ptp::HwConfig>("hwConfig");
   Pondo::Ptr<VyrPtp::PtpTimestampLocationConfig> location =
       Kiv::make<VyrPtp::PtpTimestampLocationConfig>("externalPhyTimestampLocationConfig");
   Pondo::Ptr<PtpTimeSync::Config> timeSyncConfig = Kiv::make<PtpTimeSync::Config>("timeSyncConfig");
   Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> egress = VyrPtp::egressTimestampIntfStatusFactory("egress");
   TraceCapture traces{"VyrPtpLocationSm"};
   Pondo::Ptr<VyrPtpLocationSm> sm;
};

TEST_F(LocationTest, EnabledInterfaceWhosePhyTakesPartIsTimestampedAtThePhy) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   ASSERT_TRUE(entry(et1));
   EXPECT_EQ(entry(et1)->location(), Location::externalPhy);
   EXPECT_TRUE(sm->externalPhyPtpApplicable(et1));
   EXPECT_TRUE(sm->ptpSupportedOnPhy(et1));
   EXPECT_TRUE(traces.has(7, "Ethernet1: location set to 1 with mode 2."));
}

TEST_F(LocationTest, TracesOfTheConstructionWalk) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   EXPECT_TRUE(traces.has(8, "PTP timestamp location: 1"));
   EXPECT_TRUE(traces.has(7, "process PTP timestamp location on: Ethernet1"));
   EXPECT_TRUE(traces.has(8, "Ethernet1"));
   EXPECT_TRUE(traces.has(8, "Ethernet1: check if external PHY PTP is applicable"));
   EXPECT_TRUE(traces.has(8, "check timeSync config for: PhyChipEthernet1"));
   EXPECT_TRUE(traces.has(7, "Ethernet1, intfNeedsOneStepCfUpdate: false"));
   EXPECT_TRUE(traces.has(7, "Ethernet1, intfNeedsPolling: false"));
   EXPECT_TRUE(traces.has(7, "Ethernet1, clockId: 000000.0000.000000"));
}

TEST_F(LocationTest, ModeTwoWithAnotherLocationRemovesEveryInterface) {
   externalPhyMode();
   phyTimestamped(et1);
   phyTimestamped(et2);
   start();
   ASSERT_EQ(location->enabledPhysicalIntfConfig().size(), 2u);
   traces.clear();
   hwConfig->timestampLocationIs(Location::chip);
   EXPECT_TRUE(location->enabledPhysicalIntfConfig().empty());
   EXPECT_TRUE(traces.has(7, "disabling: Ethernet1"));
   EXPECT_TRUE(traces.has(7, "disabling: Ethernet2"));
   EXPECT_TRUE(traces.has(8, "PTP timestamp location: 0"));
}

// Only the numbers 2 and 1 count: another mode with the PHY location is no PHY timestamping.
TEST_F(LocationTest, OnlyModeTwoTimestampsAtThePhy) {
   phyTimestamped(et1);
   hwConfig->timestampLocationIs(Location::externalPhy);
   start();
   for (unsigned mode : {0u, 1u, 3u, 7u}) {
      hwConfig->ptpModeIs(Ptp::PtpMode(mode));
      EXPECT_FALSE(entry(et1)) << "mode " << mode;
   }
   traces.clear();
   hwConfig->ptpModeIs(Ptp::PtpMode(2));
   EXPECT_TRUE(entry(et1));
   EXPECT_TRUE(traces.has(8, "ptpMode: 2"));
   EXPECT_TRUE(traces.has(8, "PTP timestamp location: 1"));
}

TEST_F(LocationTest, DisabledInterfaceIsRemovedEvenIfItsPhySupportsPtp) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   ASSERT_TRUE(entry(et1));
   enable(et1, false);
   EXPECT_FALSE(entry(et1));
   EXPECT_FALSE(sm->externalPhyPtpApplicable(et1));
   EXPECT_TRUE(sm->ptpSupportedOnPhy(et1));
   EXPECT_TRUE(traces.has(7, "disabling: Ethernet1"));
}

TEST_F(LocationTest, RemovedConfigurationRemovesTheEntry) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   hwConfig->intfConfigDel(et1);
   EXPECT_FALSE(entry(et1));
   hwConfig->intfConfigIs(et1)->enabledIs(true);
   EXPECT_TRUE(entry(et1));
}

TEST_F(LocationTest, PhyModeByteOneAddsTheInterfaceWithItsFactsInTheSameUpdate) {
   externalPhyMode();
   enable(et1);
   phy(et1, 0);
   egress->physicalIntfNeedsPollingIs(et1);
   egress->physicalIntfNeedsOneStepCfUpdateIs(et1, true);
   egress->clockIdIs(et1, clockA);
   start();
   EXPECT_FALSE(entry(et1));
   EXPECT_FALSE(sm->ptpSupportedOnPhy(et1));

   ChangeRecorder changes(location);
   timeSyncConfig->switchAsic("PhyChipEthernet1")->modeIs(1);
   ASSERT_TRUE(entry(et1));
   EXPECT_EQ(entry(et1)->location(), Location::externalPhy);
   EXPECT_TRUE(entry(et1)->intfNeedsPolling());
   EXPECT_TRUE(entry(et1)->intfNeedsOneStepCfUpdate());
   EXPECT_EQ(entry(et1)->clockId(), clockA);
   // The entry, then its location and the copied facts in update order.
   using F = PtpTimestampLocationIntfConfig::F;
   EXPECT_EQ(changes.fieldsOf(entry(et1)),
             (std::vector<Pondo::FieldId>{F::location, F::intfNeedsOneStepCfUpdate, F::intfNeedsPolling, F::clockId}));
   EXPECT_EQ(changes.entries.front().kind, Pondo::Change::Kind::added);

   timeSyncConfig->switchAsicDel("PhyChipEthernet1");
   EXPECT_FALSE(entry(et1));
}

TEST_F(LocationTest, FullUpdateRunsItsFourStepsInOrder) {
   externalPhyMode();
   phy(et1, 1);
   egress->physicalIntfNeedsPollingIs(et1);
   egress->physicalIntfNeedsOneStepCfUpdateIs(et1, false);
   egress->clockIdIs(et1, clockB);
   enable(et1, false);
   start();
   traces.clear();
   enable(et1);
   EXPECT_EQ(decisions(), (std::vector<std::string>{
                              "Ethernet1: location set to 1 with mode 2.", "Ethernet1, intfNeedsOneStepCfUpdate: false",
                              "Ethernet1, intfNeedsPolling: true", "Ethernet1, clockId: 00aabb.fffe.ccddee"}));
   std::vector<std::string> functions;
   for (const auto& r : traces.records) {
      if (r.level == 8 && r.message == "Ethernet1") functions.push_back(r.function);
   }
   EXPECT_EQ(functions, (std::vector<std::string>{"handlePtpEnabled", "handleIntfNeedsOneStepCfUpdate",
                                                  "handleIntfNeedsPolling", "handleClockId"}));
}

TEST_F(LocationTest, ClockIdOfAnInterfaceWithoutEntryWritesNothingUntilTheEntryAppears) {
   externalPhyMode();
   phy(et1, 1);
   start();
   ChangeRecorder changes(location);
   egress->clockIdIs(et1, clockA);
   egress->clockIdIs(et1, clockB);
   EXPECT_TRUE(changes.entries.empty());
   EXPECT_TRUE(traces.has(8, "Ethernet1"));
   enable(et1);
   ASSERT_TRUE(entry(et1));
   EXPECT_EQ(entry(et1)->clockId(), clockB);
   egress->clockIdIs(et1, clockA);
   EXPECT_EQ(entry(et1)->clockId(), clockA);
}

TEST_F(LocationTest, EntryWithoutClockIdGetsTheZeroIdentity) {
   externalPhyMode();
   phyTimestamped(et1);
   egress->clockIdIs(et1, clockA);
   start();
   EXPECT_EQ(entry(et1)->clockId(), clockA);
   egress->clockIdDel(et1);
   EXPECT_EQ(entry(et1)->clockId(), Ptp::ClockIdentity());
   EXPECT_TRUE(traces.has(7, "Ethernet1, clockId: 000000.0000.000000"));
}

TEST_F(LocationTest, StoredFalseOneStepDecisionGivesFalse) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   egress->physicalIntfNeedsOneStepCfUpdateIs(et1, true);
   EXPECT_TRUE(entry(et1)->intfNeedsOneStepCfUpdate());
   egress->physicalIntfNeedsOneStepCfUpdateIs(et1, false);
   EXPECT_FALSE(entry(et1)->intfNeedsOneStepCfUpdate());
   EXPECT_TRUE(traces.has(7, "Ethernet1, intfNeedsOneStepCfUpdate: false"));
   egress->physicalIntfNeedsOneStepCfUpdateIs(et1, true);
   egress->physicalIntfNeedsOneStepCfUpdateDel(et1);
   EXPECT_FALSE(entry(et1)->intfNeedsOneStepCfUpdate());
}

TEST_F(LocationTest, PollingFollowsTheEgressSet) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   egress->physicalIntfNeedsPollingIs(et1);
   EXPECT_TRUE(entry(et1)->intfNeedsPolling());
   EXPECT_TRUE(traces.has(7, "Ethernet1, intfNeedsPolling: true"));
   egress->physicalIntfNeedsPollingDel(et1);
   EXPECT_FALSE(entry(et1)->intfNeedsPolling());
}

TEST_F(LocationTest, ConstructionWalksOnlyConfiguredInterfaces) {
   location->enabledPhysicalIntfConfigIs(et3)->locationIs(Location::externalPhy);  // left by an earlier run
   externalPhyMode();
   phyTimestamped(et1);
   start();
   EXPECT_TRUE(entry(et1));
   EXPECT_TRUE(entry(et3));
   EXPECT_FALSE(traces.has(7, "disabling: Ethernet3"));
   // Any trigger of the interface's update removes it.
   phy(et3, 0);
   EXPECT_FALSE(entry(et3));
   EXPECT_TRUE(traces.has(7, "disabling: Ethernet3"));
}

// The PHY is looked up by the full name and parsed back from the rest of the name.
TEST_F(LocationTest, PhyIsLookedUpByFullNameAndParsedBackFromShortName) {
   externalPhyMode();
   enable(et1);
   start();
   timeSyncConfig->switchAsicIs("PhyChipEt1")->modeIs(1);
   EXPECT_FALSE(entry(et1));  // the update ran for Ethernet1, whose PHY entry is another
   EXPECT_TRUE(traces.has(8, "PhyChipEt1"));
   EXPECT_TRUE(traces.has(7, "disabling: Ethernet1"));
   timeSyncConfig->switchAsicIs("PhyChipEthernet1")->modeIs(1);
   EXPECT_TRUE(entry(et1));
}

TEST_F(LocationTest, NameWithoutPhyChipIsIgnored) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   traces.clear();
   timeSyncConfig->switchAsicIs("Fap3")->modeIs(1);
   // Its addition and its mode change: the entry trace alone each time.
   EXPECT_EQ(traces.count(8, "Fap3"), 2u);
   EXPECT_EQ(traces.records.size(), 2u);
}

// Seven characters are skipped wherever the prefix stands: with one character
// before it, the text parsed starts with the prefix's last letter, is no
// interface name, and the update runs for the null interface.
TEST_F(LocationTest, NameWithOneCharacterBeforePhyChipSkipsSevenCharacters) {
   externalPhyMode();
   phyTimestamped(et1);
   start();
   ChangeRecorder changes(location);
   traces.clear();
   timeSyncConfig->switchAsicIs("XPhyChipEthernet1")->modeIs(1);
   EXPECT_TRUE(traces.has(8, "XPhyChipEthernet1"));
   EXPECT_TRUE(traces.has(8, ": check if external PHY PTP is applicable"));
   EXPECT_TRUE(traces.has(7, "disabling: "));
   EXPECT_FALSE(traces.has(8, "Ethernet1: check if external PHY PTP is applicable"));
   EXPECT_TRUE(changes.entries.empty());
   EXPECT_TRUE(entry(et1));
}

TEST_F(LocationTest, NotificationsSwitchedOffAreIgnored) {
   externalPhyMode();
   phy(et1, 1);
   start();
   sm->hasNotificationActiveIs(false);
   enable(et1);
   EXPECT_FALSE(entry(et1));
   sm->hasNotificationActiveIs(true);
   egress->physicalIntfNeedsPollingIs(et2);
   sm->handlePtpEnabled(et1);
   EXPECT_TRUE(entry(et1));
}

TEST_F(LocationTest, BuiltOnPopulatedInputsEqualsOneThatWatchedThemFill) {
   auto watching = Kiv::make<VyrPtp::PtpTimestampLocationConfig>("watching");
   auto watcher = VyrPtp::Location::vyrPtpLocationSmFactory(hwConfig, watching, timeSyncConfig, egress);
   externalPhyMode();
   phyTimestamped(et1);
   phyTimestamped(et2);
   enable(et3);
   phy(et3, 0);
   egress->physicalIntfNeedsPollingIs(et1);
   egress->physicalIntfNeedsOneStepCfUpdateIs(et2, true);
   egress->clockIdIs(et1, clockA);
   egress->clockIdIs(et2, clockB);
   start();
   ASSERT_EQ(location->enabledPhysicalIntfConfig().size(), 2u);
   ASSERT_EQ(watching->enabledPhysicalIntfConfig().size(), 2u);
   for (const auto& [i, e] : location->enabledPhysicalIntfConfig()) {
      const PtpTimestampLocationIntfConfig* w = watching->enabledPhysicalIntfConfig(i);
      ASSERT_TRUE(w) << i.name();
      EXPECT_EQ(w->location(), e->location());
      EXPECT_EQ(w->clockId(), e->clockId());
      EXPECT_EQ(w->intfNeedsPolling(), e->intfNeedsPolling());
      EXPECT_EQ(w->intfNeedsOneStepCfUpdate(), e->intfNeedsOneStepCfUpdate());
   }
}

// A reader of the location entries that changes the configuration while the
// machine walks every interface.
struct DisableOnEntry final : Pondo::Subscriber {
   DisableOnEntry(Pondo::Ptr<VyrPtp::PtpTimestampLocationConfig> l, Pondo::Ptr<Ptp::HwConfig> c)
       : location(std::move(l)), config(std::move(c)) {
      location->subscriberAdd(this);
   }
   ~DisableOnEntry() override { location->subscriberRemove(this); }
   void onChange(const Pondo::Change& c) override {
      if (c.source == location.get() && c.added() && c.keyAs<IntfId>() == et1) config->intfConfigDel(et2);
   }
   Pondo::Ptr<VyrPtp::PtpTimestampLocationConfig> location;
   Pondo::Ptr<Ptp::HwConfig> config;
};

TEST_F(LocationTest, ConfigurationChangedByAReaderDuringTheWalk) {
   phyTimestamped(et1);
   phyTimestamped(et2);
   start();
   DisableOnEntry reader(location, hwConfig);
   externalPhyMode();
   EXPECT_TRUE(entry(et1));
   EXPECT_FALSE(entry(et2));
   EXPECT_FALSE(hwConfig->intfConfig(et2));
}

TEST_F(LocationTest, NullInputIsRejectedByName) {
   try {
      VyrPtp::Location::vyrPtpLocationSmFactory(hwConfig, location, nullptr, egress);
      FAIL() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_NE(std::string(e.what()).find("ptpTimeSyncConfig"), std::string::npos) << e.what();
   }
}

TEST_F(LocationTest, MakerIsTheFactory) {
   externalPhyMode();
   phyTimestamped(et1);
   auto made = VyrPtp::Location::VyrPtpLocationSmIs(hwConfig, location, timeSyncConfig, egress);
   EXPECT_TRUE(made->hasNotificationActive());
   EXPECT_TRUE(entry(et1));
}

}  // namespace
