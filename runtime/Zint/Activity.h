// The activity: an event loop whose single thread runs all handlers of the reactors given to it.
//
// On its own:                              Inside another event loop:
//   auto clock = monotonicClockFactory("clock");   poll(activity->descriptor()) for reading;
//   auto activity = activityFactory("main", clock);  when it is readable: activity->turn();
//   activity->run();   // until stop()             (or sleep until activity->wakeTime())
//
// Invariants:
// 1. A turn runs what was due when it began, in the order of due time, then of arming; what is
//    armed during a turn waits for the next, so that a wake-up of 0.0 cannot starve the loop.
// 2. Time does not move within a turn.
// 3. All but stop() belong to the one thread.
#pragma once

#include <Zint/Clock.h>
#include <atomic>
#include <vector>

namespace Zint {

class UMBRA_API ActivityConfig : public Entity {
 public:
  ActivityConfig(Name name, const ValidPtr<const Clock>& clock);

  const Type* fwkType() const override;

 protected:
  ~ActivityConfig() override;

 public:
  const Clock* clock() const { return clock_.ptr(); }

  // Runs what is due now and returns how many wake-ups were delivered. Not from inside a turn.
  U32 turn();
  // Turns and waits until stop(); a manual clock is moved instead of waiting. Returns at once from
  // a manual clock that nothing will ever wake. Not from inside a turn on the same clock.
  void run();
  // The same until the clock's time reaches `time`; what is due then has been run.
  void runUntil(Seconds time);
  // Ends run() or runUntil() after the current turn; before them, ends the next one. The one
  // operation that any thread and any signal handler may call.
  void stop();

  // The earliest wake-up; +infinity when nothing is armed. May lie in the past: due at the next
  // turn.
  Seconds wakeTime() const;
  // Readable while a wake-up is due. Owned by the activity, made on first use; a failure raises
  // std::system_error.
  int descriptor();

  // The clock of the activity whose turn runs on this thread, else of the one made last on it.
  static const Clock* threadClock();

 private:
  friend class Clock;
  friend class Clock::NotifieeConst;
  class Turn;

  using Alarm = Clock::NotifieeConst;

  void alarmRoom();  // may throw; alarmIs() right behind it does not
  void alarmIs(Alarm* alarm);
  void alarmDel(Alarm* alarm);
  void wakeUpdated();
  bool waited(Seconds until);

  // A binary heap, earliest first; each alarm knows its place.
  static bool before(const Alarm* left, const Alarm* right);
  void put(std::size_t place, Alarm* alarm);
  void rise(std::size_t place);
  void sink(std::size_t place);
  void remove(std::size_t place);

  Ptr<const Clock> clock_;
  std::vector<Alarm*> heap_;
  std::vector<Alarm*> due_;           // of the current turn; null where one was disarmed meanwhile
  ActivityConfig* before_ = nullptr;  // made before this one on the thread, and living
  U64 armings_ = 0;
  bool turning_ = false;
  std::atomic<bool> stopped_{false};
  std::atomic<int> descriptor_{-1};
};

UMBRA_API ValidPtr<ActivityConfig> activityFactory(Name name, const ValidPtr<const Clock>& clock);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ActivityConfig*) { return "Zint::ActivityConfig"; }

}  // namespace Zint
