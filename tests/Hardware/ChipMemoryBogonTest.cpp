// The directory: regions made, shared and removed by name.
#include <Zint/ObjectText.h>

#include <algorithm>

#include "support/DirectoryTest.h"

namespace Hardware {
namespace {

using Support::Names;
using testing::ElementsAre;
using testing::IsEmpty;

class ChipMemoryBogonTest : public Support::DirectoryTest {};

// --- Data model ---

TEST_F(ChipMemoryBogonTest, constructor_isEmptyWithOneReference) {
  const ChipMemoryBogon::Ptr made = Zint::makePtr<ChipMemoryBogon>("d");
  EXPECT_EQ(made->references(), 1u);
  EXPECT_EQ(made->name(), "d");
  EXPECT_EQ(made->chipMemorys(), 0u);
  EXPECT_EQ(made->chipMemory("mac"), nullptr);
}

TEST_F(ChipMemoryBogonTest, attributeString_is258ForChipMemoryAndTheEntitysOwnForTheRest) {
  EXPECT_EQ(directory->attributeString(258), "chipMemory");
  EXPECT_EQ(directory->attributeString(256), "name");
  EXPECT_EQ(directory->attributeString(257), "isNondestructing");
  for (const Zint::AttributeId other : {0u, 255u, 259u, 514u, 0xffffffffu}) {
    EXPECT_EQ(directory->attributeString(other), "unknown") << other;
  }
}

TEST_F(ChipMemoryBogonTest, iteration_isInTheOrderOfTheReversedHashOfTheName) {
  Names expected;
  for (int i = 0; i < 100; ++i) {
    expected.push_back("region" + std::to_string(i));
    asked(expected.back().c_str());
  }
  std::sort(expected.begin(), expected.end(), [](const std::string& a, const std::string& b) {
    return Zint::reversedBits(Zint::String8(a).hash()) <
           Zint::reversedBits(Zint::String8(b).hash());
  });
  EXPECT_EQ(walked(), expected);
}

TEST_F(ChipMemoryBogonTest, region_belongsToOneDirectoryAtATime) {
  const ChipMemoryBogon::Ptr other = chipMemoryBogonFactory("other");
  const ChipMemory::Ptr mac = asked("mac");
  EXPECT_EQ(other->chipMemory("mac"), nullptr);
  const ChipMemory::Ptr theirs = other->chipMemoryIs("mac", ChipAddress(0x9000), 1, 4, 4, ham);
  EXPECT_NE(theirs, mac);
  EXPECT_EQ(directory->chipMemory("mac"), mac);
}

// --- chipMemoryIs: making ---

TEST_F(ChipMemoryBogonTest, chipMemoryIs_makesARegionOfExactlyTheArguments) {
  const ChipMemory::Ptr mac = asked("mac", 0x200001000, 16, 8, 12);
  EXPECT_EQ(mac->name(), "mac");
  EXPECT_EQ(mac->address(), ChipAddress(0x200001000));
  EXPECT_EQ(mac->entries(), 16u);
  EXPECT_EQ(mac->entrySize(), 8u);
  EXPECT_EQ(mac->stride(), 12u);
  EXPECT_EQ(mac->chipHam(), ham);
  EXPECT_EQ(mac->hardware()->size(), 128u);  // the constructor's reactions have run
  EXPECT_EQ(directory->chipMemory("mac"), mac);
  EXPECT_EQ(directory->chipMemorys(), 1u);
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_announcesTheNewMemberWhenItIsThere) {
  asked("mac");
  EXPECT_THAT(observer->told, ElementsAre("mac"));
  EXPECT_THAT(observer->present, ElementsAre(true));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_askingTwiceReturnsTheSameAndAnnouncesOnce) {
  const ChipMemory::Ptr first = asked("mac");
  EXPECT_EQ(asked("mac"), first);
  EXPECT_EQ(directory->chipMemorys(), 1u);
  EXPECT_THAT(observer->told, ElementsAre("mac"));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_askingAgainTouchesNothingOfTheRegion) {
  const ChipMemory::Ptr mac = asked("mac");
  mac->shadowEnabledIs(true);
  mac->modeIs(ChipMemory::buffered());
  mac->readFromCacheIs(true);
  mac->registersFixedIs(7);
  mac->entryInitializedIs(3);
  const Hal::BufBase::Ptr shadow = mac->shadow();
  asked("mac");
  EXPECT_EQ(mac->mode(), ChipMemory::buffered());
  EXPECT_TRUE(mac->readFromCache());
  EXPECT_EQ(mac->registersFixed(), 7u);
  EXPECT_EQ(mac->shadow(), shadow);
  EXPECT_TRUE(mac->entryInitialized(3));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_acceptsANullAccessMethod) {
  const ChipMemory::Ptr bare = directory->chipMemoryIs("bare", ChipAddress(), 1, 4, 4, nullptr);
  EXPECT_EQ(directory->chipMemoryIs("bare", ChipAddress(), 1, 4, 4, nullptr), bare);
}

// --- chipMemoryIs: asking again for something else ---

TEST_F(ChipMemoryBogonTest, chipMemoryIs_takesOverNewEntries) {
  const ChipMemory::Ptr mac = asked("mac", 0x1000, 8);
  mac->shadowEnabledIs(true);
  const Hal::BufBase::Ptr before = mac->shadow();
  EXPECT_EQ(asked("mac", 0x1000, 32), mac);
  EXPECT_EQ(mac->entries(), 32u);
  EXPECT_NE(mac->shadow(), before);
  EXPECT_EQ(mac->shadow()->size(), 128u);
  EXPECT_THAT(observer->told, ElementsAre("mac"));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_refusesAnotherAddress) {
  const ChipMemory::Ptr mac = asked("mac", 0x200001000);
  EXPECT_EQ(nameInUse([&] { asked("mac", 0x1f00); }),
            refusal("_address", "0x0:00001f00", "0x2:00001000"));
  EXPECT_EQ(directory->chipMemory("mac"), mac);
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_comparesAll64BitsOfTheAddress) {
  asked("mac", 0x1000);
  EXPECT_EQ(nameInUse([&] { asked("mac", 0x100001000); }),
            refusal("_address", "0x1:00001000", "0x0:00001000"));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_refusesAnotherEntrySize) {
  asked("mac", 0x1000, 8, 4);
  EXPECT_EQ(nameInUse([&] { asked("mac", 0x1000, 8, 4000000000u); }),
            refusal("_entrySize", "4000000000", "4"));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_refusesAnotherStride) {
  asked("mac", 0x1000, 8, 4, 4);
  EXPECT_EQ(nameInUse([&] { asked("mac", 0x1000, 8, 4, 8); }),
            "Reinstantiating the pointer interface where constructor parameter attribute _stride "
            "has a different value of 8 than the current value of 4 not allowed");
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_refusesAnotherAccessMethod) {
  asked("mac");
  const ChipHam::Ptr other = Zint::makePtr<Support::RecordingHam>("ham");  // the same by name
  const auto ask = [&](const ChipHam::Ptr& with) {
    return nameInUse([&] { directory->chipMemoryIs("mac", ChipAddress(0x1000), 8, 4, 4, with); });
  };
  const std::string held = Zint::valueToStrep(ham).bytes();
  const std::string passed = Zint::valueToStrep(other).bytes();
  EXPECT_NE(held, passed);
  EXPECT_EQ(ask(other), refusal("_chipHam", passed, held));
  EXPECT_EQ(ask(nullptr), refusal("_chipHam", "null", held));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_aDifferentAddressAndStrideReportTheAddress) {
  asked("mac", 0x1000, 8, 4, 4);
  EXPECT_EQ(nameInUse([&] { asked("mac", 0x2000, 8, 4, 8); }),
            refusal("_address", "0x0:00002000", "0x0:00001000"));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_stopsAtTheFirstDifference) {
  const ChipMemory::Ptr mac = asked("mac", 0x1000, 8, 4, 4);
  const auto ask = [&](U64 address, U32 entrySize, U32 stride) {
    return nameInUse([&] {
      directory->chipMemoryIs("mac", ChipAddress(address), 9, entrySize, stride, nullptr);
    });
  };
  EXPECT_EQ(ask(0x2000, 2, 8), refusal("_address", "0x0:00002000", "0x0:00001000"));
  EXPECT_EQ(mac->entries(), 8u);  // not reached
  EXPECT_EQ(ask(0x1000, 2, 8), refusal("_entrySize", "2", "4"));
  EXPECT_EQ(ask(0x1000, 4, 8), refusal("_stride", "8", "4"));
  EXPECT_EQ(ask(0x1000, 4, 4), refusal("_chipHam", "null", Zint::valueToStrep(ham).bytes()));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_changesEntriesAndThenReportsTheStride) {
  const ChipMemory::Ptr mac = asked("mac", 0x1000, 8, 4, 4);
  mac->shadowEnabledIs(true);
  EXPECT_EQ(nameInUse([&] { asked("mac", 0x1000, 16, 4, 8); }), refusal("_stride", "8", "4"));
  EXPECT_EQ(mac->entries(), 16u);
  EXPECT_EQ(mac->shadow()->size(), 64u);
  EXPECT_THAT(observer->told, ElementsAre("mac"));
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_comparesTheAccessMethodGivenThoughANotifieeClearsIt) {
  struct Clear : ChipMemory::NotifieeConst {
    Clear(const ChipMemory::Ptr& cm, ChipHam::Ptr& cleared)
        : NotifieeConst(nullptr, Zint::Ptr<const ChipMemory>(cm)), cleared_(cleared) {}
    void onEntries() override { cleared_ = nullptr; }
    ChipHam::Ptr& cleared_;
  };
  const ChipMemory::Ptr mac = asked("mac");
  ChipHam::Ptr given = ham;
  const auto clear = Zint::makePtr<Clear>(mac, given);
  EXPECT_EQ(directory->chipMemoryIs("mac", mac->address(), 9, 4, 4, given), mac);
  EXPECT_EQ(given, nullptr);
  EXPECT_EQ(mac->entries(), 9u);
}

TEST_F(ChipMemoryBogonTest, chipMemoryIs_aRefusalLeavesTheCollectionAsItIs) {
  const ChipMemory::Ptr mac = asked("mac");
  asked("acl", 0x2000);
  const Names before = walked();
  EXPECT_NE(nameInUse([&] { asked("mac", 0x1000, 8, 4, 8); }), "");
  EXPECT_EQ(walked(), before);
  EXPECT_EQ(directory->chipMemory("mac"), mac);
  EXPECT_EQ(mac->stride(), 4u);
  EXPECT_EQ(observer->told.size(), 2u);
}

// --- newChipMemory ---

TEST_F(ChipMemoryBogonTest, newChipMemory_insertsWithoutAnnouncement) {
  const ChipMemory::Ptr mac = directory->newChipMemory("mac", ChipAddress(0x1000), 8, 4, 4, ham);
  EXPECT_EQ(directory->chipMemory("mac"), mac);
  EXPECT_THAT(observer->told, IsEmpty());
}

// --- Removal ---

TEST_F(ChipMemoryBogonTest, chipMemoryDel_returnsTheRegionAndAnnouncesWhenItIsGone) {
  const ChipMemory::Ptr mac = asked("mac");
  EXPECT_EQ(directory->chipMemoryDel("mac"), mac);
  EXPECT_EQ(directory->chipMemory("mac"), nullptr);
  EXPECT_EQ(directory->chipMemorys(), 0u);
  EXPECT_THAT(observer->told, ElementsAre("mac", "mac"));
  EXPECT_THAT(observer->present, ElementsAre(true, false));
}

TEST_F(ChipMemoryBogonTest, chipMemoryDel_ofAnUnknownNameIsNullAndCallsNobody) {
  EXPECT_EQ(directory->chipMemoryDel("mac"), nullptr);
  EXPECT_THAT(observer->told, IsEmpty());
}

TEST_F(ChipMemoryBogonTest, chipMemoryDel_withoutNotifieesReturnsTheRegion) {
  observer = nullptr;
  const ChipMemory::Ptr mac = asked("mac");
  EXPECT_EQ(directory->chipMemoryDel("mac"), mac);
}

TEST_F(ChipMemoryBogonTest, chipMemoryDel_theRegionLivesOnAndCanBeKeptElsewhere) {
  const ChipMemory::Ptr mac = asked("mac");
  asked("acl");
  directory->chipMemoryDel("mac");
  EXPECT_EQ(mac->references(), 1u);
  EXPECT_EQ(mac->fwkHmNext(), nullptr);  // the link is free again
  EXPECT_NE(asked("mac"), mac);
}

TEST_F(ChipMemoryBogonTest, chipMemoryDelAll_announcesEachInTheOrderOfIteration) {
  for (int i = 0; i < 20; ++i) asked(("region" + std::to_string(i)).c_str());
  const Names order = walked();
  observer->told.clear();
  directory->chipMemoryDelAll();
  EXPECT_EQ(observer->told, order);
  EXPECT_EQ(directory->chipMemorys(), 0u);
}

TEST_F(ChipMemoryBogonTest, chipMemoryDelAll_ofAnEmptyDirectoryIsQuiet) {
  directory->chipMemoryDelAll();
  EXPECT_THAT(observer->told, IsEmpty());
}

TEST_F(ChipMemoryBogonTest, iterator_deleteNotifyAnnouncesTheRegion) {
  const ChipMemory::Ptr mac = asked("mac");
  auto it = directory->chipMemoryIterator();
  it.deleteNotify(mac);
  EXPECT_THAT(observer->told, ElementsAre("mac", "mac"));
  EXPECT_EQ(directory->chipMemory("mac"), mac);
}

TEST_F(ChipMemoryBogonTest, iterator_delRemovesTheCurrentAndGoesOn) {
  for (const char* name : {"a", "b", "c", "d"}) asked(name);
  const Names order = walked();
  auto it = directory->chipMemoryIterator();
  ++it;
  it.del();
  EXPECT_EQ((*it)->name().bytes(), order[1]);  // held until the next step
  ++it;
  EXPECT_EQ((*it)->name().bytes(), order[2]);
  EXPECT_EQ(walked(), (Names{order[0], order[2], order[3]}));
  EXPECT_EQ(observer->told.back(), order[1]);
}

TEST_F(ChipMemoryBogonTest, iterator_survivesTheRemovalOfOthersAndTheEndOfTheDirectory) {
  for (const char* name : {"a", "b", "c", "d"}) asked(name);
  const Names order = walked();
  auto it = directory->chipMemoryIteratorConst();
  directory->chipMemoryDel(order[1]);
  ++it;
  EXPECT_EQ(it->name().bytes(), order[2]);
  observer = nullptr;
  directory = nullptr;
  ++it;
  EXPECT_FALSE(it);
}

}  // namespace
}  // namespace Hardware
