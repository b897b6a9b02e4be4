#include "Pondo/Fatal.h"

#include <cstdio>
#include <cstdlib>

namespace Pondo {

// "void VyrPtp::IntfInfoSm::updateHwIntfStatus()" -> class "IntfInfoSm", function "updateHwIntfStatus".
SourcePlace sourcePlace(const std::source_location& where) {
   SourcePlace p;
   std::string_view path = where.file_name();
   auto slash = path.rfind('/');
   p.file = slash == std::string_view::npos ? path : path.substr(slash + 1);
   std::string_view pretty = where.function_name();
   std::string_view head = pretty.substr(0, pretty.find('('));
   if (auto space = head.rfind(' '); space != std::string_view::npos) head = head.substr(space + 1);
   auto sep = head.rfind("::");
   if (sep == std::string_view::npos) {
      p.function = head;
      return p;
   }
   p.function = head.substr(sep + 2);
   std::string_view scope = head.substr(0, sep);
   auto prev = scope.rfind("::");
   p.className = prev == std::string_view::npos ? scope : scope.substr(prev + 2);
   return p;
}

void fatal(std::string_view message, const std::source_location& where) {
   SourcePlace p = sourcePlace(where);
   std::fprintf(stderr, "Assertion failed: %.*s (%.*s:%u, %.*s%s%.*s)\n", int(message.size()), message.data(),
                int(p.file.size()), p.file.data(), unsigned(where.line()), int(p.className.size()), p.className.data(),
                p.className.empty() ? "" : "::", int(p.function.size()), p.function.data());
   std::fflush(stderr);
   std::abort();
}

}  // namespace Pondo
