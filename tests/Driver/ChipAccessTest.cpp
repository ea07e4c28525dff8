// A client's way to a region: what reaches the chip, what is served, and what is refused.
#include <Driver/ChipAccess.h>
#include <Driver/Descriptions.h>
#include <Zint/GenericIf.h>

#include <array>
#include <stdexcept>

#include "ReplayTest.h"

namespace {

using Driver::Rule;
using Replay::Accesses;
using Replay::readOf;
using Replay::writeOf;
using Support::HamAccess;

class ChipAccessTest : public Replay::ReplayTest {
 protected:
  ChipAccessTest() { configured(); }

  void throwAtWrites(bool throws) {
    memory->onAccess = [throws](const HamAccess& seen, U8*) {
      if (throws && seen.kind == HamAccess::write) throw std::runtime_error("bus");
    };
  }
  void doReset() { own->chip(cm)->doChipReset(); }

  const ChipMemory::Ptr cm = table("mac", 0x1000, 16);
  const ChipAccess::Ptr access = Driver::chipAccessFactory(own, cm);
};

class AccessWatch : public Driver::ChipAccess::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onReadMisses() override { ++reads; }
  void onWriteMisses() override { ++writes; }
  void onWritesHeld() override { ++held; }
  int reads = 0, writes = 0, held = 0;
};

// --- Writing ------------------------------------------------------------------------------------

TEST_F(ChipAccessTest, write_ofOneEntryReachesShadowAndChip) {
  access->write<U32>(7, 0xcafe);
  EXPECT_EQ(inShadow(cm, 7), 0xcafeu);
  EXPECT_EQ(onChip(cm, 7), 0xcafeu);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x101c, 1)}));
  EXPECT_EQ(access->writeMisses(), 1u);
  EXPECT_TRUE(own->isWritten(cm, 7));
}

TEST_F(ChipAccessTest, write_ofTheSameValueSparesTheChip) {
  access->write<U32>(7, 0xcafe);
  memory->taken();
  access->write<U32>(7, 0xcafe);
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(access->writeMisses(), 1u);
  EXPECT_EQ(cm->writeCacheHits(), 1u);
}

TEST_F(ChipAccessTest, write_ofASpanWritesTheRunsThatDiffer) {
  std::array<U32, 8> values{1, 2, 3, 4, 5, 6, 7, 8};
  access->write<U32>(4, std::span<const U32>(values));
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1010, 8)}));
  values = {9, 2, 3, 10, 11, 6, 7, 12};
  access->write<U32>(4, std::span<const U32>(values));
  EXPECT_EQ(memory->taken(),
            (Accesses{writeOf(0x1010, 1), writeOf(0x101c, 2), writeOf(0x102c, 1)}));
  for (U32 i = 0; i < 8; ++i) {
    EXPECT_EQ(onChip(cm, 4 + i), values[i]);
    EXPECT_EQ(inShadow(cm, 4 + i), values[i]);
  }
  EXPECT_EQ(access->writeMisses(), 12u);
  EXPECT_EQ(cm->writeCacheHits(), 4u);
}

TEST_F(ChipAccessTest, write_withoutSkippingWritesEverything) {
  cm->skipWriteIfMatchesCacheIs(false);
  access->write<U32>(1, 5);
  access->write<U32>(1, 5);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1004, 1), writeOf(0x1004, 1)}));
}

TEST_F(ChipAccessTest, write_ofVolatileEntriesIsNeverSkipped) {
  const auto policy = Driver::policyFactory(cm);
  policy->ruleIs(3, 1, Rule::volatile_);
  own->policyIs(policy);
  const std::array<U32, 3> values{1, 2, 3};
  access->write<U32>(2, std::span<const U32>(values));
  memory->taken();
  access->write<U32>(2, std::span<const U32>(values));
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x100c, 1)}));
}

TEST_F(ChipAccessTest, write_toABufferedRegionStaysInTheShadow) {
  cm->modeIs(ChipMemory::buffered());
  access->write<U32>(1, 5);
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(inShadow(cm, 1), 5u);
  EXPECT_EQ(access->writeMisses(), 0u);
}

TEST_F(ChipAccessTest, write_toAnOverriddenRegionOrShadowDoesNotReachTheChip) {
  cm->modeIs(ChipMemory::override());
  access->write<U32>(1, 5);
  cm->modeIs(ChipMemory::normal());
  memory->taken();
  own->overrideHardwareIs(true);
  access->write<U32>(1, 6);
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(inShadow(cm, 1), 6u);
}

