// State machines showing the framework's pattern, over the entities of
// Example.kiv: a machine copying members into an output, one keeping a nested
// machine per member, one writing into its own input, and one acting on a
// timer and tracing what it does. Each binds typed handlers to the fields it
// watches (Kiv::on). Used by the framework tests.
#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

#include "Example.h"
#include "Kiv/Activity.h"
#include "Kiv/Reactor.h"
#include "Kiv/Trace.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace Example {

// One trace handle per source (here, per header): VYRPTP_TRACE="Example/6"
// shows level 6 of it.
inline const Kiv::Tracer trace{"Example"};

// Copies each port's speed into the summary; counts generation changes.
class SummarySm : public Kiv::Reactor {
  public:
   SummarySm(Pondo::Ptr<const Chassis> chassis, Pondo::Ptr<Summary> summary)
       : chassis_(this, std::move(chassis), Kiv::on<Chassis::port_t, &SummarySm::handlePort>,
                  Kiv::on<Kiv::Inside<Chassis::port_t, Port::speed_t>, &SummarySm::handleSpeed>,
                  Kiv::on<Chassis::generation_t, &SummarySm::handleGeneration>),
         summary_(std::move(summary)) {}

   void chassisIs(Pondo::Ptr<const Chassis> c) { chassis_ = std::move(c); }
   std::vector<std::string> log;  // what ran, in order

  private:
   // By presence: the port as it is now, whatever the change said.
   void handlePort(Wyx::IntfId i) {
      log.push_back("port " + i.shortName());
      if (const Port* p = chassis_ ? chassis_->port(i) : nullptr) {
         summary_->speedIs(i, p->speed());
      } else {
         summary_->speedDel(i);
      }
   }
   void handleSpeed(const Port& port) { handlePort(port.intf()); }
   void handleGeneration() { summary_->generationsSeenIs(summary_->generationsSeen() + 1); }
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
       : chassis_(this, std::move(chassis),
                  Kiv::on<Kiv::Inside<Chassis::port_t, Port::speed_t>, &SpeedCapSm::handleSpeed>),
         cap_(cap) {}
   std::vector<std::string> log;  // each speed heard, and whether it was capped

  private:
   void handleSpeed(const Port& port, int /*old*/, int now) {
      const bool over = now > cap_;
      log.push_back(fmt::format("{} {}{}", port.intf().shortName(), now, over ? " capped" : ""));
      if (over) chassis_->port(port.intf())->speedIs(cap_);
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
       : NestedSm(std::move(port), owner, Kiv::on<Port::speed_t, &NestedSm_Port::handleSpeed>,
                  Kiv::onSelf<&NestedSm_Port::handleBinding>) {}

  private:
   void handleSpeed(int old, int now);
   void handleBinding(const Port* previous, bool initial);
};

// Keeps one nested machine per port of the chassis, by presence, and logs
// every speed that they forward.
class PortWatchSm : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId { portSm };
   };
   explicit PortWatchSm(Pondo::Ptr<const Chassis> chassis)
       : chassis_(this, std::move(chassis), Kiv::on<Chassis::port_t, &PortWatchSm::handlePort>) {}

   void chassisIs(Pondo::Ptr<const Chassis> c) { chassis_ = std::move(c); }
   const NestedSm_Port* portSm(Wyx::IntfId k) const { return portSm_.find(k); }
   NestedSm_Port* portSm(Wyx::IntfId k) { return portSm_.find(k); }
   const Kiv::Collection<Wyx::IntfId, NestedSm_Port>& portSm() const { return portSm_; }

   void handleSpeed(Wyx::IntfId i, int speed) { log.push_back(fmt::format("speed {} {}", i.shortName(), speed)); }
   std::vector<std::string> log;

  private:
   void handlePort(Wyx::IntfId k) {
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
       : chassis_(this, std::move(chassis), Kiv::on<Chassis::generation_t, &GenerationSettleSm::handleGeneration>),
         settle_(settle) {}
   std::vector<std::string> log;  // each settled generation

  private:
   void handleGeneration() {
      trace(8, "generation {} at {}, settles at {}", chassis_->generation().counter, Kiv::currentTime(),
            Kiv::currentTime() + settle_);
      settled_.timeMinIs(Kiv::currentTime() + settle_);
   }
   void handleSettled() {
      trace(6, "generation {} settled", chassis_->generation().counter);
      log.push_back(fmt::format("generation {} at {}", chassis_->generation().counter, Kiv::currentTime()));
   }

   Kiv::Input<const Chassis> chassis_;
   Kiv::Seconds settle_;
   Kiv::ClockTimer settled_{Kiv::activityManager().clock(), [this] { run([this] { handleSettled(); }); }};
};

inline void NestedSm_Port::handleSpeed(int /*old*/, int now) { ownerSm()->handleSpeed(notifier()->intf(), now); }

inline void NestedSm_Port::handleBinding(const Port*, bool) {
   ownerSm()->handleSpeed(notifier()->intf(), notifier()->speed());
}

}  // namespace Example
