// The DMA memory manager: memory that the chips read and write by DMA, taken
// from regions the platform keeps per agent process under the agent's name.
// The agent names itself once, when it loads its libraries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace Platform {

// A block of DMA memory: the processor's view and the address the chips use.
struct DmaBlock {
   std::byte* data = nullptr;
   std::size_t size = 0;
   std::uint64_t busAddress = 0;
};

// Where blocks come from: the hardware's DMA regions or a simulated platform.
class DmaMemory {
  public:
   virtual ~DmaMemory() = default;
   virtual DmaBlock blockNew(const std::string& agentName, std::size_t size) = 0;
   virtual void blockDel(const DmaBlock& block) = 0;
};

class DmaMemoryManager {
  public:
   // The agent process whose regions these are; empty until it names itself.
   const std::string& agentName() const { return agentName_; }
   void agentNameIs(std::string name) { agentName_ = std::move(name); }

   // The source of blocks (not owned), or null.
   DmaMemory* memory() const { return memory_; }
   void memoryIs(DmaMemory* memory) { memory_ = memory; }

   // A block of `size` bytes from the agent's regions; asserts "No DMA memory
   // installed" when there is no source.
   DmaBlock blockNew(std::size_t size);
   void blockDel(const DmaBlock& block);

  private:
   std::string agentName_;
   DmaMemory* memory_ = nullptr;
};

// The process's DMA memory manager.
DmaMemoryManager& dmaMemoryManager();

}  // namespace Platform
