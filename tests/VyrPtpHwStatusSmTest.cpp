// The hardware status machines: per interface, whether its hardware may carry
// PTP packets, from its timestamp location, the chip's ASIC time file (real
// files in a temporary directory serve "/proc/asic-time"), the chip's
// time-sync state and the PHY island status, in virtual time.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "Platform/File.h"
#include "TempDir.h"
#include "TraceCapture.h"
#include "VyrPtp/VyrPtpHwStatusSm.h"

using Ptp::Location::Location;
using VyrPtp::Location::FapId;
using VyrPtp::Location::VyrPtpHwStatusFapSm;
using VyrPtp::Location::VyrPtpHwStatusSm;
using Wyx::IntfId;

namespace Wyx {
void PrintTo(const IntfId& i, std::ostream* os) { *os << i.name(); }
}  // namespace Wyx

namespace {

const IntfId et1("Ethernet3/1"), et2("Ethernet3/2"), et3("Ethernet4/1"), et4("Ethernet4/2");

// The readiness changes of the interfaces' hardware status, in order.
class ReadyRecorder final : public Pondo::Subscriber {
  public:
   using Entry = std::tuple<IntfId, std::string, bool>;
   explicit ReadyRecorder(Pondo::Ptr<Ptp::HwStatus> s) : status_(std::move(s)) { status_->subscriberAdd(this); }
   ~ReadyRecorder() override { status_->subscriberRemove(this); }
   void onChange(const Pondo::Change& c) override {
      if (c.source == status_.get()) return;
      const auto* intf = static_cast<const Ptp::HwIntfStatus*>(c.source);
      if (c.field == Ptp::HwIntfStatus::F::intfReadyForRxPacket)
         entries.emplace_back(intf->intfId(), "rx", c.newAs<bool>());
      if (c.field == Ptp::HwIntfStatus::F::intfReadyForTxPacket)
         entries.emplace_back(intf->intfId(), "tx", c.newAs<bool>());
   }
   std::vector<Entry> entries;

  private:
   Pondo::Ptr<Ptp::HwStatus> status_;
};

class HwStatusTest : public ::testing::Test {
  protected:
   void SetUp() override {
      loop.virtualTimeIs(0, 1.7e9);
      Platform::pathMapIs("/proc/asic-time", dir.path());
      productIs(true, false);
   }
   void TearDown() override {
      sm = nullptr;
      Platform::pathMapIs("/proc/asic-time", "");
      Platform::productAttributesIs(nullptr);
      EXPECT_EQ(loop.pendingTimers(), 0u);
   }
   static void productIs(bool chipTimeFromAsicTimeFile, bool asicTimeCounterNeedsInit) {
      Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(
          Platform::Attributes{chipTimeFromAsicTimeFile, asicTimeCounterNeedsInit}));
   }
   // Chip 3 ("Fap3" on slice "Linecard3") with et1 and et2, chip 4 ("Fap4" on
   // "Linecard4") with et3 and et4.
   void twoChips() {
      chip(3, "Linecard3", "Fap3", {et1, et2});
      chip(4, "Linecard4", "Fap4", {et3, et4});
   }
   void chip(FapId f, const std::string& slice, const std::string& name, const std::vector<IntfId>& intfs) {
      auto info = unitPortInfo->fapInfoIs(f, slice, name);
      for (IntfId i : intfs) info->intfInfoIs(i);
   }
   void enable(IntfId i, bool on = true) { hwConfig->intfConfigIs(i)->enabledIs(on); }
   void timeFileReady(FapId f) { dir.write(fmt::format("{}/ts", f), "1700000000000000000 0 0\n"); }
   void syncState(const std::string& slice, const std::string& chipName, std::uint8_t state) {
      timeSyncDir->entityIs<PtpTimeSync::HwStatus>(slice)->switchAsicIs(chipName)->stateIs(state);
   }
   Pondo::Ptr<VyrPtp::PtpTimestampStatus> island(const std::string& genericSlice) {
      return islandDir->entityIs<VyrPtp::PtpTimestampStatus>("PhyIsland-" + genericSlice);
   }
   void phy(IntfId i, bool rx, bool tx, const std::string& genericSlice = "Linecard") {
      auto s = island(genericSlice)->physicalIntfStatusIs(i);
      s->intfReadyForRxIs(rx);
      s->intfReadyForTxIs(tx);
   }
   void atPhy(IntfId i) { location->enabledPhysicalIntfConfigIs(i)->locationIs(Location::externalPhy); }
   // Chips 3 and 4 with every interface enabled, time files present, time synchronisation stable.
   void allReady() {
      twoChips();
      for (IntfId i : {et1, et2, et3, et4}) enable(i);
      timeFileReady(3);
      timeFileReady(4);
      syncState("Linecard3", "Fap3", 5);
      syncState("Linecard4", "Fap4", 5);
   }
   void start(bool timeSyncSupported = true) {
      sm = VyrPtp::Location::vyrPtpHwStatusSmFactory(unitPortInfo, hwConfig, location, islandDir, timeSyncDir,
                                                     timeSyncSupported, hwStatus);
   }
   bool rx(IntfId i) const { return hwStatus->intfStatus(i) && hwStatus->intfStatus(i)->intfReadyForRxPacket(); }
   bool tx(IntfId i) const { return hwStatus->intfStatus(i) && hwStatus->intfStatus(i)->intfReadyForTxPacket(); }
   bool ready(IntfId i) const { return rx(i) && tx(i); }
   VyrPtpHwStatusFapSm* fap(FapId f) const { return sm->hwStatusFapSm(f); }

