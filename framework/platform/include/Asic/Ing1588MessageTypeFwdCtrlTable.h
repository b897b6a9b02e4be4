// The chips' ingress message-type forwarding control table: one row per
// ingress profile, saying how received PTP packets of each kind are handled.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "Asic/HwTable.h"

namespace Asic {

// A row: 20 one-byte flags, each 0 or 1, in the order of the row's fields.
struct Ing1588MessageTypeFwdCtrlEntry {
   static constexpr std::size_t flags = 20;
   std::array<std::uint8_t, flags> flag{};
   friend bool operator==(const Ing1588MessageTypeFwdCtrlEntry&, const Ing1588MessageTypeFwdCtrlEntry&) = default;
};

class Ing1588MessageTypeFwdCtrlTable : public HwTable<Ing1588MessageTypeFwdCtrlEntry> {
  public:
   static constexpr std::string_view name = "ing1588MessageTypeFwdCtrl";
   Ing1588MessageTypeFwdCtrlTable() : HwTable(std::string(name)) {}
};

inline Pondo::Ptr<Ing1588MessageTypeFwdCtrlTable> ing1588MessageTypeFwdCtrlTableFactory() {
   return Kiv::make<Ing1588MessageTypeFwdCtrlTable>();
}

}  // namespace Asic
