// PTP configuration, port data sets, operational status and LAG membership,
// turned by the configuration adapter and the egress timestamping machine
// into per-interface decisions: which interfaces are polled for egress
// timestamps, with which clock identity, and which get the one-step update.
//
// Sections:
//   lags:          {Port-Channel10: [Ethernet3/1, Ethernet3/2]}
//   operStatus:    {Ethernet2/2: down}            (chip interfaces start up)
//   ptpMode:       2
//   ptpIntfConfig: {Ethernet1/1: {enabled: true, disableManagementMessageForwarding: false}}
//   portDS:        [{intf: Ethernet1/1, domain: 0, port: 1, state: slave, clockId: 001c73.fffe.000001}]
// Events:
//   lag: {name: Port-Channel10, members: [...]}   (an empty list removes the LAG)
//   operStatus: {Ethernet3/2: down}
//   ptpMode: 3
//   ptpIntfConfig: {intf: Ethernet1/1, enabled: false}   or {intf: ..., remove: true}
//   portDS: {intf: Ethernet1/1, state: master}           or {intf: ..., remove: true}
//
// Shared entities in sysdb: "ptp/hwConfig" (the protocol side's configuration),
// "ptp/adaptedHwConfig" (one entry per physical port), "ptp/status",
// "vyr/commonSmData", "hardware/lag/status", "interface/ethPhyIntfStatus",
// "ptp/egressTimestampIntfStatus".
#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "Module.h"
#include "VyrPtp/EgressTimestampIntfSm.h"
#include "VyrPtp/HwConfigAdapterSm.h"

namespace Sim {
namespace {

using Wyx::IntfId;

struct IntfConfigChange {
   IntfId intf;
   std::optional<bool> enabled, disableManagementMessageForwarding;
   bool remove = false;
};

struct PortDSChange {
   Ptp::PortDSKey key;
   std::optional<Ptp::PortState> state;
   std::optional<Ptp::ClockIdentity> clockId;
   bool remove = false;
};

// Logs every change of the egress decisions (--verbose).
class StatusLogger final : public Pondo::Subscriber {
  public:
   explicit StatusLogger(World& w) : world_(w) {}
   void onChange(const Kiv::Change& c) override {
      using S = VyrPtp::EgressTimestampIntfStatus;
      const char* what = c.field == S::F::clockId                            ? "clockId"
                         : c.field == S::F::physicalIntfNeedsOneStepCfUpdate ? "physicalIntfNeedsOneStepCfUpdate"
                                                                             : "physicalIntfNeedsPolling";
      const char* kind = c.added() ? "added" : c.removed() ? "removed" : "changed";
      world_.log("  egress status: {} {} {}", what, kind, c.keyAs<IntfId>().shortName());
   }

  private:
   World& world_;
};

class EgressDecisionModule final : public Module {
  public:
   std::string name() const override { return "egress-decision"; }
   int order() const override { return 20; }
   std::vector<std::string> sections() const override {
      return {"lags", "operStatus", "ptpMode", "ptpIntfConfig", "portDS"};
   }
   std::vector<std::string> events() const override {
      return {"lag", "operStatus", "ptpMode", "ptpIntfConfig", "portDS"};
   }

   ~EgressDecisionModule() override {
      if (logger_) status_->subscriberRemove(logger_.get());
   }

