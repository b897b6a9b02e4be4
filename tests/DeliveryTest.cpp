// Delivery of changes when handlers change what they are told about: every
// subscriber gets the change as published, in the order the changes were made,
// a machine's handlers never run inside one another, a machine built on
// populated inputs survives handlers that change them, and teardown still
// notifies synchronously.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ExampleMachine.h"
#include "VyrPtp/AggregatorSmNi.h"
#include "VyrPtp/ProgrammerAggregatorSm.h"

using namespace Example;
using Kiv::Change;
using Wyx::IntfId;
using Strings = std::vector<std::string>;

namespace {

const IntfId et1{"Et1"}, et2{"Et2"}, et3{"Et3"};

std::string kindName(Change::Kind k) {
   switch (k) {
      case Change::Kind::attribute: return "attribute";
      case Change::Kind::added: return "added";
      case Change::Kind::changed: return "changed";
      case Change::Kind::removed: return "removed";
   }
   return "?";
}

// A subscriber that logs what it hears (with `describe`) and then runs `hook`.
struct Listener : Pondo::Subscriber {
   Listener(const Pondo::Publisher* p, std::function<std::string(const Change&)> d)
       : publisher(p), describe(std::move(d)) {
      publisher->subscriberAdd(this);
   }
   ~Listener() { publisher->subscriberRemove(this); }
   void onChange(const Change& c) override {
      log.push_back(describe(c));
      if (hook) hook(c);
   }
   const Pondo::Publisher* publisher;
   std::function<std::string(const Change&)> describe;
   std::function<void(const Change&)> hook;
   Strings log;
};

std::string portChange(const Change& c) {
   if (c.field != Chassis::F::port || !c.key) return "other";  // a change inside a port
   return kindName(c.kind) + " " + c.keyAs<IntfId>().shortName();
}

std::string speedChange(const Change& c) {
   const std::string key = c.keyAs<IntfId>().shortName();
   switch (c.kind) {
      case Change::Kind::added: return fmt::format("added {} {}", key, c.newAs<int>());
      case Change::Kind::changed: return fmt::format("changed {} {} -> {}", key, c.oldAs<int>(), c.newAs<int>());
      case Change::Kind::removed: return fmt::format("removed {} {}", key, c.oldAs<int>());
      case Change::Kind::attribute: break;
   }
   return "other";
}

class Tags : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { tag };
   };
   Kiv::Set<IntfId> tag{this, F::tag, "tag"};
};

// Ports per interface and their speed.
std::map<IntfId, int> speeds(const Chassis& c) {
   std::map<IntfId, int> m;
   for (const auto& [k, p] : c.port()) m[k] = p->speed();
   return m;
}

// --- the change as published ---

TEST(Delivery, EverySubscriberGetsTheKeyOfAMemberAnEarlierOneRemoved) {
   auto chassis = Kiv::make<Chassis>();
   Listener first(chassis.get(), portChange), second(chassis.get(), portChange), third(chassis.get(), portChange);
   first.hook = [&](const Change& c) {
      if (c.added()) chassis->portDel(c.keyAs<IntfId>());
   };
   chassis->portIs(et1);
   const Strings heard{"added Et1", "removed Et1"};
   EXPECT_EQ(first.log, heard);
   EXPECT_EQ(second.log, heard);
   EXPECT_EQ(third.log, heard);
   EXPECT_TRUE(chassis->port().empty());
}

TEST(Delivery, EverySubscriberGetsTheKeyAndOldValueOfAValueAnEarlierOneRemoved) {
   auto summary = Kiv::make<Summary>();
   Listener first(summary.get(), speedChange), second(summary.get(), speedChange);
   first.hook = [&](const Change& c) {
      if (c.kind == Change::Kind::changed) summary->speedDel(c.keyAs<IntfId>());
   };
   summary->speedIs(et2, 10);
   summary->speedIs(et2, 20);
   const Strings heard{"added Et2 10", "changed Et2 10 -> 20", "removed Et2 20"};
   EXPECT_EQ(first.log, heard);
   EXPECT_EQ(second.log, heard);
}

TEST(Delivery, EverySubscriberGetsTheKeyOfASetMemberAnEarlierOneRemoved) {
   auto holder = Kiv::make<Tags>();
   auto keyOf = [](const Change& c) { return kindName(c.kind) + " " + c.keyAs<IntfId>().shortName(); };
   Listener first(holder.get(), keyOf), second(holder.get(), keyOf);
   first.hook = [&](const Change& c) {
      if (c.added()) holder->tag.del(c.keyAs<IntfId>());
   };
   holder->tag.is(et3);
   EXPECT_EQ(second.log, (Strings{"added Et3", "removed Et3"}));
}

