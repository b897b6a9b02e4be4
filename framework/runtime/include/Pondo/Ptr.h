// Counted objects and the counted pointer that holds them.
#pragma once

#include <sys/single_threaded.h>

#include <atomic>
#include <compare>
#include <cstdint>
#include <functional>
#include <utility>

namespace Pondo {

namespace detail {
// Process-wide choice of use-count arithmetic; see multiThreadedIs().
inline std::atomic<bool> multiThreaded{false};
}  // namespace detail

// Use counts are locked once the process has a second thread (the C library
// notes it when the thread is created, for good) or when asked for; a
// single-threaded process keeps plain counts, which are several times cheaper.
inline void multiThreadedIs(bool on) { detail::multiThreaded.store(on, std::memory_order_seq_cst); }
inline bool multiThreaded() { return !__libc_single_threaded || detail::multiThreaded.load(std::memory_order_relaxed); }

// Base of every counted object (entities, state machines). The count lives in
// an atomic word either way, so plain counting is plain loads and stores.
class Object {
  public:
   Object() = default;
   Object(const Object&) = delete;
   Object& operator=(const Object&) = delete;

   std::uint32_t references() const { return refs_.load(std::memory_order_relaxed); }

   void reference() const {
      if (multiThreaded()) {
         refs_.fetch_add(1, std::memory_order_relaxed);
      } else {
         refs_.store(refs_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
      }
   }
   void dereference() const {
      std::uint32_t left;
      if (multiThreaded()) {
         left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
      } else {
         left = refs_.load(std::memory_order_relaxed) - 1;
         refs_.store(left, std::memory_order_relaxed);
      }
      if (left == 0) const_cast<Object*>(this)->lastReferenceGone();
   }

  protected:
   virtual ~Object() = default;
   // Runs when the last use goes; state machines tear down here before deletion.
   virtual void lastReferenceGone() { delete this; }

  private:
   mutable std::atomic<std::uint32_t> refs_{0};
};

// Counted pointer. May be null. Copying adds a use, dropping releases one.
template <class T>
class Ptr {
  public:
   Ptr() = default;
   Ptr(std::nullptr_t) {}
   Ptr(T* p) : p_(p) {  // NOLINT: implicit like a raw pointer
      if (p_) p_->reference();
   }
   Ptr(const Ptr& o) : Ptr(o.p_) {}
   Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
   template <class U>
   Ptr(const Ptr<U>& o) requires std::is_convertible_v<U*, T*> : Ptr(o.get()) {}  // NOLINT
   template <class U>
   Ptr(Ptr<U>&& o) noexcept requires std::is_convertible_v<U*, T*> : p_(o.release()) {}  // NOLINT
   ~Ptr() {
      if (p_) p_->dereference();
   }
   Ptr& operator=(Ptr o) noexcept {
      std::swap(p_, o.p_);
      return *this;
   }

   T* get() const { return p_; }
   T* operator->() const { return p_; }
   T& operator*() const { return *p_; }
   explicit operator bool() const { return p_ != nullptr; }
   // Hands the use to the caller.
   T* release() { return std::exchange(p_, nullptr); }

   friend bool operator==(const Ptr& a, const Ptr& b) { return a.p_ == b.p_; }
   friend bool operator==(const Ptr& a, std::nullptr_t) { return a.p_ == nullptr; }
   friend auto operator<=>(const Ptr& a, const Ptr& b) { return std::compare_three_way{}(a.p_, b.p_); }

  private:
   T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) {
   return Ptr<T>(static_cast<T*>(p.get()));
}

}  // namespace Pondo

template <class T>
struct std::hash<Pondo::Ptr<T>> {
   std::size_t operator()(const Pondo::Ptr<T>& p) const noexcept { return std::hash<T*>{}(p.get()); }
};
