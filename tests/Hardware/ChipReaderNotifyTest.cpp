// The reader: who is told of its attributes.
#include <Hardware/ChipReader.h>
#include <gmock/gmock.h>

#include "support/ShadowTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ReaderId = Hardware::ChipReader::Id;

class ReaderObserver : public Zint::NotifieeConst {
 public:
  explicit ReaderObserver(const Zint::Ptr<Hardware::ChipReader>& reader)
      : NotifieeConst(nullptr, Zint::Ptr<const Zint::PtrInterface>(reader)) {}
  void handleNotification(Zint::ActivityConfig*) override { told.push_back(attribute()); }
  std::vector<Zint::AttributeId> told;
};

struct ChipReaderNotify : Support::ShadowTest {
  Zint::Ptr<Hardware::ChipReader> reader = Hardware::chipReaderFactory(
      loop.activity, Hardware::chipReadRequestFactory("request"), loop.clock, 10, 0.5);
  Zint::Ptr<ReaderObserver> observer = Zint::makePtr<ReaderObserver>(reader);
};

TEST_F(ChipReaderNotify, aChangedValueIsAnnounced) {
  const auto other = Zint::activityFactory("other", Zint::Ptr<const Zint::Clock>(loop.clock));
  reader->maxEntriesPerReadIs(11);
  reader->readIntervalIs(0.25);
  reader->zintFwkActivityIs(other);
  EXPECT_THAT(observer->told, ElementsAre(ReaderId::maxEntriesPerRead, ReaderId::readInterval,
                                          ReaderId::zintFwkActivity));
}

TEST_F(ChipReaderNotify, anEqualValueIsNot) {
  reader->maxEntriesPerReadIs(10);
  reader->readIntervalIs(0.5);
  reader->zintFwkActivityIs(loop.activity);
  EXPECT_THAT(observer->told, IsEmpty());
}

// --- Typed observers ----------------------------------------------------------------------------

class TypedReaderObserver : public Hardware::ChipReader::NotifieeConst {
 public:
  explicit TypedReaderObserver(const Zint::Ptr<Hardware::ChipReader>& reader)
      : NotifieeConst(nullptr, Zint::Ptr<const Hardware::ChipReader>(reader)) {}
  void onCurrentChipMemory() override { told.push_back(ReaderId::currentChipMemory); }
  void onEntriesRead() override { told.push_back(ReaderId::entriesRead); }
  void onMaxEntriesPerRead() override { told.push_back(ReaderId::maxEntriesPerRead); }
  void onReadInterval() override { told.push_back(ReaderId::readInterval); }
  std::vector<Zint::AttributeId> told;
};

TEST_F(ChipReaderNotify, aTypedObserverIsToldAttributeByAttribute) {
  const auto typed = Zint::makePtr<TypedReaderObserver>(reader);
  reader->maxEntriesPerReadIs(11);
  reader->readIntervalIs(0.25);
  EXPECT_THAT(typed->told, ElementsAre(ReaderId::maxEntriesPerRead, ReaderId::readInterval));
}

TEST_F(ChipReaderNotify, aTypedObserverIgnoresWhatItDoesNotHandle) {
  const auto typed = Zint::makePtr<TypedReaderObserver>(reader);
  const auto bare = Zint::makePtr<Hardware::ChipReader::NotifieeConst>(
      nullptr, Zint::Ptr<const Hardware::ChipReader>(reader));
  reader->zintFwkActivityIs(
      Zint::activityFactory("another", Zint::Ptr<const Zint::Clock>(loop.clock)));
  reader->maxEntriesPerReadIs(11);
  reader->readIntervalIs(0.25);
  EXPECT_THAT(typed->told, ElementsAre(ReaderId::maxEntriesPerRead, ReaderId::readInterval));
  EXPECT_EQ(reader->maxEntriesPerRead(), 11u);
}

TEST_F(ChipReaderNotify, theClockThatItHasAlreadyLeavesTheNextTickAsItIs) {
  reader->request()->chipMemoryIs(region("table", 0x1000, 4));
  reader->request()->stateIs(ChipReadRequest::start_);
  reader->clockIs(loop.clock);
  EXPECT_TRUE(chip->log.empty());
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
  loop.turn();
  EXPECT_EQ(chip->log.size(), 4u);
}

// --- Observers that give commands ---------------------------------------------------------------

// Stops and starts the request again, once, as soon as entriesRead is announced.
class Restarter : public Hardware::ChipReader::NotifieeConst {
 public:
  Restarter(const Zint::Ptr<Hardware::ChipReader>& reader,
            const Hardware::ChipReadRequest::Ptr& request)
      : NotifieeConst(nullptr, Zint::Ptr<const Hardware::ChipReader>(reader)), request_(request) {}
  void onEntriesRead() override {
    if (std::exchange(restarted, true)) return;
    request_->stateIs(Hardware::ChipReadRequest::stop_);
    request_->stateIs(Hardware::ChipReadRequest::start_);
  }
  bool restarted = false;

 private:
  const Hardware::ChipReadRequest::Ptr request_;
};

TEST_F(ChipReaderNotify, aRestartThatAnObserverGivesInAStartReadsEveryRegionFromItsBeginning) {
  const ChipMemory::Ptr first = region("first", 0x1000, 4), second = region("second", 0x2000, 4);
  const ChipReadRequest::Ptr request = reader->request();
  request->chipMemoryIs(first);
  request->chipMemoryIs(second);
  reader->maxEntriesPerReadIs(2);
  request->stateIs(ChipReadRequest::start_);
  const ChipMemory::Ptr current = reader->currentChipMemory();
  loop.turnAt(1);
  ASSERT_EQ(reader->entriesRead(), 2u);
  request->stateIs(ChipReadRequest::stop_);

  const auto restarter = Zint::makePtr<Restarter>(reader, request);
  request->stateIs(ChipReadRequest::start_);
  ASSERT_TRUE(restarter->restarted);
  EXPECT_EQ(reader->currentChipMemory(), current);
  chip->taken();
  for (int tick = 2; tick < 10; ++tick) loop.turnAt(tick);
  EXPECT_EQ(request->status(), ChipReadRequest::done_);
  EXPECT_EQ(chip->taken().size(), 8u);
}

}  // namespace
