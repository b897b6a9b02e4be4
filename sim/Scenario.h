// A scenario file: the virtual switch and its timeline, in YAML.
//
// A scenario is user input, and strict: one YAML document, no duplicate keys,
// keys that are plain names, no aliases, and every number finite and within
// the range its key allows (sim/README.md lists them). Every error names the
// file and the line.
#pragma once

#include <yaml-cpp/yaml.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <type_traits>
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

// The closed range a number of the scenario must lie in, with its unit for
// the error message ("s", "per second", or empty).
struct Range {
   double min, max;
   const char* unit = "";
};

// The longest span a scenario may simulate, and so the latest event time: one week.
inline constexpr double kMaxSeconds = 7 * 24 * 3600;
inline constexpr Range kSeconds{0, kMaxSeconds, "s"};

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
   // For checks of a whole event: names the event's line.
   [[noreturn]] void fail(const Event& where, const std::string& what) const;

   // Typed reads that fail with the node's line: required and optional values.
   // Floating-point values must be finite; numbers with a range use number().
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
      T v;
      try {
         v = n.as<T>();
      } catch (const YAML::Exception&) {
         fail(n, "'" + what + "' has the wrong type");
      }
      if constexpr (std::is_floating_point_v<T>) {
         if (!std::isfinite(v)) fail(n, "'" + what + "' must be a finite number, not " + n.Scalar());
      }
      return v;
   }

   // A number within `r`: of `map[key]` (required, or `fallback` when absent), or of node `n`.
   double number(const YAML::Node& map, const std::string& key, Range r) const;
   double number(const YAML::Node& map, const std::string& key, Range r, double fallback) const;
   double numberAs(const YAML::Node& n, const std::string& what, Range r) const;
   // A whole number within [min, max], read the same ways.
   long long integer(const YAML::Node& map, const std::string& key, long long min, long long max) const;
   long long integer(const YAML::Node& map, const std::string& key, long long min, long long max,
                     long long fallback) const;
   long long integerAs(const YAML::Node& n, const std::string& what, long long min, long long max) const;

   // Fails on keys of `map` outside `allowed`.
   void onlyKeys(const YAML::Node& map, const std::vector<std::string>& allowed) const;

  private:
   std::string origin_;
   YAML::Node root_;
   std::vector<Event> timeline_;
   double duration_ = 0;
};

}  // namespace Sim
