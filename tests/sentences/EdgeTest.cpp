// Where rules meet: aliases of a region's own bytes, commands from inside a pass, reactors that are
// taken away, times that are no numbers.
#include <Hardware/ChipReader.h>

#include <limits>

#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

class EdgeRules : public ShadowTest {
 protected:
  ChipMemory::Ptr bytes(U32 entries) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory("cm", ChipAddress(0x1000), entries, 1, 1, scripted);
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    return cm;
  }
  ChipMemory::Ptr words(U32 entries, U32 stride = 4) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory("cm", ChipAddress(0x1000), entries, 4, stride, scripted);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    return cm;
  }
  void audit(const ChipMemory::Ptr& cm) {
    configure({cm});
    reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 100,
                                         0.5);
    shadow->minIntervalBetweenAuditsIs(1);
    shadow->stateIs(HardwareShadow::auditing());
    loop.turn();
  }
  Zint::Seconds wake() const { return loop.activity->wakeTime(); }

  static constexpr Zint::Seconds never = std::numeric_limits<double>::infinity();
  static constexpr Zint::Seconds notANumber = std::numeric_limits<double>::quiet_NaN();
  Hardware::ChipReader::Ptr reader;
};

TEST_F(EdgeRules, write_fromTheDirtyBitmapSeesTheMarksOfTheEntriesBefore) {
  const ChipMemory::Ptr cm = bytes(16);
  shadow->shadowWriteAndCompareWithCache(cm, 8, cm->dirty()->data(), 2);
  EXPECT_EQ(0, cm->shadow()->data()[8]);
  EXPECT_EQ(1, cm->shadow()->data()[9]);  // entry 8's mark is bit 0 of byte 1
}

TEST_F(EdgeRules, write_fromTheShadowItselfGoesEntryByEntry) {
  const ChipMemory::Ptr cm = bytes(16);
  for (U32 i = 0; i < 16; ++i) cm->shadow()->data()[i] = static_cast<U8>(i + 1);
  shadow->shadowWriteAndCompareWithCache(cm, 1, cm->shadow()->data(), 10);
  for (U32 i = 0; i <= 10; ++i) EXPECT_EQ(1, cm->shadow()->data()[i]) << i;
  EXPECT_EQ(12, cm->shadow()->data()[11]);
}

TEST_F(EdgeRules, read_intoTheShadowItselfGoesEntryByEntry) {
  const ChipMemory::Ptr cm = bytes(16);
  configure({cm});
  for (U32 i = 0; i < 16; ++i) cm->shadow()->data()[i] = static_cast<U8>(i + 1);
  for (U32 i = 0; i < 16; ++i) cm->entryInitializedIs(i);
  EXPECT_TRUE(shadow->readFromCache(cm, 0, cm->shadow()->data() + 1, 10));
  for (U32 i = 0; i <= 10; ++i) EXPECT_EQ(1, cm->shadow()->data()[i]) << i;
}

TEST_F(EdgeRules, read_intoTheInitializedBitmapIsCheckedBeforeItIsCopied) {
  const ChipMemory::Ptr cm = bytes(16);
  configure({cm});
  for (U32 i = 0; i < 16; ++i) cm->entryInitializedIs(i);
  EXPECT_TRUE(shadow->readFromCache(cm, 0, cm->initialized()->data(), 2));
  EXPECT_EQ(Entries{}, marked(cm->initialized()));
}

TEST_F(EdgeRules, addresses_ofEntriesAreThirtyTwoBitProducts) {
  const ChipMemory::Ptr cm = words(4, 0x80000001);
  U8 data[4] = {};
  shadow->doFixBadRegister(cm, 2, data);
  cm->doClearRange(2, 2, true);
  cm->entryInitializedIs(2);
  cm->writeback(true);
  ASSERT_EQ(3u, scripted->log.size());
  for (const HamAccess& access : scripted->log) EXPECT_EQ(0x1002u, access.address);
}

TEST_F(EdgeRules, reader_addressesAreThirtyTwoBitProducts) {
  const ChipMemory::Ptr cm = words(3, 0x80000001);
  configure({cm});
  reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 1, 0);
  shadow->stateIs(HardwareShadow::auditing());
  for (int i = 0; i < 4; ++i) loop.turn();
  ASSERT_EQ(3u, scripted->log.size());
  EXPECT_EQ(0x80001001u, scripted->log[1].address);
  EXPECT_EQ(0x1002u, scripted->log[2].address);
}

