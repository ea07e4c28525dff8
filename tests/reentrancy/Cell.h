// One run of the world with one misbehaviour, and what came of it.
#pragma once

#include "reentrancy/World.h"

namespace Reentrancy {

struct Outcome {
  // "allowed", "refused: <message>" (an exception that reached the caller), "reported: <message>"
  // (one that the runtime caught and traced), "fatal: <condition>".
  std::string text;
  bool acted;
  bool fatal() const { return text.starts_with("fatal: "); }
};

// The run ends at a fatal assertion, as the process would; without one the world is examined:
// `only` is the one action whose result is known, null for none.
Outcome outcomeOf(Callback callback, const Actions& actions, const Action* only);

// The same run, which ends the process where an assertion fails.
void runToTheEnd(Callback callback, const Actions& actions);

}  // namespace Reentrancy
