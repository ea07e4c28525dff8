// Reader and shadow without a clock, a request or an activity, and with another one: what was set
// before is released, and what is absent is left out.
#include <Hardware/ChipReader.h>
#include <Zint/GenericIf.h>
#include <gmock/gmock.h>

#include "support/ShadowTest.h"

namespace {

using Hardware::ChipReader;
using testing::ElementsAre;
using testing::IsEmpty;

class Reaction : public Zint::NotifieeConst {
 public:
  Reaction(const Zint::Ptr<Zint::PtrInterface>& of, Zint::AttributeId attribute,
           std::function<void()> reaction)
      : NotifieeConst(nullptr, Zint::Ptr<const Zint::PtrInterface>(of)),
        attribute_(attribute),
        reaction_(std::move(reaction)) {}
  void handleNotification(Zint::ActivityConfig*) override {
    if (attribute() == attribute_) reaction_();
  }

 private:
  Zint::AttributeId attribute_;
  std::function<void()> reaction_;
};

struct ReaderReactors : Support::ShadowTest {
  ReaderReactors() {
    request->chipMemoryIs(first);
    request->chipMemoryIs(second);
  }
  const ChipMemory::Ptr first = audited("first", 0x1000, 8);
  const ChipMemory::Ptr second = audited("second", 0x2000, 8);
  const ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  const ChipReadRequest::Ptr other = Hardware::chipReadRequestFactory("other");
  const ChipReader::Ptr reader =
      Hardware::chipReaderFactory(loop.activity, request, loop.clock, 4, 0.5);
};

TEST_F(ReaderReactors, withoutAClockTheReaderReadsOnlyWhenAsked) {
  reader->clockIs(nullptr);
  EXPECT_EQ(reader->clock(), nullptr);
  request->stateIs(ChipReadRequest::start_);
  EXPECT_NE(reader->currentChipMemory(), nullptr);
  EXPECT_EQ(loop.turnAt(1), 0u);
  EXPECT_THAT(chip->taken(), IsEmpty());
  reader->handleTimeout();
  EXPECT_EQ(chip->taken().size(), 4u);
  EXPECT_EQ(loop.turnAt(2), 0u);
  request->stateIs(ChipReadRequest::stop_);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
}

TEST_F(ReaderReactors, withoutARequestNothingIsRead) {
  reader->requestIs(nullptr);
  EXPECT_EQ(reader->request(), nullptr);
  request->stateIs(ChipReadRequest::start_);
  reader->handleReadRequest();
  reader->handleTimeout();
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  EXPECT_EQ(loop.turnAt(1), 0u);
}

TEST_F(ReaderReactors, withoutReactorsTheActivityIsStillReplaced) {
  reader->clockIs(nullptr);
  reader->requestIs(nullptr);
  reader->zintFwkActivityIs(nullptr);
  EXPECT_EQ(reader->zintFwkActivity(), nullptr);
}

TEST_F(ReaderReactors, anotherActivityIsPassedOnToBothReactors) {
  const auto next = Zint::activityFactory("next", Zint::Ptr<const Zint::Clock>(loop.clock));
  const std::size_t before = loop.activity->references(), beforeOfNext = next->references();
  reader->zintFwkActivityIs(next);
  EXPECT_EQ(loop.activity->references(), before - 3) << "the reader's and its two reactors'";
  EXPECT_EQ(next->references(), beforeOfNext + 3);
}

TEST_F(ReaderReactors, aReaderMarkedForDeletionDoesNotServeAnotherRequestOrClock) {
  other->chipMemoryIs(first);
  other->stateIs(ChipReadRequest::start_);
  reader->zintDoZombieReactors(true);
  reader->requestIs(other);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  reader->clockIs(Zint::manualClockFactory("late"));
  EXPECT_THAT(chip->taken(), IsEmpty());
}

TEST_F(ReaderReactors, aMemberThatHasLeftTheQueueIsNoneAnyMore) {
  reader->chipMemoryEnq(first);
  reader->chipMemoryEnq(second);
  reader->chipMemoryEnq(first);
  EXPECT_EQ(reader->chipMemoryDel(1), second);
  EXPECT_EQ(reader->chipMemoryDel(1), nullptr);
  Zint::GenericIf_ byName(reader);
  EXPECT_EQ(byName.list("chipMemory").find("1").text, "null");
  EXPECT_EQ(byName.list("chipMemory").find("2").object.ptr(), first.ptr());
  EXPECT_EQ(byName.list("chipMemory").find("3").text, "null");
}

TEST_F(ReaderReactors, observerOfTheEntriesReadMayStopWhatHasJustStarted) {
  reader->entriesReadIs(3);
  const auto stop = Zint::makePtr<Reaction>(reader, ChipReader::Id::entriesRead, [this] {
    if (request->state() == ChipReadRequest::start_) request->stateIs(ChipReadRequest::stop_);
  });
  request->stateIs(ChipReadRequest::start_);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  EXPECT_EQ(loop.turnAt(1), 0u);
}

// Sets `isDestroyed` in its destructor.
class EndingReader : public ChipReader {
 public:
  EndingReader(const Zint::Ptr<Zint::ActivityConfig>& activity, bool& isDestroyed)
      : ChipReader(activity, nullptr, nullptr, 4, 0.5), isDestroyed_(isDestroyed) {}

