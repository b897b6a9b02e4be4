// Loading libVyrPtp into an agent process: the agent's name from the
// environment reaches the DMA memory manager. This test does not link the
// library; each case loads it in a fresh child process.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "Platform/DmaMemoryManager.h"
#include "Platform/SimDmaMemory.h"

namespace {

// In the child: loads the library and prints the manager's agent name.
void loadAndPrintAgentName() {
   if (!dlopen(VYRPTP_LIBRARY_FILE, RTLD_NOW)) {
      std::fprintf(stderr, "dlopen: %s\n", dlerror());
      std::exit(1);
   }
   std::fprintf(stderr, "agent name '%s'\n", Platform::dmaMemoryManager().agentName().c_str());
   std::exit(0);
}

TEST(LibraryLoad, AgentNameIsReadFromTheEnvironmentWhenLoaded) {
   EXPECT_EXIT(
       {
          setenv("AGENT_PROCESS_NAME", "PtpAgent-3", 1);
          loadAndPrintAgentName();
       },
       ::testing::ExitedWithCode(0), "agent name 'PtpAgent-3'\n");
}

TEST(LibraryLoad, AgentNameStaysEmptyWithoutTheVariable) {
   EXPECT_EXIT(
       {
          unsetenv("AGENT_PROCESS_NAME");
          loadAndPrintAgentName();
       },
       ::testing::ExitedWithCode(0), "agent name ''\n");
}

TEST(LibraryLoad, AgentNameIsReadOnlyOnce) {
   EXPECT_EXIT(
       {
          setenv("AGENT_PROCESS_NAME", "first", 1);
          ASSERT_TRUE(dlopen(VYRPTP_LIBRARY_FILE, RTLD_NOW));
          setenv("AGENT_PROCESS_NAME", "second", 1);
          loadAndPrintAgentName();  // loading again finds the library loaded
       },
       ::testing::ExitedWithCode(0), "agent name 'first'\n");
}

TEST(LibraryLoad, NothingIsReadBeforeTheLibraryIsLoaded) {
   setenv("AGENT_PROCESS_NAME", "PtpAgent-3", 1);
   EXPECT_EQ(Platform::dmaMemoryManager().agentName(), "");
   unsetenv("AGENT_PROCESS_NAME");
}

// The manager hands out blocks from the installed memory, under the agent's name.
class DmaMemoryManagerTest : public ::testing::Test {
  protected:
   void SetUp() override {
      manager.agentNameIs("PtpAgent");
      manager.memoryIs(&memory);
   }
   void TearDown() override {
      manager.memoryIs(nullptr);
      manager.agentNameIs("");
   }
   Platform::DmaMemoryManager& manager = Platform::dmaMemoryManager();
   Platform::SimDmaMemory memory;
};

TEST_F(DmaMemoryManagerTest, BlocksComeFromTheAgentsRegionAndAreCounted) {
   Platform::DmaBlock a = manager.blockNew(100);
   Platform::DmaBlock b = manager.blockNew(64);
   EXPECT_EQ(a.size, 100u);
   EXPECT_EQ(a.busAddress, Platform::SimDmaMemory::kFirstRegion);
   EXPECT_EQ(b.busAddress, Platform::SimDmaMemory::kFirstRegion + 128);  // 64-byte aligned
   ASSERT_NE(a.data, nullptr);
   a.data[99] = std::byte{7};  // the whole block is usable
   EXPECT_EQ(memory.blocksHeld("PtpAgent"), 2u);
   manager.blockDel(a);
   manager.blockDel(b);
   EXPECT_EQ(memory.blocksHeld("PtpAgent"), 0u);
}

TEST_F(DmaMemoryManagerTest, EachAgentNameHasARegionOfItsOwn) {
   Platform::DmaBlock a = manager.blockNew(8);
   manager.agentNameIs("OtherAgent");
   Platform::DmaBlock b = manager.blockNew(8);
   EXPECT_EQ(b.busAddress, Platform::SimDmaMemory::kFirstRegion + Platform::SimDmaMemory::kRegionSpan);
   EXPECT_EQ(memory.blocksHeld("PtpAgent"), 1u);
   EXPECT_EQ(memory.blocksHeld("OtherAgent"), 1u);
   manager.blockDel(a);
   manager.blockDel(b);
}

TEST_F(DmaMemoryManagerTest, EmptyBlocksHaveDistinctAddresses) {
   Platform::DmaBlock a = manager.blockNew(0);
   Platform::DmaBlock b = manager.blockNew(0);
   EXPECT_NE(a.busAddress, b.busAddress);
   manager.blockDel(a);
   manager.blockDel(b);
}

TEST_F(DmaMemoryManagerTest, GivingBackABlockNotHeldStops) {
   Platform::DmaBlock a = manager.blockNew(8);
   manager.blockDel(a);
   EXPECT_DEATH(manager.blockDel(a), "Assertion failed: DMA block 0x100000000 is not held");
}

TEST_F(DmaMemoryManagerTest, NoMemoryInstalledStops) {
   manager.memoryIs(nullptr);
   EXPECT_DEATH(manager.blockNew(8), "Assertion failed: No DMA memory installed");
   EXPECT_DEATH(manager.blockDel({}), "Assertion failed: No DMA memory installed");
}

}  // namespace
