// Forwarding chips as the hardware-access layer describes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace Asic {

struct EgressTsSwTableKey;
struct EgressTimestampEntry;

// The chip itself, as the hardware tables reach it. The platform provides a
// real or a simulated implementation.
class Device : public Kiv::Entity {
  public:
   // Reads one slot of the egress timestamp table: the oldest unread entry,
   // which the read removes, or an invalid entry.
   virtual EgressTimestampEntry egressTimestampRead(const EgressTsSwTableKey& key) = 0;
   // Writes row `index` of the chip's table `table` (see Asic/HwTable.h). A
   // device without such tables stops the process.
   virtual void tableRowCommit(std::string_view table, std::uint32_t index, std::span<const std::byte> row);
};

class ChipInfo;

// The generic interface of a chip information record, through which hardware
// tables of the chip are initialised.
class GenericIf : public Kiv::Entity {
  public:
   explicit GenericIf(const ChipInfo* chip) : chip_(chip) {}
   const ChipInfo& chipInfo() const { return *chip_; }

  private:
   const ChipInfo* chip_;  // the record owns this interface
};

// Information on one chip: its unit number, a printable name, and the device.
class ChipInfo : public Kiv::Entity {
  public:
   ChipInfo(std::uint32_t unit, Pondo::String name, Pondo::Ptr<Device> device)
       : unit_(unit), name_(std::move(name)), device_(std::move(device)), gif_(Kiv::make<GenericIf>(this)) {}

   std::uint32_t unit() const { return unit_; }
   const Pondo::String& name() const { return name_; }
   Device* device() const { return device_.get(); }
   Pondo::Ptr<const GenericIf> gif() const { return gif_; }

  private:
   std::uint32_t unit_;
   Pondo::String name_;
   Pondo::Ptr<Device> device_;
   Pondo::Ptr<GenericIf> gif_;
};

}  // namespace Asic
