// Egress timestamp collection on a simulated chip in virtual time: the
// collector of one logical FAP (draining, polling, widening, publication), the
// polling adapter, and the aggregate that makes collectors and time sources.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "Asic/SimulatedChip.h"
#include "Hpx/SimHam.h"
#include "Platform/File.h"
#include "Platform/ProductAttributes.h"
#include "TempDir.h"
#include "TraceCapture.h"
#include "VyrPtp/VyrEgressTsArmSm.h"

using Asic::EgressTimestampEntry;
using Asic::EgressTsSwTableKey;
using Asic::PortType;
using Pondo::U3;
using VyrPtp::U64;
using VyrPtp::VyrEgressTsArmLogicalFapSm;
using Wyx::IntfId;

namespace Wyx {
void PrintTo(const IntfId& i, std::ostream* os) { *os << i.name(); }
}  // namespace Wyx

namespace {

const IntfId et1("Ethernet1/1"), et2("Ethernet1/2"), et9("Ethernet9/1");
const EgressTsSwTableKey slot1{3, PortType::network}, slot2{4, PortType::network};
constexpr U64 kLow32 = 0xFFFF'FFFFull;

// Everything a collector of logical FAP 1 works with: a simulated chip (unit 1)
// whose time is the loop's UTC time, the FPGA counter that follows the same
// time, and two interfaces with a slot each.
class CollectionTest : public ::testing::Test {
  protected:
   void SetUp() override {
      loop.virtualTimeIs(0, 1.7e9);
      ::unsetenv("SIMULATION_VMID");
      ham = Kiv::make<Hpx::SimHam>("hpx1");
      timeSyncConfig->hpxIs("hpx1")->hamIs(ham);
      timeSyncStatus->activeHpxIs("hpx1");
      fap = tsInfo->logicalFapInfoIs(1, 1, chipInfo);
      fap->intfInfoIs({et1, 32, slot1});
      fap->intfInfoIs({et2, 32, slot2});
   }
   void TearDown() override { ::unsetenv("SIMULATION_VMID"); }

   Kiv::ActivityManager& loop = Kiv::activityManager();
   Pondo::Ptr<Asic::SimulatedChip> chip = Kiv::make<Asic::SimulatedChip>(8);
   Pondo::Ptr<Asic::ChipInfo> chipInfo = Kiv::make<Asic::ChipInfo>(1, "chip1", chip);
   Pondo::Ptr<VyrPtp::PlatformEgressTsInfo> tsInfo = VyrPtp::platformEgressTsInfoFactory();
   Pondo::Ptr<VyrPtp::PlatformEgressTsLogicalFapInfo> fap;
   Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> status = VyrPtp::egressTimestampIntfStatusFactory("status");
   Pondo::Ptr<Ptp::HwTimestampStatus> glint = Kiv::make<Ptp::HwTimestampStatus>();
   Pondo::Ptr<Statebase::EntityManager> em = Kiv::make<Statebase::EntityManager>();
   Pondo::Ptr<PtpTimeSync::Config> timeSyncConfig = Kiv::make<PtpTimeSync::Config>("timeSyncConfig");
   Pondo::Ptr<PtpTimeSync::Status> timeSyncStatus = Kiv::make<PtpTimeSync::Status>("timeSyncStatus");
   Pondo::Ptr<Hpx::SimHam> ham;
   TraceCapture traces{"VyrEgressTsArmSm"};
};

class Collector : public CollectionTest {
  protected:
   void create() {
      sm = VyrPtp::vyrEgressTsArmLogicalFapSmFactory(1, status, fap, fetcher, em, glint, wheel);
      loop.runReady();  // the first tick, at once
   }
   // Enables the interface and lets its drain run to its end.
   void enable(IntfId i) {
      status->physicalIntfNeedsPollingIs(i);
      loop.runReady();
   }
   std::uint64_t reads() const { return sm->egressTsTable()->readsCompleted(); }
   const Ptp::IngressEgressTimes* published(IntfId i) const { return glint->intfTimestamp(i); }

