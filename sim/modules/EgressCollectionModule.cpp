// Egress timestamp collection (section `egressCollection`, event `traffic`).
//
// Chosen interfaces send PTP event messages at a steady rate; each message is
// latched by its chip's egress slot (the simulated chips of the platform
// module, slot = the interface's position on its chip). The library's polling
// adapter takes the egress decisions ("ptp/egressTimestampIntfStatus") less
// the interfaces timestamped at their PHY ("ptp/timestampLocationConfig",
// written by the location machine of the hw-status module), and
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
//   timeline:
//     - at: 2.0
//       traffic: {Ethernet1/1: 0}
//
// Messages are followed while in flight; what became of them is kept as
// running counts and a bounded histogram of delays per interface, so a long
// run's memory stays flat.
//
// The product attributes hold one time source for all chips; the aggregate
// reads them as each chip appears, so the module sets them chip by chip.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <optional>
#include <set>

#include "Asic/SimulatedChip.h"
#include "Module.h"
#include "Platform/File.h"
#include "Platform/ProductAttributes.h"
#include "TimeSource.h"
#include "VyrPtp/VyrEgressTsArmSm.h"
#include "Watch.h"

namespace Sim {
namespace {

using VyrPtp::U64;
using Wyx::IntfId;

// PTP event messages per second and interface; 0 stops the traffic.
constexpr Range kRate{0, 10000, "per second"};
// Upper edges (ms) of the report's latch-to-publish delay buckets; the last bucket is open.
constexpr std::array<double, 12> kDelayEdgesMs{0.5, 1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024};
using DelayCounts = std::array<std::uint64_t, kDelayEdgesMs.size() + 1>;

// What became of one message.
enum Fate {
   overwritten,  // pushed out of a full slot
   drained,      // read and dropped when polling started
   polled,       // read by a poll but not published: the time source was not ready
   published,    // published with its exact latch time
   noTime,       // published with time 0: the ASIC time file could not be read
   badSource,    // widened wrongly from a time read outside [latch, latch + 2^32 ns)
   wrong,        // widened wrongly from a sound time: the library erred
   kFates
};

// Latch-to-publish delays: exact minimum and maximum, the median to the
// histogram's resolution.
class Delays {
  public:
   void add(double ms) {
      min_ = count_ ? std::min(min_, ms) : ms;
      max_ = count_ ? std::max(max_, ms) : ms;
      ++buckets_[std::min(std::size_t(ms / kWidthMs), buckets_.size() - 1)];
      ++count_;
   }
   // min, median and max in ms, or nulls when nothing was published.
   Json data() const {
      Json j;
      if (!count_) {
         for (const char* k : {"min", "median", "max"}) j[k] = Json();
         return j;
      }
      std::uint64_t seen = 0;
      std::size_t b = 0;
      while ((seen += buckets_[b]) <= count_ / 2) ++b;
      j["min"] = min_;
      j["median"] = std::clamp((double(b) + 0.5) * kWidthMs, min_, max_);
      j["max"] = max_;
      return j;
   }
   // The delays counted per bucket of kDelayEdgesMs, each fine bucket by its middle.
   DelayCounts coarse() const {
      DelayCounts c{};
      for (std::size_t b = 0; b < buckets_.size(); ++b) {
         const double ms = b + 1 == buckets_.size() ? max_ : (double(b) + 0.5) * kWidthMs;
         c[std::size_t(std::upper_bound(kDelayEdgesMs.begin(), kDelayEdgesMs.end(), ms) - kDelayEdgesMs.begin())] +=
             buckets_[b];
      }
      return c;
   }

