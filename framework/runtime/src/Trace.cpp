#include "Kiv/Trace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Kiv {

namespace {

struct Registry {
   std::vector<Tracer*> handles;
   std::map<std::string, std::uint16_t, std::less<>> masks;  // configured by name; "*" for all
   std::function<void(const TraceRecord&)> sink;
   std::unique_ptr<std::FILE, int (*)(std::FILE*)> file{nullptr, &std::fclose};

   // A malformed environment is reported and ignored: tracing must not stop
   // the process that loads the library.
   Registry() {
      try {
         if (const char* config = std::getenv("VYRPTP_TRACE")) traceConfigIsLocked(config);
      } catch (const std::exception& e) {
         std::fprintf(stderr, "VYRPTP_TRACE ignored: %s\n", e.what());
      }
      try {
         if (const char* path = std::getenv("VYRPTP_TRACE_FILE")) openFile(path);
      } catch (const std::exception& e) {
         std::fprintf(stderr, "VYRPTP_TRACE_FILE ignored: %s\n", e.what());
      }
   }
   std::uint16_t maskFor(std::string_view name) const {
      if (auto it = masks.find(name); it != masks.end()) return it->second;
      if (auto it = masks.find("*"); it != masks.end()) return it->second;
      return 0;
   }
   void apply() {
      for (Tracer* t : handles) t->maskIs(maskFor(t->name()));
   }
   void openFile(const std::string& path) {
      std::FILE* f = std::fopen(path.c_str(), "a");
      if (!f) throw std::runtime_error(fmt::format("cannot open trace file '{}'", path));
      std::setvbuf(f, nullptr, _IOLBF, BUFSIZ);  // whole records, none lost when an assertion aborts
      file.reset(f);
   }
   void traceConfigIsLocked(std::string_view config);
};

Registry& registry() {
   static Registry r;
   return r;
}

std::uint16_t parseLevels(std::string_view levels, std::string_view item) {
   if (levels == "*") return kTraceAllLevels;
   std::uint16_t mask = 0;
   auto number = [&](std::string_view s) {
      unsigned v = 0;
      if (s.empty() || s.size() > 2) throw std::invalid_argument(fmt::format("bad trace level in '{}'", item));
      for (char c : s) {
         if (c < '0' || c > '9') throw std::invalid_argument(fmt::format("bad trace level in '{}'", item));
         v = v * 10 + unsigned(c - '0');
      }
      if (v > 15) throw std::invalid_argument(fmt::format("trace level above 15 in '{}'", item));
      return v;
   };
   while (!levels.empty()) {
      auto comma = levels.find(';');
      std::string_view part = levels.substr(0, comma);
      levels = comma == std::string_view::npos ? std::string_view{} : levels.substr(comma + 1);
      auto dash = part.find('-');
      unsigned lo = number(part.substr(0, dash));
      unsigned hi = dash == std::string_view::npos ? lo : number(part.substr(dash + 1));
      for (unsigned l = lo; l <= hi; ++l) mask |= std::uint16_t(1u << l);
   }
   return mask;
}

using TraceItems = std::vector<std::pair<std::string, std::uint16_t>>;

// The (handle, mask) items of `config`; throws naming the first malformed one.
TraceItems parseConfig(std::string_view config) {
   TraceItems items;
   while (!config.empty()) {
      auto comma = config.find(',');
      std::string_view item = config.substr(0, comma);
      config = comma == std::string_view::npos ? std::string_view{} : config.substr(comma + 1);
      if (item.empty()) continue;
      auto slash = item.find('/');
      std::string_view name = item.substr(0, slash);
      if (name.empty()) throw std::invalid_argument(fmt::format("trace item '{}' names no handle", item));
      std::uint16_t mask =
          slash == std::string_view::npos ? kTraceAllLevels : parseLevels(item.substr(slash + 1), item);
      items.emplace_back(name, mask);
   }
   return items;
}

// Applies every item of `config` or, when one is malformed, none.
void Registry::traceConfigIsLocked(std::string_view config) {
   for (auto& [name, mask] : parseConfig(config)) masks[name] = mask;
   apply();
}

}  // namespace

Tracer::Tracer(std::string name) : name_(std::move(name)) {
   Registry& r = registry();
   r.handles.push_back(this);
   mask_ = r.maskFor(name_);
}

Tracer::~Tracer() { std::erase(registry().handles, this); }

void Tracer::emit(TraceLevel level, const std::source_location& where, std::string_view message) const {
   Pondo::SourcePlace place = Pondo::sourcePlace(where);
   TraceRecord rec{name_, level, place.file, place.function, where.line(), place.className, message};
   Registry& r = registry();
   if (r.sink) {
      r.sink(rec);
      return;
   }
   std::string line = traceLine(rec);
   line += '\n';
   std::fputs(line.c_str(), r.file ? r.file.get() : stderr);
}

std::string traceLine(const TraceRecord& r) {
   return fmt::format("[{}/{}] {}:{} {}{}{}() {}", r.handle, r.level, r.file, r.line, r.className,
                      r.className.empty() ? "" : "::", r.function, r.message);
}

void traceMaskIs(std::string_view handle, std::uint16_t mask) {
   Registry& r = registry();
   r.masks[std::string(handle)] = mask;
   r.apply();
}

void traceConfigIs(std::string_view config) { registry().traceConfigIsLocked(config); }

void traceConfigCheck(std::string_view config) {
   const std::vector<std::string> known = traceHandles();
   for (const auto& [name, mask] : parseConfig(config)) {
      if (name != "*" && !std::binary_search(known.begin(), known.end(), name)) {
         throw std::invalid_argument(fmt::format("unknown trace handle '{}'", name));
      }
   }
}

std::vector<std::string> traceHandles() {
   std::vector<std::string> names;
   for (const Tracer* t : registry().handles) names.push_back(t->name());
   std::sort(names.begin(), names.end());
   names.erase(std::unique(names.begin(), names.end()), names.end());
   return names;
}

void traceSinkIs(std::function<void(const TraceRecord&)> sink) { registry().sink = std::move(sink); }

void traceFileIs(const std::string& path) { registry().openFile(path); }

}  // namespace Kiv