   Kiv::ActivityManager& loop = Kiv::activityManager();
   TempDir dir;
   Pondo::Ptr<VyrPtp::UnitPort::PlatformUnitPortInfo> unitPortInfo =
       Kiv::make<VyrPtp::UnitPort::PlatformUnitPortInfo>("unit");
   Pondo::Ptr<Ptp::HwConfig> hwConfig = Kiv::make<Ptp::HwConfig>("hwConfig");
   Pondo::Ptr<VyrPtp::PtpTimestampLocationConfig> location =
       Kiv::make<VyrPtp::PtpTimestampLocationConfig>("externalPhyTimestampLocationConfig");
   Pondo::Ptr<Kiv::Dir> islandDir = Kiv::make<Kiv::Dir>("ptpTimestampingStatus");
   Pondo::Ptr<Kiv::Dir> timeSyncDir = Kiv::make<Kiv::Dir>("timeSyncHwStatus");
   Pondo::Ptr<Ptp::HwStatus> hwStatus = Kiv::make<Ptp::HwStatus>("hwStatus");
   TraceCapture traces{"VyrPtpHwStatusSm"};
   Pondo::Ptr<VyrPtpHwStatusSm> sm;
};

TEST_F(HwStatusTest, ChipInterfacesBecomeReadyTogetherWhenTheTimeFileDoes) {
   twoChips();
   enable(et1);
   enable(et2);
   syncState("Linecard3", "Fap3", 5);
   start();
   EXPECT_FALSE(rx(et1) || tx(et1) || rx(et2) || tx(et2));
   EXPECT_FALSE(fap(3)->asicHardwareReady());
   EXPECT_TRUE(traces.has(7, "asicTimestampFileStatus: false"));

   ReadyRecorder changes(hwStatus);
   timeFileReady(3);
   loop.runFor(1.0);
   EXPECT_TRUE(fap(3)->asicHardwareReady());
   EXPECT_EQ(changes.entries, (std::vector<ReadyRecorder::Entry>{
                                  {et1, "rx", true}, {et1, "tx", true}, {et2, "rx", true}, {et2, "tx", true}}));
   EXPECT_EQ(traces.count(8, "asicTimestampFileStatus ready: true"), 1u);
   sm = nullptr;  // chip 4's file machine polls on until its machine goes
}