// --- order ---

TEST(Delivery, SubscribersHearTheChangesOfOneEntityInTheOrderMade) {
   auto chassis = Kiv::make<Chassis>();
   Listener first(chassis.get(), portChange), second(chassis.get(), portChange);
   // The first subscriber replaces every port it hears of by the next one.
   first.hook = [&](const Change& c) {
      if (!c.added() || c.keyAs<IntfId>() == et3) return;
      const IntfId next = c.keyAs<IntfId>() == et1 ? et2 : et3;
      chassis->portDel(c.keyAs<IntfId>());
      chassis->portIs(next);
   };
   chassis->portIs(et1);
   const Strings heard{"added Et1", "removed Et1", "added Et2", "removed Et2", "added Et3"};
   EXPECT_EQ(first.log, heard);
   EXPECT_EQ(second.log, heard);
}

TEST(Delivery, ASetterCalledOutsideAnyHandlerReturnsAfterEveryReaction) {
   auto chassis = Kiv::make<Chassis>();
   auto summary = Kiv::make<Summary>();
   auto copy = Kiv::make<SummarySm>(chassis, summary);
   Listener doubler(chassis.get(), portChange);
   doubler.hook = [&](const Change& c) {
      if (c.source != chassis.get() && c.field == Port::F::speed && c.newAs<int>() < 100) {
         chassis->port(et1)->speedIs(2 * c.newAs<int>());
      }
   };
   chassis->portIs(et1)->speedIs(30);
   EXPECT_EQ(chassis->port(et1)->speed(), 120);
   EXPECT_EQ(summary->speed().find(et1) ? *summary->speed().find(et1) : -1, 120);
}

// --- re-entrancy of machines ---

// Watches a chassis and runs `hook` inside its handler; logs each change with
// the nesting depth of its handlers, which must stay 1.
class ScriptSm : public Kiv::Reactor {
  public:
   explicit ScriptSm(Pondo::Ptr<Chassis> chassis, std::function<void(const Change&)> h = {})
       : hook(std::move(h)), chassis_(this, std::move(chassis), Kiv::onAny<&ScriptSm::on_chassis>) {}
   std::function<void(const Change&)> hook;
   Strings log;
   int maxDepth = 0;

  private:
   void on_chassis(const Change& c) {
      ++depth_;
      maxDepth = std::max(maxDepth, depth_);
      log.push_back(c.source == chassis_.get() ? portChange(c) : fmt::format("speed {}", c.newAs<int>()));
      if (hook) hook(c);
      --depth_;
   }
   Kiv::Input<Chassis> chassis_;
   int depth_ = 0;
};

TEST(Delivery, AHandlerRemovingAndReAddingMembersWithThreeSubscribers) {
   auto chassis = Kiv::make<Chassis>();
   auto juggler = Kiv::make<ScriptSm>(chassis);
   Listener second(chassis.get(), portChange), third(chassis.get(), portChange);
   int rounds = 0;
   juggler->hook = [&](const Change& c) {
      if (!c.added() || c.keyAs<IntfId>() != et1 || ++rounds > 2) return;
      chassis->portDel(et1);
      chassis->portIs(et1);
   };
   chassis->portIs(et1);
   const Strings heard{"added Et1", "removed Et1", "added Et1", "removed Et1", "added Et1"};
   EXPECT_EQ(juggler->log, heard);
   EXPECT_EQ(second.log, heard);
   EXPECT_EQ(third.log, heard);
   EXPECT_EQ(juggler->maxDepth, 1);
   EXPECT_TRUE(chassis->port(et1));
}

TEST(Delivery, AMachinesHandlerIsNotReEnteredByAWriteBackIntoItsInput) {
   auto chassis = Kiv::make<Chassis>();
   auto summary = Kiv::make<Summary>();
   auto writer = Kiv::make<ScriptSm>(chassis);
   Strings trail;
   // The machine copies each speed into the summary, whose other subscriber
   // writes a capped speed back into the machine's input.
   writer->hook = [&](const Change& c) {
      if (c.source == chassis.get()) return;
      trail.push_back(fmt::format("handler {} begins", c.newAs<int>()));
      summary->speedIs(et1, c.newAs<int>());
      trail.push_back(fmt::format("handler {} ends", c.newAs<int>()));
   };
   Listener capper(summary.get(), speedChange);
   capper.hook = [&](const Change& c) {
      if (c.newValue && c.newAs<int>() > 40) chassis->port(et1)->speedIs(40);
   };
   chassis->portIs(et1)->speedIs(70);
   EXPECT_EQ(writer->maxDepth, 1);
   EXPECT_EQ(trail, (Strings{"handler 70 begins", "handler 70 ends", "handler 40 begins", "handler 40 ends"}));
   EXPECT_EQ(*summary->speed().find(et1), 40);
   EXPECT_EQ(capper.log, (Strings{"added Et1 70", "changed Et1 70 -> 40"}));
}

