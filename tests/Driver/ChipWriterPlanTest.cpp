// What the writer says before and after: the plan, the differences, the verifying pass; and absent
// chips.
#include <Driver/ChipWriter.h>

#include <stdexcept>

#include "ReplayTest.h"

namespace {

using Driver::ReplayNote;
using Driver::Rewrite;
using Driver::Rule;
using Replay::Accesses;
using Replay::readOf;
using Replay::writeOf;
using Support::HamAccess;

class ChipWriterPlan : public Replay::ReplayTest {
 protected:
  ChipWriterPlan() {
    a = table("a", 0x3000, 8);
    request->newGroup(2);
    b = table("b", 0x1000, 8);
    c = table("c", 0x2000, 8);
    configured();
  }
  void fill(const ChipMemory::Ptr& cm, const std::vector<U32>& entries) {
    for (const U32 entry : entries) clientWrites(cm, entry, 100 + entry);
  }
  // The accesses that the plan announces.
  static Accesses accessesOf(const Driver::ReplayPlan& plan) {
    Accesses accesses;
    for (const Driver::ReplayRun& each : plan.runs) {
      const U64 address = each.chipMemory->entryAddress(each.first).value();
      if (each.isRead) accesses.push_back(readOf(address, each.entries));
      accesses.push_back(writeOf(address, each.entries));
    }
    return accesses;
  }

