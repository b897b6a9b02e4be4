// Readiness from programmer reports over a large switch: 1,000 interfaces,
// each handled by 4 programmers that also report for the pipeline.
#include <benchmark/benchmark.h>

#include "VyrPtp/AggregatorSmNi.h"

namespace {

using namespace VyrPtp;
using namespace VyrPtp::Programmer;

constexpr int kInterfaces = 1000;
constexpr int kProgrammers = 4;

// Counts what is published into an entity, its members included.
struct Counter final : Pondo::Subscriber {
   void onChange(const Pondo::Change&) override { ++changes; }
   std::uint64_t changes = 0;
};

struct Switch {
   Pondo::Ptr<Ptp::HwStatus> hw = Kiv::make<Ptp::HwStatus>("hw");
   Pondo::Ptr<PtpIntfInfoStatus> intfInfos = ptpIntfInfoStatusFactory();
   Pondo::Ptr<PtpPipelineInfoStatus> pipeline = ptpPipelineInfoStatusFactory();
   Pondo::Ptr<ActionTypes::PtpActions> actions = ActionTypes::ptpActionsFactory("actions");
   // reports[p] holds programmer p's records: one per interface, then the pipeline's.
   std::vector<std::vector<Pondo::Ptr<PtpProgrammerInfo>>> reports{kProgrammers};
   Pondo::Ptr<AggregatorSmNi> sm;
   Counter hwChanges, verdicts;

   Switch() {
      for (int n = 0; n < kInterfaces; ++n) {
         const Wyx::IntfId i(fmt::format("Ethernet{}/{}", n / 48 + 1, n % 48 + 1));
         hw->intfStatusIs(i, Ptp::LinuxTsOptions());
         auto info = intfInfos->intfInfoIs(i);
         for (int p = 0; p < kProgrammers; ++p) reports[p].push_back(info->programmerInfoIs(name(p)));
      }
      for (int p = 0; p < kProgrammers; ++p) reports[p].push_back(pipeline->programmerInfoIs(name(p)));
      sm = aggregatorSmNiFactory(hw, intfInfos, pipeline, actions);
      bump(true);
      hw->subscriberAdd(&hwChanges);
      sm->pipelineAggState()->subscriberAdd(&verdicts);
   }
   ~Switch() {
      hw->subscriberRemove(&hwChanges);
      sm->pipelineAggState()->subscriberRemove(&verdicts);
   }
   static std::string name(int p) { return fmt::format("programmer{}", p); }

   // The protocol side bumps the generation; each programmer then reports it
   // on all its records, the last one with `lastSucceeds`.
   void bump(bool lastSucceeds) {
      const std::uint32_t g = actions->generation().counter + 1;
      actions->generationIs({g, true});
      for (int p = 0; p < kProgrammers; ++p) {
         const Pondo::Generation report{g, p + 1 < kProgrammers || lastSucceeds};
         for (auto& r : reports[p]) r->generationIs(report);
      }
   }
   bool allJudged(bool ready) const {
      if (sm->pipelineAggState()->generation() != Pondo::Generation{actions->generation().counter, ready}) return false;
      for (const auto& [k, e] : hw->intfStatus()) {
         if (e->intfReadyForTxPacket() != ready || e->intfReadyForRxPacket() != ready) return false;
      }
      return true;
   }
};

void perBump(benchmark::State& state, const Switch& s) {
   const double bumps = double(state.iterations());
   state.counters["hwStatusChanges/bump"] = double(s.hwChanges.changes) / bumps;
   state.counters["pipelineVerdicts/bump"] = double(s.verdicts.changes) / bumps;
   state.counters["reports/bump"] = kProgrammers * (kInterfaces + 1);
}

// A bump with nothing changed: every interface is judged ready again, and the
// hardware status publishes nothing; only the pipeline verdict names the new
// generation.
void BM_BumpUntilJudgedNothingChanged(benchmark::State& state) {
   Switch s;
   for (auto _ : state) s.bump(true);
   if (!s.allJudged(true)) state.SkipWithError("not every interface was judged ready");
   perBump(state, s);
}
BENCHMARK(BM_BumpUntilJudgedNothingChanged)->Unit(benchmark::kMillisecond);

// Every bump flips every interface: the last programmer fails every other time.
void BM_BumpUntilJudgedAllFlip(benchmark::State& state) {
   Switch s;
   bool ok = true;
   for (auto _ : state) s.bump(ok = !ok);
   if (!s.allJudged(ok)) state.SkipWithError("not every interface was judged");
   perBump(state, s);
}
BENCHMARK(BM_BumpUntilJudgedAllFlip)->Unit(benchmark::kMillisecond);

// One full readiness pass per interface (both walks over 4 current reports):
// the action generation's flag changes while its counter stays.
void BM_ReadinessPassPerInterface(benchmark::State& state) {
   Switch s;
   bool flag = true;
   for (auto _ : state) s.actions->generationIs({s.actions->generation().counter, flag = !flag});
   if (s.hwChanges.changes != 0) state.SkipWithError("a pass without news published");
   state.counters["perInterface"] = benchmark::Counter(double(state.iterations()) * kInterfaces,
                                                       benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ReadinessPassPerInterface)->Unit(benchmark::kMicrosecond);

}  // namespace
