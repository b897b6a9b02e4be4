// Entities, publishers, collections and directories.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include "Kiv/Dir.h"
#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace {

using Kiv::Change;
using Kind = Change::Kind;
using Pondo::Generation;
using Pondo::Ptr;

int nodesGone = 0;
int membersGone = 0;

class Node : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, count, generation, peer };
   };
   explicit Node(Pondo::String name) : name_(std::move(name)) {}
   ~Node() override { ++nodesGone; }
   const Pondo::String& name() const { return name_; }
   int count() const { return count_; }
   void countIs(int v) { set(count_, v, F::count); }
   Generation generation() const { return generation_; }
   void generationIs(Generation g) { set(generation_, g, F::generation); }
   const Ptr<const Node>& peer() const { return peer_; }
   void peerIs(Ptr<const Node> p) { set(peer_, std::move(p), F::peer); }

  private:
   Pondo::String name_;
   int count_ = 0;
   Generation generation_;
   Ptr<const Node> peer_;
};

// A member built from its key and a fixed, non-null node.
class Member : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { id, node, weight, child };
   };
   Member(int id, Ptr<const Node> node) : id_(id), node_(Kiv::nonNull(node, "node")) {}
   ~Member() override { ++membersGone; }
   int id() const { return id_; }
   std::tuple<Ptr<const Node>> fixedArgs() const { return {node_}; }
   int weight() const { return weight_; }
   void weightIs(int w) { set(weight_, w, F::weight); }
   Kiv::Collection<int, Member>& child() { return child_; }

  private:
   int id_;
   Ptr<const Node> node_;
   int weight_ = 0;
   Kiv::Collection<int, Member> child_{this, F::child, "child"};
};

class Holder : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { member, label, tag };
   };
   Kiv::Collection<int, Member> member{this, F::member, "member"};
   Kiv::Map<int, Pondo::String> label{this, F::label, "label"};
   Kiv::Set<int> tag{this, F::tag, "tag"};
};

// Records what it hears; `hook` runs inside the delivery.
struct Recorder : Pondo::Subscriber {
   struct Heard {
      const Pondo::Publisher* source;
      Kiv::FieldId field;
      Kind kind;
   };
   explicit Recorder(const Pondo::Publisher* p = nullptr) : publisher(p) {
      if (p) p->subscriberAdd(this, true);  // the flag changes nothing
   }
   ~Recorder() {
      if (publisher) publisher->subscriberRemove(this);
   }
   void onChange(const Change& c) override {
      heard.push_back({c.source, c.field, c.kind});
      if (hook) hook(c);
   }
   const Pondo::Publisher* publisher;
   std::vector<Heard> heard;
   std::function<void(const Change&)> hook;
};

Ptr<Node> node(const char* name) { return Kiv::make<Node>(name); }

TEST(Entity, WritingThePresentValuePublishesNothing) {
   auto n = node("a");
   Recorder r(n.get());
   n->countIs(0);
   n->generationIs(Generation());
   n->peerIs(nullptr);
   EXPECT_TRUE(r.heard.empty());
   n->countIs(4);
   n->countIs(4);
   EXPECT_EQ(r.heard.size(), 1u);
}

TEST(Entity, AChangeNamesTheAttributeAndCarriesOldAndNewValues) {
   auto n = node("a");
   n->countIs(1);
   Recorder r(n.get());
   int seenOld = -1, seenNew = -1, storedDuringDelivery = -1;
   r.hook = [&](const Change& c) {
      seenOld = c.oldAs<int>();
      seenNew = c.newAs<int>();
      storedDuringDelivery = n->count();
   };
   n->countIs(2);
   ASSERT_EQ(r.heard.size(), 1u);
   EXPECT_EQ(r.heard[0].source, n.get());
   EXPECT_EQ(r.heard[0].field, Node::F::count);
   EXPECT_EQ(r.heard[0].kind, Kind::attribute);
   EXPECT_EQ(seenOld, 1);
   EXPECT_EQ(seenNew, 2);
   EXPECT_EQ(storedDuringDelivery, 2);
}

TEST(Entity, AGenerationDifferingOnlyInItsFlagIsAChange) {
   auto n = node("a");
   n->generationIs(Generation(5, false));
   Recorder r(n.get());
   Generation old;
   r.hook = [&](const Change& c) { old = c.oldAs<Generation>(); };
   n->generationIs(Generation(5, true));
   ASSERT_EQ(r.heard.size(), 1u);
   EXPECT_EQ(r.heard[0].field, Node::F::generation);
   EXPECT_EQ(old, Generation(5, false));
   n->generationIs(Generation(5, true));
   EXPECT_EQ(r.heard.size(), 1u);
}

