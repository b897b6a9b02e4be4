// The simulator's extension point. Each subsystem wires its machines into the
// virtual switch through one Module in sim/modules/, registered with
// VYRPTP_SIM_MODULE. Modules run in the order of their `order()`.
#pragma once

#include <yaml-cpp/yaml.h>

#include <memory>
#include <string>
#include <vector>

#include "Json.h"
#include "Scenario.h"
#include "World.h"

namespace Sim {

class Module {
  public:
   virtual ~Module() = default;
   virtual std::string name() const = 0;
   // Lower runs first (build, events, report).
   virtual int order() const { return 100; }
   // Top-level scenario sections this module reads.
   virtual std::vector<std::string> sections() const { return {}; }
   // Timeline event kinds this module applies.
   virtual std::vector<std::string> events() const { return {}; }

   // Reads and checks the module's sections; report errors with Scenario::fail.
   virtual void load(const Scenario&) {}
   // After load(): at most how many loop events one simulated second of this
   // module's work takes, so that a run too long to finish is refused before it starts.
   virtual double loopEventsPerSecond() const { return 0; }
   // Creates platform entities and library machines.
   virtual void build(World&) {}
   // Applies one timeline event of a kind listed in events().
   virtual void apply(const Event&, World&) {}
   // Called after each timeline event has been applied and the loop has run.
   virtual void afterEvent(const Event&, World&) {}
   // The timeline's "agentRestart": destroys the library's machines and
   // creates them again on the same entities, as a restarted agent would.
   virtual void agentRestart(World&) {}
   // Fills the module's part of the report (an object; left null, it is omitted),
   // which the text summary, --json and --report render. Conventions the
   // renderings follow: `chips` maps each logical FAP to its data, with
   // `interfaces` (by name) and a `total`; a module-level `total` is the
   // chassis's; an `attention` string on an interface says what is unusual
   // about it; arrays are series for charts.
   virtual void reportData(World&, Json& out) { (void)out; }
};

using ModuleMaker = std::unique_ptr<Module> (*)();
std::vector<ModuleMaker>& moduleMakers();

struct ModuleRegistrar {
   explicit ModuleRegistrar(ModuleMaker m) { moduleMakers().push_back(m); }
};

}  // namespace Sim

#define VYRPTP_SIM_MODULE(Type)                                                   \
   static const ::Sim::ModuleRegistrar registrar_##Type {                         \
      []() -> std::unique_ptr<::Sim::Module> { return std::make_unique<Type>(); } \
   }
