// The software side of the switch: its tables, their shadow and their audit, and the two ways of a
// client to a table, write() and read().
//
//   Switch theSwitch(activity, clock, registers, ledger);
//   theSwitch.bringUp();
//   theSwitch.shadow()->stateIs(HardwareShadow::auditing());
#pragma once

#include <Fru/HamImpl.h>
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>

#include <unordered_map>
#include <vector>

#include "demo/common/Ledger.h"
#include "demo/common/SwitchLayout.h"

namespace Demo {

// A table and what its clients did with it.
struct Table {
  const TableLayout* layout;
  Hardware::ChipMemory::Ptr region;
  U64 entriesRead = 0;
  U64 entriesWritten = 0;
  std::vector<U8> versions;  // of each entry's configuration, see Switch::configureEntries()
};

// A shadow that counts what the audit finds, and marks for the ledger which writes are repairs.
class AuditedShadow : public Hardware::HardwareShadow {
 public:
  // The ledger must outlive this.
  AuditedShadow(const Zint::Ptr<Zint::ActivityConfig>& activity,
                const Zint::Ptr<const Zint::Clock>& clock, Ledger& ledger)
      : HardwareShadow(activity, clock), ledger_(ledger) {}

  void doFixBadRegister(const Hardware::ChipMemory::Ptr& chipMemory, U32 entry, U8* data) override;

  // Entries that the audit has found different, in one region and in all.
  U32 differences(const Hardware::ChipMemory& region) const;
  U32 differences() const { return differences_; }

 private:
  Ledger& ledger_;
  std::unordered_map<const Hardware::ChipMemory*, U32> regionDifferences_;
  U32 differences_ = 0;
};

class Switch {
 public:
  // The ledger must outlive this.
  Switch(const Zint::Ptr<Zint::ActivityConfig>& activity, const Zint::Ptr<const Zint::Clock>& clock,
         const Zint::Ptr<Fru::HamImpl>& registers, Ledger& ledger);
  Switch(const Switch&) = delete;
  Switch& operator=(const Switch&) = delete;

  // Programs every entry of every table. Afterwards the shadow is idle and no table is buffered.
  // The table that was buffered starts with an empty shadow, which the first audit pass fills from
  // the chip: let it pass before errors may happen.
  void bringUp();

  const Zint::Ptr<AuditedShadow>& shadow() const { return shadow_; }
  const Hardware::ChipReader::Ptr& reader() const { return reader_; }
  std::vector<Table>& tables() { return tables_; }
  const std::vector<Table>& tables() const { return tables_; }

  // Offers the entries to the shadow, and writes them to the chip when the shadow asks for it.
  void write(Table& table, U32 entry, U8* data, U32 entries);
  // Reads them from the shadow, and from the chip when the shadow does not know them.
  void read(Table& table, U32 entry, U8* data, U32 entries);
  // Writes the configurations that the entries have at these versions; the same version makes the
  // same bytes, and no register is ever 0 in them.
  void configureEntries(Table& table, U32 entry, U32 entries);

  // How much of the running pass has been read, 0 to 1; between two passes 1, before the first 0.
  double passProgress() const;
  // Registers of the table whose value on the chip is not the one in the shadow; 0 for one without
  // registers. The chip is read directly, not through the library.
  static U32 registersDiffering(const Table& table, const volatile U32* registers);

 private:
  Zint::Ptr<Hardware::ChipHam> accessMethod(const TableLayout& layout) const;

  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Zint::Ptr<const Zint::Clock> clock_;
  const Zint::Ptr<Fru::HamImpl> registers_;
  std::vector<Table> tables_;
  const Zint::Ptr<AuditedShadow> shadow_;
  Hardware::ChipReader::Ptr reader_;
  std::vector<U8> buffer_;  // of configureEntries()
};

}  // namespace Demo
