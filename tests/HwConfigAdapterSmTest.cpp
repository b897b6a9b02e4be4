#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>

#include "TraceCapture.h"
#include "VyrPtp/HwConfigAdapterSm.h"

using VyrPtp::HwConfigAdapterSm;
using Wyx::IntfId;

namespace {

const IntfId et1("Ethernet1"), et2("Ethernet2"), et3("Ethernet3"), et9("Ethernet9");
const IntfId po1("Port-Channel1"), po2("Port-Channel2");

struct Entry {
   bool enabled;
   bool disableMgmt;
   friend bool operator==(const Entry&, const Entry&) = default;
};

std::map<IntfId, Entry> entries(const Ptp::HwConfig& config) {
   std::map<IntfId, Entry> m;
   for (const auto& [k, c] : config.intfConfig()) m[k] = Entry{c->enabled(), c->disableManagementMessageForwarding()};
   return m;
}

class HwConfigAdapterTest : public ::testing::Test {
  protected:
   Pondo::Ptr<Ptp::HwConfig> input = Kiv::make<Ptp::HwConfig>("input");
   Pondo::Ptr<Vyr::VyrCommonSmData> vcsd = Kiv::make<Vyr::VyrCommonSmData>("vcsd");
   Pondo::Ptr<Ptp::HwConfig> output = Kiv::make<Ptp::HwConfig>("output");
   Pondo::Ptr<HwConfigAdapterSm> sm;

   void create() { sm = VyrPtp::hwConfigAdapterSmFactory(input, vcsd, output); }

   void configIs(IntfId intf, bool enabled, bool disableMgmt = false) {
      auto c = input->intfConfigIs(intf);
      c->enabledIs(enabled);
      c->disableManagementMessageForwardingIs(disableMgmt);
   }
   // The forwarding agent adds `port` to `lag`: first the port's LAG, then the LAG's list.
   void join(IntfId port, IntfId lag) {
      vcsd->portToLagIs(port, lag);
      Vyr::VyrLagPortList ports;
      if (auto* p = vcsd->lagToPort().find(lag)) ports = *p;
      ports.member.push_back(port);
      vcsd->lagToPortIs(lag, ports);
   }
   void leave(IntfId port, IntfId lag) {
      vcsd->portToLagDel(port);
      Vyr::VyrLagPortList ports = *vcsd->lagToPort().find(lag);
      std::erase(ports.member, port);
      vcsd->lagToPortIs(lag, ports);
   }
   std::optional<Entry> out(IntfId intf) const {
      const Ptp::HwIntfConfig* c = output->intfConfig(intf);
      if (!c) return std::nullopt;
      return Entry{c->enabled(), c->disableManagementMessageForwarding()};
   }
   std::map<IntfId, Entry> outAll() const { return entries(*output); }
};

// One nested machine per input entry, watching the entry present now.
TEST_F(HwConfigAdapterTest, EachInputEntryHasOneNestedMachineWatchingIt) {
   configIs(et1, true);
   create();
   const HwConfigAdapterSm::NestedSm_PtpHwIntfConfig* first = sm->ptpHwIntfConfig(et1);
   ASSERT_NE(first, nullptr);
   EXPECT_EQ(first->intfId(), et1);
   EXPECT_EQ(first->notifier(), input->intfConfig(et1));
   EXPECT_EQ(sm->ptpHwIntfConfigIs(et1).get(), first);

   input->intfConfigDel(et1);
   EXPECT_EQ(sm->ptpHwIntfConfig(et1), nullptr);
   EXPECT_EQ(out(et1), std::nullopt);
   configIs(et1, false, true);
   ASSERT_NE(sm->ptpHwIntfConfig(et1), nullptr);
   EXPECT_EQ(sm->ptpHwIntfConfig(et1)->notifier(), input->intfConfig(et1));
   EXPECT_EQ(out(et1), (Entry{false, true}));

   // Removing the machine alone re-derives the port from the input, which still has its entry.
   sm->ptpHwIntfConfigDel(et1);
   EXPECT_EQ(sm->ptpHwIntfConfig().size(), 0u);
   EXPECT_EQ(out(et1), (Entry{false, true}));
}

TEST_F(HwConfigAdapterTest, AMachineForAnAbsentEntryIsRefused) {
   create();
   EXPECT_DEATH(sm->ptpHwIntfConfigIs(et9), "ptpHwIntfConfigIs: no input configuration for Ethernet9");
}

TEST_F(HwConfigAdapterTest, CopiesGlobalFieldsWithTheirTraces) {
   TraceCapture traces("AdapterSm");
   create();
   EXPECT_TRUE(traces.has(8, "forwardPtpV1: false"));
   EXPECT_TRUE(traces.has(8, "mode: 0"));
   EXPECT_TRUE(traces.has(8, "PTP timestamp location: 0"));
   traces.clear();
   input->forwardPtpV1Is(true);
   input->forwardUnicastApplicableIs(true);
   input->g82751EnabledIs(true);
   input->ptpModeIs(Ptp::PtpMode(2));
   input->timestampLocationIs(Ptp::Location::Location::externalPhy);
   EXPECT_TRUE(output->forwardPtpV1());
   EXPECT_TRUE(output->forwardUnicastApplicable());
   EXPECT_TRUE(output->g82751Enabled());
   EXPECT_EQ(output->ptpMode(), Ptp::PtpMode(2));
   EXPECT_EQ(output->timestampLocation(), Ptp::Location::Location::externalPhy);
   std::vector<std::string> expected{"forwardPtpV1: true", "forwardUnicastApplicable: true", "g82751Enabled: true",
                                     "mode: 2", "PTP timestamp location: 1"};
   ASSERT_EQ(traces.records.size(), expected.size());
   for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(traces.records[i].level, 8u);
      EXPECT_EQ(traces.records[i].message, expected[i]);
   }
}

