// The live view, as its reader sees it.
#include <Hardware/Descriptions.h>
#include <Zint/Reflect.h>
#include <fcntl.h>
#include <unistd.h>

#include <set>

#include "TelemetryTest.h"

namespace {

using Telemetry::Column;
using Telemetry::ColumnKind;
using Telemetry::Heartbeat;
using Telemetry::Liveness;
using Telemetry::LiveReader;
using testing::HasSubstr;

struct LiveView : Support::TelemetryTest {};

// What the machine says of processes, as a test wants it.
struct OtherMachine : Telemetry::Machine {
  S64 monotonic() const override { return time; }
  S64 wallClock() const override { return time; }
  std::string bootId() const override { return boot; }
  U64 startOfProcess(U32) const override { return start; }
  S64 time = 0;
  std::string boot = Machine::bootId();
  U64 start = Machine::startOfProcess(static_cast<U32>(::getpid()));
};

TEST_F(LiveView, columns_haveNamesOfTheirOwn) {
  const Driver::Chip::Ptr known = Driver::chipFactory("switch", chip);
  shadow->chipIs(known);
  audited("mac", 8);
  publish();
  for (const bool isRestarted : {false, true}) {
    if (isRestarted) {
      wallClock->timeIs(wallClock->time() + 1000);
      restart();
    }
    const Telemetry::LiveReader there = view();
    for (const Telemetry::Table& table : there.tables()) {
      std::set<std::string> names;
      for (const Telemetry::Column& column : table.columns) {
        EXPECT_TRUE(names.insert(column.name).second) << table.name << " " << column.name;
      }
    }
    const Telemetry::Column& since = *there.find("chip")->find("since");
    EXPECT_EQ(since.unit, "seconds since 1970");
    ASSERT_TRUE(row(there, "chip", "switch").has_value());
    EXPECT_EQ(row(there, "chip", "switch")->time(since), 1'700'000'000'000'000'000);
    EXPECT_EQ(there.find("chip")->find("ownSince")->unit, "seconds");
  }
}

TEST_F(LiveView, file_isThereAfterSomeTurns) {
  publish();
  EXPECT_FALSE(std::filesystem::exists(publisher->livePath()));
  for (int i = 0; i < 10000 && publisher->fileBytes() == 0; ++i) step();
  ASSERT_NE(publisher->fileBytes(), 0u);
  EXPECT_EQ(std::filesystem::file_size(publisher->livePath()), publisher->fileBytes());
  EXPECT_FALSE(std::filesystem::exists(publisher->livePath() + ".new"));
  const LiveReader reader(publisher->livePath());
  EXPECT_EQ(reader.name(), "switch1");
  EXPECT_EQ(reader.pid(), static_cast<U32>(::getpid()));
  EXPECT_EQ(reader.heartbeat().state, Heartbeat::running);
  EXPECT_EQ(reader.heartbeat().pointerBits, 8 * sizeof(void*));
}

TEST_F(LiveView, region_showsEachReadableNumberAndText) {
  region("mac", 0x1F00, 100);
  publish();
  const LiveReader reader = view();
  EXPECT_EQ(shown(reader, "region", "mac", "entrySize"), "4");
  EXPECT_EQ(shown(reader, "region", "mac", "address"), "0x0:00001f00");
  EXPECT_EQ(shown(reader, "region", "mac", "auditEnabled"), "true");
  EXPECT_EQ(shown(reader, "region", "mac", "mode"), "normal");
  EXPECT_EQ(shown(reader, "region", "mac", "shadow"), "shadow");
  EXPECT_EQ(shown(reader, "region", "mac", "chip"), "chip");
  EXPECT_EQ(shown(reader, "region", "mac", "hardware"), "no column");  // a buffer
  EXPECT_EQ(shown(reader, "region", "mac", "fwkKey"), "no column");
  EXPECT_EQ(shown(reader, "region", "mac", "since"), "1700000000.000000");
  EXPECT_EQ(shown(reader, "shadow", "shadow", "state"), "unconfigured");
  EXPECT_EQ(shown(reader, "shadow", "shadow", "patrolState"), "stopped");
  EXPECT_EQ(shown(reader, "shadow", "shadow", "lastPassAge"), "never");
  EXPECT_EQ(shown(reader, "publisher", "switch1", "errors"), "0");
}

TEST_F(LiveView, columns_haveKindUnitTypeAndNames) {
  publish();
  const LiveReader reader = view();
  const Column& mode = *reader.find("region")->find("mode");
  EXPECT_EQ(mode.kind, ColumnKind::signedNumber);
  EXPECT_EQ(mode.type, "Hardware::ChipMemory::ChipMemoryMode");
  EXPECT_EQ(mode.nameOfNumber(2), "buffered");
  const Column& fixed = *reader.find("region")->find("lastFixTime");
  EXPECT_EQ(fixed.kind, ColumnKind::time);
  EXPECT_THAT(fixed.unit, HasSubstr("seconds"));
  EXPECT_TRUE(reader.find("region")->find("registersFixed")->isTotal);
  EXPECT_TRUE(reader.find("region")->find("repairs")->isTotal);
  EXPECT_FALSE(reader.find("region")->find("findingsIn5s")->isTotal);
  EXPECT_FALSE(reader.find("region")->find("entrySize")->isTotal);
}

class NewRegion : public Hardware::ChipMemory {
 public:
  using ChipMemory::ChipMemory;
  const Zint::Type* fwkType() const override;
  U32 temperature() const { return 41; }
  Zint::String8 place() const { return "left 'bank'"; }
};
constexpr const char* zintTypeName(const NewRegion*) { return "Test::NewRegion"; }

constexpr Zint::Member newRegionMembers[] = {
    Zint::readOnly<&NewRegion::temperature>("temperature").in("celsius").says("of the bank"),
    Zint::readOnly<&NewRegion::place>("place"),
};
constexpr Zint::Type newRegionType{"Test::NewRegion", "reference-counted object",
                                   &Hardware::chipMemoryType, newRegionMembers};
const Zint::Type* NewRegion::fwkType() const { return &newRegionType; }

TEST_F(LiveView, attributeOfADerivedTypeAppearsByItself) {
  const auto derived = Zint::makePtr<NewRegion>("bank", ChipAddress(0x8000), 8u, 4u, 4u,
                                                Hardware::ChipHam::Ptr(chip));
  shadow->chipMemoryIs(derived);
  region("mac", 0x1000, 8);
  publish();
  const LiveReader reader = view();
  EXPECT_EQ(shown(reader, "region", "bank", "temperature"), "41");
  EXPECT_EQ(shown(reader, "region", "bank", "place"), "left 'bank'");
  EXPECT_EQ(shown(reader, "region", "bank", "entrySize"), "4");
  EXPECT_EQ(shown(reader, "region", "mac", "temperature"), "0");
  EXPECT_EQ(reader.find("region")->find("temperature")->unit, "celsius");
  EXPECT_EQ(reader.find("region")->find("temperature")->help, "of the bank");
}

TEST_F(LiveView, finding_isInTheRowAtTheEndOfTheSlice) {
  publish();
  const ChipMemory::Ptr cm = audited("mac", 16);
  publisher->doPublish();
  set(cm, 3, 99);
  ASSERT_TRUE(pass());
  const LiveReader reader(publisher->livePath());
  EXPECT_EQ(shown(reader, "region", "mac", "findings"), "1");
  EXPECT_EQ(shown(reader, "region", "mac", "repairs"), "1");
  EXPECT_EQ(shown(reader, "region", "mac", "registersFixed"), "1");
  EXPECT_EQ(shown(reader, "region", "mac", "findingsIn1h"), "1");
  EXPECT_EQ(shown(reader, "chip", "chip", "name"), "chip");
  EXPECT_EQ(shown(reader, "shadow", "shadow", "findings"), "1");
}

TEST_F(LiveView, totals_surviveARestart) {
  publish();
  const ChipMemory::Ptr cm = audited("mac", 16);
  set(cm, 3, 99);
  ASSERT_TRUE(pass());
  publisher->doPublish();
  publisher = nullptr;
  // Another process: its objects count from 0 on.
  shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
  shadow->minIntervalBetweenAuditsIs(1);
  watch = Zint::makePtr<Watch>(*this);
  wallClock->timeIs(1'700'000'500);
  publish();
  const ChipMemory::Ptr again = audited("mac", 16);
  LiveReader reader = view();
  EXPECT_EQ(again->registersFixed(), 0u);
  EXPECT_EQ(shown(reader, "region", "mac", "registersFixed"), "1");
  EXPECT_EQ(shown(reader, "region", "mac", "findings"), "1");
  EXPECT_EQ(shown(reader, "region", "mac", "since"), "1700000000.000000");
  EXPECT_EQ(shown(reader, "region", "mac", "lastFindingTime"), "1700000000.000000");
  set(again, 4, 98);
  ASSERT_TRUE(pass());
  reader = view();
  EXPECT_EQ(shown(reader, "region", "mac", "registersFixed"), "2");
  EXPECT_EQ(shown(reader, "region", "mac", "findings"), "2");
  EXPECT_EQ(shown(reader, "shadow", "shadow", "repairs"), "2");
}

TEST_F(LiveView, total_countsOnWhenTheAttributeIsSetBack) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 16);
  publish();
  cm->registersFixedIs(5);
  EXPECT_EQ(shown(view(), "region", "mac", "registersFixed"), "5");
  cm->registersFixedIs(2);
  EXPECT_EQ(shown(view(), "region", "mac", "registersFixed"), "7");
  cm->registersFixedIs(~0u);
  EXPECT_EQ(shown(view(), "region", "mac", "registersFixed"), "4294967300");
  cm->registersFixedIs(1);  // went round
  EXPECT_EQ(shown(view(), "region", "mac", "registersFixed"), "4294967302");
}

