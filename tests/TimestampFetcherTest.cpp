// Full time from the FPGA's PTP counter: the active device, counter reads and
// their checks, retries, GPIO sample status; the simulated device itself.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Hpx/SimHam.h"
#include "TraceCapture.h"
#include "VyrPtp/VyrHelperPtp.h"

using VyrPtp::GpioSampleStatus;
using VyrPtp::U32;
using VyrPtp::U64;

namespace {

constexpr U64 kSecond = 1'000'000'000;

class TimestampFetcher : public ::testing::Test {
  protected:
   void SetUp() override {
      Kiv::activityManager().virtualTimeIs(0, 1.7e9);
      unsetenv("SIMULATION_VMID");
      ham = Kiv::make<Hpx::SimHam>("hpx1");  // its counter starts at the loop's UTC time
      config->hpxIs("hpx1")->hamIs(ham);
      status->activeHpxIs("hpx1");
   }
   void TearDown() override { unsetenv("SIMULATION_VMID"); }

   // The counter reads `value` on every read.
   void counterStaysAt(U64 value) {
      ham->stalledIs(true);
      ham->counterIs(value);
   }

   Pondo::Ptr<PtpTimeSync::Status> status = Kiv::make<PtpTimeSync::Status>("timeSyncStatus");
   Pondo::Ptr<PtpTimeSync::Config> config = Kiv::make<PtpTimeSync::Config>("timeSyncConfig");
   Pondo::Ptr<Hpx::SimHam> ham;
   Pondo::Ptr<VyrPtp::TimestampFetcher> fetcher = VyrPtp::timestampFetcherFactory(status, config);
   TraceCapture traces{"VyrPtp"};
};

TEST_F(TimestampFetcher, StartsWithOneRetryNoErrorsNoPreviousTime) {
   EXPECT_EQ(fetcher->hpxNegIncNumReadRetries(), 1);
   EXPECT_EQ(fetcher->errors(), 0u);
   EXPECT_EQ(fetcher->prevHpxTime(), 0u);
   EXPECT_EQ(fetcher->errorsInc(3), 3u);
   fetcher->errorsIs(0);
   EXPECT_EQ(fetcher->errors(), 0u);
}

TEST_F(TimestampFetcher, ActiveHpxIsTheNamedDeviceWithAnAccessObject) {
   EXPECT_EQ(fetcher->activeHpxHam(), ham.get());
   EXPECT_TRUE(fetcher->timestampReady());
   ham->readyIs(false);
   EXPECT_FALSE(fetcher->timestampReady());
   ham->readyIs(true);

   status->activeHpxIs("hpx2");  // no such device
   EXPECT_EQ(fetcher->activeHpxHam(), nullptr);
   config->hpxIs("hpx2");  // a device without access object
   EXPECT_EQ(fetcher->activeHpxHam(), nullptr);
   status->activeHpxIs("");
   EXPECT_EQ(fetcher->activeHpxHam(), nullptr);
   EXPECT_FALSE(fetcher->timestampReady());
   EXPECT_TRUE(traces.has(8, "activeHpxHam"));
}

TEST_F(TimestampFetcher, WithoutActiveHpxCountersReadZeroAndGpioReady) {
   status->activeHpxIs("");
   traces.clear();
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), 0u);
   EXPECT_TRUE(traces.has(8, "activeHpxHam does not exist"));
   EXPECT_EQ(fetcher->hpxGpioTimestampStatus(), GpioSampleStatus::ready);
   EXPECT_EQ(fetcher->hpxGpioTimestampStatusFromOffset(0x40), GpioSampleStatus::ready);
   EXPECT_EQ(traces.count(8, "activeHpxHam does not exist"), 3u);
   EXPECT_TRUE(traces.has(8, "hpxGpioTimestampStatus"));
   EXPECT_TRUE(traces.has(8, "hpxGpioTimestampStatusFromOffset regOffset=64"));
   EXPECT_EQ(ham->valueReads(), 0u);
}

