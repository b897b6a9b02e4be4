// Per-interface hardware status published for the protocol side: whether an
// interface may carry PTP packets, and its static timestamping properties.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace Ptp {

// The kernel socket timestamping options an interface supports, as a bit set.
struct LinuxTsOptions {
   std::uint32_t value = 0;

   constexpr LinuxTsOptions() = default;
   constexpr explicit LinuxTsOptions(std::uint32_t v) : value(v) {}
   friend constexpr auto operator<=>(const LinuxTsOptions&, const LinuxTsOptions&) = default;
   std::string toString() const { return fmt::format("{:#x}", value); }
};

// The hardware status of one interface. Made with its interface and its
// timestamping options; asking for it again with other options is an error.
class HwIntfStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId {
         intfId,
         linuxTsOptions,
         intfReadyForTxPacket,
         intfReadyForRxPacket,
         twoStepClock,
         timestampAtPacketEnd,
         timestampMultiplier,
         timestampDivider,
         zeroMsb32Bits,
         egressTimestampExpiryInterval,
         negativeTsDeltaThreshold,
      };
   };
   HwIntfStatus(Wyx::IntfId intfId, LinuxTsOptions linuxTsOptions) : intfId_(intfId), linuxTsOptions_(linuxTsOptions) {}
   std::tuple<LinuxTsOptions> fixedArgs() const { return {linuxTsOptions_}; }

   Wyx::IntfId intfId() const { return intfId_; }
   LinuxTsOptions linuxTsOptions() const { return linuxTsOptions_; }

   bool intfReadyForTxPacket() const { return intfReadyForTxPacket_; }
   void intfReadyForTxPacketIs(bool v) { set(intfReadyForTxPacket_, v, F::intfReadyForTxPacket); }
   bool intfReadyForRxPacket() const { return intfReadyForRxPacket_; }
   void intfReadyForRxPacketIs(bool v) { set(intfReadyForRxPacket_, v, F::intfReadyForRxPacket); }

   bool twoStepClock() const { return twoStepClock_; }
   void twoStepClockIs(bool v) { set(twoStepClock_, v, F::twoStepClock); }
   bool timestampAtPacketEnd() const { return timestampAtPacketEnd_; }
   void timestampAtPacketEndIs(bool v) { set(timestampAtPacketEnd_, v, F::timestampAtPacketEnd); }
   std::uint32_t timestampMultiplier() const { return timestampMultiplier_; }
   void timestampMultiplierIs(std::uint32_t v) { set(timestampMultiplier_, v, F::timestampMultiplier); }
   std::uint32_t timestampDivider() const { return timestampDivider_; }
   void timestampDividerIs(std::uint32_t v) { set(timestampDivider_, v, F::timestampDivider); }
   // The hardware delivers only the low 32 bits of the seconds.
   bool zeroMsb32Bits() const { return zeroMsb32Bits_; }
   void zeroMsb32BitsIs(bool v) { set(zeroMsb32Bits_, v, F::zeroMsb32Bits); }
   // How long an egress timestamp may take to arrive before it is given up.
   Pondo::Duration egressTimestampExpiryInterval() const { return egressTimestampExpiryInterval_; }
   void egressTimestampExpiryIntervalIs(Pondo::Duration v) {
      set(egressTimestampExpiryInterval_, v, F::egressTimestampExpiryInterval);
   }
   // How far a timestamp may lie before its reference point and still be accepted.
   Pondo::Duration negativeTsDeltaThreshold() const { return negativeTsDeltaThreshold_; }
   void negativeTsDeltaThresholdIs(Pondo::Duration v) {
      set(negativeTsDeltaThreshold_, v, F::negativeTsDeltaThreshold);
   }

  private:
   Wyx::IntfId intfId_;
   LinuxTsOptions linuxTsOptions_;
   bool intfReadyForTxPacket_ = false;
   bool intfReadyForRxPacket_ = false;
   bool twoStepClock_ = false;
   bool timestampAtPacketEnd_ = false;
   std::uint32_t timestampMultiplier_ = 0;
   std::uint32_t timestampDivider_ = 0;
   bool zeroMsb32Bits_ = false;
   Pondo::Duration egressTimestampExpiryInterval_;
   Pondo::Duration negativeTsDeltaThreshold_;
};

// The hardware status of all interfaces, a named entity.
class HwStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, intfStatus };
   };
   explicit HwStatus(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }

   const HwIntfStatus* intfStatus(Wyx::IntfId k) const { return intfStatus_.find(k); }

   HwIntfStatus* intfStatus(Wyx::IntfId k) { return intfStatus_.find(k); }
   const Kiv::Collection<Wyx::IntfId, HwIntfStatus>& intfStatus() const { return intfStatus_; }
   Pondo::Ptr<HwIntfStatus> intfStatusIs(Wyx::IntfId k, LinuxTsOptions o) { return intfStatus_.is(k, o); }
   Pondo::Ptr<HwIntfStatus> intfStatusDel(Wyx::IntfId k) { return intfStatus_.del(k); }
   void intfStatusDelAll() { intfStatus_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Wyx::IntfId, HwIntfStatus> intfStatus_{this, F::intfStatus, "intfStatus"};
};

}  // namespace Ptp

template <>
struct std::hash<Ptp::LinuxTsOptions> {
   std::size_t operator()(const Ptp::LinuxTsOptions& o) const noexcept { return o.value; }
};
