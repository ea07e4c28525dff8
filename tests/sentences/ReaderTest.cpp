// The reader: its slices, its commands, and its time, on one clock and on several.
#include <Hardware/ChipReader.h>

#include <limits>

#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;
using Hardware::ChipReader;
using Hardware::HardwareShadow;

class ReaderRules : public ShadowTest {
 protected:
  void make(U32 maxEntriesPerRead, double interval = 0.5) {
    reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, maxEntriesPerRead,
                                         interval);
    trace.taken();
  }
  ChipMemory::Ptr on(const char* name, U64 address, U32 entries, U32 entrySize = 4,
                     U32 stride = 4) {
    return Hardware::chipMemoryFactory(name, ChipAddress(address), entries, entrySize, stride,
                                       scripted);
  }
  static HamAccess slice(U64 address, U32 entries) {
    return {HamAccess::read, address, 4, entries};
  }
  Zint::Seconds wake() const { return loop.activity->wakeTime(); }
  bool isDone() const { return request->status() == Zint::Request::done_; }

  static constexpr Zint::Seconds never = std::numeric_limits<double>::infinity();
  const std::string onRequest = "void Hardware::ChipReader::handleReadRequest()";
  const Hardware::ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  ChipReader::Ptr reader;
};

TEST_F(ReaderRules, slices_shareTheBudgetAcrossRegions) {
  request->chipMemoryIs(on("a", 0x1000, 4));
  request->chipMemoryIs(on("b", 0x2000, 7));
  make(10);
  request->stateIs(Zint::Request::start_);
  EXPECT_TRUE(scripted->log.empty());
  loop.turn();
  ASSERT_EQ(2u, scripted->log.size());
  EXPECT_EQ(10u, scripted->log[0].entries + scripted->log[1].entries);
  EXPECT_FALSE(isDone());
  EXPECT_EQ(0.5, wake());
  loop.turnAt(0.5);
  EXPECT_TRUE(isDone());
  EXPECT_EQ(1u, scripted->log[2].entries);
  EXPECT_EQ(never, wake());
}

TEST_F(ReaderRules, slices_endWithARegionAndTheNextBeginsAtTheNextTick) {
  request->chipMemoryIs(on("a", 0x1000, 8));
  request->chipMemoryIs(on("b", 0x2000, 4));
  make(4);
  request->stateIs(Zint::Request::start_);
  for (int i = 0; i < 3; ++i) loop.turnAt(i * 0.5);
  ASSERT_EQ(3u, scripted->log.size());
  for (const HamAccess& access : scripted->log) EXPECT_EQ(4u, access.entries);
  EXPECT_TRUE(isDone());
}

TEST_F(ReaderRules, slices_readAtTheStrideAndStoreDensely) {
  const ChipMemory::Ptr cm = on("a", 0xFFFFFFF0, 5, 4, 0x10);
  request->chipMemoryIs(cm);
  make(2, 0.0);
  std::vector<std::ptrdiff_t> places;
  scripted->onAccess = [&](const HamAccess&, U8* buffer) {
    places.push_back(buffer - cm->hardware()->data());
  };
  request->stateIs(Zint::Request::start_);
  for (int i = 0; i < 3; ++i) loop.turn();
  EXPECT_EQ((std::vector{slice(0xFFFFFFF0, 2), slice(0x100000010, 2), slice(0x100000030, 1)}),
            scripted->log);
  EXPECT_EQ((std::vector<std::ptrdiff_t>{0, 8, 16}), places);
}

TEST_F(ReaderRules, trace_staysHexadecimalAfterTheAddress) {
  request->chipMemoryIs(on("fooTable", 0x200001000, 16));
  make(100);
  request->stateIs(Zint::Request::start_);
  loop.turn();
  EXPECT_EQ((Lines{{0, "handleReadRequest 1"},
                   {9, "ChipReader::handleTimeout"},
                   {6, "ChipReader::doRead fooTable 0x200001000 0x10 entries"}}),
            trace.taken());
}

