// ASIC time access (section `asicTime`, events `asicTimeFault` and `hpxFault`).
//
// A simulated kernel keeps one ASIC time file per chip in the memory-backed
// directory of Platform::SimAsicTimeFiles, served as "/proc/asic-time": every 10 ms it writes
// "<time of day> <PTP time> <ASIC time>" into <n>/ts, n being the chip's
// logical FAP, and, when counters need initialisation, starts a chip's counter
// once "init" appears in <n>/cfg (until then the file reads "0 0 0"). A
// simulated FPGA's PTP counter follows virtual time. Per chip the file
// machine of the library's hardware status machine (hw-status module) opens
// and watches the file, an AsicTimestampFetcher reads through it and a
// TimestampFetcher reads the FPGA; every `egressPeriod` each chip latches an
// egress timestamp 20 ms in the past and both fetchers widen its low 32 bits,
// which are checked against the latch time. The file carries the chip's own
// clock, the one its latches use, also in real time. Like the kernel's live
// file, a chip's time file never reads older than the chip's last latch: after
// a latch (platform module) it is rewritten before the chip's next read-out,
// after which the library reads it. The FPGA is meant to carry the
// chips' time, so its faults show up as wrongly widened timestamps; when a
// timed FPGA fault ends, time synchronisation puts its counter right again.
#include <array>
#include <cmath>
#include <map>

#include "Asic/SimulatedChip.h"
#include "Hpx/SimHam.h"
#include "Module.h"
#include "Platform/SimAsicTimeFiles.h"
#include "TimeSource.h"
#include "VyrPtp/VyrHelperPtp.h"
#include "VyrPtp/VyrPtpHwStatusSm.h"

namespace Sim {
namespace {

constexpr Kiv::Seconds kKernelPeriod = 0.01;
constexpr std::uint64_t kLatchDelayNs = 20'000'000;
constexpr std::uint64_t kSecond = 1'000'000'000;

// One fault event, checked at load.
struct Fault {
   std::string fault;
   int logicalFap = -1;
   double span = 0;  // `for`, seconds
   double by = 0;    // `by`, seconds
   std::string text;
   std::uint32_t value = 0;
};

Fault parseFault(const Scenario& s, const Event& e) {
   const YAML::Node& b = e.body;
   if (!b.IsMap()) s.fail(b, fmt::format("'{}' is a map with 'fault' and its settings", e.kind));
   Fault f;
   f.fault = s.get<std::string>(b, "fault");
   constexpr Range span{0.001, kMaxSeconds, "s"};
   if (e.kind == "asicTimeFault") {
      s.onlyKeys(b, {"logicalFap", "fault", "for", "text"});
      f.logicalFap = int(s.integer(b, "logicalFap", 0, 0xFFFF));
      if (f.fault != "missing" && f.fault != "zero" && f.fault != "garbage") {
         s.fail(b["fault"],
                fmt::format("unknown ASIC time fault '{}' (expected one of: missing, zero, garbage)", f.fault));
      }
      f.span = s.number(b, "for", span);
      f.text = s.get<std::string>(b, "text", "garbage");
      if (f.fault != "garbage" && b["text"]) s.fail(b["text"], "'text' belongs to the 'garbage' fault");
      return f;
   }
   s.onlyKeys(b, {"fault", "by", "for", "text", "value"});
   if (f.fault == "stepBack") {
      f.by = s.number(b, "by", {1e-9, 3600, "s"});
      if (b["for"]) f.span = s.number(b, "for", span);
   } else if (f.fault == "stall") {
      f.span = s.number(b, "for", span);
   } else if (f.fault == "text") {
      f.text = s.get<std::string>(b, "text");
      f.span = s.number(b, "for", span);
   } else if (f.fault == "gpio") {
      f.value = std::uint32_t(s.integer(b, "value", 0, 0xFFFFFFFF));
   } else {
      s.fail(b["fault"],
             fmt::format("unknown FPGA fault '{}' (expected one of: stepBack, stall, text, gpio)", f.fault));
   }
   return f;
}

// Calls back when a file machine's status changes readiness.
class ReadyWatch final : public Kiv::Reactor {
  public:
   ReadyWatch(Pondo::Ptr<const VyrPtp::AsicTimestampFileStatus> status, std::function<void(int)> onFd)
       : status_(this, std::move(status),
                 Kiv::on<VyrPtp::AsicTimestampFileStatus::timestampFd_t, &ReadyWatch::handleTimestampFd>),
         onFd_(std::move(onFd)) {}

