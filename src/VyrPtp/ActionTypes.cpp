#include "VyrPtp/ActionTypes.h"

#include <charconv>

namespace VyrPtp::ActionTypes {

TsActions TsActions::fromString(std::string_view) {
   Kiv::kassert(false, "No String constructor for TsActions - has collection");
   __builtin_unreachable();
}

std::vector<TsAction> TsActions::tsAction() const {
   std::vector<TsAction> members;
   for (const auto& [a, name] : Pondo::EnumInfo<TsAction>::names) {
      if (tsAction(a)) members.push_back(a);
   }
   return members;
}

std::string TsActions::toString() const {
   std::string s = "{";
   for (TsAction a : tsAction()) {
      if (s.size() > 1) s += ", ";
      s += Pondo::enumName(a);
   }
   return s + "}";
}

std::string PktType::toString() const {
   return fmt::format("PktType(msgType: {}, version: {}, encapType: {})", msgType, version, encapType);
}

namespace {

// One field "name: value" of the text form; the value is a name or a number.
template <class E>
E parseField(std::string_view& rest, std::string_view field, std::string_view text) {
   auto bad = [&] { return Pondo::RangeError(fmt::format("bad {} in PktType text '{}'", field, text)); };
   while (!rest.empty() && (rest.front() == ' ' || rest.front() == ',')) rest.remove_prefix(1);
   if (rest.substr(0, field.size()) != field) throw bad();
   rest.remove_prefix(field.size());
   if (rest.substr(0, 2) != ": ") throw bad();
   rest.remove_prefix(2);
   std::size_t end = rest.find_first_of(",)");
   std::string_view value = rest.substr(0, end);
   rest.remove_prefix(value.size());
   if (auto e = Pondo::enumFromName<E>(value)) return *e;
   unsigned number = 0;
   auto [ptr, ec] = std::from_chars(value.data(), value.data() + value.size(), number);
   if (ec != std::errc{} || ptr != value.data() + value.size() || number > 0xFF) throw bad();
   if (auto e = Pondo::enumFromValue<E>(std::uint8_t(number))) return *e;
   throw bad();
}

}  // namespace

PktType PktType::fromString(std::string_view text) {
   constexpr std::string_view head = "PktType(";
   if (text.substr(0, head.size()) != head || text.empty() || text.back() != ')') {
      throw Pondo::RangeError(fmt::format("'{}' is not a PktType text", text));
   }
   std::string_view rest = text.substr(head.size());
   PktType p;
   p.msgType = parseField<Ptp::MessageTypeNumber>(rest, "msgType", text);
   p.version = parseField<Ptp::PtpVersion>(rest, "version", text);
   p.encapType = parseField<Ptp::TransportMode>(rest, "encapType", text);
   if (rest != ")") throw Pondo::RangeError(fmt::format("trailing text in PktType text '{}'", text));
   return p;
}

}  // namespace VyrPtp::ActionTypes
