#include "Scenario.h"

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

namespace Sim {

namespace {

// Walks the parser's events before the document is built, where each key
// still has its own line: rejects duplicate and non-scalar keys, aliases and
// a second document. Throws the text and the 0-based line of the first fault.
class StructureCheck final : public YAML::EventHandler {
  public:
   struct Fault {
      int line;
      std::string what;
   };

   void OnDocumentStart(const YAML::Mark& m) override {
      if (++documents_ > 1) throw Fault{m.line, "a scenario is one YAML document; a second one starts here"};
   }
   void OnDocumentEnd() override {}
   void OnNull(const YAML::Mark& m, YAML::anchor_t) override { value(m, "~"); }
   void OnAlias(const YAML::Mark& m, YAML::anchor_t) override {
      throw Fault{m.line, "aliases (*name) are not supported in scenarios: write the value out"};
   }
   void OnScalar(const YAML::Mark& m, const std::string&, YAML::anchor_t, const std::string& v) override {
      value(m, v);
   }
   void OnSequenceStart(const YAML::Mark& m, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {
      container(m, false);
   }
   void OnSequenceEnd() override { end(); }
   void OnMapStart(const YAML::Mark& m, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {
      container(m, true);
   }
   void OnMapEnd() override { end(); }

  private:
   struct Level {
      bool map;
      bool atKey = true;                // a map's next node is a key
      std::map<std::string, int> keys;  // key -> 0-based line
   };

   void value(const YAML::Mark& m, const std::string& v) {
      if (levels_.empty() || !levels_.back().map) return;
      Level& l = levels_.back();
      if (l.atKey) {
         auto [it, fresh] = l.keys.emplace(v, m.line);
         if (!fresh) throw Fault{m.line, fmt::format("duplicate key '{}' (first on line {})", v, it->second + 1)};
      }
      l.atKey = !l.atKey;
   }
   void container(const YAML::Mark& m, bool map) {
      if (!levels_.empty() && levels_.back().map) {
         if (levels_.back().atKey) throw Fault{m.line, "a key must be a plain value, not a list or a map"};
         levels_.back().atKey = true;
      }
      levels_.push_back(Level{map});
   }
   void end() { levels_.pop_back(); }

   int documents_ = 0;
   std::vector<Level> levels_;
};

std::string rangeText(Range r) { return fmt::format("from {} to {}{}{}", r.min, r.max, *r.unit ? " " : "", r.unit); }

}  // namespace

Scenario::Scenario(const std::string& text, std::string origin) : origin_(std::move(origin)) {
   try {
      std::istringstream in(text);
      YAML::Parser parser(in);
      StructureCheck check;
      while (parser.HandleNextDocument(check)) {
      }
      root_ = YAML::Load(text);
   } catch (const StructureCheck::Fault& f) {
      throw ScenarioError(fmt::format("{}:{}: {}", origin_, f.line + 1, f.what));
   } catch (const YAML::Exception& e) {
      throw ScenarioError(fmt::format("{}:{}:{}: {}", origin_, e.mark.line + 1, e.mark.column + 1, e.msg));
   }
   if (!root_.IsMap()) fail(root_, "a scenario is a map of sections");

   double last = 0;
   if (YAML::Node t = root_["timeline"]) {
      if (!t.IsSequence()) fail(t, "'timeline' is a list of events");
      for (const YAML::Node& e : t) {
         if (!e.IsMap()) fail(e, "an event is a map with 'at' and one event kind");
         Event ev;
         ev.at = number(e, "at", kSeconds);
         ev.line = e.Mark().line + 1;
         for (const auto& kv : e) {
            std::string key = kv.first.Scalar();
            if (key == "at") continue;
            if (!ev.kind.empty())
               fail(e, fmt::format("an event has one kind, this one has '{}' and '{}'", ev.kind, key));
            ev.kind = key;
            ev.body = kv.second;
         }
         if (ev.kind.empty()) fail(e, "an event needs a kind besides 'at'");
         last = std::max(last, ev.at);
         timeline_.push_back(std::move(ev));
      }
      // Sorted by copy construction: assigning a YAML::Node rewrites the node it
      // shared, which would mix up the bodies of the events being sorted.
      std::vector<const Event*> order;
      for (const Event& ev : timeline_) order.push_back(&ev);
      std::stable_sort(order.begin(), order.end(), [](const Event* a, const Event* b) { return a->at < b->at; });
      std::vector<Event> sorted;
      sorted.reserve(order.size());
      for (const Event* ev : order) sorted.push_back(*ev);
      timeline_.swap(sorted);
   }
   duration_ = number(root_, "duration", {0.001, kMaxSeconds, "s"}, std::min(last + 1.0, kMaxSeconds));
   if (duration_ < last) fail(root_["duration"], fmt::format("'duration' ends before the last event at {}", last));
}

Scenario Scenario::fromFile(const std::string& path) {
   std::ifstream in(path);
   if (!in) throw ScenarioError(fmt::format("{}: cannot open the scenario file", path));
   std::stringstream text;
   text << in.rdbuf();
   return Scenario(text.str(), path);
}

void Scenario::fail(const YAML::Node& where, const std::string& what) const {
   if (where && where.Mark().line >= 0) {
      throw ScenarioError(fmt::format("{}:{}: {}", origin_, where.Mark().line + 1, what));
   }
   throw ScenarioError(fmt::format("{}: {}", origin_, what));
}

void Scenario::fail(const Event& where, const std::string& what) const {
   throw ScenarioError(fmt::format("{}:{}: {}", origin_, where.line, what));
}

double Scenario::number(const YAML::Node& map, const std::string& key, Range r) const {
   if (!map[key]) fail(map, "missing '" + key + "'");
   return numberAs(map[key], key, r);
}

double Scenario::number(const YAML::Node& map, const std::string& key, Range r, double fallback) const {
   return map[key] ? numberAs(map[key], key, r) : fallback;
}

double Scenario::numberAs(const YAML::Node& n, const std::string& what, Range r) const {
   double v = 0;
   if (!n.IsScalar() || !YAML::convert<double>::decode(n, v) || !(v >= r.min && v <= r.max)) {
      fail(n, fmt::format("'{}' must be a number {}, not {}", what, rangeText(r),
                          n.IsScalar() ? n.Scalar() : "a list or map"));
   }
   return v;
}

long long Scenario::integer(const YAML::Node& map, const std::string& key, long long min, long long max) const {
   if (!map[key]) fail(map, "missing '" + key + "'");
   return integerAs(map[key], key, min, max);
}

long long Scenario::integer(const YAML::Node& map, const std::string& key, long long min, long long max,
                            long long fallback) const {
   return map[key] ? integerAs(map[key], key, min, max) : fallback;
}

long long Scenario::integerAs(const YAML::Node& n, const std::string& what, long long min, long long max) const {
   long long v = 0;
   if (!n.IsScalar() || !YAML::convert<long long>::decode(n, v) || v < min || v > max) {
      fail(n, fmt::format("'{}' must be a whole number from {} to {}, not {}", what, min, max,
                          n.IsScalar() ? n.Scalar() : "a list or map"));
   }
   return v;
}

void Scenario::onlyKeys(const YAML::Node& map, const std::vector<std::string>& allowed) const {
   if (!map.IsMap()) fail(map, "expected a map");
   for (const auto& kv : map) {
      const std::string& key = kv.first.Scalar();
      if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
         fail(kv.first, fmt::format("unknown key '{}' (expected one of: {})", key, fmt::join(allowed, ", ")));
      }
   }
}

}  // namespace Sim
