// Entities: counted objects with typed attributes whose setters publish only
// real changes, and keyed collections of values, of owned entities and of keys.
//
// An entity type reads like its description, a handful of lines per attribute:
//
//   class PtpProgrammerInfo : public Kiv::Entity {
//     public:
//      struct F { enum : Kiv::FieldId { programmerName, generation }; };
//      explicit PtpProgrammerInfo(Pondo::String name) : programmerName_(std::move(name)) {}
//      const Pondo::String& programmerName() const { return programmerName_; }
//      Pondo::Generation generation() const { return generation_; }
//      void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }
//     private:
//      Pondo::String programmerName_;
//      Pondo::Generation generation_;
//   };
#pragma once

#include <array>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Kiv/Trace.h"
#include "Pondo/Publisher.h"

namespace Kiv {

using Pondo::Change;
using Pondo::FieldId;

// How generated accessors return a value and setters take one: small plain
// values by value, anything else by const reference.
template <class T>
using Pass = std::conditional_t<std::is_trivially_copyable_v<T> && sizeof(T) <= 16, T, const T&>;
// The typed identity of attribute or collection `Id` of entity type `E`,
// holding `V` (for a collection, the collection type): what typed bindings name.
template <class E, class V, FieldId Id>
struct Field {
   using Entity = E;
   using Value = V;
   static constexpr FieldId id = Id;
};

// Raised by collection mutators for a null entity argument or for re-creating
// a member with different fixed arguments; the message names the argument or
// the attribute.
class Error : public std::logic_error {
   using std::logic_error::logic_error;
};

// Rejects a null entity reference given as a constructor argument.
template <class P>
const P& nonNull(const P& p, const char* argument) {
   if (!p) throw Error(fmt::format("null entity reference for argument '{}'", argument));
   return p;
}

class CollectionBase;
class Reactor;

// Makes an entity, the maker behind every factory. A state machine is also
// started: its inputs are bound in declaration order, `handleInitialized` and
// `onConstruct` run, and its notifications are switched on.
template <class T, class... A>
Pondo::Ptr<T> make(A&&... args) {
   Pondo::Ptr<T> p(new T(std::forward<A>(args)...));
   if constexpr (std::is_base_of_v<Reactor, T>) p->start();
   return p;
}

class Entity : public Pondo::Publisher {
  public:
   // Collections of this entity, in declaration order.
   const CollectionBase* collections() const { return collections_; }

  protected:
   // Stores `value` and publishes the change with the old value, unless equal:
   // an unchanged value costs the comparison, inlined wherever a setter is.
   template <class V>
   void set(V& slot, std::type_identity_t<V> value, FieldId field) {
      if (!(slot == value)) store(slot, std::move(value), field);
   }

  private:
   template <class V>
   void store(V& slot, V value, FieldId field) {
      if (!listened()) {
         slot = std::move(value);
         return;
      }
      V old = std::exchange(slot, value);
      publish(Change{this, field, Change::Kind::attribute, 0, nullptr, &old, &value, &kLayout<V>});
   }

   friend class CollectionBase;
   template <class V>
   static constexpr Pondo::ChangeLayout kLayout{nullptr, &Pondo::keepCopy<V>};
   CollectionBase* collections_ = nullptr;
};

// Common part of every collection: owner, field identity, name, and a
// modification count (additions and removals) by which iterators detect use
// after a modification.
class CollectionBase {
  public:
   CollectionBase(Entity* owner, FieldId field, const char* name) : owner_(owner), field_(field), name_(name) {
      CollectionBase** tail = &owner->collections_;
      while (*tail) tail = &(*tail)->next_;
      *tail = this;
   }
   CollectionBase(const CollectionBase&) = delete;
   CollectionBase& operator=(const CollectionBase&) = delete;
   virtual ~CollectionBase() = default;

   FieldId field() const { return field_; }
   const char* name() const { return name_; }
   const CollectionBase* next() const { return next_; }
   std::uint32_t modifications() const { return modifications_; }

