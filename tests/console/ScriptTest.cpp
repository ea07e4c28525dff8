// Scripts as a whole, tools/console/session.txt among them.
#include <tools/console/Shell.h>

#include <fstream>
#include <iostream>

#include "console/SessionTest.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class GivenLines : public Console::Lines {
 public:
  explicit GivenLines(std::istream& in) : in_(in) {}
  bool next(const std::string& prompt, std::string& line) override {
    prompts.push_back(prompt);
    return static_cast<bool>(std::getline(in_, line));
  }
  std::vector<std::string> prompts;

 private:
  std::istream& in_;
};

class ScriptTest : public Support::SessionTest {
 protected:
  U32 runScript(const std::string& script, bool isScript = true) {
    std::istringstream in(script);
    GivenLines lines(in);
    const U32 failed = runLines(session_, lines, errors_, isScript);
    prompts_ = lines.prompts;
    return failed;
  }
  std::ostringstream errors_;
  std::vector<std::string> prompts_;
};

// From the end of one text on; "" when it does not occur.
std::string textAfter(const std::string& text, const std::string& mark) {
  const std::size_t at = text.find(mark);
  return at == std::string::npos ? "" : text.substr(at + mark.size());
}

TEST_F(ScriptTest, theScriptedSessionTellsItsStory) {
  std::ifstream script(UMBRA_SESSION);
  ASSERT_TRUE(script);
  GivenLines lines(script);
  EXPECT_EQ(runLines(session_, lines, errors_, true), 0u);
  EXPECT_EQ(errors_.str(), "");
  EXPECT_TRUE(session_.isEnded());
  EXPECT_THAT(out_.str(), HasSubstr("\nnothing is wrong\n"));

  // The write by name reaches shadow and chip, the damage is seen, and the audit undoes it.
  const std::string story = textAfter(out_.str(), "'idle'\n");
  EXPECT_THAT(story, testing::StartsWith("false\n"
                                         "true 0102030405060708\n"
                                         "16 entries of 8 bytes, 128 bytes\n"
                                         "entry    offset  bytes\n"
                                         "  0x3      0x18  01 02 03 04  05 06 07 08\n"
                                         "0x04030201\n"
                                         "0xdeadbeef\n"
                                         "/directory/chipMemory/spare/registersFixed: 0 -> 1\n"
                                         "0x04030201\n"
                                         "1\n"));
  EXPECT_EQ(onChip(0x84018), 0x04030201u);
  EXPECT_EQ(onChip(0x8401c), 0x08070605u);
  // Dropped: the table without hardware, and at the end the one that was made.
  const std::string listing = textAfter(story, "-> 1\n0x04030201\n1\n");
  EXPECT_THAT(listing, AllOf(HasSubstr("'mac'#"), HasSubstr("'spare'#"), Not(HasSubstr("stack"))));
  // What a policy says, what the patrol found, and the reset that was found and replayed.
  EXPECT_THAT(listing,
              testing::StartsWith("'detectOnly (entries 8 to 11); unwritten: baseline'\n"));
  EXPECT_THAT(
      listing,
      AllOf(HasSubstr(": detectOnly; vlan[8].members expected 0xe8dd3ba3 actual 0xdeadbeef\n"),
            HasSubstr(": reset\n1\n")));
  EXPECT_NE(onChip(0x80040), 0xdeadbeefu);
  EXPECT_THAT(listing, testing::EndsWith("null\n'auditing'\n"));
  const auto shadow = opened_.theSwitch().shadow();
  EXPECT_EQ(shadow->chipMemorys(), 5u);
  EXPECT_EQ(shadow->chipMemory(Hardware::ChipAddress(3, 0x10000000)), nullptr);
  EXPECT_EQ(shadow->chipMemory(Hardware::ChipAddress(1, 0x84000)), nullptr);
  EXPECT_EQ(shadow->findChipMemory(Hardware::ChipAddress(1, 0x80000), 8)->name(), "vlan");
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 67392u);
}

TEST_F(ScriptTest, eachErrorIsALineWithItsNumber_andTheOthersAreCarriedOut) {
  EXPECT_EQ(runScript("gte /shadow/state\n\n# nothing\nset /shadow/audits x\nget /shadow/audits\n"),
            2u);
  EXPECT_EQ(errors_.str(),
            "line 1: unknown command gte; did you mean 'get'?\n"
            "line 4: an integer expected at \"x\" deserializing attribute "
            "Driver::AuditedShadow::audits from \"x\"\n");
  EXPECT_EQ(out_.str(), "1\n");
}

TEST_F(ScriptTest, aPersonIsToldNoNumbers) {
  EXPECT_EQ(runScript("gte\ncd /shadow\n", false), 1u);
  EXPECT_EQ(errors_.str(), "unknown command gte; did you mean 'get'?\n");
  EXPECT_EQ(prompts_, (std::vector<std::string>{"/> ", "/> ", "/shadow> "}));
}

TEST_F(ScriptTest, quitEndsIt) {
  EXPECT_EQ(runScript("quit\nget /shadow/audits\n"), 0u);
  EXPECT_EQ(out_.str(), "");
}

using ScriptDeathTest = ScriptTest;

TEST_F(ScriptDeathTest, aBrokenRuleEndsTheProgramAndNamesTheLine) {
  EXPECT_DEATH(
      {
        Console::World world = opened_.world();
        world.checksRules = false;
        Console::Session unchecked(world, out_);
        std::istringstream in(
            "get /shadow/state\ncall /shadow/chipMemoryDel "
            "address=/shadow/chipMemory/mac/address\n");
        GivenLines lines(in);
        runLines(unchecked, lines, std::cerr, true);
      },
      "line 2: breaks a rule of the library, which ends the program");
}

}  // namespace
