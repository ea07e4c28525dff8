// What is done to a chip and what has to follow: of each damage one outcome, of each access a
// reason.
#pragma once

#include <map>
#include <random>
#include <vector>

#include "RtlSwitch.h"

namespace Rtl {

// A byte address of a register or a word, as an index: the registers, and the table behind them.
constexpr U32 words = Mailbox::words;
constexpr U32 addressOf(U32 word) {
  return word < registerCount ? 4 * word : tableAddress + 4 * (word - registerCount);
}

enum class Outcome : U32 {
  corrected,    // by the chip, when the word was read
  repaired,     // by the patrol
  rewritten,    // by the driver, because the chip named the word
  overwritten,  // by a client, before anybody read the word
  reported,     // by the patrol, and left as it is
  unseen,       // a live register, of which nobody knows what it should hold
  count
};
const char* nameOf(Outcome outcome);

// What clients wrote, or the chip has from power-on: the bits of a word that are known.
struct Known {
  U32 value = 0;
  U32 bits = 0;
};

class Ledger {
 public:
  Ledger();

  // --- What happens; the first contradiction becomes failure() ---
  void enterWrite(U32 word, U32 value);  // by a client: as much of it as the chip takes
  void enterRead(U32 word) { ++reads_[word]; }
  void enterCount(U32 counter, U32 value) { counted_[counter - corrected] += value; }
  void enterRewrite(U32 word);  // because the chip named it
  // A word that is not damaged, or a live register, is damaged somehow.
  void doDamage(Switch& chip, std::mt19937& random);
  // What the patrol told, and how many reads of the entry that took beside the pass.
  void enterFinding(U32 word, U32 expected, U32 actual, bool isRepaired, U32 reads);
  // A pass has read these words; the chip holds `state` now. A damage that was reported is undone.
  void enterPass(const std::vector<U32>& read);
  void enterState(const State& state);
  void doUndoReported(Switch& chip);

  // --- The account ---
  // Whether all damages have come to an end.
  bool isSettled() const { return open_.empty(); }
  // Compares everything with the chip: `failure()` if anything does not agree.
  void doClose(const RtlSwitch& chip, const State& state);
  U32 damages() const { return damages_; }
  U32 outcomes(Outcome outcome) const { return outcomes_[static_cast<U32>(outcome)]; }
  U64 reads() const;  // sums of all words but the sentinel, as expected
  U64 writes() const;
  const Known& known(U32 word) const { return known_[word]; }
  const std::string& failure() const { return failure_; }

 private:
  struct Damage {
    Outcome outcome;  // that is expected
    U64 bits;
    U32 actual;  // what a read answers
    bool isTold = false;
  };

  U64 drawnBits(U32 word, std::mt19937& random) const;
  Damage judged(U32 word, U64 bits) const;
  void fail(const char* what, U32 word, U64 expected, U64 actual);
  void settle(U32 word, Outcome outcome);

  std::vector<Known> known_;
  std::map<U32, Damage> open_;  // by word
  std::array<U32, static_cast<U32>(Outcome::count)> outcomes_{};
  U32 damages_ = 0;
  std::vector<U32> reads_, writes_;  // expected, of each word
  std::array<U32, 8> counted_{};     // read out of the counters
  std::array<U32, 8> flipped_{};     // added to them by damages
  U32 correctedByChip_ = 0;
  std::string failure_;
};

}  // namespace Rtl
