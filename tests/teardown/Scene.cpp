#include "teardown/Scene.h"

#include "support/Client.h"

namespace Teardown {
namespace {

using ClockPtr = Zint::Ptr<const Zint::Clock>;

template <class Base>
class LooseEar : public Base, public CountingNotifiee {
 public:
  template <class Object>
  LooseEar(Scene& scene, const Object& object)
      : Base(scene.activity, Zint::Ptr<const typename Object::Element>(object)),
        CountingNotifiee(scene) {
    this->isNonReferencingIs(true);
  }
  void handleNotification(Zint::ActivityConfig*) override {
    countNotification(*this, Place::Notifiee);
  }
};

class RegionNotifiee : public LooseEar<ChipMemory::NotifieeConst> {
 public:
  using LooseEar::LooseEar;
};

class ShadowNotifiee : public LooseEar<HardwareShadow::NotifieeConst> {
 public:
  using LooseEar::LooseEar;
  void onChipMemory(const ChipAddress&) override {
    CountingNotifiee::countNotification(*this, Place::Notifiee);
  }
};

class ReaderNotifiee : public LooseEar<Hardware::ChipReader::NotifieeConst> {
 public:
  using LooseEar::LooseEar;
};

class RequestNotifiee : public LooseEar<ChipReadRequest::NotifieeConst> {
 public:
  using LooseEar::LooseEar;
  void onChipMemory(const ChipAddress&) override {
    CountingNotifiee::countNotification(*this, Place::Notifiee);
  }
};

class DirectoryNotifiee : public LooseEar<ChipMemoryBogon::NotifieeConst> {
 public:
  using LooseEar::LooseEar;
  void handleNotification(Zint::ActivityConfig*) override {
    CountingNotifiee::countNotification(*this, Place::End);
  }
  void onChipMemory(Zint::String8) override {
    CountingNotifiee::countNotification(*this, Place::Notifiee);
  }
};

class TimeNotifiee : public LooseEar<Zint::Clock::NotifieeConst> {
 public:
  using LooseEar::LooseEar;
  void onTime() override { CountingNotifiee::countNotification(*this, Place::Time); }
};

}  // namespace

// Counts the ends of chunks.
class ChunkNotifiee : public Zint::Entity::NotifieeConst {
 public:
  ChunkNotifiee(Scene& scene, const Hardware::ChipMemoryChunk::Ptr& chunk)
      : NotifieeConst(nullptr, Zint::Ptr<const Zint::PtrInterface>(chunk)), scene_(scene) {
    isNonReferencingIs(true);
  }
  void onIsNondestructing() override { ++scene_.chunksEnded; }

 private:
  Scene& scene_;
};

void Ham::report(Place place) const {
  if (name() == "low") scene_.actAt(place);
}

void Ham::doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) {
  report(Place::Read);
  scene_.chip.read(address.value(), buffer, entrySize * entries);
}

void Ham::doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) {
  report(Place::Write);
  scene_.chip.write(address.value(), buffer, entrySize * entries);
}

bool Ham::doCompare(U8* a, U8* b, U32 bytes) const {
  report(Place::Compare);
  return ChipHam::doCompare(a, b, bytes);
}

void Shadow::doFixBadRegister(const ChipMemory::Ptr& region, U32 entry, U8* data) {
  scene_.actAt(Place::Repair);
  HardwareShadow::doFixBadRegister(region, entry, data);
}

void CountingNotifiee::countNotification(const Zint::NotifieeConst& self, Place place) {
  ++scene_.notifications;
  if (scene_.notifieesGone_ || self.notifier() == nullptr) ++scene_.stray;
  scene_.actAt(place);
  ++notifications_;
}

Scene::~Scene() {
  act_ = nullptr;
  for (int kind = 0; kind < kindCount; ++kind) drop(static_cast<Kind>(kind));
}

ChipMemory::Ptr Scene::region(const char* name, U64 address) {
  hams.push_back(Zint::makePtr<Ham>(name, *this));
  const ChipMemory::Ptr made =
      Zint::makePtr<Region>(name, ChipAddress(address), 8u, 4u, 4u, hams.back());
  made->shadowEnabledIs(true);
  made->auditEnabledIs(true);
  return made;
}

void Scene::makeAll() {
  clock = Zint::makePtr<Clock>("clock");
  activity = Zint::makePtr<Activity>("activity", Zint::ValidPtr<const Zint::Clock>(clock));
  regions = {region("low", 0x1000), region("high", 0x100002000), region("over", 0x200003000)};
  regions[2]->auditEnabledIs(false);
  regions[2]->modeIs(ChipMemory::override());
  shadow = Zint::makePtr<Shadow>(*this, activity, ClockPtr(clock));
  request = Zint::makePtr<Request>("audit");
  shadow->auditReadRequestIs(request);
  directory = Zint::makePtr<Directory>("switch");
  for (const char* name : {"one", "two", "three"}) {
    hams.push_back(Zint::makePtr<Ham>(name, *this));
    directory->chipMemoryIs(name, ChipAddress(0x8000), 8, 4, 4, hams.back());
  }
}

void Scene::registerRegions() {
  for (const ChipMemory::Ptr& each : regions) shadow->chipMemoryIs(each);
}

void Scene::configure() {
  shadow->stateIs(HardwareShadow::configured());
  if (reader == nullptr) {
    reader = Zint::makePtr<Reader>(activity, request, ClockPtr(clock), 4u, 0.5);
    reader->hasNotificationActiveIs(true);
  }
  watchChunks();
  for (U32 e = 0; e < 8; ++e) write(regions[0], e, 0xa0 + e);
}

