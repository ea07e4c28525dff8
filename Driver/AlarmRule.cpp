#include <Driver/AlarmRule.h>

#include <Driver/Driver.h>
#include <Zint/Enumeration.h>

#include <cmath>

namespace Driver {
namespace {

constexpr const char* scopeNames[] = {"entry", "region", "chip", "shadow", "manyAtOnce"};
constexpr Zint::Enumeration alarmScopes{"AlarmRule::Scope", "Scope", scopeNames};

Zint::Name requireRuleName(Zint::Name name) {
  if (name.empty()) Zint::throwRangeException("an alarm rule needs a name");
  return name;
}

U32 requireRuleCount(U32 count) {
  if (count < 1 || count > AlarmRule::maxCount)
    Zint::throwRangeException("the count of an alarm rule must be from 1 to 65536");
  return count;
}

Zint::Seconds requireRuleTime(Zint::Seconds seconds) {
  if (!std::isfinite(seconds) || seconds < 0)
    Zint::throwRangeException("the times of an alarm rule must be finite and not negative");
  return seconds;
}

}  // namespace

AlarmRule::AlarmRule(Zint::Name name, Scope scope, U32 count, Zint::Seconds within,
                     Zint::Seconds clearAfter)
    : Entity(requireRuleName(std::move(name))),
      scope_(ScopeInstance(static_cast<U32>(scope))),
      count_(requireRuleCount(count)),
      within_(requireRuleTime(within)),
      clearAfter_(requireRuleTime(clearAfter)) {}

AlarmRule::~AlarmRule() = default;

const Zint::Type* AlarmRule::fwkType() const { return &alarmRuleType; }

Zint::Ptr<AlarmRule> alarmRuleFactory(Zint::Name name, AlarmRule::Scope scope, U32 count,
                                      Zint::Seconds within, Zint::Seconds clearAfter) {
  return Zint::makePtr<AlarmRule>(std::move(name), scope, count, within, clearAfter);
}

// --- The scopes ---

AlarmRule::Scope AlarmRule::ScopeInstance(U32 value) {
  return static_cast<Scope>(Zint::enumerationInstance(alarmScopes, value));
}

AlarmRule::Scope AlarmRule::ScopeInstance(const Zint::String8& text) {
  return static_cast<Scope>(Zint::enumerationInstance(alarmScopes, text));
}

Zint::String8 stringValue(AlarmRule::Scope scope) {
  return Zint::enumerationText(alarmScopes, scope);
}

Zint::String8 valueToStrep(const AlarmRule::Scope& scope) {
  return Zint::valueToStrep(stringValue(scope));
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     AlarmRule::Scope& scope) {
  scope = static_cast<AlarmRule::Scope>(Zint::readEnumeration(alarmScopes, pos, end));
}

std::ostream& operator<<(std::ostream& out, const AlarmRule::Scope& scope) {
  return out << stringValue(scope);
}

}  // namespace Driver
