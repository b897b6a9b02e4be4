// Fault storms: random scenarios (fixed seeds) over several chips with every
// fault of the time sources and changes of LAGs, mode, port states, timestamp
// locations, traffic and agent restarts. From the JSON report, every message
// is accounted for, no widening from a sound time is wrong, and nothing
// latched before an agent restart is published after it.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>

#include "SimRun.h"

namespace {

constexpr int kChips = 3;
constexpr double kDuration = 5;

std::string intfName(int chip, int i) { return fmt::format("Ethernet{}/{}", chip * 2 + 1 + i / 2, i % 2 + 1); }

std::string stormScenario(unsigned seed) {
   std::mt19937 rng(seed);
   auto pick = [&](std::initializer_list<const char*> l) { return *(l.begin() + rng() % l.size()); };
   auto uniform = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
   auto anyIntf = [&] { return intfName(int(rng() % kChips), int(rng() % 4)); };

   std::string s = fmt::format("name: fault storm {}\nduration: {}\nchips:\n", seed, kDuration);
   for (int c = 0; c < kChips; ++c) {
      s += fmt::format("  - logicalFap: {}\n    fifoDepth: {}\n    interfaces: [", c, 1 + rng() % 8);
      for (int i = 0; i < 4; ++i) s += (i ? ", " : "") + intfName(c, i);
      s += "]\n";
   }
   s += "asicTime: {initCounter: true, hpx: hpx1, egressPeriod: 0.1}\n"
        "programmers:\n  - {name: PKT_TRAP, interfaces: all, pipeline: true, delay: 0.05, failsAt: [3]}\n"
        "lags:\n  Port-Channel1: [Ethernet1/1, Ethernet1/2]\n"
        "ptpMode: 1\nptpIntfConfig:\n  Port-Channel1: {enabled: true}\n";
   const std::vector<std::string> ports = {"Port-Channel1", "Ethernet3/1", "Ethernet4/2", "Ethernet5/1", "Ethernet6/2"};
   for (std::size_t i = 1; i < ports.size(); ++i) s += fmt::format("  {}: {{enabled: true}}\n", ports[i]);
   s += "portDS:\n";
   for (const auto& p : ports)
      s += fmt::format("  - {{intf: {}, state: {}, clockId: 001c73.fffe.000001}}\n", p, pick({"master", "slave"}));
   s += "egressCollection:\n  timeSource: {0: fpga, 1: asicTimeFile, 2: asicTimeFile}\n  counterNeedsInit: true\n"
        "  start: 0.3\n  traffic: {";
   for (int c = 0; c < kChips; ++c) {
      for (int i = 0; i < 4; ++i)
         s += fmt::format("{}{}: {}", c + i ? ", " : "", intfName(c, i), pick({"16", "32", "128"}));
   }
   s += "}\nhwStatus:\n  timestampLocation: externalPhy\n  phyTimeSync: [Ethernet3/1, Ethernet5/2]\n"
        "  phyIsland: {Ethernet3/1: {rx: true, tx: true}}\n  timeSync: {0: 5, 1: 5, 2: 5}\ntimeline:\n";
   for (int e = 0; e < 40; ++e) {
      s += fmt::format("  - at: {:.3f}\n    ", uniform(0, kDuration - 0.5));
      switch (rng() % 15) {
         case 0:
            s += fmt::format("asicTimeFault: {{logicalFap: {}, fault: {}, for: {:.2f}}}\n", rng() % kChips,
                             pick({"missing", "zero", "garbage"}), uniform(0.05, 1.5));
            break;
         case 1:
            s += fmt::format("hpxFault: {{fault: stepBack, by: {:.3f}, for: {:.2f}}}\n", uniform(0.001, 6),
                             uniform(0.05, 1));
            break;
         case 2: s += fmt::format("hpxFault: {{fault: stall, for: {:.2f}}}\n", uniform(0.05, 1)); break;
         case 3:
            s += fmt::format("hpxFault: {{fault: text, text: {}, for: {:.2f}}}\n", pick({"12ab", "-5", "''"}),
                             uniform(0.05, 1));
            break;
         case 4: s += fmt::format("hpxFault: {{fault: gpio, value: {}}}\n", rng() % 8); break;
         case 5: {
            std::set<std::string> members;
            for (int m = int(rng() % 3); m > 0; --m) members.insert(anyIntf());
            s += fmt::format("lag: {{name: Port-Channel1, members: [{}]}}\n", fmt::join(members, ", "));
            break;
         }
         case 6: s += fmt::format("ptpMode: {}\n", rng() % 4); break;
         case 7:
            s += fmt::format("portDS: {{intf: {}, state: {}}}\n", ports[rng() % ports.size()],
                             pick({"master", "slave", "passive", "listening", "disabled"}));
            break;
         case 8: s += fmt::format("timestampLocation: {}\n", pick({"externalPhy", "chip"})); break;
         case 9: s += fmt::format("traffic: {{{}: {}}}\n", anyIntf(), pick({"0", "8", "64", "256"})); break;
         case 10: s += fmt::format("operStatus: {{{}: {}}}\n", anyIntf(), pick({"up", "down"})); break;
         case 11: s += fmt::format("timeSync: {{{}: {}}}\n", rng() % kChips, pick({"5", "5", "3", "none"})); break;
         case 12: s += fmt::format("phyTimeSync: {{{}: {}}}\n", anyIntf(), pick({"true", "false"})); break;
         case 13:
            s += fmt::format("phyIsland: {{{}: {}}}\n", anyIntf(),
                             pick({"{rx: true, tx: true}", "{rx: false, tx: true}", "none"}));
            break;
         default: s += pick({"bumpGeneration:\n", "agentRestart:\n"}); break;
      }
   }
   return s;
}

double at(const Sim::Json& j, const char* key) { return j.find(key)->number(); }

class SimFaultStormTest : public testing::TestWithParam<unsigned> {};

TEST_P(SimFaultStormTest, EveryMessageAccountedAndNoWrongWidening) {
   const unsigned seed = GetParam();
   std::cout << "seed " << seed << "\n";
   const SimRun r = SimRun::of(stormScenario(seed), "", true);
   ASSERT_EQ(r.status, 0) << r.err;
   const Sim::Json& modules = *r.report.find("modules");
   EXPECT_GT(at(*r.report.find("run"), "loopEvents"), 3000);

   double sent = 0, published = 0;
   for (const auto& [fap, chip] : modules.find("egress-collection")->find("chips")->members()) {
      for (const auto& [intf, n] : chip.find("interfaces")->members()) {
         double accounted = at(n, "published") + at(n, "inChip");
         for (const auto& [reason, k] : n.find("lost")->members()) accounted += k.number();
         EXPECT_EQ(at(n, "sent"), accounted) << "chip " << fap << " " << intf;
         EXPECT_EQ(at(n, "wrong"), 0) << "chip " << fap << " " << intf;
         EXPECT_EQ(at(n, "staleSinceRestart"), 0) << "chip " << fap << " " << intf;
         sent += at(n, "sent");
         published += at(n, "published");
      }
   }
   EXPECT_GT(sent, 1000);
   EXPECT_GT(published, 0);
   for (const auto& [fap, chip] : modules.find("asicTime")->find("chips")->members()) {
      EXPECT_EQ(at(*chip.find("viaFile"), "wrong"), 0) << "chip " << fap;
      EXPECT_EQ(at(*chip.find("viaFpga"), "wrong"), 0) << "chip " << fap;
   }
}

INSTANTIATE_TEST_SUITE_P(Seeds, SimFaultStormTest, testing::Values(1u, 2u, 3u));

// A restarted agent recovers: readiness returns, timestamps flow again,
// nothing latched before the restart is published after it, and the machines
// of the other subsystems come back on the same entities.
TEST(SimAgentRestartTest, ReadinessAndTimestampsRecover) {
   std::string s = fmt::format(
       "duration: 4\nchips:\n  - {{logicalFap: 0, interfaces: [Ethernet1/1, Ethernet1/2]}}\n"
       "asicTime: {{egressPeriod: 0.1}}\n"
       "programmers:\n  - {{name: PKT_TRAP, interfaces: all, pipeline: true, delay: 0.05}}\n"
       "ptpMode: 1\nptpIntfConfig:\n  Ethernet1/1: {{enabled: true}}\n"
       "portDS:\n  - {{intf: Ethernet1/1, state: master, clockId: 001c73.fffe.000001}}\n"
       "egressCollection:\n  traffic: {{Ethernet1/1: 100}}\n"
       "cfUpdate:\n  Ethernet1/1: {{ingressUpdate: true}}\n"
       "hwStatus:\n  timeSync: {{0: 5}}\n"
       "timeline:\n  - at: 2.0021\n    agentRestart:\n");
   const SimRun r = SimRun::of(s, "", true);
   ASSERT_EQ(r.status, 0) << r.err;
   const Sim::Json& modules = *r.report.find("modules");
   const Sim::Json& n =
       *modules.find("egress-collection")->find("chips")->find("0")->find("interfaces")->find("Ethernet1/1");
   EXPECT_GT(at(n, "publishedSinceRestart"), 150);  // about 2 s at 100 per second
   EXPECT_EQ(at(n, "staleSinceRestart"), 0);
   EXPECT_EQ(at(n, "wrong"), 0);
   const Sim::Json& ready = *modules.find("readiness")
                                 ->find("chips")
                                 ->find("0")
                                 ->find("interfaces")
                                 ->find("Ethernet1/1")
                                 ->find("readinessAggregator");
   EXPECT_TRUE(ready.find("ready")->boolean());
   EXPECT_GE(at(ready, "since"), 2.0021);  // ready again after the restart
   EXPECT_NE(r.out.find("agent restarted the polling adapter and the aggregate"), std::string::npos);

   // The new hardware status machines find the interface ready.
   const Sim::Json& hw = *modules.find("hw-status")->find("interfaces")->find("Ethernet1/1");
   EXPECT_TRUE(hw.find("rx")->boolean());
   EXPECT_TRUE(hw.find("tx")->boolean());
   EXPECT_TRUE(hw.find("why")->isNull());
   // The correction-field machine programs the row again and CF_UPDATE is active.
   const Sim::Json& cf = *modules.find("cfUpdate");
   EXPECT_TRUE(cf.find("active")->boolean());
   const Sim::Json& row = *cf.find("logicalFaps")->find("0")->find("rows")->find("Ethernet1/1");
   EXPECT_TRUE(row.find("rx")->find("ingressCfUpdateEnable")->boolean());
   // The ingress forwarding control machine holds the chip's table again.
   EXPECT_FALSE(modules.find("ingressFwdCtrl")->find("chips")->find("chip0")->find("profiles")->members().empty());
   for (const char* line : {"hw status: agent restarted the location and hardware status machines",
                            "cfUpdate: agent restarted the correction-field machine; CF_UPDATE active",
                            "ingress forwarding control: agent restarted the machine; 1 chips"}) {
      EXPECT_NE(r.out.find(line), std::string::npos) << line;
   }
}

}  // namespace
