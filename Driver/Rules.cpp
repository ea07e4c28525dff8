// The names of the rules, of what a rewrite does and of what unwritten entries are.
#include <Driver/Rules.h>

#include <Zint/Enumeration.h>

namespace Driver {
namespace {

constexpr const char* ruleNames[] = {"repaired", "detectOnly", "volatile",
                                     "noRead",   "writeOnly",  "readOnly"};
constexpr Zint::Enumeration ruleWords{"Rule", "Rule", ruleNames};

constexpr const char* rewriteNames[] = {"kept", "zero", "shadow"};
constexpr Zint::Enumeration rewriteWords{"Rewrite", "Rewrite", rewriteNames};

constexpr const char* unwrittenNames[] = {"adopted", "zero", "defaults", "baseline"};
constexpr Zint::Enumeration unwrittenWords{"Unwritten", "Unwritten", unwrittenNames};

}  // namespace

Rule RuleInstance(U32 value) {
  return static_cast<Rule>(Zint::enumerationInstance(ruleWords, value));
}
Rule RuleInstance(const Zint::String8& text) {
  return static_cast<Rule>(Zint::enumerationInstance(ruleWords, text));
}
Rewrite RewriteInstance(U32 value) {
  return static_cast<Rewrite>(Zint::enumerationInstance(rewriteWords, value));
}
Rewrite RewriteInstance(const Zint::String8& text) {
  return static_cast<Rewrite>(Zint::enumerationInstance(rewriteWords, text));
}
Unwritten UnwrittenInstance(U32 value) {
  return static_cast<Unwritten>(Zint::enumerationInstance(unwrittenWords, value));
}
Unwritten UnwrittenInstance(const Zint::String8& text) {
  return static_cast<Unwritten>(Zint::enumerationInstance(unwrittenWords, text));
}

Zint::String8 stringValue(Rule rule) {
  return Zint::enumerationText(ruleWords, static_cast<S32>(rule));
}
Zint::String8 stringValue(Rewrite rewrite) {
  return Zint::enumerationText(rewriteWords, static_cast<S32>(rewrite));
}
Zint::String8 stringValue(Unwritten unwritten) {
  return Zint::enumerationText(unwrittenWords, static_cast<S32>(unwritten));
}

Zint::String8 valueToStrep(const Rule& rule) { return Zint::valueToStrep(stringValue(rule)); }
Zint::String8 valueToStrep(const Rewrite& rewrite) {
  return Zint::valueToStrep(stringValue(rewrite));
}
Zint::String8 valueToStrep(const Unwritten& unwritten) {
  return Zint::valueToStrep(stringValue(unwritten));
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     Rule& rule) {
  rule = static_cast<Rule>(Zint::readEnumeration(ruleWords, pos, end));
}
void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     Rewrite& rewrite) {
  rewrite = static_cast<Rewrite>(Zint::readEnumeration(rewriteWords, pos, end));
}
void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     Unwritten& unwritten) {
  unwritten = static_cast<Unwritten>(Zint::readEnumeration(unwrittenWords, pos, end));
}

std::ostream& operator<<(std::ostream& out, const Rule& rule) { return out << stringValue(rule); }
std::ostream& operator<<(std::ostream& out, const Rewrite& rewrite) {
  return out << stringValue(rewrite);
}
std::ostream& operator<<(std::ostream& out, const Unwritten& unwritten) {
  return out << stringValue(unwritten);
}

}  // namespace Driver
