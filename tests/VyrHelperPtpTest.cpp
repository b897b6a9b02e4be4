// Widening of 32-bit chip time, its plausibility trace, counter text
// conversions and the reader of ASIC time file records.
#include "VyrPtp/VyrHelperPtp.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <random>

#include "TempDir.h"
#include "TraceCapture.h"

using VyrPtp::Conversion;
using VyrPtp::TimestampFetcherBase;
using VyrPtp::U32;
using VyrPtp::U64;

namespace {

constexpr U64 kSecond = 1'000'000'000;
constexpr double kUtcNow = 1.7e9;

class AsicTimeConversion : public ::testing::Test {
  protected:
   void SetUp() override { Kiv::activityManager().virtualTimeIs(0, kUtcNow); }
   TraceCapture traces{"VyrPtp"};
};

TEST_F(AsicTimeConversion, SwitchTimestampCorrectsOneWrap) {
   EXPECT_EQ(TimestampFetcherBase::switchTimestamp(0x0000000500000010, 0x20), 0x0000000400000020u);
   EXPECT_EQ(TimestampFetcherBase::switchTimestamp(0x0000000500000020, 0x20), 0x0000000500000020u);
   EXPECT_EQ(TimestampFetcherBase::switchTimestamp(0x0000000500000030, 0x20), 0x0000000500000020u);
}

TEST_F(AsicTimeConversion, SwitchTimestampUpperWordUnderflowsUnguarded) {
   EXPECT_EQ(TimestampFetcherBase::switchTimestamp(0x10, 0x20), 0xFFFFFFFF00000020u);
}

TEST_F(AsicTimeConversion, HandleRolloverKeepsLowWordApplySwitchCounterDoesNotCorrect) {
   EXPECT_EQ(TimestampFetcherBase::handleRollover(0x0000000500000010, 0x20), 0x0000000400000010u);
   EXPECT_EQ(TimestampFetcherBase::handleRollover(0x0000000500000020, 0x20), 0x0000000500000020u);
   EXPECT_EQ(TimestampFetcherBase::applySwitchCounter(0x0000000500000010, 0x20), 0x0000000500000020u);
}

TEST_F(AsicTimeConversion, SecondsAndNanoseconds) {
   EXPECT_EQ(TimestampFetcherBase::seconds(3 * kSecond + 999'999'999), 3u);
   EXPECT_EQ(TimestampFetcherBase::nanoseconds(3 * kSecond + 999'999'999), 999'999'999u);
   EXPECT_EQ(TimestampFetcherBase::seconds(~U64(0)), 18'446'744'073u);
   EXPECT_EQ(TimestampFetcherBase::nanoseconds(~U64(0)), 709'551'615u);
}

TEST_F(AsicTimeConversion, ValidAndAssertValid) {
   EXPECT_TRUE(TimestampFetcherBase::valid(0x10, 0x10));
   EXPECT_FALSE(TimestampFetcherBase::valid(0xF, 0x10));
   EXPECT_TRUE(TimestampFetcherBase::valid(0x100000000, 0xFFFFFFFF));

   TimestampFetcherBase::assertValid(0x10, 0x10);
   EXPECT_TRUE(traces.records.empty());
   TimestampFetcherBase::assertValid(0xF, 0x10);
   ASSERT_EQ(traces.records.size(), 1u);
   EXPECT_TRUE(traces.has(0, "[WARNING]: The timestamp (15) is lower than the switchCounter (16)."));
}

TEST_F(AsicTimeConversion, CalcEgressTimestampWidensAndTracesDetailAtLevel3) {
   const U64 egress = 1'700'000'000 * kSecond + 123'456'789;
   const U32 latched = U32(egress);
   // Read 2 s after the latch: the low word has wrapped since.
   EXPECT_EQ(TimestampFetcherBase::calcEgressTimestamp(egress + 2 * kSecond, Wyx::IntfId("Et3/1"), 7, latched), egress);
   ASSERT_EQ(traces.records.size(), 1u);
   EXPECT_TRUE(traces.has(3,
                          "   seconds: 0x6553f100 nanoseconds: 0x75bcd15 asic32bit_ts: 0x3d85cd15 "
                          "egressTimestamp: 0x17979CFE3D85CD15 sequenceId: 7"));
}

TEST_F(AsicTimeConversion, CalcEgressTimestampChecksBeforeWidening) {
   EXPECT_EQ(TimestampFetcherBase::calcEgressTimestamp(0xF, Wyx::IntfId("Et3/1"), 9, 0x10), 0xFFFFFFFF00000010u);
   ASSERT_EQ(traces.records.size(), 2u);
   EXPECT_EQ(traces.records[0].message, "[WARNING]: The timestamp (15) is lower than the switchCounter (16).");
   EXPECT_EQ(traces.records[1].level, 0u);
   EXPECT_EQ(traces.records[1].message,
             "WARNING! Incorrect egress timestamp on Et3/1    seconds: 0x4b82fa05 nanoseconds: 0x18b60e10 "
             "asic32bit_ts: 0x10 egressTimestamp: 0xFFFFFFFF00000010 sequenceId: 9");
}

// Whole seconds away from the system time (loop UTC 1.7e9 s).
U64 atOffset(std::int64_t seconds) { return U64(std::int64_t(kUtcNow) + seconds) * kSecond + 500; }

TEST_F(AsicTimeConversion, OneDayAwayIsPlausibleOneMoreSecondIsNot) {
   const Wyx::IntfId et("Ethernet4/2");
   for (std::int64_t s : {86400, -86400, 0}) {
      TimestampFetcherBase::displayWarningIfIncorrect(atOffset(s), 500, et, 1);
   }
   ASSERT_EQ(traces.records.size(), 3u);
   for (const auto& r : traces.records) EXPECT_EQ(r.level, 3u) << r.message;

   traces.clear();
   for (std::int64_t s : {86401, -86401}) TimestampFetcherBase::displayWarningIfIncorrect(atOffset(s), 500, et, 1);
   ASSERT_EQ(traces.records.size(), 2u);
   for (const auto& r : traces.records) {
      EXPECT_EQ(r.level, 0u);
      EXPECT_TRUE(r.message.starts_with("WARNING! Incorrect egress timestamp on Et4/2    seconds: 0x")) << r.message;
   }
}

TEST_F(AsicTimeConversion, PlausibilityFollowsTheLoopUtcTime) {
   const U64 stamp = atOffset(86401);
   TimestampFetcherBase::displayWarningIfIncorrect(stamp, 500, Wyx::IntfId("Et1/1"), 1);
   Kiv::activityManager().virtualTimeIs(0, kUtcNow + 1);
   TimestampFetcherBase::displayWarningIfIncorrect(stamp, 500, Wyx::IntfId("Et1/1"), 1);
   ASSERT_EQ(traces.records.size(), 2u);
   EXPECT_EQ(traces.records[0].level, 0u);
   EXPECT_EQ(traces.records[1].level, 3u);
}

TEST_F(AsicTimeConversion, TracesOnlyAtEnabledLevels) {
   Kiv::traceMaskIs("VyrPtp", 0);
   TimestampFetcherBase::calcEgressTimestamp(0xF, Wyx::IntfId("Et3/1"), 9, 0x10);
   EXPECT_TRUE(traces.records.empty());
}

// For any full time T and any delay d < 2^32 ns between latch and read,
// widening the latched low word against T + d gives T back (also across the
// top of the 64-bit range, where the arithmetic wraps).
TEST_F(AsicTimeConversion, WideningRecoversTheLatchedTimeProperty) {
   const U64 maxDelay = (U64(1) << 32) - 1;
   auto check = [](U64 t, U64 d) {
      ASSERT_EQ(TimestampFetcherBase::switchTimestamp(t + d, U32(t)), t) << "T=" << t << " d=" << d;
   };
   for (U64 t : {U64(0), U64(1), U64(0xFFFFFFFF), U64(0x100000000), U64(0x1FFFFFFFF), ~U64(0), ~U64(0) - maxDelay,
                 1'700'000'000 * kSecond}) {
      for (U64 d : {U64(0), U64(1), maxDelay - 1, maxDelay, U64(0xFFFFFFFF) - U32(t), U64(0x100000000) - U32(t) - 1}) {
         if (d <= maxDelay) check(t, d);
      }
   }
   std::mt19937_64 rng(20240501);
   std::uniform_int_distribution<U64> delay(0, maxDelay);
   for (int i = 0; i < 1'000'000; ++i) check(rng(), delay(rng));
   // Beyond one wrap the result is off by 2^32 ns: the read must follow the latch closely.
   EXPECT_EQ(TimestampFetcherBase::switchTimestamp(0x500000010 + maxDelay + 1, 0x10), 0x500000010u + (U64(1) << 32));
}

// The detail text is written without printf; it must be printf's bytes.
// The path templates read both as constants and as attributes, and compare by text.
TEST(AsicTimeConstants, PathTemplatesOfTheAsicTimeFiles) {
   using VyrPtp::AsicTimeConstants;
   EXPECT_EQ(AsicTimeConstants::defaultTimestampPathFmt, "/proc/asic-time/%u/ts");
   EXPECT_EQ(AsicTimeConstants().defaultCounterConfigPathFmt(), "/proc/asic-time/%u/cfg");
   EXPECT_EQ(std::string(AsicTimeConstants::defaultCounterConfigPathFmt), "/proc/asic-time/%u/cfg");
   EXPECT_FALSE(AsicTimeConstants::defaultTimestampPathFmt == "/proc/asic-time/%u/cfg");
   char path[32];
   std::snprintf(path, sizeof path, AsicTimeConstants::defaultTimestampPathFmt, 7u);
   EXPECT_STREQ(path, "/proc/asic-time/7/ts");
}

TEST(DetailText, SameBytesAsPrintfOverRandomValues) {
   const std::uint64_t seed = 20261122;
   std::cout << "seed " << seed << "\n";
   std::mt19937_64 rng(seed);
   auto check = [](U64 e, U32 c, U32 seq) {
      char expected[160];
      const int n =
          std::snprintf(expected, sizeof expected,
                        "   seconds: 0x%x nanoseconds: 0x%x asic32bit_ts: 0x%x egressTimestamp: 0x%llX sequenceId: %u",
                        U32(e / kSecond), U32(e % kSecond), c, static_cast<unsigned long long>(e), seq);
      TimestampFetcherBase::DetailText out;
      ASSERT_EQ(TimestampFetcherBase::detailText(out, e, c, seq), std::string_view(expected, std::size_t(n)))
          << "e=" << e << " c=" << c << " seq=" << seq;
   };
   for (U64 e : {U64(0), U64(1), U64(0xF), U64(0x10), ~U64(0), 1'700'000'000 * kSecond}) {
      for (U32 v : {U32(0), U32(9), U32(10), U32(0xFFFFFFFF)}) check(e, v, v);
   }
   // Values of every length: a random number shifted right by a random amount.
   for (int i = 0; i < 3'000'000; ++i) {
      const U64 e = rng() >> (rng() % 64);
      const U64 r = rng();
      check(e, U32(r) >> (r >> 32) % 32, U32(r >> 32) >> r % 32);
   }
}

TEST(Conversion, ValidOnlyForNonEmptyFullyConsumedText) {
   EXPECT_TRUE(VyrPtp::conversionFactory("123", "")->valid());
   EXPECT_FALSE(VyrPtp::conversionFactory("12a", "a")->valid());
   EXPECT_FALSE(VyrPtp::conversionFactory("", "")->valid());
}

TEST(Conversion, AssertValidTracesTextAndInvalidPortion) {
   TraceCapture traces("VyrPtp");
   VyrPtp::conversionFactory("123", "")->assertValid();
   EXPECT_TRUE(traces.records.empty());
   VyrPtp::conversionFactory("12a", "a")->assertValid();
   ASSERT_EQ(traces.records.size(), 2u);
   EXPECT_TRUE(traces.has(0, "Error: The timestamp used isn't a valid U64: 12a"));
   EXPECT_EQ(traces.records[1].message, "Here is the invalid portion: a");
   EXPECT_EQ(traces.records[1].level, 0u);
}

class ReadAsicTimestamp : public ::testing::Test {
  protected:
   int open(const std::string& text) {
      dir.write("ts", text);
      fd = ::open(dir.path("ts").c_str(), O_RDONLY);
      return fd;
   }
   void TearDown() override {
      if (fd >= 0) ::close(fd);
   }
   TempDir dir;
   int fd = -1;
   TraceCapture traces{"VyrPtp"};
};

TEST_F(ReadAsicTimestamp, ReadsTimeOfDayOfTheRecord) {
   ASSERT_GE(open("1700000000000000000 1700000000000000001 42\n"), 0);
   U64 tod = 7;
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), 0);
   EXPECT_EQ(tod, 1700000000000000000u);
   EXPECT_TRUE(traces.has(8,
                          "readAsicTimestamp Timestamps read ToD:1700000000000000000, PTP:1700000000000000001, "
                          "ASIC:42"));
}

TEST_F(ReadAsicTimestamp, EmptyFileFails) {
   ASSERT_GE(open(""), 0);
   U64 tod = 7;
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), -1);
   EXPECT_EQ(tod, 0u);
   EXPECT_TRUE(traces.records.empty());
}