 protected:
  ~EndingReader() override { isDestroyed_ = true; }

 private:
  bool& isDestroyed_;
};

TEST_F(ReaderReactors, theDestructionOfTheOldActivityMayDropTheReader) {
  auto old = Zint::Ptr<Zint::ActivityConfig>(
      Zint::activityFactory("old", Zint::Ptr<const Zint::Clock>(loop.clock)));
  bool isDestroyed = false, isDestroyedWithin = true;
  ChipReader::Ptr dropped = Hardware::chipReaderFactoryOf<EndingReader>(old, isDestroyed);
  const auto drop = Zint::makePtr<Reaction>(old, Zint::Entity::Id::isNondestructing, [&] {
    dropped = nullptr;
    isDestroyedWithin = isDestroyed;
  });
  drop->isNonReferencingIs(true);
  old = nullptr;
  dropped->zintFwkActivityIs(nullptr);
  EXPECT_EQ(dropped, nullptr);
  EXPECT_FALSE(isDestroyedWithin) << "it is held until its notifiees have been notified";
  EXPECT_TRUE(isDestroyed);
}

struct ShadowReactors : Support::ShadowTest {};

TEST_F(ShadowReactors, withoutAClockNoAuditStarts) {
  configure({audited("mac", 0x1000, 8)});
  shadow->clockIs(nullptr);
  shadow->stateIs(HardwareShadow::auditing());
  EXPECT_EQ(loop.turnAt(1), 0u);
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::stop_);
  shadow->stateIs(HardwareShadow::idle());
}

TEST_F(ShadowReactors, withoutReactorsTheActivityIsStillReplaced) {
  shadow->clockIs(nullptr);
  shadow->auditReadRequestIs(nullptr);
  shadow->zintFwkActivityIs(nullptr);
  EXPECT_EQ(shadow->zintFwkActivity(), nullptr);
}

TEST_F(ShadowReactors, anotherActivityIsPassedOnToBothReactors) {
  configure({});
  const auto next = Zint::activityFactory("next", Zint::Ptr<const Zint::Clock>(loop.clock));
  const std::size_t before = loop.activity->references(), beforeOfNext = next->references();
  shadow->zintFwkActivityIs(next);
  EXPECT_EQ(loop.activity->references(), before - 3) << "the shadow's and its two reactors'";
  EXPECT_EQ(next->references(), beforeOfNext + 3);
}

TEST_F(ShadowReactors, withoutARequestNoAnswerIsAwaited) {
  configure({});
  const ChipReadRequest::Ptr request = shadow->auditReadRequest();
  shadow->auditReadRequestIs(nullptr);
  EXPECT_EQ(shadow->auditReadRequest(), nullptr);
  EXPECT_EQ(request->notifiees(), 0u);
}

class AuditsObserver : public Hardware::HardwareShadow::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onAudits() override { told.push_back(attribute()); }
  std::vector<Zint::AttributeId> told;
};

