// The rules of the alarm board, one by one.
#include "AlarmBoardTest.h"

#include <Zint/GenericIf.h>
#include <Zint/ObjectText.h>

#include <cmath>

#include "RefusedMemory.h"

namespace {

using Support::BoardObserver;
constexpr double justAfter = 1e-9;

class AlarmBoard : public Support::AlarmBoardTest {};

// --- The window ---

TEST_F(AlarmBoard, lastFindingAtExactlyTheWindowsLengthRaises) {
  rule("r", AlarmRule::shadow_, 3, 10);
  find(1, 0);
  find(2, 4);
  EXPECT_EQ(state("r"), "none");
  find(3, 10);
  EXPECT_EQ(state("r"), "raised");
}

TEST_F(AlarmBoard, lastFindingJustBeyondTheWindowDoesNot) {
  rule("r", AlarmRule::shadow_, 3, 10);
  find(1, 0);
  find(2, 4);
  find(3, 10 + justAfter);
  EXPECT_EQ(state("r"), "none");
  find(3, 14);  // those at 4, 10 and 14
  EXPECT_EQ(state("r"), "raised");
}

TEST_F(AlarmBoard, windowSlidesAndDoesNotTumble) {
  rule("r", AlarmRule::shadow_, 4, 10);
  // Two at the end of one interval of 10 s and two at the beginning of the next.
  for (double time : {9.0, 9.5, 10.5, 11.0}) find(1, time);
  EXPECT_EQ(state("r"), "raised");
}

TEST_F(AlarmBoard, findingsOfOneTurnAreSimultaneous) {
  rule("r", AlarmRule::shadow_, 3, 0);
  for (U32 entry = 0; entry < 3; ++entry) find(entry, 5);
  EXPECT_EQ(state("r"), "raised");
}

TEST_F(AlarmBoard, countOfOneIsMetByEachFinding) {
  rule("r", AlarmRule::entry_, 1, 0);
  find(7, 2);
  EXPECT_EQ(state("r/mac/7"), "raised");
}

TEST_F(AlarmBoard, earlierTimeCountsAsTheLatest) {
  rule("r", AlarmRule::shadow_, 2, 1);
  find(1, 100);
  board->findingIs(mac, 1, "chip", 3);
  EXPECT_EQ(state("r"), "raised");
  EXPECT_EQ(board->alarm("r")->lastTime(), 100);
}

// --- What is counted for what ---

TEST_F(AlarmBoard, entriesRegionsAndChipsAreCountedApart) {
  rule("e", AlarmRule::entry_, 2, 10);
  rule("m", AlarmRule::region_, 3, 10);
  rule("c", AlarmRule::chip_, 4, 10);
  rule("s", AlarmRule::shadow_, 5, 10);
  find(1, 0, "left");
  find(2, 1, "right");
  find(3, 2, "left");
  EXPECT_EQ(board->alarmNames(), (std::vector<Zint::String8>{"m/mac"}));
  board->findingIs(vlan, 1, "left", 3);  // its own entry 1
  find(1, 4, "left");
  EXPECT_EQ(board->alarmNames(), (std::vector<Zint::String8>{"c/left", "e/mac/1", "m/mac", "s"}));
  EXPECT_EQ(board->alarm("m/mac")->findings(), 4u);
  EXPECT_EQ(board->alarm("e/mac/1")->subject(), "mac/1");
  EXPECT_EQ(board->alarm("s")->subject(), "");
}

TEST_F(AlarmBoard, findingOfNoChipIsCountedForNone) {
  rule("c", AlarmRule::chip_, 1, 10);
  find(1, 0, "");
  EXPECT_EQ(board->keys(), 0u);
  EXPECT_EQ(board->alarms(), 0u);
}

TEST_F(AlarmBoard, regionThatTookAnothersPlaceGoesOnWithItsWindow) {
  rule("m", AlarmRule::region_, 2, 10);
  find(1, 0);
  mac = region("mac2", 0x1000);
  find(1, 1);
  EXPECT_EQ(state("m/mac2"), "raised");
}

TEST_F(AlarmBoard, secondRegionOfOneNameGetsItsAddressInTheAlarmsName) {
  rule("m", AlarmRule::region_, 1, 10);
  find(1, 0);
  mac = region("mac", 0x3000);
  find(1, 0);
  EXPECT_EQ(board->alarmNames(), (std::vector<Zint::String8>{"m/mac", "m/mac@0x1:00003000"}));
}

TEST_F(AlarmBoard, thirdNameThatIsTakenGetsANumber) {
  rule("m", AlarmRule::chip_, 1, 10);
  rule("m/chip", AlarmRule::shadow_, 1, 10);
  rule("m/chip/x", AlarmRule::shadow_, 1, 10);
  find(1, 0);
  EXPECT_EQ(board->alarmNames(),
            (std::vector<Zint::String8>{"m/chip", "m/chip/x", "m/chip@0x1:00001000"}));
  board->ruleIs(Driver::alarmRuleFactory("m/chip@0x1:00001000", AlarmRule::shadow_, 1, 1, 1));
  find(1, 0);
  EXPECT_NE(board->alarm("m/chip@0x1:00001000@0x1:00001000"), nullptr);
}

TEST_F(AlarmBoard, regionWithoutANameIsShownByItsAddress) {
  rule("e", AlarmRule::entry_, 1, 10);
  mac = region("", 0x1000);
  find(5, 0);
  EXPECT_EQ(state("e/0x1:00001000/5"), "raised");
}

// --- Clearing ---

TEST_F(AlarmBoard, alarmIsClearedByItsOwnWakeUp) {
  rule("r", AlarmRule::shadow_, 2, 10, 5);
  find(1, 0);
  find(1, 4);
  // Met until 10, when the finding at 0 leaves the window.
  EXPECT_EQ(loop.turnAt(15), 0u);
  EXPECT_EQ(state("r"), "raised");
  EXPECT_EQ(loop.turnAt(15 + justAfter), 1u);
  EXPECT_EQ(state("r"), "cleared");
  EXPECT_EQ(board->alarm("r")->clearedTime(), 15);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(AlarmBoard, loopOnAManualClockAdvancesToTheClearing) {
  rule("r", AlarmRule::shadow_, 1, 10, 5);
  find(1, 0);
  loop.activity->run();
  EXPECT_EQ(state("r"), "cleared");
  EXPECT_EQ(loop.clock->time(), std::nextafter(15.0, 16.0));
}

TEST_F(AlarmBoard, findingThatMeetsTheRulePutsTheClearingOff) {
  rule("r", AlarmRule::shadow_, 2, 10, 5);
  for (double time : {0.0, 4.0, 9.0}) find(1, time);  // met until 14
  find(1, 19);                                        // 9 and 19: met until 19
  EXPECT_EQ(state("r"), "raised");
  loop.turnAt(24);
  EXPECT_EQ(state("r"), "raised");
  loop.turnAt(24.5);
  EXPECT_EQ(state("r"), "cleared");
  EXPECT_EQ(board->alarm("r")->raises(), 1u);
}

TEST_F(AlarmBoard, findingThatDoesNotMeetTheRuleDoesNotPutItOff) {
  rule("r", AlarmRule::shadow_, 2, 10, 5);
  for (double time : {0.0, 4.0}) find(1, time);  // met until 10
  find(1, 14.5);
  loop.turnAt(15.5);
  EXPECT_EQ(state("r"), "cleared");
}

TEST_F(AlarmBoard, findingAtTheTimeOfClearingKeepsAnAlarmWhoseRuleItMeets) {
  for (bool turnsFirst : {false, true}) {
    board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
    rule("r", AlarmRule::shadow_, 2, 10, 5);
    const double begin = loop.clock->time();
    find(1, begin);
    find(1, begin + 10);
    find(1, begin + 10);  // both: met until begin + 20
    loop.clock->timeIs(begin + 25);
    if (turnsFirst) loop.turn();
    find(1, begin + 25);
    find(1, begin + 25);
    loop.turn();
    EXPECT_EQ(state("r"), "raised") << turnsFirst;
    EXPECT_EQ(board->alarm("r")->raises(), 1u) << turnsFirst;
  }
}

TEST_F(AlarmBoard, findingAfterTheTimeOfClearingRaisesAnewEvenBeforeTheWakeUp) {
  rule("r", AlarmRule::shadow_, 1, 10, 5);
  find(1, 0);
  const Alarm::Ptr alarm = board->alarm("r");
  find(1, 16);
  EXPECT_EQ(board->alarm("r"), alarm);
  EXPECT_EQ(alarm->raises(), 2u);
  EXPECT_EQ(alarm->clearedTime(), 15);
  EXPECT_EQ(alarm->raisedTime(), 16);
  EXPECT_EQ(alarm->firstTime(), 0);
  EXPECT_EQ(alarm->findings(), 2u);
}

TEST_F(AlarmBoard, alarmsOfOneTimeAreClearedInTheOrderInWhichTheyWereRaised) {
  rule("e", AlarmRule::entry_, 1, 1);
  for (U32 entry : {9, 3, 5}) find(entry, 0);
  const auto observer = Zint::makePtr<BoardObserver>(board);
  loop.turnAt(2);
  EXPECT_EQ(observer->taken(), (Texts{"e/mac/9 cleared", "active 2", "e/mac/3 cleared", "active 1",
                                      "e/mac/5 cleared", "active 0"}));
}

TEST_F(AlarmBoard, switchedOffDoesNotWakeUp) {
  rule("r", AlarmRule::shadow_, 1, 1);
  find(1, 0);
  board->hasNotificationActiveIs(false);
  EXPECT_EQ(loop.turnAt(5), 0u);
  EXPECT_EQ(state("r"), "raised");
  board->hasNotificationActiveIs(true);
  loop.turn();
  EXPECT_EQ(state("r"), "cleared");
}

// --- Acknowledging ---

TEST_F(AlarmBoard, acknowledgedAlarmIsStillActiveAndIsCleared) {
  rule("r", AlarmRule::shadow_, 1, 10);
  find(1, 0);
  loop.clock->timeIs(3);
  EXPECT_TRUE(board->doAcknowledge("r"));
  EXPECT_EQ(state("r"), "acknowledged");
  EXPECT_EQ(board->alarm("r")->acknowledgedTime(), 3);
  EXPECT_EQ(board->activeAlarms(), 1u);
  find(1, 4);
  EXPECT_EQ(state("r"), "acknowledged");
  EXPECT_FALSE(board->doAcknowledge("r"));
  loop.turnAt(20);
  EXPECT_EQ(state("r"), "cleared");
  EXPECT_FALSE(board->doAcknowledge("r"));
}

TEST_F(AlarmBoard, acknowledgeRefusesANameThatThereIsNot) {
  EXPECT_EQ(refusal([&] { board->doAcknowledge("x"); }), "no alarm 'x'");
}

// --- Many at once ---

TEST_F(AlarmBoard, manyDifferencesOfOnePassAreOneAlarmHoweverLongItTakes) {
  rule("many", AlarmRule::manyAtOnce_, 3, 1, 5);
  board->doBeginPass(0);
  for (double time : {0.0, 100.0, 200.0}) find(1, time);
  EXPECT_EQ(board->alarmNames(), (std::vector<Zint::String8>{"many"}));
  loop.turnAt(1000);
  EXPECT_EQ(state("many"), "raised");  // until another pass begins
  board->doBeginPass(1000);
  loop.turnAt(1005);
  EXPECT_EQ(state("many"), "raised");
  loop.turnAt(1006);
  EXPECT_EQ(state("many"), "cleared");
}

TEST_F(AlarmBoard, differencesOfTwoPassesAreNotAddedUp) {
  rule("many", AlarmRule::manyAtOnce_, 3, 1);
  find(1, 0);
  find(2, 10);
  board->doBeginPass(20);
  find(3, 20);
  EXPECT_EQ(state("many"), "none");
  find(4, 21);
  find(5, 21);
  EXPECT_EQ(state("many"), "raised");
}

TEST_F(AlarmBoard, manyWithinTheTimeAreManyAcrossPassesToo) {
  rule("many", AlarmRule::manyAtOnce_, 3, 10);
  find(1, 0);
  find(2, 5);
  board->doBeginPass(6);
  find(3, 10);
  EXPECT_EQ(state("many"), "raised");
}

TEST_F(AlarmBoard, lostChipRaisesManyAtOnceWhateverItsCount) {
  rule("many", AlarmRule::manyAtOnce_, 1000, 10, 5);
  rule("c", AlarmRule::chip_, 4, 10);
  rule("s", AlarmRule::shadow_, 5, 10);
  rule("e", AlarmRule::entry_, 1, 10);
  board->manyAtOnceIs("chip", 4, 0);
  EXPECT_EQ(board->alarmNames(), (std::vector<Zint::String8>{"c/chip", "many"}));
  EXPECT_EQ(board->alarm("many")->findings(), 4u);
  loop.turnAt(15);
  EXPECT_EQ(state("many"), "raised");
  loop.turnAt(16);
  EXPECT_EQ(state("many"), "cleared");
}

TEST_F(AlarmBoard, countOfManyAtOnceMayBeAnyNumber) {
  rule("c", AlarmRule::chip_, 3, 10);
  rule("many", AlarmRule::manyAtOnce_, 65536, 10);
  board->manyAtOnceIs("chip", ~U32{0}, 0);
  board->manyAtOnceIs("chip", ~U32{0}, 0);
  EXPECT_EQ(board->alarm("c/chip")->findings(), 2 * U64{~U32{0}});
  EXPECT_EQ(state("many"), "raised");
}

// --- The bound ---

TEST_F(AlarmBoard, oldestKeyIsDroppedAndCounted) {
  rule("e", AlarmRule::entry_, 2, 10);
  board->maxKeysIs(2);
  find(1, 0);
  find(2, 1);
  find(1, 2);  // raised: its key is not dropped while there are others
  find(3, 3);
  EXPECT_EQ(board->keys(), 2u);
  EXPECT_EQ(board->keysDropped(), 1u);
  find(2, 4);  // its first finding is forgotten
  EXPECT_EQ(state("e/mac/2"), "none");
  EXPECT_EQ(state("e/mac/1"), "raised");
}

TEST_F(AlarmBoard, keyWhoseFindingsAreOutOfItsWindowIsDroppedWithoutBeingCounted) {
  rule("e", AlarmRule::entry_, 2, 10);
  board->maxKeysIs(1);
  find(1, 0);
  find(2, 10);  // 1 might still have counted
  EXPECT_EQ(board->keysDropped(), 1u);
  find(3, 21);
  EXPECT_EQ(board->keysDropped(), 1u);
  EXPECT_EQ(board->keys(), 1u);
}

TEST_F(AlarmBoard, droppedActiveAlarmIsClearedAndLeaves) {
  rule("e", AlarmRule::entry_, 1, 10);
  board->maxKeysIs(2);
  find(1, 0);
  find(2, 1);
  const Alarm::Ptr first = board->alarm("e/mac/1");
  const auto observer = Zint::makePtr<BoardObserver>(board);
  find(3, 2);
  EXPECT_EQ(first->state(), Alarm::cleared_);
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_FALSE(first->doAcknowledge());
  EXPECT_EQ(observer->taken(), (Texts{"e/mac/3 raised", "e/mac/1 left", "dropped"}));
  EXPECT_EQ(board->activeAlarms(), 2u);
}

TEST_F(AlarmBoard, fewerKeysAreDroppedAtOnce) {
  rule("e", AlarmRule::entry_, 2, 10);
  for (U32 entry = 0; entry < 8; ++entry) find(entry, 0);
  board->maxKeysIs(3);
  EXPECT_EQ(board->keys(), 3u);
  EXPECT_EQ(board->keysDropped(), 5u);
  EXPECT_EQ(refusal([&] { board->maxKeysIs(0); }), "an alarm board needs at least one key");
  EXPECT_EQ(board->maxKeys(), 3u);
}

// --- Rules ---

TEST_F(AlarmBoard, replacedRuleBeginsAnewAndItsAlarmsLeave) {
  rule("r", AlarmRule::shadow_, 2, 10);
  find(1, 0);
  find(1, 0);
  const auto observer = Zint::makePtr<BoardObserver>(board);
  const AlarmRule::Ptr other = rule("r", AlarmRule::shadow_, 2, 20);
  EXPECT_EQ(observer->taken(), (Texts{"r left", "active 0", "rule r"}));
  board->ruleIs(other);
  EXPECT_EQ(observer->taken(), Texts{});
  EXPECT_EQ(board->rules(), 1u);
  find(1, 1);
  EXPECT_EQ(state("r"), "none");
  EXPECT_EQ(board->keysDropped(), 0u);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(AlarmBoard, removedRuleIsReturned) {
  const AlarmRule::Ptr made = rule("r", AlarmRule::shadow_, 2, 10);
  EXPECT_EQ(board->ruleDel("x"), nullptr);
  EXPECT_EQ(board->ruleDel("r"), made);
  EXPECT_EQ(board->rule("r"), nullptr);
  rule("a", AlarmRule::entry_, 1, 1);
  rule("b", AlarmRule::chip_, 1, 1);
  find(1, 0);
  board->ruleDelAll();
  EXPECT_EQ(board->rules() + board->alarms() + board->keys() + board->activeAlarms(), 0u);
}

// --- Refusals ---

TEST_F(AlarmBoard, refusesWhatItCannotUse) {
  const char* const noTime = "the time of a finding must be finite";
  EXPECT_EQ(refusal([&] { board->findingIs(nullptr, 0, "", 0); }),
            "null _region parameter to mutator for Driver::AlarmBoard::finding not allowed\"");
  EXPECT_EQ(refusal([&] { board->findingIs(mac, 0, "", NAN); }), noTime);
  EXPECT_EQ(refusal([&] { board->findingIs(mac, 0, "", Zint::never); }), noTime);
  EXPECT_EQ(refusal([&] { board->manyAtOnceIs("", 1, NAN); }), noTime);
  EXPECT_EQ(refusal([&] { board->manyAtOnceIs("", 0, 0); }), "no differences are not many at once");
  EXPECT_EQ(refusal([&] { board->doBeginPass(NAN); }), noTime);
  EXPECT_EQ(refusal([&] { board->ruleIs(nullptr); }),
            "null _rule parameter to mutator for Driver::AlarmBoard::rule not allowed\"");
  EXPECT_EQ(refusal([&] { Driver::alarmBoardFactory("b", loop.activity, nullptr); }),
            "an alarm board needs a clock");
  EXPECT_EQ(refusal([&] { Driver::alarmBoardFactory("b", nullptr, loop.clock); }),
            "a clock needs an activity that serves it");
}

// --- Observers ---

class AlarmObserver : public Driver::Alarm::NotifieeConst {
 public:
  explicit AlarmObserver(const Driver::Alarm::Ptr& alarm)
      : NotifieeConst(nullptr, Zint::Ptr<const Driver::Alarm>(alarm)) {}
  void onState() override {
    told += stringValue(notifier()->state()).bytes() + " ";
    if (also) also();
  }
  void onFindings() override { told += std::to_string(notifier()->findings()) + " "; }
  std::string told;
  std::function<void()> also;
};

TEST_F(AlarmBoard, alarmTellsItsStatesAndItsFindingsWhileItIsActive) {
  rule("r", AlarmRule::shadow_, 2, 1);
  find(1, 0);
  find(1, 0);
  const auto observer = Zint::makePtr<AlarmObserver>(board->alarm("r"));
  find(1, 0);
  board->doAcknowledge("r");
  loop.turnAt(9);
  find(1, 9);
  find(1, 9);
  EXPECT_EQ(observer->told, "3 acknowledged cleared raised ");
}

TEST_F(AlarmBoard, everythingIsCountedBeforeAnybodyIsNotified) {
  rule("a", AlarmRule::shadow_, 1, 1);
  rule("b", AlarmRule::entry_, 1, 1);
  const auto observer = Zint::makePtr<BoardObserver>(board);
  std::vector<U32> active;
  observer->also = [&] { active.push_back(board->activeAlarms()); };
  find(1, 0);
  EXPECT_EQ(active, (std::vector<U32>{2, 2}));
  EXPECT_EQ(observer->taken(), (Texts{"a raised", "b/mac/1 raised", "active 2"}));
}

TEST_F(AlarmBoard, observerMayAcknowledgeWithinTheNotification) {
  rule("r", AlarmRule::shadow_, 1, 10);
  const auto observer = Zint::makePtr<BoardObserver>(board);
  observer->also = [&] {
    observer->also = nullptr;
    board->doAcknowledge("r");
  };
  find(1, 0);
  EXPECT_EQ(observer->taken(), (Texts{"r raised", "r acknowledged", "active 1"}));
  EXPECT_EQ(state("r"), "acknowledged");
}

TEST_F(AlarmBoard, observerMayDropTheBoardTheRegionAndItself) {
  rule("a", AlarmRule::shadow_, 1, 10);
  rule("b", AlarmRule::region_, 1, 10);
  Zint::Ptr<BoardObserver> observer = Zint::makePtr<BoardObserver>(board);
  Alarm::Ptr kept;
  observer->also = [&] {
    kept = board->alarm("a");
    mac = nullptr;
    board = nullptr;
    observer = nullptr;
  };
  const Zint::Ptr<BoardObserver> second = Zint::makePtr<BoardObserver>(board);
  second->isNonReferencingIs(true);
  board->findingIs(mac, 1, "chip", 0);
  EXPECT_EQ(board, nullptr);
  EXPECT_EQ(second->notifier(), nullptr);
  EXPECT_EQ(kept->state(), Alarm::cleared_);
  EXPECT_FALSE(kept->doAcknowledge());
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(AlarmBoard, observerMayDropTheBoardWithinItsWakeUp) {
  rule("e", AlarmRule::entry_, 1, 10);
  find(1, 0);
  find(2, 0);
  Zint::Ptr<BoardObserver> observer = Zint::makePtr<BoardObserver>(board);
  observer->isNonReferencingIs(true);
  observer->also = [&] { board = nullptr; };
  loop.turnAt(100);
  EXPECT_EQ(observer->taken(),
            (Texts{"e/mac/1 cleared", "active 1", "e/mac/2 cleared", "active 0"}));
  EXPECT_EQ(board, nullptr);
}

TEST_F(AlarmBoard, observerMayRemoveTheRuleWhoseAlarmIsTold) {
  rule("a", AlarmRule::entry_, 1, 10);
  rule("b", AlarmRule::entry_, 1, 10);
  const auto observer = Zint::makePtr<BoardObserver>(board);
  observer->also = [&] {
    observer->also = nullptr;
    board->ruleDelAll();
  };
  find(1, 0);
  EXPECT_EQ(board->alarms(), 0u);
  EXPECT_EQ(board->activeAlarms(), 0u);
  EXPECT_EQ(observer->taken(),
            (Texts{"a/mac/1 raised", "a/mac/1 left", "active 1", "rule a", "b/mac/1 left",
                   "active 0", "rule b", "b/mac/1 left", "active 0"}));
}

TEST_F(AlarmBoard, observerMayTellAFindingWithinTheClearing) {
  rule("r", AlarmRule::entry_, 1, 10);
  find(1, 0);
  const auto observer = Zint::makePtr<BoardObserver>(board);
  observer->also = [&] {
    observer->also = nullptr;
    board->findingIs(mac, 1, "chip", loop.clock->time());
  };
  loop.turnAt(50);
  EXPECT_EQ(state("r/mac/1"), "raised");
  EXPECT_EQ(board->alarm("r/mac/1")->raises(), 2u);
  loop.turnAt(61);
  EXPECT_EQ(state("r/mac/1"), "cleared");
}

TEST_F(AlarmBoard, exceptionOfAnObserverStopsNobody) {
  rule("a", AlarmRule::entry_, 1, 10);
  rule("b", AlarmRule::entry_, 1, 10);
  const auto thrower = Zint::makePtr<BoardObserver>(board);
  thrower->also = [] { throw 1; };
  const auto observer = Zint::makePtr<BoardObserver>(board);
  find(1, 0);
  EXPECT_EQ(observer->taken(), (Texts{"a/mac/1 raised", "b/mac/1 raised", "active 2"}));
  loop.turnAt(20);
  EXPECT_EQ(observer->taken(),
            (Texts{"a/mac/1 cleared", "active 1", "b/mac/1 cleared", "active 0"}));
}

TEST_F(AlarmBoard, eachStateIsALineOfTrace) {
  rule("r", AlarmRule::shadow_, 2, 10);
  find(1, 0);
  EXPECT_EQ(trace.lines, Texts{});
  find(1, 0);
  loop.turnAt(20);
  EXPECT_EQ(trace.lines,
            (Texts{"alarm r raised after 2 findings", "alarm r cleared after 2 findings"}));
}

// --- Memory ---

TEST_F(AlarmBoard, findingThatMeetsNoRuleAllocatesNothingOnceItsKeysAreKnown) {
  rule("e", AlarmRule::entry_, 2, 1);
  rule("c", AlarmRule::chip_, 8, 1);
  rule("s", AlarmRule::shadow_, 16, 1);
  const Zint::String8 chip = "a chip whose name is longer than a short string holds";
  U32 second = 0;
  const auto findOnce = [&] {
    second += 2;
    board->findingIs(mac, 1, chip, second);
  };
  for (U32 i = 0; i < 16; ++i) findOnce();
  Support::memoryRefusedAfter(0);
  for (U32 i = 0; i < 1000; ++i) findOnce();
  EXPECT_FALSE(Support::memoryWasRefused());
  EXPECT_EQ(board->alarms(), 0u);
}

TEST_F(AlarmBoard, withoutMemoryAFindingIsCountedForAllRulesOrForNone) {
  rule("e", AlarmRule::entry_, 1, 10);
  rule("m", AlarmRule::region_, 1, 10);
  rule("s", AlarmRule::shadow_, 1, 10);
  U32 refusals = 0;
  Support::withEachBlockRefused([&] { board->findingIs(mac, 1, "chip", 0); },
                                [&] {
                                  ++refusals;
                                  const U64 counted =
                                      board->alarms() == 0 ? 0 : board->alarm("s")->findings();
                                  EXPECT_EQ(board->alarms(), counted == 0 ? 0u : 3u);
                                  EXPECT_EQ(board->keys(), counted == 0 ? 0u : 3u);
                                  EXPECT_EQ(board->activeAlarms(), board->alarms());
                                });
  EXPECT_GT(refusals, 10u);
  EXPECT_EQ(state("e/mac/1"), "raised");
  loop.turnAt(11);
  EXPECT_EQ(board->activeAlarms(), 0u);
}

// --- By name ---

TEST_F(AlarmBoard, isWorkedByName) {
  Zint::GenericIf_ byName{Zint::Ptr<Zint::PtrInterface>(board)};
  byName.list("rule").insert({{"name", "'r'"},
                              {"scope", "'entry'"},
                              {"count", "2"},
                              {"within", "10"},
                              {"clearAfter", "60"}});
  const Zint::String8 regionText = Zint::valueToStrep(Zint::Ptr<Zint::PtrInterface>(mac));
  for (int i = 0; i < 2; ++i) {
    byName.call("findingIs",
                {{"region", regionText}, {"entry", "5"}, {"chip", "'c'"}, {"time", "1.5"}});
  }
  EXPECT_EQ(byName.list("alarm").size(), 1u);
  const auto alarm = Zint::GenericIf_::of(byName.list("alarm").find("'r/mac/5'"));
  EXPECT_EQ(alarm.attribute("state"), "'raised'");
  EXPECT_EQ(alarm.attribute("raisedTime"), "1.5");
  EXPECT_EQ(byName.call("doAcknowledge", {{"name", "'r/mac/5'"}}).text, "true");
  EXPECT_EQ(alarm.attribute("state"), "'acknowledged'");
  byName.list("rule").del("'r'");
  EXPECT_EQ(byName.attribute("activeAlarms"), "0");
}

}  // namespace
