// The ledger's view of the audit: when a pass must begin, what it must learn and repair, and what
// the chips must hold after it.

#include <algorithm>
#include <cstring>

#include "simulation/Ledger.h"

namespace Simulation {

void Ledger::stateIs(State state, Zint::Seconds now) {
  if (state == state_) return;
  stateSetInTurn_ = turnRuns_;
  if (passRuns_) journal_.record(Event::passAbandoned);
  passRuns_ = false;
  passDue_ = never;
  state_ = state;
  switch (state) {
    case State::unconfigured_:
      for (Book& b : books_) b.member = false;
      break;
    case State::configured_:
      for (Book& b : books_) {
        b.member = b.registered && b.auditEnabled && b.mode != Mode::override_;
      }
      state_ = State::idle_;
      break;
    case State::auditing_:
      if (std::none_of(books_.begin(), books_.end(), [](const Book& b) { return b.member; })) {
        journal_.record(Event::nothingToAudit);
        state_ = State::idle_;
      } else {
        passDue_ = now;
      }
      break;
    case State::idle_:
      break;
  }
}

void Ledger::startPass(Zint::Seconds now) {
  if (state_ != State::auditing_ || overrideHardware_ || passRuns_ || now < passDue_) {
    journal_.broken(Rule::paced, "a pass that is not due");
  }
  journal_.record(Event::passStarted);
  passRuns_ = true;
  passStart_ = now;
  passDue_ = never;
  for (Book& b : books_) {
    if (!b.member) continue;
    b.seenBytes = 0;
    if (b.hasShadow()) std::fill(b.dirty.begin(), b.dirty.end(), U8{0});
  }
}

void Ledger::comparePass() {
  if (!passRuns_) return journal_.broken(Rule::paced, "a comparison outside a pass");
  passRuns_ = false;
  passEnded_ = true;
  predicted_ = reported_ = 0;
  ++passes_;
  journal_.record(Event::passDone, Journal::nowhere, 0, passes_);
  passDue_ = std::max(passStart_ + interval_, journal_.time());
  for (U32 region = 0; region < regions(); ++region) {
    if (books_[region].member) compareRegion(region);
  }
}

void Ledger::compareRegion(U32 region) {
  Book& b = books_[region];
  if (b.seenBytes != b.bytes()) {
    journal_.broken(Rule::paced, b.layout.name + " was compared before it had been read wholly");
  }
  if (!b.hasShadow() || std::memcmp(b.seen.data(), b.value.data(), b.bytes()) == 0) return;
  for (U32 e = 0; e < b.layout.entries; ++e) {
    U8* value = b.value.data() + e * b.layout.entrySize;
    const U8* seen = b.seen.data() + e * b.layout.entrySize;
    if (b.same(value, seen)) continue;
    if (!b.known[e]) {
      journal_.record(Event::learnt, region, e);
      std::memcpy(value, seen, b.layout.entrySize);
      b.known[e] = 1;
    } else if (b.dirty[e]) {
      journal_.record(Event::recentWriteLeftAlone, region, e);
    } else {
      journal_.record(Event::repair, region, e);
      expectEntryWrite(b, e, value);
      ++b.repairs;
      ++predicted_;
    }
  }
}

void Ledger::beginTurn() {
  turnRuns_ = inTurn_ = true;
  passEnded_ = stateSetInTurn_ = false;
  entriesReadInTurn_ = 0;
  sliceOfTurn_ = slice_;
}

void Ledger::endTurn(Zint::Seconds now) {
  turnRuns_ = inTurn_ = false;
  checkNothingDue();
  if (passEnded_) {
    if (predicted_ != reported_) {
      journal_.broken(Rule::attributed,
                      format("%u differences reported instead of %u", reported_, predicted_));
    }
    for (U32 region = 0; region < regions(); ++region) checkRegion(region);
  }
  // A wake-up that finds the hardware overridden is not repeated.
  if (state_ == State::auditing_ && !passRuns_ && passDue_ <= now && !passEnded_ &&
      !stateSetInTurn_) {
    if (!overrideHardware_) journal_.broken(Rule::paced, "a pass that was due has not begun");
    passDue_ = never;
  }
}

// An entry that one pass leaves wrong was damaged after it was read; the next one must repair it.
void Ledger::checkRegion(U32 region) {
  Book& b = books_[region];
  const bool audited = b.member && b.hasShadow();
  for (U32 e = 0; e < b.layout.entries; ++e) {
    if (!audited || !b.known[e] || b.dirty[e] ||
        b.same(b.value.data() + e * b.layout.entrySize, onChip(b, e)) ||
        chips_[b.layout.chip]->isStuck(b.chipOffset(e), b.layout.entrySize)) {
      b.bad[e] = 0;
    } else if (++b.bad[e] > 1) {
      journal_.broken(
          Rule::repaired,
          format("entry %u of %s is wrong after two passes: it holds %s, not %s", e,
                 b.layout.name.c_str(), hexadecimal(onChip(b, e), b.layout.entrySize).c_str(),
                 hexadecimal(&b.value[e * b.layout.entrySize], b.layout.entrySize).c_str()));
    }
  }
}

void Ledger::checkSettled() {
  for (const Book& b : books_) {
    if (!b.member || !b.hasShadow()) continue;
    for (U32 e = 0; e < b.layout.entries; ++e) {
      if (b.same(b.value.data() + e * b.layout.entrySize, onChip(b, e))) continue;
      journal_.broken(Rule::settled,
                      format("entry %u of %s differs on the chip after the faults have ended", e,
                             b.layout.name.c_str()));
    }
  }
}

}  // namespace Simulation
