// Chips for the passes.
#include <x86intrin.h>

#include <cstring>

#include "PassStand.h"

namespace Bench {
namespace {

// Cycles of the time stamp counter in a nanosecond, measured once.
double cyclesPerNanosecond() {
  static const double cycles = [] {
    const auto begin = std::chrono::steady_clock::now();
    const U64 first = __rdtsc();
    while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(20)) {
    }
    const U64 last = __rdtsc();
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - begin;
    return static_cast<double>(last - first) / spent.count();
  }();
  return cycles;
}

class TimedRegisters : public Fru::HamImpl {
 public:
  explicit TimedRegisters(double nanoseconds)
      : cycles_(static_cast<U64>(nanoseconds * cyclesPerNanosecond())) {}
  void read(U32, U32* value) override {
    spend();
    *value = 0;
  }
  void write(U32, U32) override { spend(); }

 private:
  void spend() const {
    const U64 begin = __rdtsc();
    while (__rdtsc() - begin < cycles_) {
    }
  }

  const U64 cycles_;
};

class CopyingHam : public Hardware::ChipHam {
 public:
  explicit CopyingHam(U32 bytes) : ChipHam("copying"), chip_(bytes) {}
  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    std::memcpy(buffer, chip_.data() + address.chipMemoryOffset(), entrySize * entries);
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    std::memcpy(chip_.data() + address.chipMemoryOffset(), buffer, entrySize * entries);
  }

 private:
  std::vector<U8> chip_;
};

}  // namespace

Hardware::ChipHam::Ptr copyingHam(U32 bytes) { return Zint::makePtr<CopyingHam>(bytes); }

Zint::Ptr<Fru::HamImpl> timedRegisters(double nanoseconds) {
  return Zint::makePtr<TimedRegisters>(nanoseconds);
}

}  // namespace Bench
