// docs/scenarios.md cannot drift from the loader: every YAML example in it
// runs in the simulator (the first is a whole scenario, later ones replace its
// top-level keys), and every section, event kind and fault the modules know
// has its heading there.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "Module.h"
#include "SimRun.h"

namespace {

std::string reference() {
   std::ifstream in(VYRPTP_SCENARIO_REFERENCE);
   return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> examples(const std::string& doc) {
   std::vector<std::string> out;
   const std::regex block("```yaml\n([\\s\\S]*?)```");
   for (std::sregex_iterator i(doc.begin(), doc.end(), block), end; i != end; ++i) out.push_back((*i)[1]);
   return out;
}

TEST(ScenarioReferenceTest, EveryExampleLoadsAndRuns) {
   const auto all = examples(reference());
   ASSERT_GT(all.size(), 20u);
   for (std::size_t i = 0; i < all.size(); ++i) {
      YAML::Node scenario = YAML::Load(all[0]);
      const YAML::Node fragment = YAML::Load(all[i]);
      for (const auto& kv : fragment) scenario[kv.first.Scalar()] = kv.second;
      YAML::Emitter text;
      text << scenario;
      const SimRun r = SimRun::of(text.c_str());
      EXPECT_EQ(r.status, 0) << "example " << i + 1 << ":\n" << all[i] << r.err;
   }
}

TEST(ScenarioReferenceTest, EverySectionAndEventIsDocumented) {
   const std::string doc = reference();
   for (Sim::ModuleMaker make : Sim::moduleMakers()) {
      const auto m = make();
      for (const std::string& s : m->sections())
         EXPECT_THAT(doc, testing::HasSubstr("### section `" + s + "`")) << m->name();
      for (const std::string& e : m->events())
         EXPECT_THAT(doc, testing::HasSubstr("### event `" + e + "`")) << m->name();
   }
   EXPECT_THAT(doc, testing::HasSubstr("### event `agentRestart`"));
   for (const char* fault : {"missing", "zero", "garbage", "stepBack", "stall", "text", "gpio"}) {
      EXPECT_THAT(doc, testing::HasSubstr(fmt::format("#### fault `{}`", fault)));
   }
}

}  // namespace
