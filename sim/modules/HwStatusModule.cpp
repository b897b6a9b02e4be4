// Timestamp location and hardware readiness (section `hwStatus`, events
// `timestampLocation`, `phyTimeSync`, `phyIsland` and `timeSync`).
//
// The library's location machine decides from the adapted configuration
// ("ptp/adaptedHwConfig"), the time-sync configuration and the egress
// decisions which interfaces their PHY timestamps, into
// "ptp/timestampLocationConfig"; its hardware status machine keeps one
// machine per chip (FAP number = logical FAP, which also numbers the chip's
// ASIC time file and starts its file machine) and writes readiness into
// "ptp/hwStatus". The report shows per interface its location and Rx/Tx
// readiness over time and, while it is not ready, what holds it back.
//
//   hwStatus:
//     timestampLocation: externalPhy       # the configured location (or chip)
//     timeSyncSupported: true              # chips are time-synchronised (default true)
//     slices: {0: Linecard1, 1: Linecard2} # per logical FAP (default Linecard<fap>)
//     phyTimeSync: [Ethernet3/1]           # interfaces whose PHY takes part in time sync
//     phyIsland: {Ethernet3/1: {rx: true, tx: true}}   # what each PHY reports
//     timeSync: {0: 5, 1: 5}               # time-sync state per chip (5 = stable)
//   timeline:
//     - at: 4.0
//       phyTimeSync: {Ethernet3/1: false}
//     - at: 4.2
//       phyIsland: {Ethernet3/1: none}     # or {rx: .., tx: ..}
//     - at: 4.5
//       timeSync: {1: 4}                   # or none
//     - at: 4.8
//       timestampLocation: chip
//
// Chips are named "Fap<logical FAP>" in the time-sync status; PHY islands are
// named after the generic name of the chip's slice.
#include <map>

#include "Module.h"
#include "Platform/ProductAttributes.h"
#include "Utils/SliceName.h"
#include "VyrPtp/VyrPtpHwStatusSm.h"
#include "VyrPtp/VyrPtpLocationSm.h"
#include "Watch.h"

namespace Sim {
namespace {

using VyrPtp::Location::VyrPtpHwStatusFapSm;
using Wyx::IntfId;

// One interface's state at some time.
struct Snapshot {
   Kiv::Seconds at = 0;
   bool atPhy = false;
   bool rx = false, tx = false;
   std::string why;
   bool sameAs(const Snapshot& o) const { return atPhy == o.atPhy && rx == o.rx && tx == o.tx && why == o.why; }
};

class HwStatusModule final : public Module {
  public:
   ~HwStatusModule() override {
      if (world_) Platform::productAttributesIs(nullptr);
   }
   std::string name() const override { return "hw-status"; }
   // After the PTP configuration, before the ASIC time module, which reads the
   // chip machines' time file status.
   int order() const override { return 40; }
   std::vector<std::string> sections() const override { return {"hwStatus"}; }
   std::vector<std::string> events() const override {
      return {"timestampLocation", "phyTimeSync", "phyIsland", "timeSync"};
   }

   // Values and numbers are checked here; which chip or interface they name, in build().
   void load(const Scenario& s) override {
      scenario_ = &s;
      for (const Event& e : s.timeline()) parseEvent(e);
      const YAML::Node sec = s.section("hwStatus");
      if (!sec) return;
      if (!sec.IsMap()) s.fail(sec, "'hwStatus' is a map of settings");
      s.onlyKeys(sec, {"timestampLocation", "timeSyncSupported", "slices", "phyTimeSync", "phyIsland", "timeSync"});
      if (sec["timestampLocation"]) location(sec["timestampLocation"]);
      s.get<bool>(sec, "timeSyncSupported", true);
      if (const YAML::Node n = sec["slices"]) {
         if (!n.IsMap()) s.fail(n, "'slices' maps logical FAPs to slice names");
         for (const auto& kv : n) {
            logicalFap(kv.first);
            s.as<std::string>(kv.second, "slice");
         }
      }
      if (const YAML::Node n = sec["phyTimeSync"]) {
         if (!n.IsSequence()) s.fail(n, "'phyTimeSync' is a list of interfaces");
      }
      if (sec["phyIsland"]) phyIsland(sec["phyIsland"]);
      if (sec["timeSync"]) timeSync(sec["timeSync"]);
   }

