#include "demo/common/Ledger.h"

#include <bit>

namespace Demo {

// Visits the record of each bit that is set in `bits`.
template <class Visit>
void Ledger::eachBit(U32 address, U32 bits, Visit visit) {
  for (; bits != 0; bits &= bits - 1) {
    visit(bits_[key(address, static_cast<U32>(std::countr_zero(bits)))]);
  }
}

void Ledger::recordWrite(U32 address, U32 before, U32 value) {
  U32& last = lastWritten_.at(address / 4);
  const U32 met = before ^ last;
  last = value;
  if (met == 0) return;
  hasMetDamage_ = true;
  const auto count = static_cast<U32>(std::popcount(met));
  if (isRepairing_) {
    soFar_.repaired += count;
    eachBit(address, met, [](Bit& bit) { ++bit.repaired; });
  } else {
    soFar_.overwritten += count;
    eachBit(address, met, [](Bit& bit) { ++bit.overwritten; });
  }
}

void Ledger::beginRepair(U32 address, U32 size) {
  isRepairing_ = true;
  hasMetDamage_ = false;
  repaired_ = {address, size};
}

void Ledger::endRepair() {
  isRepairing_ = false;
  if (!hasMetDamage_) repairsOfNoDamage_.push_back(repaired_);
}

void Ledger::recordFlip(const Flip& flip) {
  lostFlips_ += flip.sequence - nextSequence_;
  nextSequence_ = flip.sequence + 1;
  recordDamage(flip.address, flip.before, flip.after);
}

void Ledger::recordDamage(U32 address, U32 before, U32 after) {
  const U32 flippedBits = before ^ after;
  soFar_.injected += static_cast<U32>(std::popcount(flippedBits));
  eachBit(address, flippedBits, [](Bit& bit) { ++bit.flips; });
}

U32 Ledger::remainingBits(const volatile U32* registers, U32 address) const {
  return registers[address / 4] ^ lastWritten_.at(address / 4);
}

Account Ledger::account(const volatile U32* registers) const {
  Account sum = account(registers, 0, static_cast<U32>(lastWritten_.size() * 4));
  sum.unexplained += lostFlips_;
  return sum;
}

Account Ledger::account(const volatile U32* registers, U32 begin, U32 end) const {
  Account account;
  for (U32 address = begin; address < end; address += 4) {
    U32 bits = remainingBits(registers, address);
    account.remaining += static_cast<U32>(std::popcount(bits));
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
    account.overwritten += bit.overwritten;
    const U32 remaining = remainingBits(registers, address) >> (place & 31) & 1;
    const S64 undone = S64{bit.flips} - bit.repaired - bit.overwritten - remaining;
    if (undone < 0 || undone % 2 != 0) {
      ++account.unexplained;
    } else {
      account.undone += static_cast<U64>(undone);
    }
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

U64 Ledger::undonePairs(const volatile U32* registers, const Entry& entry) const {
  U64 pairs = 0;
  for (U32 address = entry.address; address < entry.address + entry.size; address += 4) {
    for (U32 i = 0; i < 32; ++i) {
      const auto bit = bits_.find(key(address, i));
      if (bit == bits_.end()) continue;
      const U32 gone = bit->second.repaired + bit->second.overwritten +
                       (remainingBits(registers, address) >> i & 1);
      if (bit->second.flips > gone) pairs += (bit->second.flips - gone) / 2;
    }
  }
  return pairs;
}

}  // namespace Demo
