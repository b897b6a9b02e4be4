// Ingress packet forwarding control: once per forwarding chip, the chip's
// message-type forwarding control table gets one row per ingress profile.
// Logical FAPs on one chip (same chipInfoString) share one table, written once.
#pragma once

#include "Asic/Ing1588MessageTypeFwdCtrlTable.h"
#include "Kiv/Reactor.h"
#include "Statebase/EntityManager.h"
#include "VyrPtp/Export.h"
#include "VyrPtp/PlatformGlobalChipInfoTypes.h"
#include "VyrPtp/VyrPtpIngressPipelineTypes.h"

namespace VyrPtp::IngressPktFwdCtrl {

using Asic::Ing1588MessageTypeFwdCtrlTable;
using VyrPtp::Ing1588IngressProfile;

class VYRPTP_EXPORT VyrIngressPktFwdControlArmSm final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId { globalChipInfo, statebaseEm, ingressPktFwdControlTable };
   };
   VyrIngressPktFwdControlArmSm(Pondo::Ptr<const PlatformGlobalChipInfo> globalChipInfo,
                                Pondo::Ptr<Statebase::EntityManager> statebaseEm);

   const PlatformGlobalChipInfo* globalChipInfo() const { return globalChipInfo_.get(); }
   Statebase::EntityManager* statebaseEm() const { return statebaseEm_.get(); }

   // The table of each chip, by chipInfoString.
   const Ing1588MessageTypeFwdCtrlTable* ingressPktFwdControlTable(const Pondo::String& chip) const {
      return ingressPktFwdControlTable_.find(chip);
   }
   Ing1588MessageTypeFwdCtrlTable* ingressPktFwdControlTable(const Pondo::String& chip) {
      return ingressPktFwdControlTable_.find(chip);
   }
   const Kiv::Collection<Pondo::String, Ing1588MessageTypeFwdCtrlTable>& ingressPktFwdControlTable() const {
      return ingressPktFwdControlTable_;
   }
   Pondo::Ptr<Ing1588MessageTypeFwdCtrlTable> ingressPktFwdControlTableIs(
       const Pondo::String& chip, Pondo::Ptr<Ing1588MessageTypeFwdCtrlTable> t) {
      return ingressPktFwdControlTable_.insert(chip, std::move(t));
   }
   Pondo::Ptr<Ing1588MessageTypeFwdCtrlTable> ingressPktFwdControlTableDel(const Pondo::String& chip) {
      return ingressPktFwdControlTable_.del(chip);
   }
   void ingressPktFwdControlTableDelAll() { ingressPktFwdControlTable_.delAll(); }

   // Sets up and programs the table of the logical FAP's chip, unless the
   // chip has one.
   // Pondo::RangeError when the id is no unit number.
   void handleLogicalFapInfo(LogicalFapId logicalFapId);
   // Writes every profile's row into the chip's table, in profile order.
   void programEntries(const Pondo::String& chip);
   void programEntry(const Pondo::String& chip, Ing1588IngressProfile profile);

   // The framework's hooks, also callable directly.
   void handleInitialized() override;

  private:
   void on_logicalFapInfo(LogicalFapId logicalFapId);

   Kiv::Input<const PlatformGlobalChipInfo> globalChipInfo_;
   Pondo::Ptr<Statebase::EntityManager> statebaseEm_;
   Kiv::Collection<Pondo::String, Ing1588MessageTypeFwdCtrlTable> ingressPktFwdControlTable_{
       this, F::ingressPktFwdControlTable, "ingressPktFwdControlTable"};
};

VYRPTP_EXPORT Pondo::Ptr<VyrIngressPktFwdControlArmSm> vyrIngressPktFwdControlArmSmFactory(
    Pondo::Ptr<const PlatformGlobalChipInfo> globalChipInfo, Pondo::Ptr<Statebase::EntityManager> statebaseEm);
VYRPTP_EXPORT Pondo::Ptr<VyrIngressPktFwdControlArmSm> VyrIngressPktFwdControlArmSmIs(
    Pondo::Ptr<const PlatformGlobalChipInfo> globalChipInfo, Pondo::Ptr<Statebase::EntityManager> statebaseEm);

}  // namespace VyrPtp::IngressPktFwdCtrl
