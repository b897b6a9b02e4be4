#include "Utils/SliceName.h"

namespace VyrPtp::Utils {

std::string genericSliceName(std::string_view sliceName) {
   const std::size_t end = sliceName.find_last_not_of("0123456789");
   return std::string(sliceName.substr(0, end == std::string_view::npos ? 0 : end + 1));
}

}  // namespace VyrPtp::Utils