TEST_F(ReaderRules, stop_endsTheTicksAndKeepsStatusAndEntriesRead) {
  request->chipMemoryIs(on("a", 0x1000, 8));
  make(3);
  request->stateIs(Zint::Request::start_);
  loop.turn();
  request->stateIs(Zint::Request::stop_);
  EXPECT_EQ(never, wake());
  EXPECT_EQ(nullptr, reader->currentChipMemory());
  EXPECT_EQ(0u, reader->chipMemorys());
  EXPECT_EQ(3u, reader->entriesRead());
  EXPECT_FALSE(isDone());
  request->stateIs(Zint::Request::start_);
  EXPECT_EQ(0u, reader->entriesRead());
}

TEST_F(ReaderRules, start_againReadsFromTheFirstEntry) {
  request->chipMemoryIs(on("a", 0x1000, 4));
  make(4);
  for (int i = 0; i < 2; ++i) {
    request->stateIs(Zint::Request::start_);
    loop.turn();
  }
  EXPECT_EQ((std::vector{slice(0x1000, 4), slice(0x1000, 4)}), scripted->log);
}

TEST_F(ReaderRules, start_doesNotClearTheQueue) {
  request->chipMemoryIs(on("a", 0x1000, 4));
  make(4);
  reader->chipMemoryEnq(on("b", 0x2000, 4));
  request->stateIs(Zint::Request::start_);
  loop.turn();
  loop.turnAt(0.5);
  EXPECT_EQ((std::vector{slice(0x2000, 4), slice(0x1000, 4)}), scripted->log);
}

TEST_F(ReaderRules, start_whileReadingDropsTheCurrentRegionAndQueuesAllAgain) {
  request->chipMemoryIs(on("a", 0x1000, 4));
  request->chipMemoryIs(on("b", 0x2000, 4));
  make(2);
  request->stateIs(Zint::Request::start_);
  loop.turn();
  EXPECT_EQ(1u, reader->chipMemorys());
  request->stateIs(Zint::Request::start_);
  EXPECT_EQ(0u, reader->entriesRead());
  EXPECT_EQ(2u, reader->chipMemorys());  // of the first start one, of the second two, less one
}

TEST_F(ReaderRules, start_ofAnEmptyRequestIsFatal) {
  make(4);
  EXPECT_ASSERTION(request->stateIs(Zint::Request::start_), 313, onRequest, "currentChipMemory_");
}

TEST_F(ReaderRules, command_zeroIsTracedOnlyAndOthersAreFatal) {
  request->chipMemoryIs(on("a", 0x1000, 8));
  make(4);
  request->stateIs(Zint::Request::idle_);
  EXPECT_EQ((Lines{{0, "handleReadRequest 0"}}), trace.taken());
  EXPECT_ASSERTION(request->stateIs(static_cast<Zint::Request::State>(3)), 323, onRequest, "0");
}

TEST_F(ReaderRules, doRead_ofNothingIsFatal) {
  make(4);
  EXPECT_ASSERTION(reader->doRead(), 350, "virtual void Hardware::ChipReader::doRead()",
                   "currentChipMemory_");
}

TEST_F(ReaderRules, doRead_checksTheModeOfTheFirstRegionOfASlice) {
  const ChipMemory::Ptr cm = on("a", 0x1000, 4);
  cm->modeIs(ChipMemory::override());
  make(4);
  reader->currentChipMemoryIs(cm);
  EXPECT_ASSERTION(reader->doRead(), 352, "virtual void Hardware::ChipReader::doRead()",
                   "(currentChipMemory_->mode() != ChipMemory::override())");
}

TEST_F(ReaderRules, doRead_ofARegionWithoutEntriesIsFatal) {
  make(4);
  reader->currentChipMemoryIs(on("a", 0x1000, 0));
  EXPECT_ASSERTION(reader->doRead(), 363, "virtual void Hardware::ChipReader::doRead()",
                   "readChunkSizeInEntries");
}