TEST_F(ChipAccessTest, write_withoutAStoreGoesToTheChip) {
  cm->shadowEnabledIs(false);
  access->write<U32>(1, 5);
  EXPECT_EQ(onChip(cm, 1), 5u);
  EXPECT_EQ(access->read<U32>(1), 5u);
  EXPECT_EQ(access->readMisses(), 1u);
}

TEST_F(ChipAccessTest, write_ofWhatWasAdoptedCountsAsWritten) {
  cm->entryInitializedIs(2);  // known, with the value 0, and written by nobody
  EXPECT_FALSE(own->isWritten(cm, 2));
  access->write<U32>(2, 0);
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_TRUE(own->isWritten(cm, 2));
}

TEST_F(ChipAccessTest, write_leavesTheCallersBytesAlone) {
  memory->scribbles = true;
  const std::array<U32, 2> values{1, 2};
  access->write<U32>(0, std::span<const U32>(values));
  EXPECT_EQ(values, (std::array<U32, 2>{1, 2}));
  EXPECT_EQ(inShadow(cm, 1), 2u);
}

TEST_F(ChipAccessTest, write_fromTheStoreItself) {
  access->write<U32>(0, 77);
  const U8* store = cm->shadow()->data();
  access->writeBytes(1, {store, 4});
  EXPECT_EQ(onChip(cm, 1), 77u);
}

// --- Chip writes that fail ----------------------------------------------------------------------

TEST_F(ChipAccessTest, plainLibrary_swallowsTheRetryAfterAChipWriteThatThrew) {
  throwAtWrites(true);
  EXPECT_THROW(clientWrites(cm, 3, 9), std::runtime_error);
  throwAtWrites(false);
  EXPECT_TRUE(clientWrites(cm, 3, 9));  // "the chip need not be written"
  EXPECT_EQ(onChip(cm, 3), 0u);
}

TEST_F(ChipAccessTest, write_thatThrewIsRepeatedByTheNextOne) {
  throwAtWrites(true);
  EXPECT_THROW(access->write<U32>(3, 9), std::runtime_error);
  EXPECT_TRUE(own->hasOpenFinding(cm, 3));
  throwAtWrites(false);
  memory->taken();
  access->write<U32>(3, 9);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x100c, 1)}));
  EXPECT_EQ(onChip(cm, 3), 9u);
  EXPECT_FALSE(own->hasOpenFinding(cm, 3));
  access->write<U32>(3, 9);
  EXPECT_TRUE(memory->taken().empty());
}

TEST_F(ChipAccessTest, write_thatThrewInItsSecondRunLeavesFindingsOfTheRestAlone) {
  access->write<U32>(1, 1);
  const std::array<U32, 4> values{5, 1, 6, 7};
  memory->log.clear();
  memory->onAccess = [this](const HamAccess&, U8*) {
    if (memory->log.size() == 2) throw std::runtime_error("bus");
  };
  EXPECT_THROW(access->write<U32>(0, std::span<const U32>(values)), std::runtime_error);
  EXPECT_FALSE(own->hasOpenFinding(cm, 0));
  EXPECT_FALSE(own->hasOpenFinding(cm, 1));
  EXPECT_TRUE(own->hasOpenFinding(cm, 2));
  EXPECT_TRUE(own->hasOpenFinding(cm, 3));
  EXPECT_EQ(access->writeMisses(), 4u);
}

TEST_F(ChipAccessTest, write_ofAnEntryWithAnOpenFindingReachesTheChipAndClosesIt) {
  access->write<U32>(5, 1);
  memory->wordIs(0x1014, 99);
  memory->taken();
  own->openFindingIs(cm, 5, true);
  EXPECT_TRUE(clientWrites(cm, 5, 1));  // the plain call says that the chip need not be written
  access->write<U32>(5, 1);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1014, 1)}));
  EXPECT_EQ(onChip(cm, 5), 1u);
  EXPECT_FALSE(own->hasOpenFinding(cm, 5));
}