TEST(Entity, AReplacedReferenceIsReleasedAfterTheNotification) {
   auto n = node("a");
   n->peerIs(node("old"));
   Recorder r(n.get());
   std::string oldName;
   int goneDuringDelivery = -1;
   const int goneBefore = nodesGone;
   r.hook = [&](const Change& c) {
      oldName = c.oldAs<Ptr<const Node>>()->name();
      goneDuringDelivery = nodesGone - goneBefore;
   };
   n->peerIs(node("new"));
   EXPECT_EQ(oldName, "old");
   EXPECT_EQ(goneDuringDelivery, 0);
   EXPECT_EQ(nodesGone - goneBefore, 1);
   EXPECT_EQ(n->peer()->name(), "new");
}

TEST(Collection, CreatesOnceAndPublishesAdditionsAndRemovals) {
   auto h = Kiv::make<Holder>();
   auto n = node("n");
   Recorder r(h.get());
   int addedKey = -1;
   const void* addedMember = nullptr;
   r.hook = [&](const Change& c) {
      if (c.added()) {
         addedKey = c.keyAs<int>();
         addedMember = c.newValue;
      }
   };
   Ptr<Member> m = h->member.is(7, n);
   ASSERT_EQ(r.heard.size(), 1u);
   EXPECT_EQ(r.heard[0].source, h.get());
   EXPECT_EQ(r.heard[0].field, Holder::F::member);
   EXPECT_EQ(r.heard[0].kind, Kind::added);
   EXPECT_EQ(addedKey, 7);
   EXPECT_EQ(addedMember, m.get());
   EXPECT_EQ(m->id(), 7);

   EXPECT_EQ(h->member.is(7, n), m);  // same fixed arguments: the member as it is
   EXPECT_EQ(r.heard.size(), 1u);
   EXPECT_EQ(h->member.find(7), m.get());
   EXPECT_EQ(h->member[8], nullptr);

   const void* removedMember = nullptr;
   r.hook = [&](const Change& c) { removedMember = c.oldValue; };
   EXPECT_EQ(h->member.del(7), m);
   ASSERT_EQ(r.heard.size(), 2u);
   EXPECT_EQ(r.heard[1].kind, Kind::removed);
   EXPECT_EQ(removedMember, m.get());
   EXPECT_EQ(h->member.del(7), nullptr);
   EXPECT_EQ(r.heard.size(), 2u);
}

// A read-only owner hands out read-only members; a writable one, writable ones.
TEST(Collection, AConstLookUpReturnsAConstMember) {
   auto n = node("n");
   auto holder = Kiv::make<Holder>();
   holder->member.is(1, n);
   const Holder& readOnly = *holder;
   static_assert(std::is_same_v<decltype(readOnly.member.find(1)), const Member*>);
   static_assert(std::is_same_v<decltype(readOnly.member[1]), const Member*>);
   static_assert(std::is_same_v<decltype(holder->member.find(1)), Member*>);
   EXPECT_EQ(readOnly.member.find(1), holder->member.find(1));
   EXPECT_EQ(readOnly.member[2], nullptr);
}

TEST(Collection, DelAllRemovesEveryMemberOneByOne) {
   auto h = Kiv::make<Holder>();
   auto n = node("n");
   for (int k : {3, 1, 2}) h->member.is(k, n);
   Recorder r(h.get());
   std::vector<int> removed;
   r.hook = [&](const Change& c) { removed.push_back(c.keyAs<int>()); };
   h->member.delAll();
   EXPECT_EQ(removed, (std::vector<int>{1, 2, 3}));
   EXPECT_TRUE(h->member.empty());
}

TEST(Collection, RecreatingWithOtherFixedArgumentsNamesTheAttribute) {
   auto h = Kiv::make<Holder>();
   h->member.is(1, node("a"));
   try {
      h->member.is(1, node("b"));
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_STREQ(e.what(), "'member' exists with other fixed arguments");
   }
   EXPECT_EQ(h->member.size(), 1u);
}

// A member keyed by the name of the node it is built from.
class NodeView : public Kiv::Entity {
  public:
   explicit NodeView(Ptr<const Node> node) : node_(std::move(node)) {}
   std::tuple<Ptr<const Node>> fixedArgs() const { return {node_}; }

