// Ingress profiles of the chips' PTP pipeline: how received PTP packets are
// classified and forwarded for a port of each kind of clock.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "Pondo/Enum.h"
#include "VyrPtp/Export.h"

namespace VyrPtp {

// The value is also the index of the profile's row in the chip's
// message-type forwarding control table.
enum class Ing1588IngressProfile : std::uint8_t {
   defaultProfile = 0,
   boundaryClock = 1,
   boundaryClockManagementDrop = 2,
   boundaryClockFwdUnicast = 3,
   boundaryClockFwdUnicastManagementDrop = 4,
   managementDropOnly = 5,
   twoStepE2ETransparentClock = 6,
   twoStepE2ETransparentClockManagementDrop = 7,
   twoStepP2PTransparentClock = 8,
   twoStepP2PTransparentClockManagementDrop = 9,
   dropAll = 10,
};
inline constexpr std::size_t ing1588IngressProfiles = 11;

// The flags of the profile's forwarding control row that are 1 (all others
// are 0), in increasing order.
VYRPTP_EXPORT std::span<const std::uint8_t> ing1588IngressProfileFlags(Ing1588IngressProfile profile);

// Stream output of the enumerations above, found by argument-dependent lookup.
using Pondo::operator<<;

}  // namespace VyrPtp

template <>
struct Pondo::EnumInfo<VyrPtp::Ing1588IngressProfile> {
   using E = VyrPtp::Ing1588IngressProfile;
   static constexpr std::array<std::pair<E, std::string_view>, VyrPtp::ing1588IngressProfiles> names{{
       {E::defaultProfile, "defaultProfile"},
       {E::boundaryClock, "boundaryClock"},
       {E::boundaryClockManagementDrop, "boundaryClockManagementDrop"},
       {E::boundaryClockFwdUnicast, "boundaryClockFwdUnicast"},
       {E::boundaryClockFwdUnicastManagementDrop, "boundaryClockFwdUnicastManagementDrop"},
       {E::managementDropOnly, "managementDropOnly"},
       {E::twoStepE2ETransparentClock, "twoStepE2ETransparentClock"},
       {E::twoStepE2ETransparentClockManagementDrop, "twoStepE2ETransparentClockManagementDrop"},
       {E::twoStepP2PTransparentClock, "twoStepP2PTransparentClock"},
       {E::twoStepP2PTransparentClockManagementDrop, "twoStepP2PTransparentClockManagementDrop"},
       {E::dropAll, "dropAll"},
   }};
};
