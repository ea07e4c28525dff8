// The writer: what a start writes, in which accesses and ticks, and what it says of it.
#include <Driver/ChipWriter.h>
#include <Driver/Descriptions.h>
#include <Zint/GenericIf.h>

#include <stdexcept>

#include "ReplayTest.h"
#include "support/Death.h"

namespace {

using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;
using Replay::Accesses;
using Replay::readOf;
using Replay::writeOf;
using Support::HamAccess;

class ChipWriterTest : public Replay::ReplayTest {
 protected:
  // Regions a, b and c of the request, of 8 entries each, from 0x3000, 0x1000 and 0x2000 on.
  void threeRegions() {
    a = table("a", 0x3000, 8);
    b = table("b", 0x1000, 8);
    c = table("c", 0x2000, 8);
    configured();
  }
  void fill(const ChipMemory::Ptr& cm, std::vector<U32> entries) {
    for (const U32 entry : entries) clientWrites(cm, entry, 100 + entry);
  }
  Driver::Policy::Ptr policyOf(const ChipMemory::Ptr& cm) {
    const auto policy = Driver::policyFactory(cm);
    own->policyIs(policy);
    return policy;
  }

  ChipMemory::Ptr a, b, c;
};

class WriterWatch : public Driver::ChipWriter::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onCurrentChipMemory() override {
    const auto& cm = notifier()->currentChipMemory();
    regions += cm == nullptr ? "-" : cm->name().c_str();
  }
  void onEntriesWritten() override { progress.push_back(notifier()->entriesWritten()); }
  void onRemarks() override { ++remarks; }
  void onDifferences() override { ++differences; }
  void onIsInterrupted() override { interruptions.push_back(notifier()->isInterrupted()); }
  std::string regions;
  std::vector<U64> progress;
  std::vector<bool> interruptions;
  int remarks = 0, differences = 0;
};

// --- Birth and attributes -----------------------------------------------------------------------

