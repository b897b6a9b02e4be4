// A simulated forwarding chip: its nanosecond time counter follows the
// activity loop's UTC time, and each egress slot latches the sequence id and
// low 32 bits of chip time of every PTP event message sent, keeping older
// entries in a FIFO of fixed depth (the oldest is overwritten when full).
// Per slot it publishes how many messages it latched and how many entries
// were read out, as each happens.
#pragma once

#include <deque>
#include <map>

#include "Asic/EgressTimestampTable.h"

namespace Asic {

class SimulatedChip : public Device {
  public:
   struct F {
      enum : Kiv::FieldId { sent, read };
   };
   explicit SimulatedChip(std::size_t fifoDepth = 8) : fifoDepth_(fifoDepth) {}

   // The chip's time: nanoseconds since the Unix epoch, plus a settable offset.
   std::uint64_t timeNs() const;
   void timeOffsetNsIs(std::int64_t offset) { timeOffsetNs_ = offset; }
   std::size_t fifoDepth() const { return fifoDepth_; }

   // A PTP event message with `sequenceId` leaves through slot `key` now;
   // returns its full egress time (of which the slot keeps the low 32 bits).
   std::uint64_t send(const EgressTsSwTableKey& key, std::uint16_t sequenceId);
   // Entries waiting in a slot, oldest first.
   std::size_t queued(const EgressTsSwTableKey& key) const;
   // Entries lost because a full FIFO overwrote them.
   std::uint64_t overwritten(const EgressTsSwTableKey& key) const;
   // Messages latched, and valid entries read out, per slot.
   const Kiv::Map<EgressTsSwTableKey, std::uint64_t>& sent() const { return sent_; }
   const Kiv::Map<EgressTsSwTableKey, std::uint64_t>& read() const { return read_; }

   EgressTimestampEntry egressTimestampRead(const EgressTsSwTableKey& key) override;

  private:
   struct Slot {
      std::deque<EgressTimestampEntry> fifo;
      std::uint64_t overwritten = 0;
   };
   std::size_t fifoDepth_;
   std::int64_t timeOffsetNs_ = 0;
   std::map<EgressTsSwTableKey, Slot> slots_;
   Kiv::Map<EgressTsSwTableKey, std::uint64_t> sent_{this, F::sent, "sent"};
   Kiv::Map<EgressTsSwTableKey, std::uint64_t> read_{this, F::read, "read"};
};

}  // namespace Asic
