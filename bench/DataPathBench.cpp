// The data path: writes offered to the shadow and reads served from it.
#include <cstring>
#include <unordered_map>

#include "Bench.h"
#include "Literal.h"

namespace Bench {
namespace {

using Hardware::ChipAddress;

// A region whose entries are all known, and two versions of them: `same` is what the shadow holds
// at first, in `other` each entry differs.
struct DataStand : RegionStand {
  DataStand(U32 entryCount, U32 size) : RegionStand(entryCount, size, plainHam()) {
    region->skipWriteIfMatchesCacheIs(true);
    region->readFromCacheIs(true);
    same.assign(shadowBytes(), shadowBytes() + bytes);
    for (const U8 byte : same) other.push_back(static_cast<U8>(~byte));
    read.resize(bytes);
  }
  LiteralRegion literal() {
    return {*ham, shadowBytes(), hardwareBytes(), initializedBits(), dirtyBits(), entrySize};
  }
  void sameIs() { std::memcpy(shadowBytes(), same.data(), bytes); }

  std::vector<U8> same;
  std::vector<U8> other;
  std::vector<U8> read;
};

// `write` takes the data and answers whether the chip need not be written.
template <class Source, class Write>
Body hits(Source stand, Write write) {
  return [stand, write](benchmark::State& state) {
    DataStand& s = stand();
    s.sameIs();
    for (auto _ : state) {
      bool hit = write(s, s.same.data());
      opaque(hit);
      require(hit, "equal data need not be written");
    }
  };
}

// Writes the other version each time, so that every entry is a miss.
template <class Source, class Write>
Body misses(Source stand, Write write) {
  return [stand, write](benchmark::State& state) {
    DataStand& s = stand();
    s.sameIs();
    bool toOther = true;
    for (auto _ : state) {
      bool hit = write(s, toOther ? s.other.data() : s.same.data());
      opaque(hit);
      require(!hit, "changed data must be written");
      toOther = !toOther;
    }
    const std::vector<U8>& last = toOther ? s.same : s.other;
    require(std::memcmp(s.shadowBytes(), last.data(), s.bytes) == 0, "the last data are shadowed");
  };
}

bool written(DataStand& s, U8* data) {
  return s.shadow->shadowWriteAndCompareWithCache(s.region, 0, data, s.bytes);
}
bool literallyWritten(DataStand& s, U8* data) {
  LiteralRegion region = s.literal();
  const bool hit = literalWrite(region, s.entries, data);
  opaque(region.hits);
  return hit;
}
bool memcmpOfAll(DataStand& s, U8* data) {
  opaque(data);
  return std::memcmp(s.shadowBytes(), data, s.bytes) == 0;
}
// Both comparison and copy read all bytes: the comparison does not end early.
bool memcmpAndMemcpy(DataStand& s, U8* data) {
  opaque(data);
  const bool compared = std::memcmp(s.hardwareBytes(), s.same.data(), s.bytes) == 0;
  std::memcpy(s.shadowBytes(), data, s.bytes);
  benchmark::ClobberMemory();
  return !compared;
}

template <class Source, class Read>
Body reads(Source stand, Read read) {
  return [stand, read](benchmark::State& state) {
    DataStand& s = stand();
    s.sameIs();
    for (auto _ : state) {
      bool served = read(s);
      opaque(served);
      benchmark::ClobberMemory();
      require(served, "all entries are known");
    }
    require(s.read == s.same, "what was read is what the shadow holds");
  };
}

bool readFromShadow(DataStand& s) {
  return s.shadow->readFromCache(s.region, 0, s.read.data(), s.bytes);
}
bool literallyRead(DataStand& s) {
  LiteralRegion region = s.literal();
  const bool served = literalRead(region, s.entries, s.read.data());
  opaque(region.hits);
  return served;
}
bool memcpyOfAll(DataStand& s) {
  U8* to = s.read.data();
  opaque(to);
  std::memcpy(to, s.shadowBytes(), s.bytes);
  return true;
}

// One region of 16,384 registers and random addresses in it.
struct RegisterStand : DataStand {
  RegisterStand() : DataStand(16384, 4) {
    region->skipWriteIfMatchesCacheIs(false);
    std::mt19937 random = randomNumbers();
    for (ChipAddress& address : addresses) {
      address = ChipAddress(0, static_cast<U32>(random() % entries * 4));
    }
    for (U32 e = 0; e < entries; ++e) map[4 * e] = e;
    for (U32 e = 0; e < entries; ++e) shadow->shadowWriteU32(ChipAddress(0, 4 * e), e);
  }