TEST_F(ChipWriterTest, factoryGivesTheInitialValuesAndRunsNoHandler) {
  request->stateIs(start);
  writerIs(8, 64, 0.5);
  EXPECT_EQ(writer->shadow(), own);
  EXPECT_EQ(writer->request(), request);
  EXPECT_EQ(writer->clock(), Zint::Ptr<const Zint::Clock>(loop.clock));
  EXPECT_EQ(writer->maxEntriesPerWrite(), 8u);
  EXPECT_EQ(writer->maxEntriesPerSlice(), 64u);
  EXPECT_EQ(writer->writeInterval(), 0.5);
  EXPECT_EQ(writer->accessCost(), 0);
  EXPECT_EQ(writer->currentChipMemory(), nullptr);
  EXPECT_EQ(writer->entriesToWrite(), 0u);
  EXPECT_FALSE(writer->isInterrupted());
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(ChipWriterTest, refusesNumbersThatStopIt) {
  writerIs(1, 1);
  EXPECT_EQ(Support::exceptionText([&] { writerIs(0, 1); }), "maxEntriesPerWrite must be above 0");
  EXPECT_EQ(Support::exceptionText([&] { writerIs(1, 0); }), "maxEntriesPerSlice must be above 0");
  EXPECT_EQ(Support::exceptionText([&] { writerIs(1, 1, -1); }),
            "writeInterval must be finite and not negative");
  EXPECT_EQ(Support::exceptionText([&] { writer->maxEntriesPerWriteIs(0); }),
            "maxEntriesPerWrite must be above 0");
  EXPECT_EQ(Support::exceptionText([&] { writer->maxEntriesPerSliceIs(0); }),
            "maxEntriesPerSlice must be above 0");
  EXPECT_EQ(Support::exceptionText([&] { writer->writeIntervalIs(Zint::never); }),
            "writeInterval must be finite and not negative");
  EXPECT_EQ(Support::exceptionText([&] { writer->accessCostIs(-1); }),
            "accessCost must be finite and not negative");
  EXPECT_EQ(writer->maxEntriesPerWrite(), 1u);
}

TEST_F(ChipWriterTest, partsMayBeAbsent) {
  writer = Driver::chipWriterFactory(loop.activity, nullptr, nullptr, nullptr, 1, 1, 0);
  writer->handleWriteRequest();
  writer->handleTimeout();
  writer->doWrite();
  writer->doResume();
  EXPECT_TRUE(writer->plan().runs.empty());
  EXPECT_TRUE(writer->doDiff().empty());
  writer->requestIs(request);
  request->stateIs(start);
  writer->doWrite();
  EXPECT_EQ(request->status(), failed);
  EXPECT_EQ(writer->reason(), "the shadow is gone");
}

TEST_F(ChipWriterTest, doesNotKeepTheShadowAlive) {
  writerIs(1, 1);
  const std::size_t references = own->references();
  EXPECT_EQ(writer->shadow(), own);
  EXPECT_EQ(own->references(), references);
  own = nullptr;
  EXPECT_EQ(writer->shadow(), nullptr);
}

// --- What is written ----------------------------------------------------------------------------

TEST_F(ChipWriterTest, writesWhatWasWrittenInTheOrderOfTheRequestAndMergesNeighbours) {
  threeRegions();
  fill(a, {0, 1, 2, 5});
  fill(b, {7});
  resetChip();
  writerIs(64, 64);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 3), writeOf(0x3014, 1), writeOf(0x101c, 1)}));
  EXPECT_EQ(request->status(), done);
  for (const U32 entry : {0u, 1u, 2u, 5u}) EXPECT_EQ(onChip(a, entry), 100 + entry);
  EXPECT_EQ(onChip(b, 7), 107u);
  EXPECT_EQ(onChip(c, 0), 0u);
  EXPECT_EQ(writer->entriesToWrite(), 5u);
  EXPECT_EQ(writer->entriesWritten(), 5u);
  EXPECT_EQ(writer->entriesRewritten(), 0u);
  EXPECT_EQ(writer->currentChipMemory(), nullptr);
}

TEST_F(ChipWriterTest, nothingToWriteIsDoneAtTheNextTick) {
  threeRegions();
  writerIs(64, 64);
  request->stateIs(start);
  EXPECT_EQ(request->status(), none);
  loop.turn();
  EXPECT_EQ(request->status(), done);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  request->chipMemoryDelAll();
  request->statusIs(none);
  EXPECT_TRUE(run().empty());
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipWriterTest, accessesAndSlicesAreBounded) {
  threeRegions();
  fill(a, {0, 1, 2, 3, 4, 5, 6, 7});
  fill(b, {0, 1});
  resetChip();
  writerIs(3, 5, 0.25);
  request->stateIs(start);
  EXPECT_EQ(loop.activity->wakeTime(), 0);
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3000, 3), writeOf(0x300c, 2)}));
  EXPECT_EQ(loop.activity->wakeTime(), 0.25);
  EXPECT_EQ(writer->entriesWritten(), 5u);
  EXPECT_EQ(writer->currentChipMemory(), a);
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3014, 3), writeOf(0x1000, 2)}));
  EXPECT_EQ(request->status(), done);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(ChipWriterTest, groupsAreBarriersWithDelays) {
  a = table("a", 0x3000, 8);
  request->newGroup(2);
  b = table("b", 0x1000, 8);
  request->newGroup(0);
  c = table("c", 0x2000, 8);
  configured();
  fill(a, {0});
  fill(b, {0});
  fill(c, {0});
  writerIs(8, 64, 0.5);
  memory->taken();
  request->stateIs(start);
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3000, 1)}));
  EXPECT_EQ(loop.activity->wakeTime(), 2);
  EXPECT_EQ(tick(), (Accesses{writeOf(0x1000, 1), writeOf(0x2000, 1)}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipWriterTest, adoptedEntriesAreWrittenOnlyWhereAsked) {
  threeRegions();
  fill(a, {1});
  a->entryInitializedIs(3);
  resetChip();
  writerIs(8, 64);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3004, 1)}));
  request->includesAdoptedIs(true);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3004, 1), writeOf(0x300c, 1)}));
}