   Pondo::Ptr<Brim::TimerWheel> wheel =
       Brim::TimerWheelIs(Kiv::activityManager().clock(), VyrPtp::VyrEgressTsArmAggregateSm::timerWheelTickMsecs,
                          VyrPtp::VyrEgressTsArmAggregateSm::timerWheelInitialMaxTicks,
                          VyrPtp::VyrEgressTsArmAggregateSm::timerWheelPreserveOrder,
                          VyrPtp::VyrEgressTsArmAggregateSm::timerWheelDefaultBucketSize);
   Pondo::Ptr<VyrPtp::TimestampFetcher> fetcher = VyrPtp::timestampFetcherFactory(timeSyncStatus, timeSyncConfig);
   Pondo::Ptr<VyrEgressTsArmLogicalFapSm> sm;
};

TEST_F(Collector, ConstructionMountsTheChipTableAndPollsAtOnce) {
   sm = VyrPtp::vyrEgressTsArmLogicalFapSmFactory(1, status, fap, fetcher, em, glint, wheel);
   EXPECT_TRUE(traces.has(8, "logicalFapId: 1"));
   ASSERT_NE(sm->egressTsTable(), nullptr);
   EXPECT_TRUE(sm->egressTsTable()->initialized());
   EXPECT_EQ(sm->egressTsTable()->unit(), 1u);
   EXPECT_NE(em->mount("hardware/egressTimestamp/unit1/network"), nullptr);
   EXPECT_EQ(sm->timeMin(), 0.0);
   loop.runReady();
   EXPECT_EQ(traces.count(6, fmt::format("expiryTime for logicalFapId: 1 is {}", double(0.005f) - double(0.001f))), 1u);
}

TEST_F(Collector, NullArgumentsAreRejectedByName) {
   EXPECT_THROW(VyrPtp::vyrEgressTsArmLogicalFapSmFactory(1, status, fap, nullptr, em, glint, wheel), Kiv::Error);
   try {
      VyrPtp::vyrEgressTsArmLogicalFapSmFactory(1, status, fap, fetcher, em, nullptr, wheel);
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_NE(std::string(e.what()).find("timestampGlint"), std::string::npos);
   }
}

TEST_F(Collector, PollsEveryFourMillisecondsFromSinglePrecisionConstants) {
   EXPECT_EQ(VyrEgressTsArmLogicalFapSm::defaultPollingPeriod, 0.004999999888241291);
   EXPECT_EQ(VyrEgressTsArmLogicalFapSm::expiryAdvance, 0.0010000000474974513);
   std::vector<Kiv::Seconds> ticks;
   Kiv::traceSinkIs([&](const Kiv::TraceRecord& r) {
      if (r.message.starts_with("expiryTime for logicalFapId: 1 is ")) ticks.push_back(Kiv::currentTime());
   });
   create();
   EXPECT_EQ(sm->pollingPeriod(), 0.004999999888241291);
   EXPECT_EQ(sm->timeMin(), 0.004999999888241291 + 0.0 - 0.0010000000474974513);
   loop.runUntil(0.1001);
   ASSERT_EQ(ticks.size(), 26u);  // 0, 4, ..., 100 ms
   for (std::size_t k = 0; k < ticks.size(); ++k) EXPECT_NEAR(ticks[k], 0.004 * double(k), 1e-12) << k;
   // The timer keeps running with nothing to poll.
   EXPECT_TRUE(sm->pollInterface().empty());
}

TEST_F(Collector, EnablingDrainsThreeStaleEntriesThenPollsWithoutPublishingThem) {
   create();
   for (std::uint16_t seq = 1; seq <= 3; ++seq) chip->send(slot1, seq);
   const std::uint64_t before = reads();
   status->physicalIntfNeedsPollingIs(et1);
   EXPECT_TRUE(traces.has(5, "Enabling polling for Ethernet1/1"));
   EXPECT_TRUE(traces.has(8, "logicalFapId: 1, intfId: Ethernet1/1"));
   EXPECT_EQ(sm->drainInterface().find(et1)->value(), 0);
   EXPECT_FALSE(sm->pollInterface().contains(et1));
   loop.runReady();
   EXPECT_EQ(reads() - before, 4u);
   for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(traces.has(6, fmt::format("valid timestamp entry: true, drainIteration: {}", i)));
   }
   EXPECT_TRUE(traces.has(6, "valid timestamp entry: false, drainIteration: 3"));
   EXPECT_TRUE(traces.has(6, "logicalFapId: 1, swTableKey: (index: 3, portType: network)"));
   EXPECT_TRUE(sm->drainInterface().empty());
   EXPECT_TRUE(sm->pollInterface().contains(et1));
   EXPECT_EQ(sm->swIndexToIntf(slot1), et1);
   EXPECT_EQ(chip->queued(slot1), 0u);
   loop.runFor(0.02);
   EXPECT_EQ(published(et1), nullptr);
   EXPECT_TRUE(traces.has(6, "Invalid timestamp"));
   EXPECT_TRUE(traces.has(7, "intfId: Ethernet1/1, swIndex: (index: 3, portType: network)"));
}

TEST_F(Collector, AFifoThatStaysValidIsDrainedEightTimesThenPolled) {
   chip = Kiv::make<Asic::SimulatedChip>(16);
   chipInfo = Kiv::make<Asic::ChipInfo>(1, "chip1", chip);
   fap = Kiv::make<VyrPtp::PlatformEgressTsLogicalFapInfo>(1, 1, chipInfo);
   fap->intfInfoIs({et1, 32, slot1});
   create();
   std::vector<U64> sent;
   for (std::uint16_t seq = 1; seq <= 12; ++seq) sent.push_back(chip->send(slot1, seq));
   const std::uint64_t before = reads();
   enable(et1);
   EXPECT_EQ(reads() - before, 8u);
   EXPECT_TRUE(traces.has(6, "valid timestamp entry: true, drainIteration: 7"));
   EXPECT_TRUE(sm->drainInterface().empty());
   EXPECT_TRUE(sm->pollInterface().contains(et1));
   EXPECT_EQ(glint->intfTimestamp().size(), 0u);
   // Past the drain limit, polling delivers what is left, one entry per tick.
   EXPECT_EQ(chip->queued(slot1), 4u);
   loop.runFor(0.004);
   ASSERT_NE(published(et1), nullptr);
   EXPECT_EQ(published(et1)->sequenceId, 9);
   EXPECT_EQ(published(et1)->egressTime, sent[8]);
}

TEST_F(Collector, MessagesSentAtKnownTimesArePublishedWithThoseTimes) {
   create();
   enable(et1);
   enable(et2);
   loop.runUntil(1.0005);
   const U64 t1 = chip->send(slot1, 101);
   loop.runUntil(1.0017);
   const U64 t2 = chip->send(slot2, 202);
   EXPECT_EQ(t1, 1'700'000'001'000'500'000ull);
   loop.runUntil(1.004);  // the tick after both sends
   ASSERT_NE(published(et1), nullptr);
   EXPECT_EQ(*published(et1), (Ptp::IngressEgressTimes{et1, 101 & 3, 0, t1, 101}));
   ASSERT_NE(published(et2), nullptr);
   EXPECT_EQ(*published(et2), (Ptp::IngressEgressTimes{et2, 202 & 3, 0, t2, 202}));
   EXPECT_TRUE(traces.has(6, fmt::format("Valid timestamp {} with seqId 101", t1 & kLow32)));
}

