// Whether a fake chip holds what the software believes: behind the accesses, entry by entry.
//
//   TestKit::expectChipEqualsShadow(chip, table);           // known entries, all bits
//   TestKit::expectChipEqualsShadow(chip, shadow, table);   // PolicyEquals.h: under its policy
//
// An entry lies at the region's address and its stride; the chip's bytes are in the machine's
// order.
#pragma once

#include <Hardware/ChipMemory.h>
#include <testkit/FakeChip.h>

#include <functional>

namespace TestKit {

// Whether an entry of the shadow and of the chip count as equal.
using EntryEquals = std::function<bool(U32 entry, const U8* shadow, const U8* chip)>;

// Reports the entries that differ, by name, and the last accesses. Only entries that the region
// knows (`initialized`) are compared. A region without a shadow store, or in override mode: a range
// exception.
void expectChipEqualsShadow(const FakeChip::Ptr& chip, const Hardware::ChipMemory::Ptr& region,
                            const char* file = __builtin_FILE(), int line = __builtin_LINE());
void expectChipEqualsShadow(const FakeChip::Ptr& chip, const Hardware::ChipMemory::Ptr& region,
                            const EntryEquals& equals, const char* file = __builtin_FILE(),
                            int line = __builtin_LINE());

}  // namespace TestKit
