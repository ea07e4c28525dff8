#include "demo/common/Switch.h"

#include <Driver/ChipWriter.h>
#include <Driver/RegisterTable.h>
#include <Hardware/GenericChipHam.h>
#include <platform/SparseChipHam.h>

#include <algorithm>
#include <cstring>

namespace Demo {

using Driver::AlarmRule;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

void AccountingShadow::doFixBadRegister(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data) {
  ++regionDifferences_[chipMemory.ptr()];
  ++differences_;
  const U32 fixed = chipMemory->registersFixed();
  ledger_.beginRepair(chipMemory->entryAddress(entry).chipMemoryOffset(), chipMemory->entrySize());
  AuditedShadow::doFixBadRegister(chipMemory, entry, data);
  ledger_.endRepair(chipMemory->registersFixed() != fixed);
}

U32 AccountingShadow::differences(const ChipMemory& region) const {
  const auto found = regionDifferences_.find(&region);
  return found == regionDifferences_.end() ? 0 : found->second;
}

Switch::Switch(const Zint::Ptr<Zint::ActivityConfig>& activity,
               const Zint::Ptr<const Zint::Clock>& clock, const Zint::Ptr<Fru::HamImpl>& registers,
               Ledger& ledger)
    : activity_(activity),
      clock_(clock),
      registers_(registers),
      shadow_(Hardware::hardwareShadowFactoryOf<AccountingShadow>(activity, clock, ledger)),
      chip_(Zint::makePtr<SwitchChip>("switch",
                                      Hardware::genericChipHamFactory("identity", registers))),
      restoreWatch_(Zint::makePtr<RestoreWatch>(activity, chip_, ledger)),
      alarms_(Driver::alarmBoardFactory("alarms", activity, clock)),
      alarmWatch_(Driver::alarmWatchFactory(activity, shadow_, alarms_)) {
  ledger.valueIs(identityAddress.chipMemoryOffset(), identity);
  const U32 expected = identity;
  chip_->sentinelIs(identityAddress, {reinterpret_cast<const U8*>(&expected), sizeof expected});
}

Zint::Ptr<Hardware::ChipHam> Switch::accessMethod(const TableLayout& layout) const {
  if (layout.isSparse()) {
    return Platform::sparseChipHamFactory(layout.name, registers_, layout.stride);
  }
  return Hardware::genericChipHamFactory(layout.name, registers_);
}

// A difference is looked at twice before the entry is rewritten, and the repair is verified. An
// entry that does not hold is left alone, and raises an alarm.
void Switch::judgeWithCare() {
  shadow_->chipIs(chip_);
  shadow_->minIntervalBetweenAuditsIs(0.5);
  shadow_->maxEntriesPerSliceIs(1024);
  shadow_->sliceIntervalIs(0.001);
  shadow_->turnBoundIs(0.002);
  shadow_->rereadsIs(true);
  shadow_->verifiesIs(true);
  shadow_->maxRepairsPerTurnIs(256);
  shadow_->quarantineRepairsIs(3);
  shadow_->quarantineTimeIs(60);
  alarms_->ruleIs(Driver::alarmRuleFactory("often", AlarmRule::entry_, 3, 60, 60));
  alarms_->ruleIs(Driver::alarmRuleFactory("many", AlarmRule::manyAtOnce_, 1000, 1, 60));
}

namespace {

// What the entries of the tables are made of, for people.
constexpr Driver::TableField macFields[] = {{"address", 0, 48}, {"port", 48, 8}, {"flags", 56, 8}};
constexpr Driver::TableField vlanFields[] = {{"members", 0, 32}, {"untagged", 32, 32}};
constexpr Driver::TableField qosFields[] = {{"queue", 0, 8}, {"weight", 8, 8}, {"rate", 16, 16}};
constexpr Driver::TableRegister macEntry[] = {{.name = "mac", .fields = macFields}};
constexpr Driver::TableRegister vlanEntry[] = {{.name = "vlan", .fields = vlanFields}};
constexpr Driver::TableRegister qosEntry[] = {{.name = "qos", .fields = qosFields}};
constexpr Driver::TableRegion namedTables[] = {
    {.name = "mac", .registers = macEntry, .entries = 65536},
    {.name = "vlan", .registers = vlanEntry, .entries = 1024},
    {.name = "qos", .registers = qosEntry, .entries = 256},
};

}  // namespace

void Switch::bringUp() {
  judgeWithCare();
  shadow_->registerNamesIs(Driver::registerNamesOf(namedTables));
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
    const Driver::Policy::Ptr policy = Driver::policyFactory(region);
    policy->unwrittenIs(Driver::Unwritten::baseline);
    shadow_->chipMemoryIs(region);
    shadow_->policyIs(policy);
    tables_.push_back({&layout, region, policy, Driver::chipAccessFactory(shadow_, region), 0, 0,
                       std::vector<U8>(layout.entries)});
  }
  shadow_->stateIs(HardwareShadow::configured());

  const auto writer =
      Driver::chipWriterFactory(activity_, shadow_, nullptr, clock_, 64, 1024, 0.001);
  for (Table& table : tables_) {
    constexpr U32 run = 64;
    for (U32 entry = 0; entry < table.layout->entries; entry += run) {
      configureEntries(table, entry, std::min(run, table.layout->entries - entry));
    }
    if (table.region->mode() == ChipMemory::buffered()) writer->doLeaveBuffered(table.region);
    table.entriesWritten = 0;
  }
}

void Switch::write(Table& table, U32 entry, const U8* data, U32 entries) {
  table.entriesWritten += entries;
  table.access->writeBytes(entry, {data, std::size_t{entries} * table.layout->entrySize});
}

void Switch::read(Table& table, U32 entry, U8* data, U32 entries) {
  table.entriesRead += entries;
  table.access->readBytes(entry, {data, std::size_t{entries} * table.layout->entrySize});
}

void Switch::configureEntries(Table& table, U32 entry, U32 entries) {
  buffer_.resize(std::size_t{entries} * table.layout->entrySize);
  U8* to = buffer_.data();
  for (U32 e = entry; e < entry + entries; ++e) {
    const U32 bits = e % 8 == 7 ? 0 : ~0u;
    // Mixed well enough that entries, versions and registers all look different.
    U32 mixed = table.layout->address.chipMemoryOffset() + e * 0x9e3779b9u;
    mixed ^= table.versions.at(e) * 0x85ebca6bu;
    for (U32 i = 0; i < table.layout->registersPerEntry(); ++i, to += sizeof(U32)) {
      mixed = (mixed ^ (mixed >> 15)) * 0x2c1b3c6du + i;
      const U32 value = (mixed | 1) & bits;
      std::memcpy(to, &value, sizeof value);
    }
  }
  write(table, entry, buffer_.data(), entries);
}

std::vector<Driver::Complaint::Ptr> Switch::complaints() const {
  Driver::CheckWith with;
  for (const Table& table : tables_) with.regions.push_back(table.region);
  return Driver::check(shadow_, with);
}

double Switch::passProgress() const {
  const U64 all = shadow_->passEntries();
  if (all == 0) return 0;
  return static_cast<double>(shadow_->passEntriesDone()) / static_cast<double>(all);
}

const Table* Switch::tableBeingRead() const {
  if (shadow_->patrolState() != Driver::PatrolState::reading) return nullptr;
  U64 done = shadow_->passEntriesDone();
  for (const Table& table : tables_) {  // by address, as a pass goes
    if (!table.layout->isOnChip()) continue;
    if (done < table.layout->entries) return &table;
    done -= table.layout->entries;
  }
  return nullptr;
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
