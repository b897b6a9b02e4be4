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

   void load(const Scenario& s) override {
      const YAML::Node sec = s.section("hwStatus");
      if (sec && !sec.IsMap()) s.fail(sec, "'hwStatus' is a map of settings");
      if (sec) {
         s.onlyKeys(sec, {"timestampLocation", "timeSyncSupported", "slices", "phyTimeSync", "phyIsland", "timeSync"});
      }
      scenario_ = &s;
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
      // Validate every event before anything runs.
      for (const Event& e : w.scenario.timeline()) {
         if (e.kind == "timestampLocation") location(e.body);
         if (e.kind == "phyTimeSync") phyTimeSync(e.body);
         if (e.kind == "phyIsland") phyIsland(e.body);
         if (e.kind == "timeSync") timeSync(e.body);
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
      if (const YAML::Node n = sec ? sec["slices"] : YAML::Node()) {
         if (!n.IsMap()) w.scenario.fail(n, "'slices' maps logical FAPs to slice names");
         for (const auto& kv : n) slices[chipNumber(kv.first)] = w.scenario.as<std::string>(kv.second, "slice");
      }
      for (const Chip& c : w.chips) {
         const std::string slice = slices.count(c.logicalFap) ? slices[c.logicalFap] : fmt::format("Linecard{}", c.logicalFap);
         auto info = unit_->fapInfoIs(VyrPtp::UnitPort::FapId(c.logicalFap), slice, chipName(c));
         for (IntfId i : c.interfaces) info->intfInfoIs(i);
      }
      if (sec && sec["phyTimeSync"]) {
         if (!sec["phyTimeSync"].IsSequence()) w.scenario.fail(sec["phyTimeSync"], "'phyTimeSync' is a list of interfaces");
         for (const YAML::Node& i : sec["phyTimeSync"]) applyPhyTimeSync(chipIntf(i), true);
      }
      if (sec && sec["phyIsland"]) applyPhyIslands(phyIsland(sec["phyIsland"]));
      if (sec && sec["timeSync"]) applyTimeSync(timeSync(sec["timeSync"]));

      // The chips' time: read through the ASIC time files where the asicTime module simulates them.
      const YAML::Node asicTime = w.scenario.section("asicTime");
      const bool initCounter = asicTime && w.scenario.get<bool>(asicTime, "initCounter", false);
      Platform::productAttributesIs(
          Kiv::make<Platform::ProductAttributes>(Platform::Attributes{bool(asicTime), initCounter}));
      locationSm_ = VyrPtp::Location::vyrPtpLocationSmFactory(
          adapted_, location_, timeSyncConfig_, db.entityIs<VyrPtp::EgressTimestampIntfStatus>("ptp/egressTimestampIntfStatus"));
      sm_ = VyrPtp::Location::vyrPtpHwStatusSmFactory(unit_, adapted_, location_, islands_, timeSyncStatus_,
                                                      timeSyncSupported_, hwStatus_);
      db.entityPtrIs("ptp/hwStatusSm", sm_);
      w.log("hw status: {} chip(s), time synchronisation {}, chip time {}", w.chips.size(),
            timeSyncSupported_ ? "supported" : "not supported",
            asicTime ? "from the ASIC time files" : "without ASIC time files");

      // Snapshots after every change of readiness or location.
      statusWatch_ = Kiv::make<Watch<Ptp::HwStatus>>(hwStatus_, [this](const Kiv::Change&) { snapshotAll(); });
      locationWatch_ = Kiv::make<Watch<VyrPtp::PtpTimestampLocationConfig>>(location_, [this](const Kiv::Change& c) {
         if (c.source == location_.get()) {
            world_->log("hw status: {} timestamped at its {}", c.keyAs<IntfId>().shortName(), c.added() ? "PHY" : "chip");
         }
      });
      snapshotAll();
   }

   void apply(const Event& e, World& w) override {
      if (e.kind == "timestampLocation") {
         hwConfig_->timestampLocationIs(location(e.body));
         w.log("hw status: configured timestamp location {}", hwConfig_->timestampLocation());
      } else if (e.kind == "phyTimeSync") {
         for (auto [intf, on] : phyTimeSync(e.body)) {
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
   void afterEvent(const Event&, World&) override { snapshotAll(); }

   void report(World&, std::string& out) override {
      if (!world_) return;
      snapshotAll();
      out += "Hardware readiness (per interface: timestamp location and Rx/Tx readiness over time; while not\n"
             "ready, what holds it back):\n";
      for (const auto& [intf, history] : history_) {
         out += fmt::format("  {}:\n", intf.shortName());
         for (const Snapshot& s : history) {
            out += fmt::format("    {:8.3f} s  {:<4} rx {:<3} tx {:<3}{}\n", s.at, s.atPhy ? "PHY" : "chip",
                               s.rx ? "yes" : "no", s.tx ? "yes" : "no", s.why.empty() ? "" : "  (" + s.why + ")");
         }
      }
   }

  private:
   // --- Reading the scenario ---------------------------------------------------

   static std::string chipName(const Chip& c) { return fmt::format("Fap{}", c.logicalFap); }
   const Chip& chipAt(const YAML::Node& n) const {
      const int fap = scenario_->as<int>(n, "logical FAP");
      for (const Chip& c : world_->chips) {
         if (c.logicalFap == fap) return c;
      }
      scenario_->fail(n, fmt::format("no chip with logicalFap {}", fap));
   }
   int chipNumber(const YAML::Node& n) const { return chipAt(n).logicalFap; }
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
   std::vector<std::pair<IntfId, bool>> phyTimeSync(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "'phyTimeSync' maps interfaces to true or false");
      std::vector<std::pair<IntfId, bool>> r;
      for (const auto& kv : n) r.emplace_back(chipIntf(kv.first), scenario_->as<bool>(kv.second, "phyTimeSync"));
      return r;
   }
   // Per interface, its PHY's (rx, tx), or nothing for no entry.
   std::vector<std::pair<IntfId, std::optional<std::pair<bool, bool>>>> phyIsland(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "'phyIsland' maps interfaces to {rx: .., tx: ..} or none");
      std::vector<std::pair<IntfId, std::optional<std::pair<bool, bool>>>> r;
      for (const auto& kv : n) {
         const IntfId intf = chipIntf(kv.first);
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
   // Per chip, its time-sync state, or nothing for no status.
   std::vector<std::pair<const Chip*, std::optional<std::uint8_t>>> timeSync(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "'timeSync' maps logical FAPs to a state (0..255) or none");
      std::vector<std::pair<const Chip*, std::optional<std::uint8_t>>> r;
      for (const auto& kv : n) {
         const Chip& c = chipAt(kv.first);
         if (kv.second.IsScalar() && kv.second.Scalar() == "none") {
            r.emplace_back(&c, std::nullopt);
            continue;
         }
         const int state = scenario_->as<int>(kv.second, "time-sync state");
         if (state < 0 || state > 255) scenario_->fail(kv.second, "a time-sync state is 0..255");
         r.emplace_back(&c, std::uint8_t(state));
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
   void applyPhyIslands(const std::vector<std::pair<IntfId, std::optional<std::pair<bool, bool>>>>& phys) {
      for (const auto& [intf, ready] : phys) {
         const std::string island = VyrPtp::Location::VyrPtpHwStatusSm::phyIslandName(infoOf(*chipOf_.at(intf)).sliceName());
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
   void applyTimeSync(const std::vector<std::pair<const Chip*, std::optional<std::uint8_t>>>& states) {
      for (const auto& [chip, state] : states) {
         const auto& info = infoOf(*chip);
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
      const VyrPtpHwStatusFapSm* fap = sm_->hwStatusFapSm(VyrPtp::UnitPort::FapId(chipOf_.at(intf)->logicalFap));
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
         if (!sync) reasons.push_back("time-sync status missing");
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
   Pondo::Ptr<Watch<VyrPtp::PtpTimestampLocationConfig>> locationWatch_;
   std::map<IntfId, std::vector<Snapshot>> history_;
};

VYRPTP_SIM_MODULE(HwStatusModule);

}  // namespace
}  // namespace Sim
