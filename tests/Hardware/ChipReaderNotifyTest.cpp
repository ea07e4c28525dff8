// The reader: who is told of its attributes.
#include <Hardware/ChipReader.h>
#include <gmock/gmock.h>

#include "fakes/ShadowTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Id = Hardware::ChipReader::Id;

class Observer : public Zint::NotifieeConst {
 public:
  explicit Observer(const Zint::Ptr<Hardware::ChipReader>& reader)
      : NotifieeConst(nullptr, Zint::Ptr<const Zint::PtrInterface>(reader)) {}
  void handleNotification(Zint::ActivityConfig*) override { told.push_back(attribute()); }
  std::vector<Zint::AttributeId> told;
};

struct ChipReaderNotify : Fakes::ShadowTest {
  Zint::Ptr<Hardware::ChipReader> reader = Hardware::chipReaderFactory(
      loop.activity, Hardware::chipReadRequestFactory("request"), loop.clock, 10, 0.5);
  Zint::Ptr<Observer> observer = Zint::makePtr<Observer>(reader);
};

TEST_F(ChipReaderNotify, aChangedValueIsAnnounced) {
  const auto other = Zint::activityFactory("other", Zint::Ptr<const Zint::Clock>(loop.clock));
  reader->maxEntriesPerReadIs(11);
  reader->readIntervalIs(0.25);
  reader->zintFwkActivityIs(other);
  EXPECT_THAT(observer->told,
              ElementsAre(Id::maxEntriesPerRead, Id::readInterval, Id::zintFwkActivity));
}

TEST_F(ChipReaderNotify, anEqualValueIsNot) {
  reader->maxEntriesPerReadIs(10);
  reader->readIntervalIs(0.5);
  reader->zintFwkActivityIs(loop.activity);
  EXPECT_THAT(observer->told, IsEmpty());
}

// --- Typed observers ----------------------------------------------------------------------------

class TypedObserver : public Hardware::ChipReader::NotifieeConst {
 public:
  explicit TypedObserver(const Zint::Ptr<Hardware::ChipReader>& reader)
      : NotifieeConst(nullptr, Zint::Ptr<const Hardware::ChipReader>(reader)) {}
  void onCurrentChipMemory() override { told.push_back(Id::currentChipMemory); }
  void onEntriesRead() override { told.push_back(Id::entriesRead); }
  void onMaxEntriesPerRead() override { told.push_back(Id::maxEntriesPerRead); }
  void onReadInterval() override { told.push_back(Id::readInterval); }
  std::vector<Zint::AttributeId> told;
};

TEST_F(ChipReaderNotify, aTypedObserverIsToldAttributeByAttribute) {
  const auto typed = Zint::makePtr<TypedObserver>(reader);
  reader->maxEntriesPerReadIs(11);
  reader->readIntervalIs(0.25);
  EXPECT_THAT(typed->told, ElementsAre(Id::maxEntriesPerRead, Id::readInterval));
}

TEST_F(ChipReaderNotify, aTypedObserverIgnoresWhatItDoesNotHandle) {
  const auto typed = Zint::makePtr<TypedObserver>(reader);
  const auto bare = Zint::makePtr<Hardware::ChipReader::NotifieeConst>(
      nullptr, Zint::Ptr<const Hardware::ChipReader>(reader));
  reader->zintFwkActivityIs(nullptr);
  reader->maxEntriesPerReadIs(11);
  reader->readIntervalIs(0.25);
  EXPECT_THAT(typed->told, ElementsAre(Id::maxEntriesPerRead, Id::readInterval));
  EXPECT_EQ(reader->maxEntriesPerRead(), 11u);
}

}  // namespace
