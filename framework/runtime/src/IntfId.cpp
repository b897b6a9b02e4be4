#include "Wyx/IntfId.h"

#include <array>
#include <charconv>

namespace Wyx {

namespace {

struct KindName {
   IntfId::Kind kind;
   std::string_view full;
   std::string_view brief;
};

constexpr std::array<KindName, 5> kNames{{
    {IntfId::Kind::ethernet, "Ethernet", "Et"},
    {IntfId::Kind::portChannel, "Port-Channel", "Po"},
    {IntfId::Kind::management, "Management", "Ma"},
    {IntfId::Kind::loopback, "Loopback", "Lo"},
    {IntfId::Kind::vlan, "Vlan", "Vl"},
}};

constexpr unsigned kMaxNumbers = 3;

const KindName* nameOf(IntfId::Kind k) {
   for (const auto& n : kNames) {
      if (n.kind == k) return &n;
   }
   return nullptr;
}

std::string render(std::uint64_t v, std::string_view prefix) {
   std::string s(prefix);
   unsigned count = unsigned(v & 0xFF);
   for (unsigned i = 0; i < count; ++i) {
      if (i) s += '/';
      s += std::to_string((v >> (40 - 16 * i)) & 0xFFFF);
   }
   return s;
}

}  // namespace

std::optional<IntfId> IntfId::parse(std::string_view name) {
   for (const auto& n : kNames) {
      // The full name starts with the short one, so try it first.
      for (std::string_view prefix : {n.full, n.brief}) {
         if (name.substr(0, prefix.size()) != prefix) continue;
         std::string_view rest = name.substr(prefix.size());
         std::uint64_t v = std::uint64_t(n.kind) << 56;
         unsigned count = 0;
         while (!rest.empty() && count < kMaxNumbers) {
            unsigned number = 0;
            auto [end, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
            if (ec != std::errc{} || number > 0xFFFF) return std::nullopt;
            v |= std::uint64_t(number) << (40 - 16 * count);
            ++count;
            rest.remove_prefix(std::size_t(end - rest.data()));
            if (rest.empty()) break;
            if (rest.front() != '/') return std::nullopt;
            rest.remove_prefix(1);
            if (rest.empty()) return std::nullopt;
         }
         if (!rest.empty() || count == 0) return std::nullopt;
         return fromValue(v | count);
      }
   }
   return std::nullopt;
}

IntfId::IntfId(std::string_view name) {
   auto parsed = parse(name);
   if (!parsed) throw Pondo::RangeError(fmt::format("'{}' is not an interface name", name));
   value_ = parsed->value_;
}

std::string IntfId::name() const {
   const KindName* n = nameOf(kind());
   return n ? render(value_, n->full) : std::string();
}

std::string IntfId::shortName() const {
   const KindName* n = nameOf(kind());
   return n ? render(value_, n->brief) : std::string();
}

}  // namespace Wyx
