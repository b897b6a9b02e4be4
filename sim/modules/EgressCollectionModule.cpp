// Egress timestamp collection (section `egressCollection`, events `traffic`
// and `timestampLocation`).
//
// Chosen interfaces send PTP event messages at a steady rate; each message is
// latched by its chip's egress slot (the simulated chips of the platform
// module, slot = the interface's position on its chip). The library's polling
// adapter takes the egress decisions ("ptp/egressTimestampIntfStatus") less
// the interfaces timestamped at their PHY ("ptp/timestampLocationConfig"), and
// its aggregate runs one collector per chip, taking full time from the chip's
// time source of the asicTime module: the FPGA counter or the chip's ASIC time
// file. The report follows every message to its publication in
// "ptp/hwTimestampStatus", or says why it never got there.
//
//   egressCollection:
//     timeSource: {0: fpga, 1: asicTimeFile}   # per logical FAP (default fpga)
//     counterNeedsInit: true                    # the product's ASIC time counters need "init"
//     start: 0.5                                # when traffic starts (s)
//     traffic: {Ethernet1/1: 128, Ethernet3/1: 16}   # messages per second
//     externalPhy: [Ethernet2/2]                # interfaces timestamped at their PHY
//   timeline:
//     - at: 2.0
//       traffic: {Ethernet1/1: 0}
//     - at: 4.0
//       timestampLocation: {Ethernet3/1: externalPhy}   # or chip
//
// The product attributes hold one time source for all chips; the aggregate
// reads them as each chip appears, so the module sets them chip by chip.
#include <algorithm>
#include <array>
#include <deque>
#include <fstream>
#include <map>
#include <set>

#include "Asic/SimulatedChip.h"
#include "Module.h"
#include "TimeSource.h"
#include "Platform/File.h"
#include "Platform/ProductAttributes.h"
#include "VyrPtp/VyrEgressTsArmSm.h"

namespace Sim {
namespace {

using VyrPtp::U64;
using Wyx::IntfId;

// PTP event messages per second and interface; 0 stops the traffic.
constexpr Range kRate{0, 10000, "per second"};
// Upper edges (ms) of the latch-to-publish delay histogram's buckets; the last bucket is open.
constexpr std::array<double, 12> kDelayEdgesMs{0.5, 1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024};

// Hands every change of an entity to a function.
template <class T>
class Watch final : public Kiv::Reactor {
  public:
   Watch(Pondo::Ptr<const T> entity, std::function<void(const Kiv::Change&)> onChange)
       : entity_(this, std::move(entity), &Watch::on_entity), onChange_(std::move(onChange)) {}

