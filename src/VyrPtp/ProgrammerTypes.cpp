#include "VyrPtp/ProgrammerTypes.h"

namespace VyrPtp::Programmer {

namespace {
constexpr std::string_view kTypeField = "programmerType ";
constexpr std::string_view kIntfField = ", intfId ";
}  // namespace

std::string ProgrammerIntfId::toString() const {
   return fmt::format("programmerType {}, intfId {}", programmerType, intfId);
}

ProgrammerIntfId ProgrammerIntfId::fromString(std::string_view text) {
   // Programmer types are free text; interface names never hold the separator,
   // so the last one ends the type.
   if (text.substr(0, kTypeField.size()) != kTypeField) {
      throw Pondo::RangeError(fmt::format("bad programmerType in ProgrammerIntfId text '{}'", text));
   }
   const std::size_t sep = text.rfind(kIntfField);
   if (sep == std::string_view::npos || sep < kTypeField.size()) {
      throw Pondo::RangeError(fmt::format("bad intfId in ProgrammerIntfId text '{}'", text));
   }
   ProgrammerIntfId k;
   k.programmerType = std::string(text.substr(kTypeField.size(), sep - kTypeField.size()));
   const std::string_view intf = text.substr(sep + kIntfField.size());
   if (!intf.empty()) {  // the null interface prints as an empty name
      auto id = Wyx::IntfId::parse(intf);
      if (!id) throw Pondo::RangeError(fmt::format("bad intfId in ProgrammerIntfId text '{}'", text));
      k.intfId = *id;
   }
   return k;
}

}  // namespace VyrPtp::Programmer
