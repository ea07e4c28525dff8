// The records of Mirl in a file: what is in it, when, and what becomes of it.
#include <Mirl/Outside.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <telemetry/TraceReader.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "TelemetryTest.h"

namespace {

using Mirl::theTraceFile;
using Telemetry::TraceReader;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

void recordNumber(U32 level, U32 number) {
  static const Mirl::MsgDesc desc(theTraceFile, "number %u", 4711);
  auto msg = Mirl::RingBuf::startMsg(theTraceFile, desc, level);
  msg << number;
  msg.endMsg();
}

// A thread that does one thing after the other.
class Worker {
 public:
  Worker()
      : thread_([this] {
          for (U32 done = 0;; ++done) {
            while (wanted_.load() == done) std::this_thread::yield();
            if (!act_) return;
            act_();
            done_.store(done + 1);
          }
        }) {}
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() {
    if (thread_.joinable()) end();
  }
  void act(std::function<void()> act) {
    act_ = std::move(act);
    const U32 wanted = wanted_.fetch_add(1) + 1;
    while (done_.load() != wanted) std::this_thread::yield();
  }
  void end() {
    act_ = nullptr;
    wanted_.fetch_add(1);
    thread_.join();
  }

 private:
  std::function<void()> act_;
  std::atomic<U32> wanted_{0}, done_{0};
  std::thread thread_;
};

// What `act` returns in a process of its own.
template <class Act>
int exitOfChild(Act act) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(act());
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

struct TraceLog : Support::TelemetryTest {
  TraceLog() { theTraceFile.clear(); }
  std::vector<std::string> textsIn(const std::string& path, U32 levels = ~0u) {
    TraceReader::Position position;
    std::vector<std::string> texts;
    for (const auto& record : TraceReader(path).read(position, levels).records) {
      texts.push_back(record.text);
    }
    return texts;
  }
  std::vector<std::string> texts(U32 levels = ~0u) {
    return textsIn(publisher->tracePath(), levels);
  }
  // The next round of the publisher.
  void nextRound() {
    loop.clock->timeIs(loop.clock->time() + 1);
    publisher->doPublish();
  }
};

// --- What is in it ---

TEST_F(TraceLog, holdsWhatWasWrittenBeforeAndAfterThePublisherWasMade) {
  recordNumber(3, 1);
  publish();
  recordNumber(3, 2);
  recordNumber(5, 3);
  EXPECT_THAT(texts(), ElementsAre("number 1", "number 2", "number 3"));
  EXPECT_THAT(texts(1u << 5), ElementsAre("number 3"));
  EXPECT_EQ(theTraceFile.records(3).size(), 2u) << "the process reads them as before";
}

TEST_F(TraceLog, record_hasLevelLineAndTime) {
  publish();
  loop.clock->timeIs(12.5);
  recordNumber(7, 1);
  const TraceReader reader(publisher->tracePath());
  TraceReader::Position position;
  const auto records = reader.read(position).records;
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 7u);
  EXPECT_EQ(records[0].line, 4711u);
  EXPECT_EQ(records[0].time, 12.5);
  const S64 start = 1'700'000'000'000'000'000;  // at 0 of the driver's clock
  EXPECT_EQ(reader.wallClockOf(records[0].time), start + 12'500'000'000);
}

TEST_F(TraceLog, records_areInTheOrderOfTheirTimesOverLevelsAndThreads) {
  publish();
  loop.clock->timeIs(1);
  recordNumber(2, 1);
  Worker worker;
  worker.act([] { recordNumber(1, 0); });  // the system's time, which is later
  loop.clock->timeIs(2);
  recordNumber(1, 2);
  EXPECT_THAT(texts(), ElementsAre("number 1", "number 2", "number 0"));
}

TEST_F(TraceLog, reader_goesOnWhereItWas) {
  publish();
  const TraceReader reader(publisher->tracePath());
  TraceReader::Position position;
  recordNumber(0, 1);
  EXPECT_EQ(reader.read(position).records.size(), 1u);
  EXPECT_EQ(reader.read(position).records.size(), 0u);
  for (U32 i = 0; i < 5000; ++i) recordNumber(0, i);
  const TraceReader::Look look = reader.read(position);
  EXPECT_GT(look.overwritten, 0u);
  EXPECT_EQ(look.overwritten + look.records.size(), 5000u);
  EXPECT_EQ(look.records.back().text, "number 4999");
  EXPECT_EQ(look.tornParts, 0u);
}

TEST_F(TraceLog, recordThatWasBegunBeforeTheMoveIsWhole) {
  static const Mirl::MsgDesc desc(theTraceFile, "%s %u", __LINE__);
  auto outer = Mirl::RingBuf::startMsg(theTraceFile, desc, 4);
  outer << "begun";
  publish();
  outer << U32{1};
  outer.endMsg();
  EXPECT_THAT(texts(1u << 4), ElementsAre("begun 1"));
}

TEST_F(TraceLog, clear_forgetsTheRecordsInTheFile) {
  publish();
  recordNumber(0, 1);
  theTraceFile.clear();
  recordNumber(0, 2);
  EXPECT_THAT(texts(), ElementsAre("number 2"));
}

TEST_F(TraceLog, formatThatIsGoneIsStillKnown) {
  publish();
  {
    const Mirl::MsgDesc brief(theTraceFile, "brief %u", __LINE__);
    auto msg = Mirl::RingBuf::startMsg(theTraceFile, brief, 0);
    msg << U32{1};
    msg.endMsg();
  }
  EXPECT_THAT(texts(), ElementsAre("brief 1"));
}

TEST_F(TraceLog, formatsWithoutRoomAreCounted) {
  publish();
  const TraceReader reader(publisher->tracePath());
  EXPECT_EQ(reader.formatsLeftOut(), 0u);
  const std::string format = "long %u " + std::string(5000, 'x');
  std::vector<std::unique_ptr<Mirl::MsgDesc>> descs;
  for (U32 i = 0; i < 17; ++i) {
    descs.push_back(std::make_unique<Mirl::MsgDesc>(theTraceFile, format.c_str(), 5));
    auto msg = Mirl::RingBuf::startMsg(theTraceFile, *descs.back(), 0);
    msg << i;
    msg.endMsg();
  }
  EXPECT_GT(reader.formatsLeftOut(), 0u);
  const std::vector<std::string> found = texts();
  EXPECT_EQ(found.front(), "long 0 " + std::string(4088, 'x')) << "4096 bytes of a format";
  EXPECT_EQ(found.back(), "unknown");
  descs.clear();
  restart();
  EXPECT_EQ(TraceReader(publisher->tracePath()).formatsLeftOut(), 0u) << "a new file has room";
}

// --- Threads ---

TEST_F(TraceLog, threadThatHasWrittenBefore_movesItsRecordsWithItsNextOne) {
  Worker worker;
  worker.act([] { recordNumber(6, 1); });
  publish();
  nextRound();
  EXPECT_THAT(texts(1u << 6), IsEmpty());
  nextRound();
  EXPECT_GE(TraceReader(publisher->tracePath()).partsLeftOut(), 1u);
  worker.act([] { recordNumber(6, 2); });
  EXPECT_THAT(texts(1u << 6), ElementsAre("number 1", "number 2"));
}

TEST_F(TraceLog, threadThatHasEnded_leavesItsRecordsInTheFile) {
  Worker worker;
  worker.act([] { recordNumber(6, 1); });
  publish();
  worker.end();
  nextRound();
  EXPECT_THAT(texts(1u << 6), ElementsAre("number 1"));
  Worker next;
  next.act([] { recordNumber(6, 2); });
  EXPECT_THAT(texts(1u << 6), testing::Contains("number 2"));
}

TEST_F(TraceLog, recordsWithoutAPartOfTheirOwnAreInTheFile) {
  publish();
  std::vector<std::unique_ptr<Worker>> workers;
  std::vector<std::string> expected;
  for (U32 i = 0; i < Mirl::RingBuf::threadParts + 2; ++i) {
    workers.push_back(std::make_unique<Worker>());
    workers.back()->act([i] { recordNumber(9, i); });
    expected.push_back("number " + std::to_string(i));
  }
  EXPECT_THAT(texts(1u << 9), testing::UnorderedElementsAreArray(expected));
}

// --- The file ---

TEST_F(TraceLog, isNotMadeWhereTheOptionsSayNo) {
  options.trace = false;
  publish();
  nextRound();
  EXPECT_FALSE(std::filesystem::exists(publisher->tracePath()));
}

// In a process of its own, where nobody has written a record.
TEST_F(TraceLog, hasAPartOfEachLevelUntilMoreIsUsed) {
  const int exit = exitOfChild([&] {
    publish();
    const U32 bytes = Mirl::Outside::partsAt + 10 * Mirl::Outside::layout().partBytes;
    EXPECT_EQ(std::filesystem::file_size(publisher->tracePath()), bytes);
    return HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(exit, 0);
}

TEST_F(TraceLog, recordsGoOnAfterThePublisherIsDestroyed) {
  publish();
  const std::string path = publisher->tracePath();
  publisher = nullptr;
  recordNumber(0, 1);
  EXPECT_THAT(textsIn(path), ElementsAre("number 1"));
  EXPECT_EQ(TraceReader(path).state(), 2u) << "ended in order";
}

TEST_F(TraceLog, removedFileIsMadeAgainWithAllRecords) {
  publish();
  recordNumber(0, 1);
  const TraceReader before(publisher->tracePath());
  std::filesystem::remove(publisher->tracePath());
  EXPECT_TRUE(before.isReplaced());
  nextRound();
  nextRound();
  recordNumber(0, 2);
  EXPECT_THAT(texts(), ElementsAre("number 1", "number 2"));
  EXPECT_THAT(publisher->lastError().bytes(), HasSubstr("somebody has removed the file"));
}

TEST_F(TraceLog, secondPublisherOfAProcess_hasTheSameRecordsUnderItsName) {
  publish();
  const auto second = Telemetry::publisherFactory(loop.activity, loop.clock, "switch2", options);
  recordNumber(0, 1);
  EXPECT_THAT(textsIn(second->tracePath()), ElementsAre("number 1"));
  EXPECT_EQ(second->errors(), 0u);
  publisher = nullptr;
  loop.clock->timeIs(loop.clock->time() + 20);
  second->doPublish();
  recordNumber(0, 2);
  EXPECT_THAT(textsIn(second->tracePath()), ElementsAre("number 1", "number 2"));
}

// In a process of its own, whose file does not have the place of the second part yet: how long a
// file may be is what ends first.
TEST_F(TraceLog, fullDisk_isToldAndTheRecordsStay) {
  const int exit = exitOfChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ::getrlimit(RLIMIT_FSIZE, &before);
    publish();
    rlimit full = before;
    full.rlim_cur = static_cast<rlim_t>(Mirl::Outside::offsetOf(8, 1) + 1000);
    ::setrlimit(RLIMIT_FSIZE, &full);
    recordNumber(8, 1);
    Worker worker;
    worker.act([] { recordNumber(8, 2); });  // a second part
    nextRound();
    EXPECT_THAT(publisher->lastError().bytes(), HasSubstr("no room for the records of a thread"));
    EXPECT_THAT(texts(1u << 8), ElementsAre("number 1"));
    EXPECT_EQ(theTraceFile.records(8).size(), 2u);
    ::setrlimit(RLIMIT_FSIZE, &before);
    nextRound();
    worker.act([] { recordNumber(8, 3); });
    EXPECT_THAT(texts(1u << 8), ElementsAre("number 1", "number 2", "number 3"));
    return HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(exit, 0);
}

TEST_F(TraceLog, fullDisk_atTheBeginningIsTriedAgain) {
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  ::getrlimit(RLIMIT_FSIZE, &before);
  rlimit full = before;
  full.rlim_cur = 20'000;
  ::setrlimit(RLIMIT_FSIZE, &full);
  publish();
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_FALSE(std::filesystem::exists(publisher->tracePath()));
  EXPECT_GT(publisher->errors(), 0u);
  recordNumber(0, 1);
  loop.clock->timeIs(loop.clock->time() + 20);
  publisher->doPublish();
  EXPECT_THAT(texts(), ElementsAre("number 1"));
}

// --- Processes ---

TEST_F(TraceLog, childOfAFork_hasRecordsOfItsOwn) {
  publish();
  recordNumber(0, 1);
  static const Mirl::MsgDesc desc(theTraceFile, "begun in the parent %s", __LINE__);
  auto msg = Mirl::RingBuf::startMsg(theTraceFile, desc, 0);
  const int exit = exitOfChild([&msg] {
    const bool isEmpty = theTraceFile.records(0).empty();
    msg << std::string(20'000, 'x');
    msg.endMsg();
    for (U32 i = 0; i < 3000; ++i) recordNumber(0, 100 + i);
    const auto records = theTraceFile.records(0);
    return isEmpty && records.back().text.bytes() == "number 3099" ? 0 : 1;
  });
  EXPECT_EQ(exit, 0);
  msg << "";
  msg.endMsg();
  recordNumber(0, 2);
  EXPECT_THAT(texts(), ElementsAre("number 1", "begun in the parent ", "number 2"));
}

TEST_F(TraceLog, childOfAFork_mayPublish) {
  publish();
  const std::string path = directory.path() + "/child.trace";
  EXPECT_EQ(exitOfChild([&] {
              publisher = Telemetry::publisherFactory(loop.activity, loop.clock, "child", options);
              recordNumber(0, 7);
              return textsIn(path) == std::vector<std::string>{"number 7"} ? 0 : 1;
            }),
            0);
}

TEST_F(TraceLog, ofAProcessThatDiedIsKeptWhenTheNextOneBegins) {
  const std::string path = directory.path() + "/switch1.trace";
  const auto leave = [&](bool isInOrder) {
    return exitOfChild([&] {
      publish();
      recordNumber(0, isInOrder ? 1 : 2);
      if (isInOrder) publisher = nullptr;
      return 0;
    });
  };
  EXPECT_EQ(leave(true), 0);
  EXPECT_EQ(leave(false), 0);
  EXPECT_FALSE(std::filesystem::exists(path + ".old"));
  publish();
  EXPECT_THAT(textsIn(path + ".old"), ElementsAre("number 2"));
}

TEST_F(TraceLog, ofAProcessThatAnAssertionEndedSaysSo) {
  const std::string path = directory.path() + "/switch1.trace";
  const int exit = exitOfChild([&] {
    publish();
    recordNumber(0, 1);
    ::close(STDERR_FILENO);
    ZINT_ASSERT("here", path.empty());
    return 0;
  });
  EXPECT_EQ(exit, -SIGABRT);
  EXPECT_EQ(TraceReader(path).state(), 3u);
  EXPECT_THAT(textsIn(path), ElementsAre("number 1"));
}

// --- Files that are not sound ---

TEST_F(TraceLog, fileThatIsNoneIsRefused) {
  const std::string path = directory.path() + "/x.trace";
  EXPECT_EQ(refusal([&] { const TraceReader reader(path); }), path + ": No such file or directory");
  std::ofstream(path) << "something else";
  EXPECT_EQ(refusal([&] { const TraceReader reader(path); }),
            path + ": this is no file of trace records");
  publish();
  std::string bytes;
  {
    std::ifstream in(publisher->tracePath());
    bytes.assign(std::istreambuf_iterator<char>(in), {});
  }
  std::string version2 = bytes.substr(0, 4096);
  version2[8] = 2;
  std::ofstream(path, std::ios::trunc) << version2;
  EXPECT_EQ(refusal([&] { const TraceReader reader(path); }),
            path + ": version 2 of trace records cannot be read");
  std::ofstream(path, std::ios::trunc) << bytes.substr(0, 60'000);
  EXPECT_EQ(refusal([&] { const TraceReader reader(path); }), path + ": the file is incomplete");
}

TEST_F(TraceLog, fileWithDamageIsReadWithoutHarm) {
  publish();
  for (U32 i = 0; i < 200; ++i) recordNumber(i % 2, i);
  std::string bytes;
  {
    std::ifstream in(publisher->tracePath());
    bytes.assign(std::istreambuf_iterator<char>(in), {});
  }
  bytes.resize(Mirl::Outside::partsAt + 2 * Mirl::Outside::layout().partBytes);
  const std::string path = directory.path() + "/x.trace";
  std::mt19937 random(7);
  U32 torn = 0;
  for (U32 round = 0; round < 200; ++round) {
    std::string damaged = bytes;
    for (U32 i = 0; i < 20; ++i) {
      // Half of it in the header, the formats and the beginnings of parts.
      const std::size_t ends[] = {200, 5000, Mirl::Outside::partsAt + 6000, bytes.size()};
      const std::size_t begins[] = {12, 4096, Mirl::Outside::partsAt, 0};
      const std::size_t which = round % 4;
      damaged[begins[which] + random() % (ends[which] - begins[which])] =
          static_cast<char>(random());
    }
    std::ofstream(path, std::ios::trunc) << damaged;
    try {
      const TraceReader reader(path);
      TraceReader::Position position;
      torn += reader.read(position).tornParts;
    } catch (const Zint::RangeException&) {
      ++torn;
    }
  }
  EXPECT_GT(torn, 10u);
}

}  // namespace
