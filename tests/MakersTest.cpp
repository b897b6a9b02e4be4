// Every entity and machine type of the library is built by its exported
// factory and by its maker, which take the same parameters; a machine made
// either way is started alike. One test per source unit.
#include <gtest/gtest.h>

#include <array>
#include <utility>

#include "Asic/SimulatedChip.h"
#include "Platform/ProductAttributes.h"
#include "TraceCapture.h"
#include "VyrPtp/ActionTypes.h"
#include "VyrPtp/AggregatorSmNi.h"
#include "VyrPtp/AggregatorSmTypes.h"
#include "VyrPtp/EgressTimestampIntfSm.h"
#include "VyrPtp/HwConfigAdapterSm.h"
#include "VyrPtp/PlatformCfUpdateInfoTypes.h"
#include "VyrPtp/PlatformEgressTsInfoTypes.h"
#include "VyrPtp/ProgrammerAggregatorSm.h"
#include "VyrPtp/ProgrammerTypes.h"
#include "VyrPtp/VyrCfUpdateArmSm.h"
#include "VyrPtp/VyrEgressTsArmSm.h"
#include "VyrPtp/VyrHelperPtp.h"
#include "VyrPtp/VyrPtpHwStatusSm.h"

using Wyx::IntfId;

namespace {

const IntfId et1("Ethernet1/1");

// Builds one instance through the factory and one through the maker; the two
// must have the same parameters, hence the same function type.
template <class R, class... P, class... A>
std::array<R, 2> both(R (*factory)(P...), R (*maker)(P...), A&&... args) {
   std::array<R, 2> made{factory(args...), maker(args...)};
   EXPECT_TRUE(made[0] && made[1]);
   EXPECT_NE(made[0], made[1]);
   return made;
}

// Started as Kiv::make starts a machine: inputs bound, initialized, listening.
template <class Sm>
void expectStarted(const std::array<Pondo::Ptr<Sm>, 2>& made) {
   for (const auto& sm : made) {
      EXPECT_TRUE(sm->initialized());
      EXPECT_TRUE(sm->hasNotificationActive());
   }
}

TEST(Makers, ActionTypes) {
   using namespace VyrPtp::ActionTypes;
   for (const auto& a : both(&ptpActionsFactory, &PtpActionsIs, "actions")) EXPECT_EQ(a->name(), "actions");
   const PktType sync;
   for (const auto& a : both(&pktActionFactory, &PktActionIs, sync)) EXPECT_EQ(a->ptpPkt(), sync);
   for (const auto& a : both(&intfActionsFactory, &IntfActionsIs, et1)) EXPECT_EQ(a->intf(), et1);
}

TEST(Makers, AggregatorSmTypes) {
   for (const auto& s : both(&VyrPtp::ptpPipelineAggStateFactory, &VyrPtp::PtpPipelineAggStateIs)) {
      EXPECT_EQ(s->generation(), Pondo::Generation{});
   }
}

TEST(Makers, AggregatorSmNi) {
   using namespace VyrPtp;
   auto hw = Kiv::make<Ptp::HwStatus>("hw");
   auto intfInfoStatus = Programmer::ptpIntfInfoStatusFactory();
   auto pipeline = Programmer::ptpPipelineInfoStatusFactory();
   auto actions = ActionTypes::ptpActionsFactory("actions");
   const auto aggregators = both(&aggregatorSmNiFactory, &AggregatorSmNiIs, hw, intfInfoStatus, pipeline, actions);
   expectStarted(aggregators);
   for (const auto& sm : aggregators) EXPECT_TRUE(sm->pipelineInfoSm() && sm->pipelineAggState());

   auto aggState = ptpPipelineAggStateFactory();
   actions->generationIs({4, false});
   expectStarted(both(&pipelineInfoSmFactory, &PipelineInfoSmIs, pipeline, actions, aggState));
   EXPECT_EQ(aggState->generation(), (Pondo::Generation{4, true}));  // no reports: ready

   auto entry = hw->intfStatusIs(et1, Ptp::LinuxTsOptions());
   const auto intfMachines =
       both(&intfInfoSmFactory, &IntfInfoSmIs, Programmer::ptpIntfInfoFactory(et1), entry, actions);
   expectStarted(intfMachines);
   for (const auto& sm : intfMachines) EXPECT_EQ(sm->parent(), nullptr);
   EXPECT_TRUE(entry->intfReadyForTxPacket() && entry->intfReadyForRxPacket());
}

TEST(Makers, ProgrammerTypes) {
   using namespace VyrPtp::Programmer;
   for (const auto& i : both(&ptpProgrammerInfoFactory, &PtpProgrammerInfoIs, "CF_UPDATE")) {
      EXPECT_EQ(i->programmerName(), "CF_UPDATE");
   }
   for (const auto& i : both(&ptpIntfInfoFactory, &PtpIntfInfoIs, et1)) EXPECT_EQ(i->intfId(), et1);
   for (const auto& s : both(&ptpIntfInfoStatusFactory, &PtpIntfInfoStatusIs)) EXPECT_TRUE(s->intfInfo().empty());
   for (const auto& s : both(&ptpPipelineInfoStatusFactory, &PtpPipelineInfoStatusIs)) {
      EXPECT_TRUE(s->programmerInfo().empty());
   }
   for (const auto& i : both(&infoFactory, &InfoIs, "CF_UPDATE")) EXPECT_EQ(i->programmerType(), "CF_UPDATE");
   const ProgrammerIntfId key{"CF_UPDATE", et1};
   for (const auto& i : both(&intfInfoFactory, &IntfInfoIs, key)) EXPECT_EQ(i->intf(), key);
   for (const auto& s : both(&statusFactory, &StatusIs)) EXPECT_TRUE(s->intfStatus().empty());
}

TEST(Makers, ProgrammerAggregatorSm) {
   using namespace VyrPtp::Programmer;
   auto status = statusFactory();
   auto hw = Kiv::make<Ptp::HwStatus>("hw");
   hw->intfStatusIs(et1, Ptp::LinuxTsOptions());
   const auto aggregators = both(&aggregatorSmFactory, &AggregatorSmIs, status, hw);
   expectStarted(aggregators);
   EXPECT_TRUE(hw->intfStatus().empty());  // emptied at start

   auto record = intfInfoFactory({"A", et1});
   const auto nested = both(&nestedSm_IntfStatusFactory, &NestedSm_IntfStatusIs, record, aggregators[0].get());
   expectStarted(nested);
   for (const auto& sm : nested) EXPECT_EQ(sm->notifier(), record.get());
}

TEST(Makers, EgressTimestampIntfSm) {
   using namespace VyrPtp;
   TraceCapture traces{"EgressTimestampIntfSm"};
   for (const auto& s : both(&egressTimestampIntfStatusFactory, &EgressTimestampIntfStatusIs, "egress")) {
      EXPECT_EQ(s->name(), "egress");
   }
   // The one instance the machine writes needs no name.
   EXPECT_EQ(egressTimestampIntfStatusFactory()->name(), "egressTimestampIntfStatus");
   EXPECT_EQ(EgressTimestampIntfStatusIs()->name(), "egressTimestampIntfStatus");
   const Ptp::PortDSKey key(IntfId("Port-Channel1"));
   for (const auto& m : both(&lagPortDSMemberFactory, &LagPortDSMemberIs, key)) EXPECT_EQ(m->lagPortDSKey(), key);

   auto ethPhy = Kiv::make<Interface::AllEthPhyIntfStatusDir>("ethPhy");
   auto lag = Kiv::make<Hardware::Lag::Status>("lag");
   auto hwConfig = Kiv::make<Ptp::HwConfig>("hwConfig");
   auto ptpStatus = Kiv::make<Ptp::Status>("ptpStatus");
   auto out = egressTimestampIntfStatusFactory("out");
   hwConfig->ptpModeIs(Ptp::PtpMode(3));
   ethPhy->intfStatusIs(et1)->operStatusIs(Interface::OperStatus::up);
   hwConfig->intfConfigIs(et1)->enabledIs(true);
   ptpStatus->portDSIs(Ptp::PortDSKey(et1), Ptp::ClockIdentity());
   const auto machines =
       both(&egressTimestampIntfSmFactory, &EgressTimestampIntfSmIs, ethPhy, lag, hwConfig, ptpStatus, out);
   expectStarted(machines);
   for (const auto& sm : machines) EXPECT_TRUE(sm->enabledPortDS().contains(Ptp::PortDSKey(et1)));
   EXPECT_EQ(out->physicalIntfNeedsPolling().size(), 1u);

   // Nested reactors report to the machine given; binding runs the handler,
   // except for a programmed member.
   EgressTimestampIntfSm* owner = machines[0].get();
   traces.clear();
   expectStarted(both(&intfConfigSmFactory, &IntfConfigSmIs, et1, owner, hwConfig->intfConfig(et1)));
   EXPECT_EQ(traces.count(8, "handleEnabled"), 2u);
   expectStarted(both(&intfStatusSmFactory, &IntfStatusSmIs, et1, owner, Kiv::make<Interface::EthPhyIntfStatus>(et1)));
   EXPECT_EQ(traces.count(8, "handleOperStatus, intfId: Ethernet1/1"), 2u);
   expectStarted(
       both(&portDSSmFactory, &PortDSSmIs, Ptp::PortDSKey(et1), owner, ptpStatus->portDS(Ptp::PortDSKey(et1))));
   EXPECT_EQ(traces.count(8, "handlePortState, PortDSKey: " + fmt::format("{}", Ptp::PortDSKey(et1))), 2u);
   traces.clear();
   expectStarted(both(&programmedMemberSmFactory, &ProgrammedMemberSmIs, et1, owner,
                      Kiv::make<Hardware::Lag::ProgrammedMember>(et1)));
   EXPECT_TRUE(traces.records.empty());
   EXPECT_THROW(intfConfigSmFactory(et1, nullptr, hwConfig->intfConfig(et1)), Kiv::Error);
   EXPECT_THROW(PortDSSmIs(Ptp::PortDSKey(et1), owner, nullptr), Kiv::Error);
}

TEST(Makers, HwConfigAdapterSm) {
   using namespace VyrPtp;
   auto input = Kiv::make<Ptp::HwConfig>("input");
   auto vcsd = Kiv::make<Vyr::VyrCommonSmData>("vcsd");
   auto output = Kiv::make<Ptp::HwConfig>("output");
   input->forwardPtpV1Is(true);
   const auto adapters = both(&hwConfigAdapterSmFactory, &HwConfigAdapterSmIs, input, vcsd, output);
   expectStarted(adapters);
   EXPECT_TRUE(output->forwardPtpV1());

   // A nested machine re-derives the port's output entry as it starts.
   auto config = input->intfConfigIs(et1);
   output->intfConfigDelAll();
   const auto nested = both(&nestedSm_PtpHwIntfConfigFactory, &NestedSm_PtpHwIntfConfigIs, et1, adapters[0].get(),
                            Pondo::Ptr<const Ptp::HwIntfConfig>(config));
   expectStarted(nested);
   EXPECT_NE(output->intfConfig(et1), nullptr);
   EXPECT_THROW(NestedSm_PtpHwIntfConfigIs(et1, nullptr, config), Kiv::Error);
}

TEST(Makers, PlatformEgressTsInfoTypes) {
   using namespace VyrPtp;
   for (const auto& i : both(&platformEgressTsInfoFactory, &PlatformEgressTsInfoIs)) {
      EXPECT_TRUE(i->logicalFapInfo().empty());
   }
   auto chipInfo = Kiv::make<Asic::ChipInfo>(1, "chip1", Kiv::make<Asic::SimulatedChip>(8));
   for (const auto& f :
        both(&platformEgressTsLogicalFapInfoFactory, &PlatformEgressTsLogicalFapInfoIs, 7, 3, chipInfo)) {
      EXPECT_EQ(f->logicalFapId(), 7);
      EXPECT_EQ(f->asicTimeId(), 3);
      EXPECT_EQ(f->chipInfoGif(), chipInfo->gif());
   }
   for (const auto& t : both(&logicalFapArmTablesFactory, &LogicalFapArmTablesIs, 7)) EXPECT_EQ(t->logicalFapId(), 7);
   for (const auto& t : both(&armTablesFactory, &ArmTablesIs)) EXPECT_TRUE(t->logicalFapTable().empty());
}

TEST(Makers, VyrHelperPtp) {
   using namespace VyrPtp;
   for (const auto& c : both(&conversionFactory, &ConversionIs, "12a", "a")) EXPECT_FALSE(c->valid());
   auto syncStatus = Kiv::make<PtpTimeSync::Status>("syncStatus");
   auto syncConfig = Kiv::make<PtpTimeSync::Config>("syncConfig");
   for (const auto& f : both(&timestampFetcherFactory, &TimestampFetcherIs, syncStatus, syncConfig)) {
      EXPECT_EQ(f->hpxNegIncNumReadRetries(), 1);
   }
   // Paths that do not exist: the machines stay unready.
   const auto configs = both(&asicTimestampFileConfigFactory, &AsicTimestampFileConfigIs, "/nonexistent/ts",
                             "/nonexistent/cfg", false, false);
   for (const auto& c : configs) EXPECT_EQ(c->timestampPath(), "/nonexistent/ts");
   const auto statuses = both(&asicTimestampFileStatusFactory, &AsicTimestampFileStatusIs);
   for (const auto& s : statuses) EXPECT_EQ(s->timestampFd(), -1);
   for (const auto& f : both(&asicTimestampFetcherFactory, &AsicTimestampFetcherIs, configs[0],
                             Pondo::Ptr<const AsicTimestampFileStatus>(statuses[0]))) {
      EXPECT_FALSE(f->timestampReady());
   }
   const auto machines = both(&asicTimestampFileSmFactory, &AsicTimestampFileSmIs,
                              Pondo::Ptr<const AsicTimestampFileConfig>(configs[0]), statuses[0], nullptr);
   expectStarted(machines);
   for (const auto& sm : machines) EXPECT_EQ(sm->timeMin(), Kiv::kNever);  // no clock, no polling

   const auto wrappers = both(&asicTimestampFetcherWrapperFactory, &AsicTimestampFetcherWrapperIs, 200, false, false);
   expectStarted(wrappers);
   for (const auto& w : wrappers) EXPECT_TRUE(w->fileSm() && w->timestampFetcher());
}

TEST(Makers, VyrEgressTsArmSm) {
   using namespace VyrPtp;
   Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(Platform::Attributes{false, false}));
   auto location = Kiv::make<PtpTimestampLocationConfig>("location");
   auto input = egressTimestampIntfStatusFactory("input");
   auto output = egressTimestampIntfStatusFactory("output");
   input->physicalIntfNeedsPollingIs(et1);
   expectStarted(both(&vyrEgressTsPollingAdapterSmFactory, &VyrEgressTsPollingAdapterSmIs, location,
                      Pondo::Ptr<const EgressTimestampIntfStatus>(input), output));
   EXPECT_TRUE(output->physicalIntfNeedsPolling().contains(et1));

