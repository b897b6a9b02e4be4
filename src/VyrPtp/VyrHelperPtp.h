// ASIC time access. Chips stamp egress packets with the low 32 bits of their
// nanosecond counter; the full time (a U64 count of nanoseconds since the epoch)
// comes either from the PTP counter of the system-controller FPGA in use
// (TimestampFetcher) or from the kernel's ASIC time file of the chip
// (AsicTimestampFetcher, with the machine that opens and watches that file).
// The egress collectors hold a TimestampFetcherBase and widen each 32-bit
// timestamp through it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "Kiv/Activity.h"
#include "Kiv/Reactor.h"
#include "PtpTimeSync/Config.h"
#include "PtpTimeSync/Status.h"
#include "VyrPtp/Export.h"
#include "VyrPtp/VyrPtpGpioTypes.h"
#include "Wyx/IntfId.h"

namespace VyrPtp {

using U8 = std::uint8_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

// "SIMULATION_VMID" in the environment marks a simulated set-up. The FPGA
// fetcher then takes counter text unchecked, and the egress collectors publish
// the chips' timestamps as read, without a fetcher. Each of them reads the
// variable once, when it is created, and has a simulationIs() setter by which
// a test chooses either mode without touching the environment.
VYRPTP_EXPORT bool simulationVmidSet();

// Path templates of a chip's ASIC time files; "%u" is the kernel unit number.
struct AsicTimeConstants {
   static constexpr const char* defaultTimestampPathFmt = "/proc/asic-time/%u/ts";
   static constexpr const char* defaultCounterConfigPathFmt = "/proc/asic-time/%u/cfg";
};

// Reads one record "<time of day> <PTP time> <ASIC time>" from offset 0 of an
// open ASIC time file and consumes the file to its end. 0 on success, -1 when
// the first read gives nothing (errno as the read left it). Numbers that do not
// parse read as 0.
VYRPTP_EXPORT int readAsicTimestamp(int fd, U64& timeOfDay);

// One conversion of counter text into a number: the text and what the
// converter left unconsumed.
class VYRPTP_EXPORT Conversion : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { timestamp, invalidPortion };
   };
   Conversion(Pondo::String timestamp, Pondo::String invalidPortion)
       : timestamp_(std::move(timestamp)), invalidPortion_(std::move(invalidPortion)) {}

   const Pondo::String& timestamp() const { return timestamp_; }
   const Pondo::String& invalidPortion() const { return invalidPortion_; }

   bool valid() const { return valid(timestamp_, invalidPortion_); }
   static bool valid(std::string_view timestamp, std::string_view invalidPortion) {
      return !timestamp.empty() && invalidPortion.empty();
   }
   // Traces an invalid conversion at error level; never stops anything.
   void assertValid() const;

  private:
   Pondo::String timestamp_;
   Pondo::String invalidPortion_;
};

// A source of full time, and the widening arithmetic shared by all sources.
class VYRPTP_EXPORT TimestampFetcherBase : public Kiv::Entity {
  public:
   // Whether the source can be read now.
   virtual bool timestampReady() const = 0;
   // Full egress time of the packet whose chip timestamp is `asicTimestamp`;
   // 0 when no full time could be read.
   virtual U64 egressTimestamp(Wyx::IntfId intfId, U32 sequenceId, U32 asicTimestamp) = 0;

