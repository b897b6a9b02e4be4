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
Pondo::Ptr<PlatformCfUpdateIntfInfo> platformCfUpdateIntfInfoFactory(Wyx::IntfId intfId) {
   return Kiv::make<PlatformCfUpdateIntfInfo>(intfId);
}
Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateProgrammedStatusFactory(LogicalFapId logicalFapId) {
   return Kiv::make<CfUpdateProgrammedStatus>(logicalFapId);
}

Pondo::Ptr<PlatformCfUpdateInfo> PlatformCfUpdateInfoIs() { return platformCfUpdateInfoFactory(); }
Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> PlatformCfUpdateLogicalFapInfoIs(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif) {
   return platformCfUpdateLogicalFapInfoFactory(logicalFapId, std::move(chipInfoGif));
}
Pondo::Ptr<PlatformCfUpdateIntfInfo> PlatformCfUpdateIntfInfoIs(Wyx::IntfId intfId) {
   return platformCfUpdateIntfInfoFactory(intfId);
}
Pondo::Ptr<CfUpdateProgrammedStatus> CfUpdateProgrammedStatusIs(LogicalFapId logicalFapId) {
   return cfUpdateProgrammedStatusFactory(logicalFapId);
}

}  // namespace CorrectionField
