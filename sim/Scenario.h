// A scenario file: the virtual switch and its timeline, in YAML.
#pragma once

#include <yaml-cpp/yaml.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace Sim {

// A scenario error: the message names the file, the line and what is wrong.
class ScenarioError : public std::runtime_error {
   using std::runtime_error::runtime_error;
};

// One timeline entry: `at` seconds after the start, one event kind with its body.
struct Event {
   double at = 0;
   std::string kind;
   YAML::Node body;
   int line = 0;  // 1-based line in the scenario file
};

class Scenario {
  public:
   // Parses `text`; `origin` names the file (or "<built-in default scenario>").
   Scenario(const std::string& text, std::string origin);
   static Scenario fromFile(const std::string& path);

   const std::string& origin() const { return origin_; }
   const YAML::Node& root() const { return root_; }
   YAML::Node section(const std::string& name) const { return root_[name]; }
   const std::vector<Event>& timeline() const { return timeline_; }
   // Simulated span: the `duration` key, else one second after the last event.
   double duration() const { return duration_; }

   [[noreturn]] void fail(const YAML::Node& where, const std::string& what) const;

   // Typed reads that fail with the node's line: required and optional values.
   template <class T>
   T get(const YAML::Node& map, const std::string& key) const {
      YAML::Node n = map[key];
      if (!n) fail(map, "missing '" + key + "'");
      return as<T>(n, key);
   }
   template <class T>
   T get(const YAML::Node& map, const std::string& key, const T& fallback) const {
      YAML::Node n = map[key];
      return n ? as<T>(n, key) : fallback;
   }
   template <class T>
   T as(const YAML::Node& n, const std::string& what) const {
      try {
         return n.as<T>();
      } catch (const YAML::Exception&) {
         fail(n, "'" + what + "' has the wrong type");
      }
   }
   // Fails on keys of `map` outside `allowed`.
   void onlyKeys(const YAML::Node& map, const std::vector<std::string>& allowed) const;

  private:
   std::string origin_;
   YAML::Node root_;
   std::vector<Event> timeline_;
   double duration_ = 0;
};

}  // namespace Sim
