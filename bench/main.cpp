#include <benchmark/benchmark.h>

#include <cstdio>

#include "SameRun.h"

// After the benchmarks: how the kernel's error-queue path compares with the
// poll path, per timestamp, both measured in this run.
int main(int argc, char** argv) {
   benchmark::Initialize(&argc, argv);
   if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
   benchmark::RunSpecifiedBenchmarks();
   benchmark::Shutdown();
   const auto& f = perTimestampNs();
   for (const char* errQueue : {"error queue, single fetch", "error queue, batched"}) {
      for (const char* poll : {"poll path, simulation mode", "poll path, FPGA fetcher"}) {
         if (!f.count(errQueue) || !f.count(poll)) continue;
         std::printf("%s (%.0f ns) / %s (%.0f ns) = %.1f\n", errQueue, f.at(errQueue), poll, f.at(poll),
                     f.at(errQueue) / f.at(poll));
      }
   }
   return 0;
}
