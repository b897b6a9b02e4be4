// The 8-byte identity of a PTP clock.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Pondo/Types.h"

namespace Ptp {

// Printed and parsed in the usual PTP text form: three groups of hexadecimal
// digits, "001122.fffe.334455" (bytes 0-2, 3-4 and 5-7).
class ClockIdentity {
  public:
   using Bytes = std::array<std::uint8_t, 8>;

   constexpr ClockIdentity() = default;
   constexpr explicit ClockIdentity(const Bytes& bytes) : bytes_(bytes) {}
   // Parses the text form; throws Pondo::RangeError naming the text.
   explicit ClockIdentity(std::string_view text);
   static std::optional<ClockIdentity> parse(std::string_view text);

   const Bytes& bytes() const { return bytes_; }
   std::string toString() const;

   friend constexpr auto operator<=>(const ClockIdentity&, const ClockIdentity&) = default;

  private:
   Bytes bytes_{};
};

}  // namespace Ptp

template <>
struct std::hash<Ptp::ClockIdentity> {
   std::size_t operator()(const Ptp::ClockIdentity& c) const noexcept {
      std::size_t h = 0;
      for (std::uint8_t b : c.bytes()) h = Pondo::hashMix(h, b);
      return h;
   }
};
