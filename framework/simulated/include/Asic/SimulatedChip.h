// A simulated forwarding chip: its nanosecond time counter follows the
// activity loop's UTC time, and each egress slot latches the sequence id and
// low 32 bits of chip time of every PTP event message sent, keeping older
// entries in a FIFO of fixed depth (the oldest is overwritten when full).
// Per slot it publishes how many messages it latched and how many entries
// were read out, as each happens.
#pragma once

#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Asic/EgressTimestampTable.h"

namespace Asic {

class SimulatedChip : public Device {
  public:
   struct F {
      enum : Kiv::FieldId { sent, read };
   };
   using sent_t = Kiv::Field<SimulatedChip, Kiv::Map<EgressTsSwTableKey, std::uint64_t>, F::sent>;
   using read_t = Kiv::Field<SimulatedChip, Kiv::Map<EgressTsSwTableKey, std::uint64_t>, F::read>;
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

   // Hardware tables: the chip keeps the last row committed at each index of
   // each table, and counts commits per table.
   void tableRowCommit(std::string_view table, std::uint32_t index, std::span<const std::byte> row) override;
   // The row at `index` of `table` as `Entry` (the table's row type), if one was committed.
   template <class Entry>
   std::optional<Entry> committed(std::string_view table, std::uint32_t index) const {
      const std::vector<std::byte>* row = committedRow(table, index);
      if (!row) return std::nullopt;
      Kiv::kassert(row->size() == sizeof(Entry), "row of table {} read with a row type of another size", table);
      Entry e;
      std::memcpy(&e, row->data(), sizeof(Entry));
      return e;
   }
   const std::vector<std::byte>* committedRow(std::string_view table, std::uint32_t index) const;
   // Indexes of `table` holding a committed row, in order.
   std::vector<std::uint32_t> committedIndexes(std::string_view table) const;
   std::uint64_t commits(std::string_view table) const;

  private:
   struct Slot {
      std::deque<EgressTimestampEntry> fifo;
      std::uint64_t overwritten = 0;
   };
   std::size_t fifoDepth_;
   std::int64_t timeOffsetNs_ = 0;
   std::map<EgressTsSwTableKey, Slot> slots_;
   struct Table {
      std::map<std::uint32_t, std::vector<std::byte>> rows;
      std::uint64_t commits = 0;
   };
   std::map<std::string, Table, std::less<>> tables_;
   Kiv::Map<EgressTsSwTableKey, std::uint64_t> sent_{this, F::sent, "sent"};
   Kiv::Map<EgressTsSwTableKey, std::uint64_t> read_{this, F::read, "read"};
};

}  // namespace Asic
