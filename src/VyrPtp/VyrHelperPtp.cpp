#include "VyrPtp/VyrHelperPtp.h"

#include <algorithm>
#include <array>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fmt/printf.h>

#include "Platform/File.h"

namespace VyrPtp {

namespace {

Kiv::Tracer trace{"VyrPtp"};

// Unsigned base-10 conversion of counter text (up to its first zero byte);
// `rest` is what it left unconsumed.
// strtoull(text, &rest, 10). Counter text is plain digits that fit, read here
// directly; anything else (space, a sign, no digit, overflow) goes to strtoull.
U64 toU64(const char* text, const char*& rest) {
   // Nineteen digits always fit in 64 bits; a twentieth may not.
   constexpr std::ptrdiff_t fits = 19;
   const char* p = text;
   U64 v = 0;
   for (unsigned d; p - text < fits && (d = unsigned(*p) - '0') < 10; ++p) v = v * 10 + d;
   if (p != text && unsigned(*p) - '0' >= 10) {
      rest = p;
      return v;
   }
   char* end = nullptr;
   v = std::strtoull(text, &end, 10);
   rest = end;
   return v;
}

// Bit 2 set: no sample; otherwise bit 0 tells a fresh sample from a stale one.
GpioSampleStatus gpioSampleStatus(U64 v) {
   return (v & 4) ? GpioSampleStatus::notAvailable : GpioSampleStatus((v & 1) + 1);
}

// Writes `v` in hexadecimal without leading zeros, as printf's %x (or, with
// `upper`, %X), two digits (one byte of `v`) at a time.
char* hex(char* out, U64 v, bool upper) {
   static constexpr auto pairs = [] {
      std::array<std::array<char, 2>, 512> t{};  // lower case (0-255), then upper case
      constexpr char lower[] = "0123456789abcdef";
      constexpr char upper[] = "0123456789ABCDEF";
      for (int b = 0; b < 256; ++b) {
         t[b] = {lower[b >> 4], lower[b & 0xF]};
         t[256 + b] = {upper[b >> 4], upper[b & 0xF]};
      }
      return t;
   }();
   const auto* table = &pairs[upper ? 256 : 0];
   const int n = v ? (64 - __builtin_clzll(v) + 3) / 4 : 1;
   char* end = out + n;
   char* p = end;
   for (; v > 0xF; v >>= 8) {
      p -= 2;
      std::memcpy(p, table[v & 0xFF].data(), 2);
   }
   if (p != out) *--p = table[v][1];
   return end;
}

char* decimal(char* out, U32 v) {
   char reversed[10];
   int n = 0;
   do {
      reversed[n++] = char('0' + v % 10);
      v /= 10;
   } while (v);
   while (n) *out++ = reversed[--n];
   return out;
}

char* text(char* out, std::string_view s) { return std::copy(s.begin(), s.end(), out); }

}  // namespace

bool simulationVmidSet() { return std::getenv("SIMULATION_VMID") != nullptr; }

int readAsicTimestamp(int fd, U64& timeOfDay) {
   constexpr std::size_t chunk = 62;
   timeOfDay = 0;
   ::lseek(fd, 0, SEEK_SET);
   char buf[chunk + 1] = {};
   if (::read(fd, buf, chunk) < 1) return -1;

   // A field that does not parse leaves the converter where it was, so it and
   // every field after it read as 0.
   char* p = buf;
   timeOfDay = std::strtoull(p, &p, 10);
   U64 ptpTime = std::strtoull(p, &p, 10);
   U64 asicTime = std::strtoull(p, &p, 10);

   char rest[chunk];
   while (::read(fd, rest, chunk) > 0) {
   }
   trace(8, "readAsicTimestamp Timestamps read ToD:{}, PTP:{}, ASIC:{}", timeOfDay, ptpTime, asicTime);
   return 0;
}

void Conversion::assertValid() const {
   if (valid()) return;
   trace(0, "Error: The timestamp used isn't a valid U64: {}", timestamp_);
   trace(0, "Here is the invalid portion: {}", invalidPortion_);
}

void TimestampFetcherBase::assertValid(U64 timestamp, U32 switchCounter) {
   if (valid(timestamp, switchCounter)) return;
   trace(0, "[WARNING]: The timestamp ({}) is lower than the switchCounter ({}).", timestamp, switchCounter);
}

U64 TimestampFetcherBase::calcEgressTimestamp(U64 timestamp, Wyx::IntfId intfId, U32 sequenceId, U32 switchCounter) {
   assertValid(timestamp, switchCounter);
   const U64 egress = switchTimestamp(timestamp, switchCounter);
   displayWarningIfIncorrect(egress, switchCounter, intfId, sequenceId);
   return egress;
}

std::string_view TimestampFetcherBase::detailText(DetailText& out, U64 egressTimestamp, U32 asic32BitTimestamp,
                                                  U32 sequenceId) {
   char* p = text(out.data(), "   seconds: 0x");
   p = hex(p, U32(seconds(egressTimestamp)), false);
   p = hex(text(p, " nanoseconds: 0x"), U32(nanoseconds(egressTimestamp)), false);
   p = hex(text(p, " asic32bit_ts: 0x"), asic32BitTimestamp, false);
   p = hex(text(p, " egressTimestamp: 0x"), egressTimestamp, true);
   p = decimal(text(p, " sequenceId: "), sequenceId);
   return {out.data(), std::size_t(p - out.data())};
}

void TimestampFetcherBase::displayWarningIfIncorrect(U64 egressTimestamp, U32 asic32BitTimestamp, Wyx::IntfId intfId,
                                                     U32 sequenceId) {
   // Formatted whatever the trace mask says: the verdict below picks its level.
   DetailText buffer;
   const std::string_view detail = detailText(buffer, egressTimestamp, asic32BitTimestamp, sequenceId);
   constexpr double oneDay = 86400.0;
   const double stamped = double(U32(seconds(egressTimestamp)));
   if (stamped > Kiv::currentTimeUtc() + oneDay || Kiv::currentTimeUtc() - oneDay > stamped) {
      trace(0, "WARNING! Incorrect egress timestamp on {} {}", intfId.shortName(), detail);
   } else {
      trace(3, "{}", detail);
   }
}

TimestampFetcher::TimestampFetcher(Pondo::Ptr<const PtpTimeSync::Status> ptpTimeSyncStatus,
                                   Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig)
    : ptpTimeSyncStatus_(std::move(ptpTimeSyncStatus)), ptpTimeSyncConfig_(std::move(ptpTimeSyncConfig)) {
   if (ptpTimeSyncStatus_) ptpTimeSyncStatus_->subscriberAdd(this);
   if (ptpTimeSyncConfig_) ptpTimeSyncConfig_->subscriberAdd(this);
}

TimestampFetcher::~TimestampFetcher() {
   if (ptpTimeSyncStatus_) ptpTimeSyncStatus_->subscriberRemove(this);
   if (ptpTimeSyncConfig_) ptpTimeSyncConfig_->subscriberRemove(this);
}

// Changes inside a device's entry reach the configuration's subscribers too,
// so a replaced access object is looked up again. Without time
// synchronisation's status or configuration there is no active device.
Hpx::Ham* TimestampFetcher::activeHpxHam() const {
   trace(8, "activeHpxHam");
   if (!activeHpxKnown_) {
      const PtpTimeSync::HpxConfig* hpx = nullptr;
      if (ptpTimeSyncStatus_ && ptpTimeSyncConfig_ && !ptpTimeSyncStatus_->activeHpx().empty()) {
         hpx = ptpTimeSyncConfig_->hpx(ptpTimeSyncStatus_->activeHpx());
      }
      activeHpx_ = hpx ? hpx->ham().get() : nullptr;
      activeHpxKnown_ = true;
   }
   return activeHpx_;
}

bool TimestampFetcher::timestampReady() const {
   const Hpx::Ham* ham = activeHpxHam();
   return ham && ham->ready();
}

U64 TimestampFetcher::readHpxCounter(const Pondo::String& name) const {
   Hpx::Ham* ham = activeHpxHam();
   if (!ham) {
      trace(8, "activeHpxHam does not exist");
      return 0;
   }
   ham->valueRead(name);
   const char* text = ham->result().c_str();
   const char* rest = nullptr;
   const U64 value = toU64(text, rest);
   // A clean number makes a record whose check says nothing: only text that
   // fails it is copied into one, unless this is a simulation.
   if (!Conversion::valid(text, rest) && !simulation()) Conversion(text, rest).assertValid();
   return value;
}

U64 TimestampFetcher::hpxTimestamp(const Pondo::String& timestampType) {
   trace(8, "hpxTimestamp, timestampType: {}", timestampType);
   if (timestampType != "ptp_timestamp") return readHpxCounter(timestampType);
   return hpxNegIncNumReadRetries_ ? hpxTimestampWithRetry(timestampType) : hpxTimestampWithNoRetry(timestampType);
}

void TimestampFetcher::traceNotIncreased(U64 current) const {
   trace(0, "[WARNING] HPX TS did not increase: current = {} = 0x{:x}, previous = {} = 0x{:x}, error count = {}",
         current, current, prevHpxTime_, prevHpxTime_, errors_);
}

U64 TimestampFetcher::hpxTimestampWithNoRetry(const Pondo::String& timestampType) {
   Kiv::kassert(timestampType == "ptp_timestamp", "timestampType == \"ptp_timestamp\"");
   const U64 current = readHpxCounter(timestampType);
   trace(5, "HPX TS: current = {} = 0x{:x}, previous = {} = 0x{:x}", current, current, prevHpxTime_, prevHpxTime_);
   U64 result = current;
   // An equal value passes; only a strict decrease is an error here.
   if (std::int64_t(current - prevHpxTime_) < 0) {
      errorsInc(1);
      traceNotIncreased(current);
      result = 0;
   }
   prevHpxTimeIs(current);
   return result;
}

U64 TimestampFetcher::hpxTimestampWithRetry(const Pondo::String& timestampType) {
   Kiv::kassert(timestampType == "ptp_timestamp", "timestampType == \"ptp_timestamp\"");
   // Wider than the setting, so that 255 retries end too.
   unsigned retries = 0;
   U64 current;
   for (;;) {
      current = readHpxCounter(timestampType);
      trace(5, "HPX TS: current = {} = 0x{:x}, previous = {} = 0x{:x}", current, current, prevHpxTime_, prevHpxTime_);
      // Unlike the single read, an unchanged value counts as not increased.
      const std::int64_t step = std::int64_t(current - prevHpxTime_);
      if (step > 0) break;
      errorsInc(1);
      traceNotIncreased(current);
      // A step back of a second or more is a real time change: no re-read.
      if (step < -999'999'999) break;
      trace(1, "re-read HPX TS, number of retries: {}", errors_);
      if (++retries > hpxNegIncNumReadRetries_) break;
   }
   prevHpxTimeIs(current);
   return current;
}

GpioSampleStatus TimestampFetcher::hpxGpioTimestampStatus() const {
   trace(8, "hpxGpioTimestampStatus");
   Hpx::Ham* ham = activeHpxHam();
   if (!ham) {
      trace(8, "activeHpxHam does not exist");
      return GpioSampleStatus::ready;
   }
   ham->valueRead("ptp_gpio_sample_status");
   const char* rest = nullptr;
   return gpioSampleStatus(toU64(ham->result().c_str(), rest));
}

GpioSampleStatus TimestampFetcher::hpxGpioTimestampStatusFromOffset(U32 regOffset) const {
   trace(8, "hpxGpioTimestampStatusFromOffset regOffset={}", regOffset);
   Hpx::Ham* ham = activeHpxHam();
   if (!ham) {
      trace(8, "activeHpxHam does not exist");
      return GpioSampleStatus::ready;
   }
   const Hpx::Reg32 reg{regOffset};
   U32 v = 0;
   ham->registerRead(reg, v);
   trace(7, "hpxGpioTimestampStatusFromOffset STATUS={}; regObject={}", v, reg);
   return gpioSampleStatus(v);
}

U64 TimestampFetcher::egressTimestamp(Wyx::IntfId intfId, U32 sequenceId, U32 asicTimestamp) {
   return calcEgressTimestamp(hpxTimestamp("ptp_timestamp"), intfId, sequenceId, asicTimestamp);
}

U64 AsicTimestampFetcher::asicTimestamp() {
   trace(8, "asicTimestamp");
   Kiv::kassert(timestampReady(), "timestampReady()");
   U64 timeOfDay = 0;
   if (readAsicTimestamp(fileStatus_->timestampFd(), timeOfDay) != 0) {
      const int err = errno;
      trace(1, "asicTimestamp Failed to read file {} errno: {}", fileConfig_->timestampPath(), std::strerror(err));
      // The file machine closes the file and polls for it again.
      fileConfig_->startPollingGenIdInc(1);
      return 0;
   }
   return timeOfDay;
}

U64 AsicTimestampFetcher::egressTimestamp(Wyx::IntfId intfId, U32 sequenceId, U32 asicTimestamp) {
   const U64 timeOfDay = this->asicTimestamp();
   if (timeOfDay == 0) return 0;
   return calcEgressTimestamp(timeOfDay, intfId, sequenceId, asicTimestamp);
}

AsicTimestampFileSm::AsicTimestampFileSm(Pondo::Ptr<const AsicTimestampFileConfig> config,
                                         Pondo::Ptr<AsicTimestampFileStatus> status, Pondo::Ptr<Kiv::Clock> clock)
    : config_(this, Kiv::nonNull(config, "config"),
              Kiv::on<AsicTimestampFileConfig::startPollingGenId_t, &AsicTimestampFileSm::handleStartPollingGenId>),
      status_(Kiv::nonNull(status, "status")),
      clock_(std::move(clock)) {
   // A wake-up runs as a handler, so that what it publishes cannot start
   // another attempt inside this one.
   if (clock_) kivClock_.emplace(clock_, [this] { run([this] { pollAsicTimeReady(); }); });
}

void AsicTimestampFileSm::handleStartPollingGenId() { pollAsicTimeReady(); }

void AsicTimestampFileSm::handleInitialized() { pollAsicTimeReady(); }

void AsicTimestampFileSm::onDestruct() {
   if (status_->timestampFd() < 0) return;
   ::close(status_->timestampFd());
   status_->timestampFdIs(-1);
}

void AsicTimestampFileSm::pollAsicTimeReady() {
   const AsicTimestampFileConfig& cfg = *config_;
   // The status keeps the old number until this attempt ends; a reopened file
   // often gets it again, and then nothing is published.
   if (status_->timestampFd() >= 0) ::close(status_->timestampFd());

   int fd = Platform::fileOpen(cfg.timestampPath(), O_RDONLY | O_CLOEXEC);
   if (fd < 0) {
      trace(9, "pollAsicTimeReady{} not found", cfg.timestampPath());
   } else {
      const bool initFailed = cfg.initCounter() && !Platform::fileWrite(cfg.counterConfigPath(),
                                                                        AsicTimestampFileConfig::counterInitCommand);
      U64 timeOfDay = 0;
      // A counter that is not running yet reads 0. A failed "init" write is
      // checked only after that, once the file is otherwise usable.
      const bool notRunning = cfg.waitForCounterInit() && (readAsicTimestamp(fd, timeOfDay) != 0 || timeOfDay == 0);
      if (notRunning || initFailed) {
         ::close(fd);
         fd = -1;
      }
   }

   status_->timestampFdIs(fd);
   if (kivClock_) kivClock_->timeMinIs(fd >= 0 ? Kiv::kNever : clock_->now() + pollPeriod);
   trace(8, "pollAsicTimeReady{} now ready: {}", cfg.timestampPath(), status_->timestampFd() >= 0);
}

Pondo::Ptr<AsicTimestampFileConfig> AsicTimestampFetcherWrapper::fileConfigIs(Pondo::String timestampPath,
                                                                              Pondo::String counterConfigPath,
                                                                              bool initCounter,
                                                                              bool waitForCounterInit) {
   if (!fileConfig_) {
      set(fileConfig_,
          Kiv::make<AsicTimestampFileConfig>(std::move(timestampPath), std::move(counterConfigPath), initCounter,
                                             waitForCounterInit),
          F::fileConfig);
   }
   return fileConfig_;
}

Pondo::Ptr<AsicTimestampFileStatus> AsicTimestampFetcherWrapper::fileStatusIs() {
   if (!fileStatus_) set(fileStatus_, Kiv::make<AsicTimestampFileStatus>(), F::fileStatus);
   return fileStatus_;
}

Pondo::Ptr<AsicTimestampFileSm> AsicTimestampFetcherWrapper::fileSmIs(Pondo::Ptr<const AsicTimestampFileConfig> config,
                                                                      Pondo::Ptr<AsicTimestampFileStatus> status,
                                                                      Pondo::Ptr<Kiv::Clock> clock) {
   // Checked also when the machine exists and the arguments would go unused.
   Kiv::nonNull(config, "config");
   Kiv::nonNull(status, "status");
   if (!fileSm_) {
      set(fileSm_, Kiv::make<AsicTimestampFileSm>(std::move(config), std::move(status), std::move(clock)), F::fileSm);
   }
   return fileSm_;
}

void AsicTimestampFetcherWrapper::handleInitialized() {
   fileConfigIs(fmt::sprintf(AsicTimeConstants::defaultTimestampPathFmt(), unsigned(kernelUnitId_)),
                fmt::sprintf(AsicTimeConstants::defaultCounterConfigPathFmt(), unsigned(kernelUnitId_)), initCounter_,
                waitForCounterInit_);
   fileStatusIs();
   Kiv::kassert(fileConfig(), "fileConfig()");
   Kiv::kassert(fileStatus(), "fileStatus()");
   fileSmIs(fileConfig_, fileStatus_, Kiv::activityManager().clock());
   Kiv::kassert(fileSm(), "fileSm()");
   set(timestampFetcher_, Kiv::make<AsicTimestampFetcher>(fileConfig_, fileStatus_), F::timestampFetcher);
   Kiv::kassert(timestampFetcher(), "timestampFetcher()");
}

Pondo::Ptr<TimestampFetcher> timestampFetcherFactory(Pondo::Ptr<const PtpTimeSync::Status> ptpTimeSyncStatus,
                                                     Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig) {
   return Kiv::make<TimestampFetcher>(std::move(ptpTimeSyncStatus), std::move(ptpTimeSyncConfig));
}

Pondo::Ptr<AsicTimestampFileSm> asicTimestampFileSmFactory(Pondo::Ptr<const AsicTimestampFileConfig> config,
                                                           Pondo::Ptr<AsicTimestampFileStatus> status,
                                                           Pondo::Ptr<Kiv::Clock> clock) {
   return Kiv::make<AsicTimestampFileSm>(std::move(config), std::move(status), std::move(clock));
}

Pondo::Ptr<AsicTimestampFetcherWrapper> asicTimestampFetcherWrapperFactory(U8 kernelUnitId, bool initCounter,
                                                                           bool waitForCounterInit) {
   return Kiv::make<AsicTimestampFetcherWrapper>(kernelUnitId, initCounter, waitForCounterInit);
}

Pondo::Ptr<TimestampFetcher> TimestampFetcherIs(Pondo::Ptr<const PtpTimeSync::Status> ptpTimeSyncStatus,
                                                Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig) {
   return timestampFetcherFactory(std::move(ptpTimeSyncStatus), std::move(ptpTimeSyncConfig));
}

Pondo::Ptr<AsicTimestampFileSm> AsicTimestampFileSmIs(Pondo::Ptr<const AsicTimestampFileConfig> config,
                                                      Pondo::Ptr<AsicTimestampFileStatus> status,
                                                      Pondo::Ptr<Kiv::Clock> clock) {
   return asicTimestampFileSmFactory(std::move(config), std::move(status), std::move(clock));
}

Pondo::Ptr<AsicTimestampFetcherWrapper> AsicTimestampFetcherWrapperIs(U8 kernelUnitId, bool initCounter,
                                                                      bool waitForCounterInit) {
   return asicTimestampFetcherWrapperFactory(kernelUnitId, initCounter, waitForCounterInit);
}

}  // namespace VyrPtp
