// The driver's traffic and the faults.
#include <algorithm>
#include <cstring>

#include "simulation/Driver.h"

namespace Simulation {

// Often what is there already, or few different values.
void Driver::drawData(U32 region, U32 entry, U32 count) {
  const Book& book = ledger_.book(region);
  const U32 size = book.layout.entrySize;
  data_.resize(std::size_t{count} * size);
  const U32 kind = random_.below(4);
  for (U32 i = 0; i < count; ++i) {
    U8* data = data_.data() + i * size;
    const bool same = kind == 0 || (kind == 1 && random_.chance(50));
    if (same) {
      std::memcpy(data, book.value.data() + (entry + i) * size, size);
    } else {
      for (U32 k = 0; k < size; ++k) data[k] = kind == 2 ? random_.byte() : random_.byte() & 1;
    }
  }
}

// The region is looked up by address, as clients do; there is no index while unconfigured.
bool Driver::isFound(U32 region, U32 entry, U32 size) {
  const Hardware::ChipAddress address = system_.address(region, entry);
  const Hardware::ChipMemory::Ptr found = system_.shadow->findChipMemory(address, size);
  const bool inIndex = ledger_.book(region).registered && ledger_.state() != State::unconfigured_;
  check(Rule::answered, found == (inIndex ? system_.region(region) : nullptr),
        "another region was found");
  return found != nullptr;
}

void Driver::writeEntries(U32 count) {
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  writeAt(region, entry, std::min(count, ledger_.book(region).layout.entries - entry));
}

void Driver::writeAt(U32 region, U32 entry, U32 count) {
  const Book& book = ledger_.book(region);
  drawData(region, entry, count);
  const U32 size = count * book.layout.entrySize;
  if (!book.shadowEnabled && book.mode != Mode::override_) {
    return writeDirectly(region, entry, count);
  }
  isFound(region, entry, size);
  const bool wanted = ledger_.offerWrite(region, entry, data_.data(), count);
  const bool answer = system_.shadow->shadowWriteAndCompareWithCache(system_.region(region), entry,
                                                                     data_.data(), size);
  journal_.record(!answer                        ? Event::writeNeeded
                  : book.mode == Mode::override_ ? Event::writeDropped
                  : ledger_.overrideHardware()   ? Event::writeOverridden
                  : book.mode == Mode::buffered_ ? Event::writeBuffered
                                                 : Event::writeHit,
                  region, entry, count);
  journal_.recordAnswer(answer, data_.data(), size);
  check(Rule::answered, answer == wanted, "a write got the wrong answer");
  if (!answer) writeDirectly(region, entry, count);
}

void Driver::writeDirectly(U32 region, U32 entry, U32 count) {
  const Book& book = ledger_.book(region);
  if (!book.shadowEnabled) journal_.record(Event::writeWithoutShadow, region, entry, count);
  const Hardware::ChipMemory::Ptr& cm = system_.region(region);
  ledger_.expectWrite(region, entry, data_.data(), count);
  cm->chipHam()->doWrite(cm->entryAddress(entry), data_.data(), book.layout.entrySize, count);
  ledger_.checkNothingDue();
}

// A client that leaves it to the audit to write the chip.
void Driver::writeLazily() {
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  Book& book = ledger_.book(region);
  if (!book.hasShadow()) return;
  drawData(region, entry, 1);
  if (!isFound(region, entry, book.layout.entrySize)) return;
  journal_.record(Event::writeLazy, region, entry);
  ledger_.offerWrite(region, entry, data_.data(), 1);
  system_.shadow->shadowWriteHack(system_.address(region, entry), data_.data(),
                                  book.layout.entrySize);
}

void Driver::readSome() {
  if (ledger_.state() == State::unconfigured_) return;
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  const Book& book = ledger_.book(region);
  const U32 room = book.layout.entries - entry;
  const U32 kind = random_.below(20);
  const U32 some = kind < 12 ? 1 : kind < 19 ? random_.between(2, 12) : room;
  const U32 count = std::min(room, some);
  U32 size = count * book.layout.entrySize;
  if (book.logicalViews && book.layout.entrySize > 1 && random_.chance(50)) {
    size -= random_.between(1, book.layout.entrySize - 1);
  }
  if (!book.hasShadow() && book.mode != Mode::override_) return;
  isFound(region, entry, size);
  checkRead(region, entry, size);
}

void Driver::checkRead(U32 region, U32 entry, U32 size) {
  const Book& book = ledger_.book(region);
  const bool wanted = ledger_.answerRead(region, entry, size, wanted_);
  answer_.assign(size, 0xa5);
  const bool answer =
      system_.shadow->readFromCache(system_.region(region), entry, answer_.data(), size);
  check(Rule::answered, answer == wanted, "a read was answered when it should not, or not");
  if (answer && wanted) {
    check(Rule::answered, answer_ == wanted_, "a read was served wrong bytes");
    const U32 whole = size / book.layout.entrySize;
    bool known = true;
    for (U32 e = entry; e < entry + whole; ++e) known = known && book.known[e] != 0;
    journal_.record(book.mode == Mode::override_            ? Event::readOfOverride
                    : !known                                ? Event::readUnknownServed
                    : size != whole * book.layout.entrySize ? Event::readPartial
                                                            : Event::readServed,
                    region, entry, size);
  } else {
    journal_.record(Event::readMissed, region, entry, size);
    // From the chip, in whole entries.
    const Hardware::ChipMemory::Ptr& cm = system_.region(region);
    const U32 count = (size + book.layout.entrySize - 1) / book.layout.entrySize;
    answer_.resize(std::size_t{count} * book.layout.entrySize);
    cm->chipHam()->doRead(cm->entryAddress(entry), answer_.data(), book.layout.entrySize, count);
  }
  journal_.recordAnswer(answer, answer_.data(), static_cast<U32>(answer_.size()));
}

void Driver::clearEntries() {
  const U32 region = anyRegion();
  const Book& book = ledger_.book(region);
  const U32 first = anyEntry(region);
  const U32 last = first + random_.below(book.layout.entries - first);
  const bool whole = random_.chance(20);
  const bool writeThrough = random_.chance(50);
  if (!book.hasShadow()) return;
  Hardware::ChipMemory& cm = *system_.region(region);
  if (whole) {
    journal_.record(Event::clear, region);
    ledger_.clearEntries(region, 0, book.layout.entries - 1);
    cm.doClear();
    return;
  }
  journal_.record(Event::clearRange, region, first, last);
  ledger_.clearEntries(region, first, last);
  if (writeThrough) {
    ledger_.expectWrite(region, first, book.value.data() + first * book.layout.entrySize,
                        last - first + 1);
  }
  cm.doClearRange(first, last, writeThrough);
  ledger_.checkNothingDue();
}

void Driver::writeBack() {
  const U32 region = anyRegion();
  const bool knownOnly = random_.chance(70);
  journal_.record(knownOnly ? Event::writebackKnown : Event::writebackAll, region);
  ledger_.expectWriteBack(region, knownOnly);
  system_.region(region)->writeback(knownOnly);
  ledger_.checkNothingDue();
}

// --- Faults ---

// A soft error. An ignored bit is not one: the chip changes it by itself.
void Driver::flipBit() {
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  const Book& book = ledger_.book(region);
  const U32 byte = random_.below(book.layout.entrySize);
  const U32 bit = random_.below(8);
  const bool isIgnored =
      byte + 1 == book.layout.entrySize && ((book.layout.ignored >> bit) & 1) != 0;
  journal_.record(isIgnored                 ? Event::flipOfIgnoredBit
                  : ledger_.isPassRunning() ? Event::flipDuringPass
                                            : Event::flip,
                  region, entry, byte * 8 + bit);
  if (!isIgnored) ledger_.damage(region, entry);
  system_.chip(book.layout.chip).flip(book.chipOffset(entry) + byte, bit);
}

void Driver::flipIgnoredBit() {
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  const Book& book = ledger_.book(region);
  if (book.layout.ignored == 0) return;
  U32 bit = 0;
  while (((book.layout.ignored >> bit) & 1) == 0) ++bit;
  journal_.record(Event::flipOfIgnoredBit, region, entry, bit);
  system_.chip(book.layout.chip).flip(book.chipOffset(entry) + book.layout.entrySize - 1, bit);
}

void Driver::stickBit() {
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  const Book& book = ledger_.book(region);
  const U32 byte = random_.below(book.layout.entrySize);
  const U32 bit = random_.below(8);
  journal_.record(Event::bitStuck, region, entry, byte * 8 + bit);
  ledger_.disturb(region, entry);
  system_.chip(book.layout.chip).stick(book.chipOffset(entry) + byte, bit);
}

void Driver::releaseBits() {
  const U32 number = random_.below(system_.chips());
  if (!system_.chip(number).hasStuck()) return;
  journal_.record(Event::bitsReleased, Journal::nowhere, 0, number);
  system_.chip(number).releaseStuckBits();
}

// It takes effect at a later access; the ledger is notified then.
void Driver::loseNextWrite() {
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  const Book& book = ledger_.book(region);
  system_.chip(book.layout.chip).loseNextWrite(book.chipOffset(entry));
  // A fault that calls for the write, or the client's own write.
  if (random_.chance(50)) {
    system_.chip(book.layout.chip).flip(book.chipOffset(entry), 0);
    ledger_.damage(region, entry);
    journal_.record(Event::flip, region, entry);
  }
}

void Driver::glitchNextRead() {
  const U32 region = anyRegion();
  const U32 entry = anyEntry(region);
  const Book& book = ledger_.book(region);
  const U32 bit = random_.below(8);
  system_.chip(book.layout.chip).glitchNextRead(book.chipOffset(entry), bit);
}

}  // namespace Simulation
