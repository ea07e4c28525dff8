// Each command: what it does, and each of its errors.
#include <Hardware/Umbra.h>

#include "console/SessionTest.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

using CommandsTest = Support::SessionTest;

TEST_F(CommandsTest, nothingIsNoCommand) {
  EXPECT_EQ(outputOf(""), "");
  EXPECT_EQ(outputOf("   "), "");
  EXPECT_EQ(outputOf("# a remark"), "");
}

TEST_F(CommandsTest, anUnknownCommandIsRefused) {
  EXPECT_EQ(refusal("descirbe x"), "unknown command descirbe; did you mean 'describe'?");
  EXPECT_EQ(refusal("xyzzy"), "unknown command xyzzy; help lists the commands");
  EXPECT_EQ(refusal("exit"), "unknown command exit; did you mean 'quit'?");
  EXPECT_EQ(refusal("?"), "unknown command ?; did you mean 'help'?");
  EXPECT_EQ(refusal("SET state idle"), "unknown command SET; did you mean 'set'?");
  EXPECT_EQ(refusal("/shadow/state"),
            "unknown command /shadow/state; to read it: get /shadow/state");
}

TEST_F(CommandsTest, tooManyOrTooFewWordsShowTheUsage) {
  EXPECT_EQ(refusal("ls a b"), "usage: ls [PATH]");
  EXPECT_EQ(refusal("get"), "usage: get PATH");
  EXPECT_EQ(refusal("set state"), "usage: set PATH VALUE");
  EXPECT_EQ(refusal("call"), "usage: call PATH [NAME=VALUE...]");
  EXPECT_EQ(refusal("let a"),
            "usage: let NAME = PATH | NAME = call PATH [NAME=VALUE...] | NAME = null");
  EXPECT_EQ(refusal("types x"), "usage: types");
  EXPECT_EQ(refusal("poke 4"), "usage: poke ADDRESS VALUE");
  EXPECT_EQ(refusal("wait"), "usage: wait SECONDS | N passes");
}

TEST_F(CommandsTest, set_changesAnAttribute) {
  session_.run("set /shadow/chipMemory/mac/readFromCache false");
  EXPECT_FALSE(opened_.theSwitch().tables()[0].region->readFromCache());
  session_.run("cd /shadow");
  session_.run("set minIntervalBetweenAudits .25");
  EXPECT_EQ(outputOf("get minIntervalBetweenAudits"), "0.25\n");
}

TEST_F(CommandsTest, set_aPathStandsForWhatIsThere) {
  session_.run("set /shadow/lastChipMemory /shadow/chipMemory/vlan");
  EXPECT_EQ(outputOf("get /shadow/lastChipMemory/name"), "'vlan'\n");
  session_.run("cd /shadow/chipMemory/mac");
  session_.run("set /shadow/lastChipMemory .");
  EXPECT_EQ(outputOf("get /shadow/lastChipMemory/name"), "'mac'\n");
  session_.run("set /shadow/maxEntriesPerSlice ./entrySize");
  EXPECT_EQ(outputOf("get /shadow/maxEntriesPerSlice"), "8\n");
  session_.run("set /shadow/maxEntriesPerSlice ../vlan/hardware/../stride");
  EXPECT_EQ(outputOf("get /shadow/maxEntriesPerSlice"), "8\n");
}

TEST_F(CommandsTest, set_refuses) {
  EXPECT_EQ(refusal("set /shadow 1"), "/shadow is no attribute");
  EXPECT_EQ(refusal("set /shadow/chipMemory 1"),
            "Driver::AuditedShadow::chipMemory: cannot be set to 1");
  EXPECT_EQ(refusal("set /shadow/chipMemory/mac/stride 1"),
            "Hardware::ChipMemory::stride: cannot be set to 1");
  EXPECT_EQ(refusal("set /shadow/chipMemory/mac/mode 'odd'"),
            "ChipMemoryMode deserializing attribute Hardware::ChipMemory::mode from \"'odd'\"; "
            "it is one of normal, override, buffered");
  EXPECT_EQ(refusal("set /shadow/audits /shadow/nowhere"),
            "/shadow (Driver::AuditedShadow) has no member nowhere");
  EXPECT_EQ(refusal("set /shadow/audits /"), "/ is no object");
  EXPECT_EQ(refusal("set /shadow/clock/name 'x'"), "attempting to modify a const instance");
}