   // Everything is read here rather than in load(): interface names are
   // checked against the chips, which the platform module provides at build.
   void build(World& w) override {
      scenario_ = &w.scenario;
      for (const Chip& c : w.chips) chipIntfs_.insert(c.interfaces.begin(), c.interfaces.end());
      Kiv::Dir& db = *w.sysdb;
      hwConfig_ = db.entityIs<Ptp::HwConfig>("ptp/hwConfig");
      adaptedHwConfig_ = db.entityIs<Ptp::HwConfig>("ptp/adaptedHwConfig");
      ptpStatus_ = db.entityIs<Ptp::Status>("ptp/status");
      vcsd_ = db.entityIs<Vyr::VyrCommonSmData>("vyr/commonSmData");
      lagStatus_ = db.entityIs<Hardware::Lag::Status>("hardware/lag/status");
      intfStatus_ = db.entityIs<Interface::AllEthPhyIntfStatusDir>("interface/ethPhyIntfStatus");
      status_ = db.entityIs<VyrPtp::EgressTimestampIntfStatus>("ptp/egressTimestampIntfStatus");

      for (IntfId i : chipIntfs_) {
         vcsd_->intfIs(i, true);
         intfStatus_->intfStatusIs(i)->operStatusIs(Interface::OperStatus::up);
      }
      const Scenario& s = w.scenario;
      // LAGs exist from the 'lags' section or a 'lag' event; each interface starts in one LAG at most.
      for (const Event& e : s.timeline()) {
         if (e.kind == "lag") declaredLags_.insert(lagEvent(e.body).first);
      }
      if (YAML::Node lags = s.section("lags")) {
         if (!lags.IsMap()) s.fail(lags, "'lags' maps each LAG to its member interfaces");
         std::set<IntfId> declared;
         std::map<IntfId, IntfId> lagOf;
         for (const auto& kv : lags) {
            const IntfId lag = lagName(kv.first);
            if (!declared.insert(lag).second) s.fail(kv.first, fmt::format("LAG {} declared twice", lag.name()));
            declaredLags_.insert(lag);
            const std::vector<IntfId> members = memberList(kv.second);
            for (std::size_t i = 0; i < members.size(); ++i) {
               auto [other, fresh] = lagOf.emplace(members[i], lag);
               if (!fresh) {
                  s.fail(kv.second[i],
                         fmt::format("{} is already a member of {}", members[i].name(), other->second.name()));
               }
            }
            lagIs(lag, members);
         }
      }
      if (YAML::Node n = s.section("operStatus")) applyOperStatus(n);
      if (YAML::Node n = s.section("ptpMode")) hwConfig_->ptpModeIs(ptpMode(n));
      if (YAML::Node cfg = s.section("ptpIntfConfig")) {
         if (!cfg.IsMap()) s.fail(cfg, "'ptpIntfConfig' maps interfaces to their configuration");
         for (const auto& kv : cfg) {
            s.onlyKeys(kv.second, {"enabled", "disableManagementMessageForwarding"});
            applyIntfConfig(intfConfigChange(kv.first, kv.second));
         }
      }
      if (YAML::Node ports = s.section("portDS")) {
         if (!ports.IsSequence()) s.fail(ports, "'portDS' is a list of port data sets");
         for (const YAML::Node& p : ports) {
            PortDSChange c = portDSChange(p);
            if (c.remove) s.fail(p, "'remove' belongs to timeline events");
            if (ptpStatus_->portDS(c.key)) s.fail(p, fmt::format("port data set {} declared twice", c.key));
            applyPortDS(c, p);
         }
      }
      // Check the timeline before anything runs, so a bad event stops the run at once.
      for (const Event& e : s.timeline()) {
         if (e.kind == "lag") lagEvent(e.body);
         if (e.kind == "ptpMode") ptpMode(e.body);
         if (e.kind == "ptpIntfConfig") intfConfigEvent(e.body);
         if (e.kind == "portDS") portDSChange(e.body);
         if (e.kind == "operStatus") operStatusChanges(e.body);
      }

      // The egress machine reads the protocol side's configuration: a port
      // data set on a LAG is configured under the LAG's name, which the
      // adapted configuration (per physical port) never holds.
      startMachines();
      if (w.verbose) {
         logger_ = std::make_unique<StatusLogger>(w);
         status_->subscriberAdd(logger_.get());
      }
      reportChanges(w, true);
   }

   void apply(const Event& e, World& w) override {
      if (e.kind == "lag") {
         auto [lag, members] = lagEvent(e.body);
         lagIs(lag, members);
         w.log("LAG {} members [{}]", lag.name(), fmt::join(shortNames(members), ", "));
      } else if (e.kind == "operStatus") {
         applyOperStatus(e.body);
         w.log("oper status {}", describe(e.body));
      } else if (e.kind == "ptpMode") {
         hwConfig_->ptpModeIs(ptpMode(e.body));
         w.log("PTP mode {}", hwConfig_->ptpMode());
      } else if (e.kind == "ptpIntfConfig") {
         applyIntfConfig(intfConfigEvent(e.body));
         w.log("PTP interface configuration {}", describe(e.body));
      } else if (e.kind == "portDS") {
         applyPortDS(portDSChange(e.body), e.body);
         w.log("port data set {}", describe(e.body));
      }
   }