   auto tsInfo = platformEgressTsInfoFactory();
   auto chipInfo = Kiv::make<Asic::ChipInfo>(1, "chip1", Kiv::make<Asic::SimulatedChip>(8));
   auto fap = tsInfo->logicalFapInfoIs(1, 1, chipInfo);
   auto syncConfig = Kiv::make<PtpTimeSync::Config>("syncConfig");
   auto syncStatus = Kiv::make<PtpTimeSync::Status>("syncStatus");
   auto em = Kiv::make<Statebase::EntityManager>();
   auto glint = Kiv::make<Ptp::HwTimestampStatus>();
   {
      const auto aggregates =
          both(&vyrEgressTsArmAggregateSmFactory, &VyrEgressTsArmAggregateSmIs,
               Pondo::Ptr<const EgressTimestampIntfStatus>(output), tsInfo, syncConfig, syncStatus, em, glint);
      expectStarted(aggregates);
      for (const auto& sm : aggregates) EXPECT_NE(sm->logicalFapSm(1), nullptr);

      auto fetcher = timestampFetcherFactory(syncStatus, syncConfig);
      expectStarted(both(&vyrEgressTsArmLogicalFapSmFactory, &VyrEgressTsArmLogicalFapSmIs, 1,
                         Pondo::Ptr<const EgressTimestampIntfStatus>(output), fap, fetcher, em, glint,
                         aggregates[0]->timerWheel()));
   }
   Platform::productAttributesIs(nullptr);
}

