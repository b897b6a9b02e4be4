#include "Kiv/Reactor.h"

#include <functional>

namespace Kiv {

namespace {

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

void InputBase::unsubscribe(const Pondo::Publisher* entity) {
   if (subscribed_ && entity) entity->handlerRemove(owner_, onChange_);
   subscribed_ = false;
}

void InputBase::dispatch(const Change& c) {
   Reactor* r = owner_;
   const Pondo::Publisher::Handler h = onChange_;
   r->run([r, h, &c] { h(r, c); });
}

void InputBase::bind(const Pondo::Publisher* now, const Pondo::Publisher* previous) {
   unsubscribe(previous);
   if (now) {
      now->handlerAdd(owner_, onChange_);
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

Reactor::Reactor(Reactor* parent) : parent_(parent) {
   hasNotificationActiveIs(false);  // until started
   if (parent_) {
      nextSibling_ = parent_->firstChild_;
      if (nextSibling_) nextSibling_->prevSibling_ = this;
      parent_->firstChild_ = this;
   }
}

Reactor::~Reactor() {
   for (Reactor* c = firstChild_; c; c = c->nextSibling_) c->parent_ = nullptr;
   if (!parent_) return;
   if (prevSibling_)
      prevSibling_->nextSibling_ = nextSibling_;
   else
      parent_->firstChild_ = nextSibling_;
   if (nextSibling_) nextSibling_->prevSibling_ = prevSibling_;
}

// One run of the machine: what reaches it during the initial pass is
// delivered once notifications are on.
void Reactor::start() {
   run([this] {
      for (InputBase* in : inputs_) in->start();
      started_ = true;
      checkInitialized();
      onConstruct();
      hasNotificationActiveIs(true);
   });
}

void Reactor::checkInitialized() {
   if (initialized_ || !started_) return;
   for (const InputBase* in : inputs_) {
      if (in->required_ && !in->entity()) return;
   }
   initialized_ = true;
   run([this] { handleInitialized(); });
}

// Notifications off, nested machines detached (the zombie-reactor pass), every
// input unsubscribed.
void Reactor::detach() {
   hasNotificationActiveIs(false);
   for (Reactor* c = firstChild_; c; c = c->nextSibling_) c->detach();
   for (InputBase* in : inputs_) in->unsubscribe(in->entity());
}

// A machine released while one of its handlers runs is torn down once that
// handler returns. Teardown holds a use, so that changes published meanwhile
// may hold further ones; the last of them deletes the machine.
void Reactor::destroy() {
   if (running()) return afterRunningIs();
   if (tornDown_) {
      delete this;
      return;
   }
   tornDown_ = true;
   reference();
   run([this] { onDestruct(); });
   detach();
   dereference();
}

void Reactor::afterRunning() {
   if (references() == 0) destroy();  // unless counted again meanwhile
}

}  // namespace Kiv
