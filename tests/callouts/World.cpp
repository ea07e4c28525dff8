#include "callouts/World.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace CallOuts {
namespace {

// The bits of the masked table that are not compared.
constexpr U32 maskedBits = 0x000000ff;
constexpr U32 volatileEntry = 12;
constexpr U32 sentinelAddress = 0x10;
constexpr U32 sentinelValue = 0x600d600d;

std::span<const U8> bytesOf(const U32& value) {
  return {reinterpret_cast<const U8*>(&value), sizeof value};
}

// Forwards every notification of its notifier.
template <class Base>
class Watch : public Base {
 public:
  template <class Object>
  Watch(World& world, const char* place, const Zint::Ptr<Object>& object)
      : Base(world.activity, object), world_(world), place_(place) {
    this->isNonReferencingIs(true);
  }
  void handleNotification(Zint::ActivityConfig* activity) override {
    world_.calls.out(place_);
    Base::handleNotification(activity);
  }

 protected:
  World& world_;

 private:
  const char* const place_;
};

class ShadowWatch : public Watch<AuditedShadow::NotifieeConst> {
 public:
  ShadowWatch(World& world, const AuditedShadow::Ptr& shadow)
      : Watch(world, "an attribute of the shadow", shadow) {}
  void onFinding(const Driver::Finding& finding) override {
    world_.calls.out("onFinding");
    sum_ += finding.expected[0] + finding.actual[0] + finding.chipMemory->entries();
    sum_ += finding.chip->absences();
  }
  bool allowsRepair(const Driver::Finding& finding) override {
    world_.calls.out("allowsRepair");
    sum_ += finding.expected[0] + finding.actual[0] + finding.chipMemory->entries();
    return true;
  }
  void onPass(const Driver::PassResult& result) override {
    world_.calls.out("onPass");
    sum_ += result.entries;
  }
  void onChipMemory(const ChipAddress&) override { world_.calls.out("onChipMemory"); }

 private:
  U64 sum_ = 0;  // what the notifications refer to must be there afterwards
};

class BoardWatch : public Watch<Driver::AlarmBoard::NotifieeConst> {
 public:
  BoardWatch(World& world, const Driver::AlarmBoard::Ptr& board)
      : Watch(world, "an attribute of the board", board) {}
  void onAlarm(Zint::String8) override { world_.calls.out("onAlarm"); }
  void onRule(Zint::String8) override { world_.calls.out("onRule"); }
};

template <class Base, class Object>
Zint::Ptr<Zint::NotifieeConst> watchOf(World& world, const char* place,
                                       const Zint::Ptr<Object>& object) {
  return Zint::makePtr<Watch<Base>>(world, place, object);
}

}  // namespace

// --- What the layer calls ---

void CountedHam::requireAnswer() const {
  if (isAway) throw std::runtime_error("no answer");
}

void CountedHam::doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) {
  calls_.out("doRead");
  requireAnswer();
  std::memcpy(buffer, reinterpret_cast<const U8*>(words_.data()) + address.value(),
              std::size_t{entrySize} * entries);
  if (transient >= address.value() && transient < address.value() + U64{entrySize} * entries) {
    buffer[transient - address.value() + 2] ^= 0x40;
    transient = ~U64{0};
  }
  calls_.out("doRead, at its end");
}

void CountedHam::doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) {
  calls_.out("doWrite");
  requireAnswer();
  for (U32 i = 0; i < entries; ++i) {
    const U64 at = address.value() + U64{entrySize} * i;
    if (at == stuck) continue;
    std::memcpy(reinterpret_cast<U8*>(words_.data()) + at, buffer + std::size_t{entrySize} * i,
                entrySize);
  }
  calls_.out("doWrite, at its end");
}

bool ComparingHam::doCompare(U8* a, U8* b, U32 bytes) const {
  calls_.out("doCompare");
  return ChipHam::doCompare(a, b, bytes);
}
bool ComparingHam::doReadToCache(U8* destination, U8* source, U32 bytes) const {
  calls_.out("doReadToCache");
  return ChipHam::doReadToCache(destination, source, bytes);
}
bool ComparingHam::doWriteToCache(U8* destination, U8* source, U32 bytes) {
  calls_.out("doWriteToCache");
  return ChipHam::doWriteToCache(destination, source, bytes);
}
bool ComparingHam::doReadFromCache(U8* destination, U8* source, U32 bytes) const {
  calls_.out("doReadFromCache");
  return ChipHam::doReadFromCache(destination, source, bytes);
}

bool CountedChip::holds(const ChipMemory& region) const {
  world_.calls.out("holds");
  return Chip::holds(region);
}
bool CountedChip::isPresent() {
  world_.calls.out("isPresent");
  return Chip::isPresent();
}
bool CountedChip::wasReset() {
  world_.calls.out("wasReset");
  const bool wasReset = std::exchange(world_.isResetPending, false);
  return wasReset;
}