TEST_F(HwConfigAdapterTest, PhysicalPortCopiesItsOwnEntryOfTwoFields) {
   vcsd->intfIs(et1, true);
   configIs(et1, true, true);
   create();
   EXPECT_EQ(out(et1), (Entry{true, true}));
   input->intfConfig(et1)->disableManagementMessageForwardingIs(false);
   EXPECT_EQ(out(et1), (Entry{true, false}));
   input->intfConfig(et1)->enabledIs(false);
   EXPECT_EQ(out(et1), (Entry{false, false}));
   input->intfConfigDel(et1);
   EXPECT_FALSE(out(et1));
}

TEST_F(HwConfigAdapterTest, PortJoiningConfiguredLagTakesLagValuesOverItsOwn) {
   for (IntfId i : {et1, et2}) vcsd->intfIs(i, true);
   configIs(et1, false, false);
   configIs(po1, true, true);
   join(et2, po1);
   create();
   EXPECT_EQ(out(et1), (Entry{false, false}));
   join(et1, po1);
   EXPECT_EQ(out(et1), (Entry{true, true}));
   // The member's own entry is ignored while it is in the LAG.
   input->intfConfig(et1)->disableManagementMessageForwardingIs(true);
   input->intfConfig(et1)->enabledIs(true);
   input->intfConfig(et1)->enabledIs(false);
   EXPECT_EQ(out(et1), (Entry{true, true}));
   input->intfConfig(po1)->enabledIs(false);
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et1, {false, true}}, {et2, {false, true}}}));
}

TEST_F(HwConfigAdapterTest, PortJoiningUnconfiguredLagLosesItsEntry) {
   vcsd->intfIs(et1, true);
   configIs(et1, true);
   create();
   ASSERT_TRUE(out(et1));
   join(et1, po1);
   EXPECT_FALSE(out(et1));
}

TEST_F(HwConfigAdapterTest, PortLeavingLagRevertsToItsOwnEntryOrLosesIt) {
   for (IntfId i : {et1, et2}) vcsd->intfIs(i, true);
   configIs(et1, false, true);
   configIs(po1, true, false);
   join(et1, po1);
   join(et2, po1);
   create();
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et1, {true, false}}, {et2, {true, false}}}));
   leave(et1, po1);
   EXPECT_EQ(out(et1), (Entry{false, true}));
   leave(et2, po1);
   EXPECT_FALSE(out(et2));
}

TEST_F(HwConfigAdapterTest, LagConfigRemovedDeletesMembersAndAddedAgainRecreatesThem) {
   for (IntfId i : {et1, et2, et3}) vcsd->intfIs(i, true);
   configIs(et3, true);
   join(et1, po1);
   join(et2, po1);
   configIs(po1, true, true);
   create();
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et1, {true, true}}, {et2, {true, true}}, {et3, {true, false}}}));
   input->intfConfigDel(po1);
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et3, {true, false}}}));
   configIs(po1, true, false);
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et1, {true, false}}, {et2, {true, false}}, {et3, {true, false}}}));
   EXPECT_FALSE(out(po1));  // the LAG itself never gets an entry
}

TEST_F(HwConfigAdapterTest, LagWithoutPortListWritesNothing) {
   vcsd->intfIs(et1, true);
   vcsd->portToLagIs(et1, po2);  // member known, but po2 has no lagToPort entry
   create();
   output->intfConfigIs(et2)->enabledIs(true);  // unrelated entry written by someone else
   configIs(po1, true);
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et2, {true, false}}}));
   TraceCapture traces("AdapterSm");
   configIs(po2, true);
   input->intfConfig(po2)->enabledIs(false);
   input->intfConfigDel(po2);
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et2, {true, false}}}));
   EXPECT_FALSE(traces.has(9, "LAG exists, hasLagHwIntfConfig: true"));
   EXPECT_TRUE(traces.has(8, "Port-Channel2"));
}

