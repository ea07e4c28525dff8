// The directory: finding and making by name, and what is announced.
#include "support/DirectoryTest.h"

#include <Zint/ObjectText.h>

namespace {

using namespace Support;

class DirectoryRules : public DirectoryTest {};

TEST_F(DirectoryRules, sameArguments_returnTheSameObjectAndAnnounceOnce) {
  const auto cm = asked("a");
  cm->shadowEnabledIs(true);
  EXPECT_EQ(cm, asked("a"));
  EXPECT_EQ((Names{"a"}), observer->told);
  EXPECT_TRUE(cm->shadowEnabled());
}

TEST_F(DirectoryRules, newEntries_areTakenOver) {
  const auto cm = asked("a");
  cm->shadowEnabledIs(true);
  EXPECT_EQ(cm, asked("a", 0x1000, 16));
  EXPECT_EQ(16u, cm->entries());
  EXPECT_EQ(64u, cm->shadow()->size());
  EXPECT_EQ(1u, observer->told.size());
}

TEST_F(DirectoryRules, addressDiffers_isRefusedBeforeEntriesAreTakenOver) {
  const auto cm = asked("a", 0x200001000);
  EXPECT_EQ(refusal("_address", "0x0:00001000", "0x2:00001000"),
            nameInUse([&] { asked("a", 0x1000, 9, 8, 16); }));
  EXPECT_EQ(8u, cm->entries());
}

TEST_F(DirectoryRules, entrySizeDiffers_isRefusedAfterEntriesAreTakenOver) {
  const auto cm = asked("a");
  EXPECT_EQ(refusal("_entrySize", "8", "4"), nameInUse([&] { asked("a", 0x1000, 9, 8, 16); }));
  EXPECT_EQ(9u, cm->entries());
}

TEST_F(DirectoryRules, strideDiffers_isRefusedAfterEntriesAreTakenOver) {
  const auto cm = asked("a");
  EXPECT_EQ(refusal("_stride", "4294967295", "4"),
            nameInUse([&] { asked("a", 0x1000, 9, 4, 0xFFFFFFFF); }));
  EXPECT_EQ(9u, cm->entries());
  EXPECT_EQ(1u, directory->chipMemorys());
}

TEST_F(DirectoryRules, chipHamDiffers_isRefusedByIdentity) {
  asked("a");
  const Hardware::ChipHam::Ptr twin = Zint::makePtr<RecordingHam>("ham");
  EXPECT_EQ(refusal("_chipHam", Zint::objectText(twin.ptr()).bytes(),
                    Zint::objectText(ham.ptr()).bytes()),
            nameInUse([&] { directory->chipMemoryIs("a", ChipAddress(0x1000), 8, 4, 4, twin); }));
  EXPECT_EQ(refusal("_chipHam", "null", Zint::objectText(ham.ptr()).bytes()), nameInUse([&] {
              directory->chipMemoryIs("a", ChipAddress(0x1000), 8, 4, 4, nullptr);
            }));
}

TEST_F(DirectoryRules, chipMemoryDel_unknownNameIsNullAndSilent) {
  asked("a");
  EXPECT_EQ(nullptr, directory->chipMemoryDel("A"));
  EXPECT_EQ(nullptr, directory->chipMemoryDel(""));
  EXPECT_EQ(1u, observer->told.size());
}

TEST_F(DirectoryRules, chipMemoryDel_returnsTheRegionThatLivesOn) {
  const auto cm = asked("a");
  EXPECT_EQ(cm, directory->chipMemoryDel("a"));
  EXPECT_EQ((std::vector<bool>{true, false}), observer->present);
  EXPECT_NE(cm, asked("a"));
}

TEST_F(DirectoryRules, exception_isReportedWithTheIdOfTheCollection) {
  observer->also = [] { throw 1; };
  const auto second = Zint::makePtr<Observer>(directory);
  EXPECT_NE(nullptr, asked("a"));
  EXPECT_EQ((std::vector<Zint::AttributeId>{258}), observer->reported);
  EXPECT_EQ((Names{"a"}), second->told);
  EXPECT_NE(nullptr, directory->chipMemoryDel("a"));
}

TEST_F(DirectoryRules, chipMemoryNotify_announcesAnyName) {
  directory->chipMemoryNotify("nobody", nullptr);
  EXPECT_EQ((Names{"nobody"}), observer->told);
}

TEST_F(DirectoryRules, newChipMemory_announcesNothing) {
  EXPECT_NE(nullptr, directory->newChipMemory("a", ChipAddress(0x1000), 8, 4, 4, ham));
  EXPECT_TRUE(observer->told.empty());
  EXPECT_EQ(directory->chipMemory("a"), asked("a"));
}

TEST_F(DirectoryRules, destructor_announcesEveryRemoval) {
  asked("a");
  asked("b");
  observer->isNonReferencingIs(true);
  observer->told.clear();
  directory = nullptr;
  Names names;
  for (const std::string& name : observer->told) {
    if (name != "(going)") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ((Names{"a", "b"}), names);
  EXPECT_EQ(nullptr, observer->notifier());
}

TEST_F(DirectoryRules, observer_removesTheRegionThatIsBeingMade) {
  observer->also = [&] { directory->chipMemoryDel("a"); };
  const auto cm = asked("a");
  EXPECT_NE(nullptr, cm);
  EXPECT_EQ(0u, directory->chipMemorys());
  EXPECT_EQ((Names{"a", "a"}), observer->told);
}

}  // namespace
