// Correction-field programming (section `cfUpdate`, event `cfUpdate`).
//
// The platform describes the correction-field handling of each listed
// interface; the library's machine writes it into the simulated chips'
// receive and transmit correction-field control tables (row = the
// interface's position on its chip) and registers "CF_UPDATE" among the
// active programmers while some interface is programmed. An event changes the
// given fields and then, as the platform does, moves the record's generation
// (flagged incomplete with `valid: false`); `remove: true` drops the record,
// and a later event for the interface creates it anew.
//
// The per-interface "CF_UPDATE" report that the readiness aggregators read is
// judged from the tables: an interface is programmed for the current action
// generation when its record is valid and both rows hold what it asks for.
//
//   cfUpdate:
//     Ethernet1/1: {ingressUpdate: true, egressMode: residenceTime, dropInvalid: false,
//                   twoStepUpdate: true, forceSign: false}    # fields left out are off
//   timeline:
//     - at: 2.0
//       cfUpdate: {intf: Ethernet1/1, egressMode: none}
//     - at: 2.5
//       cfUpdate: {intf: Ethernet1/1, valid: false}
//     - at: 3.0
//       cfUpdate: {intf: Ethernet1/1, remove: true}
#include <algorithm>
#include <map>
#include <optional>

#include "Asic/SimulatedChip.h"
#include "Module.h"
#include "ProgrammerRecords.h"
#include "VyrPtp/ActionTypes.h"
#include "VyrPtp/VyrCfUpdateArmSm.h"

namespace Sim {
namespace {

using namespace CorrectionField;
using VyrPtp::ActionTypes::PtpActions;
using Wyx::IntfId;

const Pondo::String kCfUpdate = VyrCfUpdateArmSm::programmerType;

// Fields an entry or event sets; those left out keep their value.
struct Fields {
   std::optional<bool> ingressUpdate, dropInvalid, twoStepUpdate, forceSign;
   std::optional<EgressCFUpdateMode> egressMode;

   void writeTo(PlatformCfUpdateIntfInfo& r) const {
      if (ingressUpdate) r.ingressCfUpdateEnableIs(*ingressUpdate);
      if (egressMode) r.egressCfUpdateModeIs(*egressMode);
      if (dropInvalid) r.egressDropInvalid1588PktIs(*dropInvalid);
      if (twoStepUpdate) r.twoStepTsCfUpdateEnableIs(*twoStepUpdate);
      if (forceSign) r.ingressForceItsSignFromTsIs(*forceSign);
   }
};

const std::vector<std::string> kFieldKeys{"ingressUpdate", "egressMode", "dropInvalid", "twoStepUpdate", "forceSign"};

Fields readFields(const Scenario& s, const YAML::Node& n) {
   Fields f;
   auto flag = [&](const char* key, std::optional<bool>& to) {
      if (n[key]) to = s.as<bool>(n[key], key);
   };
   flag("ingressUpdate", f.ingressUpdate);
   flag("dropInvalid", f.dropInvalid);
   flag("twoStepUpdate", f.twoStepUpdate);
   flag("forceSign", f.forceSign);
   if (YAML::Node m = n["egressMode"]) {
      f.egressMode = Pondo::enumFromName<EgressCFUpdateMode>(s.as<std::string>(m, "egressMode"));
      if (!f.egressMode) s.fail(m, "'egressMode' is none, residenceTime or egressTimestamp");
   }
   return f;
}

// One listed interface: where its rows are, and its report.
struct Intf {
   Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> fap;
   Asic::SimulatedChip* chip = nullptr;
   std::uint32_t row = 0;
   std::optional<bool> reported;  // the last verdict written
};

// Writes the "CF_UPDATE" reports from what the tables hold, after every
// change of the platform's records or of the action generation (once the
// changes' handlers have all run), and logs "CF_UPDATE" coming and going.
class CfUpdateReporter final : public Kiv::Reactor {
  public:
   CfUpdateReporter(Pondo::Ptr<const PlatformCfUpdateInfo> info, Pondo::Ptr<const PtpActions> actions,
                    Pondo::Ptr<const VyrPtp::Programmer::Status> status, std::map<IntfId, Intf>& intfs,
                    const ProgrammerRecords& records, World& world)
       : info_(this, std::move(info), Kiv::onAny<&CfUpdateReporter::on_info>),
         actions_(this, std::move(actions), Kiv::on<PtpActions::generation_t, &CfUpdateReporter::handleGeneration>),
         status_(this, std::move(status),
                 Kiv::on<VyrPtp::Programmer::Status::programmerActive_t, &CfUpdateReporter::handleProgrammerActive>),
         intfs_(intfs),
         records_(records),
         world_(world) {}

