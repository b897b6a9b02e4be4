// Correction-field programming of a full chassis: 32 chips of 36 interfaces,
// each interface with some correction-field handling switched on. Each case
// has a reference that commits the same rows straight into the tables, so
// the machines' share shows beside the simulated hardware's.
#include <benchmark/benchmark.h>

#include "Asic/SimulatedChip.h"
#include "VyrPtp/VyrCfUpdateArmSm.h"

namespace {

using namespace CorrectionField;

constexpr int kChips = 32;
constexpr int kInterfaces = 36;

struct Chassis {
   Pondo::Ptr<PlatformCfUpdateInfo> info = platformCfUpdateInfoFactory();
   Pondo::Ptr<Statebase::EntityManager> em = Kiv::make<Statebase::EntityManager>();
   Pondo::Ptr<VyrPtp::Programmer::Status> programmers = VyrPtp::Programmer::statusFactory();
   std::vector<Pondo::Ptr<Asic::SimulatedChip>> devices;
   std::vector<Pondo::Ptr<Asic::ChipInfo>> chips;

   Chassis() {
      for (int c = 0; c < kChips; ++c) {
         devices.push_back(Kiv::make<Asic::SimulatedChip>());
         chips.push_back(Kiv::make<Asic::ChipInfo>(c, fmt::format("chip{}", c), devices.back()));
         auto fap = info->logicalFapInfoIs(LogicalFapId(c), chips.back()->gif());
         for (int n = 0; n < kInterfaces; ++n) {
            auto i = fap->intfInfoIs(Wyx::IntfId(fmt::format("Ethernet{}/{}", c + 1, n + 1)));
            i->swTableIndexIs(n);
            i->ingressCfUpdateEnableIs(true);
            i->egressCfUpdateModeIs(EgressCFUpdateMode::residenceTime);
            i->generationIs({1, true});
         }
      }
   }
   std::uint64_t commits() const {
      std::uint64_t n = 0;
      for (const auto& d : devices)
         n += d->commits(Asic::RxCfControlTable::name) + d->commits(Asic::TxCfControlTable::name);
      return n;
   }
};

void perRun(benchmark::State& state, const Chassis& c, std::uint64_t before, double per) {
   state.counters["commits/" + std::string(per == 1 ? "bump" : "chassis")] =
       double(c.commits() - before) / double(state.iterations());
   state.counters["interfaces"] = per;
}

// The system machine built over the whole chassis: both tables of every chip
// opened and every interface written (twice, as at every start), "CF_UPDATE"
// registered; the teardown is not timed.
void BM_CfUpdateProgramChassisFromScratch(benchmark::State& state) {
   Chassis c;
   const std::uint64_t before = c.commits();
   for (auto _ : state) {
      auto sm = vyrCfUpdateArmSmFactory(c.info, c.em, c.programmers);
      state.PauseTiming();
      if (!c.programmers->programmerActive("CF_UPDATE")) state.SkipWithError("CF_UPDATE not registered");
      sm = nullptr;
      state.ResumeTiming();
   }
   perRun(state, c, before, kChips * kInterfaces);
}
BENCHMARK(BM_CfUpdateProgramChassisFromScratch)->Unit(benchmark::kMillisecond);

// Reference: the chassis' rows committed straight into freshly opened tables,
// once per interface.
void BM_CfUpdateReferenceRawCommitsChassis(benchmark::State& state) {
   Chassis c;
   const std::uint64_t before = c.commits();
   const Asic::RxCfControlEntry rx{1, 0};
   const Asic::TxCfControlEntry tx{Asic::EgressCFUpdateMode::residenceTime, 0, {}};
   for (auto _ : state) {
      for (int chip = 0; chip < kChips; ++chip) {
         auto rxTable = Asic::rxCfControlTableFactory();
         auto txTable = Asic::txCfControlTableFactory();
         rxTable->doInit(chip, c.em, c.chips[chip]->gif());
         txTable->doInit(chip, c.em, c.chips[chip]->gif());
         for (int n = 0; n < kInterfaces; ++n) {
            rxTable->entryCommit(n, rx);
            txTable->entryCommit(n, tx);
         }
      }
   }
   perRun(state, c, before, kChips * kInterfaces);
}
BENCHMARK(BM_CfUpdateReferenceRawCommitsChassis)->Unit(benchmark::kMillisecond);

// One interface's record moves to a new generation with a changed setting:
// its two rows are written and the programmed set stays as it is.
void BM_CfUpdateOneInterfaceGenerationBump(benchmark::State& state) {
   Chassis c;
   auto sm = vyrCfUpdateArmSmFactory(c.info, c.em, c.programmers);
   PlatformCfUpdateIntfInfo* i = c.info->logicalFapInfo(kChips / 2)->intfInfo(Wyx::IntfId("Ethernet17/18"));
   const std::uint64_t before = c.commits();
   std::uint32_t g = 1;
   for (auto _ : state) {
      i->twoStepTsCfUpdateEnableIs(g % 2 == 1);
      i->generationIs({++g, true});
   }
   if (!sm->logicalFapStatus(kChips / 2)->programmedIntf(i->intfId())) state.SkipWithError("interface not programmed");
   perRun(state, c, before, 1);
}
BENCHMARK(BM_CfUpdateOneInterfaceGenerationBump)->Unit(benchmark::kNanosecond);

// Reference: the same two rows committed straight into the chip's tables.
void BM_CfUpdateReferenceRawCommitsOneInterface(benchmark::State& state) {
   Chassis c;
   auto rxTable = Asic::rxCfControlTableFactory();
   auto txTable = Asic::txCfControlTableFactory();
   rxTable->doInit(kChips / 2, c.em, c.chips[kChips / 2]->gif());
   txTable->doInit(kChips / 2, c.em, c.chips[kChips / 2]->gif());
   const std::uint64_t before = c.commits();
   std::uint8_t twoStep = 0;
   for (auto _ : state) {
      twoStep ^= 1;
      rxTable->entryCommit(17, {1, 0});
      txTable->entryCommit(17, {Asic::EgressCFUpdateMode::residenceTime, 0, {twoStep, twoStep, twoStep, twoStep}});
   }
   perRun(state, c, before, 1);
}
BENCHMARK(BM_CfUpdateReferenceRawCommitsOneInterface)->Unit(benchmark::kNanosecond);

}  // namespace
