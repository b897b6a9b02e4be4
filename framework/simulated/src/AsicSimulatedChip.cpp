#include "Asic/SimulatedChip.h"

#include <chrono>
#include <cmath>

#include "Kiv/Activity.h"

namespace Asic {

namespace {
void countUp(Kiv::Map<EgressTsSwTableKey, std::uint64_t>& counts, const EgressTsSwTableKey& key) {
   const std::uint64_t* n = counts.find(key);
   counts.is(key, (n ? *n : 0) + 1);
}
}  // namespace

std::uint64_t SimulatedChip::timeNs() const {
   if (!Kiv::activityManager().virtualTime()) {
      auto ns =
          std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch());
      return std::uint64_t(ns.count() + timeOffsetNs_);
   }
   // Virtual time: the whole-second UTC offset and the loop time apart, so
   // that nanoseconds survive the double's precision at present-day values.
   const Kiv::Seconds now = Kiv::currentTime();
   const double base = std::floor(Kiv::currentTimeUtc() - now);
   const auto nowNs = std::int64_t(std::llround(now * 1e9));
   return std::uint64_t(std::int64_t(base) * 1'000'000'000 + nowNs + timeOffsetNs_);
}

std::uint64_t SimulatedChip::send(const EgressTsSwTableKey& key, std::uint16_t sequenceId) {
   const std::uint64_t t = timeNs();
   Slot& slot = slots_[key];
   if (slot.fifo.size() == fifoDepth_) {
      slot.fifo.pop_front();
      ++slot.overwritten;
   }
   slot.fifo.push_back({sequenceId, t & 0xFFFFFFFFu, true});
   countUp(sent_, key);
   return t;
}

std::size_t SimulatedChip::queued(const EgressTsSwTableKey& key) const {
   auto it = slots_.find(key);
   return it == slots_.end() ? 0 : it->second.fifo.size();
}

std::uint64_t SimulatedChip::overwritten(const EgressTsSwTableKey& key) const {
   auto it = slots_.find(key);
   return it == slots_.end() ? 0 : it->second.overwritten;
}

EgressTimestampEntry SimulatedChip::egressTimestampRead(const EgressTsSwTableKey& key) {
   auto it = slots_.find(key);
   if (it == slots_.end() || it->second.fifo.empty()) return {};
   EgressTimestampEntry e = it->second.fifo.front();
   it->second.fifo.pop_front();
   countUp(read_, key);
   return e;
}

void SimulatedChip::tableRowCommit(std::string_view table, std::uint32_t index, std::span<const std::byte> row) {
   auto it = tables_.find(table);
   if (it == tables_.end()) it = tables_.emplace(std::string(table), Table{}).first;
   it->second.rows[index].assign(row.begin(), row.end());
   ++it->second.commits;
}

const std::vector<std::byte>* SimulatedChip::committedRow(std::string_view table, std::uint32_t index) const {
   auto t = tables_.find(table);
   if (t == tables_.end()) return nullptr;
   auto r = t->second.rows.find(index);
   return r == t->second.rows.end() ? nullptr : &r->second;
}

std::vector<std::uint32_t> SimulatedChip::committedIndexes(std::string_view table) const {
   std::vector<std::uint32_t> out;
   if (auto t = tables_.find(table); t != tables_.end()) {
      for (const auto& [index, row] : t->second.rows) out.push_back(index);
   }
   return out;
}

std::uint64_t SimulatedChip::commits(std::string_view table) const {
   auto t = tables_.find(table);
   return t == tables_.end() ? 0 : t->second.commits;
}

}  // namespace Asic
