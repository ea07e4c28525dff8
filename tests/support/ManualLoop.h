// An activity on a clock that only the test moves.
#pragma once

#include <Zint/Activity.h>

namespace Support {

struct ManualLoop {
  Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));

  // Moves the time on and runs one turn.
  U32 turnAt(Zint::Seconds time) {
    clock->timeIs(time);
    return activity->turn();
  }
  U32 turn() { return activity->turn(); }
};

}  // namespace Support
