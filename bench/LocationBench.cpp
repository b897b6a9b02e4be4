// Timestamp location and hardware readiness over a large chassis: both
// machines built on 1,000 interfaces of 32 chips, one chip's time-sync state
// changing under 36 interfaces, one interface moving between chip and PHY.
// The reference benchmarks write the same hardware status by hand.
#include <benchmark/benchmark.h>

#include "Platform/ProductAttributes.h"
#include "VyrPtp/VyrPtpHwStatusSm.h"
#include "VyrPtp/VyrPtpLocationSm.h"

namespace {

using namespace VyrPtp;
using Wyx::IntfId;

IntfId intfOf(int n) { return IntfId(fmt::format("Ethernet{}/{}", n / 48 + 1, n % 48 + 1)); }

// The inputs of both machines: `interfaces` enabled interfaces dealt out over
// `chips` chips (slices Linecard<chip>), PTP mode 2 at the external PHY, every
// tenth interface's PHY in time synchronisation and reporting ready, every
// chip stable. Chip time without ASIC time files.
struct Chassis {
   Pondo::Ptr<UnitPort::PlatformUnitPortInfo> unit = Kiv::make<UnitPort::PlatformUnitPortInfo>("unit");
   Pondo::Ptr<Ptp::HwConfig> hwConfig = Kiv::make<Ptp::HwConfig>("hwConfig");
   Pondo::Ptr<PtpTimeSync::Config> timeSyncConfig = Kiv::make<PtpTimeSync::Config>("timeSyncConfig");
   Pondo::Ptr<EgressTimestampIntfStatus> egress = egressTimestampIntfStatusFactory("egress");
   Pondo::Ptr<Kiv::Dir> islands = Kiv::make<Kiv::Dir>("islands");
   Pondo::Ptr<Kiv::Dir> timeSync = Kiv::make<Kiv::Dir>("timeSync");

   Chassis(int chips, int interfaces) {
      Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(Platform::Attributes{false, false}));
      hwConfig->ptpModeIs(Ptp::PtpMode(2));
      hwConfig->timestampLocationIs(Ptp::Location::Location::externalPhy);
      auto island = islands->entityIs<PtpTimestampStatus>("PhyIsland-Linecard");
      for (int c = 0; c < chips; ++c) {
         unit->fapInfoIs(UnitPort::FapId(c), slice(c), chip(c));
         timeSync->entityIs<PtpTimeSync::HwStatus>(slice(c))->switchAsicIs(chip(c))->stateIs(5);
      }
      for (int n = 0; n < interfaces; ++n) {
         const IntfId i = intfOf(n);
         unit->fapInfo(UnitPort::FapId(n % chips))->intfInfoIs(i);
         hwConfig->intfConfigIs(i)->enabledIs(true);
         egress->physicalIntfNeedsPollingIs(i);
         egress->clockIdIs(i, Ptp::ClockIdentity("001c73.fffe.000001"));
         if (n % 10 == 0) {
            timeSyncConfig->switchAsicIs("PhyChip" + i.name())->modeIs(1);
            auto phy = island->physicalIntfStatusIs(i);
            phy->intfReadyForRxIs(true);
            phy->intfReadyForTxIs(true);
         }
      }
   }
   ~Chassis() { Platform::productAttributesIs(nullptr); }
   static std::string slice(int c) { return fmt::format("Linecard{}", c); }
   static std::string chip(int c) { return fmt::format("Fap{}", c); }
};

// Both machines and their outputs.
struct Machines {
   Pondo::Ptr<PtpTimestampLocationConfig> location = Kiv::make<PtpTimestampLocationConfig>("location");
   Pondo::Ptr<Ptp::HwStatus> hwStatus = Kiv::make<Ptp::HwStatus>("hwStatus");
   Pondo::Ptr<Location::VyrPtpLocationSm> locationSm;
   Pondo::Ptr<Location::VyrPtpHwStatusSm> hwStatusSm;

   explicit Machines(const Chassis& c)
       : locationSm(Location::vyrPtpLocationSmFactory(c.hwConfig, location, c.timeSyncConfig, c.egress)),
         hwStatusSm(
             Location::vyrPtpHwStatusSmFactory(c.unit, c.hwConfig, location, c.islands, c.timeSync, true, hwStatus)) {}
};