TEST_F(ShadowReactors, equalValuesAndUnhandledAttributesReachNoTypedObserver) {
  const auto told =
      Zint::makePtr<AuditsObserver>(nullptr, Zint::Ptr<const Hardware::HardwareShadow>(shadow));
  shadow->auditsIs(0);
  shadow->zintFwkActivityIs(loop.activity);
  EXPECT_THAT(told->told, IsEmpty());
  shadow->zintFwkActivityIs(
      Zint::activityFactory("next", Zint::Ptr<const Zint::Clock>(loop.clock)));
  shadow->auditsIs(1);
  EXPECT_THAT(told->told, ElementsAre(HardwareShadow::Id::audits));
}

TEST_F(ShadowReactors, observerOfTheStopMayConfigureAgainAtOnce) {
  configure({shadowed("mac", 0x1000, 8)});
  const auto again =
      Zint::makePtr<Reaction>(shadow->auditReadRequest(), ChipReadRequest::Id::state, [this] {
        if (shadow->state() == HardwareShadow::unconfigured()) {
          shadow->stateIs(HardwareShadow::configured());
        }
      });
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(shadow->state(), HardwareShadow::idle());
  EXPECT_NE(found(0x1000), nullptr);
}

TEST_F(ShadowReactors, observerOfTheSwitchMayUnconfigureTheShadow) {
  const ChipMemory::Ptr mac = shadowed("mac", 0x1000, 8);
  configure({mac});
  const auto down = Zint::makePtr<Reaction>(mac, ChipMemory::Id::auditEnabled, [this] {
    shadow->stateIs(HardwareShadow::unconfigured());
  });
  shadow->chipMemoryAuditEnabledIs(mac, true);
  EXPECT_TRUE(mac->auditEnabled());
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), 0u);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 0u);
}

// A region's typed observer that overrides nothing, to which every change may be told.
TEST_F(ShadowReactors, anObserverWithoutReactionsIsToldInVain) {
  const ChipMemory::Ptr mac = shadowed("mac", 0x1000, 8);
  const auto bare = Zint::makePtr<ChipMemory::NotifieeConst>(nullptr, mac);
  mac->entriesIs(9);
  mac->auditEnabledIs(true);
  mac->modeIs(ChipMemory::buffered());
  mac->registersFixedIs(1);
  mac->shadowEnabledIs(false);
  EXPECT_EQ(bare->notifier(), mac.ptr());
  EXPECT_EQ(bare->attribute(), 0u);

  const auto reader = Hardware::chipReaderFactory(
      loop.activity, Hardware::chipReadRequestFactory("request"), loop.clock, 4, 0.5);
  const auto bareToo = Zint::makePtr<ChipReader::NotifieeConst>(nullptr, reader);
  reader->entriesReadIs(1);
  EXPECT_EQ(bareToo->attribute(), 0u);
}

// --- Indices that were tampered with ------------------------------------------------------------

TEST_F(ShadowReactors, auditErrors_countsWhatIsWrongInTheIndex) {
  configure(
      {shadowed("low", 0x1000, 8), shadowed("high", 0x2000, 8), shadowed("far", 0x100001000, 8)});
  ASSERT_EQ(shadow->nextIndex(), 2u);
  EXPECT_EQ(shadow->auditErrors(), 0u);
  const auto chunk = shadow->chipMemoryChunkArray(0);
  chunk->offsetIs(1, 0x1000);
  EXPECT_EQ(shadow->auditErrors(), 1u) << "offsets do not ascend";
  chunk->chipMemoryIs(1, nullptr);
  EXPECT_EQ(shadow->auditErrors(), 2u) << "a region is missing";
  shadow->chipMemoryIdIs(1, 0);
  EXPECT_EQ(shadow->auditErrors(), 4u) << "ids do not ascend, and one is not its chunk's";
  shadow->chipMemoryChunkArrayIs(0, nullptr);
  EXPECT_EQ(shadow->auditErrors(), 3u) << "a chunk is missing, with the two errors in it";
}

}  // namespace