TEST_F(ChipWriterTest, rulesSayWhatIsReplayed) {
  threeRegions();
  fill(a, {0, 1, 2, 3, 4, 5});
  const auto policy = policyOf(a);
  policy->ruleIs(0, 1, Rule::readOnly);
  policy->ruleIs(1, 1, Rule::detectOnly);
  policy->ruleIs(2, 1, Rule::volatile_);
  policy->ruleIs(3, 1, Rule::noRead);
  policy->ruleIs(4, 1, Rule::writeOnly);
  policy->ruleIs(6, 2, Rule::volatile_);
  a->entryInitializedIs(6);
  request->includesAdoptedIs(true);
  resetChip();
  writerIs(8, 64);
  writer->verifiesIs(true);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3004, 5), readOf(0x3004, 1), readOf(0x3014, 1)}));
}

// The replay is told of each region that it verifies, by which it may be taken from it.
class WriterTakesStore : public Driver::ChipWriter::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onCurrentChipMemory() override {
    const auto& cm = notifier()->currentChipMemory();
    if (cm != nullptr && notifier()->entriesWritten() == notifier()->entriesToWrite()) {
      cm->shadowEnabledIs(false);
      ++taken;
    }
  }
  int taken = 0;
};

TEST_F(ChipWriterTest, verification_ofARegionThatLosesItsStorePassesOverIt) {
  threeRegions();
  fill(a, {1, 2});
  fill(b, {3});
  resetChip();
  writerIs(8, 64);
  writer->verifiesIs(true);
  const auto watch = Zint::makePtr<WriterTakesStore>(loop.activity, writer);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3004, 2), writeOf(0x100c, 1)}));
  EXPECT_EQ(watch->taken, 2);
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipWriterTest, maskedBitsAreRewrittenAsThePolicySays) {
  threeRegions();
  fill(a, {0, 1, 2, 3});
  const auto policy = policyOf(a);
  const std::vector<U8> low{0xff, 0, 0, 0};
  policy->maskIs(0, 1, low, Rewrite::kept);
  policy->maskIs(1, 1, low, Rewrite::zero);
  policy->maskIs(2, 1, low, Rewrite::shadow);
  resetChip();
  memory->wordIs(0x3000, 0xab);
  memory->wordIs(0x3004, 0xab);
  memory->wordIs(0x3008, 0xab);
  writerIs(8, 64);
  EXPECT_EQ(run(), (Accesses{readOf(0x3000, 1), writeOf(0x3000, 1), writeOf(0x3004, 3)}));
  EXPECT_EQ(onChip(a, 0), 0xabu);
  EXPECT_EQ(onChip(a, 1), 0u);
  EXPECT_EQ(onChip(a, 2), 102u);
  EXPECT_EQ(onChip(a, 3), 103u);
}

TEST_F(ChipWriterTest, keptBitsOfEntriesThatAreNotReadAreThoseOfTheShadow) {
  threeRegions();
  fill(a, {0, 1});
  const auto policy = policyOf(a);
  policy->maskIs(std::vector<U8>{0xff, 0, 0, 0}, Rewrite::kept);
  policy->ruleIs(0, 1, Rule::noRead);
  resetChip();
  writerIs(8, 64);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 1), readOf(0x3004, 1), writeOf(0x3004, 1)}));
  EXPECT_EQ(onChip(a, 0), 100u);
  EXPECT_EQ(onChip(a, 1), 0u);
}

