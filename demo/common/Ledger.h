// The account of all soft errors: what happened to each bit that the chip process flipped.
//
// The account is exact although the chip process flips bits at any moment. Both processes change a
// register in one atomic step that also returns the old value: the chip process by an exclusive-or,
// this one by an exchange. So the changes of one register have one order, and every flip is in
// exactly one interval between two writes. The ledger keeps the value last written to each
// register. The value that a write replaces differs from it in those bits that were flipped an odd
// number of times in the interval. One flip of each such bit is repaired or overwritten by this
// write; the others have undone each other, in pairs.
//
// The log of flips says how often each bit was flipped, in whatever interval. When the chip process
// has ended the log is complete, and for each bit
//
//   flips = repaired + overwritten + remaining + undone,   undone >= 0 and even
//
// where `remaining` is 1 if the register and the last write differ in the bit. A bit that breaks
// this was changed by neither side: it is reported as unexplained.
//
// A repair is without damage when it replaces no flipped bit. Damage that the audit has found can
// disappear before the repair, when a second flip undoes it. So each undone pair in the entry
// excuses one such repair (only one: a write ends the interval, and the next pass finds another
// one).
//
// Belongs to one thread.
#pragma once

#include <Zint/Types.h>

#include <unordered_map>
#include <vector>

#include "demo/common/ControlBlock.h"

namespace Demo {

// In bits, except for the repairs.
struct Account {
  U64 injected = 0;
  U64 repaired = 0;
  U64 overwritten = 0;
  U64 undone = 0;
  U64 remaining = 0;
  U64 unexplained = 0;
  U64 repairsWithoutDamage = 0;

  bool isGood() const { return remaining == 0 && unexplained == 0 && repairsWithoutDamage == 0; }
  friend bool operator==(const Account&, const Account&) = default;
};

class Ledger {
 public:
  // For the registers at addresses 0, 4, ... below `size`; all of them hold 0.
  explicit Ledger(U32 size) : lastWritten_(size / 4) {}

  // --- This process
  // This process wrote `value` to a register and replaced `before`.
  void recordWrite(U32 address, U32 before, U32 value);
  // The writes until endRepair() rewrite the entry of `size` bytes at `address`.
  void beginRepair(U32 address, U32 size);
  void endRepair();

  // --- The other process
  // A flip from the log. Its register may have changed since.
  void recordFlip(const Flip& flip);
  // A flip that is not in the log.
  void recordDamage(U32 address, U32 before, U32 after);

  // The counts so far: injected, repaired and overwritten.
  const Account& soFar() const { return soFar_; }
  // The account of the registers at addresses from `begin` to before `end`. `registers` are the
  // chip's, all of them. REQUIRES: the chip process has ended, and all its flips are recorded.
  Account account(const volatile U32* registers, U32 begin, U32 end) const;
  Account account(const volatile U32* registers) const;

 private:
  struct Bit {
    U32 flips = 0;
    U32 repaired = 0;
    U32 overwritten = 0;
  };
  struct Entry {
    U32 address;
    U32 size;
  };

  static U64 key(U32 address, U32 bit) { return U64{address} << 8 | bit; }
  template <class Visit>
  void eachBit(U32 address, U32 bits, Visit visit);
  U32 remainingBits(const volatile U32* registers, U32 address) const;
  U64 undonePairs(const volatile U32* registers, const Entry& entry) const;

  std::vector<U32> lastWritten_;          // by register
  std::unordered_map<U64, Bit> bits_;     // those that were ever flipped or met flipped
  std::vector<Entry> repairsOfNoDamage_;  // repairs that met no damage, in their order
  Account soFar_;
  U32 nextSequence_ = 0;
  U64 lostFlips_ = 0;  // gaps in the log
  bool isRepairing_ = false;
  bool hasMetDamage_ = false;  // since beginRepair()
  Entry repaired_{};
};

}  // namespace Demo
