#include <algorithm>

#include "lockstep/Driver.h"

namespace Lockstep {
namespace {

// Steps without [begin, end). Where the making of a region goes, the ones made later move down.
Steps without(const Steps& steps, std::size_t begin, std::size_t end, bool renumbered) {
  Steps rest;
  U32 made = 0;
  std::vector<U32> gone;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const bool makes = steps[i].operation == Operation::regionCreate;
    if (i < begin || i >= end) {
      rest.push_back(steps[i]);
    } else if (makes) {
      gone.push_back(made);
    }
    made += makes;
  }
  if (renumbered) {
    for (Step& step : rest) {
      U32 lower = 0;
      for (U32 region : gone) lower += region < step.region;
      step.region = static_cast<U8>(step.region - lower);
    }
  }
  return rest;
}

class Shrinking {
 public:
  Shrinking(const Divergence& divergence, Plant plant) : best_(divergence), plant_(plant) {}

  Divergence run() {
    tried(best_.steps);  // drops what comes after the difference, and steps without effect
    do {
      fewerSteps();
    } while (simplifyArguments() || takeDetour());
    return best_;
  }

 private:
  bool tried(const Steps& steps) {
    auto divergence = replay(steps, plant_);
    if (!divergence) return false;
    best_ = std::move(*divergence);
    return true;
  }

  void fewerSteps() {
    for (bool fewer = true; fewer;) {
      fewer = false;
      for (std::size_t chunk = std::max<std::size_t>(best_.steps.size() / 2, 1); chunk > 0;
           chunk /= 2) {
        for (std::size_t begin = 0; begin < best_.steps.size();) {
          const std::size_t end = std::min(begin + chunk, best_.steps.size());
          if (tried(without(best_.steps, begin, end, true)) ||
              tried(without(best_.steps, begin, end, false))) {
            fewer = true;
          } else {
            begin += chunk;
          }
        }
      }
    }
  }

  // Where no single step can be removed, one step may replace several: a turn at the next
  // wake-up, a large slice, a command or a part of the audit by hand.
  bool takeDetour() {
    constexpr std::size_t fewEnough = 40;
    if (best_.steps.size() > fewEnough) return false;
    const Divergence held = best_;
    for (const char* detour :
         {"turn 0 1", "reader 0 0 6", "reader 0 1", "request", "auditCall", "auditCall 0 4",
          "auditInterval", "traceLevel 0 9", "doClear", "state 0 2", "state 0 3"}) {
      const Step step = stepsFromText(detour)->front();
      for (std::size_t at = 0; at < held.steps.size(); ++at) {
        Steps steps = held.steps;
        steps.insert(steps.begin() + static_cast<std::ptrdiff_t>(at), step);
        if (!tried(steps)) continue;
        fewerSteps();
        if (best_.steps.size() < held.steps.size()) return true;
        best_ = held;
      }
    }
    Steps steps = held.steps;
    for (Step& step : steps) {
      if (step.operation == Operation::turn) step.a[0] = 1;
    }
    if (tried(steps)) {
      fewerSteps();
      if (best_.steps.size() < held.steps.size()) return true;
    }
    best_ = held;
    return false;
  }

  bool simplifyArguments() {
    bool plainer = false;
    for (std::size_t i = 0; i < best_.steps.size(); ++i) {
      for (U32 argument = 0; argument <= Step::arguments; ++argument) {
        const auto value = [&](Step& step) -> U8& {
          return argument == 0 ? step.region : step.a[argument - 1];
        };
        const U32 held = value(best_.steps[i]);
        for (U32 simpler : {0u, 1u, held / 2, held - 1}) {
          if (simpler >= held || i >= best_.steps.size()) continue;
          Steps steps = best_.steps;
          value(steps[i]) = static_cast<U8>(simpler);
          if (tried(steps)) {
            plainer = true;
            break;
          }
        }
        if (i >= best_.steps.size()) return plainer;
      }
    }
    return plainer;
  }

  Divergence best_;
  const Plant plant_;
};

}  // namespace

std::optional<Divergence> replay(const Steps& steps, Plant plant) {
  Scenario scenario(Depth::full, plant);
  Steps taken;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const bool last = i + 1 == steps.size();
    const Outcome outcome = scenario.run(steps[i], last ? Scenario::takesAll : Scenario::takesNone);
    if (outcome == Outcome::nothing || outcome == Outcome::refused) continue;
    taken.push_back(steps[i]);
    if (outcome == Outcome::diverged) {
      return Divergence{taken, scenario.difference(), scenario.lastCall()};
    }
    if (outcome == Outcome::ended) break;
  }
  return std::nullopt;
}

Divergence shrink(const Divergence& divergence, Plant plant) {
  return Shrinking(divergence, plant).run();
}

}  // namespace Lockstep
