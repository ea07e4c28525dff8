// Lines that break a rule of the library: each is refused with the rule, and nothing changes. With
// the checks switched off the same line ends the process.
#include <Hardware/Umbra.h>

#include <iostream>

#include "console/Breaks.h"
#include "console/SessionTest.h"

namespace {

using namespace Breaks;

// Most rules are those of a shadow whose audit needs a reader.
class RulesTest : public Support::SessionTest, public testing::WithParamInterface<Break> {
 protected:
  RulesTest() : SessionTest(withReader) {}
};

TEST_P(RulesTest, aBrokenRuleIsRefused_andNothingChanges) {
  for (const char* line : GetParam().before) session_.run(line);
  const std::string before = outputOf("ls /shadow") + outputOf("ls /reader");
  const std::string refused = refusal(GetParam().line);
  EXPECT_THAT(refused, testing::StartsWith("refused: "));
  EXPECT_THAT(refused, testing::HasSubstr(GetParam().rule));
  EXPECT_EQ(outputOf("ls /shadow") + outputOf("ls /reader"), before);
  for (const char* line : GetParam().after) session_.run(line);
  session_.run("wait 0.7");
}

using RulesDeathTest = RulesTest;

// Some do so only after the line, as the system runs on.
TEST_P(RulesDeathTest, withoutTheCheckItEndsTheProcess) {
  const auto broken = [&] {
    Console::World world = this->world();
    world.checksRules = false;
    Console::Session session(world, std::cerr);
    for (const char* line : GetParam().before) session.run(line);
    session.run(GetParam().line);
    for (const char* line : GetParam().after) session.run(line);
    session.run("wait 0.7");
  };
  EXPECT_DEATH(broken(), EndsByAssertion());
}

constexpr auto nameOf = [](const auto& info) { return std::string(info.param.name); };
INSTANTIATE_TEST_SUITE_P(Rules, RulesTest, testing::ValuesIn(breaks), nameOf);
INSTANTIATE_TEST_SUITE_P(Rules, RulesDeathTest, testing::ValuesIn(breaks), nameOf);

class RuleBoundsTest : public Support::SessionTest {
 protected:
  RuleBoundsTest() : SessionTest(withReader) {}
};

// What just keeps the rules is run.
TEST_F(RuleBoundsTest, whatKeepsTheRulesIsRun) {
  session_.run(table);
  for (const char* line :
       {shadowed,
        "call /t/doClearRange startIndex=0 endIndex=10",
        "call /t/doClearRange startIndex=10 endIndex=10",
        "call /t/entryInitialized entryIndex=9",
        "call /t/entryInitializedDel entryIndex=9",
        "set /t/mode buffered",
        "set /t/mode normal",
        "set /t/hardware null",
        "set /t/mode override",
        "call /t/doClearRange startIndex=9 endIndex=99",
        "call /t/entryInitialized entryIndex=99",
        "call /t/writeback initializedOnly=false",
        "call /shadow/shadowWriteAndCompareWithCache chipMemory=/t entry=99 data=01 size=1",
        "call /shadow/shadowWriteAndCompareWithCache chipMemory=/shadow/chipMemory/vlan "
        "entry=1023 data=0102030405060708 size=8",
        "call /shadow/readFromCacheHack address=0x1:00081ff8 size=8",
        "call /shadow/findChipMemory address=0x9:00000000 size=1",
        "call /shadow/chipMemoryDel address=0x9:00000000",
        "call /shadow/chipMemoryIs chipMemory=/shadow/chipMemory/mac",
        "set /shadow/auditReadRequest/state 1",
        "set /reader/entriesRead 7",
        "set /shadow/state idle",
        "set /shadow/auditReadRequest/status 2",
        "call /shadow/auditReadRequest/chipMemoryDelAll",
        auditing}) {
    EXPECT_EQ(refusal(line), "") << line;
  }
  session_.run("wait 1");
  EXPECT_EQ(outputOf("get /shadow/state"), "'idle'\n");  // there was nothing to audit
}

TEST_F(RuleBoundsTest, anUnreadableArgumentIsTheLibrarysToRefuse) {
  EXPECT_THAT(refusal("call /shadow/chipMemory/mac/doClearRange startIndex=x endIndex=99999999"),
              testing::StartsWith("an integer expected at \"x"));
  EXPECT_THAT(refusal("call /shadow/chipMemory/mac/doClearRange endIndex=99999999"),
              testing::HasSubstr("missing argument startIndex"));
  EXPECT_THAT(refusal("set /shadow/state 'asleep'"), testing::HasSubstr("it is one of"));
}

}  // namespace
