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
  DataStand(U32 entryCount, U32 size, const Hardware::ChipHam::Ptr& access = plainHam())
      : RegionStand(entryCount, size, access) {
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

// Regions of registers, 64 KiB apart, and random addresses in them.
struct RegisterStand : Stand {
  RegisterStand(U32 regionCount, U32 entries, bool skip) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    for (U32 i = 0; i < regionCount; ++i) {
      const auto region = regionIs(ChipAddress(0, i * 0x10000), entries, 4, ham);
      region->shadowEnabledIs(true);
      region->readFromCacheIs(true);
      region->skipWriteIfMatchesCacheIs(skip);
      regions.push_back(region);
    }
    configured();
    std::mt19937 random = randomNumbers();
    for (ChipAddress& address : addresses) {
      const U32 region = static_cast<U32>(random() % regionCount);
      address = ChipAddress(0, region * 0x10000 + static_cast<U32>(random() % entries * 4));
    }
    for (const auto& region : regions) {
      for (U32 e = 0; e < entries; ++e) {
        const ChipAddress address = region->entryAddress(e);
        map[address.value()] = address.chipMemoryOffset();
        shadow->shadowWriteU32(address, address.chipMemoryOffset());
      }
    }
  }

  std::vector<Hardware::ChipMemory::Ptr> regions;
  std::vector<ChipAddress> addresses{randoms};
  std::unordered_map<U64, U32> map;
};

// What is written: the same value again, or another one each time.
enum class Value { same, another };

template <class Source>
void registerWrites(const std::string& comparison, Source stand, Value value) {
  side(comparison, "ours", [stand, value](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *stand().shadow;
    for (const ChipAddress& address : stand().addresses)
      shadow.shadowWriteU32(address, address.chipMemoryOffset());
    U32 last = 0;
    if (value == Value::same) {
      usedInBlocks(state, stand().addresses, [&](const ChipAddress& address) {
        shadow.shadowWriteU32(address, address.chipMemoryOffset());
      });
    } else {
      usedInBlocks(state, stand().addresses,
                   [&](const ChipAddress& address) { shadow.shadowWriteU32(address, ++last); });
    }
    const ChipAddress probe = stand().addresses[0];
    shadow.shadowWriteU32(probe, 1);
    require(shadow.readFromCacheU32(probe) == 1, "the register holds its value");
  });
  side(comparison, "std::unordered_map", [stand, value](benchmark::State& state) {
    std::unordered_map<U64, U32>& map = stand().map;
    U32 last = 0;
    usedInBlocks(state, stand().addresses, [&](const ChipAddress& address) {
      map[address.value()] = value == Value::same ? address.chipMemoryOffset() : ++last;
      benchmark::ClobberMemory();
    });
  });
}

template <class Source>
void registerReads(const std::string& comparison, Source stand) {
  side(comparison, "ours", [stand](benchmark::State& state) {
    Hardware::HardwareShadow& shadow = *stand().shadow;
    usedInBlocks(state, stand().addresses, [&shadow](const ChipAddress& address) {
      U32 value = shadow.readFromCacheU32(address);
      opaque(value);
    });
  });
  side(comparison, "std::unordered_map", [stand](benchmark::State& state) {
    const std::unordered_map<U64, U32>& map = stand().map;
    usedInBlocks(state, stand().addresses, [&map](const ChipAddress& address) {
      const auto place = map.find(address.value());
      U32 value = place == map.end() ? 0 : place->second;
      opaque(value);
    });
  });
}

void registerRegisterAccess() {
  const struct {
    U32 regions, entries;
    const char* text;
  } layouts[] = {{1, 16384, ", 1 region"},
                 {64, 16, ", 64 regions of 16"},
                 {64, 256, ", 64 regions of 256"},
                 {1024, 16, ", 1,024 regions of 16"}};
  for (const auto& [regions, entries, text] : layouts) {
    const std::string where = text;
    auto literal = shared<RegisterStand>(regions, entries, false);
    auto skipping = shared<RegisterStand>(regions, entries, true);
    registerWrites("row07/shadowWriteU32 at random" + where, literal, Value::another);
    registerWrites("row07/shadowWriteU32 at random, skip on, misses" + where, skipping,
                   Value::another);
    registerWrites("row07/shadowWriteU32 at random, skip on, hits" + where, skipping, Value::same);
    registerReads("row07/readFromCacheU32 at random" + where, literal);
  }
}

