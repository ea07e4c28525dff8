// A fake chip from a register map: access rights, read actions and write effects of registers and
// fields, reset values, names. Needs Umbra::Maps where it is included.
//
//   auto chip = TestKit::fakeChipOf(Maps::readMap("asic.svd"));
//   chip->value("SWITCH.mac[17]");
#pragma once

#include <maps/Map.h>
#include <testkit/FakeChip.h>

namespace TestKit {

namespace MapChip {

// What holds for some bits, added to the register.
inline void rulesOf(Register& r, U64 bits, Maps::Access access, Maps::ReadAction action,
                    Maps::WriteEffect effect) {
  using Maps::Access;
  if (access == Access::readOnly) r.readOnly |= bits;
  if (access == Access::writeOnly || access == Access::writeOnce) r.writeOnly |= bits;
  if (access == Access::writeOnce || access == Access::readWriteOnce) r.writeOnce |= bits;
  if (action == Maps::ReadAction::clear) r.clearOnRead |= bits;
  if (action == Maps::ReadAction::set) r.setOnRead |= bits;
  U64* const rules[] = {nullptr,        &r.oneToClear, &r.oneToSet,     &r.oneToToggle,
                        &r.zeroToClear, &r.zeroToSet,  &r.zeroToToggle, &r.clearOnWrite,
                        &r.setOnWrite,  nullptr};
  if (U64* const rule = rules[static_cast<std::size_t>(effect)]) *rule |= bits;
}

inline Register registerOf(const Maps::Map& map, const Maps::Register& from) {
  const Maps::Layout& layout = *from.layout;
  const Maps::Access access = layout.access.value_or(Maps::Access::readWrite);
  Register r;
  r.name = map.nameOf(from);
  r.address = from.address;
  r.width = layout.bytes();
  r.resetValue = layout.resetValue.value_or(0) & layout.resetMask & layout.bits();
  if (layout.readAction == Maps::ReadAction::clear) r.clearOnRead = layout.bits();
  if (layout.readAction == Maps::ReadAction::set) r.setOnRead = layout.bits();
  U64 named = 0;
  for (const Maps::Field& field : layout.fields) {
    const bool isPlain = field.writeEffect == Maps::WriteEffect::modify;
    const U64 bits = field.mask() & layout.bits();
    named |= bits;
    rulesOf(r, bits, field.access.value_or(access), field.readAction,
            isPlain ? layout.writeEffect : field.writeEffect);
    r.fields.push_back({field.name, field.low, field.bits});
  }
  if (layout.fields.empty()) {
    rulesOf(r, layout.bits(), access, Maps::ReadAction::none, layout.writeEffect);
  } else {
    r.readOnly |= ~named;  // bits that no field names hold their reset value
  }
  return r;
}

}  // namespace MapChip

// Elements of arrays are registers of their own, under their names. One of two registers of the
// same name has its address behind it: "SWITCH.mac@0x1040". Where registers share bytes, the first
// one of the map has them. Registers of other widths than 8, 16, 32 and 64 bits are left out.
// Effects that the map describes in words alone are plain.
inline FakeChip::Ptr fakeChipOf(const Maps::Map& map) {
  FakeChip::Ptr chip = fakeChipFactory(map.name);
  for (const Maps::Register& from : map.registers) {
    const U32 bits = from.layout->width;
    if (bits != 8 && bits != 16 && bits != 32 && bits != 64) continue;
    const Register r = MapChip::registerOf(map, from);
    if (!chip->hasBytes(r.address, r.width)) chip->registerIs(r);
  }
  return chip;
}

}  // namespace TestKit
