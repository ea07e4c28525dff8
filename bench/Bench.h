// What the benchmarks share: the registration of comparisons, and the objects that they use.
//
// A comparison is a group of sides with one name, `group/what`. The side "ours" is compared with
// every other one; bench/run pairs them by their names:
//
//   row05/look-up in the last region/ours
//   row05/look-up in the last region/inlined range check
//
// All sides of a comparison do the same work on the same data, and every answer is consumed.
#pragma once

#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <benchmark/benchmark.h>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace Bench {

using Body = std::function<void(benchmark::State&)>;

// Registers one side of a comparison.
benchmark::internal::Benchmark* side(const std::string& comparison, const std::string& name,
                                     Body body);
// Registers a number that is counted, not timed; `unit` is shown with it.
void figure(const std::string& name, const std::string& unit, std::function<double()> count);
// Shows the time of one of `units` equal parts of an iteration.
inline void partsOfIteration(benchmark::State& state, std::size_t units) {
  state.counters["units"] = static_cast<double>(units);
}

// One per theme; called by main in this order.
void registerAuditBenches();
void registerIndexBenches();
void registerDataPathBenches();
void registerHamBenches();
void registerRuntimeBenches();
void registerTraceBenches();
void registerConfigureBenches();
void registerMemoryBenches();
void registerTurnBenches();
void registerPassBenches();
void registerLifeBenches();
void registerPolicyBenches();
void registerGovernorBenches();
void registerPatrolBenches();
void registerTelemetryBenches();
void registerControlBenches();

// Ends the program unless a benchmark has computed what it should have.
void require(bool holds, const char* what);

// A source of the one object that all sides of a comparison use; the first call makes it.
template <class T, class... Arguments>
auto shared(Arguments... arguments) {
  return [held = std::make_shared<std::unique_ptr<T>>(), arguments...]() -> T& {
    if (*held == nullptr) *held = std::make_unique<T>(arguments...);
    return **held;
  };
}

// The number of random addresses or keys that are prepared. They are used in blocks, again and
// again, so that the loop around them costs almost nothing.
constexpr std::size_t randoms = 1 << 16;
constexpr std::size_t blockSize = 1 << 10;

// Calls `use` for each of them, one block in an iteration.
template <class T, class Use>
void usedInBlocks(benchmark::State& state, const std::vector<T>& values, Use use) {
  std::size_t begin = 0;
  for (auto _ : state) {
    const T* first = values.data() + begin;
    for (std::size_t i = 0; i < blockSize; ++i) use(first[i]);
    begin = (begin + blockSize) % randoms;
  }
  partsOfIteration(state, blockSize);
}

// Random numbers that are the same in every run.
inline std::mt19937 randomNumbers() { return std::mt19937(12345); }

// Distinct values 0 ... count-1 in random order.
std::vector<U32> shuffled(U32 count);

// Access methods without a chip, and registers that are memory. Made in another source, so that the
// compiler cannot turn their virtual calls into direct ones.
Hardware::ChipHam::Ptr plainHam();      // keeps the base's cache side
Hardware::ChipHam::Ptr comparingHam();  // overrides doCompare, with the same answer
Zint::Ptr<Fru::HamImpl> memoryRegisters();
// An access method like plainHam(), of the program around the module: compiled without PIC.
Hardware::ChipHam::Ptr programHam();

// Hides a value from the optimiser, which must assume that it is used and changed. (The benchmark
// library's own form lets the compiler choose between register and memory, which g++ 12 gets wrong
// in 32 bits.)
template <class T>
inline void opaque(T& value) {
  if constexpr (std::is_scalar_v<T> && sizeof(T) == 1) {
    asm volatile("" : "+q"(value) : : "memory");
  } else if constexpr (std::is_scalar_v<T> && !std::is_floating_point_v<T> &&
                       sizeof(T) <= sizeof(void*)) {
    asm volatile("" : "+r"(value) : : "memory");
  } else {
    asm volatile("" : "+m"(value) : : "memory");
  }
}
// For a value that cannot be changed: the optimiser must assume that it is used.
template <class T>
inline void opaque(const T& value) {
  asm volatile("" : : "m"(value) : "memory");
}

// A shadow on a manual clock that is never moved.
struct Stand {
  Stand();
  // Registers a region. REQUIRES: not yet configured.
  Hardware::ChipMemory::Ptr regionIs(const Hardware::ChipAddress& address, U32 entries,
                                     U32 entrySize, const Hardware::ChipHam::Ptr& ham);
  void configured() { shadow->stateIs(Hardware::HardwareShadow::configured()); }

  Zint::Ptr<Zint::ManualClock> clock;
  Zint::Ptr<Zint::ActivityConfig> activity;
  Hardware::HardwareShadow::Ptr shadow;
};

// A stand with one region at offset 0. Its shadow and its hardware buffer hold the same known
// random bytes.
struct RegionStand : Stand {
  RegionStand(U32 entries, U32 entrySize, const Hardware::ChipHam::Ptr& ham);

  U8* shadowBytes() const { return region->shadow()->data(); }
  U8* hardwareBytes() const { return region->hardware()->data(); }
  U8* initializedBits() const { return region->initialized()->data(); }
  U8* dirtyBits() const { return region->dirty()->data(); }

  Hardware::ChipMemory::Ptr region;
  Hardware::ChipHam::Ptr ham;
  U32 entries;
  U32 entrySize;
  U32 bytes;
};

}  // namespace Bench
