#include "VyrPtp/VyrPtpIngressPipelineTypes.h"

#include <vector>

#include "Kiv/Trace.h"

namespace VyrPtp {

namespace {

// Each management-drop variant is its base profile with flag 10 set and
// flag 11 cleared; only the two boundary-clock profiles set flag 11.
const std::array<std::vector<std::uint8_t>, ing1588IngressProfiles> profileFlags{{
    {},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 13, 14, 15, 16, 17, 18, 19},
    {1, 3, 5, 7, 9, 11, 13, 15, 17, 19},
    {1, 3, 5, 7, 9, 10, 13, 15, 17, 19},
    {10},
    {1, 2, 3, 4, 5, 13, 15, 16, 17, 19},
    {1, 2, 3, 4, 5, 10, 13, 15, 16, 17, 19},
    {0, 2, 4, 5, 12, 13, 14, 15, 16, 17, 19},
    {0, 2, 4, 5, 10, 12, 13, 14, 15, 16, 17, 19},
    {0, 2, 4, 6, 8, 10, 12, 14, 16, 18},
}};

}  // namespace

std::span<const std::uint8_t> ing1588IngressProfileFlags(Ing1588IngressProfile profile) {
   const auto p = std::size_t(profile);
   Kiv::kassert(p < profileFlags.size(), "no ingress profile {}", p);
   return profileFlags[p];
}

}  // namespace VyrPtp
