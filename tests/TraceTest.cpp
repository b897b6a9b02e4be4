// Tracing and assertions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <unistd.h>

#include "Kiv/Trace.h"
#include "TraceCapture.h"

namespace {

Kiv::Tracer trace{"TraceTest"};
Kiv::Tracer envTrace{"TraceTestEnv"};

// Counts how often it is formatted.
struct Counted {
   int* formatted;
};

}  // namespace

template <>
struct fmt::formatter<Counted> : fmt::formatter<fmt::string_view> {
   auto format(const Counted& c, fmt::format_context& ctx) const {
      ++*c.formatted;
      return fmt::formatter<fmt::string_view>::format("counted", ctx);
   }
};

namespace {

// Restores the handle's mask after each test.
class Trace : public ::testing::Test {
  protected:
   void TearDown() override {
      Kiv::traceSinkIs({});
      Kiv::traceMaskIs("TraceTest", 0);
   }
};

TEST_F(Trace, LevelNIsBitNOfTheMask) {
   trace.maskIs(0);
   for (Kiv::TraceLevel l = 0; l < 16; ++l) EXPECT_FALSE(trace.enabled(l));
   trace.maskIs(std::uint16_t(1u << 6 | 1u << 15));
   EXPECT_TRUE(trace.enabled(6));
   EXPECT_TRUE(trace.enabled(15));
   EXPECT_FALSE(trace.enabled(5));
   EXPECT_FALSE(trace.enabled(0));
}

TEST_F(Trace, ADisabledLevelFormatsNothing) {
   TraceCapture capture("TraceTest", std::uint16_t(1u << 6));
   int formatted = 0;
   Counted c{&formatted};
   trace(8, "handler {}", c);
   Kiv::TraceStream(trace, 8) << "handler " << c;
   Kiv::kassert(true, "never {}", c);
   EXPECT_EQ(formatted, 0);
   EXPECT_TRUE(capture.records.empty());
   trace(6, "verdict {}", c);
   Kiv::TraceStream(trace, 6) << "verdict " << c;
   EXPECT_EQ(formatted, 2);
   EXPECT_EQ(capture.records.size(), 2u);
}

TEST_F(Trace, BraceStyleMessages) {
   TraceCapture capture("TraceTest");
   trace(6, "hwIntfStatus for intfId: {} not ready for PTP", "Ethernet3/1");
   trace(5, "HPX TS: current = {} = 0x{:x}, delta = {}", 1234567890123ul, 1234567890123ul, -42);
   ASSERT_EQ(capture.records.size(), 2u);
   EXPECT_TRUE(capture.has(6, "hwIntfStatus for intfId: Ethernet3/1 not ready for PTP"));
   EXPECT_TRUE(capture.has(5, "HPX TS: current = 1234567890123 = 0x11f71fb04cb, delta = -42"));
}

TEST_F(Trace, StreamStyleAppendsStringsBooleansAndNumbers) {
   TraceCapture capture("TraceTest");
   Kiv::TraceStream(trace, 7) << "ready " << true << ", count " << 5 << ", ratio " << 2.5 << ", " << false;
   EXPECT_TRUE(capture.has(7, "ready true, count 5, ratio 2.5, false"));
}

// Emits one record from a member function, to show the record's fields.
struct Emitter {
   std::uint32_t run() {
      const std::uint32_t line = __LINE__ + 1;
      trace(3, "value {} of {}", 1, 2);
      return line;
   }
};

TEST_F(Trace, ARecordCarriesHandleLevelFileFunctionLineClassAndMessage) {
   std::vector<std::string> seen;
   trace.maskIs(Kiv::kTraceAllLevels);
   Kiv::traceSinkIs([&](const Kiv::TraceRecord& r) {
      seen.push_back(
          fmt::format("{}|{}|{}|{}|{}|{}|{}", r.handle, r.level, r.file, r.function, r.line, r.className, r.message));
      seen.push_back(Kiv::traceLine(r));
   });
   const std::uint32_t line = Emitter{}.run();
   ASSERT_EQ(seen.size(), 2u);
   EXPECT_EQ(seen[0], fmt::format("TraceTest|3|TraceTest.cpp|run|{}|Emitter|value 1 of 2", line));
   EXPECT_EQ(seen[1], fmt::format("[TraceTest/3] TraceTest.cpp:{} Emitter::run() value 1 of 2", line));
}

TEST_F(Trace, ConfigurationSetsMasksByHandleName) {
   Kiv::traceConfigIs("TraceTest/0-3;9");
   EXPECT_EQ(trace.mask(), 0b10'0000'1111);
   Kiv::traceConfigIs("TraceTest");
   EXPECT_EQ(trace.mask(), Kiv::kTraceAllLevels);
   Kiv::traceConfigIs("TraceTest/*,,Other/1");
   EXPECT_EQ(trace.mask(), Kiv::kTraceAllLevels);
   Kiv::traceConfigIs("TraceTest/6");
   EXPECT_EQ(trace.mask(), 1u << 6);
}

TEST_F(Trace, TheStarConfiguresHandlesWithoutTheirOwnEntryIncludingLaterOnes) {
   Kiv::traceConfigIs("*/0-1");
   EXPECT_EQ(envTrace.mask(), 0b11);
   {
      Kiv::Tracer later{"TraceTestLater"};
      EXPECT_EQ(later.mask(), 0b11);
   }
   Kiv::traceConfigIs("*/0");
   Kiv::traceMaskIs("TraceTest", 0b100);
   EXPECT_EQ(trace.mask(), 0b100);
   EXPECT_EQ(envTrace.mask(), 0b1);
   Kiv::traceConfigIs("*/");  // an empty level list enables nothing
   EXPECT_EQ(envTrace.mask(), 0);
}

// What `apply` says when it refuses `config`.
std::string refusal(void (*apply)(std::string_view), const char* config) {
   try {
      apply(config);
   } catch (const std::invalid_argument& e) {
      return e.what();
   }
   return fmt::format("'{}' accepted", config);
}

TEST_F(Trace, AMalformedConfigurationIsRefusedWholeAndNamesTheBadItem) {
   Kiv::traceConfigIs("TraceTest/1");
   const std::pair<const char*, const char*> cases[] = {
       {"TraceTest/2,TraceTestEnv/16", "trace level above 15 in 'TraceTestEnv/16'"},
       {"TraceTest/x", "bad trace level in 'TraceTest/x'"},
       {"TraceTest/1-", "bad trace level in 'TraceTest/1-'"},
       {"TraceTest/123", "bad trace level in 'TraceTest/123'"},
       {"/3", "trace item '/3' names no handle"},
   };
   for (const auto& [config, message] : cases) EXPECT_EQ(refusal(Kiv::traceConfigIs, config), message);
   EXPECT_EQ(trace.mask(), 0b10);  // untouched by the refused configurations
}

TEST_F(Trace, HandlesOfTheLoadedCodeAreListedSortedOnce) {
   Kiv::Tracer again{"TraceTest"};  // a second handle of the same name
   const std::vector<std::string> names = Kiv::traceHandles();
   EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
   EXPECT_EQ(std::count(names.begin(), names.end(), "TraceTest"), 1);
}

TEST_F(Trace, ACheckedConfigurationNamesAnUnknownHandleOrTheMalformedItemAndAppliesNothing) {
   Kiv::traceConfigIs("TraceTest/1");
   EXPECT_NO_THROW(Kiv::traceConfigCheck("TraceTest/0-9,*/0"));
   const std::pair<const char*, const char*> cases[] = {
       {"TraceTest/2,NoSuchHandle/1", "unknown trace handle 'NoSuchHandle'"},
       {"TraceTest/x", "bad trace level in 'TraceTest/x'"},
   };
   for (const auto& [config, message] : cases) EXPECT_EQ(refusal(Kiv::traceConfigCheck, config), message);
   EXPECT_EQ(trace.mask(), 0b10);
}

TEST_F(Trace, RecordsGoToAFile) {
   const std::string path = ::testing::TempDir() + "trace-file-test.log";
   std::remove(path.c_str());
   Kiv::traceFileIs(path);
   Kiv::traceMaskIs("TraceTest", std::uint16_t(1u << 5));
   const int line = __LINE__ + 1;
   trace(5, "to the file {}", 1);
   trace(6, "not enabled");
   std::ifstream in(path);
   std::stringstream text;
   text << in.rdbuf();
   EXPECT_EQ(
       text.str(),
       fmt::format("[TraceTest/5] TraceTest.cpp:{} Trace_RecordsGoToAFile_Test::TestBody() to the file 1\n", line));
   EXPECT_THROW(Kiv::traceFileIs("/nonexistent-directory/trace.log"), std::runtime_error);
   std::remove(path.c_str());
}

// The environment is read when the process starts, so these run in a freshly
// started copy of the test program.
class TraceEnvironmentDeathTest : public ::testing::Test {
  protected:
   void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
   void TearDown() override {
      unsetenv("VYRPTP_TRACE");
      unsetenv("VYRPTP_TRACE_FILE");
      GTEST_FLAG_SET(death_test_style, "fast");
   }
};

TEST_F(TraceEnvironmentDeathTest, TheEnvironmentEnablesHandles) {
   setenv("VYRPTP_TRACE", "TraceTestEnv/1-2,TraceTest/9", 1);
   EXPECT_EXIT(std::exit(envTrace.mask() == 0b110 && trace.mask() == 1u << 9 ? 0 : 1), ::testing::ExitedWithCode(0),
               "");
}

TEST_F(TraceEnvironmentDeathTest, AMalformedEnvironmentIsReportedAndIgnored) {
   setenv("VYRPTP_TRACE", "TraceTestEnv/1,TraceTest/99", 1);
   EXPECT_EXIT(std::exit(envTrace.mask() == 0 && trace.mask() == 0 ? 0 : 1), ::testing::ExitedWithCode(0),
               "VYRPTP_TRACE ignored: trace level above 15 in 'TraceTest/99'");
}

TEST_F(TraceEnvironmentDeathTest, TheEnvironmentNamesATraceFile) {
   const std::string path = fmt::format("{}trace-env-test-{}.log", ::testing::TempDir(), getpid());
   setenv("VYRPTP_TRACE", "TraceTestEnv/4", 1);
   setenv("VYRPTP_TRACE_FILE", path.c_str(), 1);
   EXPECT_EXIT(
       {
          envTrace(4, "from the environment");
          std::exit(0);
       },
       ::testing::ExitedWithCode(0), "");
   std::ifstream in(path);
   std::string line;
   std::getline(in, line);
   EXPECT_NE(line.find("[TraceTestEnv/4] TraceTest.cpp:"), std::string::npos) << line;
   EXPECT_NE(line.find(" from the environment"), std::string::npos) << line;
   std::remove(path.c_str());
}

TEST(TraceDeathTest, KassertStopsWithMessageFileFunctionAndLine) {
   const int line = __LINE__ + 1;  // a macro's code is located at its first line
   EXPECT_DEATH(Kiv::kassert(false, "Missing required chipInfoGif {}", 7),
                fmt::format("Assertion failed: Missing required chipInfoGif 7 \\(TraceTest\\.cpp:{}, "
                            "TraceDeathTest_KassertStopsWithMessageFileFunctionAndLine_Test::TestBody\\)",
                            line));
}

}  // namespace
