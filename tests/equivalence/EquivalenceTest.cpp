// The fast path is equivalent to the reference. Two equal worlds take the same steps: one on the
// fast path where there is one, the other on the reference, which a trace level or a coverage
// stream forces. After every step all that can be observed is equal: results, every byte of memory,
// counters, the calls of overridden operations, and what the regions' notifiees are notified of.
//
// All buffers lie in one block of memory, and so does `data` where a step wants it there: they
// overlap in every way, are shared between the regions, and are shorter or longer than they should
// be.
#include "support/SlotOverrides.h"

#include <sstream>

#include "support/Random.h"
#include "support/ShadowTest.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

// Bytes that somebody else owns.
class Lent : public Hal::BufBase {
 public:
  Lent(U8* data, U32 size) : BufBase(data, size) {}
};

class NullSink : public Zint::TraceSink {
 public:
  void traceLine(const Zint::TraceLine&) override {}
};

// What makes the second world take the reference.
enum Switch { level7, level8, level9, coverage };
constexpr Switch everySwitch[] = {level7, level8, level9, coverage};

constexpr U32 memoryBytes = 256;

struct World {
  World(const Support::RegionSlot& regionSlot, const Support::HamSlot& hamSlot, U32 entries,
        U32 entrySize) {
    const Hardware::ChipHam::Ptr ham = hamSlot.make();
    for (U32 r = 0; r < 2; ++r) {
      regions[r] = regionSlot.make(r == 0 ? "a" : "b", 0x1000 * (r + 1), entries, entrySize, ham);
      regions[r]->shadowEnabledIs(true);
      regions[r]->readFromCacheIs(true);
      shadow->chipMemoryIs(regions[r]);
    }
    shadow->stateIs(HardwareShadow::configured());
  }
  Hal::BufBase::Ptr lent(U32 at, U32 size) { return Zint::makePtr<Lent>(memory.data() + at, size); }
  // Everything that a client can observe, as bytes.
  std::string observed() const {
    std::string bytes;
    const auto add = [&bytes](const void* from, std::size_t size) {
      bytes.append(static_cast<const char*>(from), size);
    };
    add(memory.data(), memory.size());
    add(outside.data(), outside.size());
    for (const ChipMemory::Ptr& cm : regions) {
      const U64 numbers[] = {cm->readCacheHits(), cm->writeCacheHits(), U64(cm->mode()),
                             cm->entries()};
      add(numbers, sizeof numbers);
      for (const Hal::BufBase::Ptr& buffer : {cm->shadow(), cm->initialized(), cm->dirty()}) {
        bytes += buffer == nullptr ? "|-" : "|";
        if (buffer != nullptr) add(buffer->data(), buffer->size());
      }
    }
    return bytes;
  }

  void observeRegions();

  std::vector<U8> memory = std::vector<U8>(memoryBytes);
  std::vector<U8> outside = std::vector<U8>(memoryBytes);
  Support::ManualLoop loop;
  HardwareShadow::Ptr shadow = Hardware::hardwareShadowFactory(loop.activity, nullptr);
  ChipMemory::Ptr regions[2];
  Zint::Ptr<ChipMemory::NotifieeConst> watches[2];
  std::string notifications;
  U32 reactions = 0;
};

// Writes down each notification with all that can be observed at that time. Every third one it
// changes something: the contents, or the store with which the access began.
class Watch : public ChipMemory::NotifieeConst {
 public:
  Watch(World& world, const ChipMemory::Ptr& region)
      : NotifieeConst(world.loop.activity, region, true), world_(world), region_(*region) {}
  void handleNotification(Zint::ActivityConfig*) override {
    world_.notifications += std::to_string(attribute()) + ": " + world_.observed() + "\n";
    if (isReacting_ || ++world_.reactions % 3 != 0) return;
    isReacting_ = true;
    react(world_.reactions / 3);
    isReacting_ = false;
  }