  std::vector<ChipAddress> addresses{randoms};
  std::unordered_map<U64, U32> map;
};

void registerRegisterAccess() {
  auto stand = shared<RegisterStand>();
  const std::string row7Write = "row07/shadowWriteU32 at random";
  side(row7Write, "ours", [stand](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *stand().shadow;
    U32 value = 0;
    usedInBlocks(state, stand().addresses,
                 [&](const ChipAddress& address) { shadow.shadowWriteU32(address, ++value); });
    shadow.shadowWriteU32(ChipAddress(0, 4), 1);
    require(shadow.readFromCacheU32(ChipAddress(0, 4)) == 1, "the register holds its value");
  });
  side(row7Write, "std::unordered_map", [stand](benchmark::State& state) {
    std::unordered_map<U64, U32>& map = stand().map;
    U32 value = 0;
    usedInBlocks(state, stand().addresses, [&](const ChipAddress& address) {
      map[address.value()] = ++value;
      benchmark::ClobberMemory();
    });
  });

  const std::string row7Read = "row07/readFromCacheU32 at random";
  side(row7Read, "ours", [stand](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *stand().shadow;
    usedInBlocks(state, stand().addresses, [&shadow](const ChipAddress& address) {
      U32 value = shadow.readFromCacheU32(address);
      opaque(value);
    });
  });
  side(row7Read, "std::unordered_map", [stand](benchmark::State& state) {
    const std::unordered_map<U64, U32>& map = stand().map;
    usedInBlocks(state, stand().addresses, [&map](const ChipAddress& address) {
      const auto place = map.find(address.value());
      U32 value = place == map.end() ? 0 : place->second;
      opaque(value);
    });
  });
}

}  // namespace

void registerDataPathBenches() {
  auto table = shared<DataStand>(1024u, 4u);
  side("row06/write of 1,024 entries, all hits", "ours", hits(table, written));
  side("row06/write of 1,024 entries, all hits", "memcmp", hits(table, memcmpOfAll));
  side("row06/write of 1,024 entries, all misses", "ours", misses(table, written));
  side("row06/write of 1,024 entries, all misses", "memcmp + memcpy",
       misses(table, memcmpAndMemcpy));

  registerRegisterAccess();

  auto block = shared<DataStand>(16384u, 4u);
  side("row08/read of 64 KiB", "ours", reads(block, readFromShadow));
  side("row08/read of 64 KiB", "memcpy", reads(block, memcpyOfAll));

  for (const U32 entrySize : {1u, 2u, 3u, 4u, 8u, 12u, 16u, 64u}) {
    auto stand = shared<DataStand>(4096 / entrySize, entrySize);
    const std::string entries = std::to_string(entrySize) + "-byte entries";
    side("sizes/write hits, " + entries, "ours", hits(stand, written));
    side("sizes/write hits, " + entries, "literal loop", hits(stand, literallyWritten));
    side("sizes/write misses, " + entries, "ours", misses(stand, written));
    side("sizes/write misses, " + entries, "literal loop", misses(stand, literallyWritten));
    side("sizes/read, " + entries, "ours", reads(stand, readFromShadow));
    side("sizes/read, " + entries, "literal loop", reads(stand, literallyRead));
  }

  for (U32 entries = 1; entries <= 262144; entries *= 4) {
    auto stand = shared<DataStand>(entries, 4u);
    const std::string point = "/" + std::to_string(entries);
    side("curve/entries-write-hits" + point, "ours", hits(stand, written));
    side("curve/entries-write-hits" + point, "memcmp", hits(stand, memcmpOfAll));
    side("curve/entries-write-hits" + point, "literal loop", hits(stand, literallyWritten));
    side("curve/entries-read" + point, "ours", reads(stand, readFromShadow));
    side("curve/entries-read" + point, "memcpy", reads(stand, memcpyOfAll));
    side("curve/entries-read" + point, "literal loop", reads(stand, literallyRead));
  }
}

}  // namespace Bench