void Scene::watchChunks() {
  for (U16 i = 0; i < shadow->nextIndex(); ++i) {
    chunkEars_.push_back(Zint::makePtr<ChunkNotifiee>(*this, shadow->chipMemoryChunkArray(i)));
    ++chunksMade;
  }
}

void Scene::addNotifiees() {
  const auto watch = [this](Zint::Ptr<Zint::NotifieeConst> ear) {
    notifiees.push_back(std::move(ear));
  };
  for (const ChipMemory::Ptr& each : regions) watch(Zint::makePtr<RegionNotifiee>(*this, each));
  if (shadow != nullptr) watch(Zint::makePtr<ShadowNotifiee>(*this, shadow));
  if (reader != nullptr) watch(Zint::makePtr<ReaderNotifiee>(*this, reader));
  if (request != nullptr) watch(Zint::makePtr<RequestNotifiee>(*this, request));
  if (directory != nullptr) watch(Zint::makePtr<DirectoryNotifiee>(*this, directory));
  const auto time = Zint::makePtr<TimeNotifiee>(*this, clock);
  time->timeMinIs(clock->time() + 3);
  watch(time);
}

void Scene::turn(int times) {
  for (; times > 0; --times) {
    if (clock != nullptr) clock->timeIs(clock->time() + 1);
    // The client's own reference, or what is left of the activity's users.
    Zint::ActivityConfig* loop = activity.ptr();
    if (loop == nullptr && shadow != nullptr) loop = shadow->zintFwkActivity().ptr();
    if (loop == nullptr && reader != nullptr) loop = reader->zintFwkActivity().ptr();
    if (loop != nullptr) loop->turn();
  }
}

void Scene::write(const ChipMemory::Ptr& to, U32 entry, U32 value) {
  Support::clientWrite(*shadow, to, entry, value);
}

void Scene::actAt(Place place) {
  if (place != place_ || !act_) return;
  place_ = Place::None;
  std::exchange(act_, nullptr)();
}

bool Scene::holds(Kind kind) const {
  switch (kind) {
    case Kind::Shadow:
      return shadow != nullptr;
    case Kind::Region:
    case Kind::RemovedRegion:
      return !regions.empty();
    case Kind::Ham:
      return !hams.empty();
    case Kind::Request:
      return request != nullptr;
    case Kind::WaitingRequest:
      return waitingRequest != nullptr;
    case Kind::Reader:
      return reader != nullptr;
    case Kind::WaitingReader:
      return waitingReader != nullptr;
    case Kind::Directory:
      return directory != nullptr;
    case Kind::Chunk:
      return chunk != nullptr;
    case Kind::Notifiees:
      return !notifiees.empty();
    case Kind::Clock:
      return clock != nullptr;
    case Kind::Activity:
      return activity != nullptr;
    case Kind::Iterators:
      return registryIterator || requestIterator || directoryIterator;
    case Kind::Adapter:
      return adapter.has_value();
    case Kind::List:
      return list.has_value();
  }
  return false;
}

void Scene::drop(Kind kind) {
  switch (kind) {
    case Kind::Shadow:
      shadow = nullptr;
      return;
    case Kind::RemovedRegion:
      if (shadow != nullptr && !regions.empty()) {
        shadow->stateIs(HardwareShadow::unconfigured());
        // The handlers of that may have taken either away.
        if (shadow != nullptr && !regions.empty()) {
          shadow->chipMemoryDel(regions[0]->address());
        }
      }
      if (waitingRequest != nullptr && !regions.empty()) {
        waitingRequest->chipMemoryDel(regions[0]->address());
      }
      if (directory != nullptr) directory->chipMemoryDel("one");
      if (!regions.empty()) regions.erase(regions.begin());
      return;
    case Kind::Region:
      return regions.clear();
    case Kind::Ham:
      return hams.clear();
    case Kind::Request:
      request = nullptr;
      return;
    case Kind::WaitingRequest:
      waitingRequest = nullptr;
      return;
    case Kind::Reader:
      reader = nullptr;
      return;
    case Kind::WaitingReader:
      waitingReader = nullptr;
      return;
    case Kind::Directory:
      directory = nullptr;
      return;
    case Kind::Chunk:
      chunk = nullptr;
      return;
    case Kind::Notifiees:
      notifieesGone_ = true;
      return notifiees.clear();
    case Kind::Clock:
      clock = nullptr;
      return;
    case Kind::Activity:
      activity = nullptr;
      return;
    case Kind::Iterators:
      registryIterator.reset();
      requestIterator.reset();
      directoryIterator.reset();
      return;
    case Kind::Adapter:
      return adapter.reset();
    case Kind::List:
      return list.reset();
  }
}

int Scene::living() {
  return Counted<Ham>::living + Counted<Shadow>::living + Region::living + Request::living +
         Reader::living + Directory::living + Clock::living + Activity::living +
         Counted<CountingNotifiee>::living;
}

std::string Scene::livingByClass() {
  std::string text;
  const auto add = [&text](const char* name, int count) {
    if (count != 0) text += std::string(name) + " " + std::to_string(count) + " ";
  };
  add("Ham", Counted<Ham>::living);
  add("Shadow", Counted<Shadow>::living);
  add("Region", Region::living);
  add("Request", Request::living);
  add("Reader", Reader::living);
  add("Directory", Directory::living);
  add("Clock", Clock::living);
  add("Activity", Activity::living);
  add("Ear", Counted<CountingNotifiee>::living);
  return text;
}

}  // namespace Teardown