TEST_F(ReaderRules, handleTimeout_withNothingCurrentIsFatalOnlyWhileStarted) {
  request->chipMemoryIs(on("a", 0x1000, 4));
  make(4);
  reader->handleTimeout();
  request->stateIs(Zint::Request::start_);
  reader->currentChipMemoryIs(nullptr);
  EXPECT_ASSERTION(reader->handleTimeout(), 334, "void Hardware::ChipReader::handleTimeout()",
                   "currentChipMemory_");
}

TEST_F(ReaderRules, budgetOfZero_ticksForEver) {
  request->chipMemoryIs(on("a", 0x1000, 4));
  make(0);
  request->stateIs(Zint::Request::start_);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(1u, loop.turnAt(i * 0.5));
  EXPECT_TRUE(scripted->log.empty());
  EXPECT_FALSE(isDone());
}

TEST_F(ReaderRules, exception_leavesThePlaceAndSchedulesNothing) {
  request->chipMemoryIs(on("a", 0x1000, 8));
  make(3);
  request->stateIs(Zint::Request::start_);
  loop.turn();
  scripted->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  loop.turnAt(0.5);
  EXPECT_EQ(3u, reader->entriesRead());
  EXPECT_EQ(never, wake());
  EXPECT_THROW(reader->handleTimeout(), std::runtime_error);
}

TEST_F(ReaderRules, nextTick_isAfterTheEndOfTheSlice) {
  request->chipMemoryIs(on("a", 0x1000, 8));
  make(3);
  scripted->onAccess = [&](const HamAccess&, U8*) { loop.clock->timeIs(loop.clock->time() + 2); };
  request->stateIs(Zint::Request::start_);
  loop.turn();
  EXPECT_EQ(2.5, wake());
}

TEST_F(ReaderRules, requestIs_ofOneThatIsStartedIsServedAtOnce) {
  make(100);
  const auto other = Hardware::chipReadRequestFactory("other");
  other->chipMemoryIs(on("b", 0x2000, 4));
  other->stateIs(Zint::Request::start_);
  reader->requestIs(other);
  loop.turn();
  EXPECT_EQ(Zint::Request::done_, other->status());
}

TEST_F(ReaderRules, requestIs_underTheMarkServesNothing) {
  make(100);
  const auto other = Hardware::chipReadRequestFactory("other");
  other->chipMemoryIs(on("b", 0x2000, 4));
  other->stateIs(Zint::Request::start_);
  reader->zintDoZombieReactors(true);
  reader->requestIs(other);
  EXPECT_EQ(nullptr, reader->currentChipMemory());
}

TEST_F(ReaderRules, factory_runsNeitherHandler) {
  request->chipMemoryIs(on("a", 0x1000, 4));
  request->stateIs(Zint::Request::start_);
  make(100);
  EXPECT_EQ(nullptr, reader->currentChipMemory());
  EXPECT_EQ(never, wake());
}

TEST_F(ReaderRules, queue_indicesWrapUntilTheyMeetTheHead) {
  make(4);
  const ChipMemory::Ptr cm = on("a", 0x1000, 4);
  reader->newChipMemory(0xFFFFFFFE, cm);
  reader->chipMemoryEnq(cm);
  reader->chipMemoryEnq(cm);
  EXPECT_EQ(3u, reader->chipMemorys());
  EXPECT_EQ((ChipReader::ChipMemoryMetadata{0xFFFFFFFE, 1}), reader->chipMemoryMetadata());
  reader->newChipMemory(0xFFFFFFFC, cm);
  EXPECT_EQ("linkqueue index space full", exceptionText([&] { reader->chipMemoryEnq(cm); }));
  EXPECT_EQ("linkqueue index out of range",
            exceptionText([&] { reader->chipMemoryDel(0xFFFFFFFD); }));
  EXPECT_EQ(4u, reader->chipMemorys());
}

