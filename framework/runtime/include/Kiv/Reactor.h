// State machines (reactors) and their inputs.
//
// A reactor declares one Kiv::Input per watched entity, in the order its
// description gives them, each with its handler:
//
//   class PipelineInfoSm : public Kiv::Reactor {
//      Kiv::Input<const PtpActions> ptpActions_{this, std::move(actions), Kiv::on<&PipelineInfoSm::on_ptpActions>};
//      void on_ptpActions(const Kiv::Change& c) {
//         if (c.field == PtpActions::F::generation) updateAggState();
//      }
//   };
//
// The handler hears every change of the input's attributes, of the members of
// its collections and inside those members (`c.source` tells whose attribute
// it is). Kiv::make<Sm>(...) builds the machine, binds its inputs in
// declaration order, calls handleInitialized() once every required input is
// present (now, or when an assignment completes them), runs onConstruct() and
// switches notifications on. Nested machines that shadow a collection:
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
template <class C>
struct MemberOf<void (C::*)(const Change&)> {
   using Class = C;
};
}  // namespace detail

// A machine's member `H`, void (Sm::*)(const Kiv::Change&), bound as the
// handler of an input: `Kiv::on<&Sm::on_cell>`. The watched entity calls it
// through a plain function made for it, as cheap as a callback list's call.
template <auto H>
struct On {
   using Sm = typename detail::MemberOf<decltype(H)>::Class;
   static constexpr Pondo::Publisher::Handler handler() {
      return [](Pondo::Receiver* r, const Change& c) { (static_cast<Sm*>(r)->*H)(c); };
   }
};
template <auto H>
inline constexpr On<H> on{};

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

  private:
   friend class Reactor;
   virtual const Pondo::Publisher* entity() const = 0;
   virtual void selfHandler(const Pondo::Publisher* previous, bool initial) = 0;
   // Runs the handler for a replayed change.
   void dispatch(const Change& c);
   void start();

   Reactor* owner_;
   Pondo::Publisher::Handler onChange_;
   bool required_;
   bool subscribed_ = false;
};

template <class T>
class Input final : public InputBase {
  public:
   using SelfHandler = void (Reactor::*)(T* previous, bool initial);

   template <class Owner, auto H>
   Input(Owner* owner, Pondo::Ptr<T> entity, On<H> onChange, void (Owner::*onSelf)(T* previous, bool initial) = nullptr)
       : InputBase(owner, true, onChange.handler()),
         entity_(std::move(entity)),
         onSelf_(static_cast<SelfHandler>(onSelf)) {}

   // An input that may stay absent without holding back handleInitialized().
   struct Optional {};
   template <class Owner, auto H>
   Input(Optional, Owner* owner, Pondo::Ptr<T> entity, On<H> onChange,
         void (Owner::*onSelf)(T* previous, bool initial) = nullptr)
       : InputBase(owner, false, onChange.handler()),
         entity_(std::move(entity)),
         onSelf_(static_cast<SelfHandler>(onSelf)) {}

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
   const Pondo::Publisher* entity() const override { return entity_.get(); }
   void selfHandler(const Pondo::Publisher* previous, bool initial) override;

   Pondo::Ptr<T> entity_;
   SelfHandler onSelf_ = nullptr;
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
   r->run([r, h, p, initial] { (r->*h)(p, initial); });
}

// A nested machine: watches one entity, its notifier (usually a member of a
// collection that its owner watches), on behalf of the machine that owns it,
// and hands every change of the notifier to onAttribute(). The owner keeps its
// nested machines in a collection keyed like the one they shadow.
//
//   class NestedSm_IntfStatus : public Kiv::NestedSm<AggregatorSm, const IntfInfo> {
//     public:
//      using NestedSm::NestedSm;
//     private:
//      void onAttribute(const Kiv::Change& c) override {
//         if (c.field == IntfInfo::F::generation) ownerSm()->handleIntfStatus(notifier()->key());
//      }
//   };
template <class Owner, class T>
class NestedSm : public Reactor {
  public:
   NestedSm(Pondo::Ptr<T> notifier, Owner* owner)
       : Reactor(owner), notifier_(this, std::move(notifier), on<&NestedSm::onNotifier>, &NestedSm::onNotifierBound) {}

   // The owning machine (not counted); null once it has gone.
   Owner* ownerSm() const { return static_cast<Owner*>(parent()); }
   T* notifier() const { return notifier_.get(); }
   // Attaches the machine to another entity, like replacing any input.
   void notifierIs(Pondo::Ptr<T> n) { notifier_ = std::move(n); }

  protected:
   // One change of the notifier: `c.field` names the attribute, `c.newValue`
   // points at its value.
   virtual void onAttribute(const Change& c) = 0;
   // The notifier has been bound: at the start, or by notifierIs.
   virtual void onBinding(bool /*initial*/) {}

  private:
   void onNotifier(const Change& c) { onAttribute(c); }
   void onNotifierBound(T*, bool initial) { onBinding(initial); }

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
