// The far ends of the numbers: what counts without end goes on when its number wraps, what is full
// says so, and sums and products near 2^32 and 2^64 hit the entry they mean.
#include <Hardware/ChipReader.h>

#include <deque>
#include <stdexcept>

#include "support/Sanitizers.h"
#include "support/ShadowTest.h"

namespace {

using Support::Access;
using Support::HamAccess;
using Support::marked;
using Support::word;

constexpr U32 last = 0xffffffff;

class Limits : public Support::ShadowTest {
 protected:
  // A shadow that audits the regions, and its reader.
  void auditing(const std::vector<ChipMemory::Ptr>& regions, U32 maxEntriesPerRead = 1024) {
    shadow->minIntervalBetweenAuditsIs(1.0);
    configure(regions);
    reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock,
                                         maxEntriesPerRead, 0.001);
    shadow->stateIs(HardwareShadow::auditing());
  }
  // Runs until the pass that is due has been counted.
  void pass() {
    const U32 before = shadow->audits();
    for (int turns = 0; shadow->audits() == before; ++turns) {
      ASSERT_LT(turns, 100) << "the pass does not end";
      loop.turnAt(time += 1.0);
    }
  }
  void damage(U64 address) { ++chip->registers[static_cast<U32>(address)]; }

  Hardware::ChipReader::Ptr reader;
  Zint::Seconds time = 0;
};

// --- Numbers that count without end -------------------------------------------------------------

TEST_F(Limits, theReadersQueueIndexWrapsAndTheAuditGoesOn) {
  std::vector<ChipMemory::Ptr> regions;
  for (U64 i = 0; i < 3; ++i) {
    regions.push_back(audited("region", 0x1000 * (i + 1), 4));
    regions.back()->doClear();
  }
  auditing(regions);
  reader->chipMemoryMetadataIs({last - 4, last - 4});
  for (U32 passes = 1; passes <= 6; ++passes) {
    damage(0x1000 * (1 + passes % 3));
    chip->taken();
    pass();
    // Twelve reads and the repair, in each of the passes on both sides of the wrap.
    const std::vector<Access> accesses = chip->taken();
    ASSERT_EQ(accesses.size(), 13u) << "pass " << passes;
    EXPECT_EQ(accesses.back(), (Access{Access::write, 0x1000 * (1 + passes % 3), 0}));
    EXPECT_EQ(shadow->audits(), passes);
    EXPECT_EQ(reader->chipMemoryMetadata().next, static_cast<U32>(last - 4 + 3 * passes));
    EXPECT_EQ(reader->chipMemorys(), 0u);
  }
  for (const ChipMemory::Ptr& cm : regions) EXPECT_EQ(cm->registersFixed(), 2u);
}

TEST_F(Limits, aStopBetweenIndicesBeforeAndBehindTheWrapEmptiesTheQueue) {
  std::vector<ChipMemory::Ptr> regions;
  for (U64 i = 0; i < 4; ++i) regions.push_back(audited("region", 0x1000 * (i + 1), 4));
  auditing(regions, 1);
  reader->chipMemoryMetadataIs({last - 1, last - 1});
  loop.turn();
  EXPECT_EQ(reader->chipMemorys(), 3u);
  EXPECT_EQ(reader->chipMemoryMetadata(), (Hardware::ChipReader::ChipMemoryMetadata{last, 2}));
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(reader->chipMemorys(), 0u);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
  shadow->stateIs(HardwareShadow::auditing());
  pass();
  EXPECT_EQ(reader->chipMemoryMetadata().next, 6u);
}

TEST_F(Limits, auditsRegistersFixedAndTheRequestsGenerationWrapAndTheAuditGoesOn) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 4);
  mac->doClear();
  auditing({mac});
  shadow->auditsIs(last - 1);
  mac->registersFixedIs(last - 1);
  shadow->auditReadRequest()->generationIs(last);
  for (const U32 count : {last, 0u, 1u}) {
    damage(0x1004);
    pass();
    EXPECT_EQ(shadow->audits(), count);
    EXPECT_EQ(mac->registersFixed(), count);
    EXPECT_EQ(chip->registers[0x1004], 0u) << "repaired";
    EXPECT_EQ(mac->lastFixTime(), time);
  }
}

TEST_F(Limits, cacheHitsWrapOnTheDataPath) {
  const ChipMemory::Ptr mac = shadowed("mac", 0x1000, 16);
  mac->doClear();
  mac->skipWriteIfMatchesCacheIs(true);
  mac->readFromCacheIs(true);
  configure({mac});
  mac->writeCacheHitsIs(~U64{0} - 2);
  mac->readCacheHitsIs(~U64{0});
  U32 values[16] = {};
  U8* data = reinterpret_cast<U8*>(values);
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(mac, 0, data, sizeof values));
  EXPECT_EQ(mac->writeCacheHits(), 13u);
  EXPECT_TRUE(shadow->readFromCache(mac, 0, data, sizeof values));
  EXPECT_EQ(mac->readCacheHits(), 15u);
}