TEST_F(CommandsTest, get_aCollectionsTextIsItsSize) {
  EXPECT_EQ(outputOf("get /shadow/chipMemory"), "6\n");
}

TEST_F(CommandsTest, call_printsTheResult) {
  session_.run("cd /shadow");
  EXPECT_THAT(outputOf("call findChipMemory size=8 address=0x100080010"), StartsWith("'vlan'#"));
  EXPECT_EQ(outputOf("call findChipMemory address=0x500000000 size=8"), "null\n");
  EXPECT_EQ(outputOf("call chipMemory/mac/handleMode"), "");
}

TEST_F(CommandsTest, call_reachesTheOperationsOfCollections) {
  session_.run("call /shadow/chipMemoryIdDel index=2");
  EXPECT_EQ(outputOf("get /shadow/chipMemoryId"), "2\n");
  session_.run("call /shadow/chipMemoryIdDelAll");
  EXPECT_EQ(outputOf("get /shadow/chipMemoryId"), "0\n");
  session_.run("call /shadow/chipMemoryIdIs index=0 chipMemoryId=7");
  EXPECT_EQ(outputOf("get /shadow/chipMemoryId/0"), "7\n");
}

TEST_F(CommandsTest, call_refuses) {
  EXPECT_EQ(refusal("call /"), "/ is no member of anything");
  EXPECT_EQ(refusal("call /shadow/findChipMemroy size=4"),
            "/shadow has no operation findChipMemroy; did you mean 'findChipMemory'?");
  EXPECT_EQ(refusal("call /shadow/state"), "/shadow has no operation state");
  EXPECT_EQ(refusal("call chipMemoryFactry"),
            "/ has no operation chipMemoryFactry; did you mean 'chipMemoryFactory'?");
  EXPECT_EQ(refusal("call /shadow/chipMemory/chipMemoryDelAll"),
            "/shadow/chipMemory is no object, it has no member chipMemoryDelAll");
  EXPECT_EQ(refusal("call /shadow/findChipMemory adress=4 size=4"),
            "findChipMemory(address, size) has no argument adress; did you mean 'address'?");
  EXPECT_EQ(refusal("call /shadow/findChipMemory 4"),
            "an argument is given as name=value, not as 4");
  EXPECT_EQ(refusal("call /shadow/findChipMemory size=4"),
            "Driver::AuditedShadow::findChipMemory: missing argument address");
  EXPECT_EQ(refusal("call /shadow/findChipMemory size=4 size=4 address=4"),
            "Driver::AuditedShadow::findChipMemory: argument given twice: size");
  EXPECT_THAT(refusal("call /shadow/findChipMemory address=x size=4"),
              HasSubstr("Driver::AuditedShadow::findChipMemory from \"address=x size=4\""));
  EXPECT_EQ(refusal("call /directory/chipMemoryIs name='open"),
            "a quote is not closed in name='open");
}

TEST_F(CommandsTest, let_namesAnObjectAndKeepsItAlive) {
  session_.run("let mine = call chipMemoryBogonFactory name='my tables'");
  EXPECT_THAT(outputOf("ls /"), HasSubstr("mine/ "));
  EXPECT_EQ(outputOf("get /mine/name"), "'my tables'\n");
  session_.run(
      "let table = call /mine/chipMemoryIs name=t address=0x9000 entries=2 entrySize=4 "
      "stride=4 chipHam=/shadow/chipMemory/mac/chipHam");
  session_.run("let again = /mine/chipMemory/t");
  session_.run("let mine = null");
  EXPECT_EQ(refusal("get /mine"), "no object /mine");
  EXPECT_EQ(outputOf("get /again/address"), "0x0:00009000\n");
  EXPECT_EQ(outputOf("get /again"), outputOf("get /table"));
}

TEST_F(CommandsTest, let_aNameCanBeGivenAnew) {
  session_.run("let x = /shadow/chipMemory/mac");
  session_.run("let x = /shadow/chipMemory/vlan");
  EXPECT_EQ(outputOf("get /x/name"), "'vlan'\n");
}

