// What changes while a replay is under way: its regions, its clock, its chip.
#include <Driver/ChipAccess.h>
#include <Driver/ChipWriteRequest.h>
#include <Driver/ChipWriter.h>

#include "PatrolWorld.h"

namespace {

using Driver::Rule;

class ReplayChanges : public Support::PatrolWorld {
 protected:
  void until(const std::function<bool()>& isReached) {
    for (U32 i = 0; i < 2000 && !isReached(); ++i) step();
    ASSERT_TRUE(isReached());
  }
  // A thousand known entries, of which 16 slices restore 64 each.
  void tableIs() {
    shadow->maxEntriesPerReplaySliceIs(64);
    mac = region("mac", 0x1000, 1000);
    audit();
    fill(mac, 0, 1000);
    settle();
    own = shadow->chip(mac);
  }
  void resetAndBegin() {
    wipe(mac);
    own->doChipReset();
    steps(4);
    ASSERT_TRUE(own->isRestoring());
    ASSERT_EQ(held(mac, 0), 1u);
    ASSERT_EQ(held(mac, 999), 0u);
  }
  U32 wrong() const {
    U32 wrong = 0;
    for (U32 e = 0; e < 1000; ++e) wrong += held(mac, e) == e + 1 ? 0 : 1;
    return wrong;
  }

