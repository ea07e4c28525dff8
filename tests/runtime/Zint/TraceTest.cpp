#include <Zint/Trace.h>

#include <fakes/TraceCapture.h>
#include <gmock/gmock.h>
#include <runtime/Probes.h>

#include <memory>
#include <new>
#include <sstream>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using Zint::TraceHandle;

struct TraceTest : testing::Test {
  // Traces one line of `level` and says whether its text was built.
  bool built(U32 level) {
    int count = 0;
    const auto counted = [&count] { return ++count; };
    ZINT_TRACE_CONTEXT(handle, level, "", "Chips/Mine", 42, "n=" << counted());
    return count == 1;
  }

  Fakes::TraceCapture trace;
  TraceHandle handle{"TraceTest", false};
};

TEST_F(TraceTest, onlyLevel0IsOnFromTheStart) {
  for (U32 level = 0; level < Zint::traceLevels; ++level) {
    EXPECT_EQ(handle.level(level), level == 0) << level;
  }
}

TEST_F(TraceTest, everyLevelIsOnWhenAskedFor) {
  const TraceHandle every("every", true);
  for (U32 level = 0; level < Zint::traceLevels; ++level) EXPECT_TRUE(every.level(level)) << level;
}

TEST_F(TraceTest, aLineReachesTheSinkWithAllThatWasSaidOfIt) {
  ZINT_TRACE_CONTEXT(handle, 0, "context", "Chips/Mine", 205,
                     "entry " << 7 << " of "
                              << "mac");
  ASSERT_EQ(trace.full.size(), 1u);
  const auto& line = trace.full[0];
  EXPECT_EQ(line.handle, "TraceTest");
  EXPECT_EQ(line.level, 0u);
  EXPECT_EQ(line.text, "entry 7 of mac");
  EXPECT_EQ(line.context, "context");
  EXPECT_EQ(line.source, "Chips/Mine");
  EXPECT_EQ(line.line, 205);
  EXPECT_EQ(line.function, "TestBody");
}

TEST_F(TraceTest, aLineThatThereIsNoMemoryForIsLeftOut) {
  const auto text = []() -> const char* { throw std::bad_alloc(); };
  EXPECT_NO_THROW(ZINT_TRACE_CONTEXT(handle, 0, "", "Chips/Mine", 42, text()));
  EXPECT_TRUE(trace.full.empty());
}

TEST_F(TraceTest, aTextIsBuiltOnlyWhenItsLevelIsOn) {
  EXPECT_TRUE(built(0));
  EXPECT_FALSE(built(9));
  handle.levelIs(9, true);
  EXPECT_TRUE(built(9));
  EXPECT_FALSE(built(8));
  handle.levelIs(9, false);
  EXPECT_FALSE(built(9));
  EXPECT_EQ(trace.full.size(), 2u);
}

TEST_F(TraceTest, levelUpToIs_switchesThoseAboveOff) {
  handle.levelIs(9, true);
  handle.levelUpToIs(4);
  for (U32 level = 0; level < Zint::traceLevels; ++level) {
    EXPECT_EQ(handle.level(level), level <= 4) << level;
  }
  handle.levelUpToIs(9);
  EXPECT_TRUE(handle.level(9));
  handle.levelUpToIs(0);
  EXPECT_TRUE(handle.level(0));
  EXPECT_FALSE(handle.level(1));
}

TEST_F(TraceTest, level0CannotBeSwitchedOff) {
  EXPECT_THROW(handle.levelIs(0, false), Zint::RangeException);
  EXPECT_TRUE(handle.level(0));
  EXPECT_TRUE(built(0));
  EXPECT_NO_THROW(handle.levelIs(0, true));
}

TEST_F(TraceTest, aRefusalSaysWhichLevelAndWhy) {
  EXPECT_EQ(Probes::rangeMessage([&] { handle.levelIs(0, false); }),
            "trace level 0 cannot be switched off");
  EXPECT_EQ(Probes::rangeMessage([&] { handle.levelIs(10, true); }), "trace level 10 is above 9");
  EXPECT_EQ(Probes::rangeMessage([&] { handle.levelUpToIs(10); }), "trace level 10 is above 9");
}

TEST_F(TraceTest, aLevelAbove9IsRefused) {
  EXPECT_THROW(handle.levelIs(10, true), Zint::RangeException);
  EXPECT_THROW(handle.levelIs(10, false), Zint::RangeException);
  EXPECT_THROW(handle.levelUpToIs(10), Zint::RangeException);
  EXPECT_FALSE(handle.level(9));
}

