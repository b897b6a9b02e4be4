// Stopping the process on a broken invariant, and naming the place in the
// source where that happened. The tracing of Kiv renders its records with the
// same place names.
#pragma once

#include <source_location>
#include <string_view>

namespace Pondo {

// Where code was written: the file's base name and, from the compiler's
// function signature, the class (empty for free functions) and the function.
struct SourcePlace {
   std::string_view file;
   std::string_view className;
   std::string_view function;
};
SourcePlace sourcePlace(const std::source_location& where);

// Writes "Assertion failed: <message> (<file>:<line>, <class>::<function>)" to
// standard error and stops the process.
[[noreturn]] void fatal(std::string_view message, const std::source_location& where);

}  // namespace Pondo
