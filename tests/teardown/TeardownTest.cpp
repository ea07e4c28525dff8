// Runs every scenario to every step and drops one kind of object there; then the loop runs on, and
// the rest is dropped in another order. Nothing crashes, no unregistered notifiee is notified, and
// nothing is left.
#include <gtest/gtest.h>

#include <cstdio>

#include "teardown/Scenarios.h"

namespace {

using namespace Teardown;

class TeardownScenario : public testing::TestWithParam<int> {
 protected:
  static void TearDownTestSuite() {
    std::printf(
        "%zu scenarios, %d steps, %d kinds: %d teardowns, of which %d let something go in the "
        "middle\n",
        scenarios().size(), steps, kindCount, teardowns, effective);
    for (int kind = 0; kind < kindCount; ++kind) {
      std::printf("%-15s let go at %d steps\n", kindNames[static_cast<std::size_t>(kind)],
                  letGo[static_cast<std::size_t>(kind)]);
    }
  }
  static inline int steps = 0;
  static inline int teardowns = 0;
  static inline int effective = 0;
  static inline std::array<int, kindCount> letGo{};

  // Runs up to the step, letting go of the kind there.
  static void runTo(Scene& scene, const std::vector<Step>& list, std::size_t last, Kind kind) {
    for (std::size_t i = 0; i < last; ++i) {
      list[i].run(scene, [] {});
    }
    bool reached = false;
    list[last].run(scene, [&] {
      reached = true;
      if (scene.holds(kind)) {
        ++effective;
        ++letGo[static_cast<std::size_t>(kind)];
      }
      scene.drop(kind);
    });
    ASSERT_TRUE(reached) << "the step was not reached";
  }

  // Whether the trace says that a shadow reacted to something.
  static bool aShadowReacted(const Scene& scene) {
    for (const auto& line : scene.trace.full) {
      if (line.text.starts_with("HardwareShadow::")) return true;
    }
    return false;
  }

  const Scenario& scenario = scenarios()[static_cast<std::size_t>(GetParam())];
};

TEST_P(TeardownScenario, everyKindAtEveryStep) {
  for (std::size_t last = 0; last < scenario.steps.size(); ++last) {
    ++steps;
    for (int kind = 0; kind < kindCount; ++kind) {
      ++teardowns;
      SCOPED_TRACE(std::string(scenario.name) + ", step " + std::to_string(last + 1) + " (" +
                   scenario.steps[last].name + "), " + kindNames[static_cast<std::size_t>(kind)]);
      {
        Scene scene;
        ASSERT_NO_FATAL_FAILURE(runTo(scene, scenario.steps, last, static_cast<Kind>(kind)));
        scene.turn(8);
        for (int i = 1; i <= kindCount; ++i) {
          scene.drop(static_cast<Kind>((kind + i) % kindCount));
          // Without a shadow, nothing is notified of the answer to its request.
          if (Counted<Shadow>::living == 0) {
            scene.trace.full.clear();
            if (scene.request != nullptr) scene.request->statusIs(Request::done_);
            scene.turn();
            EXPECT_FALSE(aShadowReacted(scene));
          }
        }
        EXPECT_EQ(Scene::living(), 0) << Scene::livingByClass();
        EXPECT_EQ(scene.stray, 0);
        EXPECT_EQ(scene.chunksEnded, scene.chunksMade);
      }
      if (HasFailure()) return;
    }
  }
}

// Each kind can be dropped at some step.
TEST(TeardownKinds, eachIsLetGoSomewhere) {
  std::array<int, kindCount> held{};
  for (const Scenario& scenario : scenarios()) {
    Scene scene;
    for (const Step& step : scenario.steps) {
      step.run(scene, [] {});
      for (int kind = 0; kind < kindCount; ++kind) {
        held[static_cast<std::size_t>(kind)] += scene.holds(static_cast<Kind>(kind)) ? 1 : 0;
      }
    }
  }
  for (int kind = 0; kind < kindCount; ++kind) {
    EXPECT_GE(held[static_cast<std::size_t>(kind)], 5) << kindNames[static_cast<std::size_t>(kind)];
  }
}

INSTANTIATE_TEST_SUITE_P(Every, TeardownScenario,
                         testing::Range(0, static_cast<int>(scenarios().size())),
                         [](const testing::TestParamInfo<int>& param) {
                           std::string name;
                           const auto i = static_cast<std::size_t>(param.param);
                           for (const char c : std::string(scenarios()[i].name)) {
                             if (c == ' ' || c == '-') continue;
                             name += c;
                           }
                           return name;
                         });

}  // namespace
