// The ledger's entries: what the driver does, and the accesses that reach a chip.
#include "simulation/Ledger.h"

#include <algorithm>
#include <cstring>

namespace Simulation {

Book::Book(const Layout& regionLayout)
    : layout(regionLayout),
      value(bytes()),
      known(layout.entries),
      dirty(layout.entries),
      seen(bytes()),
      bad(layout.entries),
      damaged(layout.entries),
      due(bytes()),
      dueLeft(layout.entries) {}

bool Book::same(const U8* a, const U8* b) const {
  const U32 last = layout.entrySize - 1;
  return std::memcmp(a, b, last) == 0 && ((a[last] ^ b[last]) & ~layout.ignored & 0xff) == 0;
}

void Book::resetStore() {
  std::fill(value.begin(), value.end(), U8{0});
  std::fill(known.begin(), known.end(), U8{0});
  std::fill(dirty.begin(), dirty.end(), U8{0});
  std::fill(bad.begin(), bad.end(), U8{0});
}

void Ledger::damage(U32 region, U32 entry) {
  Book& b = books_[region];
  disturb(region, entry);
  if (state_ == State::auditing_ && b.member && b.hasShadow() && b.known[entry] &&
      !b.dirty[entry]) {
    b.damaged[entry] = 1;
  }
}

bool Ledger::offerWrite(U32 region, U32 entry, const U8* data, U32 count) {
  Book& b = books_[region];
  if (b.mode == Mode::override_) return true;
  const U32 size = b.layout.entrySize;
  bool hit = true;
  for (U32 e = entry; e < entry + count; ++e, data += size) {
    U8* value = b.value.data() + e * size;
    if (b.skipsHits && b.known[e] && std::memcmp(value, data, size) == 0) {
      ++b.writeHits;
      continue;
    }
    std::memcpy(value, data, size);
    b.known[e] = b.dirty[e] = 1;
    hit = false;
  }
  return hit || overrideHardware_ || b.mode == Mode::buffered_;
}

void Ledger::expectEntryWrite(Book& b, U32 entry, const U8* data) {
  std::memcpy(b.due.data() + entry * b.layout.entrySize, data, b.layout.entrySize);
  b.dueLeft[entry] = b.layout.entrySize;
  ++dueEntries_;
}

void Ledger::expectWrite(U32 region, U32 entry, const U8* data, U32 count) {
  Book& b = books_[region];
  for (U32 e = entry; e < entry + count; ++e, data += b.layout.entrySize)
    expectEntryWrite(b, e, data);
}

void Ledger::expectWriteBack(U32 region, bool knownOnly) {
  Book& b = books_[region];
  if (!b.hasShadow()) return;
  for (U32 e = 0; e < b.layout.entries; ++e) {
    if (!knownOnly || b.known[e]) expectEntryWrite(b, e, b.value.data() + e * b.layout.entrySize);
  }
}

void Ledger::clearEntries(U32 region, U32 first, U32 last) {
  Book& b = books_[region];
  if (!b.hasShadow()) return;
  for (U32 e = first; e <= last; ++e) {
    std::memset(b.value.data() + e * b.layout.entrySize, 0, b.layout.entrySize);
    b.known[e] = b.dirty[e] = 1;
  }
}

bool Ledger::answerRead(U32 region, U32 entry, U32 size, std::vector<U8>& answer) {
  Book& b = books_[region];
  if (!b.readFromCache && !overrideHardware_) return false;
  answer.assign(size, 0);
  if (b.mode == Mode::override_) return true;
  const U32 whole = size / b.layout.entrySize;
  for (U32 e = entry; e < entry + whole; ++e) {
    if (!b.known[e] && !overrideHardware_) return false;
  }
  b.readHits += whole;
  std::memcpy(answer.data(), b.value.data() + entry * b.layout.entrySize, size);
  return true;
}

void Ledger::checkNothingDue() {
  if (dueEntries_ == 0) return;
  for (Book& b : books_) {
    for (U32 e = 0; e < b.layout.entries; ++e) {
      if (b.dueLeft[e] == 0) continue;
      journal_.broken(Rule::attributed,
                      format("entry %u of %s was to be written to the chip, and was not", e,
                             b.layout.name.c_str()));
      b.dueLeft[e] = 0;
    }
  }
  dueEntries_ = 0;
}

bool Ledger::locate(U32 chip, U32 offset, U32 size, Place& place) {
  const auto inside = [&](U32 region) {
    const Book& b = books_[region];
    if (b.layout.chip != chip || offset < b.layout.offset) return false;
    const U32 distance = offset - b.layout.offset;
    place = {region, distance / b.layout.stride, distance % b.layout.stride};
    return place.entry < b.layout.entries && place.byte + size <= b.layout.entrySize;
  };
  if (inside(lastRegion_)) return true;
  for (U32 region = 0; region < regions(); ++region) {
    if (!inside(region)) continue;
    lastRegion_ = region;
    return true;
  }
  return false;
}

void Ledger::onChipRead(U32 chip, U32 offset, const U8* data, U32 size, bool glitched) {
  journal_.recordAccess("read", chip, offset, data, size);
  Place place{};
  if (!locate(chip, offset, size, place)) {
    return journal_.broken(Rule::attributed, "a read that meets no region's entry");
  }
  Book& b = books_[place.region];
  if (glitched) {
    journal_.record(Event::readGlitch, place.region, place.entry);
    disturb(place.region, place.entry);
  }
  if (!inTurn_) return;  // the driver's own
  const U32 packed = place.entry * b.layout.entrySize + place.byte;
  if (stateSetInTurn_) return;  // the rest of a slice whose pass was stopped
  if (!passRuns_ || !b.member || packed != b.seenBytes) {
    return journal_.broken(Rule::paced, "the audit reads out of its turn");
  }
  if (place.byte == 0 && ++entriesReadInTurn_ > sliceOfTurn_) {
    journal_.broken(Rule::paced, "a slice is too long");
  }
  std::memcpy(b.seen.data() + packed, data, size);
  b.seenBytes += size;
}

void Ledger::onChipWrite(U32 chip, U32 offset, const U8* data, U32 size, bool lost) {
  journal_.recordAccess("write", chip, offset, data, size);
  Place place{};
  if (!locate(chip, offset, size, place)) {
    return journal_.broken(Rule::attributed, "a write that meets no region's entry");
  }
  Book& b = books_[place.region];
  U32& left = b.dueLeft[place.entry];
  if (left != b.layout.entrySize - place.byte || left < size) {
    return journal_.broken(Rule::attributed, format("a write to entry %u of %s without a cause",
                                                    place.entry, b.layout.name.c_str()));
  }
  if (std::memcmp(b.due.data() + place.entry * b.layout.entrySize + place.byte, data, size) != 0) {
    journal_.broken(Rule::attributed,
                    format("a wrong value for entry %u of %s", place.entry, b.layout.name.c_str()));
  }
  left -= size;
  if (left == 0) --dueEntries_;
  if (lost) {
    journal_.record(inTurn_ ? Event::repairLost : Event::writeLost, place.region, place.entry);
    disturb(place.region, place.entry);
  } else if (left == 0 && b.damaged[place.entry]) {
    b.damaged[place.entry] = 0;
    if (inTurn_) journal_.record(Event::faultRepaired, place.region, place.entry);
  }
}

void Ledger::onChipMiss(U32 chip, U32 offset, U32 size) {
  journal_.broken(Rule::attributed,
                  format("an access of %u bytes outside chip %u at 0x%x", size, chip, offset));
}

}  // namespace Simulation
