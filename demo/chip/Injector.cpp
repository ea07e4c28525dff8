#include "demo/chip/Injector.h"

#include <atomic>

#include "demo/common/SwitchLayout.h"

namespace Demo {

// One error in two hits any table alike, the others any register alike: else the large table would
// take nearly all of them.
U32 Injector::anyRegister() {
  const TableLayout* table = nullptr;
  if (below(2) == 0) {
    do {
      table = &switchTables[below(switchTables.size())];
    } while (!table->isOnChip());
    return table->registerAddress(below(table->registers()));
  }
  U32 all = 0;
  for (const TableLayout& each : switchTables) all += each.registers();
  U32 index = below(all);
  for (table = switchTables.data(); index >= table->registers(); ++table) {
    index -= table->registers();
  }
  return table->registerAddress(index);
}

// The driver may write the register at any moment. The flip and the look at what was there are one
// step, so that each write of the driver comes wholly before or wholly after it; the entry in the
// log may come later, since its reader needs all flips of a bit but not when they happened.
void Injector::flip() {
  if (log_.isFull()) return;
  const U32 address = anyRegister();
  const U32 bit = U32{1} << below(32);
  const U32 before = std::atomic_ref<U32>(registers_[address / 4]).fetch_xor(bit);
  log_.append({address, before, before ^ bit, log_.appended()});
}

}  // namespace Demo
