// When an alarm is raised and cleared: `count` findings within `within` seconds raise it; it is
// cleared when the count has not been reached for more than `clearAfter` seconds.
//
//   auto often = alarmRuleFactory("often", AlarmRule::entry_, 3, 60, 600);
//   board->ruleIs(often);   // three findings of one entry within a minute
//
// A rule does not change: another one takes its place.
#pragma once

#include <Zint/Entity.h>
#include <Zint/Strep.h>

namespace Driver {

class UMBRA_API AlarmRule : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<const AlarmRule>;

  // What the findings are counted for: each of these has a window and an alarm of its own.
  // manyAtOnce: the findings of the whole shadow; besides those within `within` seconds, those of
  // one pass are counted, however long it takes.
  enum Scope : S32 { entry_ = 0, region_ = 1, chip_ = 2, shadow_ = 3, manyAtOnce_ = 4 };
  static Scope ScopeInstance(U32 value);
  static Scope ScopeInstance(const Zint::String8& text);

  struct Id : Entity::Id {
    enum : Zint::AttributeId { scope = isNondestructing + 1, count, within, clearAfter };
  };

  static constexpr U32 maxCount = 65536;

  // REQUIRES: a name; a count from 1 to maxCount; times that are finite and not negative (range
  // exceptions).
  AlarmRule(Zint::Name name, Scope scope, U32 count, Zint::Seconds within,
            Zint::Seconds clearAfter);

  const Zint::Type* fwkType() const override;

 protected:
  ~AlarmRule() override;

 public:
  Scope scope() const { return scope_; }
  U32 count() const { return count_; }
  Zint::Seconds within() const { return within_; }
  Zint::Seconds clearAfter() const { return clearAfter_; }

 private:
  const Scope scope_;
  const U32 count_;
  const Zint::Seconds within_;
  const Zint::Seconds clearAfter_;
};

UMBRA_API Zint::Ptr<AlarmRule> alarmRuleFactory(Zint::Name name, AlarmRule::Scope scope, U32 count,
                                                Zint::Seconds within, Zint::Seconds clearAfter);

// The enumerator's name without the underscore.
UMBRA_API Zint::String8 stringValue(AlarmRule::Scope scope);
UMBRA_API Zint::String8 valueToStrep(const AlarmRule::Scope& scope);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end, AlarmRule::Scope& scope);
UMBRA_API std::ostream& operator<<(std::ostream& out, const AlarmRule::Scope& scope);

// The names under which reflection shows them.
constexpr const char* zintTypeName(const AlarmRule*) { return "Driver::AlarmRule"; }
constexpr const char* zintTypeName(const AlarmRule::Scope*) { return "Driver::AlarmRule::Scope"; }

}  // namespace Driver