TEST_F(CommandsTest, let_whatMayOnlyBeReadStaysSo) {
  session_.run("let time = /shadow/clock");
  EXPECT_EQ(refusal("set /time/name 'x'"), "attempting to modify a const instance");
}

TEST_F(CommandsTest, let_refuses) {
  EXPECT_EQ(refusal("let x is /shadow"),
            "usage: let NAME = PATH | NAME = call PATH [NAME=VALUE...] | NAME = null");
  EXPECT_EQ(refusal("let shadow = /chip"), "/shadow is part of the system and keeps its name");
  EXPECT_EQ(refusal("let shadow = null"), "/shadow is part of the system and keeps its name");
  EXPECT_EQ(refusal("let a/b = /chip"), "a/b is no name: letters, digits, - and _");
  EXPECT_EQ(refusal("let x = call"), "let: call what?");
  EXPECT_EQ(refusal("let x = /chip /shadow"), "let: too much after /chip");
  EXPECT_EQ(refusal("let x = /shadow/chipMemory"), "/shadow/chipMemory is no object");
  EXPECT_EQ(refusal("let x = /shadow/state"), "let: no object: 'auditing'");
  EXPECT_EQ(refusal("let x = /shadow/lastChipMemory"), "let: no object: null");
  EXPECT_EQ(refusal("let x = call /shadow/chipMemory/mac/handleMode"), "let: no object: no result");
  EXPECT_EQ(refusal("let x = /"), "let: no object: no result");
}

TEST_F(CommandsTest, types_listsTheRegistry) {
  const std::string text = outputOf("types");
  for (const Zint::Type* type : Zint::TypeRegistry::types()) {
    EXPECT_THAT(text, HasSubstr(std::string(type->name) + " "));
  }
}

TEST_F(CommandsTest, describe_showsAllOfAType) {
  const std::string text = outputOf("describe Hardware::ChipMemoryChunk");
  EXPECT_THAT(text, StartsWith("Hardware::ChipMemoryChunk: entity, derived from Zint::Entity\n"
                               "  name "));
  EXPECT_THAT(text, testing::ContainsRegex("\n  fwkKey +U32 +set once, when it is made\n"));
  EXPECT_THAT(text,
              testing::ContainsRegex("\n  offset +Zint::GenericIf::List_ +of U32 by index, made "
                                     "from \\(index, offset\\)\n"));
  EXPECT_THAT(outputOf("describe Hardware::ChipMemory"),
              testing::ContainsRegex("\n  inRange\\(addr\\) +bool +changes nothing\n"));
}

TEST_F(CommandsTest, describe_theLastPartOfANameWillDo) {
  EXPECT_EQ(outputOf("describe ChipMemory"), outputOf("describe Hardware::ChipMemory"));
  EXPECT_EQ(outputOf("describe Hardware::HardwareShadow::State"),
            "Hardware::HardwareShadow::State: enumeration\n"
            "  unconfigured    = 0\n  configured      = 1\n  idle            = 2\n"
            "  auditing        = 3\n");
}

TEST_F(CommandsTest, describe_aPartThatSeveralNamesHaveWillNotDo) {
  EXPECT_EQ(refusal("describe State"), "several types are named State: give the whole name");
}

TEST_F(CommandsTest, describe_withoutANameShowsTheTypeOfWhatIsHere) {
  EXPECT_EQ(refusal("describe"), "no object here: name a type, or cd to an object");
  session_.run("cd /shadow/chipMemory/mac");
  EXPECT_EQ(outputOf("describe"), outputOf("describe ChipMemory"));
}

TEST_F(CommandsTest, describe_anUnknownTypeIsRefused) {
  EXPECT_EQ(refusal("describe ChipMemroy"), "no type ChipMemroy; did you mean 'ChipMemory'?");
}

TEST_F(CommandsTest, help_explainsEachCommandAndOne) {
  const std::string all = outputOf("help");
  for (const char* name : {"ls", "cd", "get", "set", "call", "let", "watch", "unwatch", "types",
                           "describe", "trace", "peek", "poke", "wait", "help", "quit", "show"}) {
    const std::string one = outputOf(std::string("help ") + name);
    EXPECT_THAT(one, StartsWith(std::string("  ") + name));
    EXPECT_THAT(all, HasSubstr(one));
  }
  EXPECT_EQ(refusal("help wiat"), "unknown command wiat; did you mean 'wait'?");
}

