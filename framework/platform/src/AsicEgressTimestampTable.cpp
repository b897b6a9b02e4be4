#include "Asic/EgressTimestampTable.h"

#include "Kiv/Activity.h"

namespace Asic {

std::string EgressTsSwTableKey::toString() const { return fmt::format("(index: {}, portType: {})", index, portType); }

std::string EgressTimestampEntry::toString() const {
   return fmt::format("(sequenceId: {}, timestamp: {:#x}, valid: {})", sequenceId, timestamp, valid);
}

void EgressTimestampTable::doInit(std::uint32_t unit, Pondo::Ptr<Statebase::EntityManager> em,
                                  Pondo::Ptr<const GenericIf> gif) {
   Kiv::kassert(gif, "egress timestamp table of unit {} initialised without a chip", unit);
   unit_ = unit;
   em_ = std::move(em);
   gif_ = std::move(gif);
   device_ = gif_->chipInfo().device();
   Kiv::kassert(device_, "chip {} has no device", gif_->chipInfo().name());
}

void EgressTimestampTable::publishMountInfo() {
   if (em_) {
      em_->mountIs(fmt::format("hardware/egressTimestamp/unit{}/{}", unit_, portType_),
                   fmt::format("egress timestamp table of {}", gif_->chipInfo().name()));
   }
}

void EgressTimestampTable::read(const Key& key, ReadCallback done, std::uint32_t tag) {
   Kiv::kassert(device_, "egress timestamp table read before doInit");
   if (pending_.empty()) completion_.timeMinIs(Kiv::currentTime());  // one completion pass per batch
   pending_.push_back({key, tag, done});
}

// Drops every read not yet delivered, also those of a completion pass under way.
void EgressTimestampTable::readsCancel() {
   pending_.clear();
   completing_.clear();
}

// Reads every requested slot in request order and delivers the results.
void EgressTimestampTable::complete() {
   const Pondo::Ptr<EgressTimestampTable> self(this);  // a callback may release the table's last owner
   completing_.swap(pending_);
   for (std::size_t i = 0; i < completing_.size(); ++i) {  // a callback may cancel the rest
      const Request r = completing_[i];
      const Entry e = device_->egressTimestampRead(r.key);
      ++readsCompleted_;
      r.done(r.key, e, r.tag);
   }
   completing_.clear();
}

}  // namespace Asic