TEST_F(EdgeRules, neverWrittenZero_isAdoptedWhenItFlipsAndServed) {
  const ChipMemory::Ptr cm = words(2);
  cm->readFromCacheIs(true);
  scripted->contents = 0x40;
  audit(cm);
  loop.turn();
  EXPECT_EQ(0x40404040u, shadow->readFromCacheU32(ChipAddress(0x1004)));
}

TEST_F(EdgeRules, clearedThroughToTheChip_isRepairedWhenItFlips) {
  const ChipMemory::Ptr cm = words(2);
  cm->doClearRange(0, 1, true);
  scripted->contents = 0x40;
  audit(cm);
  loop.turn();
  EXPECT_EQ(2u, cm->registersFixed());
  EXPECT_EQ(0u, word(cm->shadow(), 1));
}

TEST_F(EdgeRules, repair_thatLeavesAuditingEndsThePass) {
  const ChipMemory::Ptr cm = words(4);
  cm->doClear();
  scripted->contents = 1;
  audit(cm);
  scripted->onAccess = [&](const HamAccess& access, U8*) {
    if (access.kind == HamAccess::write) shadow->stateIs(HardwareShadow::idle());
  };
  loop.turn();
  EXPECT_EQ(1u, cm->registersFixed());
  EXPECT_EQ(0u, shadow->audits());
  EXPECT_EQ(never, wake());
}

TEST_F(EdgeRules, repair_thatLeavesAndReturnsStartsANewPass) {
  const ChipMemory::Ptr cm = words(4);
  cm->doClear();
  scripted->contents = 1;
  audit(cm);
  bool first = true;
  scripted->onAccess = [&](const HamAccess& access, U8*) {
    if (access.kind != HamAccess::write || !std::exchange(first, false)) return;
    shadow->stateIs(HardwareShadow::idle());
    shadow->stateIs(HardwareShadow::auditing());
  };
  loop.turnAt(5);
  EXPECT_EQ(1u, cm->registersFixed());
  loop.turn();
  EXPECT_EQ(5.0, shadow->lastAuditStartTime());
  loop.turn();
  EXPECT_EQ(5u, cm->registersFixed());
  EXPECT_EQ(1u, shadow->audits());
}

TEST_F(EdgeRules, repair_failedWriteIsCountedAllTheSame) {
  const ChipMemory::Ptr cm = words(1);
  U8 data[4] = {};
  scripted->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  loop.clock->timeIs(3);
  EXPECT_THROW(shadow->doFixBadRegister(cm, 0, data), std::runtime_error);
  EXPECT_EQ(1u, cm->registersFixed());
  EXPECT_EQ(3.0, cm->lastFixTime());
  EXPECT_THROW(shadow->doFixBadRegister(nullptr, 0, data), Zint::RangeException);
}

TEST_F(EdgeRules, derivedShadow_repairsDifferently) {
  class Derived : public HardwareShadow {
   public:
    using HardwareShadow::HardwareShadow;
    void doFixBadRegister(const ChipMemory::Ptr&, U32 entry, U8*) override {
      repaired.push_back(entry);
    }
    std::vector<U32> repaired;
  };
  const auto derived = Hardware::hardwareShadowFactoryOf<Derived>(
      loop.activity, Zint::Ptr<const Zint::Clock>(loop.clock));
  shadow = derived;
  const ChipMemory::Ptr cm = words(2);
  cm->doClear();
  scripted->contents = 1;
  audit(cm);
  loop.turn();
  EXPECT_EQ((std::vector<U32>{0, 1}), derived->repaired);
  EXPECT_EQ(0u, cm->registersFixed());
}

TEST_F(EdgeRules, shadow_destroyedInAPassIsNotNotifiedAnyMore) {
  const ChipMemory::Ptr cm = words(2);
  audit(cm);
  const auto request = shadow->auditReadRequest();
  shadow = nullptr;
  EXPECT_EQ(1u, loop.turn());  // the reader's
  EXPECT_EQ(Zint::Request::done_, request->status());
  EXPECT_EQ(0u, loop.turnAt(100));
}

TEST_F(EdgeRules, shadow_withoutItsClockAuditsNoMore) {
  const ChipMemory::Ptr cm = words(2);
  audit(cm);
  shadow->clockDel();
  loop.turn();
  EXPECT_EQ(1u, shadow->audits());
  EXPECT_EQ(0u, loop.turnAt(100));
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(HardwareShadow::idle(), shadow->state());
}

TEST_F(EdgeRules, reader_withoutAClockWaitsForOne) {
  const auto request = Hardware::chipReadRequestFactory("request");
  request->chipMemoryIs(words(2));
  reader = Hardware::chipReaderFactory(loop.activity, request, nullptr, 1, 0.5);
  request->stateIs(Zint::Request::start_);
  EXPECT_NE(nullptr, reader->currentChipMemory());
  EXPECT_EQ(0u, loop.turn());
}

