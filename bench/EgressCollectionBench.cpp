// Egress timestamp collection: one poll tick of every collector of a chassis,
// that is per polled interface a read request, its completion, the widening of
// the latched time and the publication. The chips answer every read at once,
// by default with a fresh valid entry (the worst case), so the figures are the
// library's and the framework's; the chassis share of a core is also measured
// at a message rate, where most reads find the FIFO empty. With
// "SIMULATION_VMID" set the collectors skip the time fetcher; without it each
// timestamp goes through the FPGA counter read, its text check and the detail
// text of the plausibility check.
//
// Allocations are counted by replacing the global operator new.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "AllocationCounter.h"
#include "Hpx/SimHam.h"
#include "Platform/ProductAttributes.h"
#include "SameRun.h"
#include "VyrPtp/VyrEgressTsArmSm.h"

namespace {

using VyrPtp::U64;
using Wyx::IntfId;

// A chip whose slots hold fresh entries latched at `latched`: on every read,
// or, with `perSecond` set, on that share of the 250 reads a slot gets per
// second (spread evenly over the chip's reads; the others find it empty).
class BenchChip final : public Asic::Device {
  public:
   static inline U64 latched = 0;
   static inline unsigned perSecond = 0;
   Asic::EgressTimestampEntry egressTimestampRead(const Asic::EgressTsSwTableKey&) override {
      if (perSecond) {
         if ((credit_ += perSecond) < 250) return {};
         credit_ -= 250;
      }
      return {++sequenceId_, latched & 0xFFFF'FFFFu, true};
   }

  private:
   unsigned credit_ = 0;
   std::uint16_t sequenceId_ = 0;
};

U64 utcNs() {
   const Kiv::Seconds now = Kiv::currentTime();
   return 1'700'000'000'000'000'000ull + U64(now * 1e9);
}

// `chips` chips of `intfs` polled interfaces each, behind one aggregate that
// takes full time from the FPGA counter.
struct Chassis {
   Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> status = VyrPtp::egressTimestampIntfStatusFactory("status");
   Pondo::Ptr<VyrPtp::PlatformEgressTsInfo> info = VyrPtp::platformEgressTsInfoFactory();
   Pondo::Ptr<Ptp::HwTimestampStatus> glint = Kiv::make<Ptp::HwTimestampStatus>();
   Pondo::Ptr<PtpTimeSync::Config> timeSyncConfig = Kiv::make<PtpTimeSync::Config>("timeSyncConfig");
   Pondo::Ptr<PtpTimeSync::Status> timeSyncStatus = Kiv::make<PtpTimeSync::Status>("timeSyncStatus");
   Pondo::Ptr<VyrPtp::VyrEgressTsArmAggregateSm> aggregate;
   std::size_t polled = 0;
   std::uint64_t ticks = 0;

   Chassis(int chips, int intfs, bool simulation) {
      Kiv::activityManager().virtualTimeIs(0, 1.7e9);
      if (simulation) {
         ::setenv("SIMULATION_VMID", "1", 1);
      } else {
         ::unsetenv("SIMULATION_VMID");
      }
      Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(Platform::Attributes{}));
      timeSyncConfig->hpxIs("hpx1")->hamIs(Kiv::make<Hpx::SimHam>("hpx1"));
      timeSyncStatus->activeHpxIs("hpx1");
      for (int c = 0; c < chips; ++c) {
         auto chip = Kiv::make<Asic::ChipInfo>(c, fmt::format("chip{}", c), Kiv::make<BenchChip>());
         auto fap = info->logicalFapInfoIs(Pondo::LogicalFapId(c), std::uint8_t(c), chip);
         for (int i = 0; i < intfs; ++i) {
            const IntfId intf(fmt::format("Ethernet{}/{}", c + 1, i + 1));
            fap->intfInfoIs({intf, 32, {std::uint32_t(i), Asic::PortType::network}});
         }
      }
      aggregate = VyrPtp::vyrEgressTsArmAggregateSmFactory(status, info, timeSyncConfig, timeSyncStatus,
                                                           Kiv::make<Statebase::EntityManager>(), glint);
      // In virtual time the FPGA counter stands still within a tick; a second
      // read would find it not increased and read again, which a real counter
      // never causes. One read per timestamp, as on hardware.
      for (const auto& [id, sm] : aggregate->logicalFapSm()) {
         if (auto* f = dynamic_cast<VyrPtp::TimestampFetcher*>(sm->timestampFetcher())) f->hpxNegIncNumReadRetriesIs(0);
      }
      // One turn of the timer wheel first: each bucket reserves its room on first use.
      while (Kiv::currentTime() < 4.2) tick();
      for (const auto& [id, fap] : info->logicalFapInfo()) {
         for (const auto& [intf, i] : fap->intfInfo()) status->physicalIntfNeedsPollingIs(intf);
      }
      for (int k = 0; k < 4; ++k) tick();  // drains, then first publications
      polled = std::size_t(chips) * std::size_t(intfs);
   }
   ~Chassis() {
      aggregate = nullptr;
      Platform::productAttributesIs(nullptr);
      ::unsetenv("SIMULATION_VMID");
   }

