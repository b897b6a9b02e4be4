// Fuzzes the conversion of FPGA counter text: the PTP counter read with its
// validation, and the GPIO sample status. Checks: the counter reads as
// strtoull reads the text; the text is traced as invalid exactly when it is
// empty or strtoull leaves a rest; the counter read through hpxTimestamp is
// the value read; the status is one of the three known ones.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Hpx/SimHam.h"
#include "VyrPtp/VyrHelperPtp.h"

namespace {

struct Setup {
   Setup() {
      Kiv::traceMaskIs("VyrPtp", Kiv::kTraceAllLevels);
      Kiv::traceSinkIs([this](const Kiv::TraceRecord& r) {
         if (r.message.starts_with("Error: The timestamp used isn't a valid U64: ")) ++invalidTraces;
      });
      config->hpxIs("hpx1")->hamIs(ham);
      status->activeHpxIs("hpx1");
   }
   Pondo::Ptr<Hpx::SimHam> ham = Kiv::make<Hpx::SimHam>("hpx1");
   Pondo::Ptr<PtpTimeSync::Config> config = Kiv::make<PtpTimeSync::Config>("config");
   Pondo::Ptr<PtpTimeSync::Status> status = Kiv::make<PtpTimeSync::Status>("status");
   Pondo::Ptr<VyrPtp::TimestampFetcher> fetcher = VyrPtp::timestampFetcherFactory(status, config);
   int invalidTraces = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   static Setup s;
   const std::string text(reinterpret_cast<const char*>(data), size);
   // The device's text ends at its first zero byte.
   const std::string visible = text.c_str();

   s.ham->textIs("ptp_timestamp", text);
   s.invalidTraces = 0;
   const VyrPtp::U64 value = s.fetcher->readHpxCounter("ptp_timestamp");

   // The counter reads as strtoull reads it, and only text it does not take whole is traced.
   char* end = nullptr;
   if (value != std::strtoull(visible.c_str(), &end, 10)) std::abort();
   const bool invalid = visible.empty() || *end != '\0';
   if (s.invalidTraces != (invalid ? 1 : 0)) std::abort();

   s.fetcher->prevHpxTimeIs(value ^ 1);
   if (s.fetcher->hpxTimestamp("ptp_timestamp") != value || s.fetcher->prevHpxTime() != value) std::abort();

   s.ham->textIs("ptp_gpio_sample_status", text);
   const auto gpio = s.fetcher->hpxGpioTimestampStatus();
   if (!Pondo::enumFromValue<VyrPtp::GpioSampleStatus>(std::uint8_t(gpio))) std::abort();
   return 0;
}
