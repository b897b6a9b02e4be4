// State machines: the initial pass, input replacement, handleInitialized,
// notifications on and off, nested machines, re-entrant delivery, teardown
// and handlers that throw.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "ExampleMachine.h"

using namespace Example;
using Wyx::IntfId;
using Strings = std::vector<std::string>;

namespace {

std::map<IntfId, int> contents(const Summary& s) {
   std::map<IntfId, int> m;
   for (const auto& [k, v] : s.speed()) m[k] = v;
   return m;
}

std::string kindName(const Kiv::Change& c) {
   switch (c.kind) {
      case Kiv::Change::Kind::attribute: return "attribute";
      case Kiv::Change::Kind::added: return "added";
      case Kiv::Change::Kind::changed: return "changed";
      case Kiv::Change::Kind::removed: return "removed";
   }
   return "?";
}

// Two required inputs and an optional one; logs its hooks in the order they run.
class ThreeInputSm : public Kiv::Reactor {
  public:
   ThreeInputSm(Pondo::Ptr<const Chassis> a, Pondo::Ptr<const Chassis> b, Pondo::Ptr<const Chassis> extra)
       : a_(this, std::move(a), Kiv::onAny<&ThreeInputSm::on_a>, Kiv::onSelf<&ThreeInputSm::onSelf_a>),
         b_(this, std::move(b), Kiv::onAny<&ThreeInputSm::on_b>, Kiv::onSelf<&ThreeInputSm::onSelf_b>),
         extra_(Kiv::Input<const Chassis>::Optional{}, this, std::move(extra), Kiv::onAny<&ThreeInputSm::on_extra>,
                Kiv::onSelf<&ThreeInputSm::onSelf_extra>) {}

   void bIs(Pondo::Ptr<const Chassis> b) { b_ = std::move(b); }
   Strings log;
   bool activeAtInitialized = true;

  private:
   void record(const char* input, const Kiv::Change& c) {
      log.push_back(fmt::format("{} {} {}", input, kindName(c), c.key ? c.keyAs<IntfId>().shortName() : "-"));
   }
   void on_a(const Kiv::Change& c) { record("a", c); }
   void on_b(const Kiv::Change& c) { record("b", c); }
   void on_extra(const Kiv::Change& c) { record("extra", c); }
   void onSelf(const char* input, const Chassis* previous, bool initial) {
      log.push_back(fmt::format("self {}{}{}", input, initial ? " initial" : "", previous ? " had previous" : ""));
   }
   void onSelf_a(const Chassis* previous, bool initial) { onSelf("a", previous, initial); }
   void onSelf_b(const Chassis* previous, bool initial) { onSelf("b", previous, initial); }
   void onSelf_extra(const Chassis* previous, bool initial) { onSelf("extra", previous, initial); }
   void handleInitialized() override {
      log.push_back("initialized");
      activeAtInitialized = hasNotificationActive();
   }
   void onConstruct() override { log.push_back("construct"); }