TEST_F(HwStatusTest, TimeSyncStateOtherThanStableKeepsChipInterfacesNotReady) {
   allReady();
   syncState("Linecard3", "Fap3", 4);
   start();
   EXPECT_FALSE(rx(et1) || tx(et1) || rx(et2) || tx(et2));
   EXPECT_TRUE(ready(et3) && ready(et4));
   EXPECT_TRUE(traces.has(7, "timeSyncStatus stable: false"));
   syncState("Linecard3", "Fap3", 5);
   EXPECT_TRUE(ready(et1) && ready(et2));
   syncState("Linecard3", "Fap3", 6);
   EXPECT_FALSE(rx(et1) || rx(et2));
   EXPECT_TRUE(ready(et3));
}

TEST_F(HwStatusTest, WithoutTimeSyncSupportTheStateIsIgnored) {
   allReady();
   syncState("Linecard3", "Fap3", 4);
   start(false);
   EXPECT_TRUE(ready(et1) && ready(et2));
   EXPECT_FALSE(traces.has(7, "timeSyncStatus stable: false"));
   timeSyncDir->entityPtrDel("Linecard3");
   EXPECT_TRUE(ready(et1));
}

TEST_F(HwStatusTest, MissingTimeSyncStatusIsNotStable) {
   allReady();
   timeSyncDir->entityPtrDel("Linecard4");
   start();
   EXPECT_FALSE(fap(4)->timeSyncStatus());
   EXPECT_FALSE(ready(et3));
   syncState("Linecard4", "Fap4", 5);
   EXPECT_TRUE(fap(4)->timeSyncStatus());
   EXPECT_TRUE(ready(et3) && ready(et4));
   timeSyncDir->entityIs<PtpTimeSync::HwStatus>("Linecard4")->switchAsicDel("Fap4");
   EXPECT_FALSE(fap(4)->timeSyncStatus());
   EXPECT_FALSE(ready(et3) || ready(et4));
}

TEST_F(HwStatusTest, TimeSyncStatusIsRoutedBySliceAndChipName) {
   chip(3, "Linecard3", "Fap3", {et1});
   chip(4, "Linecard3", "Fap4", {et3});
   enable(et1);
   enable(et3);
   timeFileReady(3);
   timeFileReady(4);
   start();
   traces.clear();
   syncState("Linecard3", "Fap4", 5);
   EXPECT_TRUE(ready(et3));
   EXPECT_FALSE(ready(et1));
   EXPECT_TRUE(traces.has(8, "sliceName: Linecard3, chipName: Fap4"));
   EXPECT_TRUE(traces.has(7, "fapId: 4, sliceName: Linecard3, chipName: Fap4"));
   EXPECT_FALSE(traces.has(7, "fapId: 3, sliceName: Linecard3, chipName: Fap4"));
   // Another slice's entry of the same chip name is not this chip's.
   syncState("Linecard4", "Fap3", 5);
   EXPECT_FALSE(ready(et1));
   EXPECT_EQ(fap(4)->timeSyncStatus(), timeSyncDir->entityIs<PtpTimeSync::HwStatus>("Linecard3")->switchAsic("Fap4"));
}

TEST_F(HwStatusTest, ReplacedTimeSyncEntityIsFollowed) {
   allReady();
   start();
   auto replacement = Kiv::make<PtpTimeSync::HwStatus>("Linecard3");
   replacement->switchAsicIs("Fap3")->stateIs(2);
   timeSyncDir->entityPtrIs("Linecard3", replacement);
   EXPECT_EQ(fap(3)->timeSyncStatus(), replacement->switchAsic("Fap3"));
   EXPECT_FALSE(ready(et1));
   replacement->switchAsic("Fap3")->stateIs(5);
   EXPECT_TRUE(ready(et1));
   timeSyncDir->entityPtrDel("Linecard3");
   EXPECT_FALSE(fap(3)->timeSyncStatus());
   EXPECT_FALSE(ready(et1));
}

