// The data path executes the same instructions with the telemetry and without, counted one by one.
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Mirl/Mirl.h>
#include <functional>

#include "TelemetryTest.h"
#include "support/Sanitizers.h"

namespace {

struct Instructions : Support::TelemetryTest {
  // What a process of its own executes between two stops, after `prepare`. 0: it cannot be traced
  // here.
  template <class Act>
  static U64 count(
      Act act, const std::function<void()>& prepare = [] {}) {
    const pid_t pid = ::fork();
    if (pid == 0) {
      prepare();
      if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
      act();  // everything is bound and in the caches
      ::raise(SIGSTOP);
      act();
      ::raise(SIGSTOP);
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!WIFSTOPPED(status)) return 0;
    U64 steps = 0;
    do {
      ++steps;
      if (::ptrace(PTRACE_SINGLESTEP, pid, nullptr, nullptr) != 0) break;
      ::waitpid(pid, &status, 0);
    } while (WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return steps;
  }
  U64 countDataPath(const ChipMemory::Ptr& cm) {
    return count([&] {
      for (U32 entry = 0; entry < 16; ++entry) {
        U32 value = entry + 1;
        U8* data = reinterpret_cast<U8*>(&value);
        shadow->shadowWriteAndCompareWithCache(cm, entry, data, 4);  // a hit
        value = ~value;
        shadow->shadowWriteAndCompareWithCache(cm, entry, data, 4);  // a miss
        shadow->readFromCache(cm, entry, data, 4);
        value = entry + 1;
        shadow->shadowWriteHack(cm->entryAddress(entry), data, 4);
      }
    });
  }
};

TEST_F(Instructions, ofTheDataPathAreTheSameWithTheTelemetry) {
  if (Support::addressesAreSanitized()) GTEST_SKIP() << "the sanitizer's own are counted, too";
  const ChipMemory::Ptr cm = audited("mac", 16);
  cm->readFromCacheIs(true);
  cm->skipWriteIfMatchesCacheIs(true);
  const U64 without = countDataPath(cm);
  if (without == 0) GTEST_SKIP() << "processes cannot be traced here";
  publish();
  publisher->doPublish();
  const U64 with = countDataPath(cm);
  EXPECT_GT(without, 1000u);
  EXPECT_EQ(with, without);
}

// The records of a child of fork() are its own: it is the child that publishes.
TEST_F(Instructions, ofARecordAreTheSameWithTheTelemetry) {
  const auto writeRecords = [] {
    static const Mirl::MsgDesc desc(Mirl::theTraceFile, "%u of %s", __LINE__);
    for (U32 i = 0; i < 16; ++i) {
      Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, desc, 1);
      msg << i << "mac";
      msg.endMsg();
    }
  };
  loop.clock->timeIs(1);
  const U64 without = count(writeRecords);
  if (without == 0) GTEST_SKIP() << "processes cannot be traced here";
  const U64 with = count(writeRecords, [this] {
    publish();
    if (!std::filesystem::exists(publisher->tracePath())) ::_exit(1);
  });
  EXPECT_GT(without, 1000u);
  EXPECT_EQ(with, without);
}

}  // namespace
