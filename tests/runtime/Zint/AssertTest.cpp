#include <Zint/Assert.h>

#include <runtime/Probes.h>

#include <csignal>
#include <cstdio>
#include <string>

// Outside of a namespace, of whose lack of a name compilers write differently.
constexpr int checkedLine = __LINE__ + 1;
static void checked(int entries) { ZINT_ASSERT("Chips/Mine", ( entries % 4 ) == 0); }

namespace {

// What the hook was given last.
struct SeenFailure {
  std::string condition, source, function, detail;
  int line = 0;
} lastFailure;

void throwingHook(const Zint::AssertionFailure& failure) {
  lastFailure = {failure.condition, failure.source, failure.function, failure.detail, failure.line};
  throw 1;
}

void talkingHook(const Zint::AssertionFailure& failure) {
  (void)std::fprintf(stderr, "hook saw %s\n", failure.condition);
}

TEST(Assert, aConditionThatHoldsDoesNothing) { checked(8); }

TEST(Assert, aBrokenOneReportsConditionSourceLineAndFunctionAndEndsTheProcess) {
  EXPECT_DEATH(checked(3), Support::assertionPattern("Chips/Mine", checkedLine, "void checked(int)",
                                                     "( entries % 4 ) == 0"));
}

TEST(Assert, endsTheProcessByAborting) {
  EXPECT_EXIT(checked(3), testing::KilledBySignal(SIGABRT), "");
}

TEST(Assert, theDetailFollowsTheReport) {
  EXPECT_DEATH(Zint::assertionFailed("a < b", "Chips/Mine", 7, "void f()", "mac"),
               "^Chips/Mine:7: void f\\(\\): assertion \"a < b\" failed: mac\n$");
}

TEST(Assert, theHookIsCalledBeforeTheProcessEnds) {
  EXPECT_DEATH(
      {
        Zint::assertionHookIs(talkingHook);
        checked(3);
      },
      "hook saw \\( entries % 4 \\) == 0\nChips/Mine:");
}

TEST(Assert, aHookThatThrowsLeavesTheProcessAlive) {
  ASSERT_EQ(Zint::assertionHookIs(throwingHook), nullptr);
  EXPECT_THROW(checked(3), int);
  EXPECT_EQ(Zint::assertionHookIs(nullptr), throwingHook);
  EXPECT_EQ(lastFailure.condition, "( entries % 4 ) == 0");
  EXPECT_EQ(lastFailure.source, "Chips/Mine");
  EXPECT_EQ(lastFailure.line, checkedLine);
  EXPECT_EQ(lastFailure.function, "void checked(int)");
  EXPECT_EQ(lastFailure.detail, "");
}

}  // namespace
