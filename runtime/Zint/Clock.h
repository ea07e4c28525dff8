// Time sources, and the reactor that is woken by one.
//
// Time is a monotonic count of seconds. Within one turn of an activity it does not move, neither
// for the activity's clock nor for Zint::now().
#pragma once

#include <Zint/Entity.h>
#include <limits>
#include <vector>

namespace Zint {

class ActivityConfig;

constexpr Seconds never = std::numeric_limits<Seconds>::infinity();

class UMBRA_API Clock : public Entity {
 public:
  // A reactor with one wake-up time.
  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Ptr<ActivityConfig>& activity, const Ptr<const Clock>& clock,
                  bool active = true);

    void hasNotificationActiveIs(bool active) override;
    void zeroReferencesIs(bool zero) override;
    // Another clock (or none) disarms.
    void notifierIs(const Ptr<const PtrInterface>& notifier) override;
    // The wake-up time moves along to the new activity.
    void zintFwkActivityIs(const Ptr<ActivityConfig>& activity) override;
    // Called once when the clock has reached `timeMin`, in a turn of the activity.
    virtual void onTime() {}

   protected:
    ~NotifieeConst() override;

   public:
    const Clock* notifier() const {
      return static_cast<const Clock*>(Zint::NotifieeConst::notifier());
    }
    Seconds timeMin() const { return timeMin_; }
    // Arms the wake-up, also with the time that was set before; the old one is forgotten. 0.0 means
    // the next turn, never inside this call; +infinity disarms. It fires once.
    // While notification is switched off the wake-up waits.
    // REQUIRES: an activity that runs on this clock (range exception), and a number (the same).
    void timeMinIs(Seconds timeMin);
    bool isArmed() const { return armed_; }

   private:
    friend class ActivityConfig;

    void fire();

    Seconds timeMin_ = never;
    bool armed_ = false;
    // The activity's bookkeeping.
    static constexpr std::size_t notQueued = ~std::size_t{0};
    std::size_t place_ = notQueued;  // in the activity's heap
    U64 order_ = 0;                  // of arming
    bool due_ = false;               // in the current turn
  };
  struct Notifiee : NotifieeOf<NotifieeConst, Clock> {
    using NotifieeOf::NotifieeOf;
  };

  explicit Clock(Name name) : Entity(std::move(name)) {}

  const Type* fwkType() const override;

 protected:
  ~Clock() override;

 public:
  // The time now; in a turn, the time at which the turn began.
  Seconds time() const { return turns_ == 0 ? timeRead() : turnTime_; }

  // The source itself, which goes on in a turn too.
  virtual Seconds timeRead() const = 0;

 protected:
  // Whether the source stands still until it is moved by hand, and the moving of such a one to a
  // later time.
  virtual bool isManual() const { return false; }
  virtual void timeAdvancedTo(Seconds) const {}
  // Called by a derived clock after its time was moved by hand.
  void timeMoved() const;

 private:
  friend class ActivityConfig;

  mutable U32 turns_ = 0;  // turns under way
  mutable Seconds turnTime_ = 0;
  mutable std::vector<ActivityConfig*> activities_;  // that run on this clock
};

// The system's monotonic time.
class UMBRA_API MonotonicClock : public Clock {
 public:
  using Clock::Clock;
  Seconds timeRead() const override;
};

// Stands still until it is moved: for tests and simulations. An activity that runs on it does not
// wait; it moves the time to the next wake-up (so reactors that re-arm for a time already past keep
// time standing).
class UMBRA_API ManualClock : public Clock {
 public:
  using Clock::Clock;
  // Time never goes back: an earlier time raises a range exception.
  void timeIs(Seconds time);
  Seconds timeRead() const override { return time_; }

 protected:
  bool isManual() const override { return true; }
  void timeAdvancedTo(Seconds time) const override;

 private:
  mutable Seconds time_ = 0;
};

UMBRA_API ValidPtr<MonotonicClock> monotonicClockFactory(Name name);
UMBRA_API ValidPtr<ManualClock> manualClockFactory(Name name);

// The time of the activity whose turn runs on this thread; outside of turns, of the clock of the
// activity made last on this thread, and of the system's monotonic clock when there is none.
UMBRA_API Seconds now();

// The same at the time at which the turn began, within a turn: for records, which need no exact
// time.
UMBRA_API Seconds turnTime();

// The name under which reflection shows it.
constexpr const char* zintTypeName(const Clock*) { return "Zint::Clock"; }

}  // namespace Zint
