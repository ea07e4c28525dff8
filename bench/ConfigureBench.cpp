// Making the index: what `configured` costs.
#include <map>

#include "Bench.h"

namespace Bench {
namespace {

using Hardware::ChipMemory;

// Regions of one register each, 1,000 in a chunk.
struct RegistryStand : Stand {
  RegistryStand(U32 count, bool audited) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    for (U32 chunk = 0; chunk < count / 1000; ++chunk) {
      for (U32 i = 0; i < 1000; ++i) {
        const ChipMemory::Ptr region = regionIs(Hardware::ChipAddress(chunk, 4 * i), 1, 4, ham);
        region->auditEnabledIs(audited);
        regions.push_back(region.ptr());
      }
    }
    configured();
    unconfigured();
  }
  void unconfigured() { shadow->stateIs(Hardware::HardwareShadow::unconfigured()); }

  std::vector<ChipMemory*> regions;
};

void registerConfigured(const std::string& comparison, U32 count, bool audited) {
  auto stand = shared<RegistryStand>(count, audited);
  side(comparison, "ours", [stand](benchmark::State& state) {
    RegistryStand& s = stand();
    for (auto _ : state) {
      s.configured();
      state.PauseTiming();
      ChipMemory* last = s.regions.back();
      require(s.shadow->findChipMemory(last->address(), 4) == last, "the last region is found");
      s.unconfigured();
      state.ResumeTiming();
    }
    partsOfIteration(state, s.regions.size());
  });
  side(comparison, "std::map", [stand](benchmark::State& state) {
    RegistryStand& s = stand();
    for (auto _ : state) {
      std::map<U64, ChipMemory*> map;
      for (ChipMemory* region : s.regions) map.emplace(region->address().value(), region);
      benchmark::ClobberMemory();
      state.PauseTiming();
      require(map.size() == s.regions.size(), "all regions are in the map");
      map.clear();
      state.ResumeTiming();
    }
    partsOfIteration(state, s.regions.size());
  });
}

}  // namespace

void registerConfigureBenches() {
  registerConfigured("row15/configured, 1,000 regions", 1000, false);
  registerConfigured("row15/configured, 1,000,000 regions", 1000000, false);
  registerConfigured("row15/configured, 1,000 audited regions", 1000, true);
  registerConfigured("row15/configured, 100,000 audited regions", 100000, true);

  for (const U32 count : {1000u, 10000u, 100000u, 1000000u}) {
    registerConfigured("curve/regions-configured/" + std::to_string(count), count, false);
  }
}

}  // namespace Bench
