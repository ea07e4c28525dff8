#include <tools/console/Commands.h>
#include <tools/console/Completion.h>

#include "console/SessionTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class CompletionTest : public Fakes::SessionTest {
 protected:
  std::vector<std::string> offered(const std::string& line) {
    return completion(session_, line).candidates;
  }
  // The line with what all candidates begin with in its place.
  std::string completed(const std::string& line) {
    const Console::Completion found = completion(session_, line);
    return found.candidates.empty() ? line : line.substr(0, found.begin) + found.common();
  }
};

TEST_F(CompletionTest, theFirstWordIsACommand) {
  EXPECT_THAT(offered("p"), ElementsAre("peek ", "poke "));
  EXPECT_EQ(completed("des"), "describe ");
  EXPECT_EQ(completed("  ca"), "  call ");
  EXPECT_THAT(offered(""), SizeIs(Console::commands().size()));
  EXPECT_THAT(offered("x"), IsEmpty());
  EXPECT_THAT(offered("nocommand /sh"), IsEmpty());
}

TEST_F(CompletionTest, pathsAreCompletedNameByName) {
  EXPECT_EQ(completed("cd sh"), "cd shadow/");
  EXPECT_EQ(completed("cd /shadow/chipMemoryE"), "cd /shadow/chipMemoryEntriesUnderAudit ");
  EXPECT_EQ(completed("cd /shadow/chipMemory/v"), "cd /shadow/chipMemory/vlan/");
  EXPECT_EQ(completed("get /shadow/chipMemory/vlan/mo"), "get /shadow/chipMemory/vlan/mode ");
  EXPECT_EQ(completed("get /shadow/aud"), "get /shadow/audit");
  EXPECT_THAT(offered("get /shadow/aud"), ElementsAre("auditReadRequest/", "audits "));
  EXPECT_THAT(offered("get /shadow/chipMemoryId/"), ElementsAre("0 ", "1 ", "2 "));
}

TEST_F(CompletionTest, pathsBeginWhereTheSessionIs) {
  session_.run("cd /shadow/chipMemory");
  EXPECT_THAT(offered("cd "), ElementsAre("acl/", "mac/", "port/", "qos/", "stack/", "vlan/"));
  EXPECT_EQ(completed("ls ../../re"), "ls ../../re");
  EXPECT_THAT(offered("ls ../../re"), ElementsAre("reader/", "registers/"));
}

TEST_F(CompletionTest, whatLeadsNowhereIsNotCompleted) {
  EXPECT_THAT(offered("get /nothing/a"), IsEmpty());
  EXPECT_THAT(offered("get /shadow/state/a"), IsEmpty());
  EXPECT_THAT(offered("call /shadow/chipMemory/mac 'a"), IsEmpty());
}

TEST_F(CompletionTest, set_offersTheValuesThatCanBeListed) {
  EXPECT_THAT(offered("set /shadow/state "),
              ElementsAre("auditing ", "configured ", "idle ", "unconfigured "));
  EXPECT_EQ(completed("set /shadow/state i"), "set /shadow/state idle ");
  EXPECT_THAT(offered("set /shadow/overrideHardware "), ElementsAre("false ", "true "));
  EXPECT_THAT(offered("set /shadow/audits "), IsEmpty());
  EXPECT_EQ(completed("set /shadow/lastChipMemory /sh"), "set /shadow/lastChipMemory /shadow/");
}

TEST_F(CompletionTest, call_offersOperationsAndTheirArguments) {
  EXPECT_EQ(completed("call /shadow/find"), "call /shadow/findChipMemory ");
  EXPECT_THAT(offered("call /shadow/chipMemoryD"),
              ElementsAre("chipMemoryDel ", "chipMemoryDelAll "));
  EXPECT_EQ(completed("call chipMemoryB"), "call chipMemoryBogonFactory ");
  EXPECT_THAT(offered("call /shadow/state"), IsEmpty());
  EXPECT_THAT(offered("call /shadow/findChipMemory "), ElementsAre("address=", "size="));
  EXPECT_THAT(offered("call /shadow/findChipMemory size=4 "), ElementsAre("address="));
  EXPECT_THAT(offered("call /shadow/readFromCacheHack d"), ElementsAre("dataPtr="));
  EXPECT_EQ(completed("call chipMemoryFactory na"), "call chipMemoryFactory name=");
  EXPECT_EQ(completed("call /directory/chipMemoryIs chipHam=/shadow/chipMemory/q"),
            "call /directory/chipMemoryIs chipHam=/shadow/chipMemory/qos/");
  EXPECT_THAT(offered("call /shadow/findChipMemory size="), IsEmpty());
}

TEST_F(CompletionTest, let_offersPathsAndCalls) {
  EXPECT_THAT(offered("let x "), ElementsAre("= "));
  EXPECT_THAT(offered("let x = "), Contains("call "));
  EXPECT_EQ(completed("let x = n"), "let x = null ");
  EXPECT_EQ(completed("let x = /shadow/chipMemory/m"), "let x = /shadow/chipMemory/mac/");
  EXPECT_EQ(completed("let x = call /shadow/find"), "let x = call /shadow/findChipMemory ");
  EXPECT_EQ(completed("let x = call /shadow/findChipMemory s"),
            "let x = call /shadow/findChipMemory size=");
  EXPECT_THAT(offered("let "), IsEmpty());
  EXPECT_THAT(offered("let x = /shadow "), IsEmpty());
}

TEST_F(CompletionTest, theOtherCommandsHaveTheirOwnNames) {
  session_.run("watch /shadow/state");
  EXPECT_THAT(offered("unwatch "), ElementsAre("/shadow/state "));
  EXPECT_THAT(offered("describe Chip"), Contains("ChipMemory "));
  EXPECT_EQ(completed("describe Hardware::HardwareShadow::"),
            "describe Hardware::HardwareShadow::State ");
  EXPECT_EQ(completed("help des"), "help describe ");
  EXPECT_EQ(completed("trace o"), "trace off ");
  EXPECT_THAT(offered("trace 3 "), ElementsAre("Umbra ", "Zint "));
  EXPECT_EQ(completed("wait 2 "), "wait 2 passes ");
  EXPECT_THAT(offered("peek "), IsEmpty());
}

TEST_F(CompletionTest, askingChangesNothing) {
  session_.run("cd /shadow");
  const U32 before = opened_.theSwitch().shadow()->audits();
  for (const char* line :
       {"set state 'idle' ", "call removeOverrideOnlyChipMem ", "cd ..", "let x = reader/"}) {
    offered(line);
  }
  EXPECT_EQ(Console::textOf(session_.names().here()), "/shadow");
  EXPECT_EQ(opened_.theSwitch().shadow()->audits(), before);
  EXPECT_THAT(session_.names().objects(), Not(Contains("x")));
}

}  // namespace