  private:
   void handleTimestampFd() { onFd_(status_->timestampFd()); }
   Kiv::Input<const VyrPtp::AsicTimestampFileStatus> status_;
   std::function<void(int)> onFd_;
};

// Calls back whenever a chip latches an egress timestamp or gives one out.
class LatchWatch final : public Kiv::Reactor {
  public:
   LatchWatch(Pondo::Ptr<const Asic::SimulatedChip> chip, std::function<void()> onLatch,
              std::function<void()> onReadOut)
       : chip_(this, std::move(chip), Kiv::on<Asic::SimulatedChip::sent_t, &LatchWatch::handleSent>,
               Kiv::on<Asic::SimulatedChip::read_t, &LatchWatch::handleRead>),
         onLatch_(std::move(onLatch)),
         onReadOut_(std::move(onReadOut)) {}

  private:
   void handleSent(const Asic::EgressTsSwTableKey&) { onLatch_(); }
   void handleRead(const Asic::EgressTsSwTableKey&) { onReadOut_(); }
   Kiv::Input<const Asic::SimulatedChip> chip_;
   std::function<void()> onLatch_, onReadOut_;
};

// What one way of widening made of the chip's egress timestamps; wrong ones
// from an unsound time (soundTime()) are the source's fault, counted apart.
// The series holds the same counts per span of `bucket` seconds of the run.
struct Tally {
   enum Verdict { correct, wrong, badSource, noTime, notReady, verdicts };
   static constexpr std::array<const char*, verdicts> kNames{"correct", "wrong", "badSource", "noTime", "notReady"};
   std::array<unsigned, verdicts> n{};
   std::vector<std::array<unsigned, verdicts>> series;

   void count(Verdict v, std::size_t bucket) {
      ++n[v];
      if (series.size() <= bucket) series.resize(bucket + 1);
      ++series[bucket][v];
   }
   Json data() const {
      Json j;
      for (std::size_t v = 0; v < verdicts; ++v) j[kNames[v]] = n[v];
      Json& s = j["series"];
      for (std::size_t v = 0; v < verdicts; ++v) {
         Json& values = s[kNames[v]] = Json::array();
         for (const auto& b : series) values.push(b[v]);
      }
      return j;
   }
};

// A fault of a time source in force from `from` until `until` (-1: the end of the run).
struct FaultSpan {
   Kiv::Seconds from, until;
   std::string fault;
   Json data() const {
      Json j;
      j["from"] = from;
      j["until"] = until < 0 ? Json() : Json(until);
      j["fault"] = fault;
      return j;
   }
};

struct ChipTime {
   const Chip* chip;
   std::uint8_t unit;
   Asic::SimulatedChip* device = nullptr;
   // The chip machine's file configuration and status, and a fetcher on them.
   Pondo::Ptr<VyrPtp::AsicTimestampFileConfig> fileConfig;
   Pondo::Ptr<const VyrPtp::AsicTimestampFileStatus> fileStatus;
   Pondo::Ptr<VyrPtp::AsicTimestampFetcher> fileFetcher;
   Pondo::Ptr<VyrPtp::TimestampFetcher> hpxFetcher;
   Pondo::Ptr<ReadyWatch> watch;
   Pondo::Ptr<LatchWatch> latchWatch;
   // The simulated kernel's side.
   bool counterRunning = false;
   bool latchedSinceWrite = false;
   std::string fault;     // ASIC time fault in force, or empty
   std::string fileText;  // what the time file reads (its storage is reused for every write)
   std::string faultText;
   Kiv::Seconds faultUntil = 0;
   std::vector<FaultSpan> faults;
   // What the library did.
   Tally viaFile, viaHpx;
   unsigned readyPeriods = 0;
   Kiv::Seconds firstReady = -1;
   std::uint32_t sequenceId = 0;
};

class AsicTimeModule final : public Module {
  public:
   std::string name() const override { return "asicTime"; }
   int order() const override { return 50; }
   std::vector<std::string> sections() const override { return {"asicTime"}; }
   std::vector<std::string> events() const override { return {"asicTimeFault", "hpxFault"}; }