   // Delivers to `to` an `added` change for every member of `now` and a
   // `removed` change for every member of `previous` whose key `now` lacks.
   // Either may be null; `this` is one of the two, and both are the same
   // collection of two entities of one type. Every change names the owner of
   // `now` as its source (null when `now` is), the entity as it now is.
   virtual void replay(const CollectionBase* now, const CollectionBase* previous, Pondo::Subscriber& to) const = 0;

  protected:
   // The replay of one collection type `C` (its keys(), contains(), memberOf()
   // and kLayout). It walks copies of the keys and looks each member up again,
   // so the handler may change the collections meanwhile: a member gone by its
   // turn is skipped, one added reaches the handler as a published change.
   template <class C>
   static void replayOf(const CollectionBase* now, const CollectionBase* previous, Pondo::Subscriber& to) {
      auto* n = static_cast<const C*>(now);
      auto* p = static_cast<const C*>(previous);
      auto hold = [](const C* c, const auto& k) {  // the member, alive while the handler runs
         auto* m = c->memberOf(k);
         return m && C::kLayout.value ? C::kLayout.value(m) : Pondo::Kept{};
      };
      if (n) {
         for (const auto& k : n->keys()) {
            if (!n->contains(k)) continue;
            Pondo::Kept m = hold(n, k);
            to.onChange(Change{n->owner_, n->field_, Change::Kind::added, 0, &k, nullptr, m.get(), &C::kLayout});
         }
      }
      if (p) {
         for (const auto& k : p->keys()) {
            if ((n && n->contains(k)) || !p->contains(k)) continue;
            Pondo::Kept m = hold(p, k);
            to.onChange(Change{n ? n->owner_ : nullptr, p->field_, Change::Kind::removed, 0, &k, m.get(), nullptr,
                               &C::kLayout});
         }
      }
   }

   // Publishes a change of a member; `key` and the values must not live in the
   // store, which handlers may change during delivery.
   void publish(Change::Kind kind, const void* key, const void* oldValue, const void* newValue,
                const Pondo::ChangeLayout& layout) {
      if (kind != Change::Kind::changed) ++modifications_;
      owner_->publish(Change{owner_, field_, kind, 0, key, oldValue, newValue, &layout});
   }
   Entity* owner() const { return owner_; }

  private:
   Entity* owner_;
   FieldId field_;
   const char* name_;
   std::uint32_t modifications_ = 0;
   CollectionBase* next_ = nullptr;
};

namespace detail {

// Iterator that stops the process when used after its collection changed.
template <class It, class Value, class Project>
class CheckedIterator {
  public:
   using value_type = Value;
   using difference_type = std::ptrdiff_t;

   CheckedIterator() = default;
   CheckedIterator(It it, const CollectionBase* c) : it_(it), c_(c), seen_(c->modifications()) {}

   decltype(auto) operator*() const {
      check();
      return Project{}(*it_);
   }
   auto operator->() const { return &**this; }
   CheckedIterator& operator++() {
      check();
      ++it_;
      return *this;
   }
   CheckedIterator operator++(int) {
      auto old = *this;
      ++*this;
      return old;
   }
   bool operator==(const CheckedIterator& o) const { return it_ == o.it_; }

  private:
   void check() const {
      kassert(seen_ == c_->modifications(), "iterator of collection {} used after a modification", c_->name());
   }
   It it_{};
   const CollectionBase* c_ = nullptr;
   std::uint32_t seen_ = 0;
};

struct KeyOf {
   template <class P>
   const auto& operator()(const P& p) const {
      return p.first;
   }
};
struct Identity {
   template <class T>
   const T& operator()(const T& t) const {
      return t;
   }
};
struct AsPair {
   template <class P>
   const P& operator()(const P& p) const {
      return p;
   }
};

// The keys of a map, in key order.
template <class M>
std::vector<typename M::key_type> keysOf(const M& m) {
   std::vector<typename M::key_type> keys;
   keys.reserve(m.size());
   for (const auto& e : m) keys.push_back(e.first);
   return keys;
}

// The fixed constructor arguments of a member, for comparison on re-creation.
template <class E>
auto fixedArgsOf(const E& e) {
   if constexpr (requires { e.fixedArgs(); }) {
      return e.fixedArgs();
   } else {
      return std::tuple<>{};
   }
}

}  // namespace detail

// Keyed collection of entities owned by the collection. Members are built
// from the key and further fixed arguments; changes inside a member are also
// published to the owner's subscribers. Iteration is in key order.
template <class K, class E>
class Collection final : public CollectionBase {
   using Map = std::map<K, Pondo::Ptr<E>>;

