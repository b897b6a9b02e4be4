// The chassis inventory (section `chips`) and free-text timeline notes. Each
// chip is a simulated forwarding chip (unit = its logical FAP), entered in
// sysdb under chipInfoName(); `fifoDepth` sets how many entries each of its
// egress timestamp slots keeps: 1 to 8 (default 8), as in the hardware, whose
// collector drains at most eight entries before it polls.
#include <set>

#include "Asic/SimulatedChip.h"
#include "Module.h"

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
         s.onlyKeys(c, {"logicalFap", "interfaces", "fifoDepth"});
         Chip chip;
         chip.line = c.Mark().line + 1;
         const auto fap = s.integer(c, "logicalFap", 0, 0xFFFF);
         chip.logicalFap = Pondo::LogicalFapId(fap);
         if (!faps.insert(chip.logicalFap).second) s.fail(c, fmt::format("logical FAP {} declared twice", fap));
         YAML::Node intfs = c["interfaces"];
         if (intfs && !intfs.IsSequence()) s.fail(intfs, "'interfaces' is a list of interface names");
         for (const YAML::Node& i : intfs) {
            auto id = Wyx::IntfId::parse(s.as<std::string>(i, "interface"));
            if (!id || !Wyx::isEthernetIntfId(*id)) s.fail(i, fmt::format("'{}' is not an Ethernet interface name", i.Scalar()));
            if (!seen.insert(*id).second) s.fail(i, fmt::format("interface {} is on two chips", id->name()));
            chip.interfaces.push_back(*id);
         }
         const auto depth = s.integer(c, "fifoDepth", 1, 8, 8);
         chips_.push_back(std::move(chip));
         fifoDepths_.push_back(std::size_t(depth));
      }
   }

   void build(World& w) override {
      w.chips = chips_;
      for (std::size_t i = 0; i < w.chips.size(); ++i) {
         const Chip& c = w.chips[i];
         w.sysdb->entityPtrIs(chipInfoName(c.logicalFap),
                              Kiv::make<Asic::ChipInfo>(c.logicalFap, fmt::format("chip{}", c.logicalFap),
                                                        Kiv::make<Asic::SimulatedChip>(fifoDepths_[i])));
         w.log("chip logicalFap {} with {} interfaces", c.logicalFap, c.interfaces.size());
      }
   }

   void apply(const Event& e, World& w) override { w.log("note: {}", e.body.Scalar()); }

   void reportData(World& w, Json& out) override {
      for (std::size_t i = 0; i < w.chips.size(); ++i) {
         Json& c = out["chips"][std::to_string(w.chips[i].logicalFap)];
         c["interfaces"] = w.chips[i].interfaces.size();
         c["fifoDepth"] = fifoDepths_[i];
      }
   }

  private:
   std::vector<Chip> chips_;
   std::vector<std::size_t> fifoDepths_;
};

VYRPTP_SIM_MODULE(PlatformModule);

}  // namespace
}  // namespace Sim
