// What ends with its last reference may reach back to the operation that let go of it: look
// something up, change what is being walked over, or drop the very object that is at work.
#include <Hardware/ChipReader.h>
#include <gmock/gmock.h>

#include "support/DirectoryTest.h"
#include "support/ShadowTest.h"

namespace {

using Support::word;
using testing::ElementsAre;

// An access method whose end is seen.
struct EndingHam : Hardware::ChipHam {
  explicit EndingHam(std::function<void()> atEnd) : ChipHam("ending"), atEnd_(std::move(atEnd)) {}
  ~EndingHam() override { atEnd_(); }
  std::function<void()> atEnd_;
};

// A request whose end is seen.
struct EndingRequest : Hardware::ChipReadRequest {
  explicit EndingRequest(std::function<void()> atEnd)
      : ChipReadRequest("ending"), atEnd_(std::move(atEnd)) {}
  ~EndingRequest() override { atEnd_(); }
  std::function<void()> atEnd_;
};

class LastReference : public Support::ShadowTest {
 protected:
  // A region that runs `atEnd` when it goes.
  ChipMemory::Ptr ending(const char* name, U64 address, std::function<void()> atEnd) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory(name, ChipAddress(address), 4, 4, 4,
                                    Zint::makePtr<EndingHam>([this, atEnd = std::move(atEnd)] {
                                      ++ends;
                                      atEnd();
                                    }));
    cm->shadowEnabledIs(true);
    return cm;
  }

  int ends = 0;
};

// --- Look-up ------------------------------------------------------------------------------------

class LookUpThatEndsTheLast : public LastReference {
 protected:
  LookUpThatEndsTheLast() {
    mac->readFromCacheIs(true);
    configure({mac, vlan});
    write(mac, 1, 0x1234);
  }
  void lastIs(std::function<void()> atEnd) {
    shadow->lastChipMemoryIs(ending("brief", 0x8000, std::move(atEnd)));
    ASSERT_EQ(ends, 0);
  }

  const ChipMemory::Ptr mac = shadowed("mac", 0x1000, 4), vlan = shadowed("vlan", 0x2000, 4);
};

TEST_F(LookUpThatEndsTheLast, answersWithWhatItFoundWhateverIsLookedUpMeanwhile) {
  lastIs([this] { EXPECT_EQ(found(0x2000), vlan); });
  EXPECT_EQ(found(0x1000), mac);
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(shadow->lastChipMemory(), vlan) << "the latest";
}

TEST_F(LookUpThatEndsTheLast, writesToWhatItFound) {
  lastIs([this] { EXPECT_EQ(found(0x2000), vlan); });
  shadow->shadowWriteU32(ChipAddress(0x1008), 7);
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(word(mac->shadow(), 2), 7u);
  EXPECT_THAT(Support::marked(vlan->initialized()), ElementsAre());
}

TEST_F(LookUpThatEndsTheLast, readsFromWhatItFoundAlthoughTheLastWasForgotten) {
  lastIs([this] { shadow->lastChipMemoryIs(nullptr); });
  EXPECT_EQ(shadow->readFromCacheU32(ChipAddress(0x1004)), 0x1234u);
  EXPECT_EQ(ends, 1);
}

TEST_F(LookUpThatEndsTheLast, survivesTheEndOfTheIndexAndOfTheShadow) {
  lastIs([this] { shadow->stateIs(HardwareShadow::unconfigured()); });
  shadow->shadowWriteU32(ChipAddress(0x1000), 9);
  EXPECT_EQ(word(mac->shadow(), 0), 9u);
  shadow->stateIs(HardwareShadow::configured());
  for (const auto& access : std::vector<std::function<void(HardwareShadow*)>>{
           [](HardwareShadow* s) { s->findChipMemory(ChipAddress(0x1000), 4); },
           [](HardwareShadow* s) { s->shadowWriteU32(ChipAddress(0x1000), 9); },
           [](HardwareShadow* s) { s->readFromCacheU32(ChipAddress(0x1000)); }}) {
    ends = 0;
    lastIs([this] { shadow = nullptr; });
    access(shadow.ptr());
    EXPECT_EQ(shadow, nullptr);
    shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
    configure({mac, vlan});
  }
}

// The last region goes when the index is cleared: its end meets no half-cleared one.
TEST_F(LookUpThatEndsTheLast, findsNothingMoreOnceTheIndexIsCleared) {
  lastIs([this] { EXPECT_EQ(found(0x1000), nullptr); });
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(ends, 1);
}

