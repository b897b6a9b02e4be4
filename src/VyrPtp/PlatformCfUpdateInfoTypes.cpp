#include "VyrPtp/PlatformCfUpdateInfoTypes.h"

#include <cstdlib>

namespace CorrectionField {

Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> PlatformCfUpdateInfo::addLogicalFapInfo(
    LogicalFapId id, Pondo::Ptr<const Asic::ChipInfo> chipInfo) {
   Kiv::kassert(std::getenv("SIMULATION_VMID"),
                "getenv( \"SIMULATION_VMID\" ) && \"This should only be called in testing!\"");
   return logicalFapInfoIs(id, Kiv::nonNull(chipInfo, "chipInfo")->gif());
}

Pondo::Ptr<PlatformCfUpdateInfo> platformCfUpdateInfoFactory() { return Kiv::make<PlatformCfUpdateInfo>(); }
Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> platformCfUpdateLogicalFapInfoFactory(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif) {
   return Kiv::make<PlatformCfUpdateLogicalFapInfo>(logicalFapId, std::move(chipInfoGif));
}

Pondo::Ptr<PlatformCfUpdateInfo> PlatformCfUpdateInfoIs() { return platformCfUpdateInfoFactory(); }
Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> PlatformCfUpdateLogicalFapInfoIs(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif) {
   return platformCfUpdateLogicalFapInfoFactory(logicalFapId, std::move(chipInfoGif));
}

}  // namespace CorrectionField
