#include "Ledger.h"

#include <cinttypes>
#include <cstdio>
#include <iterator>
#include <numeric>

#include "FakeSwitch.h"

namespace Rtl {
namespace {

constexpr U32 allBits = ~U32{0};

U32 below(U32 bound, std::mt19937& random) { return static_cast<U32>(random() % bound); }

// Most of the table. Of the registers often one that has bits of several kinds, or that is fixed.
U32 drawnWord(std::mt19937& random) {
  if (below(4, random) != 0) return registerCount + below(tableWords, random);
  if (below(3, random) != 0) return 1 + below(registerCount - 1, random);
  const std::array<U32, 4> special = {control, strap, interrupt, ports + below(8, random)};
  return special[below(4, random)];
}

bool isCounterWord(U32 word) { return word >= corrected && word <= injected; }

}  // namespace

const char* nameOf(Outcome outcome) {
  constexpr const char* names[] = {
      "corrected by the chip",   "repaired by the patrol", "rewritten on the chip's word",
      "overwritten by a client", "reported and left",      "in live registers: unseen"};
  static_assert(std::size(names) == static_cast<std::size_t>(Outcome::count));
  return names[static_cast<U32>(outcome)];
}

Ledger::Ledger() : known_(words), reads_(words), writes_(words) {
  known_[identity] = {identityValue, allBits};
  known_[strap] = {strapValue, allBits};
}

void Ledger::fail(const char* what, U32 word, U64 expected, U64 actual) {
  if (!failure_.empty()) return;
  char text[160];
  std::snprintf(text, sizeof text, "%s at %#x: expected %#jx, actual %#jx", what, addressOf(word),
                std::uintmax_t{expected}, std::uintmax_t{actual});
  failure_ = text;
}

void Ledger::settle(U32 word, Outcome outcome) {
  open_.erase(word);
  ++outcomes_[static_cast<U32>(outcome)];
}

void Ledger::enterWrite(U32 word, U32 value) {
  ++writes_[word];
  if (word == command) return;
  const U32 bits = word == interrupt                       ? ~latches
                   : word >= ports && word < registerCount ? ~linkBit
                                                           : allBits;
  known_[word] = {value & bits, bits};
  if (open_.contains(word)) settle(word, Outcome::overwritten);
}

void Ledger::enterRewrite(U32 word) {
  ++writes_[word];
  if (open_.contains(word)) settle(word, Outcome::rewritten);
}

// One bit to three of a word of the table, one or two of a register.
U64 Ledger::drawnBits(U32 word, std::mt19937& random) const {
  U32 flips = 1 + below(word < registerCount ? 2 : 3, random);
  // Two wrong check bits are rare, and have an outcome of their own.
  if (word >= registerCount && below(16, random) == 0) {
    const U32 first = below(6, random);
    return U64{1} << (32 + first) | U64{1} << (32 + (first + 1 + below(5, random)) % 6);
  }
  const U32 width = word < registerCount ? 32 : 39;
  for (U64 bits = 0; flips > 0;) {
    const U64 bit = U64{1} << below(width, random);
    if ((bits & bit) != 0) continue;
    bits |= bit;
    if (--flips == 0) return bits;
  }
  return 0;
}

Ledger::Damage Ledger::judged(U32 word, U64 bits) const {
  const Known& known = known_[word];
  if (word < registerCount) {
    const U32 actual = known.value ^ (static_cast<U32>(bits) & known.bits);
    const Outcome outcome = actual == known.value ? Outcome::unseen
                            : word == strap       ? Outcome::reported
                                                  : Outcome::repaired;
    return {outcome, bits, actual};
  }
  const Decoded decoded = decode(encode(known.value) ^ bits);
  const auto actual = static_cast<U32>(decoded.word);
  const Outcome outcome = actual != known.value ? Outcome::repaired
                          : decoded.isCorrected ? Outcome::corrected
                                                : Outcome::rewritten;
  return {outcome, bits, actual};
}

void Ledger::doDamage(Switch& chip, std::mt19937& random) {
  U32 word;
  do {
    word = drawnWord(random);
  } while (word == command || open_.contains(word));
  const U64 bits = drawnBits(word, random);
  const Damage damage = judged(word, bits);
  chip.doFlip(addressOf(word), bits);
  ++damages_;
  if (isCounterWord(word)) {
    const U32 now = chip.state().registers[word];
    flipped_[word - corrected] += now - (now ^ static_cast<U32>(bits));
  }
  if (damage.outcome == Outcome::unseen) {
    settle(word, Outcome::unseen);
  } else {
    open_.emplace(word, damage);
  }
}

void Ledger::enterFinding(U32 word, U32 expected, U32 actual, bool isRepaired, U32 reads) {
  reads_[word] += reads;
  writes_[word] += isRepaired;
  const Known& known = known_[word];
  if ((expected & known.bits) != known.value) fail("the shadow", word, known.value, expected);
  const auto damage = open_.find(word);
  if (damage == open_.end()) return fail("a finding without damage", word, expected, actual);
  const Damage& done = damage->second;
  if ((actual & known.bits) != done.actual) fail("a finding", word, done.actual, actual);
  const Outcome outcome = isRepaired ? Outcome::repaired : Outcome::reported;
  if (done.outcome != outcome) {
    fail("an outcome", word, static_cast<U32>(done.outcome), static_cast<U32>(outcome));
  }
  if (isRepaired)
    settle(word, outcome);
  else
    damage->second.isTold = true;
}

void Ledger::enterPass(const std::vector<U32>& read) {
  for (const U32 word : read) ++reads_[word];
}

void Ledger::doUndoReported(Switch& chip) {
  for (auto next = open_.begin(); next != open_.end();) {
    const auto [word, damage] = *next++;
    if (!damage.isTold) continue;
    chip.doFlip(addressOf(word), damage.bits);
    settle(word, Outcome::reported);
  }
}

void Ledger::enterState(const State& state) {
  for (auto next = open_.begin(); next != open_.end();) {
    const auto [word, damage] = *next++;
    if (damage.outcome != Outcome::corrected) continue;
    if (state.table[word - registerCount] != encode(known_[word].value)) continue;
    settle(word, Outcome::corrected);
    ++correctedByChip_;
  }
}

U64 Ledger::reads() const { return std::accumulate(reads_.begin() + 1, reads_.end(), U64{0}); }

U64 Ledger::writes() const { return std::accumulate(writes_.begin(), writes_.end(), U64{0}); }

void Ledger::doClose(const RtlSwitch& chip, const State& state) {
  for (U32 word = 0; word < words; ++word) {
    const U32 address = addressOf(word);
    const Known& known = known_[word];
    if (word < registerCount && (state.registers[word] & known.bits) != known.value) {
      fail("a register", word, known.value, state.registers[word]);
    }
    if (word >= registerCount && state.table[word - registerCount] != encode(known.value)) {
      fail("a word", word, encode(known.value), state.table[word - registerCount]);
    }
    if (chip.writesOf(address) != writes_[word]) {
      fail("writes", word, writes_[word], chip.writesOf(address));
    }
    // The sentinel is read whenever data look suspicious.
    if (word != identity && chip.readsOf(address) != reads_[word]) {
      fail("reads", word, reads_[word], chip.readsOf(address));
    }
    if (isCounterWord(word)) {
      const U32 i = word - corrected;
      const U32 counted = counted_[i] + state.registers[word] - flipped_[i];
      if (counted != state.totals[i]) fail("a counter", word, state.totals[i], counted);
    }
  }
  // Words of more than one wrong bit may be taken for one wrong bit of another word.
  if (state.totals[0] < correctedByChip_) {
    fail("corrections", corrected, correctedByChip_, state.totals[0]);
  }
  const U32 ended = std::accumulate(outcomes_.begin(), outcomes_.end(), U32{0});
  if (ended != damages_) fail("damages", 0, damages_, ended);
}

}  // namespace Rtl
