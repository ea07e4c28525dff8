// Everything is dropped in any order, with a pass, replays, a quarantine and alarms under way.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "callouts/Scenario.h"
#include "support/Random.h"

namespace {

using namespace CallOuts;

// One reference each; what others hold goes with them.
std::vector<std::function<void()>> dropsOf(World& w) {
  std::vector<std::function<void()>> drops = {
      [&w] { w.shadow = nullptr; },  [&w] { w.chip = nullptr; },    [&w] { w.request = nullptr; },
      [&w] { w.writer = nullptr; },  [&w] { w.board = nullptr; },   [&w] { w.alarms = nullptr; },
      [&w] { w.hams[0] = nullptr; }, [&w] { w.hams[1] = nullptr; }, [&w] { w.governor = nullptr; }};
  for (U32 i = 0; i < World::tables; ++i) {
    drops.push_back([&w, i] { w.regions[i] = nullptr; });
    drops.push_back([&w, i] { w.accesses[i] = nullptr; });
  }
  for (U32 i = 0; i < 2; ++i) drops.push_back([&w, i] { w.policies[i] = nullptr; });
  for (std::size_t i = 0; i < w.watches.size(); ++i) {
    drops.push_back([&w, i] { w.watches[i] = nullptr; });
  }
  return drops;
}

void shuffle(std::vector<std::function<void()>>& drops, Support::Random& random) {
  for (std::size_t i = drops.size(); i > 1; --i) {
    const std::size_t other = random.below(static_cast<U32>(i));
    std::swap(drops[i - 1], drops[other]);
  }
}

void dropInSomeOrder(U64 seed) {
  Support::Random random(seed);
  World w;
  const std::size_t done = 1 + random.below(static_cast<U32>(steps().size()));
  for (const Step& step : steps().first(done)) step.run(w);
  // A bound pass, damages, two resets and a replay on demand.
  for (U32 entry = 0; entry < World::entries; ++entry) w.damage(World::plain, entry, 0x100);
  const U32 turnsBefore = random.below(4);
  if (random.oneIn(2)) w.chip->doChipReset();
  if (random.oneIn(2)) w.shadow->chip(w.regions[World::held])->doChipReset();
  if (random.oneIn(2)) w.request->stateIs(Zint::Request::start_);
  for (U32 turn = 0; turn < turnsBefore; ++turn) w.turn();
  std::vector<std::function<void()>> drops = dropsOf(w);
  shuffle(drops, random);
  const bool turnsBetween = random.oneIn(2);
  const std::size_t activityAt = random.below(static_cast<U32>(2 * drops.size()));
  const Zint::Ptr<CountedClock> clock = w.clock;
  for (std::size_t i = 0; i < drops.size(); ++i) {
    if (i == activityAt) {
      w.activity = nullptr;
      w.clock = nullptr;
    }
    drops[i]();
    if (turnsBetween && w.activity != nullptr) w.turn();
  }
  EXPECT_EQ(w.trace.exceptions, 0u) << w.trace.first;
}

// The address sanitizer sees what is used after its end, and what leaks.
TEST(Drops, inEveryOrderLeaveNothing) {
  const char* text = std::getenv("UMBRA_CALLOUTS_ORDERS");
  const U64 orders = text == nullptr ? 200 : std::strtoull(text, nullptr, 10);
  for (U64 seed = 1; seed <= orders; ++seed) {
    SCOPED_TRACE(seed);
    dropInSomeOrder(seed);
    if (HasFailure()) return;
  }
}

// Static objects end after main(), also with work under way.
TEST(Drops, atTheEndOfTheProgramIsSound) {
  EXPECT_EXIT(
      {
        static std::unique_ptr<World> world = std::make_unique<World>();
        std::atexit([] {
          world->turn();
          world->shadow = nullptr;
        });
        for (const Step& step : steps()) step.run(*world);
        world->chip->doChipReset();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
