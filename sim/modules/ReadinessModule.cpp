// Readiness from programmer reports (section `programmers`, event
// `bumpGeneration`).
//
// Each declared programmer handles some interfaces and possibly the pipeline.
// Whenever the action generation moves (and once at start) it takes `delay`
// seconds of virtual time, then reports the generation it finds current, as a
// failure if that generation is listed in `failsAt`. A bump during that time
// restarts the work. Programmers report in both record families; the readiness
// aggregator and the programmer aggregator each publish into a hardware status
// of their own, and the report shows per interface when each became ready.
// "CF_UPDATE" is the library's own programmer (section `cfUpdate`); the
// aggregators are also built when only that one is configured.
//
//   programmers:
//     - name: INGRESS_FWD
//       interfaces: all            # or a list of interface names
//       pipeline: true             # also reports for the pipeline
//       delay: 0.05                # seconds from a bump to the report
//       failsAt: [2]               # generations it fails to program
//   timeline:
//     - at: 2.0
//       bumpGeneration:
#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "Module.h"
#include "ProgrammerRecords.h"
#include "VyrPtp/AggregatorSmNi.h"
#include "VyrPtp/ProgrammerAggregatorSm.h"

namespace Sim {
namespace {

using VyrPtp::ActionTypes::PtpActions;
using namespace VyrPtp::Programmer;
using Wyx::IntfId;

struct ProgrammerDecl {
   std::string name;
   bool allInterfaces = false;
   std::vector<YAML::Node> interfaces;  // the names, checked against the chassis when it is built
   bool pipeline = false;
   double delay = 0;
   std::set<std::uint32_t> failsAt;
};

// One simulated programmer: registers its records, then reports each
// generation `delay` after it appears.
class SimProgrammer final : public Kiv::Reactor {
  public:
   SimProgrammer(ProgrammerDecl decl, std::vector<IntfId> intfs, Pondo::Ptr<const PtpActions> actions,
                 const ProgrammerRecords& records, World& world)
       : actions_(this, std::move(actions), Kiv::on<PtpActions::generation_t, &SimProgrammer::handleGeneration>),
         decl_(std::move(decl)),
         intfs_(std::move(intfs)),
         records_(records),
         world_(world) {
      records_.status->programmerActiveIs(decl_.name);
      records_.status->statusIs(decl_.name);
      for (IntfId i : intfs_) {
         records_.intfInfoStatus->intfInfoIs(i)->programmerInfoIs(decl_.name);
         records_.staticRecordIs(i);
         records_.status->intfStatusIs({decl_.name, i});
      }
      if (decl_.pipeline) records_.pipelineInfoStatus->programmerInfoIs(decl_.name);
   }

  private:
   // The actions present at start are programmed like any later ones.
   void handleInitialized() override { timer_.timeMinIs(Kiv::currentTime() + decl_.delay); }
   void handleGeneration() { timer_.timeMinIs(Kiv::currentTime() + decl_.delay); }
   void report() {
      const Pondo::Generation g{actions_->generation().counter, !decl_.failsAt.count(actions_->generation().counter)};
      world_.log("programmer {} reports generation {} {} for {} interfaces{}", decl_.name, g.counter,
                 g.flag ? "programmed" : "FAILED", intfs_.size(), decl_.pipeline ? " and the pipeline" : "");
      for (IntfId i : intfs_) {
         records_.intfInfoStatus->intfInfo(i)->programmerInfo(decl_.name)->generationIs(g);
         records_.status->intfStatus({decl_.name, i})->generationIs(g);
      }
      if (decl_.pipeline) records_.pipelineInfoStatus->programmerInfo(decl_.name)->generationIs(g);
      Info* info = records_.status->status(decl_.name);
      info->generationIs(g);
      info->hwProgrammedIs(g.flag);
   }

   Kiv::Input<const PtpActions> actions_;
   ProgrammerDecl decl_;
   std::vector<IntfId> intfs_;
   ProgrammerRecords records_;
   World& world_;
   Kiv::ClockTimer timer_{Kiv::activityManager().clock(), [this] { report(); }};
};

// Follows one aggregator's published hardware status: per interface when it
// became ready or not ready.
class HwStatusView final : public Kiv::Reactor {
  public:
   struct Intf {
      bool present = false;
      bool ready = false;
      double since = -1;                             // when the readiness last changed; -1: never
      std::uint32_t generation = 0;                  // the action generation at that time
      std::vector<std::pair<double, bool>> history;  // (when, ready) at each change
   };

