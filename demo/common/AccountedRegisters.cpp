#include "demo/common/AccountedRegisters.h"

#include <atomic>

namespace Demo {

void AccountedRegisters::write(U32 address, U32 value) {
  ledger_.written(address, exchanged(address, value), value);
}

void AccountedRegisters::damage(U32 address, U32 value) {
  ledger_.damaged(address, exchanged(address, value), value);
}

U32 AccountedRegisters::exchanged(U32 address, U32 value) {
  return std::atomic_ref<U32>(const_cast<U32&>(registers_->registerAt(address))).exchange(value);
}

}  // namespace Demo
