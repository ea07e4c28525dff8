// Texts that end early, values set to what they are, observers and clocks that leave out what they
// may: the rarer half of each rule.
#include <Zint/Activity.h>
#include <Zint/GenericIf.h>
#include <Zint/LinkQueue.h>
#include <Zint/ObjectText.h>
#include <Zint/Reflect.h>
#include <Zint/Request.h>
#include <Zint/Trace.h>
#include <gmock/gmock.h>
#include <support/ManualLoop.h>
#include <support/Sanitizers.h>
#include <sys/resource.h>

#include <system_error>
#include <thread>

#include "runtime/Probes.h"

namespace {

using Probes::Alarm;
using Probes::rangeMessage;
using Probes::Thing;
using Probes::Watch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::Ptr;
using Zint::String8;

// --- Texts --------------------------------------------------------------------------------------

// The value at the beginning of the text, and how much of it was read.
template <class T>
std::pair<T, std::size_t> beginning(const String8& text) {
  T value{};
  auto pos = text.begin();
  Zint::sequenceToValue(pos, text.end(), value);
  return {value, static_cast<std::size_t>(pos - text.begin())};
}

TEST(UnusualText, anXIsReadOnlyBeforeAHexadecimalDigit) {
  EXPECT_EQ(beginning<S64>("0xFf"), std::pair(S64{255}, std::size_t{4}));
  for (const char* text : {"0xg", "0xG", "0x/", "0x:", "0x@", "0x`", "0x", "0y1", "1x1"}) {
    EXPECT_EQ(beginning<S64>(text).second, 1u) << text;
  }
}

TEST(UnusualText, anEscapedXIsAByteOnlyBeforeTwoDigits) {
  EXPECT_EQ(beginning<String8>("'\\xA1'").first, "\xA1");
  EXPECT_EQ(beginning<String8>("'\\xG1'").first, "xG1");
  EXPECT_EQ(beginning<String8>("'\\x1G'").first, "x1G");
  EXPECT_EQ(beginning<String8>("'\\x'").first, "x");
}

TEST(UnusualText, bytesEndAtTheFirstPairThatIsNone) {
  EXPECT_THAT(beginning<Zint::Bytes>("12g4").first.bytes, ElementsAre(0x12));
  EXPECT_THAT(beginning<Zint::Bytes>("123g").first.bytes, ElementsAre(0x12));
  EXPECT_THAT(beginning<Zint::Bytes>("123").first.bytes, ElementsAre(0x12));
}

TEST(UnusualText, aQueuesBookkeepingNeedsItsColon) {
  using Metadata = Zint::LinkQueueMetadata<U32>;
  EXPECT_EQ(beginning<Metadata>("3:5").first, (Metadata{3, 5}));
  for (const char* text : {"3", "3;5"}) {
    EXPECT_THAT(rangeMessage([&] { beginning<Metadata>(text); }), HasSubstr("head:next"));
  }
}

TEST(UnusualText, anObjectNeedsItsMark) {
  for (const char* text : {"lamp", "lamp #1", "'lamp'", ""}) {
    EXPECT_THAT(rangeMessage([&] { beginning<Ptr<Thing>>(text); }), HasSubstr("an object expected"))
        << text;
  }
  const Ptr<Thing> thing = makePtr<Thing>("lamp");
  const std::string text = Zint::objectText(thing.ptr()).bytes();
  const String8 wrong = "'bulb'" + text.substr(text.rfind('#'));
  EXPECT_THAT(rangeMessage([&] { beginning<Ptr<Thing>>(wrong); }), HasSubstr("no living object"));
}

TEST(UnusualText, anObjectMayEndOnAThreadThatGaveItNoNumber) {
  Ptr<Thing> thing = makePtr<Thing>("lamp");
  Zint::objectText(thing.ptr());
  std::thread([&thing] { thing = nullptr; }).join();
  EXPECT_EQ(thing, nullptr);
}

TEST(UnusualText, aCastOfNothingIsNothing) {
  EXPECT_EQ(Zint::ptrCast<Thing>(Ptr<Zint::Entity>()), nullptr);
}

TEST(UnusualText, anUnsignedNumberIsNeverNegative) {
  for (const char* text : {"-1", "4294967296", "18446744073709551615"}) {
    EXPECT_THAT(rangeMessage([&] { beginning<U32>(text); }), HasSubstr("out of range")) << text;
  }
  EXPECT_THAT(rangeMessage([] { beginning<U64>("-1"); }), HasSubstr("out of range"));
  EXPECT_THAT(rangeMessage([] { beginning<S32>("18446744073709551615"); }),
              HasSubstr("out of range"));
}

// --- Calls by name ------------------------------------------------------------------------------

TEST(UnusualCall, whatIsNamedLikeAnOperationOfACollectionIsNoneWithoutACollection) {
  Zint::GenericIf_ thing(makePtr<Thing>("lamp"));
  EXPECT_THAT(rangeMessage([&] { thing.call("nameDel", {}); }), HasSubstr("unknown member"));
  EXPECT_THAT(rangeMessage([&] { thing.call("filamentDel", {}); }), HasSubstr("unknown member"));
}

struct Eight : Zint::Entity {
  using Entity::Entity;
  const Zint::Type* fwkType() const override;
  U32 sum(U32 a, U32 b, U32 c, U32 d, U32 e, U32 f, U32 g, U32 h) const {
    return a + b + c + d + e + f + g + h;
  }
};
constexpr Zint::Member eightMembers[] = {
    Zint::operation<&Eight::sum>("sum", "a", "b", "c", "d", "e", "f", "g", "?h")};
constinit const Zint::Type eightType{"Unusual::Eight", "entity", nullptr, eightMembers};
const Zint::Type* Eight::fwkType() const { return &eightType; }

TEST(UnusualCall, anOperationMayHaveEightArguments) {
  Zint::GenericIf_ eight(makePtr<Eight>("eight"));
  Zint::Arguments arguments = {{"a", "1"}, {"b", "1"}, {"c", "1"}, {"d", "1"},
                               {"e", "1"}, {"f", "1"}, {"g", "1"}};
  EXPECT_EQ(eight.call("sum", arguments).text, "7");
  arguments.emplace_back("h", "2");
  EXPECT_EQ(eight.call("sum", arguments).text, "9");
  arguments.emplace_back("i", "3");
  EXPECT_THAT(rangeMessage([&] { eight.call("sum", arguments); }), HasSubstr("i=3"));
}

// --- Observers ----------------------------------------------------------------------------------

TEST(UnusualObserver, anEntitysObserverIgnoresOtherAttributes) {
  const Ptr<Thing> thing = makePtr<Thing>("lamp");
  const auto bare = makePtr<Zint::Entity::NotifieeConst>(nullptr, thing);
  thing->notify(Zint::Entity::Id::name);
  EXPECT_EQ(bare->attribute(), 0u);
}

TEST(UnusualObserver, whatIsSetAlreadyIsLeftAlone) {
  Support::ManualLoop loop;
  const auto alarm = makePtr<Alarm>(loop.activity, loop.clock);
  alarm->timeMinIs(1);
  alarm->hasNotificationActiveIs(true);
  alarm->zintFwkActivityIs(loop.activity);
  alarm->isNonReferencingIs(false);
  loop.turnAt(1);
  EXPECT_THAT(alarm->fired, ElementsAre(1));

  const Ptr<Thing> thing = makePtr<Thing>("lamp");
  const auto watch = makePtr<Watch>(nullptr, thing);
  watch->hasNotificationActiveIs(true);
  thing->notify(7);
  EXPECT_THAT(watch->told, ElementsAre(7u));
}

TEST(UnusualObserver, oneWithoutReferenceStaysInTheListWhileSwitchedOff) {
  const Ptr<Thing> thing = makePtr<Thing>("lamp"), other = makePtr<Thing>("other");
  const auto watch = makePtr<Watch>(nullptr, thing);
  watch->isNonReferencingIs(true);
  watch->hasNotificationActiveIs(false);
  EXPECT_TRUE(watch->isRegisteredNotifiee());
  watch->notifierIs(other);
  EXPECT_TRUE(watch->isRegisteredNotifiee());
  other->notify(7);
  EXPECT_THAT(watch->told, IsEmpty());
  watch->hasNotificationActiveIs(true);
  other->notify(8);
  EXPECT_THAT(watch->told, ElementsAre(8u));
}

TEST(UnusualObserver, anAlarmWithoutAnActivityMayBeGivenOne) {
  Support::ManualLoop loop;
  const auto alarm = makePtr<Alarm>(nullptr, nullptr);
  alarm->zintFwkActivityIs(loop.activity);
  alarm->notifierIs(loop.clock);
  alarm->timeMinIs(1);
  loop.turnAt(1);
  EXPECT_THAT(alarm->fired, ElementsAre(1));
}

TEST(UnusualObserver, aWakeUpMayPassUnheard) {
  Support::ManualLoop loop;
  const auto bare = makePtr<Zint::Clock::NotifieeConst>(loop.activity, loop.clock);
  bare->timeMinIs(1);
  EXPECT_EQ(loop.turnAt(1), 1u);
  EXPECT_FALSE(bare->isArmed());
}

TEST(UnusualObserver, zeroReferencesIsEndsOnlyWhatHasNone) {
  bool alive = false;
  const Ptr<Thing> thing = makePtr<Thing>("lamp", &alive);
  thing->zeroReferencesIs(false);
  EXPECT_TRUE(alive);
  EXPECT_TRUE(thing->isNondestructing());
}

// --- Clocks and activities ----------------------------------------------------------------------

// Moves on by itself, one second with each look at it.
class SteppingClock : public Zint::Clock {
 public:
  using Clock::Clock;
  mutable U32 looks = 0;
  mutable std::function<void()> onLook;

