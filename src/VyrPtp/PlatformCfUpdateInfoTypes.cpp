#include "VyrPtp/PlatformCfUpdateInfoTypes.h"

#include <cstdlib>

namespace CorrectionField {

Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> PlatformCfUpdateInfo::addLogicalFapInfo(
    LogicalFapId id, Pondo::Ptr<const Asic::ChipInfo> chipInfo) {
   Kiv::kassert(std::getenv("SIMULATION_VMID"),
                "getenv( \"SIMULATION_VMID\" ) && \"This should only be called in testing!\"");
   return logicalFapInfoIs(id, Kiv::nonNull(chipInfo, "chipInfo")->gif());
}

}  // namespace CorrectionField