  private:
   void on_entity(const Kiv::Change& c) { onChange_(c); }
   Kiv::Input<const T> entity_;
   std::function<void(const Kiv::Change&)> onChange_;
};

// What became of one message.
enum class Fate {
   inChip,       // still latched in the chip's slot
   overwritten,  // pushed out of a full slot
   drained,      // read and dropped when polling started
   polled,       // read by a poll but not published: the time source was not ready
   published,    // published with its exact latch time
   noTime,       // published with time 0: the ASIC time file could not be read
   badSource,    // widened wrongly from a time read outside [latch, latch + 2^32 ns)
   wrong,        // widened wrongly from a sound time: the library erred
};

struct Message {
   std::uint16_t sequenceId;
   U64 latched = 0;      // full chip time of the latch
   Kiv::Seconds at = 0;  // loop time of the latch
   Fate fate = Fate::inChip;
   Kiv::Seconds publishedAt = 0;
};

struct ChipState;

// A flow's messages by fate.
struct Counts {
   std::map<Fate, std::uint64_t> n;
   std::uint64_t sent = 0, publishedSinceRestart = 0, staleSinceRestart = 0;
   std::array<std::uint64_t, kDelayEdgesMs.size() + 1> delays{};  // published messages by delay bucket
   Counts& operator+=(const Counts& o) {
      for (auto [fate, k] : o.n) n[fate] += k;
      for (std::size_t i = 0; i < delays.size(); ++i) delays[i] += o.delays[i];
      sent += o.sent;
      publishedSinceRestart += o.publishedSinceRestart;
      staleSinceRestart += o.staleSinceRestart;
      return *this;
   }
   std::uint64_t operator[](Fate f) const { return n.count(f) ? n.at(f) : 0; }
   Json data() const {
      Json j;
      j["sent"] = sent;
      j["published"] = (*this)[Fate::published];
      Json& lost = j["lost"];
      lost["notReady"] = (*this)[Fate::polled];
      lost["overwritten"] = (*this)[Fate::overwritten];
      lost["drained"] = (*this)[Fate::drained];
      lost["noTime"] = (*this)[Fate::noTime];
      lost["badSource"] = (*this)[Fate::badSource];
      lost["wrong"] = (*this)[Fate::wrong];
      j["inChip"] = (*this)[Fate::inChip];
      j["wrong"] = (*this)[Fate::wrong];
      j["publishedSinceRestart"] = publishedSinceRestart;
      j["staleSinceRestart"] = staleSinceRestart;
      Json& histogram = j["delayHistogram"] = Json::array();
      for (std::uint64_t k : delays) histogram.push(k);
      return j;
   }
};

struct Flow {
   IntfId intf;
   ChipState* chip = nullptr;
   Asic::EgressTsSwTableKey slot;
   double rate = 0;
   std::uint16_t nextSequenceId = 0;
   std::deque<Message> messages;
   std::deque<Message*> inChip;  // the slot's FIFO, oldest first
   Message* awaiting = nullptr;  // read by a poll, publication due
   // Published since the last agent restart: all of them, and those latched before it.
   std::uint64_t publishedSinceRestart = 0, staleSinceRestart = 0;
   std::vector<std::pair<Kiv::Seconds, bool>> externalPhy;  // (when, timestamped at the PHY) at each change
   std::unique_ptr<Kiv::ClockTimer> timer;
};

struct ChipState {
   const Chip* chip;
   Pondo::Ptr<Asic::ChipInfo> info;
   Asic::SimulatedChip* device;
   bool asicTimeFile = false;
   std::map<Asic::EgressTsSwTableKey, Flow*> bySlot;
   Pondo::Ptr<Watch<Asic::SimulatedChip>> watch;
};

class EgressCollectionModule final : public Module {
  public:
   std::string name() const override { return "egress-collection"; }
   int order() const override { return 60; }
   std::vector<std::string> sections() const override { return {"egressCollection"}; }
   std::vector<std::string> events() const override { return {"traffic", "timestampLocation"}; }

   ~EgressCollectionModule() override {
      if (on_) Platform::productAttributesIs(nullptr);
   }

   void load(const Scenario& s) override {
      YAML::Node sec = s.section("egressCollection");
      for (const Event& e : s.timeline()) {
         if ((e.kind == "traffic" || e.kind == "timestampLocation") && !sec) {
            s.fail(e, fmt::format("'{}' needs an 'egressCollection' section", e.kind));
         }
      }
      if (!sec) return;
      if (!sec.IsMap()) s.fail(sec, "'egressCollection' is a map of settings");
      if (!s.section("asicTime")) {
         s.fail(sec, "'egressCollection' needs the 'asicTime' section, which provides the chips' time sources");
      }
      s.onlyKeys(sec, {"timeSource", "counterNeedsInit", "start", "traffic", "externalPhy"});
      on_ = true;
      counterNeedsInit_ = s.get<bool>(sec, "counterNeedsInit", false);
      start_ = s.number(sec, "start", kSeconds, 0.0);
      // Each interface's highest rate, for the estimate of the run's length.
      std::map<std::string, double> highest;
      auto rates = [&](const YAML::Node& n) {
         if (!n.IsMap()) s.fail(n, "traffic maps interfaces to PTP event messages per second");
         for (const auto& kv : n) {
            double& h = highest[kv.first.Scalar()];
            h = std::max(h, s.numberAs(kv.second, "rate", kRate));
         }
      };
      if (sec["traffic"]) rates(sec["traffic"]);
      for (const Event& e : s.timeline()) {
         if (e.kind == "traffic") rates(e.body);
      }
      for (const auto& [intf, rate] : highest) messagesPerSecond_ += rate;
      const YAML::Node chips = s.section("chips");
      chipCount_ = chips && chips.IsSequence() ? chips.size() : 0;
   }

   // A poll tick per chip every 4 ms; per message its latch and its read.
   double loopEventsPerSecond() const override { return on_ ? 250.0 * double(chipCount_) + 2 * messagesPerSecond_ : 0; }

