#include <gtest/gtest.h>

#include "ChangeRecorder.h"
#include "VyrPtp/ProgrammerTypes.h"

using namespace VyrPtp::Programmer;
using Wyx::IntfId;

namespace {

TEST(ProgrammerIntfId, SameInterfaceOtherTypeIsAnotherKeySortedByTypeFirst) {
   const ProgrammerIntfId cfEt2{"CF_UPDATE", IntfId("Ethernet2/1")};
   const ProgrammerIntfId ingEt1{"INGRESS", IntfId("Ethernet1/1")};
   const ProgrammerIntfId ingEt2{"INGRESS", IntfId("Ethernet2/1")};
   EXPECT_NE(cfEt2, ingEt2);
   EXPECT_LT(cfEt2, ingEt1);  // the type decides before the interface
   EXPECT_LT(ingEt1, ingEt2);
   EXPECT_NE(std::hash<ProgrammerIntfId>{}(cfEt2), std::hash<ProgrammerIntfId>{}(ingEt2));

   auto status = statusFactory();
   status->intfStatusIs(ingEt2);
   status->intfStatusIs(cfEt2);
   status->intfStatusIs(ingEt1);
   std::vector<ProgrammerIntfId> order;
   for (const auto& [k, info] : status->intfStatus()) order.push_back(k);
   EXPECT_EQ(order, (std::vector<ProgrammerIntfId>{cfEt2, ingEt1, ingEt2}));
}

TEST(ProgrammerIntfId, PrintsAndParses) {
   const ProgrammerIntfId k{"CF_UPDATE", IntfId("Ethernet3/1")};
   EXPECT_EQ(fmt::format("{}", k), "programmerType CF_UPDATE, intfId Ethernet3/1");
   EXPECT_EQ(ProgrammerIntfId::fromString("programmerType CF_UPDATE, intfId Ethernet3/1"), k);
   EXPECT_EQ(ProgrammerIntfId::fromString("programmerType CF_UPDATE, intfId Et3/1"), k);
   // Programmer types are free text.
   const ProgrammerIntfId odd{"a, b", IntfId("Ethernet1/1")};
   EXPECT_EQ(ProgrammerIntfId::fromString(odd.toString()), odd);
   const ProgrammerIntfId none{"X", IntfId()};
   EXPECT_EQ(ProgrammerIntfId::fromString(none.toString()), none);
}

TEST(ProgrammerIntfId, ParsingNamesTheBadField) {
   auto messageOf = [](std::string_view text) {
      try {
         ProgrammerIntfId::fromString(text);
      } catch (const Pondo::RangeError& e) {
         return std::string(e.what());
      }
      return std::string("no error");
   };
   EXPECT_EQ(messageOf("type X, intfId Ethernet1/1"),
             "bad programmerType in ProgrammerIntfId text 'type X, intfId Ethernet1/1'");
   EXPECT_EQ(messageOf("programmerType X"), "bad intfId in ProgrammerIntfId text 'programmerType X'");
   EXPECT_EQ(messageOf("programmerType X, intfId Bogus1"),
             "bad intfId in ProgrammerIntfId text 'programmerType X, intfId Bogus1'");
}

template <class E>
void expectGenerationPublishesOnlyRealChanges(const Pondo::Ptr<E>& e) {
   ChangeRecorder changes(e);
   e->generationIs({0, false});
   EXPECT_TRUE(changes.entries.empty());
   e->generationIs({4, true});
   e->generationIs({4, true});
   e->generationIs({4, false});  // the flag alone is a change
   EXPECT_EQ(changes.fieldsOf(e.get()), (std::vector<Kiv::FieldId>{E::F::generation, E::F::generation}));
}

TEST(ProgrammerTypes, GenerationPublishesOnlyRealChanges) {
   expectGenerationPublishesOnlyRealChanges(ptpProgrammerInfoFactory("CF_UPDATE"));
   expectGenerationPublishesOnlyRealChanges(infoFactory("CF_UPDATE"));
   expectGenerationPublishesOnlyRealChanges(intfInfoFactory({"CF_UPDATE", IntfId("Ethernet1/1")}));
}

TEST(ProgrammerTypes, FactoriesAndCollectionsKeepTheirKeys) {
   EXPECT_EQ(ptpProgrammerInfoFactory("p")->programmerName(), "p");
   EXPECT_EQ(ptpIntfInfoFactory(IntfId("Ethernet1/1"))->intfId(), IntfId("Ethernet1/1"));
   EXPECT_EQ(infoFactory("t")->programmerType(), "t");
   EXPECT_FALSE(infoFactory("t")->hwProgrammed());
   EXPECT_EQ(intfInfoFactory({"t", IntfId("Ethernet1/1")})->intf(), (ProgrammerIntfId{"t", IntfId("Ethernet1/1")}));

   auto intfs = ptpIntfInfoStatusFactory();
   auto et1 = intfs->intfInfoIs(IntfId("Ethernet1/1"));
   EXPECT_EQ(intfs->intfInfoIs(IntfId("Ethernet1/1")), et1);
   et1->programmerInfoIs("a");
   et1->programmerInfoIs("b");
   EXPECT_EQ(et1->programmerInfo().size(), 2u);
   EXPECT_EQ(et1->programmerInfoDel("a")->programmerName(), "a");
   EXPECT_EQ(et1->programmerInfo("a"), nullptr);
   auto pipeline = ptpPipelineInfoStatusFactory();
   pipeline->programmerInfoIs("a")->generationIs({1, true});
   EXPECT_EQ(pipeline->programmerInfo("a")->generation(), (Pondo::Generation{1, true}));
   pipeline->programmerInfoDelAll();
   EXPECT_TRUE(pipeline->programmerInfo().empty());
}

TEST(ProgrammerTypes, ReportChangesReachTheWatchersOfTheOwners) {
   auto intfs = ptpIntfInfoStatusFactory();
   auto report = intfs->intfInfoIs(IntfId("Ethernet1/1"))->programmerInfoIs("CF_UPDATE");
   ChangeRecorder changes(intfs);
   report->generationIs({1, true});
   ASSERT_EQ(changes.entries.size(), 1u);
   EXPECT_EQ(changes.entries[0],
             (ChangeRecorder::Entry{report.get(), PtpProgrammerInfo::F::generation, Kiv::Change::Kind::attribute}));
}

TEST(ProgrammerTypes, ActiveProgrammersAreASet) {
   auto status = statusFactory();
   ChangeRecorder changes(status);
   status->programmerActiveIs("CF_UPDATE");
   status->programmerActiveIs("CF_UPDATE");
   EXPECT_TRUE(status->programmerActive("CF_UPDATE"));
   EXPECT_TRUE(status->programmerActiveDel("CF_UPDATE"));
   EXPECT_FALSE(status->programmerActiveDel("CF_UPDATE"));
   EXPECT_EQ(changes.fieldsOf(status.get()),
             (std::vector<Kiv::FieldId>{Status::F::programmerActive, Status::F::programmerActive}));
}

TEST(ProgrammerTypes, StaticRecordRecreatedWithOtherOptionsIsAnErrorNamingTheAttribute) {
   auto status = statusFactory();
   auto s = status->staticHwIntfStatusIs(IntfId("Ethernet1/1"), Ptp::LinuxTsOptions(0x5));
   EXPECT_EQ(status->staticHwIntfStatusIs(IntfId("Ethernet1/1"), Ptp::LinuxTsOptions(0x5)), s);
   try {
      status->staticHwIntfStatusIs(IntfId("Ethernet1/1"), Ptp::LinuxTsOptions(0x7));
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_STREQ(e.what(), "'staticHwIntfStatus' exists with other fixed arguments");
   }
}

TEST(PtpHwStatus, EntriesKeepTheirOptionsAndPublishOnlyRealChanges) {
   auto hw = Kiv::make<Ptp::HwStatus>("hw");
   auto e = hw->intfStatusIs(IntfId("Ethernet1/1"), Ptp::LinuxTsOptions(0x3));
   EXPECT_EQ(e->intfId(), IntfId("Ethernet1/1"));
   EXPECT_EQ(e->linuxTsOptions(), Ptp::LinuxTsOptions(0x3));
   EXPECT_FALSE(e->intfReadyForTxPacket());
   EXPECT_FALSE(e->intfReadyForRxPacket());
   EXPECT_THROW(hw->intfStatusIs(IntfId("Ethernet1/1"), Ptp::LinuxTsOptions(0)), Kiv::Error);

   ChangeRecorder changes(hw);
   e->intfReadyForTxPacketIs(false);
   e->timestampMultiplierIs(0);
   EXPECT_TRUE(changes.entries.empty());
   e->intfReadyForTxPacketIs(true);
   e->egressTimestampExpiryIntervalIs(Pondo::Duration::milliseconds(50));
   EXPECT_EQ(changes.fieldsOf(e.get()),
             (std::vector<Kiv::FieldId>{Ptp::HwIntfStatus::F::intfReadyForTxPacket,
                                        Ptp::HwIntfStatus::F::egressTimestampExpiryInterval}));
   EXPECT_EQ(fmt::format("{}", e->linuxTsOptions()), "0x3");
}

}  // namespace
