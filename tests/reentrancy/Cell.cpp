#include "reentrancy/Cell.h"

#include <Zint/Assert.h>
#include <gtest/gtest.h>

namespace Reentrancy {
namespace {

std::string failedCondition;  // the first

// Records assertions while it lives; the operation that fails is abandoned by an exception, which
// the guard of the notifiees may well catch.
class FailureRecorder {
 public:
  FailureRecorder() : before_(Zint::assertionHookIs(recordFailure)) { failedCondition.clear(); }
  ~FailureRecorder() { Zint::assertionHookIs(before_); }
  FailureRecorder(const FailureRecorder&) = delete;
  FailureRecorder& operator=(const FailureRecorder&) = delete;

 private:
  static void recordFailure(const Zint::AssertionFailure& failure) {
    if (failedCondition.empty()) failedCondition = failure.condition;
    throw std::string(failure.condition);
  }
  Zint::AssertionHook before_;
};

// The message of the first exception that the runtime caught.
std::string firstReport(const World& world) {
  for (const auto& line : world.trace.full) {
    if (line.handle != "Zint") continue;
    return line.text.substr(line.text.find(": ") + 2);
  }
  return "";
}

}  // namespace

Outcome outcomeOf(Callback callback, const Actions& actions, const Action* only) {
  World world(callback);
  std::string refused;
  {
    const FailureRecorder recorded;
    try {
      world.run(actions);
    } catch (const Zint::RangeException& exception) {
      refused = exception.what();
      try {
        world.turn(8);
      } catch (const std::string&) {
      }
    } catch (const std::string&) {
    }
  }
  Outcome outcome{"allowed", world.hasActed()};
  if (!failedCondition.empty()) {
    outcome.text = "fatal: " + failedCondition;
    return outcome;
  }
  if (!refused.empty()) {
    outcome.text = "refused: " + refused;
  } else if (const std::string message = firstReport(world); !message.empty()) {
    outcome.text = "reported: " + message;
  }
  expectSound(world);
  if (only != nullptr) expectResult(world, *only);
  world.expectWorking();
  return outcome;
}

void runToTheEnd(Callback callback, const Actions& actions) {
  World world(callback);
  try {
    world.run(actions);
  } catch (const Zint::RangeException&) {
    world.turn(8);
  }
}

}  // namespace Reentrancy
