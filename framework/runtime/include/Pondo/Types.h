// Value types shared by every part of the system, and their printable forms.
#pragma once

#include <fmt/format.h>

#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace Pondo {

using String = std::string;

// A value type with a toString() is printable with fmt ("{}") and streams.
template <class T>
concept Printable = requires(const T& v) {
   { v.toString() } -> std::convertible_to<std::string>;
};

template <Printable T>
std::ostream& operator<<(std::ostream& os, const T& v) {
   return os << v.toString();
}

// Raised when a value is outside the range of its type.
class RangeError : public std::range_error {
   using std::range_error::range_error;
};

// Boost-style hash mixing for value types made of several fields.
inline std::size_t hashMix(std::size_t seed, std::size_t v) {
   return seed ^ (v + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
}

// Identifier of one logical forwarding chip (FAP).
using LogicalFapId = std::uint16_t;
// Identifier of a physical forwarding chip in the hardware-status tree.
using FapId = std::uint32_t;

// Version stamp: a 32-bit counter and a one-byte flag; both take part in equality.
struct Generation {
   std::uint32_t counter = 0;
   bool flag = false;

   constexpr Generation() = default;
   constexpr Generation(std::uint32_t c, bool f) : counter(c), flag(f) {}
   friend constexpr auto operator<=>(const Generation&, const Generation&) = default;
   std::string toString() const { return fmt::format("({}, {})", counter, flag); }
};

// Unsigned 3-bit number, stored in a byte.
class U3 {
  public:
   constexpr U3() = default;
   explicit U3(int v) : value_(check(v)) {}
   std::uint8_t value() const { return value_; }
   friend constexpr auto operator<=>(const U3&, const U3&) = default;
   std::string toString() const { return std::to_string(value_); }

  private:
   static std::uint8_t check(int v) {
      if (v < 0 || v > 0x07) throw RangeError("U3::value < 0 or > 0x07 not allowed");
      return std::uint8_t(v);
   }
   std::uint8_t value_ = 0;
};

// A span of time, in nanoseconds.
class Duration {
  public:
   constexpr Duration() = default;
   static constexpr Duration nanoseconds(std::int64_t ns) { return Duration(ns); }
   static constexpr Duration milliseconds(std::int64_t ms) { return Duration(ms * 1'000'000); }
   static constexpr Duration seconds(double s) { return Duration(std::int64_t(s * 1e9)); }
   constexpr std::int64_t nanoseconds() const { return ns_; }
   constexpr double seconds() const { return double(ns_) / 1e9; }
   friend constexpr Duration operator+(Duration a, Duration b) { return Duration(a.ns_ + b.ns_); }
   friend constexpr Duration operator-(Duration a, Duration b) { return Duration(a.ns_ - b.ns_); }
   friend constexpr auto operator<=>(const Duration&, const Duration&) = default;
   std::string toString() const { return fmt::format("{}ns", ns_); }

  private:
   constexpr explicit Duration(std::int64_t ns) : ns_(ns) {}
   std::int64_t ns_ = 0;
};

}  // namespace Pondo

template <Pondo::Printable T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
   auto format(const T& v, fmt::format_context& ctx) const {
      return fmt::formatter<fmt::string_view>::format(v.toString(), ctx);
   }
};

template <>
struct std::hash<Pondo::Generation> {
   std::size_t operator()(const Pondo::Generation& g) const noexcept { return Pondo::hashMix(g.counter, g.flag); }
};
template <>
struct std::hash<Pondo::U3> {
   std::size_t operator()(const Pondo::U3& u) const noexcept { return u.value(); }
};
template <>
struct std::hash<Pondo::Duration> {
   std::size_t operator()(const Pondo::Duration& d) const noexcept {
      return std::hash<std::int64_t>{}(d.nanoseconds());
   }
};
