// The chassis as a record tree, shared by the PTP agent's components: the
// slices (line cards or the fixed system), the forwarding chips (FAPs) of
// each slice, the interfaces each chip serves, and where on its chip each
// interface sits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Kiv/Entity.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace VyrPtp::ChassisAbstraction {

using FapId = std::uint16_t;

// Where an interface sits: its chip, the chip's port number and the core
// (pipeline) within the chip. All zero means not set.
struct VYRPTP_EXPORT PortMap {
   FapId fapId = 0;
   std::uint16_t fapPortId = 0;
   std::uint16_t localCoreId = 0;

   friend auto operator<=>(const PortMap&, const PortMap&) = default;
   bool unset() const { return *this == PortMap{}; }
   // "VyrPtp::ChassisAbstraction::PortMap(fapId: 1, fapPortId: 12, localCoreId: 0)"
   std::string toString() const;
   // Parses the whole of `text` in the form above; throws Pondo::RangeError
   // naming what is wrong.
   static PortMap fromString(std::string_view text);
};

class VYRPTP_EXPORT IntfInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfId, portMap };
   };
   explicit IntfInfo(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }
   const PortMap& portMap() const { return portMap_; }
   void portMapIs(const PortMap& m) { set(portMap_, m, F::portMap); }

  private:
   Wyx::IntfId intfId_;
   PortMap portMap_;
};

class VYRPTP_EXPORT FapInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { fapId, intf };
   };
   explicit FapInfo(FapId fapId) : fapId_(fapId) {}

   FapId fapId() const { return fapId_; }
   const IntfInfo* intf(Wyx::IntfId i) const { return intf_.find(i); }
   IntfInfo* intf(Wyx::IntfId i) { return intf_.find(i); }
   const Kiv::Collection<Wyx::IntfId, IntfInfo>& intf() const { return intf_; }
   Pondo::Ptr<IntfInfo> intfIs(Wyx::IntfId i) { return intf_.is(i); }
   Pondo::Ptr<IntfInfo> intfDel(Wyx::IntfId i) { return intf_.del(i); }
   void intfDelAll() { intf_.delAll(); }

  private:
   FapId fapId_;
   Kiv::Collection<Wyx::IntfId, IntfInfo> intf_{this, F::intf, "intf"};
};

class VYRPTP_EXPORT SliceInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, fapId };
   };
   explicit SliceInfo(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   const FapInfo* fapId(FapId id) const { return fapId_.find(id); }
   FapInfo* fapId(FapId id) { return fapId_.find(id); }
   const Kiv::Collection<FapId, FapInfo>& fapId() const { return fapId_; }
   Pondo::Ptr<FapInfo> fapIdIs(FapId id) { return fapId_.is(id); }
   Pondo::Ptr<FapInfo> fapIdDel(FapId id) { return fapId_.del(id); }
   void fapIdDelAll() { fapId_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<FapId, FapInfo> fapId_{this, F::fapId, "fapId"};
};

class VYRPTP_EXPORT ChassisInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { slice };
   };
   const SliceInfo* slice(const Pondo::String& name) const { return slice_.find(name); }
   SliceInfo* slice(const Pondo::String& name) { return slice_.find(name); }
   const Kiv::Collection<Pondo::String, SliceInfo>& slice() const { return slice_; }
   Pondo::Ptr<SliceInfo> sliceIs(const Pondo::String& name) { return slice_.is(name); }
   Pondo::Ptr<SliceInfo> sliceDel(const Pondo::String& name) { return slice_.del(name); }
   void sliceDelAll() { slice_.delAll(); }

  private:
   Kiv::Collection<Pondo::String, SliceInfo> slice_{this, F::slice, "slice"};
};

// Factories, and the makers named after each type.
VYRPTP_EXPORT Pondo::Ptr<ChassisInfo> chassisInfoFactory();
VYRPTP_EXPORT Pondo::Ptr<SliceInfo> sliceInfoFactory(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<FapInfo> fapInfoFactory(FapId fapId);
VYRPTP_EXPORT Pondo::Ptr<IntfInfo> intfInfoFactory(Wyx::IntfId intfId);
VYRPTP_EXPORT Pondo::Ptr<ChassisInfo> ChassisInfoIs();
VYRPTP_EXPORT Pondo::Ptr<SliceInfo> SliceInfoIs(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<FapInfo> FapInfoIs(FapId fapId);
VYRPTP_EXPORT Pondo::Ptr<IntfInfo> IntfInfoIs(Wyx::IntfId intfId);

}  // namespace VyrPtp::ChassisAbstraction

template <>
struct std::hash<VyrPtp::ChassisAbstraction::PortMap> {
   std::size_t operator()(const VyrPtp::ChassisAbstraction::PortMap& m) const noexcept {
      std::size_t h = Pondo::hashMix(0, m.fapId);
      h = Pondo::hashMix(h, m.fapPortId);
      return Pondo::hashMix(h, m.localCoreId);
   }
};