  private:
   static constexpr double kWidthMs = 0.05;
   std::array<std::uint32_t, 400> buckets_{};  // 0 to 20 ms; the last one takes everything beyond
   std::uint64_t count_ = 0;
   double min_ = 0, max_ = 0;
};

struct Message {
   std::uint16_t sequenceId;
   U64 latched = 0;      // full chip time of the latch
   Kiv::Seconds at = 0;  // loop time of the latch
};

struct ChipState;

struct Flow {
   IntfId intf;
   ChipState* chip = nullptr;
   Asic::EgressTsSwTableKey slot;
   double rate = 0;
   std::uint16_t nextSequenceId = 0;
   std::uint64_t sent = 0;
   std::array<std::uint64_t, kFates> fates{};  // of the messages no longer in flight
   Delays delays;
   std::deque<Message> inChip;       // the slot's FIFO, oldest first
   std::optional<Message> awaiting;  // read by a poll, publication due
   // Published since the last agent restart: all of them, and those latched before it.
   std::uint64_t publishedSinceRestart = 0, staleSinceRestart = 0;
   std::vector<std::pair<Kiv::Seconds, bool>> externalPhy;  // (when, timestamped at the PHY) at each change
   std::unique_ptr<Kiv::ClockTimer> timer;
};

// A flow's messages by fate, or a sum of flows'; a message read by a poll and
// not published yet counts as lost for want of a ready time source.
struct Counts {
   std::array<std::uint64_t, kFates> n{};
   std::uint64_t sent = 0, inChip = 0, publishedSinceRestart = 0, staleSinceRestart = 0;
   DelayCounts delays{};  // published messages by delay bucket
   Counts() = default;
   explicit Counts(const Flow& f)
       : n(f.fates),
         sent(f.sent),
         inChip(f.inChip.size()),
         publishedSinceRestart(f.publishedSinceRestart),
         staleSinceRestart(f.staleSinceRestart),
         delays(f.delays.coarse()) {
      n[Fate::polled] += f.awaiting ? 1 : 0;
   }
   Counts& operator+=(const Counts& o) {
      for (std::size_t i = 0; i < n.size(); ++i) n[i] += o.n[i];
      sent += o.sent;
      inChip += o.inChip;
      publishedSinceRestart += o.publishedSinceRestart;
      staleSinceRestart += o.staleSinceRestart;
      for (std::size_t i = 0; i < delays.size(); ++i) delays[i] += o.delays[i];
      return *this;
   }
   Json data() const {
      Json j;
      j["sent"] = sent;
      j["published"] = n[Fate::published];
      Json& lost = j["lost"];
      lost["notReady"] = n[Fate::polled];
      lost["overwritten"] = n[Fate::overwritten];
      lost["drained"] = n[Fate::drained];
      lost["noTime"] = n[Fate::noTime];
      lost["badSource"] = n[Fate::badSource];
      lost["wrong"] = n[Fate::wrong];
      j["inChip"] = inChip;
      j["wrong"] = n[Fate::wrong];
      j["publishedSinceRestart"] = publishedSinceRestart;
      j["staleSinceRestart"] = staleSinceRestart;
      Json& histogram = j["delayHistogram"] = Json::array();
      for (std::uint64_t k : delays) histogram.push(k);
      return j;
   }
};

struct ChipState {
   const Chip* chip;
   Pondo::Ptr<Asic::ChipInfo> info;
   Asic::SimulatedChip* device;
   bool asicTimeFile = false;
   std::map<Asic::EgressTsSwTableKey, Flow*> bySlot;
   Pondo::Ptr<MemberWatch<Asic::SimulatedChip::read_t>> watch;
   int timeFile = -1;  // the ASIC time file, for checking published times
};

// Logs the interfaces each collector of the aggregate starts and stops
// polling while it belongs to the aggregate. A change of a collector's set
// names the collector, not the interface: the interface is told from the set
// last seen, taken when the collector joined.
class PollingWatch final : public Kiv::Reactor {
   using Aggregate = VyrPtp::VyrEgressTsArmAggregateSm;
   using Collector = VyrPtp::VyrEgressTsArmLogicalFapSm;

  public:
   PollingWatch(Pondo::Ptr<const Aggregate> aggregate, World& world)
       : aggregate_(this, std::move(aggregate), Kiv::on<Aggregate::logicalFapSm_t, &PollingWatch::handleLogicalFapSm>,
                    Kiv::on<Kiv::Inside<Aggregate::logicalFapSm_t, Collector::pollInterface_t>,
                            &PollingWatch::handlePollInterface>),
         world_(world) {}