TEST_F(CommandsTest, quit_ends) {
  EXPECT_FALSE(session_.isEnded());
  session_.run("quit");
  EXPECT_TRUE(session_.isEnded());
}

TEST_F(CommandsTest, peekAndPoke_goPastTheLibrary) {
  const U32 before = onChip(0x80000);
  EXPECT_EQ(outputOf("peek 0x80000"), Zint::format("0x%08x\n", before).bytes());
  session_.run("poke 0x80000 0x17");
  EXPECT_EQ(onChip(0x80000), 0x17u);
  EXPECT_EQ(outputOf("peek 524288"), "0x00000017\n");
  EXPECT_EQ(ledger_.soFar().injected, static_cast<U64>(std::popcount(before ^ 0x17)));
  session_.run("wait 2 passes");
  EXPECT_EQ(onChip(0x80000), before);
}

TEST_F(CommandsTest, peekAndPoke_refuseWhatIsNoRegister) {
  EXPECT_EQ(refusal("peek 2"),
            "peek: no register at 0x2; they are at multiples of 4 below 0xc0000");
  EXPECT_EQ(refusal("poke 0xc0000 1"),
            "poke: no register at 0xc0000; they are at multiples of 4 below 0xc0000");
  EXPECT_EQ(refusal("peek 0x100000000"), "peek: 0x100000000 is out of range");
  EXPECT_EQ(refusal("peek here"), "peek: an integer expected at \"here\"");
  EXPECT_EQ(refusal("poke 0 0x100000000"), "poke: 0x100000000 is out of range");
}

TEST_F(CommandsTest, wait_lastsThatManySeconds) {
  const Zint::Seconds began = loop_.clock->time();
  session_.run("wait 1.5");
  EXPECT_DOUBLE_EQ(loop_.clock->time() - began, 1.5);
  session_.run("wait 0");
  EXPECT_DOUBLE_EQ(loop_.clock->time() - began, 1.5);
}

TEST_F(CommandsTest, wait_lastsThatManyPasses) {
  const U32 before = opened_.theSwitch().shadow()->audits();
  session_.run("wait 1 pass");
  EXPECT_EQ(opened_.theSwitch().shadow()->audits(), before + 1);
  session_.run("wait 3 passes");
  EXPECT_EQ(opened_.theSwitch().shadow()->audits(), before + 4);
}

TEST_F(CommandsTest, wait_refuses) {
  EXPECT_EQ(refusal("wait 2 pases"), "wait: pases is no unit; did you mean 'passes'?");
  EXPECT_EQ(refusal("wait soon"), "wait: a number expected at \"soon\"");
  EXPECT_EQ(refusal("wait -1"), "wait: between 0 and 86400 seconds");
  EXPECT_EQ(refusal("wait -1 passes"), "wait: -1 is out of range");
  session_.run("set /shadow/state 'idle'");
  EXPECT_EQ(refusal("wait 1 pass"), "wait: no audit pass ended within 10 seconds");
}

TEST_F(CommandsTest, findings_areTheLastOnes) {
  EXPECT_EQ(outputOf("findings"), "");
  session_.run("poke 0x80000 0x17");
  session_.run("poke 0x80008 0x18");
  session_.run("wait 2 passes");
  EXPECT_THAT(
      outputOf("findings"),
      MatchesRegex(
          "[0-9.]+ s  vlan entry 0: expected .*, actual x17.*: repaired .soft.; vlan.0..members.*\n"
          "[0-9.]+ s  vlan entry 1: expected .*, actual x18.*: repaired .soft.; "
          "vlan.1..members.*\n"));
  EXPECT_THAT(outputOf("findings 1"), HasSubstr("vlan entry 1"));
  EXPECT_THAT(outputOf("findings 1"), Not(HasSubstr("vlan entry 0")));
  EXPECT_EQ(refusal("findings x"), "findings: an integer expected at \"x\"");
}

