// Configuration adapter and egress timestamping machine on a populated
// chassis: 1,000 physical interfaces, 100 LAGs of 4 members, and a range of
// port data set counts (one in ten on a LAG), in mode 2 with slave and master
// ports alternating.
#include <benchmark/benchmark.h>

#include <vector>

#include "VyrPtp/EgressTimestampIntfSm.h"
#include "VyrPtp/HwConfigAdapterSm.h"

namespace {

using Wyx::IntfId;

struct Chassis {
   Pondo::Ptr<Ptp::HwConfig> hwConfig = Kiv::make<Ptp::HwConfig>("hwConfig");
   Pondo::Ptr<Ptp::HwConfig> adapted = Kiv::make<Ptp::HwConfig>("adapted");
   Pondo::Ptr<Vyr::VyrCommonSmData> vcsd = Kiv::make<Vyr::VyrCommonSmData>("vcsd");
   Pondo::Ptr<Ptp::Status> ptpStatus = Kiv::make<Ptp::Status>("ptpStatus");
   Pondo::Ptr<Hardware::Lag::Status> lagStatus = Kiv::make<Hardware::Lag::Status>("lag");
   Pondo::Ptr<Interface::AllEthPhyIntfStatusDir> intfStatus = Kiv::make<Interface::AllEthPhyIntfStatusDir>("ethPhy");
   std::vector<IntfId> phys, lags, nonMembers;
   Ptp::PortDSKey physicalPort;  // a port data set on a physical interface
   IntfId lagMember;             // a member of a LAG carrying a port data set

   explicit Chassis(int portDSCount) {
      hwConfig->ptpModeIs(Ptp::PtpMode(2));
      for (int i = 0; i < 1000; ++i) {
         IntfId intf(fmt::format("Ethernet{}/{}", i / 32 + 1, i % 32 + 1));
         phys.push_back(intf);
         vcsd->intfIs(intf, true);
         intfStatus->intfStatusIs(intf)->operStatusIs(Interface::OperStatus::up);
      }
      for (int l = 0; l < 100; ++l) {
         IntfId lag(fmt::format("Port-Channel{}", l + 1));
         lags.push_back(lag);
         hwConfig->intfConfigIs(lag)->enabledIs(true);
         Vyr::VyrLagPortList ports;
         for (int m = 0; m < 4; ++m) {
            IntfId member = phys[std::size_t(l * 4 + m)];
            ports.member.push_back(member);
            vcsd->portToLagIs(member, lag);
            lagStatus->programmedLagIs(lag)->memberIs(member);
            lagStatus->programmedMemberIs(member)->lagIntfIdIs(lag);
         }
         vcsd->lagToPortIs(lag, ports);
      }
      for (std::size_t i = 400; i < phys.size(); ++i) {
         nonMembers.push_back(phys[i]);
         hwConfig->intfConfigIs(phys[i])->enabledIs(true);
      }
      int onLags = 0, onPhys = 0;
      for (int i = 0; i < portDSCount; ++i) {
         const bool lag = i % 10 == 0;
         const int n = lag ? onLags++ : onPhys++;
         const std::size_t count = lag ? lags.size() : nonMembers.size();
         const IntfId intf = lag ? lags[std::size_t(n) % count] : nonMembers[std::size_t(n) % count];
         const Ptp::PortDSKey key(intf, std::uint8_t(std::size_t(n) / count), 1);
         Ptp::ClockIdentity::Bytes b{0x00, 0x1c, 0x73, 0xff, 0xfe, 0, std::uint8_t(i >> 8), std::uint8_t(i)};
         ptpStatus->portDSIs(key, Ptp::ClockIdentity(b))
             ->portStateIs(i % 2 ? Ptp::PortState::master : Ptp::PortState::slave);
      }
      physicalPort = Ptp::PortDSKey(nonMembers[0]);
      lagMember = phys[0];
   }

   Pondo::Ptr<VyrPtp::EgressTimestampIntfSm> egress(Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> out) const {
      return VyrPtp::egressTimestampIntfSmFactory(intfStatus, lagStatus, hwConfig, ptpStatus, std::move(out));
   }
};

void portDSRange(benchmark::internal::Benchmark* b) {
   b->Arg(250)->Arg(1000)->Arg(4000)->Unit(benchmark::kMicrosecond);
}

// Writes one output entry per physical port (400 LAG members, 600 others);
// port data sets play no part.
void BM_AdapterConstruction(benchmark::State& state) {
   Chassis c(1000);
   for (auto _ : state) {
      auto sm = VyrPtp::hwConfigAdapterSmFactory(c.hwConfig, c.vcsd, c.adapted);
      state.PauseTiming();
      sm = nullptr;  // teardown clears the output for the next round
      state.ResumeTiming();
   }
}
BENCHMARK(BM_AdapterConstruction)->Unit(benchmark::kMicrosecond);

void BM_EgressConstruction(benchmark::State& state) {
   Chassis c(int(state.range(0)));
   for (auto _ : state) {
      state.PauseTiming();
      auto out = VyrPtp::egressTimestampIntfStatusFactory("egress");
      state.ResumeTiming();
      auto sm = c.egress(out);
      state.PauseTiming();
      benchmark::DoNotOptimize(out->physicalIntfNeedsPolling().size());
      sm = nullptr;
      out = nullptr;
      state.ResumeTiming();
   }
}
BENCHMARK(BM_EgressConstruction)->Apply(portDSRange);

// A physical port going between slave (polled) and master (one-step).
void BM_PortStateChange(benchmark::State& state) {
   Chassis c(int(state.range(0)));
   auto sm = c.egress(VyrPtp::egressTimestampIntfStatusFactory("egress"));
   auto adapter = VyrPtp::hwConfigAdapterSmFactory(c.hwConfig, c.vcsd, c.adapted);
   Ptp::PortDS* ds = c.ptpStatus->portDS(c.physicalPort);
   bool slave = true;
   for (auto _ : state) {
      slave = !slave;
      ds->portStateIs(slave ? Ptp::PortState::slave : Ptp::PortState::master);
   }
   state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PortStateChange)->Apply(portDSRange)->Unit(benchmark::kNanosecond);

// A LAG member going down and up: every port data set is looked at.
void BM_OperStatusChange(benchmark::State& state) {
   Chassis c(int(state.range(0)));
   auto sm = c.egress(VyrPtp::egressTimestampIntfStatusFactory("egress"));
   Interface::EthPhyIntfStatus* status = c.intfStatus->intfStatus(c.lagMember);
   bool up = true;
   for (auto _ : state) {
      up = !up;
      status->operStatusIs(up ? Interface::OperStatus::up : Interface::OperStatus::down);
   }
   state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OperStatusChange)->Apply(portDSRange);

}  // namespace
