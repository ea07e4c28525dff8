// The reader where something goes wrong or interferes: broken rules, failing accesses, commands and
// lost references from inside of an access.
#include <Hardware/ChipReader.h>

#include <stdexcept>

#include "support/ShadowTest.h"

namespace {

using Support::HamAccess;

constexpr const char* doReadFunction = "virtual void Hardware::ChipReader::doRead()";

class ChipReaderFaults : public Support::ShadowTest {
 protected:
  static constexpr auto start = Zint::Request::start_;
  static constexpr auto stop = Zint::Request::stop_;
  static constexpr auto none = Zint::Request::none_;
  static constexpr auto done = Zint::Request::done_;

  ChipReaderFaults() {
    ham = scripted;
    first = region("first", 0x8000, 4);
    second = region("second", 0x4000, 4);
    request->chipMemoryIs(first);
    request->chipMemoryIs(second);
    reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, 6, 1);
  }
  // Runs `action` in the access to that address, once.
  void during(U64 address, std::function<void()> action) {
    scripted->onAccess = [this, address, action](const HamAccess& access, U8*) {
      if (access.address != address || happened) return;
      happened = true;
      action();
    };
  }
  std::vector<U64> addresses() {
    std::vector<U64> read;
    for (const HamAccess& access : scripted->taken()) read.push_back(access.address);
    return read;
  }

  ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  ChipMemory::Ptr first, second;
  Zint::Ptr<Hardware::ChipReader> reader;
  bool happened = false;
};

using Addresses = std::vector<U64>;

// --- Broken rules -------------------------------------------------------------------------------

TEST_F(ChipReaderFaults, tickWithNothingCurrentWhileStartedIsFatal) {
  request->stateIs(start);
  loop.turnAt(0);
  loop.turnAt(1);
  ASSERT_EQ(request->status(), done);
  EXPECT_ASSERTION(reader->handleTimeout(), 334, "void Hardware::ChipReader::handleTimeout()",
                   "currentChipMemory_");
}

TEST_F(ChipReaderFaults, tickIsTracedOnlyBehindTheCheck) {
  request->stateIs(start);
  reader->currentChipMemoryIs(nullptr);
  trace.full.clear();
  EXPECT_EQ(Support::assertedCondition([&] { reader->handleTimeout(); }), "currentChipMemory_");
  EXPECT_TRUE(trace.full.empty());
}

TEST_F(ChipReaderFaults, sliceWithNothingCurrentIsFatal) {
  EXPECT_ASSERTION(reader->doRead(), 350, doReadFunction, "currentChipMemory_");
}

TEST_F(ChipReaderFaults, sliceThatBeginsInAnOverrideRegionIsFatal) {
  request->stateIs(start);
  first->modeIs(ChipMemory::override());
  EXPECT_ASSERTION(reader->doRead(), 352, doReadFunction,
                   "(currentChipMemory_->mode() != ChipMemory::override())");
}

TEST_F(ChipReaderFaults, onlyTheFirstRegionOfASliceIsCheckedForOverride) {
  request->stateIs(start);
  second->modeIs(ChipMemory::override());  // its hardware buffer stays
  reader->doRead();
  EXPECT_EQ(addresses(), (Addresses{0x8000, 0x4000}));
}

TEST_F(ChipReaderFaults, regionOfNoEntriesIsFatalAtTheTick) {
  first->entriesIs(0);
  request->stateIs(start);
  EXPECT_ASSERTION(loop.turn(), 363, doReadFunction, "readChunkSizeInEntries");
}

TEST_F(ChipReaderFaults, laterRegionOfNoEntriesIsFatalToo) {
  second->entriesIs(0);
  request->stateIs(start);
  EXPECT_ASSERTION(loop.turn(), 363, doReadFunction, "readChunkSizeInEntries");
}

TEST_F(ChipReaderFaults, hardwareBufferSmallerThanTheEntriesIsFatalAndNamesTheRegion) {
  first->entriesIs(5);
  request->stateIs(start);
  EXPECT_REGION_ASSERTION(loop.turn(), "first");
  first->hardwareIs(nullptr);
  EXPECT_REGION_ASSERTION(loop.turn(), "first");
}

