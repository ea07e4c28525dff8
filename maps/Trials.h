// Ready-made tests of a chip against its map, as the field knows them: reset values, bit-bash,
// access rights. They go through RegisterAccess, one access a register, in the order of addresses.
//
//   Maps::ScratchChip chip(plan.map);          // or an access to the chip itself
//   for (const Maps::Failure& f : Maps::tryResetValues(plan, chip).failures) std::cerr << f.text;
//
// On a chip that works: tryResetValues() reads decided registers alone, those of the rules noRead
// and writeOnly left out, and writes nothing. tryBitBash() writes every repaired register and puts
// its value back; tryAccessRights() writes read-only ones, too: for a scratch copy, or a chip that
// is free.
#pragma once

#include <maps/Plan.h>

#include <functional>
#include <unordered_map>

namespace Maps {

class UMBRA_API RegisterAccess {
 public:
  virtual ~RegisterAccess();
  // `width` in bits: 8, 16, 32 or 64. What they throw goes on to the caller.
  virtual U64 read(U64 address, U32 width) = 0;
  virtual void write(U64 address, U32 width, U64 value) = 0;
};

struct Failure {
  std::string name;  // BLOCK.REGISTER
  std::string text;  // "SWITCH.mac[17] after a reset: valid expected 1 actual 0"
};

struct TrialResult {
  U32 registers = 0;              // tried
  U32 skipped = 0;                // decided, but nothing could be tried
  std::vector<Failure> failures;  // at most 1,000 are kept
  U64 failed = 0;
};

// Known bits of reset values, of registers that were not written since the reset.
UMBRA_API TrialResult tryResetValues(const Plan& plan, RegisterAccess& access);
// Every compared bit of every repaired register can be set and cleared, alone: walking ones on
// zeros, walking zeros on ones. Masked bits are written as they were read.
UMBRA_API TrialResult tryBitBash(const Plan& plan, RegisterAccess& access);
// A write to a register of the rule readOnly leaves it as it is; the value of a repaired one is
// taken over as a whole.
UMBRA_API TrialResult tryAccessRights(const Plan& plan, RegisterAccess& access);

// A chip in memory that does what its map says: reset values, access rights, read actions, write
// effects. Where registers share bytes, the first one of the map that has them all holds them.
// An address without a register: a range exception.
class UMBRA_API ScratchChip : public RegisterAccess {
 public:
  // The map must outlive the chip.
  explicit ScratchChip(const Map& map);
  U64 read(U64 address, U32 width) override;
  void write(U64 address, U32 width, U64 value) override;

  void doReset();
  // Behind the accesses: what a register holds.
  U64 value(U64 address) const;
  void valueIs(U64 address, U64 value);

 private:
  struct Cell {
    const Register* shape;
    U64 value = 0;
    bool isWritten = false;
  };
  Cell& cell(U64 address, U32 width);

  std::unordered_map<U64, Cell> cells_;
};

}  // namespace Maps
