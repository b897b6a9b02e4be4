// Fuzzes the simulator's scenario loader: arbitrary bytes, and the seeds'
// scenarios mutated by libFuzzer, go through the parser, the structure checks
// and every module's load(). A scenario error is the expected outcome of bad
// input; anything else that escapes (a crash, a sanitizer report, another
// exception) is a finding.
#include <cstdint>
#include <string>

#include "Module.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   try {
      const Sim::Scenario scenario(std::string(reinterpret_cast<const char*>(data), size), "fuzz.yaml");
      double perSecond = 0;
      for (Sim::ModuleMaker make : Sim::moduleMakers()) {
         auto module = make();
         module->load(scenario);
         perSecond += module->loopEventsPerSecond();
      }
      if (!(perSecond >= 0)) __builtin_trap();
   } catch (const Sim::ScenarioError&) {
   }
   return 0;
}
