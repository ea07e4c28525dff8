// The names of registers and of their fields, for people: an audited shadow that is given them
// (AuditedShadow::registerNamesIs) tells its findings by name, as the event log, the control
// socket and the tools do: "mac[17].valid expected 1 actual 0". RegisterTable.h has the
// implementation for tables of constants; a driver may derive one of its own.
//
// Called on the shadow's thread, and only where a text is made. A name that throws is no name.
#pragma once

#include <Hardware/ChipMemory.h>
#include <span>

namespace Driver {

class UMBRA_API RegisterNames : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<const RegisterNames>;
  using ChipMemory = Hardware::ChipMemory;

  // "mac[17]"; empty: the entry has no name.
  virtual Zint::String8 entryName(const ChipMemory& region, U32 entry) const = 0;
  // What differs, by name: "mac[17].valid expected 1 actual 0, mac[17].port expected 3 actual 2";
  // empty: the entry has no name, or nothing differs. Both are entrySize bytes, bit 0 is the
  // lowest one of the first byte. `mask` has their size, or is empty: a set bit does not count.
  virtual Zint::String8 differenceText(const ChipMemory& region, U32 entry,
                                       std::span<const U8> expected, std::span<const U8> actual,
                                       std::span<const U8> mask) const = 0;
  // What a value says, by name: "mac[17] valid=1 port=3"; empty: the entry has no name.
  virtual Zint::String8 valueText(const ChipMemory& region, U32 entry,
                                  std::span<const U8> value) const = 0;

 protected:
  RegisterNames() = default;
  ~RegisterNames() override;
};

}  // namespace Driver
