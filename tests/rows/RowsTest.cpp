// A reader against writers that are killed at random moments; and two readers and writers that are
// wrong, which must be caught.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <telemetry/Row.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Processes.h"

namespace {

using Support::exitOf;
using Telemetry::Word;

class Rows : public testing::Test {
 protected:
  Rows() {
    std::string pattern = testing::TempDir() + "rows-XXXXXX";
    const int made = ::mkstemp(pattern.data());
    ::close(made);
    path = pattern;
    EXPECT_EQ(exitOf(start({"make", path})), 0);
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    row = static_cast<const Word*>(::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0));
    ::close(file);
  }
  ~Rows() override {
    ::munmap(const_cast<Word*>(row), 4096);
    std::filesystem::remove(path);
  }

  static pid_t start(std::vector<std::string> words) {
    return Support::start(ROW_PROCESS, std::move(words));
  }
  // Waits until the writer has published that often; fails after ten seconds.
  void waitForPublications(U32 publications) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    const U32 before = row[1].load(std::memory_order_relaxed);
    while (row[1].load(std::memory_order_relaxed) - before < publications) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "nothing is published";
      ::sched_yield();
    }
  }
  bool isOdd() const { return (row[0].load(std::memory_order_relaxed) & 1) != 0; }
  // Writers that are killed at random moments, one after the other; how many left the row odd.
  U32 kill(const char* writer, U32 times) const {
    std::mt19937 random(12345);
    U32 odd = 0;
    for (U32 i = 0; i < times; ++i) {
      const pid_t pid = start({writer, path});
      waitForPublications(1 + static_cast<U32>(random() % 5000));
      ::kill(pid, SIGKILL);
      exitOf(pid);
      if (isOdd()) ++odd;
    }
    return odd;
  }

  std::string path;
  const Word* row = nullptr;
};

TEST_F(Rows, readers_showNoTornRowAsWholeOverTwoHundredKills) {
  const pid_t mapped = start({"read", path, "1000000000000"});
  const pid_t byFile = start({"read-file", path, "1000000000000"});
  const U32 odd = kill("write", 200);
  EXPECT_GT(odd, 0u) << "no writer died in a row";
  for (const pid_t reader : {mapped, byFile}) {
    ::kill(reader, SIGTERM);
    EXPECT_EQ(exitOf(reader), 0);
  }
}

TEST_F(Rows, readerWithoutASecondLook_isCaught) {
  const pid_t writer = start({"write", path});
  waitForPublications(1);
  EXPECT_EQ(exitOf(start({"read-once", path, "1000000000000", "5"})), 3);
  ::kill(writer, SIGKILL);
  exitOf(writer);
}

TEST_F(Rows, writerThatAddsOneAfterADeath_isCaught) {
  // Dies in a row: the next one turns the odd number even while it writes.
  for (U32 i = 0; i < 1000 && !isOdd(); ++i) kill("write", 1);
  ASSERT_TRUE(isOdd());
  const pid_t writer = start({"write-plus-one", path});
  waitForPublications(1);
  EXPECT_EQ(exitOf(start({"read", path, "1000000000000", "5"})), 3);
  ::kill(writer, SIGKILL);
  exitOf(writer);
}

}  // namespace
