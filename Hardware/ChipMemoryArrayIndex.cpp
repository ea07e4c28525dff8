#include <Hardware/ChipMemoryArrayIndex.h>

#include <Hardware/ChipAddress.h>

namespace Hardware {

ChipMemoryArrayIndex::ChipMemoryArrayIndex(Zint::String8::IteratorConst& pos,
                                           const Zint::String8::IteratorConst& end)
    : value_(static_cast<U16>(readValueAttribute(pos, end))) {}

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
