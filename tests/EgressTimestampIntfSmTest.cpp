#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "TraceCapture.h"
#include "VyrPtp/EgressTimestampIntfSm.h"

using Interface::OperStatus;
using Ptp::ClockIdentity;
using Ptp::PortDSKey;
using Ptp::PortState;
using Ptp::PtpMode;
using VyrPtp::EgressTimestampIntfSm;
using VyrPtp::EgressTimestampIntfStatus;
using Wyx::IntfId;

namespace Wyx {
void PrintTo(const IntfId& i, std::ostream* os) { *os << i.name(); }
}  // namespace Wyx
namespace Ptp {
void PrintTo(const ClockIdentity& c, std::ostream* os) { *os << c.toString(); }
}  // namespace Ptp

namespace {

const IntfId et1("Ethernet1"), et2("Ethernet2"), et3("Ethernet3"), et4("Ethernet4"), et5("Ethernet5");
const IntfId po1("Port-Channel1"), po2("Port-Channel2");
const ClockIdentity clockA("001c73.fffe.000001"), clockB("001c73.fffe.000002");

PortState state(int v) { return PortState(std::uint8_t(v)); }

// Counts the changes published by an entity, per field.
class ChangeCounter : public Pondo::Subscriber {
  public:
   explicit ChangeCounter(const Pondo::Publisher& p) : p_(p) { p_.subscriberAdd(this); }
   ~ChangeCounter() { p_.subscriberRemove(this); }
   void onChange(const Kiv::Change& c) override { ++count[c.field]; }
   std::map<Kiv::FieldId, int> count;

  private:
   const Pondo::Publisher& p_;
};

class EgressTest : public ::testing::Test {
  protected:
   Pondo::Ptr<Interface::AllEthPhyIntfStatusDir> intfStatus = Kiv::make<Interface::AllEthPhyIntfStatusDir>("ethPhy");
   Pondo::Ptr<Hardware::Lag::Status> lagStatus = Kiv::make<Hardware::Lag::Status>("lag");
   Pondo::Ptr<Ptp::HwConfig> hwConfig = Kiv::make<Ptp::HwConfig>("hwConfig");
   Pondo::Ptr<Ptp::Status> ptpStatus = Kiv::make<Ptp::Status>("ptpStatus");
   Pondo::Ptr<EgressTimestampIntfStatus> out = VyrPtp::egressTimestampIntfStatusFactory("egress");
   Pondo::Ptr<EgressTimestampIntfSm> sm;

   void SetUp() override {
      for (IntfId i : {et1, et2, et3, et4, et5}) operIs(i, OperStatus::up);
   }
   void create() { sm = VyrPtp::egressTimestampIntfSmFactory(intfStatus, lagStatus, hwConfig, ptpStatus, out); }

   void operIs(IntfId i, OperStatus s) { intfStatus->intfStatusIs(i)->operStatusIs(s); }
   void configIs(IntfId i, bool enabled) { hwConfig->intfConfigIs(i)->enabledIs(enabled); }
   void modeIs(int m) { hwConfig->ptpModeIs(PtpMode(m)); }
   Pondo::Ptr<Ptp::PortDS> portIs(const PortDSKey& k, PortState s, const ClockIdentity& c = clockA) {
      auto p = ptpStatus->portDSIs(k, c);
      p->portStateIs(s);
      return p;
   }
   // The LAG programmer adds or removes a member: the LAG's set, then the member's record.
   void memberIs(IntfId lag, IntfId m) {
      lagStatus->programmedLagIs(lag)->memberIs(m);
      lagStatus->programmedMemberIs(m)->lagIntfIdIs(lag);
   }
   void memberDel(IntfId lag, IntfId m) {
      if (auto* l = lagStatus->programmedLag(lag)) l->memberDel(m);
      lagStatus->programmedMemberDel(m);
   }

