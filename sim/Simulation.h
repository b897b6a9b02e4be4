// One run of a scenario: every module loads and checks it, builds the virtual
// switch, and the loop runs through the timeline. The program and the
// scenario fuzzer both run scenarios this way.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Module.h"

namespace Sim {

class Simulation {
  public:
   // Loads `scenario` into every module and refuses, with a scenario error, a
   // section or event no module owns and a run estimated at more than
   // `maxEvents` loop events.
   Simulation(const Scenario& scenario, double maxEvents);

   // The modules' estimate of loop events per simulated second.
   double loopEventsPerSecond() const;

   // Builds the switch on the loop, in virtual or real time.
   void start(bool realTime, bool verbose);
   // Runs to `t` seconds after the start, applying the timeline's events due by
   // then; `between` is called after each slice of the loop (at most 0.1 s
   // simulated) and may throw to end the run.
   void runTo(double t, const std::function<void()>& between);
   double simulated() const;

   // The report as one document, which the text summary, --json and --report render.
   Json reportData();

  private:
   void advance(double t, const std::function<void()>& between);

   const Scenario& scenario_;
   // Declared before the modules, so that it outlives them: their machines'
   // teardown still publishes to the others' watches, which read the world.
   std::unique_ptr<World> world_;
   std::vector<std::unique_ptr<Module>> modules_;
   std::map<std::string, Module*> eventOwner_;
   double start_ = 0;
   std::size_t next_ = 0;  // the first timeline event not applied yet
};

}  // namespace Sim