TEST(Delivery, TheExampleCapMachineHearsItsOwnWriteAfterItsHandler) {
   auto chassis = Kiv::make<Chassis>();
   auto cap = Kiv::make<SpeedCapSm>(chassis, 40);
   chassis->portIs(et1)->speedIs(70);
   EXPECT_EQ(chassis->port(et1)->speed(), 40);
   EXPECT_EQ(cap->log, (Strings{"Et1 70 capped", "Et1 40"}));
}

// --- replay ---

TEST(Delivery, AHandlerRemovingTheReplayedMemberLeavesTheSameStateAsWatching) {
   auto chassis = Kiv::make<Chassis>();
   for (IntfId i : {et1, et2, et3}) chassis->portIs(i);
   auto trim = Kiv::make<ScriptSm>(chassis, [&](const Change& c) {  // drops every port but Et3
      if (c.added() && c.keyAs<IntfId>() != et3) chassis->portDel(c.keyAs<IntfId>());
   });
   EXPECT_EQ(trim->log, (Strings{"added Et1", "added Et2", "added Et3", "removed Et1", "removed Et2"}));
   EXPECT_EQ(trim->maxDepth, 1);
   EXPECT_EQ(speeds(*chassis), (std::map<IntfId, int>{{et3, 0}}));
}

TEST(Delivery, MembersAddedDuringTheReplayAreHandled) {
   // Adding Et1 makes the machine add Et2 with a speed, and Et2 makes it add Et3.
   auto grow = [](Chassis& c) {
      return [&c](const Change& ch) {
         if (ch.added() && ch.keyAs<IntfId>() == et1) c.portIs(et2)->speedIs(5);
         if (ch.added() && ch.keyAs<IntfId>() == et2) c.portIs(et3);
      };
   };
   auto filled = Kiv::make<Chassis>();
   auto watching = Kiv::make<ScriptSm>(filled, grow(*filled));
   filled->portIs(et1);
   auto populated = Kiv::make<Chassis>();
   populated->portIs(et1);
   auto built = Kiv::make<ScriptSm>(populated, grow(*populated));
   EXPECT_EQ(built->log, watching->log);
   EXPECT_EQ(built->log, (Strings{"added Et1", "added Et2", "speed 5", "added Et3"}));
   EXPECT_EQ(speeds(*populated), speeds(*filled));
   EXPECT_EQ(built->maxDepth, 1);
}

// --- teardown ---

// A nested machine whose teardown empties the summary it was given.
class ClearOnExitSm;
class ClearingOwnerSm : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId { clearer };
   };
   ClearingOwnerSm(Pondo::Ptr<Chassis> chassis, Pondo::Ptr<Summary> summary)
       : chassis_(this, std::move(chassis), Kiv::onAny<&ClearingOwnerSm::on_chassis>), summary_(std::move(summary)) {}
   Strings log;

  private:
   void on_chassis(const Change& c);
   Kiv::Input<Chassis> chassis_;
   Pondo::Ptr<Summary> summary_;
   Kiv::Collection<IntfId, ClearOnExitSm> clearer_{this, F::clearer, "clearer"};
};

class ClearOnExitSm : public Kiv::Reactor {
  public:
   explicit ClearOnExitSm(Pondo::Ptr<Summary> summary) : summary_(std::move(summary)) {}

  private:
   void onDestruct() override {
      for (IntfId k : {et1, et2}) summary_->speedDel(k);
   }
   Pondo::Ptr<Summary> summary_;
};

void ClearingOwnerSm::on_chassis(const Change& c) {
   if (c.source != chassis_.get() || c.field != Chassis::F::port) return;
   const IntfId k = c.keyAs<IntfId>();
   if (c.added()) {
      clearer_.insert(k, Kiv::make<ClearOnExitSm>(summary_));
      summary_->speedIs(k, 1);
      return;
   }
   log.push_back(fmt::format("deleting {}", k.shortName()));
   clearer_.del(k);  // its teardown empties the summary...
   log.push_back(fmt::format("summary has {} entries when dropped", summary_->speed().size()));
   summary_ = nullptr;  // ...before the summary goes
}

