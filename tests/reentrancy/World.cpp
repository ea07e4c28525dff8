// The world: its set-up, what causes each callback, and the proof that it works.
#include "reentrancy/World.h"

#include <Zint/GenericIf.h>
#include <gtest/gtest.h>

#include <cstring>

namespace Reentrancy {
namespace {

constexpr U32 entries = 8;
constexpr U64 targetAddress = 0x1000;

}  // namespace

// --- User code ---

void ActingHam::report(Callback place) const {
  if (name() == "target") world_.actAt(place);
}

void ActingHam::doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 count) {
  report(Callback::HamRead);
  world_.chip.read(address.value(), buffer, entrySize * count);
  ++calls_;
}

void ActingHam::doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 count) {
  report(Callback::HamWrite);
  world_.chip.write(address.value(), buffer, entrySize * count);
  ++calls_;
}

bool ActingHam::doCompare(U8* a, U8* b, U32 bytes) const {
  report(Callback::HamCompare);
  ++calls_;
  return ChipHam::doCompare(a, b, bytes);
}

bool ActingHam::doWriteToCache(U8* to, U8* from, U32 bytes) {
  report(Callback::HamStore);
  ++calls_;
  return ChipHam::doWriteToCache(to, from, bytes);
}

void ActingShadow::doFixBadRegister(const ChipMemory::Ptr& region, U32 entry, U8* data) {
  world_.actAt(Callback::Repair);
  HardwareShadow::doFixBadRegister(region, entry, data);
}

void ActingNotifiee::recordNotification(Callback callback) {
  world_.log.push_back(name_);
  if (name_ == "self") world_.actAt(callback);
  ++notifications_;
}

void ActingNotifiee::recordNotification() {
  world_.log.push_back(name_);
  ++notifications_;
}

namespace {

class RegionNotifiee : public ChipMemory::NotifieeConst, public ActingNotifiee {
 public:
  RegionNotifiee(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, world.target), ActingNotifiee(world, name) {}
  void handleNotification(Zint::ActivityConfig*) override {
    if (attribute() == ChipMemory::Id::mode) return recordNotification(Callback::RegionAttribute);
    if (attribute() == ChipMemory::Id::shadowEnabled) return recordNotification(Callback::ByName);
    if (attribute() == ChipMemory::Id::indirectCmdRegAddr) recordNotification();
  }
};

class ShadowNotifiee : public HardwareShadow::NotifieeConst, public ActingNotifiee {
 public:
  ShadowNotifiee(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const HardwareShadow>(world.shadow)),
        ActingNotifiee(world, name) {}
  void onState() override { recordNotification(Callback::ShadowState); }
  void onMinIntervalBetweenAudits() override { recordNotification(); }
};

class RequestNotifiee : public ChipReadRequest::NotifieeConst, public ActingNotifiee {
 public:
  RequestNotifiee(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity,
                      Zint::Ptr<const ChipReadRequest>(world.shadow->auditReadRequest())),
        ActingNotifiee(world, name) {}
  void onChipMemory(const ChipAddress&) override { recordNotification(Callback::RequestRegions); }
  void onGeneration() override { recordNotification(); }
};

class ReaderNotifiee : public Hardware::ChipReader::NotifieeConst, public ActingNotifiee {
 public:
  ReaderNotifiee(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const Hardware::ChipReader>(world.reader)),
        ActingNotifiee(world, name) {}
  void onEntriesRead() override { recordNotification(Callback::ReaderProgress); }
  void onReadInterval() override { recordNotification(); }
};

class DirectoryNotifiee : public ChipMemoryBogon::NotifieeConst, public ActingNotifiee {
 public:
  DirectoryNotifiee(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const ChipMemoryBogon>(world.directory)),
        ActingNotifiee(world, name) {}
  void onChipMemory(Zint::String8) override { recordNotification(Callback::DirectoryMember); }
};

class TimeNotifiee : public Zint::Clock::NotifieeConst, public ActingNotifiee {
 public:
  TimeNotifiee(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const Zint::Clock>(world.loop.clock)),
        ActingNotifiee(world, name) {
    timeMinIs(0.0);
  }
  void onTime() override { recordNotification(Callback::ClockTime); }
};

class EndNotifiee : public ChipMemoryBogon::NotifieeConst, public ActingNotifiee {
 public:
  EndNotifiee(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const ChipMemoryBogon>(world.directory)),
        ActingNotifiee(world, name) {
    isNonReferencingIs(true);
  }
  void onIsNondestructing() override { recordNotification(Callback::EntityEnd); }
};

}  // namespace

