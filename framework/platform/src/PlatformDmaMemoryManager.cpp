#include "Platform/DmaMemoryManager.h"

#include "Kiv/Trace.h"

namespace Platform {

DmaBlock DmaMemoryManager::blockNew(std::size_t size) {
   Kiv::kassert(memory_, "No DMA memory installed");
   return memory_->blockNew(agentName_, size);
}

void DmaMemoryManager::blockDel(const DmaBlock& block) {
   Kiv::kassert(memory_, "No DMA memory installed");
   memory_->blockDel(block);
}

DmaMemoryManager& dmaMemoryManager() {
   static DmaMemoryManager manager;
   return manager;
}

}  // namespace Platform
