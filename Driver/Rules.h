// The words of a policy: what the patrol does with an entry, what a rewrite does with masked bits,
// and what an entry is before anybody wrote it.
#pragma once

#include <Zint/Strep.h>

namespace Driver {

enum class Rule : S32 {
  repaired,    // compared, and rewritten where it differs (the default)
  detectOnly,  // compared and reported, never rewritten
  volatile_,   // "volatile": changes by itself; never compared, learned, served from the cache or
               // skipped as a write hit
  noRead,      // reading has effects: the patrol never reads it, clients may
  writeOnly,   // cannot be read, nor by clients where its value is not known; replayed
  readOnly     // compared if its value is known, never written
};

// What a rewrite puts into the masked bits of an entry.
enum class Rewrite : S32 {
  kept,   // what the chip held in a read immediately before the write (the default)
  zero,   // 0: the only right one for bits that are cleared by writing 1
  shadow  // what the shadow holds
};

// What an entry is before anybody wrote it.
enum class Unwritten : S32 {
  adopted,   // unknown: what the chip holds is taken over (the default)
  zero,      // 0, defended from the start
  defaults,  // its reset value; a difference is reported
  baseline   // adopted, and known too where it equals the zeroed shadow
};

constexpr bool isRead(Rule rule) { return rule != Rule::noRead && rule != Rule::writeOnly; }
constexpr bool isCompared(Rule rule) { return isRead(rule) && rule != Rule::volatile_; }
constexpr bool isRewritten(Rule rule) { return rule == Rule::repaired; }

// Unknown numbers and names: the range exception with the type's name.
UMBRA_API Rule RuleInstance(U32 value);
UMBRA_API Rule RuleInstance(const Zint::String8& text);
UMBRA_API Rewrite RewriteInstance(U32 value);
UMBRA_API Rewrite RewriteInstance(const Zint::String8& text);
UMBRA_API Unwritten UnwrittenInstance(U32 value);
UMBRA_API Unwritten UnwrittenInstance(const Zint::String8& text);

// The enumerator's name; another number as Rule(number).
UMBRA_API Zint::String8 stringValue(Rule rule);
UMBRA_API Zint::String8 stringValue(Rewrite rewrite);
UMBRA_API Zint::String8 stringValue(Unwritten unwritten);
// The name in single quotes.
UMBRA_API Zint::String8 valueToStrep(const Rule& rule);
UMBRA_API Zint::String8 valueToStrep(const Rewrite& rewrite);
UMBRA_API Zint::String8 valueToStrep(const Unwritten& unwritten);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end, Rule& rule);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end, Rewrite& rewrite);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end, Unwritten& unwritten);
UMBRA_API std::ostream& operator<<(std::ostream& out, const Rule& rule);
UMBRA_API std::ostream& operator<<(std::ostream& out, const Rewrite& rewrite);
UMBRA_API std::ostream& operator<<(std::ostream& out, const Unwritten& unwritten);

// The names under which reflection shows them.
constexpr const char* zintTypeName(const Rule*) { return "Driver::Rule"; }
constexpr const char* zintTypeName(const Rewrite*) { return "Driver::Rewrite"; }
constexpr const char* zintTypeName(const Unwritten*) { return "Driver::Unwritten"; }

}  // namespace Driver
