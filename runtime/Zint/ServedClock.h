// One clock as it is served by one activity: the wake-ups that the activity's notifiees have armed
// on that clock.
//
// An activity has one for its own clock, always, and one for each other clock that a notifiee of
// the activity observes. A clock knows all that serve it and reports to them when it is moved or
// destroyed.
//
// Where a wake-up is:
//   waiting_  until the clock reaches its time
//   next_     for the next turn, whatever the clock reads: 0.0, or a time that was past at arming
//             (on the system's own clock, which never goes back: past when the turn began)
//   turn_     in the turn under way, until its notifiee is notified
//   parked_   was due while its notifiee was marked for deletion; due again once the mark is gone
#pragma once

#include <Zint/WakeQueue.h>
#include <memory>

namespace Zint {

class ActivityConfig;
class Clock;

// The system's monotonic time, read when it is first asked for and then held until forget().
class SystemTime {
 public:
  Seconds read();
  void forget() { isKnown_ = false; }

 private:
  bool isKnown_ = false;
  Seconds time_ = 0;
};

class ServedClock {
 public:
  struct Release {
    void operator()(ServedClock* served) const { served->release(); }
  };
  // One notifiee's share in it. The last one to be dropped ends the serving, except that of the
  // activity's own clock.
  using Share = std::unique_ptr<ServedClock, Release>;

  ServedClock(ActivityConfig& activity, const Clock& clock);
  ~ServedClock();
  ServedClock(const ServedClock&) = delete;
  ServedClock& operator=(const ServedClock&) = delete;

  // Null once the clock has been destroyed; nothing is armed then.
  const Clock* clock() const { return clock_; }
  Share share();
  bool isShared() const { return shares_ > 0; }

  // --- For the notifiees ---
  // Whether a wake-up for `due` belongs to the next turn. Reads the clock, which may throw and call
  // back.
  bool isNext(Seconds due) const;
  // Makes room for one more wake-up. May throw std::bad_alloc.
  void reserve();
  // Arms, in place of what was armed before, in the room that reserve() made.
  void arm(WakeUp& wakeUp, Seconds due, bool isNext);
  void disarm(WakeUp& wakeUp);
  // A notifiee's mark for deletion was set or removed.
  void reconsider();

  // --- For the clock ---
  void onTimeMoved();
  void onClockDestroyed();

  // --- For the activity ---
  // Reads the clock; may throw what the clock throws. The system's own clock is at `systemTime`,
  // here and in delay().
  void readTime(SystemTime& systemTime);
  Seconds turnTime() const { return time_; }
  // Moves all that is due at the time read into the turn, and holds the clock's turn time.
  void beginTurn();
  void endTurn();
  // The wake-up that the turn delivers next; null when there is none. Its delivery takes it out of
  // the turn, by disarm() or by park().
  WakeUp* earliestOfTurn() const { return turn_.earliest(); }
  // How long a wake-up of the turn has been due; infinity for one at 0.0.
  Seconds lateness(const WakeUp& wakeUp) const;
  void park(WakeUp& wakeUp) { parked_.take(wakeUp); }

  // The earliest wake-up in this clock's time; never when there is none.
  Seconds wakeTime() const;
  // Real seconds until the earliest wake-up is due: 0 or less when one is due, never when none is
  // armed or the clock is moved by hand. The clock is read where that matters.
  Seconds delay(SystemTime& systemTime) const;
  // The time of the earliest one that waits for the clock; never when there is none.
  Seconds waitsFor() const { return waiting_.isEmpty() ? never : waiting_.earliest()->due(); }

 private:
  void release();
  bool hasDue() const;
  // Reads the clock and holds it meanwhile. REQUIRES: it is there.
  Seconds clockTime() const;

  ActivityConfig& activity_;
  const Clock* clock_;
  const bool isSystemClock_;  // a MonotonicClock itself, of no derived class
  U32 shares_ = 0;
  bool isInTurn_ = false;
  Seconds time_ = 0;
  WakeQueue waiting_;
  WakeQueue next_;
  WakeQueue turn_;
  WakeQueue parked_;
};

}  // namespace Zint
