#include "demo/common/Switch.h"

#include <Hardware/GenericChipHam.h>
#include <platform/SparseChipHam.h>

#include <algorithm>
#include <cstring>

namespace Demo {

using Hardware::ChipMemory;
using Hardware::HardwareShadow;

void AuditedShadow::doFixBadRegister(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data) {
  ++regionDifferences_[chipMemory.ptr()];
  ++differences_;
  ledger_.beginRepair(chipMemory->entryAddress(entry).chipMemoryOffset(), chipMemory->entrySize());
  HardwareShadow::doFixBadRegister(chipMemory, entry, data);
  ledger_.endRepair();
}

U32 AuditedShadow::differences(const ChipMemory& region) const {
  const auto found = regionDifferences_.find(&region);
  return found == regionDifferences_.end() ? 0 : found->second;
}

Switch::Switch(const Zint::Ptr<Zint::ActivityConfig>& activity,
               const Zint::Ptr<const Zint::Clock>& clock, const Zint::Ptr<Fru::HamImpl>& registers,
               Ledger& ledger)
    : activity_(activity),
      clock_(clock),
      registers_(registers),
      shadow_(Zint::makePtr<AuditedShadow>(activity, clock, ledger)) {
  shadow_->hasNotificationActiveIs(true);
}

Zint::Ptr<Hardware::ChipHam> Switch::accessMethod(const TableLayout& layout) const {
  if (layout.isSparse()) {
    return Platform::sparseChipHamFactory(layout.name, registers_, layout.stride);
  }
  return Hardware::genericChipHamFactory(layout.name, registers_);
}

void Switch::bringUp() {
  for (const TableLayout& layout : switchTables) {
    const ChipMemory::Ptr region =
        Hardware::chipMemoryFactory(layout.name, layout.address, layout.entries, layout.entrySize,
                                    layout.stride, accessMethod(layout));
    region->readFromCacheIs(layout.readFromCache);
    region->skipWriteIfMatchesCacheIs(layout.skipWriteIfMatchesCache);
    region->shadowEnabledIs(true);
    if (layout.bringUp == TableLayout::buffered) region->modeIs(ChipMemory::buffered());
    if (layout.bringUp == TableLayout::absent) region->modeIs(ChipMemory::override());
    region->auditEnabledIs(layout.isOnChip());
    shadow_->chipMemoryIs(region);
    tables_.push_back({&layout, region, 0, 0, std::vector<U8>(layout.entries)});
  }
  shadow_->stateIs(HardwareShadow::configured());
  reader_ =
      Hardware::chipReaderFactory(activity_, shadow_->auditReadRequest(), clock_, 1024, 0.001);

  for (Table& table : tables_) {
    constexpr U32 run = 64;
    for (U32 entry = 0; entry < table.layout->entries; entry += run) {
      configureEntries(table, entry, std::min(run, table.layout->entries - entry));
    }
    if (table.region->mode() == ChipMemory::buffered()) {
      table.region->modeIs(ChipMemory::normal());
    }
    table.entriesWritten = 0;
  }
}

void Switch::write(Table& table, U32 entry, U8* data, U32 entries) {
  const ChipMemory::Ptr& region = table.region;
  table.entriesWritten += entries;
  if (shadow_->shadowWriteAndCompareWithCache(region, entry, data, entries * region->entrySize())) {
    return;
  }
  region->chipHam()->doWrite(region->entryAddress(entry), data, region->entrySize(), entries);
}

void Switch::read(Table& table, U32 entry, U8* data, U32 entries) {
  const ChipMemory::Ptr& region = table.region;
  table.entriesRead += entries;
  if (shadow_->readFromCache(region, entry, data, entries * region->entrySize())) return;
  region->chipHam()->doRead(region->entryAddress(entry), data, region->entrySize(), entries);
}

void Switch::configureEntries(Table& table, U32 entry, U32 entries) {
  buffer_.resize(entries * table.layout->entrySize);
  U8* to = buffer_.data();
  for (U32 e = entry; e < entry + entries; ++e) {
    // Mixed well enough that entries, versions and registers all look different.
    U32 mixed = table.layout->address.chipMemoryOffset() + e * 0x9e3779b9u;
    mixed ^= table.versions.at(e) * 0x85ebca6bu;
    for (U32 i = 0; i < table.layout->registersPerEntry(); ++i, to += sizeof(U32)) {
      mixed = (mixed ^ (mixed >> 15)) * 0x2c1b3c6du + i;
      const U32 value = mixed | 1;
      std::memcpy(to, &value, sizeof value);
    }
  }
  write(table, entry, buffer_.data(), entries);
}

double Switch::passProgress() const {
  const ChipMemory::Ptr& current = reader_->currentChipMemory();
  if (current == nullptr) return shadow_->audits() == 0 ? 0.0 : 1.0;
  U64 left = current->entries() - reader_->entriesRead();
  const Hardware::ChipReader::Queue& waiting = reader_->chipMemory();
  for (auto* each = waiting.head(); each != nullptr; each = waiting.after(*each)) {
    left += each->chipMemory()->entries();
  }
  const U32 all = shadow_->chipMemoryEntriesUnderAudit();
  return all == 0 ? 1.0 : 1.0 - static_cast<double>(left) / all;
}

U32 Switch::registersDiffering(const Table& table, const volatile U32* registers) {
  if (table.region->shadow() == nullptr) return 0;
  const U8* shadow = table.region->shadow()->data();
  U32 differing = 0;
  for (U32 i = 0; i < table.layout->registers(); ++i, shadow += sizeof(U32)) {
    U32 expected;
    std::memcpy(&expected, shadow, sizeof expected);
    if (registers[table.layout->registerAddress(i) / sizeof(U32)] != expected) ++differing;
  }
  return differing;
}

}  // namespace Demo
