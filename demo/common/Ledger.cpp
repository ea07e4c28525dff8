#include "demo/common/Ledger.h"

#include <bit>

namespace Demo {
namespace {

U32 bitsOf(U32 value) { return static_cast<U32>(std::popcount(value)); }

}  // namespace

// Visits the record of each bit that is set in `bits`.
template <class Visit>
void Ledger::eachBit(U32 address, U32 bits, Visit visit) {
  for (; bits != 0; bits &= bits - 1) {
    visit(bits_[key(address, static_cast<U32>(std::countr_zero(bits)))]);
  }
}

// What ends the errors that a write meets.
U32 Ledger::Ends::*Ledger::end() const {
  if (isRepairing_) return &Ends::repaired;
  return isRestoring_ ? &Ends::restored : &Ends::overwritten;
}

void Ledger::count(U32 Ends::*end, U32 bits) {
  if (end == &Ends::repaired) soFar_.repaired += bits;
  if (end == &Ends::restored) soFar_.restored += bits;
  if (end == &Ends::overwritten) soFar_.overwritten += bits;
}

// Flipped bits that a change of the register has met.
void Ledger::meet(U32 address, U32 bits, U32 Ends::*end) {
  if (bits == 0) return;
  hasMetDamage_ = true;
  count(end, bitsOf(bits));
  eachBit(address, bits, [end](Bit& bit) { ++(bit.*end); });
}

// Bits that become wrong are errors of `cause`; `end` (null: a reset) ends those that were wrong.
void Ledger::valuesAre(U32 address, U32 written, U32 taken, U32 Displaced::*cause, U32 Ends::*end) {
  const U32 index = address / 4;
  const U32 before = written_.at(index) ^ taken_[index];
  const U32 after = written ^ taken;
  written_[index] = written;
  taken_[index] = taken;
  if ((before | after) == 0) return;
  if (before != 0) hasMetDamage_ = true;
  if (displaced_.empty()) displaced_.resize(written_.size());
  Displaced& displaced = displaced_[index];
  const U32 ended = bitsOf(before & ~after);
  if (end == nullptr) {
    displaced.undone += ended;
  } else {
    displaced.*end += ended;
    count(end, ended);
  }
  const U32 begun = bitsOf(after & ~before);
  displaced.*cause += begun;
  soFar_.injected += begun;
  (cause == &Displaced::lost        ? soFar_.lost
   : cause == &Displaced::forgotten ? soFar_.forgotten
                                    : soFar_.stuck) += begun;
}

void Ledger::recordWrite(U32 address, U32 before, U32 value, U32 taken) {
  meet(address, before ^ taken_.at(address / 4), end());
  valuesAre(address, value, taken, &Displaced::stuck, end());
}

void Ledger::recordLostWrite(U32 address, U32 value) {
  valuesAre(address, value, taken_.at(address / 4), &Displaced::lost, end());
}

void Ledger::recordReset(U32 address, U32 before, U32 after) {
  meet(address, before ^ taken_.at(address / 4), &Ends::overwritten);
  valuesAre(address, written_[address / 4], after, &Displaced::forgotten, nullptr);
}

void Ledger::recordStuck(U32 address, U32 before, U32 bits) {
  const U32 taken = taken_.at(address / 4);
  meet(address, (before ^ taken) & bits, &Ends::overwritten);
  valuesAre(address, written_[address / 4], taken & ~bits, &Displaced::stuck, nullptr);
}

void Ledger::beginRepair(U32 address, U32 size) {
  isRepairing_ = true;
  hasMetDamage_ = false;
  repaired_ = {address, size};
}

void Ledger::endRepair(bool isWritten) {
  isRepairing_ = false;
  if (isWritten && !hasMetDamage_) repairsOfNoDamage_.push_back(repaired_);
}

void Ledger::recordFlip(const Flip& flip) {
  lostFlips_ += flip.sequence - nextSequence_;
  nextSequence_ = flip.sequence + 1;
  recordDamage(flip.address, flip.before, flip.after);
}

void Ledger::recordDamage(U32 address, U32 before, U32 after) {
  const U32 flippedBits = before ^ after;
  soFar_.injected += bitsOf(flippedBits);
  eachBit(address, flippedBits, [](Bit& bit) { ++bit.flips; });
}

U32 Ledger::flippedBits(const volatile U32* registers, U32 address) const {
  return registers[address / 4] ^ taken_.at(address / 4);
}

Account Ledger::account(const volatile U32* registers) const {
  Account sum = account(registers, 0, static_cast<U32>(written_.size() * 4));
  sum.unexplained += lostFlips_;
  return sum;
}

Account Ledger::account(const volatile U32* registers, U32 begin, U32 end) const {
  Account account;
  addFlips(registers, begin, end, account);
  for (U32 address = begin; address < end && !displaced_.empty(); address += 4) {
    const Displaced& displaced = displaced_[address / 4];
    account.lost += displaced.lost;
    account.forgotten += displaced.forgotten;
    account.stuck += displaced.stuck;
    account.injected += U64{displaced.lost} + displaced.forgotten + displaced.stuck;
    account.repaired += displaced.repaired;
    account.restored += displaced.restored;
    account.overwritten += displaced.overwritten;
    account.undone += displaced.undone;
    account.remaining += bitsOf(written_[address / 4] ^ taken_[address / 4]);
  }
  std::unordered_map<U32, U64> excused;
  for (const Entry& entry : repairsOfNoDamage_) {
    if (entry.address < begin || entry.address >= end) continue;
    const auto [pairs, isNew] = excused.try_emplace(entry.address, 0);
    if (isNew) pairs->second = undonePairs(registers, entry);
    if (pairs->second > 0) {
      --pairs->second;
    } else {
      ++account.repairsWithoutDamage;
    }
  }
  return account;
}

void Ledger::addFlips(const volatile U32* registers, U32 begin, U32 end, Account& account) const {
  for (U32 address = begin; address < end; address += 4) {
    U32 bits = flippedBits(registers, address);
    account.remaining += bitsOf(bits);
    for (; bits != 0; bits &= bits - 1) {
      // Changed by no flip of the log and met by no write.
      if (!bits_.contains(key(address, static_cast<U32>(std::countr_zero(bits))))) {
        ++account.unexplained;
      }
    }
  }
  for (const auto& [place, bit] : bits_) {
    const U32 address = static_cast<U32>(place >> 8);
    if (address < begin || address >= end) continue;
    account.injected += bit.flips;
    account.repaired += bit.repaired;
    account.restored += bit.restored;
    account.overwritten += bit.overwritten;
    const U32 remaining = flippedBits(registers, address) >> (place & 31) & 1;
    const S64 undone = S64{bit.flips} - bit.repaired - bit.restored - bit.overwritten - remaining;
    if (undone < 0 || undone % 2 != 0) {
      ++account.unexplained;
    } else {
      account.undone += static_cast<U64>(undone);
    }
  }
}

U64 Ledger::undonePairs(const volatile U32* registers, const Entry& entry) const {
  U64 pairs = 0;
  for (U32 address = entry.address; address < entry.address + entry.size; address += 4) {
    for (U32 i = 0; i < 32; ++i) {
      const auto bit = bits_.find(key(address, i));
      if (bit == bits_.end()) continue;
      const U32 gone = bit->second.repaired + bit->second.restored + bit->second.overwritten +
                       (flippedBits(registers, address) >> i & 1);
      if (bit->second.flips > gone) pairs += (bit->second.flips - gone) / 2;
    }
  }
  return pairs;
}

}  // namespace Demo