TEST(Makers, PlatformCfUpdateInfoTypes) {
   using namespace CorrectionField;
   for (const auto& i : both(&platformCfUpdateInfoFactory, &PlatformCfUpdateInfoIs)) {
      EXPECT_TRUE(i->logicalFapInfo().empty());
   }
   auto chipInfo = Kiv::make<Asic::ChipInfo>(1, "chip1", Kiv::make<Asic::SimulatedChip>(8));
   for (const auto& f : both(&platformCfUpdateLogicalFapInfoFactory, &PlatformCfUpdateLogicalFapInfoIs, 7,
                             Pondo::Ptr<const Asic::GenericIf>(chipInfo->gif()))) {
      EXPECT_EQ(f->logicalFapId(), 7);
      EXPECT_EQ(f->chipInfoGif(), chipInfo->gif());
   }
   for (const auto& i : both(&platformCfUpdateIntfInfoFactory, &PlatformCfUpdateIntfInfoIs, et1)) {
      EXPECT_EQ(i->intfId(), et1);
   }
   for (const auto& s : both(&cfUpdateProgrammedStatusFactory, &CfUpdateProgrammedStatusIs, 7)) {
      EXPECT_TRUE(s->programmedIntf().empty());
   }
}

TEST(Makers, VyrCfUpdateArmSm) {
   using namespace CorrectionField;
   auto chipInfo = Kiv::make<Asic::ChipInfo>(1, "chip1", Kiv::make<Asic::SimulatedChip>(8));
   auto cfInfo = platformCfUpdateInfoFactory();
   auto fap = cfInfo->logicalFapInfoIs(1, chipInfo->gif());
   fap->intfInfoIs(et1);
   auto em = Kiv::make<Statebase::EntityManager>();
   auto programmerStatus = VyrPtp::Programmer::statusFactory();
   const auto machines = both(&vyrCfUpdateArmSmFactory, &VyrCfUpdateArmSmIs, cfInfo, em, programmerStatus);
   expectStarted(machines);
   for (const auto& sm : machines) EXPECT_NE(sm->logicalFapSm(1), nullptr);

   const auto status = cfUpdateProgrammedStatusFactory(1);
   const auto chipMachines = both(&vyrCfUpdateLogicalFapArmSmFactory, &VyrCfUpdateLogicalFapArmSmIs, fap, em, status);
   expectStarted(chipMachines);
   for (const auto& sm : chipMachines) EXPECT_NE(sm->intfInfo(et1), nullptr);

   // Nested machines report to the owner given: binding programs the interface.
   auto record = platformCfUpdateIntfInfoFactory(et1);
   const auto nested = both(&nestedSm_IntfInfoFactory, &NestedSm_IntfInfoIs, record, chipMachines[0].get());
   expectStarted(nested);
   for (const auto& sm : nested) {
      EXPECT_EQ(sm->intfInfo(), record.get());
      EXPECT_EQ(sm->parent(), chipMachines[0].get());
   }
   expectStarted(both(&nestedSm_LogicalFapStatusWatcherFactory, &NestedSm_LogicalFapStatusWatcherIs,
                      Pondo::Ptr<const CfUpdateProgrammedStatus>(status), machines[0].get()));
}