TEST_F(LiveView, region_thatLeavesIsGoneAndKeepsItsTotalsWhenItComesAgain) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 16);
  cm->registersFixedIs(5);
  publish();
  EXPECT_EQ(shown(view(), "region", "mac", "registersFixed"), "5");
  shadow->chipMemoryDel(cm->address());
  LiveReader reader = view();
  EXPECT_FALSE(row(reader, "region", "mac").has_value());
  EXPECT_EQ(reader.row(*reader.find("region"), 0).state(), Telemetry::Row::gone_);
  cm->registersFixedIs(1);
  shadow->chipMemoryIs(cm);
  EXPECT_EQ(shown(view(), "region", "mac", "registersFixed"), "6");
}

TEST_F(LiveView, regions_thatAreRemovedInBulkLeave) {
  region("mac", 0x1000, 16);
  region("vlan", 0x2000, 16);
  publish();
  EXPECT_TRUE(row(view(), "region", "vlan").has_value());
  shadow->chipMemoryDelAll();
  const LiveReader reader = view();
  EXPECT_FALSE(row(reader, "region", "mac").has_value());
  EXPECT_FALSE(row(reader, "region", "vlan").has_value());
}

TEST_F(LiveView, file_growsWithTheObjects) {
  options.regions = 2;
  publish();
  const LiveReader before = view();
  for (U32 i = 0; i < 200; ++i) {
    region(("table" + std::to_string(i)).c_str(), 0x10000 + 0x100 * i, 4);
  }
  const LiveReader after = view();
  EXPECT_TRUE(before.isReplaced());
  EXPECT_FALSE(after.isReplaced());
  EXPECT_EQ(shown(after, "region", "table199", "entrySize"), "4");
  EXPECT_EQ(after.heartbeat().notFit, 0u);
  EXPECT_EQ(publisher->notFit(), 0u);
}