  private:
   Ptr<const Node> node_;
};

class ViewHolder : public Kiv::Entity {
  public:
   Kiv::Collection<Pondo::String, NodeView> views{this, 0, "views"};
};

TEST(Collection, IsFromBuildsAMemberWhoseKeyIsNotAnArgument) {
   auto h = Kiv::make<ViewHolder>();
   auto& views = h->views;
   Recorder r(h.get());
   auto a = node("a");
   auto view = views.isFrom(a->name(), a);
   EXPECT_EQ(views.find("a"), view.get());
   EXPECT_EQ(views.isFrom(a->name(), a), view);  // same fixed arguments: the member as it is
   EXPECT_EQ(r.heard.size(), 1u);
   try {
      views.isFrom("a", node("other"));
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_STREQ(e.what(), "'views' exists with other fixed arguments");
   }
   EXPECT_EQ(views.size(), 1u);
}

TEST(Collection, ANullEntityArgumentIsRejectedByName) {
   auto h = Kiv::make<Holder>();
   Recorder r(h.get());
   try {
      h->member.is(1, Ptr<const Node>());
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_STREQ(e.what(), "null entity reference for argument 'node'");
   }
   EXPECT_TRUE(h->member.empty());
   EXPECT_TRUE(r.heard.empty());
}

TEST(Collection, InsertTakesAnEntityMadeElsewhere) {
   auto h = Kiv::make<Holder>();
   auto m = Kiv::make<Member>(4, node("n"));
   Recorder r(h.get());
   EXPECT_EQ(h->member.insert(4, m), m);
   EXPECT_EQ(h->member.find(4), m.get());
   EXPECT_EQ(r.heard.size(), 1u);
   EXPECT_DEATH(h->member.insert(4, m), "collection member already holds the key");
}

TEST(Collection, ChangesInsideMembersReachTheOwnersSubscribers) {
   auto h = Kiv::make<Holder>();
   auto n = node("n");
   auto m = h->member.is(1, n);
   auto grandChild = m->child().is(10, n);
   Recorder r(h.get());
   m->weightIs(3);
   grandChild->weightIs(4);
   ASSERT_EQ(r.heard.size(), 2u);
   EXPECT_EQ(r.heard[0].source, m.get());
   EXPECT_EQ(r.heard[0].field, Member::F::weight);
   EXPECT_EQ(r.heard[1].source, grandChild.get());

   // A member's own subscribers hear first, then the owner's.
   Recorder own(m.get());
   std::vector<std::string> order;
   own.hook = [&](const Change&) { order.push_back("member"); };
   r.hook = [&](const Change&) { order.push_back("owner"); };
   m->weightIs(5);
   EXPECT_EQ(order, (std::vector<std::string>{"member", "owner"}));

   // A removed member no longer reports to its former owner.
   h->member.del(1);
   const auto heard = r.heard.size();
   m->weightIs(6);
   EXPECT_EQ(r.heard.size(), heard);
}

TEST(Collection, AMemberDeletedByTheOwnersSubscriberLivesUntilDeliveryEnds) {
   auto h = Kiv::make<Holder>();
   Member* raw = h->member.is(1, node("n")).get();  // only the collection holds it
   Recorder deleter(h.get()), reader(h.get());
   deleter.hook = [&](const Change& c) {
      if (c.source == raw) h->member.del(1);
   };
   const int goneBefore = membersGone;
   int goneWhileReading = -1, valueRead = -1;
   reader.hook = [&](const Change& c) {
      if (c.source != raw) return;
      goneWhileReading = membersGone - goneBefore;
      valueRead = c.newAs<int>();
   };
   raw->weightIs(9);  // the member has no subscribers of its own
   EXPECT_EQ(goneWhileReading, 0);
   EXPECT_EQ(valueRead, 9);
   EXPECT_EQ(membersGone - goneBefore, 1);
}