TEST(Makers, VyrPtpHwStatusSm) {
   using namespace VyrPtp::Location;
   Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(Platform::Attributes{false, false}));
   {
      auto owner = vyrPtpHwStatusSmFactory(
          Kiv::make<VyrPtp::UnitPort::PlatformUnitPortInfo>("unit"), Kiv::make<Ptp::HwConfig>("hwConfig"),
          Kiv::make<VyrPtp::PtpTimestampLocationConfig>("location"), Kiv::make<Kiv::Dir>("islands"),
          Kiv::make<Kiv::Dir>("timeSync"), true, Kiv::make<Ptp::HwStatus>("hwStatus"));
      auto timeSync = Kiv::make<PtpTimeSync::HwStatus>("Linecard3");
      const auto nested = both(&nestedSm_TimeSyncHwStatusFactory, &NestedSm_TimeSyncHwStatusIs,
                               Pondo::Ptr<const PtpTimeSync::HwStatus>(timeSync), owner.get(), "Linecard3");
      expectStarted(nested);
      for (const auto& sm : nested) {
         EXPECT_EQ(sm->notifier(), timeSync.get());
         EXPECT_EQ(sm->ownerSm(), owner.get());
      }
   }
   Platform::productAttributesIs(nullptr);
}

}  // namespace

