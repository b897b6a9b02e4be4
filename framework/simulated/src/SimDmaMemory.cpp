#include "Platform/SimDmaMemory.h"

#include <algorithm>

#include "Kiv/Trace.h"

namespace Platform {

DmaBlock SimDmaMemory::blockNew(const std::string& agentName, std::size_t size) {
   auto [it, added] = regions_.try_emplace(agentName, Region{kFirstRegion + regions_.size() * kRegionSpan});
   Region& region = it->second;
   // Blocks keep 64-byte alignment on the bus, as DMA engines want.
   DmaBlock block{nullptr, size, region.next};
   region.next += (std::max<std::size_t>(size, 1) + 63) / 64 * 64;  // an empty block still has an address of its own
   Held& held = blocks_[block.busAddress];
   held.data = std::make_unique<std::byte[]>(size);
   held.region = &region;
   block.data = held.data.get();
   ++region.held;
   return block;
}

void SimDmaMemory::blockDel(const DmaBlock& block) {
   auto it = blocks_.find(block.busAddress);
   Kiv::kassert(it != blocks_.end() && it->second.data.get() == block.data, "DMA block {:#x} is not held",
                block.busAddress);
   --it->second.region->held;
   blocks_.erase(it);
}

std::size_t SimDmaMemory::blocksHeld(const std::string& agentName) const {
   auto it = regions_.find(agentName);
   return it == regions_.end() ? 0 : it->second.held;
}

}  // namespace Platform
