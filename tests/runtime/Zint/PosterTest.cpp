// Functions that are handed to an activity's thread, as seen from that one thread.
#include <Zint/Activity.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pthread.h>
#include <runtime/Heap.h>
#include <runtime/Probes.h>
#include <support/Death.h>
#include <support/ManualLoop.h>
#include <support/TraceCapture.h>

#include <stdexcept>

namespace {

using Probes::Alarm;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Zint::makePtr;
using Zint::never;
using Zint::Poster;
using Zint::Ptr;

bool isReadable(Zint::ActivityConfig& activity, int milliseconds = 0) {
  pollfd poll{activity.descriptor(), POLLIN, 0};
  return ::poll(&poll, 1, milliseconds) == 1;
}

// The kernel may take a moment; the limit only keeps a broken descriptor from hanging the test.
bool becomesReadable(Zint::ActivityConfig& activity) { return isReadable(activity, 30'000); }

// Reports that it was destroyed.
struct Token {
  explicit Token(std::function<void()> onEnd) : onEnd_(std::move(onEnd)) {}
  ~Token() { onEnd_(); }
  Token(const Token&) = delete;
  Token& operator=(const Token&) = delete;

 private:
  std::function<void()> onEnd_;
};

struct PosterTest : testing::Test {
  // A function that writes its letter.
  std::function<void()> letter(const char* letter) {
    return [this, letter] { log += letter; };
  }
  bool post(const char* text) { return poster.post(letter(text)); }
  std::string turn() {
    loop.turn();
    return std::exchange(log, {});
  }

  std::string log;
  Support::ManualLoop loop;
  Poster poster = loop.activity->poster();
  Ptr<Alarm> alarm = makePtr<Alarm>(loop.activity, loop.clock);
};

TEST_F(PosterTest, post_runsInTheNextTurnAndOnce) {
  EXPECT_TRUE(post("a"));
  EXPECT_EQ(log, "");
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(turn(), "");
}

TEST_F(PosterTest, post_runsInTheOrderPosted) {
  const Poster other = loop.activity->poster(), copy = poster;
  EXPECT_TRUE(post("a"));
  EXPECT_TRUE(other.post(letter("b")));
  EXPECT_TRUE(copy.post(letter("c")));
  EXPECT_TRUE(loop.activity->post(letter("d")));
  EXPECT_EQ(turn(), "abcd");
}

TEST_F(PosterTest, turn_countsTheFunctionsItRan) {
  post("a");
  post("b");
  alarm->timeMinIs(0.0);
  EXPECT_EQ(loop.turn(), 3u);
  EXPECT_EQ(loop.turn(), 0u);
}

TEST_F(PosterTest, turn_runsFunctionsBeforeItDeliversWakeUps) {
  alarm->reaction = letter("w");
  alarm->timeMinIs(0.0);
  post("p");
  EXPECT_EQ(turn(), "pw");
}

TEST_F(PosterTest, turn_runsSixtyFourAtMostAndTheOthersLater) {
  constexpr U32 most = Poster::functionsPerTurn;
  EXPECT_EQ(most, 64u);
  for (U32 i = 0; i < 2 * most + 3; ++i) ASSERT_TRUE(post("x"));
  EXPECT_THAT(turn(), SizeIs(most));
  EXPECT_EQ(loop.activity->wakeTime(), loop.clock->time());
  EXPECT_TRUE(becomesReadable(*loop.activity));
  EXPECT_THAT(turn(), SizeIs(most));
  EXPECT_THAT(turn(), SizeIs(3));
  EXPECT_EQ(loop.activity->wakeTime(), never);
  EXPECT_FALSE(isReadable(*loop.activity));
}

TEST_F(PosterTest, post_byAFunctionWaitsForTheNextTurn) {
  poster.post([this] {
    log += "a";
    post("b");
  });
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(turn(), "b");
}

TEST_F(PosterTest, post_byAWakeUpWaitsForTheNextTurn) {
  alarm->reaction = [this] { post("b"); };
  alarm->timeMinIs(0.0);
  EXPECT_EQ(turn(), "");
  EXPECT_TRUE(becomesReadable(*loop.activity));
  EXPECT_EQ(turn(), "b");
}

TEST_F(PosterTest, turn_readsTheOwnClockInAFunction) {
  Zint::Seconds time = -1;
  poster.post([&time] { time = Zint::now(); });
  loop.turnAt(7.0);
  EXPECT_EQ(time, 7.0);
}

TEST_F(PosterTest, post_isRefusedWhenFullAndLeavesTheFunction) {
  const auto activity = Zint::activityFactory("small", Ptr<const Zint::Clock>(loop.clock));
  const Poster small = activity->poster(4);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(small.post(letter("x")));
  std::function<void()> fifth = letter("y");
  EXPECT_FALSE(small.post(std::move(fifth)));
  EXPECT_TRUE(small.isOpen());
  ASSERT_TRUE(fifth);  // NOLINT(bugprone-use-after-move): refused, so not moved
  activity->turn();
  EXPECT_EQ(log, "xxxx");
  EXPECT_TRUE(small.post(std::move(fifth)));
  EXPECT_FALSE(fifth);  // NOLINT(bugprone-use-after-move): taken
  activity->turn();
  EXPECT_EQ(log, "xxxxy");
}

TEST_F(PosterTest, post_goesRoundTheRingManyTimes) {
  for (const U32 capacity : {1u, 2u, 3u, 8u}) {
    const auto one = Zint::activityFactory("small", Ptr<const Zint::Clock>(loop.clock));
    const Poster small = one->poster(capacity);
    U32 posted = 0, ran = 0;
    for (U32 round = 0; round < 100; ++round) {
      while (small.post([&ran, posted] { EXPECT_EQ(ran++, posted); })) ++posted;
      one->turn();
      ASSERT_EQ(ran, posted);
    }
    EXPECT_EQ(ran, 100 * std::max(2u, capacity == 3 ? 4u : capacity));
  }
}

TEST_F(PosterTest, poster_hasRoomForTheCapacityOfTheFirstCall) {
  U32 taken = 0;
  loop.activity->poster(2);
  while (post("x")) ++taken;
  EXPECT_EQ(taken, Poster::defaultCapacity);
}

TEST_F(PosterTest, poster_refusesACapacityOutOfRange) {
  const auto activity = Zint::activityFactory("other", Ptr<const Zint::Clock>(loop.clock));
  for (const U32 capacity : {0u, Poster::maxCapacity + 1, ~0u}) {
    try {
      activity->poster(capacity);
      ADD_FAILURE() << capacity;
    } catch (const Zint::RangeException& exception) {
      EXPECT_STREQ(exception.what(), "the capacity of a poster is 1 to 65536");
    }
  }
  EXPECT_TRUE(activity->poster(Poster::maxCapacity).isOpen());
}

TEST_F(PosterTest, post_refusesAnEmptyFunctionByAnException) {
  for (const Poster& one : {poster, Poster()}) {
    try {
      one.post(nullptr);
      ADD_FAILURE();
    } catch (const Zint::RangeException& exception) {
      EXPECT_STREQ(exception.what(), "an empty function cannot be posted");
    }
  }
  EXPECT_EQ(loop.turn(), 0u);
}

TEST_F(PosterTest, ofNoActivityRefusesEverything) {
  const Poster none;
  EXPECT_FALSE(none.isOpen());
  EXPECT_FALSE(none.post(letter("x")));
}

TEST_F(PosterTest, turn_whatAFunctionThrowsIsTracedAndTheOthersRun) {
  const Support::TraceCapture trace;
  poster.post([] { throw std::runtime_error("broken"); });
  poster.post([] { throw 7; });
  post("b");
  EXPECT_EQ(turn(), "b");
  ASSERT_THAT(trace.full, SizeIs(2));
  EXPECT_EQ(trace.full[0].handle, "Zint");
  EXPECT_EQ(trace.full[0].level, 0u);
  EXPECT_EQ(trace.full[0].text, "exception in a posted function: broken");
  EXPECT_EQ(trace.full[1].text, "exception in a posted function: an exception of another kind");
}

TEST_F(PosterTest, turn_inAFunctionIsFatal) {
  poster.post([this] { loop.turn(); });
  EXPECT_DEATH(loop.turn(), "!activity_->isTurning_");
}

TEST_F(PosterTest, turn_destroysAFunctionOnceItHasRun) {
  poster.post([this, token = std::make_shared<Token>([this] { log += "~"; })] { log += "a"; });
  post("b");
  EXPECT_EQ(turn(), "a~b");
}

TEST_F(PosterTest, turn_ofFunctionsAllocatesNothing) {
  U32 ran = 0;
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(poster.post([&ran] { ++ran; }));
  alarm->timeMinIs(1e9);
  Runtime::Heap::Limit noMore(0);
  loop.turn();
  loop.turn();
  noMore.end();
  EXPECT_EQ(ran, 100u);
}

TEST_F(PosterTest, turn_ofAThreadThatEndsInAFunctionLeavesTheOthersWaiting) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizers object to what g++ binds a catch of forced unwinding to";
#endif
  struct Story {
    std::string log;
    bool isWoken = false;
  } story;
  const auto body = [](void* argument) -> void* {
    auto* s = static_cast<Story*>(argument);
    struct LaterTurn {
      ~LaterTurn() {
        s->isWoken = becomesReadable(*loop.activity);
        loop.turn();
      }
      Story* s;
      Support::ManualLoop loop;
    } const later{s, {}};
    later.loop.activity->post([] { pthread_exit(nullptr); });
    later.loop.activity->post([s] { s->log += "b"; });
    later.loop.activity->turn();
    s->log += "came back";
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, body, &story), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_TRUE(story.isWoken);
  EXPECT_EQ(story.log, "b");
}

// --- The end ---

TEST_F(PosterTest, theEndDestroysWhatIsLeftUncalledAndRefusesTheRest) {
  auto activity = Zint::activityFactory("brief", Ptr<const Zint::Clock>(loop.clock));
  const Poster brief = activity->poster();
  for (const char* name : {"1", "2"}) {
    brief.post([this, token = std::make_shared<Token>([this, name] { log += name; })] {
      log += "called";
    });
  }
  EXPECT_TRUE(brief.isOpen());
  activity = loop.activity;
  EXPECT_EQ(log, "12");
  EXPECT_FALSE(brief.isOpen());
  std::function<void()> late = letter("late");
  EXPECT_FALSE(brief.post(std::move(late)));
  EXPECT_TRUE(late);  // NOLINT(bugprone-use-after-move): refused, so not moved
}

TEST_F(PosterTest, theEndRefusesWhatADestroyedFunctionPosts) {
  auto activity = Zint::activityFactory("brief", Ptr<const Zint::Clock>(loop.clock));
  const Poster brief = activity->poster();
  bool taken = true;
  brief.post([token = std::make_shared<Token>([&] { taken = brief.post(letter("x")); })] {});
  activity = loop.activity;
  EXPECT_FALSE(taken);
}

TEST_F(PosterTest, theEndMayComeInAFunction) {
  auto activity = Zint::activityFactory("brief", Ptr<const Zint::Clock>(loop.clock));
  Ptr<Zint::ActivityConfig> held(activity);
  activity = loop.activity;
  const Poster brief = held->poster();
  brief.post([&] {
    held = nullptr;
    log += "a";
  });
  brief.post(letter("b"));
  held->turn();
  EXPECT_EQ(log, "ab") << "the turn under way is completed";
  EXPECT_FALSE(brief.isOpen());
}

// A handle that is posted to itself keeps nothing alive.
TEST_F(PosterTest, theEndReleasesAFunctionThatHoldsItsOwnPoster) {
  auto activity = Zint::activityFactory("brief", Ptr<const Zint::Clock>(loop.clock));
  const Poster brief = activity->poster();
  const auto token = std::make_shared<int>(1);
  brief.post([brief, token] {});
  activity = loop.activity;
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(PosterTest, theEndClosesTheDescriptorWhileHandlesAreHeld) {
  auto activity = Zint::activityFactory("brief", Ptr<const Zint::Clock>(loop.clock));
  const Poster brief = activity->poster();
  brief.post(letter("x"));
  const int descriptor = activity->descriptor();
  EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
  activity = loop.activity;
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

// --- Waking ---

TEST_F(PosterTest, wakeTime_isDueWhileAFunctionWaits) {
  alarm->timeMinIs(9.0);
  loop.clock->timeIs(3.0);
  EXPECT_EQ(loop.activity->wakeTime(), 9.0);
  post("a");
  EXPECT_EQ(loop.activity->wakeTime(), 3.0);
  alarm->timeMinIs(2.0);
  EXPECT_EQ(loop.activity->wakeTime(), 2.0);
  alarm->timeMinIs(9.0);
  loop.turn();
  EXPECT_EQ(loop.activity->wakeTime(), 9.0);
}

TEST_F(PosterTest, descriptor_isReadableWhileAFunctionWaits) {
  EXPECT_FALSE(isReadable(*loop.activity));
  post("a");
  EXPECT_TRUE(becomesReadable(*loop.activity));
  alarm->timeMinIs(5.0);  // sets the timer anew
  alarm->timeMinIs(never);
  EXPECT_TRUE(becomesReadable(*loop.activity));
  loop.turn();
  EXPECT_FALSE(isReadable(*loop.activity));
}

TEST_F(PosterTest, descriptor_staysTheSameWhenAPosterIsMade) {
  const auto activity = Zint::activityFactory("other", Ptr<const Zint::Clock>(loop.clock));
  const int descriptor = activity->descriptor();
  const Poster other = activity->poster();
  EXPECT_EQ(activity->descriptor(), descriptor);
  EXPECT_TRUE(other.post(letter("a")));
  EXPECT_TRUE(becomesReadable(*activity));
}

TEST_F(PosterTest, poster_madeWhileAWakeUpIsDueLeavesTheDescriptorReadable) {
  const auto activity = Zint::activityFactory("other", Ptr<const Zint::Clock>(loop.clock));
  const auto due = makePtr<Alarm>(activity, loop.clock);
  due->timeMinIs(0.0);
  activity->poster();
  EXPECT_TRUE(becomesReadable(*activity));
}

// On the system's clock: the timer is set for a wake-up far away, before and after.
TEST_F(PosterTest, descriptor_isReadableBesideATimerThatIsFarAway) {
  const Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("real", Ptr<const Zint::Clock>(clock));
  const auto far = makePtr<Alarm>(activity, Ptr<const Zint::Clock>(clock));
  const Poster real = activity->poster();
  for (int round = 0; round < 10; ++round) {
    far->timeMinIs(clock->time() + 3600 + round);
    EXPECT_FALSE(isReadable(*activity));
    real.post(letter("a"));
    far->timeMinIs(clock->time() + 1800);
    EXPECT_TRUE(becomesReadable(*activity));
    EXPECT_EQ(activity->turn(), 1u);
    EXPECT_FALSE(isReadable(*activity));
  }
}

// --- Runs ---

TEST_F(PosterTest, run_onAManualClockRunsWhatIsPostedAndReturns) {
  poster.post([this] { post("b"); });
  post("a");
  loop.activity->run();
  EXPECT_EQ(log, "ab");
}

TEST_F(PosterTest, runUntil_onAManualClockRunsAllThatIsPostedBeforeItReturns) {
  alarm->reaction = [this] {
    for (int i = 0; i < 200; ++i) post("x");
    poster.post([this] { post("y"); });
  };
  alarm->timeMinIs(5.0);
  loop.activity->runUntil(5.0);
  EXPECT_EQ(log, std::string(200, 'x') + "y");
  EXPECT_EQ(loop.clock->time(), 5.0);
}

TEST_F(PosterTest, run_aFunctionComesBeforeTheClockIsMovedOn) {
  Zint::Seconds time = -1;
  alarm->timeMinIs(5.0);
  poster.post([&] { time = loop.clock->time(); });
  loop.activity->run();
  EXPECT_EQ(time, 0.0);
}

TEST_F(PosterTest, runUntil_onTheSystemsClockRunsWhatWasPostedBeforeTheTimeWasReached) {
  const Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("real", Ptr<const Zint::Clock>(clock));
  const Poster real = activity->poster();
  U32 runs = 0;
  std::function<void()> again = [&] {
    ++runs;
    real.post(std::function<void()>(again));
  };
  for (int i = 0; i < 200; ++i) real.post(letter("x"));
  real.post(std::function<void()>(again));
  activity->runUntil(clock->time());
  EXPECT_THAT(log, SizeIs(200));
  EXPECT_GT(runs, 0u);
}

TEST_F(PosterTest, run_isEndedByAFunctionThatStopsIt) {
  const Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("real", Ptr<const Zint::Clock>(clock));
  activity->post([this, &activity] {
    log += "a";
    activity->stop();
  });
  activity->run();
  EXPECT_EQ(log, "a");
}

// A clock whose reading fails: the turn did not begin.
TEST_F(PosterTest, turn_thatDoesNotBeginLeavesTheFunctionWaiting) {
  struct Broken : Zint::Clock {
    using Clock::Clock;
    Zint::Seconds timeRead() const override {
      if (isBroken) throw std::runtime_error("no time");
      return 0;
    }
    bool isBroken = false;
  };
  const auto clock = makePtr<Broken>("broken");
  const auto activity = Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  activity->post(letter("a"));
  clock->isBroken = true;
  EXPECT_THROW(activity->turn(), std::runtime_error);
  clock->isBroken = false;
  EXPECT_TRUE(becomesReadable(*activity));
  EXPECT_EQ(activity->turn(), 1u);
  EXPECT_EQ(log, "a");
}

}  // namespace