TEST_F(ChipReaderFaults, hardwareBufferWhoseSizeWrappedIsFatalAndNamesTheRegion) {
  const auto all = Hardware::chipReadRequestFactory("all");
  all->chipMemoryIs(region("huge", 0x10000, 0x10000, 0x10000));
  reader->requestIs(all);
  all->stateIs(start);
  EXPECT_REGION_ASSERTION(loop.turn(), "huge");
}

// --- Failing accesses ---------------------------------------------------------------------------

TEST_F(ChipReaderFaults, exceptionOfAnAccessPassesOutOfTheSliceAndTheTick) {
  request->stateIs(start);
  scripted->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus error"); };
  EXPECT_THROW(reader->doRead(), std::runtime_error);
  EXPECT_THROW(reader->handleTimeout(), std::runtime_error);
}

TEST_F(ChipReaderFaults, exceptionEndsTheReadingWhereItStandsAndIsTraced) {
  request->stateIs(start);
  during(0x4000, [] { throw std::runtime_error("bus error"); });
  trace.full.clear();
  loop.turn();
  EXPECT_EQ(addresses(), (Addresses{0x8000, 0x4000}));
  EXPECT_EQ(reader->currentChipMemory(), second);
  EXPECT_EQ(reader->entriesRead(), 0u);
  EXPECT_EQ(request->status(), none);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  const auto& line = trace.full.back();
  EXPECT_EQ(line.handle, "Zint");
  EXPECT_EQ(line.level, 0u);
  EXPECT_NE(line.text.find("bus error"), std::string::npos) << line.text;
}

TEST_F(ChipReaderFaults, readingCanBeStartedAgainAfterAnException) {
  request->stateIs(start);
  during(0x8000, [] { throw std::runtime_error("bus error"); });
  loop.turn();
  request->stateIs(stop);
  request->stateIs(start);
  loop.turn();
  loop.turnAt(1);
  EXPECT_EQ(addresses(), (Addresses{0x8000, 0x8000, 0x4000, 0x4008}));
  EXPECT_EQ(request->status(), done);
}

// --- From inside of an access -------------------------------------------------------------------

TEST_F(ChipReaderFaults, stopEndsTheSlice) {
  request->stateIs(start);
  during(0x8000, [&] { request->stateIs(stop); });
  loop.turn();
  EXPECT_EQ(addresses(), Addresses{0x8000});
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  EXPECT_EQ(reader->chipMemorys(), 0u);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  EXPECT_EQ(request->status(), none);
}

TEST_F(ChipReaderFaults, stopInTheLastAccessLeavesTheStatus) {
  request->stateIs(start);
  during(0x4008, [&] { request->stateIs(stop); });
  loop.turn();
  loop.turnAt(1);
  EXPECT_TRUE(happened);
  EXPECT_EQ(request->status(), none);
}

TEST_F(ChipReaderFaults, restartBeginsAnewAtTheNextTurn) {
  request->stateIs(start);
  during(0x8000, [&] {
    request->stateIs(stop);
    request->stateIs(start);
  });
  loop.turn();
  EXPECT_EQ(addresses(), Addresses{0x8000});
  EXPECT_EQ(reader->currentChipMemory(), first);
  EXPECT_EQ(reader->entriesRead(), 0u);
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
  loop.turn();
  loop.turnAt(1);
  EXPECT_EQ(addresses(), (Addresses{0x8000, 0x4000, 0x4008}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipReaderFaults, restartInTheLastAccessIsNotTakenForDone) {
  request->stateIs(start);
  during(0x4008, [&] { request->stateIs(start); });
  loop.turn();
  loop.turnAt(1);
  EXPECT_TRUE(happened);
  EXPECT_EQ(request->status(), none);
  EXPECT_EQ(reader->currentChipMemory(), first);
}

TEST_F(ChipReaderFaults, ownerMayDropTheReader) {
  request->stateIs(start);
  during(0x8000, [&] { reader = nullptr; });
  loop.turn();
  EXPECT_TRUE(happened);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  EXPECT_EQ(request->notifiees(), 0u);
}

TEST_F(ChipReaderFaults, ownerMayDropReaderRequestAndRegions) {
  request->stateIs(start);
  during(0x8000, [&] {
    request->chipMemoryDelAll();
    first = second = nullptr;
    reader = nullptr;
    request = nullptr;
  });
  loop.turn();
  EXPECT_TRUE(happened);
}

TEST_F(ChipReaderFaults, accessMayReplaceTheHardwareBuffer) {
  request->stateIs(start);
  scripted->onAccess = [&](const HamAccess& access, U8* buffer) {
    if (access.address == 0x8000) first->hardwareIs(Zint::makePtr<Hal::Buf>(16u));
    std::memset(buffer, 1, std::size_t{4} * access.entries);
  };
  loop.turn();
  EXPECT_EQ(Support::word(first->hardware(), 0), 0u);
  EXPECT_EQ(Support::word(second->hardware(), 0), 0x01010101u);
}

TEST_F(ChipReaderFaults, statusHandlerMayStartAgainOrDropTheReader) {
  class Answers : public ChipReadRequest::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onStatus() override { then(); }
    std::function<void()> then;
  };
  const auto answers = Zint::makePtr<Answers>(loop.activity, request);
  answers->then = [&] { request->stateIs(start); };
  reader->maxEntriesPerReadIs(8);
  request->stateIs(start);
  loop.turn();
  EXPECT_EQ(reader->currentChipMemory(), first);
  answers->then = [&] { reader = nullptr; };
  loop.turn();
  EXPECT_EQ(addresses(), (Addresses{0x8000, 0x4000, 0x8000, 0x4000}));
  EXPECT_EQ(reader, nullptr);
}

// --- Observers of the reader --------------------------------------------------------------------

class ReaderWatch : public Hardware::ChipReader::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onCurrentChipMemory() override {
    if (onCurrent) std::exchange(onCurrent, nullptr)();
  }
  void onEntriesRead() override {
    if (onEntries) std::exchange(onEntries, nullptr)();
  }
  std::function<void()> onCurrent, onEntries;
};

