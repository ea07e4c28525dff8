// Writes that are held back while a chip is being restored, and writes to a chip that is absent:
// each reaches the chip, or leaves a finding, so that the next one does.
#include <Driver/ChipAccess.h>
#include <Driver/ChipWriteRequest.h>
#include <Driver/ChipWriter.h>

#include "PatrolWorld.h"

namespace {

using Driver::ChipAccess;
using Driver::Rule;

class HeldWrites : public Support::PatrolWorld {
 protected:
  void until(const std::function<bool()>& isReached) {
    for (U32 i = 0; i < 2000 && !isReached(); ++i) step();
    ASSERT_TRUE(isReached());
  }
  // Entry 5 is never read, so that no audit can repair it.
  void tableIs(U32 entries = 16) {
    mac = region("mac", 0x1000, entries);
    policy = policyOf(mac);
    policy->ruleIs(5, 1, Rule::writeOnly);
    own = Driver::chipFactory("own", chip);
    shadow->chipIs(own);
    access = Driver::chipAccessFactory(shadow, mac);
    audit();
    fill(mac, 0, 16);
    settle();
  }
  void restored() {
    until([&] { return !own->isRestoring(); });
    for (U32 i = 0; i < 3; ++i) ASSERT_TRUE(pass());
  }
  // The first write of entry 5 is lost, and the chip with it.
  void vanishesAtEntry5() {
    chip->afterWrite = [this](U64 address, U32 entries) {
      if (address > 0x1014 || 0x1014 >= address + 4 * U64{entries}) return;
      if (!std::exchange(isFirst, false)) return;
      damage(mac, 5, 0);
      chip->isAway = true;
      throw std::runtime_error("gone");
    };
  }

  ChipMemory::Ptr mac;
  Driver::Policy::Ptr policy;
  Driver::Chip::Ptr own;
  ChipAccess::Ptr access;
  bool isFirst = true;
};

// Writes when the request has that status.
class WriteAtStatus : public Driver::ChipWriteRequest::NotifieeConst {
 public:
  WriteAtStatus(const Zint::Ptr<Zint::ActivityConfig>& activity,
                const Driver::ChipWriteRequest::Ptr& request, const ChipAccess::Ptr& access)
      : NotifieeConst(activity, request), access_(access) {}
  void onStatus() override {
    if (notifier()->status() == Zint::Request::done_) access_->write<U32>(5, 0xe1ab1e);
  }

 private:
  const ChipAccess::Ptr access_;
};

// Writes when the chip is to be restored.
class WriteAtReset : public Driver::Chip::NotifieeConst {
 public:
  WriteAtReset(const Zint::Ptr<Zint::ActivityConfig>& activity, const Driver::Chip::Ptr& chip,
               const ChipAccess::Ptr& access)
      : NotifieeConst(activity, chip), access_(access) {}
  void onRestoring() override {
    if (notifier()->isRestoring()) access_->write<U32>(5, 0xcafe);
  }

