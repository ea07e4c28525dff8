#include "driverlockstep/World.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace DriverLockstep {
namespace {

constexpr U64 spaceOfRegion = 0x1000;

}  // namespace

Plan::Plan(U64 seed) {
  Support::Random random(seed);
  chips = random.between(1, 2);
  const U32 count = random.between(1, 4);
  for (U32 i = 0; i < count; ++i) {
    constexpr U32 sizes[] = {1, 2, 4};
    Region region{};
    region.chip = random.below(chips);
    region.entries = random.oneIn(3) ? random.between(1, 4) : random.between(5, 24);
    region.entrySize = random.oneOf(sizes);
    region.skips = random.oneIn(2);
    region.serves = random.oneIn(2);
    region.audited = !random.oneIn(8);
    regions.push_back(region);
  }
  slice = random.between(1, 9);
  sliceInterval = random.oneIn(2) ? 0 : random.seconds(1, 20);
  passInterval = random.oneIn(2) ? 0 : random.seconds(1, 3000);
}

class World::Ham : public Hardware::ChipHam {
 public:
  Ham(const char* name, World& world, U32 chip) : ChipHam(name), world_(world), chip_(chip) {}

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    const U32 region = place(address);
    const U32 first = static_cast<U32>(address.value() % spaceOfRegion) / entrySize;
    Event event{.what = What::read, .region = region, .entry = first, .count = entries};
    event.answer = throws();
    const Absence absence = world_.faults[chip_].absence;
    if (absence != Absence::none && !event.answer) {
      event.data.assign(std::size_t{entrySize} * entries, absence == Absence::ones ? 0xff : 0);
      std::copy(event.data.begin(), event.data.end(), buffer);
    }
    if (event.answer) {
      world_.events.push_back(event);
      throw std::runtime_error("no answer");
    }
    bool isGlitch = false;
    for (U32 i = 0; i < entries && absence == Absence::none; ++i) {
      Bytes value = world_.chip_[region].at(first + i);
      if (world_.faults[chip_].glitches.erase({region, first + i}) != 0) {
        isGlitch = true;
        value[0] ^= 1;
      }
      std::copy(value.begin(), value.end(), buffer + std::size_t{entrySize} * i);
    }
    if (isGlitch) event.data.assign(buffer, buffer + std::size_t{entrySize} * entries);
    world_.events.push_back(event);
    world_.intrude();
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    const U32 region = place(address);
    const U32 first = static_cast<U32>(address.value() % spaceOfRegion) / entrySize;
    Event event{.what = What::write, .region = region, .entry = first, .count = entries};
    event.data.assign(buffer, buffer + std::size_t{entrySize} * entries);
    event.answer = throws();
    event.isLost = world_.faults[chip_].absence != Absence::none;
    world_.events.push_back(event);
    if (event.answer) throw std::runtime_error("no answer");
    for (U32 i = 0; i < entries; ++i) {
      const U8* from = event.data.data() + std::size_t{entrySize} * i;
      world_.writeChip(region, first + i, Bytes(from, from + entrySize));
    }
    world_.intrude();
  }

 private:
  static U32 place(const Hardware::ChipAddress& address) {
    return static_cast<U32>(address.value() / spaceOfRegion) - 1;
  }
  bool throws() {
    ChipFaults& faults = world_.faults[chip_];
    if (faults.vanishesAfter != ~0u && faults.vanishesAfter-- == 0) {
      faults.absence = Absence::ones;
    }
    if (faults.absence == Absence::throws) return true;
    return faults.throwsAfter != ~0u && faults.throwsAfter-- == 0;
  }

  World& world_;
  const U32 chip_;
};

// Its questions are events: they show where a slice ends.
class World::TestChip : public Driver::Chip {
 public:
  TestChip(const char* name, const Hardware::ChipHam::Ptr& ham, World& world, U32 number)
      : Chip(name, ham), world_(world), number_(number) {}

  bool isPresent() override {
    const Absence absence = world_.faults[number_].absence;
    world_.events.push_back(
        {.what = What::present, .region = number_, .answer = absence == Absence::none});
    if (absence == Absence::throws) throw std::runtime_error("no sentinel");
    return absence == Absence::none;
  }
  bool wasReset() override {
    const bool answer = std::exchange(world_.faults[number_].forgot, false);
    world_.events.push_back({.what = What::wasReset, .region = number_, .answer = answer});
    return answer;
  }

 private:
  World& world_;
  const U32 number_;
};

class World::Watch : public Driver::AuditedShadow::NotifieeConst {
 public:
  explicit Watch(World& world) : NotifieeConst(world.loop.activity, world.shadow), world_(world) {
    isNonReferencingIs(true);
  }
  void handleNotification(Zint::ActivityConfig* activity) override {
    // The first pass has no period, but entries; they may stay the same.
    if (attribute() == Driver::AuditedShadow::Id::passPeriods ||
        (attribute() == Driver::AuditedShadow::Id::passEntries && !hasBegun_)) {
      hasBegun_ = true;
      world_.events.push_back({.what = What::begin});
    }
    NotifieeConst::handleNotification(activity);
  }
  void onFinding(const Driver::Finding& finding) override {
    world_.events.push_back(event(What::finding, finding));
  }
  void onPass(const Driver::PassResult& result) override {
    world_.events.push_back({.what = What::pass, .pass = result});
  }
  bool allowsRepair(const Driver::Finding& finding) override {
    Event asked = event(What::veto, finding);
    const bool isVetoed = world_.vetoed.contains({asked.region, asked.entry});
    asked.answer = !isVetoed || world_.vetoThrows;
    asked.verdict = Driver::Verdict::repaired;
    world_.events.push_back(asked);
    if (isVetoed && world_.vetoThrows) throw std::runtime_error("no opinion");
    return !isVetoed;
  }

