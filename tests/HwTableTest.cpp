// Hardware tables of committed rows on the simulated chip.
#include <gtest/gtest.h>

#include <cstdint>

#include "Asic/HwTable.h"
#include "Asic/SimulatedChip.h"
#include "Kiv/Entity.h"

namespace {

struct Row {
   std::uint8_t a = 0;
   std::uint8_t b = 0;
};

class RowTable : public Asic::HwTable<Row> {
  public:
   RowTable() : HwTable("rowTable") {}
};

struct HwTableTest : ::testing::Test {
   Pondo::Ptr<Asic::SimulatedChip> device = Kiv::make<Asic::SimulatedChip>();
   Pondo::Ptr<Asic::ChipInfo> chip = Kiv::make<Asic::ChipInfo>(3, "chip3", device);
   Pondo::Ptr<Statebase::EntityManager> em = Kiv::make<Statebase::EntityManager>();
   Pondo::Ptr<RowTable> table = Kiv::make<RowTable>();
};

TEST_F(HwTableTest, CommittedRowsAreKeptPerIndexAndCounted) {
   table->doInit(3, em, chip->gif());
   table->entryCommit(0, {1, 0});
   table->entryCommit(4, {0, 1});
   table->entryCommit(0, {1, 1});
   ASSERT_TRUE(device->committed<Row>("rowTable", 0));
   EXPECT_EQ(device->committed<Row>("rowTable", 0)->b, 1);
   EXPECT_EQ(device->committed<Row>("rowTable", 4)->a, 0);
   EXPECT_FALSE(device->committed<Row>("rowTable", 1));
   EXPECT_FALSE(device->committed<Row>("otherTable", 0));
   EXPECT_EQ(device->committedIndexes("rowTable"), (std::vector<std::uint32_t>{0, 4}));
   EXPECT_EQ(device->commits("rowTable"), 3u);
   EXPECT_EQ(device->commits("otherTable"), 0u);
}

TEST_F(HwTableTest, MountInfoNamesTableAndUnit) {
   table->doInit(3, em, chip->gif());
   table->doPublishHwTableMountInfo();
   const Pondo::String* what = em->mount("hardware/rowTable/unit3");
   ASSERT_NE(what, nullptr);
   EXPECT_EQ(*what, "rowTable table of chip3");
   EXPECT_EQ(table->unit(), 3u);
   EXPECT_TRUE(table->initialized());
}

TEST_F(HwTableTest, WritingBeforeInitStops) {
   EXPECT_DEATH(table->entryCommit(0, {}), "table rowTable written before doInit");
}

TEST_F(HwTableTest, InitWithoutChipStops) { EXPECT_DEATH(table->doInit(3, em, nullptr), "initialised without a chip"); }

}  // namespace
