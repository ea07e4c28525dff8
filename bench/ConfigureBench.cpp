// Making the index: what `configured` costs.
#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Bench.h"

namespace Bench {
namespace {

using Hardware::ChipMemory;

// Regions of one register each; a chunk holds 1,000 of them side by side, or as many of those that
// lie further apart as fit into 4 GiB.
struct RegistryStand : Stand {
  RegistryStand(U32 count, U32 distance, bool audited) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    const U32 ofChunk = std::min(count, distance == 4 ? 1000u : 62500u);
    for (U32 chunk = 0; chunk < count / ofChunk; ++chunk) {
      for (U32 i = 0; i < ofChunk; ++i) {
        const ChipMemory::Ptr region =
            regionIs(Hardware::ChipAddress(chunk, distance * i), 1, 4, ham);
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

bool before(const std::pair<U64, ChipMemory::Ptr>& left,
            const std::pair<U64, ChipMemory::Ptr>& right) {
  return left.first < right.first;
}

void registerConfigured(const std::string& comparison, U32 count, U32 distance, bool audited) {
  auto stand = shared<RegistryStand>(count, distance, audited);
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
  side(comparison, "std::map, emplace_hint", [stand](benchmark::State& state) {
    RegistryStand& s = stand();
    for (auto _ : state) {
      std::map<U64, ChipMemory*> map;
      for (ChipMemory* region : s.regions) {
        map.emplace_hint(map.end(), region->address().value(), region);
      }
      benchmark::ClobberMemory();
      state.PauseTiming();
      require(map.size() == s.regions.size(), "all regions are in the map");
      map.clear();
      state.ResumeTiming();
    }
    partsOfIteration(state, s.regions.size());
  });
  // Each region is counted, as ours are.
  side(comparison, "sorted vector", [stand](benchmark::State& state) {
    RegistryStand& s = stand();
    for (auto _ : state) {
      std::vector<std::pair<U64, ChipMemory::Ptr>> vector;
      for (ChipMemory* region : s.regions) vector.emplace_back(region->address().value(), region);
      if (!std::is_sorted(vector.begin(), vector.end(), before)) {
        std::sort(vector.begin(), vector.end(), before);
      }
      benchmark::ClobberMemory();
      state.PauseTiming();
      require(vector.size() == s.regions.size(), "all regions are in the vector");
      vector.clear();
      state.ResumeTiming();
    }
    partsOfIteration(state, s.regions.size());
  });
  // What there is by hand where the order of the index and the members of the request are asked
  // for: the registry is a tree, and an audited region has a place of its own under its address.
  side(comparison, audited ? "tree to vector and hash map" : "tree to vector",
       [stand, audited](benchmark::State& state) {
         RegistryStand& s = stand();
         std::map<U64, ChipMemory::Ptr> registry;
         for (ChipMemory* region : s.regions) registry.emplace(region->address().value(), region);
         for (auto _ : state) {
           std::vector<std::pair<U64, ChipMemory::Ptr>> vector;
           std::unordered_map<U64, ChipMemory::Ptr> request;
           for (const auto& [address, region] : registry) {
             vector.emplace_back(region->address().value(), region);
             if (audited) request.emplace(region->address().value(), region);
           }
           benchmark::ClobberMemory();
           state.PauseTiming();
           require(vector.size() == s.regions.size(), "all regions are in the vector");
           request.clear();
           vector.clear();
           state.ResumeTiming();
         }
         partsOfIteration(state, s.regions.size());
       });
}

}  // namespace

void registerConfigureBenches() {
  registerConfigured("row15/configured, 1,000 regions", 1000, 4, false);
  registerConfigured("row15/configured, 1,000,000 regions", 1000000, 4, false);
  registerConfigured("row15/configured, 1,000,000 regions 4 KiB apart", 1000000, 4096, false);
  registerConfigured("row15/configured, 1,000,000 regions 64 KiB apart", 1000000, 65536, false);
  registerConfigured("row15/configured, 1,000 audited regions", 1000, 4, true);
  registerConfigured("row15/configured, 100,000 audited regions", 100000, 4, true);
  registerConfigured("row15/configured, 62,500 audited regions 4 KiB apart", 62500, 4096, true);
  registerConfigured("row15/configured, 62,500 audited regions 64 KiB apart", 62500, 65536, true);
  registerConfigured("row15/configured, 1,000,000 audited regions", 1000000, 4, true);
  registerConfigured("row15/configured, 1,000,000 audited regions 4 KiB apart", 1000000, 4096,
                     true);
  registerConfigured("row15/configured, 1,000,000 audited regions 64 KiB apart", 1000000, 65536,
                     true);

  for (const U32 count : {1000u, 10000u, 100000u, 1000000u}) {
    registerConfigured("curve/regions-configured/" + std::to_string(count), count, 4, false);
  }
}

}  // namespace Bench
