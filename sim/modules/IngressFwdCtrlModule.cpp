// Ingress packet forwarding control: the library's machine writes the
// message-type forwarding control table of every chip in the platform's chip
// list ("platform/globalChipInfo"). The report shows each chip's table as
// the simulated chip holds it: one row per ingress profile, flags 0 to 19.
#include <fmt/ranges.h>

#include "Asic/SimulatedChip.h"
#include "Module.h"
#include "Statebase/EntityManager.h"
#include "VyrPtp/VyrIngressPktFwdControlArmSm.h"

namespace Sim {
namespace {

using Asic::Ing1588MessageTypeFwdCtrlTable;
using VyrPtp::Ing1588IngressProfile;

class IngressFwdCtrlModule final : public Module {
  public:
   std::string name() const override { return "ingressFwdCtrl"; }
   // After the modules that enter the state database's entity manager.
   int order() const override { return 70; }

   void build(World& w) override {
      Kiv::Dir& db = *w.sysdb;
      auto global = Pondo::Ptr<VyrPtp::PlatformGlobalChipInfo>(
          dynamic_cast<VyrPtp::PlatformGlobalChipInfo*>(db.entityPtr("platform/globalChipInfo")));
      if (!global) throw ScenarioError("the platform module entered no chip list in sysdb");
      auto em = Pondo::Ptr<Statebase::EntityManager>(
          dynamic_cast<Statebase::EntityManager*>(db.entityPtr("statebase/entityManager")));
      if (!em) {
         em = Kiv::make<Statebase::EntityManager>();
         db.entityPtrIs("statebase/entityManager", em);
      }
      global_ = global;
      em_ = em;
      sm_ = VyrPtp::IngressPktFwdCtrl::vyrIngressPktFwdControlArmSmFactory(global_, em_);
      for (const auto& [id, info] : global->logicalFapInfo()) {
         const Ing1588MessageTypeFwdCtrlTable* t = sm_->ingressPktFwdControlTable(info->chipInfoString());
         if (t->chipInfoGif() == info->chipInfoGif().get()) {
            w.log("ingress forwarding control: {} programmed through logical FAP {}", info->chipInfoString(), id);
         } else {
            w.log("ingress forwarding control: logical FAP {} shares {}, already programmed", id,
                  info->chipInfoString());
         }
      }
   }

   void agentRestart(World& w) override {
      sm_ = nullptr;
      sm_ = VyrPtp::IngressPktFwdCtrl::vyrIngressPktFwdControlArmSmFactory(global_, em_);
      w.log("ingress forwarding control: agent restarted the machine; {} chips",
            sm_->ingressPktFwdControlTable().size());
   }

   // Per chip, each ingress profile's flags as the simulated chip holds them.
   void reportData(World&, Json& out) override {
      for (const auto& [chip, table] : sm_->ingressPktFwdControlTable()) {
         const auto& device = dynamic_cast<const Asic::SimulatedChip&>(*table->chipInfoGif()->chipInfo().device());
         Json& c = out["chips"][fmt::format("{}", chip)];
         c["unit"] = table->unit();
         c["commits"] = device.commits(Ing1588MessageTypeFwdCtrlTable::name);
         Json& profiles = c["profiles"] = Json::object();
         for (std::uint32_t index : device.committedIndexes(Ing1588MessageTypeFwdCtrlTable::name)) {
            auto row =
                device.committed<Ing1588MessageTypeFwdCtrlTable::Entry>(Ing1588MessageTypeFwdCtrlTable::name, index);
            Json& p = profiles[std::string(Pondo::enumName(Ing1588IngressProfile(index)))];
            p["index"] = index;
            p["flags"] = fmt::format("{}", fmt::join(row->flag, ""));
         }
      }
   }

  private:
   Pondo::Ptr<VyrPtp::PlatformGlobalChipInfo> global_;
   Pondo::Ptr<Statebase::EntityManager> em_;
   Pondo::Ptr<VyrPtp::IngressPktFwdCtrl::VyrIngressPktFwdControlArmSm> sm_;
};

VYRPTP_SIM_MODULE(IngressFwdCtrlModule);

}  // namespace
}  // namespace Sim