void BM_BuildBothMachines_1000Intfs_32Chips(benchmark::State& state) {
   const Chassis c(32, 1000);
   std::size_t ready = 0;
   for (auto _ : state) {
      Machines m(c);
      ready = 0;
      for (const auto& [i, s] : m.hwStatus->intfStatus()) ready += s->intfReadyForTxPacket();
   }
   if (ready != 1000) state.SkipWithError("not every interface ready");
}
BENCHMARK(BM_BuildBothMachines_1000Intfs_32Chips)->Unit(benchmark::kMillisecond);

// Reference: the same 1,000 hardware status entries written by hand.
void BM_Reference_WriteHwStatus_1000Intfs(benchmark::State& state) {
   std::vector<IntfId> intfs;
   for (int n = 0; n < 1000; ++n) intfs.push_back(intfOf(n));
   for (auto _ : state) {
      auto hw = Kiv::make<Ptp::HwStatus>("hwStatus");
      for (IntfId i : intfs) {
         auto s = hw->intfStatusIs(i, Ptp::LinuxTsOptions(0));
         s->twoStepClockIs(true);
         s->timestampMultiplierIs(1);
         s->timestampDividerIs(1);
         s->intfReadyForRxPacketIs(true);
         s->intfReadyForTxPacketIs(true);
      }
      benchmark::DoNotOptimize(hw.get());
   }
}
BENCHMARK(BM_Reference_WriteHwStatus_1000Intfs)->Unit(benchmark::kMillisecond);

// 32 chips of 36 interfaces: chip 0's state goes between stable and not (interface 32 is one of its
// chip-timestamped ones).
void BM_TimeSyncStateChange_ChipOf36Intfs(benchmark::State& state) {
   const Chassis c(32, 32 * 36);
   Machines m(c);
   PtpTimeSync::SwitchStatus* chip0 = c.timeSync->entityIs<PtpTimeSync::HwStatus>("Linecard0")->switchAsic("Fap0");
   bool stable = true;
   for (auto _ : state) chip0->stateIs((stable = !stable) ? 5 : 4);
   if (m.hwStatus->intfStatus(intfOf(32))->intfReadyForTxPacket() != stable)
      state.SkipWithError("readiness not followed");
}
BENCHMARK(BM_TimeSyncStateChange_ChipOf36Intfs)->Unit(benchmark::kMicrosecond);

// Reference: 36 interfaces' readiness pairs flipped by hand.
void BM_Reference_Flip36ReadinessPairs(benchmark::State& state) {
   auto hw = Kiv::make<Ptp::HwStatus>("hwStatus");
   std::vector<Pondo::Ptr<Ptp::HwIntfStatus>> intfs;
   for (int n = 0; n < 36; ++n) intfs.push_back(hw->intfStatusIs(intfOf(n), Ptp::LinuxTsOptions(0)));
   bool ready = true;
   for (auto _ : state) {
      ready = !ready;
      for (auto& s : intfs) {
         s->intfReadyForRxPacketIs(ready);
         s->intfReadyForTxPacketIs(ready);
      }
   }
}
BENCHMARK(BM_Reference_Flip36ReadinessPairs)->Unit(benchmark::kMicrosecond);

// One interface's PHY joins and leaves time synchronisation: its location
// entry comes and goes, and its readiness drops and is recomputed.
void BM_LocationChange_OneIntf(benchmark::State& state) {
   const Chassis c(32, 1000);
   Machines m(c);
   const IntfId moving = intfOf(1);
   PtpTimeSync::SwitchConfig* phy = c.timeSyncConfig->switchAsicIs("PhyChip" + moving.name()).get();
   std::uint8_t mode = 0;
   for (auto _ : state) phy->modeIs(mode ^= 1);
   if (bool(m.location->enabledPhysicalIntfConfig(moving)) != (mode == 1)) state.SkipWithError("location not followed");
}
BENCHMARK(BM_LocationChange_OneIntf)->Unit(benchmark::kMicrosecond);

}  // namespace
