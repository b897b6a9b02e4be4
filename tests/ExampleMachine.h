// A small entity family and state machines showing the framework's pattern:
// a machine copying members into an output, one keeping a nested machine per
// member, one writing into its own input, and one acting on a timer and
// tracing what it does. Used by the framework tests.
#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Kiv/Reactor.h"
#include "Kiv/Trace.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace Example {

// One trace handle per source (here, per header): VYRPTP_TRACE="Example/6"
// shows level 6 of it.
inline const Kiv::Tracer trace{"Example"};

class Port : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intf, speed };
   };
   explicit Port(Wyx::IntfId intf) : intf_(intf) {}
   Wyx::IntfId intf() const { return intf_; }
   int speed() const { return speed_; }
   void speedIs(int s) { set(speed_, s, F::speed); }

  private:
   Wyx::IntfId intf_;
   int speed_ = 0;
};

class Chassis : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, port, generation };
   };
   Chassis() = default;
   const Port* port(Wyx::IntfId k) const { return port_.find(k); }
   Port* port(Wyx::IntfId k) { return port_.find(k); }
   const Kiv::Collection<Wyx::IntfId, Port>& port() const { return port_; }
   Pondo::Ptr<Port> portIs(Wyx::IntfId k) { return port_.is(k); }
   Pondo::Ptr<Port> portDel(Wyx::IntfId k) { return port_.del(k); }
   void portDelAll() { port_.delAll(); }
   Pondo::Generation generation() const { return generation_; }
   void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }

  private:
   Kiv::Collection<Wyx::IntfId, Port> port_{this, F::port, "port"};
   Pondo::Generation generation_;
};

// Output: total speed per interface, and how often the generation was seen.
class Summary : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { speed, generationsSeen };
   };
   const Kiv::Map<Wyx::IntfId, int>& speed() const { return speed_; }
   void speedIs(Wyx::IntfId k, int v) { speed_.is(k, v); }
   bool speedDel(Wyx::IntfId k) { return speed_.del(k); }
   int generationsSeen() const { return generationsSeen_; }
   void generationsSeenIs(int v) { set(generationsSeen_, v, F::generationsSeen); }

  private:
   Kiv::Map<Wyx::IntfId, int> speed_{this, F::speed, "speed"};
   int generationsSeen_ = 0;
};

// Copies each port's speed into the summary; counts generation changes.
class SummarySm : public Kiv::Reactor {
  public:
   SummarySm(Pondo::Ptr<const Chassis> chassis, Pondo::Ptr<Summary> summary)
       : chassis_(this, std::move(chassis), Kiv::onAny<&SummarySm::on_chassis>), summary_(std::move(summary)) {}

   void chassisIs(Pondo::Ptr<const Chassis> c) { chassis_ = std::move(c); }
   std::vector<std::string> log;  // what ran, in order

  private:
   void on_chassis(const Kiv::Change& c) {
      if (c.source == chassis_.get()) {
         if (c.field == Chassis::F::port) handlePort(c.keyAs<Wyx::IntfId>());
         if (c.field == Chassis::F::generation) summary_->generationsSeenIs(summary_->generationsSeen() + 1);
      } else if (c.field == Port::F::speed) {
         handlePort(static_cast<const Port*>(c.source)->intf());
      }
   }
   void handlePort(Wyx::IntfId i) {
      log.push_back("port " + i.shortName());
      if (const Port* p = chassis_ ? chassis_->port(i) : nullptr) {
         summary_->speedIs(i, p->speed());
      } else {
         summary_->speedDel(i);
      }
   }
   void handleInitialized() override { log.push_back("initialized"); }
   void onConstruct() override { log.push_back("construct"); }

   Kiv::Input<const Chassis> chassis_;
   Pondo::Ptr<Summary> summary_;
};

// Caps the speed of every port at `cap`. It writes into the input it watches:
// its own write reaches it only after the handler that made it has returned,
// as one more change, so the handler never runs inside itself.
class SpeedCapSm : public Kiv::Reactor {
  public:
   SpeedCapSm(Pondo::Ptr<Chassis> chassis, int cap)
       : chassis_(this, std::move(chassis), Kiv::onAny<&SpeedCapSm::on_chassis>), cap_(cap) {}
   std::vector<std::string> log;  // each speed heard, and whether it was capped