   static constexpr bool valid(U64 timestamp, U32 switchCounter) { return timestamp >= U64(switchCounter); }
   // Traces at error level when the full time is below the 32-bit value.
   static void assertValid(U64 timestamp, U32 switchCounter);
   // Widens `switchCounter`, latched before `timestamp` was read, to full time.
   // One wrap of the low word is corrected: the read must follow the latch by
   // less than 2^32 ns. An upper word of 0 underflows to 0xFFFFFFFF.
   static constexpr U64 switchTimestamp(U64 timestamp, U32 switchCounter) {
      return U64(upperWord(timestamp, switchCounter)) << 32 | switchCounter;
   }
   // `timestamp` with its upper word lowered when its low word has wrapped past `switchCounter`.
   static constexpr U64 handleRollover(U64 timestamp, U32 switchCounter) {
      return U64(upperWord(timestamp, switchCounter)) << 32 | U32(timestamp);
   }
   // The upper word of `timestamp` over `switchCounter`, uncorrected.
   static constexpr U64 applySwitchCounter(U64 timestamp, U32 switchCounter) {
      return (timestamp & 0xFFFF'FFFF'0000'0000ull) | switchCounter;
   }
   static constexpr U64 seconds(U64 timestamp) { return timestamp / 1'000'000'000u; }
   static constexpr U64 nanoseconds(U64 timestamp) { return timestamp % 1'000'000'000u; }
   // Checks, widens and traces one egress timestamp.
   static U64 calcEgressTimestamp(U64 timestamp, Wyx::IntfId intfId, U32 sequenceId, U32 switchCounter);
   // Traces the widened timestamp: at error level when it is more than one day
   // away from the system's UTC time, else at level 3.
   static void displayWarningIfIncorrect(U64 egressTimestamp, U32 asic32BitTimestamp, Wyx::IntfId intfId,
                                         U32 sequenceId);
   // Room for the longest detail text (130 characters).
   using DetailText = std::array<char, 136>;
   // Writes the detail text of a widened timestamp, byte for byte what printf
   // makes of "   seconds: 0x%x nanoseconds: 0x%x asic32bit_ts: 0x%x
   // egressTimestamp: 0x%llX sequenceId: %u", and returns it.
   static std::string_view detailText(DetailText& out, U64 egressTimestamp, U32 asic32BitTimestamp, U32 sequenceId);

  private:
   static constexpr U32 upperWord(U64 timestamp, U32 switchCounter) {
      const U32 hi = U32(timestamp >> 32);
      return U32(timestamp) < switchCounter ? U32(hi - 1) : hi;
   }
};

// Full time from the PTP counter of the FPGA that time synchronisation uses.
// The active device is looked up by name once and kept until time
// synchronisation's status or configuration changes.
class VYRPTP_EXPORT TimestampFetcher final : public TimestampFetcherBase, private Pondo::Subscriber {
  public:
   struct F {
      enum : Kiv::FieldId { ptpTimeSyncStatus, ptpTimeSyncConfig, hpxNegIncNumReadRetries, errors, prevHpxTime };
   };
   TimestampFetcher(Pondo::Ptr<const PtpTimeSync::Status> ptpTimeSyncStatus,
                    Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig);
   ~TimestampFetcher() override;

   const PtpTimeSync::Status* ptpTimeSyncStatus() const { return ptpTimeSyncStatus_.get(); }
   const PtpTimeSync::Config* ptpTimeSyncConfig() const { return ptpTimeSyncConfig_.get(); }
   // How often a counter read that did not increase is repeated; 0: never, and
   // a decrease then yields 0.
   U8 hpxNegIncNumReadRetries() const { return hpxNegIncNumReadRetries_; }
   void hpxNegIncNumReadRetriesIs(U8 n) { set(hpxNegIncNumReadRetries_, n, F::hpxNegIncNumReadRetries); }
   // Counter reads that did not increase.
   U32 errors() const { return errors_; }
   U32 errorsInc(U32 n) {
      set(errors_, U32(errors_ + n), F::errors);
      return errors_;
   }
   // The last counter value read.
   U64 prevHpxTime() const { return prevHpxTime_; }
   void prevHpxTimeIs(U64 t) { set(prevHpxTime_, t, F::prevHpxTime); }
   // Counter text is taken unchecked (see simulationVmidSet()).
   bool simulation() const { return simulation_; }
   void simulationIs(bool s) { simulation_ = s; }

   // The access object of the active FPGA, or null.
   Hpx::Ham* activeHpxHam() const;
   bool timestampReady() const override;
   // The named counter of the active FPGA; 0 without one.
   U64 readHpxCounter(const Pondo::String& name) const;
   // The named counter; "ptp_timestamp" is checked to increase.
   U64 hpxTimestamp(const Pondo::String& timestampType);
   U64 hpxTimestampWithRetry(const Pondo::String& timestampType);
   U64 hpxTimestampWithNoRetry(const Pondo::String& timestampType);
   GpioSampleStatus hpxGpioTimestampStatus() const;
   GpioSampleStatus hpxGpioTimestampStatusFromOffset(U32 regOffset) const;
   U64 egressTimestamp(Wyx::IntfId intfId, U32 sequenceId, U32 asicTimestamp) override;

  private:
   void traceNotIncreased(U64 current) const;
   // Any change of time synchronisation's status or configuration.
   void onChange(const Kiv::Change&) override { activeHpxKnown_ = false; }

   Pondo::Ptr<const PtpTimeSync::Status> ptpTimeSyncStatus_;
   Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig_;
   U8 hpxNegIncNumReadRetries_ = 1;
   U32 errors_ = 0;
   U64 prevHpxTime_ = 0;
   bool simulation_;
   mutable bool activeHpxKnown_ = false;
   mutable Hpx::Ham* activeHpx_ = nullptr;
};

// What the ASIC time file machine works on. Every change of startPollingGenId
// makes the machine close the file and start over.
class VYRPTP_EXPORT AsicTimestampFileConfig : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { timestampPath, counterConfigPath, initCounter, waitForCounterInit, startPollingGenId };
   };
   // Written into the counter configuration file to start the chip's counter.
   static constexpr const char* counterInitCommand = "init";

   AsicTimestampFileConfig(Pondo::String timestampPath, Pondo::String counterConfigPath, bool initCounter,
                           bool waitForCounterInit)
       : timestampPath_(std::move(timestampPath)),
         counterConfigPath_(std::move(counterConfigPath)),
         initCounter_(initCounter),
         waitForCounterInit_(waitForCounterInit) {}

   const Pondo::String& timestampPath() const { return timestampPath_; }
   const Pondo::String& counterConfigPath() const { return counterConfigPath_; }
   bool initCounter() const { return initCounter_; }
   bool waitForCounterInit() const { return waitForCounterInit_; }
   U8 startPollingGenId() const { return startPollingGenId_; }
   void startPollingGenIdIs(U8 g) { set(startPollingGenId_, g, F::startPollingGenId); }
   U8 startPollingGenIdInc(U8 n) {
      set(startPollingGenId_, U8(startPollingGenId_ + n), F::startPollingGenId);
      return startPollingGenId_;
   }

  private:
   Pondo::String timestampPath_;
   Pondo::String counterConfigPath_;
   bool initCounter_;
   bool waitForCounterInit_;
   U8 startPollingGenId_ = 0;
};

// The open descriptor of the ASIC time file, or -1.
class VYRPTP_EXPORT AsicTimestampFileStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { timestampFd };
   };
   std::int32_t timestampFd() const { return timestampFd_; }
   void timestampFdIs(std::int32_t fd) { set(timestampFd_, fd, F::timestampFd); }
   bool ready() const { return timestampFd_ >= 0; }

  private:
   std::int32_t timestampFd_ = -1;
};

