// A reset is heard once, by whomever it is told, and it is heard: of chips that tell of it
// themselves, that change their place, or whose tables are large.
#include "PatrolWorld.h"

namespace {

using Driver::Rule;
using Driver::Verdict;

// A chip with a generation register that is cleared by reading.
class ClearOnRead : public Driver::Chip {
 public:
  using Chip::Chip;
  bool wasReset() override {
    ++asked;
    if (throws) throw std::runtime_error("no generation");
    const bool answer = std::exchange(hasLost, false);
    if (onAsked) onAsked(answer);
    return answer;
  }
  bool hasLost = false, throws = false;
  U32 asked = 0;
  std::function<void(bool answer)> onAsked;
};

class PatrolResetOnce : public Support::PatrolWorld {
 protected:
  void until(const std::function<bool()>& isReached) {
    for (U32 i = 0; i < 5000 && !isReached(); ++i) step();
    ASSERT_TRUE(isReached());
  }
  void tableIs(U32 entries) {
    mac = region("mac", 0x1000, entries);
    own = Zint::makePtr<ClearOnRead>("own", chip);
    shadow->chipIs(own);
    audit();
    fill(mac, 0, entries);
    settle();
  }
  void passMany() {
    for (U32 i = 0; i < 6; ++i) ASSERT_TRUE(pass());
  }
  U32 wrong() const {
    U32 wrong = 0;
    for (U32 e = 0; e < mac->entries(); ++e) wrong += held(mac, e) == e + 1 ? 0 : 1;
    return wrong;
  }

