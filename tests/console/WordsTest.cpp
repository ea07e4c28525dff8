#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tools/console/Library.h>
#include <tools/console/Words.h>

namespace {

using Console::argumentOf;
using Console::didYouMean;
using Console::nearest;
using Console::typed;
using Console::Words;
using Console::wordsOf;

std::string refusal(const std::string& line) {
  try {
    for (const std::string& word : wordsOf(line)) argumentOf(word);
  } catch (const Console::Error& error) {
    return error.what();
  }
  return "";
}

TEST(WordsTest, blanksEndAWord) {
  EXPECT_EQ(wordsOf("  set \t state 'idle'\r"), (Words{"set", "state", "'idle'"}));
  EXPECT_EQ(wordsOf(""), Words{});
  EXPECT_EQ(wordsOf(" \t "), Words{});
}

TEST(WordsTest, blanksBetweenQuotesBelongToTheWord) {
  EXPECT_EQ(wordsOf("name='my table'#3 x"), (Words{"name='my table'#3", "x"}));
}

TEST(WordsTest, aQuoteBehindABackslashClosesNothing) {
  EXPECT_EQ(wordsOf(R"('it\'s one' two)"), (Words{R"('it\'s one')", "two"}));
  EXPECT_EQ(wordsOf(R"('ends in \\' two)"), (Words{R"('ends in \\')", "two"}));
}

TEST(WordsTest, aLineThatBeginsWithAHashSaysNothing) {
  EXPECT_EQ(wordsOf("# set state"), Words{});
  EXPECT_EQ(wordsOf("get #"), (Words{"get", "#"}));
}

TEST(WordsTest, anOpenQuoteIsRefused) {
  EXPECT_EQ(refusal("set name 'my table"), "a quote is not closed in 'my table");
}

TEST(WordsTest, typed_theWordUnderTheCursorIsTheLast) {
  EXPECT_EQ(typed("set /sha").before, Words{"set"});
  EXPECT_EQ(typed("set /sha").word, "/sha");
  EXPECT_EQ(typed("set /sha").begin, 4u);
}

TEST(WordsTest, typed_afterABlankANewWordBegins) {
  EXPECT_EQ(typed("set state ").before, (Words{"set", "state"}));
  EXPECT_EQ(typed("set state ").word, "");
  EXPECT_EQ(typed("set state ").begin, 10u);
}

TEST(WordsTest, typed_anOpenQuoteIsPartOfTheWord) {
  EXPECT_EQ(typed("set name 'my ta").word, "'my ta");
}

TEST(WordsTest, argumentOf_splitsAtTheFirstEqualsSignOutsideQuotes) {
  EXPECT_EQ(argumentOf("a=b=c"), (std::pair<std::string, std::string>("a", "b=c")));
  EXPECT_EQ(argumentOf("a="), (std::pair<std::string, std::string>("a", "")));
}

TEST(WordsTest, argumentOf_whatIsNoArgumentIsRefused) {
  EXPECT_EQ(refusal("4096"), "an argument is given as name=value, not as 4096");
  EXPECT_EQ(refusal("=4"), "an argument is given as name=value, not as =4");
  EXPECT_EQ(refusal("'a=b'"), "an argument is given as name=value, not as 'a=b'");
}

TEST(SuggestTest, aSlipOfTheFingersIsUnderstood) {
  const std::vector<std::string> known{"state", "stride", "shadowEnabled"};
  EXPECT_EQ(nearest("sate", known), "state");    // one missing
  EXPECT_EQ(nearest("sttate", known), "state");  // one too many
  EXPECT_EQ(nearest("stste", known), "state");   // one wrong
  EXPECT_EQ(nearest("satte", known), "state");   // two exchanged
  EXPECT_EQ(nearest("STATE", known), "state");
  EXPECT_EQ(nearest("shadowEnbled", known), "shadowEnabled");
}

TEST(SuggestTest, theClosestOneIsMeant) {
  EXPECT_EQ(nearest("strde", {"state", "stride"}), "stride");
  EXPECT_EQ(nearest("strde", {"stride", "state"}), "stride");
}

TEST(SuggestTest, aUniqueBeginningIsUnderstood) {
  EXPECT_EQ(nearest("readFrom", {"readFromCache", "state"}), "readFromCache");
  EXPECT_EQ(nearest("readFrom", {"readFromCacheHack", "readFromCacheU32Too"}), "");
  EXPECT_EQ(nearest("r", {"readFromCache"}), "");
}

TEST(SuggestTest, whatIsFarAwayIsNotMeant) {
  EXPECT_EQ(nearest("mode", {"state", "stride"}), "");
  EXPECT_EQ(nearest("", {"state"}), "");
  EXPECT_EQ(nearest("9", {"0"}), "");
  EXPECT_EQ(didYouMean("mode", {"state"}), "");
}

TEST(SuggestTest, didYouMean_isAPartOfAMessage) {
  EXPECT_EQ(didYouMean("sate", {"state"}), "; did you mean 'state'?");
}

// It would end the message that repeats it.
TEST(WordsTest, aZeroByteIsRefused) {
  EXPECT_EQ(refusal(std::string("let \0y = null", 13)), "a line cannot hold a zero byte");
}

}  // namespace
