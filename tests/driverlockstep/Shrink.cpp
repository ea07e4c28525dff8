// A failure, with as few steps as show it.
#include <algorithm>

#include "driverlockstep/Session.h"

namespace DriverLockstep {

std::optional<Failure> replay(U64 seed, const std::vector<Step>& steps) {
  Session session(seed);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    try {
      session.perform(steps[i]);
    } catch (const Mismatch& mismatch) {
      const auto end = steps.begin() + static_cast<std::ptrdiff_t>(i) + 1;
      return Failure{seed, {steps.begin(), end}, mismatch.text};
    }
  }
  return std::nullopt;
}

Failure shrink(Failure failure) {
  for (bool fewer = true; fewer;) {
    fewer = false;
    for (std::size_t chunk = failure.steps.size() / 2 + 1; chunk > 0; chunk /= 2) {
      for (std::size_t begin = 0; begin < failure.steps.size();) {
        std::vector<Step> rest = failure.steps;
        const auto first = rest.begin() + static_cast<std::ptrdiff_t>(begin);
        const std::size_t length = std::min(chunk, rest.size() - begin);
        rest.erase(first, first + static_cast<std::ptrdiff_t>(length));
        if (auto smaller = replay(failure.seed, rest)) {
          failure = std::move(*smaller);
          fewer = true;
        } else {
          begin += chunk;
        }
      }
    }
  }
  return failure;
}

// The steps, each with the events that it gave.
std::string report(const Failure& failure) {
  std::string text = "seed " + std::to_string(failure.seed) + "\n";
  Session session(failure.seed);
  for (const Step& step : failure.steps) {
    text += "  " + step.text() + "\n";
    try {
      session.perform(step);
    } catch (const Mismatch&) {
      break;
    }
    for (const Event& event : session.events()) text += "      " + event.text() + "\n";
  }
  return text + failure.text + "\n";
}

}  // namespace DriverLockstep
