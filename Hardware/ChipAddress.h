// A 64-bit chip address: the high word names a chip's memory, the low word an offset in it.
#pragma once

#include <Zint/Strep.h>
#include <Zint/Types.h>
#include <compare>
#include <ostream>

namespace Hardware {

class UMBRA_API ChipAddress {
 public:
  constexpr ChipAddress() = default;
  constexpr explicit ChipAddress(U64 value)
      : low_(static_cast<U32>(value)), high_(static_cast<U32>(value >> 32)) {}
  constexpr ChipAddress(U32 memId, U32 offset) : low_(offset), high_(memId) {}
  // Reads one 64-bit integer and leaves `pos` after it. Any other text raises a range exception
  // that names the attribute "value".
  ChipAddress(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end);

  constexpr U64 value() const { return U64{high_} << 32 | low_; }
  void valueIs(const U64& value) { *this = ChipAddress(value); }
  constexpr U32 chipMemoryId() const { return high_; }
  constexpr U32 chipMemoryOffset() const { return low_; }
  void chipAddressIs(U32 memId, U32 offset) { *this = ChipAddress(memId, offset); }

  // The low word with its bits reversed; does not depend on the high word.
  constexpr U32 hash() const { return Zint::reversedBits(low_); }
  // "0x2:00001f00"
  Zint::String8 stringValue() const;

  // The address plus `distance`, with the carry into the high word.
  constexpr ChipAddress plus(U32 distance) const { return ChipAddress(value() + distance); }

  // As one unsigned number: the high word first.
  friend constexpr bool operator==(const ChipAddress&, const ChipAddress&) = default;
  friend constexpr std::strong_ordering operator<=>(const ChipAddress& a, const ChipAddress& b) {
    return a.value() <=> b.value();
  }

 private:
  // In memory the little-endian image of the 64-bit value.
  U32 low_ = 0;
  U32 high_ = 0;
};

// For maps: the hash has its bits reversed already.
inline U32 reversedHash(const ChipAddress& address) { return address.hash(); }

// The value as one unsigned integer.
UMBRA_API Zint::String8 valueToStrep(const ChipAddress& address);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end, ChipAddress& address);
// Writes what valueToStrep gives, not stringValue().
UMBRA_API std::ostream& operator<<(std::ostream& out, const ChipAddress& address);

// Reads the number of a value type whose only attribute is "value", as the constructor from text
// does.
U64 readValueAttribute(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipAddress*) { return "Hardware::ChipAddress"; }

}  // namespace Hardware
