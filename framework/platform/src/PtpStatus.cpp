#include "Ptp/Status.h"

namespace Ptp {

namespace {

int hexDigit(char c) {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

}  // namespace

ClockIdentity::ClockIdentity(std::string_view text) {
   auto c = parse(text);
   if (!c) throw Pondo::RangeError(fmt::format("'{}' is not a clock identity", text));
   *this = *c;
}

std::optional<ClockIdentity> ClockIdentity::parse(std::string_view text) {
   // Six, four and six hexadecimal digits separated by dots.
   if (text.size() != 18 || text[6] != '.' || text[11] != '.') return std::nullopt;
   Bytes b{};
   std::size_t n = 0;
   for (std::size_t i = 0; i < text.size(); i += 2) {
      if (text[i] == '.') ++i;
      int hi = hexDigit(text[i]), lo = hexDigit(text[i + 1]);
      if (hi < 0 || lo < 0) return std::nullopt;
      b[n++] = std::uint8_t(hi * 16 + lo);
   }
   return ClockIdentity(b);
}

std::string ClockIdentity::toString() const {
   const Bytes& b = bytes_;
   return fmt::format("{:02x}{:02x}{:02x}.{:02x}{:02x}.{:02x}{:02x}{:02x}", b[0], b[1], b[2], b[3], b[4], b[5], b[6],
                      b[7]);
}

std::string PortDSKey::toString() const {
   return fmt::format("{} domain {} port {}", intf_, domainNumber_, portNumber_);
}

}  // namespace Ptp