void QuietTrace::traceLine(const Zint::TraceLine& line) {
  if (line.level != 0 || std::string_view(line.handle) != "Zint" ||
      !std::string_view(line.text).starts_with("exception in ")) {
    return;
  }
  if (exceptions++ == 0) (void)std::snprintf(first, sizeof first, "%s", line.text);
}

// --- Bringing it up ---

Hardware::ChipHam::Ptr World::hamOf(U32 table) const {
  return Hardware::ChipHam::Ptr(table < compared ? hams[0] : hams[1]);
}
CountedHam& World::registersOf(U32 table) const { return *hams[table < compared ? 0 : 1]; }

void World::makeRegions() {
  constexpr const char* names[tables] = {"masked", "plain", "compared", "held"};
  if (hams[0] == nullptr) {
    hams[0] = Zint::makePtr<CountedHam>("ham", calls);
    hams[0]->word(sentinelAddress) = sentinelValue;
  }
  if (hams[1] == nullptr) hams[1] = Zint::makePtr<ComparingHam>("comparing", calls);
  for (U32 t = 0; t < tables; ++t) {
    if (regions[t] != nullptr) continue;
    const ChipMemory::Ptr region = Hardware::chipMemoryFactory(
        names[t], ChipAddress(0x100 + 0x100 * t), entries, 4, 4, hamOf(t));
    region->shadowEnabledIs(true);
    region->auditEnabledIs(true);
    region->readFromCacheIs(true);
    region->skipWriteIfMatchesCacheIs(true);
    regions[t] = region;
  }
  if (policies[0] == nullptr) {
    const Policy::Ptr policy = Driver::policyFactory(regions[masked]);
    policy->maskIs(bytesOf(maskedBits), Driver::Rewrite::kept);
    policy->ruleIs(volatileEntry, 1, Driver::Rule::volatile_);
    policy->ruleIs(13, 1, Driver::Rule::noRead);
    policy->ruleIs(14, 1, Driver::Rule::detectOnly);
    policy->onceIs(3, 1, true);
    policy->unwrittenIs(Driver::Unwritten::baseline);
    policies[0] = policy;
  }
  if (policies[1] == nullptr) {
    const Policy::Ptr policy = Driver::policyFactory(regions[compared]);
    policy->maskIs(4, 2, bytesOf(maskedBits), Driver::Rewrite::shadow);
    policy->unwrittenIs(Driver::Unwritten::defaults);
    policies[1] = policy;
  }
}

void World::makeShadow() {
  if (shadow == nullptr) {
    const AuditedShadow::Ptr made = Driver::auditedShadowFactory(activity, clock);
    made->maxEntriesPerSliceIs(10);
    made->sliceIntervalIs(0.01);
    made->maxEntriesPerReplaySliceIs(10);
    made->replayIntervalIs(0.01);
    made->minIntervalBetweenAuditsIs(1);
    made->rereadsIs(true);
    made->verifiesIs(true);
    made->quarantineRepairsIs(3);
    shadow = made;
  }
  if (chip == nullptr) {
    const Zint::Ptr<CountedChip> made = Zint::makePtr<CountedChip>("switch", hams[0], *this);
    made->sentinelIs(ChipAddress(sentinelAddress), bytesOf(sentinelValue));
    chip = made;
  }
}

void World::addWatches() {
  if (watches[0] == nullptr) watches[0] = Zint::makePtr<ShadowWatch>(*this, shadow);
  if (watches[1] == nullptr) {
    watches[1] = watchOf<Chip::NotifieeConst>(*this, "an attribute of the chip", Chip::Ptr(chip));
  }
  if (watches[2] == nullptr) {
    watches[2] =
        watchOf<ChipMemory::NotifieeConst>(*this, "an attribute of a region", regions[compared]);
  }
  if (watches[3] == nullptr) {
    watches[3] = watchOf<Policy::NotifieeConst>(*this, "an attribute of a policy", policies[0]);
  }
  if (watches[4] == nullptr) {
    watches[4] =
        watchOf<ChipAccess::NotifieeConst>(*this, "an attribute of an access", accesses[masked]);
  }
  if (watches[5] == nullptr) {
    watches[5] =
        watchOf<ChipWriteRequest::NotifieeConst>(*this, "an attribute of the request", request);
  }
  if (watches[6] == nullptr) {
    watches[6] = watchOf<ChipWriter::NotifieeConst>(*this, "an attribute of the writer", writer);
  }
  if (watches[7] == nullptr) watches[7] = Zint::makePtr<BoardWatch>(*this, board);
  if (watches[8] == nullptr) {
    watches[8] =
        watchOf<ChipMemory::NotifieeConst>(*this, "an attribute of a region", regions[held]);
  }
}