   Kiv::Input<const Chassis> a_;
   Kiv::Input<const Chassis> b_;
   Kiv::Input<const Chassis> extra_;
};

Pondo::Ptr<Chassis> chassisWith(std::initializer_list<const char*> ports) {
   auto c = Kiv::make<Chassis>();
   for (const char* p : ports) c->portIs(IntfId(p));
   return c;
}

TEST(Reactor, InitialPassRunsPerInputInDeclarationOrder) {
   auto sm = Kiv::make<ThreeInputSm>(chassisWith({"Et2", "Et1"}), chassisWith({"Et5"}), chassisWith({"Et9"}));
   EXPECT_EQ(sm->log, (Strings{"a added Et1", "a added Et2", "self a initial", "b added Et5", "self b initial",
                               "extra added Et9", "self extra initial", "initialized", "construct"}));
   EXPECT_FALSE(sm->activeAtInitialized);  // switched on only once construction is over
   EXPECT_TRUE(sm->hasNotificationActive());
}

TEST(Reactor, HandleInitializedWaitsForEveryRequiredInput) {
   auto sm = Kiv::make<ThreeInputSm>(chassisWith({}), nullptr, nullptr);
   EXPECT_FALSE(sm->initialized());
   EXPECT_EQ(sm->log, (Strings{"self a initial", "self b initial", "self extra initial", "construct"}));
   sm->log.clear();
   sm->bIs(chassisWith({"Et4"}));  // completes the required inputs; the optional one may stay absent
   EXPECT_TRUE(sm->initialized());
   EXPECT_EQ(sm->log, (Strings{"b added Et4", "initialized", "self b"}));
   sm->log.clear();
   sm->bIs(chassisWith({}));  // only once
   EXPECT_EQ(sm->log, (Strings{"b removed Et4", "self b had previous"}));
}

TEST(Reactor, NotificationsCanBeSwitchedOff) {
   auto chassis = chassisWith({});
   auto summary = Kiv::make<Summary>();
   auto sm = Kiv::make<SummarySm>(chassis, summary);
   sm->hasNotificationActiveIs(false);
   chassis->portIs(IntfId("Et1"))->speedIs(10);
   EXPECT_TRUE(summary->speed().empty());
   sm->hasNotificationActiveIs(true);
   chassis->port(IntfId("Et1"))->speedIs(20);
   EXPECT_EQ(contents(*summary), (std::map<IntfId, int>{{IntfId("Et1"), 20}}));
}

TEST(Reactor, ChangesInsideMembersReachTheMachine) {
   auto chassis = chassisWith({"Et1"});
   auto summary = Kiv::make<Summary>();
   auto sm = Kiv::make<SummarySm>(chassis, summary);
   chassis->port(IntfId("Et1"))->speedIs(100);
   chassis->generationIs({1, true});
   EXPECT_EQ(contents(*summary), (std::map<IntfId, int>{{IntfId("Et1"), 100}}));
   EXPECT_EQ(summary->generationsSeen(), 1);
}

TEST(Reactor, BuiltOnPopulatedInputsEqualsWatchingThemFill) {
   auto chassis = Kiv::make<Chassis>();
   auto watched = Kiv::make<Summary>();
   auto sm1 = Kiv::make<SummarySm>(chassis, watched);
   auto watcher1 = Kiv::make<PortWatchSm>(chassis);
   chassis->portIs(IntfId("Et1/1"))->speedIs(10);
   chassis->portIs(IntfId("Et2/1"))->speedIs(40);
   chassis->portIs(IntfId("Et3/1"));
   chassis->portDel(IntfId("Et3/1"));

   auto late = Kiv::make<Summary>();
   auto sm2 = Kiv::make<SummarySm>(chassis, late);
   auto watcher2 = Kiv::make<PortWatchSm>(chassis);
   EXPECT_EQ(contents(*watched), contents(*late));
   EXPECT_EQ(contents(*late).at(IntfId("Et2/1")), 40);
   EXPECT_EQ(sm2->log.back(), "construct");
   auto keys = [](const PortWatchSm& w) {
      std::vector<IntfId> k;
      for (const auto& [i, nested] : w.portSm()) k.push_back(i);
      return k;
   };
   EXPECT_EQ(keys(*watcher1), keys(*watcher2));
   EXPECT_EQ(keys(*watcher2), (std::vector<IntfId>{IntfId("Et1/1"), IntfId("Et2/1")}));
}

TEST(Reactor, ReplacingInputReplaysRemovalsAndAdditions) {
   auto a = Kiv::make<Chassis>();
   a->portIs(IntfId("Et1"))->speedIs(1);
   a->portIs(IntfId("Et2"))->speedIs(2);
   auto b = Kiv::make<Chassis>();
   b->portIs(IntfId("Et2"))->speedIs(20);
   b->portIs(IntfId("Et3"))->speedIs(30);
   auto summary = Kiv::make<Summary>();
   auto sm = Kiv::make<SummarySm>(a, summary);
   sm->log.clear();
   sm->chassisIs(b);
   EXPECT_EQ(sm->log, (Strings{"port Et2", "port Et3", "port Et1"}));  // present members, then vanished ones
   EXPECT_EQ(contents(*summary), (std::map<IntfId, int>{{IntfId("Et2"), 20}, {IntfId("Et3"), 30}}));
   a->portIs(IntfId("Et9"))->speedIs(9);  // the old input is no longer watched
   EXPECT_FALSE(summary->speed().contains(IntfId("Et9")));
   EXPECT_EQ(a->subscribers(), 0u);
   EXPECT_EQ(b->subscribers(), 1u);
}

TEST(Reactor, ClearingAnInputReplaysEveryMemberAsRemoved) {
   auto chassis = chassisWith({"Et1", "Et2"});
   auto watcher = Kiv::make<PortWatchSm>(chassis);
   ASSERT_EQ(watcher->portSm().size(), 2u);
   watcher->chassisIs(nullptr);
   EXPECT_TRUE(watcher->portSm().empty());
   EXPECT_EQ(chassis->subscribers(), 0u);
   watcher->chassisIs(chassis);
   EXPECT_EQ(watcher->portSm().size(), 2u);
}

TEST(Reactor, NestedMachinesWatchTheirMembersForTheOwner) {
   auto chassis = chassisWith({"Et1"});
   auto watcher = Kiv::make<PortWatchSm>(chassis);
   watcher->log.clear();
   chassis->port(IntfId("Et1"))->speedIs(25);
   chassis->portIs(IntfId("Et2"))->speedIs(50);
   EXPECT_EQ(watcher->log, (Strings{"speed Et1 25", "speed Et2 0", "speed Et2 50"}));

   NestedSm_Port* nested = watcher->portSm(IntfId("Et1"));
   ASSERT_NE(nested, nullptr);
   EXPECT_EQ(nested->ownerSm(), watcher.get());
   EXPECT_EQ(nested->parent(), watcher.get());

   // notifierIs attaches it to another member.
   Pondo::Ptr<const Port> et2 = chassis->port(IntfId("Et2"));
   nested->notifierIs(et2);
   EXPECT_EQ(nested->notifier(), et2.get());
   watcher->log.clear();
   chassis->port(IntfId("Et1"))->speedIs(26);
   chassis->port(IntfId("Et2"))->speedIs(51);
   EXPECT_EQ(watcher->log, (Strings{"speed Et2 51", "speed Et2 51"}));

   // Removing the member deletes its nested machine.
   chassis->portDel(IntfId("Et2"));
   EXPECT_EQ(watcher->portSm(IntfId("Et2")), nullptr);
}

TEST(Reactor, ANestedMachineHearsOfEachBinding) {
   auto chassis = chassisWith({"Et1", "Et2"});
   chassis->port(IntfId("Et2"))->speedIs(40);
   auto watcher = Kiv::make<PortWatchSm>(chassis);
   EXPECT_EQ(watcher->log, (Strings{"speed Et1 0", "speed Et2 40"}));
   watcher->log.clear();
   watcher->portSm(IntfId("Et1"))->notifierIs(chassis->port(IntfId("Et2")));
   EXPECT_EQ(watcher->log, (Strings{"speed Et2 40"}));
}

// A wake-up moved by every change acts once the input has held still; its
// traces go to the sink while their level is on.
TEST(Reactor, ATimerActsOnceTheInputHasHeldStillAndTracesWhatItDoes) {
   Kiv::ActivityManager& loop = Kiv::activityManager();
   loop.virtualTimeIs(10, 1'700'000'000);
   Strings traced;
   Kiv::traceSinkIs([&](const Kiv::TraceRecord& r) { traced.push_back(fmt::format("{} {}", r.level, r.message)); });
   Kiv::traceMaskIs("Example", 1u << 6);
   auto chassis = Kiv::make<Chassis>();
   auto sm = Kiv::make<GenerationSettleSm>(chassis, 1.0);
   chassis->generationIs({1, false});
   loop.runFor(0.5);
   chassis->generationIs({2, false});  // moves the wake-up to 11.5
   loop.runFor(0.75);
   EXPECT_TRUE(sm->log.empty());
   loop.runFor(1);
   EXPECT_EQ(sm->log, (Strings{"generation 2 at 11.5"}));
   EXPECT_EQ(traced, (Strings{"6 generation 2 settled"}));  // level 8 is off
   Kiv::traceMaskIs("Example", 0);
   Kiv::traceSinkIs({});
   loop.virtualTimeIs(0, 0);
}

// The wake-up runs as one of the machine's handlers: a change it makes to the
// machine's input reaches the machine after it returns, never inside it.
TEST(Reactor, AWakeUpIsNotInterruptedByTheChangesItMakes) {
   Kiv::ActivityManager& loop = Kiv::activityManager();
   loop.virtualTimeIs(0, 1'700'000'000);
   auto chassis = Kiv::make<Chassis>();
   Strings order;
   struct BumpSm : Kiv::Reactor {
      BumpSm(Pondo::Ptr<Chassis> c, Strings* order)
          : chassis(this, std::move(c), Kiv::onAny<&BumpSm::on_chassis>), order(order) {}
      void on_chassis(const Kiv::Change& c) {
         if (c.field == Chassis::F::generation)
            order->push_back(fmt::format("heard {}", chassis->generation().counter));
      }
      void onTime() {
         order->push_back("wake-up begins");
         chassis->generationIs({7, false});
         order->push_back("wake-up ends");
      }
      Kiv::Input<Chassis> chassis;
      Strings* order;
      Kiv::ClockTimer wake{Kiv::activityManager().clock(), [this] { run([this] { onTime(); }); }};
   };
   auto sm = Kiv::make<BumpSm>(chassis, &order);
   sm->wake.timeMinIs(1);
   loop.runFor(2);
   EXPECT_EQ(order, (Strings{"wake-up begins", "wake-up ends", "heard 7"}));
   loop.virtualTimeIs(0, 0);
}

// After each step a key has a machine exactly when the chassis has the port,
// and that machine watches the port there now.
TEST(Reactor, ShadowKeepsOneNestedMachinePerPresentMember) {
   auto chassis = chassisWith({"Et1"});
   auto watcher = Kiv::make<PortWatchSm>(chassis);
   Kiv::Collection<IntfId, NestedSm_Port> nested{watcher.get(), 0, "nested"};
   const IntfId et1("Et1");
   auto make = [&] { return Kiv::make<NestedSm_Port>(chassis->port(et1), watcher.get()); };

   Kiv::shadow(nested, et1, static_cast<const Port*>(chassis->port(et1)), make);
   const NestedSm_Port* first = nested.find(et1);
   ASSERT_NE(first, nullptr);
   Kiv::shadow(nested, et1, static_cast<const Port*>(chassis->port(et1)), make);  // present and watched: kept
   EXPECT_EQ(nested.find(et1), first);

   chassis->portDel(et1);
   chassis->portIs(et1);  // another port of the same key
   Kiv::shadow(nested, et1, static_cast<const Port*>(chassis->port(et1)), make);
   ASSERT_NE(nested.find(et1), nullptr);
   EXPECT_EQ(nested.find(et1)->notifier(), chassis->port(et1));
   EXPECT_EQ(nested.size(), 1u);

   Kiv::shadow(nested, et1, static_cast<const Port*>(nullptr), make);
   EXPECT_TRUE(nested.empty());
}

// Keeps at most two ports in the chassis it watches, deleting the lowest key
// from inside the handler that hears of a third.
class TrimSm : public Kiv::Reactor {
  public:
   explicit TrimSm(Pondo::Ptr<Chassis> chassis) : chassis_(this, std::move(chassis), Kiv::onAny<&TrimSm::on_chassis>) {}
   Strings log;

  private:
   void on_chassis(const Kiv::Change& c) {
      if (c.source != chassis_.get() || c.field != Chassis::F::port) return;
      log.push_back(fmt::format("{} {}", kindName(c), c.keyAs<IntfId>().shortName()));
      if (c.added() && chassis_->port().size() > 2) chassis_->portDel(chassis_->port().begin()->first);
   }
   Kiv::Input<Chassis> chassis_;
};

TEST(Reactor, AHandlerMayModifyTheCollectionItIsNotifiedAbout) {
   auto chassis = chassisWith({});
   auto trim = Kiv::make<TrimSm>(chassis);
   auto summary = Kiv::make<Summary>();
   auto copy = Kiv::make<SummarySm>(chassis, summary);  // subscribed after the trimmer
   for (const char* p : {"Et1", "Et2", "Et3", "Et4"}) chassis->portIs(IntfId(p))->speedIs(1);
   EXPECT_EQ(trim->log, (Strings{"added Et1", "added Et2", "added Et3", "removed Et1", "added Et4", "removed Et2"}));
   std::vector<IntfId> left;
   for (const auto& [k, p] : chassis->port()) left.push_back(k);
   EXPECT_EQ(left, (std::vector<IntfId>{IntfId("Et3"), IntfId("Et4")}));
   EXPECT_EQ(contents(*summary), (std::map<IntfId, int>{{IntfId("Et3"), 1}, {IntfId("Et4"), 1}}));
}

// Runs `hook` for every change of the entity it is subscribed to.
struct Hook : Pondo::Subscriber {
   Hook(const Pondo::Publisher* p, std::function<void(const Kiv::Change&)> f) : publisher(p), fn(std::move(f)) {
      publisher->subscriberAdd(this);
   }
   ~Hook() { publisher->subscriberRemove(this); }
   void onChange(const Kiv::Change& c) override { fn(c); }
   const Pondo::Publisher* publisher;
   std::function<void(const Kiv::Change&)> fn;
};

TEST(Reactor, AMachineDeletedDuringDeliveryHearsNoMore) {
   auto chassis = chassisWith({});
   auto summary = Kiv::make<Summary>();
   Pondo::Ptr<SummarySm> victim;
   Hook killer(chassis.get(), [&](const Kiv::Change&) { victim = nullptr; });
   victim = Kiv::make<SummarySm>(chassis, summary);
   chassis->portIs(IntfId("Et1"));
   EXPECT_EQ(victim, nullptr);
   EXPECT_TRUE(summary->speed().empty());
   EXPECT_EQ(chassis->subscribers(), 1u);
}

TEST(Reactor, AMachineCreatedDuringDeliveryStartsFromThePresentState) {
   auto chassis = chassisWith({});
   auto summary = Kiv::make<Summary>();
   Pondo::Ptr<SummarySm> born;
   Hook maker(chassis.get(), [&](const Kiv::Change&) {
      if (!born) born = Kiv::make<SummarySm>(chassis, summary);
   });
   chassis->portIs(IntfId("Et1"))->speedIs(7);
   ASSERT_NE(born, nullptr);
   // Built during the addition of Et1, it saw Et1 in its initial pass and the speed as a change.
   EXPECT_EQ(born->log, (Strings{"port Et1", "initialized", "construct", "port Et1"}));
   EXPECT_EQ(contents(*summary), (std::map<IntfId, int>{{IntfId("Et1"), 7}}));
}

// Records what teardown has done when onDestruct runs.
class ObservedWatchSm : public PortWatchSm {
  public:
   using PortWatchSm::PortWatchSm;
   std::function<void()> atDestruct;

  private:
   void onDestruct() override { atDestruct(); }
};

TEST(Reactor, TeardownRunsOnDestructThenDetachesNestedMachinesThenUnsubscribes) {
   auto chassis = chassisWith({"Et1", "Et2"});
   auto watcher = Kiv::make<ObservedWatchSm>(chassis);
   Pondo::Ptr<NestedSm_Port> kept = watcher->portSm(IntfId("Et1"));  // outlives its owner
   const Port* et1 = chassis->port(IntfId("Et1"));
   Strings trail;
   watcher->atDestruct = [&, raw = watcher.get()] {
      trail.push_back(fmt::format("onDestruct: active {}, chassis subscribers {}, nested active {}",
                                  raw->hasNotificationActive(), chassis->subscribers(), kept->hasNotificationActive()));
   };
   Pondo::Ptr<ObservedWatchSm> last = std::move(watcher);
   last = nullptr;
   EXPECT_EQ(trail, (Strings{"onDestruct: active true, chassis subscribers 1, nested active true"}));
   EXPECT_EQ(chassis->subscribers(), 0u);
   // The zombie pass switched the surviving nested machine off and detached it.
   EXPECT_FALSE(kept->hasNotificationActive());
   EXPECT_EQ(et1->subscribers(), 0u);
   EXPECT_EQ(kept->parent(), nullptr);
   EXPECT_EQ(kept->references(), 1u);  // the owner's collection let it go
}

class ThrowingSm : public Kiv::Reactor {
  public:
   ThrowingSm(Pondo::Ptr<const Chassis> c, bool inInitialized)
       : chassis_(this, std::move(c), Kiv::onAny<&ThrowingSm::on_chassis>), inInitialized_(inInitialized) {}

  private:
   void on_chassis(const Kiv::Change& c) {
      if (c.field == Chassis::F::generation) throw std::runtime_error("generation handler failed");
   }
   void handleInitialized() override {
      if (inInitialized_) throw std::out_of_range("no such port");
   }
   Kiv::Input<const Chassis> chassis_;
   bool inInitialized_;
};

// Records what each typed binding hears.
class BindingSm : public Kiv::Reactor {
  public:
   explicit BindingSm(Pondo::Ptr<const Chassis> chassis)
       : chassis_(this, std::move(chassis), Kiv::on<Chassis::generation_t, &BindingSm::handleGeneration>,
                  Kiv::on<Chassis::port_t, &BindingSm::handlePort>,
                  Kiv::on<Kiv::Inside<Chassis::port_t, Port::speed_t>, &BindingSm::handleSpeed>,
                  Kiv::onSelf<&BindingSm::handleBound>) {}
   void chassisIs(Pondo::Ptr<const Chassis> c) { chassis_ = std::move(c); }
   Strings log;

  private:
   void handleGeneration(const Pondo::Generation& old, const Pondo::Generation& now) {
      log.push_back(fmt::format("generation {} -> {}", old.counter, now.counter));
   }
   void handlePort(Wyx::IntfId k) { log.push_back(fmt::format("port {}", k.shortName())); }
   void handleSpeed(const Port& port, int old, int now) {
      log.push_back(fmt::format("speed {} {} -> {}", port.intf().shortName(), old, now));
   }
   void handleBound(const Chassis* previous, bool initial) {
      log.push_back(fmt::format("bound{}{}", initial ? " initial" : "", previous ? " replacing" : ""));
   }

   Kiv::Input<const Chassis> chassis_;
};

TEST(Binding, AnAttributeHandlerHearsTheOldAndTheNewValue) {
   auto chassis = Kiv::make<Chassis>();
   auto sm = Kiv::make<BindingSm>(chassis);
   chassis->generationIs({3, true});
   chassis->generationIs({3, true});  // unchanged: nothing
   chassis->generationIs({4, false});
   EXPECT_EQ(sm->log, (Strings{"bound initial", "generation 0 -> 3", "generation 3 -> 4"}));
}

TEST(Binding, ACollectionHandlerHearsTheKeyOfEveryAdditionAndRemoval) {
   auto chassis = Kiv::make<Chassis>();
   auto sm = Kiv::make<BindingSm>(chassis);
   chassis->portIs(IntfId("Et1"));
   chassis->portDel(IntfId("Et1"));
   EXPECT_EQ(sm->log, (Strings{"bound initial", "port Et1", "port Et1"}));
}

TEST(Binding, AMemberAttributeHandlerHearsTheMemberTypedWithBothValues) {
   auto chassis = Kiv::make<Chassis>();
   auto port = chassis->portIs(IntfId("Et2"));
   auto sm = Kiv::make<BindingSm>(chassis);
   port->speedIs(100);
   EXPECT_EQ(sm->log, (Strings{"port Et2", "bound initial", "speed Et2 0 -> 100"}));
}

// Port::speed and Chassis::generation share a field id: a change inside a
// member reaches only the member bindings, the input's own only the others.
TEST(Binding, AMembersAttributeDoesNotReachABindingOfTheInputsOwnFieldOfTheSameId) {
   static_assert(Port::speed_t::id == Chassis::generation_t::id);
   auto chassis = Kiv::make<Chassis>();
   auto port = chassis->portIs(IntfId("Et3"));
   auto sm = Kiv::make<BindingSm>(chassis);
   sm->log.clear();
   port->speedIs(10);
   chassis->generationIs({1, false});
   EXPECT_EQ(sm->log, (Strings{"speed Et3 0 -> 10", "generation 0 -> 1"}));
}

TEST(Binding, TheSelfBindingHearsEveryBindingWithThePreviousEntity) {
   auto a = Kiv::make<Chassis>();
   auto b = Kiv::make<Chassis>();
   b->portIs(IntfId("Et4"));
   auto sm = Kiv::make<BindingSm>(a);
   sm->chassisIs(b);
   sm->chassisIs(nullptr);
   EXPECT_EQ(sm->log, (Strings{"bound initial", "port Et4", "bound replacing", "port Et4", "bound replacing"}));
}

TEST(ReactorDeathTest, AnExceptionEscapingAHandlerEndsTheProcess) {
   auto chassis = chassisWith({});
   auto sm = Kiv::make<ThrowingSm>(chassis, false);
   EXPECT_DEATH(chassis->generationIs({1, false}),
                "Assertion failed: exception escaped a handler of \\(anonymous namespace\\)::ThrowingSm: "
                "std::runtime_error: generation handler failed");
}

TEST(ReactorDeathTest, AnExceptionEscapingHandleInitializedEndsTheProcess) {
   auto chassis = chassisWith({});
   EXPECT_DEATH(
       Kiv::make<ThrowingSm>(chassis, true),
       "exception escaped a handler of \\(anonymous namespace\\)::ThrowingSm: std::out_of_range: no such port");
}

}  // namespace