   void afterEvent(const Event& e, World& w) override {
      const std::vector<std::string> mine = events();
      reportChanges(w, std::find(mine.begin(), mine.end(), e.kind) != mine.end());
   }

   void agentRestart(World& w) override {
      egress_ = nullptr;
      adapter_ = nullptr;
      startMachines();
      reportChanges(w, true);
   }

   void reportData(World&, Json& out) override {
      out["portDataSets"] = ptpStatus_->portDS().size();
      out["enabledPortDataSets"] = egress_->enabledPortDS().size();
      Json& polled = out["polled"] = Json::array();
      for (IntfId i : status_->physicalIntfNeedsPolling()) polled.push(i.name());
      Json& oneStep = out["oneStepUpdate"] = Json::array();
      for (const auto& [i, on] : status_->physicalIntfNeedsOneStepCfUpdate()) {
         if (on) oneStep.push(i.name());
      }
   }

  private:
   void startMachines() {
      adapter_ = VyrPtp::hwConfigAdapterSmFactory(hwConfig_, vcsd_, adaptedHwConfig_);
      egress_ = VyrPtp::egressTimestampIntfSmFactory(intfStatus_, lagStatus_, hwConfig_, ptpStatus_, status_);
   }

   // --- Reading the scenario ---------------------------------------------------

   IntfId chipIntf(const YAML::Node& n) const {
      auto id = IntfId::parse(scenario_->as<std::string>(n, "interface"));
      if (!id || !chipIntfs_.count(*id)) {
         scenario_->fail(n, fmt::format("'{}' is not an interface of a chip", n.Scalar()));
      }
      return *id;
   }
   IntfId lagName(const YAML::Node& n) const {
      auto id = IntfId::parse(scenario_->as<std::string>(n, "LAG"));
      if (!id || !Wyx::isPortChannelIntfId(*id)) scenario_->fail(n, fmt::format("'{}' is not a LAG name", n.Scalar()));
      return *id;
   }
   // A chip interface or a declared LAG.
   IntfId ptpIntf(const YAML::Node& n) const {
      auto id = IntfId::parse(scenario_->as<std::string>(n, "interface"));
      if (!id || !Wyx::isPortChannelIntfId(*id)) return chipIntf(n);
      if (!declaredLags_.count(*id)) {
         scenario_->fail(n, fmt::format("{} is not a LAG of the 'lags' section or of a 'lag' event", id->name()));
      }
      return *id;
   }
   std::vector<IntfId> memberList(const YAML::Node& n) const {
      if (!n.IsSequence()) scenario_->fail(n, "LAG members are a list of interfaces");
      std::vector<IntfId> members;
      for (const YAML::Node& m : n) {
         IntfId i = chipIntf(m);
         if (std::find(members.begin(), members.end(), i) != members.end()) {
            scenario_->fail(m, fmt::format("{} is listed twice", i.name()));
         }
         members.push_back(i);
      }
      return members;
   }
   std::pair<IntfId, std::vector<IntfId>> lagEvent(const YAML::Node& n) const {
      scenario_->onlyKeys(n, {"name", "members"});
      if (!n["name"] || !n["members"]) scenario_->fail(n, "a 'lag' event needs 'name' and 'members'");
      return {lagName(n["name"]), memberList(n["members"])};
   }
   Ptp::PtpMode ptpMode(const YAML::Node& n) const { return Ptp::PtpMode(scenario_->integerAs(n, "ptpMode", 0, 255)); }
   std::vector<std::pair<IntfId, Interface::OperStatus>> operStatusChanges(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "oper status maps interfaces to up, down, notPresent, ...");
      std::vector<std::pair<IntfId, Interface::OperStatus>> changes;
      for (const auto& kv : n) {
         auto s = Pondo::enumFromName<Interface::OperStatus>(scenario_->as<std::string>(kv.second, "status"));
         if (!s) scenario_->fail(kv.second, fmt::format("'{}' is not an oper status", kv.second.Scalar()));
         changes.emplace_back(chipIntf(kv.first), *s);
      }
      return changes;
   }
   IntfConfigChange intfConfigChange(const YAML::Node& intf, const YAML::Node& body) const {
      IntfConfigChange c{ptpIntf(intf)};
      if (body["enabled"]) c.enabled = scenario_->as<bool>(body["enabled"], "enabled");
      if (YAML::Node d = body["disableManagementMessageForwarding"]) {
         c.disableManagementMessageForwarding = scenario_->as<bool>(d, "disableManagementMessageForwarding");
      }
      return c;
   }
   IntfConfigChange intfConfigEvent(const YAML::Node& n) const {
      scenario_->onlyKeys(n, {"intf", "enabled", "disableManagementMessageForwarding", "remove"});
      if (!n["intf"]) scenario_->fail(n, "missing 'intf'");
      IntfConfigChange c = intfConfigChange(n["intf"], n);
      c.remove = scenario_->get<bool>(n, "remove", false);
      return c;
   }
   PortDSChange portDSChange(const YAML::Node& n) const {
      scenario_->onlyKeys(n, {"intf", "domain", "port", "state", "clockId", "remove"});
      if (!n["intf"]) scenario_->fail(n, "missing 'intf'");
      const auto domain = scenario_->integer(n, "domain", 0, 255, 0),
                 port = scenario_->integer(n, "port", 0, 0xFFFF, 1);
      PortDSChange c{Ptp::PortDSKey(ptpIntf(n["intf"]), std::uint8_t(domain), std::uint16_t(port))};
      c.remove = scenario_->get<bool>(n, "remove", false);
      if (YAML::Node s = n["state"]) {
         // A state name, or any number (values without a name exist).
         if (auto named = Pondo::enumFromName<Ptp::PortState>(s.Scalar())) {
            c.state = *named;
         } else {
            int v = -1;
            if (!YAML::convert<int>::decode(s, v) || v < 0 || v > 255) {
               scenario_->fail(s,
                               fmt::format("'{}' is not a port state (a name such as slave, or 0..255)", s.Scalar()));
            }
            c.state = Ptp::PortState(v);
         }
      }
      if (YAML::Node id = n["clockId"]) {
         c.clockId = Ptp::ClockIdentity::parse(scenario_->as<std::string>(id, "clockId"));
         if (!c.clockId) {
            scenario_->fail(id, fmt::format("'{}' is not a clock identity (like 001c73.fffe.000001)", id.Scalar()));
         }
      }
      return c;
   }

