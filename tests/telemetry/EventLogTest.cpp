// The event log, as its reader sees it, and what is written into it.
#include <Driver/AlarmWatch.h>
#include <Zint/Assert.h>
#include <fcntl.h>
#include <telemetry/EventLog.h>
#include <unistd.h>

#include "TelemetryTest.h"

namespace {

using Telemetry::Event;
using Telemetry::EventKind;
using Telemetry::EventReader;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct EventLog : Support::TelemetryTest {
  void addChip(const std::string& text) {
    publisher->eventIs({.kind = EventKind::chip, .verdict = 1, .text = text});
  }
  EventReader reader() {
    publisher->doPublish();
    return EventReader(publisher->eventsPath());
  }
};

TEST_F(EventLog, finding_isWrittenWithItsValues) {
  publish();
  const ChipMemory::Ptr cm = audited("mac", 16);
  set(cm, 3, 0x01020304);
  ASSERT_TRUE(pass());
  std::vector<Event> findings;
  for (const Event& event : events()) {
    if (event.kind == EventKind::finding) findings.push_back(event);
  }
  ASSERT_EQ(findings.size(), 1u);
  const Event& event = findings[0];
  EXPECT_EQ(event.region, "mac");
  EXPECT_EQ(event.chip, "chip");
  EXPECT_EQ(event.entry, 3u);
  EXPECT_EQ(event.entrySize, 4u);
  EXPECT_THAT(event.expected, ElementsAre(4, 0, 0, 0));
  EXPECT_THAT(event.actual, ElementsAre(4, 3, 2, 1));
  EXPECT_EQ(event.verdict, static_cast<U32>(Driver::Verdict::repaired));
  EXPECT_EQ(event.text, "repaired");
  EXPECT_EQ(event.wallClock, 1'700'000'000'000'000'000);
  EXPECT_EQ(event.uid, Telemetry::nobody);
}

TEST_F(EventLog, adopted_isOneEventForARegion) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 100);
  for (U32 entry = 0; entry < 100; ++entry) set(cm, entry, entry + 1);
  publish();
  audit();
  ASSERT_TRUE(pass());
  EXPECT_THAT(eventTexts(EventKind::adopted), ElementsAre("mac 0 100 "));
  EXPECT_THAT(eventTexts(EventKind::finding), IsEmpty());
}

TEST_F(EventLog, cleanPasses_areToldOncePerMinute) {
  publish();
  audited("mac", 16);
  const std::size_t before = eventTexts(EventKind::pass).size();
  for (int i = 0; i < 30; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(eventTexts(EventKind::pass).size(), before);
  loop.clock->timeIs(loop.clock->time() + 61);
  ASSERT_TRUE(pass());
  EXPECT_EQ(eventTexts(EventKind::pass).size(), before + 1);
}

TEST_F(EventLog, chip_isToldAbsentAndPresent) {
  publish();
  audited("mac", 16);
  chip->isAway = true;
  for (int i = 0; i < 3000; ++i) step();
  EXPECT_THAT(eventTexts(EventKind::chip), ElementsAre(" 0 1 no answer"));
  EXPECT_THAT(eventTexts(EventKind::patrol), testing::Not(IsEmpty()));
  chip->isAway = false;
  loop.clock->timeIs(loop.clock->time() + 120);
  for (int i = 0; i < 100; ++i) step();
  EXPECT_THAT(eventTexts(EventKind::chip), ElementsAre(" 0 1 no answer", " 0 2 "));
}

TEST_F(EventLog, reset_isToldAndItsEnd) {
  publish();
  audited("mac", 16);
  const Driver::Chip::Ptr it = shadow->chips().front();
  it->doChipReset();
  for (int i = 0; i < 100; ++i) step();
  EXPECT_THAT(eventTexts(EventKind::chip), ElementsAre(" 0 3 ", " 0 4 "));
}

TEST_F(EventLog, alarm_isToldRaisedAcknowledgedAndCleared) {
  const auto board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
  board->ruleIs(Driver::alarmRuleFactory("often", Driver::AlarmRule::entry_, 2, 60, 600));
  const auto alarmWatch = Driver::alarmWatchFactory(loop.activity, shadow, board);
  publish();
  publisher->alarmBoardIs(board);
  const ChipMemory::Ptr cm = audited("mac", 16);
  for (U32 i = 0; i < 2; ++i) {
    set(cm, 5, 99);
    ASSERT_TRUE(pass());
  }
  EXPECT_EQ(shown(view(), "alarm", "often/mac/5", "state"), "raised");
  EXPECT_TRUE(board->doAcknowledge("often/mac/5"));
  EXPECT_EQ(shown(view(), "alarm", "often/mac/5", "state"), "acknowledged");
  loop.clock->timeIs(loop.clock->time() + 1000);
  step();
  EXPECT_THAT(eventTexts(EventKind::alarm),
              ElementsAre("mac/5 0 1 often", "mac/5 0 2 often", "mac/5 0 3 often"));
  board->ruleDel("often");
  EXPECT_EQ(shown(view(), "alarm", "often/mac/5", "state"), "no row");
}

TEST_F(EventLog, modeAndPolicy_areTold) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 16);
  publish();
  view();
  cm->modeIs(ChipMemory::buffered());
  const Driver::Policy::Ptr policy = Driver::policyFactory(cm);
  shadow->policyIs(policy);
  EXPECT_THAT(eventTexts(EventKind::mode), ElementsAre("mac 0 2 buffered"));
  EXPECT_THAT(eventTexts(EventKind::policy), ElementsAre("mac 0 0 given"));
  policy->ruleIs(0, 4, Driver::Rule::detectOnly);
  policy->ruleIs(8, 4, Driver::Rule::detectOnly);
  policy->unwrittenIs(Driver::Unwritten::baseline);
  EXPECT_THAT(eventTexts(EventKind::policy),
              ElementsAre("mac 0 0 given", "mac 0 0 rule, unwritten"));
  shadow->policyDel(cm);
  EXPECT_THAT(eventTexts(EventKind::policy),
              ElementsAre("mac 0 0 given", "mac 0 0 rule, unwritten", "mac 0 0 removed"));
}