  ChipMemory::Ptr mac;
  Driver::Chip::Ptr own;
};

// --- Regions -------------------------------------------------------------------------------------

TEST_F(ReplayChanges, region_thatIsReplacedIsNotWrittenAnyMore) {
  tableIs();
  policyOf(mac);
  resetAndBegin();
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryDel(mac->address());
  const auto fresh = region("fresh", 0x1000, 1000);
  shadow->overrideHardwareIs(false);
  put(fresh, 900, 4711);
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(held(fresh, 900), 4711u);
  EXPECT_EQ(held(fresh, 901), 0u);
}

TEST_F(ReplayChanges, region_thatIsReplacedWhileUnconfiguredIsNotWrittenAnyMore) {
  tableIs();
  policyOf(mac);
  resetAndBegin();
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->chipMemoryDel(mac->address());
  const auto fresh = region("fresh", 0x1000, 1000);
  audit();
  put(fresh, 900, 4711);
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(held(fresh, 900), 4711u);
}

TEST_F(ReplayChanges, region_thatReturnsIsWrittenToTheEnd) {
  tableIs();
  policyOf(mac);
  resetAndBegin();
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->chipMemoryDel(mac->address());
  shadow->chipMemoryIs(mac);
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayChanges, region_thatAnAccessRemovesIsListedAsSkipped) {
  tableIs();
  const auto request = Driver::chipWriteRequestFactory("replay");
  request->chipMemoryIs(mac);
  const auto writer =
      Driver::chipWriterFactory(loop.activity, shadow, request, loop.clock, 64, 64, 0.001);
  wipe(mac);
  chip->afterWrite = [&](U64, U32) {
    offer(mac, 0, 77);  // the access is not repeated for it
    shadow->stateIs(HardwareShadow::unconfigured());
    shadow->chipMemoryDel(mac->address());
  };
  const U64 writes = chip->writes;
  request->stateIs(Zint::Request::start_);
  until([&] { return request->status() == Zint::Request::done_; });
  EXPECT_EQ(chip->writes, writes + 64);
  ASSERT_EQ(writer->remarks().size(), 1u);
  EXPECT_EQ(writer->remarks()[0].stringValue(), "skipped: mac, removed from the shadow");
}

TEST_F(ReplayChanges, region_thatTheShadowNeverHadIsWritten) {
  tableIs();
  const auto loose = Hardware::chipMemoryFactory("loose", ChipAddress(0x9000), 16, 4, 4, chip);
  loose->shadowEnabledIs(true);
  Driver::chipAccessFactory(shadow, loose)->write<U32>(7, 0xcafe);
  const auto request = Driver::chipWriteRequestFactory("replay");
  request->chipMemoryIs(loose);
  const auto writer =
      Driver::chipWriterFactory(loop.activity, shadow, request, loop.clock, 64, 64, 0.001);
  wipe(loose);
  request->stateIs(Zint::Request::start_);
  until([&] { return request->status() == Zint::Request::done_; });
  EXPECT_EQ(held(loose, 7), 0xcafeu);
}

// --- The clock -----------------------------------------------------------------------------------

TEST_F(ReplayChanges, clock_thatIsReplacedDoesNotEndIt) {
  tableIs();
  resetAndBegin();
  const auto second = Zint::manualClockFactory("second");
  shadow->clockIs(second);
  for (U32 i = 0; i < 1000 && own->isRestoring(); ++i) {
    second->timeIs(second->time() + 0.01);
    loop.turn();
  }
  EXPECT_FALSE(own->isRestoring());
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayChanges, clock_thatIsTakenAwayAndReturnsDoesNotEndIt) {
  tableIs();
  resetAndBegin();
  shadow->clockIs(nullptr);
  steps(100);
  EXPECT_TRUE(own->isRestoring());
  shadow->clockIs(loop.clock);
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayChanges, clock_thatAnAccessReplacesDoesNotEndIt) {
  tableIs();
  shadow->turnBoundIs(1);
  resetAndBegin();
  const auto second = Zint::manualClockFactory("second");
  chip->afterWrite = [&](U64, U32) {
    chip->afterWrite = nullptr;
    shadow->clockIs(second);
  };
  steps(1);
  for (U32 i = 0; i < 1000 && own->isRestoring(); ++i) {
    second->timeIs(second->time() + 0.01);
    loop.turn();
  }
  EXPECT_EQ(shadow->clock(), second);
  EXPECT_FALSE(own->isRestoring());
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayChanges, clock_thatIsReplacedDoesNotShortenThePauseBetweenGroups) {
  const auto other = region("other", 0x9000, 16);
  tableIs();
  fill(other, 0, 16);
  const auto request = Driver::chipWriteRequestFactory("replay");
  request->chipMemoryIs(other);
  request->newGroup(10);
  request->chipMemoryIs(mac);
  const auto writer =
      Driver::chipWriterFactory(loop.activity, shadow, request, loop.clock, 64, 64, 0.001);
  shadow->stateIs(HardwareShadow::idle());
  wipe(other);
  wipe(mac);
  request->stateIs(Zint::Request::start_);
  until([&] { return held(other, 15) == 16; });
  loop.turn();
  const auto second = Zint::manualClockFactory("second");
  writer->clockIs(second);
  loop.turn();
  second->timeIs(second->time() + 9.9);
  loop.turn();
  EXPECT_EQ(held(mac, 0), 0u);
  second->timeIs(second->time() + 0.2);
  loop.turn();
  EXPECT_EQ(held(mac, 0), 1u);
}

TEST_F(ReplayChanges, sliceInterval_ofThePatrolDoesNotDelayIt) {
  tableIs();
  shadow->sliceIntervalIs(1e9);
  resetAndBegin();
  until([&] { return !own->isRestoring(); });
  EXPECT_LT(loop.clock->time(), 1e6);
  EXPECT_EQ(wrong(), 0u);
}

// --- The chip ------------------------------------------------------------------------------------

// A chip with a generation register that is cleared by reading.
class Generation : public Driver::Chip {
 public:
  using Chip::Chip;
  bool wasReset() override {
    if (throws) throw std::runtime_error("no generation");
    return std::exchange(hasLost, false);
  }
  bool hasLost = false;
  bool throws = false;
};

struct ReplayOfAbsent : ReplayChanges {
  void generationIs() {
    tableIs();
    generation = Zint::makePtr<Generation>("own", chip);
    shadow->chipIs(generation);
    own = generation;
    resetAndBegin();
    shadow->pausedIs(true);  // the replay alone
    chip->isAway = true;
    until([&] { return own->isAbsent(); });
  }
  Zint::Ptr<Generation> generation;
};

TEST_F(ReplayOfAbsent, asksWhetherTheChipWasResetMeanwhile) {
  generationIs();
  wipe(mac);
  generation->hasLost = true;
  chip->isAway = false;
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(own->resets(), 2u);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayOfAbsent, goesOnWhereTheChipKeptItsState) {
  generationIs();
  chip->isAway = false;
  const U64 writes = chip->writes;
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(own->resets(), 1u);
  EXPECT_LT(chip->writes, writes + 1000);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayOfAbsent, isTriedAgainWhereTheQuestionThrows) {
  generationIs();
  generation->throws = true;
  chip->isAway = false;
  const U32 tries = own->tries();
  until([&] { return own->tries() > tries + 1; });
  EXPECT_EQ(own->reason(), "no generation");
  generation->throws = false;
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(wrong(), 0u);
}

}  // namespace