// A poll read's completion traces as callbackTimestamp, of the collector's class.
TEST_F(Collector, ACompletedPollReadTracesAsCallbackTimestamp) {
   create();
   enable(et1);
   chip->send(slot1, 7);
   traces.clear();
   loop.runFor(0.004);
   ASSERT_NE(published(et1), nullptr);
   std::vector<std::string> messages;
   for (const auto& r : traces.records) {
      if (r.function != "callbackTimestamp") continue;
      EXPECT_EQ(r.className, "VyrEgressTsArmLogicalFapSm");
      messages.push_back(r.message);
   }
   ASSERT_EQ(messages.size(), 2u);
   EXPECT_EQ(messages[0], "logicalFapId: 1, swTableKey: (index: 3, portType: network)");
   EXPECT_TRUE(messages[1].starts_with("Valid timestamp ")) << messages[1];
}

TEST_F(Collector, OneEntryPerTickInTheOrderSent) {
   create();
   enable(et1);
   loop.runUntil(0.0101);
   std::vector<U64> sent;
   for (std::uint16_t seq = 7; seq <= 9; ++seq) {
      sent.push_back(chip->send(slot1, seq));
      loop.runFor(0.0003);
   }
   for (std::size_t k = 0; k < sent.size(); ++k) {
      loop.runFor(0.004);
      ASSERT_NE(published(et1), nullptr);
      EXPECT_EQ(published(et1)->sequenceId, 7 + k);
      EXPECT_EQ(published(et1)->egressTime, sent[k]);
   }
}