 private:
  void react(U32 number) {
    world_.memory[number % memoryBytes] ^= 1;
    if (number % 4 == 1) region_.skipWriteIfMatchesCacheIs(!region_.skipWriteIfMatchesCache());
    if (number % 8 == 2) region_.entriesIs(region_.entries() == 20 ? 12 : 20);
    if (number % 8 == 3) region_.shadowEnabledIs(false);
    if (number % 8 == 3) region_.shadowEnabledIs(true);
    if (number % 8 == 5) region_.shadowIs(world_.lent(number % 100, 100));
    if (number % 8 == 6) region_.modeIs(ChipMemory::buffered());
    if (number % 8 == 7) region_.modeIs(ChipMemory::normal());
  }

  World& world_;
  ChipMemory& region_;
  bool isReacting_ = false;
};

void World::observeRegions() {
  for (U32 r = 0; r < 2; ++r) watches[r] = Zint::makePtr<Watch>(*this, regions[r]);
}

class Equivalence : public testing::Test {
 protected:
  Equivalence() : before(Zint::traceSinkIs(&sink)) { Hardware::umbraTrace().levelUpToIs(0); }
  ~Equivalence() override {
    Support::onSlot = nullptr;
    Hardware::umbraTrace().levelUpToIs(0);
    Zint::traceSinkIs(before);
  }

  // The step in one world: its outcome and the calls that were seen.
  static std::string outcome(World& world, const std::function<std::string(World&)>& step) {
    std::string text;
    world.notifications.clear();
    Support::onSlot = [&text](const std::string& call) { text += call + "; "; };
    std::string result;
    const std::string condition = Support::assertedCondition([&] {
      try {
        result = step(world);
      } catch (const Zint::RangeException& exception) {
        result = exception.what();
      }
    });
    Support::onSlot = nullptr;
    return text + result + condition + "\n" + world.notifications + world.observed();
  }

  static std::string onReference(World& world, Switch by,
                                 const std::function<std::string(World&)>& step) {
    std::ostringstream stream;
    if (by == coverage) Zint::coverageStreamIs(&stream);
    if (by <= level9) Hardware::umbraTrace().levelUpToIs(7 + by);
    std::string text = outcome(world, step);
    Hardware::umbraTrace().levelUpToIs(0);
    Zint::coverageStreamIs(nullptr);
    return text;
  }

  NullSink sink;
  Zint::TraceSink* before;
};

std::string textOf(bool answer) { return answer ? "true" : "false"; }

// --- Random steps --------------------------------------------------------------------------------

