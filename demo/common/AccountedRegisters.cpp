#include "demo/common/AccountedRegisters.h"

#include <atomic>

namespace Demo {

void AccountedRegisters::write(U32 address, U32 value) {
  ledger_.recordWrite(address, exchange(address, value), value);
}

void AccountedRegisters::damage(U32 address, U32 value) {
  ledger_.recordDamage(address, exchange(address, value), value);
}

U32 AccountedRegisters::exchange(U32 address, U32 value) {
  return std::atomic_ref<U32>(const_cast<U32&>(registers_->registerAt(address))).exchange(value);
}

}  // namespace Demo
