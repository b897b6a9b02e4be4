// The printed form of an entity, which its generated toString() returns: the
// type, then every field in declaration order.
//
//   Ptp::HwConfig{name: ptp, ptpMode: 0, intfConfig: [Ethernet1, Ethernet2]}
//
// A value prints as fmt prints it; an entity reference as the entity it
// refers to (keys refer only to entities made before, so this ends), or null;
// a collection or set as its keys, a value map as its entries.
#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <typeinfo>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace Kiv {

namespace detail {
template <class V>
const V& printable(const V& v) {
   static_assert(fmt::is_formattable<V>::value,
                 "a field's type has no printed form: give it toString() or a fmt::formatter");
   return v;
}
template <class E>
std::string printable(const Pondo::Ptr<E>& p) {
   if (!p) return "null";
   if constexpr (Pondo::Printable<E>) {
      return p->toString();
   } else {
      return Pondo::typeName(typeid(*p));
   }
}
template <class K, class E>
std::string printable(const Collection<K, E>& c) {
   return fmt::format("[{}]", fmt::join(keysOf(c), ", "));
}
template <class K>
std::string printable(const Set<K>& s) {
   return fmt::format("[{}]", fmt::join(s.begin(), s.end(), ", "));
}
template <class K, class V, class S>
std::string printable(const Map<K, V, S>& m) {
   std::string out = "{";
   for (const auto& [k, v] : m) out += fmt::format("{}{}: {}", out.size() > 1 ? ", " : "", k, printable(v));
   return out + "}";
}
}  // namespace detail

// `type{name: value, ...}` with `names[i]` for `values[i]`.
template <std::size_t N, class... V>
std::string printed(std::string_view type, const std::array<std::string_view, N>& names, const V&... values) {
   static_assert(N == sizeof...(V), "one value per field name");
   std::string out = fmt::format("{}{{", type);
   std::size_t i = 0;
   ((out += fmt::format("{}{}: {}", i == 0 ? "" : ", ", names[i], detail::printable(values)), ++i), ...);
   return out + "}";
}

}  // namespace Kiv