TEST_F(Limits, theEntriesUnderAuditAreA32BitSum) {
  // Only counted: nothing here is read.
  const ChipMemory::Ptr half = audited("half", 0x1000, 0x80000000, 0, 4);
  const ChipMemory::Ptr rest = audited("rest", 0x8000, 0x80000003, 0, 4);
  configure({half, rest});
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 3u);
  shadow->chipMemoryAuditEnabledIs(half, false);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 0x80000003u);
  shadow->chipMemoryAuditEnabledIs(rest, false);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 0u);
}

// --- A full index -------------------------------------------------------------------------------

TEST_F(Limits, sixtyFiveThousandChunksAreBuiltAuditedRepairedAndCleared) {
  constexpr U32 chunks = 65535;
  std::vector<ChipMemory::Ptr> regions;
  for (U32 i = 0; i < chunks; ++i) {
    // The registers see the low word alone: the regions lie apart there too.
    regions.push_back(audited("region", ChipAddress(i * 0xfffe, i * 16).value(), 2));
    regions.back()->doClear();
  }
  auditing(regions, 2 * chunks);
  EXPECT_EQ(shadow->nextIndex(), chunks);
  EXPECT_EQ(shadow->auditErrors(), 0u);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 2 * chunks);
  for (const ChipMemory::Ptr& cm : regions) ASSERT_EQ(found(cm->address().value() + 4), cm);
  for (const U32 i : {0u, 32767u, chunks - 1}) damage(i * 16 + 4);
  pass();
  for (const U32 i : {0u, 32767u, chunks - 1}) {
    EXPECT_EQ(regions[i]->registersFixed(), 1u);
    EXPECT_EQ(chip->registers[i * 16 + 4], 0u);
  }
  EXPECT_EQ(regions[1]->registersFixed(), 0u);
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(shadow->nextIndex(), 0);
  for (const U32 i : {0u, chunks - 1}) EXPECT_EQ(found(regions[i]->address().value()), nullptr);
  for (const ChipMemory::Ptr& cm : regions)
    ASSERT_NE(shadow->chipMemoryDel(cm->address()), nullptr);
  EXPECT_EQ(shadow->chipMemorys(), 0u);
}

// --- Products that wrap -------------------------------------------------------------------------

TEST_F(Limits, aSpanOfExactly2To32IsEmpty) {
  const ChipMemory::Ptr wide = shadowed("wide", 0x1000, 0x10000, 4, 0x10000);
  configure({wide});
  for (const U64 address : {0x1000u, 0x1001u, 0x11000u, 0xffffffffu}) {
    EXPECT_EQ(found(address), nullptr) << std::hex << address;
  }
}

TEST_F(Limits, aSpanAbove2To32IsWhatIsLeftOfIt) {
  const ChipMemory::Ptr wide = shadowed("wide", 0x1000, 0x10000, 4, 0x10001);
  configure({wide});
  EXPECT_EQ(found(0x1000), wide);
  EXPECT_EQ(found(0x1000 + 0xffff), wide);
  EXPECT_EQ(found(0x1000 + 0x10000), nullptr);
  EXPECT_EQ(wide->entryIndexFromAddress(ChipAddress(0x1000 + 0xffff)), 0u);
}

TEST_F(Limits, theDistanceOfAnEntryWrapsWhereverAnEntryIsWritten) {
  // Entry 0x10001 of stride 0xffff lies 0xffff * 0x10001 = 2^32 - 1 behind the base, the next
  // 0xfffe.
  const ChipMemory::Ptr wide =
      Hardware::chipMemoryFactory("wide", ChipAddress(0x1000), 0x10003, 4, 0xffff, scripted);
  wide->shadowEnabledIs(true);
  wide->auditEnabledIs(true);
  wide->doClearRange(0x10001, 0x10002, true);
  EXPECT_EQ(scripted->taken(), (std::vector<HamAccess>{{HamAccess::write, 0x100000fff, 4, 1},
                                                       {HamAccess::write, 0x10ffe, 4, 1}}));
  wide->writeback(true);
  EXPECT_EQ(scripted->taken(), (std::vector<HamAccess>{{HamAccess::write, 0x100000fff, 4, 1},
                                                       {HamAccess::write, 0x10ffe, 4, 1}}));
  shadow->doFixBadRegister(wide, 0x10002, wide->shadow()->data());
  EXPECT_EQ(scripted->taken(), (std::vector<HamAccess>{{HamAccess::write, 0x10ffe, 4, 1}}));
}

// Its buffers have 0x10000 * 0x10001 - 2^32 = 0x10000 bytes: no operation may believe the entries.
TEST_F(Limits, aStoreWhoseSizeWrappedIsFatalOnEveryPathAndNamesTheRegion) {
  const ChipMemory::Ptr cm = audited("wrapped", 0x1000, 0x10000, 0x10001, 4);
  ASSERT_EQ(cm->shadow()->size(), 0x10000u);
  ASSERT_EQ(cm->hardware()->size(), 0x10000u);
  std::vector<U8> entry(0x10001);
  EXPECT_REGION_ASSERTION(cm->writeback(false), "wrapped");
  EXPECT_REGION_ASSERTION(cm->doClearRange(0, 1, false), "wrapped");
  auditing({cm});
  cm->readFromCacheIs(true);
  EXPECT_REGION_ASSERTION(shadow->shadowWriteAndCompareWithCache(cm, 0, entry.data(), 0x10001),
                          "wrapped");
  EXPECT_REGION_ASSERTION(shadow->readFromCache(cm, 1, entry.data(), 0x10001), "wrapped");
  EXPECT_REGION_ASSERTION(shadow->doAuditChips(), "wrapped");
  EXPECT_REGION_ASSERTION(pass(), "wrapped");
  cm->doClear();  // clears the bytes that are there
}

