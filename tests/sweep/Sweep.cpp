#include "Sweep.h"

#include <optional>

namespace Sweep {
namespace {

enum class End { done, undone, threw, threwAnother };

// How an operation of a step ended. `thrown`: what the failing access throws.
End run(bool (*operation)(World&), World& w, Thrown thrown) {
  const Memory::Counting counting;
  try {
    return operation(w) ? End::done : End::undone;
  } catch (const Zint::RangeException&) {
    return thrown == Thrown::range ? End::threw : End::threwAnother;
  } catch (const std::bad_alloc&) {
    return thrown == Thrown::memory || Memory::refused() ? End::threw : End::threwAnother;
  } catch (int) {
    return thrown == Thrown::number ? End::threw : End::threwAnother;
  } catch (...) {
    return End::threwAnother;
  }
}

class Player {
 public:
  Player(const Scenario& scenario, const Plan& plan) : scenario_(scenario), plan_(plan) {}

  Outcome play() {
    outcome_.wrong.reserve(256);
    world_.emplace(plan_.traceLevel);
    world_->chip->failing = plan_.access;
    world_->chip->thrown = plan_.thrown;
    Memory::begin(plan_.refusal, plan_.block);
    for (const Step& step : scenario_.steps) {
      if (!play(step)) break;
    }
    outcome_.failed = world_->chip->failed || Memory::refused();
    if (outcome_.wrong.empty()) outcome_.image = world_->image();
    outcome_.accesses = world_->chip->accesses;
    tornDown();
    outcome_.blocks = Memory::blocksAsked();
    return std::move(outcome_);
  }

 private:
  // False: no further step.
  bool play(const Step& step) {
    World& w = *world_;
    const bool failedBefore = w.chip->failed || Memory::refused();
    const U32 accessesBefore = w.chip->accesses;
    const U32 tracedBefore = w.trace.exceptions;
    End end = run(step.run, w, plan_.thrown);
    wrongIf(step, end == End::threwAnother, "another exception than the one that was thrown");
    checked(step, "");
    if (w.chip->failed && !failedBefore) {
      accessFailed(step, end, w.chip->failing - accessesBefore, w.trace.exceptions - tracedBefore);
    }
    if (end == End::done) return outcome_.wrong.empty();
    // One failure per run, in one step, or in all until memory is back.
    wrongIf(step, std::exchange(wasTakenUp_, true), "failed although the failure is over");
    wrongIf(step, !w.chip->failed && !Memory::refused(), "stopped without a failure");
    if (plan_.refusal == Memory::Refusal::fromThenOn) {
      // Once more without memory: no further damage.
      end = run(step.recover != nullptr ? step.recover : step.run, w, plan_.thrown);
      wrongIf(step, end == End::threwAnother, "another exception at the second attempt");
      checked(step, " without memory");
      if (plan_.givenUp) return false;
      Memory::endRefusal();
    }
    end = run(step.recover != nullptr ? step.recover : step.run, w, Thrown::nothing);
    wrongIf(step, end != End::done, "could not be taken up again");
    checked(step, " taken up again");
    return outcome_.wrong.empty();
  }

  void accessFailed(const Step& step, End end, U32 access, U32 traced) {
    const bool handled = step.reach == Reach::handler;
    wrongIf(step, handled && end != End::undone, "an exception left a handler, or was lost");
    wrongIf(step, handled && traced != 1, "the exception in a handler was not traced once");
    wrongIf(step, !handled && end != End::threw, "the exception did not reach the caller");
    wrongIf(step, !handled && traced != 0, "an exception outside of handlers was traced");
    if (step.checkFailure != nullptr && outcome_.wrong.empty()) step.checkFailure(*world_, access);
  }

  void tornDown() {
    {
      const Memory::Counting counting;
      world_->trace.exceptions = 0;
      world_.reset();
    }
    if (Memory::blocksLive() != 0 && outcome_.wrong.empty()) {
      outcome_.wrong = std::to_string(Memory::blocksLive()) + " blocks leak, the first is number " +
                       std::to_string(Memory::firstLive());
    }
  }

  void checked(const Step& step, const char* when) {
    const std::string rule = world_->broken();
    wrongIf(step, !rule.empty(), rule + when);
  }
  void wrongIf(const Step& step, bool wrong, const std::string& what) {
    if (wrong && outcome_.wrong.empty()) outcome_.wrong = std::string(step.name) + ": " + what;
  }

  const Scenario& scenario_;
  const Plan plan_;
  Outcome outcome_;
  std::optional<World> world_;
  bool wasTakenUp_ = false;
};

}  // namespace

Outcome play(const Scenario& scenario, const Plan& plan) { return Player(scenario, plan).play(); }

}  // namespace Sweep
