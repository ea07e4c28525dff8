#include <Hardware/ChipAddress.h>

namespace Hardware {

U64 readValueAttribute(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end) {
  S64 value = 0;
  try {
    Zint::sequenceToValue(pos, end, value);
  } catch (const Zint::RangeException& cause) {
    Zint::rethrowFromDeserializeAttr(cause, "value");
  }
  return static_cast<U64>(value);
}

ChipAddress::ChipAddress(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end)
    : ChipAddress(readValueAttribute(pos, end)) {}

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

}  // namespace Hardware
