// Trace records of processes that are killed at random moments; and a reader that is wrong, which
// must be caught.
#include <gmock/gmock.h>
#include <stdlib.h>
#include <support/Sanitizers.h>
#include <telemetry/TraceReader.h>

#include <Zint/Exception.h>
#include <chrono>
#include <filesystem>
#include <random>

#include "Processes.h"

namespace {

using Support::exitOf;
using Telemetry::TraceReader;

struct Traces : testing::Test {
  Traces() {
    std::string pattern = testing::TempDir() + "traces-XXXXXX";
    folder = ::mkdtemp(pattern.data());
    path = folder + "/writer.trace";
  }
  ~Traces() override { std::filesystem::remove_all(folder); }

  static pid_t start(std::vector<std::string> words) {
    return Support::start(TRACE_PROCESS, std::move(words));
  }
  // Waits until a process has written that many records since; fails after ten seconds.
  void waitForRecords(pid_t pid, std::size_t records) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    TraceReader::Position position;
    for (U64 found = 0; found < records; ::sched_yield()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "nothing is written";
      try {
        const TraceReader reader(path);
        if (reader.pid() != static_cast<U32>(pid)) continue;
        const TraceReader::Look look = reader.read(position);
        found += look.records.size() + look.overwritten;
      } catch (const Zint::RangeException&) {
        // It is not made yet.
      }
    }
  }

  std::string folder, path;
};

TEST_F(Traces, ofAHundredKilledProcessesAreWhole) {
  std::mt19937 random(12345);
  // A process takes long to begin under the sanitizers.
  const U32 kills = Support::addressesAreSanitized() ? 20 : 100;
  for (U32 i = 0; i < kills; ++i) {
    const pid_t writer = start({"write", path});
    waitForRecords(writer, 1 + random() % 5'000);
    ::kill(writer, SIGKILL);
    exitOf(writer);
    ASSERT_EQ(exitOf(start({"read", path, "0"})), 0) << "kill " << i;
  }
}

TEST_F(Traces, areWholeWhileTheyAreWritten) {
  const pid_t writer = start({"write", path});
  waitForRecords(writer, 1);
  EXPECT_EQ(exitOf(start({"read", path, "2"})), 0);
  ::kill(writer, SIGKILL);
  exitOf(writer);
}

TEST_F(Traces, areShownButForTheOneThatItsProcessDiedIn) {
  EXPECT_EQ(exitOf(start({"die", path})), -SIGKILL);
  const TraceReader reader(path);
  TraceReader::Position position;
  std::vector<std::string> texts;
  for (const auto& record : reader.read(position).records) texts.push_back(record.text);
  EXPECT_THAT(texts, testing::ElementsAre("record 0 of thread 1: .", "record 2 of thread 1: cc."));
  EXPECT_EQ(reader.state(), 1u);
}

TEST_F(Traces, readWithoutASecondLookAreCaught) {
  const pid_t writer = start({"write", path});
  waitForRecords(writer, 10'000);
  EXPECT_EQ(exitOf(start({"read-once", path, "10"})), 3);
  ::kill(writer, SIGKILL);
  exitOf(writer);
}

}  // namespace
