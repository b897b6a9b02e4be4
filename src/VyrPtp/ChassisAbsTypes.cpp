#include "VyrPtp/ChassisAbsTypes.h"

#include <array>
#include <charconv>

namespace VyrPtp::ChassisAbstraction {

namespace {

constexpr std::string_view typeName = "VyrPtp::ChassisAbstraction::PortMap";

struct Field {
   std::string_view name;
   std::uint16_t PortMap::*member;
};
constexpr std::array<Field, 3> fields{{
    {"fapId", &PortMap::fapId},
    {"fapPortId", &PortMap::fapPortId},
    {"localCoreId", &PortMap::localCoreId},
}};

}  // namespace

std::string PortMap::toString() const {
   return fmt::format("{}(fapId: {}, fapPortId: {}, localCoreId: {})", typeName, fapId, fapPortId, localCoreId);
}

PortMap PortMap::fromString(std::string_view text) {
   std::string_view rest = text;
   auto fail = [&](std::string_view what) {
      throw Pondo::RangeError(
          fmt::format("{} at offset {} of PortMap text '{}'", what, text.size() - rest.size(), text));
   };
   auto expect = [&](std::string_view s) {
      if (!rest.starts_with(s)) fail(fmt::format("expected '{}'", s));
      rest.remove_prefix(s.size());
   };
   PortMap m;
   expect(typeName);
   expect("(");
   for (const Field& f : fields) {
      if (&f != fields.data()) expect(", ");
      expect(f.name);
      expect(": ");
      auto [end, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), m.*f.member);
      if (ec != std::errc{}) fail(fmt::format("bad {}", f.name));
      rest.remove_prefix(std::size_t(end - rest.data()));
   }
   expect(")");
   if (!rest.empty()) fail("trailing text");
   return m;
}

}  // namespace VyrPtp::ChassisAbstraction