 private:
  Event event(What what, const Driver::Finding& finding) const {
    Event event{.what = what};
    event.region = world_.regionOf(*finding.chipMemory).value_or(99);
    event.entry = finding.entry;
    event.data.assign(finding.actual.begin(), finding.actual.end());
    event.expected.assign(finding.expected.begin(), finding.expected.end());
    event.verdict = finding.verdict;
    event.nature = finding.nature;
    return event;
  }

  World& world_;
  bool hasBegun_ = false;
};

World::World(const Plan& plan)
    : shadow(Driver::auditedShadowFactory(loop.activity, loop.clock)), plan_(plan) {
  faults.resize(plan.chips);
  std::vector<Hardware::ChipHam::Ptr> hams;
  for (U32 i = 0; i < plan.chips; ++i) {
    hams.push_back(Zint::makePtr<Ham>(i == 0 ? "ham0" : "ham1", *this, i));
    const Driver::Chip::Ptr chip =
        Zint::makePtr<TestChip>(i == 0 ? "chip0" : "chip1", hams.back(), *this, i);
    chip->restoresItselfIs(false);
    shadow->chipIs(chip);
    chips.push_back(chip);
  }
  for (U32 i = 0; i < plan.regions.size(); ++i) {
    const Plan::Region& drawn = plan.regions[i];
    const auto region = Hardware::chipMemoryFactory(
        "r" + std::to_string(i), Hardware::ChipAddress(spaceOfRegion * (i + 1)), drawn.entries,
        drawn.entrySize, drawn.entrySize, hams[drawn.chip]);
    region->shadowEnabledIs(true);
    region->skipWriteIfMatchesCacheIs(drawn.skips);
    region->readFromCacheIs(drawn.serves);
    region->auditEnabledIs(drawn.audited);
    shadow->chipMemoryIs(region);
    regions.push_back(region);
    chip_.emplace_back(drawn.entries, Bytes(drawn.entrySize, 0));
  }
  shadow->maxEntriesPerSliceIs(plan.slice);
  shadow->sliceIntervalIs(plan.sliceInterval);
  shadow->maxEntriesPerReplaySliceIs(plan.slice);
  shadow->replayIntervalIs(plan.sliceInterval);
  shadow->minIntervalBetweenAuditsIs(plan.passInterval);
  watch_ = Zint::makePtr<Watch>(*this);
  shadow->stateIs(Hardware::HardwareShadow::configured());
}

World::~World() {
  intrusion.reset();
  shadow->stateIs(Hardware::HardwareShadow::idle());
}

std::optional<U32> World::regionOf(const Hardware::ChipMemory& region) const {
  for (U32 i = 0; i < regions.size(); ++i) {
    if (regions[i].ptr() == &region) return i;
  }
  return std::nullopt;
}

Bytes World::shadowed(U32 region, U32 entry) const {
  const auto& buffer = regions[region]->shadow();
  const U32 size = plan_.regions[region].entrySize;
  const U8* at = buffer->data() + std::size_t{size} * entry;
  return Bytes(at, at + size);
}

bool World::bit(const Zint::Ptr<Hal::BufBase>& bitmap, U32 entry) {
  return ((bitmap->data()[entry >> 3] >> (entry & 7)) & 1) != 0;
}

void World::offer(U32 region, U32 entry, const Bytes& value) {
  Bytes data = value;
  shadow->shadowWriteAndCompareWithCache(regions[region], entry, data.data(),
                                         static_cast<U32>(data.size()));
}

bool World::writeChip(U32 region, U32 entry, const Bytes& value) {
  const ChipFaults& fault = faults[plan_.regions[region].chip];
  if (fault.absence != Absence::none) return false;
  if (!fault.stuck.contains({region, entry})) chip_[region][entry] = value;
  return true;
}

void World::intrude() {
  if (!intrusion || intrusion->after-- > 0) return;
  const Intrusion now = *std::exchange(intrusion, std::nullopt);
  Event event{.what = What::client, .region = now.region, .entry = now.entry};
  event.answer = now.reachesChip;
  event.data = now.value;
  if (regions[now.region]->shadow() != nullptr) offer(now.region, now.entry, now.value);
  if (now.reachesChip) event.isLost = !writeChip(now.region, now.entry, now.value);
  events.push_back(event);
}

void World::step() {
  const Zint::Seconds wake = loop.activity->wakeTime();
  if (wake > loop.clock->time() && wake != Zint::never) loop.clock->timeIs(wake);
  loop.turn();
}

}  // namespace DriverLockstep