TEST_F(Collector, ALatchJustBeforeTheLowWordWrapsIsWidenedAcrossIt) {
   create();
   enable(et1);
   // Sent before the low word wraps, read at the first tick after it.
   const double wrapAt = double(0x1'0000'0000ull - (chip->timeNs() & kLow32)) / 1e9;
   const double tickAfterWrap = std::ceil(wrapAt / 0.004) * 0.004;
   loop.runUntil(std::max(wrapAt - 0.0005, tickAfterWrap - 0.004 + 0.0001));
   const U64 sent = chip->send(slot1, 5);
   EXPECT_GT(sent & kLow32, 0xFF00'0000ull);
   loop.runUntil(tickAfterWrap);
   ASSERT_LT(chip->timeNs() & kLow32, sent & kLow32);  // read after the wrap
   ASSERT_NE(published(et1), nullptr);
   EXPECT_EQ(published(et1)->egressTime, sent);
}

TEST_F(Collector, NothingSentBeforeEnablingIsPublished) {
   create();
   for (std::uint16_t seq = 1; seq <= 5; ++seq) chip->send(slot1, seq);
   loop.runFor(0.05);
   std::vector<std::uint16_t> seen;
   struct Recorder final : Pondo::Subscriber {
      std::vector<std::uint16_t>& seen;
      explicit Recorder(std::vector<std::uint16_t>& s) : seen(s) {}
      void onChange(const Pondo::Change& c) override {
         if (c.newValue) seen.push_back(c.newAs<Ptp::IngressEgressTimes>().sequenceId);
      }
   } recorder(seen);
   glint->subscriberAdd(&recorder);
   enable(et1);
   loop.runFor(0.1);
   const U64 sent = chip->send(slot1, 6);
   loop.runFor(0.1);
   glint->subscriberRemove(&recorder);
   EXPECT_EQ(seen, std::vector<std::uint16_t>{6});
   EXPECT_EQ(published(et1)->egressTime, sent);
}

TEST_F(Collector, DisablingStopsPolling) {
   create();
   enable(et1);
   status->physicalIntfNeedsPollingDel(et1);
   EXPECT_TRUE(traces.has(5, "Disabling polling for Ethernet1/1"));
   EXPECT_FALSE(sm->pollInterface().contains(et1));
   chip->send(slot1, 1);
   const std::uint64_t before = reads();
   loop.runFor(0.1);
   EXPECT_EQ(reads(), before);
   EXPECT_EQ(chip->queued(slot1), 1u);
   EXPECT_EQ(published(et1), nullptr);
}

TEST_F(Collector, InterfacesOfOtherChipsAreSkipped) {
   create();
   status->physicalIntfNeedsPollingIs(et9);
   EXPECT_TRUE(traces.has(5, "Ethernet9/1 not in this FAP, skipping"));
   EXPECT_TRUE(sm->drainInterface().empty());
   EXPECT_TRUE(sm->pollInterface().empty());
}

TEST_F(Collector, AnInterfaceLeavingTheChipIsDropped) {
   create();
   enable(et1);
   fap->intfInfoDel(et1);
   EXPECT_TRUE(traces.has(5, "Ethernet1/1 not in this FAP, skipping"));
   EXPECT_FALSE(sm->pollInterface().contains(et1));
   EXPECT_EQ(sm->swIndexToIntf(slot1), et1);  // kept
}

TEST_F(Collector, ConstructionWalksInterfacesAlreadyNeedingPolling) {
   for (std::uint16_t seq = 1; seq <= 2; ++seq) chip->send(slot1, seq);
   status->physicalIntfNeedsPollingIs(et1);
   status->physicalIntfNeedsPollingIs(et9);
   create();
   EXPECT_TRUE(traces.has(5, "Disabling polling for Ethernet1/2"));
   EXPECT_TRUE(traces.has(5, "Ethernet9/1 not in this FAP, skipping"));
   // Walked from both inputs, the interface is drained once.
   EXPECT_EQ(traces.count(6, "valid timestamp entry: true, drainIteration: 0"), 1u);
   EXPECT_EQ(traces.count(6, "valid timestamp entry: false, drainIteration: 2"), 1u);
   EXPECT_TRUE(sm->pollInterface().contains(et1));
   const U64 sent = chip->send(slot1, 3);
   loop.runFor(0.004);
   EXPECT_EQ(published(et1)->egressTime, sent);
}

// The decisions are the second input and the chip's interfaces the third:
// construction walks them in that order.
TEST_F(Collector, ConstructionWalksTheDecisionsBeforeTheInterfaceInfos) {
   status->physicalIntfNeedsPollingIs(et1);
   sm = VyrPtp::vyrEgressTsArmLogicalFapSmFactory(1, status, fap, fetcher, em, glint, wheel);
   std::vector<std::string> walked;
   for (const auto& r : traces.records) {
      if (r.level == 5) walked.push_back(r.message);
   }
   EXPECT_EQ(walked, (std::vector<std::string>{"Enabling polling for Ethernet1/1", "Enabling polling for Ethernet1/1",
                                               "Disabling polling for Ethernet1/2"}));
}

TEST_F(Collector, EnablingAPolledInterfaceAgainDrainsItAgain) {
   create();
   enable(et1);
   fap->intfInfoIs({et1, 32, {7, PortType::network}});
   EXPECT_EQ(sm->drainInterface().find(et1)->value(), 0);
   EXPECT_TRUE(sm->pollInterface().contains(et1));
   loop.runReady();
   EXPECT_EQ(sm->swIndexToIntf({7, PortType::network}), et1);
}

TEST_F(Collector, LateValidDrainCompletionAfterDisablingDrainsAgain) {
   create();
   chip->send(slot1, 1);
   chip->send(slot1, 2);
   status->physicalIntfNeedsPollingIs(et1);  // drain read outstanding
   status->physicalIntfNeedsPollingDel(et1);
   EXPECT_TRUE(sm->drainInterface().empty());
   loop.runReady();
   // Iteration 0 read valid: back to draining at 1, then 2, then the empty
   // slot ends the drain and the disabled interface is polled.
   EXPECT_TRUE(traces.has(6, "valid timestamp entry: true, drainIteration: 0"));
   EXPECT_TRUE(traces.has(6, "valid timestamp entry: true, drainIteration: 1"));
   EXPECT_TRUE(traces.has(6, "valid timestamp entry: false, drainIteration: 2"));
   EXPECT_TRUE(sm->pollInterface().contains(et1));
   EXPECT_FALSE(status->physicalIntfNeedsPolling().contains(et1));
   const U64 sent = chip->send(slot1, 3);
   loop.runFor(0.004);
   EXPECT_EQ(published(et1)->egressTime, sent);
}

TEST_F(Collector, LateEmptyDrainCompletionAfterDisablingPolls) {
   create();
   status->physicalIntfNeedsPollingIs(et1);
   status->physicalIntfNeedsPollingDel(et1);
   loop.runReady();
   EXPECT_TRUE(traces.has(6, "valid timestamp entry: false, drainIteration: 0"));
   EXPECT_TRUE(sm->drainInterface().empty());
   EXPECT_TRUE(sm->pollInterface().contains(et1));
}

// The environment counts from the next poll on, also if it was set after the
// collector was made.
TEST_F(Collector, SimulationModePublishesTheChipTimestampAsRead) {
   create();
   EXPECT_FALSE(sm->simulation());
   ::setenv("SIMULATION_VMID", "1", 1);
   EXPECT_TRUE(sm->simulation());
   enable(et1);
   chip->timeOffsetNsIs(std::int64_t(0x1234) - std::int64_t(chip->timeNs() & kLow32));
   chip->send(slot1, 8);
   const std::uint64_t fpgaReads = ham->valueReads();
   loop.runFor(0.004);
   ASSERT_NE(published(et1), nullptr);
   EXPECT_EQ(published(et1)->egressTime, 0x1234u);
   EXPECT_EQ(published(et1)->sequenceId, 8);
   EXPECT_TRUE(traces.has(3, "Simulation mode, skip timestamp fetcher checks"));
   EXPECT_EQ(ham->valueReads(), fpgaReads);
   ::unsetenv("SIMULATION_VMID");
   EXPECT_FALSE(sm->simulation());
   const U64 sent = chip->send(slot1, 9);
   loop.runFor(0.004);
   EXPECT_EQ(published(et1)->egressTime, sent);
   EXPECT_GT(ham->valueReads(), fpgaReads);
}

// A completion called directly has no poll behind it: it looks at the environment itself.
TEST_F(Collector, ACompletionCalledDirectlyLooksAtTheEnvironment) {
   create();
   enable(et1);
   loop.runFor(0.004);  // a poll, in production mode, maps the slot
   ::setenv("SIMULATION_VMID", "1", 1);
   sm->callbackTimestamp(slot1, Asic::EgressTimestampEntry{5, 0x4321, true});
   ASSERT_NE(published(et1), nullptr);
   EXPECT_EQ(published(et1)->egressTime, 0x4321u);
   EXPECT_EQ(published(et1)->sequenceId, 5);
}

TEST_F(Collector, SimulationModeCanBeChosenWithoutTheEnvironment) {
   create();
   EXPECT_FALSE(sm->simulation());
   sm->simulationIs(true);
   enable(et1);
   chip->timeOffsetNsIs(std::int64_t(0x5678) - std::int64_t(chip->timeNs() & kLow32));
   chip->send(slot1, 9);
   loop.runFor(0.004);
   ASSERT_NE(published(et1), nullptr);
   EXPECT_EQ(published(et1)->egressTime, 0x5678u);
}

TEST_F(Collector, ATimestampIsLostWhileTheFetcherIsNotReady) {
   create();
   enable(et1);
   ham->readyIs(false);
   chip->send(slot1, 1);
   loop.runFor(0.004);
   EXPECT_TRUE(traces.has(1, "Failed to update egress timestamp: HW source for full TS not ready"));
   EXPECT_EQ(published(et1), nullptr);
   EXPECT_EQ(chip->queued(slot1), 0u);
   ham->readyIs(true);
   const U64 sent = chip->send(slot1, 2);
   loop.runFor(0.004);
   EXPECT_EQ(published(et1)->egressTime, sent);
}

TEST_F(Collector, AnUnreadableAsicTimeFilePublishesZero) {
   TempDir dir;
   dir.write("1/ts", "");
   Platform::pathMapIs("/proc/asic-time", dir.path());
   auto wrapper = VyrPtp::asicTimestampFetcherWrapperFactory(1, false, false);
   ASSERT_TRUE(wrapper->fileStatus()->ready());
   sm = VyrPtp::vyrEgressTsArmLogicalFapSmFactory(1, status, fap, wrapper->timestampFetcher(), em, glint, wheel);
   enable(et1);
   chip->send(slot1, 4);
   loop.runFor(0.004);
   ASSERT_NE(published(et1), nullptr);
   EXPECT_EQ(published(et1)->egressTime, 0u);
   EXPECT_EQ(published(et1)->sequenceId, 4);
   EXPECT_EQ(wrapper->fileConfig()->startPollingGenId(), 1);  // the file is to be reopened
   sm = nullptr;
   wrapper = nullptr;
   Platform::pathMapIs("/proc/asic-time", "");
}

TEST_F(Collector, DrainIterationIsAThreeBitCounter) {
   create();
   sm->drainInterfaceIs(et1, U3(6));
   EXPECT_EQ(sm->drainInterfaceInc(et1, U3(1)).value(), 7);
   try {
      sm->drainInterfaceInc(et1, U3(1));
      ADD_FAILURE() << "no range error";
   } catch (const Pondo::RangeError& e) {
      EXPECT_STREQ(e.what(), "U3::value < 0 or > 0x07 not allowed");
   }
   EXPECT_EQ(sm->swIndexToIntf({42, PortType::cpu}), IntfId());
}

TEST_F(Collector, ReleasingTheCollectorCancelsItsOutstandingReads) {
   create();
   chip->send(slot1, 1);
   status->physicalIntfNeedsPollingIs(et1);
   Pondo::Ptr<Asic::EgressTimestampTable> table = sm->egressTsTable();
   EXPECT_EQ(table->pendingReads(), 1u);
   sm = nullptr;
   EXPECT_EQ(table->pendingReads(), 0u);
   loop.runFor(0.01);
   EXPECT_EQ(table->readsCompleted(), 0u);
   EXPECT_EQ(chip->queued(slot1), 1u);
}

using CollectorDeathTest = Collector;

TEST_F(CollectorDeathTest, ACompletionForAnotherInterfacesSlotStops) {
   create();
   EXPECT_DEATH(sm->callbackTimestamp({99, PortType::network}, EgressTimestampEntry{1, 5, true}),
                "swIndex == tsLogicalFapInfo\\(\\)->intfInfo\\( intfId \\).swTableIndex\\(\\)");
   EXPECT_DEATH(sm->callbackDrainFifo({99, PortType::network}, EgressTimestampEntry{}),
                "swIndex == tsLogicalFapInfo\\(\\)->intfInfo\\( intfId \\).swTableIndex\\(\\)");
}

// A poll read whose interface moved to another slot before it completed no
// longer matches the interface's info.
TEST_F(CollectorDeathTest, APollReadCompletingAfterItsInterfaceMovedStops) {
   create();
   enable(et1);
   EXPECT_DEATH(
       {
          chip->send(slot1, 1);
          sm->sendEgressTimestampReadReq();
          fap->intfInfoIs({et1, 32, {9, PortType::network}});
          loop.runReady();
       },
       "swIndex == tsLogicalFapInfo\\(\\)->intfInfo\\( intfId \\).swTableIndex\\(\\)");
}

// Two polled interfaces given one slot: every read of it is taken for the
// interface whose poll wrote the slot map last.
TEST_F(Collector, ReadsOfASharedSlotGoToTheInterfaceMappedLast) {
   fap->intfInfoIs({et2, 32, slot1});
   create();
   enable(et1);
   enable(et2);
   const U64 sent = chip->send(slot1, 5);
   loop.runFor(0.004);
   EXPECT_EQ(sm->swIndexToIntf(slot1), et2);
   ASSERT_NE(published(et2), nullptr);
   EXPECT_EQ(published(et2)->egressTime, sent);
   EXPECT_EQ(published(et1), nullptr);
}

TEST_F(CollectorDeathTest, ALogicalFapWithoutChipInterfaceStops) {
   auto bare = Kiv::make<VyrPtp::PlatformEgressTsLogicalFapInfo>(2, 0, nullptr);
   EXPECT_DEATH(VyrPtp::vyrEgressTsArmLogicalFapSmFactory(2, status, bare, fetcher, em, glint, wheel),
                "tsLogicalFapInfo\\(\\)->chipInfoGif\\(\\)");
}

// --- Polling adapter -------------------------------------------------------------------

class PollingAdapter : public ::testing::Test {
  protected:
   void create() { sm = VyrPtp::vyrEgressTsPollingAdapterSmFactory(location, input, output); }
   bool polled(IntfId i) const { return output->physicalIntfNeedsPolling().contains(i); }

   Pondo::Ptr<VyrPtp::PtpTimestampLocationConfig> location =
       Kiv::make<VyrPtp::PtpTimestampLocationConfig>("externalPhyTimestampLocationConfig");
   Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> input = VyrPtp::egressTimestampIntfStatusFactory("input");
   Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> output = VyrPtp::egressTimestampIntfStatusFactory("output");
   Pondo::Ptr<VyrPtp::VyrEgressTsPollingAdapterSm> sm;
   TraceCapture traces{"VyrEgressTsArmSm"};
};

TEST_F(PollingAdapter, AnInterfaceWithoutLocationEntryIsPassedOn) {
   create();
   input->physicalIntfNeedsPollingIs(et1);
   EXPECT_TRUE(polled(et1));
   EXPECT_TRUE(traces.has(5, "intfId: Ethernet1/1, asicNeedsPolling: true"));
   EXPECT_TRUE(traces.has(8, "intfId: Ethernet1/1,"));
   input->physicalIntfNeedsPollingDel(et1);
   EXPECT_FALSE(polled(et1));
   EXPECT_TRUE(traces.has(5, "intfId: Ethernet1/1, asicNeedsPolling: false"));
}

TEST_F(PollingAdapter, WithoutTheInputFlagNothingIsPolledWhateverTheLocation) {
   create();
   location->enabledPhysicalIntfConfigIs(et1)->locationIs(Ptp::Location::Location::chip);
   location->enabledPhysicalIntfConfigIs(et2)->locationIs(Ptp::Location::Location::externalPhy);
   EXPECT_FALSE(polled(et1));
   EXPECT_FALSE(polled(et2));
   EXPECT_FALSE(sm->asicNeedsPolling(et1));
}

TEST_F(PollingAdapter, AnInterfaceTimestampedAtItsPhyIsNotPolledOnTheChip) {
   create();
   input->physicalIntfNeedsPollingIs(et1);
   auto entry = location->enabledPhysicalIntfConfigIs(et1);  // location not yet set: the chip
   EXPECT_TRUE(polled(et1));
   entry->locationIs(Ptp::Location::Location::externalPhy);
   EXPECT_FALSE(polled(et1));
   entry->locationIs(Ptp::Location::Location::chip);
   EXPECT_TRUE(polled(et1));
   entry->locationIs(Ptp::Location::Location::externalPhy);
   location->enabledPhysicalIntfConfigDel(et1);
   EXPECT_TRUE(polled(et1));
}

TEST_F(PollingAdapter, CopiedFactsOfALocationEntryChangeNothing) {
   create();
   input->physicalIntfNeedsPollingIs(et1);
   auto entry = location->enabledPhysicalIntfConfigIs(et1);
   entry->locationIs(Ptp::Location::Location::externalPhy);
   traces.clear();
   entry->intfNeedsPollingIs(true);
   entry->clockIdIs(Ptp::ClockIdentity("001c73.fffe.000001"));
   entry->intfNeedsOneStepCfUpdateIs(true);
   EXPECT_TRUE(traces.records.empty());
   EXPECT_FALSE(polled(et1));
}

TEST_F(PollingAdapter, ConstructionReflectsPopulatedInputs) {
   input->physicalIntfNeedsPollingIs(et1);
   input->physicalIntfNeedsPollingIs(et2);
   location->enabledPhysicalIntfConfigIs(et2)->locationIs(Ptp::Location::Location::externalPhy);
   output->physicalIntfNeedsPollingIs(et2);  // left from before
   output->physicalIntfNeedsPollingIs(et9);  // neither input names it: kept
   create();
   EXPECT_TRUE(polled(et1));
   EXPECT_FALSE(polled(et2));
   EXPECT_TRUE(polled(et9));
   EXPECT_THROW(VyrPtp::vyrEgressTsPollingAdapterSmFactory(location, input, nullptr), Kiv::Error);
}

// The location entries are the first input and the decisions the second:
// construction walks them in that order.
TEST_F(PollingAdapter, ConstructionWalksTheLocationEntriesBeforeTheDecisions) {
   input->physicalIntfNeedsPollingIs(et1);
   location->enabledPhysicalIntfConfigIs(et2)->locationIs(Ptp::Location::Location::externalPhy);
   create();
   std::vector<std::string> walked;
   for (const auto& r : traces.records) {
      if (r.level == 5) walked.push_back(r.message);
   }
   EXPECT_EQ(walked, (std::vector<std::string>{"intfId: Ethernet1/2, asicNeedsPolling: false",
                                               "intfId: Ethernet1/1, asicNeedsPolling: true"}));
}

TEST(PtpTimestampLocationConfig, EntriesAreCreatedOnceAndStartAtTheChip) {
   auto location = Kiv::make<VyrPtp::PtpTimestampLocationConfig>("config");
   auto entry = location->enabledPhysicalIntfConfigIs(et1);
   EXPECT_EQ(location->enabledPhysicalIntfConfigIs(et1), entry);
   EXPECT_EQ(entry->intfId(), et1);
   EXPECT_EQ(entry->location(), Ptp::Location::Location::chip);
   EXPECT_EQ(entry->clockId(), Ptp::ClockIdentity());
   EXPECT_FALSE(entry->intfNeedsPolling());
   EXPECT_FALSE(entry->intfNeedsOneStepCfUpdate());
   EXPECT_EQ(location->enabledPhysicalIntfConfigDel(et1), entry);
   EXPECT_EQ(location->enabledPhysicalIntfConfig(et1), nullptr);
}

// --- Aggregate --------------------------------------------------------------------------

class Aggregate : public CollectionTest {
  protected:
   void SetUp() override {
      CollectionTest::SetUp();
      productIs(false, false);
   }
   void TearDown() override {
      sm = nullptr;
      Platform::productAttributesIs(nullptr);
      CollectionTest::TearDown();
   }
   static void productIs(bool chipTimeFromAsicTimeFile, bool asicTimeCounterNeedsInit) {
      Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(
          Platform::Attributes{chipTimeFromAsicTimeFile, asicTimeCounterNeedsInit}));
   }
   void create() {
      sm = VyrPtp::vyrEgressTsArmAggregateSmFactory(status, tsInfo, timeSyncConfig, timeSyncStatus, em, glint);
   }

   Pondo::Ptr<VyrPtp::VyrEgressTsArmAggregateSm> sm;
};

