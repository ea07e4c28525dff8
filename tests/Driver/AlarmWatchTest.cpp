// What an audited shadow finds raises alarms.
#include <Driver/AlarmWatch.h>

#include "PatrolTest.h"

namespace {

using Driver::Alarm;
using Driver::AlarmRule;

struct AlarmWatch : Support::PatrolTest {
  Driver::AlarmBoard::Ptr board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
  Zint::Ptr<Driver::AlarmWatch> alarms = Driver::alarmWatchFactory(loop.activity, shadow, board);
};

TEST_F(AlarmWatch, repairsOfOneEntryRaiseItsAlarm) {
  board->ruleIs(Driver::alarmRuleFactory("often", AlarmRule::entry_, 3, 60, 600));
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  write(mac, 2, 0x11);
  pass();
  for (U32 i = 0; i < 3; ++i) {
    EXPECT_EQ(board->activeAlarms(), 0u);
    set(mac, 2, 0x12);
    pass();
  }
  EXPECT_EQ(board->activeAlarms(), 1u);
  EXPECT_NE(board->alarm("often/mac/2"), nullptr);
}

TEST_F(AlarmWatch, whatIsLearnedCountsNothing) {
  board->ruleIs(Driver::alarmRuleFactory("any", AlarmRule::shadow_, 1, 60, 600));
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  set(mac, 3, 7);
  audit();
  pass();
  EXPECT_EQ(board->activeAlarms(), 0u);
}

TEST_F(AlarmWatch, aResetIsManyAtOnce) {
  board->ruleIs(Driver::alarmRuleFactory("many", AlarmRule::manyAtOnce_, 1000, 60, 600));
  const ChipMemory::Ptr mac = region("mac", 0x1000, 50);
  audit();
  for (U32 e = 0; e < 50; ++e) write(mac, e, e + 1);
  pass();
  pass();
  chip->bytes = {};
  pass();
  EXPECT_EQ(shadow->chip(mac)->resets(), 1u);
  EXPECT_EQ(board->activeAlarms(), 1u);
}

// The shadow's clock is far ahead of the board's.
TEST_F(AlarmWatch, aFindingOfAnotherClockHasTheTimeOfTheBoards) {
  loop.clock->timeIs(1e6);
  const auto own = Zint::manualClockFactory("own");
  board = Driver::alarmBoardFactory("alarms", loop.activity, own);
  board->ruleIs(Driver::alarmRuleFactory("often", AlarmRule::shadow_, 1, 60, 60));
  alarms = Driver::alarmWatchFactory(loop.activity, shadow, board);
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  write(mac, 2, 0x11);
  pass();
  set(mac, 2, 0x12);
  own->timeIs(500);
  pass();
  ASSERT_EQ(board->activeAlarms(), 1u);
  EXPECT_EQ(board->alarm("often")->lastTime(), 500);
  own->timeIs(619);
  loop.turn();
  EXPECT_EQ(board->activeAlarms(), 1u);
  own->timeIs(621);
  loop.turn();
  EXPECT_EQ(board->activeAlarms(), 0u);
}

}  // namespace