TEST_F(ChipWriterTest, onceEntriesAreNotMerged) {
  threeRegions();
  fill(a, {0, 1, 2, 3});
  policyOf(a)->onceIs(1, 2, true);
  resetChip();
  writerIs(8, 64);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 1), writeOf(0x3004, 1), writeOf(0x3008, 1),
                             writeOf(0x300c, 1)}));
}

TEST_F(ChipWriterTest, bufferedRegionsAreHeldAndOverriddenOnesSkipped) {
  threeRegions();
  fill(a, {1});
  b->modeIs(ChipMemory::buffered());
  fill(b, {1});
  c->modeIs(ChipMemory::override());
  request->chipMemoryIs(region("bare", 0x8000, 4));
  resetChip();
  writerIs(8, 64);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3004, 1)}));
  EXPECT_EQ(request->status(), done);
  EXPECT_EQ(remarksText(),
            "held: b, buffered\nskipped: c, overridden\nskipped: bare, without a store");
}

TEST_F(ChipWriterTest, whatThePatrolHasVisitedIsWrittenNevertheless) {
  a = table("a", 0x3000, 8);
  a->auditEnabledIs(true);
  configured();
  fill(a, {4});
  own->stateIs(HardwareShadow::auditing());
  for (int i = 0; i < 1000 && own->audits() == 0; ++i) loop.turnAt(loop.clock->time() + 0.001);
  own->stateIs(HardwareShadow::idle());
  ASSERT_EQ(own->audits(), 1u);
  ASSERT_EQ(Support::marked(a->dirty()), std::vector<U32>{});
  resetChip();
  writerIs(8, 64);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3010, 1)}));
}

// --- Clients during the replay ------------------------------------------------------------------

TEST_F(ChipWriterTest, anEntryThatAClientChangesDuringItsAccessIsWrittenAgain) {
  threeRegions();
  fill(a, {0, 1, 2, 3});
  resetChip();
  writerIs(8, 64);
  int nested = 0;
  memory->onAccess = [&](const HamAccess&, U8*) {
    if (nested++ == 0) clientWrites(a, 2, 7);
  };
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 4), writeOf(0x3008, 1), writeOf(0x3008, 1)}));
  EXPECT_EQ(onChip(a, 2), 7u);
  EXPECT_EQ(writer->entriesRewritten(), 1u);
  EXPECT_EQ(writer->entriesWritten(), 4u);
}

TEST_F(ChipWriterTest, anEntryThatChangesAtEachAccessIsReported) {
  threeRegions();
  fill(a, {0});
  resetChip();
  writerIs(8, 64);
  U32 value = 1;
  memory->onAccess = [&](const HamAccess&, U8*) {
    Support::wordIs(a->shadow(), 0, ++value);
    own->writtenIs(a, 0, true);
  };
  EXPECT_EQ(run().size(), 136u);  // eight tries of each of 17 passes
  EXPECT_EQ(request->status(), done);
  EXPECT_EQ(remarksText(), "unsettled: a entry 0, clients write it again and again");
  EXPECT_TRUE(own->hasOpenFinding(a, 0));
}

TEST_F(ChipWriterTest, aOnceEntryThatChangesDuringItsAccessIsNotRepeatedButReported) {
  threeRegions();
  fill(a, {0});
  policyOf(a)->onceIs(0, 1, true);
  resetChip();
  writerIs(8, 64);
  memory->onAccess = [&](const HamAccess&, U8*) { Support::wordIs(a->shadow(), 0, 5); };
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 1)}));
  EXPECT_EQ(remarksText(), "unsettled: a entry 0, a client wrote it during its access");
  EXPECT_TRUE(own->hasOpenFinding(a, 0));
}