   void load(const Scenario& s) override {
      YAML::Node sec = s.section("asicTime");
      for (const Event& e : s.timeline()) {
         if (e.kind != "asicTimeFault" && e.kind != "hpxFault") continue;
         if (!sec) s.fail(e, fmt::format("'{}' needs an 'asicTime' section", e.kind));
         parseFault(s, e);
      }
      if (!sec) return;
      if (!sec.IsMap()) s.fail(sec, "'asicTime' is a map of settings");
      s.onlyKeys(sec, {"initCounter", "hpx", "egressPeriod"});
      on_ = true;
      initCounter_ = s.get<bool>(sec, "initCounter", false);
      hpxName_ = s.get<std::string>(sec, "hpx", "hpx1");
      egressPeriod_ = s.number(sec, "egressPeriod", {0.001, 3600, "s"}, 0.25);
      // The kernel's files are there before any machine looks for them.
      files_ = std::make_unique<Platform::SimAsicTimeFiles>();
      bucket_ = std::max(egressPeriod_, s.duration() / 100);
   }

   // The kernel's tick every 10 ms and one egress tick per period.
   double loopEventsPerSecond() const override { return on_ ? 1 / kKernelPeriod + 1 / egressPeriod_ : 0; }

   void build(World& w) override {
      if (!on_) return;
      world_ = &w;
      for (const Event& e : w.scenario.timeline()) {
         if (e.kind != "asicTimeFault") continue;
         int fap = parseFault(w.scenario, e).logicalFap;
         if (!findChip(w, fap)) w.scenario.fail(e.body["logicalFap"], fmt::format("no chip with logicalFap {}", fap));
      }
      for (const Chip& c : w.chips) {
         if (c.logicalFap > 255) {
            throw ScenarioError(fmt::format("{}:{}: logicalFap {} has no ASIC time file (kernel units are 0..255)",
                                            w.scenario.origin(), c.line, c.logicalFap));
         }
      }
      const Kiv::Seconds utc = Kiv::currentTimeUtc();
      utcAtStartNs_ =
          std::uint64_t(std::floor(utc)) * kSecond + std::uint64_t(std::llround((utc - std::floor(utc)) * 1e9));
      loopAtStart_ = Kiv::currentTime();

      auto syncConfig = w.sysdb->entityIs<PtpTimeSync::Config>("ptpTimeSync/config");
      auto syncStatus = w.sysdb->entityIs<PtpTimeSync::Status>("ptpTimeSync/status");
      ham_ = Kiv::make<Hpx::SimHam>(hpxName_.empty() ? "hpx1" : hpxName_);
      syncConfig->hpxIs(ham_->name())->hamIs(ham_);
      syncStatus->activeHpxIs(hpxName_);
      w.log("asicTime: kernel files in {} served as /proc/asic-time; FPGA {} {}", files_->directory(), ham_->name(),
            hpxName_.empty() ? "present but not in use" : "in use by time synchronisation");

      for (const Chip& c : w.chips) {
         auto& info = dynamic_cast<Asic::ChipInfo&>(*w.sysdb->entityPtr(chipInfoName(c.logicalFap)));
         auto* device = &dynamic_cast<Asic::SimulatedChip&>(*info.device());
         ChipTime& t = chips_.emplace(c.logicalFap, ChipTime{&c, std::uint8_t(c.logicalFap), device}).first->second;
         t.counterRunning = !initCounter_;
         files_->unitIs(t.unit);
         writeTimeFile(t);
      }
      for (auto& [fap, t] : chips_) {
         ChipTime* chip = &t;
         startMachines(t);
         t.latchWatch = Kiv::make<LatchWatch>(
             t.device, [chip] { chip->latchedSinceWrite = true; },
             [this, chip] {
                if (chip->latchedSinceWrite && chip->fault != "missing") writeTimeFile(*chip);
             });
      }
      kernel_ = std::make_unique<Kiv::ClockTimer>(Kiv::activityManager().clock(), [this] { kernelTick(); });
      kernel_->timeMinIs(Kiv::currentTime() + kKernelPeriod);
      egress_ = std::make_unique<Kiv::ClockTimer>(Kiv::activityManager().clock(), [this] { egressTick(); });
      egress_->timeMinIs(Kiv::currentTime() + egressPeriod_);
   }