TEST_F(HwConfigAdapterTest, RestartRemovesStaleOutputEntriesAndRederivesLagMembers) {
   for (IntfId i : {et1, et2}) vcsd->intfIs(i, true);
   configIs(et1, true);
   configIs(po1, true, true);
   join(et2, po1);
   // Left behind by an earlier run: a port that lost its configuration, and a stale value for a member.
   output->intfConfigIs(et9)->enabledIs(true);
   output->intfConfigIs(et2)->enabledIs(false);
   TraceCapture traces("AdapterSm");
   create();
   EXPECT_TRUE(traces.has(9, "Removing stale intf Ethernet9 from output"));
   EXPECT_TRUE(traces.has(8, "onConstruct"));
   EXPECT_EQ(outAll(), (std::map<IntfId, Entry>{{et1, {true, false}}, {et2, {true, true}}}));
}

// handleIntf asks whether the forwarding agent lists the interface, processIntf
// does not: an unlisted configured port gets an entry whenever its
// configuration or membership changes, and loses it only through handleIntf.
TEST_F(HwConfigAdapterTest, OnlyInterfaceListChangesCheckTheList) {
   configIs(et1, true);
   create();
   EXPECT_EQ(out(et1), (Entry{true, false}));  // nested machine construction ran processIntf
   vcsd->intfIs(et1, true);
   vcsd->intfDel(et1);
   EXPECT_FALSE(out(et1));
   input->intfConfig(et1)->disableManagementMessageForwardingIs(true);
   EXPECT_EQ(out(et1), (Entry{true, true}));
   vcsd->intfIs(et1, true);
   vcsd->intfDel(et1);
   EXPECT_FALSE(out(et1));
   vcsd->portToLagIs(et1, po1);
   vcsd->portToLagDel(et1);
   EXPECT_EQ(out(et1), (Entry{true, true}));
   sm->handleIntf(et1);
   EXPECT_FALSE(out(et1));
   sm->processIntf(et1);
   EXPECT_EQ(out(et1), (Entry{true, true}));
}

TEST_F(HwConfigAdapterTest, DecisionTracesAtLevelNine) {
   for (IntfId i : {et1, et2}) vcsd->intfIs(i, true);
   configIs(po1, true);
   create();
   TraceCapture traces("AdapterSm");
   join(et1, po1);
   EXPECT_TRUE(traces.has(8, "interface: Ethernet1"));
   EXPECT_TRUE(traces.has(9, "Interface exists in LAG, hasLagHwIntfConfig: true"));
   EXPECT_TRUE(traces.has(8, "lag: Port-Channel1"));
   EXPECT_TRUE(traces.has(8, "Port-Channel1"));
   EXPECT_TRUE(traces.has(9, "LAG exists, hasLagHwIntfConfig: true"));
   EXPECT_TRUE(traces.has(9, "Handling lagMember Ethernet1"));
   traces.clear();
   vcsd->intfIs(et2, false);  // a changed entry is handled like an added one
   EXPECT_TRUE(traces.has(8, "intf: Ethernet2"));
   EXPECT_TRUE(traces.has(9, "Interface added, partOfLag: false"));
   EXPECT_TRUE(traces.has(9, "hasIntfHwConfig: false"));
   traces.clear();
   vcsd->portToLagDel(et1);
   EXPECT_TRUE(traces.has(9, "Interface not in LAG, hasHwIntfConfig: false"));
   traces.clear();
   configIs(et2, true);
   EXPECT_TRUE(traces.has(8, "processChanges intfId: Ethernet2"));
}

TEST_F(HwConfigAdapterTest, DestructionDeletesInterfaceEntriesAndKeepsGlobals) {
   for (IntfId i : {et1, et2}) vcsd->intfIs(i, true);
   configIs(et1, true);
   configIs(po1, true);
   join(et2, po1);
   input->ptpModeIs(Ptp::PtpMode(3));
   input->forwardPtpV1Is(true);
   create();
   ASSERT_EQ(output->intfConfig().size(), 2u);
   TraceCapture traces("AdapterSm");
   sm = nullptr;
   EXPECT_TRUE(traces.has(8, "onDestruct"));
   EXPECT_TRUE(output->intfConfig().empty());
   EXPECT_EQ(output->ptpMode(), Ptp::PtpMode(3));
   EXPECT_TRUE(output->forwardPtpV1());
   // Nothing is watched any more.
   configIs(et3, true);
   EXPECT_TRUE(output->intfConfig().empty());
}

TEST_F(HwConfigAdapterTest, BuiltOnPopulatedInputsEqualsWatchingThemFill) {
   create();
   for (IntfId i : {et1, et2, et3}) vcsd->intfIs(i, true);
   configIs(et1, true, true);
   configIs(et3, false, true);
   configIs(po1, true);
   join(et2, po1);
   join(et3, po1);
   auto watched = outAll();
   auto output2 = Kiv::make<Ptp::HwConfig>("output2");
   auto sm2 = VyrPtp::hwConfigAdapterSmFactory(input, vcsd, output2);
   EXPECT_EQ(entries(*output2), watched);
   EXPECT_EQ(watched.size(), 3u);
   EXPECT_EQ(sm2->ptpHwIntfConfig().size(), 3u);
}

}  // namespace
