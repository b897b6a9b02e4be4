// The egress timestamp table of a chip: per egress port a slot holding the
// sequence id and 32-bit time of the last PTP event message sent, with older
// ones queued behind it. Reads are asynchronous: the completion runs later on
// the activity loop, never inside the request.
#pragma once

#include <cstdint>
#include <vector>

#include "Asic/ChipInfo.h"
#include "Kiv/Activity.h"
#include "Pondo/Enum.h"
#include "Pondo/InplaceFunction.h"
#include "Statebase/EntityManager.h"

namespace Asic {

// The kind of port whose table a slot belongs to.
enum class PortType : std::uint8_t { network = 0, cpu = 1, recycle = 2 };

// The address of one slot of a chip's egress timestamp table.
struct EgressTsSwTableKey {
   std::uint32_t index = 0;
   PortType portType = PortType::network;

   friend constexpr auto operator<=>(const EgressTsSwTableKey&, const EgressTsSwTableKey&) = default;
   std::string toString() const;
};

// The result of reading one slot.
struct EgressTimestampEntry {
   std::uint16_t sequenceId = 0;
   std::uint64_t timestamp = 0;  // the chip fills the low 32 bits
   bool valid = false;

   friend constexpr bool operator==(const EgressTimestampEntry&, const EgressTimestampEntry&) = default;
   std::string toString() const;
};

class EgressTimestampTable : public Kiv::Entity {
  public:
   using Key = EgressTsSwTableKey;
   using Entry = EgressTimestampEntry;
   // Completion of a read: the key read, what the slot held, and the tag the
   // request was given (the requester's note of what it asked for).
   using ReadCallback = Pondo::InplaceFunction<void(const Key&, const Entry&, std::uint32_t tag)>;

   explicit EgressTimestampTable(PortType portType = PortType::network) : portType_(portType) {}

   PortType portType() const { return portType_; }
   std::uint32_t unit() const { return unit_; }
   bool initialized() const { return device_ != nullptr; }

   // Binds the table to the chip behind `gif` (its unit) and the state database.
   void doInit(std::uint32_t unit, Pondo::Ptr<Statebase::EntityManager> em, Pondo::Ptr<const GenericIf> gif);
   // Mounts the table's status in the state database.
   void publishMountInfo();

   // Requests a read of `key`; `done` runs on the activity loop once the read
   // has completed. The request keeps its own copy of `done` (issuing a read
   // allocates nothing once the queue has grown); what `done` calls into must
   // stay alive until then, or its owner cancels the outstanding reads first.
   void read(const Key& key, ReadCallback done, std::uint32_t tag = 0);
   void readsCancel();
   std::size_t pendingReads() const { return pending_.size(); }
   std::uint64_t readsCompleted() const { return readsCompleted_; }

  private:
   struct Request {
      Key key;
      std::uint32_t tag;
      ReadCallback done;
   };
   void complete();

   PortType portType_;
   std::uint32_t unit_ = 0;
   Pondo::Ptr<Statebase::EntityManager> em_;
   Pondo::Ptr<const GenericIf> gif_;
   Device* device_ = nullptr;
   std::vector<Request> pending_;
   std::vector<Request> completing_;
   // Runs the completion pass; it goes with the table.
   Kiv::ClockTimer completion_{Kiv::activityManager().clock(), [this] { complete(); }};
   std::uint64_t readsCompleted_ = 0;
};

// Stream output of the enumerations above, found by argument-dependent lookup.
using Pondo::operator<<;

}  // namespace Asic

template <>
struct Pondo::EnumInfo<Asic::PortType> {
   static constexpr std::array<std::pair<Asic::PortType, std::string_view>, 3> names{{
       {Asic::PortType::network, "network"},
       {Asic::PortType::cpu, "cpu"},
       {Asic::PortType::recycle, "recycle"},
   }};
};

template <>
struct std::hash<Asic::EgressTsSwTableKey> {
   std::size_t operator()(const Asic::EgressTsSwTableKey& k) const noexcept {
      return Pondo::hashMix(k.index, std::size_t(k.portType));
   }
};