void World::makeRest() {
  for (U32 t = 0; t < tables; ++t) {
    if (accesses[t] == nullptr) accesses[t] = Driver::chipAccessFactory(shadow, regions[t]);
  }
  if (request == nullptr) {
    const ChipWriteRequest::Ptr made = Driver::chipWriteRequestFactory("replay");
    made->chipMemoryIs(regions[masked]);
    made->newGroup(0.5);
    made->chipMemoryIs(regions[compared]);
    made->chipMemoryIs(regions[held]);
    made->leavesBufferedIs(true);
    request = made;
  }
  if (writer == nullptr) {
    const ChipWriter::Ptr made =
        Driver::chipWriterFactory(activity, shadow, request, clock, 4, 8, 0.01);
    made->verifiesIs(true);
    writer = made;
  }
  if (board == nullptr) {
    const Driver::AlarmBoard::Ptr made = Driver::alarmBoardFactory("alarms", activity, clock);
    made->ruleIs(Driver::alarmRuleFactory("often", Driver::AlarmRule::entry_, 1, 60, 1));
    made->ruleIs(Driver::alarmRuleFactory("many", Driver::AlarmRule::manyAtOnce_, 2, 60, 1));
    board = made;
  }
  if (alarms == nullptr) alarms = Driver::alarmWatchFactory(activity, shadow, board);
}

void World::addGovernor() {
  if (shadow == nullptr) return;
  if (governor == nullptr) {
    const Driver::Governor::Ptr made = Driver::governorFactory(activity, shadow);
    made->periodIs(2);
    made->shareIs(0.5);
    made->turnBoundIs(0.001);
    governor = made;
  }
  if (watches[9] == nullptr) {
    watches[9] =
        watchOf<Driver::Governor::NotifieeConst>(*this, "an attribute of the governor", governor);
  }
}

void World::bringUp() {
  makeRegions();
  makeShadow();
  makeRest();
  addWatches();
  const AuditedShadow::Ptr kept = shadow;
  kept->stateIs(HardwareShadow::unconfigured());
  for (const ChipMemory::Ptr& region : regions) {
    if (region != nullptr) kept->chipMemoryIs(ChipMemory::Ptr(region));
  }
  for (const Policy::Ptr& policy : policies) {
    if (policy != nullptr) kept->policyIs(Policy::Ptr(policy));
  }
  if (chip != nullptr) kept->chipIs(Chip::Ptr(chip));
  kept->stateIs(HardwareShadow::configured());
  kept->stateIs(HardwareShadow::auditing());
}

// --- What a driver does ---

void World::write(Table table, U32 first, U32 count, U32 value) {
  U32 values[entries];
  for (U32 i = 0; i < count; ++i) {
    values[i] = value + 0x100 * i;
    written[table][first + i] = values[i];
    isWritten[table][first + i] = true;
  }
  if (const Zint::Ptr<ChipAccess> access = accesses[table]; access != nullptr) {
    access->write(first, std::span<const U32>(values, count));
  }
}

void World::read(Table table, U32 first, U32 count) {
  U32 values[entries];
  if (const Zint::Ptr<ChipAccess> access = accesses[table]; access != nullptr) {
    access->read(first, std::span<U32>(values, count));
  }
}

void World::turn() {
  const Zint::Ptr<Zint::ActivityConfig> kept = activity, other = otherActivity;
  Zint::Seconds wake = kept->wakeTime();
  if (other != nullptr) wake = std::min(wake, other->wakeTime());
  if (otherClock != nullptr) {
    // A clock that is moved by hand wakes nobody else's loop.
    clock->timeIs(clock->uncounted() + 0.25);
    otherClock->timeIs(std::max(otherClock->uncounted(), clock->uncounted()));
  } else if (wake != Zint::never && wake > clock->uncounted()) {
    clock->timeIs(wake);
  }
  kept->turn();
  if (other != nullptr) other->turn();
}

void World::pass(U32 passes) {
  if (shadow == nullptr) return;
  const U32 before = shadow->audits();
  for (U32 turns = 0; turns < 150; ++turns) {
    if (shadow == nullptr || shadow->audits() - before >= passes) return;
    if (activity->wakeTime() == Zint::never && otherActivity == nullptr && otherClock == nullptr) {
      return;
    }
    turn();
  }
}

void World::damage(Table table, U32 entry, U32 bits) {
  registersOf(table).word(0x100 + 0x100 * table + 4 * entry) ^= bits;
}

// --- What has to hold ---