   void build(World& w) override {
      if (w.chips.empty()) return;
      world_ = &w;
      const YAML::Node sec = w.scenario.section("hwStatus");
      Kiv::Dir& db = *w.sysdb;
      for (const Chip& c : w.chips) {
         if (c.logicalFap > 255) {
            throw ScenarioError(fmt::format("{}:{}: logical FAP {} is no FAP number (0..255)", w.scenario.origin(),
                                            c.line, c.logicalFap));
         }
         for (IntfId i : c.interfaces) chipOf_[i] = &c;
      }
      // Every event's chips and interfaces are checked before anything runs.
      for (const Event& e : w.scenario.timeline()) {
         for (const YAML::Node& key : parseEvent(e)) {
            if (e.kind == "timeSync") {
               chipAt(key);
            } else {
               chipIntf(key);
            }
         }
      }

      hwConfig_ = db.entityIs<Ptp::HwConfig>("ptp/hwConfig");
      adapted_ = db.entityIs<Ptp::HwConfig>("ptp/adaptedHwConfig");
      timeSyncConfig_ = db.entityIs<PtpTimeSync::Config>("ptpTimeSync/config");
      location_ = db.entityIs<VyrPtp::PtpTimestampLocationConfig>("ptp/timestampLocationConfig");
      islands_ = db.entityIs<Kiv::Dir>("ptp/timestampingStatus");
      timeSyncStatus_ = db.entityIs<Kiv::Dir>("ptpTimeSync/hwStatus");
      hwStatus_ = db.entityIs<Ptp::HwStatus>("ptp/hwStatus");
      unit_ = Kiv::make<VyrPtp::UnitPort::PlatformUnitPortInfo>("unit");
      db.entityPtrIs("platform/unitPortInfo", unit_);

      timeSyncSupported_ = !sec || w.scenario.get<bool>(sec, "timeSyncSupported", true);
      if (sec && sec["timestampLocation"]) hwConfig_->timestampLocationIs(location(sec["timestampLocation"]));
      std::map<int, std::string> slices;
      if (sec && sec["slices"]) {
         for (const auto& kv : sec["slices"]) slices[chipAt(kv.first).logicalFap] = kv.second.Scalar();
      }
      for (const Chip& c : w.chips) {
         const std::string slice =
             slices.count(c.logicalFap) ? slices[c.logicalFap] : fmt::format("Linecard{}", c.logicalFap);
         auto info = unit_->fapInfoIs(VyrPtp::UnitPort::FapId(c.logicalFap), slice, chipName(c));
         for (IntfId i : c.interfaces) info->intfInfoIs(i);
      }
      if (sec && sec["phyTimeSync"]) {
         for (const YAML::Node& i : sec["phyTimeSync"]) applyPhyTimeSync(chipIntf(i), true);
      }
      if (sec && sec["phyIsland"]) applyPhyIslands(phyIsland(sec["phyIsland"]));
      if (sec && sec["timeSync"]) applyTimeSync(timeSync(sec["timeSync"]));

      startMachines();
      w.log("hw status: {} chip(s), time synchronisation {}, chip time {}", w.chips.size(),
            timeSyncSupported_ ? "supported" : "not supported",
            w.scenario.section("asicTime") ? "from the ASIC time files" : "without ASIC time files");

      // Snapshots after every change of readiness or location.
      statusWatch_ = Kiv::make<Watch<Ptp::HwStatus>>(hwStatus_, [this](const Kiv::Change&) { snapshotAll(); });
      locationWatch_ = Kiv::make<LocationWatch>(location_, [this](const IntfId& i) {
         world_->log("hw status: {} timestamped at its {}", i.shortName(),
                     location_->enabledPhysicalIntfConfig(i) ? "PHY" : "chip");
      });
      snapshotAll();
   }

