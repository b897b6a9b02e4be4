// Slice naming of the platform utilities.
#pragma once

#include <string>
#include <string_view>

namespace VyrPtp::Utils {

// The name shared by all slices of one kind: the slice name without its
// trailing number ("Linecard3" and "Linecard12" give "Linecard"; a name
// without a number is its own kind).
std::string genericSliceName(std::string_view sliceName);

}  // namespace VyrPtp::Utils