  private:
   void handleLogicalFapSm(const VyrPtp::LogicalFapId& id) {
      const Collector* sm = aggregate_->logicalFapSm(id);
      if (!sm) {
         polled_.erase(id);
         return;
      }
      std::set<IntfId>& seen = polled_[id];
      seen.clear();
      for (IntfId i : sm->pollInterface()) seen.insert(i);
   }
   void handlePollInterface(const Collector& sm) {
      std::set<IntfId>& seen = polled_[sm.logicalFapId()];
      for (auto it = seen.begin(); it != seen.end();) {
         if (sm.pollInterface().contains(*it)) {
            ++it;
            continue;
         }
         world_.log("egress collection: chip {} no longer polls {}", sm.logicalFapId(), it->shortName());
         it = seen.erase(it);
      }
      for (IntfId i : sm.pollInterface()) {
         if (seen.insert(i).second) world_.log("egress collection: chip {} polls {}", sm.logicalFapId(), i.shortName());
      }
   }

   Kiv::Input<const Aggregate> aggregate_;
   World& world_;
   std::map<VyrPtp::LogicalFapId, std::set<IntfId>> polled_;  // by collector
};

class EgressCollectionModule final : public Module {
  public:
   std::string name() const override { return "egress-collection"; }
   int order() const override { return 60; }
   std::vector<std::string> sections() const override { return {"egressCollection"}; }
   std::vector<std::string> events() const override { return {"traffic"}; }

   ~EgressCollectionModule() override {
      for (ChipState& c : chips_) {
         if (c.timeFile >= 0) ::close(c.timeFile);
      }
      if (on_) Platform::productAttributesIs(nullptr);
   }

   void load(const Scenario& s) override {
      YAML::Node sec = s.section("egressCollection");
      for (const Event& e : s.timeline()) {
         if (e.kind == "traffic" && !sec) s.fail(e, "'traffic' needs an 'egressCollection' section");
      }
      if (!sec) return;
      if (!sec.IsMap()) s.fail(sec, "'egressCollection' is a map of settings");
      if (!s.section("asicTime")) {
         s.fail(sec, "'egressCollection' needs the 'asicTime' section, which provides the chips' time sources");
      }
      s.onlyKeys(sec, {"timeSource", "counterNeedsInit", "start", "traffic"});
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
      for (const Event& e : w.scenario.timeline()) {
         if (e.kind == "traffic") rates(e.body);
      }

      decisions_ = db.entityIs<VyrPtp::EgressTimestampIntfStatus>("ptp/egressTimestampIntfStatus");
      location_ = db.entityIs<VyrPtp::PtpTimestampLocationConfig>("ptp/timestampLocationConfig");
      chipPolling_ = db.entityIs<VyrPtp::EgressTimestampIntfStatus>("ptp/chipEgressTimestampIntfStatus");
      glint_ = Kiv::make<Ptp::HwTimestampStatus>();
      db.entityPtrIs("ptp/hwTimestampStatus", glint_);
      em_ = Kiv::make<Statebase::EntityManager>();
      db.entityPtrIs("statebase/entityManager", em_);
      tsInfo_ = VyrPtp::platformEgressTsInfoFactory();
      db.entityPtrIs("platform/egressTsInfo", tsInfo_);
      for (ChipState& c : chips_) {
         c.watch = Kiv::make<MemberWatch<Asic::SimulatedChip::read_t>>(
             c.device, [this, &c](const Asic::EgressTsSwTableKey& slot) { readOut(c, slot); });
      }
      // Where each interface is timestamped, as the location machine decides it.
      locationWatch_ = Kiv::make<LocationWatch>(location_, [this](const IntfId& i) {
         auto it = flows_.find(i);
         if (it != flows_.end()) {
            it->second.externalPhy.emplace_back(Kiv::currentTime(), location_->enabledPhysicalIntfConfig(i) != nullptr);
         }
      });
      glintWatch_ = Kiv::make<GlintWatch>(glint_, [this](const IntfId& i) {
         if (const Ptp::IngressEgressTimes* t = glint_->intfTimestamp(i)) published(*t);
      });
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
      for (auto [intf, rate] : rates(e.body)) {
         w.log("egress collection: {} sends {} PTP event messages per second", intf.shortName(), rate);
         Flow& f = flows_.at(intf);
         f.rate = rate;
         f.timer->timeMinIs(rate > 0 ? Kiv::currentTime() + 1 / rate : Kiv::kNever);
      }
   }

   void agentRestart(World& w) override {
      if (!on_) return;
      pollingWatch_ = nullptr;
      aggregate_ = nullptr;
      adapter_ = nullptr;
      tsInfo_->logicalFapInfoDelAll();
      // The destroyed collectors' reads never complete.
      for (auto& [intf, f] : flows_) {
         if (std::exchange(f.awaiting, std::nullopt)) ++f.fates[Fate::polled];
      }
      restartAt_ = Kiv::currentTime();
      w.log("egress collection: agent restarted the polling adapter and the aggregate");
      startMachines();
   }

