// The publisher: what it refuses, how long its turns are, and that it keeps nothing alive.
#include <sys/wait.h>
#include <telemetry/RegionFigures.h>
#include <unistd.h>

#include "TelemetryTest.h"

namespace {

using testing::HasSubstr;

struct Publisher : Support::TelemetryTest {
  std::string refused(const char* name) {
    return refusal([&] { Telemetry::publisherFactory(loop.activity, loop.clock, name, options); });
  }
};

TEST_F(Publisher, names_areCheckedBeforeAnythingIsMade) {
  const std::string text =
      "the name of a publisher has 1 to 63 of the characters A-Z a-z 0-9 . _ - and does not begin "
      "with a dot";
  for (const char* name : {"", ".a", "a/b", "a b", "\xc3\xa4"}) EXPECT_EQ(refused(name), text);
  EXPECT_EQ(refused(std::string(64, 'a').c_str()), text);
  EXPECT_EQ(refused(std::string(63, 'a').c_str()), "");
}

TEST_F(Publisher, directory_thatCannotBeWrittenIsRefused) {
  options.directory = "/dev/null/umbra";
  EXPECT_EQ(refused("a"), "the directory /dev/null/umbra cannot be written: Not a directory");
  options.directory = directory.path() + "/one/two";
  EXPECT_EQ(refused("a"),
            "the directory " + options.directory + " cannot be written: No such file or directory");
}

TEST_F(Publisher, nulls_areRefused) {
  EXPECT_EQ(refusal([&] { Telemetry::publisherFactory(nullptr, loop.clock, "a", options); }),
            "null activity parameter to Telemetry::Publisher not allowed");
  EXPECT_EQ(refusal([&] { Telemetry::publisherFactory(loop.activity, nullptr, "a", options); }),
            "null clock parameter to Telemetry::Publisher not allowed");
  publish();
  EXPECT_EQ(refusal([&] { publisher->shadowIs(nullptr); }),
            "null object to be published not allowed");
}

TEST_F(Publisher, secondOneOfTheName_isRefusedWhileTheFirstRuns) {
  publish();
  publisher->doPublish();
  EXPECT_EQ(refused("switch1"),
            "switch1 is published by process " + std::to_string(::getpid()) + " already");
  publisher = nullptr;
  EXPECT_EQ(refused("switch1"), "");
}

TEST_F(Publisher, shadowsName_isShownOnce) {
  publish();
  publisher->shadowIs(shadow);
  EXPECT_EQ(publisher->shadows().size(), 1u);
  const auto other = Driver::auditedShadowFactory(loop.activity, loop.clock);
  EXPECT_EQ(refusal([&] { publisher->shadowIs(other, "shadow"); }),
            "the name shadow is shown already");
  publisher->shadowIs(other);
  EXPECT_EQ(publisher->nameOf(*other), "shadow2");
}

TEST_F(Publisher, keepsNothingAlive) {
  publish();
  const auto board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
  const auto governor = Driver::governorFactory(loop.activity, shadow);
  const std::size_t shadowReferences = shadow->references();
  publisher->alarmBoardIs(board);
  publisher->governorIs(governor);
  publisher->doPublish();
  EXPECT_EQ(board->references(), 1u);
  EXPECT_EQ(governor->references(), 1u);
  EXPECT_EQ(shadow->references(), shadowReferences);
}

TEST_F(Publisher, regions_haveNoNotifiee) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 16);
  const U32 before = cm->notifiees();
  publish();
  publisher->doPublish();
  EXPECT_EQ(cm->notifiees(), before);
}

TEST_F(Publisher, canBeDroppedByWhomItTells) {
  publish();
  const ChipMemory::Ptr cm = audited("mac", 16);
  set(cm, 3, 99);
  onFinding = [this](const Driver::Finding&) { publisher = nullptr; };
  ASSERT_TRUE(pass());
  EXPECT_EQ(publisher, nullptr);
  ASSERT_TRUE(pass());
}

struct ErrorsThrower : Telemetry::Publisher::Notifiee {
  using Notifiee::Notifiee;
  void onErrors() override { throw std::runtime_error("mine"); }
};