TEST_F(ChipWriterTest, writesHeldBackInRegionsThatAreDoneAreWrittenBeforeTheEnd) {
  threeRegions();
  fill(a, {0, 1});
  fill(c, {0, 1});
  const auto access = Driver::chipAccessFactory(own, a);
  resetChip();
  own->chip(a)->replayIs(request);
  own->maxEntriesPerReplaySliceIs(2);
  own->chip(a)->doChipReset();  // starts the replay
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3000, 2)}));
  access->write<U32>(0, 77);
  access->write<U32>(5, 78);
  EXPECT_TRUE(memory->taken().empty());
  Accesses rest;
  while (request->status() != done) {
    for (const HamAccess& each : tick()) rest.push_back(each);
  }
  EXPECT_EQ(rest, (Accesses{writeOf(0x2000, 2), writeOf(0x3000, 1), writeOf(0x3014, 1)}));
  EXPECT_EQ(onChip(a, 0), 77u);
  EXPECT_EQ(onChip(a, 5), 78u);
  EXPECT_FALSE(own->hasOpenFinding(a, 0));
}

TEST_F(ChipWriterTest, writesHeldBackReachTheChipBeforeTheNextGroup) {
  a = table("a", 0x3000, 8);
  request->newGroup(0);
  b = table("b", 0x1000, 8);
  configured();
  fill(a, {0, 1, 2});
  fill(b, {0});
  const auto access = Driver::chipAccessFactory(own, a);
  resetChip();
  own->chip(a)->replayIs(request);
  own->maxEntriesPerReplaySliceIs(2);
  own->chip(a)->doChipReset();  // starts the replay
  tick();
  access->write<U32>(0, 77);
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3008, 1), writeOf(0x3000, 1)}));
}

TEST_F(ChipWriterTest, clientsThatHoldBackMoreThanSlicesWriteDoNotKeepItFromEnding) {
  threeRegions();
  fill(a, {0, 1, 2, 3, 4, 5, 6, 7});
  resetChip();
  const auto access = Driver::chipAccessFactory(own, a);
  own->chip(a)->replayIs(request);
  own->maxEntriesPerReplaySliceIs(1);
  own->chip(a)->doChipReset();  // starts the replay
  U32 value = 1000;
  for (int i = 0; i < 1000 && own->chip(a)->isRestoring(); ++i) {
    tick();
    for (U32 entry = 0; entry < 8; ++entry) access->write<U32>(entry, ++value);
  }
  EXPECT_FALSE(own->chip(a)->isRestoring());
  for (U32 entry = 0; entry < 8; ++entry) EXPECT_EQ(onChip(a, entry), inShadow(a, entry));
}

TEST_F(ChipWriterTest, aCommandThatIsNoneIsFatal) {
  threeRegions();
  writerIs(8, 64);
  EXPECT_DEATH(
      request->stateIs(static_cast<Zint::Request::State>(7)),
      Support::Assertion("Driver/Driver", 0, "void Driver::ChipWriter::handleWriteRequest()", "0"));
}

// --- Failures -----------------------------------------------------------------------------------

TEST_F(ChipWriterTest, anExceptionFailsAndResumesAtTheBeginningOfTheAccess) {
  threeRegions();
  fill(a, {0, 1, 2, 3, 6});
  resetChip();
  writerIs(2, 64);
  int accesses = 0;
  memory->onAccess = [&](const HamAccess&, U8*) {
    if (++accesses == 2) throw std::runtime_error("bus error");
  };
  const auto watch = Zint::makePtr<WriterWatch>(loop.activity, writer);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 2), writeOf(0x3008, 2)}));
  EXPECT_EQ(request->status(), failed);
  EXPECT_TRUE(writer->isInterrupted());
  EXPECT_EQ(writer->reason(), "a entry 2: bus error");
  EXPECT_EQ(writer->entriesWritten(), 2u);
  EXPECT_TRUE(own->hasOpenFinding(a, 2));
  EXPECT_TRUE(own->hasOpenFinding(a, 3));
  EXPECT_FALSE(own->hasOpenFinding(a, 1));
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  writer->doResume();
  EXPECT_FALSE(writer->isInterrupted());
  EXPECT_EQ(writer->reason(), "");
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3008, 2), writeOf(0x3018, 1)}));
  EXPECT_EQ(request->status(), done);
  EXPECT_FALSE(own->hasOpenFinding(a, 2));
  EXPECT_EQ(watch->interruptions, (std::vector<bool>{true, false}));
  EXPECT_EQ(watch->progress, (std::vector<U64>{2, 4, 5}));
  writer->doResume();  // nothing to go on with
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(ChipWriterTest, aNewStartAfterAFailureBeginsAnew) {
  threeRegions();
  fill(a, {0, 1, 2, 3});
  resetChip();
  writerIs(2, 64);
  bool throws = true;
  memory->onAccess = [&](const HamAccess& seen, U8*) {
    if (throws && seen.address == 0x3008) throw 5;  // NOLINT
  };
  run();
  EXPECT_EQ(writer->reason(), "a entry 2: an exception of the access method");
  throws = false;
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 2), writeOf(0x3008, 2)}));
  EXPECT_FALSE(writer->isInterrupted());
}

