// A PTP agent in miniature, on the simulated platform: one forwarding chip
// with two interfaces and an FPGA time source. It creates the readiness
// aggregator and the egress timestamp collection through the library's
// factories, lets a hardware programmer report its work, and sends PTP event
// messages out of both interfaces for one second of virtual time, printing
// the readiness flags and every timestamp the library publishes.
#include <fmt/format.h>

#include "Asic/SimulatedChip.h"
#include "Hpx/SimHam.h"
#include "Platform/ProductAttributes.h"
#include "VyrPtp/AggregatorSmNi.h"
#include "VyrPtp/VyrEgressTsArmSm.h"

namespace {

using Wyx::IntfId;

const IntfId kIntfs[] = {IntfId("Ethernet1/1"), IntfId("Ethernet1/2")};
constexpr const char* kProgrammer = "example-programmer";

// Prints each egress timestamp as it is published.
struct TimestampPrinter final : Pondo::Subscriber {
   void onChange(const Pondo::Change& c) override {
      if (!c.newValue) return;
      const auto& t = c.newAs<Ptp::IngressEgressTimes>();
      fmt::print("[{:.3f}] published {} sequence {} egress time {} ns\n", Kiv::currentTime(), t.intfId, t.sequenceId,
                 t.egressTime);
   }
};

void printReadiness(const Ptp::HwStatus& hw) {
   for (IntfId i : kIntfs) {
      const Ptp::HwIntfStatus* s = hw.intfStatus(i);
      fmt::print("[{:.3f}] {} ready for Tx packets: {}, for Rx packets: {}\n", Kiv::currentTime(), i,
                 s->intfReadyForTxPacket(), s->intfReadyForRxPacket());
   }
}

}  // namespace

int main() {
   Kiv::ActivityManager& loop = Kiv::activityManager();
   loop.virtualTimeIs(0, 1.7e9);

   // The platform: chip time comes from the system controller FPGA's counter.
   Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(Platform::Attributes{}));
   auto timeSyncConfig = Kiv::make<PtpTimeSync::Config>("timeSyncConfig");
   auto timeSyncStatus = Kiv::make<PtpTimeSync::Status>("timeSyncStatus");
   timeSyncConfig->hpxIs("hpx1")->hamIs(Kiv::make<Hpx::SimHam>("hpx1"));
   timeSyncStatus->activeHpxIs("hpx1");
   auto chip = Kiv::make<Asic::SimulatedChip>();
   auto tsInfo = VyrPtp::platformEgressTsInfoFactory();
   auto fap = tsInfo->logicalFapInfoIs(1, 1, Kiv::make<Asic::ChipInfo>(1, "chip1", chip));
   const Asic::EgressTsSwTableKey slots[] = {{0, Asic::PortType::network}, {1, Asic::PortType::network}};
   for (int n = 0; n < 2; ++n) fap->intfInfoIs({kIntfs[n], 32, slots[n]});

   // Readiness: the protocol side's actions, the programmer's reports, and the
   // hardware status entries the aggregator fills.
   auto actions = VyrPtp::ActionTypes::ptpActionsFactory("ptpActions");
   auto intfInfoStatus = VyrPtp::Programmer::ptpIntfInfoStatusFactory();
   auto hwStatus = Kiv::make<Ptp::HwStatus>("hwStatus");
   for (IntfId i : kIntfs) {
      intfInfoStatus->intfInfoIs(i)->programmerInfoIs(kProgrammer);
      hwStatus->intfStatusIs(i, Ptp::LinuxTsOptions());
   }
   auto readiness = VyrPtp::aggregatorSmNiFactory(hwStatus, intfInfoStatus,
                                                  VyrPtp::Programmer::ptpPipelineInfoStatusFactory(), actions);

   // Egress timestamps: both interfaces need polling; none is timestamped at a PHY.
   auto decisions = VyrPtp::egressTimestampIntfStatusFactory("egressTimestampIntfStatus");
   auto chipPolling = VyrPtp::egressTimestampIntfStatusFactory("chipEgressTimestampIntfStatus");
   auto glint = Kiv::make<Ptp::HwTimestampStatus>();
   TimestampPrinter printer;
   glint->subscriberAdd(&printer);
   auto adapter = VyrPtp::vyrEgressTsPollingAdapterSmFactory(
       Kiv::make<VyrPtp::PtpTimestampLocationConfig>("externalPhyTimestampLocationConfig"), decisions, chipPolling);
   auto collection = VyrPtp::vyrEgressTsArmAggregateSmFactory(chipPolling, tsInfo, timeSyncConfig, timeSyncStatus,
                                                              Kiv::make<Statebase::EntityManager>(), glint);
   for (IntfId i : kIntfs) decisions->physicalIntfNeedsPollingIs(i);

   // The protocol side asks for generation 1; the programmer reports it done
   // 100 ms later.
   actions->generationIs({1, true});
   Kiv::ClockTimer programmer(loop.clock(), [&] {
      for (IntfId i : kIntfs) intfInfoStatus->intfInfo(i)->programmerInfo(kProgrammer)->generationIs({1, true});
   });
   programmer.timeMinIs(loop.currentTime() + 0.1);

   // Each interface sends a PTP event message every 250 ms from 0.2 s on.
   std::uint16_t sequenceId = 0;
   Kiv::ClockTimer traffic(loop.clock(), [&] {
      ++sequenceId;
      for (const auto& slot : slots) chip->send(slot, sequenceId);
      traffic.timeMinIs(loop.currentTime() + 0.25);
   });
   traffic.timeMinIs(loop.currentTime() + 0.2);

   loop.runReady();
   printReadiness(*hwStatus);
   loop.runUntil(0.15);
   printReadiness(*hwStatus);
   loop.runUntil(1.0);
   glint->subscriberRemove(&printer);
   fmt::print("Ran {:.3f} s of virtual time: {} messages per interface sent.\n", loop.currentTime(), sequenceId);
   return 0;
}