   void reportData(World&, Json& out) override {
      if (!on_) return;
      Json& edges = out["delayHistogramEdgesMs"] = Json::array();
      for (double e : kDelayEdgesMs) edges.push(e);
      Counts chassis;
      out["chips"] = Json::object();  // also for a scenario without chips
      for (ChipState& c : chips_) {
         Json& chip = out["chips"][std::to_string(c.chip->logicalFap)];
         chip["fifoDepth"] = c.device->fifoDepth();
         chip["timeSource"] = c.asicTimeFile ? "asicTimeFile" : "fpga";
         Counts total;
         chip["interfaces"] = Json::object();  // also for a chip without polled interfaces
         for (const auto& [slot, f] : c.bySlot) {
            const Counts n(*f);
            chip["interfaces"][f->intf.name()] = flowData(*f, n);
            total += n;
         }
         chip["total"] = total.data();
         chassis += total;
      }
      out["total"] = chassis.data();
   }

  private:
   // The library's machines: the polling adapter and the aggregate, which
   // creates a collector per chip as each chip's entry appears.
   void startMachines() {
      Kiv::Dir& db = *world_->sysdb;
      adapter_ = VyrPtp::vyrEgressTsPollingAdapterSmFactory(location_, decisions_, chipPolling_);
      aggregate_ = VyrPtp::vyrEgressTsArmAggregateSmFactory(
          chipPolling_, tsInfo_, db.entityIs<PtpTimeSync::Config>("ptpTimeSync/config"),
          db.entityIs<PtpTimeSync::Status>("ptpTimeSync/status"), em_, glint_);
      pollingWatch_ = Kiv::make<PollingWatch>(aggregate_, *world_);
      for (ChipState& c : chips_) {
         Platform::productAttributesIs(Kiv::make<Platform::ProductAttributes>(
             Platform::Attributes{c.asicTimeFile, c.asicTimeFile && counterNeedsInit_}));
         const auto unit = std::uint8_t(c.chip->logicalFap);  // the asicTime module's files are per logical FAP
         auto fap = tsInfo_->logicalFapInfoIs(c.chip->logicalFap, unit, c.info);
         for (const auto& [slot, f] : c.bySlot) fap->intfInfoIs({f->intf, 32, slot});
         world_->log(
             "egress collection: chip {} collector takes full time from {}", c.chip->logicalFap,
             c.asicTimeFile ? fmt::format("the ASIC time file /proc/asic-time/{}/ts", unit) : "the FPGA counter");
      }
   }

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

   // --- Traffic and what became of it ----------------------------------------------

   void send(Flow& f) {
      Asic::SimulatedChip& device = *f.chip->device;
      if (device.queued(f.slot) == device.fifoDepth()) {
         ++f.fates[Fate::overwritten];
         f.inChip.pop_front();
      }
      Message& m = f.inChip.emplace_back(Message{f.nextSequenceId++});
      ++f.sent;
      m.at = Kiv::currentTime();
      m.latched = device.send(f.slot, m.sequenceId);
      f.timer->timeMinIs(m.at + 1 / f.rate);
   }

   // The chip gave out the oldest entry of a slot, to a drain or to a poll.
   void readOut(ChipState& c, const Asic::EgressTsSwTableKey& slot) {
      Flow& f = *c.bySlot.at(slot);
      const Message m = f.inChip.front();
      f.inChip.pop_front();
      // A poll read whose message was never published: the time source was not ready.
      if (f.awaiting) ++f.fates[Fate::polled];
      f.awaiting.reset();
      const VyrPtp::VyrEgressTsArmLogicalFapSm* collector = aggregate_->logicalFapSm(c.chip->logicalFap);
      if (collector && collector->drainInterface().contains(f.intf)) {
         ++f.fates[Fate::drained];
      } else {
         f.awaiting = m;
      }
   }

