// The names of a region's modes.
#include <Hardware/ChipMemory.h>

#include <Zint/Enumeration.h>

namespace Hardware {
namespace {

constexpr const char* modeNames[] = {"normal", "override", "buffered"};
constexpr Zint::Enumeration modes{"ChipMemory::ChipMemoryMode", "ChipMemoryMode", modeNames};

}  // namespace

ChipMemory::ChipMemoryMode ChipMemory::ChipMemoryModeInstance(U32 value) {
  return static_cast<ChipMemoryMode>(Zint::enumerationInstance(modes, value));
}

ChipMemory::ChipMemoryMode ChipMemory::ChipMemoryModeInstance(const Zint::String8& text) {
  return static_cast<ChipMemoryMode>(Zint::enumerationInstance(modes, text));
}

Zint::String8 stringValue(ChipMemory::ChipMemoryMode mode) {
  return Zint::enumerationText(modes, mode);
}

Zint::String8 valueToStrep(const ChipMemory::ChipMemoryMode& mode) {
  return Zint::valueToStrep(stringValue(mode));
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     ChipMemory::ChipMemoryMode& mode) {
  mode = static_cast<ChipMemory::ChipMemoryMode>(Zint::readEnumeration(modes, pos, end));
}

std::ostream& operator<<(std::ostream& out, const ChipMemory::ChipMemoryMode& mode) {
  return out << stringValue(mode);
}

}  // namespace Hardware