// A missing status or configuration of time synchronisation is no active device.
TEST_F(TimestampFetcher, WithoutTimeSyncEntitiesThereIsNoActiveHpx) {
   for (auto made : {VyrPtp::timestampFetcherFactory(nullptr, config), VyrPtp::timestampFetcherFactory(status, nullptr),
                     VyrPtp::timestampFetcherFactory(nullptr, nullptr)}) {
      EXPECT_EQ(made->activeHpxHam(), nullptr);
      EXPECT_FALSE(made->timestampReady());
      EXPECT_EQ(made->readHpxCounter("ptp_timestamp"), 0u);
      EXPECT_EQ(made->hpxGpioTimestampStatus(), GpioSampleStatus::ready);
   }
   EXPECT_EQ(ham->valueReads(), 0u);
}

TEST_F(TimestampFetcher, CounterFollowsTheLoopClock) {
   const U64 first = fetcher->readHpxCounter("ptp_timestamp");
   EXPECT_EQ(first, 1'700'000'000 * kSecond);
   Kiv::activityManager().runFor(0.25);
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), first + kSecond / 4);
   EXPECT_TRUE(traces.records.size() == 2u && traces.count(8, "activeHpxHam") == 2u);
}

TEST_F(TimestampFetcher, NonDecimalCounterTextIsTracedAndItsNumberUsed) {
   ham->textIs("ptp_timestamp", "12ab");
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), 12u);
   EXPECT_TRUE(traces.has(0, "Error: The timestamp used isn't a valid U64: 12ab"));
   EXPECT_TRUE(traces.has(0, "Here is the invalid portion: ab"));

   traces.clear();
   ham->textIs("ptp_timestamp", "");
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), 0u);
   EXPECT_TRUE(traces.has(0, "Error: The timestamp used isn't a valid U64: "));
   EXPECT_TRUE(traces.has(0, "Here is the invalid portion: "));
}

// The counter is read as strtoull reads its text: the usual plain digits, and
// the rest (spaces, signs, overflow) as well. Fixed seed, printed.
TEST_F(TimestampFetcher, CounterTextReadsAsStrtoullReadsIt) {
   std::vector<std::string> texts = {"0",
                                     "7",
                                     "18446744073709551615",
                                     "18446744073709551616",
                                     "99999999999999999999",
                                     " 12",
                                     "+5",
                                     "-1",
                                     "0012",
                                     "1 2",
                                     "x",
                                     "\t9",
                                     "184467440737095516150"};
   const unsigned seed = 20261124;
   std::printf("seed %u\n", seed);
   std::mt19937_64 random(seed);
   for (int i = 0; i < 100000; ++i) {
      std::string t = std::to_string(random() >> (random() % 64));
      if (i % 4 == 0) t += std::string(1, "x 9-"[random() % 4]) + std::to_string(random() % 1000);
      if (i % 8 == 1) t = std::to_string(random()) + std::to_string(random() % 100);  // beyond 64 bits
      texts.push_back(t);
   }
   for (const std::string& t : texts) {
      ham->textIs("ptp_timestamp", t);
      char* end = nullptr;
      const std::uint64_t expected = std::strtoull(t.c_str(), &end, 10);
      ASSERT_EQ(fetcher->readHpxCounter("ptp_timestamp"), expected) << '"' << t << '"';
   }
}

TEST_F(TimestampFetcher, CounterTextEndsAtItsFirstZeroByte) {
   ham->textIs("ptp_timestamp", std::string("12\0ab", 5));
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), 12u);
   EXPECT_TRUE(traces.records.size() == 1u && traces.has(8, "activeHpxHam"));
   ham->textIs("ptp_timestamp", std::string("\0"
                                            "12",
                                            3));
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), 0u);
   EXPECT_TRUE(traces.has(0, "Error: The timestamp used isn't a valid U64: "));
}

TEST_F(TimestampFetcher, SimulationDoesNotValidateCounterText) {
   setenv("SIMULATION_VMID", "1", 1);
   auto simulated = VyrPtp::timestampFetcherFactory(status, config);
   EXPECT_TRUE(simulated->simulation());
   ham->textIs("ptp_timestamp", "12ab");
   EXPECT_EQ(simulated->readHpxCounter("ptp_timestamp"), 12u);
   EXPECT_EQ(traces.count(0, "Error: The timestamp used isn't a valid U64: 12ab"), 0u);
}

