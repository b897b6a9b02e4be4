// When a wrongly widened egress timestamp is the library's error.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace Sim {

// A 32-bit latch widens exactly only with a full time read in
// [latch, latch + 2^32 ns). `read` is the text the fetcher read (the FPGA
// counter, or an ASIC time file whose first number is the time); a time
// outside that window (a faulty or stale source, an entry read too late)
// makes a wrong result the source's fault, not the library's.
inline bool soundTime(std::string_view read, std::uint64_t latched) {
   const auto end = read.find_first_of(" \n");
   if (end != std::string_view::npos) read = read.substr(0, end);
   std::uint64_t t = 0;
   auto [at, ec] = std::from_chars(read.data(), read.data() + read.size(), t);
   return ec == std::errc{} && at == read.data() + read.size() && t >= latched &&
          t - latched < (std::uint64_t(1) << 32);
}

}  // namespace Sim
