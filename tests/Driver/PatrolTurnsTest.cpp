// What a turn of the patrol leaves behind: marks, open findings, the next wake-up and its reason.
#include <Driver/Policy.h>

#include "PatrolTest.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Nature;
using Driver::PatrolState;
using Driver::Rule;
using Driver::Unwritten;
using Driver::Verdict;
using Support::Told;

struct PatrolTurns : Support::PatrolTest {};

TEST_F(PatrolTurns, aWriteMeanwhileLeavesAnOpenFindingOpen) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  offer(mac, 2, 0x11);  // and the write of the chip has failed
  shadow->openFindingIs(mac, 2, true);
  pass();
  EXPECT_EQ(told.back().verdict, Verdict::writtenMeanwhile);
  EXPECT_TRUE(shadow->hasOpenFinding(mac, 2));
  pass();
  EXPECT_EQ(told.back().verdict, Verdict::repaired);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 2));
}

TEST_F(PatrolTurns, nothingIsAdoptedFromAChipThatWasReset) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 64);
  audit();
  for (U32 e = 10; e < 30; ++e) write(mac, e, e);
  pass();
  for (U32 e = 10; e < 30; ++e) set(mac, e, 0);
  set(mac, 0, 99);  // noise in an entry that nobody wrote
  shadow->chip(mac)->restoresItselfIs(false);
  ASSERT_TRUE(pass());
  EXPECT_EQ(told, (std::vector<Told>{{"mac", 10, Verdict::reset, Nature::unverified}}));
  EXPECT_FALSE(mac->entryInitialized(0));
}

TEST_F(PatrolTurns, aNewStoreHasNoOpenFindings) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  shadow->stateIs(HardwareShadow::configured());
  shadow->openFindingIs(mac, 2, true);
  mac->shadowEnabledIs(false);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 2));
  mac->shadowEnabledIs(true);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 2));
}

TEST_F(PatrolTurns, aProbeAsksForEntriesOutsideOfItsSlice) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(8);
  audit();
  for (U32 e = 0; e < 64; ++e) write(mac, e, 0x55);
  pass();
  pass();
  chip->readAddresses.clear();
  offer(mac, 8, 0x56);  // the slice has a mark
  set(mac, 9, 0);
  for (U32 i = 0; i < 3; ++i) step();
  // The 16 entries after the one that differs, the marked one not among them.
  EXPECT_TRUE(chip->readAddresses.contains(mac->entryAddress(25).value()));
  EXPECT_FALSE(chip->readAddresses.contains(mac->entryAddress(26).value()));
  EXPECT_EQ(get(mac, 9), 0x55u);
}

// Not at the end of the pass, and also where an audit on demand finds it.
TEST_F(PatrolTurns, patrolStateIsSuspendedAsSoonAsTheOnlyChipIsAbsent) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  shadow->maxEntriesPerSliceIs(2);
  audit();
  step();
  EXPECT_EQ(shadow->patrolState(), PatrolState::reading);
  chip->isAway = true;
  shadow->doAudit(mac, 6, 2);
  EXPECT_EQ(shadow->patrolState(), PatrolState::suspended);
  EXPECT_EQ(shadow->patrolReason(), "chip is absent: no answer");
  chip->isAway = false;
  shadow->doAudit(mac, 6, 2);
  EXPECT_EQ(shadow->patrolState(), PatrolState::reading);
  chip->isAway = true;
  step();
  EXPECT_EQ(shadow->patrolState(), PatrolState::suspended);
}

// By the turn that runs at last, whoever runs it.
TEST_F(PatrolTurns, aLateTurnTellsThatNobodyDroveTheLoop) {
  region("mac", 0x1000, 8);
  shadow->maxEntriesPerSliceIs(4);
  audit();
  step();
  const Support::TraceCapture traces(0);
  const Zint::Seconds due = loop.activity->wakeTime();
  loop.clock->timeIs(due + 1);
  EXPECT_EQ(shadow->patrolReason(), "");
  loop.clock->timeIs(due + 12.5);
  EXPECT_EQ(shadow->patrolReason(), "nobody drives the loop: a turn is due for 12 s");
  step();
  EXPECT_EQ(shadow->patrolReason(), "");
  std::vector<std::string> lines;
  for (const auto& line : traces.full) {
    if (line.handle == "Driver" && line.level == 0) lines.push_back(line.text);
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"nobody drove the loop for 12.5 s"}));
}

TEST_F(PatrolTurns, aLateTurnIsNoReasonOnceItHasRun) {
  region("mac", 0x1000, 8);
  shadow->maxEntriesPerSliceIs(4);
  audit();
  step();
  loop.clock->timeIs(loop.clock->time() + 50);
  EXPECT_EQ(shadow->patrolReason(), "nobody drives the loop: a turn is due for 49 s");
  ASSERT_TRUE(pass());
  EXPECT_EQ(shadow->patrolReason(), "");
}

TEST_F(PatrolTurns, nothingUnderAuditIsAReason) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  mac->shadowEnabledIs(false);
  EXPECT_EQ(shadow->patrolReason(), "no region is under audit");
}

TEST_F(PatrolTurns, anEntryThatIsComparedFromNowOnHasTheValueOfThePolicy) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  const Driver::Policy::Ptr policy = Driver::policyFactory(mac);
  policy->ruleIs(3, 1, Rule::noRead);
  policy->unwrittenIs(Unwritten::zero);
  shadow->policyIs(policy);
  EXPECT_TRUE(mac->entryInitialized(2));
  EXPECT_FALSE(mac->entryInitialized(3));
  policy->ruleIs(3, 1, Rule::repaired);
  EXPECT_TRUE(mac->entryInitialized(3));
}

