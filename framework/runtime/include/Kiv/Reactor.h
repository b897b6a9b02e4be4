// State machines (reactors) and their inputs.
//
// A reactor declares one Kiv::Input per watched entity, in the order its
// description gives them, each with its handler family:
//
//   class PipelineInfoSm : public Kiv::Reactor {
//      Kiv::Input<const PtpActions> ptpActions_{this, std::move(actions), &PipelineInfoSm::on_ptpActions};
//      void on_ptpActions(const Kiv::Change& c) {
//         if (c.field == PtpActions::F::generation) updateAggState();
//      }
//   };
//
// - child: the handler receives every change of the input's attributes, every
//   addition, change and removal of a member of its collections, and every
//   change inside those members (recursive publication; `c.source` tells whose
//   attribute it is);
// - self-publisher: assigning a new entity to the input unsubscribes from the
//   old one and subscribes to the new one;
// - self: after binding, every member of the new entity's collections is
//   delivered to the handler as added and every member of the old entity that
//   the new one lacks as removed, all with the new entity as `c.source` (null
//   when the input was cleared), so `c.source == input.get()` tells the
//   input's own changes from those inside its members in every case; then the
//   optional self handler runs with the previous entity and whether this is
//   the initial binding.
//
// Kiv::make<Sm>(...) constructs the machine, binds its inputs in declaration
// order (the initial pass), calls handleInitialized() once every required
// input is present (now or when a later assignment completes them), runs
// onConstruct(), and switches notifications on.
//
// Teardown, when the last reference goes: onDestruct(), notifications off,
// the zombie-reactor pass (nested machines are detached from their inputs),
// every input unsubscribes, then the object is deleted, which deletes owned
// collections and outputs before the references to the inputs (declare inputs
// first).
//
// Delivery model:
// - Synchronous: a setter called outside any handler returns once every
//   reaction to it, and every reaction to those, has run.
// - Ordered: every receiver hears the changes of one entity (its own and those
//   inside its members) in the order they were made. A change made while the
//   entity's previous one is being delivered waits until that delivery is over.
// - Not re-entrant: a change that reaches a machine while one of its handlers
//   runs (a handler, a self handler, a hook, the whole initial pass) waits and
//   is delivered right after the outermost one returns, if the machine still
//   watches the entity and its notifications are on. A machine thus hears its
//   own writes into its inputs as later changes (tests/ExampleMachine.h,
//   SpeedCapSm). Replacing an input inside a handler replays at once.
// - Owned copies: a waiting change keeps copies of its key and values and a
//   use of its source and of a removed member, so every receiver gets exactly
//   what was published; a removed nested machine is torn down once the last
//   receiver has heard of its removal.
// - Replay walks copies of the keys and looks each member up again: the
//   handler may remove the member it is told about (later ones that are gone
//   are skipped) or add members (they arrive as changes after the pass).
// - Teardown: a machine released while one of its handlers runs is torn down
//   when that handler returns. onDestruct() runs with notifications still on
//   and its writes are delivered synchronously, so a watcher hears an entity
//   emptied there before its owner drops it.
//
// An exception that escapes a handler, a self handler, handleInitialized(),
// onConstruct() or onDestruct() stops the process with a message naming the
// machine and the exception.
#pragma once

#include <vector>

#include "Kiv/Entity.h"

namespace Kiv {

class Reactor;

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

   template <class Owner>
   Input(Owner* owner, Pondo::Ptr<T> entity, void (Owner::*onChange)(const Change&),
         void (Owner::*onSelf)(T* previous, bool initial) = nullptr)
       : InputBase(owner, true, static_cast<Pondo::Publisher::Handler>(onChange)),
         entity_(std::move(entity)),
         onSelf_(static_cast<SelfHandler>(onSelf)) {}

   // An input that may stay absent without holding back handleInitialized().
   struct Optional {};
   template <class Owner>
   Input(Optional, Owner* owner, Pondo::Ptr<T> entity, void (Owner::*onChange)(const Change&),
         void (Owner::*onSelf)(T* previous, bool initial) = nullptr)
       : InputBase(owner, false, static_cast<Pondo::Publisher::Handler>(onChange)),
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
   bool hasNotificationActive() const { return notificationActive_; }
   void hasNotificationActiveIs(bool on) { notificationActive_ = on; }
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
   bool notificationActive_ = false;
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
       : Reactor(owner), notifier_(this, std::move(notifier), &NestedSm::onNotifier, &NestedSm::onNotifierBound) {}

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
