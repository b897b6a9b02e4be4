// vyrptp-sim: runs a virtual switch from a scenario file and shows what the
// library did.
#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>

#include "DefaultScenario.h"
#include "Module.h"

namespace Sim {

namespace {

constexpr const char* kUsage =
    "usage: vyrptp-sim [SCENARIO.yaml] [options]\n"
    "Runs a virtual switch with libVyrPtp; without a scenario, the built-in default one.\n"
    "  --real-time            run the activity loop in real time instead of virtual time\n"
    "  --trace CONFIG         enable trace handles, e.g. 'AggregatorSmNi/0-9,*/0'\n"
    "  --trace-file PATH      write traces to PATH instead of standard error\n"
    "  --list-trace-handles   print the names of the trace handles and exit\n"
    "  --verbose              log every decision as it happens\n"
    "  --progress             show progress on standard error (the default when it is a terminal)\n"
    "  --json FILE            write the report as one JSON document into FILE\n"
    "  --max-events N         refuse runs estimated at more than N loop events (default 10000000)\n"
    "  --print-default        print the built-in default scenario and exit\n"
    "  --help                 this text\n"
    "Environment:\n"
    "  VYRPTP_TRACE           trace configuration applied at start, as for --trace\n"
    "  VYRPTP_TRACE_FILE      file for traces, as for --trace-file\n";

struct Options {
   std::string scenarioPath;
   bool realTime = false;
   bool verbose = false;
   bool progress = false;
   std::string jsonPath;
   double maxEvents = 1e7;
};

// The timeline event that restarts the library's machines in every module.
constexpr const char* kAgentRestart = "agentRestart";

[[noreturn]] void usageError(const std::string& what) {
   std::cerr << "vyrptp-sim: " << what << "\n(vyrptp-sim --help lists the options)\n";
   std::exit(2);
}

// A trace configuration naming a handle that no loaded code has, or malformed,
// is an error; `origin` says where it came from.
void traceConfigIs(const std::string& config, const std::string& origin) {
   try {
      Kiv::traceConfigCheck(config);
   } catch (const std::invalid_argument& e) {
      usageError(fmt::format("{}: {}", origin, e.what()));
   }
   Kiv::traceConfigIs(config);
}

void traceFileIs(const std::string& path, const std::string& origin) {
   try {
      Kiv::traceFileIs(path);
   } catch (const std::runtime_error& e) {
      usageError(fmt::format("{}: {}", origin, e.what()));
   }
}

Options parseArguments(int argc, char** argv) {
   Options o;
   o.progress = isatty(STDERR_FILENO);
   // The library has already applied these; checking them again turns a bad setting into an error.
   if (const char* config = std::getenv("VYRPTP_TRACE")) traceConfigIs(config, "VYRPTP_TRACE");
   if (const char* path = std::getenv("VYRPTP_TRACE_FILE")) traceFileIs(path, "VYRPTP_TRACE_FILE");
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
      } else if (a == "--list-trace-handles") {
         for (const std::string& h : Kiv::traceHandles()) std::cout << h << "\n";
         std::exit(0);
      } else if (a == "--real-time") {
         o.realTime = true;
      } else if (a == "--verbose") {
         o.verbose = true;
      } else if (a == "--json") {
         o.jsonPath = value();
      } else if (a == "--max-events") {
         const std::string n = value();
         char* end = nullptr;
         o.maxEvents = std::strtod(n.c_str(), &end);
         if (n.empty() || *end || !(o.maxEvents >= 0)) usageError("--max-events needs a number, not '" + n + "'");
      } else if (a == "--progress") {
         o.progress = true;
      } else if (a == "--trace") {
         traceConfigIs(value(), "--trace");
      } else if (a == "--trace-file") {
         traceFileIs(value(), "--trace-file");
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

// The report as one JSON document: the scenario's timeline, the run, each module's data.
void writeJson(const std::string& path, const Scenario& scenario, World& world,
               const std::vector<std::unique_ptr<Module>>& modules, double simulated) {
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
   std::ofstream out(path, std::ios::trunc);
   out << doc.text() << "\n";
   if (!out) throw std::runtime_error("cannot write the JSON report to " + path);
}

// SIGINT or SIGTERM ends the run between two slices of the loop, so that the
// modules remove what they created (temporary files) as on a normal exit.
volatile std::sig_atomic_t stopSignal = 0;

struct Stopped {
   int signal;
};

// A line on standard error saying how far a run has got, once it has taken
// more than a couple of seconds: rewritten in place on a terminal, a line
// per update otherwise.
class Progress {
  public:
   Progress(bool on, double duration) : on_(on), terminal_(isatty(STDERR_FILENO)), duration_(duration) {}
   ~Progress() {
      if (shown_ && terminal_) fmt::print(stderr, "\r\x1b[K");
   }
   void at(double simulated) {
      const double wall = seconds(Clock::now() - start_);
      if (!on_ || wall < 2 || wall < lastShown_ + 1) return;
      lastShown_ = wall;
      shown_ = true;
      fmt::print(stderr, "{}vyrptp-sim: {:.0f}% ({:.1f} of {:.1f} s simulated, {:.0f} s elapsed){}",
                 terminal_ ? "\r\x1b[K" : "", 100 * simulated / duration_, simulated, duration_, wall,
                 terminal_ ? "" : "\n");
   }
   double elapsed() const { return seconds(Clock::now() - start_); }

  private:
   using Clock = std::chrono::steady_clock;
   static double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }
   bool on_;
   bool terminal_;
   double duration_;
   Clock::time_point start_ = Clock::now();
   double lastShown_ = 0;
   bool shown_ = false;
};

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
   Progress progress(opt.progress, scenario.duration());