   // Interface names are checked here, against the chips the platform module built.
   void build(World& w) override {
      if (!on_) return;
      world_ = &w;
      scenario_ = &w.scenario;
      const YAML::Node sec = w.scenario.section("egressCollection");
      Kiv::Dir& db = *w.sysdb;
      for (const Chip& c : w.chips) {
         auto* info = dynamic_cast<Asic::ChipInfo*>(db.entityPtr(chipInfoName(c.logicalFap)));
         auto* device = info ? dynamic_cast<Asic::SimulatedChip*>(info->device()) : nullptr;
         if (!device) throw ScenarioError(fmt::format("chip {} has no simulated chip in sysdb", c.logicalFap));
         chips_.push_back(ChipState{&c, info, device});
      }
      for (ChipState& c : chips_) {
         for (std::size_t i = 0; i < c.chip->interfaces.size(); ++i) {
            Flow& f = flows_[c.chip->interfaces[i]];
            f.intf = c.chip->interfaces[i];
            f.chip = &c;
            f.slot = {std::uint32_t(i), Asic::PortType::network};
            c.bySlot[f.slot] = &f;
         }
      }
      if (YAML::Node sources = sec["timeSource"]) {
         if (!sources.IsMap()) w.scenario.fail(sources, "'timeSource' maps logical FAPs to fpga or asicTimeFile");
         for (const auto& kv : sources) {
            ChipState& c = chipOf(kv.first);
            const auto source = w.scenario.as<std::string>(kv.second, "timeSource");
            if (source != "fpga" && source != "asicTimeFile") {
               w.scenario.fail(kv.second, fmt::format("'{}' is not a time source (fpga or asicTimeFile)", source));
            }
            c.asicTimeFile = source == "asicTimeFile";
         }
      }
      if (YAML::Node traffic = sec["traffic"]) {
         for (auto [intf, rate] : rates(traffic)) flows_.at(intf).rate = rate;
      }
      std::vector<IntfId> externalPhy;
      if (YAML::Node phy = sec["externalPhy"]) {
         if (!phy.IsSequence()) w.scenario.fail(phy, "'externalPhy' is a list of interfaces");
         for (const YAML::Node& i : phy) externalPhy.push_back(chipIntf(i));
      }
      for (const Event& e : w.scenario.timeline()) {
         if (e.kind == "traffic") rates(e.body);
         if (e.kind == "timestampLocation") locations(e.body);
      }

      decisions_ = db.entityIs<VyrPtp::EgressTimestampIntfStatus>("ptp/egressTimestampIntfStatus");
      location_ = db.entityIs<VyrPtp::PtpTimestampLocationConfig>("ptp/timestampLocationConfig");
      chipPolling_ = db.entityIs<VyrPtp::EgressTimestampIntfStatus>("ptp/chipEgressTimestampIntfStatus");
      glint_ = Kiv::make<Ptp::HwTimestampStatus>();
      db.entityPtrIs("ptp/hwTimestampStatus", glint_);
      auto em = Kiv::make<Statebase::EntityManager>();
      db.entityPtrIs("statebase/entityManager", em);
      tsInfo_ = VyrPtp::platformEgressTsInfoFactory();
      db.entityPtrIs("platform/egressTsInfo", tsInfo_);
      for (IntfId i : externalPhy) {
         location_->enabledPhysicalIntfConfigIs(i)->locationIs(Ptp::Location::Location::externalPhy);
         flows_.at(i).externalPhy.emplace_back(Kiv::currentTime(), true);
      }

      for (ChipState& c : chips_) {
         c.watch = Kiv::make<Watch<Asic::SimulatedChip>>(c.device, [this, &c](const Kiv::Change& ch) {
            if (ch.field == Asic::SimulatedChip::F::read) readOut(c, ch.keyAs<Asic::EgressTsSwTableKey>());
         });
      }
      glintWatch_ = Kiv::make<Watch<Ptp::HwTimestampStatus>>(glint_, [this](const Kiv::Change& c) {
         if (c.newValue) published(c.newAs<Ptp::IngressEgressTimes>());
      });
      em_ = em;
      startMachines();

      std::size_t n = 0;
      for (auto& [intf, f] : flows_) {
         Flow* flow = &f;
         f.timer = std::make_unique<Kiv::ClockTimer>(Kiv::activityManager().clock(), [this, flow] { send(*flow); });
         // Interfaces start a little apart, as independent ports would.
         if (f.rate > 0) f.timer->timeMinIs(Kiv::currentTime() + start_ + 0.000731 * double(n++));
      }
   }

