#include "VyrPtp/PlatformGlobalChipInfoTypes.h"

#include <cstdlib>

namespace VyrPtp {

Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> PlatformGlobalChipInfo::addLogicalFapInfo(
    LogicalFapId id, Pondo::Ptr<const Asic::ChipInfo> chipInfo, const Pondo::String& chipInfoString) {
   Kiv::kassert(std::getenv("SIMULATION_VMID"), "This should only be called in testing!");
   return logicalFapInfoIs(id, Kiv::nonNull(chipInfo, "chipInfo")->gif(), chipInfoString);
}

}  // namespace VyrPtp
