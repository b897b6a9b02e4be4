// Tracing and assertions.
//
// Each source file has one trace handle (a Kiv::Tracer at namespace scope)
// holding a 16-bit mask of enabled levels. The level is tested before any
// argument is formatted, so a disabled trace costs one bit test. Handles are
// enabled by name through the environment variable VYRPTP_TRACE, for example
//   VYRPTP_TRACE="AggregatorSmNi/0-9,VyrEgressTsArmSm/*"
// or programmatically with traceMaskIs(). Records go to stderr, to the file
// named by VYRPTP_TRACE_FILE, or to a sink installed with traceSinkIs().
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "Pondo/Fatal.h"

namespace Kiv {

using TraceLevel = unsigned;
inline constexpr std::uint16_t kTraceAllLevels = 0xFFFF;

struct TraceRecord {
   std::string_view handle;  // trace handle name
   TraceLevel level;
   std::string_view file;      // source file
   std::string_view function;  // function name
   std::uint32_t line;
   std::string_view className;  // class of the function, empty for free functions
   std::string_view message;
};

// A message format, a string literal, together with where it was written. The
// format is checked against the argument types at compile time, so a trace
// that is off in production cannot hold a format that would fail once it is
// switched on:
//
//   trace(8, "intf: {}", intfId);       // compiles
//   trace(8, "intf: {:d}", "Et1");      // does not: 'd' is no string format
//
// It keeps the literal's address alone: a record of two pointers is passed in
// registers, so a trace that is off stores nothing at its call site.
template <class... A>
struct BasicTraceFormat {
   // fmt's format string is built only for its check, then dropped.
   template <std::size_t N>
   consteval BasicTraceFormat(const char (&s)[N], std::source_location l = std::source_location::current())  // NOLINT
       : text((static_cast<void>(fmt::format_string<A...>(s)), s)), where(l) {}
   const char* text;  // a string literal
   std::source_location where;
};
// The format of a message with arguments `A` (not deduced from the format).
template <class... A>
using TraceFormat = BasicTraceFormat<std::type_identity_t<A>...>;

class Tracer {
  public:
   explicit Tracer(std::string name);
   ~Tracer();
   Tracer(const Tracer&) = delete;
   Tracer& operator=(const Tracer&) = delete;

   const std::string& name() const { return name_; }
   std::uint16_t mask() const { return mask_; }
   void maskIs(std::uint16_t m) { mask_ = m; }
   bool enabled(TraceLevel level) const { return (mask_ >> level) & 1u; }

   // "{}"-style message. The level test is made where the trace is written;
   // the format is only built, out of line, for an enabled level.
   template <class... A>
   [[gnu::always_inline]] void operator()(TraceLevel level, TraceFormat<A...> f, const A&... a) const {
      if (!enabled(level)) [[likely]]
         return;
      emitFormatted(level, f, a...);
   }
   void emit(TraceLevel level, const std::source_location& where, std::string_view message) const;

  private:
   template <class... A>
   [[gnu::noinline, gnu::cold]] void emitFormatted(TraceLevel level, TraceFormat<A...> f, const A&... a) const {
      emit(level, f.where, fmt::vformat(f.text, fmt::make_format_args(a...)));
   }

   std::string name_;
   std::uint16_t mask_ = 0;
};

// Stream-style trace helper: strings, booleans and numbers are appended while
// the level is enabled; the record is written when the helper goes away.
class TraceStream {
  public:
   TraceStream(const Tracer& t, TraceLevel level, std::source_location l = std::source_location::current())
       : tracer_(t), level_(level), where_(l), on_(t.enabled(level)) {}
   ~TraceStream() {
      if (on_) tracer_.emit(level_, where_, text_);
   }
   TraceStream(const TraceStream&) = delete;
   TraceStream& operator=(const TraceStream&) = delete;

   template <class T>
   TraceStream& operator<<(const T& v) {
      if (on_) {
         if constexpr (std::is_same_v<T, bool>) {
            text_ += v ? "true" : "false";
         } else {
            fmt::format_to(std::back_inserter(text_), "{}", v);
         }
      }
      return *this;
   }

  private:
   const Tracer& tracer_;
   TraceLevel level_;
   std::source_location where_;
   bool on_;
   std::string text_;
};

// Sets the mask of the named handle (also of handles created later).
void traceMaskIs(std::string_view handle, std::uint16_t mask);
// Applies a configuration such as "AggregatorSmNi/0-9,VyrPtp/6,*/0".
// Throws std::invalid_argument naming the malformed part.
void traceConfigIs(std::string_view config);
// Checks a configuration without applying it: throws std::invalid_argument
// naming the malformed part or a handle that no loaded code has.
void traceConfigCheck(std::string_view config);
// The names of the trace handles of the loaded code, sorted.
std::vector<std::string> traceHandles();
// Replaces the destination of trace records; an empty function restores stderr.
void traceSinkIs(std::function<void(const TraceRecord&)> sink);
// Writes records to a file instead of stderr. Throws std::runtime_error if it cannot be opened.
void traceFileIs(const std::string& path);
// The usual one-line rendering of a record.
std::string traceLine(const TraceRecord& r);

using Pondo::fatal;

// The failing side of kassert, kept out of line and away from hot code.
template <class... A>
[[noreturn, gnu::noinline, gnu::cold]] void kassertFailed(TraceFormat<A...> f, const A&... a) {
   fatal(fmt::vformat(f.text, fmt::make_format_args(a...)), f.where);
}

// Assertion: when `ok` is false, formats the message ("{}" placeholders) and
// stops the process. A holding assertion costs the test alone.
template <class C, class... A>
[[gnu::always_inline]] inline void kassert(const C& ok, TraceFormat<A...> f, const A&... a) {
   if (static_cast<bool>(ok)) [[likely]]
      return;
   kassertFailed(f, a...);
}

}  // namespace Kiv