   void apply(const Event& e, World& w) override {
      const Fault f = parseFault(w.scenario, e);
      const Kiv::Seconds now = Kiv::currentTime();
      if (e.kind == "asicTimeFault") {
         ChipTime& t = chips_.at(Pondo::LogicalFapId(f.logicalFap));
         t.fault = f.fault;
         t.faultText = f.text;
         t.faultUntil = now + f.span;
         t.faults.push_back({now, t.faultUntil, f.fault});
         if (f.fault == "missing") {
            files_->timeDel(t.unit);
            t.fileText.clear();
         } else {
            writeTimeFile(t);
         }
         w.log("asicTime: kernel: {} of chip {} {} for {} s", f.fault == "missing" ? "time file" : "counter", t.unit,
               f.fault == "missing" ? "removed"
               : f.fault == "zero"  ? "reads 0"
                                    : "reads '" + f.text + "'",
               f.span);
         return;
      }
      fpgaFaults_.push_back({now, f.span > 0 ? now + f.span : -1, f.fault});
      if (f.fault == "stepBack") {
         ham_->stepBy(-std::llround(f.by * 1e9));
         if (f.span > 0) hpxFaultUntil_ = now + f.span;
         w.log("asicTime: FPGA counter steps back {} s{}", f.by,
               f.span > 0 ? fmt::format(", for {} s", f.span) : std::string());
      } else if (f.fault == "stall") {
         ham_->stalledIs(true);
         hpxFaultUntil_ = now + f.span;
         w.log("asicTime: FPGA counter stalls for {} s", f.span);
      } else if (f.fault == "text") {
         ham_->textIs("ptp_timestamp", f.text);
         hpxFaultUntil_ = now + f.span;
         w.log("asicTime: FPGA counter reads '{}' for {} s", f.text, f.span);
      } else {
         ham_->textIs("ptp_gpio_sample_status", std::to_string(f.value));
         auto fetcher = chips_.empty() ? nullptr : chips_.begin()->second.hpxFetcher;
         w.log("asicTime: FPGA GPIO sample status value {}: library reads {}", f.value,
               fetcher ? Pondo::enumName(fetcher->hpxGpioTimestampStatus()) : "nothing (no chips)");
      }
   }

   void agentRestart(World& w) override {
      if (!on_) return;
      for (auto& [fap, t] : chips_) {
         t.watch = nullptr;
         t.fileFetcher = nullptr;
         t.hpxFetcher = nullptr;
         startMachines(t);
      }
      w.log("asicTime: agent restarted its ASIC time file machines and fetchers");
   }