// One step, drawn once and taken in both worlds.
std::function<std::string(World&)> drawnStep(Support::Random& random, U32 entrySize) {
  const U32 kind = random.below(32), r = random.below(2), entry = random.below(26);
  const U32 count = (random.below(3) == 0) ? random.below(20) : 1;
  U32 size = count * entrySize;
  if ((random.below(12) == 0)) size += random.below(5);
  const bool isInside = (random.below(2) == 0);
  const U32 at = random.below(memoryBytes - std::min(size, memoryBytes - 1));
  if (size > memoryBytes - at) size = memoryBytes - at;
  const bool flag = (random.below(2) == 0);
  const U32 bufferAt = random.below(192), bufferSize = random.below(memoryBytes - bufferAt);
  const U32 fill = random.below(4);
  const auto data = [=](World& w) { return (isInside ? w.memory : w.outside).data() + at; };
  const auto address = ChipAddress(0x1000 * (r + 1) + (entrySize == 0 ? 1 : entrySize) * entry);
  switch (kind) {
    case 0:
      return [=](World& w) { return w.regions[r]->skipWriteIfMatchesCacheIs(flag), "skip"; };
    case 1:
      return [=](World& w) { return w.shadow->overrideHardwareIs(flag && fill == 0), "override"; };
    case 2:
      return [=](World& w) { return w.regions[r]->readFromCacheIs(fill != 0), "readFromCache"; };
    case 3:
      return [=](World& w) {
        w.regions[r]->modeIs(fill == 0
                                 ? ChipMemory::override()
                                 : (fill == 1 ? ChipMemory::normal() : ChipMemory::buffered()));
        return "mode";
      };
    case 4:
      return [=](World& w) { return w.regions[r]->allowsLogicalViewsIs(flag), "views"; };
    case 5:
      return [=](World& w) { return w.regions[r]->entriesIs(4 + 8 * fill), "entries"; };
    case 6:
      return [=](World& w) {
        if (w.regions[r]->shadow()) w.regions[r]->shadowIs(w.lent(bufferAt, bufferSize));
        return "shadow";
      };
    case 7:
      return [=](World& w) { return w.regions[r]->initializedIs(w.lent(bufferAt, 1 + fill)), "i"; };
    case 8:
      return [=](World& w) { return w.regions[r]->dirtyIs(w.lent(bufferAt, 1 + fill)), "d"; };
    case 9:  // shared between the regions
      return [=](World& w) { return w.regions[r]->shadowIs(w.regions[1 - r]->shadow()), "shared"; };
    case 10:
      return [=](World& w) {
        return w.regions[r]->initializedIs(w.regions[fill & 1]->dirty()), "shared marks";
      };
    case 11:
      return
          [=](World& w) { return w.regions[r]->doClearRange(entry, entry + fill, flag), "clear"; };
    case 12:
      return [=](World& w) { return w.regions[r]->doClear(), "clear all"; };
    case 13:
      return [=](World& w) { return std::memset(data(w), fill == 3 ? 0xff : fill, size), "fill"; };
    case 14:
    case 15:
    case 16:
    case 17:
      return [=](World& w) {
        return textOf(w.shadow->readFromCache(w.regions[r], entry, data(w), size));
      };
    case 18:
    case 19:
      return [=](World& w) { return textOf(w.shadow->readFromCacheHack(address, data(w), size)); };
    case 20:
      return [=](World& w) { return std::to_string(w.shadow->readFromCacheU32(address)); };
    case 21:
      return [=](World& w) { return w.shadow->shadowWriteU32(address, fill), "write word"; };
    case 22:
    case 23:
    case 24:
      return [=](World& w) { return w.shadow->shadowWriteHack(address, data(w), size), "write"; };
    default:
      return [=](World& w) {
        return textOf(w.shadow->shadowWriteAndCompareWithCache(w.regions[r], entry, data(w), size));
      };
  }
}

void compareRandomly(
    const Support::RegionSlot& regionSlot, const Support::HamSlot& hamSlot, U32 seeds,
    const std::function<std::string(World&, Switch, const std::function<std::string(World&)>&)>&
        onReference,
    const std::function<std::string(World&, const std::function<std::string(World&)>&)>&
        onFastPath) {
  constexpr U32 sizes[] = {1, 2, 3, 4, 4, 4, 8, 5, 16, 0};
  for (U64 seed = 1; seed <= seeds; ++seed) {
    Support::Random random(seed);
    const U32 entrySize = sizes[random.below(10)];
    World fast(regionSlot, hamSlot, 20, entrySize), reference(regionSlot, hamSlot, 20, entrySize);
    const Switch by = everySwitch[random.below(4)];
    for (U32 number = 0; number < 60; ++number) {
      const auto step = drawnStep(random, entrySize);
      const std::string expected = onReference(reference, by, step);
      ASSERT_EQ(onFastPath(fast, step), expected)
          << "seed " << seed << " step " << number << " region " << regionSlot.operation
          << " access method " << hamSlot.operation << " entry size " << entrySize;
    }
  }
}

TEST_F(Equivalence, everySlotOfARegionOverriddenAlone) {
  for (const Support::RegionSlot& slot : Support::regionSlots()) {
    compareRandomly(slot, Support::hamSlots()[0], 60, onReference, outcome);
    if (HasFatalFailure()) return;
  }
}

TEST_F(Equivalence, everySlotOfAnAccessMethodOverriddenAlone) {
  for (const Support::HamSlot& slot : Support::hamSlots()) {
    compareRandomly(Support::regionSlots()[0], slot, 150, onReference, outcome);
    if (HasFatalFailure()) return;
  }
}

