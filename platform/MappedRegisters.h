// Registers of a real target: a file or device resource mapped into memory.
//
//   auto registers = Platform::mappedRegistersFactory("/sys/bus/pci/devices/.../resource0");
//   auto ham = Hardware::genericChipHamFactory("asic", registers);
//
// It treats a register file in tmpfs and the `resourceN` of a PCI device alike. The whole file is
// mapped, shared and for writing. If the file shrinks afterwards, or the device is unplugged, the
// next access ends the process (SIGBUS).
#pragma once

#include <Fru/HamImpl.h>
#include <Zint/Ptr.h>
#include <Zint/String8.h>

#include <optional>

namespace Platform {

class UMBRA_API MappedRegisters : public Fru::HamImpl {
 public:
  using Ptr = Zint::Ptr<MappedRegisters>;

  // `baseAddress` is the byte address of the file's first register. With `createdSize` the file is
  // first made with that size, or resized to it; new bytes are 0.
  // A system call that fails: std::system_error with the path. A base address that
  // is no multiple of 4, a file without a whole register, or one that does not fit between the base
  // address and 4 GiB: a range exception.
  explicit MappedRegisters(Zint::String8 path, U32 baseAddress = 0,
                           std::optional<U32> createdSize = std::nullopt);

 protected:
  ~MappedRegisters() override;

 public:
  // One 32-bit volatile access each. An address that is no multiple of 4 or whose register does not
  // lie in the mapping: a range exception that names the file, the address and the mapping.
  void read(U32 address, U32* value) override;
  void write(U32 address, U32 value) override;

  // The register itself, with the same checks: for atomic accesses.
  // Valid as long as this object.
  volatile U32& registerAt(U32 address) const;

  const Zint::String8& path() const { return path_; }
  U32 baseAddress() const { return baseAddress_; }
  // Bytes; at most 3 of them follow the last whole register.
  U64 size() const { return size_; }

 private:
  [[noreturn, gnu::cold]] void refuseAddress(U32 address) const;

  const Zint::String8 path_;
  const U32 baseAddress_;
  U64 size_ = 0;
  volatile U32* registers_ = nullptr;
};

UMBRA_API Zint::ValidPtr<MappedRegisters> mappedRegistersFactory(
    Zint::String8 path, U32 baseAddress = 0, std::optional<U32> createdSize = std::nullopt);

}  // namespace Platform