TEST_F(CommandsTest, theLayersObjectsAreWorkedByName) {
  session_.run("set /shadow/paused true");
  EXPECT_EQ(outputOf("get /shadow/patrolState"), "'paused'\n");
  EXPECT_EQ(outputOf("get /shadow/patrolReason"), "'it is paused'\n");
  session_.run("set /shadow/paused false");
  session_.run("call /vlan-policy/ruleIs first=16 count=16 rule=detectOnly");
  EXPECT_THAT(outputOf("call /shadow/policyText chipMemory=/shadow/chipMemory/vlan entry=20"),
              HasSubstr("detectOnly (entries 16 to 31)"));
  session_.run("poke 0x800a0 0x17");
  EXPECT_THAT(outputOf("call /shadow/doAudit chipMemory=/shadow/chipMemory/vlan first=16 count=8"),
              HasSubstr("1 difference"));
  EXPECT_EQ(outputOf("call /shadow/hasOpenFinding chipMemory=/shadow/chipMemory/vlan entry=20"),
            "true\n");
  EXPECT_EQ(onChip(0x800a0), 0x17u);
  session_.run("call /vlan-access/write entry=20 data=0102030405060708");
  EXPECT_EQ(onChip(0x800a0), 0x04030201u);
  EXPECT_EQ(outputOf("get /alarms/rule"), "2\n");
}

TEST_F(CommandsTest, aResetThatIsToldIsReplayed) {
  const U32 before = onChip(0x80000);
  onChip(0x80000) = 0;
  session_.run("call /chip/doChipReset");
  EXPECT_EQ(outputOf("get /chip/isRestoring"), "true\n");
  session_.run("wait 1 pass");
  EXPECT_EQ(outputOf("get /chip/isRestoring"), "false\n");
  EXPECT_EQ(onChip(0x80000), before);
}

TEST_F(CommandsTest, fault_befallsTheChip) {
  const U32 before = onChip(0x80000);
  session_.run("fault absent");
  session_.run("wait 2");
  EXPECT_EQ(outputOf("get /chip/isAbsent"), "true\n");
  EXPECT_EQ(outputOf("get /shadow/patrolState"), "'suspended'\n");
  EXPECT_EQ(onChip(0x80000), before);
  session_.run("fault present");
  session_.run("wait 1 pass");
  EXPECT_EQ(outputOf("get /chip/isAbsent"), "false\n");
  EXPECT_EQ(outputOf("findings"), "");

  session_.run("fault reset");
  EXPECT_EQ(onChip(0x80000), 0u);
  session_.run("wait 2 passes");
  EXPECT_EQ(onChip(0x80000), before);
  EXPECT_EQ(outputOf("get /chip/resets"), "1\n");
  EXPECT_THAT(outputOf("findings"), MatchesRegex("[0-9.]+ s  [a-z]+ entry .*: reset\n"));

  session_.run("fault stuck 0x80000 1");
  session_.run("wait 5 passes");
  EXPECT_EQ(onChip(0x80000), before & ~1u);
  EXPECT_EQ(outputOf("get /shadow/quarantined"), "1\n");
  session_.run("fault free");
  session_.run("call /shadow/quarantineDel chipMemory=/shadow/chipMemory/vlan entry=0");
  session_.run("wait 2 passes");
  EXPECT_EQ(onChip(0x80000), before);
}

TEST_F(CommandsTest, check_saysWhatWillGoWrong) {
  EXPECT_EQ(outputOf("check"), "nothing is wrong\n");
  session_.run("set /shadow/sliceInterval 0");
  session_.run("set /shadow/chipMemory/vlan/mode buffered");
  EXPECT_THAT(outputOf("check"), MatchesRegex("shadow: .*sliceInterval.*\nvlan: .*buffered.*\n"));
}

TEST_F(CommandsTest, fault_refuses) {
  EXPECT_EQ(refusal("fault ansent"), "fault: no fault ansent; did you mean 'absent'?");
  EXPECT_EQ(refusal("fault stuck 4"),
            "usage: fault absent | present | reset | stuck ADDRESS BITS | free");
  EXPECT_THAT(refusal("fault stuck 2 1"), StartsWith("fault: no register at 0x2;"));
}