   bool polled(IntfId i) const { return out->physicalIntfNeedsPolling().contains(i); }
   std::optional<bool> oneStep(IntfId i) const {
      const bool* v = out->physicalIntfNeedsOneStepCfUpdate().find(i);
      return v ? std::optional<bool>(*v) : std::nullopt;
   }
   std::optional<ClockIdentity> clock(IntfId i) const {
      const ClockIdentity* c = out->clockId().find(i);
      return c ? std::optional<ClockIdentity>(*c) : std::nullopt;
   }
   std::uint16_t refs(IntfId i) const {
      const std::uint16_t* c = sm->intfRefCount(i);
      return c ? *c : 0;
   }
   std::set<IntfId> members(const Kiv::Collection<PortDSKey, VyrPtp::LagPortDSMember>& records,
                            const PortDSKey& k) const {
      std::set<IntfId> s;
      if (const auto* r = records.find(k)) s.insert(r->member().begin(), r->member().end());
      return s;
   }
};

// --- The port-state and mode table ---------------------------------------

bool expectedTimestamping(int mode, int st) {
   static const std::set<int> boundary{1, 4, 5, 6, 7, 8, 9, 144}, slave{8, 9, 144};
   switch (mode) {
      case 1:
      case 7: return boundary.count(st);
      case 2: return slave.count(st);
      case 3:
      case 5:
      case 6:
      case 8: return true;
      default: return false;
   }
}
bool expectedOneStep(int mode, int st) { return mode == 2 && st != 3 && st != 8 && st != 9 && st != 144; }

TEST_F(EgressTest, EveryModeAndPortStateFollowsTheTable) {
   const std::vector<int> states{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 143, 144, 145};
   configIs(et1, true);
   const PortDSKey key(et1);
   portIs(key, state(0));
   create();
   for (int mode = 0; mode <= 9; ++mode) {
      modeIs(mode);
      for (int st : states) {
         SCOPED_TRACE(fmt::format("ptpMode {} portState {}", mode, st));
         ptpStatus->portDS(key)->portStateIs(state(st));
         EXPECT_EQ(sm->portDSNeedsEgressTimestamping(key), expectedTimestamping(mode, st));
         EXPECT_EQ(sm->portDSNeedsOneStepCfUpdate(key), expectedOneStep(mode, st));
         EXPECT_EQ(polled(et1), expectedTimestamping(mode, st));
         EXPECT_EQ(clock(et1).has_value(), expectedTimestamping(mode, st));
         EXPECT_EQ(oneStep(et1), expectedOneStep(mode, st));
         EXPECT_FALSE(sm->portDSNeedsEgressTimestamping(key) && sm->portDSNeedsOneStepCfUpdate(key));
      }
   }
}

// --- Edge cases --------------------------------------------------------------

TEST_F(EgressTest, Mode2SlaveIsPolledAndMasterGetsOneStep) {
   configIs(et1, true);
   modeIs(2);
   const PortDSKey key(et1);
   portIs(key, PortState::slave, clockB);
   create();
   EXPECT_TRUE(polled(et1));
   EXPECT_EQ(clock(et1), clockB);
   EXPECT_EQ(oneStep(et1), false);
   ptpStatus->portDS(key)->portStateIs(PortState::master);
   EXPECT_FALSE(polled(et1));
   EXPECT_FALSE(clock(et1));
   EXPECT_EQ(refs(et1), 0);
   EXPECT_EQ(sm->intfRefCount(et1), nullptr);
   EXPECT_EQ(oneStep(et1), true);
   // Only while the interface is up.
   operIs(et1, OperStatus::down);
   EXPECT_EQ(oneStep(et1), false);
   operIs(et1, OperStatus::up);
   EXPECT_EQ(oneStep(et1), true);
   // Disabled: neither.
   ptpStatus->portDS(key)->portStateIs(PortState::disabled);
   EXPECT_EQ(oneStep(et1), false);
   EXPECT_FALSE(polled(et1));
}

TEST_F(EgressTest, AlwaysModesPollEvenDisabledPortsAndNeverUseOneStep) {
   configIs(et1, true);
   const PortDSKey key(et1);
   portIs(key, PortState::disabled);
   create();
   for (int mode : {3, 5, 6, 8}) {
      modeIs(mode);
      for (PortState s : {PortState::disabled, PortState::faulty, PortState::master, PortState::slave}) {
         ptpStatus->portDS(key)->portStateIs(s);
         EXPECT_TRUE(polled(et1)) << mode;
         EXPECT_EQ(oneStep(et1), false) << mode;
      }
   }
}

TEST_F(EgressTest, Modes0And4AndAbove8NeverPoll) {
   configIs(et1, true);
   configIs(et2, true);
   portIs(PortDSKey(et1), PortState::slave);
   portIs(PortDSKey(et2), PortState::master);
   create();
   for (int mode : {0, 4, 9, 10, 200, 255}) {
      modeIs(mode);
      EXPECT_FALSE(polled(et1)) << mode;
      EXPECT_FALSE(polled(et2)) << mode;
      EXPECT_EQ(oneStep(et2), false) << mode;
      modeIs(1);  // in between, both are polled
      EXPECT_TRUE(polled(et1) && polled(et2));
   }
}

TEST_F(EgressTest, AbsentOrDisabledConfigurationGivesNeitherPollingNorOneStep) {
   modeIs(2);
   configIs(et2, false);
   portIs(PortDSKey(et1), PortState::slave);   // no configuration
   portIs(PortDSKey(et2), PortState::master);  // configuration disabled
   portIs(PortDSKey(et3), PortState::master);  // configuration added later
   create();
   EXPECT_FALSE(polled(et1));
   EXPECT_EQ(oneStep(et1), false);
   EXPECT_EQ(oneStep(et2), false);
   EXPECT_EQ(oneStep(et3), false);
   configIs(et1, true);
   configIs(et2, true);
   configIs(et3, true);
   EXPECT_TRUE(polled(et1));
   EXPECT_EQ(oneStep(et2), true);
   EXPECT_EQ(oneStep(et3), true);
   hwConfig->intfConfig(et1)->enabledIs(false);
   EXPECT_FALSE(polled(et1));
}

TEST_F(EgressTest, ConfigurationOrStatusEntryRemovedReevaluatesNothing) {
   modeIs(2);
   configIs(et1, true);
   portIs(PortDSKey(et1), PortState::slave);
   create();
   ASSERT_EQ(sm->intfConfig().size(), 1u);
   EXPECT_NE(sm->intfConfig(et1), nullptr);
   EXPECT_NE(sm->intfStatus(et1), nullptr);
   EXPECT_NE(sm->portDS(PortDSKey(et1)), nullptr);
   EXPECT_TRUE(sm->enabledPortDS(PortDSKey(et1)));
   ASSERT_NE(sm->intfRefCount(et1), nullptr);
   EXPECT_EQ(*sm->intfRefCount(et1), 1u);
   hwConfig->intfConfigDel(et1);
   EXPECT_EQ(sm->intfConfig().size(), 0u);
   EXPECT_EQ(sm->intfConfig(et1), nullptr);
   EXPECT_TRUE(polled(et1));  // until the port data set is next evaluated
   intfStatus->intfStatusDel(et1);
   EXPECT_TRUE(polled(et1));
   ptpStatus->portDS(PortDSKey(et1))->portStateIs(PortState::uncalibrated);
   EXPECT_FALSE(polled(et1));
}

TEST_F(EgressTest, TwoPortDSOnOneInterfacePollUntilBothAreDisabled) {
   modeIs(1);
   configIs(et1, true);
   const PortDSKey k1(et1, 0, 1), k2(et1, 1, 1);
   create();
   portIs(k1, PortState::master, clockA);
   EXPECT_EQ(clock(et1), clockA);
   portIs(k2, PortState::slave, clockB);
   EXPECT_EQ(refs(et1), 2);
   EXPECT_EQ(clock(et1), clockB);  // the last enabling port's identity
   ptpStatus->portDS(k2)->portStateIs(PortState::faulty);
   EXPECT_TRUE(polled(et1));
   EXPECT_EQ(clock(et1), clockB);  // not rewritten when another port lets go
   EXPECT_EQ(refs(et1), 1);
   ptpStatus->portDS(k2)->portStateIs(PortState::slave);
   ptpStatus->portDS(k1)->portStateIs(PortState::disabled);
   EXPECT_TRUE(polled(et1));
   ptpStatus->portDS(k2)->portStateIs(PortState::disabled);
   EXPECT_FALSE(polled(et1));
   EXPECT_FALSE(clock(et1));
}

// Kept on purpose: the first enabling does not look at the operational state,
// the next evaluation does, so on a down interface polling goes on and off.
TEST_F(EgressTest, PhysicalPortOnDownInterfaceAlternates) {
   modeIs(1);
   configIs(et1, true);
   operIs(et1, OperStatus::down);
   const PortDSKey key(et1);
   portIs(key, PortState::master);
   create();
   auto ds = ptpStatus->portDS(key);
   std::vector<bool> seen;
   for (PortState s : {PortState::slave, PortState::master, PortState::passive, PortState::slave}) {
      ds->portStateIs(s);  // one evaluation each
      seen.push_back(polled(et1));
      EXPECT_EQ(oneStep(et1), false);
   }
   const bool first = seen[0];
   EXPECT_EQ(seen, (std::vector<bool>{first, !first, first, !first}));
   // No status entry at all reads as down too.
   intfStatus->intfStatusDel(et1);
   const bool before = polled(et1);
   ds->portStateIs(PortState::master);
   EXPECT_NE(polled(et1), before);
}

// Creation evaluates every port data set and then every enabled one again: a
// port needing timestamps on a down interface ends up switched off.
TEST_F(EgressTest, CreationHandlesEnabledPortDSASecondTime) {
   modeIs(1);
   configIs(et1, true);
   configIs(et2, true);
   operIs(et1, OperStatus::down);
   portIs(PortDSKey(et1), PortState::master);
   portIs(PortDSKey(et2), PortState::master);
   TraceCapture traces("EgressTimestampIntfSm");
   create();
   EXPECT_FALSE(polled(et1));
   EXPECT_TRUE(polled(et2));
   EXPECT_EQ(traces.count(8, "enablePortDS, PortDSKey: Ethernet1 domain 0 port 1"), 1u);
   EXPECT_EQ(traces.count(8, "disablePortDS, PortDSKey: Ethernet1 domain 0 port 1"), 1u);
   EXPECT_EQ(traces.count(8, "handlePortDS, PortDSKey: Ethernet2 domain 0 port 1"), 2u);
}

TEST_F(EgressTest, LagWithoutProgrammedMembersIsNotEnabled) {
   modeIs(2);
   configIs(po1, true);
   const PortDSKey key(po1);
   portIs(key, PortState::slave);
   create();
   EXPECT_FALSE(sm->enabledPortDS().contains(key));
   EXPECT_TRUE(sm->enabledLagPortDSMember().empty());
   EXPECT_TRUE(out->physicalIntfNeedsPolling().empty());
   // A member set appears: nothing until the port data set is next evaluated.
   lagStatus->programmedLagIs(po1)->memberIs(et3);
   EXPECT_FALSE(polled(et3));
   ptpStatus->portDS(key)->portStateIs(PortState::uncalibrated);
   EXPECT_TRUE(sm->enabledPortDS().contains(key));
   EXPECT_TRUE(polled(et3));
   EXPECT_EQ(clock(et3), clockA);
}

TEST_F(EgressTest, LagMembersKeepPollingWhenTheMemberSetDisappears) {
   modeIs(2);
   configIs(po1, true);
   memberIs(po1, et3);
   memberIs(po1, et4);
   const PortDSKey key(po1);
   portIs(key, PortState::slave);
   create();
   EXPECT_TRUE(polled(et3) && polled(et4));
   lagStatus->programmedLagDel(po1);
   ptpStatus->portDS(key)->portStateIs(PortState::uncalibrated);  // still needed: nothing changes
   EXPECT_TRUE(polled(et3) && polled(et4));
   EXPECT_EQ(members(sm->enabledLagPortDSMember(), key), (std::set<IntfId>{et3, et4}));
   ptpStatus->portDS(key)->portStateIs(PortState::master);  // no longer needed
   EXPECT_FALSE(polled(et3) || polled(et4));
   EXPECT_FALSE(sm->enabledPortDS().contains(key));
   EXPECT_TRUE(sm->enabledLagPortDSMember().empty());
}

TEST_F(EgressTest, LagMembersKeepPollingUntilThePortDSIsRemoved) {
   modeIs(2);
   configIs(po1, true);
   memberIs(po1, et3);
   const PortDSKey key(po1);
   portIs(key, PortState::slave);
   create();
   lagStatus->programmedLagDel(po1);
   EXPECT_TRUE(polled(et3));
   ptpStatus->portDSDel(key);
   EXPECT_FALSE(polled(et3));
   EXPECT_TRUE(sm->enabledPortDS().empty());
}

TEST_F(EgressTest, LagMemberGoingDownDropsItsReferenceAndComingUpRestoresIt) {
   modeIs(2);
   configIs(po1, true);
   memberIs(po1, et3);
   memberIs(po1, et4);
   const PortDSKey key(po1);
   portIs(key, PortState::slave, clockB);
   create();
   EXPECT_EQ(members(sm->enabledLagPortDSMember(), key), (std::set<IntfId>{et3, et4}));
   TraceCapture traces("EgressTimestampIntfSm");
   operIs(et3, OperStatus::down);
   EXPECT_TRUE(traces.has(8, "handleOperStatus, intfId: Ethernet3"));
   EXPECT_FALSE(polled(et3));
   EXPECT_TRUE(polled(et4));
   EXPECT_EQ(members(sm->enabledLagPortDSMember(), key), (std::set<IntfId>{et4}));
   operIs(et3, OperStatus::up);
   EXPECT_TRUE(polled(et3));
   EXPECT_EQ(clock(et3), clockB);
   EXPECT_EQ(refs(et3), 1);
}

TEST_F(EgressTest, LagOneStepFollowsMembersUpState) {
   modeIs(2);
   configIs(po1, true);
   memberIs(po1, et3);
   memberIs(po1, et4);
   const PortDSKey key(po1);
   portIs(key, PortState::master);
   create();
   EXPECT_EQ(oneStep(et3), true);
   EXPECT_EQ(oneStep(et4), true);
   EXPECT_EQ(members(sm->oneStepCfUpdateEnabledLagPortDSMember(), key), (std::set<IntfId>{et3, et4}));
   TraceCapture traces("EgressTimestampIntfSm");
   operIs(et4, OperStatus::down);
   EXPECT_EQ(oneStep(et4), false);
   EXPECT_TRUE(traces.has(5,
                          "configureOneStepCfUpdate, lagMember: Ethernet4, portDSNeedsOneStepCfUpdate: true, "
                          "isInterfaceUp: false, enable: false"));
   EXPECT_EQ(members(sm->oneStepCfUpdateEnabledLagPortDSMember(), key), (std::set<IntfId>{et3}));
   // The member set goes: the remaining member is switched off and the record removed.
   lagStatus->programmedLagDel(po1);
   ptpStatus->portDS(key)->portStateIs(PortState::passive);
   EXPECT_TRUE(traces.has(5, "configureOneStepCfUpdate, disable lagMember: Ethernet3"));
   EXPECT_EQ(oneStep(et3), false);
   EXPECT_TRUE(sm->oneStepCfUpdateEnabledLagPortDSMember().empty());
}

TEST_F(EgressTest, MemberLeavingLagIsDroppedFromPollingAtTheNextEvaluation) {
   modeIs(2);
   configIs(po1, true);
   memberIs(po1, et3);
   memberIs(po1, et4);
   const PortDSKey key(po1);
   portIs(key, PortState::slave);
   create();
   ASSERT_TRUE(polled(et4));
   memberDel(po1, et4);
   EXPECT_TRUE(polled(et4));  // until the LAG's port data set is evaluated
   EXPECT_EQ(sm->programmedMember().size(), 1u);
   ptpStatus->portDS(key)->portStateIs(PortState::uncalibrated);
   EXPECT_FALSE(polled(et4));
   EXPECT_TRUE(polled(et3));
   EXPECT_EQ(members(sm->enabledLagPortDSMember(), key), (std::set<IntfId>{et3}));
}

TEST_F(EgressTest, MemberLeavingLagIsDroppedFromOneStepAtTheNextEvaluation) {
   modeIs(2);
   configIs(po1, true);
   memberIs(po1, et3);
   memberIs(po1, et4);
   const PortDSKey key(po1);
   portIs(key, PortState::master);
   create();
   ASSERT_EQ(oneStep(et4), true);
   memberDel(po1, et4);
   EXPECT_EQ(oneStep(et4), true);
   TraceCapture traces("EgressTimestampIntfSm");
   ptpStatus->portDS(key)->portStateIs(PortState::passive);
   EXPECT_TRUE(traces.has(5, "configureOneStepCfUpdate, disable lagMember: Ethernet4"));
   EXPECT_EQ(oneStep(et4), false);
   EXPECT_EQ(oneStep(et3), true);
   EXPECT_EQ(members(sm->oneStepCfUpdateEnabledLagPortDSMember(), key), (std::set<IntfId>{et3}));
}

// A new programmed member is bound without any evaluation; a change of the
// LAG it belongs to evaluates that LAG's port data sets.
TEST_F(EgressTest, NewProgrammedMemberAloneEvaluatesNothing) {
   modeIs(2);
   configIs(po1, true);
   memberIs(po1, et3);
   const PortDSKey key(po1);
   portIs(key, PortState::slave);
   create();
   TraceCapture traces("EgressTimestampIntfSm");
   lagStatus->programmedLag(po1)->memberIs(et5);
   lagStatus->programmedMemberIs(et5);
   EXPECT_EQ(sm->programmedMember().size(), 2u);
   EXPECT_TRUE(traces.records.empty());
   EXPECT_FALSE(polled(et5));
   lagStatus->programmedMember(et5)->lagIntfIdIs(po1);
   EXPECT_TRUE(traces.has(8, "handleMember, lagIntfId: Port-Channel1"));
   EXPECT_TRUE(traces.has(8, "handlePortDS, PortDSKey: Port-Channel1 domain 0 port 1"));
   EXPECT_TRUE(polled(et5));
   EXPECT_EQ(members(sm->enabledLagPortDSMember(), key), (std::set<IntfId>{et3, et5}));
   // Moving to a LAG without port data sets evaluates nothing of po1's.
   traces.clear();
   lagStatus->programmedMember(et5)->lagIntfIdIs(po2);
   EXPECT_TRUE(traces.has(8, "handleMember, lagIntfId: Port-Channel2"));
   EXPECT_FALSE(traces.has(8, "handlePortDS, PortDSKey: Port-Channel1 domain 0 port 1"));
   EXPECT_TRUE(polled(et5));
}

TEST_F(EgressTest, MemberConfigurationChangeDoesNotReevaluateLagPortDS) {
   modeIs(2);
   configIs(po1, true);
   configIs(et3, true);
   memberIs(po1, et3);
   const PortDSKey key(po1);
   portIs(key, PortState::slave);
   create();
   TraceCapture traces("EgressTimestampIntfSm");
   hwConfig->intfConfig(et3)->enabledIs(false);
   EXPECT_TRUE(traces.has(8, "handleEnabled"));
   EXPECT_FALSE(traces.has(8, "handlePortDS, PortDSKey: Port-Channel1 domain 0 port 1"));
   EXPECT_TRUE(polled(et3));
   hwConfig->intfConfig(po1)->enabledIs(false);
   EXPECT_FALSE(polled(et3));
}

TEST_F(EgressTest, RemovedPortDSIsDisabledAtOnceAndItsOneStepEntriesTurnFalse) {
   modeIs(2);
   configIs(et1, true);
   configIs(po1, true);
   memberIs(po1, et3);
   const PortDSKey phys(et1), lag(po1), slave(et2);
   configIs(et2, true);
   portIs(phys, PortState::master);
   portIs(lag, PortState::master);
   portIs(slave, PortState::slave);
   create();
   ASSERT_EQ(oneStep(et1), true);
   ASSERT_EQ(oneStep(et3), true);
   ASSERT_TRUE(polled(et2));
   ptpStatus->portDSDel(phys);
   ptpStatus->portDSDel(lag);
   ptpStatus->portDSDel(slave);
   EXPECT_EQ(oneStep(et1), false);
   EXPECT_EQ(oneStep(et3), false);
   EXPECT_FALSE(polled(et2));
   EXPECT_EQ(oneStep(et2), false);  // entries are never deleted
   EXPECT_EQ(sm->portDS().size(), 0u);
   EXPECT_TRUE(sm->enabledPortDS().empty());
   EXPECT_TRUE(sm->oneStepCfUpdateEnabledLagPortDSMember().empty());
}

TEST_F(EgressTest, OneStepWriteOfTheSameValuePublishesNothing) {
   modeIs(2);
   configIs(et1, true);
   const PortDSKey key(et1);
   portIs(key, PortState::master);
   create();
   ChangeCounter changes(*out);
   ptpStatus->portDS(key)->portStateIs(PortState::passive);  // still one-step
   sm->configureOneStepCfUpdate(key);
   EXPECT_EQ(changes.count[EgressTimestampIntfStatus::F::physicalIntfNeedsOneStepCfUpdate], 0);
   ptpStatus->portDS(key)->portStateIs(PortState::slave);
   EXPECT_EQ(changes.count[EgressTimestampIntfStatus::F::physicalIntfNeedsOneStepCfUpdate], 1);
   out->physicalIntfNeedsOneStepCfUpdateIs(et1, false);
   EXPECT_EQ(changes.count[EgressTimestampIntfStatus::F::physicalIntfNeedsOneStepCfUpdate], 1);
}

// --- Construction, destruction, reference counts ------------------------------

TEST_F(EgressTest, BuiltOnPopulatedInputsEqualsWatchingThemFill) {
   create();
   modeIs(2);
   configIs(et1, true);
   configIs(et2, true);
   configIs(po1, true);
   memberIs(po1, et3);
   memberIs(po1, et4);
   portIs(PortDSKey(et1), PortState::slave, clockB);
   portIs(PortDSKey(et2), PortState::master);
   portIs(PortDSKey(po1), PortState::slave);
   portIs(PortDSKey(et5, 1), PortState::master);
   auto out2 = VyrPtp::egressTimestampIntfStatusFactory("egress2");
   auto sm2 = VyrPtp::egressTimestampIntfSmFactory(intfStatus, lagStatus, hwConfig, ptpStatus, out2);
   auto polling = [](const EgressTimestampIntfStatus& s) {
      return std::set<IntfId>(s.physicalIntfNeedsPolling().begin(), s.physicalIntfNeedsPolling().end());
   };
   auto oneSteps = [](const EgressTimestampIntfStatus& s) {
      std::map<IntfId, bool> m;
      for (const auto& [k, v] : s.physicalIntfNeedsOneStepCfUpdate()) m[k] = v;
      return m;
   };
   auto clocks = [](const EgressTimestampIntfStatus& s) {
      std::map<IntfId, ClockIdentity> m;
      for (const auto& [k, v] : s.clockId()) m[k] = v;
      return m;
   };
   EXPECT_EQ(polling(*out2), polling(*out));
   EXPECT_EQ(polling(*out), (std::set<IntfId>{et1, et3, et4}));
   EXPECT_EQ(oneSteps(*out2), oneSteps(*out));
   EXPECT_EQ(clocks(*out2), clocks(*out));
   EXPECT_EQ(sm2->intfStatus().size(), 5u);
   EXPECT_EQ(sm2->intfConfig().size(), 3u);
   EXPECT_EQ(sm2->portDS().size(), 4u);
   EXPECT_EQ(oneSteps(*out),
             (std::map<IntfId, bool>{{et1, false}, {et2, true}, {et3, false}, {et4, false}, {et5, false}}));
   EXPECT_EQ(sm2->programmedMember().size(), 2u);
}

TEST_F(EgressTest, DestructionLeavesTheStatusAsItStands) {
   modeIs(2);
   configIs(et1, true);
   portIs(PortDSKey(et1), PortState::slave);
   create();
   sm = nullptr;
   EXPECT_TRUE(polled(et1));
   EXPECT_EQ(oneStep(et1), false);
   ptpStatus->portDS(PortDSKey(et1))->portStateIs(PortState::master);  // no longer watched
   EXPECT_TRUE(polled(et1));
}

TEST_F(EgressTest, ReferenceCountsWrapAt65536) {
   create();
   EXPECT_EQ(sm->intfRefCountDec(et1, 1), 65535);
   EXPECT_EQ(*sm->intfRefCount().find(et1), 65535);
   EXPECT_EQ(sm->intfRefCountInc(et1, 1), 0);
   ASSERT_TRUE(sm->intfRefCount().find(et1));  // a 0 result is stored too
   EXPECT_EQ(*sm->intfRefCount().find(et1), 0);
   EXPECT_EQ(sm->intfRefCountInc(et2, 3), 3);
   EXPECT_EQ(sm->intfRefCountDec(et2, 5), 65534);
}

// A disable without an enable is not guarded: the count wraps to 65535, and
// the next enabling (back to 0) writes nothing.
TEST_F(EgressTest, UnmatchedDisableWrapsTheCount) {
   modeIs(1);
   configIs(et1, true);
   create();
   sm->disableEgressTimestampPolling(et1);
   EXPECT_EQ(refs(et1), 65535);
   portIs(PortDSKey(et1, 0), PortState::master);
   EXPECT_EQ(refs(et1), 0);
   EXPECT_FALSE(polled(et1));
   portIs(PortDSKey(et1, 1), PortState::master, clockB);
   EXPECT_EQ(refs(et1), 1);
   EXPECT_TRUE(polled(et1));
   EXPECT_EQ(clock(et1), clockB);
}

// --- Traces ----------------------------------------------------------------------

TEST_F(EgressTest, TracesTheDecisions) {
   modeIs(2);
   configIs(et1, true);
   const PortDSKey key(et1);
   portIs(key, PortState::master);
   TraceCapture traces("EgressTimestampIntfSm");
   create();
   EXPECT_TRUE(traces.has(8, "handleCreated"));
   EXPECT_TRUE(traces.has(8, "handlePtpMode, ptp mode: 2"));
   EXPECT_TRUE(traces.has(8,
                          "portDSNeedsEgressTimestamping, PortDSKey: Ethernet1 domain 0 port 1, ptpMode: 2, "
                          "portState: master"));
   EXPECT_TRUE(traces.has(5, "handlePortDS, portDSNeedsEgressTimestamping: false"));
   EXPECT_TRUE(traces.has(8, "portDSNeedsOneStepCfUpdate, portDSKey: Ethernet1 domain 0 port 1"));
   EXPECT_TRUE(traces.has(5,
                          "portDSNeedsOneStepCfUpdate, PortDSKey: Ethernet1 domain 0 port 1, ptpMode: 2, "
                          "portState: master"));
   EXPECT_TRUE(traces.has(8,
                          "configureOneStepCfUpdate, PortDSKey: Ethernet1 domain 0 port 1, "
                          "portDSNeedsOneStepCfUpdate: true"));
   EXPECT_TRUE(traces.has(8, "isInterfaceUp, intfId: Ethernet1, operStatus: up"));
   EXPECT_TRUE(traces.has(5,
                          "configureOneStepCfUpdate, intf: Ethernet1, portDSNeedsOneStepCfUpdate: true, "
                          "isInterfaceUp: true, enable: true"));
   traces.clear();
   ptpStatus->portDS(key)->portStateIs(PortState::slave);
   EXPECT_TRUE(traces.has(8, "handlePortState, PortDSKey: Ethernet1 domain 0 port 1"));
   EXPECT_TRUE(traces.has(8, "enablePortDS, PortDSKey: Ethernet1 domain 0 port 1"));
   EXPECT_TRUE(traces.has(8, "enableEgressTimestampPolling, intfId: Ethernet1, clockId: 001c73.fffe.000001"));
   EXPECT_TRUE(traces.has(5, "enableEgressTimestampPolling, enabling egress timestamp polling intf: Ethernet1"));
   traces.clear();
   ptpStatus->portDS(key)->portStateIs(PortState::disabled);
   EXPECT_TRUE(traces.has(8, "disableEgressTimestampPolling, intfId: Ethernet1"));
   EXPECT_TRUE(traces.has(5, "disableEgressTimestampPolling, disabling egress timestamp polling intf: Ethernet1"));
   // Disabled ports skip the detailed one-step trace.
   EXPECT_FALSE(traces.has(5,
                           "portDSNeedsOneStepCfUpdate, PortDSKey: Ethernet1 domain 0 port 1, ptpMode: 2, "
                           "portState: disabled"));
   traces.clear();
   intfStatus->intfStatusDel(et2);
   EXPECT_TRUE(sm->isInterfaceUp(et1));
   EXPECT_FALSE(sm->isInterfaceUp(et2));
   EXPECT_TRUE(traces.has(8, "isInterfaceUp, intfId: Ethernet2, operStatus: unknown"));
}

// --- Input assertions --------------------------------------------------------------

using EgressDeathTest = EgressTest;

TEST_F(EgressDeathTest, CreationAssertsEachInputInOrder) {
   ::testing::FLAGS_gtest_death_test_style = "threadsafe";
   EXPECT_DEATH(VyrPtp::egressTimestampIntfSmFactory(nullptr, nullptr, nullptr, nullptr, nullptr),
                "Assertion failed: ethPhyIntfStatus\\(\\) ");
   EXPECT_DEATH(VyrPtp::egressTimestampIntfSmFactory(intfStatus, nullptr, nullptr, nullptr, nullptr),
                "Assertion failed: lagStatus\\(\\) ");
   EXPECT_DEATH(VyrPtp::egressTimestampIntfSmFactory(intfStatus, lagStatus, nullptr, ptpStatus, out),
                "Assertion failed: ptpHwConfig\\(\\) ");
   EXPECT_DEATH(VyrPtp::egressTimestampIntfSmFactory(intfStatus, lagStatus, hwConfig, nullptr, out),
                "Assertion failed: ptpStatus\\(\\) ");
   EXPECT_DEATH(VyrPtp::egressTimestampIntfSmFactory(intfStatus, lagStatus, hwConfig, ptpStatus, nullptr),
                "Assertion failed: egressTimestampIntfStatus\\(\\) ");
}

TEST_F(EgressDeathTest, CreationAssertsBeforeReadingPopulatedInputs) {
   ::testing::FLAGS_gtest_death_test_style = "threadsafe";
   modeIs(1);
   configIs(et1, true);
   configIs(po1, true);
   memberIs(po1, et3);
   portIs(PortDSKey(et1), PortState::master);
   portIs(PortDSKey(po1), PortState::master);
   EXPECT_DEATH(VyrPtp::egressTimestampIntfSmFactory(intfStatus, nullptr, hwConfig, ptpStatus, out),
                "Assertion failed: lagStatus\\(\\) ");
   EXPECT_DEATH(VyrPtp::egressTimestampIntfSmFactory(intfStatus, lagStatus, hwConfig, nullptr, out),
                "Assertion failed: ptpStatus\\(\\) ");
}

TEST_F(EgressDeathTest, TimestampingDecisionWithoutPortDSStops) {
   ::testing::FLAGS_gtest_death_test_style = "threadsafe";
   create();
   EXPECT_DEATH(sm->portDSNeedsEgressTimestamping(PortDSKey(et1)),
                "portDSNeedsEgressTimestamping: no port data set for Ethernet1 domain 0 port 1");
   EXPECT_FALSE(sm->portDSNeedsOneStepCfUpdate(PortDSKey(et1)));
}

// --- Randomised invariant ------------------------------------------------------------

// For each physical interface, the reference count equals the enabled physical
// port data sets on it plus the LAG member records listing it, and polling and
// clock identity are published exactly while it is non-zero.
void checkInvariant(const EgressTimestampIntfSm& sm, const EgressTimestampIntfStatus& out) {
   std::map<IntfId, unsigned> expected;
   for (const PortDSKey& k : sm.enabledPortDS()) {
      if (Wyx::isPortChannelIntfId(k.intf())) {
         ASSERT_TRUE(sm.enabledLagPortDSMember().contains(k)) << k.toString();
      } else {
         ++expected[k.intf()];
      }
   }
   for (const auto& [k, record] : sm.enabledLagPortDSMember()) {
      ASSERT_TRUE(sm.enabledPortDS().contains(k)) << k.toString();
      for (IntfId m : record->member()) ++expected[m];
   }
   std::set<IntfId> all;
   for (const auto& [i, n] : expected) all.insert(i);
   for (const auto& [i, n] : sm.intfRefCount()) all.insert(i);
   for (IntfId i : out.physicalIntfNeedsPolling()) all.insert(i);
   for (const auto& [i, c] : out.clockId()) all.insert(i);
   for (IntfId i : all) {
      const std::uint16_t* count = sm.intfRefCount().find(i);
      const unsigned want = expected.count(i) ? expected[i] : 0;
      ASSERT_EQ(count ? *count : 0u, want) << i.name();
      ASSERT_EQ(out.physicalIntfNeedsPolling().contains(i), want != 0) << i.name();
      ASSERT_EQ(out.clockId().contains(i), want != 0) << i.name();
   }
}

class EgressRandomTest : public EgressTest {
  protected:
   void run(std::uint64_t seed, int steps) {
      std::mt19937_64 rng(seed);
      auto pick = [&](auto& v) -> decltype(v[0]) {
         return v[std::uniform_int_distribution<std::size_t>(0, v.size() - 1)(rng)];
      };
      auto chance = [&](double p) { return std::bernoulli_distribution(p)(rng); };
      std::vector<IntfId> phys, lags{po1, po2, IntfId("Port-Channel3")};
      for (int i = 1; i <= 8; ++i) phys.push_back(IntfId(fmt::format("Ethernet{}", i)));
      std::vector<IntfId> intfs = phys;
      intfs.insert(intfs.end(), lags.begin(), lags.end());
      std::vector<PortDSKey> keys;
      for (IntfId i : intfs) {
         keys.push_back(PortDSKey(i, 0));
         keys.push_back(PortDSKey(i, 1));
      }
      std::vector<int> states{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 143, 144, 145};
      std::vector<OperStatus> opers{OperStatus::up, OperStatus::up, OperStatus::down, OperStatus::notPresent};
      std::vector<ClockIdentity> clocks{clockA, clockB};
      create();
      for (int step = 0; step < steps; ++step) {
         switch (std::uniform_int_distribution<int>(0, 8)(rng)) {
            case 0: modeIs(std::uniform_int_distribution<int>(0, 9)(rng)); break;
            case 1:
            case 2: {  // port state change, or a port data set appears or goes
               const PortDSKey& k = pick(keys);
               if (auto* ds = ptpStatus->portDS(k); ds && !chance(0.2)) {
                  ds->portStateIs(state(pick(states)));
               } else if (ds) {
                  ptpStatus->portDSDel(k);
               } else {
                  portIs(k, state(pick(states)), pick(clocks));
               }
               break;
            }
            case 3: {  // operational status, or its entry goes
               IntfId i = pick(phys);
               if (chance(0.15)) {
                  intfStatus->intfStatusDel(i);
               } else {
                  operIs(i, pick(opers));
               }
               break;
            }
            case 4:
            case 5: {  // a physical interface joins, moves to or leaves a LAG
               IntfId m = pick(phys), lag = pick(lags);
               Hardware::Lag::ProgrammedMember* record = lagStatus->programmedMember(m);
               if (record && record->lagIntfId() == lag) {
                  memberDel(lag, m);
               } else {
                  if (record && lagStatus->programmedLag(record->lagIntfId())) {
                     lagStatus->programmedLag(record->lagIntfId())->memberDel(m);
                  }
                  lagStatus->programmedLagIs(lag)->memberIs(m);
                  lagStatus->programmedMemberIs(m)->lagIntfIdIs(lag);
               }
               break;
            }
            case 6:  // a LAG's member set goes
               if (chance(0.3)) lagStatus->programmedLagDel(pick(lags));
               break;
            case 7: {  // interface configuration
               IntfId i = pick(intfs);
               if (hwConfig->intfConfig(i) && chance(0.25)) {
                  hwConfig->intfConfigDel(i);
               } else {
                  configIs(i, chance(0.7));
               }
               break;
            }
            case 8:  // something re-evaluates everything
               if (chance(0.2)) sm->handlePtpMode();
               break;
         }
         checkInvariant(*sm, *out);
         if (::testing::Test::HasFatalFailure()) {
            ADD_FAILURE() << "invariant broken at step " << step;
            return;
         }
      }
   }
};

TEST_F(EgressRandomTest, ReferenceCountsMatchEnabledPortDSAndLagMemberRecords) {
   std::vector<std::uint64_t> seeds;
   if (const char* env = std::getenv("VYRPTP_EGRESS_SEED")) {
      seeds.push_back(std::strtoull(env, nullptr, 0));
   } else {
      seeds = {1, 2, 3, std::random_device{}()};
   }
   for (std::uint64_t seed : seeds) {
      std::cout << "seed " << seed << " (replay with VYRPTP_EGRESS_SEED=" << seed << ")" << std::endl;
      SCOPED_TRACE(fmt::format("seed {}", seed));
      run(seed, 3000);
      sm = nullptr;
      if (HasFailure()) return;
   }
}

}  // namespace
