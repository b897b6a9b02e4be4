// Hostile and malformed scenarios: each is refused before anything runs, with
// the file, the line and what is wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DefaultScenario.h"
#include "Scenario.h"
#include "SimRun.h"

namespace {

using testing::HasSubstr;

// The built-in scenario with the first `from` replaced by `to`.
std::string edited(const std::string& from, const std::string& to) {
   std::string s = Sim::kDefaultScenario;
   const auto at = s.find(from);
   if (at == std::string::npos) throw std::logic_error("not in the default scenario: " + from);
   return s.replace(at, from.size(), to);
}

std::string loadError(const std::string& text) {
   try {
      Sim::Scenario(text, "test.yaml");
   } catch (const Sim::ScenarioError& e) {
      return e.what();
   }
   return "loaded";
}

TEST(SimScenarioTest, DuplicateKeyNamesBothLines) {
   EXPECT_EQ(loadError("duration: 2\nchips: []\nduration: 3\n"),
             "test.yaml:3: duplicate key 'duration' (first on line 1)");
   EXPECT_EQ(loadError("a: {b: 1, b: 2}\n"), "test.yaml:1: duplicate key 'b' (first on line 1)");
}

TEST(SimScenarioTest, SecondDocumentIsRefused) {
   EXPECT_EQ(loadError("duration: 2\n---\nduration: 3\n"),
             "test.yaml:2: a scenario is one YAML document; a second one starts here");
}

TEST(SimScenarioTest, ComplexKeyIsRefusedWithTheFile) {
   EXPECT_EQ(loadError("[a, b]: 1\n"), "test.yaml:1: a key must be a plain value, not a list or a map");
   EXPECT_EQ(loadError("x:\n  ? {a: 1}\n  : 2\n"), "test.yaml:2: a key must be a plain value, not a list or a map");
}

TEST(SimScenarioTest, AliasIsRefused) {
   EXPECT_EQ(loadError("a: &x 1\nb: *x\n"),
             "test.yaml:2: aliases (*name) are not supported in scenarios: write the value out");
}

TEST(SimScenarioTest, ParserErrorNamesTheFile) {
   EXPECT_EQ(loadError("a: [1, 2\n"), "test.yaml:2:1: end of sequence flow not found");
   EXPECT_THAT(loadError(std::string(3000, '[')), testing::StartsWith("test.yaml:1"));
}

TEST(SimScenarioTest, EventTimesAndDurationAreBounded) {
   EXPECT_EQ(loadError("timeline:\n  - at: .nan\n    note: x\n"),
             "test.yaml:2: 'at' must be a number from 0 to 604800 s, not .nan");
   EXPECT_EQ(loadError("timeline:\n  - at: 1e9\n    note: x\n"),
             "test.yaml:2: 'at' must be a number from 0 to 604800 s, not 1e9");
   EXPECT_EQ(loadError("duration: .inf\n"),
             "test.yaml:1: 'duration' must be a number from 0.001 to 604800 s, not .inf");
   EXPECT_EQ(loadError("duration: 0\n"), "test.yaml:1: 'duration' must be a number from 0.001 to 604800 s, not 0");
   EXPECT_EQ(loadError("duration: [1]\n"),
             "test.yaml:1: 'duration' must be a number from 0.001 to 604800 s, not a list or map");
   EXPECT_EQ(loadError("duration: 1\ntimeline:\n  - at: 2\n    note: x\n"),
             "test.yaml:1: 'duration' ends before the last event at 2");
   // Without 'duration', one second after the last event; never past the bound.
   EXPECT_EQ(Sim::Scenario("timeline:\n  - at: 2.5\n    note: x\n", "t").duration(), 3.5);
   EXPECT_EQ(Sim::Scenario("timeline:\n  - at: 604800\n    note: x\n", "t").duration(), Sim::kMaxSeconds);
}

TEST(SimScenarioTest, TypedReadsRefuseNonFiniteNumbers) {
   const Sim::Scenario s("x: .nan\ny: 1e400\nz: 7\n", "test.yaml");
   EXPECT_THROW(s.get<double>(s.root(), "x"), Sim::ScenarioError);
   EXPECT_THROW(s.get<double>(s.root(), "y"), Sim::ScenarioError);
   EXPECT_EQ(s.get<double>(s.root(), "z"), 7);
   EXPECT_EQ(s.integer(s.root(), "z", 0, 7), 7);
   try {
      s.integer(s.root(), "z", 0, 6);
      ADD_FAILURE() << "7 is outside 0..6";
   } catch (const Sim::ScenarioError& e) {
      EXPECT_STREQ(e.what(), "test.yaml:3: 'z' must be a whole number from 0 to 6, not 7");
   }
}

// Each case: an edit of the default scenario and the error it gets.
struct Hostile {
   const char* name;
   const char* from;
   const char* to;
   const char* error;
};

class SimHostileScenarioTest : public testing::TestWithParam<Hostile> {};

TEST_P(SimHostileScenarioTest, IsRefusedWithFileLineAndReason) {
   const Hostile& h = GetParam();
   const SimRun r = SimRun::of(edited(h.from, h.to));
   EXPECT_EQ(r.status, 1);
   EXPECT_THAT(r.err, HasSubstr(h.error));
   EXPECT_THAT(r.err, HasSubstr("scenario.yaml:"));
   EXPECT_EQ(r.out.find("== Summary =="), std::string::npos) << "it ran";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SimHostileScenarioTest,
    testing::Values(
        Hostile{"NanEgressPeriod", "egressPeriod: 0.25", "egressPeriod: .nan",
                ":16: 'egressPeriod' must be a number from 0.001 to 3600 s, not .nan"},
        Hostile{"TinyEgressPeriod", "egressPeriod: 0.25", "egressPeriod: 1e-9",
                ":16: 'egressPeriod' must be a number from 0.001 to 3600 s, not 1e-9"},
        Hostile{"NanDelay", "delay: 0.2", "delay: .nan", ":23: 'delay' must be a number from 0 to 3600 s, not .nan"},
        Hostile{"HugeDuration", "duration: 5", "duration: 1e9",
                ":5: 'duration' must be a number from 0.001 to 604800 s, not 1e9"},
        Hostile{"InfiniteRate", "Ethernet1/2: 16,", "Ethernet1/2: .inf,",
                ":42: 'rate' must be a number from 0 to 10000 per second, not .inf"},
        Hostile{"NanRateEvent", "note: the protocol side starts", "traffic: {Ethernet1/1: .nan}",
                ":54: 'rate' must be a number from 0 to 10000 per second, not .nan"},
        Hostile{"InfiniteFaultLength", "for: 1.2}", "for: .inf}",
                ":64: 'for' must be a number from 0.001 to 604800 s, not .inf"},
        Hostile{"NanStepBack", "by: 2.0", "by: .nan", ":74: 'by' must be a number from 1e-09 to 3600 s, not .nan"},
        Hostile{"NegativeStart", "start: 0.5", "start: -1", ":41: 'start' must be a number from 0 to 604800 s, not -1"},
        Hostile{"GpioOutOfRange", "value: 5", "value: 4294967296",
                ":114: 'value' must be a whole number from 0 to 4294967295, not 4294967296"},
        Hostile{"FifoDeeperThanTheHardware", "  - logicalFap: 0\n", "  - logicalFap: 0\n    fifoDepth: 9\n",
                ":8: 'fifoDepth' must be a whole number from 1 to 8, not 9"},
        Hostile{"DuplicateKey", "ptpMode: 1\n", "ptpMode: 1\nptpMode: 2\n",
                ":34: duplicate key 'ptpMode' (first on line 33)"},
        Hostile{"SecondDocument", "ptpMode: 1\n", "ptpMode: 1\n---\nptpMode: 2\n",
                ":34: a scenario is one YAML document; a second one starts here"},
        Hostile{"UnknownSection", "ptpMode: 1\n", "ptpMode: 1\nptpModes: 2\n", ":34: unknown section 'ptpModes'"},
        Hostile{"UnknownEvent", "note: the protocol side starts", "nite: x", ":53: unknown event kind 'nite'"},
        Hostile{"UnknownKey", "delay: 0.2", "delay: 0.2\n    dalay: 1", ":24: unknown key 'dalay'"},
        Hostile{"ComplexKey", "ptpMode: 1\n", "ptpMode: 1\n[a]: 2\n", ":34: a key must be a plain value"},
        Hostile{"UndeclaredPortChannel", "Port-Channel10: {enabled: true}", "Port-Channel20: {enabled: true}",
                ":37: Port-Channel20 is not a LAG of the 'lags' section or of a 'lag' event"},
        Hostile{"PortDSOnUndeclaredPortChannel", "{intf: Port-Channel10, state: slave}",
                "{intf: Port-Channel11, state: slave}",
                ":72: Port-Channel11 is not a LAG of the 'lags' section or of a 'lag' event"},
        Hostile{"InterfaceInTwoLags", "  Port-Channel10: [Ethernet3/1, Ethernet3/2]\n",
                "  Port-Channel10: [Ethernet3/1, Ethernet3/2]\n  Port-Channel11: [Ethernet4/1, Ethernet3/2]\n",
                ":33: Ethernet3/2 is already a member of Port-Channel10"},
        Hostile{"LagDeclaredTwice", "  Port-Channel10: [Ethernet3/1, Ethernet3/2]\n",
                "  Port-Channel10: [Ethernet3/1]\n  Po10: [Ethernet3/2]\n", ":33: LAG Port-Channel10 declared twice"},
        Hostile{"PortDSDeclaredTwice", "  - {intf: Ethernet1/2, state: master, clockId: 001c73.fffe.000001}\n",
                "  - {intf: Ethernet1/2, state: master, clockId: 001c73.fffe.000001}\n"
                "  - {intf: Ethernet1/2, state: slave, clockId: 001c73.fffe.000002}\n",
                ":51: port data set Ethernet1/2 domain 0 port 1 declared twice"},
        Hostile{"InterfaceOnTwoChips", "{Ethernet4/2: [5, 1]}]", "Ethernet1/1]",
                ":12: interface Ethernet1/1 is on two chips"},
        Hostile{"UndeclaredChip", "asicTimeFault: {logicalFap: 1,", "asicTimeFault: {logicalFap: 7,",
                ":64: no chip with logicalFap 7"},
        Hostile{"UndeclaredInterface", "Ethernet1/1: 128", "Ethernet9/1: 128",
                ":42: 'Ethernet9/1' is not an interface of a chip"},
        Hostile{"LogicalFapBeyondTheUnits", "  - logicalFap: 1\n", "  - logicalFap: 128\n",
                ":10: 'logicalFap' must be a whole number from 0 to 127, not 128"},
        Hostile{"PortOutOfRange", "{Ethernet4/1: [4, 1]}", "{Ethernet4/1: [65536, 1]}",
                ":12: 'port' must be a whole number from 0 to 65535, not 65536"},
        Hostile{"UnknownTimestampLocation", "timestampLocation: externalPhy ", "timestampLocation: phy ",
                ":44: 'phy' is not a timestamp location (chip or externalPhy)"},
        Hostile{"TimeSyncStateOutOfRange", "timeSync: {0: 3}", "timeSync: {0: 300}",
                ":78: 'time-sync state' must be a whole number from 0 to 255, not 300"},
        Hostile{"TimeSyncOfUndeclaredChip", "timeSync: {0: 3}", "timeSync: {9: 3}", ":78: no chip with logicalFap 9"},
        Hostile{"PhyIslandOfUndeclaredInterface", "phyIsland: {Ethernet3/1: {rx: true",
                "phyIsland: {Ethernet9/9: {rx: true", ":106: 'Ethernet9/9' is not an interface of a chip"},
        Hostile{"CfUpdateEventWithoutEntry", "cfUpdate: {intf: Ethernet2/1, egressMode: egressTimestamp}",
                "cfUpdate: {intf: Ethernet4/1, egressMode: egressTimestamp}",
                ":56: Ethernet4/1 has no entry in the 'cfUpdate' section"},
        Hostile{"RestartWithValue", "note: the protocol side starts", "agentRestart: now",
                ":53: 'agentRestart' takes no value"}),
    [](const testing::TestParamInfo<Hostile>& i) { return std::string(i.param.name); });

// Found by ScenarioFuzz: the hardware status module, idle without chips, took
// its snapshot after every event.
TEST(SimScenarioTest, TimelineWithoutChipsRuns) {
   const SimRun r = SimRun::of("timeline:\n  - at: 1.0\n    note: no chips\n");
   EXPECT_EQ(r.status, 0) << r.err;
   EXPECT_THAT(r.out, HasSubstr("Ran 2.000 s of simulated time"));
}

TEST(SimScenarioTest, RunTooLongIsRefusedUnlessTheLimitIsRaised) {
   const SimRun refused = SimRun::of(Sim::kDefaultScenario, "--max-events 1000");
   EXPECT_EQ(refused.status, 1);
   EXPECT_THAT(refused.err, HasSubstr("scenario.yaml:5: this run would take about"));
   EXPECT_THAT(refused.err, HasSubstr("over the limit of 1e+03; shorten 'duration', lower the rates, or raise the "
                                      "limit with --max-events N"));
   const SimRun allowed = SimRun::of(Sim::kDefaultScenario, "--max-events 1e5");
   EXPECT_EQ(allowed.status, 0) << allowed.err;
   EXPECT_THAT(allowed.out, HasSubstr("== Summary =="));
}

TEST(SimScenarioTest, LongDefaultRunIsRefusedByDefault) {
   const SimRun r = SimRun::of(edited("duration: 5", "duration: 600000"));
   EXPECT_EQ(r.status, 1);
   EXPECT_THAT(r.err, HasSubstr("over the limit of 1e+07"));
}

}  // namespace
