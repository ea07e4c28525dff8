// The reader: what a command does, what a tick reads, and when the next one comes.
#include <Hardware/ChipReader.h>
#include <Zint/GenericIf.h>

#include "runtime/Probes.h"
#include "support/ShadowTest.h"

namespace {

using Support::HamAccess;
using Support::Lines;
using Reads = std::vector<HamAccess>;

HamAccess read(U64 address, U32 entries, U32 entrySize = 4) {
  return {HamAccess::read, address, entrySize, entries};
}

class ChipReaderTest : public Support::ShadowTest {
 protected:
  static constexpr auto start = Zint::Request::start_;
  static constexpr auto stop = Zint::Request::stop_;
  static constexpr auto none = Zint::Request::none_;
  static constexpr auto done = Zint::Request::done_;

  ChipReaderTest() { ham = scripted; }

  void readerIs(U32 maxEntriesPerRead, double readInterval = 1) {
    reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, maxEntriesPerRead,
                                         readInterval);
  }
  // Regions whose place in the request's order is their place in the list.
  void regionsIs(const std::vector<U32>& entries) {
    static constexpr U64 inOrder[] = {0x8000, 0x4000, 0x2000, 0x1000};
    for (std::size_t i = 0; i < entries.size(); ++i) {
      request->chipMemoryIs(region("fooTable", inOrder[i], entries[i]));
    }
  }
  Reads tick() {
    loop.turnAt(loop.activity->wakeTime() == 0 ? loop.clock->time() : loop.activity->wakeTime());
    return scripted->taken();
  }

  ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  Zint::Ptr<Hardware::ChipReader> reader;
};

// --- Birth and attributes -----------------------------------------------------------------------