TEST_F(ChipAccessTest, write_thatAClientOvertakesDuringItsAccessEndsWithTheNewestValue) {
  int nested = 0;
  memory->onAccess = [&](const HamAccess& seen, U8*) {
    if (seen.kind == HamAccess::write && nested++ == 0) access->write<U32>(2, 22);
  };
  const std::array<U32, 4> values{1, 2, 3, 4};
  access->write<U32>(0, std::span<const U32>(values));
  EXPECT_EQ(onChip(cm, 2), 22u);
  EXPECT_EQ(inShadow(cm, 2), 22u);
  EXPECT_EQ(onChip(cm, 3), 4u);
}

TEST_F(ChipAccessTest, write_whoseLaterRunAClientOvertakesDoesNotUndoIt) {
  access->write<U32>(1, 2);
  memory->taken();
  int nested = 0;
  memory->onAccess = [&](const HamAccess&, U8*) {
    if (nested++ == 0) access->write<U32>(2, 33);
  };
  const std::array<U32, 3> values{1, 2, 3};
  access->write<U32>(0, std::span<const U32>(values));
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1000, 1), writeOf(0x1008, 1)}));
  EXPECT_EQ(onChip(cm, 2), 33u);
  EXPECT_EQ(inShadow(cm, 2), 33u);
}

// --- Reading ------------------------------------------------------------------------------------

TEST_F(ChipAccessTest, read_isServedFromTheCache) {
  access->write<U32>(4, 44);
  memory->taken();
  EXPECT_EQ(access->read<U32>(4), 44u);
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(cm->readCacheHits(), 1u);
  EXPECT_EQ(access->readMisses(), 0u);
}

TEST_F(ChipAccessTest, read_ofWhatIsNotKnownGoesToTheChipAndIsNotLearned) {
  memory->wordIs(0x1010, 5);
  EXPECT_EQ(access->read<U32>(4), 5u);
  EXPECT_EQ(memory->taken(), (Accesses{readOf(0x1010, 1)}));
  EXPECT_EQ(access->readMisses(), 1u);
  EXPECT_FALSE(cm->entryInitialized(4));
}

TEST_F(ChipAccessTest, read_ofASpanReadsTheMissingRuns) {
  for (const U32 entry : {3u, 4u, 7u}) access->write<U32>(entry, entry * 11);
  for (U32 i = 0; i < 16; ++i) memory->wordIs(0x1000 + 4 * i, i * 11);
  memory->taken();
  std::array<U32, 8> values{};
  access->read<U32>(2, std::span<U32>(values));
  EXPECT_EQ(memory->taken(), (Accesses{readOf(0x1008, 1), readOf(0x1014, 2), readOf(0x1020, 2)}));
  for (U32 i = 0; i < 8; ++i) EXPECT_EQ(values[i], (2 + i) * 11);
  EXPECT_EQ(access->readMisses(), 5u);
  EXPECT_EQ(cm->readCacheHits(), 3u);
}

TEST_F(ChipAccessTest, read_ofVolatileEntriesGoesToTheChip) {
  const auto policy = Driver::policyFactory(cm);
  policy->ruleIs(1, 1, Rule::volatile_);
  own->policyIs(policy);
  const std::array<U32, 3> values{1, 2, 3};
  access->write<U32>(0, std::span<const U32>(values));
  memory->wordIs(0x1004, 99);
  memory->taken();
  std::array<U32, 3> seen{};
  access->read<U32>(0, std::span<U32>(seen));
  EXPECT_EQ(seen, (std::array<U32, 3>{1, 99, 3}));
  EXPECT_EQ(memory->taken(), (Accesses{readOf(0x1004, 1)}));
}

TEST_F(ChipAccessTest, read_ofAWriteOnlyEntryIsServedOrRefusedBeforeAnyAccess) {
  const auto policy = Driver::policyFactory(cm);
  policy->ruleIs(2, 2, Rule::writeOnly);
  own->policyIs(policy);
  access->write<U32>(2, 22);
  memory->taken();
  EXPECT_EQ(access->read<U32>(2), 22u);
  const auto refused = [&](U32 first, U32 count) -> std::string {
    std::vector<U32> values(count, 7);
    try {
      access->read<U32>(first, std::span<U32>(values));
    } catch (const Zint::RangeException& e) {
      EXPECT_EQ(values, std::vector<U32>(count, 7));
      return e.what();
    }
    return "";
  };
  const std::string text = "entry 3 of " + std::string(std::string_view(cm->name())) +
                           " is write-only, and its value is not known";
  EXPECT_EQ(refused(3, 1), text);
  EXPECT_EQ(refused(0, 5), text);
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(refused(0, 3), "");
  EXPECT_EQ(memory->taken(), (Accesses{readOf(0x1000, 2)}));
}