TEST_F(EventLog, command_saysWho) {
  publish();
  publisher->commandIs(1234, 99, "set shadow paused true");
  const std::vector<Event> all = events();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].kind, EventKind::start);
  EXPECT_EQ(all[1].kind, EventKind::command);
  EXPECT_EQ(all[1].uid, 1234u);
  EXPECT_EQ(all[1].pid, 99u);
  EXPECT_EQ(all[1].text, "set shadow paused true");
}

TEST_F(EventLog, numbers_goOnAfterARestart) {
  publish();
  addChip("one");
  view();
  publisher = nullptr;
  publish();
  const std::vector<Event> all = events();
  ASSERT_EQ(all.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(all[i].number, i + 1);
  EXPECT_EQ(all[2].kind, EventKind::end);
  EXPECT_EQ(all[3].kind, EventKind::start);
}

TEST_F(EventLog, overwrittenEvents_areCounted) {
  publish();
  for (int i = 0; i < 100; ++i) addChip(std::to_string(i));
  const EventReader log = reader();
  EXPECT_EQ(log.last(), 101u);
  EXPECT_EQ(log.first(), 38u);
  const EventReader::Batch batch = log.read(1, 1000);
  EXPECT_EQ(batch.overwritten, 37u);
  ASSERT_EQ(batch.events.size(), 64u);
  EXPECT_EQ(batch.events.front().number, 38u);
  EXPECT_EQ(batch.events.back().text, "99");
  EXPECT_EQ(batch.next, 102u);
  EXPECT_EQ(log.read(90, 5).next, 95u);
  EXPECT_THAT(log.read(102, 5).events, IsEmpty());
}

TEST_F(EventLog, limiter_keepsEventsOutAndTellsHowMany) {
  options.eventRate = 10;
  options.eventBurst = 20;
  publish();
  for (int i = 0; i < 50; ++i) addChip("flood");
  EXPECT_EQ(publisher->eventsSuppressed(), 30u);
  loop.clock->timeIs(loop.clock->time() + 1);
  EXPECT_THAT(eventTexts(EventKind::suppressed), ElementsAre(" 0 30 "));
  for (int i = 0; i < 50; ++i) addChip("flood");
  EXPECT_EQ(publisher->eventsSuppressed(), 70u);
  EXPECT_EQ(reader().suppressed(), 70u);
}

TEST_F(EventLog, record_thatItsWriterDiedInIsPassedOver) {
  publish();
  for (int i = 0; i < 5; ++i) addChip(std::to_string(i));
  const EventReader log = reader();
  const int file = ::open(publisher->eventsPath().c_str(), O_RDWR | O_CLOEXEC);
  const U32 odd = 7;
  ASSERT_EQ(::pwrite(file, &odd, 4, 4096 + 256 * 3), 4);
  ::close(file);
  const EventReader::Batch batch = log.read(1, 100);
  EXPECT_EQ(batch.events.size(), 5u);
  EXPECT_EQ(batch.missing, 1u);
}

TEST_F(EventLog, eventsBeforeTheFile_wait) {
  publish();
  for (int i = 0; i < 300; ++i) addChip(std::to_string(i));
  EXPECT_EQ(publisher->events(), Telemetry::EventLog::waitingMax);
  EXPECT_EQ(publisher->eventsSuppressed(), 300 + 1 - Telemetry::EventLog::waitingMax);
  reader();
  EXPECT_THAT(eventTexts(EventKind::suppressed), ElementsAre(" 0 45 "));
}

TEST_F(EventLog, otherNumberOfRecords_beginsANewFileAndNumbersGoOn) {
  publish();
  addChip("one");
  view();
  publisher = nullptr;
  options.events = 128;
  publish();
  const EventReader log = reader();
  EXPECT_EQ(log.records(), 128u);
  EXPECT_EQ(log.last(), 4u);
  EXPECT_EQ(log.read(1, 100).events.size(), 1u);
  EXPECT_EQ(log.read(1, 100).missing, 3u);
}

TEST_F(EventLog, fileThatSomebodyRemoves_isMadeAgainWithWhatItHeld) {
  publish();
  audited("mac", 8);
  const std::vector<Telemetry::Event> before = events();
  ASSERT_GT(before.size(), 1u);
  for (const char* const act : {"remove", "move"}) {
    SCOPED_TRACE(act);
    const std::string path = publisher->eventsPath();
    if (act == std::string("remove")) {
      std::filesystem::remove(path);
    } else {
      std::filesystem::rename(directory.path(), directory.path() + "2");
      publisher->doPublish();
      std::filesystem::rename(directory.path() + "2", directory.path());
    }
    publisher->eventIs({.kind = Telemetry::EventKind::chip, .text = act});
    loop.clock->timeIs(loop.clock->time() + 11);
    const std::vector<Telemetry::Event> after = events();
    const Telemetry::EventReader log(path);
    EXPECT_EQ(log.read(1, ~0u).missing, 0u);
    ASSERT_GE(after.size(), before.size() + 1);
    for (std::size_t i = 0; i < before.size(); ++i) {
      EXPECT_EQ(after[i].number, i + 1);
      EXPECT_EQ(after[i].kind, before[i].kind);
      EXPECT_EQ(after[i].wallClock, before[i].wallClock);
    }
    EXPECT_TRUE(std::any_of(after.begin(), after.end(), [&](const Telemetry::Event& event) {
      return event.kind == Telemetry::EventKind::chip && event.text == act;
    }));
  }
}

TEST_F(EventLog, fileThatIsNone_isReplaced) {
  std::filesystem::create_directories(directory.path());
  const int file =
      ::open((directory.path() + "/switch1.events").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(::write(file, "nothing", 7), 7);
  ::close(file);
  publish();
  EXPECT_EQ(reader().last(), 1u);
}

TEST_F(EventLog, assertion_isLeftBehind) {
  EXPECT_DEATH(
      {
        publish();
        view();
        Zint::assertionFailed("a == b", "Source", 17, "f()", "mac");
      },
      "a == b");
  const Telemetry::LiveReader live(directory.path() + "/switch1.live");
  const EventReader log(directory.path() + "/switch1.events");
  const Event last = log.read(log.last(), 1).events.at(0);
  EXPECT_EQ(last.kind, EventKind::assertion);
  EXPECT_EQ(last.text, "a == b");
  EXPECT_EQ(last.verdict, 17u);
  EXPECT_EQ(last.region, "mac");
  EXPECT_EQ(live.heartbeat().state, Telemetry::Heartbeat::failed);
}

}  // namespace