std::string World::broken() const {
  const auto errors = [](const auto& object) {
    return object != nullptr && object->zintAuditErrors() != 0;
  };
  for (const ChipMemory::Ptr& cm : regions) {
    if (errors(cm)) return cm->name().bytes() + ": errors seen by itself";
    if (cm == nullptr) continue;
    const bool isStored = cm->shadow() != nullptr;
    if ((cm->dirty() != nullptr) != isStored || (cm->initialized() != nullptr) != isStored) {
      return cm->name().bytes() + ": a part of the store is missing";
    }
  }
  if (errors(shadow)) return "the shadow: errors seen by itself";
  if (errors(writer)) return "the writer: errors seen by itself";
  if (errors(board)) return "the board: errors seen by itself";
  return "";
}

std::string World::patrolsByItself() {
  if (shadow == nullptr || shadow->state() != HardwareShadow::auditing() || shadow->paused() ||
      shadow->overrideHardware() || shadow->clock() == nullptr) {
    return "";
  }
  // Passes that begin: one over a region that cannot be audited is never complete.
  U32 begun = 0;
  Zint::Seconds last = shadow->lastAuditStartTime();
  for (U32 turns = 0; turns < 400 && begun < 4; ++turns) {
    turn();
    if (shadow == nullptr) return "";
    if (shadow->lastAuditStartTime() != last) ++begun;
    last = shadow->lastAuditStartTime();
  }
  if (begun < 2) {
    return "no pass begins by itself: " + std::string(shadow->patrolReason().bytes());
  }
  const std::string reason = shadow->patrolReason().bytes();
  return reason.empty() ? "" : "the patrol does not go on: " + reason;
}

void World::repairSetUp() {
  if (shadow == nullptr) return;
  const AuditedShadow::Ptr kept = shadow;
  kept->overrideHardwareIs(false);
  kept->stateIs(HardwareShadow::unconfigured());
  for (const ChipMemory::Ptr& cm : regions) {
    if (cm == nullptr) continue;
    if (cm->mode() != ChipMemory::normal()) cm->modeIs(ChipMemory::normal());
    if (cm->entries() != entries) cm->entriesIs(entries);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(cm->hardware() != nullptr);
    cm->auditEnabledIs(true);
    kept->chipMemoryIs(cm);
  }
  if (kept->clock() == nullptr) kept->clockIs(clock);
  kept->pausedIs(false);
  if (chip != nullptr) {
    chip->restoresItselfIs(true);
    if (chip->isRestoring() && kept->chips().empty()) chip->doRestored();
  }
  if (request != nullptr) request->stateIs(Zint::Request::stop_);
  kept->stateIs(HardwareShadow::configured());
  kept->stateIs(HardwareShadow::auditing());
}

std::string World::differs(bool comparesClients) {
  if (shadow == nullptr) return "";
  const AuditedShadow::Ptr kept = shadow;
  const U32 before = kept->audits();
  for (U32 turns = 0; turns < 1500 && kept->audits() - before < 5; ++turns) turn();
  if (kept->audits() - before < 5) {
    return "the passes are not complete: " + std::string(kept->patrolReason().bytes());
  }
  char text[120];
  for (U32 t = 0; t < tables; ++t) {
    const ChipMemory::Ptr cm = regions[t];
    if (cm == nullptr || cm->shadow() == nullptr) continue;
    const Policy::Ptr policy = kept->policy(cm);
    for (U32 e = 0; e < entries; ++e) {
      if (policy != nullptr && !isRewritten(policy->rule(e))) continue;
      if (policy != nullptr && policy->unwritten() == Driver::Unwritten::defaults &&
          !kept->isWritten(cm, e)) {
        continue;  // a difference is reported alone
      }
      U32 bits = ~0u, stored;
      if (policy != nullptr && policy->mask(e) != nullptr) {
        std::memcpy(&bits, policy->mask(e), 4);
        bits = ~bits;
      }
      std::memcpy(&stored, cm->shadow()->data() + 4 * e, 4);
      const U32 actual = registersOf(t).word(cm->entryAddress(e).value());
      const auto wrong = [&](const char* what) {
        (void)std::snprintf(text, sizeof text, "%s entry %u: %s: chip %x, shadow %x, client %x",
                            cm->name().c_str(), e, what, actual, stored, written[t][e]);
        return std::string(text);
      };
      if (kept->isQuarantined(cm, e)) continue;
      if (cm->entryInitialized(e) && ((stored ^ actual) & bits) != 0) return wrong("not repaired");
      if (kept->hasOpenFinding(cm, e)) return wrong("an open finding");
      if (!comparesClients || !isWritten[t][e]) continue;
      if (((written[t][e] ^ actual) & bits) != 0) return wrong("a lost write");
      if (!kept->isWritten(cm, e)) return wrong("a write that is forgotten");
    }
  }
  return "";
}

}  // namespace CallOuts
