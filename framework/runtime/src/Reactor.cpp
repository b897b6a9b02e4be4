#include "Kiv/Reactor.h"

#include <functional>

namespace Kiv {

namespace {

// Runs a hook of `r`; an exception that escapes it stops the process.
template <class F>
void guarded(const Reactor& r, F hook) {
   try {
      hook();
   } catch (...) {
      Pondo::handlerThrew(r);
   }
}

// Hands every replayed change straight to an input's handler: the initial
// pass runs before notifications are switched on.
struct Direct final : Pondo::Subscriber {
   explicit Direct(std::function<void(const Change&)> f) : fn(std::move(f)) {}
   void onChange(const Change& c) override { fn(c); }
   std::function<void(const Change&)> fn;
};

}  // namespace

InputBase::InputBase(Reactor* owner, bool required, Pondo::Publisher::Handler onChange)
    : owner_(owner), onChange_(onChange), required_(required) {
   owner->inputs_.push_back(this);
}

InputBase::~InputBase() = default;

void InputBase::unsubscribe(const Pondo::Publisher* entity) {
   if (subscribed_ && entity) entity->handlerRemove(owner_, onChange_);
   subscribed_ = false;
}

void InputBase::dispatch(const Change& c) {
   try {
      (owner_->*onChange_)(c);
   } catch (...) {
      handlerThrew();
   }
}

void InputBase::bind(const Pondo::Publisher* now, const Pondo::Publisher* previous) {
   unsubscribe(previous);
   if (now) {
      now->handlerAdd(owner_, onChange_, &owner_->notificationActive_);
      subscribed_ = true;
   }
   auto* e = static_cast<const Entity*>(now ? now : previous);
   if (e) {
      Direct to([this](const Change& c) { dispatch(c); });
      auto* n = static_cast<const Entity*>(now);
      auto* p = static_cast<const Entity*>(previous);
      const CollectionBase* nc = n ? n->collections() : nullptr;
      const CollectionBase* pc = p ? p->collections() : nullptr;
      while (nc || pc) {
         (nc ? nc : pc)->replay(nc, pc, to);
         if (nc) nc = nc->next();
         if (pc) pc = pc->next();
      }
   }
   owner_->checkInitialized();
}

void InputBase::start() {
   bind(entity(), nullptr);
   selfHandler(nullptr, true);
}

void InputBase::handlerThrew() const { Pondo::handlerThrew(*owner_); }

Reactor::Reactor(Reactor* parent) : parent_(parent) {
   if (parent_) {
      nextSibling_ = parent_->firstChild_;
      if (nextSibling_) nextSibling_->prevSibling_ = this;
      parent_->firstChild_ = this;
   }
}

Reactor::~Reactor() {
   for (Reactor* c = firstChild_; c; c = c->nextSibling_) c->parent_ = nullptr;
   if (!parent_) return;
   if (prevSibling_) prevSibling_->nextSibling_ = nextSibling_;
   else parent_->firstChild_ = nextSibling_;
   if (nextSibling_) nextSibling_->prevSibling_ = prevSibling_;
}

void Reactor::start() {
   for (InputBase* in : inputs_) in->start();
   started_ = true;
   checkInitialized();
   guarded(*this, [this] { onConstruct(); });
   notificationActive_ = true;
}

void Reactor::checkInitialized() {
   if (initialized_ || !started_) return;
   for (const InputBase* in : inputs_) {
      if (in->required_ && !in->entity()) return;
   }
   initialized_ = true;
   guarded(*this, [this] { handleInitialized(); });
}

// Notifications off, nested machines detached (the zombie-reactor pass), every
// input unsubscribed.
void Reactor::detach() {
   notificationActive_ = false;
   for (Reactor* c = firstChild_; c; c = c->nextSibling_) c->detach();
   for (InputBase* in : inputs_) in->unsubscribe(in->entity());
}

void Reactor::destroy() {
   reference();  // keeps the count above zero while teardown publishes
   guarded(*this, [this] { onDestruct(); });
   detach();
   delete this;
}

}  // namespace Kiv
