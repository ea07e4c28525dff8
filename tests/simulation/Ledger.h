// What the chips and the shadow must hold, and which writes must reach a chip: kept by watching the
// chips, the trace and what the driver is about to do, never by asking the library.
//
// For each entry the ledger knows the value that was last written by a client or learnt by the
// audit, whether there is one at all, whether it was written since the current pass began, and what
// the chip answered when the pass read it. A write is attributed when it was due: the driver's own,
// a write-back, or the repair of an entry whose answer differed in this pass.
#pragma once

#include <Hardware/HardwareShadow.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "simulation/Chip.h"
#include "simulation/Journal.h"

namespace Simulation {

using Mode = Hardware::ChipMemory::ChipMemoryMode;
using State = Hardware::HardwareShadow::State;

// How a region is reached.
enum class Way { chipAccess, statusAccess, registers };

struct Layout {
  std::string name;
  U32 chip;
  U32 offset;  // of entry 0 in the chip's memory
  U32 entries;
  U32 entrySize;
  U32 stride;
  Way way;
  U8 ignored;  // bits of each entry's last byte that do not count in a comparison
};

// One region in the ledger.
struct Book {
  explicit Book(const Layout& regionLayout);

  const Layout layout;
  // The owner's settings.
  bool registered = true;
  bool shadowEnabled = false;
  bool auditEnabled = false;
  bool readFromCache = false;
  bool skipsHits = false;
  bool logicalViews = false;
  Mode mode = Mode::normal_;
  bool member = false;  // of the audit's request

  // Per entry; values are packed.
  std::vector<U8> value;  // what the shadow holds; zeros where nothing is known
  std::vector<U8> known;
  std::vector<U8> dirty;     // written since the pass began
  std::vector<U8> seen;      // what the chip answered in this pass
  std::vector<U8> bad;       // ends of passes that found it wrong, since the last disturbance
  std::vector<U8> damaged;   // by a soft error that is to be repaired
  std::vector<U8> due;       // what is to be written to the chip
  std::vector<U32> dueLeft;  // its bytes that have not been written yet
  U32 seenBytes = 0;         // so far in this pass
  U32 repairs = 0;
  U64 readHits = 0;
  U64 writeHits = 0;

  bool hasShadow() const { return shadowEnabled && mode != Mode::override_; }
  U32 bytes() const { return layout.entries * layout.entrySize; }
  U32 chipOffset(U32 entry) const { return layout.offset + entry * layout.stride; }
  bool same(const U8* a, const U8* b) const;  // one entry
  void resetStore();
};

class Ledger : public Chip::Watcher {
 public:
  static constexpr Zint::Seconds never = std::numeric_limits<Zint::Seconds>::infinity();

  explicit Ledger(Journal& journal) : journal_(journal) {}
  // Before anything else happens.
  void addRegion(const Layout& layout) { books_.emplace_back(layout); }
  void addChip(const Chip* chip) { chips_.push_back(chip); }

  U32 regions() const { return static_cast<U32>(books_.size()); }
  Book& book(U32 region) { return books_[region]; }

  // --- What the driver is about to do, and the answer it must get ---
  bool offerWrite(U32 region, U32 entry, const U8* data, U32 count);
  // The driver will write these entries to the chip.
  void expectWrite(U32 region, U32 entry, const U8* data, U32 count);
  void expectWriteBack(U32 region, bool knownOnly);
  void clearEntries(U32 region, U32 first, U32 last);
  bool answerRead(U32 region, U32 entry, U32 size, std::vector<U8>& answer);
  // Every write that was due has been made.
  void checkNothingDue();

  // --- What the driver did to the chips ---
  // An entry's fault counts from now on.
  void disturb(U32 region, U32 entry) { books_[region].bad[entry] = 0; }
  // The same, for a fault that the audit must mend if it is at work on a known, clean entry.
  void damage(U32 region, U32 entry);

  // --- Control ---
  void stateIs(State state, Zint::Seconds now);
  State state() const { return state_; }
  void overrideHardwareIs(bool on) { overrideHardware_ = on; }
  bool overrideHardware() const { return overrideHardware_; }
  void intervalIs(Zint::Seconds interval) { interval_ = interval; }
  void sliceIs(U32 entries) {
    slice_ = entries;
    sliceOfTurn_ = turnRuns_ ? std::max(sliceOfTurn_, entries) : entries;
  }

  // --- The audit ---
  void beginTurn();
  void endTurn(Zint::Seconds now);
  // Within a turn the driver is at work.
  void beginInterruption() { inTurn_ = false; }
  void endInterruption() { inTurn_ = true; }
  void startPass(Zint::Seconds now);
  void comparePass();
  void countDifference() { ++reported_; }
  bool hasPassEnded() const { return passEnded_; }
  bool isPassRunning() const { return passRuns_; }
  U32 passes() const { return passes_; }
  // No pass begins any more by itself, though the state is auditing.
  bool isStalled() const { return state_ == State::auditing_ && !passRuns_ && passDue_ == never; }

  // Every audited entry of the chips holds its value.
  void checkSettled();

  void onChipRead(U32 chip, U32 offset, const U8* data, U32 size, bool glitched) override;
  void onChipWrite(U32 chip, U32 offset, const U8* data, U32 size, bool lost) override;
  void onChipMiss(U32 chip, U32 offset, U32 size) override;

 private:
  struct Place {
    U32 region;
    U32 entry;
    U32 byte;
  };
  bool locate(U32 chip, U32 offset, U32 size, Place& place);
  void expectEntryWrite(Book& book, U32 entry, const U8* data);
  void compareRegion(U32 region);
  void checkRegion(U32 region);
  const U8* onChip(const Book& book, U32 entry) const {
    return chips_[book.layout.chip]->memory() + book.chipOffset(entry);
  }

  Journal& journal_;
  std::vector<Book> books_;
  std::vector<const Chip*> chips_;
  State state_ = State::unconfigured_;
  bool overrideHardware_ = false;
  Zint::Seconds interval_ = 0;
  U32 slice_ = 0;
  U32 sliceOfTurn_ = 0;  // a slice under way keeps the limit that it began with
  Zint::Seconds passStart_ = 0;
  Zint::Seconds passDue_ = never;
  bool passRuns_ = false;
  bool passEnded_ = false;  // in this turn
  bool turnRuns_ = false;
  bool inTurn_ = false;          // and the library is at work in it
  bool stateSetInTurn_ = false;  // by an interruption
  U32 passes_ = 0;
  U32 entriesReadInTurn_ = 0;
  U32 dueEntries_ = 0;
  U32 predicted_ = 0;  // repairs of the pass that ended
  U32 reported_ = 0;   // differences in the trace
  U32 lastRegion_ = 0;
};

}  // namespace Simulation