   void apply(const Event& e, World& w) override {
      if (e.kind == "timestampLocation") {
         hwConfig_->timestampLocationIs(location(e.body));
         w.log("hw status: configured timestamp location {}", Pondo::enumName(hwConfig_->timestampLocation()));
      } else if (e.kind == "phyTimeSync") {
         for (const auto& [key, on] : phyTimeSync(e.body)) {
            const IntfId intf = chipIntf(key);
            applyPhyTimeSync(intf, on);
            w.log("hw status: PHY of {} {} time synchronisation", intf.shortName(), on ? "takes part in" : "leaves");
         }
      } else if (e.kind == "phyIsland") {
         applyPhyIslands(phyIsland(e.body));
         w.log("hw status: PHY island status {}", YAML::Dump(e.body));
      } else {
         applyTimeSync(timeSync(e.body));
         w.log("hw status: time-sync state {}", YAML::Dump(e.body));
      }
   }

   // Every event may change a reason without a readiness change (an ASIC time file fault, say).
   void afterEvent(const Event&, World&) override {
      if (world_) snapshotAll();
   }

   // The ASIC time module, after this one, takes the new chip machines' file machines.
   void agentRestart(World& w) override {
      if (!world_) return;
      sm_ = nullptr;
      locationSm_ = nullptr;
      startMachines();
      w.log("hw status: agent restarted the location and hardware status machines");
   }

   void reportData(World&, Json& out) override {
      if (!world_) return;
      snapshotAll();
      for (const auto& [intf, history] : history_) {
         Json& i = out["interfaces"][intf.name()];
         auto fill = [](Json& j, const Snapshot& s) {
            j["location"] = s.atPhy ? "externalPhy" : "chip";
            j["rx"] = s.rx;
            j["tx"] = s.tx;
            j["why"] = s.why.empty() ? Json() : Json(s.why);
         };
         fill(i, history.back());
         Json& h = i["history"] = Json::array();
         for (const Snapshot& s : history) {
            Json& j = h.push(Json());
            j["at"] = s.at;
            fill(j, s);
         }
      }
   }

  private:
   void startMachines() {
      Kiv::Dir& db = *world_->sysdb;
      // The chips' time: read through the ASIC time files where the asicTime module simulates them.
      const YAML::Node asicTime = world_->scenario.section("asicTime");
      const bool initCounter = asicTime && world_->scenario.get<bool>(asicTime, "initCounter", false);
      Platform::productAttributesIs(
          Kiv::make<Platform::ProductAttributes>(Platform::Attributes{bool(asicTime), initCounter}));
      locationSm_ = VyrPtp::Location::vyrPtpLocationSmFactory(
          adapted_, location_, timeSyncConfig_,
          db.entityIs<VyrPtp::EgressTimestampIntfStatus>("ptp/egressTimestampIntfStatus"));
      sm_ = VyrPtp::Location::vyrPtpHwStatusSmFactory(unit_, adapted_, location_, islands_, timeSyncStatus_,
                                                      timeSyncSupported_, hwStatus_);
      db.entityPtrIs("ptp/hwStatusSm", sm_);
   }

   // --- Reading the scenario ---------------------------------------------------

   // Checks one of this module's events; returns the chips or interfaces it names.
   std::vector<YAML::Node> parseEvent(const Event& e) const {
      std::vector<YAML::Node> keys;
      if (e.kind == "timestampLocation") {
         location(e.body);
      } else if (e.kind == "phyTimeSync") {
         for (const auto& [key, on] : phyTimeSync(e.body)) keys.push_back(key);
      } else if (e.kind == "phyIsland") {
         for (const auto& [key, ready] : phyIsland(e.body)) keys.push_back(key);
      } else if (e.kind == "timeSync") {
         for (const auto& [key, state] : timeSync(e.body)) keys.push_back(key);
      }
      return keys;
   }

