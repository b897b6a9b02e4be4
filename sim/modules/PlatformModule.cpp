// The chassis inventory (section `chips`) and free-text timeline notes. Each
// chip is a simulated forwarding chip (unit = its logical FAP), entered in
// sysdb under chipInfoName(); `fifoDepth` sets how many entries each of its
// egress timestamp slots keeps: 1 to 8 (default 8), as in the hardware, whose
// collector drains at most eight entries before it polls.
//
// `slice` names the slice that carries the chip (default "FixedSystem") and
// `chip` the chip itself (default "chip<logicalFap>"): logical FAPs that name
// one chip share its ingress tables, which the chip's first logical FAP
// programs. An interface is a name, or a map of its name to its place on the
// chip, [port, core]; by default the port is its position in the list and the
// core 0. The module enters the chip list in sysdb as "platform/globalChipInfo"
// and the chassis tree (slices, FAPs, interfaces with their port maps) as
// "platform/chassis".
//
//   chips:
//     - logicalFap: 0
//       slice: Linecard3
//       chip: fap3.0
//       interfaces: [Ethernet3/1, {Ethernet3/2: [7, 1]}]
#include <set>

#include "Asic/SimulatedChip.h"
#include "Asic/UnitId.h"
#include "Module.h"
#include "VyrPtp/ChassisAbsTypes.h"
#include "VyrPtp/PlatformGlobalChipInfoTypes.h"

namespace Sim {
namespace {

class PlatformModule final : public Module {
  public:
   std::string name() const override { return "platform"; }
   int order() const override { return 0; }
   std::vector<std::string> sections() const override { return {"chips"}; }
   std::vector<std::string> events() const override { return {"note"}; }

   void load(const Scenario& s) override {
      YAML::Node chips = s.section("chips");
      if (!chips) return;
      if (!chips.IsSequence()) s.fail(chips, "'chips' is a list of chips");
      std::set<Pondo::LogicalFapId> faps;
      std::set<Wyx::IntfId> seen;
      for (const YAML::Node& c : chips) {
         s.onlyKeys(c, {"logicalFap", "slice", "chip", "interfaces", "fifoDepth"});
         Chip chip;
         chip.line = c.Mark().line + 1;
         // Its hardware tables address the chip by the logical FAP as unit number.
         const auto fap = s.integer(c, "logicalFap", Asic::UnitId::min(), Asic::UnitId::invalid() - 1);
         chip.logicalFap = Pondo::LogicalFapId(fap);
         if (!faps.insert(chip.logicalFap).second) s.fail(c, fmt::format("logical FAP {} declared twice", fap));
         chip.slice = s.get<std::string>(c, "slice", "FixedSystem");
         chip.name = s.get<std::string>(c, "chip", fmt::format("chip{}", fap));
         YAML::Node intfs = c["interfaces"];
         if (intfs && !intfs.IsSequence()) s.fail(intfs, "'interfaces' is a list of interface names");
         std::vector<VyrPtp::ChassisAbstraction::PortMap> places;
         for (const YAML::Node& i : intfs) {
            VyrPtp::ChassisAbstraction::PortMap place{chip.logicalFap, std::uint16_t(chip.interfaces.size()), 0};
            if (i.IsMap() && i.size() != 1) s.fail(i, "an interface with its place is one 'name: [port, core]'");
            // Not assigned later: assigning a YAML::Node rewrites the node it shares.
            const YAML::Node name = i.IsMap() ? i.begin()->first : i;
            if (i.IsMap()) {
               const YAML::Node at = i.begin()->second;
               if (!at.IsSequence() || at.size() != 2) s.fail(at, "an interface's place is [port, core]");
               place.fapPortId = portNumber(s, at[0], "port");
               place.localCoreId = portNumber(s, at[1], "core");
            }
            auto id = Wyx::IntfId::parse(s.as<std::string>(name, "interface"));
            if (!id || !Wyx::isEthernetIntfId(*id))
               s.fail(i, fmt::format("'{}' is not an Ethernet interface name", name.Scalar()));
            if (!seen.insert(*id).second) s.fail(i, fmt::format("interface {} is on two chips", id->name()));
            chip.interfaces.push_back(*id);
            places.push_back(place);
         }
         places_.push_back(std::move(places));
         const auto depth = s.integer(c, "fifoDepth", 1, 8, 8);
         chips_.push_back(std::move(chip));
         fifoDepths_.push_back(std::size_t(depth));
      }
   }

   void build(World& w) override {
      w.chips = chips_;
      auto global = VyrPtp::platformGlobalChipInfoFactory();
      auto chassis = VyrPtp::ChassisAbstraction::chassisInfoFactory();
      for (std::size_t i = 0; i < w.chips.size(); ++i) {
         const Chip& c = w.chips[i];
         auto info = Kiv::make<Asic::ChipInfo>(c.logicalFap, c.name, Kiv::make<Asic::SimulatedChip>(fifoDepths_[i]));
         w.sysdb->entityPtrIs(chipInfoName(c.logicalFap), info);
         global->logicalFapInfoIs(c.logicalFap, info->gif(), c.name);
         auto fap = chassis->sliceIs(c.slice)->fapIdIs(c.logicalFap);
         for (std::size_t j = 0; j < c.interfaces.size(); ++j) fap->intfIs(c.interfaces[j])->portMapIs(places_[i][j]);
         w.log("chip logicalFap {} ({} on {}) with {} interfaces", c.logicalFap, c.name, c.slice, c.interfaces.size());
      }
      w.sysdb->entityPtrIs("platform/globalChipInfo", global);
      w.sysdb->entityPtrIs("platform/chassis", chassis);
   }

   void apply(const Event& e, World& w) override { w.log("note: {}", e.body.Scalar()); }

   void reportData(World& w, Json& out) override {
      for (std::size_t i = 0; i < w.chips.size(); ++i) {
         Json& c = out["chips"][std::to_string(w.chips[i].logicalFap)];
         c["slice"] = w.chips[i].slice;
         c["chip"] = w.chips[i].name;
         c["interfaces"] = w.chips[i].interfaces.size();
         c["fifoDepth"] = fifoDepths_[i];
      }
   }

  private:
   static std::uint16_t portNumber(const Scenario& s, const YAML::Node& n, const std::string& what) {
      return std::uint16_t(s.integerAs(n, what, 0, 0xFFFF));
   }

   std::vector<Chip> chips_;
   std::vector<std::vector<VyrPtp::ChassisAbstraction::PortMap>> places_;  // per chip, per interface
   std::vector<std::size_t> fifoDepths_;
};

VYRPTP_SIM_MODULE(PlatformModule);

}  // namespace
}  // namespace Sim
