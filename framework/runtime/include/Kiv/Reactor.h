// State machines (reactors) and their inputs.
//
// A reactor declares one Kiv::Input per watched entity, in the order its
// description gives them, each with its bindings:
//
//   class PipelineInfoSm : public Kiv::Reactor {
//      Kiv::Input<const PtpActions> ptpActions_{
//          this, std::move(actions), Kiv::on<PtpActions::generation_t, &PipelineInfoSm::updateAggState>};
//      void updateAggState();
//   };
//
// The bindings (below) name the handlers of the input's attributes, of the
// members of its collections and of attributes inside those members.
// Kiv::make<Sm>(...) builds the machine, binds its inputs in declaration order,
// calls handleInitialized() once every required input is present (now, or
// when an assignment completes them), runs onConstruct() and switches
// notifications on. Nested machines that shadow a collection:
// Kiv::NestedSm and Kiv::shadow, below.
//
// The contract:
// - Order: delivery is synchronous (a setter returns once every reaction to
//   it, and to those, has run), and every receiver hears the changes of one
//   entity, its own and those inside its members, in the order they were made.
// - Re-entrancy: a machine's handlers (handlers, self handlers, hooks, the
//   initial pass) never run inside one another. A change reaching it while one
//   runs waits, as a copy of its key and values holding a use of its source,
//   and is delivered when the outermost returns, if the machine still watches
//   the entity with notifications on; so a machine hears its own writes into
//   its inputs as later changes (tests/ExampleMachine.h, SpeedCapSm).
// - Replay: binding an entity to an input (at the start, or by assignment,
//   which replays at once even inside a handler) delivers each member of its
//   collections as added and each member of the previous entity it lacks as
//   removed, with the new entity (or null) as `c.source`, then runs the
//   optional self handler. It walks copies of the keys: the handler may
//   remove members (those gone are skipped) or add them (they arrive as
//   changes after the pass).
// - Teardown, when the last use goes (after the running handler, if one
//   runs): onDestruct() with notifications still on and its writes delivered
//   at once, notifications off, nested machines detached, inputs unsubscribed,
//   then deletion of owned collections and outputs before the inputs (declare
//   inputs first). A removed nested machine goes once the last receiver has
//   heard of its removal.
// An exception escaping any of these stops the process, naming the machine.
#pragma once

#include <vector>

#include "Kiv/Entity.h"

