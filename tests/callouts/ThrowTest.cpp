// Every call out throws once, and every block of memory is refused once: nothing is lost, and the
// patrol goes on.
#include <Zint/Exception.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "callouts/Scenario.h"
#include "sweep/Memory.h"

namespace {

using namespace CallOuts;
namespace Memory = Sweep::Memory;

enum class Thrown { range, memory, number };

struct Played {
  std::string wrong;  // "" when nothing was
  U64 calls = 0;
  U64 blocks = 0;
  bool hasFailed = false;
  std::string where;
};

void throwThis(Thrown thrown) {
  switch (thrown) {
    case Thrown::range:
      Zint::throwRangeException("planned");
    case Thrown::memory:
      throw std::bad_alloc();
    case Thrown::number:
      throw 42;
  }
}

// Runs what may throw. False: it did.
template <class Body>
bool survives(Body body) {
  try {
    body();
    return true;
  } catch (const std::exception&) {
  } catch (int) {
  }
  return false;
}

// The life of a driver with a failure at one call, or at one block; 0: none.
Played play(U64 call, Thrown thrown, bool countsClock, U64 block) {
  Played played;
  auto world = std::make_unique<World>();
  World& w = *world;
  w.calls.countsClock = countsClock;
  w.calls.actionIs(call, [thrown] { throwThis(thrown); });
  Memory::begin(block == 0 ? Memory::Refusal::none : Memory::Refusal::once, block);
  const auto wrong = [&](const std::string& what) {
    if (played.wrong.empty()) played.wrong = what;
  };
  const auto hasFailed = [&] { return w.calls.hasActed() || Memory::refused(); };
  for (const Step& step : steps()) {
    const bool failedBefore = hasFailed();
    bool isDone, isRepeated = true;
    {
      const Memory::Counting counting;
      isDone = survives([&] { step.run(w); });
      if (!isDone) isRepeated = survives([&] { step.run(w); });
    }
    if (!isDone && failedBefore) wrong(std::string(step.name) + ": failed again");
    if (!isRepeated) wrong(std::string(step.name) + ": cannot be repeated");
    if (!failedBefore && hasFailed()) played.where = step.name;
    if (const std::string rule = w.broken(); !rule.empty()) wrong(step.name + (": " + rule));
    if (!played.wrong.empty()) break;
  }
  played.hasFailed = hasFailed();
  played.calls = w.calls.made();
  played.blocks = Memory::blocksAsked();
  w.calls.isCounting = false;
  Memory::endRefusal();
  if (played.wrong.empty()) {
    std::string text;
    if (!survives([&] { text = w.patrolsByItself(); })) text = "a turn throws";
    if (text.empty() && !survives([&] { text = w.differs(true); })) text = "a turn throws";
    wrong(text);
  }
  if (call != 0) played.where += std::string(", ") + w.calls.place();
  if (w.trace.exceptions != 0) played.where += std::string(", ") + w.trace.first;
  world = nullptr;
  if (Memory::blocksLive() != 0) {
    wrong(std::to_string(Memory::blocksLive()) + " blocks leak, the first is number " +
          std::to_string(Memory::firstLive()));
  }
  return played;
}

// Every n-th of them; UMBRA_CALLOUTS_STRIDE=1 in the environment: every one.
U64 strideOr(U64 otherwise) {
  const char* text = std::getenv("UMBRA_CALLOUTS_STRIDE");
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

class Throws : public testing::Test {
 protected:
  // What is made once per process is made here.
  static void SetUpTestSuite() { play(1, Thrown::range, false, 0); }

  template <class Play>
  void sweep(const char* what, U64 first, U64 stride, Play playAt) {
    U64 met = 0, defects = 0;
    for (U64 number = 1 + first % stride;; number += stride) {
      const Played played = playAt(number);
      if (!played.hasFailed) break;
      ++met;
      if (played.wrong.empty()) continue;
      ADD_FAILURE() << what << " " << number << " (" << played.where << "): " << played.wrong;
      if (++defects == 12) break;
    }
    std::printf("%llu %s\n", static_cast<unsigned long long>(met), what);
    EXPECT_GT(met, 0u);
  }
};

TEST_F(Throws, noFailureLeavesAllSound) {
  const Played played = play(0, Thrown::range, true, 0);
  EXPECT_EQ(played.wrong, "");
  std::printf("%llu calls, %llu blocks\n", static_cast<unsigned long long>(played.calls),
              static_cast<unsigned long long>(played.blocks));
}

TEST_F(Throws, everyCallThatThrows) {
  for (const Thrown thrown : {Thrown::range, Thrown::memory, Thrown::number}) {
    sweep("calls", 13 * static_cast<U64>(thrown), strideOr(59),
          [&](U64 number) { return play(number, thrown, false, 0); });
    if (HasFailure()) return;
  }
}

TEST_F(Throws, everyReadingOfTheClockThatThrows) {
  sweep("calls and readings", 17, strideOr(101),
        [&](U64 number) { return play(number, Thrown::range, true, 0); });
}

TEST_F(Throws, everyBlockThatIsRefused) {
  play(0, Thrown::range, false, 0);
  sweep("blocks", 2, strideOr(11),
        [&](U64 number) { return play(0, Thrown::range, false, number); });
}

}  // namespace