  ChipMemory::Ptr mac;
  Zint::Ptr<ClearOnRead> own;
};

// --- Told twice ----------------------------------------------------------------------------------

TEST_F(PatrolResetOnce, probe_thatHasFoundItIsNotFollowedByTheChipsOwnAnswer) {
  tableIs(32);
  policyOf(mac)->onceIs(5, 1, true);
  shadow->maxEntriesPerSliceIs(8);
  until([&] { return shadow->patrolState() == Driver::PatrolState::reading; });
  wipe(mac);
  own->hasLost = true;
  U32 onceWrites = 0;
  chip->afterWrite = [&](U64 address, U32 entries) {
    if (address <= 0x1014 && 0x1014 < address + 4 * U64{entries}) ++onceWrites;
  };
  passMany();
  EXPECT_EQ(count(Verdict::reset), 1u);
  EXPECT_EQ(own->resets(), 1u);
  EXPECT_EQ(onceWrites, 1u);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(PatrolResetOnce, doChipReset_isNotFollowedByTheChipsOwnAnswer) {
  tableIs(32);
  wipe(mac);
  own->hasLost = true;
  own->doChipReset();
  passMany();
  EXPECT_EQ(own->resets(), 1u);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(PatrolResetOnce, doChipReset_asksTheChipBeforeTheFirstWrite) {
  tableIs(32);
  wipe(mac);
  own->hasLost = true;
  chip->afterWrite = [&](U64, U32) { EXPECT_FALSE(own->hasLost); };
  own->doChipReset();
  EXPECT_TRUE(own->hasLost);
  until([&] { return !own->isRestoring(); });
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(PatrolResetOnce, doChipReset_ofAChipThatCannotAnswerYetWaitsForIt) {
  tableIs(32);
  wipe(mac);
  own->hasLost = own->throws = true;
  own->doChipReset();
  until([&] { return own->tries() == 2; });
  EXPECT_EQ(own->reason(), "no generation");
  EXPECT_EQ(held(mac, 0), 0u);
  own->throws = false;
  until([&] { return !own->isRestoring(); });
  EXPECT_FALSE(own->isAbsent());
  passMany();
  EXPECT_EQ(own->resets(), 1u);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(PatrolResetOnce, doChipReset_ofAChipThatItsDriverWritesIsNotFollowedByItsOwnAnswer) {
  tableIs(32);
  own->restoresItselfIs(false);
  wipe(mac);
  own->hasLost = true;
  own->doChipReset();
  steps(3);
  EXPECT_TRUE(own->hasLost);  // nobody asks while the driver writes
  for (U32 e = 0; e < 32; ++e) damage(mac, e, e + 1);
  own->doRestored();
  passMany();
  EXPECT_EQ(own->resets(), 1u);
}

TEST_F(PatrolResetOnce, doRestored_isFollowedByTheNextReset) {
  tableIs(32);
  own->restoresItselfIs(false);
  own->hasLost = true;
  own->doChipReset();
  own->doRestored();
  own->hasLost = true;
  steps(3);
  EXPECT_EQ(own->resets(), 2u);
}

TEST_F(PatrolResetOnce, wasReset_ofAChipThatHasToldOfItIsAskedOnceAPass) {
  tableIs(32);
  own->hasLost = true;
  until([&] { return own->resets() == 1 && !own->isRestoring(); });
  const U32 asked = own->asked, audits = own->audits();
  passMany();
  EXPECT_EQ(own->asked - asked, own->audits() - audits);
}

// --- Not heard -----------------------------------------------------------------------------------

TEST_F(PatrolResetOnce, wasReset_thatChangesTheAuditIsHeardNevertheless) {
  shadow->findsResetsIs(false);
  tableIs(16);
  wipe(mac);
  own->hasLost = true;
  own->onAsked = [&](bool answer) {
    if (answer) shadow->pausedIs(true);
  };
  until([&] { return shadow->paused(); });
  shadow->pausedIs(false);
  passMany();
  EXPECT_EQ(own->resets(), 1u);
  EXPECT_EQ(count(Verdict::repaired), 0u);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(PatrolResetOnce, wasReset_thatTellsByItselfIsOneReset) {
  tableIs(16);
  wipe(mac);
  own->hasLost = true;
  own->onAsked = [&](bool answer) {
    if (answer) own->doChipReset();
  };
  passMany();
  EXPECT_EQ(own->resets(), 1u);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(PatrolResetOnce, ofALargeSparseTableIsFoundFromTheOtherRegions) {
  const auto big = region("big", 0x100000, 40000), small = region("small", 0x1000, 64);
  audit();
  big->doClear();
  for (const U32 e : {0u, 20000u, 20001u}) put(big, e, 1);
  fill(small, 0, 64);
  settle();
  ASSERT_TRUE(pass());
  for (const U32 e : {0u, 20000u, 20001u}) damage(big, e, 0);
  wipe(small);
  passMany();
  EXPECT_EQ(shadow->chip(big)->resets(), 1u);
  EXPECT_EQ(count(Verdict::repaired), 0u);
  EXPECT_EQ(held(small, 63), 64u);
}

TEST_F(PatrolResetOnce, ofALargeTableOfFewKnownEntriesIsFoundInIt) {
  const auto big = region("big", 0x100000, 400000);
  audit();
  for (U32 e = 0; e < 6; ++e) put(big, e * 70000, 1);
  settle();
  told.clear();
  for (U32 e = 0; e < 6; ++e) damage(big, e * 70000, 0);
  for (U32 i = 0; i < 3; ++i) ASSERT_TRUE(pass(5000));
  EXPECT_EQ(shadow->chip(big)->resets(), 1u);
  EXPECT_EQ(count(Verdict::repaired), 0u);
}

TEST_F(PatrolResetOnce, ofAChipOfManyLargeTablesIsFoundFromTheLastOfThem) {
  for (U32 i = 0; i < 20; ++i) {
    const std::string name = "zeros" + std::to_string(i);
    const auto zeros = region(name.c_str(), 0x100000 + U64{i} * 0x10000, 4000);
    zeros->doClear();
  }
  const auto a = region("a", 0x1000, 4), z = region("z", 0x80, 16);
  audit();
  put(a, 0, 7);
  fill(z, 0, 16);
  settle();
  ASSERT_TRUE(pass(5000));
  told.clear();
  damage(a, 0, 0);
  wipe(z);
  for (U32 i = 0; i < 3; ++i) ASSERT_TRUE(pass(5000));
  EXPECT_EQ(shadow->chip(a)->resets(), 1u);
  EXPECT_EQ(count(Verdict::repaired), 0u);
}

// --- A replay that is cut short ------------------------------------------------------------------

class ReplayCutShort : public PatrolResetOnce {
 protected:
  // A replay of a thousand entries has begun.
  void replayIs(const Driver::Chip::Ptr& given) {
    shadow->findsResetsIs(false);
    shadow->maxEntriesPerReplaySliceIs(64);
    mac = region("mac", 0x1000, 1000);
    policyOf(mac)->ruleIs(900, 10, Rule::writeOnly);
    if (given != nullptr) shadow->chipIs(given);
    audit();
    fill(mac, 0, 1000);
    settle();
    first = shadow->chip(mac);
    wipe(mac);
    first->doChipReset();
    steps(4);
    ASSERT_TRUE(first->isRestoring());
    ASSERT_EQ(held(mac, 0), 1u);
    ASSERT_EQ(held(mac, 900), 0u);
  }
  Driver::Chip::Ptr first;
};

TEST_F(ReplayCutShort, chipThatTakesThePlaceOfAnotherIsRestored) {
  replayIs(Driver::chipFactory("first", chip));
  const auto second = Driver::chipFactory("second", chip);
  shadow->chipIs(second);
  shadow->chipDel(first);
  EXPECT_EQ(second->resets(), 1u);
  until([&] { return !second->isRestoring(); });
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayCutShort, chipThatIsMadeForTheRegionsOfAnotherIsRestored) {
  replayIs(Driver::chipFactory("first", chip));
  shadow->chipDel(first);
  const auto made = shadow->chip(mac);
  EXPECT_NE(made, first);
  until([&] { return !made->isRestoring(); });
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayCutShort, chipOfOtherRegionsIsNotRestored) {
  const auto other = Zint::makePtr<Support::PatrolChip>("otherHam");
  const auto rx = regionOf(other, "rx", 0x9000, 16);
  replayIs(Driver::chipFactory("first", chip));
  const auto second = Driver::chipFactory("second", chip),
             away = Driver::chipFactory("away", other);
  shadow->chipIs(away);
  shadow->chipIs(second);
  shadow->chipDel(first);
  EXPECT_EQ(second->resets(), 1u);
  EXPECT_EQ(away->resets(), 0u);
}

TEST_F(ReplayCutShort, chipThatIsTakenAwayAfterItsReplayIsNotRestoredAgain) {
  replayIs(Driver::chipFactory("first", chip));
  until([&] { return !first->isRestoring(); });
  const auto second = Driver::chipFactory("second", chip);
  shadow->chipIs(second);
  shadow->chipDel(first);
  EXPECT_EQ(second->resets(), 0u);
}

TEST_F(ReplayCutShort, overrideHardwareIsNoAbsence) {
  replayIs(nullptr);
  shadow->overrideHardwareIs(true);
  const U64 writes = chip->writes, reads = chip->reads;
  steps(5);
  EXPECT_FALSE(first->isAbsent());
  EXPECT_EQ(first->absences(), 0u);
  EXPECT_TRUE(first->isRestoring());
  EXPECT_EQ(chip->writes, writes);
  EXPECT_EQ(chip->reads, reads);
  EXPECT_EQ(shadow->patrolReason(), "chip is being restored, but overrideHardware is set");
  shadow->overrideHardwareIs(false);
  until([&] { return !first->isRestoring(); });
  EXPECT_EQ(first->absences(), 0u);
  EXPECT_EQ(wrong(), 0u);
}

TEST_F(ReplayCutShort, overrideHardwareOfAnIdleShadowIsOver) {
  replayIs(nullptr);
  shadow->overrideHardwareIs(true);
  steps(5);
  shadow->stateIs(HardwareShadow::idle());
  steps(5);
  shadow->overrideHardwareIs(false);
  until([&] { return !first->isRestoring(); });
  EXPECT_EQ(wrong(), 0u);
}

// --- The wait of a chip that answers in places ---------------------------------------------------

class PatrolRelapse : public PatrolResetOnce {};

TEST_F(PatrolRelapse, triesOfAChipWhoseOneEntryAlwaysThrowsAreFewerAndFewer) {
  mac = region("mac", 0x1000, 16);
  audit();
  fill(mac, 0, 16);
  settle();
  bool isBad = true;
  chip->afterRead = [&](U64 address, U32 entries) {
    if (isBad && address <= 0x1014 && 0x1014 < address + 4 * U64{entries}) {
      throw std::runtime_error("bad address");
    }
  };
  const auto asic = shadow->chip(mac);
  const Zint::Seconds begin = loop.clock->time();
  until([&] { return loop.clock->time() > begin + 1000; });
  // 1, 2, 4, ... 32, 60, 60, ...
  EXPECT_LT(asic->absences() + asic->tries(), 30u);
  EXPECT_GT(asic->absences(), 15u);
  // All of it is audited again: the next absence is the first one.
  isBad = false;
  until([&] { return asic->audits() > 1 && !asic->isAbsent(); });
  ASSERT_TRUE(pass());
  isBad = true;
  until([&] { return asic->isAbsent(); });
  EXPECT_DOUBLE_EQ(asic->nextTry(), asic->since() + 1);
}

}  // namespace
