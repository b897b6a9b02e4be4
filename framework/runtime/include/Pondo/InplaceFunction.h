// A callable held by value in a few bytes: what a request keeps to report back
// to its requester. It takes any trivially copyable callable up to `Size`
// bytes (a lambda capturing `this` and a value or two), so copying one is a
// plain copy and nothing is allocated; unlike a borrowed std::function, it
// never points into storage its caller may have let go.
//
//   Pondo::InplaceFunction<void(int)> done = [this](int n) { handled_ += n; };
//   auto kept = done;  // a copy, independent of `done`
//   kept(2);
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace Pondo {

// What an InplaceFunction<R(A...), Size> can hold: a callable that a plain
// copy of its bytes copies, fitting in `Size` bytes (which rules out an
// InplaceFunction itself).
template <class F, std::size_t Size, class R, class... A>
concept FitsInPlace = std::is_trivially_copyable_v<F> && sizeof(F) <= Size &&
                      alignof(F) <= alignof(void*) && std::is_invocable_r_v<R, const F&, A...>;

template <class Signature, std::size_t Size = 2 * sizeof(void*)>
class InplaceFunction;

template <class R, class... A, std::size_t Size>
class InplaceFunction<R(A...), Size> {
  public:
   // A callable converts implicitly, as to std::function; the constraint
   // leaves copies and moves of an InplaceFunction to its own constructors.
   template <class F>
   // NOLINTNEXTLINE(bugprone-forwarding-reference-overload, google-explicit-constructor)
   InplaceFunction(F&& f) requires FitsInPlace<std::decay_t<F>, Size, R, A...> : call_(&invoke<std::decay_t<F>>) {
      ::new (static_cast<void*>(storage_)) std::decay_t<F>(std::forward<F>(f));
   }

   R operator()(A... a) const { return call_(storage_, std::forward<A>(a)...); }

  private:
   template <class F>
   static R invoke(const void* s, A... a) {
      return (*static_cast<const F*>(s))(std::forward<A>(a)...);
   }

   alignas(void*) unsigned char storage_[Size];
   R (*call_)(const void*, A...);
};

}  // namespace Pondo
