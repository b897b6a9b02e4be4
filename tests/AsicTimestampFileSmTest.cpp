// The ASIC time file machine, the fetcher that reads through its descriptor,
// the wrapper that bundles them, and the platform file service underneath.
// Real files in a temporary directory serve the kernel's "/proc/asic-time".
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "Platform/File.h"
#include "TempDir.h"
#include "TraceCapture.h"
#include "VyrPtp/VyrHelperPtp.h"

using VyrPtp::AsicTimestampFileConfig;
using VyrPtp::AsicTimestampFileSm;
using VyrPtp::AsicTimestampFileStatus;
using VyrPtp::U32;
using VyrPtp::U64;

namespace {

constexpr U64 kSecond = 1'000'000'000;
constexpr const char* kTs = "/proc/asic-time/1/ts";
constexpr const char* kCfg = "/proc/asic-time/1/cfg";

bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

std::size_t openDescriptors() {
   auto fds = std::filesystem::directory_iterator("/proc/self/fd");
   return std::size_t(std::distance(begin(fds), end(fds)));
}

// Counts the changes an entity publishes.
struct ChangeCount final : Pondo::Subscriber {
   explicit ChangeCount(const Pondo::Publisher& p) : publisher(p) { publisher.subscriberAdd(this); }
   ~ChangeCount() { publisher.subscriberRemove(this); }
   void onChange(const Pondo::Change&) override { ++changes; }
   const Pondo::Publisher& publisher;
   int changes = 0;
};

class AsicTimeFile : public ::testing::Test {
  protected:
   void SetUp() override {
      loop.virtualTimeIs(0, 1.7e9);
      Platform::pathMapIs("/proc/asic-time", dir.path());
   }
   void TearDown() override {
      sm = nullptr;
      Platform::pathMapIs("/proc/asic-time", "");
      EXPECT_EQ(loop.pendingTimers(), 0u);
   }
   void start(bool initCounter, bool waitForCounterInit) {
      config = VyrPtp::asicTimestampFileConfigFactory(kTs, kCfg, initCounter, waitForCounterInit);
      sm = VyrPtp::asicTimestampFileSmFactory(config, status, loop.clock());
   }