   static std::string chipName(const Chip& c) { return fmt::format("Fap{}", c.logicalFap); }
   long long logicalFap(const YAML::Node& n) const { return scenario_->integerAs(n, "logical FAP", 0, 255); }
   const Chip& chipAt(const YAML::Node& n) const {
      const long long fap = logicalFap(n);
      for (const Chip& c : world_->chips) {
         if (c.logicalFap == fap) return c;
      }
      scenario_->fail(n, fmt::format("no chip with logicalFap {}", fap));
   }
   IntfId chipIntf(const YAML::Node& n) const {
      auto id = IntfId::parse(scenario_->as<std::string>(n, "interface"));
      if (!id || !chipOf_.count(*id)) scenario_->fail(n, fmt::format("'{}' is not an interface of a chip", n.Scalar()));
      return *id;
   }
   Ptp::Location::Location location(const YAML::Node& n) const {
      const auto text = scenario_->as<std::string>(n, "timestampLocation");
      auto l = Pondo::enumFromName<Ptp::Location::Location>(text);
      if (!l) scenario_->fail(n, fmt::format("'{}' is not a timestamp location (chip or externalPhy)", text));
      return *l;
   }
   // Per interface (its name's node), whether its PHY takes part in time sync.
   std::vector<std::pair<YAML::Node, bool>> phyTimeSync(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "'phyTimeSync' maps interfaces to true or false");
      std::vector<std::pair<YAML::Node, bool>> r;
      for (const auto& kv : n) r.emplace_back(kv.first, scenario_->as<bool>(kv.second, "phyTimeSync"));
      return r;
   }
   // Per interface (its name's node), its PHY's (rx, tx), or nothing for no entry.
   using PhyIslands = std::vector<std::pair<YAML::Node, std::optional<std::pair<bool, bool>>>>;
   PhyIslands phyIsland(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "'phyIsland' maps interfaces to {rx: .., tx: ..} or none");
      PhyIslands r;
      for (const auto& kv : n) {
         const YAML::Node intf = kv.first;
         if (kv.second.IsScalar() && kv.second.Scalar() == "none") {
            r.emplace_back(intf, std::nullopt);
            continue;
         }
         if (!kv.second.IsMap()) scenario_->fail(kv.second, "a PHY reports {rx: .., tx: ..} or none");
         scenario_->onlyKeys(kv.second, {"rx", "tx"});
         r.emplace_back(intf, std::pair{scenario_->get<bool>(kv.second, "rx"), scenario_->get<bool>(kv.second, "tx")});
      }
      return r;
   }
   // Per chip (its logical FAP's node), its time-sync state, or nothing for no status.
   using TimeSyncStates = std::vector<std::pair<YAML::Node, std::optional<std::uint8_t>>>;
   TimeSyncStates timeSync(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "'timeSync' maps logical FAPs to a state (0..255) or none");
      TimeSyncStates r;
      for (const auto& kv : n) {
         logicalFap(kv.first);
         if (kv.second.IsScalar() && kv.second.Scalar() == "none") {
            r.emplace_back(kv.first, std::nullopt);
            continue;
         }
         r.emplace_back(kv.first, std::uint8_t(scenario_->integerAs(kv.second, "time-sync state", 0, 255)));
      }
      return r;
   }

   // --- Platform side -------------------------------------------------------------

   const VyrPtp::UnitPort::PlatformUnitPortFapInfo& infoOf(const Chip& c) const {
      return *unit_->fapInfo(VyrPtp::UnitPort::FapId(c.logicalFap));
   }
   void applyPhyTimeSync(IntfId intf, bool on) {
      const std::string name = "PhyChip" + intf.name();
      if (on) {
         timeSyncConfig_->switchAsicIs(name)->modeIs(PtpTimeSync::SwitchConfig::modePtp);
      } else {
         timeSyncConfig_->switchAsicDel(name);
      }
   }
   void applyPhyIslands(const PhyIslands& phys) {
      for (const auto& [key, ready] : phys) {
         const IntfId intf = chipIntf(key);
         const std::string island =
             VyrPtp::Location::VyrPtpHwStatusSm::phyIslandName(infoOf(*chipOf_.at(intf)).sliceName());
         auto status = islands_->entityIs<VyrPtp::PtpTimestampStatus>(island);
         if (!ready) {
            status->physicalIntfStatusDel(intf);
            continue;
         }
         auto s = status->physicalIntfStatusIs(intf);
         s->intfReadyForRxIs(ready->first);
         s->intfReadyForTxIs(ready->second);
      }
   }
   void applyTimeSync(const TimeSyncStates& states) {
      for (const auto& [key, state] : states) {
         const auto& info = infoOf(chipAt(key));
         auto slice = timeSyncStatus_->entityIs<PtpTimeSync::HwStatus>(info.sliceName());
         if (state) {
            slice->switchAsicIs(info.chipName())->stateIs(*state);
         } else {
            slice->switchAsicDel(info.chipName());
         }
      }
   }

   // --- What the machines say ---------------------------------------------------

   // What holds a not-ready interface back, from its chip machine's queries and inputs.
   std::string why(IntfId intf, const VyrPtp::PtpTimestampLocationIntfConfig* entry) const {
      // No machine while an agent restart creates it.
      const VyrPtpHwStatusFapSm* fap =
          sm_ ? sm_->hwStatusFapSm(VyrPtp::UnitPort::FapId(chipOf_.at(intf)->logicalFap)) : nullptr;
      const Ptp::HwIntfConfig* config = adapted_->intfConfig(intf);
      if (!fap) return "no chip machine";
      if (!config || !config->enabled()) return "not enabled";
      const VyrPtp::PtpTimestampStatus* island = fap->ptpTimestampingStatus();
      const VyrPtp::PtpTimestampIntfStatus* phy = island ? island->physicalIntfStatus(intf) : nullptr;
      if (entry && entry->location() != Ptp::Location::Location::chip) {
         if (!island) return "PHY island status missing";
         if (!phy) return "PHY island status has no entry";
         return fmt::format("PHY not ready: rx {}, tx {}", phy->intfReadyForRx(), phy->intfReadyForTx());
      }
      std::vector<std::string> reasons;
      if (!fap->externalPhyHardwareStopped(intf)) reasons.push_back("PHY still timestamping");
      if (fap->asicTimestampFileSm() && !fap->asicTimestampFileStatus()->ready()) {
         reasons.push_back("ASIC time file not ready");
      }
      if (fap->timeSyncSupported()) {
         const PtpTimeSync::SwitchStatus* sync = fap->timeSyncStatus();
         if (!sync)
            reasons.push_back("time-sync status missing");
         else if (sync->state() != PtpTimeSync::SwitchStatus::stateStable) {
            reasons.push_back(fmt::format("time synchronisation not stable: state {}", sync->state()));
         }
      }
      return fmt::format("{}", fmt::join(reasons, "; "));
   }

   void snapshotAll() {
      for (const auto& [intf, status] : hwStatus_->intfStatus()) {
         const VyrPtp::PtpTimestampLocationIntfConfig* entry = location_->enabledPhysicalIntfConfig(intf);
         Snapshot s{Kiv::currentTime(), entry && entry->location() != Ptp::Location::Location::chip,
                    status->intfReadyForRxPacket(), status->intfReadyForTxPacket()};
         if (!s.rx || !s.tx) s.why = why(intf, entry);
         auto& h = history_[intf];
         if (!h.empty() && h.back().sameAs(s)) continue;
         if (!h.empty() && h.back().at == s.at) h.pop_back();  // several changes of one instant: the last counts
         if (!h.empty() && h.back().sameAs(s)) continue;
         h.push_back(s);
      }
   }

   const Scenario* scenario_ = nullptr;
   World* world_ = nullptr;
   std::map<IntfId, const Chip*> chipOf_;
   bool timeSyncSupported_ = true;
   Pondo::Ptr<Ptp::HwConfig> hwConfig_, adapted_;
   Pondo::Ptr<PtpTimeSync::Config> timeSyncConfig_;
   Pondo::Ptr<VyrPtp::PtpTimestampLocationConfig> location_;
   Pondo::Ptr<Kiv::Dir> islands_, timeSyncStatus_;
   Pondo::Ptr<Ptp::HwStatus> hwStatus_;
   Pondo::Ptr<VyrPtp::UnitPort::PlatformUnitPortInfo> unit_;
   Pondo::Ptr<VyrPtp::Location::VyrPtpLocationSm> locationSm_;
   Pondo::Ptr<VyrPtp::Location::VyrPtpHwStatusSm> sm_;
   Pondo::Ptr<Watch<Ptp::HwStatus>> statusWatch_;
   using LocationWatch = MemberWatch<VyrPtp::PtpTimestampLocationConfig::enabledPhysicalIntfConfig_t>;
   Pondo::Ptr<LocationWatch> locationWatch_;
   std::map<IntfId, std::vector<Snapshot>> history_;
};

VYRPTP_SIM_MODULE(HwStatusModule);

}  // namespace
}  // namespace Sim