TEST_F(LiveView, file_thatIsRemovedIsToldAndMadeAgain) {
  region("mac", 0x1000, 16);
  publish();
  view();
  std::filesystem::remove(publisher->livePath());
  publisher->doPublish();
  EXPECT_EQ(publisher->errors(), 1u);
  EXPECT_THAT(publisher->lastError().bytes(), HasSubstr("somebody has removed the file"));
  EXPECT_EQ(shown(view(), "region", "mac", "entrySize"), "4");
}

TEST_F(LiveView, directory_thatIsLostIsToldAndTriedAgain) {
  options.directory = directory.path() + "/inner";
  publish();
  view();
  std::filesystem::remove_all(options.directory);
  publisher->doPublish();
  EXPECT_GE(publisher->errors(), 2u);
  const U64 errors = publisher->errors();
  publisher->doPublish();
  EXPECT_EQ(publisher->errors(), errors) << "it waits before it tries again";
  std::filesystem::create_directory(options.directory);
  loop.clock->timeIs(loop.clock->time() + 11);
  publisher->doPublish();
  EXPECT_TRUE(std::filesystem::exists(publisher->livePath()));
  EXPECT_TRUE(std::filesystem::exists(publisher->eventsPath()));
}

TEST_F(LiveView, shadow_thatIsDestroyedLeaves) {
  region("mac", 0x1000, 16);
  publish();
  view();
  watch = nullptr;
  shadow = nullptr;
  const LiveReader reader = view();
  EXPECT_FALSE(row(reader, "shadow", "shadow").has_value());
  EXPECT_FALSE(row(reader, "region", "mac").has_value());
  EXPECT_TRUE(publisher->shadows().empty());
}

TEST_F(LiveView, plainShadow_isShown) {
  const auto plain = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
  publish();
  publisher->shadowIs(plain, "plain");
  const auto reader =
      Hardware::chipReaderFactory(loop.activity, plain->auditReadRequest(), loop.clock, 7, 0.001);
  publisher->readerIs(reader);
  const LiveReader live = view();
  EXPECT_EQ(shown(live, "shadow", "plain", "state"), "unconfigured");
  EXPECT_EQ(shown(live, "reader", "reader", "maxEntriesPerRead"), "7");
}