   Kiv::ActivityManager& loop = Kiv::activityManager();
   TempDir dir;
   TraceCapture traces{"VyrPtp"};
   Pondo::Ptr<AsicTimestampFileConfig> config;
   Pondo::Ptr<AsicTimestampFileStatus> status = VyrPtp::asicTimestampFileStatusFactory();
   Pondo::Ptr<VyrPtp::AsicTimestampFileSm> sm;
};

TEST_F(AsicTimeFile, ExistingFileIsReadyAtConstructionWithoutReadOrWrite) {
   dir.write("1/ts", "0 0 0\n");
   dir.write("1/cfg", "untouched");
   start(false, false);
   ASSERT_TRUE(status->ready());
   EXPECT_EQ(::lseek(status->timestampFd(), 0, SEEK_CUR), 0);  // nothing was read
   EXPECT_EQ(dir.read("1/cfg"), "untouched");
   EXPECT_EQ(sm->timeMin(), Kiv::kNever);
   EXPECT_TRUE(traces.has(8, "pollAsicTimeReady/proc/asic-time/1/ts now ready: true"));
}

// A reader that reacts to the opened file by asking for another attempt (the
// file having gone again) is heard after the wake-up's attempt ends: that
// attempt cannot stop the polling the second one needs.
TEST_F(AsicTimeFile, AReopenAskedWhileAWakeUpPublishesRunsAfterIt) {
   start(false, false);
   EXPECT_EQ(sm->clock(), loop.clock());
   ASSERT_EQ(sm->timeMin(), 1.0);
   dir.write("1/ts", "0 0 0\n");
   struct Reopen final : Pondo::Subscriber {
      void onChange(const Pondo::Change&) override {
         if (std::exchange(done, true)) return;
         dir->remove("1/ts");
         config->startPollingGenIdInc(1);
      }
      const TempDir* dir = nullptr;
      AsicTimestampFileConfig* config = nullptr;
      bool done = false;
   } reopen;
   reopen.dir = &dir;
   reopen.config = config.get();
   status->subscriberAdd(&reopen);
   loop.runFor(1.0);
   status->subscriberRemove(&reopen);
   ASSERT_TRUE(reopen.done);
   EXPECT_EQ(status->timestampFd(), -1);
   EXPECT_EQ(sm->timeMin(), 2.0);  // still polling
   dir.write("1/ts", "0 0 0\n");
   loop.runFor(1.0);
   EXPECT_TRUE(status->ready());
}

TEST_F(AsicTimeFile, MissingFileIsPolledEverySecond) {
   start(true, false);
   EXPECT_EQ(status->timestampFd(), -1);
   EXPECT_EQ(sm->timeMin(), 1.0);
   EXPECT_TRUE(traces.has(9, "pollAsicTimeReady/proc/asic-time/1/ts not found"));
   EXPECT_TRUE(traces.has(8, "pollAsicTimeReady/proc/asic-time/1/ts now ready: false"));
   loop.runFor(3.5);
   EXPECT_EQ(traces.count(9, "pollAsicTimeReady/proc/asic-time/1/ts not found"), 4u);
   EXPECT_FALSE(status->ready());

   dir.write("1/cfg", "");  // the counter file alone is not written while the time file is missing
   loop.runFor(1);
   EXPECT_EQ(dir.read("1/cfg"), "");
   dir.write("1/ts", "5 6 7\n");
   loop.runFor(1);
   EXPECT_TRUE(status->ready());
   EXPECT_EQ(dir.read("1/cfg"), "init");
   EXPECT_EQ(sm->timeMin(), Kiv::kNever);
   EXPECT_EQ(loop.currentTime(), 5.5);
}

TEST_F(AsicTimeFile, WaitsUntilTheCounterRunsReopeningEachSecond) {
   dir.write("1/ts", "0 0 0\n");
   const std::size_t before = openDescriptors();
   start(false, true);
   EXPECT_FALSE(status->ready());
   loop.runFor(2);
   EXPECT_FALSE(status->ready());
   EXPECT_EQ(traces.count(8, "readAsicTimestamp Timestamps read ToD:0, PTP:0, ASIC:0"), 3u);
   EXPECT_EQ(traces.count(8, "pollAsicTimeReady/proc/asic-time/1/ts now ready: false"), 3u);

   dir.write("1/ts", "1700000000000000000 1 2\n");
   loop.runFor(1);
   ASSERT_TRUE(status->ready());
   EXPECT_EQ(sm->timeMin(), Kiv::kNever);
   // Only the descriptor now published is open: the rejected ones were closed.
   EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(AsicTimeFile, UnreadableFileIsNotUsedWhenWaitingForTheCounter) {
   dir.write("1/ts", "");
   start(false, true);
   EXPECT_FALSE(status->ready());
   dir.write("1/ts", "9 9 9");
   loop.runFor(1);
   EXPECT_TRUE(status->ready());
}

TEST_F(AsicTimeFile, InitIsWrittenOnEveryAttempt) {
   dir.write("1/ts", "0 0 0\n");
   dir.write("1/cfg", "");
   start(true, true);
   EXPECT_EQ(dir.read("1/cfg"), "init");
   dir.write("1/cfg", "");
   loop.runFor(1);
   EXPECT_EQ(dir.read("1/cfg"), "init");
   EXPECT_FALSE(status->ready());
}

TEST_F(AsicTimeFile, FailedInitWriteIsNoticedOnlyWhenTheFileIsOtherwiseUsable) {
   // No counter configuration file: every "init" write fails.
   dir.write("1/ts", "0 0 0\n");
   start(true, true);
   EXPECT_FALSE(status->ready());

   dir.write("1/ts", "5 6 7\n");  // the counter runs; now the failed write alone holds the file back
   loop.runFor(2);
   EXPECT_FALSE(status->ready());
   EXPECT_EQ(traces.count(8, "readAsicTimestamp Timestamps read ToD:5, PTP:6, ASIC:7"), 2u);

   dir.write("1/cfg", "");
   loop.runFor(1);
   EXPECT_TRUE(status->ready());
   EXPECT_EQ(dir.read("1/cfg"), "init");
}

TEST_F(AsicTimeFile, FailedInitWriteHoldsTheFileBackWithoutWaiting) {
   dir.write("1/ts", "5 6 7\n");
   start(true, false);
   EXPECT_FALSE(status->ready());
   EXPECT_EQ(sm->timeMin(), 1.0);
   dir.write("1/cfg", "");
   loop.runFor(1);
   EXPECT_TRUE(status->ready());
}

TEST_F(AsicTimeFile, NewPollingGenerationReopensTheFile) {
   dir.write("1/ts", "5 6 7\n");
   const int placeholder = ::open("/dev/null", O_RDONLY);
   start(false, false);
   const int first = status->timestampFd();
   ASSERT_GT(first, placeholder);
   ChangeCount published(*status);

   // The same descriptor number comes back: nothing is published.
   config->startPollingGenIdInc(1);
   EXPECT_EQ(status->timestampFd(), first);
   EXPECT_EQ(published.changes, 0);
   EXPECT_EQ(traces.count(8, "pollAsicTimeReady/proc/asic-time/1/ts now ready: true"), 2u);

   // With a lower number free, the reopened file gets it.
   ::close(placeholder);
   config->startPollingGenIdIs(7);
   EXPECT_EQ(status->timestampFd(), placeholder);
   EXPECT_EQ(published.changes, 1);
   EXPECT_FALSE(isOpen(first));

   // A generation change while the file is gone ends readiness and restarts polling.
   dir.remove("1/ts");
   config->startPollingGenIdInc(1);
   EXPECT_FALSE(status->ready());
   EXPECT_FALSE(isOpen(placeholder));
   EXPECT_EQ(published.changes, 2);
   EXPECT_EQ(sm->timeMin(), 1.0);
}

TEST_F(AsicTimeFile, WithoutClockThereIsNoPolling) {
   config = VyrPtp::asicTimestampFileConfigFactory(kTs, kCfg, false, false);
   sm = VyrPtp::asicTimestampFileSmFactory(config, status, nullptr);
   EXPECT_FALSE(status->ready());
   EXPECT_EQ(sm->timeMin(), Kiv::kNever);
   EXPECT_EQ(loop.pendingTimers(), 0u);
   dir.write("1/ts", "5 6 7\n");
   config->startPollingGenIdInc(1);
   EXPECT_TRUE(status->ready());
}

TEST_F(AsicTimeFile, NullConfigOrStatusIsRejectedNamingTheArgument) {
   config = VyrPtp::asicTimestampFileConfigFactory(kTs, kCfg, false, false);
   auto expectError = [](auto make, const char* text) {
      try {
         make();
         ADD_FAILURE() << "no error for " << text;
      } catch (const Kiv::Error& e) {
         EXPECT_STREQ(e.what(), text);
      }
   };
   const char* noConfig = "null entity reference for argument 'config'";
   const char* noStatus = "null entity reference for argument 'status'";
   expectError([&] { VyrPtp::asicTimestampFileSmFactory(nullptr, status, loop.clock()); }, noConfig);
   expectError([&] { VyrPtp::AsicTimestampFileSmIs(nullptr, status, loop.clock()); }, noConfig);
   expectError([&] { VyrPtp::asicTimestampFileSmFactory(config, nullptr, loop.clock()); }, noStatus);

   auto wrapper = VyrPtp::asicTimestampFetcherWrapperFactory(2, false, false);
   AsicTimestampFileSm* existing = wrapper->fileSm();
   expectError([&] { wrapper->fileSmIs(nullptr, status, loop.clock()); }, noConfig);
   expectError([&] { wrapper->fileSmIs(config, nullptr, loop.clock()); }, noStatus);
   EXPECT_EQ(wrapper->fileSm(), existing);
   wrapper->fileSmDel();
   expectError([&] { wrapper->fileSmIs(nullptr, status, loop.clock()); }, noConfig);
   EXPECT_EQ(wrapper->fileSm(), nullptr);
   EXPECT_EQ(config->subscribers(), 0u);
}

TEST_F(AsicTimeFile, MachineClosesItsDescriptorWhenItGoes) {
   dir.write("1/ts", "5 6 7\n");
   start(false, false);
   const int fd = status->timestampFd();
   ASSERT_TRUE(isOpen(fd));
   sm = nullptr;
   EXPECT_FALSE(isOpen(fd));
   EXPECT_EQ(status->timestampFd(), -1);
}

class AsicTimestampFetcher : public AsicTimeFile {
  protected:
   void SetUp() override {
      AsicTimeFile::SetUp();
      dir.write("3/ts", "1700000000000000000 1700000000000000100 42\n");
      wrapper = VyrPtp::asicTimestampFetcherWrapperFactory(3, false, false);
   }
   void TearDown() override {
      wrapper = nullptr;
      AsicTimeFile::TearDown();
   }
   Pondo::Ptr<VyrPtp::AsicTimestampFetcherWrapper> wrapper;
};

TEST_F(AsicTimestampFetcher, WrapperBuildsEverythingForItsKernelUnit) {
   EXPECT_EQ(wrapper->kernelUnitId(), 3);
   ASSERT_TRUE(wrapper->fileConfig() && wrapper->fileStatus() && wrapper->fileSm() && wrapper->timestampFetcher());
   EXPECT_EQ(wrapper->fileConfig()->timestampPath(), "/proc/asic-time/3/ts");
   EXPECT_EQ(wrapper->fileConfig()->counterConfigPath(), "/proc/asic-time/3/cfg");
   EXPECT_FALSE(wrapper->fileConfig()->initCounter());
   EXPECT_FALSE(wrapper->fileConfig()->waitForCounterInit());
   EXPECT_EQ(wrapper->fileSm()->config(), wrapper->fileConfig());
   EXPECT_EQ(wrapper->fileSm()->status(), wrapper->fileStatus());
   EXPECT_EQ(wrapper->timestampFetcher()->fileConfig(), wrapper->fileConfig());
   EXPECT_EQ(wrapper->timestampFetcher()->fileStatus(), wrapper->fileStatus());
   EXPECT_TRUE(wrapper->fileStatus()->ready());
   EXPECT_TRUE(wrapper->timestampFetcher()->timestampReady());

   auto other = VyrPtp::asicTimestampFetcherWrapperFactory(255, true, true);
   EXPECT_EQ(other->fileConfig()->timestampPath(), "/proc/asic-time/255/ts");
   EXPECT_TRUE(other->fileConfig()->initCounter());
   EXPECT_TRUE(other->fileConfig()->waitForCounterInit());
   EXPECT_FALSE(other->timestampFetcher()->timestampReady());
}

TEST_F(AsicTimestampFetcher, WrapperReleasesTheMachineAndItsDescriptor) {
   const int fd = wrapper->fileStatus()->timestampFd();
   auto fileSm = wrapper->fileSmDel();
   EXPECT_EQ(wrapper->fileSm(), nullptr);
   EXPECT_TRUE(isOpen(fd));
   fileSm = nullptr;
   EXPECT_FALSE(isOpen(fd));
   EXPECT_FALSE(wrapper->timestampFetcher()->timestampReady());
   EXPECT_TRUE(wrapper->fileStatusDel());
   EXPECT_TRUE(wrapper->fileConfigDel());
   EXPECT_EQ(wrapper->fileConfig(), nullptr);
}

TEST_F(AsicTimestampFetcher, ReadsTheTimeOfDay) {
   EXPECT_EQ(wrapper->timestampFetcher()->asicTimestamp(), 1'700'000'000 * kSecond);
   EXPECT_TRUE(traces.has(8, "asicTimestamp"));
   dir.write("3/ts", "1700000001000000000 0 0\n");  // the kernel rewrote the file
   EXPECT_EQ(wrapper->timestampFetcher()->asicTimestamp(), 1'700'000'001 * kSecond);
}

TEST_F(AsicTimestampFetcher, EgressTimestampWidensAgainstTheFile) {
   const U64 latchedAt = 1'700'000'000 * kSecond - 1'000;
   traces.clear();
   EXPECT_EQ(wrapper->timestampFetcher()->egressTimestamp(Wyx::IntfId("Et1/1"), 5, U32(latchedAt)), latchedAt);
   EXPECT_EQ(traces.records.back().level, 3u);
   EXPECT_TRUE(traces.records.back().message.ends_with("sequenceId: 5"));
}

TEST_F(AsicTimestampFetcher, ZeroTimeOfDayIsReturnedUnconverted) {
   dir.write("3/ts", "0 0 0\n");
   traces.clear();
   EXPECT_EQ(wrapper->timestampFetcher()->egressTimestamp(Wyx::IntfId("Et1/1"), 5, 0x20), 0u);
   EXPECT_EQ(wrapper->fileConfig()->startPollingGenId(), 0);
   for (const auto& r : traces.records) EXPECT_GE(r.level, 8u) << r.message;
}

TEST_F(AsicTimestampFetcher, FailedReadReopensTheFile) {
   auto fetcher = wrapper->timestampFetcher();
   dir.write("3/ts", "");  // the open file reads nothing
   traces.clear();
   EXPECT_EQ(fetcher->egressTimestamp(Wyx::IntfId("Et1/1"), 5, 0x20), 0u);
   EXPECT_EQ(wrapper->fileConfig()->startPollingGenId(), 1);
   ASSERT_GE(traces.records.size(), 2u);
   EXPECT_EQ(traces.records[1].level, 1u);
   EXPECT_TRUE(traces.records[1].message.starts_with("asicTimestamp Failed to read file /proc/asic-time/3/ts errno: "));
   // The machine reopened the file at once; the next record reads normally.
   EXPECT_TRUE(traces.has(8, "pollAsicTimeReady/proc/asic-time/3/ts now ready: true"));
   EXPECT_TRUE(fetcher->timestampReady());
   dir.write("3/ts", "1700000000000000000 0 0\n");
   EXPECT_EQ(fetcher->asicTimestamp(), 1'700'000'000 * kSecond);
}

TEST_F(AsicTimestampFetcher, FailedReadTracesTheSystemError) {
   dir.remove("3/ts");
   std::filesystem::create_directory(dir.path("3/ts"));  // opens, but reading fails
   wrapper->fileConfig()->startPollingGenIdInc(1);
   ASSERT_TRUE(wrapper->timestampFetcher()->timestampReady());
   EXPECT_EQ(wrapper->timestampFetcher()->asicTimestamp(), 0u);
   EXPECT_TRUE(traces.has(1, "asicTimestamp Failed to read file /proc/asic-time/3/ts errno: Is a directory"));
   EXPECT_EQ(wrapper->fileConfig()->startPollingGenId(), 2);
}

TEST_F(AsicTimestampFetcher, PollingGenerationWrapsAfter255) {
   dir.write("3/ts", "");
   auto fetcher = wrapper->timestampFetcher();
   for (int i = 1; i <= 255; ++i) fetcher->egressTimestamp(Wyx::IntfId("Et1/1"), 1, 1);
   EXPECT_EQ(wrapper->fileConfig()->startPollingGenId(), 255);
   EXPECT_EQ(fetcher->egressTimestamp(Wyx::IntfId("Et1/1"), 1, 1), 0u);
   EXPECT_EQ(wrapper->fileConfig()->startPollingGenId(), 0);
   EXPECT_EQ(wrapper->fileConfig()->startPollingGenIdInc(3), 3);
}

TEST_F(AsicTimestampFetcher, ReadingWhenNotReadyStopsTheProcess) {
   dir.remove("3/ts");
   wrapper->fileConfig()->startPollingGenIdInc(1);
   ASSERT_FALSE(wrapper->timestampFetcher()->timestampReady());
   EXPECT_DEATH(wrapper->timestampFetcher()->asicTimestamp(), "timestampReady\\(\\)");
}

TEST(PlatformFile, PathMapServesAPrefixFromADirectory) {
   Platform::pathMapIs("/proc/asic-time", "/tmp/x");
   EXPECT_EQ(Platform::osPath("/proc/asic-time/3/ts"), "/tmp/x/3/ts");
   EXPECT_EQ(Platform::osPath("/proc/asic-time"), "/tmp/x");
   EXPECT_EQ(Platform::osPath("/proc/asic-timex/3/ts"), "/proc/asic-timex/3/ts");
   EXPECT_EQ(Platform::osPath("/proc/self/status"), "/proc/self/status");
   Platform::pathMapIs("/proc/asic-time", "");
   EXPECT_EQ(Platform::osPath("/proc/asic-time/3/ts"), "/proc/asic-time/3/ts");
}

TEST(PlatformFile, WholeFileWriteNeedsAnExistingFile) {
   TempDir dir;
   EXPECT_FALSE(Platform::fileWrite(dir.path("cfg"), "init"));
   EXPECT_FALSE(std::filesystem::exists(dir.path("cfg")));
   dir.write("cfg", "previous content");
   EXPECT_TRUE(Platform::fileWrite(dir.path("cfg"), "init"));
   EXPECT_EQ(dir.read("cfg"), "init");
   EXPECT_FALSE(Platform::fileWrite(dir.path(), "init"));  // a directory
}

TEST(PlatformFile, OpenGoesThroughThePathMap) {
   TempDir dir;
   dir.write("5/ts", "1 2 3");
   Platform::pathMapIs("/proc/asic-time", dir.path());
   const int fd = Platform::fileOpen("/proc/asic-time/5/ts", O_RDONLY);
   Platform::pathMapIs("/proc/asic-time", "");
   ASSERT_GE(fd, 0);
   char buf[8] = {};
   EXPECT_EQ(::read(fd, buf, sizeof buf - 1), 5);
   EXPECT_STREQ(buf, "1 2 3");
   ::close(fd);
   errno = 0;
   EXPECT_EQ(Platform::fileOpen(dir.path("none"), O_RDONLY), -1);
   EXPECT_EQ(errno, ENOENT);
}

}  // namespace
