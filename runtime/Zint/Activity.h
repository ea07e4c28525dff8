// The activity: an event loop whose single thread runs all handlers of its notifiees.
//
// On its own:                              Inside another event loop:
//   auto clock = monotonicClockFactory("clock");   poll(activity->descriptor()) for reading;
//   auto activity = activityFactory("main", clock);  when it is readable: activity->turn();
//   activity->run();   // until stop()             (or sleep until activity->wakeTime())
//
// An activity serves its own clock and every other clock that one of its notifiees observes. Other
// threads hand it functions through its poster().
//
// Invariants:
// 1. A turn delivers what was due when it began. Of one clock: in the order of time, then of
//    arming. Between clocks: first what has been due longest, 0.0 before all, then in the order of
//    arming. What is armed during a turn waits for the next, so that a wake-up of 0.0 cannot starve
//    the loop.
// 2. A turn allocates nothing.
// 3. The descriptor's timer is set when the earliest wake-up changes or has passed, and not
//    otherwise.
// 4. A run sets the timer only to wait: not while a wake-up is due. Then it polls without waiting,
//    every 20 us or after each longer turn, so that no descriptor starves; one whose own clock is
//    manual does not poll then.
// 5. Posted functions run first in a turn. They are due like a wake-up at the next turn.
// 6. All but stop() belong to the one thread. Another thread touches a Poster only.
#pragma once

#include <Zint/Clock.h>
#include <Zint/Poster.h>
#include <atomic>
#include <memory>
#include <vector>

namespace Zint {

class UMBRA_API ActivityConfig : public Entity {
 public:
  ActivityConfig(Name name, const ValidPtr<const Clock>& clock);

  const Type* fwkType() const override;

 protected:
  ~ActivityConfig() override;

 public:
  // Its own clock: the one that turns and runs are measured by.
  const Clock* clock() const { return clock_.ptr(); }

  // Delivers what is due now and returns how many wake-ups and posted functions that were. Not from
  // inside a turn.
  U32 turn();
  // Turns and waits until stop(); an own clock that is manual is advanced instead of waiting.
  // Returns at once if the own clock is manual and has nothing to be advanced to, and no other
  // clock will ever wake a notifiee: it does not wait for what other threads may post. Not from
  // inside a turn on its own clock.
  void run();
  // The same until the own clock's time reaches `time`; what is due then has been delivered. Of
  // posted functions: those that were posted before the time was reached; on a manual clock, all.
  void runUntil(Seconds time);
  // Ends run() or runUntil() after the current turn; before them, ends the next one. The one
  // operation that any thread and any signal handler may call.
  void stop();

  // A handle for other threads; see Poster. The first call makes the queue, with room for
  // `capacity` functions or a little more, and the descriptor; later ones share it.
  // REQUIRES: a capacity of 1 to Poster::maxCapacity (range exception). May raise
  // std::system_error.
  Poster poster(U32 capacity = Poster::defaultCapacity);
  // The same as poster().post(), on this thread.
  bool post(std::function<void()>&& function) { return poster().post(std::move(function)); }

  // The earliest wake-up, in the own clock's time; +infinity when nothing is armed. May be in the
  // past: due at the next turn. One on another clock counts with the real time that is left; on
  // another clock that is moved by hand, not before it is due.
  Seconds wakeTime() const;
  // Readable while a wake-up is due. Owned by the activity, made on first use; a failure raises
  // std::system_error.
  int descriptor();

  // The clock that now() reads on this thread; null when there is no activity.
  static const Clock* threadClock();

  // --- For the notifiees of clocks ---
  // A share in the service of `clock`, which begins with the first one.
  ServedClock::Share serve(const Clock& clock);
  // Ends the service of clocks in which nobody has a share any more.
  void dropUnserved();
  U64 countArming() { return ++armings_; }
  // Sets the descriptor's timer to the earliest wake-up, unless it is set so already. Throws
  // nothing.
  void updateTimer();
  // The same after a clock was moved: a timer that was set for that clock is set again.
  void resetTimer(const ServedClock& served);

 private:
  class Turn;
  class Walk;

  // What the descriptor's timer is set to.
  struct Timer {
    const void* source = nullptr;  // whose time, in its own count; null for none
    Seconds due = never;
    Seconds delay = never;     // real seconds from now
    Seconds deadline = never;  // the system's monotonic time at which it expires
  };

  // While a wake-up is due, a run polls when this time has passed since it last did. Half of the 20
  // us that are the rule, because a turn may begin just before: a longer turn ends in a poll.
  static constexpr Seconds pollInterval = 10e-6;

  ServedClock& own() const { return *served_.front(); }
  Seconds runTurn(SystemTime& systemTime);
  bool takeStop();
  bool wait(Seconds until, SystemTime& systemTime);
  Timer earliest(SystemTime& systemTime) const;
  Timer earliestOrDue(SystemTime& systemTime) const;
  void setTimerTo(Timer wanted);
  void setTimerForPosts();
  bool makeDescriptor();
  void eraseUnserved();
  // The one test that an activity without posters pays for.
  bool hasPosts() const { return posts_ != nullptr && isPostPending(); }
  bool isPostPending() const;

  Ptr<const Clock> clock_;
  std::vector<std::unique_ptr<ServedClock>> served_;  // the own clock's is the first
  ActivityConfig* older_ = nullptr;                   // made before this one on the thread
  U64 armings_ = 0;
  U32 delivered_ = 0;  // in the turn under way
  bool isTurning_ = false;
  bool isRunning_ = false;  // in run() or runUntil()
  mutable U32 walks_ = 0;
  Timer timer_;
  Seconds limit_ = never;    // of the run under way
  Seconds polled_ = -never;  // the system's time when a run last polled while a wake-up was due
  std::atomic<bool> isStopped_{false};
  std::atomic<bool> isTimerTaken_{false};  // stop() has set the timer
  std::atomic<int> descriptor_{-1};
  std::shared_ptr<PostQueue> posts_;  // null until poster(); owns the descriptor from then on
};

UMBRA_API ValidPtr<ActivityConfig> activityFactory(Name name, const ValidPtr<const Clock>& clock);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ActivityConfig*) { return "Zint::ActivityConfig"; }

}  // namespace Zint