TEST_F(Aggregate, StartClearsPublishedTimestampsBeforeAnyCollectorRuns) {
   glint->intfTimestampIs({et1, 1, 0, 12345, 5});
   glint->intfTimestampIs({et2, 2, 0, 12346, 6});
   std::vector<std::string> events;
   Kiv::traceSinkIs([&](const Kiv::TraceRecord& r) { events.emplace_back(r.message); });
   struct Removals final : Pondo::Subscriber {
      std::vector<std::string>& events;
      explicit Removals(std::vector<std::string>& e) : events(e) {}
      void onChange(const Pondo::Change& c) override {
         if (c.removed()) events.push_back("removed " + c.keyAs<IntfId>().name());
      }
   } removals(events);
   glint->subscriberAdd(&removals);
   create();
   glint->subscriberRemove(&removals);
   EXPECT_TRUE(glint->intfTimestamp().empty());
   const auto at = [&](const std::string& e) { return std::find(events.begin(), events.end(), e) - events.begin(); };
   EXPECT_LT(at("removed Ethernet1/2"), at("tsInfoExists: true"));
   EXPECT_LT(at("tsInfoExists: true"), std::ptrdiff_t(events.size()));
   EXPECT_EQ(events.front(), "handleInitialized");
}

TEST_F(Aggregate, OneTimerWheelOfOneMillisecondTicksSharedByTheCollectors) {
   tsInfo->logicalFapInfoIs(2, 2, Kiv::make<Asic::ChipInfo>(2, "chip2", Kiv::make<Asic::SimulatedChip>()));
   create();
   ASSERT_NE(sm->timerWheel(), nullptr);
   EXPECT_EQ(sm->timerWheel()->tick(), 0.001);
   EXPECT_TRUE(sm->timerWheel()->preserveOrder());
   ASSERT_EQ(sm->logicalFapSm().size(), 2u);
   EXPECT_EQ(sm->logicalFapSm(1)->timerWheel(), sm->timerWheel());
   EXPECT_EQ(sm->logicalFapSm(2)->timerWheel(), sm->timerWheel());
   EXPECT_EQ(sm->logicalFapSm(1)->tsLogicalFapInfo(), fap.get());
   EXPECT_EQ(sm->logicalFapSm(1)->egressTimestampIntfStatus(), status.get());
   EXPECT_EQ(sm->logicalFapSm(1)->timestampGlint(), glint.get());
   EXPECT_EQ(sm->logicalFapSm(1)->statebaseEm(), em.get());
   EXPECT_EQ(sm->timerWheel()->pending(), 2u);
}