   // --- Changing the inputs --------------------------------------------------------

   // Sets a LAG's members as the forwarding agent (port lists) and the LAG
   // programmer (programmed members) would; a port in another LAG leaves it first.
   void lagIs(IntfId lag, const std::vector<IntfId>& members) {
      const Vyr::VyrLagPortList* old = vcsd_->lagToPort().find(lag);
      for (IntfId m : old ? old->member : std::vector<IntfId>{}) {
         if (std::find(members.begin(), members.end(), m) == members.end()) leaveLag(m);
      }
      for (IntfId m : members) {
         const IntfId* current = vcsd_->portToLag().find(m);
         if (current && *current != lag) leaveLag(m);
         vcsd_->portToLagIs(m, lag);
      }
      if (members.empty()) {
         vcsd_->lagToPortDel(lag);
         lagStatus_->programmedLagDel(lag);
         return;
      }
      vcsd_->lagToPortIs(lag, Vyr::VyrLagPortList{members});
      const Pondo::Ptr<Hardware::Lag::ProgrammedLag> programmed = lagStatus_->programmedLagIs(lag);
      for (IntfId m : members) {
         programmed->memberIs(m);
         lagStatus_->programmedMemberIs(m)->lagIntfIdIs(lag);
      }
   }
   void leaveLag(IntfId m) {
      const IntfId lag = *vcsd_->portToLag().find(m);
      vcsd_->portToLagDel(m);
      Vyr::VyrLagPortList ports = *vcsd_->lagToPort().find(lag);
      std::erase(ports.member, m);
      vcsd_->lagToPortIs(lag, ports);
      if (Hardware::Lag::ProgrammedLag* programmed = lagStatus_->programmedLag(lag)) programmed->memberDel(m);
      lagStatus_->programmedMemberDel(m);
   }
   void applyOperStatus(const YAML::Node& n) {
      for (auto [i, s] : operStatusChanges(n)) intfStatus_->intfStatusIs(i)->operStatusIs(s);
   }
   void applyIntfConfig(const IntfConfigChange& c) {
      if (c.remove) {
         hwConfig_->intfConfigDel(c.intf);
         return;
      }
      const Pondo::Ptr<Ptp::HwIntfConfig> config = hwConfig_->intfConfigIs(c.intf);
      config->enabledIs(c.enabled.value_or(config->enabled()));
      config->disableManagementMessageForwardingIs(
          c.disableManagementMessageForwarding.value_or(config->disableManagementMessageForwarding()));
   }
   void applyPortDS(const PortDSChange& c, const YAML::Node& where) {
      if (c.remove) {
         ptpStatus_->portDSDel(c.key);
         return;
      }
      Pondo::Ptr<Ptp::PortDS> ds = ptpStatus_->portDS(c.key);
      if (!ds) {
         if (!c.clockId) {
            scenario_->fail(where, fmt::format("port data set {} does not exist: adding it needs a 'clockId'", c.key));
         }
         ds = ptpStatus_->portDSIs(c.key, *c.clockId);
      }
      if (c.state) ds->portStateIs(*c.state);
   }

