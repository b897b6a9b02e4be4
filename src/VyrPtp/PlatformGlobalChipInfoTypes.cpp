#include "VyrPtp/PlatformGlobalChipInfoTypes.h"

#include <cstdlib>

namespace VyrPtp {

PlatformGlobalChipLogicalFapInfo::PlatformGlobalChipLogicalFapInfo(LogicalFapId logicalFapId,
                                                                   Pondo::Ptr<const Asic::GenericIf> chipInfoGif,
                                                                   Pondo::String chipInfoString)
    : logicalFapId_(logicalFapId),
      chipInfoGif_(Kiv::nonNull(chipInfoGif, "chipInfoGif")),
      chipInfoString_(std::move(chipInfoString)) {}

Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> PlatformGlobalChipInfo::addLogicalFapInfo(
    LogicalFapId id, Pondo::Ptr<const Asic::ChipInfo> chipInfo, const Pondo::String& chipInfoString) {
   Kiv::kassert(std::getenv("SIMULATION_VMID"), "This should only be called in testing!");
   return logicalFapInfoIs(id, Kiv::nonNull(chipInfo, "chipInfo")->gif(), chipInfoString);
}

Pondo::Ptr<PlatformGlobalChipInfo> platformGlobalChipInfoFactory() { return Kiv::make<PlatformGlobalChipInfo>(); }
Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> platformGlobalChipLogicalFapInfoFactory(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif, const Pondo::String& chipInfoString) {
   return Kiv::make<PlatformGlobalChipLogicalFapInfo>(logicalFapId, std::move(chipInfoGif), chipInfoString);
}
Pondo::Ptr<PlatformGlobalChipInfo> PlatformGlobalChipInfoIs() { return platformGlobalChipInfoFactory(); }
Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> PlatformGlobalChipLogicalFapInfoIs(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif, const Pondo::String& chipInfoString) {
   return platformGlobalChipLogicalFapInfoFactory(logicalFapId, std::move(chipInfoGif), chipInfoString);
}

}  // namespace VyrPtp