   void reportData(World&, Json& out) override {
      if (!on_) return;
      for (auto& [fap, t] : chips_) {
         Json& c = out["chips"][std::to_string(fap)];
         c["fileReady"] = t.fileStatus->ready();
         c["firstReady"] = t.firstReady < 0 ? Json() : Json(t.firstReady);
         c["readyPeriods"] = t.readyPeriods;
         c["viaFile"] = t.viaFile.data();
         c["viaFpga"] = t.viaHpx.data();
         c["fetcherErrors"] = t.hpxFetcher->errors();
         Json& faults = c["faults"] = Json::array();
         for (const FaultSpan& f : t.faults) faults.push(f.data());
      }
      out["seriesBucket"] = bucket_;
      Json& faults = out["fpgaFaults"] = Json::array();
      for (const FaultSpan& f : fpgaFaults_) faults.push(f.data());
   }

  private:
   // The library's fetchers of one chip: the FPGA's, and one through the file
   // machine of the chip's hardware status machine (hw-status module), which
   // an agent restart recreates before this module's turn.
   void startMachines(ChipTime& t) {
      ChipTime* chip = &t;
      auto* hwStatus = dynamic_cast<VyrPtp::Location::VyrPtpHwStatusSm*>(world_->sysdb->entityPtr("ptp/hwStatusSm"));
      const VyrPtp::Location::VyrPtpHwStatusFapSm* fapSm =
          hwStatus ? hwStatus->hwStatusFapSm(VyrPtp::UnitPort::FapId(t.chip->logicalFap)) : nullptr;
      if (!fapSm || !fapSm->asicTimestampFileSm()) {
         throw ScenarioError(fmt::format("chip {} has no ASIC time file machine", t.chip->logicalFap));
      }
      t.fileConfig = fapSm->asicTimestampFileConfig();
      t.fileStatus = fapSm->asicTimestampFileStatus();
      t.fileFetcher = VyrPtp::asicTimestampFetcherFactory(t.fileConfig, t.fileStatus);
      t.hpxFetcher =
          VyrPtp::timestampFetcherFactory(world_->sysdb->entityIs<PtpTimeSync::Status>("ptpTimeSync/status"),
                                          world_->sysdb->entityIs<PtpTimeSync::Config>("ptpTimeSync/config"));
      t.watch = Kiv::make<ReadyWatch>(t.fileStatus, [this, chip](int fd) { fileReadyIs(*chip, fd); });
      fileReadyIs(t, t.fileStatus->timestampFd());
   }

   static const Chip* findChip(const World& w, int fap) {
      for (const Chip& c : w.chips) {
         if (c.logicalFap == fap) return &c;
      }
      return nullptr;
   }
   // UTC nanoseconds at loop time `at`.
   std::uint64_t utcNs(Kiv::Seconds at) const {
      return utcAtStartNs_ + std::uint64_t(std::llround((at - loopAtStart_) * 1e9));
   }

   void fileReadyIs(ChipTime& t, int fd) {
      if (fd < 0) {
         if (t.readyPeriods) world_->log("asicTime: chip {}: ASIC time file machine not ready", t.unit);
         return;
      }
      ++t.readyPeriods;
      if (t.firstReady < 0) t.firstReady = Kiv::currentTime();
      world_->log("asicTime: chip {}: ASIC time file machine ready (descriptor {})", t.unit, fd);
   }

   // The kernel's view of one chip's time, as a read of its time file returns it.
   void writeTimeFile(ChipTime& t) {
      t.fileText.clear();
      if (t.fault == "garbage") {
         t.fileText = t.faultText + "\n";
      } else if (!t.counterRunning || t.fault == "zero") {
         t.fileText = "0 0 0\n";
      } else {
         const std::uint64_t now = t.device->timeNs();
         fmt::format_to(std::back_inserter(t.fileText), "{} {} {}\n", now, ham_->counter(), now);
      }
      files_->timeIs(t.unit, t.fileText);
      t.latchedSinceWrite = false;
   }

