// The chips' correction-field control tables: one receive and one transmit
// row per interface, at the interface's table index. The receive row says
// whether the chip rewrites the correction field of received PTP packets from
// the ingress timestamp; the transmit row how the correction field is updated
// on egress and whether invalid 1588 packets are dropped.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Asic/HwTable.h"
#include "Pondo/Enum.h"

namespace Asic {

// How the chip updates the correction field of a PTP packet on egress.
enum class EgressCFUpdateMode : std::uint8_t {
   none = 0,             // left as it is
   residenceTime = 1,    // the time spent in the switch is added
   egressTimestamp = 2,  // the egress timestamp is written into it
};

struct RxCfControlEntry {
   std::uint8_t ingressCfUpdateEnable = 0;
   std::uint8_t forceItsSignFromTs = 0;
   friend bool operator==(const RxCfControlEntry&, const RxCfControlEntry&) = default;
};

struct TxCfControlEntry {
   EgressCFUpdateMode egressCfUpdateMode = EgressCFUpdateMode::none;
   std::uint8_t dropInvalid1588Pkt = 0;
   // One enable per two-step timestamp path of the egress pipeline.
   std::array<std::uint8_t, 4> twoStepTsCfUpdateEnable{};
   friend bool operator==(const TxCfControlEntry&, const TxCfControlEntry&) = default;
};

class RxCfControlTable : public HwTable<RxCfControlEntry> {
  public:
   static constexpr std::string_view name = "rxCfControl";
   RxCfControlTable() : HwTable(std::string(name)) {}
};

class TxCfControlTable : public HwTable<TxCfControlEntry> {
  public:
   static constexpr std::string_view name = "txCfControl";
   TxCfControlTable() : HwTable(std::string(name)) {}
};

inline Pondo::Ptr<RxCfControlTable> rxCfControlTableFactory() { return Kiv::make<RxCfControlTable>(); }
inline Pondo::Ptr<TxCfControlTable> txCfControlTableFactory() { return Kiv::make<TxCfControlTable>(); }

// Stream output of the enumerations above, found by argument-dependent lookup.
using Pondo::operator<<;

}  // namespace Asic

template <>
struct Pondo::EnumInfo<Asic::EgressCFUpdateMode> {
   static constexpr std::array<std::pair<Asic::EgressCFUpdateMode, std::string_view>, 3> names{{
       {Asic::EgressCFUpdateMode::none, "none"},
       {Asic::EgressCFUpdateMode::residenceTime, "residenceTime"},
       {Asic::EgressCFUpdateMode::egressTimestamp, "egressTimestamp"},
   }};
};
