// The generic access method over 1,024 registers of a fixed cost: against free ones, the ratio
// would be that of two loops of a few instructions.
#include <cstring>

#include "PassStand.h"

namespace Bench {
namespace {

constexpr U32 registers = 1024;

struct GenericStand {
  Zint::Ptr<Fru::HamImpl> impl = timedRegisters(100);
  Hardware::ChipHam::Ptr ham = Hardware::genericChipHamFactory("generic", impl);
  std::vector<U8> buffer = std::vector<U8>(4 * registers);
};

}  // namespace

void registerHamBenches() {
  auto stand = shared<GenericStand>();
  const std::string reading = "row09/generic doRead of 1,024 registers of 100 ns";
  side(reading, "ours", [stand](benchmark::State& state) {
    GenericStand& s = stand();
    for (auto _ : state) {
      s.ham->doRead(Hardware::ChipAddress(0, 0), s.buffer.data(), 4, registers);
      benchmark::ClobberMemory();
    }
  });
  side(reading, "register calls", [stand](benchmark::State& state) {
    GenericStand& s = stand();
    Fru::HamImpl& impl = *s.impl;
    for (auto _ : state) {
      U8* to = s.buffer.data();
      for (U32 i = 0; i < registers; ++i, to += 4) {
        U32 value;
        impl.read(4 * i, &value);
        std::memcpy(to, &value, 4);
      }
      benchmark::ClobberMemory();
    }
  });

  const std::string writing = "row09/generic doWrite of 1,024 registers of 100 ns";
  side(writing, "ours", [stand](benchmark::State& state) {
    GenericStand& s = stand();
    for (auto _ : state) {
      s.ham->doWrite(Hardware::ChipAddress(0, 0), s.buffer.data(), 4, registers);
      benchmark::ClobberMemory();
    }
  });
  side(writing, "register calls", [stand](benchmark::State& state) {
    GenericStand& s = stand();
    Fru::HamImpl& impl = *s.impl;
    for (auto _ : state) {
      const U8* from = s.buffer.data();
      for (U32 i = 0; i < registers; ++i, from += 4) {
        U32 value;
        std::memcpy(&value, from, 4);
        impl.write(4 * i, value);
      }
      benchmark::ClobberMemory();
    }
  });
}

}  // namespace Bench
