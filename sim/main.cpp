// vyrptp-sim: runs a virtual switch from a scenario file and shows what the
// library did.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>

#include "DefaultScenario.h"
#include "HtmlReport.h"
#include "Module.h"
#include "TextReport.h"

namespace Sim {

namespace {

constexpr const char* kUsage =
    "usage: vyrptp-sim [SCENARIO.yaml] [options]\n"
    "Runs a virtual switch with libVyrPtp; without a scenario, the built-in default one.\n"
    "  --real-time          run the activity loop in real time instead of virtual time\n"
    "  --trace CONFIG       enable trace handles, e.g. 'AggregatorSmNi/0-9,*/0'\n"
    "  --trace-file PATH    write traces to PATH instead of standard error\n"
    "  --verbose            log every decision as it happens\n"
    "  --json FILE          write the report as one JSON document into FILE\n"
    "  --report FILE        write the report as one self-contained HTML page into FILE\n"
    "  --max-events N       refuse runs estimated at more than N loop events (default 10000000)\n"
    "  --print-default      print the built-in default scenario and exit\n"
    "  --help               this text\n";

struct Options {
   std::string scenarioPath;
   bool realTime = false;
   bool verbose = false;
   std::string jsonPath;
   std::string reportPath;
   double maxEvents = 1e7;
};

// The timeline event that restarts the library's machines in every module.
constexpr const char* kAgentRestart = "agentRestart";

[[noreturn]] void usageError(const std::string& what) {
   std::cerr << "vyrptp-sim: " << what << "\n" << kUsage;
   std::exit(2);
}

Options parseArguments(int argc, char** argv) {
   Options o;
   for (int i = 1; i < argc; ++i) {
      std::string a = argv[i];
      auto value = [&]() -> std::string {
         if (i + 1 >= argc) usageError(a + " needs a value");
         return argv[++i];
      };
      if (a == "--help") {
         std::cout << kUsage;
         std::exit(0);
      } else if (a == "--print-default") {
         std::cout << kDefaultScenario;
         std::exit(0);
      } else if (a == "--real-time") {
         o.realTime = true;
      } else if (a == "--verbose") {
         o.verbose = true;
      } else if (a == "--json") {
         o.jsonPath = value();
      } else if (a == "--report") {
         o.reportPath = value();
      } else if (a == "--max-events") {
         const std::string n = value();
         char* end = nullptr;
         o.maxEvents = std::strtod(n.c_str(), &end);
         if (n.empty() || *end || !(o.maxEvents >= 0)) usageError("--max-events needs a number, not '" + n + "'");
      } else if (a == "--trace") {
         Kiv::traceConfigIs(value());
      } else if (a == "--trace-file") {
         Kiv::traceFileIs(value());
      } else if (a.starts_with("-")) {
         usageError("unknown option '" + a + "'");
      } else if (o.scenarioPath.empty()) {
         o.scenarioPath = a;
      } else {
         usageError("more than one scenario file given");
      }
   }
   return o;
}

// Refuses a run whose estimated loop events exceed the limit: it would not end in reasonable time.
void checkRunLength(const Scenario& scenario, const std::vector<std::unique_ptr<Module>>& modules, double maxEvents) {
   double perSecond = 0;
   for (auto& m : modules) perSecond += m->loopEventsPerSecond();
   const double estimate = perSecond * scenario.duration() + double(scenario.timeline().size());
   if (estimate <= maxEvents) return;
   scenario.fail(scenario.root()["duration"],
                 fmt::format("this run would take about {:.3g} loop events ({} s simulated at about {:.0f} per "
                             "second), over the limit of {:.3g}; shorten 'duration', lower the rates, or raise the "
                             "limit with --max-events N",
                             estimate, scenario.duration(), perSecond, maxEvents));
}

// The report as one document: the scenario's timeline, the run, each module's data.
Json reportDocument(const Scenario& scenario, World& world, const std::vector<std::unique_ptr<Module>>& modules,
                    double simulated) {
   Json doc;
   Json& sc = doc["scenario"];
   sc["origin"] = scenario.origin();
   sc["name"] = scenario.get<std::string>(scenario.root(), "name", scenario.origin());
   sc["duration"] = scenario.duration();
   Json& timeline = sc["timeline"] = Json::array();
   for (const Event& e : scenario.timeline()) {
      YAML::Emitter body;
      body << YAML::Flow << e.body;
      Json& j = timeline.push(Json());
      j["at"] = e.at;
      j["kind"] = e.kind;
      j["line"] = e.line;
      j["body"] = std::string(body.c_str());
   }
   doc["run"]["simulated"] = simulated;
   doc["run"]["loopEvents"] = Kiv::activityManager().eventsRun();
   Json& data = doc["modules"] = Json::object();
   for (auto& m : modules) {
      Json part;
      m->reportData(world, part);
      if (!part.isNull()) data[m->name()] = std::move(part);
   }
   return doc;
}

void writeFile(const std::string& path, const std::string& text, const char* what) {
   std::ofstream out(path, std::ios::trunc);
   out << text;
   if (!out) throw std::runtime_error(fmt::format("cannot write the {} to {}", what, path));
}

int run(const Options& opt) {
   Scenario scenario = opt.scenarioPath.empty() ? Scenario(kDefaultScenario, "<built-in default scenario>")
                                                : Scenario::fromFile(opt.scenarioPath);
   std::vector<std::unique_ptr<Module>> modules;
   for (ModuleMaker m : moduleMakers()) modules.push_back(m());
   std::stable_sort(modules.begin(), modules.end(), [](auto& a, auto& b) { return a->order() < b->order(); });

   // Every section and event kind must belong to someone.
   std::map<std::string, Module*> sectionOwner, eventOwner;
   for (auto& m : modules) {
      for (auto& s : m->sections()) sectionOwner[s] = m.get();
      for (auto& e : m->events()) eventOwner[e] = m.get();
   }
   for (const auto& kv : scenario.root()) {
      const std::string& key = kv.first.Scalar();
      if (key == "name" || key == "description" || key == "duration" || key == "timeline") continue;
      if (!sectionOwner.count(key)) scenario.fail(kv.first, fmt::format("unknown section '{}'", key));
   }
   for (const Event& e : scenario.timeline()) {
      if (e.kind == kAgentRestart && !e.body.IsNull()) scenario.fail(e, "'agentRestart' takes no value");
      if (e.kind != kAgentRestart && !eventOwner.count(e.kind)) {
         scenario.fail(e, fmt::format("unknown event kind '{}'", e.kind));
      }
   }
   for (auto& m : modules) m->load(scenario);
   checkRunLength(scenario, modules, opt.maxEvents);

   Kiv::ActivityManager& loop = Kiv::activityManager();
   if (opt.realTime) {
      loop.realTimeIs();
   } else {
      loop.virtualTimeIs(0, 1.7e9);
   }
   const double start = loop.currentTime();
   const auto wallStart = std::chrono::steady_clock::now();

   World world{scenario};
   world.verbose = opt.verbose;
   std::string title = scenario.get<std::string>(scenario.root(), "name", scenario.origin());
   fmt::print("Scenario: {} ({} events, {:.3f} s simulated, {} time)\n", title, scenario.timeline().size(),
              scenario.duration(), opt.realTime ? "real" : "virtual");
   for (auto& m : modules) m->build(world);
   loop.runReady();

   // Progress on standard error for runs longer than ten simulated seconds.
   const double progressStep = scenario.duration() / 10;
   double nextProgress = scenario.duration() > 10 ? progressStep : scenario.duration() + 1;
   auto runTo = [&](double t) {
      while (nextProgress <= t) {
         loop.runUntil(start + nextProgress);
         fmt::print(stderr, "vyrptp-sim: {:.0f}% ({:.1f} of {:.1f} s)\n", 100 * nextProgress / scenario.duration(),
                    nextProgress, scenario.duration());
         nextProgress += progressStep;
      }
      loop.runUntil(start + t);
   };
   for (const Event& e : scenario.timeline()) {
      runTo(e.at);
      world.log("event {} (line {})", e.kind, e.line);
      if (e.kind == kAgentRestart) {
         for (auto& m : modules) m->agentRestart(world);
      } else {
         eventOwner.at(e.kind)->apply(e, world);
      }
      loop.runReady();
      for (auto& m : modules) m->afterEvent(e, world);
   }
   runTo(scenario.duration());

   const Json doc = reportDocument(scenario, world, modules, loop.currentTime() - start);
   const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
   fmt::print("\n== Summary ==\n{}", textReport(doc));
   fmt::print("Ran {:.3f} s of simulated time in {:.3f} s: {} timeline events, {} loop events.\n",
              loop.currentTime() - start, wall, scenario.timeline().size(), loop.eventsRun());
   if (!opt.jsonPath.empty()) writeFile(opt.jsonPath, doc.text() + "\n", "JSON report");
   if (!opt.reportPath.empty()) writeFile(opt.reportPath, htmlReport(doc), "HTML report");
   return 0;
}

}  // namespace
}  // namespace Sim

int main(int argc, char** argv) {
   try {
      return Sim::run(Sim::parseArguments(argc, argv));
   } catch (const Sim::ScenarioError& e) {
      std::cerr << "vyrptp-sim: " << e.what() << "\n";
      return 1;
   } catch (const std::exception& e) {
      std::cerr << "vyrptp-sim: error: " << e.what() << "\n";
      return 1;
   }
}
