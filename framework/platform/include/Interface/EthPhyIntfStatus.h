// Operational status of the physical Ethernet interfaces.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Kiv/Entity.h"
#include "Pondo/Enum.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace Interface {

// Interface operational status, numbered as in the interfaces MIB.
enum class OperStatus : std::uint8_t {
   up = 1,
   down = 2,
   testing = 3,
   unknown = 4,
   dormant = 5,
   notPresent = 6,
   lowerLayerDown = 7,
};

class EthPhyIntfStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfId, operStatus };
   };
   explicit EthPhyIntfStatus(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }
   OperStatus operStatus() const { return operStatus_; }
   void operStatusIs(OperStatus s) { set(operStatus_, s, F::operStatus); }

  private:
   Wyx::IntfId intfId_;
   OperStatus operStatus_ = OperStatus::unknown;
};

// The status of every physical Ethernet interface, by interface.
class AllEthPhyIntfStatusDir : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, intfStatus };
   };
   explicit AllEthPhyIntfStatusDir(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   const EthPhyIntfStatus* intfStatus(Wyx::IntfId k) const { return intfStatus_.find(k); }
   EthPhyIntfStatus* intfStatus(Wyx::IntfId k) { return intfStatus_.find(k); }
   const Kiv::Collection<Wyx::IntfId, EthPhyIntfStatus>& intfStatus() const { return intfStatus_; }
   Pondo::Ptr<EthPhyIntfStatus> intfStatusIs(Wyx::IntfId k) { return intfStatus_.is(k); }
   Pondo::Ptr<EthPhyIntfStatus> intfStatusDel(Wyx::IntfId k) { return intfStatus_.del(k); }
   void intfStatusDelAll() { intfStatus_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Wyx::IntfId, EthPhyIntfStatus> intfStatus_{this, F::intfStatus, "intfStatus"};
};

}  // namespace Interface

template <>
struct Pondo::EnumInfo<Interface::OperStatus> {
   using E = Interface::OperStatus;
   static constexpr std::array<std::pair<E, std::string_view>, 7> names{{
       {E::up, "up"},
       {E::down, "down"},
       {E::testing, "testing"},
       {E::unknown, "unknown"},
       {E::dormant, "dormant"},
       {E::notPresent, "notPresent"},
       {E::lowerLayerDown, "lowerLayerDown"},
   }};
};