TEST_F(HwStatusTest, ChipInterfaceWhosePhyStillTimestampsIsNotReady) {
   allReady();
   phy(et1, false, true);
   start();
   EXPECT_FALSE(rx(et1) || tx(et1));
   EXPECT_FALSE(fap(3)->externalPhyHardwareStopped(et1));
   EXPECT_TRUE(ready(et2));
   EXPECT_TRUE(
       traces.has(7, "intfId: Ethernet3/1: externalPhy: intfReadyForRxPacket: false, intfReadyForTxPacket: true"));
   EXPECT_TRUE(traces.has(7, "intfId: Ethernet3/1, asic: asicReady: false"));
   island("Linecard")->physicalIntfStatus(et1)->intfReadyForTxIs(false);
   EXPECT_TRUE(fap(3)->externalPhyHardwareStopped(et1));
   EXPECT_TRUE(ready(et1));
   EXPECT_TRUE(traces.has(7, "intfId: Ethernet3/1, asic: asicReady: true"));
}

TEST_F(HwStatusTest, PhyInterfaceWithoutIslandStatusIsNotReadyUntilTheIslandAppears) {
   allReady();
   atPhy(et1);
   atPhy(et3);
   start();
   EXPECT_FALSE(rx(et1) || tx(et1) || rx(et3) || tx(et3));
   EXPECT_TRUE(ready(et2));
   traces.clear();
   auto status = Kiv::make<VyrPtp::PtpTimestampStatus>("PhyIsland-Linecard");
   status->physicalIntfStatusIs(et1)->intfReadyForRxIs(true);
   auto et3Phy = status->physicalIntfStatusIs(et3);
   et3Phy->intfReadyForRxIs(true);
   et3Phy->intfReadyForTxIs(true);
   islandDir->entityPtrIs("PhyIsland-Linecard", status);
   // One island for both chips: they sit on slices of one kind.
   EXPECT_EQ(fap(3)->ptpTimestampingStatus(), status.get());
   EXPECT_EQ(fap(4)->ptpTimestampingStatus(), status.get());
   EXPECT_TRUE(rx(et1));
   EXPECT_FALSE(tx(et1));
   EXPECT_TRUE(ready(et3));
   EXPECT_TRUE(traces.has(8, "name: PhyIsland-Linecard"));
   // Each chip is traced right before its status is set, which runs its pass.
   auto at = [&](const std::string& message) {
      for (std::size_t k = 0; k < traces.records.size(); ++k) {
         if (traces.records[k].message == message) return k;
      }
      return traces.records.size();
   };
   EXPECT_LT(at("fapId: 3, sliceName: Linecard3"),
             at("intfId: Ethernet3/1, externalPhy: intfRxReady: true, intfTxReady: false"));
   EXPECT_LT(at("intfId: Ethernet3/1, externalPhy: intfRxReady: true, intfTxReady: false"),
             at("fapId: 4, sliceName: Linecard4"));
   EXPECT_LT(at("fapId: 4, sliceName: Linecard4"), traces.records.size());
   EXPECT_TRUE(traces.has(7,
                          "intfId: Ethernet3/1, timestampLocation: 1, intfReadyForRx: true, "
                          "intfReadyForTx: false"));
   // Removing the entity clears it from every chip.
   islandDir->entityPtrDel("PhyIsland-Linecard");
   EXPECT_FALSE(fap(3)->ptpTimestampingStatus());
   EXPECT_FALSE(rx(et1) || rx(et3));
}

TEST_F(HwStatusTest, IslandOfAnotherKindOfSliceIsNotTheChips) {
   allReady();
   atPhy(et1);
   start();
   phy(et1, true, true, "Fabric");
   EXPECT_FALSE(fap(3)->ptpTimestampingStatus());
   EXPECT_FALSE(rx(et1));
}