   HwStatusView(Pondo::Ptr<const Ptp::HwStatus> hw, Pondo::Ptr<const PtpActions> actions, const char* who, World& world)
       : hw_(this, std::move(hw), Kiv::on<Ptp::HwStatus::intfStatus_t, &HwStatusView::handleIntfStatus>,
             Kiv::on<Kiv::Inside<Ptp::HwStatus::intfStatus_t, Ptp::HwIntfStatus::intfReadyForTxPacket_t>,
                     &HwStatusView::handleIntfReady>,
             Kiv::on<Kiv::Inside<Ptp::HwStatus::intfStatus_t, Ptp::HwIntfStatus::intfReadyForRxPacket_t>,
                     &HwStatusView::handleIntfReady>),
         actions_(std::move(actions)),
         who_(who),
         world_(world) {}

   std::map<IntfId, Intf> intfs;

  private:
   // An entry comes or goes.
   void handleIntfStatus(IntfId i) {
      const Ptp::HwIntfStatus* e = hw_->intfStatus(i);
      intfs[i].present = e != nullptr;
      if (!e) {
         if (intfs[i].ready) intfs[i].history.emplace_back(Kiv::currentTime(), false);
         intfs[i].ready = false;
         world_.log("{}: {} has no entry any more", who_, i);
         return;
      }
      handleIntfReady(*e);
   }
   void handleIntfReady(const Ptp::HwIntfStatus& e) {
      const bool ready = e.intfReadyForTxPacket() && e.intfReadyForRxPacket();
      Intf& intf = intfs[e.intfId()];
      if (ready == intf.ready) return;
      intf.present = true;
      intf.ready = ready;
      intf.since = Kiv::currentTime();
      intf.generation = actions_->generation().counter;
      intf.history.emplace_back(intf.since, ready);
      world_.log("{}: {} {} (actions at generation {})", who_, e.intfId(), ready ? "ready" : "NOT ready",
                 intf.generation);
   }

   Kiv::Input<const Ptp::HwStatus> hw_;
   Pondo::Ptr<const PtpActions> actions_;
   const char* who_;
   World& world_;
};

// Follows what the aggregators publish: per interface when it became ready or
// not ready (the readiness aggregator's verdicts, then the programmers'), and
// the pipeline verdicts.
class ReadinessObserver final : public Kiv::Reactor {
  public:
   struct Verdict {
      double at;
      Pondo::Generation generation;
   };

   ReadinessObserver(Pondo::Ptr<const Ptp::HwStatus> readinessHw, Pondo::Ptr<const Ptp::HwStatus> programmerHw,
                     Pondo::Ptr<const VyrPtp::PtpPipelineAggState> pipeline, Pondo::Ptr<const PtpActions> actions,
                     World& world)
       : byReadiness(Kiv::make<HwStatusView>(std::move(readinessHw), actions, "readiness aggregator", world)),
         byProgrammers(Kiv::make<HwStatusView>(std::move(programmerHw), actions, "programmer aggregator", world)),
         pipeline_(this, std::move(pipeline),
                   Kiv::on<VyrPtp::PtpPipelineAggState::generation_t, &ReadinessObserver::notePipeline>),
         world_(world) {}

   const Pondo::Ptr<HwStatusView> byReadiness, byProgrammers;
   std::vector<Verdict> verdicts;

  private:
   // The verdict present when the observer starts counts as the first one.
   void onConstruct() override { notePipeline(); }
   void notePipeline() {
      const Pondo::Generation g = pipeline_->generation();
      verdicts.push_back({Kiv::currentTime(), g});
      world_.log("readiness aggregator: pipeline {} for generation {}", g.flag ? "ready" : "NOT ready", g.counter);
   }

   Kiv::Input<const VyrPtp::PtpPipelineAggState> pipeline_;
   World& world_;
};

class ReadinessModule final : public Module {
  public:
   std::string name() const override { return "readiness"; }
   int order() const override { return 20; }
   std::vector<std::string> sections() const override { return {"programmers"}; }
   std::vector<std::string> events() const override { return {"bumpGeneration"}; }

