// The software side of the switch: its tables, their shadow and policies, the audit with its
// alarms, and the two ways of a client to a table, write() and read().
//
//   Switch theSwitch(activity, clock, registers, ledger);
//   theSwitch.bringUp();
//   theSwitch.shadow()->stateIs(HardwareShadow::auditing());
#pragma once

#include <Driver/AlarmWatch.h>
#include <Driver/Check.h>
#include <Driver/ChipAccess.h>
#include <Fru/HamImpl.h>

#include <unordered_map>
#include <vector>

#include "demo/common/Ledger.h"
#include "demo/common/SwitchLayout.h"

namespace Demo {

// A table and what its clients did with it.
struct Table {
  const TableLayout* layout;
  Hardware::ChipMemory::Ptr region;
  Driver::Policy::Ptr policy;
  Driver::ChipAccess::Ptr access;
  U64 entriesRead = 0;
  U64 entriesWritten = 0;
  std::vector<U8> versions;  // of each entry's configuration, see Switch::configureEntries()
};

// A shadow that counts what the audit finds, and marks for the ledger which writes are repairs.
class AccountingShadow : public Driver::AuditedShadow {
 public:
  // The ledger must outlive this.
  AccountingShadow(const Zint::Ptr<Zint::ActivityConfig>& activity,
                   const Zint::Ptr<const Zint::Clock>& clock, Ledger& ledger)
      : AuditedShadow(activity, clock), ledger_(ledger) {}

  void doFixBadRegister(const Hardware::ChipMemory::Ptr& chipMemory, U32 entry, U8* data) override;

  // Entries that the audit has found different, in one region and in all.
  U32 differences(const Hardware::ChipMemory& region) const;
  U32 differences() const { return differences_; }

 private:
  Ledger& ledger_;
  std::unordered_map<const Hardware::ChipMemory*, U32> regionDifferences_;
  U32 differences_ = 0;
};

// The one chip that holds all tables, whatever their access methods.
class SwitchChip : public Driver::Chip {
 public:
  using Chip::Chip;
  bool holds(const Hardware::ChipMemory& region) const override {
    return isOnChip(region.address());
  }
};

// Tells the ledger when the replay after a reset writes.
class RestoreWatch : public Driver::Chip::NotifieeConst {
 public:
  // The ledger must outlive this.
  RestoreWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, const Driver::Chip::Ptr& chip,
               Ledger& ledger)
      : NotifieeConst(activity, chip), ledger_(ledger) {}
  void onRestoring() override { ledger_.isRestoringIs(notifier()->isRestoring()); }

 private:
  Ledger& ledger_;
};

class Switch {
 public:
  // The ledger must outlive this.
  Switch(const Zint::Ptr<Zint::ActivityConfig>& activity, const Zint::Ptr<const Zint::Clock>& clock,
         const Zint::Ptr<Fru::HamImpl>& registers, Ledger& ledger);
  Switch(const Switch&) = delete;
  Switch& operator=(const Switch&) = delete;

  // Programs every entry of every table. Afterwards the shadow is idle, no table is buffered, and
  // every entry on the chip is known.
  void bringUp();

  const Zint::Ptr<AccountingShadow>& shadow() const { return shadow_; }
  const Driver::Chip::Ptr& chip() const { return chip_; }
  const Driver::AlarmBoard::Ptr& alarms() const { return alarms_; }
  std::vector<Table>& tables() { return tables_; }
  const std::vector<Table>& tables() const { return tables_; }

  // Through the table's access: to the chip goes what differs, from the chip comes what is not
  // known.
  void write(Table& table, U32 entry, const U8* data, U32 entries);
  void read(Table& table, U32 entry, U8* data, U32 entries);
  // Writes the configurations that the entries have at these versions; the same version makes the
  // same bytes. Bit 0 of each register is set, but in every eighth entry all registers are 0.
  void configureEntries(Table& table, U32 entry, U32 entries);

  // What will go wrong as the switch is set up; empty when it is as it should be.
  std::vector<Driver::Complaint::Ptr> complaints() const;

  // How much of the running pass is behind, 0 to 1; between two passes 1, before the first 0.
  double passProgress() const;
  // The table that the patrol reads next; null while it reads none.
  const Table* tableBeingRead() const;
  // Registers of the table whose value on the chip is not the one in the shadow; 0 for one without
  // registers. The chip is read directly, not through the library.
  static U32 registersDiffering(const Table& table, const volatile U32* registers);

 private:
  void judgeWithCare();
  Zint::Ptr<Hardware::ChipHam> accessMethod(const TableLayout& layout) const;

  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Zint::Ptr<const Zint::Clock> clock_;
  const Zint::Ptr<Fru::HamImpl> registers_;
  std::vector<Table> tables_;
  const Zint::Ptr<AccountingShadow> shadow_;
  const Driver::Chip::Ptr chip_;
  const Zint::Ptr<RestoreWatch> restoreWatch_;
  const Driver::AlarmBoard::Ptr alarms_;
  const Zint::Ptr<Driver::AlarmWatch> alarmWatch_;
  std::vector<U8> buffer_;  // of configureEntries()
};

}  // namespace Demo