  ChipMemory::Ptr a, b, c;
};

// --- The plan -----------------------------------------------------------------------------------

TEST_F(ChipWriterPlan, touchesNothingAndSaysEveryAccess) {
  fill(a, {0, 1, 2, 3, 4, 7});
  fill(b, {0, 1, 2});
  const auto policy = Driver::policyFactory(a);
  policy->onceIs(1, 1, true);
  policy->maskIs(4, 1, std::vector<U8>{0xff, 0, 0, 0}, Rewrite::kept);
  own->policyIs(policy);
  c->modeIs(ChipMemory::buffered());
  resetChip();
  writerIs(2, 3, 0.5);
  writer->accessCostIs(0.125);
  const auto plan = writer->plan();
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(plan.entries, 9u);
  EXPECT_EQ(plan.bytes, 36u);
  EXPECT_EQ(plan.reads, 1u);
  EXPECT_EQ(plan.slices, 3u);
  // 8 accesses, an interval, and the delay of the second group, which is longer than one.
  EXPECT_EQ(plan.time, 9 * 0.125 + 0.5 + 2);
  EXPECT_EQ(plan.stringValue(),
            "9 accesses, 9 entries, 36 bytes, 3 slices, 3.625 s\n"
            "group 0: a, 6 entries (0 to 7), 7 accesses\n"
            "group 1: b, 3 entries (0 to 2), 2 accesses\n"
            "held: c, buffered");
  EXPECT_TRUE(plan.runs[1].isOnce);
  EXPECT_FALSE(plan.runs[0].isOnce);
  EXPECT_EQ(plan.runs.back().group, 1u);
  EXPECT_EQ(run(), accessesOf(plan));
}

TEST_F(ChipWriterPlan, countsSlicesAsTheyAreTaken) {
  fill(a, {0, 1, 2, 3, 4, 5, 6, 7});
  fill(b, {0, 1, 2, 3});
  for (const U32 perSlice : {1u, 2u, 3u, 5u, 8u, 12u, 64u}) {
    for (const U32 perWrite : {1u, 2u, 3u, 8u}) {
      writerIs(perWrite, perSlice, 0.5);
      const auto plan = writer->plan();
      const Zint::Seconds began = loop.clock->time();
      memory->taken();
      U32 ticks = 0;
      Accesses all;
      request->statusIs(none);
      request->stateIs(start);
      while (request->status() != done) {
        for (const HamAccess& each : tick()) all.push_back(each);
        ++ticks;
      }
      EXPECT_EQ(all, accessesOf(plan)) << perSlice << " " << perWrite;
      EXPECT_EQ(ticks, plan.slices) << perSlice << " " << perWrite;
      EXPECT_DOUBLE_EQ(loop.clock->time() - began, plan.time) << perSlice << " " << perWrite;
    }
  }
}

TEST_F(ChipWriterPlan, costIsMeasuredWhereItIsNotSet) {
  fill(a, {0, 2});
  writerIs(8, 64);
  EXPECT_EQ(writer->plan().time, 2);
  memory->onAccess = [this](const HamAccess&, U8*) { loop.clock->timeIs(loop.clock->time() + 3); };
  run();
  EXPECT_EQ(writer->accessCost(), 3);
  EXPECT_EQ(writer->plan().time, 2 + 2 * 3);
  writer->accessCostIs(1);
  EXPECT_EQ(writer->plan().time, 2 + 2 * 1);
  writer->accessCostIs(0);
  EXPECT_EQ(writer->accessCost(), 3);
}

// --- Differences --------------------------------------------------------------------------------

TEST_F(ChipWriterPlan, doDiff_listsWhatTheChipHoldsOtherwise) {
  fill(a, {0, 1, 2, 5});
  a->entryInitializedIs(7);  // known, and written by nobody
  memory->wordIs(0x3004, 0xbad);
  memory->wordIs(0x301c, 1);
  memory->wordIs(0x3018, 1);  // not known
  writerIs(2, 64);
  memory->taken();
  const auto differences = writer->doDiff();
  ASSERT_EQ(differences.size(), 2u);
  EXPECT_EQ(differences[0].stringValue(), "a entry 1: expected x65x00x00x00, actual xADx0Bx00x00");
  EXPECT_EQ(differences[0].chipMemory, a);
  EXPECT_EQ(differences[1].entry, 7u);
  EXPECT_EQ(memory->taken(),
            (Accesses{readOf(0x3000, 2), readOf(0x3008, 1), readOf(0x3014, 1), readOf(0x301c, 1)}));
  EXPECT_EQ(a->hardware()->data()[4], 0);  // the image is the patrol's
}

TEST_F(ChipWriterPlan, doDiff_readsNothingThatIsNotCompared) {
  fill(a, {0, 1, 2, 3, 4});
  const auto policy = Driver::policyFactory(a);
  policy->ruleIs(0, 1, Rule::noRead);
  policy->ruleIs(1, 1, Rule::writeOnly);
  policy->ruleIs(2, 1, Rule::volatile_);
  policy->ruleIs(3, 1, Rule::detectOnly);
  policy->maskIs(std::vector<U8>{0xff, 0, 0, 0}, Rewrite::kept);
  own->policyIs(policy);
  memory->wordIs(0x300c, 0x1ff);
  memory->wordIs(0x3010, 0xff);  // the masked bits alone
  c->modeIs(ChipMemory::override());
  writerIs(8, 64);
  memory->taken();
  const auto differences = writer->doDiff();
  ASSERT_EQ(differences.size(), 1u);
  EXPECT_EQ(differences[0].entry, 3u);
  EXPECT_EQ(memory->taken(), (Accesses{readOf(0x300c, 2)}));
}

TEST_F(ChipWriterPlan, doDiff_showsWhatABufferedRegionHoldsBack) {
  b->modeIs(ChipMemory::buffered());
  fill(b, {3});
  writerIs(8, 64);
  ASSERT_EQ(writer->doDiff().size(), 1u);
  EXPECT_EQ(writer->doDiff()[0].entry, 3u);
}

TEST_F(ChipWriterPlan, doDiff_leavesOutWhatAClientWritesMeanwhile) {
  fill(a, {0, 1});
  memory->wordIs(0x3000, 1);
  memory->wordIs(0x3004, 1);
  writerIs(8, 64);
  memory->onAccess = [this](const HamAccess& seen, U8*) {
    if (seen.kind == HamAccess::read) clientWrites(a, 0, 5);
  };
  const auto differences = writer->doDiff();
  ASSERT_EQ(differences.size(), 1u);
  EXPECT_EQ(differences[0].entry, 1u);
}

TEST_F(ChipWriterPlan, doDiff_ofAChipThatThrowsOrOfARequestThatIsEmptiedMeanwhile) {
  fill(a, {0});
  fill(b, {0});
  writerIs(8, 64);
  memory->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  EXPECT_THROW(writer->doDiff(), std::runtime_error);
  memory->onAccess = [this](const HamAccess&, U8*) {
    request->chipMemoryDelAll();
    a->shadowEnabledIs(false);
  };
  EXPECT_TRUE(writer->doDiff().empty());
}

// --- The verifying pass -------------------------------------------------------------------------

TEST_F(ChipWriterPlan, verifies_readsBackWhatWasWrittenAndListsWhatDoesNotHold) {
  fill(a, {0, 1, 2, 3, 6});
  fill(b, {0});
  resetChip();
  writerIs(2, 64);
  writer->verifiesIs(true);
  memory->onAccess = [this](const HamAccess& seen, U8*) {
    if (seen.kind == HamAccess::read) memory->wordIs(0x3008, 0xbad);  // stuck
  };
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 2), writeOf(0x3008, 2), writeOf(0x3018, 1),
                             writeOf(0x1000, 1), readOf(0x3000, 2), readOf(0x3008, 2),
                             readOf(0x3018, 1), readOf(0x1000, 1)}));
  EXPECT_EQ(request->status(), done);
  ASSERT_EQ(writer->differences().size(), 1u);
  EXPECT_EQ(writer->differences()[0].stringValue(),
            "a entry 2: expected x66x00x00x00, actual xADx0Bx00x00");
  EXPECT_TRUE(own->hasOpenFinding(a, 2));
  EXPECT_FALSE(own->hasOpenFinding(a, 3));
  memory->onAccess = nullptr;
  run();
  EXPECT_TRUE(writer->differences().empty());
}

