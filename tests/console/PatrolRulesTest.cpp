// Rules of a shadow that audits by itself and of what it works with. As in RulesTest: each broken
// one is refused, and without the check it ends the process.
#include <iostream>

#include "console/SessionTest.h"

namespace {

struct PatrolBreak {
  const char* name;
  std::vector<const char*> before;  // lines that prepare it
  const char* line;
  const char* rule;  // a part of the refusal
};

void PrintTo(const PatrolBreak& breach, std::ostream* out) { *out << breach.name; }

constexpr const char* goIdle = "set /shadow/state idle";
// A region whose entries are no whole registers.
constexpr const char* oddTable =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=10 entrySize=6 stride=8 "
    "chipHam=/shadow/chipMemory/vlan/chipHam";
constexpr const char* oddShadowed = "set /t/shadowEnabled true";
constexpr const char* oddAudited = "set /t/auditEnabled true";
constexpr const char* oddEntered = "call /shadow/auditReadRequest/chipMemoryIs chipMemory=/t";
constexpr const char* oddBuffered = "set /t/mode buffered";
constexpr const char* oddCleared = "call /t/doClear";
constexpr const char* newRequest = "let r = call chipWriteRequestFactory name=r";
constexpr const char* ofOddTable = "call /r/chipMemoryIs chipMemory=/t";
constexpr const char* newWriter =
    "let w = call chipWriterFactory activity=/activity shadow=/shadow request=/r clock=/clock "
    "maxEntriesPerWrite=64 maxEntriesPerSlice=1024 writeInterval=0.001";

const PatrolBreak patrolBreaks[] = {
    {"auditing_access",
     {goIdle, oddTable, oddShadowed, oddAudited, oddEntered},
     "set /shadow/state auditing",
     "entrySize (6) must be a multiple of 4 for the access method vlan"},
    {"request_access",
     {oddTable, oddShadowed, oddAudited},
     oddEntered,
     "entrySize (6) must be a multiple of 4"},
    {"request_failed",
     {},
     "set /shadow/auditReadRequest/status 2",
     "must not fail: set the shadow idle first"},
    {"request_null",
     {goIdle},
     "set /shadow/auditReadRequest null",
     "the audit's request must not be null"},
    {"doAudit_access",
     {oddTable, oddShadowed},
     "call /shadow/doAudit chipMemory=/t first=0 count=1",
     "entrySize (6) must be a multiple of 4"},
    {"sentinel_size",
     {},
     "call /chip/sentinelIs address=0x2:000bfffc value=010203",
     "entrySize (3) must be a multiple of 4 for the access method identity"},
    {"access_write",
     {oddTable, oddShadowed, "let a = call chipAccessFactory shadow=/shadow chipMemory=/t"},
     "call /a/write entry=0 data=010203040506",
     "entrySize (6) must be a multiple of 4"},
    {"access_read",
     {oddTable, oddShadowed, "let a = call chipAccessFactory shadow=/shadow chipMemory=/t"},
     "call /a/read entry=0 entries=1",
     "entrySize (6) must be a multiple of 4"},
    {"writeRequest_state",
     {newRequest, newWriter},
     "set /r/state 7",
     "a request's state is 0 (idle), 1 (start) or 2 (stop), not 7"},
    {"writeRequest_start",
     {oddTable, oddShadowed, oddCleared, newRequest, ofOddTable, newWriter},
     "set /r/state 1",
     "entrySize (6) must be a multiple of 4"},
    {"writer_diff",
     {oddTable, oddShadowed, oddCleared, newRequest, ofOddTable, newWriter},
     "call /w/doDiff",
     "entrySize (6) must be a multiple of 4"},
    {"writer_leaveBuffered",
     {oddTable, oddShadowed, oddBuffered, oddCleared, newRequest, newWriter},
     "call /w/doLeaveBuffered chipMemory=/t",
     "entrySize (6) must be a multiple of 4"},
};

class PatrolRulesTest : public Support::SessionTest,
                        public testing::WithParamInterface<PatrolBreak> {};

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
  EXPECT_DEATH(broken(), "assertion \".*\" failed");
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