TEST_F(Aggregate, WithoutAsicTimeFilesEachChipGetsItsOwnFpgaFetcher) {
   tsInfo->logicalFapInfoIs(2, 2, Kiv::make<Asic::ChipInfo>(2, "chip2", Kiv::make<Asic::SimulatedChip>()));
   create();
   EXPECT_TRUE(sm->asicTimeFetcherWrapperCol().empty());
   auto* f1 = dynamic_cast<VyrPtp::TimestampFetcher*>(sm->logicalFapSm(1)->timestampFetcher());
   auto* f2 = dynamic_cast<VyrPtp::TimestampFetcher*>(sm->logicalFapSm(2)->timestampFetcher());
   ASSERT_NE(f1, nullptr);
   ASSERT_NE(f2, nullptr);
   EXPECT_NE(f1, f2);
   EXPECT_EQ(f1->ptpTimeSyncStatus(), timeSyncStatus.get());
   EXPECT_EQ(f1->ptpTimeSyncConfig(), timeSyncConfig.get());
}

// Without time synchronisation's entities the FPGA fetchers find no active
// device: the collectors run and report their source not ready.
TEST_F(Aggregate, WithoutTimeSyncEntitiesTheFpgaFetchersAreNotReady) {
   sm = VyrPtp::vyrEgressTsArmAggregateSmFactory(status, tsInfo, nullptr, nullptr, em, glint);
   ASSERT_NE(sm->logicalFapSm(1), nullptr);
   EXPECT_FALSE(sm->logicalFapSm(1)->timestampFetcher()->timestampReady());
   status->physicalIntfNeedsPollingIs(et1);
   loop.runFor(0.02);
   chip->send(slot1, 1);
   loop.runFor(0.004);
   EXPECT_TRUE(traces.has(1, "Failed to update egress timestamp: HW source for full TS not ready"));
   EXPECT_EQ(glint->intfTimestamp(et1), nullptr);
}