// The location machine creates an entry (which reads as the chip until its
// location is set) and then sets the location: each step shows the drop first.
TEST_F(HwStatusTest, LocationChangeShowsNotReadyBeforeTheNewReadiness) {
   allReady();
   start();
   ASSERT_TRUE(ready(et1));
   ReadyRecorder changes(hwStatus);
   traces.clear();
   atPhy(et1);
   using E = ReadyRecorder::Entry;
   EXPECT_EQ(changes.entries, (std::vector<E>{{et1, "rx", false},
                                              {et1, "tx", false},
                                              {et1, "rx", true},
                                              {et1, "tx", true},
                                              {et1, "rx", false},
                                              {et1, "tx", false}}));
   EXPECT_TRUE(traces.has(7,
                          "intfId: Ethernet3/1, invalidated hw ready: intfReadyForRxPacket: false, "
                          "intfReadyForTxPacket: false"));
   changes.entries.clear();
   phy(et1, true, true);
   EXPECT_EQ(changes.entries, (std::vector<E>{{et1, "rx", true}, {et1, "tx", true}}));
   // Back at the chip, where the PHY that still timestamps holds it back.
   changes.entries.clear();
   location->enabledPhysicalIntfConfigDel(et1);
   EXPECT_EQ(changes.entries, (std::vector<E>{{et1, "rx", false}, {et1, "tx", false}}));
   phy(et1, false, false);
   EXPECT_TRUE(ready(et1));
   EXPECT_TRUE(ready(et2));
}

TEST_F(HwStatusTest, DisabledOrUnconfiguredInterfaceIsNotReady) {
   allReady();
   start();
   ASSERT_TRUE(ready(et1));
   enable(et1, false);
   EXPECT_FALSE(rx(et1) || tx(et1));
   enable(et1);
   EXPECT_TRUE(ready(et1));
   hwConfig->intfConfigDel(et1);
   EXPECT_FALSE(rx(et1) || tx(et1));
   EXPECT_TRUE(traces.has(7,
                          "intfId: Ethernet3/1, timestampLocation: 0, intfReadyForRx: false, "
                          "intfReadyForTx: false"));
}

TEST_F(HwStatusTest, InterfaceStatusIsCreatedWithItsInitialValuesAndExistingOnesAreKept) {
   twoChips();
   auto kept = hwStatus->intfStatusIs(et2, Ptp::LinuxTsOptions(0));
   kept->timestampMultiplierIs(7);
   start();
   const Ptp::HwIntfStatus* made = hwStatus->intfStatus(et1);
   ASSERT_TRUE(made);
   EXPECT_EQ(made->linuxTsOptions(), Ptp::LinuxTsOptions(0));
   EXPECT_TRUE(made->twoStepClock());
   EXPECT_EQ(made->timestampMultiplier(), 1u);
   EXPECT_EQ(made->timestampDivider(), 1u);
   EXPECT_FALSE(made->timestampAtPacketEnd());
   EXPECT_TRUE(traces.has(7, "creating intfStatus: intfId: Ethernet3/1"));
   EXPECT_FALSE(traces.has(7, "creating intfStatus: intfId: Ethernet3/2"));
   EXPECT_EQ(kept->timestampMultiplier(), 7u);
   EXPECT_FALSE(kept->twoStepClock());
   EXPECT_EQ(fap(3)->getIntfStatus(et2), kept);
}

TEST_F(HwStatusTest, RemovedChipLosesItsMachineAndItsInterfacesKeepTheirStatus) {
   allReady();
   start();
   ASSERT_TRUE(ready(et1));
   traces.clear();
   unitPortInfo->fapInfoDel(3);
   EXPECT_FALSE(fap(3));
   EXPECT_TRUE(hwStatus->intfStatus(et1));
   EXPECT_TRUE(ready(et1) && ready(et2));
   EXPECT_TRUE(traces.has(8, "fapId: 3"));
   EXPECT_TRUE(traces.has(7, "removal: 3"));
   // Nobody computes them any more.
   enable(et1, false);
   EXPECT_TRUE(ready(et1));
   chip(3, "Linecard3", "Fap3", {et1});
   EXPECT_TRUE(traces.has(7, "creation: 3"));
   EXPECT_FALSE(rx(et1));
}

TEST_F(HwStatusTest, RemovedChipEndsItsTimeFileMachine) {
   twoChips();
   start();
   ASSERT_TRUE(fap(3)->asicTimestampFileSm());
   EXPECT_EQ(loop.pendingTimers(), 2u);  // both chips poll for their missing files
   unitPortInfo->fapInfoDel(3);
   EXPECT_EQ(loop.pendingTimers(), 1u);
   unitPortInfo->fapInfoDel(4);
}

