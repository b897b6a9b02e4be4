// State of the FPGA's GPIO timestamp sample.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Pondo/Enum.h"

namespace VyrPtp {

enum class GpioSampleStatus : std::uint8_t { notAvailable = 0, ready = 1, stale = 2 };

// Stream output of the enumerations above, found by argument-dependent lookup.
using Pondo::operator<<;

}  // namespace VyrPtp

template <>
struct Pondo::EnumInfo<VyrPtp::GpioSampleStatus> {
   using E = VyrPtp::GpioSampleStatus;
   static constexpr std::array<std::pair<E, std::string_view>, 3> names{{
       {E::notAvailable, "notAvailable"},
       {E::ready, "ready"},
       {E::stale, "stale"},
   }};
};
