// Rules of a shadow that audits by itself and of what it works with. As in RulesTest: each broken
// one is refused, and without the check it ends the process.
#include <iostream>

#include "console/Breaks.h"
#include "console/SessionTest.h"

namespace {

using namespace Breaks;

class PatrolRulesTest : public Support::SessionTest, public testing::WithParamInterface<Break> {};

TEST_P(PatrolRulesTest, aBrokenRuleIsRefused_andNothingChanges) {
  for (const char* line : GetParam().before) session_.run(line);
  const std::string before = outputOf("ls /shadow") + outputOf("ls /chip");
  const std::string refused = refusal(GetParam().line);
  EXPECT_THAT(refused, testing::StartsWith("refused: "));
  EXPECT_THAT(refused, testing::HasSubstr(GetParam().rule));
  EXPECT_EQ(outputOf("ls /shadow") + outputOf("ls /chip"), before);
  session_.run("wait 0.7");
}

using PatrolRulesDeathTest = PatrolRulesTest;

TEST_P(PatrolRulesDeathTest, withoutTheCheckItEndsTheProcess) {
  const auto broken = [&] {
    Console::World world = this->world();
    world.checksRules = false;
    Console::Session session(world, std::cerr);
    for (const char* line : GetParam().before) session.run(line);
    session.run(GetParam().line);
    session.run("set /shadow/state auditing");
    session.run("wait 0.7");
  };
  EXPECT_DEATH(broken(), EndsByAssertion());
}

constexpr auto patrolBreakName = [](const auto& info) { return std::string(info.param.name); };
INSTANTIATE_TEST_SUITE_P(Rules, PatrolRulesTest, testing::ValuesIn(patrolBreaks), patrolBreakName);
INSTANTIATE_TEST_SUITE_P(Rules, PatrolRulesDeathTest, testing::ValuesIn(patrolBreaks),
                         patrolBreakName);

using PatrolRuleBoundsTest = Support::SessionTest;

// What a patrol passes over is no broken rule.
TEST_F(PatrolRuleBoundsTest, whatKeepsTheRulesIsRun) {
  for (const char* line :
       {"set /shadow/chipMemory/vlan/mode override", "set /shadow/chipMemory/vlan/mode normal",
        "set /shadow/chipMemory/qos/hardware null", "set /shadow/auditReadRequest/status 1",
        "call /shadow/auditReadRequest/chipMemoryDelAll",
        "call /chip/sentinelIs address=0x2:000bfffc", "call /chip/isPresent",
        "call /mac-access/read entry=65535 entries=1"}) {
    EXPECT_EQ(refusal(line), "") << line;
  }
  session_.run("wait 1");
}

// These are refused by the library.
TEST_F(PatrolRuleBoundsTest, whatTheLibraryRefusesIsLeftToIt) {
  EXPECT_EQ(refusal("call /mac-access/read entry=65536 entries=1").find("refused"),
            std::string::npos);
  EXPECT_NE(refusal("call /mac-access/read entry=65536 entries=1"), "");
  EXPECT_EQ(refusal("set /shadow/maxEntriesPerSlice 0"), "maxEntriesPerSlice must be above 0");
  EXPECT_EQ(refusal("call /shadow/doAudit chipMemory=/shadow/chipMemory/vlan first=0 count=1025"),
            "doAudit: entries beyond those of vlan");
}

}  // namespace
