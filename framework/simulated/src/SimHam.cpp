#include "Hpx/SimHam.h"

#include <charconv>
#include <cmath>
#include <iterator>
#include <utility>

namespace Hpx {

SimHam::SimHam(Pondo::String name) : Ham(std::move(name)) {
   // Whole seconds and the fraction apart, so the nanoseconds keep their precision.
   const Kiv::Seconds utc = Kiv::currentTimeUtc();
   const double whole = std::floor(utc);
   counterIs(std::uint64_t(whole) * 1'000'000'000u + std::uint64_t(std::llround((utc - whole) * 1e9)));
   readyIs(true);
}

std::uint64_t SimHam::counter() const {
   if (stalled_) return base_;
   return base_ + std::uint64_t(std::llround((Kiv::currentTime() - since_) * 1e9));
}

void SimHam::counterIs(std::uint64_t ns) {
   base_ = ns;
   since_ = Kiv::currentTime();
}

void SimHam::stalledIs(bool s) {
   if (s == stalled_) return;
   base_ = counter();
   since_ = Kiv::currentTime();
   stalled_ = s;
}

void SimHam::valueRead(const Pondo::String& valueName) {
   ++valueReads_;
   const std::optional<std::uint64_t> shown = std::exchange(resultCounter_, std::nullopt);
   if (auto it = text_.find(valueName); it != text_.end()) {
      result_ = it->second;
   } else if (valueName == "ptp_timestamp") {
      // A counter standing still (as it does within one loop event) reads as
      // the text already there.
      const std::uint64_t c = counter();
      if (shown != c) {
         char digits[20];
         result_.assign(digits, std::to_chars(digits, std::end(digits), c).ptr);  // keeps its storage
      }
      resultCounter_ = c;
   } else {
      static const Pondo::String zero = "0";
      result_ = zero;
   }
}

void SimHam::registerRead(Reg32 reg, std::uint32_t& value) {
   auto it = register_.find(reg);
   value = it == register_.end() ? 0 : it->second;
}

}  // namespace Hpx
