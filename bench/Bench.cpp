#include "Bench.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>

namespace Bench {
namespace {

class PlainHam : public Hardware::ChipHam {
 public:
  using ChipHam::ChipHam;
  void doRead(const Hardware::ChipAddress&, U8* buffer, U32 entrySize, U32 entries) override {
    opaque(buffer + std::size_t{entrySize} * entries);
  }
  void doWrite(const Hardware::ChipAddress&, U8* buffer, U32 entrySize, U32 entries) override {
    opaque(buffer + std::size_t{entrySize} * entries);
  }
};

class ComparingHam : public PlainHam {
 public:
  using PlainHam::PlainHam;
  bool doCompare(U8* a, U8* b, U32 bytes) const override { return std::memcmp(a, b, bytes) == 0; }
};

// 1,024 registers, repeated over the whole address space; zero at first.
class MemoryRegisters : public Fru::HamImpl {
 public:
  void read(U32 address, U32* value) override { *value = words_[address / 4 % 1024]; }
  void write(U32 address, U32 value) override { words_[address / 4 % 1024] = value; }

 private:
  U32 words_[1024] = {};
};

}  // namespace

benchmark::internal::Benchmark* side(const std::string& comparison, const std::string& name,
                                     Body body) {
  return benchmark::RegisterBenchmark((comparison + "/" + name).c_str(), std::move(body));
}

void figure(const std::string& name, const std::string& unit, std::function<double()> count) {
  side(name, "figure", [unit, count = std::move(count)](benchmark::State& state) {
    double value = 0;
    for (auto _ : state) value = count();
    state.counters["figure"] = value;
    state.SetLabel(unit);
  })->Iterations(1);
}

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "umbra-bench: this does not hold: %s\n", what);
  std::abort();
}

std::vector<U32> shuffled(U32 count) {
  std::vector<U32> values(count);
  std::iota(values.begin(), values.end(), 0u);
  std::mt19937 random = randomNumbers();
  std::shuffle(values.begin(), values.end(), random);
  return values;
}

Hardware::ChipHam::Ptr plainHam() { return Zint::makePtr<PlainHam>("plain"); }
Hardware::ChipHam::Ptr comparingHam() { return Zint::makePtr<ComparingHam>("comparing"); }
Zint::Ptr<Fru::HamImpl> memoryRegisters() { return Zint::makePtr<MemoryRegisters>(); }

Stand::Stand()
    : clock(Zint::manualClockFactory("clock")),
      activity(Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock))),
      shadow(Hardware::hardwareShadowFactory(activity, clock)) {}

Hardware::ChipMemory::Ptr Stand::regionIs(const Hardware::ChipAddress& address, U32 entries,
                                          U32 entrySize, const Hardware::ChipHam::Ptr& ham) {
  Hardware::ChipMemory::Ptr region =
      Hardware::chipMemoryFactory("region", address, entries, entrySize, entrySize, ham);
  shadow->chipMemoryIs(region);
  return region;
}

RegionStand::RegionStand(U32 entryCount, U32 size, const Hardware::ChipHam::Ptr& accessMethod)
    : ham(accessMethod), entries(entryCount), entrySize(size), bytes(entryCount * size) {
  region = regionIs(Hardware::ChipAddress(0, 0), entries, entrySize, ham);
  region->shadowEnabledIs(true);
  region->auditEnabledIs(true);
  configured();
  region->doClear();
  std::mt19937 random = randomNumbers();
  for (U32 i = 0; i < bytes; i += 4) {
    const U32 value = static_cast<U32>(random());
    std::memcpy(shadowBytes() + i, &value, std::min<U32>(4, bytes - i));
  }
  std::memcpy(hardwareBytes(), shadowBytes(), bytes);
  std::memset(dirtyBits(), 0, region->dirty()->size());
}

}  // namespace Bench
