// Files of each version, kept as they were written: a reader of today reads them, in both widths.
#include <Driver/AlarmWatch.h>
#include <Mirl/Outside.h>
#include <telemetry/TraceReader.h>

#include <fstream>
#include <sstream>

#include "TelemetryTest.h"

namespace {

using testing::HasSubstr;

std::string goldenPath(const char* file) { return std::string(TELEMETRY_GOLDEN) + "/" + file; }

std::string contentOfGolden(const char* file) {
  std::ifstream in(goldenPath(file));
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

// Every value of every row that is or was used.
std::string textOfView(const Telemetry::LiveReader& view) {
  std::ostringstream out;
  out << view.name() << " " << view.socket() << " " << view.heartbeat().count << "\n";
  for (const Telemetry::Table& table : view.tables()) {
    for (const Telemetry::Row& row : view.rows(table)) {
      if (row.state() == Telemetry::Row::free_) continue;
      out << table.name << (row.isUsed() ? "" : " gone") << (row.isTorn() ? " torn" : "") << "\n";
      for (const Telemetry::Column& column : table.columns) {
        out << "  " << column.name << " " << row.shown(column) << "\n";
      }
    }
  }
  return out.str();
}

std::string hexOfBytes(const std::vector<U8>& bytes) {
  std::string text;
  for (const U8 byte : bytes) text += Zint::format("%02x", U32{byte}).bytes();
  return text;
}

std::string textOfLog(const Telemetry::EventReader& log) {
  std::ostringstream out;
  out << log.name() << " " << log.records() << " " << log.suppressed() << "\n";
  for (const Telemetry::Event& event : log.read(1, ~0u).events) {
    out << event.number << " " << nameOf(event.kind) << " " << event.monotonic << " "
        << event.wallClock << " " << (event.kind == Telemetry::EventKind::start ? 0 : event.verdict)
        << " " << event.nature << " " << event.entry << " " << event.entrySize << " " << event.uid
        << " " << event.pid << " [" << event.region << "] [" << event.chip << "] "
        << hexOfBytes(event.expected) << " " << hexOfBytes(event.actual) << " [" << event.text
        << "]\n";
  }
  return out.str();
}

std::string textOfTrace(const Telemetry::TraceReader& trace) {
  std::ostringstream out;
  out << trace.name() << " " << trace.levels() << " levels, state " << trace.state() << ", "
      << trace.partsLeftOut() << " parts and " << trace.formatsLeftOut() << " formats left out\n";
  Telemetry::TraceReader::Position position;
  const Telemetry::TraceReader::Look look = trace.read(position);
  out << look.overwritten << " overwritten, " << look.tornParts << " torn\n";
  for (const Telemetry::TraceRecord& record : look.records) {
    out << record.level << " " << record.line << " " << trace.wallClockOf(record.time) << " ["
        << record.text << "]\n";
  }
  return out.str();
}

struct Golden : Support::TelemetryTest {};

TEST_F(Golden, liveViewOfVersion1_isRead) {
  const Telemetry::LiveReader view(goldenPath("v1.live"));
  EXPECT_EQ(textOfView(view), contentOfGolden("v1.live.txt"));
  EXPECT_EQ(view.find("region")->find("mode")->nameOfNumber(2), "buffered");
}

TEST_F(Golden, eventLogOfVersion1_isRead) {
  EXPECT_EQ(textOfLog(Telemetry::EventReader(goldenPath("v1.events"))),
            contentOfGolden("v1.events.txt"));
}

TEST_F(Golden, traceOfVersion1_isRead) {
  EXPECT_EQ(textOfTrace(Telemetry::TraceReader(goldenPath("v1.trace"))),
            contentOfGolden("v1.trace.txt"));
}

// Run by hand when a version is new:
//   telemetry-tests --gtest_also_run_disabled_tests --gtest_filter=Golden.DISABLED_make
TEST_F(Golden, DISABLED_make) {
  options.regions = 2;
  options.alarms = 2;
  options.events = 32;
  const auto board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
  board->ruleIs(Driver::alarmRuleFactory("often", Driver::AlarmRule::entry_, 2, 60, 600));
  const auto alarmWatch = Driver::alarmWatchFactory(loop.activity, shadow, board);
  loop.clock->timeIs(12.5);
  publish();
  publisher->alarmBoardIs(board);
  publisher->socketsAre("/run/umbra/switch1.sock", "");
  const ChipMemory::Ptr other =
      region("a name of more than sixty-three bytes, which is cut at its end", 0x8000, 3);
  const ChipMemory::Ptr cm = audited("mac", 16);
  for (U32 i = 0; i < 2; ++i) {
    set(cm, 5, 0x99 + i);
    ASSERT_TRUE(pass());
  }
  publisher->commandIs(1234, 99, "{\"do\":\"set\",\"path\":\"/shadow/paused\",\"value\":true}");
  other->modeIs(ChipMemory::override());
  publisher->doPublish();
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryDel(other->address());
  publisher->doPublish();
  namespace fs = std::filesystem;
  const auto over = fs::copy_options::overwrite_existing;
  fs::create_directories(TELEMETRY_GOLDEN);
  fs::copy_file(publisher->livePath(), goldenPath("v1.live"), over);
  fs::copy_file(publisher->eventsPath(), goldenPath("v1.events"), over);
  std::ofstream(goldenPath("v1.live.txt"))
      << textOfView(Telemetry::LiveReader(goldenPath("v1.live")));
  std::ofstream(goldenPath("v1.events.txt"))
      << textOfLog(Telemetry::EventReader(goldenPath("v1.events")));
}

// The same, with the filter Golden.DISABLED_makeTrace.
TEST_F(Golden, DISABLED_makeTrace) {
  Mirl::theTraceFile.clear();
  publish();
  static const Mirl::MsgDesc twoTexts(Mirl::theTraceFile, "Expected: %s Actual: %s", 17);
  static const Mirl::MsgDesc numbers(Mirl::theTraceFile, "Byte %u expected %x actual %x", 205);
  for (U32 i = 0; i < 600; ++i) {
    loop.clock->timeIs(0.125 * i);
    auto msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, numbers, i % 100 == 0 ? 1 : 0);
    msg << i << U8{0xa5} << U64{0x123456789abcdef0};
    msg.endMsg();
  }
  auto cut = Mirl::RingBuf::startMsg(Mirl::theTraceFile, twoTexts, 1);
  cut << std::string(20, 'e') << std::string(30'000, 'a') << U32{1};
  cut.endMsg();
  const Mirl::MsgDesc whole(Mirl::theTraceFile, "100%% of %s are %u", 3);
  auto msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, whole, 0);
  msg << "";
  msg.endMsg();
  publisher = nullptr;
  std::ifstream in(directory.path() + "/switch1.trace");
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  bytes.resize(bytes.find_last_not_of('\0') + 1);  // a reader takes what is missing for zeros
  std::ofstream(goldenPath("v1.trace")) << bytes;
  std::ofstream(goldenPath("v1.trace.txt"))
      << textOfTrace(Telemetry::TraceReader(goldenPath("v1.trace")));
}

}  // namespace
