#include <tools/console/Commands.h>
#include <tools/console/Completion.h>

#include "console/SessionTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class CompletionTest : public Support::SessionTest {
 protected:
  std::vector<std::string> candidatesFor(const std::string& line) {
    return completion(session_, line).candidates;
  }
  // The line with what all candidates begin with in its place.
  std::string completedLine(const std::string& line) {
    const Console::Completion found = completion(session_, line);
    return found.candidates.empty() ? line : line.substr(0, found.begin) + found.common();
  }
};

TEST_F(CompletionTest, theFirstWordIsACommand) {
  EXPECT_THAT(candidatesFor("p"), ElementsAre("peek ", "poke "));
  EXPECT_EQ(completedLine("des"), "describe ");
  EXPECT_EQ(completedLine("  ca"), "  call ");
  EXPECT_THAT(candidatesFor(""), SizeIs(Console::commands().size()));
  EXPECT_THAT(candidatesFor("x"), IsEmpty());
  EXPECT_THAT(candidatesFor("nocommand /sh"), IsEmpty());
}

TEST_F(CompletionTest, pathsAreCompletedNameByName) {
  EXPECT_EQ(completedLine("cd sh"), "cd shadow/");
  EXPECT_EQ(completedLine("cd /shadow/chipMemoryE"), "cd /shadow/chipMemoryEntriesUnderAudit ");
  EXPECT_EQ(completedLine("cd /shadow/chipMemory/v"), "cd /shadow/chipMemory/vlan/");
  EXPECT_EQ(completedLine("get /shadow/chipMemory/vlan/mo"), "get /shadow/chipMemory/vlan/mode ");
  EXPECT_EQ(completedLine("get /shadow/aud"), "get /shadow/audit");
  EXPECT_THAT(candidatesFor("get /shadow/aud"), ElementsAre("auditReadRequest/", "audits "));
  EXPECT_THAT(candidatesFor("get /shadow/chipMemoryId/"), ElementsAre("0 ", "1 ", "2 "));
}

TEST_F(CompletionTest, pathsBeginWhereTheSessionIs) {
  session_.run("cd /shadow/chipMemory");
  EXPECT_THAT(candidatesFor("cd "),
              ElementsAre("acl/", "mac/", "port/", "qos/", "stack/", "vlan/"));
  EXPECT_EQ(completedLine("ls ../../vl"), "ls ../../vlan-");
  EXPECT_THAT(candidatesFor("ls ../../vl"), ElementsAre("vlan-access/", "vlan-policy/"));
}

TEST_F(CompletionTest, whatLeadsNowhereIsNotCompleted) {
  EXPECT_THAT(candidatesFor("get /nothing/a"), IsEmpty());
  EXPECT_THAT(candidatesFor("get /shadow/state/a"), IsEmpty());
  EXPECT_THAT(candidatesFor("call /shadow/chipMemory/mac 'a"), IsEmpty());
}

TEST_F(CompletionTest, set_offersTheValuesThatCanBeListed) {
  EXPECT_THAT(candidatesFor("set /shadow/state "),
              ElementsAre("auditing ", "configured ", "idle ", "unconfigured "));
  EXPECT_EQ(completedLine("set /shadow/state i"), "set /shadow/state idle ");
  EXPECT_THAT(candidatesFor("set /shadow/overrideHardware "), ElementsAre("false ", "true "));
  EXPECT_THAT(candidatesFor("set /shadow/audits "), IsEmpty());
  EXPECT_EQ(completedLine("set /shadow/lastChipMemory /sh"), "set /shadow/lastChipMemory /shadow/");
}

TEST_F(CompletionTest, call_offersOperationsAndTheirArguments) {
  EXPECT_EQ(completedLine("call /shadow/find"), "call /shadow/findChipMemory ");
  EXPECT_THAT(candidatesFor("call /shadow/chipMemoryD"),
              ElementsAre("chipMemoryDel ", "chipMemoryDelAll "));
  EXPECT_EQ(completedLine("call chipMemoryB"), "call chipMemoryBogonFactory ");
  EXPECT_THAT(candidatesFor("call /shadow/state"), IsEmpty());
  EXPECT_THAT(candidatesFor("call /shadow/findChipMemory "), ElementsAre("address=", "size="));
  EXPECT_THAT(candidatesFor("call /shadow/findChipMemory size=4 "), ElementsAre("address="));
  EXPECT_THAT(candidatesFor("call /shadow/readFromCacheHack d"), ElementsAre("dataPtr="));
  EXPECT_EQ(completedLine("call chipMemoryFactory na"), "call chipMemoryFactory name=");
  EXPECT_EQ(completedLine("call /directory/chipMemoryIs chipHam=/shadow/chipMemory/q"),
            "call /directory/chipMemoryIs chipHam=/shadow/chipMemory/qos/");
  EXPECT_THAT(candidatesFor("call /shadow/findChipMemory size="), IsEmpty());
}

TEST_F(CompletionTest, let_offersPathsAndCalls) {
  EXPECT_THAT(candidatesFor("let x "), ElementsAre("= "));
  EXPECT_THAT(candidatesFor("let x = "), Contains("call "));
  EXPECT_EQ(completedLine("let x = n"), "let x = null ");
  EXPECT_EQ(completedLine("let x = /shadow/chipMemory/m"), "let x = /shadow/chipMemory/mac/");
  EXPECT_EQ(completedLine("let x = call /shadow/find"), "let x = call /shadow/findChipMemory ");
  EXPECT_EQ(completedLine("let x = call /shadow/findChipMemory s"),
            "let x = call /shadow/findChipMemory size=");
  EXPECT_THAT(candidatesFor("let "), IsEmpty());
  EXPECT_THAT(candidatesFor("let x = /shadow "), IsEmpty());
}

TEST_F(CompletionTest, theOtherCommandsHaveTheirOwnNames) {
  session_.run("watch /shadow/state");
  EXPECT_THAT(candidatesFor("unwatch "), ElementsAre("/shadow/state "));
  EXPECT_THAT(candidatesFor("describe Chip"), Contains("ChipMemory "));
  EXPECT_EQ(completedLine("describe Hardware::HardwareShadow::"),
            "describe Hardware::HardwareShadow::State ");
  EXPECT_EQ(completedLine("help des"), "help describe ");
  EXPECT_EQ(completedLine("trace o"), "trace off ");
  EXPECT_THAT(candidatesFor("trace 3 "), ElementsAre("Umbra ", "Zint "));
  EXPECT_EQ(completedLine("wait 2 "), "wait 2 passes ");
  EXPECT_THAT(candidatesFor("peek "), IsEmpty());
}

TEST_F(CompletionTest, askingChangesNothing) {
  session_.run("cd /shadow");
  const U32 before = opened_.theSwitch().shadow()->audits();
  for (const char* line :
       {"set state 'idle' ", "call removeOverrideOnlyChipMem ", "cd ..", "let x = chip/"}) {
    candidatesFor(line);
  }
  EXPECT_EQ(Console::textOf(session_.names().here()), "/shadow");
  EXPECT_EQ(opened_.theSwitch().shadow()->audits(), before);
  EXPECT_THAT(session_.names().objects(), Not(Contains("x")));
}

}  // namespace