   void load(const Scenario& s) override {
      for (const Event& e : s.timeline()) {
         if (e.kind != "bumpGeneration") continue;
         if (!e.body.IsNull()) s.fail(e, "'bumpGeneration' takes no value");
         if (!s.section("programmers")) s.fail(e, "'bumpGeneration' needs a 'programmers' section");
      }
      YAML::Node list = s.section("programmers");
      if (!list) return;
      if (!list.IsSequence()) s.fail(list, "'programmers' is a list of programmers");
      for (const YAML::Node& p : list) {
         s.onlyKeys(p, {"name", "interfaces", "pipeline", "delay", "failsAt"});
         ProgrammerDecl decl;
         decl.name = s.get<std::string>(p, "name");
         if (decl.name.empty()) s.fail(p, "a programmer's 'name' is empty");
         if (decl.name == "CF_UPDATE") {
            s.fail(
                p,
                "CF_UPDATE is the library's correction-field programmer: give the interfaces' settings in 'cfUpdate'");
         }
         for (const ProgrammerDecl& other : decls_) {
            if (other.name == decl.name) s.fail(p, fmt::format("programmer {} declared twice", decl.name));
         }
         if (YAML::Node intfs = p["interfaces"]) {
            decl.allInterfaces = intfs.IsScalar() && intfs.Scalar() == "all";
            if (!decl.allInterfaces && !intfs.IsSequence()) {
               s.fail(intfs, "'interfaces' is 'all' or a list of interface names");
            }
            if (intfs.IsSequence()) {
               for (const YAML::Node& n : intfs) decl.interfaces.push_back(n);
            }
         }
         decl.pipeline = s.get<bool>(p, "pipeline", false);
         decl.delay = s.number(p, "delay", {0, 3600, "s"}, 0.0);
         if (YAML::Node f = p["failsAt"]) {
            if (!f.IsSequence()) s.fail(f, "'failsAt' is a list of generations");
            for (const YAML::Node& g : f) {
               decl.failsAt.insert(std::uint32_t(s.integerAs(g, "failsAt", 0, 0xFFFFFFFF)));
            }
         }
         decls_.push_back(std::move(decl));
      }
   }

   // The library's own programmer, configured in 'cfUpdate', is served too.
   void build(World& w) override {
      if (decls_.empty() && !w.scenario.section("cfUpdate")) return;
      records_.emplace(w);
      std::vector<IntfId> chassis;
      for (const Chip& c : w.chips) chassis.insert(chassis.end(), c.interfaces.begin(), c.interfaces.end());

      actions_ = w.sysdb->entityIs<PtpActions>("ptp/actions");
      auto readinessHw = w.sysdb->entityIs<Ptp::HwStatus>("ptp/readiness/hwStatus");
      // The agent knows every interface; the platform enters each into the
      // hardware status that the readiness aggregator serves.
      for (IntfId i : chassis) {
         records_->intfInfoStatus->intfInfoIs(i);
         readinessHw->intfStatusIs(i, Ptp::LinuxTsOptions());
      }

      for (const ProgrammerDecl& decl : decls_) {
         programmers_.push_back(Kiv::make<SimProgrammer>(decl, interfacesOf(decl, chassis, w), actions_, *records_, w));
      }
      startMachines(w);
      w.log("readiness: {} programmers over {} interfaces; actions at generation {}", decls_.size(), chassis.size(),
            actions_->generation().counter);
   }

   void apply(const Event&, World& w) override {
      const std::uint32_t next = actions_->generation().counter + 1;
      w.log("actions bumped to generation {}", next);
      actions_->generationIs({next, true});
   }

   void agentRestart(World& w) override {
      if (!records_) return;
      observer_ = nullptr;
      readinessSm_ = nullptr;
      programmerSm_ = nullptr;
      startMachines(w);
   }