   void apply(const Event& e, World& w) override {
      if (e.kind == "traffic") {
         for (auto [intf, rate] : rates(e.body)) {
            w.log("egress collection: {} sends {} PTP event messages per second", intf.shortName(), rate);
            Flow& f = flows_.at(intf);
            f.rate = rate;
            f.timer->timeMinIs(rate > 0 ? Kiv::currentTime() + 1 / rate : Kiv::kNever);
         }
      } else {
         for (auto [intf, phy] : locations(e.body)) {
            w.log("egress collection: {} timestamped at its {}", intf.shortName(), phy ? "PHY" : "chip");
            flows_.at(intf).externalPhy.emplace_back(Kiv::currentTime(), phy);
            if (phy) {
               location_->enabledPhysicalIntfConfigIs(intf)->locationIs(Ptp::Location::Location::externalPhy);
            } else {
               location_->enabledPhysicalIntfConfigDel(intf);
            }
         }
      }
   }

   void agentRestart(World& w) override {
      if (!on_) return;
      pollingWatch_ = nullptr;
      aggregate_ = nullptr;
      adapter_ = nullptr;
      tsInfo_->logicalFapInfoDelAll();
      for (auto& [intf, f] : flows_) f.awaiting = nullptr;  // the destroyed collectors' reads never complete
      restartAt_ = Kiv::currentTime();
      w.log("egress collection: agent restarted the polling adapter and the aggregate");
      startMachines();
   }

   // Per chip and interface what became of the messages, with chip and chassis totals.
   void reportData(World&, Json& out) override {
      if (!on_) return;
      Json& edges = out["delayHistogramEdgesMs"] = Json::array();
      for (double e : kDelayEdgesMs) edges.push(e);
      Counts chassis;
      for (ChipState& c : chips_) {
         Json& chip = out["chips"][std::to_string(c.chip->logicalFap)];
         chip["fifoDepth"] = c.device->fifoDepth();
         chip["timeSource"] = c.asicTimeFile ? "asicTimeFile" : "fpga";
         Counts total;
         for (const auto& [slot, f] : c.bySlot) {
            const Counts n = counts(*f);
            chip["interfaces"][f->intf.name()] = flowData(*f, n);
            total += n;
         }
         chip["total"] = total.data();
         chassis += total;
      }
      out["total"] = chassis.data();
   }

   // The library's machines: the polling adapter and the aggregate, which
   // creates a collector per chip as each chip's entry appears.
   void startMachines() {
      Kiv::Dir& db = *world_->sysdb;
      adapter_ = VyrPtp::vyrEgressTsPollingAdapterSmFactory(location_, decisions_, chipPolling_);
      aggregate_ = VyrPtp::vyrEgressTsArmAggregateSmFactory(
          chipPolling_, tsInfo_, db.entityIs<PtpTimeSync::Config>("ptpTimeSync/config"),
          db.entityIs<PtpTimeSync::Status>("ptpTimeSync/status"), em_, glint_);
      // The collectors' changes reach the aggregate's subscribers.
      pollingWatch_ = Kiv::make<Watch<VyrPtp::VyrEgressTsArmAggregateSm>>(aggregate_, [this](const Kiv::Change& c) {
         auto* sm = dynamic_cast<const VyrPtp::VyrEgressTsArmLogicalFapSm*>(c.source);
         if (!sm || c.field != VyrPtp::VyrEgressTsArmLogicalFapSm::F::pollInterface) return;
         world_->log("egress collection: chip {} {} {}", sm->logicalFapId(), c.added() ? "polls" : "no longer polls",
                     c.keyAs<IntfId>().shortName());
      });
      for (ChipState& c : chips_) {
         Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(
             Platform::Attributes{c.asicTimeFile, c.asicTimeFile && counterNeedsInit_}));
         const auto unit = std::uint8_t(c.chip->logicalFap);  // the asicTime module's files are per logical FAP
         auto fap = tsInfo_->logicalFapInfoIs(c.chip->logicalFap, unit, c.info);
         for (const auto& [slot, f] : c.bySlot) fap->intfInfoIs({f->intf, 32, slot});
         world_->log("egress collection: chip {} collector takes full time from {}", c.chip->logicalFap,
                     c.asicTimeFile ? fmt::format("the ASIC time file /proc/asic-time/{}/ts", unit) : "the FPGA counter");
      }
   }

  private:
   // --- Reading the scenario ---------------------------------------------------

