// What a region takes beyond its buffers, and what allocates.
#include "Allocations.h"
#include "Bench.h"

namespace Bench {
namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;

// --- Memory --------------------------------------------------------------------------------------

U32 bufferBytes(const ChipMemory& region) {
  return region.hardware()->size() + region.shadow()->size() + region.dirty()->size() +
         region.initialized()->size();
}

ChipMemory::Ptr auditedRegion(U32 offset, U32 entries, const Hardware::ChipHam::Ptr& ham) {
  ChipMemory::Ptr region =
      Hardware::chipMemoryFactory("region", ChipAddress(0, offset), entries, 4, 4, ham);
  region->shadowEnabledIs(true);
  region->auditEnabledIs(true);
  return region;
}

// Bytes of one of 1,000 regions with shadow and audit beyond its four buffers; of the region alone,
// or with its places in the shadow's registry and index and in the audit's request.
double bytesOfRegion(bool configured) {
  constexpr U32 regions = 1000, entries = 256;
  const Hardware::ChipHam::Ptr ham = plainHam();
  std::vector<ChipMemory::Ptr> held(regions);
  Stand stand;
  const U64 before = bytesInUse();
  U64 buffers = 0;
  for (U32 i = 0; i < regions; ++i) {
    held[i] = auditedRegion(i * entries * 4, entries, ham);
    buffers += bufferBytes(*held[i]);
    if (configured) stand.shadow->chipMemoryIs(held[i]);
  }
  if (configured) stand.configured();
  return static_cast<double>(bytesInUse() - before - buffers) / regions;
}

// Bits by which one more entry makes a region larger, without its two copies.
double bitsOfEntry() {
  constexpr U32 entries = 1 << 20;
  const Hardware::ChipHam::Ptr ham = plainHam();
  const U64 empty = bytesInUse();
  ChipMemory::Ptr region = auditedRegion(0, entries, ham);
  const U64 some = bytesInUse() - empty;
  region = nullptr;
  region = auditedRegion(0, 2 * entries, ham);
  const U64 more = bytesInUse() - empty;
  return static_cast<double>(more - some - 2 * 4 * entries) * 8 / entries;
}

// --- Allocations ---------------------------------------------------------------------------------

class Watch : public ChipMemory::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onRegistersFixed() override { ++told; }

  U64 told = 0;
};

// Blocks taken by one `operation`, averaged over many; the first one may allocate more.
template <class Operation>
double allocationsOf(Operation operation) {
  constexpr U32 times = 100;
  operation();
  const U64 before = allocations();
  for (U32 i = 0; i < times; ++i) operation();
  return static_cast<double>(allocations() - before) / times;
}

double allocationsOfWrite(bool hit) {
  RegionStand stand(1024, 4, plainHam());
  stand.region->skipWriteIfMatchesCacheIs(true);
  std::vector<U8> data(stand.shadowBytes(), stand.shadowBytes() + stand.bytes);
  U64 hits = 0;
  const double count = allocationsOf([&] {
    if (!hit) {
      for (U8& byte : data) byte = static_cast<U8>(~byte);
    }
    hits += stand.shadow->shadowWriteAndCompareWithCache(stand.region, 0, data.data(), stand.bytes);
  });
  require(hit ? hits != 0 : hits == 0, "a write was what it is counted as");
  return count;
}

double allocationsOfRead() {
  RegionStand stand(1024, 4, plainHam());
  stand.region->readFromCacheIs(true);
  std::vector<U8> data(stand.bytes);
  return allocationsOf([&] {
    require(stand.shadow->readFromCache(stand.region, 0, data.data(), stand.bytes), "served");
  });
}

double allocationsOfPass(U32 regions) {
  Stand stand;
  const Hardware::ChipHam::Ptr ham = plainHam();
  for (U32 i = 0; i < regions; ++i) stand.shadow->chipMemoryIs(auditedRegion(i * 4096, 1024, ham));
  stand.configured();
  return allocationsOf([&] { stand.shadow->doAuditChips(); });
}

