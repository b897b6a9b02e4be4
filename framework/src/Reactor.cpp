#include "Kiv/Reactor.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace Kiv {

namespace {

std::string typeName(const std::type_info& t) {
   int status = 0;
   std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(t.name(), nullptr, nullptr, &status), std::free);
   return status == 0 ? name.get() : t.name();
}

// Stops the process for the exception in flight, which escaped a handler of `r`.
[[noreturn]] void escaped(const Reactor& r) {
   std::string what = "unknown exception";
   try {
      throw;
   } catch (const std::exception& e) {
      what = typeName(typeid(e)) + ": " + e.what();
   } catch (...) {
   }
   fatal(fmt::format("exception escaped a handler of {}: {}", typeName(typeid(r)), what),
         std::source_location::current());
}

// Runs a hook of `r`; an exception that escapes it stops the process.
template <class F>
void guarded(const Reactor& r, F hook) {
   try {
      hook();
   } catch (...) {
      escaped(r);
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

InputBase::InputBase(Reactor* owner, bool required) : owner_(owner), required_(required) {
   owner->inputs_.push_back(this);
}

InputBase::~InputBase() = default;

void InputBase::unsubscribe(const Pondo::Publisher* entity) {
   if (subscribed_ && entity) entity->subscriberRemove(this);
   subscribed_ = false;
}

void InputBase::bind(const Pondo::Publisher* now, const Pondo::Publisher* previous) {
   unsubscribe(previous);
   if (now) {
      now->subscriberAdd(this);
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

void InputBase::handlerThrew() const { escaped(*owner_); }

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
