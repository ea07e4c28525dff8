// The order in which what an object alone holds goes, where that order is promised.
#include <gmock/gmock.h>

#include "support/ManualLoop.h"
#include "support/RecordingHam.h"
#include "teardown/Scene.h"

namespace {

using namespace Teardown;
using testing::ElementsAre;
using Names = std::vector<std::string>;

// Objects that say when they go.
template <class Base>
class Ending : public Base {
 public:
  template <class... Arguments>
  Ending(Names& ended, std::string name, Arguments&&... arguments)
      : Base(std::forward<Arguments>(arguments)...), ended_(ended), name_(std::move(name)) {}

 protected:
  ~Ending() override { ended_.push_back(name_); }

 private:
  Names& ended_;
  const std::string name_;
};

class TeardownOrder : public testing::Test {
 protected:
  ChipMemory::Ptr region(const char* name, U64 address) {
    return Zint::makePtr<Ending<ChipMemory>>(ended, name, name, ChipAddress(address), 8u, 4u, 4u,
                                             ham);
  }

  Names ended;
  Support::TraceCapture trace{0};
  Support::ManualLoop loop;
  const Hardware::ChipHam::Ptr ham = Zint::makePtr<Support::RecordingHam>("ham");
};

TEST_F(TeardownOrder, aRegionReleasesItsBuffersThenItsAccessMethod) {
  ChipMemory::Ptr cm = Zint::makePtr<ChipMemory>(
      "cm", ChipAddress(0), 8u, 4u, 4u,
      Zint::makePtr<Ending<Support::RecordingHam>>(ended, "chipHam", "ham"));
  using Buf = Ending<Hal::Buf>;
  cm->shadowIs(Zint::makePtr<Buf>(ended, "shadow", 32u));
  cm->hardwareIs(Zint::makePtr<Buf>(ended, "hardware", 32u));
  cm->initializedIs(Zint::makePtr<Buf>(ended, "initialized", 2u));
  cm->dirtyIs(Zint::makePtr<Buf>(ended, "dirty", 2u));
  EXPECT_TRUE(ended.empty());
  cm = nullptr;
  EXPECT_THAT(ended, ElementsAre("dirty", "initialized", "shadow", "hardware", "chipHam"));
}

// What follows a region in the chain is destroyed first, even if others hold it.
TEST_F(TeardownOrder, aRegionOutlivesItsChainOnlyWhereItIsHeld) {
  ChipMemoryBogon::Ptr directory = Hardware::chipMemoryBogonFactory("switch");
  ChipMemory::Ptr held = directory->chipMemoryIs("a", ChipAddress(0), 4, 4, 4, ham);
  for (const char* name : {"b", "c", "d", "e", "f", "g", "h", "i", "j"}) {
    directory->chipMemoryIs(name, ChipAddress(0), 4, 4, 4, ham);
  }
  directory = nullptr;
  EXPECT_EQ(held->references(), 1u);
  EXPECT_EQ(held->fwkHmNext(), nullptr);
  EXPECT_EQ(ham->references(), 2u);  // the test's, and that of the region that is held
}

TEST_F(TeardownOrder, aShadowReleasesTheAuditsRequestTheLastRegionTheRegistryAndTheClock) {
  HardwareShadow::Ptr shadow;
  {
    const auto clock = Zint::makePtr<Ending<Zint::ManualClock>>(ended, "clock", "clock");
    const auto activity = Zint::makePtr<Ending<Zint::ActivityConfig>>(
        ended, "activity", "activity", Zint::ValidPtr<const Zint::Clock>(loop.clock));
    shadow = Hardware::hardwareShadowFactory(activity, Zint::Ptr<const Zint::Clock>(clock));
  }
  shadow->auditReadRequestIs(Zint::makePtr<Ending<ChipReadRequest>>(ended, "request", "audit"));
  shadow->chipMemoryIs(region("second", 0x2000));
  shadow->chipMemoryIs(region("first", 0x1000));
  shadow->lastChipMemoryIs(region("last", 0x3000));
  shadow->auditReadRequest()->chipMemoryIs(region("requested", 0x4000));
  shadow = nullptr;
  EXPECT_THAT(ended,
              ElementsAre("request", "requested", "last", "first", "second", "clock", "activity"));
}

// A directory announces every removal while it and the region are still whole.
TEST_F(TeardownOrder, aDirectoryAnnouncesEachRemovalBeforeTheRegionGoes) {
  class CountingNotifiee : public ChipMemoryBogon::NotifieeConst {
   public:
    CountingNotifiee(const ChipMemoryBogon::Ptr& directory, const Hardware::ChipHam::Ptr& ham)
        : NotifieeConst(nullptr, Zint::Ptr<const ChipMemoryBogon>(directory)), ham_(ham) {
      isNonReferencingIs(true);
    }
    void onChipMemory(Zint::String8) override { hams.push_back(ham_->references()); }
    void onIsNondestructing() override { hams.push_back(0); }
    std::vector<std::size_t> hams;  // who held the access method when a removal was notified

   private:
    const Hardware::ChipHam::Ptr ham_;
  };
  ChipMemoryBogon::Ptr directory = Hardware::chipMemoryBogonFactory("switch");
  directory->chipMemoryIs("one", ChipAddress(0), 4, 4, 4, ham);
  directory->chipMemoryIs("two", ChipAddress(0), 4, 4, 4, ham);
  const auto ear = Zint::makePtr<CountingNotifiee>(directory, ham);
  directory = nullptr;
  EXPECT_THAT(ear->hams, ElementsAre(0u, 4u, 3u));
  EXPECT_EQ(ear->notifier(), nullptr);
}

// The reader keeps what it needs until its reactors are deaf, and nothing afterwards.
TEST_F(TeardownOrder, aReaderInTheMiddleReleasesItsRegionsQueuedOnesToo) {
  const ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  request->chipMemoryIs(region("first", 0x1000));
  request->chipMemoryIs(region("second", 0x2000));
  Hardware::ChipReader::Ptr reader = Hardware::chipReaderFactory(
      loop.activity, request, Zint::Ptr<const Zint::Clock>(loop.clock), 4, 0.5);
  request->stateIs(ChipReadRequest::start_);
  loop.turnAt(1);
  request->chipMemoryDelAll();
  EXPECT_TRUE(ended.empty());
  reader = nullptr;
  EXPECT_EQ(ended.size(), 2u);
  EXPECT_EQ(request->notifiees(), 0u);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

}  // namespace