   // Per chip and interface the two aggregators' verdicts with their history,
   // and for an interface not ready at the end, why.
   void reportData(World& w, Json& out) override {
      if (!records_) return;
      out["generation"] = actions_->generation().counter;
      auto state = [](const std::map<IntfId, HwStatusView::Intf>& m, IntfId i) {
         Json j;
         auto it = m.find(i);
         j["ready"] = it != m.end() && it->second.present && it->second.ready;
         j["since"] = it == m.end() || it->second.since < 0 ? Json() : Json(it->second.since);
         Json& history = j["history"] = Json::array();
         if (it == m.end()) return j;
         for (auto [at, ready] : it->second.history) {
            Json& change = history.push(Json::array());
            change.push(at);
            change.push(ready);
         }
         return j;
      };
      auto total = [](std::size_t ready, std::size_t notReady) {
         Json j;
         j["ready"] = ready;
         j["notReady"] = notReady;
         return j;
      };
      std::size_t ready = 0, notReady = 0;
      for (const Chip& c : w.chips) {
         // Members are added before references into the chip are taken: adding one moves the others.
         Json& chip = out["chips"][std::to_string(c.logicalFap)];
         Json& intfs = chip["interfaces"] = Json::object();  // also for a chip without interfaces
         std::size_t chipReady = 0;
         for (IntfId i : c.interfaces) {
            Json& intf = intfs[i.name()];
            intf["readinessAggregator"] = state(observer_->byReadiness->intfs, i);
            intf["programmerAggregator"] = state(observer_->byProgrammers->intfs, i);
            if (intf["readinessAggregator"]["ready"].boolean()) {
               ++chipReady;
            } else {
               intf["attention"] = whyNotReady(i);
            }
         }
         chip["total"] = total(chipReady, c.interfaces.size() - chipReady);
         ready += chipReady;
         notReady += c.interfaces.size() - chipReady;
      }
      out["total"] = total(ready, notReady);
      Json& verdicts = out["pipelineVerdicts"] = Json::array();
      for (const auto& v : observer_->verdicts) {
         Json& j = verdicts.push(Json());
         j["at"] = v.at;
         j["generation"] = v.generation.counter;
         j["ready"] = bool(v.generation.flag);
      }
   }

  private:
   // The library's two aggregators, and the observer of what they publish.
   void startMachines(World& w) {
      auto readinessHw = w.sysdb->entityIs<Ptp::HwStatus>("ptp/readiness/hwStatus");
      auto programmerHw = w.sysdb->entityIs<Ptp::HwStatus>("ptp/programmer/hwStatus");
      readinessSm_ =
          VyrPtp::aggregatorSmNiFactory(readinessHw, records_->intfInfoStatus, records_->pipelineInfoStatus, actions_);
      programmerSm_ = aggregatorSmFactory(records_->status, programmerHw);
      observer_ =
          Kiv::make<ReadinessObserver>(readinessHw, programmerHw, readinessSm_->pipelineAggState(), actions_, w);
   }

   // What keeps an interface from being ready: its programmers' reports of the current generation.
   std::string whyNotReady(IntfId i) const {
      const std::uint32_t current = actions_->generation().counter;
      const PtpIntfInfo* info = records_->intfInfoStatus->intfInfo(i);
      if (!info || info->programmerInfo().empty()) return "no programmer handles it";
      std::vector<std::string> why;
      for (const auto& [name, p] : info->programmerInfo()) {
         const Pondo::Generation g = p->generation();
         if (g.counter != current) {
            why.push_back(fmt::format("{} has not reported generation {} (last report: {})", name, current, g.counter));
         } else if (!g.flag) {
            why.push_back(fmt::format("{} failed to program generation {}", name, current));
         }
      }
      if (why.empty()) return "all programmers report generation " + std::to_string(current) + " programmed";
      return fmt::format("{}", fmt::join(why, "; "));
   }

   std::vector<IntfId> interfacesOf(const ProgrammerDecl& decl, const std::vector<IntfId>& chassis, World& w) {
      if (decl.allInterfaces) return chassis;
      std::vector<IntfId> intfs;
      for (const YAML::Node& n : decl.interfaces) {
         const std::string name = w.scenario.as<std::string>(n, "interface");
         auto id = IntfId::parse(name);
         if (!id || std::find(chassis.begin(), chassis.end(), *id) == chassis.end()) {
            w.scenario.fail(n, fmt::format("programmer {}: '{}' is not an interface of the chassis", decl.name, name));
         }
         intfs.push_back(*id);
      }
      return intfs;
   }

   std::vector<ProgrammerDecl> decls_;
   std::optional<ProgrammerRecords> records_;
   Pondo::Ptr<PtpActions> actions_;
   std::vector<Pondo::Ptr<SimProgrammer>> programmers_;
   Pondo::Ptr<VyrPtp::AggregatorSmNi> readinessSm_;
   Pondo::Ptr<AggregatorSm> programmerSm_;
   Pondo::Ptr<ReadinessObserver> observer_;
};

VYRPTP_SIM_MODULE(ReadinessModule);

}  // namespace
}  // namespace Sim
