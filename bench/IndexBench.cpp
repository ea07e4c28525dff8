// The address index: which region does an address belong to?
#include <map>
#ifdef BENCH_BOOST
#include <boost/container/flat_map.hpp>
#endif
#ifdef BENCH_ABSL
#include <absl/container/btree_map.h>
#endif

#include "Bench.h"

namespace Bench {
namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;

// Regions of 16 registers without a gap between them, and a long list of random addresses in them.
struct IndexStand : Stand {
  IndexStand(U32 chunks, U32 regionsOfChunk) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    for (U32 chunk = 0; chunk < chunks; ++chunk) {
      for (U32 i = 0; i < regionsOfChunk; ++i) {
        regions.push_back(regionIs(ChipAddress(chunk, i * 64), 16, 4, ham));
      }
    }
    configured();
    std::mt19937 random = randomNumbers();
    for (ChipAddress& address : addresses) {
      const U32 chunk = static_cast<U32>(random() % chunks);
      address = ChipAddress(chunk, static_cast<U32>(random() % (regionsOfChunk * 16) * 4));
    }
  }

  template <class Map>
  Map map() const {
    Map map;
    for (const ChipMemory::Ptr& cm : regions) map.emplace(cm->address().value(), cm.ptr());
    return map;
  }

  std::vector<ChipMemory::Ptr> regions;
  std::vector<ChipAddress> addresses{randoms};
};

template <class Map>
const ChipMemory* found(const Map& map, const ChipAddress& address) {
  const auto above = map.upper_bound(address.value());
  if (above == map.begin()) return nullptr;
  const ChipMemory* cm = std::prev(above)->second;
  return cm->inRange(address) ? cm : nullptr;
}

// Looks up one address after the other, and checks each answer once.
template <class Find>
void lookedUp(benchmark::State& state, const IndexStand& stand, Find find) {
  for (const ChipAddress& address : stand.addresses) {
    const ChipMemory* region = find(address);
    require(region != nullptr && region->inRange(address), "the region was found");
  }
  usedInBlocks(state, stand.addresses, [&find](const ChipAddress& address) {
    const ChipMemory* region = find(address);
    benchmark::DoNotOptimize(region);
  });
}

template <class Map, class Source>
Body lookUpInMap(Source stand) {
  return [stand](benchmark::State& state) {
    const Map map = stand().template map<Map>();
    lookedUp(state, stand(), [&map](const ChipAddress& address) { return found(map, address); });
  };
}

void registerLookUps(const std::string& comparison, U32 chunks, U32 regionsOfChunk) {
  auto stand = shared<IndexStand>(chunks, regionsOfChunk);
  side(comparison, "ours", [stand](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *stand().shadow;
    lookedUp(state, stand(), [&shadow](const ChipAddress& address) {
      return static_cast<const ChipMemory*>(shadow.findChipMemory(address, 4).ptr());
    });
  });
  side(comparison, "std::map", lookUpInMap<std::map<U64, const ChipMemory*>>(stand));
#ifdef BENCH_ABSL
  side(comparison, "absl::btree_map", lookUpInMap<absl::btree_map<U64, const ChipMemory*>>(stand));
#endif
#ifdef BENCH_BOOST
  side(comparison, "boost::container::flat_map",
       lookUpInMap<boost::container::flat_map<U64, const ChipMemory*>>(stand));
#endif
}

}  // namespace

void registerIndexBenches() {
  registerLookUps("row04/random look-up, 16 regions", 1, 16);
  registerLookUps("row04/random look-up, 1,024 regions", 1, 1024);
  registerLookUps("row04/random look-up, 65,535 regions", 1, 65535);
  registerLookUps("row04/random look-up, 4,096 chunks of 16", 4096, 16);

  const std::string row5 = "row05/look-up in the last region";
  auto single = shared<IndexStand>(1u, 1u);
  side(row5, "ours", [single](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *single().shadow;
    lookedUp(state, single(), [&shadow](const ChipAddress& address) {
      return static_cast<const ChipMemory*>(shadow.findChipMemory(address, 4).ptr());
    });
  });
  side(row5, "inlined range check", [single](benchmark::State& state) {
    const ChipMemory* last = single().regions[0].ptr();
    lookedUp(state, single(), [last](const ChipAddress& address) {
      return last->inRange(address) ? last : nullptr;
    });
  });

  for (const U32 regions : {1u, 4u, 16u, 64u, 256u, 1024u, 4096u, 16384u, 65535u}) {
    registerLookUps("curve/regions-find/" + std::to_string(regions), 1, regions);
  }
}

}  // namespace Bench
