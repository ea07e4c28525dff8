#include "layouts/Layout.h"

#include <Hardware/ChipHam.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

namespace Layouts {
namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

// Entries of any size, `stride` bytes from each to the next. The cached forms are the base's.
class StridedHam : public Hardware::ChipHam {
 public:
  StridedHam(Zint::Name name, Chip& chip, U32 stride)
      : ChipHam(std::move(name)), chip_(chip), stride_(stride) {}

  void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override {
    for (U32 i = 0; i < entries * entrySize; ++i) {
      buffer[i] = chip_[address.value() + U64{i / entrySize} * stride_ + i % entrySize];
    }
  }
  void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override {
    for (U32 i = 0; i < entries * entrySize; ++i) {
      chip_[address.value() + U64{i / entrySize} * stride_ + i % entrySize] = buffer[i];
    }
  }

 private:
  Chip& chip_;
  const U32 stride_;
};

}  // namespace

Layout::Layout(std::vector<Place> places) {
  std::map<U32, Hardware::ChipHam::Ptr> hams;
  shadow_ = Hardware::hardwareShadowFactory(loop_.activity, loop_.clock);
  regions_.reserve(places.size());
  for (Place& place : places) {
    if (place.stride == 0) place.stride = place.entrySize;
    Hardware::ChipHam::Ptr& ham = hams[place.stride];
    if (ham == nullptr) ham = Zint::makePtr<StridedHam>("ham", chip_, place.stride);
    const std::string name = "r" + std::to_string(regions_.size());
    const ChipMemory::Ptr memory = Hardware::chipMemoryFactory(
        name, ChipAddress(place.address), place.entries, place.entrySize, place.stride, ham);
    memory->shadowEnabledIs(true);
    memory->auditEnabledIs(true);
    memory->readFromCacheIs(true);
    shadow_->chipMemoryIs(memory);
    byAddress_[place.address] = static_cast<int>(regions_.size());
    regions_.push_back(
        {place, memory, std::vector<U8>(std::size_t{place.entries} * place.entrySize)});
  }
  shadow_->stateIs(HardwareShadow::configured());
  reader_ = Hardware::chipReaderFactory(loop_.activity, shadow_->auditReadRequest(), loop_.clock,
                                        1000, 0.0);
  trace_.full.clear();
}

Layout::~Layout() { shadow_->stateIs(HardwareShadow::unconfigured()); }

int Layout::expectedRegion(U64 address) {
  const auto contains = [&](int region) {
    const Place& place = regions_[static_cast<std::size_t>(region)].place;
    return place.address <= address && address < place.address + place.stride * place.entries;
  };
  if (last_ >= 0 && contains(last_)) return last_;
  auto above = byAddress_.upper_bound(address);
  if (above == byAddress_.begin()) return -1;
  --above;
  if (above->first >> 32 != address >> 32 || !contains(above->second)) return -1;
  return last_ = above->second;
}

void Layout::checkLookUp(U64 address) {
  const int expected = expectedRegion(address);
  const ChipMemory::Ptr found = shadow_->findChipMemory(ChipAddress(address), 0);
  const ChipMemory* memory =
      expected < 0 ? nullptr : regions_[static_cast<std::size_t>(expected)].memory.ptr();
  ASSERT_EQ(found.ptr(), memory) << "address " << std::hex << address << " expected r" << std::dec
                                 << expected;
}

void Layout::checkLookUps() {
  for (const bool keepsLast : {false, true}) {
    for (const Region& region : regions_) {
      const U64 start = region.place.address;
      const U64 span = U64{region.place.stride} * region.place.entries;
      for (U64 address : {start, start - 1, start + 1, start + span / 2, start + span - 1,
                          start + span, start + span + 1}) {
        if (!keepsLast) {
          last_ = -1;
          shadow_->lastChipMemoryIs(nullptr);
        }
        ASSERT_NO_FATAL_FAILURE(checkLookUp(address));
      }
    }
  }
}

