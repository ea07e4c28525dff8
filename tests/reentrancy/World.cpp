// The world: its set-up, what brings each callback about, and the proof that it works.
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

void ActingHam::called(Callback place) const {
  if (name() == "target") world_.reached(place);
}

void ActingHam::doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 count) {
  called(Callback::HamRead);
  for (U32 i = 0; i < entrySize * count; ++i) buffer[i] = world_.chip[address.value() + i];
  ++calls_;
}

void ActingHam::doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 count) {
  called(Callback::HamWrite);
  for (U32 i = 0; i < entrySize * count; ++i) world_.chip[address.value() + i] = buffer[i];
  ++calls_;
}

bool ActingHam::doCompare(U8* a, U8* b, U32 bytes) const {
  called(Callback::HamCompare);
  ++calls_;
  return ChipHam::doCompare(a, b, bytes);
}

bool ActingHam::doWriteToCache(U8* to, U8* from, U32 bytes) {
  called(Callback::HamStore);
  ++calls_;
  return ChipHam::doWriteToCache(to, from, bytes);
}

void ActingShadow::doFixBadRegister(const ChipMemory::Ptr& region, U32 entry, U8* data) {
  world_.reached(Callback::Repair);
  HardwareShadow::doFixBadRegister(region, entry, data);
}

void Ear::heard(Callback callback) {
  world_.log.push_back(name_);
  if (name_ == "self") world_.reached(callback);
  ++heard_;
}

void Ear::heard() {
  world_.log.push_back(name_);
  ++heard_;
}

namespace {

class RegionEar : public ChipMemory::NotifieeConst, public Ear {
 public:
  RegionEar(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, world.target), Ear(world, name) {}
  void handleNotification(Zint::ActivityConfig*) override {
    if (attribute() == ChipMemory::Id::mode) return heard(Callback::RegionAttribute);
    if (attribute() == ChipMemory::Id::shadowEnabled) return heard(Callback::ByName);
    if (attribute() == ChipMemory::Id::indirectCmdRegAddr) heard();
  }
};

class ShadowEar : public HardwareShadow::NotifieeConst, public Ear {
 public:
  ShadowEar(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const HardwareShadow>(world.shadow)),
        Ear(world, name) {}
  void onState() override { heard(Callback::ShadowState); }
  void onMinIntervalBetweenAudits() override { heard(); }
};

class RequestEar : public ChipReadRequest::NotifieeConst, public Ear {
 public:
  RequestEar(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity,
                      Zint::Ptr<const ChipReadRequest>(world.shadow->auditReadRequest())),
        Ear(world, name) {}
  void onChipMemory(const ChipAddress&) override { heard(Callback::RequestRegions); }
  void onGeneration() override { heard(); }
};

class ReaderEar : public Hardware::ChipReader::NotifieeConst, public Ear {
 public:
  ReaderEar(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const Hardware::ChipReader>(world.reader)),
        Ear(world, name) {}
  void onEntriesRead() override { heard(Callback::ReaderProgress); }
  void onReadInterval() override { heard(); }
};

class DirectoryEar : public ChipMemoryBogon::NotifieeConst, public Ear {
 public:
  DirectoryEar(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const ChipMemoryBogon>(world.directory)),
        Ear(world, name) {}
  void onChipMemory(Zint::String8) override { heard(Callback::DirectoryMember); }
};

class TimeEar : public Zint::Clock::NotifieeConst, public Ear {
 public:
  TimeEar(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const Zint::Clock>(world.loop.clock)),
        Ear(world, name) {
    timeMinIs(0.0);
  }
  void onTime() override { heard(Callback::ClockTime); }
};

class EndEar : public ChipMemoryBogon::NotifieeConst, public Ear {
 public:
  EndEar(World& world, const std::string& name)
      : NotifieeConst(world.loop.activity, Zint::Ptr<const ChipMemoryBogon>(world.directory)),
        Ear(world, name) {
    isNonReferencingIs(true);
  }
  void onIsNondestructing() override { heard(Callback::EntityEnd); }
};

}  // namespace

// --- Set-up ---

World::World(Callback called) : callback(called) {
  directory = Hardware::chipMemoryBogonFactory("switch");
  target = made("target", targetAddress);
  ham = Zint::ptrCast<ActingHam>(target->chipHam());
  second = made("second", 0x2000);
  third = made("third", 0x100003000);
  third->auditEnabledIs(false);
  shadow = Zint::makePtr<ActingShadow>(*this, loop);
  configured();
  prepared();
  earlier = newEar("earlier");
  self = newEar("self");
  later = newEar("later");
  log.clear();
}

World::~World() {
  pending_.clear();
  iterator.reset();
}

ChipMemory::Ptr World::made(const char* name, U64 address) {
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
void World::configured() {
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

Zint::Ptr<Zint::NotifieeConst> World::newEar(const std::string& name) {
  switch (callback) {
    case Callback::ShadowState:
      return Zint::makePtr<ShadowEar>(*this, name);
    case Callback::RequestRegions:
      return Zint::makePtr<RequestEar>(*this, name);
    case Callback::ReaderProgress:
      return Zint::makePtr<ReaderEar>(*this, name);
    case Callback::DirectoryMember:
      return Zint::makePtr<DirectoryEar>(*this, name);
    case Callback::ClockTime:
      return Zint::makePtr<TimeEar>(*this, name);
    case Callback::EntityEnd:
      return Zint::makePtr<EndEar>(*this, name);
    default:
      return Zint::makePtr<RegionEar>(*this, name);
  }
}

// --- The callbacks ---

// What must be so before the callback can be brought about.
void World::prepared() {
  switch (callback) {
    case Callback::RequestRegions:
      return shadow->stateIs(HardwareShadow::unconfigured());
    case Callback::ReaderProgress:
    case Callback::HamRead:
    case Callback::HamCompare:
      return shadow->stateIs(HardwareShadow::auditing());
    case Callback::Repair:
      shadow->stateIs(HardwareShadow::auditing());
      turn();  // the pass has begun: what it finds from now on was not written meanwhile
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

void World::triggered() {
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
        reached(Callback::IteratorBody);
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
  triggered();
  turn(8);
}

void World::reached(Callback place) {
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
      return;  // it has ended
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
  for (U32 i = 0; i < 4; ++i) value |= U32{chip[targetAddress + 4 * entry + i]} << (8 * i);
  return value;
}

void World::onChipIs(U32 entry, U32 value) {
  for (U32 i = 0; i < 4; ++i) {
    chip[targetAddress + 4 * entry + i] = static_cast<U8>(value >> (8 * i));
  }
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
  target = made("target", targetAddress);
  second = made("second", 0x2000);
  third = made("third", 0x100003000);
  configured();
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
