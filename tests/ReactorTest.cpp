#include <gtest/gtest.h>

#include "ExampleMachine.h"

using namespace Example;
using Wyx::IntfId;

namespace {

std::map<IntfId, int> contents(const Summary& s) {
   std::map<IntfId, int> m;
   for (const auto& [k, v] : s.speed()) m[k] = v;
   return m;
}

TEST(Reactor, BuiltOnPopulatedInputsEqualsWatchingThemFill) {
   auto chassis = Kiv::make<Chassis>();
   auto watched = Kiv::make<Summary>();
   auto sm1 = Kiv::make<SummarySm>(chassis, watched);
   chassis->portIs(IntfId("Et1/1"))->speedIs(10);
   chassis->portIs(IntfId("Et2/1"))->speedIs(40);
   chassis->portIs(IntfId("Et3/1"));
   chassis->portDel(IntfId("Et3/1"));

   auto late = Kiv::make<Summary>();
   auto sm2 = Kiv::make<SummarySm>(chassis, late);
   EXPECT_EQ(contents(*watched), contents(*late));
   EXPECT_EQ(contents(*late).at(IntfId("Et2/1")), 40);
   EXPECT_EQ(sm2->log.back(), "construct");
}

TEST(Reactor, ReplacingInputReplaysRemovalsAndAdditions) {
   auto a = Kiv::make<Chassis>();
   a->portIs(IntfId("Et1"))->speedIs(1);
   a->portIs(IntfId("Et2"))->speedIs(2);
   auto b = Kiv::make<Chassis>();
   b->portIs(IntfId("Et2"))->speedIs(20);
   b->portIs(IntfId("Et3"))->speedIs(30);
   auto summary = Kiv::make<Summary>();
   auto sm = Kiv::make<SummarySm>(a, summary);
   sm->chassisIs(b);
   EXPECT_EQ(contents(*summary), (std::map<IntfId, int>{{IntfId("Et2"), 20}, {IntfId("Et3"), 30}}));
   a->portIs(IntfId("Et9"))->speedIs(9);  // the old input is no longer watched
   EXPECT_FALSE(summary->speed().contains(IntfId("Et9")));
}

}  // namespace