// Full time from the chip's ASIC time file, read through the descriptor that
// the file machine publishes.
class VYRPTP_EXPORT AsicTimestampFetcher final : public TimestampFetcherBase {
  public:
   struct F {
      enum : Kiv::FieldId { fileConfig, fileStatus };
   };
   AsicTimestampFetcher(Pondo::Ptr<AsicTimestampFileConfig> fileConfig,
                        Pondo::Ptr<const AsicTimestampFileStatus> fileStatus);

   AsicTimestampFileConfig* fileConfig() const { return fileConfig_.get(); }
   const AsicTimestampFileStatus* fileStatus() const { return fileStatus_.get(); }

   bool timestampReady() const override { return fileStatus_->timestampFd() >= 0; }
   // The time of day of the file; 0 when the file could not be read, in which
   // case the file machine is made to reopen it. Callers check timestampReady().
   U64 asicTimestamp();
   U64 egressTimestamp(Wyx::IntfId intfId, U32 sequenceId, U32 asicTimestamp) override;

  private:
   Pondo::Ptr<AsicTimestampFileConfig> fileConfig_;
   Pondo::Ptr<const AsicTimestampFileStatus> fileStatus_;
};

// Opens the ASIC time file, optionally starts the chip's counter and waits for
// it to run, then publishes the descriptor; while the file is unusable it
// tries again every pollPeriod. Starts over on every startPollingGenId change.
// The descriptor is closed when the machine goes.
class VYRPTP_EXPORT AsicTimestampFileSm final : public Kiv::Reactor {
  public:
   static constexpr Kiv::Seconds pollPeriod = 1.0;

   // Without a clock there is no polling: one attempt per startPollingGenId.
   AsicTimestampFileSm(Pondo::Ptr<const AsicTimestampFileConfig> config, Pondo::Ptr<AsicTimestampFileStatus> status,
                       Pondo::Ptr<Kiv::Clock> clock);

   const AsicTimestampFileConfig* config() const { return config_.get(); }
   AsicTimestampFileStatus* status() const { return status_.get(); }
   // When the next attempt is due (loop time); kNever when not polling.
   Kiv::Seconds timeMin() const { return kivClock_ ? kivClock_->timeMin() : Kiv::kNever; }

  private:
   void on_config(const Kiv::Change& c);
   void handleInitialized() override;
   void onDestruct() override;
   void pollAsicTimeReady();

   Kiv::Input<const AsicTimestampFileConfig> config_;
   Pondo::Ptr<AsicTimestampFileStatus> status_;
   Pondo::Ptr<Kiv::Clock> clock_;
   std::optional<Kiv::ClockTimer> kivClock_;
};