   World world{scenario};
   world.verbose = opt.verbose;
   std::string title = scenario.get<std::string>(scenario.root(), "name", scenario.origin());
   fmt::print("Scenario: {} ({} events, {:.3f} s simulated, {} time)\n", title, scenario.timeline().size(),
              scenario.duration(), opt.realTime ? "real" : "virtual");
   for (auto& m : modules) m->build(world);
   loop.runReady();

   // The loop runs in slices of at most kSlice simulated seconds, between
   // which progress is shown and a stop signal is heard.
   constexpr double kSlice = 0.1;
   auto runTo = [&](double t) {
      const double until = start + t;
      while (loop.currentTime() < until) {
         loop.runUntil(std::min(until, loop.currentTime() + kSlice));
         if (stopSignal) throw Stopped{stopSignal};
         progress.at(loop.currentTime() - start);
      }
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

   std::string out;
   for (auto& m : modules) m->report(world, out);
   const double wall = progress.elapsed();
   fmt::print("\n== Summary ==\n{}", out);
   fmt::print("Ran {:.3f} s of simulated time in {:.3f} s: {} timeline events, {} loop events.\n",
              loop.currentTime() - start, wall, scenario.timeline().size(), loop.eventsRun());
   if (!opt.jsonPath.empty()) writeJson(opt.jsonPath, scenario, world, modules, loop.currentTime() - start);
   return 0;
}

}  // namespace
}  // namespace Sim

int main(int argc, char** argv) {
   std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // whole lines, as they happen, also into a pipe
   for (int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int s) { Sim::stopSignal = s; });
   try {
      return Sim::run(Sim::parseArguments(argc, argv));
   } catch (const Sim::Stopped& s) {
      std::cerr << "vyrptp-sim: stopped by " << strsignal(s.signal) << "\n";
      return 128 + s.signal;
   } catch (const Sim::ScenarioError& e) {
      std::cerr << "vyrptp-sim: " << e.what() << "\n";
      return 1;
   } catch (const std::exception& e) {
      std::cerr << "vyrptp-sim: error: " << e.what() << "\n";
      return 1;
   }
}