TEST_F(EdgeRules, reader_withoutARequestHasNothingToDo) {
  const auto request = Hardware::chipReadRequestFactory("request");
  request->chipMemoryIs(words(2));
  reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, 1, 0.5);
  request->stateIs(Zint::Request::start_);
  reader->requestDel();
  loop.turn();
  reader->handleTimeout();
  EXPECT_TRUE(scripted->log.empty());
  EXPECT_NE(Zint::Request::done_, request->status());
}

TEST_F(EdgeRules, interval_infinityIsOnePassAndMinusInfinityIsNoPause) {
  const ChipMemory::Ptr cm = words(2);
  audit(cm);
  shadow->minIntervalBetweenAuditsIs(never);
  loop.turn();
  EXPECT_EQ(1u, shadow->audits());
  EXPECT_EQ(never, wake());
  shadow->stateIs(HardwareShadow::idle());
  shadow->minIntervalBetweenAuditsIs(-never);
  shadow->stateIs(HardwareShadow::auditing());
  loop.turn();
  loop.turn();
  EXPECT_EQ(2u, shadow->audits());
  EXPECT_EQ(1u, loop.turn());
}

// A time that is no number would end in a wake-up that cannot be armed, and the audit would stop
// without a word: it is refused where it is given.
TEST_F(EdgeRules, interval_thatIsNoNumberIsRefused) {
  shadow->minIntervalBetweenAuditsIs(2);
  EXPECT_THROW(shadow->minIntervalBetweenAuditsIs(notANumber), Zint::RangeException);
  EXPECT_EQ(2.0, shadow->minIntervalBetweenAudits());
}

TEST_F(EdgeRules, readInterval_thatIsNoNumberIsRefused) {
  const auto request = Hardware::chipReadRequestFactory("request");
  reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, 1, 0.5);
  EXPECT_THROW(reader->readIntervalIs(notANumber), Zint::RangeException);
  EXPECT_EQ(0.5, reader->readInterval());
  EXPECT_THROW(Hardware::chipReaderFactory(loop.activity, request, loop.clock, 1, notANumber),
               Zint::RangeException);
}

TEST_F(EdgeRules, lastAuditStartTime_thatIsNoNumberIsRefused) {
  EXPECT_THROW(shadow->lastAuditStartTimeIs(notANumber), Zint::RangeException);
  EXPECT_EQ(0.0, shadow->lastAuditStartTime());
}

TEST_F(EdgeRules, entriesThatGrowBeyondTheHardwareBufferAreNotReadIntoIt) {
  const ChipMemory::Ptr cm = words(2);
  cm->entriesIs(100);
  audit(cm);
  EXPECT_REGION_ASSERTION(reader->handleTimeout(), "cm");
}

TEST_F(EdgeRules, name_withANulIsTracedWhole) {
  const ChipMemory::Ptr cm = Hardware::chipMemoryFactory(Zint::String8(std::string("a\0b", 3)),
                                                         ChipAddress(0x1000), 1, 4, 4, scripted);
  trace.taken();
  cm->writeback(true);
  EXPECT_EQ((Line{0, "a\\x00b: writing back initialzedOnly=1"}), trace.taken().front());
}

TEST_F(EdgeRules, zintDoZombieReactors_theRecordedMarkAgainDoesNothing) {
  const ChipMemory::Ptr cm = words(2);
  audit(cm);
  shadow->zintMarkedForDeletionIs(true);
  shadow->zintDoZombieReactors(true);  // recorded already: the reactors are not marked
  loop.turn();
  EXPECT_EQ(1u, shadow->audits());
}

TEST_F(EdgeRules, now_outsideOfTurnsIsThatOfTheActivityMadeLast) {
  loop.clock->timeIs(11);
  EXPECT_EQ(11.0, Zint::now());
  {
    ManualLoop inner;
    inner.clock->timeIs(22);
    EXPECT_EQ(22.0, Zint::now());
  }
  EXPECT_EQ(11.0, Zint::now());
}

TEST_F(EdgeRules, lastChipMemory_followsARegionThatShrinks) {
  const ChipMemory::Ptr cm = region("a", 0x1000, 4);
  configure({cm});
  EXPECT_EQ(cm, found(0x100C));
  cm->entriesIs(1);
  EXPECT_EQ(nullptr, found(0x100C));
  EXPECT_EQ(cm, shadow->lastChipMemory());
}

}  // namespace
