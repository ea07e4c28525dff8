// Whoever calls out holds what it goes on with. Each virtual operation that a client can override
// is overridden alone. In its call, everything that can be dropped is dropped, another address is
// looked up, or the state changes, while each operation of the library runs: on the fast path and
// on the reference, with arguments that lie in what the objects hold. The address sanitizer is the
// judge; without it, a crash is.
#include "support/ShadowTest.h"
#include "support/SlotOverrides.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::ChipReadRequest;
using Hardware::HardwareShadow;

// The only references from outside.
struct Owner {
  Zint::Ptr<Zint::ActivityConfig> activity;
  Hardware::ChipHam::Ptr ham;
  ChipMemory::Ptr a, b;
  HardwareShadow::Ptr shadow;
  Zint::Ptr<Zint::PtrInterface> watch;
};

// Each change may find that the owner has dropped its references already.
struct Change {
  const char* name;
  void (*make)(Owner&);
};

void dropAll(Owner& owner) {
  if (owner.shadow) {
    owner.shadow->lastChipMemoryIs(nullptr);
    owner.shadow->overrideHardwareIs(true);
    owner.shadow->chipMemoryDelAll();
    owner.shadow->chipMemoryChunkDelAll();
    owner.shadow->chipMemoryIdDelAll();
    owner.shadow->nextIndexIs(0);
    owner.shadow->chipMemoryChunkArrayDelAll();
    owner.shadow->auditReadRequestDel();
  }
  owner.watch = nullptr;
  owner.a = owner.b = nullptr;
  owner.ham = nullptr;
  owner.shadow = nullptr;
}

// The registry and the owner let go of the regions; the shadow alone keeps the last one found.
void dropRegions(Owner& owner) {
  owner.a = owner.b = nullptr;
  owner.ham = nullptr;
  if (owner.shadow) owner.shadow->stateIs(HardwareShadow::unconfigured());
  if (owner.shadow) owner.shadow->chipMemoryDelAll();
}

const Change changes[] = {
    {"drop all", dropAll},
    {"drop the regions", dropRegions},
    {"look another address up",
     [](Owner& owner) {
       if (owner.shadow) owner.shadow->findChipMemory(ChipAddress(0x2004), 4);
     }},
    {"drop the regions, then look an address up",
     [](Owner& owner) {
       dropRegions(owner);
       if (owner.shadow) owner.shadow->findChipMemory(ChipAddress(0x2004), 4);
     }},
    {"become unconfigured",
     [](Owner& owner) {
       if (owner.shadow) owner.shadow->stateIs(HardwareShadow::unconfigured());
     }},
    {"release the store",
     [](Owner& owner) {
       if (owner.a) owner.a->shadowEnabledIs(false);
     }},
    {"create another store",
     [](Owner& owner) {
       if (owner.a) owner.a->entriesIs(5);
     }},
    {"enter override mode",
     [](Owner& owner) {
       if (owner.a) owner.a->modeIs(ChipMemory::override());
     }},
};

// Objects are reached through plain pointers: a client that calls an operation holds the object in
// some member that the change may clear. The operation on the overridden object itself is given a
// reference by the client, since nobody else can.
struct Operation {
  const char* name;
  void (*run)(HardwareShadow&, ChipMemory&);
};

U8 outside[64];