namespace Kiv {

class Reactor;

namespace detail {
template <class M>
struct MemberOf;
template <class C, class R, class... A>
struct MemberOf<R (C::*)(A...)> {
   using Class = C;
};
template <auto H>
using SmOf = typename MemberOf<decltype(H)>::Class;
template <class V>
concept Keyed = requires {
   typename V::key_type;
};
}  // namespace detail

// Bindings: which handler of a machine hears which changes of an input. The
// input dispatches each change to its bindings in declaration order through
// one plain function made for them, so no handler switches on field ids.
//
//   Kiv::on<X::a_t, &Sm::h>   attribute `a` of the input changed:
//                             h() or h(const V& old, const V& now);
//   Kiv::on<X::c_t, &Sm::h>   member of collection, map or set `c` of the input
//                             added, changed or removed: h(const K& key);
//   Kiv::on<Kiv::Inside<X::c_t, M::a_t>, &Sm::h>
//                             attribute `a` of a member of `c` changed:
//                             h(const M& member) or h(const M&, const V& old, const V& now);
//   Kiv::onAny<&Sm::h>        every change: h(const Kiv::Change&);
//   Kiv::onSelf<&Sm::h>       the input was bound (at the start, initial true,
//                             or by assignment): h(T* previous, bool initial).
template <class Collection, class Attribute>
struct Inside {};

template <class F, auto H>
struct On {
   static void deliver(Pondo::Receiver* r, const Change& c) {
      if (c.depth != 0 || c.field != F::id) return;
      auto* sm = static_cast<detail::SmOf<H>*>(r);
      using V = typename F::Value;
      if constexpr (detail::Keyed<V>) {
         (sm->*H)(c.keyAs<typename V::key_type>());
      } else if constexpr (std::is_invocable_v<decltype(H), decltype(sm), const V&, const V&>) {
         (sm->*H)(c.oldAs<V>(), c.newAs<V>());
      } else {
         (sm->*H)();
      }
   }
};
template <class C, class A, auto H>
struct On<Inside<C, A>, H> {
   static void deliver(Pondo::Receiver* r, const Change& c) {
      if (c.depth != 1 || c.field != A::id || c.source->ownerField() != C::id) return;
      auto* sm = static_cast<detail::SmOf<H>*>(r);
      const auto& member = static_cast<const typename A::Entity&>(*c.source);
      using V = typename A::Value;
      if constexpr (std::is_invocable_v<decltype(H), decltype(sm), decltype(member), const V&, const V&>) {
         (sm->*H)(member, c.oldAs<V>(), c.newAs<V>());
      } else {
         (sm->*H)(member);
      }
   }
};
template <class F, auto H>
inline constexpr On<F, H> on{};

template <auto H>
struct OnAny {
   static void deliver(Pondo::Receiver* r, const Change& c) { (static_cast<detail::SmOf<H>*>(r)->*H)(c); }
};
template <auto H>
inline constexpr OnAny<H> onAny{};

template <auto H>
struct OnSelf {
   static void deliver(Pondo::Receiver*, const Change&) {}
   template <class T>
   static void self(Reactor* r, T* previous, bool initial) {
      (static_cast<detail::SmOf<H>*>(r)->*H)(previous, initial);
   }
};
template <auto H>
inline constexpr OnSelf<H> onSelf{};

namespace detail {
// The self handler among bindings `B`, or null.
template <class T, class... B>
constexpr auto selfHandler() {
   void (*h)(Reactor*, T*, bool) = nullptr;
   (
       [&] {
          if constexpr (requires { &B::template self<T>; }) h = &B::template self<T>;
       }(),
       ...);
   return h;
}
template <class... B>
void dispatch(Pondo::Receiver* r, const Change& c) {
   (B::deliver(r, c), ...);
}
// Whether binding `B` names a field of entity type `E` (or of one of its bases).
template <class B, class E>
inline constexpr bool bindsTo = true;
template <class F, auto H, class E>
inline constexpr bool bindsTo<On<F, H>, E> = std::is_base_of_v<typename F::Entity, E>;
template <class C, class A, auto H, class E>
inline constexpr bool bindsTo<On<Inside<C, A>, H>, E> = std::is_base_of_v<typename C::Entity, E>;
}  // namespace detail

// An input registers its owner's handler with the watched entity, which calls
// it directly while the owner's notifications are on.
class InputBase {
  public:
   InputBase(const InputBase&) = delete;
   InputBase& operator=(const InputBase&) = delete;

  protected:
   InputBase(Reactor* owner, bool required, Pondo::Publisher::Handler onChange);
   ~InputBase() = default;

   // Subscribes to `now` (after leaving `previous`) and replays its members.
   void bind(const Pondo::Publisher* now, const Pondo::Publisher* previous);
   void unsubscribe(const Pondo::Publisher* entity);
   Reactor* owner() const { return owner_; }

  public:
   // Runs the bindings for `c` as one of the owner's handlers (a replayed or
   // forwarded change).
   void dispatch(const Change& c);

  private:
   friend class Reactor;
   virtual const Pondo::Publisher* entity() const = 0;
   virtual void selfHandler(const Pondo::Publisher* previous, bool initial) = 0;
   void start();

   Reactor* owner_;
   Pondo::Publisher::Handler onChange_;
   bool required_;
   bool subscribed_ = false;
};

template <class T>
class Input final : public InputBase {
  public:
   using SelfHandler = void (*)(Reactor*, T* previous, bool initial);

   // Watches `entity` (which may be null) with `bindings` (Kiv::on and the like).
   template <class Owner, class... B>
   Input(Owner* owner, Pondo::Ptr<T> entity, B... bindings) : Input(true, owner, std::move(entity), bindings...) {}

   // An input that may stay absent without holding back handleInitialized().
   struct Optional {};
   template <class Owner, class... B>
   Input(Optional, Owner* owner, Pondo::Ptr<T> entity, B... bindings)
       : Input(false, owner, std::move(entity), bindings...) {}

   ~Input() { unsubscribe(entity_.get()); }

   T* get() const { return entity_.get(); }
   T* operator->() const { return entity_.get(); }
   T& operator*() const { return *entity_; }
   explicit operator bool() const { return bool(entity_); }
   const Pondo::Ptr<T>& ptr() const { return entity_; }

   // Replaces the watched entity (self-publisher and self steps).
   Input& operator=(Pondo::Ptr<T> now) {
      if (now == entity_) return *this;
      Pondo::Ptr<T> previous = std::exchange(entity_, std::move(now));
      bind(entity_.get(), previous.get());
      selfHandler(previous.get(), false);
      return *this;
   }

