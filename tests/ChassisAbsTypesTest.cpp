// The chassis record tree and its PortMap value.
#include <gtest/gtest.h>

#include <iostream>
#include <random>
#include <set>
#include <unordered_set>

#include "ChangeRecorder.h"
#include "VyrPtp/ChassisAbsTypes.h"

using namespace VyrPtp::ChassisAbstraction;
using Kind = Pondo::Change::Kind;
using Wyx::IntfId;

namespace {

const IntfId et1("Ethernet1/1"), et2("Ethernet1/2");

TEST(PortMap, DifferingOnlyInLocalCoreIdIsUnequalAndOrdersByIt) {
   const PortMap a{3, 17, 0}, b{3, 17, 1};
   EXPECT_NE(a, b);
   EXPECT_LT(a, b);
   EXPECT_FALSE(b < a);
   EXPECT_EQ(std::unordered_set<PortMap>({a, b, PortMap{3, 17, 0}}).size(), 2u);
}

TEST(PortMap, OrderIsByFapIdThenPortThenCoreAsUnsigned) {
   EXPECT_LT((PortMap{1, 0xFFFF, 0xFFFF}), (PortMap{2, 0, 0}));
   EXPECT_LT((PortMap{2, 5, 0xFFFF}), (PortMap{2, 6, 0}));
   EXPECT_LT((PortMap{0x7FFF, 0, 0}), (PortMap{0x8000, 0, 0}));
   EXPECT_EQ((PortMap{2, 5, 9}), (PortMap{2, 5, 9}));
   EXPECT_EQ(std::hash<PortMap>{}(PortMap{2, 5, 9}), std::hash<PortMap>{}(PortMap{2, 5, 9}));
   // The fields are mixed in order: swapping two values changes the hash.
   EXPECT_NE(std::hash<PortMap>{}(PortMap{1, 2, 0}), std::hash<PortMap>{}(PortMap{2, 1, 0}));
}

TEST(PortMap, UnsetExactlyWhenAllFieldsAreZero) {
   EXPECT_TRUE(PortMap{}.unset());
   EXPECT_FALSE((PortMap{0, 0, 1}).unset());
   EXPECT_FALSE((PortMap{0, 1, 0}).unset());
   EXPECT_FALSE((PortMap{1, 0, 0}).unset());
}

TEST(PortMap, TextFormNamesTypeAndFieldsInOrder) {
   const PortMap m{1, 12, 3};
   EXPECT_EQ(m.toString(), "VyrPtp::ChassisAbstraction::PortMap(fapId: 1, fapPortId: 12, localCoreId: 3)");
   EXPECT_EQ(fmt::format("{}", m), m.toString());
   EXPECT_EQ(PortMap::fromString(m.toString()), m);
   EXPECT_EQ(PortMap::fromString("VyrPtp::ChassisAbstraction::PortMap(fapId: 65535, fapPortId: 0, localCoreId: 65535)"),
             (PortMap{0xFFFF, 0, 0xFFFF}));
}

TEST(PortMap, TextFormRoundTripsForRandomValues) {
   const std::uint64_t seed = 20260513;
   std::cout << "seed " << seed << std::endl;
   std::mt19937_64 rng(seed);
   std::uniform_int_distribution<unsigned> u16(0, 0xFFFF);
   for (int i = 0; i < 1000; ++i) {
      const PortMap m{std::uint16_t(u16(rng)), std::uint16_t(u16(rng)), std::uint16_t(u16(rng))};
      ASSERT_EQ(PortMap::fromString(m.toString()), m) << m.toString();
   }
}

TEST(PortMap, ParsingRejectsMalformedTextNamingWhatIsWrong) {
   const std::string good = PortMap{1, 2, 3}.toString();
   auto error = [](const std::string& text) -> std::string {
      try {
         PortMap::fromString(text);
      } catch (const Pondo::RangeError& e) {
         return e.what();
      }
      return "accepted";
   };
   EXPECT_EQ(error(good + " "), "trailing text at offset 75 of PortMap text '" + good + " '");
   EXPECT_NE(error(good + ")").find("trailing text"), std::string::npos);
   EXPECT_NE(error("PortMap(fapId: 1, fapPortId: 2, localCoreId: 3)").find("expected 'VyrPtp::"), std::string::npos);
   EXPECT_NE(error("VyrPtp::ChassisAbstraction::PortMap(fapId: 1, localCoreId: 3)").find("expected 'fapPortId'"),
             std::string::npos);
   EXPECT_NE(error("VyrPtp::ChassisAbstraction::PortMap(fapId: 65536, fapPortId: 2, localCoreId: 3)").find("bad fapId"),
             std::string::npos);
   EXPECT_NE(
       error("VyrPtp::ChassisAbstraction::PortMap(fapId: 1, fapPortId: -2, localCoreId: 3)").find("bad fapPortId"),
       std::string::npos);
   EXPECT_NE(
       error("VyrPtp::ChassisAbstraction::PortMap(fapId: 1, fapPortId: 2, localCoreId: )").find("bad localCoreId"),
       std::string::npos);
   EXPECT_NE(error("VyrPtp::ChassisAbstraction::PortMap(fapId: 1, fapPortId: 2, localCoreId: 3").find("expected ')'"),
             std::string::npos);
   EXPECT_NE(error("").find("offset 0"), std::string::npos);
}

TEST(ChassisInfo, FactoriesMakeEmptyEntities) {
   EXPECT_TRUE(chassisInfoFactory()->slice().empty());
   EXPECT_TRUE(ChassisInfoIs()->slice().empty());
   auto s = sliceInfoFactory("Linecard3");
   EXPECT_EQ(s->name(), "Linecard3");
   EXPECT_TRUE(s->fapId().empty());
   EXPECT_EQ(SliceInfoIs("FixedSystem")->name(), "FixedSystem");
   auto f = fapInfoFactory(6);
   EXPECT_EQ(f->fapId(), 6);
   EXPECT_TRUE(f->intf().empty());
   EXPECT_EQ(FapInfoIs(7)->fapId(), 7);
   auto i = intfInfoFactory(et1);
   EXPECT_EQ(i->intfId(), et1);
   EXPECT_TRUE(i->portMap().unset());
   EXPECT_EQ(IntfInfoIs(et2)->intfId(), et2);
}

TEST(ChassisInfo, IntfIsTwiceGivesOneMemberAndOneInsertion) {
   auto fap = fapInfoFactory(1);
   ChangeRecorder changes(fap);
   auto a = fap->intfIs(et1);
   auto b = fap->intfIs(et1);
   EXPECT_EQ(a, b);
   EXPECT_EQ(fap->intf().size(), 1u);
   EXPECT_EQ(fap->intf(et1), a.get());
   EXPECT_EQ(changes.entries, (std::vector<ChangeRecorder::Entry>{{fap.get(), FapInfo::F::intf, Kind::added}}));
}

TEST(ChassisInfo, SliceIsAndFapIdIsReturnTheExistingMember) {
   auto chassis = chassisInfoFactory();
   ChangeRecorder changes(chassis);
   auto slice = chassis->sliceIs("Linecard3");
   EXPECT_EQ(chassis->sliceIs("Linecard3"), slice);
   auto fap = slice->fapIdIs(4);
   EXPECT_EQ(slice->fapIdIs(4), fap);
   EXPECT_EQ(chassis->slice("Linecard3")->fapId(4), fap.get());
   EXPECT_EQ(chassis->slice("Linecard4"), nullptr);
   EXPECT_EQ(changes.entries, (std::vector<ChangeRecorder::Entry>{{chassis.get(), ChassisInfo::F::slice, Kind::added},
                                                                  {slice.get(), SliceInfo::F::fapId, Kind::added}}));
}

TEST(ChassisInfo, DeletingAnAbsentKeyIsANoOpWithoutNotification) {
   auto chassis = chassisInfoFactory();
   auto slice = chassis->sliceIs("Linecard3");
   auto fap = slice->fapIdIs(4);
   fap->intfIs(et1);
   ChangeRecorder changes(chassis);
   EXPECT_EQ(chassis->sliceDel("Linecard9"), nullptr);
   EXPECT_EQ(slice->fapIdDel(5), nullptr);
   EXPECT_EQ(fap->intfDel(et2), nullptr);
   EXPECT_TRUE(changes.entries.empty());
   EXPECT_EQ(chassis->slice().size(), 1u);
   EXPECT_EQ(slice->fapId().size(), 1u);
   EXPECT_EQ(fap->intf().size(), 1u);
}

TEST(ChassisInfo, DelAllRemovesEveryMemberWithItsOwnNotification) {
   auto chassis = chassisInfoFactory();
   auto slice = chassis->sliceIs("Linecard3");
   auto fap = slice->fapIdIs(4);
   fap->intfIs(et1);
   fap->intfIs(et2);
   slice->fapIdIs(5);
   chassis->sliceIs("Linecard4");
   ChangeRecorder changes(chassis);
   fap->intfDelAll();
   slice->fapIdDelAll();
   chassis->sliceDelAll();
   EXPECT_TRUE(fap->intf().empty());
   EXPECT_TRUE(slice->fapId().empty());
   EXPECT_TRUE(chassis->slice().empty());
   EXPECT_EQ(changes.entries, (std::vector<ChangeRecorder::Entry>{
                                  {fap.get(), FapInfo::F::intf, Kind::removed},
                                  {fap.get(), FapInfo::F::intf, Kind::removed},
                                  {slice.get(), SliceInfo::F::fapId, Kind::removed},
                                  {slice.get(), SliceInfo::F::fapId, Kind::removed},
                                  {chassis.get(), ChassisInfo::F::slice, Kind::removed},
                                  {chassis.get(), ChassisInfo::F::slice, Kind::removed},
                              }));
}

// Keeps the old and new PortMap of every portMap change.
struct PortMapChanges final : Pondo::Subscriber {
   void onChange(const Pondo::Change& c) override {
      if (c.field == IntfInfo::F::portMap && c.kind == Kind::attribute) {
         seen.push_back({c.oldAs<PortMap>(), *static_cast<const PortMap*>(c.newValue)});
      }
   }
   std::vector<std::pair<PortMap, PortMap>> seen;
};

TEST(ChassisInfo, PortMapIsPublishesOnlyARealChangeWithThePreviousValue) {
   auto chassis = chassisInfoFactory();
   auto intf = chassis->sliceIs("Linecard1")->fapIdIs(0)->intfIs(et1);
   PortMapChanges changes;
   chassis->subscriberAdd(&changes);  // heard through the tree
   intf->portMapIs(PortMap{});
   EXPECT_TRUE(changes.seen.empty());
   intf->portMapIs({0, 12, 1});
   intf->portMapIs({0, 12, 1});
   intf->portMapIs({0, 12, 0});
   chassis->subscriberRemove(&changes);
   using P = std::pair<PortMap, PortMap>;
   EXPECT_EQ(changes.seen, (std::vector<P>{P{PortMap{}, PortMap{0, 12, 1}}, P{PortMap{0, 12, 1}, PortMap{0, 12, 0}}}));
   EXPECT_EQ(intf->portMap(), (PortMap{0, 12, 0}));
}

}  // namespace