   // --- Reporting ---------------------------------------------------------------------

   static std::vector<std::string> shortNames(const std::vector<IntfId>& intfs) {
      std::vector<std::string> names;
      names.reserve(intfs.size());
      for (IntfId i : intfs) names.push_back(i.shortName());
      return names;
   }
   static std::string describe(const YAML::Node& n) {
      YAML::Emitter e;
      e << YAML::Flow << n;
      return e.c_str();
   }
   std::string pollingText() const {
      std::vector<std::string> polled;
      for (IntfId i : status_->physicalIntfNeedsPolling()) {
         const Ptp::ClockIdentity* c = status_->clockId().find(i);
         polled.push_back(fmt::format("{} ({})", i.shortName(), c ? c->toString() : "no clock"));
      }
      return polled.empty() ? "none" : fmt::format("{}", fmt::join(polled, ", "));
   }
   std::string oneStepText() const {
      std::vector<std::string> on, off;
      for (const auto& [i, v] : status_->physicalIntfNeedsOneStepCfUpdate()) (v ? on : off).push_back(i.shortName());
      return fmt::format("on [{}], off [{}]", fmt::join(on, ", "), fmt::join(off, ", "));
   }
   std::string adaptedText() const {
      std::vector<std::string> entries;
      for (const auto& [i, c] : adaptedHwConfig_->intfConfig()) {
         entries.push_back(fmt::format("{} {}{}", i.shortName(), c->enabled() ? "enabled" : "disabled",
                                       c->disableManagementMessageForwarding() ? " no-mgmt-fwd" : ""));
      }
      return entries.empty() ? "no interfaces" : fmt::format("{}", fmt::join(entries, ", "));
   }
   // Logs the decisions after the module's own events, and after others' when they changed.
   void reportChanges(World& w, bool always) {
      std::string decisions = fmt::format("polled: {}; one-step: {}", pollingText(), oneStepText());
      std::string adapted = adaptedText();
      if (always || decisions != lastDecisions_) w.log("egress decisions: {}", decisions);
      if (always || adapted != lastAdapted_) w.log("adapted configuration: {}", adapted);
      lastDecisions_ = std::move(decisions);
      lastAdapted_ = std::move(adapted);
   }

   const Scenario* scenario_ = nullptr;
   std::set<IntfId> chipIntfs_;
   std::set<IntfId> declaredLags_;
   Pondo::Ptr<Ptp::HwConfig> hwConfig_, adaptedHwConfig_;
   Pondo::Ptr<Ptp::Status> ptpStatus_;
   Pondo::Ptr<Vyr::VyrCommonSmData> vcsd_;
   Pondo::Ptr<Hardware::Lag::Status> lagStatus_;
   Pondo::Ptr<Interface::AllEthPhyIntfStatusDir> intfStatus_;
   Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> status_;
   Pondo::Ptr<VyrPtp::HwConfigAdapterSm> adapter_;
   Pondo::Ptr<VyrPtp::EgressTimestampIntfSm> egress_;
   std::unique_ptr<StatusLogger> logger_;
   std::string lastDecisions_, lastAdapted_;
};

VYRPTP_SIM_MODULE(EgressDecisionModule);

}  // namespace
}  // namespace Sim
