#include <Zint/Trace.h>

#include <gmock/gmock.h>
#include <runtime/Probes.h>
#include <support/TraceCapture.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

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

  Support::TraceCapture trace;
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
  const TraceHandle* runtimes = TraceHandle::find("Zint");  // perhaps before its first use
  EXPECT_EQ(runtimes, &Zint::zintTrace());
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
  EXPECT_TRUE(handle.isBuilt(9));
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
  EXPECT_TRUE(later.isBuilt(5));
  Zint::coverageStreamIs(nullptr);
  EXPECT_FALSE(later.isBuilt(5));
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
  Support::TraceCapture* outer = &trace;
  {
    Support::TraceCapture inner;
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

// Throws whatever it is told to.
class ThrowingSink : public Zint::TraceSink {
 public:
  explicit ThrowingSink(std::function<void()> doThrow) : doThrow_(std::move(doThrow)) {}
  void traceLine(const Zint::TraceLine&) override { doThrow_(); }

 private:
  std::function<void()> doThrow_;
};

TEST_F(TraceTest, whatASinkThrowsNeverReachesWhoTraces) {
  for (const std::function<void()>& doThrow : std::vector<std::function<void()>>{
           [] { throw std::bad_alloc(); }, [] { throw Zint::RangeException("far"); },
           [] { throw std::runtime_error("full"); }, [] { throw 7; }}) {
    ThrowingSink sink(doThrow);
    Zint::traceSinkIs(&sink);
    EXPECT_NO_THROW(EXPECT_TRUE(built(0)));
    Zint::traceSinkIs(&trace);
  }
}

TEST_F(TraceTest, whatATextThrowsNeverReachesWhoTraces) {
  const auto text = []() -> const char* { throw std::runtime_error("no text"); };
  EXPECT_NO_THROW(ZINT_TRACE_CONTEXT(handle, 0, "", "Chips/Mine", 42, text()));
  EXPECT_THAT(trace.full, IsEmpty());
}

TEST_F(TraceTest, aNulInANameDoesNotCutTheText) {
  const Zint::String8 name(std::string("a\0b", 3));
  ZINT_TRACE_CONTEXT(handle, 0, "", "Chips/Mine", 42, name << ": written");
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].text, "a\\x00b: written");
}

// Keeps the first thread inside, until it is let go; lets the others pass.
class BusySink : public Zint::TraceSink {
 public:
  void traceLine(const Zint::TraceLine&) override {
    std::unique_lock lock(mutex);
    if (std::exchange(isUsed, true)) return;
    inside = true;
    changed.notify_all();
    changed.wait(lock, [this] { return mayGo; });
    inside = false;
  }
  void waitUntilInside() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return inside; });
  }
  void letGo() {
    const std::lock_guard lock(mutex);
    mayGo = true;
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
  bool isUsed = false, inside = false, mayGo = false;
};

TEST_F(TraceTest, traceSinkIs_returnsWhenNoThreadIsInsideTheOldSink) {
  auto busy = std::make_unique<BusySink>();
  Zint::traceSinkIs(busy.get());
  std::thread tracing([this] { built(0); });
  busy->waitUntilInside();
  bool wasInside = false;
  std::atomic<bool> replaced = false;
  std::thread replacing([&] {
    Zint::traceSinkIs(&trace);
    wasInside = busy->inside;  // under no lock: nobody else is there any more
    busy = nullptr;
    replaced = true;
  });
  // The new sink takes lines while the old one is still busy.
  while (trace.full.empty()) built(0);
  EXPECT_FALSE(replaced);
  busy->letGo();
  replacing.join();
  tracing.join();
  EXPECT_FALSE(wasInside);
}

// It would wait for itself: it returns at once, and the sink may be destroyed after its traceLine.
TEST_F(TraceTest, traceSinkIs_ofASinkThatReplacesItselfReturnsAtOnce) {
  ThrowingSink* self = nullptr;
  ThrowingSink sink([&] { EXPECT_EQ(Zint::traceSinkIs(&trace), self); });
  self = &sink;
  Zint::traceSinkIs(&sink);
  EXPECT_TRUE(built(0));
  EXPECT_THAT(trace.full, IsEmpty());
  EXPECT_TRUE(built(0));
  EXPECT_EQ(trace.full.size(), 1u);
}

}  // namespace