TEST_F(Aggregate, WithAsicTimeFilesEachChipGetsAWrapperOnItsKernelUnit) {
   productIs(true, true);
   tsInfo->logicalFapInfoDel(1);
   fap = tsInfo->logicalFapInfoIs(1, 7, chipInfo);
   create();
   VyrPtp::AsicTimestampFetcherWrapper* w = sm->asicTimeFetcherWrapperCol(1);
   ASSERT_NE(w, nullptr);
   EXPECT_EQ(w->kernelUnitId(), 7);
   EXPECT_TRUE(w->initCounter());
   EXPECT_FALSE(w->waitForCounterInit());
   EXPECT_EQ(w->fileConfig()->timestampPath(), "/proc/asic-time/7/ts");
   EXPECT_EQ(sm->logicalFapSm(1)->timestampFetcher(), w->timestampFetcher());
}

TEST_F(Aggregate, DeletingAChipsInfoRemovesItsCollectorAndWrapperAndReAddingMakesThemAnew) {
   productIs(true, false);
   create();
   Pondo::Ptr<VyrEgressTsArmLogicalFapSm> first = sm->logicalFapSm(1);
   Pondo::Ptr<VyrPtp::AsicTimestampFetcherWrapper> firstWrapper = sm->asicTimeFetcherWrapperCol(1);
   tsInfo->logicalFapInfoDel(1);
   EXPECT_TRUE(traces.has(5, "tsInfoExists: false"));
   EXPECT_EQ(sm->logicalFapSm(1), nullptr);
   EXPECT_EQ(sm->asicTimeFetcherWrapperCol(1), nullptr);
   fap = tsInfo->logicalFapInfoIs(1, 1, chipInfo);
   ASSERT_NE(sm->logicalFapSm(1), nullptr);
   EXPECT_NE(sm->logicalFapSm(1), first.get());
   ASSERT_NE(sm->asicTimeFetcherWrapperCol(1), nullptr);
   EXPECT_NE(sm->asicTimeFetcherWrapperCol(1), firstWrapper.get());
   EXPECT_EQ(sm->logicalFapSm(1)->tsLogicalFapInfo(), fap.get());
}