   void kernelTick() {
      const Kiv::Seconds now = Kiv::currentTime();
      for (auto& [fap, t] : chips_) {
         if (!t.counterRunning &&
             files_->counterConfig(t.unit) == VyrPtp::AsicTimestampFileConfig::counterInitCommand) {
            t.counterRunning = true;
            world_->log("asicTime: kernel: counter of chip {} initialised", t.unit);
         }
         if (!t.fault.empty() && now >= t.faultUntil) {
            world_->log("asicTime: kernel: {} fault of chip {} over", t.fault, t.unit);
            t.fault.clear();
         }
         if (t.fault != "missing") writeTimeFile(t);
      }
      if (hpxFaultUntil_ > 0 && now >= hpxFaultUntil_) {
         ham_->stalledIs(false);
         ham_->textDel("ptp_timestamp");
         ham_->counterIs(utcNs(now));
         hpxFaultUntil_ = 0;
         world_->log("asicTime: FPGA counter runs normally again");
      }
      kernel_->timeMinIs(now + kKernelPeriod);
   }

   void widen(ChipTime& t, VyrPtp::TimestampFetcherBase& fetcher, Tally& tally, std::uint64_t latched, Wyx::IntfId intf,
              const char* via) {
      const auto bucket = std::size_t((Kiv::currentTime() - loopAtStart_) / bucket_);
      if (!fetcher.timestampReady()) {
         tally.count(Tally::notReady, bucket);
         return;
      }
      const std::uint64_t widened = fetcher.egressTimestamp(intf, t.sequenceId, std::uint32_t(latched));
      const bool sound = widened == 0 || widened == latched || soundTime(readBack(t, via), latched);
      const char* verdict = widened == 0 ? "no time" : widened == latched ? "correct" : sound ? "WRONG" : "bad source";
      tally.count(widened == 0         ? Tally::noTime
                  : widened == latched ? Tally::correct
                  : sound              ? Tally::wrong
                                       : Tally::badSource,
                  bucket);
      if (world_->verbose || widened != latched) {
         world_->log("asicTime: chip {} {} seq {} via {}: latched {} widened {} ({})", t.unit, intf.shortName(),
                     t.sequenceId, via, latched, widened, verdict);
      }
   }

   // The text that the fetcher `via` just read.
   std::string_view readBack(const ChipTime& t, const char* via) const {
      if (via != std::string_view("file")) return ham_->result();
      return t.fileText;
   }

   void egressTick() {
      const Kiv::Seconds now = Kiv::currentTime();
      for (auto& [fap, t] : chips_) {
         const std::uint64_t latched = t.device->timeNs() - kLatchDelayNs;
         ++t.sequenceId;
         const auto& intfs = t.chip->interfaces;
         const Wyx::IntfId intf = intfs.empty() ? Wyx::IntfId() : intfs[t.sequenceId % intfs.size()];
         widen(t, *t.fileFetcher, t.viaFile, latched, intf, "file");
         widen(t, *t.hpxFetcher, t.viaHpx, latched, intf, "FPGA");
      }
      egress_->timeMinIs(now + egressPeriod_);
   }

   bool on_ = false;
   bool initCounter_ = false;
   std::string hpxName_;
   double egressPeriod_ = 0.25;
   double bucket_ = 0.25;  // seconds per entry of the widening series
   std::vector<FaultSpan> fpgaFaults_;
   World* world_ = nullptr;
   std::unique_ptr<Platform::SimAsicTimeFiles> files_;
   std::uint64_t utcAtStartNs_ = 0;
   Kiv::Seconds loopAtStart_ = 0;
   Kiv::Seconds hpxFaultUntil_ = 0;  // end of the timed FPGA fault in force
   Pondo::Ptr<Hpx::SimHam> ham_;
   std::map<Pondo::LogicalFapId, ChipTime> chips_;
   std::unique_ptr<Kiv::ClockTimer> kernel_, egress_;
};

VYRPTP_SIM_MODULE(AsicTimeModule);

}  // namespace
}  // namespace Sim
