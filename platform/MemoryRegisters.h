// Registers in memory: a chip for first programs, tests and benchmarks.
//
//   auto chip = Platform::memoryRegistersFactory(0x1000, 4096);
//   auto ham = Hardware::genericChipHamFactory("chip0", chip);
//   ...
//   chip->registerAt(0x101c) ^= 1;  // damage that no access sees
//   chip->writes();                 // was the hardware touched?
#pragma once

#include <Fru/HamImpl.h>
#include <Zint/Ptr.h>

#include <vector>

namespace Platform {

class UMBRA_API MemoryRegisters : public Fru::HamImpl {
 public:
  using Ptr = Zint::Ptr<MemoryRegisters>;

  // `size` bytes of registers from the byte address `baseAddress` on; all hold 0. Both multiples of
  // 4, `size` above 0, all below 4 GiB; otherwise a range exception.
  MemoryRegisters(U32 baseAddress, U32 size);

 protected:
  ~MemoryRegisters() override;

 public:
  // An address that is no multiple of 4 or has no register: a range exception that names it; the
  // access is not counted.
  void read(U32 address, U32* value) override;
  void write(U32 address, U32 value) override;

  // The register itself, with the same checks; not counted. Valid as long as this object.
  U32& registerAt(U32 address);

  U32 baseAddress() const { return baseAddress_; }
  // Bytes.
  U32 size() const { return size_; }
  // The accesses since construction; the counts wrap to 0.
  U32 reads() const { return reads_; }
  U32 writes() const { return writes_; }

 private:
  const U32 baseAddress_;
  const U32 size_;
  std::vector<U32> registers_;
  U32 reads_ = 0;
  U32 writes_ = 0;
};

UMBRA_API Zint::ValidPtr<MemoryRegisters> memoryRegistersFactory(U32 baseAddress, U32 size);

}  // namespace Platform
