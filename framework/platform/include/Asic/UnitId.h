// The unit number by which the hardware-access layer addresses a chip.
#pragma once

#include <cstdint>
#include <string>

#include "Pondo/Types.h"

namespace Asic {

// Units are numbered from min(); invalid() is the one value past the last
// unit and stands for "no unit". Anything outside [min(), invalid()] is a
// Pondo::RangeError.
class UnitId {
  public:
   static constexpr std::int64_t min() { return 0; }
   static constexpr std::int64_t invalid() { return 128; }

   constexpr UnitId() = default;
   explicit UnitId(std::int64_t v) : value_(check(v)) {}
   std::uint32_t value() const { return value_; }
   bool valid() const { return value_ != invalid(); }
   friend constexpr auto operator<=>(const UnitId&, const UnitId&) = default;
   std::string toString() const { return std::to_string(value_); }

  private:
   static std::uint32_t check(std::int64_t v) {
      if (v < min()) throw Pondo::RangeError("Asic::UnitId::value < min() not allowed");
      if (v > invalid()) throw Pondo::RangeError("Asic::UnitId::value > invalid() not allowed");
      return std::uint32_t(v);
   }
   std::uint32_t value_ = std::uint32_t(invalid());
};

}  // namespace Asic