TEST_F(ReadAsicTimestamp, FailedReadLeavesErrno) {
   fd = ::open(dir.path().c_str(), O_RDONLY);  // a directory opens but does not read
   ASSERT_GE(fd, 0);
   U64 tod = 7;
   errno = 0;
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), -1);
   EXPECT_EQ(errno, EISDIR);
   EXPECT_EQ(tod, 0u);
}

TEST_F(ReadAsicTimestamp, MalformedFieldsReadAsZero) {
   ASSERT_GE(open("12 x 34\n"), 0);
   U64 tod = 0;
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), 0);
   EXPECT_EQ(tod, 12u);
   EXPECT_TRUE(traces.has(8, "readAsicTimestamp Timestamps read ToD:12, PTP:0, ASIC:0"));

   ASSERT_EQ(::lseek(fd, 0, SEEK_SET), 0);
   dir.write("ts", "garbage");
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), 0);
   EXPECT_EQ(tod, 0u);
}

TEST_F(ReadAsicTimestamp, ConsumesTheFileAndRereadsFromTheStart) {
   const std::string record = "5 6 7\n";
   ASSERT_GE(open(record + std::string(200, ' ') + "9 9 9\n"), 0);
   U64 tod = 0;
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), 0);
   EXPECT_EQ(tod, 5u);
   EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), off_t(record.size() + 200 + 6));

   dir.write("ts", "8 6 7\n");  // the same open file, rewritten
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), 0);
   EXPECT_EQ(tod, 8u);
}

TEST_F(ReadAsicTimestamp, OnlyTheFirst62BytesAreParsed) {
   // The second number starts at byte 60 and is cut after its second digit.
   const std::string first(59, '1');
   ASSERT_GE(open(first + " 98765\n"), 0);
   U64 tod = 0;
   EXPECT_EQ(VyrPtp::readAsicTimestamp(fd, tod), 0);
   EXPECT_EQ(tod, ~U64(0));  // 59 digits saturate the converter
   EXPECT_TRUE(traces.has(8, "readAsicTimestamp Timestamps read ToD:18446744073709551615, PTP:98, ASIC:0"));
}

}  // namespace