// The environment counts at each read, from the moment it is set; a test's
// choice counts whatever the environment says.
TEST_F(TimestampFetcher, SimulationFollowsTheEnvironmentUnlessATestChose) {
   ham->textIs("ptp_timestamp", "12ab");
   EXPECT_FALSE(fetcher->simulation());
   fetcher->readHpxCounter("ptp_timestamp");
   EXPECT_EQ(traces.count(0, "Error: The timestamp used isn't a valid U64: 12ab"), 1u);
   setenv("SIMULATION_VMID", "1", 1);
   EXPECT_TRUE(fetcher->simulation());
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), 12u);
   EXPECT_EQ(traces.count(0, "Error: The timestamp used isn't a valid U64: 12ab"), 1u);
   unsetenv("SIMULATION_VMID");
   fetcher->readHpxCounter("ptp_timestamp");
   EXPECT_EQ(traces.count(0, "Error: The timestamp used isn't a valid U64: 12ab"), 2u);

   fetcher->simulationIs(true);
   fetcher->readHpxCounter("ptp_timestamp");
   EXPECT_EQ(traces.count(0, "Error: The timestamp used isn't a valid U64: 12ab"), 2u);
   setenv("SIMULATION_VMID", "1", 1);
   fetcher->simulationIs(false);
   fetcher->readHpxCounter("ptp_timestamp");
   EXPECT_EQ(traces.count(0, "Error: The timestamp used isn't a valid U64: 12ab"), 3u);
}

// The device found by name is kept until time synchronisation changes.
TEST_F(TimestampFetcher, ActiveHpxFollowsChangesOfStatusAndConfiguration) {
   EXPECT_EQ(fetcher->activeHpxHam(), ham.get());
   auto other = Kiv::make<Hpx::SimHam>("hpx2");
   config->hpxIs("hpx2")->hamIs(other);
   status->activeHpxIs("hpx2");
   EXPECT_EQ(fetcher->activeHpxHam(), other.get());
   auto replacement = Kiv::make<Hpx::SimHam>("hpx2");
   config->hpx("hpx2")->hamIs(replacement);
   EXPECT_EQ(fetcher->activeHpxHam(), replacement.get());
   config->hpxDel("hpx2");
   EXPECT_EQ(fetcher->activeHpxHam(), nullptr);
   EXPECT_EQ(fetcher->readHpxCounter("ptp_timestamp"), 0u);
   EXPECT_TRUE(traces.has(8, "activeHpxHam does not exist"));
   status->activeHpxIs("");
   config->hpxIs("hpx2")->hamIs(other);
   EXPECT_EQ(fetcher->activeHpxHam(), nullptr);
   status->activeHpxIs("hpx1");
   EXPECT_EQ(fetcher->activeHpxHam(), ham.get());
   EXPECT_EQ(traces.count(8, "activeHpxHam"), 7u);  // traced on every call
}

TEST_F(TimestampFetcher, OtherTypesAreReadUnchecked) {
   ham->textIs("tod_timestamp", "77");
   fetcher->prevHpxTimeIs(100);
   EXPECT_EQ(fetcher->hpxTimestamp("tod_timestamp"), 77u);
   EXPECT_TRUE(traces.has(8, "hpxTimestamp, timestampType: tod_timestamp"));
   EXPECT_EQ(fetcher->errors(), 0u);
   EXPECT_EQ(fetcher->prevHpxTime(), 100u);
}

TEST_F(TimestampFetcher, IncreasingCounterIsReadOnce) {
   fetcher->prevHpxTimeIs(100);
   counterStaysAt(101);
   EXPECT_EQ(fetcher->hpxTimestamp("ptp_timestamp"), 101u);
   EXPECT_EQ(ham->valueReads(), 1u);
   EXPECT_EQ(fetcher->errors(), 0u);
   EXPECT_EQ(fetcher->prevHpxTime(), 101u);
   EXPECT_TRUE(traces.has(5, "HPX TS: current = 101 = 0x65, previous = 100 = 0x64"));
}