const Operation operations[] = {
    {"write a word",
     [](HardwareShadow& s, ChipMemory&) { s.shadowWriteU32(ChipAddress(0x1004), 0); }},
    {"write another word",
     [](HardwareShadow& s, ChipMemory&) { s.shadowWriteU32(ChipAddress(0x1004), 7); }},
    {"write by the region's own address and data",
     [](HardwareShadow& s, ChipMemory& a) {
       s.shadowWriteHack(a.address(), a.shadow()->data() + 4, 8);
     }},
    {"write the last region's data to another region",
     [](HardwareShadow& s, ChipMemory& a) {
       // Not from its store: an override may release that, and only the written region's is held.
       s.shadowWriteHack(ChipAddress(0x2004), a.hardware()->data() + 4, 8);
     }},
    {"write to the last region found",
     [](HardwareShadow& s, ChipMemory& a) {
       s.shadowWriteAndCompareWithCache(s.lastChipMemory(), 1, a.dirty()->data(), 4);
     }},
    {"write many to the last region found",
     [](HardwareShadow& s, ChipMemory&) {
       s.shadowWriteAndCompareWithCache(s.lastChipMemory(), 0, outside, 32);
     }},
    {"read a word",
     [](HardwareShadow& s, ChipMemory&) { s.readFromCacheU32(ChipAddress(0x1004)); }},
    {"read by the region's own address into its own buffer",
     [](HardwareShadow& s, ChipMemory& a) {
       s.readFromCacheHack(a.address(), a.hardware()->data() + 4, 8);
     }},
    {"read another region into the last region's buffer",
     [](HardwareShadow& s, ChipMemory& a) {
       s.readFromCacheHack(ChipAddress(0x2004), a.hardware()->data(), 8);
     }},
    {"read from the last region found",
     [](HardwareShadow& s, ChipMemory&) { s.readFromCache(s.lastChipMemory(), 0, outside, 32); }},
    {"read a part past the end",
     [](HardwareShadow& s, ChipMemory&) { s.readFromCache(s.lastChipMemory(), 23, outside, 6); }},
    {"clear a range", [](HardwareShadow&, ChipMemory& a) { a.doClearRange(21, 24, true); }},
    {"write back", [](HardwareShadow&, ChipMemory& a) { a.writeback(false); }},
    {"write back the initialized", [](HardwareShadow&, ChipMemory& a) { a.writeback(true); }},
    {"handle the mode", [](HardwareShadow&, ChipMemory& a) { a.handleMode(); }},
    {"buffer and return",
     [](HardwareShadow&, ChipMemory& a) {
       const ChipMemory::Ptr held(&a);
       a.modeIs(ChipMemory::buffered());
       a.modeIs(ChipMemory::normal());
     }},
    {"mode", [](HardwareShadow&, ChipMemory& a) { a.modeIs(ChipMemory::buffered()); }},
    {"entries", [](HardwareShadow&, ChipMemory& a) { a.entriesIs(4); }},
    {"shadow off", [](HardwareShadow&, ChipMemory& a) { a.shadowEnabledIs(false); }},
    {"store anew", [](HardwareShadow&, ChipMemory& a) { a.handleShadowStoreNeeded(); }},
    {"its own buffer in another place",
     [](HardwareShadow&, ChipMemory& a) { a.initializedIs(a.dirty()); }},
    {"no buffer", [](HardwareShadow&, ChipMemory& a) { a.shadowIs(nullptr); }},
    {"counters",
     [](HardwareShadow&, ChipMemory& a) {
       const ChipMemory::Ptr held(&a);
       a.readCacheHitsInc(2);
       a.writeCacheHitsInc(2);
       a.registersFixedInc(1);
       a.lastFixTimeIs(1.0);
     }},
    {"repair",
     [](HardwareShadow& s, ChipMemory& a) {
       s.doFixBadRegister(s.lastChipMemory(), 1, a.shadow()->data() + 4);
     }},
    {"compare",
     [](HardwareShadow& s, ChipMemory& a) {
       a.entryInitializedDel(3);
       a.hardware()->data()[12] = 1;
       const HardwareShadow::Ptr held(&s);
       s.stateIs(HardwareShadow::auditing());
       if (s.auditReadRequest()) s.doAuditChips();
     }},
};

// Reports every notification as a call of an overridden operation.
class Watch : public ChipMemory::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void handleNotification(Zint::ActivityConfig*) override { Support::reportSlot("notification"); }
};

class Sink : public Zint::TraceSink {
 public:
  void traceLine(const Zint::TraceLine& line) override {
    if (isReporting && std::string(line.handle) == "Umbra") Support::reportSlot("trace");
  }
  bool isReporting = false;
};

// What clients call by themselves: a client that overrides it holds the object that it calls.
bool isCalledByClients(const std::string& operation) {
  for (const char* called : {"entriesIs", "modeIs", "shadowEnabledIs", "handleShadowStoreNeeded",
                             "shadowIs", "initializedIs", "auditEnabledIs"}) {
    if (operation == called) return true;
  }
  return false;
}

enum Path { fastPath, traced, notified, tracing };

class Lifetime : public testing::Test {
 protected:
  Lifetime() : before(Zint::traceSinkIs(&sink)) { Hardware::umbraTrace().levelUpToIs(0); }
  ~Lifetime() override {
    Support::onSlot = nullptr;
    Hardware::umbraTrace().levelUpToIs(0);
    Zint::traceSinkIs(before);
  }