// --- A notifiee at a region ----------------------------------------------------------------------

// Is notified, and does nothing.
class Idle : public Hardware::ChipMemory::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
};

struct ObservedStand : DataStand {
  explicit ObservedStand(Zint::Interest interest)
      : DataStand(1024, 4), watch(Zint::makePtr<Idle>(activity, region)) {
    watch->interestIs(interest);
  }
  Zint::Ptr<Idle> watch;
};

// The same operation on a region with one notifiee, of everything or of another attribute than
// those that the data path announces, and on one with none.
template <class Measured>
void registerObserved(const std::string& what, Measured measured) {
  auto observed = shared<ObservedStand>(Zint::everyAttribute);
  auto other = shared<ObservedStand>(Zint::interestIn(Hardware::ChipMemory::Id::registersFixed));
  auto unobserved = shared<DataStand>(1024u, 4u);
  side("row22/" + what + ", one notifiee", "ours", measured(observed));
  side("row22/" + what + ", one notifiee", "no notifiee", measured(unobserved));
  side("row22/" + what + ", one of another attribute", "ours", measured(other));
  side("row22/" + what + ", one of another attribute", "no notifiee", measured(unobserved));
}

// One register after the other, in the order of the entries.
template <class Source, class Use>
Body registerByRegister(Source stand, Use use) {
  return [stand, use](benchmark::State& state) {
    DataStand& s = stand();
    s.sameIs();
    U32 value = 0;
    for (auto _ : state) {
      ++value;
      for (U32 offset = 0; offset < s.bytes; offset += 4) use(*s.shadow, offset, value);
    }
    partsOfIteration(state, s.entries);
  };
}

void registerObservedRows() {
  registerObserved("read of 1,024 entries",
                   [](auto stand) { return reads(stand, readFromShadow); });
  registerObserved("write of 1,024 entries, all misses",
                   [](auto stand) { return misses(stand, written); });
  registerObserved("readFromCacheU32", [](auto stand) {
    return registerByRegister(stand, [](auto& shadow, U32 offset, U32) {
      U32 read = shadow.readFromCacheU32(ChipAddress(0, offset));
      opaque(read);
    });
  });
  registerObserved("shadowWriteU32, a miss", [](auto stand) {
    return registerByRegister(stand, [](auto& shadow, U32 offset, U32 value) {
      shadow.shadowWriteU32(ChipAddress(0, offset), value);
    });
  });

  // Each hit is announced by itself: what remains to compare with is the announcements.
  const std::string hit = "row22/write of 1,024 entries, all hits, one notifiee";
  auto observed = shared<ObservedStand>(Zint::everyAttribute);
  side(hit, "ours", hits(observed, written));
  side(hit, "1,024 announcements", [observed](benchmark::State& state) {
    Hardware::ChipMemory& region = *observed().region;
    for (auto _ : state) {
      for (U32 i = 0; i < 1024; ++i) region.writeCacheHitsInc(1);
    }
  });
}

// --- A program without position-independent code -------------------------------------------------

// The access method of the program, which is compiled without -fPIC. Its virtual table may name the
// library's functions by addresses of its own.
struct NoPicStand : DataStand {
  NoPicStand() : DataStand(1 << 18, 4, programHam()) {}
};

void registerNoPic() {
  auto program = shared<NoPicStand>();
  auto module = shared<DataStand>(1u << 18, 4u);
  const auto rows = [program, module](const std::string& what, auto measured) {
    side("row26/" + what + ", access method of a program without PIC", "ours", measured(program));
    side("row26/" + what + ", access method of a program without PIC", "one of a module",
         measured(module));
  };
  rows("write hits of 1 MiB", [](auto stand) { return hits(stand, written); });
  rows("write misses of 1 MiB", [](auto stand) { return misses(stand, written); });
  rows("read of 1 MiB", [](auto stand) { return reads(stand, readFromShadow); });
  rows("comparison of 1 MiB", [](auto stand) {
    return Body([stand](benchmark::State& state) {
      DataStand& s = stand();
      s.sameIs();
      std::memcpy(s.hardwareBytes(), s.same.data(), s.bytes);
      for (auto _ : state) s.shadow->doAuditChips();
      require(s.region->registersFixed() == 0, "equal regions need no repair");
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
  registerObservedRows();
  registerNoPic();

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