// What has failed may have taken longest.
TEST_F(PatrolTurns, entriesThatWereReadInVainCountForTheTurn) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  const auto other = Zint::makePtr<Support::PatrolChip>("other");
  const ChipMemory::Ptr port =
      Hardware::chipMemoryFactory("port", ChipAddress(0x2000), 8, 4, 4, other);
  port->shadowEnabledIs(true);
  port->auditEnabledIs(true);
  shadow->chipMemoryIs(port);
  shadow->maxEntriesPerSliceIs(8);
  audit();
  chip->isAway = other->isAway = true;
  step();
  EXPECT_EQ(shadow->chip(mac)->isAbsent() + shadow->chip(port)->isAbsent(), 1);
}

TEST_F(PatrolTurns, aChipThatIsAbsentAndRestoredByItsDriverIsNotTried) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  shadow->chip(mac)->restoresItselfIs(false);
  pass();
  chip->isAway = true;
  pass();
  ASSERT_TRUE(shadow->chip(mac)->isAbsent());
  shadow->chip(mac)->doChipReset();
  loop.turnAt(loop.clock->time() + 10);
  EXPECT_EQ(shadow->nextTry(), Zint::never);
  for (U32 i = 0; i < 3; ++i) loop.turn();
  EXPECT_GT(loop.activity->wakeTime(), loop.clock->time());
}

TEST_F(PatrolTurns, aRegionThatComesUnderAuditWhileAChipIsRestoredIsRead) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  const auto other = Zint::makePtr<Support::PatrolChip>("other");
  const ChipMemory::Ptr port =
      Hardware::chipMemoryFactory("port", ChipAddress(0x2000), 8, 4, 4, other);
  port->auditEnabledIs(true);
  port->shadowEnabledIs(true);
  shadow->chipMemoryIs(port);
  audit();
  port->shadowEnabledIs(false);
  shadow->chip(mac)->restoresItselfIs(false);
  pass();
  shadow->chip(mac)->doChipReset();
  for (U32 i = 0; i < 5; ++i) step();
  EXPECT_EQ(shadow->patrolState(), PatrolState::restoring);
  port->shadowEnabledIs(true);
  const U64 before = other->reads;
  for (U32 i = 0; i < 5; ++i) step();
  EXPECT_GT(other->reads, before);
}

// The replay writes what clients wrote. What was only adopted is lost, and no sign of a new reset.
TEST_F(PatrolTurns, adoptedValuesThatAResetHasLostAreNotTakenForAnotherReset) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 64);
  for (U32 e = 0; e < 32; ++e) set(mac, e, e + 1);
  audit();
  for (U32 e = 32; e < 40; ++e) write(mac, e, 7);
  pass();
  for (U32 e = 0; e < 64; ++e) set(mac, e, 0);
  for (U32 i = 0; i < 10; ++i) pass();
  EXPECT_EQ(shadow->chip(mac)->resets(), 1u);
  EXPECT_TRUE(passes.back().isComplete);
  EXPECT_EQ(get(mac, 32), 7u);
  EXPECT_EQ(get(mac, 0), 1u);  // known, and repaired as ever
}

// A chip that ignores writes without an exception is absent for a replay, too.
TEST_F(PatrolTurns, aReplayThatTheSentinelDisprovesIsNoRestoring) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 64);
  const U32 id = 0xa5;
  const auto* bytes = reinterpret_cast<const U8*>(&id);
  chip->bytes.write(0x10, bytes, 4);
  shadow->chip(mac)->sentinelIs(ChipAddress(0x10), {bytes, 4});
  audit();
  for (U32 e = 0; e < 64; ++e) write(mac, e, e + 1);
  pass();
  for (U32 e = 0; e < 64; ++e) set(mac, e, 0);
  bool isFirst = true;
  chip->afterWrite = [&](U64 address, U32 entries) {  // the first write is lost, the chip away
    if (!std::exchange(isFirst, false)) return;
    for (U64 i = 0; i < 4 * U64{entries}; ++i) chip->bytes[address + i] = 0;
    chip->bytes[0x10] = 0xff;
  };
  shadow->chip(mac)->doChipReset();
  for (U32 i = 0; i < 5; ++i) step();
  EXPECT_TRUE(shadow->chip(mac)->isRestoring());
  EXPECT_TRUE(shadow->chip(mac)->isAbsent());
  chip->bytes[0x10] = 0xa5;
  for (U32 i = 0; i < 20 && shadow->chip(mac)->isRestoring(); ++i) step();
  EXPECT_FALSE(shadow->chip(mac)->isRestoring());
  for (U32 e = 0; e < 64; ++e) EXPECT_EQ(get(mac, e), e + 1);
  EXPECT_EQ(shadow->repairs(), 0u);
}

// However small the slices are.
TEST_F(PatrolTurns, entriesThatAreNotReadAreBehindInOneTurn) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 1000);
  const auto policy = Driver::policyFactory(mac);
  policy->ruleIs(5, 990, Rule::noRead);
  shadow->policyIs(policy);
  shadow->maxEntriesPerSliceIs(1);
  audit();
  EXPECT_TRUE(pass(15));
  EXPECT_EQ(chip->readAddresses.size(), 10u);
}

}  // namespace
