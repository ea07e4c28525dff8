// The history: what is kept, what is dropped, and what is left after a death.
#include "tools/umbra/serve/History.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "MadeUp.h"
#include "tools/umbra/serve/Database.h"

namespace Serve {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

class HistoryTest : public testing::Test {
 protected:
  HistoryTest() { std::filesystem::create_directories(folder_); }
  ~HistoryTest() override { std::filesystem::remove_all(folder_); }

  static Event event(U64 number, Time wall, const char* region = "mac", U32 kind = findingEvent) {
    Event event;
    event.number = number;
    event.kind = kind;
    event.wall = wall;
    event.region = region;
    event.expected = {1, 2};
    event.actual = {1, 3};
    event.text = "repaired";
    return event;
  }
  static void add(History& history, std::vector<Event> events) {
    history.add(View{}, {{"switch1", std::move(events)}});
    history.commit();
  }
  S64 count(const char* text) const {
    Database database(path_, SQLITE_OPEN_READONLY);
    Statement statement(database, text);
    statement.step();
    return statement.number(0);
  }

  const std::string folder_ =
      std::filesystem::temp_directory_path() / ("history" + std::to_string(getpid()));
  const std::string path_ = folder_ + "/h.db";
  const Time now_ = wallTime();
};

TEST_F(HistoryTest, events_areThoseThatWereAddedNewestFirst) {
  History history(path_);
  add(history, {event(1, now_, "mac"), event(2, now_ + 1, "vlan")});
  const auto events = history.events("switch1", {});
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(events[0].number, 2u);
  EXPECT_EQ(events[0].region, "vlan");
  EXPECT_EQ(events[1].actual, (std::vector<U8>{1, 3}));
}

TEST_F(HistoryTest, events_areFilteredByRegionKindAndNumber) {
  History history(path_);
  add(history,
      {event(1, now_), event(2, now_, "vlan"), event(3, now_, "mac", passEvent), event(4, now_)});
  EventFilter filter;
  filter.region = "mac";
  filter.kind = findingEvent;
  EXPECT_THAT(history.events("switch1", filter), SizeIs(2));
  filter.before = 4;
  EXPECT_THAT(history.events("switch1", filter), SizeIs(1));
  EXPECT_THAT(history.events("another", {}), SizeIs(0));
}

TEST_F(HistoryTest, add_ofAnEventThatIsKeptChangesNothing) {
  {
    History history(path_);
    add(history, {event(1, now_), event(2, now_ + 1)});
  }
  // A server that starts again reads the whole log again.
  History history(path_);
  add(history, {event(1, now_), event(2, now_ + 1), event(3, now_ + 2)});
  EXPECT_EQ(count("select count(*) from event"), 3);
}

TEST_F(HistoryTest, add_ofALogThatWasBegunAnewKeepsBoth) {
  History history(path_);
  add(history, {event(1, now_), event(2, now_ + 1), event(3, now_ + 2)});
  add(history, {event(1, now_ + second), event(2, now_ + 2 * second)});
  EXPECT_EQ(count("select count(*) from event"), 5);
  const auto events = history.events("switch1", {});
  ASSERT_THAT(events, SizeIs(5));
  EXPECT_EQ(events[0].wall, now_ + 2 * second);
  EXPECT_EQ(events[4].wall, now_);
}

TEST_F(HistoryTest, findings_areCountedInEqualParts) {
  History history(path_);
  const auto at = [this](Time after) { return now_ + after; };
  add(history, {event(1, at(1'000)), event(2, at(1'999)), event(3, at(2'000)), event(4, at(9'999)),
                event(5, at(10'000)), event(6, at(1'500), "mac", passEvent)});
  EXPECT_EQ(history.findings("switch1", now_, at(10'000), 10),
            (std::vector<U64>{0, 2, 1, 0, 0, 0, 0, 0, 0, 1}));
}

TEST_F(HistoryTest, samples_areKeptWhereTheyChanged) {
  MadeUp machine;
  MadeUpDriver& driver = machine.driverIs("switch1", 3);
  History history(path_);
  View view;
  view.drivers = machine.drivers();
  view.time = now_;
  history.add(view, {});
  history.commit();
  const S64 first = count("select count(*) from sample");
  EXPECT_GT(first, 3);
  driver.regions().add(1, "findings", 5);
  driver.regions().add(1, "readCacheHits", 5);
  view.drivers = machine.drivers();
  view.time = now_ + 10 * second;
  history.add(view, {});
  history.commit();
  EXPECT_EQ(count("select count(*) from sample"), first + 1);
  EXPECT_EQ(count("select value from sample s join series e on e.id = s.series where "
                  "e.object = 'region/region-00001' and e.name = 'findings' order by time desc"),
            5);
}

TEST_F(HistoryTest, commit_dropsWhatIsTooOld) {
  HistoryOptions options;
  options.maxAge = 3600 * second;
  History history(path_, options);
  add(history, {event(1, now_ - 7200 * second), event(2, now_)});
  EXPECT_THAT(history.events("switch1", {}), SizeIs(1));
}

TEST_F(HistoryTest, commit_dropsTheOldestWhereTheFileIsTooLarge) {
  HistoryOptions options;
  options.maxBytes = 200'000;
  std::vector<Event> events;
  for (U64 number = 1; number <= 5000; ++number) {
    events.push_back(event(number, now_ - Time(5001 - number) * second));
  }
  {
    History history(path_);
    add(history, events);
  }
  ASSERT_GT(std::filesystem::file_size(path_), 400'000u);
  History history(path_, options);
  history.commit();
  const auto kept = history.events("switch1", {0, 0, "", 0, 10'000});
  EXPECT_GT(kept.size(), 100u);
  EXPECT_LT(kept.size(), 4000u);
  EXPECT_EQ(kept.front().number, 5000u);
  EXPECT_LE(history.figures().bytes, 220'000u);
}

TEST_F(HistoryTest, commit_keepsOnlyWholeSecondsThatAKilledProcessHadCommitted) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    History history(path_);
    U64 number = 0;
    for (;;) {
      add(history, {event(number + 1, now_), event(number + 2, now_)});
      number += 2;
      if (write(ready[1], &number, sizeof number) < 0) _exit(1);
    }
  }
  U64 committed = 0;
  while (committed < 200) ASSERT_GT(read(ready[0], &committed, sizeof committed), 0);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[1]);
  while (read(ready[0], &committed, sizeof committed) > 0) continue;
  close(ready[0]);
  History history(path_);
  EXPECT_EQ(count("select count(*) from event") % 2, 0);
  EXPECT_GE(count("select count(*) from event"), static_cast<S64>(committed));
  Database database(path_, SQLITE_OPEN_READONLY);
  Statement check(database, "pragma integrity_check");
  check.step();
  EXPECT_EQ(check.text(0), "ok");
}

TEST_F(HistoryTest, history_ofANewerVersionIsRefused) {
  { History history(path_); }
  { Database(path_, SQLITE_OPEN_READWRITE).run("pragma user_version = 2"); }
  try {
    History history(path_);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              path_ + " is a history of version 2; this program knows version 1");
  }
}

TEST_F(HistoryTest, history_ofAnotherDatabaseIsRefused) {
  { Database(path_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE).run("create table a(b)"); }
  try {
    History history(path_);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), path_ + " is a database, but no history");
  }
}

TEST_F(HistoryTest, commit_thatTheDiskRefusesIsCountedAndTriedAgain) {
  History history(path_);
  // Another program holds the file.
  Database other(path_, SQLITE_OPEN_READWRITE);
  other.run("begin immediate");
  add(history, {event(1, now_)});
  EXPECT_EQ(history.figures().errors, 1u);
  EXPECT_THAT(history.figures().lastError, HasSubstr("locked"));
  other.run("rollback");
  history.commit();
  EXPECT_EQ(history.figures().events, 1u);
  EXPECT_THAT(history.events("switch1", {}), SizeIs(1));
}

}  // namespace
}  // namespace Serve
