// What the library sees of a system: access methods and notifiees, which hand on to the ledger.
#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "driversimulation/System.h"

namespace DriverSimulation {

constexpr U64 spaceOfRegion = 0x1000;
constexpr U64 sentinelAddress = 0x10;

constexpr bool tellsOfReset(U32 chip) { return chip % 2 != 0; }

class System::Ham : public Hardware::ChipHam {
 public:
  Ham(const std::string& name, System& system, U32 chip)
      : ChipHam(name), system_(system), chip_(chip) {}

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    const Chip& chip = system_.chips_[chip_];
    if (chip.isAway && chip.throws) throw std::runtime_error("no answer");
    if (chip.isAway || address.value() == sentinelAddress) {
      std::fill_n(buffer, std::size_t{entrySize} * entries, chip.isAway ? 0xff : 0xa5);
      return;
    }
    const U32 region = static_cast<U32>(address.value() / spaceOfRegion) - 1;
    const U32 first = static_cast<U32>(address.value() % spaceOfRegion) / entrySize;
    system_.onRead(region, first, entries);
    for (U32 i = 0; i < entries; ++i) {
      Entry& entry = system_.regions_[region].entries.at(first + i);
      Bytes value = entry.chip;
      if (std::exchange(entry.glitches, false)) value[0] ^= 1;
      std::copy(value.begin(), value.end(), buffer + std::size_t{entrySize} * i);
    }
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    const Chip& chip = system_.chips_[chip_];
    if (chip.isAway && chip.throws) throw std::runtime_error("no answer");
    const U32 region = static_cast<U32>(address.value() / spaceOfRegion) - 1;
    const U32 first = static_cast<U32>(address.value() % spaceOfRegion) / entrySize;
    system_.onWrite(region, first, entries, buffer);
    for (U32 i = 0; i < entries && !chip.isAway; ++i) {
      Entry& entry = system_.regions_[region].entries.at(first + i);
      const U8* from = buffer + std::size_t{entrySize} * i;
      if (!entry.isStuck) entry.chip.assign(from, from + entrySize);
    }
  }

 private:
  System& system_;
  const U32 chip_;
};

class System::Watch : public Driver::AuditedShadow::NotifieeConst {
 public:
  explicit Watch(System& system)
      : NotifieeConst(system.loop_.activity, system.shadow_), system_(system) {
    isNonReferencingIs(true);
  }
  void onFinding(const Driver::Finding& finding) override {
    ++system_.outcome_.met["finding " + Driver::stringValue(finding.verdict).bytes()];
    for (System::Chip& chip : system_.chips_) {
      const bool isMade = finding.verdict == Driver::Verdict::reset && !chip.isForgotten;
      if (chip.chip == finding.chip && isMade) ++chip.resets;
    }
    for (Region& region : system_.regions_) {
      if (region.memory != finding.chipMemory) continue;
      region.entries[finding.entry].last += " " + std::to_string(system_.completePasses_) + ": " +
                                            finding.stringValue().bytes() + ";";
    }
  }
  void onPass(const Driver::PassResult& result) override {
    ++system_.passes_;
    system_.last_ = result.stringValue().bytes();
    if (result.isComplete) system_.onCompletePass();
  }
  bool allowsRepair(const Driver::Finding&) override {
    return system_.vetoOneIn_ == 0 || !system_.random_.oneIn(system_.vetoOneIn_);
  }

 private:
  System& system_;
};

// Some chips have a register that says once that they were reset.
class System::TellingChip : public Driver::Chip {
 public:
  TellingChip(const std::string& name, const Hardware::ChipHam::Ptr& ham, System& system, U32 chip)
      : Driver::Chip(name, ham), system_(system), chip_(chip) {}
  bool wasReset() override {
    System::Chip& chip = system_.chips_[chip_];
    if (chip.isAway && chip.throws) throw std::runtime_error("no answer");
    return tellsOfReset(chip_) && !chip.isAway && std::exchange(chip.isToldOf, false);
  }

 private:
  System& system_;
  const U32 chip_;
};

class System::ChipWatch : public Driver::Chip::NotifieeConst {
 public:
  ChipWatch(System& system, U32 chip)
      : NotifieeConst(system.loop_.activity, system.chips_[chip].chip),
        system_(system),
        chip_(chip) {}
  void onRestoring() override {
    if (!notifier()->isRestoring()) system_.onRestored(chip_);
  }
  void onResets() override { system_.onReset(chip_); }

 private:
  System& system_;
  const U32 chip_;
};

}  // namespace DriverSimulation
