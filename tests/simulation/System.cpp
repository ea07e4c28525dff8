#include "simulation/System.h"

#include <Hardware/GenericChipHam.h>
#include <Hardware/Umbra.h>

#include <cstring>

namespace Simulation {
namespace {

constexpr U32 entrySizes[] = {1, 2, 4, 8, 4, 3, 6, 12, 16, 4, 32};
constexpr U32 chipIds[] = {0, 3, 4, 0xffffffff};

U32 drawStride(Random& random, U32 entrySize) {
  switch (random.below(6)) {
    case 0:
      return entrySize + random.between(1, 5);
    case 1:
      return entrySize * random.between(2, 4);
    case 2:
      return 0x40;
    default:
      return entrySize;
  }
}

U32 drawEntries(Random& random) {
  const U32 kind = random.below(20);
  return kind < 4    ? random.between(1, 3)
         : kind < 19 ? random.between(4, 40)
                     : random.between(64, 200);
}

bool startsWith(const char* text, const char* start) {
  return std::strncmp(text, start, std::strlen(start)) == 0;
}

}  // namespace

System::System(Random& random, Journal& journal, Sabotage& sabotage)
    : ledger(journal),
      journal_(journal),
      sabotage_(sabotage),
      sinkBefore_(Zint::traceSinkIs(this)) {
  // The data path takes other ways while the finest levels are built.
  Hardware::umbraTrace().levelUpToIs(random.chance(12) ? 9 : 0);
  shadow = Hardware::hardwareShadowFactory(loop_.activity, loop_.clock);
  const U32 chips = random.between(2, 4);
  for (U32 i = 0; i < chips; ++i) makeChip(random);
  for (U32 i = 0; i < ledger.regions(); ++i) drawSettings(random, i);
}

System::~System() {
  reader_ = nullptr;
  shadow = nullptr;
  Hardware::umbraTrace().levelUpToIs(0);
  Zint::traceSinkIs(sinkBefore_);
}

void System::makeChip(Random& random) {
  const U32 number = chips();
  const U32 regions = random.between(1, 4);
  std::vector<Layout> layouts;
  U32 offset = 4 * random.below(8);
  for (U32 i = 0; i < regions; ++i) {
    Layout layout{
        format("chip%u.region%u", number, i), number, offset, 0, 0, 0, Way::chipAccess, 0};
    layout.entries = drawEntries(random);
    layout.entrySize = random.oneOf(entrySizes);
    layout.stride = drawStride(random, layout.entrySize);
    const U32 way = random.below(3);
    if (way == 1) {
      layout.way = Way::statusAccess;
      layout.ignored = static_cast<U8>(1u << random.below(8));
    } else if (way == 2 && layout.entrySize % 4 == 0 && layout.stride == layout.entrySize) {
      layout.way = Way::registers;
    }
    offset += layout.stride * layout.entries + random.below(16);
    offset = (offset + 3) / 4 * 4;
    layouts.push_back(layout);
  }
  chips_.push_back(std::make_unique<Chip>(number, offset + 0x100, ledger));
  ledger.addChip(chips_.back().get());
  if (random.chance(50)) {
    for (U32 i = 0; i < offset; ++i) chips_.back()->memory()[i] = random.byte();
  }
  registers_.push_back(Zint::makePtr<ChipRegisters>(*chips_.back()));
  for (const Layout& layout : layouts) makeRegion(random, layout);
}

void System::makeRegion(Random& random, const Layout& drawn) {
  Layout layout = drawn;
  Chip& onChip = chip(layout.chip);
  Hardware::ChipHam::Ptr ham;
  if (layout.way == Way::registers) {
    ham = Hardware::genericChipHamFactory(layout.name, registers_[layout.chip]);
  } else if (sabotage_.kind != Sabotage::none) {
    layout.way = Way::chipAccess;
    layout.ignored = 0;
    ham = Zint::makePtr<SabotagedAccess>(layout.name, onChip, layout.stride, interruption_,
                                         sabotage_);
  } else if (layout.way == Way::statusAccess) {
    ham = Zint::makePtr<StatusAccess>(layout.name, onChip, layout.stride, interruption_,
                                      layout.ignored);
  } else {
    ham = Zint::makePtr<ChipAccess>(layout.name, onChip, layout.stride, interruption_);
  }
  ledger.addRegion(layout);
  const Hardware::ChipMemory::Ptr made =
      Hardware::chipMemoryFactory(layout.name, address(ledger.regions() - 1, 0), layout.entries,
                                  layout.entrySize, layout.stride, ham);
  regions_.push_back(made);
  totalEntries_ += layout.entries;
  made->indirectCmdRegAddrIs(random.below(0x1000));
}

void System::drawSettings(Random& random, U32 number) {
  Book& book = ledger.book(number);
  Hardware::ChipMemory& cm = *regions_[number];
  book.readFromCache = random.chance(80);
  book.skipsHits = random.chance(70);
  book.logicalViews = random.chance(30);
  cm.readFromCacheIs(book.readFromCache);
  cm.skipWriteIfMatchesCacheIs(book.skipsHits);
  cm.allowsLogicalViewsIs(book.logicalViews);
  // Enabling comes first: the change of mode makes the store afresh.
  book.shadowEnabled = random.chance(95);
  cm.shadowEnabledIs(book.shadowEnabled);
  const U32 mode = random.below(10);
  book.mode = mode == 0 ? Mode::override_ : mode == 1 ? Mode::buffered_ : Mode::normal_;
  cm.modeIs(book.mode);
  book.auditEnabled = book.mode != Mode::override_ && random.chance(85);
  cm.auditEnabledIs(book.auditEnabled);
  shadow->chipMemoryIs(regions_[number]);
}

Hardware::ChipAddress System::address(U32 number, U32 entry) {
  const Layout& layout = ledger.book(number).layout;
  return {chipIds[layout.chip], firstOffset + layout.offset + layout.stride * entry};
}

void System::stateIs(State state) {
  ledger.stateIs(state, now());
  shadow->stateIs(state);
  if (reader_ == nullptr && shadow->auditReadRequest() != nullptr) {
    reader_ = Hardware::chipReaderFactory(loop_.activity, shadow->auditReadRequest(), loop_.clock,
                                          slice_, pause_);
  }
  if (shadow->state() != ledger.state()) journal_.broken(Rule::paced, "the state is another one");
}

void System::sliceIs(U32 entries, Zint::Seconds pause) {
  slice_ = entries;
  pause_ = pause;
  ledger.sliceIs(entries);
  if (reader_ == nullptr) return;
  reader_->maxEntriesPerReadIs(entries);
  reader_->readIntervalIs(pause);
}

void System::interruptAfter(std::function<void()> work, U32 after) {
  interruption_.after = after;
  interruption_.work = [this, work = std::move(work)] {
    // A client reads the chip by itself: no work for it.
    if (!sabotage_.inTurn) return;
    sabotage_.inTurn = false;
    ledger.beginInterruption();
    work();
    ledger.endInterruption();
    sabotage_.inTurn = true;
  };
}

void System::turnAt(Zint::Seconds time) {
  journal_.timeIs(time);
  ledger.beginTurn();
  sabotage_.inTurn = true;
  loop_.turnAt(time);
  sabotage_.inTurn = false;
  ledger.endTurn(time);
  if (ledger.hasPassEnded()) compared();
}

bool System::turnBefore(Zint::Seconds until) {
  const Zint::Seconds wake = loop_.activity->wakeTime();
  if (wake > until || journal_.isOver()) return false;
  turnAt(wake < now() ? now() : wake);
  return true;
}

void System::runFor(Zint::Seconds duration) {
  const Zint::Seconds until = now() + duration;
  while (turnBefore(until)) {
  }
  if (now() < until) loop_.clock->timeIs(until);
  journal_.timeIs(now());
}

void System::jumpFor(Zint::Seconds duration) {
  jumped_ += duration;
  turnAt(now() + duration);
}

void System::compared() {
  if (shadow->audits() != ledger.passes()) journal_.broken(Rule::paced, "passes are miscounted");
  for (U32 i = 0; i < ledger.regions(); ++i) {
    const Book& book = ledger.book(i);
    const Hardware::ChipMemory& cm = *regions_[i];
    const char* wrong = nullptr;
    if ((cm.shadow() != nullptr) != book.hasShadow()) {
      wrong = "the presence of its shadow";
    } else if (book.hasShadow() &&
               std::memcmp(cm.shadow()->data(), book.value.data(), book.bytes()) != 0) {
      wrong = "its shadow";
    }
    for (U32 e = 0; e < book.layout.entries && book.hasShadow() && wrong == nullptr; ++e) {
      if (cm.entryInitialized(e) != (book.known[e] != 0)) wrong = "what is known of its entries";
    }
    if (cm.registersFixed() != book.repairs) wrong = "the number of its repairs";
    if (cm.readCacheHits() != book.readHits || cm.writeCacheHits() != book.writeHits) {
      wrong = "the number of its hits";
    }
    if (wrong != nullptr) journal_.broken(Rule::answered, book.layout.name + ": wrong is " + wrong);
  }
}

void System::traceLine(const Zint::TraceLine& line) {
  journal_.recordTrace(line.level, line.text);
  if (line.level != 0) return;
  if (startsWith(line.text, "HardwareShadow::doStartAudit")) {
    ledger.startPass(now());
  } else if (startsWith(line.text, "HardwareShadow::doAuditChips")) {
    ledger.comparePass();
  } else if (startsWith(line.text, "Difference found in entry ")) {
    ledger.countDifference();
  }
}

}  // namespace Simulation
