// Parts of the trace move into a file, and into the next one, while threads write records.
#include <Mirl/Outside.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

using Mirl::Outside;
using Mirl::theTraceFile;

// A file that has no name.
int unnamedFile() {
  std::string pattern = testing::TempDir() + "outside-XXXXXX";
  const int file = ::mkstemp(pattern.data());
  ::unlink(pattern.c_str());
  return file;
}

// The numbers of each thread's records follow each other; how many there are.
U32 inspect(U32 level) {
  std::vector<U32> last(16, ~0u);
  U32 count = 0;
  for (const Mirl::Record& record : theTraceFile.records(level)) {
    U32 thread = 0;
    U32 number = 0;
    if (std::sscanf(record.text.bytes().c_str(), "%u of %u.", &number, &thread) != 2) continue;
    if (last[thread] != ~0u) {
      EXPECT_EQ(number, last[thread] + 1) << "of thread " << thread;
    }
    last[thread] = number;
    ++count;
  }
  return count;
}

TEST(Outside, noRecordIsLostOrTornByAMove) {
  theTraceFile.clear();
  constexpr U32 level = 2;
  constexpr U32 writers = 9;  // more than there are parts
  constexpr U32 files = 20;
  std::atomic<bool> isEnded{false};
  std::atomic<U64> written{0};
  std::vector<std::thread> threads;
  for (U32 thread = 0; thread < writers; ++thread) {
    threads.emplace_back([&, thread] {
      static const Mirl::MsgDesc desc(theTraceFile, "%u of %u.%s", __LINE__);
      for (U32 number = 0; !isEnded.load(std::memory_order_relaxed); ++number) {
        auto msg = Mirl::RingBuf::startMsg(theTraceFile, desc, level);
        msg << number << thread << std::string(number % 30, 'x');
        msg.endMsg();
        written.fetch_add(1, std::memory_order_relaxed);
        if (number % 64 == 0) std::this_thread::yield();
      }
    });
  }
  for (U32 i = 0; i < files; ++i) {
    const int file = unnamedFile();
    ASSERT_GE(file, 0);
    Outside::fileIs(file);
    ::close(file);  // it has its own
    const U64 before = written.load();
    do {
      while (Outside::moveOne()) {
      }
      inspect(level);
    } while (written.load() < before + U64{writers} * 50);
  }
  isEnded = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(inspect(level), 100u);
  EXPECT_EQ(Outside::failures(), 0u);
  while (Outside::moveOne()) {
  }
  while (Outside::moveOne()) {
  }
  EXPECT_EQ(Outside::partsLeftOut(), 0u) << "all threads have ended";
}

}  // namespace
