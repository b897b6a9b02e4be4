// vyrptp-sim: runs a virtual switch from a scenario file and shows what the
// library did.
#include <fmt/format.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include "DefaultScenario.h"
#include "HtmlReport.h"
#include "Simulation.h"
#include "TextReport.h"

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
    "  --report FILE          write the report as one self-contained HTML page into FILE\n"
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
   std::string reportPath;
   double maxEvents = 1e7;
};

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
      } else if (a == "--report") {
         o.reportPath = value();
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

// Writes one report file.
void writeFile(const std::string& path, const std::string& text, const char* what) {
   std::ofstream out(path, std::ios::trunc);
   out << text;
   if (!out) throw std::runtime_error(fmt::format("cannot write the {} to {}", what, path));
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
   Simulation sim(scenario, opt.maxEvents);
   Progress progress(opt.progress, scenario.duration());
   std::string title = scenario.get<std::string>(scenario.root(), "name", scenario.origin());
   fmt::print("Scenario: {} ({} events, {:.3f} s simulated, {} time)\n", title, scenario.timeline().size(),
              scenario.duration(), opt.realTime ? "real" : "virtual");
   sim.start(opt.realTime, opt.verbose);
   sim.runTo(scenario.duration(), [&] {
      if (stopSignal) throw Stopped{stopSignal};
      progress.at(sim.simulated());
   });

   const Json doc = sim.reportData();
   const double wall = progress.elapsed();
   fmt::print("\n== Summary ==\n{}", textReport(doc));
   fmt::print("Ran {:.3f} s of simulated time in {:.3f} s: {} timeline events, {} loop events.\n", sim.simulated(),
              wall, scenario.timeline().size(), Kiv::activityManager().eventsRun());
   if (!opt.jsonPath.empty()) writeFile(opt.jsonPath, doc.text() + "\n", "JSON report");
   if (!opt.reportPath.empty()) writeFile(opt.reportPath, htmlReport(doc), "HTML report");
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