   struct Transition {
      double at;
      bool active;
   };
   std::vector<Transition> transitions;

  private:
   void handleInitialized() override { judge_.timeMinIs(Kiv::currentTime()); }
   // Any change of the records, down to a field of an interface's record.
   void on_info(const Kiv::Change&) { rejudge(); }
   void handleGeneration() { rejudge(); }
   void rejudge() {
      if (initialized()) judge_.timeMinIs(Kiv::currentTime());
   }
   void handleProgrammerActive(const Pondo::String& type) {
      if (type != kCfUpdate) return;
      const bool active = status_->programmerActive(kCfUpdate);
      transitions.push_back({Kiv::currentTime(), active});
      world_.log("cfUpdate: CF_UPDATE becomes {}", active ? "an active programmer" : "inactive");
   }

   bool programmed(IntfId i, const Intf& intf) const {
      const PlatformCfUpdateIntfInfo* r = intf.fap->intfInfo(i);
      if (!r || !r->generation().flag) return false;
      auto rx = intf.chip->committed<Asic::RxCfControlEntry>(Asic::RxCfControlTable::name, r->swTableIndex());
      auto tx = intf.chip->committed<Asic::TxCfControlEntry>(Asic::TxCfControlTable::name, r->swTableIndex());
      if (!rx || !tx) return false;
      const auto& twoStep = tx->twoStepTsCfUpdateEnable;
      return bool(rx->ingressCfUpdateEnable) == r->ingressCfUpdateEnable() &&
             bool(rx->forceItsSignFromTs) == r->ingressForceItsSignFromTs() &&
             tx->egressCfUpdateMode == r->egressCfUpdateMode() &&
             bool(tx->dropInvalid1588Pkt) == r->egressDropInvalid1588Pkt() &&
             std::all_of(twoStep.begin(), twoStep.end(),
                         [&](std::uint8_t e) { return bool(e) == r->twoStepTsCfUpdateEnable(); });
   }

   void judge() {
      const std::uint32_t g = actions_->generation().counter;
      bool all = true;
      for (auto& [i, intf] : intfs_) {
         const bool ok = programmed(i, intf);
         all = all && ok;
         records_.intfInfoStatus->intfInfo(i)->programmerInfo(kCfUpdate)->generationIs({g, ok});
         records_.status->intfStatus({kCfUpdate, i})->generationIs({g, ok});
         if (intf.reported == ok) continue;
         intf.reported = ok;
         world_.log("cfUpdate: {} {} (actions at generation {})", i, ok ? "programmed" : "NOT programmed", g);
      }
      VyrPtp::Programmer::Info* info = records_.status->status(kCfUpdate);
      info->generationIs({g, all});
      info->hwProgrammedIs(all);
   }

   Kiv::Input<const PlatformCfUpdateInfo> info_;
   Kiv::Input<const PtpActions> actions_;
   Kiv::Input<const VyrPtp::Programmer::Status> status_;
   std::map<IntfId, Intf>& intfs_;
   ProgrammerRecords records_;
   World& world_;
   Kiv::ClockTimer judge_{Kiv::activityManager().clock(), [this] { judge(); }};
};

class CfUpdateModule final : public Module {
  public:
   std::string name() const override { return "cfUpdate"; }
   int order() const override { return 25; }
   std::vector<std::string> sections() const override { return {"cfUpdate"}; }
   std::vector<std::string> events() const override { return {"cfUpdate"}; }