TEST_F(ChipWriterPlan, verifies_isSlicedToo) {
  fill(a, {0, 1, 2, 3});
  resetChip();
  writerIs(2, 2);
  writer->verifiesIs(true);
  request->chipMemoryDelAll();
  request->chipMemoryIs(a);
  request->stateIs(start);
  std::vector<std::size_t> accesses;
  while (request->status() != done) accesses.push_back(tick().size());
  EXPECT_EQ(accesses, (std::vector<std::size_t>{1, 1, 1, 1}));
}

TEST_F(ChipWriterPlan, writesHeldBackDuringTheVerificationAreWrittenBeforeTheEnd) {
  request->chipMemoryDelAll();
  request->chipMemoryIs(a);
  fill(a, {0, 1});
  resetChip();
  writerIs(8, 64);
  writer->verifiesIs(true);
  memory->onAccess = [&](const HamAccess& seen, U8*) {
    if (seen.kind != HamAccess::read) return;
    U32 value = 7;  // offered alone
    own->shadowWriteAndCompareWithCache(a, 0, reinterpret_cast<U8*>(&value), 4);
    own->openFindingIs(a, 0, true);
  };
  EXPECT_EQ(run(), (Accesses{writeOf(0x3000, 2), readOf(0x3000, 2), writeOf(0x3000, 1)}));
  EXPECT_EQ(onChip(a, 0), 7u);
}

// --- Absent chips -------------------------------------------------------------------------------

TEST_F(ChipWriterPlan, nothingIsWrittenToAChipThatIsAbsent) {
  a->auditEnabledIs(true);
  own->stateIs(HardwareShadow::unconfigured());
  configured();
  fill(a, {0, 1});
  writerIs(1, 64);
  memory->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("no answer"); };
  own->stateIs(HardwareShadow::auditing());
  const auto chip0 = own->chip(a);
  for (int i = 0; i < 100 && !chip0->isAbsent(); ++i) loop.turnAt(loop.clock->time() + 0.01);
  ASSERT_TRUE(chip0->isAbsent());
  own->stateIs(HardwareShadow::idle());
  memory->onAccess = nullptr;
  resetChip();
  EXPECT_TRUE(run().empty());
  EXPECT_EQ(request->status(), failed);
  EXPECT_EQ(writer->reason(), chip0->name() + " is absent: " + chip0->reason());
  EXPECT_EQ(Support::exceptionText([&] { writer->doDiff(); }),
            std::string((chip0->name() + " is absent: " + chip0->reason()).c_str()));
  EXPECT_EQ(writer->currentChipMemory(), a);
  own->stateIs(HardwareShadow::auditing());
  for (int i = 0; i < 1000 && chip0->isAbsent(); ++i) loop.turnAt(loop.clock->time() + 0.01);
  ASSERT_FALSE(chip0->isAbsent());
  own->stateIs(HardwareShadow::idle());
  resetChip();
  writer->doResume();
  EXPECT_EQ(tick(), (Accesses{writeOf(0x3000, 1), writeOf(0x3004, 1)}));
  while (request->status() != done) tick();
}

// --- Texts --------------------------------------------------------------------------------------

TEST_F(ChipWriterPlan, textsOfRemarksAndNotes) {
  EXPECT_EQ((Driver::ReplayRemark{a, ReplayNote::unsettled, 3, 4, "why"}).stringValue(),
            "unsettled: a entries 3 to 6, why");
  EXPECT_EQ((Driver::ReplayRemark{nullptr, ReplayNote::held, 0, 0, ""}).stringValue(),
            "held: no region");
  EXPECT_EQ(stringValue(ReplayNote::interrupted), "interrupted");
  EXPECT_EQ(stringValue(ReplayNote::skipped), "skipped");
  EXPECT_EQ(stringValue(static_cast<ReplayNote>(9)), "Driver::ReplayNote(9)");
  Driver::ChipDifference wide{a, 1, std::vector<U8>(33, 1), std::vector<U8>(2, 0xab)};
  std::string text = "a entry 1: expected ";
  for (int i = 0; i < 32; ++i) text += "x01";
  EXPECT_EQ(wide.stringValue(), text + "..., actual xABxAB");
}

}  // namespace
