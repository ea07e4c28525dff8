// Registers that are mapped into memory: what PCI resources, UIO and VFIO have in common.
//
// Each register is one volatile access of its own width, aligned. A register of 64 bits is one
// access on a 64-bit machine and two on a 32-bit one; `halves` says which goes first. Writes may be
// posted: they have arrived when a register of the same chip has been read.
#pragma once

#include <platform/bus/RegisterBus.h>

#include <cstddef>

namespace Platform {

enum class Halves { lowFirst, highFirst };

struct MappingOptions {
  Halves halves = Halves::lowFirst;
  // A chip that disappears ends the process with SIGBUS on some buses. Guarded, the access reads
  // all-ones and ends with ChipAbsent. See SigbusGuard.h.
  bool isGuarded = false;
};

class UMBRA_API MappedBus : public RegisterBus {
 public:
  using Ptr = Zint::Ptr<MappedBus>;

  // A width that is none, an address that is no multiple of it, or a run that ends beyond the
  // mapping: a range exception that names bus, address and size. The mapping was lost (guarded):
  // ChipAbsent.
  void read(const RegisterRun& run, U8* bytes) override;
  void write(const RegisterRun& run, const U8* bytes) override;

  // Bytes.
  std::size_t size() const { return size_; }

 protected:
  explicit MappedBus(const MappingOptions& options);
  ~MappedBus() override;

  // Maps `bytes` of the file from `offset` on, a multiple of the page size; the registers
  // begin `skip` bytes later. What was mapped before is unmapped, also when this fails (BusError).
  void map(int descriptor, U64 offset, U64 bytes, U64 skip);
  void unmap();

 private:
  void check(const RegisterRun& run) const;
  void checkGuard(U32 address) const;

  const MappingOptions options_;
  void* mapping_ = nullptr;
  std::size_t mappedSize_ = 0;
  volatile U8* registers_ = nullptr;
  std::size_t size_ = 0;
  int guard_ = -1;
};

}  // namespace Platform
