// What the library does when the agent process loads it.
#include <cstdlib>

#include "Platform/DmaMemoryManager.h"

namespace VyrPtp {
namespace {

// The agent process's name, from its environment, names its DMA regions.
[[gnu::constructor]] void libraryLoaded() {
   if (const char* name = std::getenv("AGENT_PROCESS_NAME")) Platform::dmaMemoryManager().agentNameIs(name);
}

}  // namespace
}  // namespace VyrPtp