// --- Registry and index -------------------------------------------------------------------------

TEST_F(LastReference, aReplacedRegionMayDropTheShadow) {
  shadow->chipMemoryIs(ending("old", 0x1000, [this] { shadow = nullptr; }));
  shadow->chipMemoryIs(region("new", 0x1000, 4));
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(shadow, nullptr);
}

TEST_F(LastReference, aChunkThatGoesMayDropTheShadow) {
  shadow->chipMemoryChunkIs(7)->chipMemoryIs(0,
                                             ending("mac", 0x1000, [this] { shadow = nullptr; }));
  shadow->chipMemoryChunkIs(8);
  shadow->chipMemoryChunkDelAll();
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(shadow, nullptr);
}

TEST_F(LastReference, anElementOfAnArrayThatGoesMayEndTheArray) {
  configure({});
  shadow->chipMemoryChunkArrayIs(0, Zint::makePtr<Hardware::ChipMemoryChunk>(7u));
  shadow->chipMemoryChunkArray(0)->chipMemoryIs(
      0, ending("mac", 0x1000, [this] { shadow->chipMemoryChunkArrayDelAll(); }));
  shadow->chipMemoryChunkArrayDel(0);
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(shadow->chipMemoryChunkArrays(), 0u);
}

// A walk that stands on a region which has left leaves alone what took its place.
TEST_F(LastReference, aRegionThatTookThePlaceOfAnOverriddenOneStays) {
  const ChipMemory::Ptr later = region("later", 0x2000, 4), normal = region("normal", 0x2000, 4);
  ChipMemory::Ptr first = ending("first", 0x1000, [&] {
    shadow->chipMemoryDel(ChipAddress(0x2000));
    shadow->chipMemoryIs(normal);
  });
  for (const ChipMemory::Ptr& cm : {first, later}) {
    cm->modeIs(ChipMemory::override());
    shadow->chipMemoryIs(cm);
  }
  first = nullptr;
  shadow->removeOverrideOnlyChipMem();
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(shadow->chipMemory(ChipAddress(0x2000)), normal);
  EXPECT_EQ(shadow->chipMemorys(), 1u);
}

// --- Requests and reader ------------------------------------------------------------------------

TEST_F(LastReference, aRequestThatIsReplacedMayDropTheShadow) {
  shadow->auditReadRequestIs(Zint::makePtr<EndingRequest>([this] { shadow = nullptr; }));
  shadow->auditReadRequestIs(Hardware::chipReadRequestFactory("next"));
  EXPECT_EQ(shadow, nullptr);
}

class ReaderThatEnds : public LastReference {
 protected:
  Zint::Ptr<Hardware::ChipReader> reader =
      Hardware::chipReaderFactory(loop.activity, nullptr, loop.clock, 8, 0.1);
};

TEST_F(ReaderThatEnds, withARegionOfItsQueue) {
  reader->chipMemoryEnq(ending("mac", 0x1000, [this] { reader = nullptr; }));
  reader->chipMemoryEnq(region("vlan", 0x2000, 4));
  reader->chipMemoryDelAll();
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(reader, nullptr);
}

TEST_F(ReaderThatEnds, withTheRegionItReads) {
  reader->currentChipMemoryIs(ending("mac", 0x1000, [this] { reader = nullptr; }));
  reader->currentChipMemoryIs(nullptr);
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(reader, nullptr);
}

TEST_F(ReaderThatEnds, withItsRequestThatIsReplaced) {
  reader->requestIs(Zint::makePtr<EndingRequest>([this] { reader = nullptr; }));
  reader->requestIs(Hardware::chipReadRequestFactory("next"));
  EXPECT_EQ(reader, nullptr);
}

// --- Directory ----------------------------------------------------------------------------------

class DirectoryWalk : public Support::DirectoryTest {};

TEST_F(DirectoryWalk, leavesAloneARegionThatTookThePlaceOfItsOwn) {
  asked("mac");
  auto it = directory->chipMemoryIterator();
  directory->chipMemoryDel("mac");
  const ChipMemory::Ptr next = asked("mac", 0x2000);
  it.del();
  EXPECT_EQ(directory->chipMemory("mac"), next);
}

TEST_F(DirectoryWalk, outlivesTheDirectory) {
  asked("mac");
  auto it = directory->chipMemoryIterator();
  directory = nullptr;
  ASSERT_TRUE(it);
  it.del();
  EXPECT_EQ(it->name(), "mac") << "held until the next step";
}

}  // namespace