   // Runs to half a millisecond past the next poll, whatever rounding the
   // loop's time has gathered.
   void tick() {
      BenchChip::latched = utcNs();
      ++ticks;
      Kiv::activityManager().runUntil(double(ticks) * 0.004 + 0.0005);
   }
   std::uint64_t readsCompleted() const {
      std::uint64_t n = 0;
      for (const auto& [id, sm] : aggregate->logicalFapSm()) n += sm->egressTsTable()->readsCompleted();
      return n;
   }
};

// Returns the CPU time per polled interface per tick, in nanoseconds.
double pollTicks(benchmark::State& state, bool simulation) {
   Chassis chassis(int(state.range(0)), int(state.range(1)), simulation);
   const std::uint64_t reads = chassis.readsCompleted();
   const std::uint64_t allocated = allocations.load();
   const double start = cpuNs();
   for (auto _ : state) chassis.tick();
   const double spent = cpuNs() - start;
   const double ticks = double(state.iterations());
   if (chassis.readsCompleted() - reads != state.iterations() * chassis.polled) {
      state.SkipWithError("not every interface was polled once per tick");
   }
   const double polled = double(chassis.polled);
   state.counters["ns_per_intf"] =
       benchmark::Counter(ticks * polled / 1e9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
   state.counters["allocs_per_tick"] = double(allocations.load() - allocated) / ticks;
   state.counters["allocs_per_intf"] = double(allocations.load() - allocated) / ticks / polled;
   return spent / ticks / polled;
}

void chassisSizes(benchmark::internal::Benchmark* b) {
   for (int chips : {1, 8, 32}) {
      for (int intfs : {1, 10, 100, 1000}) b->Args({chips, intfs});
   }
   b->Args({1, 10000});
   b->ArgNames({"chips", "intfs"})->Unit(benchmark::kMicrosecond);
}

// The 1 x 100 figures are the poll path's side of the error-queue comparison.
void pollPath(benchmark::State& state, bool simulation, const char* name) {
   const double ns = pollTicks(state, simulation);
   if (state.range(0) == 1 && state.range(1) == 100) perTimestampNs()[name] = ns;
}

void BM_PollTickSimulationMode(benchmark::State& state) { pollPath(state, true, "poll path, simulation mode"); }
BENCHMARK(BM_PollTickSimulationMode)->Apply(chassisSizes);

void BM_PollTickWithFpgaFetcher(benchmark::State& state) { pollPath(state, false, "poll path, FPGA fetcher"); }
BENCHMARK(BM_PollTickWithFpgaFetcher)->Apply(chassisSizes);

// A full chassis at the 4 ms poll period: share of one core.
// Third argument: PTP event messages per second per interface (0: every poll
// finds a fresh entry).
void chassisAtPeriod(benchmark::State& state, bool simulation) {
   BenchChip::perSecond = unsigned(state.range(2));
   pollTicks(state, simulation);
   BenchChip::perSecond = 0;
   state.counters["cpu_share_pct"] = benchmark::Counter(double(state.iterations()) * 0.004 / 100,
                                                        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
void chassisLoads(benchmark::internal::Benchmark* b) {
   b->Args({32, 36, 0})->Args({32, 36, 16})->Args({32, 1000, 0})->Args({32, 1000, 16});
   b->ArgNames({"chips", "intfs", "msgs_per_s"})->Unit(benchmark::kMicrosecond);
}
void BM_ChassisCpuShareSimulationMode(benchmark::State& state) { chassisAtPeriod(state, true); }
BENCHMARK(BM_ChassisCpuShareSimulationMode)->Apply(chassisLoads);
void BM_ChassisCpuShareWithFpgaFetcher(benchmark::State& state) { chassisAtPeriod(state, false); }
BENCHMARK(BM_ChassisCpuShareWithFpgaFetcher)->Apply(chassisLoads);

}  // namespace