   void load(const Scenario& s) override {
      for (const Event& e : s.timeline()) {
         if (e.kind != "cfUpdate") continue;
         if (!s.section("cfUpdate")) s.fail(e, "'cfUpdate' events need a 'cfUpdate' section");
         if (!e.body.IsMap()) s.fail(e.body, "'cfUpdate' takes {intf, fields..., valid, remove}");
         std::vector<std::string> keys = kFieldKeys;
         keys.insert(keys.end(), {"intf", "valid", "remove"});
         s.onlyKeys(e.body, keys);
         s.get<std::string>(e.body, "intf");
         readFields(s, e.body);
         s.get<bool>(e.body, "valid", true);
         s.get<bool>(e.body, "remove", false);
      }
      YAML::Node section = s.section("cfUpdate");
      if (!section) return;
      if (!section.IsMap()) s.fail(section, "'cfUpdate' maps interface names to their settings");
      for (const auto& kv : section) {
         if (!kv.second.IsMap() && !kv.second.IsNull()) s.fail(kv.second, "an interface's settings are a map");
         if (kv.second.IsMap()) s.onlyKeys(kv.second, kFieldKeys);
         entries_.emplace_back(kv.first, readFields(s, kv.second));
      }
   }

   void build(World& w) override {
      if (!w.scenario.section("cfUpdate")) return;
      ProgrammerRecords records(w);
      info_ = platformCfUpdateInfoFactory();
      w.sysdb->entityPtrIs("platform/cfUpdateInfo", info_);
      for (const auto& [name, fields] : entries_) {
         const IntfId i = chassisIntf(w, name);
         Intf& intf = intfs_[i];
         if (intf.fap) w.scenario.fail(name, fmt::format("interface {} listed twice", i));
         place(w, i, intf);
         records.intfInfoStatus->intfInfoIs(i)->programmerInfoIs(kCfUpdate);
         records.staticRecordIs(i);
         records.status->intfStatusIs({kCfUpdate, i});
         write(i, intf, fields, true);
      }
      records.status->statusIs(kCfUpdate);
      for (const Event& e : w.scenario.timeline()) {
         if (e.kind != "cfUpdate") continue;
         const IntfId i = chassisIntf(w, e.body["intf"]);
         if (!intfs_.count(i)) {
            w.scenario.fail(e.body["intf"], fmt::format("{} has no entry in the 'cfUpdate' section", i));
         }
      }
      actions_ = w.sysdb->entityIs<PtpActions>("ptp/actions");
      em_ = Kiv::make<Statebase::EntityManager>();
      programmerStatus_ = records.status;
      sm_ = vyrCfUpdateArmSmFactory(info_, em_, programmerStatus_);
      reporter_ = Kiv::make<CfUpdateReporter>(info_, actions_, records.status, intfs_, records, w);
      w.log("cfUpdate: {} interfaces on {} chips; CF_UPDATE {}", intfs_.size(), info_->logicalFapInfo().size(),
            records.status->programmerActive(kCfUpdate) ? "active" : "not active");
   }

   void apply(const Event& e, World& w) override {
      const IntfId i = chassisIntf(w, e.body["intf"]);
      Intf& intf = intfs_.at(i);
      if (w.scenario.get<bool>(e.body, "remove", false)) {
         w.log("cfUpdate: the platform drops the record of {}", i);
         intf.fap->intfInfoDel(i);
         return;
      }
      const Pondo::Generation g =
          write(i, intf, readFields(w.scenario, e.body), w.scenario.get<bool>(e.body, "valid", true));
      w.log("cfUpdate: the platform writes {} at generation {}{}", i, g.counter, g.flag ? "" : " (incomplete)");
   }

   void agentRestart(World& w) override {
      if (!sm_) return;
      sm_ = nullptr;
      sm_ = vyrCfUpdateArmSmFactory(info_, em_, programmerStatus_);
      w.log("cfUpdate: agent restarted the correction-field machine; CF_UPDATE {}", active() ? "active" : "not active");
   }

