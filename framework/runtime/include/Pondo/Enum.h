// Enumerations with names: look-up by value and by name, printable form.
//
//   template <> struct Pondo::EnumInfo<FwdAction> {
//      static constexpr std::array<std::pair<FwdAction, std::string_view>, 4> names{{...}};
//   };
#pragma once

#include <fmt/format.h>

#include <optional>
#include <ostream>
#include <string_view>
#include <type_traits>

namespace Pondo {

template <class E>
struct EnumInfo;

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires {
   EnumInfo<E>::names;
};

// The name of `e`, or "unknown(<value>)" for a value without a name.
template <NamedEnum E>
std::string enumName(E e) {
   for (const auto& [v, n] : EnumInfo<E>::names) {
      if (v == e) return std::string(n);
   }
   return fmt::format("unknown({})", +std::underlying_type_t<E>(e));
}

template <NamedEnum E>
std::optional<E> enumFromName(std::string_view name) {
   for (const auto& [v, n] : EnumInfo<E>::names) {
      if (n == name) return v;
   }
   return std::nullopt;
}

template <NamedEnum E>
std::optional<E> enumFromValue(std::underlying_type_t<E> value) {
   for (const auto& [v, n] : EnumInfo<E>::names) {
      if (std::underlying_type_t<E>(v) == value) return v;
   }
   return std::nullopt;
}

template <NamedEnum E>
std::ostream& operator<<(std::ostream& os, E e) {
   return os << enumName(e);
}

}  // namespace Pondo

template <Pondo::NamedEnum E>
struct fmt::formatter<E> : fmt::formatter<fmt::string_view> {
   auto format(E e, fmt::format_context& ctx) const {
      return fmt::formatter<fmt::string_view>::format(Pondo::enumName(e), ctx);
   }
};