TEST_F(ChipReaderFaults, observerMayStopWhatIsBeingStarted) {
  const auto watch = Zint::makePtr<ReaderWatch>(loop.activity, reader);
  watch->onCurrent = [&] { request->stateIs(stop); };
  request->stateIs(start);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(ChipReaderFaults, observerMayRestartBetweenTwoRegions) {
  reader->maxEntriesPerReadIs(2);
  const auto watch = Zint::makePtr<ReaderWatch>(loop.activity, reader);
  request->stateIs(start);
  loop.turn();
  watch->onEntries = [&] {
    request->stateIs(stop);
    request->stateIs(start);
  };
  loop.turnAt(1);
  EXPECT_EQ(addresses(), (Addresses{0x8000, 0x8008}));
  EXPECT_EQ(reader->currentChipMemory(), first);
  EXPECT_EQ(reader->chipMemorys(), 1u);
}

// --- Derived readers and the end ----------------------------------------------------------------

TEST_F(ChipReaderFaults, derivedReaderChangesHowASliceIsRead) {
  class Skipping : public Hardware::ChipReader {
   public:
    using ChipReader::ChipReader;
    void doRead() override { currentChipMemoryIs(chipMemoryDeq()); }
  };
  reader = nullptr;
  const Zint::Ptr<Skipping> skipping =
      Zint::makePtr<Skipping>(loop.activity, request, loop.clock, 6u, 1.0);
  skipping->hasNotificationActiveIs(true);
  request->stateIs(start);
  loop.turn();
  EXPECT_EQ(skipping->currentChipMemory(), second);
  loop.turnAt(1);
  EXPECT_EQ(request->status(), done);
  EXPECT_TRUE(scripted->log.empty());
}

TEST_F(ChipReaderFaults, markedForDeletionItHearsNothing) {
  request->stateIs(start);
  reader->zintDoZombieReactors(true);
  EXPECT_TRUE(reader->zintMarkedForDeletion());
  trace.full.clear();
  loop.turn();
  request->stateIs(stop);
  const auto other = Hardware::chipReadRequestFactory("other");
  reader->requestIs(other);
  EXPECT_TRUE(trace.full.empty());
  reader->zintDoZombieReactors(false);
  other->stateIs(stop);
  EXPECT_EQ(trace.taken(), (Support::Lines{{0, "handleReadRequest 2"}}));
}

TEST_F(ChipReaderFaults, destroyedItReleasesRegionsRequestAndClock) {
  request->stateIs(start);
  const std::size_t before = second->references();
  reader = nullptr;
  EXPECT_EQ(second->references(), before - 1);
  EXPECT_EQ(request->references(), 1u);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  EXPECT_EQ(loop.turn(), 0u);
}

}  // namespace
