// A whole system. Each call into user code can be made to misbehave, once.
#pragma once

#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>

#include <optional>
#include <string>
#include <vector>

#include "reentrancy/Names.h"
#include "support/ByteChip.h"
#include "support/Counted.h"
#include "support/ManualLoop.h"
#include "support/TraceCapture.h"

namespace Reentrancy {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::ChipMemoryBogon;
using Hardware::ChipReadRequest;
using Hardware::HardwareShadow;

class World;

using Support::Counted;

// An access method on the world's chip; its own comparison and copies, so that each is called.
class ActingHam : public Hardware::ChipHam, Counted<ActingHam> {
 public:
  using Counted<ActingHam>::living;
  ActingHam(Zint::Name name, World& world) : ChipHam(std::move(name)), world_(world) {}
  void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
  void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
  bool doCompare(U8* a, U8* b, U32 bytes) const override;
  bool doWriteToCache(U8* to, U8* from, U32 bytes) override;

 private:
  void report(Callback place) const;  // only the target's access method misbehaves

  World& world_;
  mutable U32 calls_ = 0;  // written after each call: the object must outlive it
};

class ActingShadow : public HardwareShadow, Counted<ActingShadow> {
 public:
  using Counted<ActingShadow>::living;
  ActingShadow(World& world, const Support::ManualLoop& loop)
      : HardwareShadow(loop.activity, Zint::Ptr<const Zint::Clock>(loop.clock)), world_(world) {
    hasNotificationActiveIs(true);
  }
  void doFixBadRegister(const ChipMemory::Ptr& region, U32 entry, U8* data) override;

 private:
  World& world_;
};

class ActingReader : public Hardware::ChipReader, Counted<ActingReader> {
 public:
  using Counted<ActingReader>::living;
  ActingReader(const Support::ManualLoop& loop, const ChipReadRequest::Ptr& request)
      : ChipReader(loop.activity, request, Zint::Ptr<const Zint::Clock>(loop.clock), 4, 0.5) {
    hasNotificationActiveIs(true);
  }
};

// What the notifiees of every type share.
struct ActingNotifiee : Counted<ActingNotifiee> {
  ActingNotifiee(World& world, std::string name) : world_(world), name_(std::move(name)) {}
  virtual ~ActingNotifiee() = default;
  void recordNotification(Callback callback);  // an event of the kind that this callback is
  void recordNotification();                   // another event

 private:
  World& world_;
  const std::string name_;
  U32 notifications_ = 0;  // written after each call: the notifiee must outlive it
};

class World {
 public:
  explicit World(Callback callback);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // Causes the callback, which performs `actions`; then runs turns until nothing is pending.
  void run(const Actions& actions);
  // Called by the user code at each place.
  void actAt(Callback place);
  // Whether the actions were performed.
  bool hasActed() const { return acted_; }

  // One more change of the caller, of which its notifiees are notified.
  void probe();
  // Restores what the actions have removed, and lets the audit repair a damaged entry.
  void expectWorking();

  void turn(int times = 1);
  bool write(U32 entry, U32 value);
  U32 onChip(U32 entry);
  void onChipIs(U32 entry, U32 value);

  Zint::Ptr<Zint::NotifieeConst> newNotifiee(const std::string& name);

  const Callback callback;
  Support::ByteChip chip;
  Support::TraceCapture trace{0};
  Support::ManualLoop loop;
  Zint::Ptr<ActingHam> ham;  // of `target`
  ChipMemoryBogon::Ptr directory;
  ChipMemory::Ptr target, second, third;  // the first two are audited
  Zint::Ptr<ActingShadow> shadow;
  Zint::Ptr<ActingReader> reader;
  Zint::Ptr<Zint::NotifieeConst> earlier, self, later, added;
  std::vector<std::string> log;  // who was notified, and "!" for the actions
  std::optional<HardwareShadow::State> stateAsked;
  U32 visited = 0;       // by the loop over the directory
  U32 auditsBefore = 0;  // passes that were completed when the actions began
  std::optional<ChipMemoryBogon::ChipMemoryIterator> iterator;

 private:
  friend void perform(World& world, Action action);

  ChipMemory::Ptr makeRegion(const char* name, U64 address);
  void prepare();
  void trigger();
  void configure();

  Actions pending_;
  bool acted_ = false;
  int probes_ = 0;
};

void perform(World& world, Action action);

// What the rules say of the world after the actions, which must not have been fatal.
void expectSound(World& world);                  // whatever was done
void expectResult(World& world, Action action);  // of this one action

}  // namespace Reentrancy
