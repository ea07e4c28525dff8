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

// Where the regions of a chunk lie: the distance of their starts; 0 for uneven sizes and gaps.
constexpr U32 packed = 64;
constexpr U32 uneven = 0;

// What a user keeps of a region beside its start: nothing of the library is asked by a reference,
// until it holds what it has found. `Region` is how: a counted pointer, as the shadow's answer is,
// or a raw one, which dangles when the region is removed meanwhile.
template <class Region>
struct Extent {
  U32 bytes;
  Region region;
};

// Regions of 16 registers (uneven: of 1 to 256), and a long list of random addresses: in them, or
// in the gaps between them (`missed`).
struct IndexStand : Stand {
  IndexStand(U32 chunks, U32 regionsOfChunk, U32 distance, bool missed) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    std::mt19937 random = randomNumbers();
    for (U32 chunk = 0; chunk < chunks; ++chunk) {
      U32 offset = 0;
      for (U32 i = 0; i < regionsOfChunk; ++i) {
        const U32 entries = distance == uneven ? 1 + static_cast<U32>(random() % 256) : 16;
        regions.push_back(regionIs(ChipAddress(chunk, offset), entries, 4, ham));
        offset +=
            distance == uneven ? entries * 4 + static_cast<U32>(random() % 16) * 256 : distance;
      }
    }
    configured();
    for (ChipAddress& address : addresses) {
      do {
        const ChipMemory& region = *regions[random() % regions.size()];
        const U32 span = region.entries() * 4;
        const U32 inside = static_cast<U32>(random() % span) & ~3u;
        address = region.address().plus(missed ? span + inside % 64 : inside);
      } while (missed && shadow->findChipMemory(address, 4) != nullptr);
    }
  }

  template <class Map>
  Map map() const {
    Map map;
    for (const ChipMemory::Ptr& cm : regions) {
      map.emplace(cm->address().value(), typename Map::mapped_type{cm->entries() * 4, cm.ptr()});
    }
    return map;
  }

  std::vector<ChipMemory::Ptr> regions;
  std::vector<ChipAddress> addresses{randoms};
};

template <class Map>
auto found(const Map& map, const ChipAddress& address) -> decltype(Map::mapped_type::region) {
  const auto above = map.upper_bound(address.value());
  if (above == map.begin()) return nullptr;
  const auto& [begin, extent] = *std::prev(above);
  return address.value() - begin < extent.bytes ? extent.region : nullptr;
}

// Looks up one address after the other, and checks each answer once.
template <class Find>
void lookUp(benchmark::State& state, const IndexStand& stand, Find find) {
  const bool missed = stand.shadow->findChipMemory(stand.addresses[0], 4) == nullptr;
  for (const ChipAddress& address : stand.addresses) {
    const auto region = find(address);
    require(missed ? region == nullptr : region != nullptr && region->inRange(address),
            "the answer is right");
  }
  usedInBlocks(state, stand.addresses, [&find](const ChipAddress& address) {
    auto region = find(address);
    benchmark::DoNotOptimize(region);
  });
}

template <class Map, class Source>
Body lookUpInMap(Source stand) {
  return [stand](benchmark::State& state) {
    const Map map = stand().template map<Map>();
    lookUp(state, stand(), [&map](const ChipAddress& address) { return found(map, address); });
  };
}

void registerLookUps(const std::string& comparison, U32 chunks, U32 regionsOfChunk,
                     U32 distance = packed, bool missed = false) {
  auto stand = shared<IndexStand>(chunks, regionsOfChunk, distance, missed);
  side(comparison, "ours", [stand](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *stand().shadow;
    lookUp(state, stand(),
           [&shadow](const ChipAddress& address) { return shadow.findChipMemory(address, 4); });
  });
  using Held = Extent<ChipMemory::Ptr>;
  side(comparison, "std::map", lookUpInMap<std::map<U64, Held>>(stand));
#ifdef BENCH_ABSL
  side(comparison, "absl::btree_map", lookUpInMap<absl::btree_map<U64, Held>>(stand));
  side(comparison, "absl::btree_map, not held",
       lookUpInMap<absl::btree_map<U64, Extent<const ChipMemory*>>>(stand));
#endif
#ifdef BENCH_BOOST
  side(comparison, "boost::container::flat_map",
       lookUpInMap<boost::container::flat_map<U64, Held>>(stand));
#endif
}

}  // namespace

void registerIndexBenches() {
  registerLookUps("row04/random look-up, 16 regions", 1, 16);
  registerLookUps("row04/random look-up, 1,024 regions", 1, 1024);
  registerLookUps("row04/random look-up, 65,535 regions", 1, 65535);
  registerLookUps("row04/random look-up, 4,096 chunks of 16", 4096, 16);
  registerLookUps("row04/random look-up, 1,024 regions 4 KiB apart", 1, 1024, 4096);
  registerLookUps("row04/random look-up, 65,535 regions 64 KiB apart", 1, 65535, 65536);
  registerLookUps("row04/random look-up, 1,024 uneven regions", 1, 1024, uneven);
  registerLookUps("row04/random look-up, 65,535 uneven regions", 1, 65535, uneven);
  registerLookUps("row04/look-up that finds nothing, 1,024 regions 4 KiB apart", 1, 1024, 4096,
                  true);
  registerLookUps("row04/look-up that finds nothing, 65,535 regions 64 KiB apart", 1, 65535, 65536,
                  true);

  const std::string row5 = "row05/look-up in the last region";
  auto single = shared<IndexStand>(1u, 1u, packed, false);
  side(row5, "ours", [single](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *single().shadow;
    lookUp(state, single(),
           [&shadow](const ChipAddress& address) { return shadow.findChipMemory(address, 4); });
  });
  // In memory, as a caller's last region would be: loaded for each address.
  const auto registerCheck = [&row5, single]<class Region>(const char* name, Region) {
    side(row5, name, [single](benchmark::State& state) {
      const ChipMemory::Ptr& region = single().regions[0];
      auto last = std::make_unique<std::pair<U64, Extent<Region>>>(
          region->address().value(), Extent<Region>{region->entries() * 4, region.ptr()});
      opaque(last);
      lookUp(state, single(), [&last](const ChipAddress& address) -> Region {
        const auto& [begin, extent] = *last;
        return address.value() - begin < extent.bytes ? extent.region : nullptr;
      });
    });
  };
  registerCheck("inlined range check", ChipMemory::Ptr());
  registerCheck("inlined range check, not held", static_cast<const ChipMemory*>(nullptr));

  for (const U32 regions : {1u, 4u, 16u, 64u, 256u, 1024u, 4096u, 16384u, 65535u}) {
    registerLookUps("curve/regions-find/" + std::to_string(regions), 1, regions);
  }
}

}  // namespace Bench
