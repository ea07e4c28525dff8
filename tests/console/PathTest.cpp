// Where paths lead, through cd, ls and get.
#include "console/SessionTest.h"

namespace {

using Console::textOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class PathTest : public Support::SessionTest {
 protected:
  std::string hereAfter(const std::string& line) {
    session_.run(line);
    return textOf(session_.names().here());
  }
};

TEST_F(PathTest, cd_goesAlongAttributesAndCollections) {
  EXPECT_EQ(hereAfter("cd shadow"), "/shadow");
  EXPECT_EQ(hereAfter("cd chipMemory"), "/shadow/chipMemory");
  EXPECT_EQ(hereAfter("cd mac"), "/shadow/chipMemory/mac");
  EXPECT_EQ(hereAfter("cd chipHam"), "/shadow/chipMemory/mac/chipHam");
  EXPECT_EQ(hereAfter("cd ../../vlan"), "/shadow/chipMemory/vlan");
  EXPECT_EQ(hereAfter("cd ."), "/shadow/chipMemory/vlan");
  EXPECT_EQ(hereAfter("cd /shadow/auditReadRequest/chipMemory"),
            "/shadow/auditReadRequest/chipMemory");
  EXPECT_EQ(hereAfter("cd /"), "/");
  EXPECT_EQ(hereAfter("cd .."), "/");
  EXPECT_EQ(hereAfter("cd /shadow/"), "/shadow");
  EXPECT_EQ(hereAfter("cd"), "/");
}

TEST_F(PathTest, aMemberIsFoundByItsKeyAndByItsName) {
  const std::string mac = outputOf("get /shadow/chipMemory/mac");
  EXPECT_THAT(mac, StartsWith("'mac'#"));
  EXPECT_EQ(outputOf("get /shadow/chipMemory/'mac'"), mac);
  EXPECT_EQ(outputOf("get /shadow/chipMemory/4294967296"), mac);
  EXPECT_EQ(outputOf("get /shadow/chipMemory/0x100000000"), mac);
  EXPECT_EQ(outputOf("get /shadow/chipMemory/0x1:00000000"), mac);
  EXPECT_EQ(outputOf("get /shadow/chipMemory/0x1:0"), mac);
  EXPECT_EQ(outputOf("get /shadow/chipMemoryId/1"), "2\n");
}

TEST_F(PathTest, aMemberMayBeNull) {
  session_.run("call /shadow/chipMemoryChunkArrayIs index=1 chipMemoryChunk=null");
  EXPECT_EQ(outputOf("get /shadow/chipMemoryChunkArray/1"), "null\n");
  EXPECT_EQ(refusal("cd /shadow/chipMemoryChunkArray/1"),
            "/shadow/chipMemoryChunkArray/1 is null, nothing is below it");
  EXPECT_EQ(refusal("get /shadow/chipMemoryChunkArray/9"),
            "/shadow/chipMemoryChunkArray has no member 9");
}

TEST_F(PathTest, aNameWithOtherCharactersIsQuoted) {
  session_.run(
      "let t = call chipMemoryFactory name='a table/1' address=0x9000 entries=1 "
      "entrySize=4 stride=4 chipHam=/shadow/chipMemory/mac/chipHam");
  session_.run("let r = call chipReadRequestFactory name=r");
  session_.run("call /r/chipMemoryIs chipMemory=/t");
  EXPECT_EQ(outputOf("get /r/chipMemory/'a table/1'/address"), "0x0:00009000\n");
}

TEST_F(PathTest, twoMembersOfOneNameAreNotMistaken) {
  for (const char* address : {"0x9000", "0xa000"}) {
    session_.run(std::string("let t") + (address + 2) +
                 " = call chipMemoryFactory name=twin entries=1 entrySize=4 stride=4 address=" +
                 address + " chipHam=/shadow/chipMemory/mac/chipHam");
  }
  session_.run("set /shadow/state 'idle'");
  session_.run("set /shadow/state 'unconfigured'");
  session_.run("call /shadow/chipMemoryIs chipMemory=/t9000");
  session_.run("call /shadow/chipMemoryIs chipMemory=/ta000");
  EXPECT_EQ(refusal("get /shadow/chipMemory/twin"),
            "/shadow/chipMemory has several members named twin: name its address");
  EXPECT_EQ(outputOf("get /shadow/chipMemory/0xa000/address"), "0x0:0000a000\n");
}

TEST_F(PathTest, aWrongPathIsRefused) {
  EXPECT_EQ(refusal("cd shadwo"), "no object /shadwo; did you mean 'shadow'?");
  EXPECT_EQ(refusal("cd /nothing/at/all"), "no object /nothing");
  EXPECT_EQ(refusal("get /shadow/sate"),
            "/shadow (Driver::AuditedShadow) has no member sate; did you mean 'state'?");
  EXPECT_EQ(refusal("get /shadow/chipMemory/mca"),
            "/shadow/chipMemory has no member mca; did you mean 'mac'?");
  EXPECT_EQ(refusal("get /shadow/chipMemory/17"), "/shadow/chipMemory has no member 17");
  EXPECT_EQ(refusal("get /shadow/findChipMemory"),
            "/shadow/findChipMemory is an operation: use call");
  EXPECT_EQ(refusal("get /shadow/state/more"), "/shadow/state is 'auditing', nothing is below it");
  EXPECT_EQ(refusal("cd /shadow/state"), "/shadow/state is 'auditing', nothing is below it");
  EXPECT_EQ(refusal("cd /shadow/lastChipMemory/name"),
            "/shadow/lastChipMemory is null, nothing is below it");
  EXPECT_EQ(refusal("get /"), "/ is no object");
  EXPECT_EQ(textOf(session_.names().here()), "/");
}

TEST_F(PathTest, hereIsNotHeldOnTo) {
  session_.run(
      "let t = call chipMemoryFactory name=t address=0x9000 entries=1 entrySize=4 "
      "stride=4 chipHam=/shadow/chipMemory/mac/chipHam");
  session_.run("cd /t");
  session_.run("let t = null");
  EXPECT_EQ(refusal("ls"), "no object /t");
  EXPECT_EQ(hereAfter("cd /shadow"), "/shadow");
}

TEST_F(PathTest, ls_theTopHasTheObjectsAndWhatMakesNewOnes) {
  const std::string text = outputOf("ls");
  for (const char* name : {"shadow/ ", "chip/ ", "alarms/ ", "mac-policy/ ", "directory/ ",
                           "Driver::AuditedShadow\n", "\nchipMemoryBogonFactory(name)\n"}) {
    EXPECT_THAT(text, HasSubstr(name));
  }
}

TEST_F(PathTest, ls_anObjectHasItsAttributesCollectionsAndOperations) {
  const std::string text = outputOf("ls shadow");
  EXPECT_THAT(text,
              testing::ContainsRegex("\nstate +'auditing' +Hardware::HardwareShadow::State\n"));
  EXPECT_THAT(text, testing::ContainsRegex("\nchipMemory/ +6 by address +Hardware::ChipMemory\n"));
  EXPECT_THAT(text, testing::ContainsRegex("\nclock/ +'clock'#[0-9]+ +Zint::Clock\n"));
  EXPECT_THAT(text, HasSubstr("\nreadFromCacheHack(address, [dataPtr], size)\n"));
  EXPECT_THAT(text, HasSubstr("\nchipMemoryDelAll()\n"));
}

TEST_F(PathTest, ls_aCollectionHasItsMembers) {
  const std::string text = outputOf("ls shadow/chipMemory");
  EXPECT_THAT(text, testing::MatchesRegex("(0x[0-9]:[0-9a-f]{8} +'[a-z]+'#[0-9]+\n){6}"));
  EXPECT_EQ(outputOf("ls directory/chipMemory"), "");
  EXPECT_EQ(outputOf("ls shadow/state"), "'auditing'\n");
}

}  // namespace