 private:
  const ChipAccess::Ptr access_;
};

TEST_F(HeldWrites, write_whenTheReplayIsToldDoneGoesToTheChip) {
  tableIs();
  const auto replay = Driver::chipWriteRequestFactory("replay");
  replay->chipMemoryIs(mac);
  own->replayIs(replay);
  const auto done = Zint::makePtr<WriteAtStatus>(loop.activity, replay, access);
  wipe(mac);
  own->doChipReset();
  restored();
  EXPECT_EQ(held(mac, 5), 0xe1ab1eu);
  EXPECT_EQ(access->writesHeld(), 0u);
}

TEST_F(HeldWrites, write_whenTheChipHasJustBeenResetIsHeld) {
  tableIs();
  const auto observer = Zint::makePtr<WriteAtReset>(loop.activity, own, access);
  wipe(mac);
  const U64 writes = chip->writes;
  own->doChipReset();
  EXPECT_EQ(chip->writes, writes);
  EXPECT_EQ(access->writesHeld(), 1u);
  restored();
  EXPECT_EQ(held(mac, 5), 0xcafeu);
}

TEST_F(HeldWrites, write_toARegionThatTheShadowDoesNotHaveGoesToTheChip) {
  tableIs();
  const auto loose = Hardware::chipMemoryFactory("loose", ChipAddress(0x9000), 16, 4, 4, chip);
  loose->shadowEnabledIs(true);
  const auto toLoose = Driver::chipAccessFactory(shadow, loose);
  own->doChipReset();
  ASSERT_TRUE(shadow->chip(loose)->isRestoring());
  toLoose->write<U32>(7, 0xcafe);
  EXPECT_EQ(held(loose, 7), 0xcafeu);
  access->write<U32>(6, 0xcafe);
  EXPECT_EQ(toLoose->writesHeld(), 0u);
  EXPECT_EQ(access->writesHeld(), 1u);
}

// The replay begins in the next turn, when the chip has been asked whether it knows of the reset.
TEST_F(HeldWrites, write_toARegionThatCameBeforeTheReplayBeganIsWrittenByIt) {
  tableIs();
  own->doChipReset();
  shadow->stateIs(HardwareShadow::unconfigured());
  const auto early = region("early", 0x9000, 16);
  shadow->stateIs(HardwareShadow::configured());
  const auto toEarly = Driver::chipAccessFactory(shadow, early);
  toEarly->write<U32>(7, 0xcafe);
  EXPECT_EQ(toEarly->writesHeld(), 1u);
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(held(early, 7), 0xcafeu);
}

TEST_F(HeldWrites, write_toARegionThatCameAfterTheReplayBeganGoesToTheChip) {
  tableIs();
  shadow->maxEntriesPerReplaySliceIs(1);
  own->doChipReset();
  steps(2);
  ASSERT_TRUE(own->isRestoring());
  shadow->stateIs(HardwareShadow::unconfigured());
  const auto late = region("late", 0x9000, 16);
  shadow->stateIs(HardwareShadow::configured());
  const auto toLate = Driver::chipAccessFactory(shadow, late);
  toLate->write<U32>(7, 0xcafe);
  EXPECT_EQ(held(late, 7), 0xcafeu);
}

TEST_F(HeldWrites, write_ofAnInterruptedOnceEntryIsWrittenByTheReplay) {
  tableIs();
  policy->onceIs(5, 1, true);
  wipe(mac);
  own->doChipReset();
  vanishesAtEntry5();
  until([&] { return own->isAbsent(); });
  ASSERT_TRUE(own->isRestoring());
  access->write<U32>(5, 0xcafe);
  EXPECT_EQ(access->writesHeld(), 1u);
  chip->isAway = false;
  restored();
  EXPECT_EQ(held(mac, 5), 0xcafeu);
}

TEST_F(HeldWrites, noWriteOfAnInterruptedOnceEntryLeavesItAlone) {
  tableIs();
  policy->onceIs(5, 1, true);
  wipe(mac);
  own->doChipReset();
  vanishesAtEntry5();
  until([&] { return own->isAbsent(); });
  chip->isAway = false;
  restored();
  EXPECT_EQ(held(mac, 5), 0u);
  EXPECT_TRUE(shadow->hasOpenFinding(mac, 5));
}

TEST_F(HeldWrites, write_duringTheAccessOfAOnceEntryIsWrittenByTheReplay) {
  tableIs();
  policy->onceIs(5, 1, true);
  wipe(mac);
  own->doChipReset();
  U32 accesses = 0;
  chip->afterWrite = [&](U64 address, U32) {
    if (address == 0x1014 && ++accesses == 1) access->write<U32>(5, 0xcafe);
  };
  restored();
  EXPECT_EQ(accesses, 2u);
  EXPECT_EQ(held(mac, 5), 0xcafeu);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 5));
}

TEST_F(HeldWrites, write_duringTheAccessOfAOnceEntryThatThrowsIsWrittenByTheReplay) {
  tableIs();
  policy->onceIs(5, 1, true);
  wipe(mac);
  own->doChipReset();
  U32 accesses = 0;
  chip->afterWrite = [&](U64 address, U32) {
    if (address != 0x1014 || ++accesses != 1) return;
    access->write<U32>(5, 0xcafe);
    damage(mac, 5, 0);
    throw std::runtime_error("gone");
  };
  restored();
  EXPECT_EQ(accesses, 2u);
  EXPECT_EQ(held(mac, 5), 0xcafeu);
}

TEST_F(HeldWrites, write_ofAnEntryThatTheReplayHasGivenUpGoesToTheChip) {
  tableIs();
  wipe(mac);
  own->doChipReset();
  U32 value = 100;
  chip->afterWrite = [&](U64, U32) { access->write<U32>(5, ++value); };
  until([&] { return !own->isRestoring(); });
  chip->afterWrite = nullptr;
  EXPECT_TRUE(shadow->hasOpenFinding(mac, 5));
  EXPECT_NE(held(mac, 5), value);
  access->write<U32>(5, value);
  EXPECT_EQ(held(mac, 5), value);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 5));
}

// --- Absent chips --------------------------------------------------------------------------------

struct WriteToAbsent : HeldWrites {
  // All-ones where the chip is absent: nothing throws.
  void answers(bool does) {
    const U32 value = does ? 0xa5 : ~0u;
    chip->bytes.write(0x10, reinterpret_cast<const U8*>(&value), 4);
  }
  void vanishes() {
    answers(true);
    const U32 id = 0xa5;
    own->sentinelIs(ChipAddress(0x10), {reinterpret_cast<const U8*>(&id), 4});
    mac->skipWriteIfMatchesCacheIs(true);
    ASSERT_TRUE(pass());
    answers(false);
    until([&] { return own->isAbsent(); });
  }
};

TEST_F(WriteToAbsent, leavesAFinding) {
  tableIs();
  vanishes();
  access->write<U32>(5, 0xcafe);
  damage(mac, 5, 6);  // the chip did not take it
  EXPECT_TRUE(shadow->hasOpenFinding(mac, 5));
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 4));
  answers(true);
  until([&] { return !own->isAbsent(); });
  ASSERT_TRUE(pass());
  access->write<U32>(5, 0xcafe);
  EXPECT_EQ(held(mac, 5), 0xcafeu);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 5));
}

TEST_F(WriteToAbsent, ofEntriesThatDoNotDifferLeavesNone) {
  tableIs();
  vanishes();
  const U32 values[] = {1, 2, 33, 4};
  access->write<U32>(0, std::span<const U32>(values));
  for (U32 e = 0; e < 4; ++e) EXPECT_EQ(shadow->hasOpenFinding(mac, e), e == 2) << e;
}

}  // namespace
