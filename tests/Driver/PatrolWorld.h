// Several chips under one audited shadow; and the same chips under the audit of HardwareShadow, to
// show what it does without a patrol.
#pragma once

#include <Hardware/ChipReader.h>

#include <algorithm>

#include "PatrolTest.h"

namespace Support {

class PatrolWorld : public PatrolTest {
 protected:
  using Bytes = std::vector<U8>;

  ChipMemory::Ptr regionOf(const Hardware::ChipHam::Ptr& ham, const char* name, U64 address,
                           U32 entries, U32 entrySize = 4) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory(name, ChipAddress(address), entries, entrySize, entrySize, ham);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    shadow->chipMemoryIs(cm);
    return cm;
  }
  // A policy of the region, already given to the shadow.
  Driver::Policy::Ptr policyOf(const ChipMemory::Ptr& cm) {
    const Driver::Policy::Ptr policy = Driver::policyFactory(cm);
    shadow->policyIs(policy);
    return policy;
  }
  static PatrolChip& chipOf(const ChipMemory::Ptr& cm) {
    return static_cast<PatrolChip&>(*cm->chipHam());
  }
  // In the chip of the region alone.
  static void damage(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    chipOf(cm).bytes.write(cm->entryAddress(entry).value(), reinterpret_cast<const U8*>(&value), 4);
  }
  static U32 held(const ChipMemory::Ptr& cm, U32 entry) {
    U32 value = 0;
    chipOf(cm).bytes.read(cm->entryAddress(entry).value(), reinterpret_cast<U8*>(&value), 4);
    return value;
  }
  // Offers the write and writes the region's chip.
  void put(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    offer(cm, entry, value);
    damage(cm, entry, value);
  }
  // 1, 2, ... into the entries from `first` on.
  void fill(const ChipMemory::Ptr& cm, U32 first, U32 count) {
    for (U32 entry = first; entry < first + count; ++entry) put(cm, entry, entry + 1);
  }
  // Every entry of the chip is 0 again.
  static void wipe(const ChipMemory::Ptr& cm) {
    for (U32 entry = 0; entry < cm->entries(); ++entry) damage(cm, entry, 0);
  }
  // A pass that finds the marks of what was written and clears them.
  void settle() {
    ASSERT_TRUE(pass());
    told.clear();
    texts.clear();
    passes.clear();
  }
  U64 count(Driver::Verdict verdict) const {
    return static_cast<U64>(std::count_if(told.begin(), told.end(), [verdict](const Told& finding) {
      return finding.verdict == verdict;
    }));
  }
  void steps(U32 turns) {
    for (U32 i = 0; i < turns; ++i) step();
  }
  // Serves an entry, or 0xffffffff where the cache does not.
  U32 served(const ChipMemory::Ptr& cm, U32 entry) {
    U32 value = ~0u;
    return shadow->readFromCache(cm, entry, reinterpret_cast<U8*>(&value), 4) ? value : ~0u;
  }
};

// The audit of HardwareShadow: a shadow and a reader.
class PlainAudit : public testing::Test {
 protected:
  using ChipAddress = Hardware::ChipAddress;
  using ChipMemory = Hardware::ChipMemory;
  using HardwareShadow = Hardware::HardwareShadow;

  ChipMemory::Ptr regionOf(const Hardware::ChipHam::Ptr& ham, const char* name, U64 address,
                           U32 entries, U32 entrySize = 4) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory(name, ChipAddress(address), entries, entrySize, entrySize, ham);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    shadow->chipMemoryIs(cm);
    return cm;
  }
  ChipMemory::Ptr region(const char* name, U64 address, U32 entries) {
    return regionOf(chip, name, address, entries);
  }
  void audit() {
    shadow->stateIs(HardwareShadow::configured());
    reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock,
                                         1024, 0.001);
    shadow->stateIs(HardwareShadow::auditing());
  }
  bool offer(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    return shadow->shadowWriteAndCompareWithCache(cm, entry, reinterpret_cast<U8*>(&value), 4);
  }
  void set(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    static_cast<PatrolChip&>(*cm->chipHam())
        .bytes.write(cm->entryAddress(entry).value(), reinterpret_cast<const U8*>(&value), 4);
  }
  U32 get(const ChipMemory::Ptr& cm, U32 entry) {
    U32 value = 0;
    static_cast<PatrolChip&>(*cm->chipHam())
        .bytes.read(cm->entryAddress(entry).value(), reinterpret_cast<U8*>(&value), 4);
    return value;
  }
  void put(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    offer(cm, entry, value);
    set(cm, entry, value);
  }
  U32 served(const ChipMemory::Ptr& cm, U32 entry) {
    U32 value = ~0u;
    return shadow->readFromCache(cm, entry, reinterpret_cast<U8*>(&value), 4) ? value : ~0u;
  }
  void step() {
    const Zint::Seconds wake = loop.activity->wakeTime();
    if (wake > loop.clock->time() && wake != Zint::never) loop.clock->timeIs(wake);
    loop.turn();
  }
  bool pass(U32 turns = 1000) {
    const U32 before = shadow->audits();
    for (U32 i = 0; i < turns && shadow->audits() == before; ++i) step();
    return shadow->audits() != before;
  }

  ManualLoop loop;
  HardwareShadow::Ptr shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
  Hardware::ChipReader::Ptr reader;  // since audit()
  Zint::Ptr<PatrolChip> chip = Zint::makePtr<PatrolChip>("chip");
};

}  // namespace Support