TEST_F(TimestampFetcher, RetryCountsAnUnchangedValueAndRereadsOnce) {
   fetcher->prevHpxTimeIs(100);
   counterStaysAt(100);
   EXPECT_EQ(fetcher->hpxTimestamp("ptp_timestamp"), 100u);
   EXPECT_EQ(ham->valueReads(), 2u);
   EXPECT_EQ(fetcher->errors(), 2u);
   EXPECT_EQ(fetcher->prevHpxTime(), 100u);
   EXPECT_EQ(traces.count(5, "HPX TS: current = 100 = 0x64, previous = 100 = 0x64"), 2u);
   EXPECT_TRUE(traces.has(0,
                          "[WARNING] HPX TS did not increase: current = 100 = 0x64, previous = 100 = 0x64, "
                          "error count = 1"));
   EXPECT_TRUE(traces.has(0,
                          "[WARNING] HPX TS did not increase: current = 100 = 0x64, previous = 100 = 0x64, "
                          "error count = 2"));
   // The running error count is what the re-read trace shows.
   EXPECT_TRUE(traces.has(1, "re-read HPX TS, number of retries: 1"));
   EXPECT_TRUE(traces.has(1, "re-read HPX TS, number of retries: 2"));
}

TEST_F(TimestampFetcher, RetryReadsAtMostRetriesPlusOneTimes) {
   fetcher->hpxNegIncNumReadRetriesIs(3);
   fetcher->errorsInc(10);
   fetcher->prevHpxTimeIs(5 * kSecond);
   counterStaysAt(5 * kSecond - 10);
   EXPECT_EQ(fetcher->hpxTimestamp("ptp_timestamp"), 5 * kSecond - 10);
   EXPECT_EQ(ham->valueReads(), 4u);
   EXPECT_EQ(fetcher->errors(), 14u);
   EXPECT_TRUE(traces.has(1, "re-read HPX TS, number of retries: 14"));
}

// An 8-bit setting of 255 must end as well: 256 reads of a stalled counter.
TEST_F(TimestampFetcher, RetryWith255RetriesEndsAfter256Reads) {
   fetcher->hpxNegIncNumReadRetriesIs(255);
   fetcher->prevHpxTimeIs(5 * kSecond);
   counterStaysAt(5 * kSecond);
   EXPECT_EQ(fetcher->hpxTimestamp("ptp_timestamp"), 5 * kSecond);
   EXPECT_EQ(ham->valueReads(), 256u);
   EXPECT_EQ(fetcher->errors(), 256u);
   EXPECT_EQ(fetcher->prevHpxTime(), 5 * kSecond);
   EXPECT_EQ(traces.count(0,
                          "[WARNING] HPX TS did not increase: current = 5000000000 = 0x12a05f200, "
                          "previous = 5000000000 = 0x12a05f200, error count = 256"),
             1u);
   EXPECT_TRUE(traces.has(1, "re-read HPX TS, number of retries: 256"));
}

TEST_F(TimestampFetcher, RetryDoesNotRereadAStepBackOfOneSecondOrMore) {
   fetcher->prevHpxTimeIs(5 * kSecond);
   counterStaysAt(3 * kSecond);
   EXPECT_EQ(fetcher->hpxTimestamp("ptp_timestamp"), 3 * kSecond);
   EXPECT_EQ(ham->valueReads(), 1u);
   EXPECT_EQ(fetcher->errors(), 1u);
   EXPECT_EQ(fetcher->prevHpxTime(), 3 * kSecond);
   EXPECT_EQ(traces.count(1, "re-read HPX TS, number of retries: 1"), 0u);
   EXPECT_TRUE(traces.has(0,
                          "[WARNING] HPX TS did not increase: current = 3000000000 = 0xb2d05e00, "
                          "previous = 5000000000 = 0x12a05f200, error count = 1"));

   // Exactly one second back is a time change; one nanosecond less is re-read.
   fetcher->prevHpxTimeIs(5 * kSecond);
   counterStaysAt(4 * kSecond);
   fetcher->hpxTimestamp("ptp_timestamp");
   EXPECT_EQ(ham->valueReads(), 2u);
   fetcher->prevHpxTimeIs(5 * kSecond);
   counterStaysAt(4 * kSecond + 1);
   fetcher->hpxTimestamp("ptp_timestamp");
   EXPECT_EQ(ham->valueReads(), 4u);
}