   ChipState& chipOf(const YAML::Node& n) {
      const auto fap = scenario_->integerAs(n, "logical FAP", 0, 0xFFFF);
      for (ChipState& c : chips_) {
         if (c.chip->logicalFap == fap) return c;
      }
      scenario_->fail(n, fmt::format("no chip with logicalFap {}", fap));
   }
   IntfId chipIntf(const YAML::Node& n) const {
      auto id = IntfId::parse(scenario_->as<std::string>(n, "interface"));
      if (!id || !flows_.count(*id)) scenario_->fail(n, fmt::format("'{}' is not an interface of a chip", n.Scalar()));
      return *id;
   }
   std::vector<std::pair<IntfId, double>> rates(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "traffic maps interfaces to PTP event messages per second");
      std::vector<std::pair<IntfId, double>> r;
      for (const auto& kv : n) {
         r.emplace_back(chipIntf(kv.first), scenario_->numberAs(kv.second, "rate", kRate));
      }
      return r;
   }
   // true: timestamped at the PHY.
   std::vector<std::pair<IntfId, bool>> locations(const YAML::Node& n) const {
      if (!n.IsMap()) scenario_->fail(n, "'timestampLocation' maps interfaces to externalPhy or chip");
      std::vector<std::pair<IntfId, bool>> r;
      for (const auto& kv : n) {
         const auto where = scenario_->as<std::string>(kv.second, "location");
         if (where != "externalPhy" && where != "chip") {
            scenario_->fail(kv.second, fmt::format("'{}' is not a timestamp location (externalPhy or chip)", where));
         }
         r.emplace_back(chipIntf(kv.first), where == "externalPhy");
      }
      return r;
   }

   // --- Traffic and what became of it ----------------------------------------------

   void send(Flow& f) {
      Asic::SimulatedChip& device = *f.chip->device;
      if (device.queued(f.slot) == device.fifoDepth()) {
         f.inChip.front()->fate = Fate::overwritten;
         f.inChip.pop_front();
      }
      Message& m = f.messages.emplace_back(Message{f.nextSequenceId++});
      f.inChip.push_back(&m);
      m.at = Kiv::currentTime();
      m.latched = device.send(f.slot, m.sequenceId);
      f.timer->timeMinIs(m.at + 1 / f.rate);
   }

   // The chip gave out the oldest entry of a slot, to a drain or to a poll.
   void readOut(ChipState& c, const Asic::EgressTsSwTableKey& slot) {
      Flow& f = *c.bySlot.at(slot);
      Message* m = f.inChip.front();
      f.inChip.pop_front();
      const VyrPtp::VyrEgressTsArmLogicalFapSm* collector = aggregate_->logicalFapSm(c.chip->logicalFap);
      m->fate = collector && collector->drainInterface().contains(f.intf) ? Fate::drained : Fate::polled;
      f.awaiting = m->fate == Fate::polled ? m : nullptr;
   }

   void published(const Ptp::IngressEgressTimes& t) {
      Flow& f = flows_.at(t.intfId);
      Message* m = std::exchange(f.awaiting, nullptr);
      if (!m || m->sequenceId != t.sequenceId) {
         world_->log("egress collection: {} published sequence id {} that no poll read", t.intfId.shortName(),
                     t.sequenceId);
         return;
      }
      m->publishedAt = Kiv::currentTime();
      if (restartAt_ >= 0) {
         ++f.publishedSinceRestart;
         if (m->at < restartAt_) {
            ++f.staleSinceRestart;
            world_->log("egress collection: {} seq {} latched before the agent restart published after it",
                        t.intfId.shortName(), t.sequenceId);
         }
      }
      if (t.egressTime == m->latched) {
         m->fate = Fate::published;
      } else if (t.egressTime == 0) {
         m->fate = Fate::noTime;
      } else {
         m->fate = sourceSound(*f.chip, m->latched) ? Fate::wrong : Fate::badSource;
      }
      if (world_->verbose || m->fate == Fate::wrong) {
         world_->log("egress collection: {} seq {} latched {} published {} after {:.3f} ms{}", t.intfId.shortName(),
                     t.sequenceId, m->latched, t.egressTime, (m->publishedAt - m->at) * 1e3,
                     m->fate == Fate::wrong ? " WRONG" : "");
      }
   }