// As a client does: the cache first, then the chip, where it is told to.
void Layout::write(Region& region, U32 entry, U32 entries) {
  const U32 first = entry * region.place.entrySize, size = entries * region.place.entrySize;
  for (U32 i = 0; i < size; ++i) region.expected[first + i] = static_cast<U8>(nextByte_ += 7) | 1;
  std::vector<U8> data(region.expected.begin() + first, region.expected.begin() + first + size);
  const U64 address = region.byteAddress(entry, 0);
  last_ = -1;
  shadow_->lastChipMemoryIs(nullptr);
  if (expectedRegion(address) >= 0) {
    shadow_->shadowWriteHack(ChipAddress(address), data.data(), size);
  } else {
    ASSERT_FALSE(shadow_->shadowWriteAndCompareWithCache(region.memory, entry, data.data(), size));
  }
  region.memory->chipHam()->doWrite(ChipAddress(address), data.data(), region.place.entrySize,
                                    entries);
}

void Layout::checkRead(const Region& region, U32 entry, U32 entries) {
  const U32 first = entry * region.place.entrySize, size = entries * region.place.entrySize;
  std::vector<U8> data(std::size_t{size} + 1, 0xee);
  const U64 address = region.byteAddress(entry, 0);
  const int holder = expectedRegion(address);
  if (holder >= 0) {
    ASSERT_EQ(regions_[static_cast<std::size_t>(holder)].memory, region.memory);
    ASSERT_TRUE(shadow_->readFromCacheHack(ChipAddress(address), data.data(), size));
  } else {
    ASSERT_FALSE(shadow_->readFromCacheHack(ChipAddress(address), data.data(), size));
    ASSERT_TRUE(shadow_->readFromCache(region.memory, entry, data.data(), size));
  }
  ASSERT_EQ(std::memcmp(data.data(), region.expected.data() + first, size), 0)
      << region.memory->name() << " entry " << entry;
  ASSERT_EQ(data[size], 0xee);
}

void Layout::checkWritesAndReads() {
  for (Region& region : regions_) {
    const U32 entries = region.place.entries;
    ASSERT_NO_FATAL_FAILURE(write(region, 0, entries));
    for (U32 entry : {0u, entries / 2, entries - 1}) {
      ASSERT_NO_FATAL_FAILURE(write(region, entry, 1));
    }
  }
  for (const Region& region : regions_) {
    const U32 entries = region.place.entries;
    ASSERT_NO_FATAL_FAILURE(checkRead(region, 0, entries));
    for (U32 entry : {entries / 2, entries - 1}) {
      ASSERT_NO_FATAL_FAILURE(checkRead(region, entry, 1));
    }
  }
}

void Layout::runPass() {
  const U32 audits = shadow_->audits();
  shadow_->stateIs(HardwareShadow::auditing());
  while (shadow_->audits() == audits) ASSERT_NE(loop_.turn(), 0u);
  shadow_->stateIs(HardwareShadow::idle());
  trace_.full.clear();
}

U32 Layout::registersFixed() const {
  U32 fixed = 0;
  for (const Region& region : regions_) fixed += region.memory->registersFixed();
  return fixed;
}

void Layout::checkAudit(U32 step) {
  for (Region& region : regions_) write(region, 0, region.place.entries);
  // Writes before a pass do not count as writes during it.
  const Chip undamaged = chip_;
  U32 damaged = 0;
  for (std::size_t i = 0; i < regions_.size(); i += step) {
    const Region& region = regions_[i];
    const U32 last = region.place.entries - 1;
    chip_[region.byteAddress(last, region.place.entrySize - 1)] ^= 0x80;
    ++damaged;
    if (last == 0) continue;
    chip_[region.byteAddress(0, 0)] ^= 1;
    ++damaged;
  }
  const U32 before = registersFixed();
  ASSERT_NO_FATAL_FAILURE(runPass());
  ASSERT_EQ(registersFixed() - before, damaged);
  ASSERT_EQ(chip_, undamaged);
  ASSERT_NO_FATAL_FAILURE(runPass());
  ASSERT_EQ(registersFixed() - before, damaged);
  ASSERT_EQ(chip_, undamaged);
}

}  // namespace Layouts
