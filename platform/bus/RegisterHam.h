// The access method over a bus: registers of 8, 16, 32 or 64 bits, in either byte order, and a chip
// that is gone is never taken for data.
//
//   auto bus = Platform::pciResourceFactory("/sys/bus/pci/devices/0000:03:00.0", 0);
//   auto ham = Platform::registerHamFactory("asic", bus, {.width = 4, .flushesWrites = true});
//   ham->sentinelIs(0x0, 0x10de1234);   // a register whose value is known
//   auto mac = chipMemoryFactory("mac", Hardware::ChipAddress(0, 0x5600), 128, 4, 4, ham);
//
// What an absent chip answers depends on the bus: all-ones, 0, what was last on the wires, or the
// registers of another card. So what was read is handed up only if it looks like data, or if the
// sentinel has its value. Suspicious is a register of all-ones, an access whose last register is 0,
// and four or more registers in a row that are equal. Without a sentinel nothing is suspicious. A
// chip that is back before the sentinel is read, and whose bus reported no error, was not missed.
//
// After an absence the bus is opened anew before the next access, and its identity and the sentinel
// decide whether that access is made. Several access methods may share a bus: when one has opened
// it anew, the others check the chip before their next access, too.
#pragma once

#include <Hardware/ChipHam.h>
#include <platform/bus/BusError.h>
#include <platform/bus/Presence.h>
#include <platform/bus/RegisterBus.h>

#include <bit>
#include <memory>

namespace Platform {

class GatheredWindows;

struct RegisterFormat {
  U32 width = 4;                            // of a register, in bytes: 1, 2, 4 or 8
  std::endian order = std::endian::native;  // of its bytes on the bus; entries have the machine's
  bool flushesWrites = false;               // each write ends with a read of the sentinel
  U32 failuresToAbsent = 3;                 // so many accesses in a row that fail: absent
};

class UMBRA_API RegisterHam : public Hardware::ChipHam, public Presence {
 public:
  using Ptr = Zint::Ptr<RegisterHam>;

  // A width that is none of those, or no failures: a range exception.
  RegisterHam(Zint::Name name, const RegisterBus::Ptr& bus, const RegisterFormat& format);

 protected:
  ~RegisterHam() override;

 public:
  // The registers from the low word of `address` on, packed, whatever the region's stride (see
  // SparseChipHam). An entry size that is no multiple of the width: a fatal assertion, before any
  // access. Failures: BusError; ChipAbsent when the chip is absent. Then the buffer's bytes are not
  // to be used.
  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override;
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override;

  // The register at that address has that value, as long as the chip is there; only the bits that
  // are set in `mask` count. Choose one that is neither 0 nor all-ones. A mask without a bit of the
  // register: a range exception.
  void sentinelIs(U32 address, U64 value, U64 mask = ~U64{0});
  bool hasSentinel() const { return hasSentinel_; }

  // --- Gathering: for buses on which many registers in one transfer cost little more than one ---
  // Whoever reads a register between `begin` and `end` (byte addresses, the end excluded) is given
  // it out of a window: all registers of the range in an aligned block of `bytes` bytes, read in
  // one transfer. So an audit of many small regions that lie side by side takes few transfers.
  // Each register of a window is handed up once; the next read of it reaches the chip, as do all
  // reads that come `maxAge` seconds later, and a write drops its window. Every address of the
  // range is read, by whoever reads one of them: declare no register that a read changes. A
  // register that is not aligned to the range is read by itself. A write through another access
  // method drops no window. Off until it is called. A range that is empty or not aligned, or a
  // window that is no multiple of the width: a range exception.
  void gatherIs(U32 begin, U32 end, U32 bytes, Zint::Seconds maxAge);
  void gatherDelAll();

  bool isPresent() override;
  Zint::Seconds costPerAccess() const override { return cost_; }
  // What the last access found.
  bool isAbsent() const { return isAbsent_; }

  const RegisterBus::Ptr& bus() const { return bus_; }
  const RegisterFormat& format() const { return format_; }

 private:
  template <class Access>
  void guarded(U32 address, Access access);
  void checkReturn(U32 address);
  void checkIdentity(U32 address);
  void checkSentinel();
  bool isSuspicious(const U8* bytes, U32 registers) const;
  void reverse(U8* bytes, U32 registers) const;
  void readChecked(const RegisterRun& run, U8* bytes);
  void readGathered(const RegisterRun& run, U8* bytes);
  [[noreturn]] void throwAbsent(U32 address, int error, const char* what);

  const RegisterBus::Ptr bus_;
  const RegisterFormat format_;
  Zint::String8 identity_;
  U32 sentinelAddress_ = 0;
  U64 sentinelValue_ = 0;
  U64 sentinelMask_ = 0;
  Zint::Seconds cost_ = 0;
  std::shared_ptr<GatheredWindows> gathered_;  // null while nothing is gathered
  U32 failures_ = 0;                           // accesses in a row
  U32 openings_ = 0;                           // of the bus, when the chip was last checked
  bool hasSentinel_ = false;
  bool isAbsent_ = false;
};

UMBRA_API Zint::ValidPtr<RegisterHam> registerHamFactory(Zint::Name name,
                                                         const RegisterBus::Ptr& bus,
                                                         const RegisterFormat& format = {});

}  // namespace Platform