TEST_F(ChipAccessTest, read_thatThrowsLeavesTheCallersBytes) {
  memory->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  std::array<U32, 2> values{7, 8};
  EXPECT_THROW(access->read<U32>(0, std::span<U32>(values)), std::runtime_error);
  EXPECT_EQ(values, (std::array<U32, 2>{7, 8}));
  EXPECT_EQ(access->readMisses(), 0u);
}

TEST_F(ChipAccessTest, read_beforeTheShadowIsConfiguredGoesToTheChip) {
  own->stateIs(HardwareShadow::unconfigured());
  memory->wordIs(0x1000, 5);
  EXPECT_EQ(access->read<U32>(0), 5u);
}

TEST_F(ChipAccessTest, read_ofAnOverriddenRegionIsAsThePlainOne) {
  cm->modeIs(ChipMemory::override());
  EXPECT_EQ(access->read<U32>(3), 0u);
  EXPECT_TRUE(memory->taken().empty());
  cm->readFromCacheIs(false);
  EXPECT_EQ(access->read<U32>(3), 0u);
  EXPECT_EQ(memory->taken(), (Accesses{readOf(0x100c, 1)}));
}

// --- What is refused ----------------------------------------------------------------------------

TEST_F(ChipAccessTest, refuses_entriesBeyondTheRegion) {
  const std::array<U32, 3> values{};
  EXPECT_EQ(Support::exceptionText([&] { access->write<U32>(16, 1); }),
            "entry 16 is beyond mac, which has 16");
  EXPECT_EQ(Support::exceptionText([&] { access->read<U32>(~0u); }),
            "entry 4294967295 is beyond mac, which has 16");
  EXPECT_EQ(Support::exceptionText([&] { access->write<U32>(14, std::span<const U32>(values)); }),
            "3 entries from 14 on are beyond mac, which has 16");
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(Support::marked(cm->dirty()), std::vector<U32>{});
}

TEST_F(ChipAccessTest, refuses_valuesOfAnotherSize) {
  EXPECT_EQ(Support::exceptionText([&] { access->write<U16>(0, 1); }),
            "a value of 2 bytes is no entry of mac, which has 4 bytes");
  EXPECT_EQ(Support::exceptionText([&] { access->read<U64>(0); }),
            "a value of 8 bytes is no entry of mac, which has 4 bytes");
  const std::array<U8, 6> bytes{};
  EXPECT_EQ(Support::exceptionText([&] { access->writeBytes(0, bytes); }),
            "6 bytes are no whole entries of mac, which have 4 bytes");
}

TEST_F(ChipAccessTest, refuses_noShadowAndNoRegion) {
  EXPECT_EQ(Support::exceptionText([&] { Driver::chipAccessFactory(nullptr, cm); }),
            "null shadow parameter to Driver::ChipAccess not allowed");
  EXPECT_EQ(Support::exceptionText([&] { Driver::chipAccessFactory(own, nullptr); }),
            "null region parameter to Driver::ChipAccess not allowed");
}

TEST_F(ChipAccessTest, refuses_aRegionWithoutAnAccessMethodOrWithShortBuffers) {
  const auto bare =
      Hardware::chipMemoryFactory("bare", ChipAddress(0x9000), 4, 4, 4, Hardware::ChipHam::Ptr());
  const auto toBare = Driver::chipAccessFactory(own, bare);
  EXPECT_EQ(Support::exceptionText([&] { toBare->write<U32>(0, 1); }), "bare has no access method");
  cm->shadowIs(Zint::makePtr<Hal::Buf>(8u));
  access->write<U32>(1, 5);
  EXPECT_EQ(Support::exceptionText([&] { access->write<U32>(2, 5); }),
            "the buffers of mac do not hold these entries");
}

TEST_F(ChipAccessTest, noEntryIsNothing) {
  access->writeBytes(16, {});
  access->readBytes(3, {});
  EXPECT_TRUE(memory->taken().empty());
}

// --- While the chip is being restored -----------------------------------------------------------

