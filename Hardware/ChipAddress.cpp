#include <Hardware/ChipAddress.h>
#include <Hardware/ChipMemoryArrayIndex.h>

namespace Hardware {
namespace {

// The number of a value type whose one attribute is "value".
U64 valueAttribute(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end) {
  S64 value = 0;
  try {
    Zint::sequenceToValue(pos, end, value);
  } catch (const Zint::RangeException& cause) {
    Zint::rethrowFromDeserializeAttr(cause, "value");
  }
  return static_cast<U64>(value);
}

}  // namespace

ChipAddress::ChipAddress(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end)
    : ChipAddress(valueAttribute(pos, end)) {}

Zint::String8 ChipAddress::stringValue() const { return Zint::format("0x%x:%08x", high_, low_); }

Zint::String8 valueToStrep(const ChipAddress& address) {
  return Zint::valueToStrep(address.value());
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     ChipAddress& address) {
  address = ChipAddress(pos, end);
}

std::ostream& operator<<(std::ostream& out, const ChipAddress& address) {
  return out << valueToStrep(address);
}

ChipMemoryArrayIndex::ChipMemoryArrayIndex(Zint::String8::IteratorConst& pos,
                                           const Zint::String8::IteratorConst& end)
    : value_(static_cast<U16>(valueAttribute(pos, end))) {}

Zint::String8 valueToStrep(const ChipMemoryArrayIndex& index) {
  return Zint::valueToStrep(U64{index.value()});
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     ChipMemoryArrayIndex& index) {
  index = ChipMemoryArrayIndex(pos, end);
}

std::ostream& operator<<(std::ostream& out, const ChipMemoryArrayIndex& index) {
  return out << valueToStrep(index);
}

}  // namespace Hardware
