#include <gtest/gtest.h>

#include "Asic/SimulatedChip.h"
#include "Kiv/Activity.h"

using namespace Asic;

namespace {

class EgressTimestampTableTest : public ::testing::Test {
  protected:
   void SetUp() override { Kiv::activityManager().virtualTimeIs(0, 1'700'000'000); }

   Pondo::Ptr<SimulatedChip> device = Kiv::make<SimulatedChip>(4);
   Pondo::Ptr<ChipInfo> chip = Kiv::make<ChipInfo>(2, "chip2", device);
   Pondo::Ptr<Statebase::EntityManager> em = Kiv::make<Statebase::EntityManager>();
   Pondo::Ptr<EgressTimestampTable> table = Kiv::make<EgressTimestampTable>();
   std::vector<std::pair<EgressTsSwTableKey, EgressTimestampEntry>> reads;
   std::vector<std::uint32_t> tags;
   EgressTimestampTable::ReadCallback record = [this](const EgressTsSwTableKey& k, const EgressTimestampEntry& e,
                                                      std::uint32_t tag) {
      reads.emplace_back(k, e);
      tags.push_back(tag);
   };
   const EgressTsSwTableKey slot{3, PortType::network};
};

TEST_F(EgressTimestampTableTest, ChipTimeFollowsVirtualUtcToTheNanosecond) {
   EXPECT_EQ(device->timeNs(), 1'700'000'000'000'000'000ull);
   Kiv::activityManager().runFor(0.000000123);
   EXPECT_EQ(device->timeNs(), 1'700'000'000'000'000'123ull);
   device->timeOffsetNsIs(-23);
   EXPECT_EQ(device->timeNs(), 1'700'000'000'000'000'100ull);
}

TEST_F(EgressTimestampTableTest, ReadsCompleteLaterOnTheLoopInRequestOrder) {
   table->doInit(chip->unit(), em, chip->gif());
   table->publishMountInfo();
   EXPECT_NE(em->mount("hardware/egressTimestamp/unit2/network"), nullptr);

   Kiv::activityManager().runFor(1.0);
   const std::uint64_t sent = device->send(slot, 77);
   table->read(slot, record);
   table->read({4, PortType::network}, record);
   EXPECT_TRUE(reads.empty());  // never inside the request
   Kiv::activityManager().runReady();
   ASSERT_EQ(reads.size(), 2u);
   EXPECT_EQ(reads[0].first, slot);
   EXPECT_EQ(reads[0].second, (EgressTimestampEntry{77, sent & 0xFFFFFFFF, true}));
   EXPECT_FALSE(reads[1].second.valid);
   EXPECT_EQ(table->readsCompleted(), 2u);
}

TEST_F(EgressTimestampTableTest, FifoReturnsOldestFirstAndOverwritesWhenFull) {
   table->doInit(chip->unit(), em, chip->gif());
   for (std::uint16_t seq = 1; seq <= 6; ++seq) device->send(slot, seq);
   EXPECT_EQ(device->queued(slot), 4u);
   EXPECT_EQ(device->overwritten(slot), 2u);
   for (int i = 0; i < 5; ++i) table->read(slot, record);
   Kiv::activityManager().runReady();
   ASSERT_EQ(reads.size(), 5u);
   EXPECT_EQ(reads[0].second.sequenceId, 3);
   EXPECT_EQ(reads[3].second.sequenceId, 6);
   EXPECT_FALSE(reads[4].second.valid);
}

TEST_F(EgressTimestampTableTest, EachCompletionCarriesItsRequestsTag) {
   table->doInit(chip->unit(), em, chip->gif());
   table->read(slot, record, 7);
   table->read(slot, record);
   table->read({4, PortType::network}, record, 0xFFFFFFFF);
   Kiv::activityManager().runReady();
   EXPECT_EQ(tags, (std::vector<std::uint32_t>{7, 0, 0xFFFFFFFF}));
}

// The request keeps its own copy of the callback: the one given may go at once.
TEST_F(EgressTimestampTableTest, ARequestOwnsItsCallback) {
   table->doInit(chip->unit(), em, chip->gif());
   device->send(slot, 9);
   {
      EgressTimestampTable::ReadCallback passing = [this](const EgressTsSwTableKey& k, const EgressTimestampEntry& e,
                                                          std::uint32_t tag) {
         reads.emplace_back(k, e);
         tags.push_back(tag + 1);
      };
      table->read(slot, passing, 4);
      passing = record;  // the caller reuses its storage before the read completes
   }
   Kiv::activityManager().runReady();
   ASSERT_EQ(reads.size(), 1u);
   EXPECT_EQ(reads[0].second.sequenceId, 9);
   EXPECT_EQ(tags, (std::vector<std::uint32_t>{5}));
}

TEST_F(EgressTimestampTableTest, CancelledReadsAreNotDelivered) {
   table->doInit(chip->unit(), em, chip->gif());
   device->send(slot, 1);
   EgressTimestampTable::ReadCallback cancelRest = [this](const EgressTsSwTableKey&, const EgressTimestampEntry&,
                                                          std::uint32_t) {
      reads.push_back({});
      table->readsCancel();
   };
   table->read(slot, cancelRest);
   table->read(slot, record);
   Kiv::activityManager().runReady();
   EXPECT_EQ(reads.size(), 1u);
   table->read(slot, record);
   table->readsCancel();
   Kiv::activityManager().runReady();
   EXPECT_EQ(reads.size(), 1u);
}

TEST_F(EgressTimestampTableTest, ChipPublishesWhatItLatchesAndWhatIsReadOut) {
   table->doInit(chip->unit(), em, chip->gif());
   struct Counts final : Pondo::Subscriber {
      std::vector<std::pair<Kiv::FieldId, std::uint64_t>> seen;
      void onChange(const Pondo::Change& c) override { seen.emplace_back(c.field, c.newAs<std::uint64_t>()); }
   } counts;
   device->subscriberAdd(&counts);
   device->send(slot, 1);
   device->send(slot, 2);
   table->read(slot, record);
   table->read(slot, record);
   table->read(slot, record);  // empty: nothing read out
   Kiv::activityManager().runReady();
   device->subscriberRemove(&counts);
   using F = SimulatedChip::F;
   EXPECT_EQ(counts.seen, (std::vector<std::pair<Kiv::FieldId, std::uint64_t>>{
                              {F::sent, 1}, {F::sent, 2}, {F::read, 1}, {F::read, 2}}));
   EXPECT_EQ(*device->sent().find(slot), 2u);
   EXPECT_EQ(*device->read().find(slot), 2u);
}

TEST(EgressTimestampTableDeathTest, ReadBeforeInitStops) {
   auto table = Kiv::make<EgressTimestampTable>();
   EgressTimestampTable::ReadCallback none = [](const EgressTsSwTableKey&, const EgressTimestampEntry&, std::uint32_t) {
   };
   EXPECT_DEATH(table->read({}, none), "egress timestamp table read before doInit");
}

}  // namespace
