// The account of all errors: what happened to each bit that the chip process flipped, and to each
// bit that is wrong because the chip was absent, was reset or has a stuck bit.
//
// The account is exact although the chip process flips bits at any moment. Both processes change a
// register in one atomic step that also returns the old value: the chip process by an exclusive-or,
// this one by an exchange. So the changes of one register have one order, and every flip is in
// exactly one interval between two changes by this process. The ledger keeps the value that each
// register took last. The value that a change replaces differs from it in those bits that were
// flipped an odd number of times in the interval. One flip of each such bit is repaired, restored
// or overwritten by this change; the others have undone each other, in pairs.
//
// The log of flips says how often each bit was flipped, in whatever interval. When the chip process
// has ended the log is complete, and for each bit
//
//   flips = repaired + restored + overwritten + remaining + undone,   undone >= 0 and even
//
// where `remaining` is 1 if the register differs in the bit from the value that it took last. A bit
// that breaks this was changed by neither side: it is reported as unexplained.
//
// A write that is lost, a reset and a stuck bit leave a register with another value than the one
// that was written. The ledger is told of them and keeps the written value, too. Each bit in which
// the two differ is an error of one cause, until a write lands on it.
//
// A repair is without damage when it replaces no wrong bit. Damage that the audit has found can
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
  U64 injected = 0;     // all errors
  U64 lost = 0;         // of them: writes that did not land
  U64 forgotten = 0;    // of them: by a reset
  U64 stuck = 0;        // of them: bits that did not take what was written
  U64 repaired = 0;     // by the audit
  U64 restored = 0;     // by the replay after a reset
  U64 overwritten = 0;  // by newer writes, or by a reset
  U64 undone = 0;
  U64 remaining = 0;
  U64 unexplained = 0;
  U64 repairsWithoutDamage = 0;

  U64 flips() const { return injected - lost - forgotten - stuck; }
  bool isGood() const { return remaining == 0 && unexplained == 0 && repairsWithoutDamage == 0; }
  friend bool operator==(const Account&, const Account&) = default;
};

class Ledger {
 public:
  // For the registers at addresses 0, 4, ... below `size`; all of them hold 0.
  explicit Ledger(U32 size) : written_(size / 4), taken_(size / 4) {}

  // --- This process
  // The register holds this value from the start.
  void valueIs(U32 address, U32 value) {
    written_.at(address / 4) = taken_.at(address / 4) = value;
  }
  // This process wrote `value` to a register and replaced `before`.
  void recordWrite(U32 address, U32 before, U32 value) {
    recordWrite(address, before, value, value);
  }
  // The same of a register with stuck bits: it has taken `taken`.
  void recordWrite(U32 address, U32 before, U32 value, U32 taken);
  // A write that did not reach the register.
  void recordLostWrite(U32 address, U32 value);
  // The register was reset: it held `before` and holds `after`.
  void recordReset(U32 address, U32 before, U32 after);
  // These bits of the register read 0 from now on; it held `before`.
  void recordStuck(U32 address, U32 before, U32 bits);
  // The writes until endRepair() rewrite the entry of `size` bytes at `address`. `isWritten`:
  // whether there were any.
  void beginRepair(U32 address, U32 size);
  void endRepair(bool isWritten = true);
  // While it is set, writes outside of repairs are those of the replay, not those of clients.
  void isRestoringIs(bool isRestoring) { isRestoring_ = isRestoring; }

  // --- The other process
  // A flip from the log. Its register may have changed since.
  void recordFlip(const Flip& flip);
  // A flip that is not in the log.
  void recordDamage(U32 address, U32 before, U32 after);

  // The counts so far, without what is known at the end alone.
  const Account& soFar() const { return soFar_; }
  // The account of the registers at addresses from `begin` to before `end`. `registers` are the
  // chip's, all of them. REQUIRES: the chip process has ended, and all its flips are recorded.
  Account account(const volatile U32* registers, U32 begin, U32 end) const;
  Account account(const volatile U32* registers) const;

 private:
  // Errors of a bit or of a register, and what ended them.
  struct Ends {
    U32 repaired = 0;
    U32 restored = 0;
    U32 overwritten = 0;
  };
  struct Bit : Ends {
    U32 flips = 0;
  };
  // Of one register, in bits.
  struct Displaced : Ends {
    U32 lost = 0;
    U32 forgotten = 0;
    U32 stuck = 0;
    U32 undone = 0;  // by a reset
  };
  struct Entry {
    U32 address;
    U32 size;
  };

  static U64 key(U32 address, U32 bit) { return U64{address} << 8 | bit; }
  template <class Visit>
  void eachBit(U32 address, U32 bits, Visit visit);
  U32 Ends::*end() const;
  void count(U32 Ends::*end, U32 bits);
  void meet(U32 address, U32 bits, U32 Ends::*end);
  void valuesAre(U32 address, U32 written, U32 taken, U32 Displaced::*cause, U32 Ends::*end);
  U32 flippedBits(const volatile U32* registers, U32 address) const;
  void addFlips(const volatile U32* registers, U32 begin, U32 end, Account& account) const;
  U64 undonePairs(const volatile U32* registers, const Entry& entry) const;

  std::vector<U32> written_;              // by register: what this process wrote last
  std::vector<U32> taken_;                // and what the register took last
  std::vector<Displaced> displaced_;      // by register; empty before the first such error
  std::unordered_map<U64, Bit> bits_;     // those that were ever flipped or met flipped
  std::vector<Entry> repairsOfNoDamage_;  // repairs that met no damage, in their order
  Account soFar_;
  U32 nextSequence_ = 0;
  U64 lostFlips_ = 0;  // gaps in the log
  bool isRestoring_ = false;
  bool isRepairing_ = false;
  bool hasMetDamage_ = false;  // since beginRepair()
  Entry repaired_{};
};

}  // namespace Demo