TEST_F(TimestampFetcher, SingleReadAcceptsAnEqualValue) {
   fetcher->hpxNegIncNumReadRetriesIs(0);
   fetcher->prevHpxTimeIs(100);
   counterStaysAt(100);
   EXPECT_EQ(fetcher->hpxTimestamp("ptp_timestamp"), 100u);
   EXPECT_EQ(fetcher->errors(), 0u);
   EXPECT_EQ(ham->valueReads(), 1u);
}

TEST_F(TimestampFetcher, SingleReadYieldsZeroForADecreaseAndKeepsTheValueRead) {
   fetcher->hpxNegIncNumReadRetriesIs(0);
   fetcher->prevHpxTimeIs(100);
   counterStaysAt(50);
   EXPECT_EQ(fetcher->hpxTimestamp("ptp_timestamp"), 0u);
   EXPECT_EQ(fetcher->errors(), 1u);
   EXPECT_EQ(fetcher->prevHpxTime(), 50u);
   EXPECT_EQ(ham->valueReads(), 1u);
   EXPECT_TRUE(traces.has(5, "HPX TS: current = 50 = 0x32, previous = 100 = 0x64"));
   EXPECT_TRUE(traces.has(0,
                          "[WARNING] HPX TS did not increase: current = 50 = 0x32, previous = 100 = 0x64, "
                          "error count = 1"));
}

TEST_F(TimestampFetcher, CounterVariantsAssertTheirType) {
   EXPECT_DEATH(fetcher->hpxTimestampWithRetry("tod_timestamp"), "timestampType == \"ptp_timestamp\"");
   EXPECT_DEATH(fetcher->hpxTimestampWithNoRetry("tod_timestamp"), "timestampType == \"ptp_timestamp\"");
}

TEST_F(TimestampFetcher, GpioSampleStatusFromNamedValue) {
   for (auto [text, expected] : {std::pair{"5", GpioSampleStatus::notAvailable},
                                 {"1", GpioSampleStatus::stale},
                                 {"0", GpioSampleStatus::ready},
                                 {"6", GpioSampleStatus::notAvailable},
                                 {"2", GpioSampleStatus::ready},
                                 {"3", GpioSampleStatus::stale}}) {
      ham->textIs("ptp_gpio_sample_status", text);
      EXPECT_EQ(fetcher->hpxGpioTimestampStatus(), expected) << text;
   }
   // Not validated: trailing text is ignored.
   ham->textIs("ptp_gpio_sample_status", "1x");
   EXPECT_EQ(fetcher->hpxGpioTimestampStatus(), GpioSampleStatus::stale);
   EXPECT_EQ(traces.count(0, "Error: The timestamp used isn't a valid U64: 1x"), 0u);
}

TEST_F(TimestampFetcher, GpioSampleStatusFromRegister) {
   ham->registerIs(Hpx::Reg32{0x40}, 5);
   ham->registerIs(Hpx::Reg32{0x44}, 1);
   EXPECT_EQ(fetcher->hpxGpioTimestampStatusFromOffset(0x40), GpioSampleStatus::notAvailable);
   EXPECT_EQ(fetcher->hpxGpioTimestampStatusFromOffset(0x44), GpioSampleStatus::stale);
   EXPECT_EQ(fetcher->hpxGpioTimestampStatusFromOffset(0x48), GpioSampleStatus::ready);
   EXPECT_TRUE(traces.has(8, "hpxGpioTimestampStatusFromOffset regOffset=64"));
   EXPECT_TRUE(traces.has(7, "hpxGpioTimestampStatusFromOffset STATUS=5; regObject=Reg32(offset: 0x40)"));
   EXPECT_TRUE(traces.has(7, "hpxGpioTimestampStatusFromOffset STATUS=0; regObject=Reg32(offset: 0x48)"));
}