TEST_F(Publisher, goesOnAfterWhomItTellsHasThrown) {
  publish();
  view();
  const auto thrower = Zint::makePtr<ErrorsThrower>(loop.activity, publisher);
  const auto goesOnUntil = [this](auto isReached) {
    for (int i = 0; i < 200 && !isReached(); ++i) loop.turnAt(loop.clock->time() + 1);
    return isReached();
  };
  for (const std::string& path : {publisher->livePath(), publisher->eventsPath()}) {
    const U64 errors = publisher->errors();
    std::filesystem::remove(path);
    EXPECT_TRUE(goesOnUntil([&] { return publisher->errors() == errors + 1; })) << path;
    EXPECT_TRUE(goesOnUntil([&] { return std::filesystem::exists(path); })) << path;
  }
  const Telemetry::LiveReader there(publisher->livePath());
  const U64 beats = there.heartbeat().count;
  EXPECT_TRUE(goesOnUntil([&] { return there.heartbeat().count > beats; }));
}

// A process that was forked ends as its parent would, and goes on with the parent's work before.
TEST_F(Publisher, forkedProcess_leavesWhatIsPublishedToItsParent) {
  publish();
  audited("mac", 8);
  Telemetry::LiveReader before = view();
  const U64 beats = before.heartbeat().count;
  const std::size_t eventsBefore = events().size();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    loop.clock->timeIs(loop.clock->time() + 100);
    loop.turn();
    publisher->eventIs({.kind = Telemetry::EventKind::chip, .text = "child"});
    publisher->doPublish();
    const bool isHere = publisher->events() > eventsBefore;
    publisher = nullptr;
    _exit(isHere ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  Telemetry::LiveReader after(publisher->livePath());
  EXPECT_FALSE(before.isReplaced());
  EXPECT_EQ(after.heartbeat().state, Telemetry::Heartbeat::running);
  EXPECT_GE(beats + 1, after.heartbeat().count);
  EXPECT_EQ(Telemetry::EventReader(publisher->eventsPath()).last(), eventsBefore);
  publisher->doPublish();
  EXPECT_EQ(view().heartbeat().state, Telemetry::Heartbeat::running);
  EXPECT_EQ(publisher->errors(), 0u);
}

TEST_F(Publisher, everyObjectIsDroppedInAnyOrder) {
  for (int order = 0; order < 4; ++order) {
    publish();
    auto board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
    publisher->alarmBoardIs(board);
    publisher->doPublish();
    if (order & 1) publisher = nullptr;
    board = nullptr;
    if (order & 2) {
      watch = nullptr;
      shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
    }
    for (int i = 0; i < 5; ++i) loop.turnAt(loop.clock->time() + 1);
    publisher = nullptr;
  }
}

TEST(RegionFigures, windows_slide) {
  Telemetry::RegionFigures figures;
  const auto found = [&](Zint::Seconds time) {
    figures.count(Driver::Verdict::repaired, Driver::Nature::soft, time, 1000 + time);
  };
  found(10);
  found(10.5);
  found(14.9);
  EXPECT_EQ(figures.findingsIn5s(), 3u);
  figures.advance(15);
  EXPECT_EQ(figures.findingsIn5s(), 1u);
  EXPECT_EQ(figures.findingsIn1m(), 3u);
  figures.advance(75);
  EXPECT_EQ(figures.findingsIn5s(), 0u);
  EXPECT_EQ(figures.findingsIn1m(), 0u);
  EXPECT_EQ(figures.findingsIn1h(), 3u);
  figures.advance(3700);
  EXPECT_EQ(figures.findingsIn1h(), 0u);
  EXPECT_EQ(figures.findings(), 3u);
  EXPECT_EQ(figures.softRepairs(), 3u);
  EXPECT_EQ(figures.lastFindingTime(), 1014.9);
}

TEST(RegionFigures, adoptedAndWrittenMeanwhile_areNoFindings) {
  Telemetry::RegionFigures figures;
  figures.count(Driver::Verdict::adopted, Driver::Nature::unverified, 1, 1);
  figures.count(Driver::Verdict::writtenMeanwhile, Driver::Nature::unverified, 1, 1);
  EXPECT_EQ(figures.findings(), 0u);
  EXPECT_EQ(figures.adoptions(), 1u);
  EXPECT_EQ(figures.writtenMeanwhile(), 1u);
  EXPECT_EQ(figures.findingsIn5s(), 0u);
}

}  // namespace