  public:
   using key_type = K;
   using CollectionBase::CollectionBase;
   using iterator = detail::CheckedIterator<typename Map::const_iterator, typename Map::value_type, detail::AsPair>;

   ~Collection() override {
      for (auto& [k, m] : members_) m->ownerIs(nullptr, 0);
   }

   // A member, or null; writable only through a writable collection.
   const E* operator[](const K& k) const { return find(k); }
   E* operator[](const K& k) { return find(k); }
   const E* find(const K& k) const { return memberOf(k); }
   E* find(const K& k) { return memberOf(k); }
   bool contains(const K& k) const { return members_.count(k) != 0; }
   std::size_t size() const { return members_.size(); }
   bool empty() const { return members_.empty(); }
   iterator begin() const { return {members_.begin(), this}; }
   iterator end() const { return {members_.end(), this}; }

   // Creates the member from (key, args...) if absent and returns it. An
   // existing member is returned unchanged when its fixed arguments equal
   // `args`; otherwise Kiv::Error names this collection.
   template <class... A>
   Pondo::Ptr<E> is(const K& k, A&&... args) {
      if (E* m = existing(k, std::forward_as_tuple(args...))) return m;
      return insert(k, make<E>(k, std::forward<A>(args)...));
   }
   // The same for members whose key is not a constructor argument but derives
   // from the others (a nested machine keyed by the interface of the record it
   // watches): the member is built from `args` alone.
   template <class... A>
   Pondo::Ptr<E> isFrom(const K& k, A&&... args) {
      if (E* m = existing(k, std::forward_as_tuple(args...))) return m;
      return insert(k, make<E>(std::forward<A>(args)...));
   }
   // Inserts an entity made elsewhere (its key must be `k`).
   Pondo::Ptr<E> insert(const K& k, Pondo::Ptr<E> m) {
      kassert(m, "null member for collection {}", name());
      const K key = k;
      const bool fresh = members_.try_emplace(key, m).second;
      kassert(fresh, "collection {} already holds the key", name());
      m->ownerIs(owner(), field());
      publish(Change::Kind::added, &key, nullptr, m.get(), kLayout);
      return m;
   }
   // Removes the member and returns it, or null.
   Pondo::Ptr<E> del(const K& k) {
      auto it = members_.find(k);
      if (it == members_.end()) return nullptr;
      Pondo::Ptr<E> m = std::move(it->second);
      const K key = it->first;
      members_.erase(it);
      m->ownerIs(nullptr, 0);
      publish(Change::Kind::removed, &key, m.get(), nullptr, kLayout);
      return m;
   }
   void delAll() {
      while (!members_.empty()) del(members_.begin()->first);
   }

   void replay(const CollectionBase* now, const CollectionBase* previous, Pondo::Subscriber& to) const override {
      replayOf<Collection>(now, previous, to);
   }

  private:
   friend class CollectionBase;
   static constexpr Pondo::ChangeLayout kLayout{&Pondo::keepCopy<K>, &Pondo::keepEntity<E>};
   std::vector<K> keys() const { return detail::keysOf(members_); }
   E* memberOf(const K& k) const {
      auto it = members_.find(k);
      return it == members_.end() ? nullptr : it->second.get();
   }

   // The member of key `k`, or null; throws when its fixed arguments differ from `args`.
   template <class Args>
   E* existing(const K& k, const Args& args) const {
      auto it = members_.find(k);
      if (it == members_.end()) return nullptr;
      if constexpr (std::tuple_size_v<Args> != 0) {
         if (detail::fixedArgsOf(*it->second) != args) {
            throw Error(fmt::format("'{}' exists with other fixed arguments", name()));
         }
      }
      return it->second.get();
   }

