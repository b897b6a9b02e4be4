#include "Scenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <sstream>

namespace Sim {

Scenario::Scenario(const std::string& text, std::string origin) : origin_(std::move(origin)) {
   try {
      root_ = YAML::Load(text);
   } catch (const YAML::ParserException& e) {
      throw ScenarioError(fmt::format("{}:{}:{}: {}", origin_, e.mark.line + 1, e.mark.column + 1, e.msg));
   }
   if (!root_.IsMap()) fail(root_, "a scenario is a map of sections");

   double last = 0;
   if (YAML::Node t = root_["timeline"]) {
      if (!t.IsSequence()) fail(t, "'timeline' is a list of events");
      for (const YAML::Node& e : t) {
         if (!e.IsMap()) fail(e, "an event is a map with 'at' and one event kind");
         Event ev;
         ev.at = get<double>(e, "at");
         if (ev.at < 0) fail(e, "'at' is negative");
         ev.line = e.Mark().line + 1;
         for (const auto& kv : e) {
            std::string key = kv.first.as<std::string>();
            if (key == "at") continue;
            if (!ev.kind.empty()) fail(e, fmt::format("an event has one kind, this one has '{}' and '{}'", ev.kind, key));
            ev.kind = key;
            ev.body = kv.second;
         }
         if (ev.kind.empty()) fail(e, "an event needs a kind besides 'at'");
         last = std::max(last, ev.at);
         timeline_.push_back(std::move(ev));
      }
      // Sorted through an index: assigning a YAML::Node overwrites the node it
      // refers to (shared with other copies), so events must never be assigned.
      std::vector<std::size_t> order(timeline_.size());
      std::iota(order.begin(), order.end(), 0);
      std::stable_sort(order.begin(), order.end(),
                       [&](std::size_t a, std::size_t b) { return timeline_[a].at < timeline_[b].at; });
      std::vector<Event> sorted;
      sorted.reserve(order.size());
      for (std::size_t i : order) sorted.push_back(timeline_[i]);
      timeline_ = std::move(sorted);
   }
   duration_ = get<double>(root_, "duration", last + 1.0);
   if (duration_ <= 0) fail(root_["duration"], "'duration' must be positive");
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

void Scenario::onlyKeys(const YAML::Node& map, const std::vector<std::string>& allowed) const {
   if (!map.IsMap()) fail(map, "expected a map");
   for (const auto& kv : map) {
      std::string key = kv.first.as<std::string>();
      if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
         fail(kv.first, fmt::format("unknown key '{}' (expected one of: {})", key, fmt::join(allowed, ", ")));
      }
   }
}

}  // namespace Sim
