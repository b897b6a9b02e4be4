// The protocol side's PTP status: one port data set per PTP port.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "Kiv/Entity.h"
#include "Pondo/Enum.h"
#include "Pondo/Types.h"
#include "Ptp/ClockIdentity.h"
#include "Wyx/IntfId.h"

namespace Ptp {

// State of a PTP port: the IEEE 1588 port states 1..9, and slaveVariant (144),
// which the hardware treats like slave. Other values may occur and print as
// "unknown(<value>)".
enum class PortState : std::uint8_t {
   initializing = 1,
   faulty = 2,
   disabled = 3,
   listening = 4,
   preMaster = 5,
   master = 6,
   passive = 7,
   uncalibrated = 8,
   slave = 9,
   slaveVariant = 144,
};

// Identifies one port data set: the interface the PTP port runs on (physical
// or port channel), its domain and its port number.
class PortDSKey {
  public:
   constexpr PortDSKey() = default;
   constexpr explicit PortDSKey(Wyx::IntfId intf, std::uint8_t domainNumber = 0, std::uint16_t portNumber = 1)
       : intf_(intf), domainNumber_(domainNumber), portNumber_(portNumber) {}

   Wyx::IntfId intf() const { return intf_; }
   std::uint8_t domainNumber() const { return domainNumber_; }
   std::uint16_t portNumber() const { return portNumber_; }
   // "Ethernet1/1 domain 0 port 1"
   std::string toString() const;

   friend constexpr auto operator<=>(const PortDSKey&, const PortDSKey&) = default;

  private:
   Wyx::IntfId intf_;
   std::uint8_t domainNumber_ = 0;
   std::uint16_t portNumber_ = 1;
};

class PortDS : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { portDSKey, clockIdentity, portState };
   };
   // The clock identity is part of the port's identity and fixed.
   PortDS(const PortDSKey& key, const ClockIdentity& clockIdentity) : portDSKey_(key), clockIdentity_(clockIdentity) {}
   std::tuple<ClockIdentity> fixedArgs() const { return {clockIdentity_}; }

   const PortDSKey& portDSKey() const { return portDSKey_; }
   PortState portState() const { return portState_; }
   void portStateIs(PortState s) { set(portState_, s, F::portState); }
   const ClockIdentity& clockIdentity() const { return clockIdentity_; }

  private:
   PortDSKey portDSKey_;
   ClockIdentity clockIdentity_;
   PortState portState_ = PortState::initializing;
};

class Status : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, portDS };
   };
   explicit Status(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   const PortDS* portDS(const PortDSKey& k) const { return portDS_.find(k); }
   PortDS* portDS(const PortDSKey& k) { return portDS_.find(k); }
   const Kiv::Collection<PortDSKey, PortDS>& portDS() const { return portDS_; }
   Pondo::Ptr<PortDS> portDSIs(const PortDSKey& k, const ClockIdentity& clockIdentity) {
      return portDS_.is(k, clockIdentity);
   }
   Pondo::Ptr<PortDS> portDSDel(const PortDSKey& k) { return portDS_.del(k); }
   void portDSDelAll() { portDS_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<PortDSKey, PortDS> portDS_{this, F::portDS, "portDS"};
};

}  // namespace Ptp

template <>
struct Pondo::EnumInfo<Ptp::PortState> {
   using E = Ptp::PortState;
   static constexpr std::array<std::pair<E, std::string_view>, 10> names{{
       {E::initializing, "initializing"},
       {E::faulty, "faulty"},
       {E::disabled, "disabled"},
       {E::listening, "listening"},
       {E::preMaster, "preMaster"},
       {E::master, "master"},
       {E::passive, "passive"},
       {E::uncalibrated, "uncalibrated"},
       {E::slave, "slave"},
       {E::slaveVariant, "slaveVariant"},
   }};
};

template <>
struct std::hash<Ptp::PortDSKey> {
   std::size_t operator()(const Ptp::PortDSKey& k) const noexcept {
      std::size_t h = std::hash<Wyx::IntfId>{}(k.intf());
      h = Pondo::hashMix(h, k.domainNumber());
      return Pondo::hashMix(h, k.portNumber());
   }
};