TEST_F(ChipAccessTest, whileRestoring_writesAreHeldForTheReplay) {
  access->write<U32>(1, 5);
  memory->taken();
  doReset();
  ASSERT_TRUE(own->chip(cm)->isRestoring());
  access->write<U32>(1, 5);
  access->write<U32>(2, 6);
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(inShadow(cm, 2), 6u);
  EXPECT_TRUE(own->hasOpenFinding(cm, 1));
  EXPECT_TRUE(own->hasOpenFinding(cm, 2));
  EXPECT_EQ(access->writesHeld(), 2u);
  EXPECT_EQ(access->writeMisses(), 1u);
}

TEST_F(ChipAccessTest, whileRestoring_everyEntryDiffersWhereNothingIsHeld) {
  access->write<U32>(1, 5);
  memory->taken();
  access->holdsWhileRestoringIs(false);
  doReset();
  access->write<U32>(1, 5);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1004, 1)}));
  EXPECT_EQ(access->writesHeld(), 0u);
}

TEST_F(ChipAccessTest, whileRestoring_whatNoReplayWouldWriteIsWrittenAtOnce) {
  const auto policy = Driver::policyFactory(cm);
  policy->ruleIs(0, 1, Rule::readOnly);
  own->policyIs(policy);
  const auto chip0 = own->chip(cm);
  doReset();
  access->write<U32>(0, 1);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1000, 1)}));
  chip0->replayIs(Driver::chipWriteRequestFactory("other"));
  access->write<U32>(1, 1);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1004, 1)}));
  chip0->replayIs(request);
  access->write<U32>(1, 2);
  EXPECT_TRUE(memory->taken().empty());
  chip0->restoresItselfIs(false);
  access->write<U32>(1, 3);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1004, 1)}));
  chip0->restoresItselfIs(true);
  own->clockIs(nullptr);
  access->write<U32>(1, 4);
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1004, 1)}));
}

// --- Observers, ownership, by name --------------------------------------------------------------

TEST_F(ChipAccessTest, countsAreAnnounced) {
  const auto watch = Zint::makePtr<AccessWatch>(loop.activity, access);
  access->write<U32>(1, 5);
  access->write<U32>(1, 5);
  access->read<U32>(1);
  access->read<U32>(2);
  doReset();
  access->write<U32>(1, 6);
  EXPECT_EQ(watch->writes, 1);
  EXPECT_EQ(watch->reads, 1);
  EXPECT_EQ(watch->held, 1);
}

TEST_F(ChipAccessTest, anAccessMayDropEverything) {
  struct World {
    Replay::MemoryHam::Ptr ham = Zint::makePtr<Replay::MemoryHam>("gone");
    Support::ManualLoop loop;
    Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
    ChipAccess::Ptr access;
    std::vector<U32> values = {1, 2};
  };
  for (const bool reads : {false, true}) {
    auto world = std::make_unique<World>();
    {
      const auto region =
          Hardware::chipMemoryFactory("gone", ChipAddress(0x100), 4, 4, 4, world->ham);
      region->shadowEnabledIs(true);
      world->shadow->chipMemoryIs(region);
      world->access = Driver::chipAccessFactory(world->shadow, region);
    }
    world->ham->onAccess = [&](const HamAccess&, U8*) { world.reset(); };
    ChipAccess* const bare = world->access.ptr();
    std::array<U32, 2> seen{};
    if (reads) {
      bare->read<U32>(0, std::span<U32>(seen));
    } else {
      bare->write<U32>(0, std::span<const U32>(world->values));
    }
    EXPECT_EQ(world, nullptr);
  }
}

TEST_F(ChipAccessTest, isReachedByName) {
  Zint::GenericIf_ byName{Zint::Ptr<Zint::PtrInterface>(access)};
  byName.call("write", {{"entry", "2"}, {"data", "0a0b0c0d"}});
  EXPECT_EQ(onChip(cm, 2), 0x0d0c0b0au);
  EXPECT_EQ(byName.call("read", {{"entry", "2"}, {"entries", "1"}}).text, "0a0b0c0d");
  EXPECT_EQ(byName.attribute("writeMisses"), "1");
  byName.attributeIs("holdsWhileRestoring", "false");
  EXPECT_FALSE(access->holdsWhileRestoring());
  EXPECT_THROW(byName.call("read", {{"entry", "2"}, {"entries", "99"}}), Zint::RangeException);
}

}  // namespace
