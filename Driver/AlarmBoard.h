// Raises alarms when findings become too many: rules say how many within which time, for an entry,
// a region, a chip or the whole shadow.
//
//   auto board = alarmBoardFactory("alarms", activity, clock);
//   board->ruleIs(alarmRuleFactory("often", AlarmRule::entry_, 3, 60, 600));
//   board->findingIs(region, 5, "switch", clock->time());   // told by whoever finds something
//   board->alarm("often/mac/5")->state();                   // raised at the third within 60 s
//
// Invariants:
// 1. The window slides: a rule is met at a time s when at least `count` findings lie in
//    [s - within, s], both ends included. Nothing is rounded, and no finding is left out.
// 2. An alarm is raised by the finding that makes its rule met, and cleared, by a wake-up of the
//    board's own, when the rule has not been met for more than `clearAfter` seconds.
// 3. Memory is bounded: at most maxKeys subjects are known, each with the times of its last `count`
//    findings. One is known from its first finding on. When there are too many, the one without a
//    finding for the longest time is dropped; one whose alarm is active only when all others are
//    so, too. A dropped subject's alarm is cleared and leaves.
// 4. All findings are counted before anybody is notified.
// 5. A finding that meets no rule allocates nothing, once its subjects are known and the times of
//    their findings have their room.
//
// Times are those of the board's clock. They do not go back: an earlier one counts as the latest
// that the board was told. The clock of one turn may give many findings the same time.
#pragma once

#include <Driver/Alarm.h>
#include <Hardware/ChipMemory.h>
#include <Zint/Activity.h>
#include <memory>
#include <vector>

namespace Driver {

class AlarmWindows;
struct AlarmChanges;

class UMBRA_API AlarmBoard : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<AlarmBoard>;

  struct Id : Entity::Id {
    enum : Zint::AttributeId {
      zintFwkActivity = isNondestructing + 1,
      clock,
      maxKeys,
      keys,
      keysDropped,
      activeAlarms,
      rule,
      alarm,
      doAcknowledge,
      findingIs,
      manyAtOnceIs,
      doBeginPass
    };
  };

  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const AlarmBoard>& board, bool active = true);
    const AlarmBoard* notifier() const {
      return static_cast<const AlarmBoard*>(Entity::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    // The alarm of that name was made, has another state, or has left. Its own notifiees are
    // notified first.
    virtual void onAlarm(Zint::String8) {}
    // A rule of that name was added, replaced or removed.
    virtual void onRule(Zint::String8) {}
    virtual void onActiveAlarms() {}
    virtual void onKeysDropped() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, AlarmBoard> {
    using NotifieeOf::NotifieeOf;
  };

  // REQUIRES: a clock, and an activity that serves it (range exceptions).
  AlarmBoard(Zint::Name name, const Zint::Ptr<Zint::ActivityConfig>& activity,
             const Zint::Ptr<const Zint::Clock>& clock);

  // Off: no alarm is cleared by the board's own wake-up. It is on from the start.
  void hasNotificationActiveIs(bool active) override;
  const Zint::Type* fwkType() const override;

 protected:
  ~AlarmBoard() override;

 public:
  const Zint::Ptr<Zint::ActivityConfig>& zintFwkActivity() const { return activity_; }
  const Zint::Ptr<const Zint::Clock>& clock() const { return clock_; }

  // The bound of `keys`: 4,096 unless it is set. REQUIRES: not 0 (range exception).
  U32 maxKeys() const;
  void maxKeysIs(U32 maxKeys);
  // The subjects that are known, over all rules. Its changes are not announced.
  U32 keys() const;
  // How many were dropped although they had an active alarm, or findings in their window: the
  // alarms are exact as long as this is 0.
  U64 keysDropped() const;
  // How many alarms are raised or acknowledged.
  U32 activeAlarms() const;

  // --- The rules, by name ---
  // Null when there is none.
  AlarmRule::Ptr rule(const Zint::String8& name) const;
  U32 rules() const;
  std::vector<Zint::String8> ruleNames() const;
  // Adds a rule, which has seen nothing. It replaces another one of its name, whose alarms leave.
  // Nothing happens if it is the one there. Null: a range exception.
  void ruleIs(const AlarmRule::Ptr& rule);
  // Returns the removed rule, null if there was none. Its alarms leave.
  AlarmRule::Ptr ruleDel(const Zint::String8& name);
  void ruleDelAll();

  // --- The alarms, by name: "rule", or "rule/subject"; two subjects of one name get more to it ---
  // Null when there is none.
  Alarm::Ptr alarm(const Zint::String8& name) const;
  U32 alarms() const;
  std::vector<Zint::String8> alarmNames() const;
  // As Alarm::doAcknowledge. An unknown name: a range exception.
  bool doAcknowledge(const Zint::String8& name);

  // --- What was found ---
  // A region is known by its address. "" is the name of no chip. REQUIRES: a region, and a finite
  // time (range exceptions).
  void findingIs(const Hardware::ChipMemory::Ptr& region, U32 entry, const Zint::String8& chip,
                 Zint::Seconds time);
  // So many differences of one chip at once that it must have lost its state: they were not told
  // one by one. Counts them for the chip and the shadow, and raises the alarms of the manyAtOnce
  // rules whatever their count. REQUIRES: a count, and a finite time (range exceptions).
  void manyAtOnceIs(const Zint::String8& chip, U32 count, Zint::Seconds time);
  // The rules for many at once count from 0 on; what they counted in the pass before no longer
  // keeps them met. REQUIRES: a finite time (range exception).
  void doBeginPass(Zint::Seconds time);

 private:
  friend class Alarm;
  class Wake;

  void handleTimeout();
  void clearDue(Zint::Seconds time);
  template <class Change>
  void change(Change change);
  void announce(const AlarmChanges& changes);
  void alarmNotify(const Zint::String8& name);
  void ruleNotify(const Zint::String8& name);
  void updateWakeUp();

  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Zint::Ptr<const Zint::Clock> clock_;
  std::unique_ptr<AlarmWindows> windows_;
  Zint::Ptr<Wake> wake_;
};

UMBRA_API Zint::Ptr<AlarmBoard> alarmBoardFactory(Zint::Name name,
                                                  const Zint::Ptr<Zint::ActivityConfig>& activity,
                                                  const Zint::Ptr<const Zint::Clock>& clock);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const AlarmBoard*) { return "Driver::AlarmBoard"; }

}  // namespace Driver
