#include "Simulation.h"

#include <algorithm>

#include "Kiv/Activity.h"

namespace Sim {

namespace {

// The timeline event that restarts the library's machines in every module.
constexpr const char* kAgentRestart = "agentRestart";

}  // namespace

Simulation::Simulation(const Scenario& scenario, double maxEvents) : scenario_(scenario) {
   for (ModuleMaker m : moduleMakers()) modules_.push_back(m());
   std::stable_sort(modules_.begin(), modules_.end(), [](auto& a, auto& b) { return a->order() < b->order(); });

   // Every section and event kind must belong to someone.
   std::map<std::string, Module*> sectionOwner;
   for (auto& m : modules_) {
      for (auto& s : m->sections()) sectionOwner[s] = m.get();
      for (auto& e : m->events()) eventOwner_[e] = m.get();
   }
   for (const auto& kv : scenario.root()) {
      const std::string& key = kv.first.Scalar();
      if (key == "name" || key == "description" || key == "duration" || key == "timeline") continue;
      if (!sectionOwner.count(key)) scenario.fail(kv.first, fmt::format("unknown section '{}'", key));
   }
   for (const Event& e : scenario.timeline()) {
      if (e.kind == kAgentRestart && !e.body.IsNull()) scenario.fail(e, "'agentRestart' takes no value");
      if (e.kind != kAgentRestart && !eventOwner_.count(e.kind)) {
         scenario.fail(e, fmt::format("unknown event kind '{}'", e.kind));
      }
   }
   for (auto& m : modules_) m->load(scenario);

   // A run whose estimated loop events exceed the limit would not end in reasonable time.
   const double perSecond = loopEventsPerSecond();
   const double estimate = perSecond * scenario.duration() + double(scenario.timeline().size());
   if (estimate > maxEvents) {
      scenario.fail(scenario.root()["duration"],
                    fmt::format("this run would take about {:.3g} loop events ({} s simulated at about {:.0f} per "
                                "second), over the limit of {:.3g}; shorten 'duration', lower the rates, or raise the "
                                "limit with --max-events N",
                                estimate, scenario.duration(), perSecond, maxEvents));
   }
}

double Simulation::loopEventsPerSecond() const {
   double perSecond = 0;
   for (auto& m : modules_) perSecond += m->loopEventsPerSecond();
   return perSecond;
}

void Simulation::start(bool realTime, bool verbose) {
   Kiv::ActivityManager& loop = Kiv::activityManager();
   if (realTime) {
      loop.realTimeIs();
   } else {
      loop.virtualTimeIs(0, 1.7e9);
   }
   start_ = loop.currentTime();
   world_ = std::make_unique<World>(World{scenario_});
   world_->verbose = verbose;
   for (auto& m : modules_) m->build(*world_);
   loop.runReady();
}

void Simulation::runTo(double t, const std::function<void()>& between) {
   const auto& timeline = scenario_.timeline();
   for (; next_ < timeline.size() && timeline[next_].at <= t; ++next_) {
      const Event& e = timeline[next_];
      advance(e.at, between);
      world_->log("event {} (line {})", e.kind, e.line);
      if (e.kind == kAgentRestart) {
         for (auto& m : modules_) m->agentRestart(*world_);
      } else {
         eventOwner_.at(e.kind)->apply(e, *world_);
      }
      Kiv::activityManager().runReady();
      for (auto& m : modules_) m->afterEvent(e, *world_);
   }
   advance(t, between);
}

void Simulation::advance(double t, const std::function<void()>& between) {
   constexpr double kSlice = 0.1;
   Kiv::ActivityManager& loop = Kiv::activityManager();
   const double until = start_ + t;
   while (loop.currentTime() < until) {
      loop.runUntil(std::min(until, loop.currentTime() + kSlice));
      between();
   }
}

double Simulation::simulated() const { return Kiv::activityManager().currentTime() - start_; }

Json Simulation::reportData() {
   Json doc;
   Json& sc = doc["scenario"];
   sc["origin"] = scenario_.origin();
   sc["name"] = scenario_.get<std::string>(scenario_.root(), "name", scenario_.origin());
   sc["duration"] = scenario_.duration();
   Json& timeline = sc["timeline"] = Json::array();
   for (const Event& e : scenario_.timeline()) {
      YAML::Emitter body;
      body << YAML::Flow << e.body;
      Json& j = timeline.push(Json());
      j["at"] = e.at;
      j["kind"] = e.kind;
      j["line"] = e.line;
      j["body"] = std::string(body.c_str());
   }
   doc["run"]["simulated"] = simulated();
   doc["run"]["loopEvents"] = Kiv::activityManager().eventsRun();
   Json& data = doc["modules"] = Json::object();
   for (auto& m : modules_) {
      Json part;
      m->reportData(*world_, part);
      if (!part.isNull()) data[m->name()] = std::move(part);
   }
   return doc;
}

}  // namespace Sim
