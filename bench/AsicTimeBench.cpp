// ASIC time access: widening one egress timestamp (with the detail text that is
// formatted on every call, measured alone for its share), reading one record
// of an ASIC time file, and reading the simulated FPGA's PTP counter.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>
#include <cstdio>

#include <filesystem>
#include <fstream>

#include "Hpx/SimHam.h"
#include "VyrPtp/VyrHelperPtp.h"

namespace {

using VyrPtp::TimestampFetcherBase;
using VyrPtp::U32;
using VyrPtp::U64;

constexpr U64 kReadAt = 1'700'000'000'000'000'000ull;

void BM_SwitchTimestamp(benchmark::State& state) {
   U64 t = kReadAt;
   for (auto _ : state) {
      benchmark::DoNotOptimize(TimestampFetcherBase::switchTimestamp(t, U32(t - 5000)));
      ++t;
   }
}
BENCHMARK(BM_SwitchTimestamp);

// The detail text alone, formatted as the plausibility check formats it.
void BM_DetailText(benchmark::State& state) {
   U64 e = kReadAt;
   for (auto _ : state) {
      char detail[160];
      std::snprintf(detail, sizeof detail,
                    "   seconds: 0x%x nanoseconds: 0x%x asic32bit_ts: 0x%x egressTimestamp: 0x%llX sequenceId: %u",
                    U32(e / 1'000'000'000), U32(e % 1'000'000'000), U32(e), static_cast<unsigned long long>(e), 7u);
      benchmark::DoNotOptimize(detail);
      ++e;
   }
}
BENCHMARK(BM_DetailText);

void BM_DisplayWarningIfIncorrect(benchmark::State& state) {
   Kiv::activityManager().virtualTimeIs(0, 1.7e9);
   const Wyx::IntfId intf("Ethernet3/1");
   U64 e = kReadAt;
   for (auto _ : state) TimestampFetcherBase::displayWarningIfIncorrect(e++, 5, intf, 7);
}
BENCHMARK(BM_DisplayWarningIfIncorrect);

// Trace off, as in production; the clock is the loop's virtual UTC time.
void BM_CalcEgressTimestamp(benchmark::State& state) {
   Kiv::activityManager().virtualTimeIs(0, 1.7e9);
   const Wyx::IntfId intf("Ethernet3/1");
   U64 t = kReadAt;
   for (auto _ : state) {
      benchmark::DoNotOptimize(TimestampFetcherBase::calcEgressTimestamp(t, intf, 7, U32(t - 5000)));
      ++t;
   }
}
BENCHMARK(BM_CalcEgressTimestamp);

// One record from a real file in the temporary directory, through an open descriptor.
void BM_ReadAsicTimestamp(benchmark::State& state) {
   const auto path = std::filesystem::temp_directory_path() / fmt::format("vyrptp-bench-asic-time-{}", getpid());
   std::ofstream(path) << "1700000000000000000 1700000000000000001 42\n";
   const int fd = ::open(path.c_str(), O_RDONLY);
   U64 tod = 0;
   for (auto _ : state) {
      if (VyrPtp::readAsicTimestamp(fd, tod) != 0) state.SkipWithError("read failed");
      benchmark::DoNotOptimize(tod);
   }
   ::close(fd);
   std::filesystem::remove(path);
}
BENCHMARK(BM_ReadAsicTimestamp);

// The PTP counter of the simulated FPGA, with the default single retry and
// text validation. Real time, so that the counter increases between reads.
void BM_HpxTimestamp(benchmark::State& state) {
   Kiv::activityManager().realTimeIs();
   unsetenv("SIMULATION_VMID");
   auto status = Kiv::make<PtpTimeSync::Status>("status");
   auto config = Kiv::make<PtpTimeSync::Config>("config");
   config->hpxIs("hpx1")->hamIs(Kiv::make<Hpx::SimHam>("hpx1"));
   status->activeHpxIs("hpx1");
   auto fetcher = VyrPtp::timestampFetcherFactory(status, config);
   for (auto _ : state) benchmark::DoNotOptimize(fetcher->hpxTimestamp("ptp_timestamp"));
   state.counters["errors"] = fetcher->errors();
   Kiv::activityManager().virtualTimeIs(0, 1.7e9);
}
BENCHMARK(BM_HpxTimestamp);

}  // namespace