// --- Set-up ---

World::World(Callback called) : callback(called) {
  directory = Hardware::chipMemoryBogonFactory("switch");
  target = makeRegion("target", targetAddress);
  ham = Zint::ptrCast<ActingHam>(target->chipHam());
  second = makeRegion("second", 0x2000);
  third = makeRegion("third", 0x100003000);
  third->auditEnabledIs(false);
  shadow = Zint::makePtr<ActingShadow>(*this, loop);
  configure();
  prepare();
  earlier = newNotifiee("earlier");
  self = newNotifiee("self");
  later = newNotifiee("later");
  log.clear();
}

World::~World() {
  pending_.clear();
  iterator.reset();
}

ChipMemory::Ptr World::makeRegion(const char* name, U64 address) {
  Hardware::ChipHam::Ptr access;
  if (const ChipMemory::Ptr held = directory->chipMemory(name); held != nullptr) {
    access = held->chipHam();
  } else {
    access = Zint::makePtr<ActingHam>(name, *this);
  }
  const ChipMemory::Ptr region =
      directory->chipMemoryIs(name, ChipAddress(address), entries, 4, 4, access);
  region->modeIs(ChipMemory::normal());
  region->shadowEnabledIs(true);
  region->auditEnabledIs(true);
  return region;
}

// Registers the three regions, and gives the audit a reader.
void World::configure() {
  for (const ChipMemory::Ptr& region : {target, second, third}) shadow->chipMemoryIs(region);
  shadow->stateIs(HardwareShadow::configured());
  if (reader == nullptr) {
    reader = Zint::makePtr<ActingReader>(loop, shadow->auditReadRequest());
  } else {
    reader->requestIs(shadow->auditReadRequest());
    reader->clockIs(Zint::Ptr<const Zint::Clock>(loop.clock));
  }
  for (U32 e = 0; e < entries; ++e) write(e, 0xa0 + e);
}

Zint::Ptr<Zint::NotifieeConst> World::newNotifiee(const std::string& name) {
  switch (callback) {
    case Callback::ShadowState:
      return Zint::makePtr<ShadowNotifiee>(*this, name);
    case Callback::RequestRegions:
      return Zint::makePtr<RequestNotifiee>(*this, name);
    case Callback::ReaderProgress:
      return Zint::makePtr<ReaderNotifiee>(*this, name);
    case Callback::DirectoryMember:
      return Zint::makePtr<DirectoryNotifiee>(*this, name);
    case Callback::ClockTime:
      return Zint::makePtr<TimeNotifiee>(*this, name);
    case Callback::EntityEnd:
      return Zint::makePtr<EndNotifiee>(*this, name);
    default:
      return Zint::makePtr<RegionNotifiee>(*this, name);
  }
}

// --- The callbacks ---

// What must be so before the callback can be caused.
void World::prepare() {
  switch (callback) {
    case Callback::RequestRegions:
      return shadow->stateIs(HardwareShadow::unconfigured());
    case Callback::ReaderProgress:
    case Callback::HamRead:
    case Callback::HamCompare:
      return shadow->stateIs(HardwareShadow::auditing());
    case Callback::Repair:
      shadow->stateIs(HardwareShadow::auditing());
      turn();  // the pass has begun: what it finds from now on was not written during it
      onChipIs(2, 0);
      return onChipIs(5, 0);
    case Callback::HamWrite:
      target->modeIs(ChipMemory::buffered());
      write(2, 0xb2);
      return;
    default:
      return;
  }
}

void World::trigger() {
  switch (callback) {
    case Callback::RegionAttribute:
      return target->modeIs(ChipMemory::buffered());
    case Callback::ShadowState:
      return shadow->stateIs(HardwareShadow::auditing());
    case Callback::RequestRegions:
      return shadow->stateIs(HardwareShadow::configured());
    case Callback::DirectoryMember:
      directory->chipMemoryIs("extra", ChipAddress(0x9000), entries, 4, 4, second->chipHam());
      return;
    case Callback::EntityEnd:
      directory = nullptr;
      return;
    case Callback::HamWrite:
      return target->modeIs(ChipMemory::normal());
    case Callback::HamStore: {
      U32 values[] = {1, 2, 3};
      shadow->shadowWriteAndCompareWithCache(target, 4, reinterpret_cast<U8*>(values), 12);
      return;
    }
    case Callback::IteratorBody:
      iterator.emplace(directory->chipMemoryIterator());
      while (iterator && *iterator) {
        ++visited;
        actAt(Callback::IteratorBody);
        if (iterator) ++*iterator;
      }
      return;
    case Callback::ByName:
      return Zint::GenericIf_(target).attributeIs("shadowEnabled", "false");
    default:
      return turn(8);
  }
}