TEST_F(Limits, aReadWhoseEndWrapsIsOutOfRange) {
  const ChipMemory::Ptr mac = shadowed("mac", 0x1000, 16);
  mac->readFromCacheIs(true);
  configure({mac});
  U32 values[2] = {};
  U8* data = reinterpret_cast<U8*>(values);
  EXPECT_ASSERTION(shadow->readFromCache(mac, last, data, 4), 0,
                   "bool Hardware::HardwareShadow::readFromCache(const Hardware::ChipMemory::Ptr&, "
                   "U32, U8*, U32)",
                   "( entry + numEntries ) <= cm->entries()");
  EXPECT_ASSERTION(shadow->shadowWriteAndCompareWithCache(mac, last, data, 8), 0,
                   "bool Hardware::HardwareShadow::shadowWriteAndCompareWithCache(const "
                   "Hardware::ChipMemory::Ptr&, U32, U8*, U32)",
                   "entry + numEntries <= cm->entries()");
}

// In 32 bits the length of the text itself would wrap.
TEST_F(Limits, aDifferenceWhoseTextIsTooLongIsRefused) {
  if (sizeof(void*) > 4) GTEST_SKIP() << "every text has room";
  if (Support::addressesAreSanitized()) GTEST_SKIP() << "the sanitizer takes the room";
  const ChipMemory::Ptr huge = audited("huge", 0, 1, 0x2aaaaaac);
  configure({huge});
  huge->entryInitializedIs(0);
  huge->shadow()->data()[0] = 1;
  EXPECT_THROW(shadow->doAuditChips(), std::length_error);
  EXPECT_EQ(shadow->audits(), 0u);
  EXPECT_EQ(huge->registersFixed(), 0u);
}

// --- Addresses that wrap ------------------------------------------------------------------------

TEST_F(Limits, aRegionAcrossTheLowWordIsReadAndRepairedWithTheCarry) {
  const U64 base = 0x2fffffff8;
  const ChipMemory::Ptr cm =
      Hardware::chipMemoryFactory("cm", ChipAddress(base), 4, 4, 4, scripted);
  cm->shadowEnabledIs(true);
  cm->auditEnabledIs(true);
  cm->doClear();
  auditing({cm}, 3);
  scripted->contents = 1;
  pass();
  EXPECT_EQ(scripted->taken(), (std::vector<HamAccess>{{HamAccess::read, base, 4, 3},
                                                       {HamAccess::read, 0x300000004, 4, 1},
                                                       {HamAccess::write, base, 4, 1},
                                                       {HamAccess::write, base + 4, 4, 1},
                                                       {HamAccess::write, 0x300000000, 4, 1},
                                                       {HamAccess::write, 0x300000004, 4, 1}}));
  EXPECT_EQ(found(base + 4), cm);
  EXPECT_EQ(found(0x300000004), cm) << "the last region answers beyond its memory id";
}

TEST_F(Limits, registersWrapAtTheEndOfTheLowWord) {
  const ChipMemory::Ptr cm = audited("cm", 0x2fffffff8, 4);
  configure({cm});
  U32 values[] = {1, 2, 3, 4};
  EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(cm, 0, reinterpret_cast<U8*>(values), 16));
  cm->writeback(false);
  EXPECT_EQ(chip->taken(), (std::vector<Access>{{Access::write, 0xfffffff8, 1},
                                                {Access::write, 0xfffffffc, 2},
                                                {Access::write, 0, 3},
                                                {Access::write, 4, 4}}));
}

TEST_F(Limits, aRegionUpTo2To64MinusOneIsFoundAndOneThatEndsAt2To64IsNot) {
  const U64 end = ~U64{0};
  const ChipMemory::Ptr below = shadowed("below", end - 15, 3);
  EXPECT_TRUE(below->inRange(ChipAddress(end - 4)));
  EXPECT_FALSE(below->inRange(ChipAddress(end - 3)));
  EXPECT_EQ(below->entryIndexFromAddress(ChipAddress(end - 4)), 2u);
  configure({below});
  EXPECT_EQ(found(end - 15), below);
  EXPECT_EQ(found(end), nullptr);
  // The end of the sum is 0, and nothing lies below that.
  const ChipMemory::Ptr whole = shadowed("whole", end - 15, 4);
  for (const U64 address : {end - 15, end, U64{0}}) {
    EXPECT_FALSE(whole->inRange(ChipAddress(address))) << std::hex << address;
  }
  EXPECT_EQ(whole->entryAddress(3).value(), end - 3);
  EXPECT_EQ(whole->entryAddress(4).value(), 0u);
}

}  // namespace