// The reactions of a step are those of the same notifications in both worlds.
TEST_F(Equivalence, observedRegions) {
  const auto observe = [](World& world) {
    if (world.watches[0] == nullptr) world.observeRegions();
  };
  compareRandomly(
      Support::regionSlots()[0], Support::hamSlots()[0], 1500,
      [&](World& world, Switch by, const auto& step) {
        observe(world);
        return onReference(world, by, step);
      },
      [&](World& world, const auto& step) {
        observe(world);
        return outcome(world, step);
      });
}

TEST_F(Equivalence, nothingOverridden) {
  compareRandomly(Support::regionSlots()[0], Support::hamSlots()[0], 1500, onReference, outcome);
}

// --- Small and exhaustive ------------------------------------------------------------------------

// Three entries of one byte in a memory of eight: every place of the bitmaps and of `data`, every
// access, over several contents.
TEST_F(Equivalence, everyOverlapOfASmallMemory) {
  const Support::RegionSlot& slot = Support::regionSlots()[0];
  World fast(slot, Support::hamSlots()[0], 3, 1), reference(slot, Support::hamSlots()[0], 3, 1);
  for (U32 marks = 0; marks < 64; ++marks) {
    for (World* w : {&fast, &reference}) {
      w->regions[0]->shadowIs(w->lent(0, 3));
      w->regions[0]->initializedIs(w->lent(marks & 7, 1));
      w->regions[0]->dirtyIs(w->lent(marks >> 3, 1));
    }
    for (U32 access = 0; access < 6 * 6 * 4; ++access) {
      const U32 at = access % 6, entry = access / 6 % 6 % 3, count = 1 + access / 6 % 6 / 3 * 2;
      const bool isRead = access / 36 % 2 == 1, skips = access / 72 == 1;
      if (at + count > 8) continue;
      for (const U64 contents :
           {0x0000000000000000ull, 0xffffffffffffffffull, 0x0706050403020100ull,
            0x0101010101010101ull, 0x8040201008040201ull, 0x0102040001020400ull}) {
        for (World* w : {&fast, &reference}) {
          std::memcpy(w->memory.data(), &contents, sizeof contents);
          w->regions[0]->skipWriteIfMatchesCacheIs(skips);
        }
        const auto step = [=](World& w) {
          return textOf(
              isRead ? w.shadow->readFromCache(w.regions[0], entry, w.memory.data() + at, count)
                     : w.shadow->shadowWriteAndCompareWithCache(w.regions[0], entry,
                                                                w.memory.data() + at, count));
        };
        const std::string expected = onReference(reference, level7, step);
        ASSERT_EQ(outcome(fast, step), expected)
            << "initialized at " << (marks & 7) << " dirty at " << (marks >> 3) << " data at " << at
            << " entry " << entry << " count " << count << (isRead ? " read" : " write")
            << (skips ? " skips" : "") << std::hex << " contents " << contents;
      }
    }
  }
}

// The switch does force the reference: only that traces an access. That the fast path is taken
// without it is proven by tests/overrides/FastPath.cpp.
TEST_F(Equivalence, traceLevel9TracesAWriteAndKeepsTheStore) {
  World world(Support::regionSlots()[0], Support::hamSlots()[0], 20, 4);
  Hal::BufBase* store = world.regions[0]->shadow().ptr();
  class CountingSink : public Zint::TraceSink {
   public:
    void traceLine(const Zint::TraceLine&) override { ++lines; }
    U32 lines = 0;
  };
  CountingSink counter;
  Zint::traceSinkIs(&counter);
  const auto write = [](World& w) {
    U8 bytes[4] = {};
    return textOf(w.shadow->shadowWriteAndCompareWithCache(w.regions[0], 0, bytes, 4));
  };
  outcome(world, write);
  EXPECT_EQ(counter.lines, 0u);
  onReference(world, level9, write);
  EXPECT_EQ(counter.lines, 1u);
  EXPECT_EQ(world.regions[0]->shadow().ptr(), store);
}

}  // namespace
