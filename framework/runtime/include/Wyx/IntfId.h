// Interface identifiers of the networking-types library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Pondo/Types.h"

namespace Wyx {

// Identifier of a network interface: an opaque 64-bit value with a full name
// ("Ethernet3/1", "Port-Channel10") and a short one ("Et3/1", "Po10"). The
// null identifier means "none" and prints as an empty name.
//
// Layout: kind in the top byte, then up to three 16-bit numbers, then their
// count in the low byte, so the order is by kind, then numerically.
class IntfId {
  public:
   enum class Kind : std::uint8_t { none, ethernet, portChannel, management, loopback, vlan };

   constexpr IntfId() = default;
   // Parses a full or short name; throws Pondo::RangeError naming the text.
   explicit IntfId(std::string_view name);
   static std::optional<IntfId> parse(std::string_view name);
   static IntfId fromValue(std::uint64_t v) {
      IntfId i;
      i.value_ = v;
      return i;
   }

   std::uint64_t value() const { return value_; }
   Kind kind() const { return Kind(value_ >> 56); }
   bool isNull() const { return value_ == 0; }
   explicit operator bool() const { return value_ != 0; }

   std::string name() const;       // "Ethernet3/1"
   std::string shortName() const;  // "Et3/1"
   std::string toString() const { return name(); }

   friend constexpr auto operator<=>(const IntfId&, const IntfId&) = default;

  private:
   std::uint64_t value_ = 0;
};

inline bool isPortChannelIntfId(IntfId i) { return i.kind() == IntfId::Kind::portChannel; }
inline bool isEthernetIntfId(IntfId i) { return i.kind() == IntfId::Kind::ethernet; }

}  // namespace Wyx

template <>
struct std::hash<Wyx::IntfId> {
   std::size_t operator()(const Wyx::IntfId& i) const noexcept { return std::hash<std::uint64_t>{}(i.value()); }
};