// What a machine offers an agent is public, the framework's hooks included.
TEST(Operations, HooksAreCallable) {
   static_assert(requires(VyrPtp::AggregatorSmNi & m) { m.handleInitialized(); });
   static_assert(requires(VyrPtp::Programmer::AggregatorSm & m) { m.handleInitialized(); });
   static_assert(requires(CorrectionField::VyrCfUpdateLogicalFapArmSm & m) {
      m.handleInitialized();
      m.onConstruct();
      m.onDestruct();
   });
   static_assert(requires(VyrPtp::AsicTimestampFetcherWrapper & m) { m.handleInitialized(); });
   static_assert(requires(VyrPtp::VyrEgressTsArmAggregateSm & m) { m.handleInitialized(); });
   static_assert(requires(VyrPtp::EgressTimestampIntfSm::PortDSSm & m) { m.handlePortState(); });
   using namespace VyrPtp;
   auto sm = aggregatorSmNiFactory(Kiv::make<Ptp::HwStatus>("hw"), Programmer::ptpIntfInfoStatusFactory(),
                                   Programmer::ptpPipelineInfoStatusFactory(), ActionTypes::ptpActionsFactory("a"));
   const auto state = sm->pipelineAggState();
   sm->handleInitialized();  // again: the aggregate state is kept
   EXPECT_EQ(sm->pipelineAggState(), state);
   EXPECT_NE(sm->pipelineInfoSm(), nullptr);
}
