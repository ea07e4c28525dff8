// The objects of a client, of every kind, in one place; each kind can be dropped at any time.
#pragma once

#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/GenericIf.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/ByteChip.h"
#include "support/Counted.h"
#include "support/TraceCapture.h"

namespace Teardown {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::ChipMemoryBogon;
using Hardware::ChipReadRequest;
using Hardware::HardwareShadow;

// What a client can drop. A region that is removed also leaves every collection; of all other
// kinds, the client's own references are dropped.
enum class Kind {
  Shadow,
  Region,
  RemovedRegion,
  Ham,
  Request,
  WaitingRequest,
  Reader,
  WaitingReader,
  Directory,
  Chunk,
  Notifiees,
  Clock,
  Activity,
  Iterators,
  Adapter,
  List,
};
constexpr std::array kindNames = {"Shadow",    "Region",         "RemovedRegion", "Ham",
                                  "Request",   "WaitingRequest", "Reader",        "WaitingReader",
                                  "Directory", "Chunk",          "Notifiees",     "Clock",
                                  "Activity",  "Iterators",      "Adapter",       "List"};
constexpr int kindCount = static_cast<int>(kindNames.size());

// Where the library calls the client.
enum class Place { None, Read, Write, Compare, Repair, Notifiee, End, Time };

class Scene;

using Support::Counted;

// A class of the library, counted.
template <class Base>
class Watched : public Base, public Counted<Watched<Base>> {
 public:
  using Base::Base;
};

class Ham : public Hardware::ChipHam, public Counted<Ham> {
 public:
  Ham(Zint::Name name, Scene& scene) : ChipHam(std::move(name)), scene_(scene) {}
  void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
  void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
  bool doCompare(U8* a, U8* b, U32 bytes) const override;

 private:
  void report(Place place) const;  // the place is that of the first region alone

  Scene& scene_;
};

class Shadow : public HardwareShadow, public Counted<Shadow> {
 public:
  Shadow(Scene& scene, const Zint::Ptr<Zint::ActivityConfig>& activity,
         const Zint::Ptr<const Zint::Clock>& clock)
      : HardwareShadow(activity, clock), scene_(scene) {
    hasNotificationActiveIs(true);
  }
  void doFixBadRegister(const ChipMemory::Ptr& region, U32 entry, U8* data) override;

 private:
  Scene& scene_;
};

using Region = Watched<ChipMemory>;
using Request = Watched<ChipReadRequest>;
using Reader = Watched<Hardware::ChipReader>;
using Directory = Watched<ChipMemoryBogon>;
using Clock = Watched<Zint::ManualClock>;
using Activity = Watched<Zint::ActivityConfig>;

// What the notifiees of every type share. They observe without holding what they observe.
struct CountingNotifiee : Counted<CountingNotifiee> {
  explicit CountingNotifiee(Scene& scene) : scene_(scene) {}
  virtual ~CountingNotifiee() = default;
  void countNotification(const Zint::NotifieeConst& self, Place place);

 private:
  Scene& scene_;
  U32 notifications_ = 0;  // written after each call: the notifiee must outlive it
};

class Scene {
 public:
  Scene() = default;
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  void makeAll();          // the clock, the activity, the shadow, three regions, a directory
  void registerRegions();  // the regions with the shadow
  void configure();        // and a reader of the audit
  void addNotifiees();     // notifiees of everything
  void turn(int times = 1);
  void write(const ChipMemory::Ptr& region, U32 entry, U32 value);
  ChipMemory::Ptr region(const char* name, U64 address);

  // Whether there is anything of that kind to drop.
  bool holds(Kind kind) const;
  // Drops one kind.
  void drop(Kind kind);
  // Calls of the library arrive here.
  void actAt(Place place);
  // Runs `act` the next time that the place is reached.
  void at(Place place, std::function<void()> act) {
    place_ = place;
    act_ = std::move(act);
  }
  // The number of objects that live, of all counted classes, in all scenes.
  static int living();
  static std::string livingByClass();

  Support::TraceCapture trace{0};
  Support::ByteChip chip;

  Zint::Ptr<Clock> clock;
  Zint::Ptr<Activity> activity;
  std::vector<Zint::Ptr<Ham>> hams;
  std::vector<ChipMemory::Ptr> regions;  // of the shadow; the last one is in override mode
  Zint::Ptr<Shadow> shadow;
  Zint::Ptr<Request> request;  // of the audit
  Zint::Ptr<Reader> reader;
  Zint::Ptr<Request> waitingRequest;
  Zint::Ptr<Reader> waitingReader;
  Zint::Ptr<Directory> directory;
  Hardware::ChipMemoryChunk::Ptr chunk;
  std::vector<Zint::Ptr<Zint::NotifieeConst>> notifiees;
  std::optional<HardwareShadow::ChipMemoryIteratorConst> registryIterator;
  std::optional<ChipReadRequest::ChipMemoryIteratorConst> requestIterator;
  std::optional<ChipMemoryBogon::ChipMemoryIterator> directoryIterator;
  std::optional<Zint::GenericIf_> adapter;
  std::optional<Zint::GenericIf::List_> list;

  int chunksMade = 0;
  int chunksEnded = 0;
  int stray = 0;  // calls of notifiees that were dropped, or whose notifier was destroyed
  int notifications = 0;

 private:
  friend struct CountingNotifiee;
  friend class ChunkNotifiee;

  void watchChunks();

  Place place_ = Place::None;
  std::function<void()> act_;
  bool notifieesGone_ = false;
  std::vector<Zint::Ptr<Zint::NotifieeConst>> chunkEars_;  // not the client's: the count itself
};

}  // namespace Teardown