TEST(Map, PublishesAdditionsRealChangesAndRemovals) {
   auto h = Kiv::make<Holder>();
   Recorder r(h.get());
   std::vector<std::string> seen;
   r.hook = [&](const Change& c) {
      auto text = [](const void* v) { return v ? *static_cast<const Pondo::String*>(v) : std::string("-"); };
      seen.push_back(fmt::format("{} {} {}", c.keyAs<int>(), text(c.oldValue), text(c.newValue)));
   };
   h->label.is(1, "one");
   h->label.is(1, "one");
   h->label.is(1, "uno");
   EXPECT_TRUE(h->label.del(1));
   EXPECT_FALSE(h->label.del(1));
   EXPECT_EQ(seen, (std::vector<std::string>{"1 - one", "1 one uno", "1 uno -"}));
   std::vector<Kind> kinds;
   for (auto& heard : r.heard) kinds.push_back(heard.kind);
   EXPECT_EQ(kinds, (std::vector<Kind>{Kind::added, Kind::changed, Kind::removed}));
   EXPECT_EQ(h->label.find(1), nullptr);
}

TEST(Set, AddsAndRemovesKeysOnce) {
   auto h = Kiv::make<Holder>();
   Recorder r(h.get());
   h->tag.is(2);
   h->tag.is(2);
   h->tag.is(1);
   EXPECT_TRUE(h->tag.contains(2));
   EXPECT_TRUE(h->tag.del(2));
   EXPECT_FALSE(h->tag.del(2));
   ASSERT_EQ(r.heard.size(), 3u);
   EXPECT_EQ(r.heard[2].kind, Kind::removed);
   auto other = Kiv::make<Holder>();
   other->tag.is(1);
   EXPECT_TRUE(h->tag == other->tag);
   other->tag.is(3);
   EXPECT_FALSE(h->tag == other->tag);
}

TEST(Map, DelAllOfValuesAndOfKeysRemovesEachInKeyOrder) {
   auto h = Kiv::make<Holder>();
   for (int k : {2, 3, 1}) {
      h->label.is(k, "x");
      h->tag.is(k);
   }
   Recorder r(h.get());
   std::vector<std::string> removed;
   r.hook = [&](const Change& c) {
      removed.push_back(fmt::format("{}{}", c.field == Holder::F::label ? "label " : "tag ", c.keyAs<int>()));
   };
   h->label.delAll();
   h->tag.delAll();
   EXPECT_EQ(removed, (std::vector<std::string>{"label 1", "label 2", "label 3", "tag 1", "tag 2", "tag 3"}));
   EXPECT_TRUE(h->label.empty());
   EXPECT_TRUE(h->tag.empty());
}

TEST(Iteration, VisitsEveryMemberInKeyOrder) {
   auto h = Kiv::make<Holder>();
   for (int k : {5, 1, 3}) {
      h->label.is(k, std::to_string(k));
      h->tag.is(k);
   }
   std::vector<int> keys;
   for (const auto& [k, v] : h->label) keys.push_back(k);
   for (int k : h->tag) keys.push_back(k);
   EXPECT_EQ(keys, (std::vector<int>{1, 3, 5, 1, 3, 5}));
}

TEST(Iteration, ChangingAValueKeepsIteratorsValid) {
   auto h = Kiv::make<Holder>();
   for (int k : {1, 2, 3}) h->label.is(k, "x");
   for (const auto& [k, v] : h->label) h->label.is(k, "y");
   for (const auto& [k, v] : h->label) EXPECT_EQ(v, "y");
}

TEST(IterationDeathTest, UsingAnIteratorAfterAnAdditionStopsTheProcess) {
   auto h = Kiv::make<Holder>();
   auto n = node("n");
   h->member.is(1, n);
   h->member.is(2, n);
   EXPECT_DEATH(
       {
          for (const auto& [k, m] : h->member) h->member.is(k + 10, n);
       },
       "iterator of collection member used after a modification");
}

TEST(IterationDeathTest, DeletingWhileWalkingStopsTheProcess) {
   auto h = Kiv::make<Holder>();
   for (int k : {1, 2}) h->tag.is(k);
   EXPECT_DEATH(
       {
          for (int k : h->tag) h->tag.del(k);
       },
       "iterator of collection tag used after a modification");
}

TEST(Iteration, CollectingKeysFirstAllowsDeletion) {
   auto h = Kiv::make<Holder>();
   for (int k : {1, 2, 3}) h->label.is(k, "x");
   std::vector<int> keys;
   for (const auto& [k, v] : h->label) keys.push_back(k);
   for (int k : keys) {
      if (k != 2) h->label.del(k);
   }
   EXPECT_EQ(h->label.size(), 1u);
   EXPECT_TRUE(h->label.contains(2));
}

