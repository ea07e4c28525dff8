// Time sources, and the notifiee that is woken by one.
//
//   class Blink : public Zint::Clock::NotifieeConst {
//    public:
//     using NotifieeConst::NotifieeConst;
//     void onTime() override { timeMinIs(notifier()->time() + 0.5); }
//   };
//   auto blink = Zint::makePtr<Blink>(activity, clock);
//   blink->timeMinIs(0.0);  // the first time in the next turn
//
// A time is a count of seconds from the clock's own zero; it may be negative. time() is the
// current time; turnTime() is held within a turn of an activity that serves the clock.
#pragma once

#include <Zint/Entity.h>
#include <Zint/ServedClock.h>

namespace Zint {

class UMBRA_API Clock : public Entity {
 public:
  // A notifiee with one wake-up time. Its activity serves the clock, whichever clock it is.
  // REQUIRES: an activity, wherever a clock is given (range exception; nothing has changed).
  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Ptr<ActivityConfig>& activity, const Ptr<const Clock>& clock,
                  bool active = true);

    void hasNotificationActiveIs(bool active) override;
    void zeroReferencesIs(bool zero) override;
    // Another clock (or none) disarms.
    void notifierIs(const Ptr<const PtrInterface>& notifier) override;
    // The wake-up moves along to the new activity.
    void zintFwkActivityIs(const Ptr<ActivityConfig>& activity) override;
    // A wake-up that becomes due under the mark waits until the mark is removed.
    void zintDoZombieReactors(bool zombie) override;
    // Called once when the clock has reached `timeMin`, in a turn of the activity.
    virtual void onTime() {}

   protected:
    ~NotifieeConst() override;

   public:
    const Clock* notifier() const {
      return static_cast<const Clock*>(Zint::NotifieeConst::notifier());
    }
    Seconds timeMin() const { return timeMin_; }
    // Arms the wake-up, also with the time that was set before, and forgets the old one. 0.0 and a
    // time that is past mean the next turn, never this call; +infinity disarms. It is delivered
    // once. While notification is switched off the wake-up waits.
    // REQUIRES: a clock, and a number (range exceptions).
    void timeMinIs(Seconds timeMin);
    bool isArmed() const { return isArmed_; }
    // Called by the activity when the wake-up is due. False: it waits, because of the mark.
    bool deliverWakeUp();

   private:
    bool isNextTurn(Seconds timeMin) const;
    void updateWakeUp(bool isNext);

    Seconds timeMin_ = never;
    bool isArmed_ = false;
    ServedClock::Share served_;  // null without a clock
    WakeUp wakeUp_;              // leaves its queue before the share is dropped
  };
  struct Notifiee : NotifieeOf<NotifieeConst, Clock> {
    using NotifieeOf::NotifieeOf;
  };

  explicit Clock(Name name) : Entity(std::move(name)) {}

  const Type* fwkType() const override;

 protected:
  ~Clock() override;

 public:
  // The current time, also within a turn.
  Seconds time() const { return timeRead(); }
  // Within a turn of an activity that serves this clock, the time at which the turn began; the
  // current time otherwise. In a turn inside a turn, that of the outer one.
  Seconds turnTime() const { return turns_ == 0 ? timeRead() : turnTime_; }
  bool isInTurn() const { return turns_ != 0; }

  // --- For a derived clock to override ---
  // Reads the source. It must not trace: trace lines carry the time.
  virtual Seconds timeRead() const = 0;
  // Whether the time changes only when it is moved by hand. An activity whose own clock is manual
  // advances it instead of waiting.
  virtual bool isManual() const { return false; }
  // Moves a manual clock on to a later time.
  virtual void advanceTimeTo(Seconds) const {}

  // --- For those that serve this clock ---
  void servedAdd(ServedClock* served) const { served_.push_back(served); }
  void servedDel(ServedClock* served) const { std::erase(served_, served); }
  void turnBegin(Seconds time) const {
    if (turns_++ == 0) turnTime_ = time;
  }
  void turnEnd() const { --turns_; }

 protected:
  // Called by a derived clock after its time was moved by hand or has jumped: every activity that
  // serves the clock sets its timer anew.
  void announceTime() const;

 private:
  mutable U32 turns_ = 0;  // turns under way
  mutable Seconds turnTime_ = 0;
  mutable std::vector<ServedClock*> served_;
};

// The system's monotonic time.
class UMBRA_API MonotonicClock : public Clock {
 public:
  using Clock::Clock;
  Seconds timeRead() const override;
  static Seconds systemTime();
};

// Its time changes only when it is moved: for tests and simulations. An activity whose own clock it
// is does not wait, but advances the time to the next wake-up. So a notifiee that always arms for
// the past stops this clock.
class UMBRA_API ManualClock : public Clock {
 public:
  using Clock::Clock;
  // Time never goes back: an earlier time raises a range exception.
  void timeIs(Seconds time);
  Seconds timeRead() const override { return time_; }
  bool isManual() const override { return true; }
  void advanceTimeTo(Seconds time) const override;

 private:
  mutable Seconds time_ = 0;
};

UMBRA_API ValidPtr<MonotonicClock> monotonicClockFactory(Name name);
UMBRA_API ValidPtr<ManualClock> manualClockFactory(Name name);

// The current time of the first of these clocks that there is: the one whose notifiee is being
// served; the own clock of the activity whose turn runs on this thread; the own clock of the
// activity made last on this thread; the system's monotonic clock.
UMBRA_API Seconds now();

// The turn time of the same clock: for records, which need no exact time.
UMBRA_API Seconds turnTime();

// The same, but to within 2 us where it would be the current time of the system's clock. There it
// never goes back on a thread; the time of a turn after it may be up to 2 us earlier.
UMBRA_API Seconds recordTime();

// The name under which reflection shows it.
constexpr const char* zintTypeName(const Clock*) { return "Zint::Clock"; }

}  // namespace Zint