   void published(const Ptp::IngressEgressTimes& t) {
      Flow& f = flows_.at(t.intfId);
      if (!f.awaiting || f.awaiting->sequenceId != t.sequenceId) {
         if (f.awaiting) ++f.fates[Fate::polled];
         f.awaiting.reset();
         world_->log("egress collection: {} published sequence id {} that no poll read", t.intfId.shortName(),
                     t.sequenceId);
         return;
      }
      const Message m = *std::exchange(f.awaiting, std::nullopt);
      const double delayMs = (Kiv::currentTime() - m.at) * 1e3;
      if (restartAt_ >= 0) {
         ++f.publishedSinceRestart;
         if (m.at < restartAt_) {
            ++f.staleSinceRestart;
            world_->log("egress collection: {} seq {} latched before the agent restart published after it",
                        t.intfId.shortName(), t.sequenceId);
         }
      }
      Fate fate;
      if (t.egressTime == m.latched) {
         fate = Fate::published;
         f.delays.add(delayMs);
      } else if (t.egressTime == 0) {
         fate = Fate::noTime;
      } else {
         fate = sourceSound(*f.chip, m.latched) ? Fate::wrong : Fate::badSource;
      }
      ++f.fates[fate];
      if (world_->verbose || fate == Fate::wrong) {
         world_->log("egress collection: {} seq {} latched {} published {} after {:.3f} ms{}", t.intfId.shortName(),
                     t.sequenceId, m.latched, t.egressTime, delayMs, fate == Fate::wrong ? " WRONG" : "");
      }
   }

   // The first number of the chip's ASIC time file, through a descriptor kept
   // open; a file that reads empty may have been replaced and is opened anew.
   std::string firstField(ChipState& c) const {
      char buf[64];
      for (int attempt = 0; attempt < 2; ++attempt) {
         if (c.timeFile < 0) {
            c.timeFile =
                Platform::fileOpen(fmt::format("/proc/asic-time/{}/ts", c.chip->logicalFap), O_RDONLY | O_CLOEXEC);
         }
         const ssize_t n = c.timeFile < 0 ? -1 : ::pread(c.timeFile, buf, sizeof buf, 0);
         if (n > 0) {
            const std::string_view t(buf, std::size_t(n));
            return std::string(t.substr(0, t.find_first_of(" \n")));
         }
         if (c.timeFile >= 0) ::close(std::exchange(c.timeFile, -1));
      }
      return {};
   }

   // Whether the time the collector just widened with was sound (soundTime()).
   bool sourceSound(ChipState& c, U64 latched) const {
      if (c.asicTimeFile) return soundTime(firstField(c), latched);
      const auto& sync = *world_->sysdb->entityIs<PtpTimeSync::Status>("ptpTimeSync/status");
      const PtpTimeSync::HpxConfig* hpx =
          world_->sysdb->entityIs<PtpTimeSync::Config>("ptpTimeSync/config")->hpx(sync.activeHpx());
      // What the collector's fetcher read just now.
      return hpx && hpx->ham() && soundTime(hpx->ham()->result(), latched);
   }

   // --- Reporting -----------------------------------------------------------------------

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
      j["delayMs"] = f.delays.data();
      std::vector<std::string> unusual;
      auto note = [&](std::uint64_t k, const char* what) {
         if (k) unusual.push_back(fmt::format("{} {}", k, what));
      };
      note(n.n[Fate::wrong], "widened wrongly from a sound time");
      note(n.n[Fate::badSource], "widened from a faulty time source");
      note(n.n[Fate::noTime], "published without time");
      note(n.n[Fate::overwritten], "overwritten in the chip");
      note(n.staleSinceRestart, "latched before the agent restart, published after it");
      if (n.sent > 0 && n.n[Fate::published] == 0) unusual.push_back("nothing published");
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
   using GlintWatch = MemberWatch<Ptp::HwTimestampStatus::intfTimestamp_t>;
   using LocationWatch = MemberWatch<VyrPtp::PtpTimestampLocationConfig::enabledPhysicalIntfConfig_t>;
   Pondo::Ptr<GlintWatch> glintWatch_;
   Pondo::Ptr<LocationWatch> locationWatch_;
   Pondo::Ptr<PollingWatch> pollingWatch_;
   Pondo::Ptr<VyrPtp::VyrEgressTsPollingAdapterSm> adapter_;
   Pondo::Ptr<VyrPtp::VyrEgressTsArmAggregateSm> aggregate_;
};

VYRPTP_SIM_MODULE(EgressCollectionModule);

}  // namespace
}  // namespace Sim