   // Whether the time the collector just widened with was sound (soundTime()).
   bool sourceSound(ChipState& c, U64 latched) const {
      if (c.asicTimeFile) {
         std::ifstream file(Platform::osPath(fmt::format("/proc/asic-time/{}/ts", c.chip->logicalFap)));
         return soundTime(std::string(std::istreambuf_iterator<char>(file), {}), latched);
      }
      const auto& sync = *world_->sysdb->entityIs<PtpTimeSync::Status>("ptpTimeSync/status");
      const PtpTimeSync::HpxConfig* hpx =
          world_->sysdb->entityIs<PtpTimeSync::Config>("ptpTimeSync/config")->hpx(sync.activeHpx());
      // What the collector's fetcher read just now.
      return hpx && hpx->ham() && soundTime(hpx->ham()->result(), latched);
   }

   // --- Reporting -----------------------------------------------------------------------

   static Counts counts(const Flow& f) {
      Counts c;
      for (const Message& m : f.messages) {
         ++c.n[m.fate];
         if (m.fate != Fate::published) continue;
         const double ms = (m.publishedAt - m.at) * 1e3;
         ++c.delays[std::size_t(std::upper_bound(kDelayEdgesMs.begin(), kDelayEdgesMs.end(), ms) - kDelayEdgesMs.begin())];
      }
      c.sent = f.messages.size();
      c.publishedSinceRestart = f.publishedSinceRestart;
      c.staleSinceRestart = f.staleSinceRestart;
      return c;
   }

   // One interface's row: its counts, rate, timestamp location and delays, and what is unusual about it.
   Json flowData(const Flow& f, const Counts& n) const {
      Json j;
      j["rate"] = f.rate;
      j["location"] = !f.externalPhy.empty() && f.externalPhy.back().second ? "externalPhy" : "chip";
      Json& changes = j["locationHistory"] = Json::array();
      for (auto [at, phy] : f.externalPhy) {
         Json& change = changes.push(Json::array());
         change.push(at);
         change.push(phy ? "externalPhy" : "chip");
      }
      const Json counted = n.data();
      for (const auto& [key, value] : counted.members()) j[key] = value;
      std::vector<double> delays;  // ms
      for (const Message& m : f.messages) {
         if (m.fate == Fate::published) delays.push_back((m.publishedAt - m.at) * 1e3);
      }
      std::sort(delays.begin(), delays.end());
      Json& d = j["delayMs"];
      auto at = [&](double q) { return delays.empty() ? Json() : Json(delays[std::size_t(q * double(delays.size() - 1))]); };
      d["min"] = at(0);
      d["median"] = at(0.5);
      d["p99"] = at(0.99);
      d["max"] = at(1);
      std::vector<std::string> unusual;
      auto note = [&](std::uint64_t k, const char* what) {
         if (k) unusual.push_back(fmt::format("{} {}", k, what));
      };
      note(n[Fate::wrong], "widened wrongly from a sound time");
      note(n[Fate::badSource], "widened from a faulty time source");
      note(n[Fate::noTime], "published without time");
      note(n[Fate::overwritten], "overwritten in the chip");
      note(n.staleSinceRestart, "latched before the agent restart, published after it");
      if (n.sent > 0 && n[Fate::published] == 0) unusual.push_back("nothing published");
      if (!unusual.empty()) j["attention"] = fmt::format("{}", fmt::join(unusual, "; "));
      return j;
   }

   bool on_ = false;
   bool counterNeedsInit_ = false;
   double start_ = 0;
   double messagesPerSecond_ = 0;
   Kiv::Seconds restartAt_ = -1;  // the last agent restart, if any
   std::size_t chipCount_ = 0;
   World* world_ = nullptr;
   const Scenario* scenario_ = nullptr;
   std::vector<ChipState> chips_;
   std::map<IntfId, Flow> flows_;
   Pondo::Ptr<VyrPtp::EgressTimestampIntfStatus> decisions_, chipPolling_;
   Pondo::Ptr<VyrPtp::PtpTimestampLocationConfig> location_;
   Pondo::Ptr<Ptp::HwTimestampStatus> glint_;
   Pondo::Ptr<VyrPtp::PlatformEgressTsInfo> tsInfo_;
   Pondo::Ptr<Statebase::EntityManager> em_;
   Pondo::Ptr<Watch<Ptp::HwTimestampStatus>> glintWatch_;
   Pondo::Ptr<Watch<VyrPtp::VyrEgressTsArmAggregateSm>> pollingWatch_;
   Pondo::Ptr<VyrPtp::VyrEgressTsPollingAdapterSm> adapter_;
   Pondo::Ptr<VyrPtp::VyrEgressTsArmAggregateSm> aggregate_;
};

VYRPTP_SIM_MODULE(EgressCollectionModule);

}  // namespace
}  // namespace Sim