TEST(Delivery, ATeardownEmptyingAnEntityNotifiesItsWatcherBeforeTheEntityIsDropped) {
   auto chassis = Kiv::make<Chassis>();
   auto summary = Kiv::make<Summary>();
   Strings watched;
   Listener watcher(summary.get(), speedChange);
   auto owner = Kiv::make<ClearingOwnerSm>(chassis, summary);
   chassis->portIs(et1);
   watcher.hook = [&](const Change&) { watched.push_back(fmt::format("{} left", summary->speed().size())); };
   chassis->portDel(et1);
   EXPECT_EQ(owner->log, (Strings{"deleting Et1", "summary has 0 entries when dropped"}));
   EXPECT_EQ(watcher.log, (Strings{"added Et1 1", "removed Et1 1"}));
   EXPECT_EQ(watched, (Strings{"0 left"}));
}

TEST(Delivery, AMachineReleasedByItsOwnHandlerIsTornDownWhenTheHandlerReturns) {
   auto chassis = Kiv::make<Chassis>();
   Pondo::Ptr<ScriptSm> sm;
   bool intactAfterRelease = false;
   sm = Kiv::make<ScriptSm>(chassis, [&](const Change&) {
      ScriptSm* self = sm.get();
      sm = nullptr;  // the last use
      intactAfterRelease = chassis->subscribers() == 1 && self->log.size() == 1;
   });
   chassis->portIs(et1);
   EXPECT_TRUE(intactAfterRelease);
   EXPECT_EQ(chassis->subscribers(), 0u);
}

// --- the readiness aggregators ---

TEST(Delivery, AProgrammerFailingWhenTxBecomesReadyLeavesTxAndRxAgreeing) {
   using namespace VyrPtp;
   using namespace VyrPtp::Programmer;
   auto hw = Kiv::make<Ptp::HwStatus>("hw");
   auto intfInfos = ptpIntfInfoStatusFactory();
   auto actions = ActionTypes::ptpActionsFactory("actions");
   hw->intfStatusIs(et1, Ptp::LinuxTsOptions());
   intfInfos->intfInfoIs(et1)->programmerInfoIs("P")->generationIs({1, true});
   actions->generationIs({1, true});
   auto sm = aggregatorSmNiFactory(hw, intfInfos, ptpPipelineInfoStatusFactory(), actions);
   Ptp::HwIntfStatus* status = hw->intfStatus(et1);
   ASSERT_TRUE(status->intfReadyForTxPacket());

   // The programmer withdraws its success as soon as Tx becomes ready.
   Listener programmer(status, [](const Change& c) { return fmt::format("field {}", c.field); });
   programmer.hook = [&](const Change& c) {
      if (c.field == Ptp::HwIntfStatus::F::intfReadyForTxPacket && c.newAs<bool>()) {
         intfInfos->intfInfo(et1)->programmerInfo("P")->generationIs({2, false});
      }
   };
   status->intfReadyForTxPacketIs(false);
   status->intfReadyForRxPacketIs(false);
   intfInfos->intfInfo(et1)->programmerInfo("P")->generationIs({2, true});
   actions->generationIs({2, true});  // the pass sets Tx, which makes the report fail
   EXPECT_FALSE(status->intfReadyForTxPacket());
   EXPECT_FALSE(status->intfReadyForRxPacket());
}

TEST(Delivery, AProgrammerFailingWhenRxBecomesReadyLeavesRxAndTxAgreeingInTheHardwareStatus) {
   using namespace VyrPtp::Programmer;
   auto status = statusFactory();
   auto hw = Kiv::make<Ptp::HwStatus>("hw");
   status->programmerActiveIs("A");
   status->staticHwIntfStatusIs(et1, Ptp::LinuxTsOptions());
   status->intfStatusIs({"A", et1})->generationIs({1, true});
   // The programmer withdraws its success as soon as Rx (written first) becomes ready.
   Listener programmer(hw.get(), [](const Change& c) { return fmt::format("field {}", c.field); });
   programmer.hook = [&](const Change& c) {
      if (c.source != hw.get() && c.field == Ptp::HwIntfStatus::F::intfReadyForRxPacket && c.newAs<bool>()) {
         status->intfStatus({"A", et1})->generationIs({1, false});
      }
   };
   auto sm = aggregatorSmFactory(status, hw);
   const Ptp::HwIntfStatus* entry = hw->intfStatus(et1);
   ASSERT_TRUE(entry);
   EXPECT_FALSE(entry->intfReadyForRxPacket());
   EXPECT_FALSE(entry->intfReadyForTxPacket());
}

}  // namespace