   Map members_;
};

// Keyed collection of values. Writing an equal value publishes nothing.
// Iteration is in key order, unless `Store` is a hash table (for large maps
// that are only looked up by key).
template <class K, class V, class Store = std::map<K, V>>
class Map final : public CollectionBase {
  public:
   using key_type = K;
   using CollectionBase::CollectionBase;
   using iterator = detail::CheckedIterator<typename Store::const_iterator, typename Store::value_type, detail::AsPair>;

   // The value, or null when absent.
   const V* find(const K& k) const {
      auto it = values_.find(k);
      return it == values_.end() ? nullptr : &it->second;
   }
   bool contains(const K& k) const { return values_.count(k) != 0; }
   std::size_t size() const { return values_.size(); }
   bool empty() const { return values_.empty(); }
   iterator begin() const { return {values_.begin(), this}; }
   iterator end() const { return {values_.end(), this}; }

   void is(const K& k, V v) {
      const K key = k;
      auto [it, fresh] = values_.try_emplace(key, v);
      if (fresh) {
         publish(Change::Kind::added, &key, nullptr, &v, kLayout);
      } else if (!(it->second == v)) {
         V old = std::exchange(it->second, v);
         publish(Change::Kind::changed, &key, &old, &v, kLayout);
      }
   }
   bool del(const K& k) {
      auto it = values_.find(k);
      if (it == values_.end()) return false;
      const K key = it->first;
      V old = std::move(it->second);
      values_.erase(it);
      publish(Change::Kind::removed, &key, &old, nullptr, kLayout);
      return true;
   }
   void delAll() {
      while (!values_.empty()) del(values_.begin()->first);
   }

   void replay(const CollectionBase* now, const CollectionBase* previous, Pondo::Subscriber& to) const override {
      replayOf<Map>(now, previous, to);
   }

  private:
   friend class CollectionBase;
   static constexpr Pondo::ChangeLayout kLayout{&Pondo::keepCopy<K>, &Pondo::keepCopy<V>};
   std::vector<K> keys() const { return detail::keysOf(values_); }
   const void* memberOf(const K& k) const { return find(k); }

   Store values_;
};

// Collection of keys only. Changes carry the key; old and new values are null.
template <class K>
class Set final : public CollectionBase {
   using Store = std::set<K>;

  public:
   using key_type = K;
   using CollectionBase::CollectionBase;
   using iterator = detail::CheckedIterator<typename Store::const_iterator, K, detail::Identity>;

   bool contains(const K& k) const { return keys_.count(k) != 0; }
   std::size_t size() const { return keys_.size(); }
   bool empty() const { return keys_.empty(); }
   iterator begin() const { return {keys_.begin(), this}; }
   iterator end() const { return {keys_.end(), this}; }

   void is(const K& k) {
      const K key = k;
      if (keys_.insert(key).second) publish(Change::Kind::added, &key, nullptr, nullptr, kLayout);
   }
   bool del(const K& k) {
      auto it = keys_.find(k);
      if (it == keys_.end()) return false;
      const auto node = keys_.extract(it);  // the key, out of the store
      publish(Change::Kind::removed, &node.value(), nullptr, nullptr, kLayout);
      return true;
   }
   void delAll() {
      while (!keys_.empty()) del(*keys_.begin());
   }
   bool operator==(const Set& o) const { return keys_ == o.keys_; }

   void replay(const CollectionBase* now, const CollectionBase* previous, Pondo::Subscriber& to) const override {
      replayOf<Set>(now, previous, to);
   }

  private:
   friend class CollectionBase;
   static constexpr Pondo::ChangeLayout kLayout{&Pondo::keepCopy<K>, nullptr};
   std::vector<K> keys() const { return {keys_.begin(), keys_.end()}; }
   const void* memberOf(const K&) const { return nullptr; }

   Store keys_;
};

}  // namespace Kiv