TEST_F(TraceTest, handlesAreSwitchedOneByOne) {
  const TraceHandle other("other", false);
  handle.levelUpToIs(9);
  EXPECT_FALSE(other.level(1));
}

TEST_F(TraceTest, find_givesTheHandleOfThatNameWhileItLives) {
  EXPECT_EQ(TraceHandle::find("TraceTest"), &handle);
  EXPECT_EQ(TraceHandle::find("Zint"), &Zint::zintTrace());
  EXPECT_EQ(TraceHandle::find("TraceTes"), nullptr);
  auto brief = std::make_unique<TraceHandle>("brief", false);
  EXPECT_EQ(TraceHandle::find("brief"), brief.get());
  brief = nullptr;
  EXPECT_EQ(TraceHandle::find("brief"), nullptr);
  EXPECT_EQ(TraceHandle::find("TraceTest"), &handle);
}

TEST_F(TraceTest, handlesMayEndInAnyOrder) {
  auto first = std::make_unique<Zint::TraceHandle>("first", false);
  auto second = std::make_unique<Zint::TraceHandle>("second", false);
  auto third = std::make_unique<Zint::TraceHandle>("third", false);
  first = nullptr;
  EXPECT_EQ(Zint::TraceHandle::find("first"), nullptr);
  EXPECT_EQ(Zint::TraceHandle::find("second"), second.get());
  third = nullptr;
  EXPECT_EQ(Zint::TraceHandle::find("third"), nullptr);
  EXPECT_EQ(Zint::TraceHandle::find("second"), second.get());
}

TEST_F(TraceTest, theRuntimesOwnHandleStartsAtLevel0) {
  EXPECT_STREQ(Zint::zintTrace().name(), "Zint");
  EXPECT_TRUE(Zint::zintTrace().level(0));
  EXPECT_FALSE(Zint::zintTrace().level(1));
}

TEST_F(TraceTest, coverageStream_buildsEveryTextAndRecordsNoneMore) {
  std::ostringstream coverage;
  Zint::coverageStreamIs(&coverage);
  EXPECT_TRUE(built(9));
  EXPECT_TRUE(handle.built(9));
  EXPECT_FALSE(handle.level(9));
  Zint::coverageStreamIs(nullptr);
  EXPECT_FALSE(built(9));
  EXPECT_THAT(coverage.str(), HasSubstr("Chips/Mine:42 n=1"));
  EXPECT_THAT(trace.full, IsEmpty());
}

TEST_F(TraceTest, coverageStream_countsForAHandleMadeLaterToo) {
  std::ostringstream coverage;
  Zint::coverageStreamIs(&coverage);
  const TraceHandle later("later", false);
  EXPECT_TRUE(later.built(5));
  Zint::coverageStreamIs(nullptr);
  EXPECT_FALSE(later.built(5));
}

TEST_F(TraceTest, coverageStream_isLeftWithTheLevelsThatWereSwitchedMeanwhile) {
  std::ostringstream coverage;
  Zint::coverageStreamIs(&coverage);
  handle.levelIs(3, true);
  handle.levelIs(3, false);
  handle.levelIs(4, true);
  EXPECT_TRUE(built(3));
  Zint::coverageStreamIs(nullptr);
  EXPECT_FALSE(built(3));
  EXPECT_TRUE(built(4));
}

TEST_F(TraceTest, traceSinkIs_givesTheOneBefore) {
  Fakes::TraceCapture* outer = &trace;
  {
    Fakes::TraceCapture inner;
    built(0);
    EXPECT_EQ(inner.full.size(), 1u);
  }
  built(0);
  EXPECT_EQ(outer->full.size(), 1u);
  EXPECT_EQ(Zint::traceSinkIs(nullptr), outer);
  EXPECT_EQ(Zint::traceSinkIs(outer), nullptr) << "null stands for standard error";
}

TEST_F(TraceTest, withoutASinkLinesGoToStandardError) {
  Zint::traceSinkIs(nullptr);
  testing::internal::CaptureStderr();
  built(0);
  const std::string written = testing::internal::GetCapturedStderr();
  Zint::traceSinkIs(&trace);
  EXPECT_THAT(written, HasSubstr("TraceTest 0 Chips/Mine:42 built: n=1\n"));
}

}  // namespace
