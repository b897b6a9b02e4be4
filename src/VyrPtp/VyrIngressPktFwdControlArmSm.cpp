#include "VyrPtp/VyrIngressPktFwdControlArmSm.h"

#include "Asic/UnitId.h"

namespace VyrPtp::IngressPktFwdCtrl {

namespace {

Kiv::Tracer trace{"VyrIngressPktFwdControlArmSm"};

}  // namespace

VyrIngressPktFwdControlArmSm::VyrIngressPktFwdControlArmSm(Pondo::Ptr<const PlatformGlobalChipInfo> globalChipInfo,
                                                           Pondo::Ptr<Statebase::EntityManager> statebaseEm)
    : globalChipInfo_(
          this, std::move(globalChipInfo),
          Kiv::on<PlatformGlobalChipInfo::logicalFapInfo_t, &VyrIngressPktFwdControlArmSm::on_logicalFapInfo>),
      statebaseEm_(std::move(statebaseEm)) {}

void VyrIngressPktFwdControlArmSm::handleInitialized() {
   trace(8, "handleInitialized");
   for (const auto& [id, info] : globalChipInfo_->logicalFapInfo()) handleLogicalFapInfo(id);
}

// Members arriving while the machine is built are left to handleInitialized.
// A removed logical FAP leaves its chip's table as it is.
void VyrIngressPktFwdControlArmSm::on_logicalFapInfo(LogicalFapId logicalFapId) {
   if (initialized()) handleLogicalFapInfo(logicalFapId);
}

void VyrIngressPktFwdControlArmSm::handleLogicalFapInfo(LogicalFapId logicalFapId) {
   trace(8, "logicalFapId: {}", logicalFapId);
   const PlatformGlobalChipLogicalFapInfo* info = globalChipInfo_->logicalFapInfo(logicalFapId);
   if (!info) {
      trace(7, "LogicalFapId {} does not exist in globalChipInfo", logicalFapId);
      return;
   }
   const Pondo::Ptr<const Asic::GenericIf>& gif = info->chipInfoGif();
   Kiv::kassert(gif, "Missing required chipInfoGif");
   trace(7, "chipInfoGif: {}", gif->chipInfo().name());
   const Pondo::String& chip = info->chipInfoString();
   if (ingressPktFwdControlTable_.contains(chip)) {
      trace(7, "Skip the duplicate SwTable initialization and programming for chip: {}", chip);
      return;
   }
   auto table = ingressPktFwdControlTableIs(chip, Asic::ing1588MessageTypeFwdCtrlTableFactory());
   table->doInit(Asic::UnitId(logicalFapId).value(), statebaseEm_, gif);
   programEntries(chip);
}

void VyrIngressPktFwdControlArmSm::programEntries(const Pondo::String& chip) {
   trace(8, "on Ing1588IngressCtrl table for the chip: {}", chip);
   for (std::size_t p = 0; p < ing1588IngressProfiles; ++p) programEntry(chip, Ing1588IngressProfile(p));
}

void VyrIngressPktFwdControlArmSm::programEntry(const Pondo::String& chip, Ing1588IngressProfile profile) {
   trace(8, "for Ing1588Ingress table profile: {}", profile);
   Ing1588MessageTypeFwdCtrlTable::Entry entry;
   for (std::uint8_t f : ing1588IngressProfileFlags(profile)) entry.flag[f] = 1;
   Ing1588MessageTypeFwdCtrlTable* table = ingressPktFwdControlTable_[chip];
   Kiv::kassert(table, "no {} table for chip {}", Ing1588MessageTypeFwdCtrlTable::name, chip);
   table->entryCommit(std::uint32_t(profile), entry);
}

Pondo::Ptr<VyrIngressPktFwdControlArmSm> vyrIngressPktFwdControlArmSmFactory(
    Pondo::Ptr<const PlatformGlobalChipInfo> globalChipInfo, Pondo::Ptr<Statebase::EntityManager> statebaseEm) {
   return Kiv::make<VyrIngressPktFwdControlArmSm>(std::move(globalChipInfo), std::move(statebaseEm));
}
Pondo::Ptr<VyrIngressPktFwdControlArmSm> VyrIngressPktFwdControlArmSmIs(
    Pondo::Ptr<const PlatformGlobalChipInfo> globalChipInfo, Pondo::Ptr<Statebase::EntityManager> statebaseEm) {
   return vyrIngressPktFwdControlArmSmFactory(std::move(globalChipInfo), std::move(statebaseEm));
}

}  // namespace VyrPtp::IngressPktFwdCtrl
