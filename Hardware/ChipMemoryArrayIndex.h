// The index of the shadow's arrays: at most 65,536 entries.
#pragma once

#include <Zint/Strep.h>
#include <Zint/Types.h>
#include <ostream>

namespace Hardware {

class UMBRA_API ChipMemoryArrayIndex {
 public:
  constexpr ChipMemoryArrayIndex() = default;
  constexpr ChipMemoryArrayIndex(U16 value) : value_(value) {}
  // Reads one 64-bit integer, leaves `pos` after it and keeps the low 16 bits (deliberate: a larger
  // number is truncated, not refused, because clients rely on it). Any other text raises a range
  // exception that names the attribute "value".
  ChipMemoryArrayIndex(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end);

  constexpr U16 value() const { return value_; }
  void valueIs(U16 value) { value_ = value; }
  constexpr operator U16() const { return value_; }

 private:
  U16 value_ = 0;
};

UMBRA_API Zint::String8 valueToStrep(const ChipMemoryArrayIndex& index);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end,
                               ChipMemoryArrayIndex& index);
UMBRA_API std::ostream& operator<<(std::ostream& out, const ChipMemoryArrayIndex& index);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipMemoryArrayIndex*) {
  return "Hardware::ChipMemoryArrayIndex";
}

}  // namespace Hardware
