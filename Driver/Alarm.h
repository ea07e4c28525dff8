// One alarm of an alarm board: what it is about, its state, counts and times.
//
// The board makes it when its rule is met for the first time, and keeps it when it is cleared, so
// that it can be raised again. An alarm that has left its board is cleared and changes no more.
#pragma once

#include <Driver/AlarmRule.h>
#include <Zint/Clock.h>

namespace Driver {

class UMBRA_API Alarm : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<Alarm>;

  // acknowledged: somebody has seen it; the rule is still met, or was so lately.
  enum State : S32 { cleared_ = 0, raised_ = 1, acknowledged_ = 2 };
  static State StateInstance(U32 value);
  static State StateInstance(const Zint::String8& text);

  struct Id : Entity::Id {
    enum : Zint::AttributeId {
      rule = isNondestructing + 1,
      subject,
      state,
      findings,
      raises,
      firstTime,
      lastTime,
      raisedTime,
      acknowledgedTime,
      clearedTime,
      doAcknowledge
    };
  };

  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const Alarm>& alarm, bool active = true);
    const Alarm* notifier() const {
      return static_cast<const Alarm*>(Entity::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    // The times and `raises` have changed with it.
    virtual void onState() {}
    // Another finding, while the alarm is not cleared. lastTime has changed with it.
    virtual void onFindings() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, Alarm> {
    using NotifieeOf::NotifieeOf;
  };

  // Made by the board alone.
  Alarm(Zint::Name name, const AlarmRule::Ptr& rule, Zint::String8 subject);

  const Zint::Type* fwkType() const override;

 protected:
  ~Alarm() override;

 public:
  const AlarmRule::Ptr& rule() const { return rule_; }
  // What was found: "mac/5" for entry 5 of the region "mac", "mac", the name of a chip, "".
  const Zint::String8& subject() const { return subject_; }
  State state() const { return state_; }
  bool isActive() const { return state_ != cleared_; }
  // How many there were for this subject since the board knows of it.
  U64 findings() const { return findings_; }
  // How often it was raised.
  U32 raises() const { return raises_; }

  // The board's times; infinity for what has not happened. The last three are of the last time.
  Zint::Seconds firstTime() const { return firstTime_; }
  Zint::Seconds lastTime() const { return lastTime_; }
  Zint::Seconds raisedTime() const { return raisedTime_; }
  Zint::Seconds acknowledgedTime() const { return acknowledgedTime_; }
  // From which time on its rule was not met for long enough.
  Zint::Seconds clearedTime() const { return clearedTime_; }

  // Somebody has seen it. False, and nothing happens, unless it is raised.
  bool doAcknowledge();

 private:
  friend class AlarmWindows;

  void count(U64 findings, Zint::Seconds firstTime, Zint::Seconds lastTime) {
    findings_ = findings;
    firstTime_ = firstTime;
    lastTime_ = lastTime;
  }
  void raise(Zint::Seconds time) {
    state_ = raised_;
    raisedTime_ = time;
    ++raises_;
  }
  void clear(Zint::Seconds time) {
    state_ = cleared_;
    clearedTime_ = time;
  }

  const AlarmRule::Ptr rule_;
  const Zint::String8 subject_;
  State state_ = cleared_;
  U32 raises_ = 0;
  U64 findings_ = 0;
  Zint::Seconds firstTime_ = Zint::never;
  Zint::Seconds lastTime_ = Zint::never;
  Zint::Seconds raisedTime_ = Zint::never;
  Zint::Seconds acknowledgedTime_ = Zint::never;
  Zint::Seconds clearedTime_ = Zint::never;
};

// The enumerator's name without the underscore.
UMBRA_API Zint::String8 stringValue(Alarm::State state);
UMBRA_API Zint::String8 valueToStrep(const Alarm::State& state);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end, Alarm::State& state);
UMBRA_API std::ostream& operator<<(std::ostream& out, const Alarm::State& state);

// The names under which reflection shows them.
constexpr const char* zintTypeName(const Alarm*) { return "Driver::Alarm"; }
constexpr const char* zintTypeName(const Alarm::State*) { return "Driver::Alarm::State"; }

}  // namespace Driver