TEST(Publisher, ASubscriberRemovedDuringDeliveryHearsNoMore) {
   auto n = node("a");
   Recorder first(n.get()), second(n.get());
   first.hook = [&](const Change&) { n->subscriberRemove(&second); };
   n->countIs(1);
   EXPECT_EQ(first.heard.size(), 1u);
   EXPECT_TRUE(second.heard.empty());
   EXPECT_EQ(n->subscribers(), 1u);
   n->countIs(2);
   EXPECT_EQ(first.heard.size(), 2u);
   EXPECT_TRUE(second.heard.empty());
   second.publisher = nullptr;
}

TEST(Publisher, ASubscriberAddedDuringDeliveryHearsFromTheNextChange) {
   auto n = node("a");
   Recorder first(n.get()), late;
   first.hook = [&](const Change&) {
      if (!late.publisher) {
         late.publisher = n.get();
         n->subscriberAdd(&late);
      }
   };
   n->countIs(1);
   EXPECT_TRUE(late.heard.empty());
   n->countIs(2);
   EXPECT_EQ(late.heard.size(), 1u);
}

TEST(Publisher, APublisherReleasedByItsSubscriberLivesUntilDeliveryEnds) {
   auto n = node("a");
   Node* raw = n.get();
   Recorder r(raw);
   const int goneBefore = nodesGone;
   int goneInside = -1;
   r.hook = [&](const Change&) {
      r.publisher = nullptr;
      n = nullptr;  // the last use
      goneInside = nodesGone - goneBefore;
   };
   raw->countIs(1);
   EXPECT_EQ(goneInside, 0);
   EXPECT_EQ(nodesGone - goneBefore, 1);
}

TEST(Publisher, APublisherCountedAgainDuringDeliveryIsKept) {
   auto n = node("a");
   Node* raw = n.get();
   Recorder r(raw);
   Ptr<Node> again;
   r.hook = [&](const Change&) {
      n = nullptr;  // the last use goes...
      again = raw;  // ...and a new one is taken before delivery ends
   };
   const int goneBefore = nodesGone;
   raw->countIs(1);
   EXPECT_EQ(nodesGone - goneBefore, 0);
   EXPECT_EQ(again->references(), 1u);
   raw->subscriberRemove(&r);
   r.publisher = nullptr;
   again = nullptr;
   EXPECT_EQ(nodesGone - goneBefore, 1);
}

TEST(PublisherDeathTest, AnExceptionEscapingASubscriberEndsTheProcess) {
   auto n = node("a");
   Recorder r(n.get());
   r.hook = [](const Change&) { throw std::logic_error("subscriber failed"); };
   EXPECT_DEATH(n->countIs(1),
                "exception escaped a handler of \\(anonymous namespace\\)::Recorder: "
                "std::logic_error: subscriber failed");
}

TEST(Dir, HoldsNamedEntitiesAndPublishesAdditionsAndRemovals) {
   auto dir = Kiv::make<Kiv::Dir>("root");
   Recorder r(dir.get());
   std::vector<std::string> names;
   r.hook = [&](const Change& c) { names.push_back((c.added() ? "+" : "-") + c.keyAs<Pondo::String>()); };
   auto a = dir->entityIs<Node>("a");
   EXPECT_EQ(a->name(), "a");
   EXPECT_EQ(dir->entityIs<Node>("a"), a);
   dir->entityPtrIs("b", node("b"));
   EXPECT_TRUE(dir->entityPtrHas("b"));
   EXPECT_EQ(dir->entityPtr("a"), a.get());
   EXPECT_EQ(dir->entityPtr("zz"), nullptr);
   std::vector<std::string> listed;
   for (const auto& [name, e] : dir->entityPtr()) listed.push_back(name);
   EXPECT_EQ(listed, (std::vector<std::string>{"a", "b"}));
   EXPECT_TRUE(dir->entityPtrDel("a"));
   EXPECT_FALSE(dir->entityPtrHas("a"));
   EXPECT_EQ(names, (std::vector<std::string>{"+a", "+b", "-a"}));
}

TEST(Dir, RefusesNullEntriesAndEntriesOfAnotherType) {
   auto dir = Kiv::make<Kiv::Dir>("root");
   dir->entityIs<Node>("n");
   EXPECT_THROW(dir->entityPtrIs("x", nullptr), Kiv::Error);
   try {
      dir->entityIs<Kiv::Dir>("n");
      ADD_FAILURE() << "no error";
   } catch (const Kiv::Error& e) {
      EXPECT_STREQ(e.what(), "'n' in directory 'root' is of another type");
   }
}

}  // namespace
