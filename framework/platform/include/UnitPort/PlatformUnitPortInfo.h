// The platform's inventory of one unit: its forwarding chips, each with the
// slice it sits on, its name and its interfaces.
#pragma once

#include <cstdint>
#include <tuple>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace VyrPtp::UnitPort {

// A forwarding chip of the unit.
using FapId = std::uint8_t;

class PlatformUnitPortFapInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { fapId, sliceName, chipName, intfInfo };
   };
   PlatformUnitPortFapInfo(FapId fapId, Pondo::String sliceName, Pondo::String chipName)
       : fapId_(fapId), sliceName_(std::move(sliceName)), chipName_(std::move(chipName)) {}
   std::tuple<Pondo::String, Pondo::String> fixedArgs() const { return {sliceName_, chipName_}; }

   FapId fapId() const { return fapId_; }
   const Pondo::String& sliceName() const { return sliceName_; }
   const Pondo::String& chipName() const { return chipName_; }

   // The chip's interfaces.
   const Kiv::Set<Wyx::IntfId>& intfInfo() const { return intfInfo_; }
   bool intfInfo(Wyx::IntfId i) const { return intfInfo_.contains(i); }
   void intfInfoIs(Wyx::IntfId i) { intfInfo_.is(i); }
   bool intfInfoDel(Wyx::IntfId i) { return intfInfo_.del(i); }
   void intfInfoDelAll() { intfInfo_.delAll(); }

  private:
   FapId fapId_;
   Pondo::String sliceName_;
   Pondo::String chipName_;
   Kiv::Set<Wyx::IntfId> intfInfo_{this, F::intfInfo, "intfInfo"};
};

class PlatformUnitPortInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, fapInfo };
   };
   explicit PlatformUnitPortInfo(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   const PlatformUnitPortFapInfo* fapInfo(FapId k) const { return fapInfo_.find(k); }
   PlatformUnitPortFapInfo* fapInfo(FapId k) { return fapInfo_.find(k); }
   const Kiv::Collection<FapId, PlatformUnitPortFapInfo>& fapInfo() const { return fapInfo_; }
   // Creates the chip's entry, complete with its slice and chip names, if absent.
   Pondo::Ptr<PlatformUnitPortFapInfo> fapInfoIs(FapId k, const Pondo::String& sliceName,
                                                 const Pondo::String& chipName) {
      return fapInfo_.is(k, sliceName, chipName);
   }
   Pondo::Ptr<PlatformUnitPortFapInfo> fapInfoDel(FapId k) { return fapInfo_.del(k); }
   void fapInfoDelAll() { fapInfo_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<FapId, PlatformUnitPortFapInfo> fapInfo_{this, F::fapInfo, "fapInfo"};
};

}  // namespace VyrPtp::UnitPort
