// The course of a run: bursts and quiet stretches, and the owner's changes.
#include "simulation/Driver.h"

#include <algorithm>

namespace Simulation {
namespace {

constexpr U32 minute = 60'000;  // in milliseconds
constexpr U32 hour = 60 * minute;

}  // namespace

template <std::size_t n>
void Driver::performOne(const Action (&actions)[n]) {
  U32 sum = 0;
  for (const Action& action : actions) sum += action.weight;
  U32 drawn = random_.below(sum);
  for (const Action& action : actions) {
    if (drawn < action.weight) return (this->*action.perform)();
    drawn -= action.weight;
  }
}

void Driver::act() {
  static constexpr Action actions[] = {
      {20, &Driver::writeOne},       {8, &Driver::writeSome},      {3, &Driver::writeLazily},
      {16, &Driver::readSome},       {1, &Driver::clearEntries},   {1, &Driver::writeBack},
      {12, &Driver::flipBit},        {1, &Driver::stickBit},       {1, &Driver::flipIgnoredBit},
      {2, &Driver::loseNextWrite},   {2, &Driver::glitchNextRead}, {2, &Driver::releaseBits},
      {20, &Driver::turnOnce},       {8, &Driver::waitAWhile},     {2, &Driver::changePace},
      {1, &Driver::pauseAudit},      {3, &Driver::resumeAudit},    {1, &Driver::toggleOverride},
      {2, &Driver::changeWhileIdle}, {5, &Driver::interruptPass},
  };
  performOne(actions);
}

void Driver::begin() {
  changePace();
  system_.stateIs(State::configured_);
  // Most regions are programmed as a whole before the audit begins.
  for (U32 region = 0; region < ledger_.regions(); ++region) {
    if (random_.chance(75)) writeAt(region, 0, ledger_.book(region).layout.entries);
  }
  resumeAudit();
}

void Driver::round() {
  changePace();
  const U32 actions = random_.between(6, 24);
  for (U32 i = 0; i < actions && !journal_.isOver(); ++i) act();
  if (ledger_.overrideHardware() && random_.chance(80)) toggleOverride();
  if (random_.chance(30)) releaseBits();
  if (random_.chance(85)) resumeAudit();
  stayQuiet();
}

// --- Time ---

// A few wake-ups, so that what follows falls between two slices of a pass.
void Driver::turnOnce() {
  const U32 turns = random_.between(1, 6);
  for (U32 i = 0; i < turns; ++i) system_.turnBefore(system_.now() + 600);
}

// What follows falls between two entries of a slice.
void Driver::interruptPass() {
  system_.interruptAfter([this] { actWithinPass(); }, random_.below(system_.totalEntries()));
  turnOnce();
}

void Driver::actWithinPass() {
  static constexpr Action actions[] = {
      {10, &Driver::writeOne},  {4, &Driver::writeSome},    {2, &Driver::writeLazily},
      {4, &Driver::readSome},   {6, &Driver::flipBit},      {1, &Driver::clearEntries},
      {1, &Driver::writeBack},  {1, &Driver::changePace},   {1, &Driver::toggleOverride},
      {1, &Driver::pauseAudit}, {1, &Driver::restartAudit},
  };
  journal_.record(Event::interruption);
  performOne(actions);
}

void Driver::restartAudit() {
  pauseAudit();
  resumeAudit();
}

// Up to two minutes, but not for very many passes.
void Driver::waitAWhile() {
  const Zint::Seconds duration = random_.seconds(1, 2 * minute);
  system_.runFor(std::min(duration, 10 * system_.shadow->minIntervalBetweenAudits()));
}

void Driver::stayQuiet() {
  const U32 kind = random_.below(20);
  if (kind < 2) {
    const Zint::Seconds duration =
        random_.seconds(minute, random_.chance(10) ? 48 * hour : 2 * hour);
    journal_.record(Event::clockJump, Journal::nowhere, 0, static_cast<U64>(duration));
    return system_.jumpFor(duration);
  }
  const Zint::Seconds interval = random_.seconds(5 * minute, 15 * minute);
  journal_.record(Event::intervalChanged, Journal::nowhere, 0, static_cast<U64>(interval));
  ledger_.intervalIs(interval);
  system_.shadow->minIntervalBetweenAuditsIs(interval);
  system_.runFor(random_.seconds(10 * minute, 50 * minute));
}

// --- Control ---

void Driver::changePace() {
  static constexpr U32 intervals[] = {500, 10'000, 30'000, minute, 2 * minute, 5 * minute};
  static constexpr U32 pauses[] = {0, 1, 20, 500, 2'000};
  const Zint::Seconds interval = random_.oneOf(intervals) / 1000.0;
  journal_.record(Event::intervalChanged, Journal::nowhere, 0, static_cast<U64>(interval));
  ledger_.intervalIs(interval);
  system_.shadow->minIntervalBetweenAuditsIs(interval);
  // From a pass in one slice to one in some twenty.
  const U32 slice =
      random_.chance(20) ? 10'000 : system_.totalEntries() / random_.between(1, 20) + 1;
  const Zint::Seconds pause = random_.oneOf(pauses) / 1000.0;
  journal_.record(Event::sliceChanged, Journal::nowhere, slice, static_cast<U64>(pause * 1000));
  system_.sliceIs(slice, pause);
}

void Driver::pauseAudit() {
  if (ledger_.state() != State::auditing_) return;
  journal_.record(Event::toIdle);
  system_.stateIs(State::idle_);
}

void Driver::resumeAudit() {
  if (ledger_.state() == State::unconfigured_) {
    journal_.record(Event::toConfigured);
    system_.stateIs(State::configured_);
  }
  if (ledger_.isStalled()) pauseAudit();
  if (ledger_.state() != State::idle_) return;
  journal_.record(Event::toAuditing);
  system_.stateIs(State::auditing_);
}

void Driver::toggleOverride() {
  const bool on = !ledger_.overrideHardware();
  journal_.record(on ? Event::overrideHardwareOn : Event::overrideHardwareOff);
  ledger_.overrideHardwareIs(on);
  system_.shadow->overrideHardwareIs(on);
}

void Driver::changeWhileIdle() {
  pauseAudit();
  if (ledger_.state() != State::unconfigured_ && random_.chance(25)) return reconfigure();
  const U32 changes = random_.between(1, 4);
  for (U32 i = 0; i < changes; ++i) {
    const U32 region = anyRegion();
    const Book& book = ledger_.book(region);
    static constexpr Mode modes[] = {Mode::normal_, Mode::normal_, Mode::buffered_,
                                     Mode::override_};
    switch (random_.below(6)) {
      case 0:
      case 1:
        changeMode(region, random_.oneOf(modes));
        if (random_.chance(70)) changeAudit(region, true);
        break;
      case 2:
      case 3:
        changeAudit(region, random_.chance(book.auditEnabled ? 60 : 100));
        break;
      case 4:
        changeShadow(region, random_.chance(book.shadowEnabled ? 80 : 100));
        break;
      default:
        changeSettings(region);
    }
    // Traffic continues during the pass.
    writeEntries(1);
    readSome();
  }
  if (random_.chance(80)) resumeAudit();
}

void Driver::changeMode(U32 region, Mode mode) {
  Book& book = ledger_.book(region);
  if (mode == book.mode) return;
  if (mode == Mode::override_ && book.auditEnabled) changeAudit(region, false);
  journal_.record(mode == Mode::normal_     ? Event::modeNormal
                  : mode == Mode::override_ ? Event::modeOverride
                                            : Event::modeBuffered,
                  region);
  // Back in normal mode the chip gets all that the shadow holds, which then starts anew.
  if (mode == Mode::normal_) ledger_.expectWriteBack(region, false);
  system_.region(region)->modeIs(mode);
  ledger_.checkNothingDue();
  book.mode = mode;
  book.resetStore();
}

void Driver::changeAudit(U32 region, bool on) {
  Book& book = ledger_.book(region);
  if (on == book.auditEnabled || book.mode == Mode::override_) return;
  journal_.record(on ? Event::auditOn : Event::auditOff, region);
  book.auditEnabled = on;
  if (ledger_.state() == State::idle_ && book.registered) {
    book.member = on;
    system_.shadow->chipMemoryAuditEnabledIs(system_.region(region), on);
  } else {
    system_.region(region)->auditEnabledIs(on);
  }
}

void Driver::changeShadow(U32 region, bool on) {
  Book& book = ledger_.book(region);
  if (on == book.shadowEnabled) return;
  journal_.record(on ? Event::shadowOn : Event::shadowOff, region);
  book.shadowEnabled = on;
  book.resetStore();
  system_.region(region)->shadowEnabledIs(on);
}

void Driver::changeSettings(U32 region) {
  Book& book = ledger_.book(region);
  book.readFromCache = random_.chance(80);
  book.skipsHits = random_.chance(70);
  book.logicalViews = random_.chance(30);
  system_.region(region)->readFromCacheIs(book.readFromCache);
  system_.region(region)->skipWriteIfMatchesCacheIs(book.skipsHits);
  system_.region(region)->allowsLogicalViewsIs(book.logicalViews);
}

void Driver::reconfigure() {
  journal_.record(Event::toUnconfigured);
  system_.stateIs(State::unconfigured_);
  const U32 changes = random_.between(1, 3);
  for (U32 i = 0; i < changes; ++i) {
    const U32 region = anyRegion();
    Book& book = ledger_.book(region);
    if (!book.registered) {
      journal_.record(Event::regionAdded, region);
      book.registered = true;
      system_.shadow->chipMemoryIs(system_.region(region));
    } else if (random_.chance(60)) {
      changeAudit(region, !book.auditEnabled);
    } else {
      journal_.record(Event::regionRemoved, region);
      book.registered = false;
      check(Rule::answered,
            system_.shadow->chipMemoryDel(system_.address(region, 0)) == system_.region(region),
            "another region was removed");
    }
    writeEntries(1);
  }
  if (random_.chance(50)) waitAWhile();
  if (random_.chance(90)) resumeAudit();
}

void Driver::end() {
  for (U32 i = 0; i < system_.chips(); ++i) system_.chip(i).endFaults();
  system_.interruptionDel();
  if (ledger_.overrideHardware()) toggleOverride();
  changePace();
  pauseAudit();
  resumeAudit();
  if (ledger_.state() == State::auditing_) {
    const U32 wanted = ledger_.passes() + 2;
    while (ledger_.passes() < wanted && system_.turnBefore(system_.now() + 1000)) {
    }
    check(Rule::paced, journal_.isOver() || ledger_.passes() == wanted, "the passes ceased");
    ledger_.checkSettled();
  }
  system_.compared();
}

}  // namespace Simulation
