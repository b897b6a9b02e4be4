// PTP action types: enumerations, PktType, TsActions and the three entities,
// and a reader that acts on the writer's generation only.
#include <gtest/gtest.h>

#include <sstream>
#include <unordered_set>

#include "Asic/CfControlTable.h"
#include "Asic/EgressTimestampTable.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Kiv/Reactor.h"
#include "Ptp/HwConfig.h"
#include "Ptp/Status.h"
#include "VyrPtp/ActionTypes.h"
#include "VyrPtp/VyrPtpIngressPipelineTypes.h"

using namespace VyrPtp::ActionTypes;
using Kiv::Change;
using Msg = Ptp::MessageTypeNumber;
using Pondo::Generation;
using Ptp::PtpVersion;
using Ptp::TransportMode;
using Wyx::IntfId;

namespace {

// Every enumeration writes its name to a stream, found by argument lookup
// without a using-declaration.
template <class E>
std::string streamed(E e) {
   std::ostringstream os;
   os << e;
   return os.str();
}
TEST(Enumerations, StreamOutputIsTheName) {
   EXPECT_EQ(streamed(FwdAction::snoop), "Snoop");
   EXPECT_EQ(streamed(TsAction::cfTx), "CfTx");
   EXPECT_EQ(streamed(Msg::sync), "Sync");
   EXPECT_EQ(streamed(PtpVersion::v2), "v2");
   EXPECT_EQ(streamed(Ptp::PortState::master), "master");
   EXPECT_EQ(streamed(Ptp::Location::Location::externalPhy), "externalPhy");
   EXPECT_EQ(streamed(Asic::PortType::cpu), "cpu");
   EXPECT_EQ(streamed(Asic::EgressCFUpdateMode::none), "none");
   EXPECT_EQ(streamed(Interface::OperStatus::up), "up");
   EXPECT_EQ(streamed(VyrPtp::Ing1588IngressProfile(0)), Pondo::enumName(VyrPtp::Ing1588IngressProfile(0)));
}

// Records the changes an entity publishes.
struct Recorder : Pondo::Subscriber {
   explicit Recorder(const Pondo::Publisher* p) : publisher(p) { p->subscriberAdd(this); }
   ~Recorder() { publisher->subscriberRemove(this); }
   void onChange(const Change& c) override { changes.push_back(c); }
   const Pondo::Publisher* publisher;
   std::vector<Change> changes;  // pointers inside are valid during delivery only
};

const PktType syncL2{Msg::sync, PtpVersion::v2, TransportMode::layer2};
const PktType syncV4{Msg::sync, PtpVersion::v2, TransportMode::ipv4};

TEST(FwdAction, LooksUpByValueAndByNameAndPrintsItsName) {
   const std::pair<FwdAction, const char*> all[] = {{FwdAction::trap, "Trap"},
                                                    {FwdAction::snoop, "Snoop"},
                                                    {FwdAction::forward, "Forward"},
                                                    {FwdAction::drop, "Drop"}};
   for (std::uint8_t v = 0; v < 4; ++v) {
      const auto& [action, name] = all[v];
      EXPECT_EQ(std::uint8_t(action), v);
      EXPECT_EQ(Pondo::enumFromValue<FwdAction>(v), action);
      EXPECT_EQ(Pondo::enumFromName<FwdAction>(name), action);
      EXPECT_EQ(fmt::format("{}", action), name);
   }
   EXPECT_EQ(Pondo::enumFromValue<FwdAction>(4), std::nullopt);
   EXPECT_EQ(Pondo::enumFromName<FwdAction>("trap"), std::nullopt);
   EXPECT_EQ(sizeof(FwdAction), 1u);
}

TEST(TsAction, LooksUpByValueAndByNameAndPrintsItsName) {
   const std::pair<TsAction, const char*> all[] = {
       {TsAction::rx, "Rx"}, {TsAction::tx, "Tx"}, {TsAction::cfRx, "CfRx"}, {TsAction::cfTx, "CfTx"}};
   for (std::uint8_t v = 0; v < 4; ++v) {
      const auto& [action, name] = all[v];
      EXPECT_EQ(std::uint8_t(action), v);
      EXPECT_EQ(Pondo::enumFromValue<TsAction>(v), action);
      EXPECT_EQ(Pondo::enumFromName<TsAction>(name), action);
      EXPECT_EQ(Pondo::enumName(action), name);
   }
   EXPECT_EQ(Pondo::enumFromValue<TsAction>(9), std::nullopt);
   EXPECT_EQ(Pondo::enumFromName<TsAction>("Cf"), std::nullopt);
   EXPECT_EQ(sizeof(TsAction), 1u);
}

TEST(TsActions, IsASetTrueWhenNonEmpty) {
   TsActions s;
   EXPECT_FALSE(s);
   EXPECT_EQ(s.size(), 0u);
   s.tsActionIs(TsAction::cfTx);
   s.tsActionIs(TsAction::rx);
   s.tsActionIs(TsAction::rx);
   EXPECT_TRUE(s);
   EXPECT_EQ(s.size(), 2u);
   EXPECT_TRUE(s.tsAction(TsAction::rx));
   EXPECT_FALSE(s.tsAction(TsAction::tx));
   EXPECT_EQ(fmt::format("{}", s), "{Rx, CfTx}");
   EXPECT_EQ(s, (TsActions{TsAction::rx, TsAction::cfTx}));
   EXPECT_NE(s, (TsActions{TsAction::rx}));
   EXPECT_EQ(s.tsAction(), (std::vector<TsAction>{TsAction::rx, TsAction::cfTx}));
   // A value type: ordered and hashed like any other.
   EXPECT_LT(TsActions{TsAction::rx}, s);
   EXPECT_EQ((std::unordered_set<TsActions>{s, TsActions{TsAction::cfTx, TsAction::rx}, TsActions{}}.size()), 2u);
   s.tsActionDel(TsAction::rx);
   s.tsActionDel(TsAction::tx);
   EXPECT_EQ(s, TsActions{TsAction::cfTx});
   s.tsActionDelAll();
   EXPECT_FALSE(s);
   EXPECT_EQ(fmt::format("{}", s), "{}");
}

TEST(TsActionsDeathTest, HasNoTextForm) {
   EXPECT_DEATH(TsActions::fromString("{Rx}"), "No String constructor for TsActions - has collection");
}

TEST(PktType, OrdersByMsgTypeThenVersionThenEncapType) {
   const PktType a{Msg::sync, PtpVersion::v2, TransportMode::ipv6};
   const PktType b{Msg::delayReq, PtpVersion::v1, TransportMode::layer2};
   const PktType c{Msg::delayReq, PtpVersion::v2, TransportMode::layer2};
   const PktType d{Msg::delayReq, PtpVersion::v2, TransportMode::ipv4};
   EXPECT_LT(a, b);  // msgType decides before the others
   EXPECT_LT(b, c);
   EXPECT_LT(c, d);
   EXPECT_EQ(c, (PktType{Msg::delayReq, PtpVersion::v2, TransportMode::layer2}));
}

TEST(PktType, KeysDifferingOnlyInEncapTypeAreDifferent) {
   EXPECT_NE(syncL2, syncV4);
   std::unordered_set<PktType> keys{syncL2, syncV4, syncL2};
   EXPECT_EQ(keys.size(), 2u);
   EXPECT_NE(std::hash<PktType>{}(syncL2), std::hash<PktType>{}(syncV4));
   auto actions = ptpActionsFactory("actions");
   actions->pktActionIs(syncL2)->fwdActionIs(FwdAction::forward);
   actions->pktActionIs(syncV4);
   EXPECT_EQ(actions->pktAction().size(), 2u);
   EXPECT_EQ(actions->pktAction(syncV4)->fwdAction(), FwdAction::trap);
}

TEST(PktType, HashMixesTheFieldsInOrder) {
   const PktType p{Msg::followUp, PtpVersion::v1, TransportMode::ipv6};
   std::size_t h = Pondo::hashMix(0, 0x8);
   h = Pondo::hashMix(h, 1);
   EXPECT_EQ(std::hash<PktType>{}(p), Pondo::hashMix(h, 2));
   const PktType swapped{Msg::followUp, PtpVersion(2), TransportMode(1)};
   EXPECT_NE(std::hash<PktType>{}(p), std::hash<PktType>{}(swapped));
}

TEST(PktType, TextFormNamesTheTypeAndItsFieldsInOrder) {
   const PktType p{Msg::pdelayResp, PtpVersion::v2, TransportMode::ipv4};
   EXPECT_EQ(fmt::format("{}", p), "PktType(msgType: PdelayResp, version: v2, encapType: ipv4)");
   EXPECT_EQ(PktType::fromString(p.toString()), p);
   EXPECT_EQ(PktType::fromString("PktType(msgType: 13, version: 1, encapType: 2)"),
             (PktType{Msg::management, PtpVersion::v1, TransportMode::ipv6}));
}

TEST(PktType, ParsingNamesTheBadField) {
   const std::pair<const char*, const char*> cases[] = {
       {"PktType(msgType: Bogus, version: v2, encapType: ipv4)", "msgType"},
       {"PktType(msgType: 4, version: v2, encapType: ipv4)", "msgType"},
       {"PktType(version: v2, encapType: ipv4)", "msgType"},
       {"PktType(msgType: Sync, version: v3, encapType: ipv4)", "version"},
       {"PktType(msgType: Sync, version: , encapType: ipv4)", "version"},
       {"PktType(msgType: Sync, version: v2, encapType: 300)", "encapType"},
       {"PktType(msgType: Sync, version: v2, encap: ipv4)", "encapType"},
   };
   for (const auto& [text, field] : cases) {
      try {
         PktType::fromString(text);
         ADD_FAILURE() << "accepted " << text;
      } catch (const Pondo::RangeError& e) {
         EXPECT_EQ(std::string(e.what()), fmt::format("bad {} in PktType text '{}'", field, text));
      }
   }
   EXPECT_THROW(PktType::fromString("Pkt(msgType: Sync, version: v2, encapType: ipv4)"), Pondo::RangeError);
   EXPECT_THROW(PktType::fromString("PktType(msgType: Sync, version: v2, encapType: ipv4, x: 1)"), Pondo::RangeError);
}

TEST(PktAction, ANewOneTrapsWithoutTimestampActions) {
   auto a = pktActionFactory(syncV4);
   EXPECT_EQ(a->ptpPkt(), syncV4);
   EXPECT_EQ(a->fwdAction(), FwdAction::trap);
   EXPECT_FALSE(a->tsActions());
   auto viaMaker = PktActionIs(syncL2);
   EXPECT_EQ(viaMaker->fwdAction(), FwdAction::trap);
   EXPECT_EQ(viaMaker->references(), 1u);
}

TEST(PktAction, SettersPublishOnlyRealChanges) {
   auto a = pktActionFactory(syncL2);
   Recorder r(a.get());
   a->fwdActionIs(FwdAction::trap);
   a->tsActionsIs(TsActions{});
   EXPECT_TRUE(r.changes.empty());
   a->fwdActionIs(FwdAction::snoop);
   ASSERT_EQ(r.changes.size(), 1u);
   EXPECT_EQ(r.changes[0].field, PktAction::F::fwdAction);
}

TEST(PktAction, AnEqualTsActionsSetPublishesNothingOneMoreMemberPublishesOnce) {
   auto a = pktActionFactory(syncL2);
   a->tsActionsIs(TsActions{TsAction::rx});
   std::vector<std::string> seen;
   struct Watch : Recorder {
      using Recorder::Recorder;
      std::vector<std::string>* seen;
      void onChange(const Change& c) override {
         seen->push_back(fmt::format("{} {} -> {}", c.field, c.oldAs<TsActions>(), c.newAs<TsActions>()));
      }
   } w(a.get());
   w.seen = &seen;
   a->tsActionsIs(TsActions{TsAction::rx});
   EXPECT_TRUE(seen.empty());
   a->tsActionsIs(TsActions{TsAction::rx, TsAction::tx});
   EXPECT_EQ(seen, (std::vector<std::string>{fmt::format("{} {{Rx}} -> {{Rx, Tx}}", PktAction::F::tsActions)}));
}

TEST(IntfActions, DropsManagementMessagesOnlyWhenTold) {
   auto i = intfActionsFactory(IntfId("Ethernet4/1"));
   EXPECT_EQ(i->intf(), IntfId("Et4/1"));
   EXPECT_FALSE(i->dropMgmtMsg());
   Recorder r(i.get());
   i->dropMgmtMsgIs(false);
   EXPECT_TRUE(r.changes.empty());
   i->dropMgmtMsgIs(true);
   ASSERT_EQ(r.changes.size(), 1u);
   EXPECT_EQ(r.changes[0].field, IntfActions::F::dropMgmtMsg);
   EXPECT_EQ(IntfActionsIs(IntfId("Et1"))->intf(), IntfId("Ethernet1"));
}

TEST(PtpActions, StartsEmptyAtGenerationZero) {
   auto a = PtpActionsIs("ptpActions");
   EXPECT_EQ(a->name(), "ptpActions");
   EXPECT_TRUE(a->pktAction().empty());
   EXPECT_TRUE(a->intfAction().empty());
   EXPECT_EQ(a->generation(), Generation(0, false));
   EXPECT_FALSE(a->forwardV1());
   EXPECT_FALSE(a->forwardUCast());
}

TEST(PtpActions, CollectionsCreateOnceAndPublishAdditionsAndRemovalsByKey) {
   auto a = ptpActionsFactory("ptpActions");
   Recorder r(a.get());
   auto p = a->pktActionIs(syncV4);
   EXPECT_EQ(a->pktActionIs(syncV4), p);
   EXPECT_EQ(a->pktAction(syncV4), p.get());
   EXPECT_EQ(a->pktAction(syncL2), nullptr);
   auto i = a->intfActionIs(IntfId("Et1"));
   a->intfActionIs(IntfId("Et2"));
   ASSERT_EQ(r.changes.size(), 3u);
   EXPECT_EQ(r.changes[0].field, PtpActions::F::pktAction);
   EXPECT_TRUE(r.changes[0].added());
   EXPECT_EQ(r.changes[1].field, PtpActions::F::intfAction);

   EXPECT_EQ(a->pktActionDel(syncV4), p);
   EXPECT_EQ(a->pktActionDel(syncV4), nullptr);
   a->intfActionDelAll();
   EXPECT_TRUE(a->intfAction().empty());
   ASSERT_EQ(r.changes.size(), 6u);
   EXPECT_TRUE(r.changes[3].removed());
   EXPECT_EQ(r.changes[3].field, PtpActions::F::pktAction);
   EXPECT_EQ(r.changes[5].field, PtpActions::F::intfAction);
   a->pktActionIs(syncL2);
   a->pktActionDelAll();
   EXPECT_TRUE(a->pktAction().empty());
}

TEST(PtpActions, MemberChangesReachItsSubscribers) {
   auto a = ptpActionsFactory("ptpActions");
   auto p = a->pktActionIs(syncL2);
   auto i = a->intfActionIs(IntfId("Et7"));
   Recorder r(a.get());
   p->fwdActionIs(FwdAction::drop);
   i->dropMgmtMsgIs(true);
   ASSERT_EQ(r.changes.size(), 2u);
   EXPECT_EQ(r.changes[0].source, p.get());
   EXPECT_EQ(r.changes[0].field, PktAction::F::fwdAction);
   EXPECT_EQ(r.changes[1].source, i.get());
}

TEST(PtpActions, GenerationWithTheSameCounterButAnotherFlagIsAChange) {
   auto a = ptpActionsFactory("ptpActions");
   a->generationIs({4, false});
   Recorder r(a.get());
   a->generationIs({4, false});
   EXPECT_TRUE(r.changes.empty());
   a->generationIs({4, true});
   ASSERT_EQ(r.changes.size(), 1u);
   EXPECT_EQ(r.changes[0].field, PtpActions::F::generation);
   a->forwardV1Is(true);
   a->forwardUCastIs(true);
   a->forwardUCastIs(true);
   EXPECT_EQ(r.changes.size(), 3u);
   EXPECT_EQ(r.changes[2].field, PtpActions::F::forwardUCast);
}

TEST(PtpActions, ADirectoryCreatesItByName) {
   auto dir = Kiv::make<Kiv::Dir>("ptp");
   auto a = dir->entityIs<PtpActions>("actions");
   EXPECT_EQ(a->name(), "actions");
   EXPECT_EQ(dir->entityPtr("actions"), a.get());
   EXPECT_EQ(dir->entityIs<PtpActions>("actions"), a);
}

// A reader in the style of a hardware programmer: it acts on the content only
// when the writer announces a consistent set with a new generation.
class ProgrammerSm : public Kiv::Reactor {
  public:
   explicit ProgrammerSm(Pondo::Ptr<const PtpActions> actions)
       : ptpActions_(this, std::move(actions), Kiv::onAny<&ProgrammerSm::on_ptpActions>) {}
   std::vector<std::string> programmed;

  private:
   void on_ptpActions(const Change& c) {
      if (c.source == ptpActions_.get() && c.field == PtpActions::F::generation) handleGeneration();
   }
   void handleInitialized() override { handleGeneration(); }
   void handleGeneration() {
      std::string s = fmt::format("{}:", ptpActions_->generation());
      for (const auto& [k, p] : ptpActions_->pktAction()) s += fmt::format(" {}={}", k.msgType, p->fwdAction());
      programmed.push_back(s);
   }
   Kiv::Input<const PtpActions> ptpActions_;
};

TEST(PtpActions, ReadersActOnTheGenerationAfterTheWriterIsDone) {
   auto a = ptpActionsFactory("ptpActions");
   auto reader = Kiv::make<ProgrammerSm>(a);
   a->pktActionIs(syncL2)->fwdActionIs(FwdAction::forward);
   a->pktActionIs({Msg::announce, PtpVersion::v2, TransportMode::layer2})->fwdActionIs(FwdAction::snoop);
   a->generationIs({1, false});
   EXPECT_EQ(reader->programmed, (std::vector<std::string>{"(0, false):", "(1, false): Sync=Forward Announce=Snoop"}));
}

}  // namespace
