// Whole audit passes: start, the slices of the reader, the comparison and the end; and what a pass
// costs that finds differences.
#include <cstring>

#include "Bench.h"
#include "PassStand.h"

namespace Bench {
namespace {

// By hand: every entry is read, the bitmap is zeroed, the images are compared.
void passByHand(PassStand& stand, const std::function<void()>& readAll) {
  std::memset(stand.region->dirty()->data(), 0, stand.region->dirty()->size());
  benchmark::ClobberMemory();
  readAll();
  int difference = std::memcmp(stand.region->shadow()->data(), stand.region->hardware()->data(),
                               stand.region->hardware()->size());
  opaque(difference);
  require(difference == 0, "the chip holds what the shadow holds");
}

void registerCopying(U32 entries, U32 slice) {
  const std::string comparison = "row19/whole pass, " + std::to_string(entries / 1024) +
                                 " Ki entries copied, slices of " + std::to_string(slice);
  auto stand = shared<PassStand>(entries, slice, [entries] { return copyingHam(4 * entries); });
  side(comparison, "ours", [stand](benchmark::State& state) {
    for (auto _ : state) stand().pass();
  });
  side(comparison, "memcpy + memset + memcmp", [stand, slice](benchmark::State& state) {
    PassStand& s = stand();
    const std::vector<U8> chip(4 * s.entries);
    for (auto _ : state) {
      passByHand(s, [&] {
        for (U32 at = 0; at < chip.size(); at += 4 * slice) {
          std::memcpy(s.region->hardware()->data() + at, chip.data() + at, 4 * slice);
        }
      });
    }
  });
}

void registerRegisters(const std::string& what, double nanoseconds, U32 entries, U32 slice) {
  const std::string comparison =
      "row19/whole pass, registers of " + what + ", slices of " + std::to_string(slice);
  auto registers = [nanoseconds]() -> Zint::Ptr<Fru::HamImpl> {
    if (nanoseconds == 0) return memoryRegisters();
    return timedRegisters(nanoseconds);
  };
  auto held = std::make_shared<Zint::Ptr<Fru::HamImpl>>();
  auto stand = shared<PassStand>(entries, slice, [held, registers]() -> Hardware::ChipHam::Ptr {
    *held = registers();
    return Hardware::genericChipHamFactory("generic", *held);
  });
  side(comparison, "ours", [stand](benchmark::State& state) {
    for (auto _ : state) stand().pass();
  });
  side(comparison, "register calls + memset + memcmp", [stand, held](benchmark::State& state) {
    PassStand& s = stand();
    Fru::HamImpl& impl = **held;
    for (auto _ : state) {
      passByHand(s, [&] {
        U8* to = s.region->hardware()->data();
        for (U32 address = 0; address < 4 * s.entries; address += 4, to += 4) {
          U32 value;
          impl.read(address, &value);
          std::memcpy(to, &value, 4);
        }
      });
    }
  });
}

// The same on the system's clock, inside run(): with what the loop itself takes. Wall-clock time.
void registerRun(const std::string& what, double nanoseconds, U32 entries, U32 slice) {
  const std::string comparison =
      "row20/pass inside run(), registers of " + what + ", slices of " + std::to_string(slice);
  auto registers = std::make_shared<Zint::Ptr<Fru::HamImpl>>();
  auto stand = shared<RunStand>(entries, slice, [registers, nanoseconds]() {
    *registers = timedRegisters(nanoseconds);
    return Hardware::ChipHam::Ptr(Hardware::genericChipHamFactory("generic", *registers));
  });
  side(comparison, "ours", [stand](benchmark::State& state) {
    for (auto _ : state) stand().pass();
  })->UseRealTime();
  side(comparison, "registers x access", [stand, registers](benchmark::State& state) {
    Fru::HamImpl& impl = *(stand(), *registers);
    for (auto _ : state) {
      U32 value = 0;
      for (U32 i = 0; i < stand().entries; ++i) impl.read(4 * i, &value);
      opaque(value);
    }
  })->UseRealTime();
}

// Whole passes over entries that all differ, each time: the shadow knows of ones, and the registers
// keep none of the repairs. Each entry is read, reported and rewritten. Text trace is off but for
// level 0, whose lines go nowhere.
void registerDifferences(U32 entries) {
  const std::string comparison =
      "row21/pass in which " + std::to_string(entries) + " entries differ, registers of 1 us";
  auto registers = std::make_shared<Zint::Ptr<Fru::HamImpl>>();
  auto stand = shared<PassStand>(entries, entries, [registers]() {
    *registers = timedRegisters(1000);
    return Hardware::ChipHam::Ptr(Hardware::genericChipHamFactory("generic", *registers));
  });
  side(comparison, "ours", [stand](benchmark::State& state) {
    PassStand& s = stand();
    std::memset(s.region->shadow()->data(), 0xff, 4 * s.entries);
    U32 fixed = s.region->registersFixed();
    for (auto _ : state) {
      s.pass();
      fixed += s.entries;
    }
    require(s.region->registersFixed() == fixed, "every entry was repaired");
  });
  side(comparison, "register calls", [registers, stand](benchmark::State& state) {
    PassStand& s = stand();
    U32 value = 0;
    for (auto _ : state) {
      for (U32 i = 0; i < s.entries; ++i) (*registers)->read(4 * i, &value);
      for (U32 i = 0; i < s.entries; ++i) (*registers)->write(4 * i, ~value);
    }
    opaque(value);
  });
}

}  // namespace

void registerPassBenches() {
  registerCopying(65536, 256);
  registerCopying(65536, 4096);
  for (const U32 slice : {64u, 256u, 4096u}) registerRegisters("no cost", 0, 65536, slice);
  for (const U32 slice : {64u, 256u, 4096u}) registerRegisters("100 ns", 100, 16384, slice);
  registerRegisters("1 us", 1000, 4096, 256);
  registerRegisters("50 us", 50000, 256, 64);
  for (const U32 slice : {64u, 256u, 4096u}) registerRun("100 ns", 100, 65536, slice);
  registerRun("1 us", 1000, 16384, 256);
  registerDifferences(1);
  registerDifferences(4096);
}

}  // namespace Bench
