#include "demo/common/AccountedRegisters.h"

#include <atomic>

#include "demo/common/SwitchLayout.h"

namespace Demo {

void AccountedRegisters::read(U32 address, U32* value) {
  if (isAbsent_) {
    ++absentReads_;
    *value = ~0u;
    return;
  }
  registers_->read(address, value);
}

void AccountedRegisters::write(U32 address, U32 value) {
  if (isAbsent_) {
    ++writesLost_;
    return ledger_.recordLostWrite(address, value);
  }
  const U32 taken = address == stuckAddress_ ? value & ~stuckBits_ : value;
  ledger_.recordWrite(address, exchange(address, taken), value, taken);
}

void AccountedRegisters::damage(U32 address, U32 value) {
  ledger_.recordDamage(address, exchange(address, value), value);
}

void AccountedRegisters::doReset() {
  for (const TableLayout& table : switchTables) {
    for (U32 i = 0; i < table.registers(); ++i) {
      const U32 address = table.registerAddress(i);
      ledger_.recordReset(address, exchange(address, 0), 0);
    }
  }
}

void AccountedRegisters::stuckBitsAre(U32 address, U32 bits) {
  stuckAddress_ = address;
  stuckBits_ = bits;
  if (bits == 0) return;
  std::atomic_ref<U32> held(const_cast<U32&>(registers_->registerAt(address)));
  ledger_.recordStuck(address, held.fetch_and(~bits), bits);
}

U32 AccountedRegisters::exchange(U32 address, U32 value) {
  return std::atomic_ref<U32>(const_cast<U32&>(registers_->registerAt(address))).exchange(value);
}

}  // namespace Demo