TEST_F(ReaderRules, queue_nullIsRefused) {
  make(4);
  EXPECT_THROW(reader->chipMemoryEnq(nullptr), Zint::RangeException);
  EXPECT_THROW(reader->newChipMemory(3, nullptr), Zint::RangeException);
  EXPECT_EQ(0u, reader->chipMemorys());
}

// --- Several clocks ---

class ClockRules : public ReaderRules {
 protected:
  Zint::Ptr<Zint::ManualClock> other = Zint::manualClockFactory("other");
};

TEST_F(ClockRules, reader_onAnotherClockKeepsThatClocksTime) {
  other->timeIs(100);
  request->chipMemoryIs(on("a", 0x1000, 8));
  reader = Hardware::chipReaderFactory(loop.activity, request, other, 4, 0.5);
  request->stateIs(Zint::Request::start_);
  EXPECT_EQ(1u, loop.turn());
  loop.clock->timeIs(1000);
  EXPECT_EQ(0u, loop.turn());
  other->timeIs(100.5);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_TRUE(isDone());
}

TEST_F(ClockRules, audit_withTheReaderOnAnotherClock) {
  other->timeIs(500);
  const ChipMemory::Ptr cm = on("a", 0x1000, 4);
  cm->shadowEnabledIs(true);
  cm->auditEnabledIs(true);
  cm->doClear();
  configure({cm});
  scripted->contents = 1;
  reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), other, 100, 0.5);
  shadow->minIntervalBetweenAuditsIs(2);
  shadow->stateIs(HardwareShadow::auditing());
  loop.turnAt(7);
  EXPECT_EQ(7.0, shadow->lastAuditStartTime());
  other->timeIs(600);
  loop.turn();
  EXPECT_EQ(1u, shadow->audits());
  EXPECT_EQ(600.0, cm->lastFixTime());  // made while the reader's clock is served
  EXPECT_EQ(0u, loop.turnAt(8.9));
  EXPECT_EQ(1u, loop.turnAt(9));
  EXPECT_EQ(9.0, shadow->lastAuditStartTime());
}

TEST_F(ClockRules, clockWithoutAnActivityIsRefusedWhereItIsGiven) {
  EXPECT_THROW(Hardware::hardwareShadowFactory(nullptr, loop.clock), Zint::RangeException);
  EXPECT_THROW(Hardware::chipReaderFactory(nullptr, request, loop.clock, 1, 1.0),
               Zint::RangeException);
  const auto bare = Hardware::hardwareShadowFactory(nullptr, nullptr);
  EXPECT_THROW(bare->clockIs(Zint::Ptr<const Zint::Clock>(other)), Zint::RangeException);
  EXPECT_EQ(nullptr, bare->clock());
}

TEST_F(ClockRules, clockIs_midwayRunsATickOnTheNewClock) {
  request->chipMemoryIs(on("a", 0x1000, 8));
  make(2);
  request->stateIs(Zint::Request::start_);
  loop.turn();
  other->timeIs(40);
  reader->clockIs(Zint::Ptr<const Zint::Clock>(other));
  EXPECT_EQ(2u, scripted->log.size());
  EXPECT_EQ(0u, loop.turnAt(100));
}

class Sleeper : public Zint::Clock::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onTime() override {
    seen.push_back(Zint::now());
    if (also) also();
  }
  std::vector<double> seen;
  std::function<void()> also;
};

TEST_F(ClockRules, now_isTheServedClocksAndOtherwiseTheActivitysOwn) {
  const auto mine = Zint::makePtr<Sleeper>(loop.activity, loop.clock);
  const auto its = Zint::makePtr<Sleeper>(loop.activity, other);
  other->timeIs(50);
  loop.clock->timeIs(3);
  mine->timeMinIs(0.0);
  its->timeMinIs(0.0);
  EXPECT_EQ(3.0, Zint::now());
  EXPECT_EQ(2u, loop.turn());
  EXPECT_EQ((std::vector{3.0}), mine->seen);
  EXPECT_EQ((std::vector{50.0}), its->seen);
}