  private:
   template <class... B>
   Input(bool required, Reactor* owner, Pondo::Ptr<T> entity, B...)
       : InputBase(owner, required, &detail::dispatch<B...>),
         entity_(std::move(entity)),
         onSelf_(detail::selfHandler<T, B...>()) {
      static_assert((detail::bindsTo<B, std::remove_const_t<T>> && ...), "a binding names a field of another entity");
   }

   const Pondo::Publisher* entity() const override { return entity_.get(); }
   void selfHandler(const Pondo::Publisher* previous, bool initial) override;

   Pondo::Ptr<T> entity_;
   SelfHandler onSelf_;
};

// The receiver comes first, so that a handler is called on the machine's own
// address (sanitizers check it); a machine names Reactor, or another machine
// type, as its first base.
class Reactor : public Pondo::Receiver, public Entity {
  public:
   // The machine that owns this nested one, or null (not counted).
   Reactor* parent() const { return parent_; }
   bool initialized() const { return initialized_; }

   // The initial pass; run by Kiv::make.
   void start();

  protected:
   explicit Reactor(Reactor* parent = nullptr);
   ~Reactor() override;

   virtual void handleInitialized() {}
   virtual void onConstruct() {}
   virtual void onDestruct() {}

  private:
   friend class InputBase;
   void destroy() override;
   void afterRunning() override;
   void detach();
   void checkInitialized();

   std::vector<InputBase*> inputs_;
   Reactor* parent_;  // cleared when the parent goes first
   Reactor* firstChild_ = nullptr;
   Reactor* prevSibling_ = nullptr;
   Reactor* nextSibling_ = nullptr;
   bool initialized_ = false;
   bool started_ = false;
   bool tornDown_ = false;
};

template <class T>
void Input<T>::selfHandler(const Pondo::Publisher* previous, bool initial) {
   if (!onSelf_) return;
   Reactor* r = owner();
   const SelfHandler h = onSelf_;
   T* p = static_cast<T*>(const_cast<Pondo::Publisher*>(previous));
   r->run([r, h, p, initial] { h(r, p, initial); });
}

// A nested machine: watches one entity, its notifier (usually a member of a
// collection that its owner watches), on behalf of the machine that owns it.
// Its bindings are its onAttribute: each forwards a change of the notifier to
// an operation of the owner. The owner keeps its nested machines in a
// collection keyed like the one they shadow.
//
//   class NestedSm_IntfStatus : public Kiv::NestedSm<AggregatorSm, const IntfInfo> {
//     public:
//      NestedSm_IntfStatus(Pondo::Ptr<const IntfInfo> info, AggregatorSm* owner)
//          : NestedSm(std::move(info), owner, Kiv::on<IntfInfo::generation_t, &NestedSm_IntfStatus::onGeneration>) {}
//     private:
//      void onGeneration() { ownerSm()->handleIntfStatus(notifier()->intf()); }
//   };
template <class Owner, class T>
class NestedSm : public Reactor {
  public:
   template <class... B>
   NestedSm(Pondo::Ptr<T> notifier, Owner* owner, B... bindings)
       : Reactor(owner), notifier_(this, std::move(notifier), bindings...) {}

   // The owning machine (not counted); null once it has gone.
   Owner* ownerSm() const { return static_cast<Owner*>(parent()); }
   T* notifier() const { return notifier_.get(); }
   // Attaches the machine to another entity, like replacing any input.
   void notifierIs(Pondo::Ptr<T> n) { notifier_ = std::move(n); }
   // Forwards attribute `field` of the watched entity, now `value`, to the
   // owner operation bound to it, as if the entity had published the change
   // (the old value is not known: both are `value`).
   template <class V>
   void onAttribute(FieldId field, const V& value) {
      notifier_.dispatch(Change{notifier_.get(), field, Change::Kind::attribute, 0, nullptr, &value, &value, nullptr});
   }

  private:
   Input<T> notifier_;
};

// Keeps `nested`, the nested machines that shadow a watched collection, right
// by presence: afterwards `key` has a machine exactly when `member` (the
// watched collection's member of that key as it is now, or null) exists, and
// that machine watches `member`. A machine watching an earlier member of the
// key is replaced; `make()` makes the machine of `member`. Acting on what is
// present rather than on what a change said keeps one machine per member
// whatever order the changes arrive in.
template <class K, class Sm, class T, class Make>
void shadow(Collection<K, Sm>& nested, const K& key, const T* member, Make make) {
   if (const Sm* sm = nested.find(key)) {
      if (sm->notifier() == member) return;
      nested.del(key);
   }
   if (member) nested.insert(key, make());
}

}  // namespace Kiv
