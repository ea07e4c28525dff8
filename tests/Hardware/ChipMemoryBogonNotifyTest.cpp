// The directory's observers, and its end.
#include "support/DirectoryTest.h"
#include "support/TraceCapture.h"

namespace Hardware {
namespace {

using Support::Names;
using testing::ElementsAre;
using testing::IsEmpty;

class ChipMemoryBogonNotify : public Support::DirectoryTest {};

// --- Notification ---

TEST_F(ChipMemoryBogonNotify, chipMemoryNotify_tellsEveryNotifieeInTheOrderOfRegistration) {
  const auto second = Zint::makePtr<Observer>(directory);
  Names order;
  observer->also = [&] { order.emplace_back("first"); };
  second->also = [&] { order.emplace_back("second"); };
  directory->chipMemoryNotify("mac", nullptr);
  EXPECT_THAT(order, ElementsAre("first", "second"));
  EXPECT_THAT(second->told, ElementsAre("mac"));
}

TEST_F(ChipMemoryBogonNotify, chipMemoryNotify_oneThatUnregistersMeanwhileIsNotTold) {
  const auto second = Zint::makePtr<Observer>(directory);
  observer->also = [&] { second->notifierIs(nullptr); };
  asked("mac");
  EXPECT_THAT(observer->told, ElementsAre("mac"));
  EXPECT_THAT(second->told, IsEmpty());
}

TEST_F(ChipMemoryBogonNotify, chipMemoryNotify_oneThatRegistersMeanwhileWaitsForTheNext) {
  Zint::Ptr<Observer> second;
  observer->also = [&] {
    if (second == nullptr) second = Zint::makePtr<Observer>(directory);
  };
  asked("mac");
  EXPECT_THAT(second->told, IsEmpty());
  asked("acl");
  EXPECT_THAT(second->told, ElementsAre("acl"));
}

TEST_F(ChipMemoryBogonNotify, chipMemoryNotify_anExceptionIsReportedAs258AndTheOthersAreTold) {
  const Support::TraceCapture trace(0);
  const auto second = Zint::makePtr<Observer>(directory);
  observer->also = [] { Zint::throwRangeException("handler failed"); };
  EXPECT_NE(asked("mac"), nullptr);
  EXPECT_NE(directory->chipMemoryDel("mac"), nullptr);
  EXPECT_NO_THROW(directory->chipMemoryNotify("mac", nullptr));
  EXPECT_THAT(observer->reported, ElementsAre(258u, 258u, 258u));
  EXPECT_THAT(second->told, ElementsAre("mac", "mac", "mac"));
  EXPECT_THAT(second->reported, IsEmpty());
  // Never silent.
  ASSERT_EQ(trace.full.size(), 3u);
  EXPECT_EQ(trace.full[0].text,
            "exception in a handler of Hardware::ChipMemoryBogon attribute 258: handler failed");
}

TEST_F(ChipMemoryBogonNotify, chipMemoryNotify_aSilencedNotifieeIsNotTold) {
  observer->hasNotificationActiveIs(false);
  asked("mac");
  EXPECT_THAT(observer->told, IsEmpty());
  observer->hasNotificationActiveIs(true);
  asked("acl");
  EXPECT_THAT(observer->told, ElementsAre("acl"));
}

TEST_F(ChipMemoryBogonNotify, notifiee_mayRemoveWhatIsAnnounced) {
  observer->also = [&] {
    if (observer->told.size() == 1) directory->chipMemoryDel("mac");
  };
  const ChipMemory::Ptr made = asked("mac");
  EXPECT_NE(made, nullptr);  // never null
  EXPECT_EQ(directory->chipMemory("mac"), nullptr);
  EXPECT_THAT(observer->told, ElementsAre("mac", "mac"));
}

TEST_F(ChipMemoryBogonNotify, notifiee_nonConstMayChangeTheDirectory) {
  class Changer : public ChipMemoryBogon::Notifiee {
   public:
    explicit Changer(const ChipMemoryBogon::Ptr& watched) : Notifiee(nullptr, watched) {}
    void onChipMemory(Zint::String8 name) override {
      if (name == "mac") notifier()->chipMemoryDel("acl");
    }
  };
  asked("acl");
  const auto changer = Zint::makePtr<Changer>(directory);
  asked("mac");
  EXPECT_EQ(directory->chipMemory("acl"), nullptr);
  EXPECT_THAT(observer->told, ElementsAre("acl", "mac", "acl"));  // it was told of "mac" before
}

// --- The end ---

TEST_F(ChipMemoryBogonNotify, destructor_announcesEveryRemovalToOneThatWatchesWithoutAReference) {
  for (const char* name : {"a", "b", "c"}) asked(name);
  Names expected = walked();
  observer->told.clear();
  observer->present.clear();
  observer->isNonReferencingIs(true);
  directory = nullptr;
  expected.insert(expected.begin(), "(going)");
  EXPECT_EQ(observer->told, expected);
  EXPECT_THAT(observer->present, ElementsAre(false, false, false));
  EXPECT_EQ(observer->notifier(), nullptr);
}

TEST_F(ChipMemoryBogonNotify, destructor_handlersMayTouchTheDirectoryWithoutResurrectingIt) {
  asked("mac");
  observer->isNonReferencingIs(true);
  const ChipMemoryBogon* plain = directory.ptr();
  bool held = false;
  observer->also = [&] {
    const Zint::Ptr<const ChipMemoryBogon> again(plain);
    held = again->chipMemorys() == 0;
  };
  directory = nullptr;
  EXPECT_TRUE(held);
  EXPECT_EQ(observer->notifier(), nullptr);
}

TEST_F(ChipMemoryBogonNotify, destructor_leavesRegionsThatOthersHold) {
  const ChipMemory::Ptr mac = asked("mac");
  const ChipMemory::Ptr acl = asked("acl");
  observer = nullptr;
  directory = nullptr;
  EXPECT_EQ(mac->references(), 1u);
  EXPECT_EQ(acl->references(), 1u);
  const ChipMemoryBogon::Ptr next = chipMemoryBogonFactory("next");
  EXPECT_EQ(next->chipMemorys(), 0u);
}

TEST_F(ChipMemoryBogonNotify, destructor_letsGoOfTheRegionsItAloneHolds) {
  asked("mac");
  EXPECT_EQ(ham->references(), 2u);
  observer = nullptr;
  directory = nullptr;
  EXPECT_EQ(ham->references(), 1u);
}

TEST_F(ChipMemoryBogonNotify, notifiee_keepsTheDirectoryAliveUnlessItIsNonReferencing) {
  asked("mac");
  const ChipMemoryBogon* plain = directory.ptr();
  directory = nullptr;
  EXPECT_EQ(observer->notifier(), plain);
  EXPECT_EQ(plain->chipMemorys(), 1u);
}

}  // namespace
}  // namespace Hardware
