// The virtual switch the simulator builds: the state database root where
// modules publish and find shared platform entities, the loop, the report.
#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Kiv/Dir.h"
#include "Wyx/IntfId.h"

namespace Sim {

class Scenario;

// One forwarding chip of the chassis (section `chips`).
struct Chip {
   Pondo::LogicalFapId logicalFap = 0;
   std::string slice;  // the slice that carries it
   std::string name;   // the chip's description; logical FAPs on one chip share it
   std::vector<Wyx::IntfId> interfaces;
   int line = 0;  // where the scenario declares it
};

// Where the platform module enters each chip's Asic::ChipInfo in sysdb.
inline std::string chipInfoName(Pondo::LogicalFapId logicalFap) { return fmt::format("asic/chipInfo/{}", logicalFap); }

struct World {
   const Scenario& scenario;
   // Shared platform entities by name ("ptp/hwConfig", "chips", ...). A module
   // that needs another's entity looks it up here; entityIs<T> creates it if absent.
   Pondo::Ptr<Kiv::Dir> sysdb = Kiv::make<Kiv::Dir>("sysdb");
   bool verbose = false;
   // The chassis inventory, filled by the platform module before others build.
   std::vector<Chip> chips;

   // A line of the event log ("[  1.250000] ...") on standard output.
   template <class... A>
   void log(fmt::format_string<A...> f, A&&... a) {
      fmt::print("[{:10.6f}] {}\n", Kiv::currentTime(), fmt::format(f, std::forward<A>(a)...));
   }
};

}  // namespace Sim
