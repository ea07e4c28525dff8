// The base of the patrol's tests: an audited shadow on a manual clock, a chip that can be absent,
// reset and stuck, and a notifiee that writes down what it is told.
#pragma once

#include <Driver/AuditedShadow.h>
#include <gtest/gtest.h>

#include <cstring>

#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/ByteChip.h"
#include "support/ManualLoop.h"

namespace Support {

// Registers of bytes at the addresses of a region; an access can fail, stick or call back.
class PatrolChip : public Hardware::ChipHam {
 public:
  explicit PatrolChip(const char* name) : ChipHam(name) {}

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    access(true, address.value(), entries);
    bytes.read(address.value(), buffer, entrySize * entries);
    if (afterRead) afterRead(address.value(), entries);
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    access(false, address.value(), entries);
    for (U32 i = 0; i < entries; ++i) {
      if (stuck.contains(address.value() + U64{entrySize} * i)) continue;
      bytes.write(address.value() + U64{entrySize} * i, buffer + std::size_t{entrySize} * i,
                  entrySize);
    }
    writes += entries;
    if (afterWrite) afterWrite(address.value(), entries);
  }

  ByteChip bytes;
  bool isAway = false;  // every access throws
  std::set<U64> stuck;  // addresses of entries that no write changes
  std::set<U64> readAddresses;
  U64 reads = 0;                       // accesses
  U64 writes = 0;                      // entries
  Zint::ManualClock* clock = nullptr;  // is moved on at each access:
  Zint::Seconds callCost = 0;          // by this,
  Zint::Seconds cost = 0;              // and by this for each entry
  std::function<void(U64 address, U32 entries)> afterRead, afterWrite;

 private:
  void access(bool isRead, U64 address, U32 entries) {
    if (clock != nullptr) clock->timeIs(clock->time() + callCost + cost * entries);
    if (isAway) throw std::runtime_error("no answer");
    if (!isRead) return;
    ++reads;
    for (U32 i = 0; i < entries; ++i) readAddresses.insert(address + U64{4} * i);
  }
};

struct Told {
  std::string region;
  U32 entry;
  Driver::Verdict verdict;
  Driver::Nature nature;
  friend bool operator==(const Told&, const Told&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const Told& told) {
  return out << told.region << " " << told.entry << " " << told.verdict << " " << told.nature;
}

class PatrolTest : public testing::Test {
 protected:
  using ChipAddress = Hardware::ChipAddress;
  using ChipMemory = Hardware::ChipMemory;
  using HardwareShadow = Hardware::HardwareShadow;

  class Watch : public Driver::AuditedShadow::NotifieeConst {
   public:
    explicit Watch(PatrolTest& test) : NotifieeConst(test.loop.activity, test.shadow), test_(test) {
      isNonReferencingIs(true);
    }
    void onFinding(const Driver::Finding& finding) override {
      test_.told.push_back(
          {finding.chipMemory->name().bytes(), finding.entry, finding.verdict, finding.nature});
      test_.texts.push_back(finding.stringValue().bytes());
      if (test_.onFinding) test_.onFinding(finding);
    }
    void onPass(const Driver::PassResult& result) override { test_.passes.push_back(result); }
    bool allowsRepair(const Driver::Finding& finding) override {
      return !test_.veto || !test_.veto(finding);
    }

   private:
    PatrolTest& test_;
  };

  PatrolTest() { watch = Zint::makePtr<Watch>(*this); }

  ChipMemory::Ptr region(const char* name, U64 address, U32 entries, U32 entrySize = 4) {
    const ChipMemory::Ptr cm = Hardware::chipMemoryFactory(name, ChipAddress(address), entries,
                                                           entrySize, entrySize, chip);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    shadow->chipMemoryIs(cm);
    return cm;
  }
  void audit() {
    shadow->stateIs(HardwareShadow::configured());
    shadow->stateIs(HardwareShadow::auditing());
  }
  // Offers the write and writes the chip.
  void write(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    offer(cm, entry, value);
    set(cm, entry, value);
  }
  void offer(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    shadow->shadowWriteAndCompareWithCache(cm, entry, reinterpret_cast<U8*>(&value), 4);
  }
  // In the chip alone.
  void set(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    chip->bytes.write(cm->entryAddress(entry).value(), reinterpret_cast<const U8*>(&value), 4);
  }
  U32 get(const ChipMemory::Ptr& cm, U32 entry) {
    U32 value = 0;
    chip->bytes.read(cm->entryAddress(entry).value(), reinterpret_cast<U8*>(&value), 4);
    return value;
  }
  static U32 shadowed(const ChipMemory::Ptr& cm, U32 entry) {
    U32 value = 0;
    std::memcpy(&value, cm->shadow()->data() + std::size_t{4} * entry, 4);
    return value;
  }
  // Turns until another pass has ended; false if none does within that many turns.
  bool pass(U32 turns = 1000) {
    const std::size_t before = passes.size();
    for (U32 i = 0; i < turns && passes.size() == before; ++i) step();
    return passes.size() > before;
  }
  // Moves the time to the next wake-up and turns.
  void step() {
    const Zint::Seconds wake = loop.activity->wakeTime();
    if (wake > loop.clock->time() && wake != Zint::never) loop.clock->timeIs(wake);
    loop.turn();
  }

  ManualLoop loop;
  Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
  Zint::Ptr<PatrolChip> chip = Zint::makePtr<PatrolChip>("chip");
  Zint::Ptr<Watch> watch;
  std::vector<Told> told;
  std::vector<std::string> texts;
  std::vector<Driver::PassResult> passes;
  std::function<void(const Driver::Finding&)> onFinding;
  std::function<bool(const Driver::Finding&)> veto;
};

}  // namespace Support
