// An activity on a clock that only the test moves: a day passes in as long as its work takes.
//
//   TestKit::ManualLoop loop;
//   auto shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
//   loop.runFor(24 * 3600.0);
#pragma once

#include <Zint/Activity.h>

namespace TestKit {

struct ManualLoop {
  Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));

  // Runs everything that is due within this time, at its time.
  void runFor(Zint::Seconds seconds) { activity->runUntil(clock->time() + seconds); }
  // Moves the time on and runs one turn.
  U32 turnAt(Zint::Seconds time) {
    clock->timeIs(time);
    return activity->turn();
  }
  U32 turn() { return activity->turn(); }
};

}  // namespace TestKit
