// The PTP hardware configuration written by the protocol side: global
// settings and one entry per interface.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Kiv/Entity.h"
#include "Pondo/Enum.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace Ptp {

// The PTP mode of the switch. The hardware-facing machines decide by its
// number alone, so it prints as that number.
enum class PtpMode : std::uint8_t { disabled = 0 };

namespace Location {
// Where an interface's PTP packets are timestamped.
enum class Location : std::uint8_t { chip = 0, externalPhy = 1 };
}  // namespace Location

class HwIntfConfig : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfId, enabled, disableManagementMessageForwarding };
   };
   explicit HwIntfConfig(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }
   bool enabled() const { return enabled_; }
   void enabledIs(bool v) { set(enabled_, v, F::enabled); }
   bool disableManagementMessageForwarding() const { return disableManagementMessageForwarding_; }
   void disableManagementMessageForwardingIs(bool v) {
      set(disableManagementMessageForwarding_, v, F::disableManagementMessageForwarding);
   }

  private:
   Wyx::IntfId intfId_;
   bool enabled_ = false;
   bool disableManagementMessageForwarding_ = false;
};

class HwConfig : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId {
         name,
         forwardPtpV1,
         forwardUnicastApplicable,
         g82751Enabled,
         ptpMode,
         timestampLocation,
         intfConfig
      };
   };
   explicit HwConfig(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   bool forwardPtpV1() const { return forwardPtpV1_; }
   void forwardPtpV1Is(bool v) { set(forwardPtpV1_, v, F::forwardPtpV1); }
   bool forwardUnicastApplicable() const { return forwardUnicastApplicable_; }
   void forwardUnicastApplicableIs(bool v) { set(forwardUnicastApplicable_, v, F::forwardUnicastApplicable); }
   bool g82751Enabled() const { return g82751Enabled_; }
   void g82751EnabledIs(bool v) { set(g82751Enabled_, v, F::g82751Enabled); }
   PtpMode ptpMode() const { return ptpMode_; }
   void ptpModeIs(PtpMode v) { set(ptpMode_, v, F::ptpMode); }
   Location::Location timestampLocation() const { return timestampLocation_; }
   void timestampLocationIs(Location::Location v) { set(timestampLocation_, v, F::timestampLocation); }

   const HwIntfConfig* intfConfig(Wyx::IntfId k) const { return intfConfig_.find(k); }

   HwIntfConfig* intfConfig(Wyx::IntfId k) { return intfConfig_.find(k); }
   const Kiv::Collection<Wyx::IntfId, HwIntfConfig>& intfConfig() const { return intfConfig_; }
   Pondo::Ptr<HwIntfConfig> intfConfigIs(Wyx::IntfId k) { return intfConfig_.is(k); }
   Pondo::Ptr<HwIntfConfig> intfConfigDel(Wyx::IntfId k) { return intfConfig_.del(k); }
   void intfConfigDelAll() { intfConfig_.delAll(); }

  private:
   Pondo::String name_;
   bool forwardPtpV1_ = false;
   bool forwardUnicastApplicable_ = false;
   bool g82751Enabled_ = false;
   PtpMode ptpMode_ = PtpMode::disabled;
   Location::Location timestampLocation_ = Location::Location::chip;
   Kiv::Collection<Wyx::IntfId, HwIntfConfig> intfConfig_{this, F::intfConfig, "intfConfig"};
};

}  // namespace Ptp

template <>
struct fmt::formatter<Ptp::PtpMode> : fmt::formatter<unsigned> {
   auto format(Ptp::PtpMode m, fmt::format_context& ctx) const {
      return fmt::formatter<unsigned>::format(unsigned(m), ctx);
   }
};

template <>
struct Pondo::EnumInfo<Ptp::Location::Location> {
   using E = Ptp::Location::Location;
   static constexpr std::array<std::pair<E, std::string_view>, 2> names{{
       {E::chip, "chip"},
       {E::externalPhy, "externalPhy"},
   }};
};
