#include <Zint/CycleTime.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using Zint::Seconds;

// A clock and a counter that the test moves; both readings take their time.
struct TestedSource {
  static U64 cycles() {
    pass(20e-9);
    return static_cast<U64>(counted);
  }
  static Seconds time() {
    ++clockReads;
    pass(25e-9);
    const Seconds now = elapsed + 1000;
    pass(interruption);
    interruption = 0;
    return now;
  }
  static void pass(Seconds seconds) {
    elapsed += seconds;
    counted += seconds * frequency;
  }
  static inline Seconds elapsed, interruption;
  static inline double counted, frequency;
  static inline unsigned clockReads;
};

struct CycleTimeTest : testing::Test {
  CycleTimeTest() {
    TestedSource::elapsed = TestedSource::interruption = 0;
    TestedSource::counted = 1e12;
    TestedSource::frequency = 2.5e9;
    TestedSource::clockReads = 0;
  }
  // Reads `count` times, `step` apart; each result is right and none goes back.
  void readEach(Seconds step, int count) {
    for (int i = 0; i < count; ++i) {
      TestedSource::pass(step);
      const Seconds read = time.read();
      const Seconds now = TestedSource::elapsed + 1000;
      ASSERT_LE(std::abs(read - now), 2e-6) << i;
      ASSERT_GE(read, last) << i;
      last = read;
    }
  }
  unsigned clockReadsOf(Seconds step, int count) {
    const unsigned before = TestedSource::clockReads;
    readEach(step, count);
    return TestedSource::clockReads - before;
  }

  Zint::CycleTime<TestedSource> time;
  Seconds last = 0;
};

TEST_F(CycleTimeTest, read_readsTheClockOnceInAMillisecondOnceTwoRatesAgree) {
  EXPECT_GT(clockReadsOf(1e-6, 2000), 1800u) << "no rate is known yet";
  const unsigned reads = clockReadsOf(1e-6, 100'000);
  EXPECT_GE(reads, 99u);
  EXPECT_LE(reads, 110u);
}

TEST_F(CycleTimeTest, read_isRightAtAnyDistance) {
  std::mt19937 random(4);
  const auto below = [&random](unsigned end) { return static_cast<int>(random() % end); };
  for (int i = 0; i < 2000; ++i) readEach(std::pow(10.0, below(9) - 8), 1 + below(5));
}

TEST_F(CycleTimeTest, read_readsTheClockEachTimeWhileTheRateChanges) {
  readEach(1e-6, 5000);
  for (int i = 0; i < 20; ++i) {
    TestedSource::pass(2e-3);
    TestedSource::frequency *= 1.01;
    readEach(0, 1);
  }
  EXPECT_EQ(clockReadsOf(1e-7, 100), 100u);
  readEach(1e-6, 5000);
  EXPECT_LE(clockReadsOf(1e-6, 10'000), 12u) << "it is constant again";
}

TEST_F(CycleTimeTest, read_readsTheClockEachTimeWhenTheCounterIsStill) {
  TestedSource::frequency = 0;
  EXPECT_EQ(clockReadsOf(1e-4, 1000), 1000u);
}

TEST_F(CycleTimeTest, read_isRightAfterTheCounterWentOnWhileTheClockWasStill) {
  readEach(1e-6, 5000);
  for (const double cycles : {1e5, 2e6, 3e6, 1e7, 1e9, 1e12}) {
    TestedSource::counted += cycles;
    // Less than it is followed for cannot be told from time that passes.
    if (cycles < 2.5e6) TestedSource::pass(2e-3);
    readEach(1e-6, 5000);
  }
}

TEST_F(CycleTimeTest, read_isRightAfterTheCounterWentBack) {
  readEach(1e-6, 5000);
  TestedSource::counted = 1e6;
  readEach(1e-6, 5000);
  EXPECT_LE(clockReadsOf(1e-6, 10'000), 12u);
}

// As between two processors: by less than the count since the clock was read.
TEST_F(CycleTimeTest, read_neverGoesBackWhenTheCounterDoesALittle) {
  readEach(1e-6, 5000);
  for (int i = 0; i < 100; ++i) {
    readEach(1e-6, 900);
    TestedSource::counted -= 2.5e4;
    TestedSource::pass(1e-7);
    const Seconds read = time.read();
    ASSERT_GE(read, last) << i;
    last = read;
    TestedSource::counted += 2.5e4;
  }
}

TEST_F(CycleTimeTest, read_isRightWhenItIsInterruptedWithinAReading) {
  std::mt19937 random(5);
  for (int i = 0; i < 300; ++i) {
    TestedSource::interruption = static_cast<int>(random() % 1000) * 1e-6;
    const Seconds before = TestedSource::elapsed + 1000;
    TestedSource::pass(2e-3);
    const Seconds read = time.read();
    ASSERT_GE(read, before);
    ASSERT_LE(read, TestedSource::elapsed + 1000 + 2e-6);
    last = read;
    readEach(1e-5, 20);
  }
}

}  // namespace
