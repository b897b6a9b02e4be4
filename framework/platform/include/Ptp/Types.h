// Basic enumerations of the PTP types library.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Pondo/Enum.h"

namespace Ptp {

// PTP message types (messageType field of the common header).
enum class MessageTypeNumber : std::uint8_t {
   sync = 0x0,
   delayReq = 0x1,
   pdelayReq = 0x2,
   pdelayResp = 0x3,
   followUp = 0x8,
   delayResp = 0x9,
   pdelayRespFollowUp = 0xA,
   announce = 0xB,
   signaling = 0xC,
   management = 0xD,
};

enum class PtpVersion : std::uint8_t { v1 = 1, v2 = 2 };

// Encapsulation of a PTP packet.
enum class TransportMode : std::uint8_t { layer2 = 0, ipv4 = 1, ipv6 = 2 };

// Stream output of the enumerations above, found by argument-dependent lookup.
using Pondo::operator<<;

}  // namespace Ptp

template <>
struct Pondo::EnumInfo<Ptp::MessageTypeNumber> {
   using E = Ptp::MessageTypeNumber;
   static constexpr std::array<std::pair<E, std::string_view>, 10> names{{
       {E::sync, "Sync"},
       {E::delayReq, "DelayReq"},
       {E::pdelayReq, "PdelayReq"},
       {E::pdelayResp, "PdelayResp"},
       {E::followUp, "FollowUp"},
       {E::delayResp, "DelayResp"},
       {E::pdelayRespFollowUp, "PdelayRespFollowUp"},
       {E::announce, "Announce"},
       {E::signaling, "Signaling"},
       {E::management, "Management"},
   }};
};

template <>
struct Pondo::EnumInfo<Ptp::PtpVersion> {
   static constexpr std::array<std::pair<Ptp::PtpVersion, std::string_view>, 2> names{{
       {Ptp::PtpVersion::v1, "v1"},
       {Ptp::PtpVersion::v2, "v2"},
   }};
};

template <>
struct Pondo::EnumInfo<Ptp::TransportMode> {
   static constexpr std::array<std::pair<Ptp::TransportMode, std::string_view>, 3> names{{
       {Ptp::TransportMode::layer2, "layer2"},
       {Ptp::TransportMode::ipv4, "ipv4"},
       {Ptp::TransportMode::ipv6, "ipv6"},
   }};
};
