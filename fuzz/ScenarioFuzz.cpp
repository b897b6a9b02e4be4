// Fuzzes the simulator's scenarios: arbitrary bytes, and the seeds' scenarios
// mutated by libFuzzer, go through the parser, the structure checks and every
// module's load(); what loads is built and runs its first simulated second,
// unless the modules estimate that second at more loop events than a fuzz
// input may take, and its report is made. A scenario error is the expected
// outcome of bad input; anything else that escapes (a crash, a sanitizer
// report, another exception) is a finding.
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "HtmlReport.h"
#include "Kiv/Activity.h"
#include "Simulation.h"
#include "TextReport.h"

namespace {

// Loop events one input may run: a second of a few busy chips.
constexpr double kBudget = 20000;

struct OverBudget {};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
   // The event log would cost more than the run.
   if (!std::freopen("/dev/null", "w", stdout)) return 1;
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   try {
      const Sim::Scenario scenario(std::string(reinterpret_cast<const char*>(data), size), "fuzz.yaml");
      Sim::Simulation sim(scenario, std::numeric_limits<double>::infinity());
      const double perSecond = sim.loopEventsPerSecond();
      if (!(perSecond >= 0)) __builtin_trap();
      if (perSecond > kBudget) return 0;
      sim.start(false, false);
      const std::uint64_t before = Kiv::activityManager().eventsRun();
      sim.runTo(std::min(1.0, scenario.duration()), [&] {
         if (double(Kiv::activityManager().eventsRun() - before) > 2 * kBudget) throw OverBudget{};
      });
      const Sim::Json doc = sim.reportData();
      doc.text();
      // Rendering both reports costs as much as the run itself; every
      // sixteenth input (by size) keeps the renderers under the fuzzer.
      if (size % 16 == 0) {
         Sim::textReport(doc);
         Sim::htmlReport(doc);
      }
   } catch (const Sim::ScenarioError&) {
   } catch (const OverBudget&) {
   }
   return 0;
}