// One whole pass: start, slices, comparison and end.
double allocationsOfWholePass(U32 regions) {
  Stand stand;
  const Hardware::ChipHam::Ptr ham = plainHam();
  for (U32 i = 0; i < regions; ++i) {
    const ChipMemory::Ptr region = auditedRegion(i * 4096, 1024, ham);
    region->doClear();
    stand.shadow->chipMemoryIs(region);
  }
  stand.configured();
  const auto reader = Hardware::chipReaderFactory(stand.activity, stand.shadow->auditReadRequest(),
                                                  stand.clock, 1024, 0.0);
  stand.shadow->stateIs(Hardware::HardwareShadow::auditing());
  return allocationsOf([&] {
    const U32 audits = stand.shadow->audits();
    while (stand.shadow->audits() == audits) stand.activity->turn();
  });
}

// One entry that differs and is repaired; text trace is built for level 0 alone.
double allocationsOfDifference(U32 entrySize) {
  constexpr U32 entries = 64;
  RegionStand stand(entries, entrySize, plainHam());
  const double count = allocationsOf([&] {
    for (U32 i = 0; i < stand.bytes; ++i)
      stand.hardwareBytes()[i] = static_cast<U8>(~stand.shadowBytes()[i]);
    stand.shadow->doAuditChips();
  });
  require(stand.region->registersFixed() % entries == 0, "every entry was repaired");
  return count / entries;
}

double allocationsOfTick() {
  RegionStand stand(1 << 20, 4, plainHam());
  const Hardware::ChipReadRequest::Ptr request = stand.shadow->auditReadRequest();
  const auto reader =
      Hardware::chipReaderFactory(stand.activity, request, stand.clock, 1024, 0.001);
  request->stateIs(Zint::Request::start_);
  U32 ticks = 0;
  const double count = allocationsOf([&] {
    stand.clock->timeIs(stand.clock->time() + 0.001);
    ticks += stand.activity->turn();
  });
  require(reader->entriesRead() == ticks * 1024 && ticks > 1, "each turn was a tick");
  return count;
}

double allocationsOfNotification() {
  Stand stand;
  const ChipMemory::Ptr region = stand.regionIs(ChipAddress(0, 0), 16, 4, plainHam());
  std::vector<Zint::Ptr<Watch>> watches;
  for (U32 i = 0; i < 8; ++i) watches.push_back(Zint::makePtr<Watch>(stand.activity, region));
  U32 value = 0;
  const double count = allocationsOf([&] { region->registersFixedIs(++value); });
  require(watches.back()->told == value, "each was told");
  return count;
}

}  // namespace

void registerMemoryBenches() {
  figure("row16/one region beyond its buffers", "bytes", [] { return bytesOfRegion(true); });
  figure("row16/the same, not registered", "bytes", [] { return bytesOfRegion(false); });
  figure("row16/one entry beyond its two copies", "bits", bitsOfEntry);

  figure("row17/write hit", "allocations", [] { return allocationsOfWrite(true); });
  figure("row17/write miss", "allocations", [] { return allocationsOfWrite(false); });
  figure("row17/read", "allocations", allocationsOfRead);
  figure("row17/comparison, one more region", "allocations",
         [] { return allocationsOfPass(2) - allocationsOfPass(1); });
  figure("row17/comparison of 1 region", "allocations", [] { return allocationsOfPass(1); });
  figure("row17/whole pass of 1 region", "allocations", [] { return allocationsOfWholePass(1); });
  figure("row17/whole pass of 100 regions", "allocations",
         [] { return allocationsOfWholePass(100); });
  figure("row17/real difference, 4-byte entry", "allocations",
         [] { return allocationsOfDifference(4); });
  figure("row17/real difference, 4,096-byte entry", "allocations",
         [] { return allocationsOfDifference(4096); });
  figure("row17/reader tick", "allocations", allocationsOfTick);
  figure("row17/notification of 8", "allocations", allocationsOfNotification);
}

}  // namespace Bench
