// Simulated DMA memory: blocks from the heap with made-up bus addresses, one
// region per agent name, and a count of the blocks each agent holds so that a
// test or the simulator sees leaks.
#pragma once

#include <map>
#include <memory>

#include "Platform/DmaMemoryManager.h"

namespace Platform {

class SimDmaMemory final : public DmaMemory {
  public:
   // Bus addresses of the first region start here; each region spans kRegionSpan.
   static constexpr std::uint64_t kFirstRegion = 0x1'0000'0000;
   static constexpr std::uint64_t kRegionSpan = 0x1000'0000;

   DmaBlock blockNew(const std::string& agentName, std::size_t size) override;
   void blockDel(const DmaBlock& block) override;

   // Blocks taken and not yet given back under `agentName`.
   std::size_t blocksHeld(const std::string& agentName) const;

  private:
   struct Region {
      std::uint64_t next;  // bus address of the next block
      std::size_t held = 0;
   };
   struct Held {
      std::unique_ptr<std::byte[]> data;
      Region* region;
   };
   std::map<std::string, Region> regions_;
   std::map<std::uint64_t, Held> blocks_;  // by bus address
};

}  // namespace Platform