TEST_F(ChipWriterTest, anInterruptedOnceEntryIsReportedAndNotRepeated) {
  threeRegions();
  fill(a, {0, 1, 2});
  policyOf(a)->onceIs(1, 1, true);
  resetChip();
  writerIs(8, 64);
  bool throws = true;
  memory->onAccess = [&](const HamAccess& seen, U8*) {
    if (throws && seen.address == 0x3004) throw std::runtime_error("bus");
  };
  run();
  throws = false;
  EXPECT_EQ(remarksText(), "interrupted: a entry 1, it is not repeated");
  writer->doResume();
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3008, 1)}));
  EXPECT_EQ(request->status(), done);
  EXPECT_TRUE(own->hasOpenFinding(a, 1));
}

TEST_F(ChipWriterTest, nothingIsWrittenUnderOverrideHardware) {
  threeRegions();
  fill(a, {0});
  resetChip();
  writerIs(8, 64);
  own->overrideHardwareIs(true);
  EXPECT_TRUE(run().empty());
  EXPECT_EQ(request->status(), failed);
  EXPECT_EQ(writer->reason(), "overrideHardware is set");
  own->overrideHardwareIs(false);
  writer->doResume();
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3000, 1)}));
}

// --- Commands -----------------------------------------------------------------------------------

TEST_F(ChipWriterTest, stopEndsTheWritingAndAStartBeginsAnew) {
  threeRegions();
  fill(a, {0, 1, 2, 3});
  resetChip();
  writerIs(2, 2);
  request->stateIs(start);
  tick();
  request->stateIs(stop);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  EXPECT_EQ(writer->currentChipMemory(), nullptr);
  EXPECT_EQ(request->status(), none);
  writer->doWrite();
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 2), writeOf(0x3008, 2)}));
}

TEST_F(ChipWriterTest, anAccessMayStopOrRestart) {
  threeRegions();
  fill(a, {0, 1, 2, 3});
  resetChip();
  writerIs(2, 64);
  int accesses = 0;
  memory->onAccess = [&](const HamAccess&, U8*) {
    if (++accesses == 1) request->stateIs(stop);
    if (accesses == 3) request->stateIs(start);
  };
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 2)}));
  EXPECT_EQ(request->status(), none);
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 2), writeOf(0x3008, 2), writeOf(0x3000, 2),
                             writeOf(0x3008, 2)}));
  EXPECT_EQ(request->status(), done);
}

TEST_F(ChipWriterTest, anAccessThatStopsAfterAClientHasWrittenLeavesAFinding) {
  threeRegions();
  fill(a, {0, 1});
  resetChip();
  writerIs(2, 64);
  int accesses = 0;
  memory->onAccess = [&](const HamAccess&, U8*) {
    if (++accesses != 1) return;
    clientWrites(a, 1, 9);
    request->stateIs(stop);
  };
  run();
  EXPECT_NE(onChip(a, 1), 9u);
  EXPECT_TRUE(own->hasOpenFinding(a, 1));
  EXPECT_FALSE(own->hasOpenFinding(a, 0));
}

