// The texts of what the patrol tells.
#include <Driver/Finding.h>

#include <Driver/PatrolRun.h>
#include <Zint/Enumeration.h>
#include <algorithm>

namespace Driver {
namespace {

constexpr const char* verdictNames[] = {"repaired", "adopted", "writtenMeanwhile", "detectOnly",
                                        "deferred", "refused", "transient",        "quarantined",
                                        "failed",   "reset"};
constexpr Zint::Enumeration verdicts{"Driver::Verdict", "Verdict", verdictNames};

constexpr const char* natureNames[] = {"unverified", "soft", "recurring", "stuck"};
constexpr Zint::Enumeration natures{"Driver::Nature", "Nature", natureNames};

// "x00x1f..."
std::string findingBytes(std::span<const U8> bytes) {
  constexpr std::size_t most = 32;
  std::string text;
  constexpr const char* digits = "0123456789abcdef";
  for (const U8 byte : bytes.first(std::min(bytes.size(), most))) {
    text += 'x';
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return bytes.size() > most ? text + "..." : text;
}

}  // namespace

Zint::String8 stringValue(Verdict verdict) {
  return Zint::enumerationText(verdicts, static_cast<S32>(verdict));
}
Zint::String8 stringValue(Nature nature) {
  return Zint::enumerationText(natures, static_cast<S32>(nature));
}
std::ostream& operator<<(std::ostream& out, Verdict verdict) { return out << stringValue(verdict); }
std::ostream& operator<<(std::ostream& out, Nature nature) { return out << stringValue(nature); }

Zint::String8 Finding::stringValue() const {
  std::string text = chipMemory == nullptr ? "" : chipMemory->name().bytes();
  text += " entry " + std::to_string(entry) + ": expected " + findingBytes(expected) + ", actual " +
          findingBytes(actual) + ": " + Driver::stringValue(verdict).bytes();
  if (nature != Nature::unverified) text += " (" + Driver::stringValue(nature).bytes() + ")";
  if (const Zint::String8 named = byName(); !named.empty()) text += "; " + named.bytes();
  return text;
}

Zint::String8 Finding::byName() const {
  if (names == nullptr || chipMemory == nullptr) return "";
  // The names may be anybody's: all that they get is held here.
  const RegisterNames::Ptr held = names;
  const Hardware::ChipMemory::Ptr region = chipMemory;
  std::vector<U8> mask;
  if (policy != nullptr && expected.size() == region->entrySize()) {
    if (const U8* const bits = policy->mask(entry); bits != nullptr) {
      mask.assign(bits, bits + expected.size());
    }
  }
  Zint::String8 text, error;
  const bool isNamed = callGuarded(
      [&] { text = held->differenceText(*region, entry, expected, actual, mask); }, error);
  return isNamed ? text : "";
}

Zint::String8 PassResult::stringValue() const {
  std::string text = isComplete ? "complete" : "ended early: " + reason.bytes();
  text += ", " + std::to_string(entries) + " entries, " + std::to_string(differences) +
          " differences, " + std::to_string(repairs) + " repairs, " + std::to_string(adopted) +
          " adopted";
  return text;
}

}  // namespace Driver