TEST_F(HwStatusTest, InterfaceLeavingTheChipKeepsItsFlags) {
   allReady();
   start();
   unitPortInfo->fapInfo(3)->intfInfoDel(et1);
   EXPECT_TRUE(ready(et1));
   // Changes about it no longer reach the chip's machine.
   enable(et1, false);
   EXPECT_TRUE(ready(et1));
   unitPortInfo->fapInfo(3)->intfInfoIs(et1);
   EXPECT_FALSE(rx(et1));
}

TEST_F(HwStatusTest, ChipMachineStartsTheTimeFileMachineOnItsFapPaths) {
   productIs(true, true);
   chip(3, "Linecard3", "Fap3", {et1});
   start();
   const VyrPtp::AsicTimestampFileConfig* config = fap(3)->asicTimestampFileConfig();
   ASSERT_TRUE(config);
   EXPECT_EQ(config->timestampPath(), "/proc/asic-time/3/ts");
   EXPECT_EQ(config->counterConfigPath(), "/proc/asic-time/3/cfg");
   EXPECT_TRUE(config->initCounter());
   EXPECT_FALSE(config->waitForCounterInit());
   EXPECT_TRUE(fap(3)->asicTimestampFileStatus());
   EXPECT_TRUE(traces.has(7,
                          "starting asicTimestampFileSm: timestampConfigFile /proc/asic-time/3/ts, "
                          "counterConfigFile: /proc/asic-time/3/cfg"));
}

TEST_F(HwStatusTest, ChipMachineWithoutChipInfoUsesUnit128) {
   auto made = VyrPtp::Location::vyrPtpHwStatusFapSmFactory(nullptr, hwConfig, location, false, hwStatus);
   ASSERT_TRUE(made->asicTimestampFileConfig());
   EXPECT_EQ(made->asicTimestampFileConfig()->timestampPath(), "/proc/asic-time/128/ts");
   EXPECT_EQ(made->asicTimestampFileConfig()->counterConfigPath(), "/proc/asic-time/128/cfg");
   EXPECT_TRUE(made->hasNotificationActive());
}

TEST_F(HwStatusTest, WithoutTimeFilesTheChipIsReadyByItsTimeSyncAlone) {
   productIs(false, false);
   twoChips();
   enable(et1);
   start(false);
   EXPECT_FALSE(fap(3)->asicTimestampFileSm());
   EXPECT_FALSE(fap(3)->asicTimestampFileStatus());
   EXPECT_TRUE(fap(3)->asicHardwareReady());
   EXPECT_TRUE(ready(et1));
   EXPECT_FALSE(rx(et2));
   EXPECT_FALSE(traces.has(7, "asicTimestampFileStatus: true"));
}

TEST_F(HwStatusTest, TracesOfTheChipWalk) {
   allReady();
   start();
   EXPECT_TRUE(traces.has(8, "fapId: 3"));
   EXPECT_TRUE(traces.has(7, "creation: 3"));
   EXPECT_TRUE(traces.has(8, "name: PhyIsland-Linecard"));
   EXPECT_TRUE(traces.has(8, "sliceName: Linecard4, chipName: Fap4"));
   EXPECT_TRUE(traces.has(7, "fapId: 4, sliceName: Linecard4, chipName: Fap4"));
   EXPECT_TRUE(traces.has(8, "intfId: Ethernet4/2"));
   EXPECT_TRUE(traces.has(7, "asicTimestampFileStatus: true"));
   EXPECT_TRUE(traces.has(7, "timeSyncStatus stable: true"));
   EXPECT_TRUE(traces.has(7,
                          "intfId: Ethernet4/2, timestampLocation: 0, intfReadyForRx: true, "
                          "intfReadyForTx: true"));
}