  private:
   void on_chassis(const Kiv::Change& c) {
      if (c.source == chassis_.get() || c.field != Port::F::speed) return;
      auto* port = static_cast<const Port*>(c.source);
      const bool over = c.newAs<int>() > cap_;
      log.push_back(fmt::format("{} {}{}", port->intf().shortName(), c.newAs<int>(), over ? " capped" : ""));
      if (over) chassis_->port(port->intf())->speedIs(cap_);
   }

   Kiv::Input<Chassis> chassis_;
   int cap_;
};

class PortWatchSm;

// Watches one port for its PortWatchSm and forwards the port's speed: the
// speed it finds when it is bound to a port, and every new speed.
class NestedSm_Port : public Kiv::NestedSm<PortWatchSm, const Port> {
  public:
   NestedSm_Port(Pondo::Ptr<const Port> port, PortWatchSm* owner)
       : NestedSm(std::move(port), owner, Kiv::onAny<&NestedSm_Port::onAttribute>,
                  Kiv::onSelf<&NestedSm_Port::onBinding>) {}

  private:
   void onAttribute(const Kiv::Change& c);
   void onBinding(const Port* previous, bool initial);
};

// Keeps one nested machine per port of the chassis, by presence, and logs
// every speed that they forward.
class PortWatchSm : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId { portSm };
   };
   explicit PortWatchSm(Pondo::Ptr<const Chassis> chassis)
       : chassis_(this, std::move(chassis), Kiv::onAny<&PortWatchSm::on_chassis>) {}

   void chassisIs(Pondo::Ptr<const Chassis> c) { chassis_ = std::move(c); }
   const NestedSm_Port* portSm(Wyx::IntfId k) const { return portSm_.find(k); }
   NestedSm_Port* portSm(Wyx::IntfId k) { return portSm_.find(k); }
   const Kiv::Collection<Wyx::IntfId, NestedSm_Port>& portSm() const { return portSm_; }

   void handleSpeed(Wyx::IntfId i, int speed) { log.push_back(fmt::format("speed {} {}", i.shortName(), speed)); }
   std::vector<std::string> log;

  private:
   void on_chassis(const Kiv::Change& c) {
      if (c.source != chassis_.get() || c.field != Chassis::F::port) return;
      const auto k = c.keyAs<Wyx::IntfId>();
      const Port* port = chassis_ ? chassis_->port(k) : nullptr;  // none once the input is cleared
      Kiv::shadow(portSm_, k, port, [&] { return Kiv::make<NestedSm_Port>(port, this); });
   }

   Kiv::Input<const Chassis> chassis_;
   Kiv::Collection<Wyx::IntfId, NestedSm_Port> portSm_{this, F::portSm, "portSm"};
};

// Reports the chassis's generation once it has held still for `settle`
// seconds: each change moves a clock wake-up on the loop's clock. The wake-up
// runs as one of the machine's handlers (Receiver::run), so changes it causes
// in the machine's inputs reach the machine after it, like any handler's.
class GenerationSettleSm : public Kiv::Reactor {
  public:
   GenerationSettleSm(Pondo::Ptr<const Chassis> chassis, Kiv::Seconds settle)
       : chassis_(this, std::move(chassis), Kiv::onAny<&GenerationSettleSm::on_chassis>), settle_(settle) {}
   std::vector<std::string> log;  // each settled generation

  private:
   void on_chassis(const Kiv::Change& c) {
      if (c.source == chassis_.get() && c.field == Chassis::F::generation) {
         trace(8, "generation {} at {}, settles at {}", chassis_->generation().counter, Kiv::currentTime(),
               Kiv::currentTime() + settle_);
         settled_.timeMinIs(Kiv::currentTime() + settle_);
      }
   }
   void handleSettled() {
      trace(6, "generation {} settled", chassis_->generation().counter);
      log.push_back(fmt::format("generation {} at {}", chassis_->generation().counter, Kiv::currentTime()));
   }

   Kiv::Input<const Chassis> chassis_;
   Kiv::Seconds settle_;
   Kiv::ClockTimer settled_{Kiv::activityManager().clock(), [this] { run([this] { handleSettled(); }); }};
};

inline void NestedSm_Port::onAttribute(const Kiv::Change& c) {
   if (c.field == Port::F::speed) ownerSm()->handleSpeed(notifier()->intf(), c.newAs<int>());
}

inline void NestedSm_Port::onBinding(const Port*, bool) {
   ownerSm()->handleSpeed(notifier()->intf(), notifier()->speed());
}

}  // namespace Example