TEST_F(LiveView, heartbeat_isOncePerPeriod) {
  publish();
  const U64 before = view().heartbeat().count;
  for (int i = 0; i < 5; ++i) {
    loop.turnAt(loop.clock->time() + 1);
    while (loop.activity->wakeTime() < loop.clock->time() + 0.5) step();
  }
  EXPECT_EQ(LiveReader(publisher->livePath()).heartbeat().count, before + 5);
}

TEST_F(LiveView, liveness_followsHeartbeatAndProcess) {
  loop.clock->timeIs(100);
  publish();
  const LiveReader reader = view();
  OtherMachine machine;
  machine.time = 102'000'000'000;
  EXPECT_EQ(reader.liveness(machine).state, Liveness::live);
  machine.time = 103'000'000'001;
  EXPECT_EQ(reader.liveness(machine).state, Liveness::stalled);
  EXPECT_EQ(reader.liveness(machine).sinceAgo, 3'000'000'001);
  machine.start += 1;
  EXPECT_EQ(reader.liveness(machine).state, Liveness::dead);
  EXPECT_EQ(reader.liveness(machine).reason, "its process id was given to another process");
  machine.start = 0;
  EXPECT_EQ(reader.liveness(machine).reason, "the process is no more");
  machine.boot[0] = static_cast<char>(machine.boot[0] + 1);
  EXPECT_EQ(reader.liveness(machine).reason, "the machine was booted since");
  publisher = nullptr;
  EXPECT_EQ(reader.liveness(machine).state, Liveness::ended);
}

TEST_F(LiveView, row_thatItsWriterLeftHalfWrittenIsTorn) {
  region("mac", 0x1000, 16);
  publish();
  const LiveReader reader = view();
  const Telemetry::Table& table = *reader.find("region");
  const int file = ::open(publisher->livePath().c_str(), O_RDWR | O_CLOEXEC);
  U32 sequence = 0;
  ASSERT_EQ(::pread(file, &sequence, 4, table.firstRow), 4);
  ++sequence;
  ASSERT_EQ(::pwrite(file, &sequence, 4, table.firstRow), 4);
  ::close(file);
  EXPECT_TRUE(reader.row(table, 0).isTorn());
  EXPECT_FALSE(reader.row(table, 1).isTorn());
  publisher->doPublish();  // who goes on with it makes it whole
  EXPECT_FALSE(reader.row(table, 0).isTorn());
}

TEST_F(LiveView, reader_refusesWhatItCannotRead) {
  const std::string path = directory.path() + "/x.live";
  EXPECT_EQ(refusal([&] { LiveReader{path}; }), path + ": No such file or directory");
  publish();
  publisher->doPublish();
  const auto damaged = [&](U32 offset, const std::string& bytes) {
    std::filesystem::copy_file(publisher->livePath(), path,
                               std::filesystem::copy_options::overwrite_existing);
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::pwrite(file, bytes.data(), bytes.size(), offset),
              static_cast<ssize_t>(bytes.size()));
    ::close(file);
    return refusal([&] { LiveReader{path}; });
  };
  EXPECT_EQ(damaged(0, "X"), path + ": this is no live view");
  EXPECT_EQ(damaged(8, "\2"), path + ": version 2 of a live view cannot be read");
  EXPECT_EQ(damaged(28, "\xff"), path + ": the file is incomplete");
  EXPECT_EQ(damaged(26, "\xff"), path + ": the file is incomplete");
  EXPECT_THAT(damaged(4096, "]"), HasSubstr("no schema of a live view"));
  std::filesystem::resize_file(path, 8192);
  EXPECT_EQ(damaged(1024, "shade"), path + ": the schema has other tables than the header");
  std::filesystem::resize_file(path, 20000);
  EXPECT_EQ(refusal([&] { LiveReader{path}; }), path + ": the file is incomplete");
}

TEST_F(LiveView, rows_outsideOfTheTableAreRefused) {
  publish();
  const LiveReader reader = view();
  const Telemetry::Table& table = *reader.find("chip");
  EXPECT_THAT(refusal([&] { reader.row(table, table.rows); }), HasSubstr("the table chip has"));
}

TEST_F(LiveView, text_thatIsTooLongIsCutAndSaysSo) {
  const std::string name(80, 'n');
  region(name.c_str(), 0x1000, 4);
  publish();
  const LiveReader reader = view();
  const Telemetry::Table& table = *reader.find("region");
  bool isCut = false;
  EXPECT_EQ(reader.row(table, 0).text(*table.find("name"), &isCut), std::string(63, 'n'));
  EXPECT_TRUE(isCut);
}

}  // namespace