TEST_F(HwStatusTest, BuiltOnPopulatedInputsEqualsOneThatWatchedThemFill) {
   auto watchedStatus = Kiv::make<Ptp::HwStatus>("watched");
   auto watcher = VyrPtp::Location::vyrPtpHwStatusSmFactory(unitPortInfo, hwConfig, location, islandDir, timeSyncDir,
                                                            true, watchedStatus);
   allReady();
   syncState("Linecard4", "Fap4", 3);
   atPhy(et2);
   phy(et2, true, false);
   phy(et3, false, true);
   start();
   loop.runFor(1.0);  // the watcher's time file machines started before the files were there
   ASSERT_EQ(hwStatus->intfStatus().size(), 4u);
   ASSERT_EQ(watchedStatus->intfStatus().size(), 4u);
   for (IntfId i : {et1, et2, et3, et4}) {
      EXPECT_EQ(watchedStatus->intfStatus(i)->intfReadyForRxPacket(), rx(i)) << i.name();
      EXPECT_EQ(watchedStatus->intfStatus(i)->intfReadyForTxPacket(), tx(i)) << i.name();
   }
   EXPECT_TRUE(ready(et1));
   EXPECT_TRUE(rx(et2) && !tx(et2));
   EXPECT_FALSE(rx(et3) || rx(et4));
   watcher = nullptr;
   sm = nullptr;
}

// A reader of the readiness that takes an interface off the chip while the
// chip's interfaces are being evaluated.
class RemoveOnReady final : public Pondo::Subscriber {
  public:
   RemoveOnReady(Pondo::Ptr<Ptp::HwStatus> s, Pondo::Ptr<VyrPtp::UnitPort::PlatformUnitPortFapInfo> c)
       : status_(std::move(s)), chip_(std::move(c)) {
      status_->subscriberAdd(this);
   }
   ~RemoveOnReady() override { status_->subscriberRemove(this); }
   void onChange(const Pondo::Change& c) override {
      if (c.field == Ptp::HwIntfStatus::F::intfReadyForTxPacket && c.newAs<bool>()) chip_->intfInfoDel(et2);
   }

  private:
   Pondo::Ptr<Ptp::HwStatus> status_;
   Pondo::Ptr<VyrPtp::UnitPort::PlatformUnitPortFapInfo> chip_;
};

TEST_F(HwStatusTest, ChipInterfacesChangedByAReaderDuringAPass) {
   allReady();
   syncState("Linecard3", "Fap3", 4);
   start();
   RemoveOnReady reader(hwStatus, unitPortInfo->fapInfo(3));
   syncState("Linecard3", "Fap3", 5);
   EXPECT_TRUE(ready(et1));
   EXPECT_FALSE(unitPortInfo->fapInfo(3)->intfInfo(et2));
   EXPECT_TRUE(ready(et2));  // evaluated in the pass that had begun
}

TEST_F(HwStatusTest, NullInputIsRejectedByName) {
   try {
      VyrPtp::Location::vyrPtpHwStatusSmFactory(unitPortInfo, hwConfig, location, islandDir, nullptr, true, hwStatus);
      FAIL() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_NE(std::string(e.what()).find("timeSyncHwStatusDir"), std::string::npos) << e.what();
   }
}

TEST_F(HwStatusTest, MakersAreTheFactories) {
   allReady();
   sm = VyrPtp::Location::VyrPtpHwStatusSmIs(unitPortInfo, hwConfig, location, islandDir, timeSyncDir, true, hwStatus);
   EXPECT_TRUE(ready(et1));
   auto alone = VyrPtp::Location::VyrPtpHwStatusFapSmIs(unitPortInfo->fapInfo(4), hwConfig, location, false,
                                                        Kiv::make<Ptp::HwStatus>("other"));
   EXPECT_TRUE(alone->asicHardwareReady());
}

using HwStatusDeathTest = HwStatusTest;

TEST_F(HwStatusDeathTest, MissingProductAttributesStop) {
   chip(3, "Linecard3", "Fap3", {et1});
   Platform::productAttributesIs(nullptr);
   EXPECT_DEATH(start(), "ProductAttribute::Attributes::PtrConst getProductAttributes\\(\\): productAttr");
   Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(std::nullopt));
   EXPECT_DEATH(start(), "ProductAttribute::Attributes::PtrConst getProductAttributes\\(\\): attributes");
}

}  // namespace