void World::run(const Actions& actions) {
  log.clear();
  trace.full.clear();
  acted_ = false;
  pending_ = actions;
  trigger();
  turn(8);
}

void World::actAt(Callback place) {
  if (place != callback || pending_.empty()) return;
  log.emplace_back("!");
  acted_ = true;
  if (shadow != nullptr) auditsBefore = shadow->audits();
  for (Action action : std::exchange(pending_, {})) perform(*this, action);
}

void World::turn(int times) {
  for (; times > 0; --times) loop.turnAt(loop.clock->time() + 1);
}

void World::probe() {
  ++probes_;
  switch (callback) {
    case Callback::ShadowState:
      if (shadow != nullptr) shadow->minIntervalBetweenAuditsIs(0.001 * probes_);
      return;
    case Callback::RequestRegions:
      if (shadow != nullptr && shadow->auditReadRequest() != nullptr) {
        shadow->auditReadRequest()->generationIs(1000u + static_cast<U32>(probes_));
      }
      return;
    case Callback::ReaderProgress:
      if (reader != nullptr) reader->readIntervalIs(0.5 + probes_);
      return;
    case Callback::DirectoryMember:
      if (directory != nullptr) {
        directory->chipMemoryIs(("probe" + std::to_string(probes_)).c_str(),
                                ChipAddress(0xa000u + 0x100u * static_cast<U32>(probes_)), 4, 4, 4,
                                nullptr);
      }
      return;
    case Callback::ClockTime:
      for (const auto& ear : {earlier, self, later, added}) {
        auto* time = dynamic_cast<Zint::Clock::NotifieeConst*>(ear.ptr());
        if (time != nullptr && time->isRegisteredNotifiee()) time->timeMinIs(0.0);
      }
      return turn();
    case Callback::EntityEnd:
      return;  // it is destroyed
    default:
      if (target != nullptr) target->indirectCmdRegAddrIs(static_cast<U32>(probes_));
  }
}

// --- The proof ---

bool World::write(U32 entry, U32 value) {
  const bool done =
      shadow->shadowWriteAndCompareWithCache(target, entry, reinterpret_cast<U8*>(&value), 4);
  if (!done) onChipIs(entry, value);
  return done;
}

U32 World::onChip(U32 entry) {
  U32 value = 0;
  chip.read(targetAddress + 4 * entry, reinterpret_cast<U8*>(&value), sizeof value);
  return value;
}

void World::onChipIs(U32 entry, U32 value) {
  chip.write(targetAddress + 4 * entry, reinterpret_cast<U8*>(&value), sizeof value);
}

void World::expectWorking() {
  pending_.clear();
  iterator.reset();
  if (directory == nullptr) directory = Hardware::chipMemoryBogonFactory("switch");
  if (shadow == nullptr) shadow = Zint::makePtr<ActingShadow>(*this, loop);
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->clockIs(Zint::Ptr<const Zint::Clock>(loop.clock));
  // A region that the client itself put into the audit's request.
  if (shadow->auditReadRequest() != nullptr) shadow->auditReadRequest()->chipMemoryDelAll();
  target = makeRegion("target", targetAddress);
  second = makeRegion("second", 0x2000);
  third = makeRegion("third", 0x100003000);
  configure();
  ASSERT_EQ(shadow->state(), HardwareShadow::idle());
  ASSERT_EQ(shadow->chipMemoryEntriesUnderAudit(), 24u);
  ASSERT_EQ(shadow->findChipMemory(ChipAddress(targetAddress + 12), 4), target);

  const auto passes = [this](U32 wanted) {
    const U32 before = shadow->audits();
    for (int i = 0; i < 100 && shadow->audits() - before < wanted; ++i) turn();
    return shadow->audits() - before;
  };
  shadow->stateIs(HardwareShadow::auditing());
  ASSERT_EQ(passes(1), 1u);
  onChipIs(3, 0xdead);
  const U32 fixed = target->registersFixed();
  ASSERT_EQ(passes(2), 2u);
  EXPECT_EQ(onChip(3), 0xa3u);
  EXPECT_EQ(target->registersFixed() - fixed, 1u);
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(shadow->zintAuditErrors(), 0u);
}

}  // namespace Reentrancy