   void reportData(World&, Json& out) override {
      if (!sm_) return;
      out["active"] = active();
      Json& transitions = out["transitions"] = Json::array();
      for (const auto& t : reporter_->transitions) {
         Json& j = transitions.push(Json());
         j["at"] = t.at;
         j["active"] = t.active;
      }
      for (const auto& [id, fapSm] : sm_->logicalFapSm()) {
         Json& fap = out["logicalFaps"][std::to_string(id)];
         const auto* chip = static_cast<const Asic::SimulatedChip*>(
             fapSm->cfUpdateLogicalFapInfo()->chipInfoGif()->chipInfo().device());
         Json& programmed = fap["programmed"] = Json::array();
         for (IntfId i : sm_->logicalFapStatus(id)->programmedIntf()) programmed.push(Json(i.name()));
         fap["rxCommits"] = chip->commits(Asic::RxCfControlTable::name);
         fap["txCommits"] = chip->commits(Asic::TxCfControlTable::name);
         for (const auto& [i, intf] : intfs_) {
            if (intf.fap->logicalFapId() != id) continue;
            Json& row = fap["rows"][i.name()];
            row["row"] = intf.row;
            row["recordDropped"] = !intf.fap->intfInfo(i);
            auto rx = chip->committed<Asic::RxCfControlEntry>(Asic::RxCfControlTable::name, intf.row);
            auto tx = chip->committed<Asic::TxCfControlEntry>(Asic::TxCfControlTable::name, intf.row);
            Json& r = row["rx"];
            if (rx) {
               r["ingressCfUpdateEnable"] = bool(rx->ingressCfUpdateEnable);
               r["forceItsSignFromTs"] = bool(rx->forceItsSignFromTs);
            }
            Json& t = row["tx"];
            if (tx) {
               t["egressCfUpdateMode"] = fmt::format("{}", tx->egressCfUpdateMode);
               t["dropInvalid1588Pkt"] = bool(tx->dropInvalid1588Pkt);
               Json& twoStep = t["twoStepTsCfUpdateEnable"] = Json::array();
               for (std::uint8_t e : tx->twoStepTsCfUpdateEnable) twoStep.push(Json(bool(e)));
            }
         }
      }
   }

  private:
   bool active() const { return sm_->programmerStatus()->programmerActive(kCfUpdate); }

   static IntfId chassisIntf(World& w, const YAML::Node& n) {
      const std::string name = w.scenario.as<std::string>(n, "interface");
      auto id = IntfId::parse(name);
      for (const Chip& c : w.chips) {
         if (id && std::find(c.interfaces.begin(), c.interfaces.end(), *id) != c.interfaces.end()) return *id;
      }
      w.scenario.fail(n, fmt::format("'{}' is not an interface of the chassis", name));
   }

   // The interface's chip, its logical FAP record and its row.
   void place(World& w, IntfId i, Intf& intf) {
      for (const Chip& c : w.chips) {
         auto at = std::find(c.interfaces.begin(), c.interfaces.end(), i);
         if (at == c.interfaces.end()) continue;
         auto* chipInfo = static_cast<Asic::ChipInfo*>(w.sysdb->entityPtr(chipInfoName(c.logicalFap)));
         intf.fap = info_->logicalFapInfoIs(c.logicalFap, chipInfo->gif());
         intf.chip = static_cast<Asic::SimulatedChip*>(chipInfo->device());
         intf.row = std::uint32_t(at - c.interfaces.begin());
      }
   }

   // As the platform writes a record: the fields first, the generation last.
   Pondo::Generation write(IntfId i, Intf& intf, const Fields& fields, bool valid) {
      PlatformCfUpdateIntfInfo* r = intf.fap->intfInfo(i);
      if (!r) {
         r = intf.fap->intfInfoIs(i).get();
         r->swTableIndexIs(intf.row);
      }
      fields.writeTo(*r);
      const Pondo::Generation g{r->generation().counter + 1, valid};
      r->generationIs(g);
      return g;
   }

   std::vector<std::pair<YAML::Node, Fields>> entries_;
   std::map<IntfId, Intf> intfs_;
   Pondo::Ptr<PlatformCfUpdateInfo> info_;
   Pondo::Ptr<PtpActions> actions_;
   Pondo::Ptr<Statebase::EntityManager> em_;
   Pondo::Ptr<VyrPtp::Programmer::Status> programmerStatus_;
   Pondo::Ptr<VyrCfUpdateArmSm> sm_;
   Pondo::Ptr<CfUpdateReporter> reporter_;
};

VYRPTP_SIM_MODULE(CfUpdateModule);

}  // namespace
}  // namespace Sim