TEST_F(ChipWriterTest, anAccessMayDropTheWriterAndTheShadow) {
  threeRegions();
  fill(a, {0, 1, 2, 3});
  writerIs(2, 64);
  memory->onAccess = [&](const HamAccess&, U8*) {
    writer = nullptr;
    own = nullptr;
    request = nullptr;
    a = nullptr;
  };
  request->stateIs(start);
  loop.turn();
  EXPECT_EQ(writer, nullptr);
}

TEST_F(ChipWriterTest, withoutAClockItIsDrivenByHand) {
  threeRegions();
  fill(a, {0, 1, 2});
  resetChip();
  writerIs(2, 2);
  writer->clockIs(nullptr);
  request->stateIs(start);
  writer->doWrite();
  EXPECT_EQ(request->status(), none);
  writer->doWrite();
  EXPECT_EQ(request->status(), done);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x3000, 2), writeOf(0x3008, 1)}));
}

TEST_F(ChipWriterTest, regionsAndProgressAreAnnounced) {
  threeRegions();
  fill(a, {0, 1});
  fill(b, {0});
  c->modeIs(ChipMemory::buffered());
  writerIs(1, 64);
  const auto watch = Zint::makePtr<WriterWatch>(loop.activity, writer);
  run();
  EXPECT_EQ(watch->regions, "ab-");
  EXPECT_EQ(watch->progress, (std::vector<U64>{1, 2, 3}));
  EXPECT_EQ(watch->remarks, 1);
}

TEST_F(ChipWriterTest, progressNeverPassesTheNumberThatWasFixedAtTheStart) {
  threeRegions();
  fill(a, {0, 1});
  writerIs(1, 1);
  request->stateIs(start);
  tick();
  fill(b, {0, 1, 2});
  while (request->status() != done) tick();
  EXPECT_EQ(writer->entriesToWrite(), 2u);
  EXPECT_EQ(writer->entriesWritten(), 2u);
  EXPECT_EQ(writer->entriesRewritten(), 3u);
}

TEST_F(ChipWriterTest, commandsFailuresAndAccessesAreTraced) {
  threeRegions();
  fill(a, {0});
  resetChip();
  writerIs(8, 64);
  Zint::TraceHandle::find("Driver")->levelUpToIs(9);
  memory->onAccess = [&](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  trace.full.clear();
  run();
  Zint::TraceHandle::find("Driver")->levelUpToIs(0);
  std::vector<Support::Line> lines;
  for (const auto& line : trace.full) {
    if (line.handle == "Driver") lines.push_back({line.level, line.text});
  }
  EXPECT_EQ(lines, (Support::Lines{{0, "handleWriteRequest 1"},
                                   {9, "ChipWriter::handleTimeout"},
                                   {6, "ChipWriter::doWrite: writing a 0x3000 0x1 entries"},
                                   {0, "ChipWriter: a entry 0: bus"}}));
}

TEST_F(ChipWriterTest, isReachedByName) {
  threeRegions();
  fill(a, {0, 1});
  resetChip();
  writerIs(8, 64);
  Zint::GenericIf_ byName{Zint::Ptr<Zint::PtrInterface>(writer)};
  byName.attributeIs("accessCost", "0.5");
  EXPECT_EQ(byName.attribute("plan"),
            "'1 access, 2 entries, 8 bytes, 1 slice, 0.5 s\\x0agroup 0: a, 2 entries (0 to 1), 1 "
            "access'");
  EXPECT_EQ(byName.call("doDiff", {}).text,
            "'a entry 0: expected x64x00x00x00, actual x00x00x00x00\\x0aa entry 1: expected "
            "x65x00x00x00, actual x00x00x00x00'");
  byName.attributeIs("maxEntriesPerWrite", "4");
  EXPECT_EQ(writer->maxEntriesPerWrite(), 4u);
}

}  // namespace