TEST_F(ChipReaderTest, factoryGivesTheInitialValuesAndRunsNoHandler) {
  regionsIs({4});
  request->stateIs(start);
  readerIs(10, 0.5);
  EXPECT_EQ(reader->zintFwkActivity(), loop.activity);
  EXPECT_EQ(reader->request(), request);
  EXPECT_EQ(reader->clock(), Zint::Ptr<const Zint::Clock>(loop.clock));
  EXPECT_EQ(reader->maxEntriesPerRead(), 10u);
  EXPECT_EQ(reader->readInterval(), 0.5);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  EXPECT_EQ(reader->entriesRead(), 0u);
  EXPECT_EQ(reader->chipMemorys(), 0u);
  EXPECT_TRUE(reader->hasNotificationActive());
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(ChipReaderTest, replacedPartsAreAnnounced) {
  readerIs(10);
  const auto announced = Zint::makePtr<Probes::Watch>(loop.activity, reader);
  const Zint::Ptr<const Zint::Clock> clock = reader->clock();
  for (int i = 0; i < 2; ++i) {
    reader->chipMemoryMetadataIs({5, 5});
    reader->requestIs(nullptr);
    reader->clockIs(nullptr);
  }
  reader->requestIs(request);
  reader->clockIs(clock);
  using Id = Hardware::ChipReader::Id;
  EXPECT_EQ(announced->told, (std::vector<Zint::AttributeId>{Id::chipMemoryMetadata, Id::request,
                                                             Id::clock, Id::request, Id::clock}));
}

TEST_F(ChipReaderTest, requestAndClockMayBeAbsent) {
  reader = Hardware::chipReaderFactory(loop.activity, nullptr, nullptr, 10, 1);
  EXPECT_EQ(reader->request(), nullptr);
  EXPECT_EQ(reader->clock(), nullptr);
  reader->handleReadRequest();
  reader->handleTimeout();
  EXPECT_TRUE(trace.full.empty());
}

TEST_F(ChipReaderTest, switchedOffItHearsNeitherRequestNorClock) {
  regionsIs({20});
  readerIs(10);
  request->stateIs(start);
  reader->hasNotificationActiveIs(false);
  EXPECT_EQ(loop.turn(), 0u);
  request->stateIs(stop);
  EXPECT_NE(reader->currentChipMemory(), nullptr);
  request->stateIs(start);
  reader->hasNotificationActiveIs(true);
  EXPECT_EQ(tick(), (Reads{read(0x8000, 10)}));
}

TEST_F(ChipReaderTest, queueIsFirstInFirstOutWithRunningIndices) {
  readerIs(1);
  const auto a = region("a", 1, 1), b = region("b", 2, 1), c = region("c", 3, 1);
  reader->chipMemoryEnq(a);
  reader->chipMemoryEnq(b);
  reader->chipMemoryEnq(c);
  EXPECT_EQ(reader->chipMemoryMetadata(), (Hardware::ChipReader::ChipMemoryMetadata{0, 3}));
  EXPECT_EQ(reader->chipMemoryDel(1), b);
  EXPECT_EQ(reader->chipMemoryDeq(), a);
  EXPECT_EQ(reader->chipMemoryDeq(), c);
  EXPECT_EQ(reader->chipMemoryDeq(), nullptr);
  reader->newChipMemory(7, b);
  EXPECT_EQ(reader->chipMemoryMetadata(), (Hardware::ChipReader::ChipMemoryMetadata{7, 8}));
  EXPECT_EQ(Support::exceptionText([&] { reader->chipMemoryDel(8); }),
            "linkqueue index out of range");
  reader->chipMemoryDelAll();
  EXPECT_EQ(reader->chipMemorys(), 0u);
}

TEST_F(ChipReaderTest, fullIndexSpaceIsRefused) {
  readerIs(1);
  const auto a = region("a", 1, 1);
  reader->chipMemoryEnq(a);
  reader->newChipMemory(0xfffffffe, a);
  EXPECT_EQ(Support::exceptionText([&] { reader->chipMemoryEnq(a); }),
            "linkqueue index space full");
  EXPECT_EQ(reader->chipMemorys(), 2u);
}

// --- Commands -----------------------------------------------------------------------------------

TEST_F(ChipReaderTest, everyCommandIsTraced) {
  regionsIs({1});
  readerIs(10);
  for (const auto state : {Zint::Request::idle_, start, stop, stop}) request->stateIs(state);
  for (const auto& line : trace.full) {
    EXPECT_EQ(line.source, "Hardware/Umbra");
    EXPECT_EQ(line.line, 299);
    EXPECT_EQ(line.function, "handleReadRequest");
  }
  EXPECT_EQ(trace.taken(), (Lines{{0, "handleReadRequest 0"},
                                  {0, "handleReadRequest 1"},
                                  {0, "handleReadRequest 2"},
                                  {0, "handleReadRequest 2"}}));
}

TEST_F(ChipReaderTest, startQueuesEveryRegionInTheRequestsOrderAndReadsNothingYet) {
  regionsIs({1, 2, 3});
  readerIs(10);
  request->stateIs(start);
  EXPECT_EQ(reader->currentChipMemory()->address(), ChipAddress(0x8000));
  EXPECT_EQ(reader->chipMemorys(), 2u);
  EXPECT_EQ(reader->chipMemory().head()->chipMemory()->address(), ChipAddress(0x4000));
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
  EXPECT_TRUE(scripted->log.empty());
  EXPECT_EQ(tick(), (Reads{read(0x8000, 1), read(0x4000, 2), read(0x2000, 3)}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderTest, idleCommandDoesNothing) {
  regionsIs({20});
  readerIs(10);
  request->stateIs(start);
  tick();
  request->stateIs(Zint::Request::idle_);
  EXPECT_EQ(reader->entriesRead(), 10u);
  EXPECT_EQ(tick(), Reads{}) << "a tick without the start command reads nothing";
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never) << "and schedules nothing";
}

TEST_F(ChipReaderTest, stopEndsTheTicksAndLeavesTheStatus) {
  regionsIs({20, 20});
  readerIs(10);
  request->stateIs(start);
  tick();
  request->stateIs(stop);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  EXPECT_EQ(reader->chipMemorys(), 0u);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  EXPECT_EQ(reader->entriesRead(), 10u) << "left as it was";
  EXPECT_EQ(loop.turnAt(100), 0u);
  EXPECT_EQ(request->status(), none);
}

TEST_F(ChipReaderTest, startAfterCompletionReadsEverythingAgainAndAnswersAgain) {
  regionsIs({4});
  readerIs(10);
  class Answers : public ChipReadRequest::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onStatus() override { given.push_back(notifier()->status()); }
    std::vector<S32> given;
  };
  const auto answers = Zint::makePtr<Answers>(loop.activity, request);
  for (int round = 0; round < 3; ++round) {
    request->stateIs(start);
    EXPECT_EQ(tick(), (Reads{read(0x8000, 4)}));
  }
  EXPECT_EQ(answers->given, (std::vector<S32>{3, 3, 3}));
  EXPECT_EQ(request->generation(), 3u);
}

TEST_F(ChipReaderTest, startDuringAReadQueuesAllRegionsBehindThoseStillWaiting) {
  regionsIs({4, 2});
  readerIs(3);
  request->stateIs(start);
  EXPECT_EQ(tick(), (Reads{read(0x8000, 3)}));
  request->stateIs(start);
  EXPECT_EQ(reader->entriesRead(), 0u);
  EXPECT_EQ(reader->currentChipMemory()->address(), ChipAddress(0x4000));
  EXPECT_EQ(tick(), (Reads{read(0x4000, 2), read(0x8000, 1)}));
  EXPECT_EQ(tick(), (Reads{read(0x8004, 3)}));
  EXPECT_EQ(tick(), (Reads{read(0x4000, 2)}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderTest, emptyRequestMustNotBeStarted) {
  readerIs(10);
  const auto command = [&] {
    const auto given = Hardware::chipReadRequestFactory("given");
    given->stateIs(start);
    reader->requestIs(given);
  };
  EXPECT_ASSERTION(command(), 313, "void Hardware::ChipReader::handleReadRequest()",
                   "currentChipMemory_");
}

TEST_F(ChipReaderTest, unknownCommandIsFatal) {
  const auto command = [&] {
    const auto given = Hardware::chipReadRequestFactory("given");
    given->stateIs(static_cast<Zint::Request::State>(3));
    reader->requestIs(given);
  };
  readerIs(10);
  EXPECT_ASSERTION(command(), 323, "void Hardware::ChipReader::handleReadRequest()", "0");
}

TEST_F(ChipReaderTest, replacedRequestThatIsStartedIsServedAtOnce) {
  readerIs(10);
  const ChipReadRequest::Ptr first = request;
  request = Hardware::chipReadRequestFactory("second");
  regionsIs({3});
  request->stateIs(start);
  reader->requestIs(request);
  EXPECT_EQ(first->notifiees(), 0u);
  EXPECT_EQ(tick(), (Reads{read(0x8000, 3)}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderTest, requestForAReaderWithoutOneIsOnlyBound) {
  reader = Hardware::chipReaderFactory(loop.activity, nullptr, loop.clock, 10, 1);
  regionsIs({3});
  request->stateIs(start);
  reader->requestIs(request);
  EXPECT_TRUE(trace.full.empty());
  reader->requestDel();
  EXPECT_EQ(reader->request(), nullptr);
  EXPECT_EQ(request->notifiees(), 0u);
}

TEST_F(ChipReaderTest, replacedClockTicksOnce) {
  regionsIs({20});
  readerIs(10);
  request->stateIs(start);
  const auto other = Zint::manualClockFactory("other");
  reader->clockDel();
  reader->clockIs(loop.clock);
  EXPECT_TRUE(scripted->taken().empty()) << "a clock for a reader without one is only bound";
  reader->zintFwkActivityIs(Zint::activityFactory("next", Zint::Ptr<const Zint::Clock>(other)));
  reader->clockIs(Zint::Ptr<const Zint::Clock>(other));
  EXPECT_EQ(scripted->taken(), (Reads{read(0x8000, 10)}));
}

// --- Ticks and slices ---------------------------------------------------------------------------

TEST_F(ChipReaderTest, sliceRunsOnIntoTheNextRegion) {
  regionsIs({4, 7});
  readerIs(10);
  request->stateIs(start);
  EXPECT_EQ(tick(), (Reads{read(0x8000, 4), read(0x4000, 6)}));
  EXPECT_EQ(reader->entriesRead(), 6u);
  EXPECT_EQ(request->status(), none);
  EXPECT_EQ(tick(), (Reads{read(0x4018, 1)}));
  EXPECT_EQ(reader->entriesRead(), 0u);
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderTest, regionOfWholeSlicesLeavesTheNextToTheNextTick) {
  regionsIs({20, 5});
  readerIs(10);
  request->stateIs(start);
  EXPECT_EQ(tick(), (Reads{read(0x8000, 10)}));
  EXPECT_EQ(tick(), (Reads{read(0x8028, 10)}));
  EXPECT_EQ(reader->currentChipMemory()->address(), ChipAddress(0x4000));
  EXPECT_EQ(tick(), (Reads{read(0x4000, 5)}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderTest, ticksAreTheEntriesDividedByTheBudgetRoundedUp) {
  for (U32 budget = 1; budget <= 14; ++budget) {
    request = Hardware::chipReadRequestFactory("request");
    regionsIs({4, 1, 7, 1});
    readerIs(budget);
    request->stateIs(start);
    U32 ticks = 0;
    while (request->status() != done) {
      tick();
      ++ticks;
    }
    EXPECT_EQ(ticks, (13 + budget - 1) / budget);
  }
}

TEST_F(ChipReaderTest, nextSliceRunsAnIntervalAfterTheTick) {
  regionsIs({30});
  readerIs(10, 0.25);
  loop.clock->timeIs(5);
  request->stateIs(start);
  loop.turnAt(7);
  EXPECT_EQ(loop.activity->wakeTime(), 7.25);
  reader->readIntervalIs(2);
  EXPECT_EQ(loop.activity->wakeTime(), 7.25) << "used when the next one is scheduled";
  loop.turnAt(8);
  EXPECT_EQ(loop.activity->wakeTime(), 10.0);
  loop.turnAt(10);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never) << "nothing after the last";
}

TEST_F(ChipReaderTest, thePauseBeginsWhenTheSliceEnds) {
  regionsIs({30});
  readerIs(10, 0.25);
  double now = 7;
  scripted->onAccess = [&](const HamAccess&, U8*) {
    now += 0.5;
    loop.clock->timeIs(now);
  };
  request->stateIs(start);
  loop.turnAt(7);
  EXPECT_EQ(loop.activity->wakeTime(), 7.75);
}

TEST_F(ChipReaderTest, tickAndSlicesAreTraced) {
  request->chipMemoryIs(region("fooTable", 0x2fffffff0, 40, 8, 16));
  readerIs(26);
  request->stateIs(start);
  EXPECT_EQ(tick(), (Reads{read(0x2fffffff0, 26, 8)}));
  EXPECT_EQ(trace.full[1].line, 336);
  EXPECT_EQ(trace.full[1].function, "handleTimeout");
  EXPECT_EQ(trace.full[2].line, 366);
  EXPECT_EQ(trace.full[2].function, "doRead");
  EXPECT_EQ(trace.full[2].source, "Hardware/Umbra");
  EXPECT_EQ(tick(), (Reads{read(0x300000190, 14, 8)}));
  EXPECT_EQ(trace.taken(), (Lines{{0, "handleReadRequest 1"},
                                  {9, "ChipReader::handleTimeout"},
                                  {6, "ChipReader::doRead fooTable 0x2fffffff0 0x1a entries"},
                                  {9, "ChipReader::handleTimeout"},
                                  {6, "ChipReader::doRead fooTable 0x300000190 0xe entries"}}));
}

TEST_F(ChipReaderTest, distanceOfAnEntryIsA32BitProduct) {
  request->chipMemoryIs(region("far", 0x100000000, 3, 4, 0x80000000));
  readerIs(1);
  request->stateIs(start);
  EXPECT_EQ(tick(), (Reads{read(0x100000000, 1)}));
  EXPECT_EQ(tick(), (Reads{read(0x180000000, 1)}));
  EXPECT_EQ(tick(), (Reads{read(0x100000000, 1)}));
}

TEST_F(ChipReaderTest, strideSpacesTheAddressesAndNotTheData) {
  const ChipMemory::Ptr sparse = region("sparse", 0x8000, 3, 4, 64);
  request->chipMemoryIs(sparse);
  readerIs(1);
  request->stateIs(start);
  for (U32 i = 0; i < 3; ++i) {
    scripted->contents = static_cast<U8>(i + 1);
    EXPECT_EQ(tick(), (Reads{read(0x8000 + 64 * i, 1)}));
  }
  EXPECT_EQ(Support::word(sparse->hardware(), 0), 0x01010101u);
  EXPECT_EQ(Support::word(sparse->hardware(), 2), 0x03030303u);
}

TEST_F(ChipReaderTest, budgetOfNothingTicksForEver) {
  regionsIs({4});
  readerIs(0, 2);
  request->stateIs(start);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(tick(), Reads{});
    EXPECT_EQ(loop.activity->wakeTime(), 2.0 * (i + 1));
  }
  EXPECT_EQ(request->status(), none);
}

TEST_F(ChipReaderTest, intervalOfNothingReadsOneSlicePerTurn) {
  regionsIs({30});
  readerIs(10, 0);
  request->stateIs(start);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(scripted->taken().size(), 1u);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderTest, stateAndShadowOfARegionDoNotMatter) {
  const ChipMemory::Ptr cm = shadowed("cm", 0x8000, 2);
  cm->modeIs(ChipMemory::buffered());
  request->chipMemoryIs(cm);
  readerIs(10);
  scripted->contents = 0x5a;
  request->stateIs(start);
  tick();
  EXPECT_EQ(Support::word(cm->hardware(), 1), 0x5a5a5a5au);
  EXPECT_EQ(Support::word(cm->shadow(), 1), 0u);
}

TEST_F(ChipReaderTest, theRequestThatIsThereAlreadyIsNotBegunAgain) {
  regionsIs({8});
  readerIs(4);
  request->stateIs(start);
  tick();
  reader->requestIs(request);
  EXPECT_EQ(tick(), (Reads{read(0x8010, 4)}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderTest, chipMemory_aNullRegionIsRefusedByEachMutator) {
  readerIs(4);
  const std::string text =
      "null _chipMemory parameter to mutator for Hardware::ChipReader::chipMemory not allowed\"";
  EXPECT_EQ(Support::exceptionText([&] { reader->chipMemoryEnq(nullptr); }), text);
  EXPECT_EQ(Support::exceptionText([&] { reader->newChipMemory(7, nullptr); }), text);
  Zint::GenericIf_ byName(reader);
  EXPECT_NE(Support::exceptionText([&] {
              byName.list("chipMemory").insert({{"chipMemory", "null"}});
            }),
            "");
  EXPECT_EQ(reader->chipMemorys(), 0u);
  EXPECT_EQ(reader->chipMemoryMetadata(), Hardware::ChipReader::ChipMemoryMetadata());
}

}  // namespace
