// The account of all soft errors: what became of each bit that the chip process flipped.
//
// Why it is right although the chip process flips bits at any moment, between any two steps of this
// process: whoever changes a register does it in one atomic step that also tells what was there,
// the chip process by an exclusive-or, this one by an exchange. So the changes of one register have
// one order, every flip falls into exactly one interval between two writes, and no flip can fall
// between a write and what the write met. The ledger remembers what was last written to each
// register. What a write meets differs from that in just those bits that were flipped an odd number
// of times in the interval that it ends: one flip of each such bit was still in the register and is
// repaired or overwritten by this write; the others had undone each other, in pairs.
//
// The log of flips says how often each bit was flipped, in which interval does not matter. When the
// chip process has ended the log is complete, and for each bit
//
//   flips = repaired + overwritten + remaining + undone,   undone >= 0 and even
//
// where `remaining` is what its register and the last write differ in. A bit that breaks this was
// changed by neither side: it is reported as unexplained.
//
// A repair is without damage when it met none. Damage that the audit has seen can vanish before the
// repair, when a second flip undoes it; so each undone pair in the entry excuses one such repair
// (one only: a write ends the interval, and the next pass sees another one).
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
  // This wrote `value` to a register and met `before`.
  void written(U32 address, U32 before, U32 value);
  // The writes until repairEnded() rewrite the entry of `size` bytes at `address`.
  void repairBegun(U32 address, U32 size);
  void repairEnded();

  // --- The other process
  // A flip from the log, whatever has happened to its register since.
  void flipped(const Flip& flip);
  // A flip that someone else made, with no place in the log's sequence.
  void damaged(U32 address, U32 before, U32 after);

  // What has been seen so far: injected, repaired and overwritten.
  const Account& soFar() const { return soFar_; }
  // The account of the registers at addresses from `begin` to before `end`. `registers` are the
  // chip's, all of them. REQUIRES: no flip happens any more and all are entered.
  Account settled(const volatile U32* registers, U32 begin, U32 end) const;
  Account settled(const volatile U32* registers) const;

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
  bool hasMetDamage_ = false;  // since repairBegun()
  Entry repaired_{};
};

}  // namespace Demo
