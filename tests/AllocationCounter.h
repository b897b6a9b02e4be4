// Counts the program's heap allocations by replacing the global operator new.
// Include it in exactly one source file of an executable (a test or the
// benchmarks): the replacement is program-wide.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

inline std::atomic<std::uint64_t> allocations{0};

// Out of line, like the deletes: the compiler must not pair an inlined
// malloc() or free() with the other side.
[[gnu::noinline]] void* operator new(std::size_t n) {
   allocations.fetch_add(1, std::memory_order_relaxed);
   if (void* p = std::malloc(n ? n : 1)) return p;
   throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
