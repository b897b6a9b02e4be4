// Counted objects and the counted pointer.
#include <gtest/gtest.h>

#include <unordered_set>

#include "Pondo/Ptr.h"

namespace {

struct Thing : Pondo::Object {
   explicit Thing(int* gone) : gone_(gone) {}
   ~Thing() override { ++*gone_; }
   int* gone_;
};
struct Special : Thing {
   using Thing::Thing;
};

TEST(Ptr, NullByDefault) {
   Pondo::Ptr<Thing> p;
   EXPECT_FALSE(p);
   EXPECT_EQ(p, nullptr);
   EXPECT_EQ(p.get(), nullptr);
   Pondo::Ptr<Thing> q = nullptr;
   EXPECT_EQ(p, q);
}

TEST(Ptr, CopyAddsAUseAndTheLastUseDestroys) {
   int gone = 0;
   Pondo::Ptr<Thing> a(new Thing(&gone));
   EXPECT_EQ(a->references(), 1u);
   {
      Pondo::Ptr<Thing> b = a;
      EXPECT_EQ(a->references(), 2u);
      EXPECT_EQ(a, b);
   }
   EXPECT_EQ(a->references(), 1u);
   EXPECT_EQ(gone, 0);
   a = nullptr;
   EXPECT_EQ(gone, 1);
}

TEST(Ptr, MoveTransfersTheUse) {
   int gone = 0;
   Pondo::Ptr<Thing> a(new Thing(&gone));
   Pondo::Ptr<Thing> b = std::move(a);
   EXPECT_FALSE(a);  // NOLINT: moved-from is null by contract
   EXPECT_EQ(b->references(), 1u);
   Pondo::Ptr<Thing> c;
   c = std::move(b);
   EXPECT_EQ(c->references(), 1u);
   EXPECT_EQ(gone, 0);
}

TEST(Ptr, AssignmentReleasesThePreviousObject) {
   int goneA = 0, goneB = 0;
   Pondo::Ptr<Thing> p(new Thing(&goneA));
   p = Pondo::Ptr<Thing>(new Thing(&goneB));
   EXPECT_EQ(goneA, 1);
   EXPECT_EQ(goneB, 0);
   p = p;  // self-assignment keeps the object
   EXPECT_EQ(goneB, 0);
   EXPECT_EQ(p->references(), 1u);
}

TEST(Ptr, ReleaseHandsTheUseToTheCaller) {
   int gone = 0;
   Pondo::Ptr<Thing> p(new Thing(&gone));
   Thing* raw = p.release();
   EXPECT_FALSE(p);
   EXPECT_EQ(raw->references(), 1u);
   raw->dereference();
   EXPECT_EQ(gone, 1);
}

TEST(Ptr, ConvertsToBaseAndCastsBack) {
   int gone = 0;
   Pondo::Ptr<Special> s(new Special(&gone));
   Pondo::Ptr<const Thing> t = s;
   EXPECT_EQ(s->references(), 2u);
   Pondo::Ptr<Special> back = Pondo::ptrCast<Special>(Pondo::Ptr<Thing>(s));
   EXPECT_EQ(back, s);
   EXPECT_EQ(s->references(), 3u);
   Pondo::Ptr<const Thing> moved = std::move(back);
   EXPECT_EQ(s->references(), 3u);
}

TEST(Ptr, HashesAndOrdersByAddress) {
   int gone = 0;
   Pondo::Ptr<Thing> a(new Thing(&gone)), b(new Thing(&gone));
   std::unordered_set<Pondo::Ptr<Thing>> s{a, b, a};
   EXPECT_EQ(s.size(), 2u);
   EXPECT_EQ(a < b, a.get() < b.get());
}

TEST(Ptr, LockedCountsGiveTheSameResults) {
   Pondo::multiThreadedIs(true);
   int gone = 0;
   {
      Pondo::Ptr<Thing> a(new Thing(&gone));
      Pondo::Ptr<Thing> b = a;
      EXPECT_EQ(a->references(), 2u);
   }
   Pondo::multiThreadedIs(false);
   EXPECT_EQ(gone, 1);
}

}  // namespace
