// The platform's correction-field records: attribute order and defaults,
// setters that publish only real changes, the collections, and the
// simulation-only way of adding a logical FAP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "Asic/SimulatedChip.h"
#include "ChangeRecorder.h"
#include "VyrPtp/PlatformCfUpdateInfoTypes.h"

using namespace CorrectionField;
using Wyx::IntfId;

namespace {

const IntfId et1("Ethernet1/1"), et2("Ethernet1/2");

TEST(PlatformCfUpdateIntfInfo, AttributesInDeclarationOrderWithZeroDefaults) {
   using F = PlatformCfUpdateIntfInfo::F;
   EXPECT_EQ(F::intfId, 0);
   EXPECT_EQ(F::swTableIndex, 1);
   EXPECT_EQ(F::cfUpdateBits, 2);
   EXPECT_EQ(F::ingressCfUpdateEnable, 3);
   EXPECT_EQ(F::egressCfUpdateMode, 4);
   EXPECT_EQ(F::egressDropInvalid1588Pkt, 5);
   EXPECT_EQ(F::twoStepTsCfUpdateEnable, 6);
   EXPECT_EQ(F::ingressForceItsSignFromTs, 7);
   EXPECT_EQ(F::generation, 8);
   auto info = platformCfUpdateIntfInfoFactory(et1);
   EXPECT_EQ(info->intfId(), et1);
   EXPECT_EQ(info->swTableIndex(), 0u);
   EXPECT_EQ(info->cfUpdateBits(), 0);
   EXPECT_FALSE(info->ingressCfUpdateEnable());
   EXPECT_EQ(info->egressCfUpdateMode(), EgressCFUpdateMode::none);
   EXPECT_FALSE(info->egressDropInvalid1588Pkt());
   EXPECT_FALSE(info->twoStepTsCfUpdateEnable());
   EXPECT_FALSE(info->ingressForceItsSignFromTs());
   EXPECT_EQ(info->generation(), Pondo::Generation());
   EXPECT_EQ(sizeof(EgressCFUpdateMode), 1u);
}

TEST(PlatformCfUpdateIntfInfo, SettersPublishOnlyRealChanges) {
   auto info = PlatformCfUpdateIntfInfoIs(et1);
   ChangeRecorder rec(info);
   info->swTableIndexIs(7);
   info->swTableIndexIs(7);
   info->cfUpdateBitsIs(3);
   info->ingressCfUpdateEnableIs(true);
   info->egressCfUpdateModeIs(EgressCFUpdateMode::residenceTime);
   info->egressDropInvalid1588PktIs(true);
   info->twoStepTsCfUpdateEnableIs(true);
   info->ingressForceItsSignFromTsIs(true);
   info->ingressForceItsSignFromTsIs(true);
   info->generationIs({1, true});
   info->generationIs({1, true});
   info->generationIs({1, false});  // the flag alone is a change
   using F = PlatformCfUpdateIntfInfo::F;
   EXPECT_EQ(
       rec.fieldsOf(info.get()),
       (std::vector<Pondo::FieldId>{F::swTableIndex, F::cfUpdateBits, F::ingressCfUpdateEnable, F::egressCfUpdateMode,
                                    F::egressDropInvalid1588Pkt, F::twoStepTsCfUpdateEnable,
                                    F::ingressForceItsSignFromTs, F::generation, F::generation}));
}

TEST(PlatformCfUpdateInfo, LogicalFapsAndTheirInterfacesAreKeyedCollections) {
   auto device = Kiv::make<Asic::SimulatedChip>();
   auto chip = Kiv::make<Asic::ChipInfo>(1, "chip1", device);
   auto info = PlatformCfUpdateInfoIs();
   ChangeRecorder rec(info);
   auto fap = info->logicalFapInfoIs(1, chip->gif());
   EXPECT_EQ(info->logicalFapInfoIs(1, chip->gif()), fap);
   EXPECT_EQ(fap->logicalFapId(), 1);
   EXPECT_EQ(fap->chipInfoGif(), chip->gif());
   EXPECT_THROW(info->logicalFapInfoIs(1, nullptr), Kiv::Error);

   auto i1 = fap->intfInfoIs(et1);
   EXPECT_EQ(fap->intfInfoIs(et1), i1);
   fap->intfInfoIs(et2);
   EXPECT_EQ(fap->intfInfo(et1), i1.get());
   EXPECT_EQ(fap->intfInfo().size(), 2u);
   EXPECT_EQ(fap->intfInfoDel(et1), i1);
   EXPECT_EQ(fap->intfInfo(et1), nullptr);
   fap->intfInfoDelAll();
   EXPECT_TRUE(fap->intfInfo().empty());
   EXPECT_EQ(info->logicalFapInfoDel(1), fap);
   EXPECT_EQ(info->logicalFapInfoDel(1), nullptr);
   info->logicalFapInfoIs(2, nullptr);  // taken; the chip's programmer refuses it
   info->logicalFapInfoDelAll();
   EXPECT_TRUE(info->logicalFapInfo().empty());

   using F = PlatformCfUpdateInfo::F;
   EXPECT_EQ(rec.fieldsOf(info.get()),
             (std::vector<Pondo::FieldId>{F::logicalFapInfo, F::logicalFapInfo, F::logicalFapInfo, F::logicalFapInfo}));
   // Interfaces added and removed inside a logical FAP reach the whole record's subscribers.
   EXPECT_EQ(rec.fieldsOf(fap.get()).size(), 4u);
}

TEST(PlatformCfUpdateLogicalFapInfo, FactoryMakesAFreeRecord) {
   auto fap = PlatformCfUpdateLogicalFapInfoIs(4, nullptr);
   EXPECT_EQ(platformCfUpdateLogicalFapInfoFactory(4, nullptr)->logicalFapId(), 4);
   EXPECT_EQ(fap->logicalFapId(), 4);
   EXPECT_EQ(fap->chipInfoGif(), nullptr);
}

TEST(CfUpdateProgrammedStatus, ProgrammedIntfIsASetOfInterfaces) {
   auto status = CfUpdateProgrammedStatusIs(3);
   EXPECT_EQ(cfUpdateProgrammedStatusFactory(3)->logicalFapId(), 3);
   ChangeRecorder rec(status);
   status->programmedIntfIs(et1);
   status->programmedIntfIs(et1);
   status->programmedIntfIs(et2);
   EXPECT_TRUE(status->programmedIntf(et1));
   EXPECT_TRUE(status->programmedIntfDel(et1));
   EXPECT_FALSE(status->programmedIntfDel(et1));
   status->programmedIntfDelAll();
   EXPECT_TRUE(status->programmedIntf().empty());
   EXPECT_EQ(rec.entries.size(), 4u);  // two additions, two removals
}

struct AddLogicalFapInfo : ::testing::Test {
   void TearDown() override { ::unsetenv("SIMULATION_VMID"); }
   Pondo::Ptr<Asic::SimulatedChip> device = Kiv::make<Asic::SimulatedChip>();
   Pondo::Ptr<Asic::ChipInfo> chip = Kiv::make<Asic::ChipInfo>(5, "chip5", device);
   Pondo::Ptr<PlatformCfUpdateInfo> info = platformCfUpdateInfoFactory();
};

TEST_F(AddLogicalFapInfo, TakesTheChipsGenericInterfaceInASimulation) {
   ::setenv("SIMULATION_VMID", "1", 1);
   auto fap = info->addLogicalFapInfo(5, chip);
   ASSERT_EQ(info->logicalFapInfo(5), fap.get());
   EXPECT_EQ(fap->chipInfoGif(), chip->gif());
   EXPECT_THROW(info->addLogicalFapInfo(6, nullptr), Kiv::Error);
}

TEST_F(AddLogicalFapInfo, StopsOutsideASimulation) {
   ::unsetenv("SIMULATION_VMID");
   EXPECT_DEATH(info->addLogicalFapInfo(5, chip),
                ::testing::HasSubstr(
                    "Assertion failed: getenv( \"SIMULATION_VMID\" ) && \"This should only be called in testing!\" ("));
}

TEST(EgressCFUpdateMode, ValuesHaveNames) {
   EXPECT_EQ(fmt::format("{}", EgressCFUpdateMode::none), "none");
   EXPECT_EQ(Pondo::enumFromName<EgressCFUpdateMode>("egressTimestamp"), EgressCFUpdateMode::egressTimestamp);
   EXPECT_EQ(std::uint8_t(EgressCFUpdateMode::none), 0);
}

TEST(CorrectionFieldNamespace, IsAlsoReachedThroughTheLibrarysNamespace) {
   EXPECT_EQ(VyrPtp::CorrectionField::platformCfUpdateInfoFactory()->logicalFapInfo().size(), 0u);
}

}  // namespace