TEST_F(Aggregate, ChangesInsideAChipsInfoReachItsCollectorOnly) {
   create();
   VyrEgressTsArmLogicalFapSm* collector = sm->logicalFapSm(1);
   fap->intfInfoIs({et9, 32, {9, PortType::network}});
   EXPECT_EQ(sm->logicalFapSm(1), collector);
   EXPECT_EQ(traces.count(5, "tsInfoExists: true"), 1u);
}

TEST_F(Aggregate, EndToEndOnTheFpgaCounter) {
   create();
   status->physicalIntfNeedsPollingIs(et1);
   status->physicalIntfNeedsPollingIs(et2);
   loop.runUntil(0.5003);
   const U64 t1 = chip->send(slot1, 11);
   loop.runUntil(0.5021);
   const U64 t2 = chip->send(slot2, 12);
   loop.runUntil(0.51);
   EXPECT_EQ(*glint->intfTimestamp(et1), (Ptp::IngressEgressTimes{et1, 3, 0, t1, 11}));
   EXPECT_EQ(*glint->intfTimestamp(et2), (Ptp::IngressEgressTimes{et2, 0, 0, t2, 12}));
}

TEST_F(Aggregate, EndToEndOnTheAsicTimeFile) {
   TempDir dir;
   dir.write("1/ts", "0 0 0\n");
   dir.write("1/cfg", "");
   Platform::pathMapIs("/proc/asic-time", dir.path());
   productIs(true, true);
   create();
   EXPECT_EQ(dir.read("1/cfg"), "init");
   status->physicalIntfNeedsPollingIs(et1);
   loop.runUntil(0.2507);
   const U64 sent = chip->send(slot1, 21);
   dir.write("1/ts", fmt::format("{} 0 {}\n", chip->timeNs(), chip->timeNs()));  // the kernel's time, read later
   loop.runUntil(0.26);
   ASSERT_NE(glint->intfTimestamp(et1), nullptr);
   EXPECT_EQ(glint->intfTimestamp(et1)->egressTime, sent);
   EXPECT_EQ(glint->intfTimestamp(et1)->sequenceId, 21);
   sm = nullptr;
   Platform::pathMapIs("/proc/asic-time", "");
}

using AggregateDeathTest = Aggregate;

TEST_F(AggregateDeathTest, MissingProductAttributesStop) {
   Platform::productAttributesIs(nullptr);
   EXPECT_DEATH(create(), "Product attributes don't exist!");
   Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(std::nullopt));
   EXPECT_DEATH(create(), "Attributes object for product doesn't exist!");
}

TEST_F(AggregateDeathTest, ALeftoverAsicTimeWrapperStops) {
   productIs(true, false);
   tsInfo->logicalFapInfoDel(1);
   create();
   sm->asicTimeFetcherWrapperColIs(1, VyrPtp::asicTimestampFetcherWrapperFactory(1, false, false));
   EXPECT_DEATH(tsInfo->logicalFapInfoIs(1, 1, chipInfo),
                "asic-time fetcher already created for 1, may not have been cleaned up");
}

}  // namespace