// Everything that reads one kernel unit's ASIC time file: its configuration,
// status, file machine and fetcher, made together at construction.
class VYRPTP_EXPORT AsicTimestampFetcherWrapper final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         kernelUnitId,
         initCounter,
         waitForCounterInit,
         fileConfig,
         fileStatus,
         fileSm,
         timestampFetcher
      };
   };
   AsicTimestampFetcherWrapper(U8 kernelUnitId, bool initCounter, bool waitForCounterInit)
       : kernelUnitId_(kernelUnitId), initCounter_(initCounter), waitForCounterInit_(waitForCounterInit) {}

   U8 kernelUnitId() const { return kernelUnitId_; }
   bool initCounter() const { return initCounter_; }
   bool waitForCounterInit() const { return waitForCounterInit_; }

   AsicTimestampFileConfig* fileConfig() const { return fileConfig_.get(); }
   Pondo::Ptr<AsicTimestampFileConfig> fileConfigIs(Pondo::String timestampPath, Pondo::String counterConfigPath,
                                                    bool initCounter, bool waitForCounterInit);
   Pondo::Ptr<AsicTimestampFileConfig> fileConfigDel() { return release(fileConfig_, F::fileConfig); }

   AsicTimestampFileStatus* fileStatus() const { return fileStatus_.get(); }
   Pondo::Ptr<AsicTimestampFileStatus> fileStatusIs();
   Pondo::Ptr<AsicTimestampFileStatus> fileStatusDel() { return release(fileStatus_, F::fileStatus); }

   AsicTimestampFileSm* fileSm() const { return fileSm_.get(); }
   Pondo::Ptr<AsicTimestampFileSm> fileSmIs(Pondo::Ptr<const AsicTimestampFileConfig> config,
                                            Pondo::Ptr<AsicTimestampFileStatus> status, Pondo::Ptr<Kiv::Clock> clock);
   Pondo::Ptr<AsicTimestampFileSm> fileSmDel() { return release(fileSm_, F::fileSm); }

   AsicTimestampFetcher* timestampFetcher() const { return timestampFetcher_.get(); }

  private:
   void handleInitialized() override;
   template <class T>
   Pondo::Ptr<T> release(Pondo::Ptr<T>& slot, Kiv::FieldId field) {
      Pondo::Ptr<T> old = slot;
      set(slot, Pondo::Ptr<T>(), field);
      return old;
   }

   U8 kernelUnitId_;
   bool initCounter_;
   bool waitForCounterInit_;
   Pondo::Ptr<AsicTimestampFileConfig> fileConfig_;
   Pondo::Ptr<AsicTimestampFileStatus> fileStatus_;
   Pondo::Ptr<AsicTimestampFileSm> fileSm_;
   Pondo::Ptr<AsicTimestampFetcher> timestampFetcher_;
};

VYRPTP_EXPORT Pondo::Ptr<Conversion> conversionFactory(const Pondo::String& timestamp,
                                                       const Pondo::String& invalidPortion);
VYRPTP_EXPORT Pondo::Ptr<TimestampFetcher> timestampFetcherFactory(
    Pondo::Ptr<const PtpTimeSync::Status> ptpTimeSyncStatus, Pondo::Ptr<const PtpTimeSync::Config> ptpTimeSyncConfig);
VYRPTP_EXPORT Pondo::Ptr<AsicTimestampFileConfig> asicTimestampFileConfigFactory(const Pondo::String& timestampPath,
                                                                                 const Pondo::String& counterConfigPath,
                                                                                 bool initCounter,
                                                                                 bool waitForCounterInit);
VYRPTP_EXPORT Pondo::Ptr<AsicTimestampFileStatus> asicTimestampFileStatusFactory();
VYRPTP_EXPORT Pondo::Ptr<AsicTimestampFetcher> asicTimestampFetcherFactory(
    Pondo::Ptr<AsicTimestampFileConfig> fileConfig, Pondo::Ptr<const AsicTimestampFileStatus> fileStatus);
VYRPTP_EXPORT Pondo::Ptr<AsicTimestampFileSm> asicTimestampFileSmFactory(
    Pondo::Ptr<const AsicTimestampFileConfig> config, Pondo::Ptr<AsicTimestampFileStatus> status,
    Pondo::Ptr<Kiv::Clock> clock);
VYRPTP_EXPORT Pondo::Ptr<AsicTimestampFetcherWrapper> asicTimestampFetcherWrapperFactory(U8 kernelUnitId,
                                                                                         bool initCounter,
                                                                                         bool waitForCounterInit);

}  // namespace VyrPtp
