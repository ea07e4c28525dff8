#include <platform/MemoryRegisters.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>

namespace Platform {
namespace {

// Checks the arguments before memory is asked for.
std::size_t registerCount(U32 baseAddress, U32 size) {
  if (baseAddress % sizeof(U32) != 0 || size % sizeof(U32) != 0 || size == 0 ||
      size - 1 > ~U32{0} - baseAddress) {
    Zint::throwRangeException(
        Zint::format("0x%08x: %u bytes of registers do not fit there", baseAddress, size));
  }
  return size / sizeof(U32);
}

}  // namespace

MemoryRegisters::MemoryRegisters(U32 baseAddress, U32 size)
    : baseAddress_(baseAddress), size_(size), registers_(registerCount(baseAddress, size)) {}

MemoryRegisters::~MemoryRegisters() = default;

void MemoryRegisters::read(U32 address, U32* value) {
  *value = registerAt(address);
  ++reads_;
}

void MemoryRegisters::write(U32 address, U32 value) {
  registerAt(address) = value;
  ++writes_;
}

U32& MemoryRegisters::registerAt(U32 address) {
  // The first test makes the difference in the second exact.
  if (address < baseAddress_ || address - baseAddress_ >= size() || address % sizeof(U32) != 0)
      [[unlikely]] {
    Zint::throwRangeException(Zint::format(
        "register address 0x%08x: there are %u bytes from 0x%08x", address, size(), baseAddress_));
  }
  return registers_[(address - baseAddress_) / sizeof(U32)];
}

Zint::ValidPtr<MemoryRegisters> memoryRegistersFactory(U32 baseAddress, U32 size) {
  return Zint::makePtr<MemoryRegisters>(baseAddress, size);
}

}  // namespace Platform
