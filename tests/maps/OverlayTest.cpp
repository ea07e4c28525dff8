#include "MapsTest.h"

namespace {

using namespace MapsTest;
using Driver::Rewrite;
using Driver::Rule;

Maps::Plan overlayPlan() {
  return planned(
      reg("CTRL", "0", "<fields>" + field("mode", "[3:0]") + field("link", "[4:4]") + "</fields>") +
      reg("STATUS", "4", "<access>read-only</access>") +
      reg("mac[%s]", "0x10", "<dim>8</dim><dimIncrement>4</dimIncrement>") +
      reg("WIDE", "0x40", "<size>64</size>") + reg("LOW", "0x40") + reg("ODD", "0x52"));
}

std::vector<std::string> decided(Maps::Plan& plan, const std::string& text) {
  return Maps::decide(plan, Maps::parseOverlay(text, "o.txt"));
}

std::string refusal(const std::string& text) {
  Maps::Plan plan = overlayPlan();
  try {
    decided(plan, text);
  } catch (const Maps::Error& error) {
    const Maps::Plan untouched = overlayPlan();
    for (std::size_t i = 0; i < plan.choices.size(); ++i) {
      EXPECT_EQ(untouched.choices[i].rule, plan.choices[i].rule) << "an error changes nothing";
    }
    return error.what();
  }
  return "";
}

TEST(Overlay, rule_decidesWhatWasUndecided) {
  Maps::Plan plan = overlayPlan();
  EXPECT_FALSE(choiceOf(plan, "B.STATUS").rule);
  decided(plan, "# the link's state\nB.STATUS  detectOnly # why not\n");
  EXPECT_EQ(Rule::detectOnly, choiceOf(plan, "B.STATUS").rule);
  EXPECT_EQ("o.txt:2", choiceOf(plan, "B.STATUS").reason);
}

TEST(Overlay, everyRule_isKnownByItsName) {
  const std::pair<const char*, Rule> rules[] = {
      {"repaired", Rule::repaired}, {"detectOnly", Rule::detectOnly}, {"volatile", Rule::volatile_},
      {"noRead", Rule::noRead},     {"writeOnly", Rule::writeOnly},   {"readOnly", Rule::readOnly}};
  for (const auto& [name, rule] : rules) {
    Maps::Plan plan = overlayPlan();
    decided(plan, std::string("B.CTRL ") + name);
    EXPECT_EQ(rule, choiceOf(plan, "B.CTRL").rule);
  }
}

TEST(Overlay, undecided_takesAProposalBack) {
  Maps::Plan plan = overlayPlan();
  decided(plan, "B.mac[2..3] undecided");
  EXPECT_TRUE(choiceOf(plan, "B.mac[1]").rule);
  EXPECT_FALSE(choiceOf(plan, "B.mac[2]").rule);
  EXPECT_FALSE(choiceOf(plan, "B.mac[3]").rule);
  EXPECT_TRUE(choiceOf(plan, "B.mac[4]").rule);
}

TEST(Overlay, maskAndOnce_areTaken) {
  Maps::Plan plan = overlayPlan();
  decided(plan, "B.mac[*] repaired mask 0xf0 zero once");
  EXPECT_EQ(0xF0u, choiceOf(plan, "B.mac[7]").mask);
  EXPECT_EQ(Rewrite::zero, choiceOf(plan, "B.mac[7]").rewrite);
  EXPECT_TRUE(choiceOf(plan, "B.mac[7]").isOnce);
}

TEST(Overlay, laterLine_replacesAnEarlierOne) {
  Maps::Plan plan = overlayPlan();
  decided(plan, "B.mac[*] volatile\nB.mac[5] repaired");
  EXPECT_EQ(Rule::volatile_, choiceOf(plan, "B.mac[4]").rule);
  EXPECT_EQ(Rule::repaired, choiceOf(plan, "B.mac[5]").rule);
}

TEST(Overlay, field_isMaskedAndComparedAgain) {
  Maps::Plan plan = overlayPlan();
  EXPECT_EQ(0xFFFFFFE0u, choiceOf(plan, "B.CTRL").mask);
  decided(plan, "B.CTRL.link masked");
  EXPECT_EQ(0xFFFFFFF0u, choiceOf(plan, "B.CTRL").mask);
  decided(plan, "B.CTRL.* compared");
  EXPECT_EQ(0xFFFFFFE0u, choiceOf(plan, "B.CTRL").mask);
}

TEST(Overlay, lineThatMatchesNothing_isAnErrorWithItsPlace) {
  EXPECT_EQ("o.txt:2: 'B.NOTHING' matches no register",
            refusal("B.CTRL repaired\nB.NOTHING repaired"));
  EXPECT_EQ("o.txt:1: 'B.mac[8..20]' matches no register", refusal("B.mac[8..20] repaired"));
  EXPECT_EQ("o.txt:1: 'B.CTRL.none' matches no field of a decided register",
            refusal("B.CTRL.none masked"));
  EXPECT_EQ("o.txt:1: 'B.STATUS.*' matches no field of a decided register",
            refusal("B.STATUS.* masked"));
}

TEST(Overlay, lineThatIsNotUnderstood_isAnErrorWithItsPlace) {
  EXPECT_EQ("o.txt:1: unknown rule 'odd'", refusal("B.CTRL odd"));
  EXPECT_EQ("o.txt:1: a line is PATTERN RULE [DETAILS]", refusal("B.CTRL"));
  EXPECT_EQ("o.txt:1: 'CTRL' names no register: BLOCK.REGISTER", refusal("CTRL repaired"));
  EXPECT_EQ("o.txt:1: 'zero' is not understood here", refusal("B.CTRL repaired zero"));
  EXPECT_EQ("o.txt:1: 'mask' is not understood here", refusal("B.CTRL repaired mask"));
  EXPECT_EQ("o.txt:1: no mask of 64 bits: 'x'", refusal("B.CTRL repaired mask x"));
  EXPECT_EQ("o.txt:1: 'once' is not understood here", refusal("B.CTRL undecided once"));
}

TEST(Overlay, maskBeyondTheWidth_isAnError) {
  EXPECT_EQ("o.txt:1: the mask has bits beyond the 32 bits of B.CTRL",
            refusal("B.CTRL repaired mask 0x100000000"));
}

TEST(Overlay, registerThatNoRegionHolds_isAnError) {
  EXPECT_EQ("o.txt:1: B.ODD lies at 0x1052, which is not aligned", refusal("B.ODD repaired"));
}

TEST(Overlay, twoDecidedRegistersThatShareBytes_areAnErrorAtTheLaterLine) {
  EXPECT_EQ("o.txt:2: B.WIDE and B.LOW share bytes: only one of them can be decided",
            refusal("B.WIDE repaired\nB.LOW repaired"));
  Maps::Plan plan = overlayPlan();
  decided(plan, "B.WIDE repaired");
  EXPECT_TRUE(choiceOf(plan, "B.WIDE").rule);
}

TEST(Overlay, decisionAgainstTheMap_isANote) {
  Maps::Plan plan = overlayPlan();
  const auto notes = decided(plan, "B.STATUS repaired");
  ASSERT_EQ(1u, notes.size());
  EXPECT_EQ("o.txt:1: B.STATUS is read-only: a rewrite has no effect", notes[0]);
  EXPECT_EQ(Rule::repaired, choiceOf(plan, "B.STATUS").rule);
}

TEST(Overlay, tooLongText_isRefused) {
  EXPECT_THROW(Maps::parseOverlay(std::string(2 << 20, '#'), "o.txt"), Maps::Error);
  std::string lines;
  for (int i = 0; i < 10'001; ++i) lines += "B.A repaired\n";
  EXPECT_THROW(Maps::parseOverlay(lines, "o.txt"), Maps::Error);
}

TEST(Overlay, fileThatIsNotThere_isAnError) {
  EXPECT_THROW(Maps::readOverlay("/nonexistent/o.txt"), Maps::Error);
}

TEST(Matches, starQuestionMarkAndRange_matchAsWritten) {
  EXPECT_TRUE(Maps::matches("B.*", "B.CH[3].CTRL"));
  EXPECT_TRUE(Maps::matches("B.CH[*].CTRL", "B.CH[3].CTRL"));
  EXPECT_TRUE(Maps::matches("B.CH[2..4].C?RL", "B.CH[3].CTRL"));
  EXPECT_FALSE(Maps::matches("B.CH[4..9].CTRL", "B.CH[3].CTRL"));
  EXPECT_TRUE(Maps::matches("*[3..3]*", "B.CH[1].X[3]"));
  EXPECT_TRUE(Maps::matches("B.CH[3].CTRL", "B.CH[3].CTRL"));
  EXPECT_FALSE(Maps::matches("B.CTR", "B.CTRL"));
  EXPECT_FALSE(Maps::matches("B.CTRLX", "B.CTRL"));
  EXPECT_FALSE(Maps::matches("", "B.CTRL"));
  EXPECT_TRUE(Maps::matches("*", ""));
}

}  // namespace