  // One run: the change is made in the first call that the operation leads to. The operation may
  // end in a fatal assertion; it must not touch what is gone. Returns whether a call came.
  bool run(const Support::RegionSlot& regionSlot, const Support::HamSlot& hamSlot, Path path,
           const Operation& operation, const Change& change, U32 call) {
    SCOPED_TRACE(std::string(operation.name) + ", " + change.name + ", region " +
                 regionSlot.operation + ", access method " + hamSlot.operation + ", path " +
                 std::to_string(path));
    Owner owner;
    Support::ManualLoop loop;
    ChipMemory::Ptr held;
    owner.activity = loop.activity;
    owner.ham = hamSlot.make();
    owner.a = regionSlot.make("a", 0x1000, 24, 4, owner.ham);
    owner.b = regionSlot.make("b", 0x2000, 24, 4, owner.ham);
    if (isCalledByClients(regionSlot.operation)) held = owner.a;
    owner.shadow = Hardware::hardwareShadowFactory(owner.activity, nullptr);
    for (const ChipMemory::Ptr& cm : {owner.a, owner.b}) {
      cm->shadowEnabledIs(true);
      cm->auditEnabledIs(true);
      cm->readFromCacheIs(true);
      cm->skipWriteIfMatchesCacheIs(true);
      cm->doClear();
      std::memset(cm->dirty()->data(), 0, cm->dirty()->size());
      cm->hardware()->data()[5] = 1;
      owner.shadow->chipMemoryIs(cm);
    }
    owner.shadow->stateIs(HardwareShadow::configured());
    owner.shadow->lastChipMemoryIs(owner.a);
    if (path == notified) {
      const auto watch = Zint::makePtr<Watch>(owner.activity, owner.a, true);
      watch->isNonReferencingIs(true);
      watch->hasNotificationActiveIs(true);
      owner.watch = watch;
    }
    if (path == traced || path == tracing) Hardware::umbraTrace().levelUpToIs(9);
    sink.isReporting = path == tracing;
    U32 calls = 0;
    Support::onSlot = [&](const std::string&) {
      if (calls++ == call) change.make(owner);
    };
    Support::assertedCondition([&] {
      try {
        operation.run(*owner.shadow, *owner.a);
      } catch (const Zint::RangeException&) {
      }
    });
    Support::onSlot = nullptr;
    sink.isReporting = false;
    Hardware::umbraTrace().levelUpToIs(0);
    dropAll(owner);
    return calls > call;
  }

  // Every operation with every change, in each of the first calls. Returns the number of runs in
  // which the change was made.
  U32 runAll(const Support::RegionSlot& regionSlot, const Support::HamSlot& hamSlot, Path path) {
    U32 made = 0;
    for (const Operation& operation : operations) {
      for (const Change& change : changes) {
        for (U32 call = 0; call < 4 && run(regionSlot, hamSlot, path, operation, change, call);
             ++call) {
          ++made;
        }
      }
    }
    return made;
  }

  Sink sink;
  Zint::TraceSink* before;
};

TEST_F(Lifetime, everySlotOfARegion) {
  U32 made = 0;
  for (const Support::RegionSlot& slot : Support::regionSlots()) {
    for (const Path path : {fastPath, traced}) {
      made += runAll(slot, Support::hamSlots()[0], path);
    }
  }
  EXPECT_GT(made, 200u);
}

TEST_F(Lifetime, everySlotOfAnAccessMethod) {
  for (const Support::HamSlot& slot : Support::hamSlots()) {
    for (const Path path : {fastPath, traced}) {
      const U32 made = runAll(Support::regionSlots()[0], slot, path);
      const std::string operation = slot.operation;
      EXPECT_EQ(made != 0, operation != "" && operation != "doRead") << operation;
    }
  }
}

TEST_F(Lifetime, everyNotification) {
  EXPECT_GT(runAll(Support::regionSlots()[0], Support::hamSlots()[0], notified), 100u);
}

TEST_F(Lifetime, everyTraceLine) {
  EXPECT_GT(runAll(Support::regionSlots()[0], Support::hamSlots()[0], tracing), 100u);
}

}  // namespace