TEST_F(ClockRules, now_isNotHeldWithinATurn) {
  const auto sleeper = Zint::makePtr<Sleeper>(loop.activity, loop.clock);
  std::vector<double> later;
  sleeper->also = [&] {
    loop.clock->timeIs(9);
    later.push_back(Zint::now());
    later.push_back(Zint::turnTime());
  };
  sleeper->timeMinIs(0.0);
  loop.turnAt(4);
  EXPECT_EQ((std::vector{4.0}), sleeper->seen);
  EXPECT_EQ((std::vector{9.0, 4.0}), later);
}

TEST_F(ClockRules, timeMin_zeroIsTheNextTurnOnANegativeClock) {
  class Negative : public Zint::Clock {
   public:
    using Clock::Clock;
    Zint::Seconds timeRead() const override { return -100; }
  };
  const auto sleeper = Zint::makePtr<Sleeper>(loop.activity, Zint::makePtr<Negative>("negative"));
  sleeper->timeMinIs(0.0);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ((std::vector{-100.0}), sleeper->seen);
  sleeper->timeMinIs(-50);
  EXPECT_EQ(0u, loop.turn());
  sleeper->timeMinIs(-150);
  EXPECT_EQ(1u, loop.turn());
}

TEST_F(ClockRules, wakeTime_manualClockIsDueWhenItIsMoved) {
  const auto its = Zint::makePtr<Sleeper>(loop.activity, other);
  its->timeMinIs(5);
  EXPECT_EQ(never, wake());
  other->timeIs(5);
  EXPECT_LE(wake(), loop.clock->time());
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ(never, wake());
}

TEST_F(ClockRules, timeMin_armedInATurnWaitsForTheNext) {
  const auto sleeper = Zint::makePtr<Sleeper>(loop.activity, loop.clock);
  sleeper->also = [&] { sleeper->timeMinIs(0.0); };
  sleeper->timeMinIs(0.0);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ(1u, loop.turn());
}

TEST_F(ClockRules, timeMin_sameTimeIsDeliveredOnceAndArmsAgain) {
  const auto sleeper = Zint::makePtr<Sleeper>(loop.activity, loop.clock);
  sleeper->timeMinIs(1);
  sleeper->timeMinIs(1);
  EXPECT_EQ(1u, loop.turnAt(1));
  EXPECT_EQ(0u, loop.turnAt(2));
  sleeper->timeMinIs(1);
  EXPECT_EQ(1u, loop.turn());
}

TEST_F(ClockRules, zombie_dueWakeUpWaitsForTheMarkToBeTakenBack) {
  const auto sleeper = Zint::makePtr<Sleeper>(loop.activity, other);
  sleeper->timeMinIs(5);
  sleeper->zintDoZombieReactors(true);
  other->timeIs(6);
  EXPECT_EQ(0u, loop.turn());
  sleeper->zintDoZombieReactors(false);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ((std::vector{6.0}), sleeper->seen);
}

TEST_F(ClockRules, twoActivities_eachServesItsOwnNotifieesOnSharedClocks) {
  ManualLoop second;
  const auto a = Zint::makePtr<Sleeper>(loop.activity, second.clock);
  const auto b = Zint::makePtr<Sleeper>(second.activity, loop.clock);
  a->timeMinIs(10);
  b->timeMinIs(20);
  loop.clock->timeIs(20);
  EXPECT_EQ(0u, loop.turn());
  EXPECT_EQ(1u, second.turn());
  second.clock->timeIs(10);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ((std::vector{10.0}), a->seen);
  EXPECT_EQ((std::vector{20.0}), b->seen);
}

}  // namespace