TEST_F(TimestampFetcher, EgressTimestampWidensAgainstTheCounter) {
   const U64 latchedAt = 1'700'000'000 * kSecond + 0xFFFFFF00;
   counterStaysAt(latchedAt + 0x200);  // read after the low word wrapped
   EXPECT_EQ(fetcher->egressTimestamp(Wyx::IntfId("Et1/1"), 3, U32(latchedAt)), latchedAt);
   EXPECT_EQ(fetcher->prevHpxTime(), latchedAt + 0x200);
   EXPECT_EQ(traces.records.back().level, 3u);
}

TEST_F(TimestampFetcher, SingleReadZeroIsWidenedLikeAnyValue) {
   fetcher->hpxNegIncNumReadRetriesIs(0);
   fetcher->prevHpxTimeIs(100);
   counterStaysAt(50);
   EXPECT_EQ(fetcher->egressTimestamp(Wyx::IntfId("Et1/1"), 3, 0x20), 0xFFFFFFFF00000020u);
   EXPECT_TRUE(traces.has(0, "[WARNING]: The timestamp (0) is lower than the switchCounter (32)."));
}

TEST(GpioSampleStatusEnum, NamesValuesAndPrinting) {
   EXPECT_EQ(Pondo::enumName(GpioSampleStatus::notAvailable), "notAvailable");
   EXPECT_EQ(Pondo::enumFromName<GpioSampleStatus>("stale"), GpioSampleStatus::stale);
   EXPECT_EQ(Pondo::enumFromValue<GpioSampleStatus>(1), GpioSampleStatus::ready);
   EXPECT_EQ(Pondo::enumFromValue<GpioSampleStatus>(3), std::nullopt);
   EXPECT_EQ(fmt::format("{}", GpioSampleStatus::stale), "stale");
   std::ostringstream os;  // found by argument lookup, with no using-declaration
   os << GpioSampleStatus::ready;
   EXPECT_EQ(os.str(), "ready");
}

TEST(SimHam, CounterCanBeSetSteppedAndStalled) {
   Kiv::activityManager().virtualTimeIs(10, 1'000.25);
   auto ham = Kiv::make<Hpx::SimHam>("hpx");
   EXPECT_TRUE(ham->ready());
   EXPECT_EQ(ham->counter(), 1'000 * kSecond + kSecond / 4);
   ham->counterIs(5 * kSecond);
   Kiv::activityManager().runFor(1.5);
   EXPECT_EQ(ham->counter(), 6 * kSecond + kSecond / 2);
   ham->stepBy(-2 * std::int64_t(kSecond));
   EXPECT_EQ(ham->counter(), 4 * kSecond + kSecond / 2);
   ham->stalledIs(true);
   Kiv::activityManager().runFor(1);
   EXPECT_EQ(ham->counter(), 4 * kSecond + kSecond / 2);
   ham->stalledIs(false);
   Kiv::activityManager().runFor(1);
   EXPECT_EQ(ham->counter(), 5 * kSecond + kSecond / 2);
}

TEST(SimHam, NamedValuesAndRegisters) {
   Kiv::activityManager().virtualTimeIs(0, 2'000);
   auto ham = Kiv::make<Hpx::SimHam>("hpx");
   ham->valueRead("ptp_timestamp");
   EXPECT_EQ(ham->result(), "2000000000000");
   ham->valueRead("ptp_gpio_sample_status");
   EXPECT_EQ(ham->result(), "0");
   ham->textIs("ptp_timestamp", "garbage");
   ham->valueRead("ptp_timestamp");
   EXPECT_EQ(ham->result(), "garbage");
   ham->textDel("ptp_timestamp");
   ham->valueRead("ptp_timestamp");
   EXPECT_EQ(ham->result(), "2000000000000");
   EXPECT_EQ(ham->valueReads(), 4u);
   U32 v = 9;
   ham->registerRead(Hpx::Reg32{8}, v);
   EXPECT_EQ(v, 0u);
   ham->registerIs(Hpx::Reg32{8}, 6);
   ham->registerRead(Hpx::Reg32{8}, v);
   EXPECT_EQ(v, 6u);
}

}  // namespace
