// Expectations that are met, and those that must fail and do.
#include <gtest/gtest-spi.h>
#include <testkit/FakeChip.h>

#include "testkit/Captured.h"

namespace TestKitTest {
namespace {

using TestKit::anyOrder;
using TestKit::Expectation;
using TestKit::Failure;
using TestKit::inOrder;
using TestKit::perRegister;
using TestKit::Step;

Step reads(std::string name) { return TestKit::read(std::move(name)); }
Step writes(std::string name, U64 value) { return TestKit::write(std::move(name), value); }

// Accesses as a word: "l1 m05" writes lock 1 and mac[0] 5; "rl" reads lock.
class ExpectationTest : public FakeChipTest {
 protected:
  void access(const std::string& word) {
    if (word[0] == 'r') {
      read(word[1] == 'l' ? "lock" : word[1] == 'c' ? "ctrl" : "mac[" + word.substr(2) + "]");
    } else if (word[0] == 'm') {
      write("mac[" + word.substr(1, 1) + "]", static_cast<U32>(word[2] - '0'));
    } else {
      write(word[0] == 'l' ? "lock" : "ctrl", static_cast<U32>(word[1] - '0'));
    }
  }
  // What is reported when these accesses come; "" for nothing.
  std::string failureOf(const Step& step, const std::string& accesses, bool isOnly = false) {
    Captured captured;
    {
      const Expectation expected = isOnly ? chip->expectOnly(step) : chip->expect(step);
      std::istringstream words(accesses);
      for (std::string word; words >> word;) access(word);
      EXPECT_EQ(captured.reports.size(), 0u);
    }
    EXPECT_LE(captured.reports.size(), 1u);
    return captured.text();
  }
  bool passes(const Step& step, const std::string& accesses, bool isOnly = false) {
    return failureOf(step, accesses, isOnly).empty();
  }
};

TEST_F(ExpectationTest, inOrder_takesItsStepsInThisOrderAlone) {
  const Step step = inOrder(writes("lock", 1), writes("mac[0]", 5), writes("lock", 0));
  EXPECT_TRUE(passes(step, "l1 m05 l0"));
  EXPECT_FALSE(passes(step, "m05 l1 l0"));
  EXPECT_FALSE(passes(step, "l1 l0 m05"));
  EXPECT_FALSE(passes(step, "l1 m05"));
  EXPECT_FALSE(passes(step, "l1 m05 l0 l0"));
  EXPECT_FALSE(passes(step, "l1 m06 l0"));
  EXPECT_FALSE(passes(step, ""));
}

TEST_F(ExpectationTest, anyOrder_betweenOrderedSteps) {
  const Step step = inOrder(writes("lock", 1), anyOrder(writes("mac[0]", 5), writes("mac[1]", 6)),
                            writes("lock", 0));
  EXPECT_TRUE(passes(step, "l1 m05 m16 l0"));
  EXPECT_TRUE(passes(step, "l1 m16 m05 l0"));
  EXPECT_FALSE(passes(step, "m05 l1 m16 l0"));
  EXPECT_FALSE(passes(step, "l1 m05 l0 m16"));
  EXPECT_FALSE(passes(step, "l1 m05 m05 m16 l0"));
  EXPECT_FALSE(passes(step, "l1 m05 l0"));
}

TEST_F(ExpectationTest, anyOrder_ofSequencesKeepsEachSequence) {
  const Step step = anyOrder(inOrder(writes("lock", 1), writes("lock", 2)),
                             inOrder(writes("ctrl", 1), writes("ctrl", 2)));
  EXPECT_TRUE(passes(step, "l1 c1 l2 c2"));
  EXPECT_TRUE(passes(step, "c1 c2 l1 l2"));
  EXPECT_FALSE(passes(step, "l2 l1 c1 c2"));
  EXPECT_FALSE(passes(step, "l1 c2 l2 c1"));
}

TEST_F(ExpectationTest, perRegister_isAnyOrderBetweenRegisters) {
  const Step step =
      perRegister(writes("lock", 1), writes("ctrl", 1), writes("lock", 2), reads("ctrl"));
  EXPECT_TRUE(passes(step, "l1 l2 c1 rc"));
  EXPECT_TRUE(passes(step, "c1 l1 rc l2"));
  EXPECT_FALSE(passes(step, "l2 l1 c1 rc"));
  EXPECT_FALSE(passes(step, "l1 l2 rc c1"));
  EXPECT_THROW(perRegister(inOrder(reads("lock"))), Zint::RangeException);
}

TEST_F(ExpectationTest, times_atLeast_anyTimes) {
  EXPECT_TRUE(passes(reads("lock").times(2), "rl rl"));
  EXPECT_FALSE(passes(reads("lock").times(2), "rl"));
  EXPECT_FALSE(passes(reads("lock").times(2), "rl rl rl"));
  EXPECT_TRUE(passes(reads("lock").atLeast(1), "rl rl rl"));
  EXPECT_FALSE(passes(reads("lock").atLeast(1), ""));
  EXPECT_TRUE(passes(reads("lock").anyTimes(), ""));
  const Step polled = inOrder(writes("ctrl", 1), reads("lock").anyTimes(), writes("ctrl", 0));
  EXPECT_TRUE(passes(polled, "c1 c0"));
  EXPECT_TRUE(passes(polled, "c1 rl rl c0"));
  EXPECT_FALSE(passes(polled, "c1 c0 rl"));
  EXPECT_FALSE(passes(polled, "rl c1 c0"));
}

TEST_F(ExpectationTest, whatIsNotNamedIsFree_unlessNothingElseMayCome) {
  EXPECT_TRUE(passes(writes("lock", 1), "rl c5 l1 m05"));
  EXPECT_TRUE(passes(writes("lock", 1), "l1", true));
  EXPECT_FALSE(passes(writes("lock", 1), "rl l1", true));
  EXPECT_FALSE(passes(writes("lock", 1), "l1 c5", true));
  EXPECT_FALSE(passes(TestKit::nothing(), "rl", true));
}

TEST_F(ExpectationTest, anArrayTakesAnyOfItsRegisters) {
  EXPECT_TRUE(passes(reads("mac").times(2), "rm3 rm5"));
  EXPECT_FALSE(passes(reads("mac[3]"), "rm5 rm3 rm3"));
  EXPECT_TRUE(passes(TestKit::write("").times(3), "l1 c1 m05"));
}

TEST_F(ExpectationTest, ofBits_leavesOtherBitsOut) {
  EXPECT_TRUE(passes(writes("lock", 1).ofBits(1), "l5"));
  EXPECT_FALSE(passes(writes("lock", 1).ofBits(1), "l4"));
}

TEST_F(ExpectationTest, at_meansOneAccessOfARegisterInParts) {
  const Expectation expected =
      chip->expectOnly(inOrder(writes("lock", 1).at(0x6, 2), writes("lock", 2).at(0x4, 2)));
  chip->doWrite(0x6, 2, 1);
  chip->doWrite(0x4, 2, 2);
  EXPECT_TRUE(expected.isMet());
}

TEST_F(ExpectationTest, returns_answersWithoutASideEffect) {
  chip->valueIs("drops[0]", 9);
  const Expectation expected =
      chip->expect(inOrder(reads("drops[0]").returns(1), reads("drops[0]").returns(2)));
  EXPECT_EQ(read("drops[0]"), 1u);
  EXPECT_EQ(read("drops[0]"), 2u);
  EXPECT_EQ(chip->value("drops[0]"), 9u);
}

TEST_F(ExpectationTest, fails_throwsIntoTheDriver) {
  const Expectation expected = chip->expect(inOrder(writes("lock", 1).fails(), writes("lock", 1)));
  EXPECT_THROW(write("lock", 1), TestKit::NoAnswer);
  EXPECT_EQ(chip->value("lock"), 0u);
  write("lock", 1);
  EXPECT_EQ(chip->value("lock"), 1u);
}

TEST_F(ExpectationTest, neverReadAndNeverWritten) {
  EXPECT_FALSE(passes(reads("lock").never(), "rl"));
  Captured captured;
  {
    const Expectation never = chip->expectNeverRead("drops");
    write("drops[1]", 0);
    read("mac[1]");
  }
  EXPECT_EQ(captured.reports.size(), 0u);
  {
    const Expectation never = chip->expectNeverRead("drops");
    read("drops[1]");
  }
  EXPECT_THAT(captured.text(),
              HasSubstr("  out of turn: read drops[1]\n  expected:\n    read drops, never\n"));
  {
    const Expectation never = chip->expectNeverWritten("ctrl");
    write("ctrl", 1);
  }
  EXPECT_EQ(captured.reports.size(), 2u);
}

TEST_F(ExpectationTest, anAccessBelongsToTheFirstThatTakesIt) {
  const Expectation first = chip->expect(reads("lock").returns(1));
  const Expectation second = chip->expect(reads("lock").returns(2));
  EXPECT_EQ(read("lock"), 1u);
  EXPECT_TRUE(first.isMet());
  EXPECT_FALSE(second.isMet());
  EXPECT_EQ(read("lock"), 2u);
  EXPECT_TRUE(second.isMet());
}

TEST_F(ExpectationTest, stepsThatMakeNoSenseAreRefused) {
  EXPECT_THROW((void)writes("lock", 1).returns(1), Zint::RangeException);
  EXPECT_THROW((void)inOrder(reads("lock")).times(2), Zint::RangeException);
  EXPECT_THROW((void)chip->expect(reads("nothing")), Zint::RangeException);
  read("lock");  // nothing is expected
}

// ---- what is told -------------------------------------------------------------------------------

TEST_F(ExpectationTest, theMessageShowsWhatCameOutOfTurnWhatWasExpectedAndTheLastAccesses) {
  chip->seedIs(42);
  const Step step = inOrder(writes("lock", 1), anyOrder(writes("mac[0]", 5), writes("mac[1]", 6)),
                            writes("lock", 0));
  EXPECT_EQ(failureOf(step, "rc l1 m05 l0 m16"),
            "chip \"asic\", seed 42, 5 accesses\n"
            "  out of turn: write lock 0x0\n"
            "  expected:\n"
            "    write mac[1] 0x6\n"
            "  the accesses before it:\n"
            "    #1 read ctrl 0x3 enable=1 speed=1\n"
            "    #2 write lock 0x1\n"
            "    #3 write mac[0] 0x5\n"
            "  missing at the end:\n"
            "    write lock 0x0");
}

TEST_F(ExpectationTest, theMessageShowsWhatIsMissingAndTheLastAccesses) {
  EXPECT_EQ(failureOf(inOrder(reads("lock"), writes("lock", 1)), "rl c1"),
            "chip \"asic\", seed 1, 2 accesses\n"
            "  missing at the end:\n"
            "    write lock 0x1\n"
            "  the last accesses:\n"
            "    #1 read lock 0x0\n"
            "    #2 write ctrl 0x1 enable=1 speed=0");
}

TEST_F(ExpectationTest, theMessageShowsTwentyAccesses) {
  std::string accesses;
  for (U32 i = 0; i < 30; ++i) accesses += " rl";
  const std::string text = failureOf(writes("ctrl", 0), accesses);
  EXPECT_THAT(text, HasSubstr("    #11 read lock 0x0\n"));
  EXPECT_THAT(text, HasSubstr("    #30 read lock 0x0"));
  EXPECT_THAT(text, Not(HasSubstr("#10 ")));
}

TEST_F(ExpectationTest, theFirstIsToldInFullAndTheOthersAreCounted) {
  const std::string text = failureOf(writes("lock", 1), "l2 l3 l4 l1");
  EXPECT_THAT(text, HasSubstr("  out of turn: write lock 0x2\n"));
  EXPECT_THAT(text, HasSubstr("  and 2 more out of turn"));
  EXPECT_THAT(text, Not(HasSubstr("missing")));
  EXPECT_THAT(failureOf(reads("lock").times(3), "rl"), HasSubstr("    read lock: 1 of 3\n"));
  EXPECT_THAT(failureOf(reads("mac").never(), "rm1"), HasSubstr("read mac, never"));
  EXPECT_THAT(failureOf(reads("lock"), "rl rl"), HasSubstr("  expected: nothing more\n"));
}

TEST_F(ExpectationTest, manyMissingStepsAreCounted) {
  std::vector<Step> steps;
  for (U32 i = 0; i < 50; ++i) steps.push_back(reads("lock"));
  EXPECT_THAT(failureOf(inOrder(steps), "rl"), HasSubstr("    and 39 more\n"));
}

// ---- to whom it is told -------------------------------------------------------------------------

TEST_F(ExpectationTest, aFailureIsOneOfGoogleTestAtTheLineOfTheExpectation) {
  EXPECT_NONFATAL_FAILURE({ const Expectation missed = chip->expect(TestKit::read("lock")); },
                          "missing at the end");
  testing::TestPartResultArray results;
  int line = 0;
  {
    testing::ScopedFakeTestPartResultReporter fake(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
    line = __LINE__ + 1;
    const Expectation missed = chip->expect(reads("lock"));
  }
  ASSERT_EQ(results.size(), 1);
  EXPECT_THAT(results.GetTestPartResult(0).file_name(), HasSubstr("ExpectationTest.cpp"));
  EXPECT_EQ(results.GetTestPartResult(0).line_number(), line);
}

// Without a framework.
class WithoutFramework : public ExpectationTest {
 protected:
  WithoutFramework() { before_ = TestKit::reporterIs(TestKit::throwFailure); }
  ~WithoutFramework() override { TestKit::reporterIs(before_); }

 private:
  TestKit::Reporter before_;
};

TEST_F(WithoutFramework, theEndOfTheScopeThrows) {
  std::string told;
  try {
    const Expectation missed = chip->expect(reads("lock"));
    write("ctrl", 1);
  } catch (const Failure& failure) {
    told = failure.what();
  }
  EXPECT_THAT(told, HasSubstr("ExpectationTest.cpp:"));
  EXPECT_THAT(told, HasSubstr("    read lock\n"));
}

TEST_F(WithoutFramework, verifyThrowsAndTheScopeDoesNotAgain) {
  Expectation missed = chip->expect(reads("lock"));
  EXPECT_THROW(missed.verify(), Failure);
  missed.verify();
  read("lock");
}

TEST_F(WithoutFramework, anExceptionInFlightIsNotHidden) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(
      {
        const Expectation missed = chip->expect(reads("lock"));
        throw std::runtime_error("the driver's own");
      },
      std::runtime_error);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("    read lock\n"));
}

TEST_F(WithoutFramework, aReporterThatThrowsHidesNothingEither) {
  TestKit::reporterIs([](const TestKit::Report& r) {
    EXPECT_TRUE(r.isUnwinding);
    throw 42;  // NOLINT(hicpp-exception-baseclass)
  });
  EXPECT_THROW(
      {
        const Expectation missed = chip->expect(reads("lock"));
        throw std::runtime_error("the driver's own");
      },
      std::runtime_error);
}

// Of a scope within the handling of another exception: nothing is in flight.
TEST_F(WithoutFramework, aScopeMadeWhileAnExceptionIsInFlightFailsOfItsOwn) {
  struct AtEnd {
    ~AtEnd() {
      EXPECT_THROW({ const Expectation missed = chip->expect(reads("lock")); }, Failure);
    }
    TestKit::FakeChip::Ptr chip;
  };
  EXPECT_THROW(
      {
        const AtEnd end{chip};
        throw std::runtime_error("the driver's own");
      },
      std::runtime_error);
}

TEST_F(WithoutFramework, anExpectationThatMovedEndsOnce) {
  EXPECT_THROW(
      {
        Expectation missed = chip->expect(reads("lock"));
        const Expectation moved = std::move(missed);
      },
      Failure);
}

TEST(PrintAndAbortDeathTest, printsTheTextAndEndsTheProcess) {
  EXPECT_DEATH(TestKit::printAndAbort({"why", "here.cpp", 7, false}), "here.cpp:7: why");
}

}  // namespace
}  // namespace TestKitTest