 protected:
  Zint::Seconds timeRead() const override {
    ++looks;
    if (onLook) onLook();
    return looks;
  }
  bool isManual() const override { return manual; }

 public:
  bool manual = true;
};

TEST(UnusualClock, oneThatStepsByItselfNeedsNoMoving) {
  const auto clock = makePtr<SteppingClock>("steps");
  const auto activity = Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  activity->runUntil(5);
  EXPECT_EQ(clock->looks, 5u);
}

TEST(UnusualClock, aStopWhileTheWaitIsPreparedEndsIt) {
  const auto clock = makePtr<SteppingClock>("steps");
  clock->manual = false;
  const auto activity = Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  const auto alarm = makePtr<Alarm>(activity, Ptr<const Zint::Clock>(clock));
  alarm->timeMinIs(1e9);
  activity->descriptor();
  U32 looks = 0;
  // The first look begins the turn; the second one is for the timer of the wait.
  clock->onLook = [&] {
    if (++looks > 1) activity->stop();
  };
  activity->run();
  EXPECT_GT(looks, 1u);
}

TEST(UnusualClock, aTurnInsideAnotherActivitysTurnSeesTheSameTurnTime) {
  const auto clock = makePtr<SteppingClock>("steps");
  const Ptr<const Zint::Clock> shared(clock);
  const auto outer = Zint::activityFactory("outer", shared);
  const auto inner = Zint::activityFactory("inner", shared);
  const auto outside = makePtr<Alarm>(outer, shared), inside = makePtr<Alarm>(inner, shared);
  outside->timeMinIs(0.0);
  inside->timeMinIs(0.0);
  Zint::Seconds within = 0;
  inside->reaction = [&] { within = Zint::turnTime(); };
  outside->reaction = [&] {
    inner->turn();
    EXPECT_EQ(within, Zint::turnTime());
  };
  outer->turn();
  EXPECT_EQ(inside->fired.size(), 1u);
}

TEST(UnusualClock, anActivityMayEndOnAThreadThatDidNotMakeIt) {
  Support::ManualLoop older, younger;
  const Zint::Clock* clock = younger.activity->clock();
  Ptr<Zint::ActivityConfig> made;
  std::thread([&] {
    made = Zint::activityFactory("elsewhere", Ptr<const Zint::Clock>(older.clock));
  }).join();
  made = nullptr;
  older.activity = nullptr;
  EXPECT_EQ(Zint::ActivityConfig::threadClock(), clock);
}

TEST(UnusualClock, withoutFilesThereIsNoDescriptor) {
  if (Support::addressesAreSanitized()) {
    GTEST_SKIP() << "the sanitizer opens files itself while an exception is on its way";
  }
  Support::ManualLoop loop;
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_THROW(loop.activity->descriptor(), std::system_error);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_GE(loop.activity->descriptor(), 0);
}

TEST(UnusualObserver, switchedOnTwiceAWakeUpComesOnce) {
  Support::ManualLoop loop;
  const auto alarm = makePtr<Alarm>(loop.activity, Ptr<const Zint::Clock>(loop.clock));
  alarm->timeMinIs(1.0);
  alarm->hasNotificationActiveIs(true);
  loop.turnAt(2.0);
  loop.turnAt(3.0);
  EXPECT_THAT(alarm->fired, ElementsAre(2.0));
}

TEST(UnusualObserver, toldTwiceToCountItsNotifierCountsItOnce) {
  const Ptr<Zint::Request> request = makePtr<Zint::Request>("request");
  const auto watch = makePtr<Watch>(nullptr, request);
  const std::size_t counted = request->references();
  watch->isNonReferencingIs(false);
  EXPECT_EQ(request->references(), counted);
  watch->isNonReferencingIs(true);
  watch->isNonReferencingIs(true);
  EXPECT_EQ(request->references(), counted - 1);
}

// It has left the list before its destructor runs.
TEST(UnusualObserver, whatItsDestructorChangesIsNotToldToIt) {
  struct Last : Zint::NotifieeConst {
    Last(const Ptr<Zint::Request>& watched, int& calls)
        : NotifieeConst(nullptr, watched), request(watched), told(calls) {}
    ~Last() override { request->statusIs(Zint::Request::done_); }
    void handleNotification(Zint::ActivityConfig*) override { ++told; }
    const Ptr<Zint::Request> request;
    int& told;
  };
  const Ptr<Zint::Request> request = makePtr<Zint::Request>("request");
  int told = 0;
  makePtr<Last>(request, told);
  EXPECT_EQ(request->status(), Zint::Request::done_);
  EXPECT_EQ(told, 0);
}

// --- Trace --------------------------------------------------------------------------------------

TEST(UnusualTrace, aHandleBuildsFromTheStartWhatItRecords) {
  const Zint::TraceHandle all("all", true), none("none", false);
  for (const U32 level : {0u, 1u, 5u, 9u}) {
    EXPECT_TRUE(all.isBuilt(level)) << level;
    EXPECT_TRUE(all.level(level)) << level;
    EXPECT_EQ(none.isBuilt(level), level == 0) << level;
    EXPECT_EQ(none.level(level), level == 0) << level;
  }
}

TEST(UnusualTrace, handlesLeaveTheListInAnyOrder) {
  {
    const Zint::TraceHandle older("older", false);
    {
      alignas(Zint::TraceHandle) unsigned char place[sizeof(Zint::TraceHandle)];
      auto* first = new (place) Zint::TraceHandle("first", false);
      const Zint::TraceHandle second("second", false);
      first->~TraceHandle();
      EXPECT_EQ(Zint::TraceHandle::find("first"), nullptr);
      EXPECT_EQ(Zint::TraceHandle::find("second"), &second);
    }
    EXPECT_EQ(Zint::TraceHandle::find("older"), &older);
  }
  EXPECT_EQ(Zint::TraceHandle::find("older"), nullptr);
}

// --- Notifiees ----------------------------------------------------------------------------------

// Keeps its notifier whatever it is told.
struct Stubborn : Zint::NotifieeConst {
  using NotifieeConst::NotifieeConst;
  void notifierIs(const Ptr<const Zint::PtrInterface>&) override {}
};

TEST(UnusualNotifiee, notifierIs_overriddenStillForgetsADestroyedNotifier) {
  Ptr<Zint::Entity> notifier = makePtr<Zint::Entity>("notifier");
  const Ptr<Stubborn> stubborn = makePtr<Stubborn>(nullptr, notifier);
  stubborn->isNonReferencingIs(true);
  notifier = nullptr;
  EXPECT_EQ(stubborn->notifier(), nullptr);
  EXPECT_FALSE(stubborn->isRegisteredNotifiee());
}

}  // namespace
