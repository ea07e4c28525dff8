// How the library reaches the simulated chips, and how access is broken on purpose to prove that a
// run detects it.
#pragma once

#include <Fru/HamImpl.h>
#include <Hardware/ChipHam.h>

#include <functional>
#include <utility>

#include "simulation/Chip.h"

namespace Simulation {

// A deliberately broken access method: it errs from some matching operation on.
struct Sabotage {
  enum Kind {
    none,             // the access methods as they are
    harmless,         // the broken one, which does no harm
    dropsRepair,      // a write that the audit makes does not reach the chip
    writesElsewhere,  // a write goes to the next entry
    readsWrong,       // a read during the audit gives another value than the chip's
    servesWrong,      // a read from the shadow gives another value than the shadow's
    blind             // calls everything equal
  };
  Kind kind = none;
  U32 after = 0;        // matching operations that still go well
  bool inTurn = false;  // an activity's turn runs: the audit is at work

  // Whether this operation is to go wrong.
  bool strikes(Kind wanted) {
    if (kind != wanted) return false;
    if (after == 0) return true;
    --after;
    return false;
  }
};

// Runs once, from within the reading of an entry by the audit: what comes between two entries of
// one slice.
struct Interruption {
  U32 after = 0;  // entries that are read before it
  std::function<void()> work;

  void countEntry() {
    if (!work || after-- > 0) return;
    std::exchange(work, nullptr)();
  }
};

// Entries `stride` apart. The high word of an address is the chip's id.
class ChipAccess : public Hardware::ChipHam {
 public:
  ChipAccess(Zint::Name name, Chip& chip, U32 stride, Interruption& interruption)
      : ChipHam(std::move(name)), chip_(chip), stride_(stride), interruption_(interruption) {}

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override;
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override;

 protected:
  Chip& chip_;
  const U32 stride_;
  Interruption& interruption_;
};

// The same, where the chip itself changes some bits of each entry's last byte at any time: they do
// not count in a comparison.
class StatusAccess : public ChipAccess {
 public:
  StatusAccess(Zint::Name name, Chip& chip, U32 stride, Interruption& interruption, U8 ignored)
      : ChipAccess(std::move(name), chip, stride, interruption), ignored_(ignored) {}

  bool doCompare(U8* a, U8* b, U32 bytes) const override;

 private:
  const U8 ignored_;
};

// Of any stride, but broken.
class SabotagedAccess : public ChipAccess {
 public:
  SabotagedAccess(Zint::Name name, Chip& chip, U32 stride, Interruption& interruption,
                  Sabotage& sabotage)
      : ChipAccess(std::move(name), chip, stride, interruption), sabotage_(sabotage) {}

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override;
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override;
  bool doCompare(U8* a, U8* b, U32 bytes) const override;
  bool doReadFromCache(U8* destination, U8* source, U32 bytes) const override;

 private:
  Sabotage& sabotage_;
};

// The chip as the platform's 32-bit registers, for the library's own access method.
class ChipRegisters : public Fru::HamImpl {
 public:
  explicit ChipRegisters(Chip& chip) : chip_(chip) {}

  void read(U32 address, U32* value) override;
  void write(U32 address, U32 value) override;

 private:
  Chip& chip_;
};

// Where each chip's memory begins in its address space.
constexpr U32 firstOffset = 0x1000;

}  // namespace Simulation