TEST_F(CommandsTest, wait_anInterruptEndsIt) {
  class Interrupt : public Zint::Clock::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onTime() override { zintFwkActivity()->stop(); }
  };
  const auto interrupt =
      Zint::makePtr<Interrupt>(loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock));
  interrupt->timeMinIs(loop_.clock->time() + 3);
  EXPECT_EQ(refusal("wait 5"), "wait: interrupted");
  session_.run("set /shadow/state 'idle'");
  interrupt->timeMinIs(loop_.clock->time() + 3);
  EXPECT_EQ(refusal("wait 1 pass"), "wait: interrupted");
  // One that came while nothing ran is no reason to cut a later wait short.
  loop_.activity->stop();
  EXPECT_EQ(refusal("wait 1"), "");
}

TEST_F(CommandsTest, watch_printsEachChangeAsItHappens) {
  session_.run("watch /shadow/state");
  session_.run("set /shadow/state 'idle'");
  session_.run("set /shadow/state 'unconfigured'");
  out_.str("");
  session_.run("set /shadow/state 'configured'");
  EXPECT_EQ(out_.str(),
            "/shadow/state: 'unconfigured' -> 'configured'\n"
            "/shadow/state: 'configured' -> 'idle'\n");
}

TEST_F(CommandsTest, watch_seesWhatIsNotAnnounced) {
  session_.run("watch /shadow/chipMemoryId");
  EXPECT_EQ(outputOf("call /shadow/chipMemoryIdDelAll"), "/shadow/chipMemoryId: 3 -> 0\n");
  opened_.theSwitch().shadow()->chipMemoryIdIs(0, 9);
  EXPECT_EQ(outputOf("wait 0.2"), "/shadow/chipMemoryId: 0 -> 1\n");
}

TEST_F(CommandsTest, watch_printsWhatTheAuditDoes) {
  session_.run("watch /shadow/chipMemory/vlan/registersFixed");
  session_.run("watch /shadow/audits");
  session_.run("poke 0x80008 1");
  EXPECT_EQ(outputOf("wait 2 passes"),
            "/shadow/chipMemory/vlan/registersFixed: 0 -> 1\n"
            "/shadow/audits: 1 -> 2\n/shadow/audits: 2 -> 3\n");
}

TEST_F(CommandsTest, unwatch_endsIt) {
  session_.run("cd /shadow");
  session_.run("watch state");
  session_.run("watch overrideHardware");
  session_.run("watch audits");
  EXPECT_EQ(outputOf("watch"), "/shadow/state\n/shadow/overrideHardware\n/shadow/audits\n");
  session_.run("unwatch state");
  EXPECT_EQ(outputOf("set state 'idle'"), "");
  session_.run("unwatch");
  EXPECT_EQ(outputOf("set overrideHardware true"), "");
  EXPECT_EQ(outputOf("watch"), "");
}

TEST_F(CommandsTest, watchAndUnwatch_refuse) {
  EXPECT_EQ(refusal("watch /shadow"), "/shadow is no attribute");
  EXPECT_EQ(refusal("watch /shadow/chipMemory/mac"), "/shadow/chipMemory/mac is no attribute");
  EXPECT_EQ(refusal("watch /shadow/writ"), "/shadow (Driver::AuditedShadow) has no member writ");
  session_.run("watch /shadow/state");
  EXPECT_EQ(refusal("watch /shadow/state"), "/shadow/state is watched already");
  EXPECT_EQ(refusal("unwatch /shadow/sate"),
            "/shadow/sate is not watched; did you mean '/shadow/state'?");
}

TEST_F(CommandsTest, trace_isShownWhenAskedFor) {
  EXPECT_EQ(outputOf("set /shadow/overrideHardware false"), "");
  session_.run("trace 0");
  EXPECT_EQ(outputOf("set /shadow/state 'idle'"), "Umbra 0: HardwareShadow::handleState( idle )\n");
  session_.run("trace 9 Umbra");
  EXPECT_TRUE(Hardware::umbraTrace().level(9));
  session_.run("trace off");
  EXPECT_FALSE(Hardware::umbraTrace().level(1));
  EXPECT_EQ(outputOf("set /shadow/state 'unconfigured'"), "");
}

TEST_F(CommandsTest, trace_refuses) {
  EXPECT_EQ(refusal("trace 10"), "trace: levels are 0 to 9");
  EXPECT_EQ(refusal("trace high"), "trace: an integer expected at \"high\"");
  EXPECT_EQ(refusal("trace 1 Umbar"), "no trace handle Umbar; did you mean 'Umbra'?");
}

}  // namespace
