// Regions of all shapes and modes, also such that change, come and go between passes.
#include "PatrolWorld.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;
using Driver::Verdict;
using Support::PatrolChip;

class PatrolRegion : public Support::PatrolWorld {
 protected:
  Bytes heldBytes(const ChipMemory::Ptr& cm, U32 entry) {
    Bytes bytes(cm->entrySize());
    chipOf(cm).bytes.read(cm->entryAddress(entry).value(), bytes.data(), cm->entrySize());
    return bytes;
  }
  void damageBytes(const ChipMemory::Ptr& cm, U32 entry, const Bytes& bytes) {
    chipOf(cm).bytes.write(cm->entryAddress(entry).value(), bytes.data(), cm->entrySize());
  }
};

class PatrolEntrySize : public PatrolRegion, public testing::WithParamInterface<U32> {};

TEST_P(PatrolEntrySize, everyByteOfAnEntryIsDefendedAndEveryMaskedBitKept) {
  const U32 size = GetParam();
  const ChipMemory::Ptr plain = region("plain", 0x10000, 9, size);
  const ChipMemory::Ptr masked = region("masked", 0x20000, 9, size);
  Bytes mask(size, 0);
  mask.back() = 0xf0;
  policyOf(masked)->maskIs(mask, Rewrite::kept);
  for (U32 e = 0; e < 9; ++e) {
    Bytes value(size, static_cast<U8>(e + 1));
    for (const ChipMemory::Ptr& cm : {plain, masked}) {
      shadow->shadowWriteAndCompareWithCache(cm, e, value.data(), size);
      damageBytes(cm, e, value);
    }
  }
  shadow->maxEntriesPerSliceIs(4);
  audit();
  settle();
  for (const U32 byte : {0u, size / 2, size - 1}) {
    for (const ChipMemory::Ptr& cm : {plain, masked}) {
      Bytes value(size, 6);
      value[byte] ^= 1;
      value[size - 1] ^= 0xf0;
      damageBytes(cm, 5, value);
    }
    ASSERT_TRUE(pass());
    EXPECT_EQ(heldBytes(plain, 5), Bytes(size, 6)) << byte;
    Bytes kept(size, 6);
    kept[size - 1] ^= 0xf0;
    EXPECT_EQ(heldBytes(masked, 5), kept) << byte;
  }
  EXPECT_EQ(count(Verdict::repaired), 6u);
}

INSTANTIATE_TEST_SUITE_P(Bytes, PatrolEntrySize,
                         testing::Values(1u, 2u, 3u, 4u, 5u, 7u, 8u, 12u, 16u, 31u, 32u, 33u, 48u,
                                         64u, 65u, 100u));

TEST_F(PatrolRegion, atDistancesOf4And64KiBEachIsAuditedAtItsPlace) {
  std::vector<ChipMemory::Ptr> regions;
  for (const U64 address : {0x0000, 0x1000, 0x2000, 0x10000, 0x20000, 0x21000, 0x40000}) {
    regions.push_back(region("table", address, 8));
    fill(regions.back(), 0, 3);
  }
  audit();
  settle();
  for (const ChipMemory::Ptr& cm : regions) damage(cm, 1, 0x77);
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), regions.size());
  for (const ChipMemory::Ptr& cm : regions) EXPECT_EQ(held(cm, 1), 2u);
}

TEST_F(PatrolRegion, strideWiderThanTheEntryIsKept) {
  class StridedChip : public PatrolChip {
   public:
    using PatrolChip::PatrolChip;
    void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                U32 entries) override {
      for (U32 i = 0; i < entries; ++i) {
        bytes.read(address.value() + U64{16} * i, buffer + std::size_t{entrySize} * i, entrySize);
      }
    }
  };
  const auto strided = Zint::makePtr<StridedChip>("strided");
  const ChipMemory::Ptr cm =
      Hardware::chipMemoryFactory("table", ChipAddress(0x1000), 8, 4, 16, strided);
  cm->shadowEnabledIs(true);
  cm->auditEnabledIs(true);
  shadow->chipMemoryIs(cm);
  fill(cm, 0, 8);
  audit();
  settle();
  damage(cm, 5, 0x77);
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 5), 6u);
  EXPECT_EQ(told.size(), 1u);
}

// Bit 7 of each byte does not count.
class SevenBitHam : public PatrolChip {
 public:
  using PatrolChip::PatrolChip;
  bool doCompare(U8* a, U8* b, U32 size) const override {
    ++compared;
    if (compares) compares();
    for (U32 i = 0; i < size; ++i) {
      if (((a[i] ^ b[i]) & 0x7f) != 0) return false;
    }
    return true;
  }
  mutable U32 compared = 0;
  std::function<void()> compares;
};

TEST_F(PatrolRegion, ownDoCompareJudgesAndIsNotOverruled) {
  const auto own = Zint::makePtr<SevenBitHam>("own");
  const ChipMemory::Ptr cm = regionOf(own, "table", 0x1000, 16);
  const U32 mask = 0x0f000000;
  policyOf(cm)->maskIs(8, 8, {reinterpret_cast<const U8*>(&mask), 4}, Rewrite::kept);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  fill(cm, 0, 16);
  audit();
  settle();
  damage(cm, 3, 4 | 0x80);
  damage(cm, 9, 10 | 0x80);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(told.empty());
  EXPECT_GT(own->compared, 0u);
  damage(cm, 3, 5);
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 3), 4u);
  EXPECT_EQ(count(Verdict::repaired), 1u);
}

TEST_F(PatrolRegion, ownDoCompareThatThrowsIsNoEndOfThePatrol) {
  Support::TraceCapture trace(0);
  const auto own = Zint::makePtr<SevenBitHam>("own");
  const ChipMemory::Ptr cm = regionOf(own, "table", 0x1000, 16), other = region("b", 0x2000, 16);
  fill(cm, 0, 4);
  fill(other, 0, 4);
  audit();
  settle();
  own->compares = [] { throw std::runtime_error("compare"); };
  damage(other, 1, 9);
  steps(10);
  EXPECT_EQ(held(other, 1), 2u);
  own->compares = nullptr;
  damage(cm, 1, 9);
  loop.clock->timeIs(loop.clock->time() + 10);
  steps(10);
  EXPECT_EQ(held(cm, 1), 2u);
}

TEST_F(PatrolRegion, bufferedIsNoResetHoweverManyEntriesAreHeld) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  cm->modeIs(ChipMemory::buffered());
  for (U32 i = 0; i < 64; ++i) offer(cm, i, i + 1);
  audit();
  settle();
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::deferred), 64u);
  EXPECT_EQ(shadow->chip(cm)->resets(), 0u);
  EXPECT_EQ(chip->writes, 0u);
}

// Nor does it make one of a flip in another region.
TEST_F(PatrolRegion, bufferedIsNoEvidenceAgainstTheChip) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4), held64 = region("held", 0x2000, 64);
  put(cm, 0, 7);
  held64->modeIs(ChipMemory::buffered());
  for (U32 i = 0; i < 64; ++i) offer(held64, i, i + 1);
  audit();
  settle();
  damage(cm, 0, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 0), 7u);
  EXPECT_EQ(shadow->chip(cm)->resets(), 0u);
}

TEST_F(PatrolRegion, modesThatChangeBetweenPassesAreFollowed) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 16);
  fill(cm, 0, 3);
  audit();
  settle();
  cm->modeIs(ChipMemory::override());
  damage(cm, 1, 99);
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 1), 99u);
  EXPECT_TRUE(told.empty());
  cm->modeIs(ChipMemory::buffered());
  offer(cm, 1, 5);
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 1), 99u);
  cm->modeIs(ChipMemory::normal());
  EXPECT_EQ(held(cm, 1), 5u);  // the whole store is written, and a new one made
  ASSERT_TRUE(pass());
  EXPECT_EQ(shadowed(cm, 1), 5u);
}

TEST_F(PatrolRegion, shadowThatIsSwitchedOffIsNotRead) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 16);
  audit();
  settle();
  cm->shadowEnabledIs(false);
  const U64 reads = chip->reads;
  ASSERT_TRUE(pass());
  EXPECT_EQ(chip->reads, reads);
  EXPECT_TRUE(passes.back().isComplete);
}

TEST_F(PatrolRegion, bufferThatIsTooShortIsSaidAndTheOthersGoOn) {
  const ChipMemory::Ptr grown = region("grown", 0x1000, 4), other = region("other", 0x2000, 4);
  fill(other, 0, 2);
  audit();
  settle();
  grown->entriesIs(8);  // the hardware buffer keeps its size
  damage(other, 1, 99);
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(other, 1), 2u);
  EXPECT_FALSE(passes.back().isComplete);
  EXPECT_NE(passes.back().reason.bytes().find("grown"), std::string::npos);
  EXPECT_THROW(shadow->doAudit(grown, 0, 8), Zint::RangeException);
  grown->hardwareIs(Hal::bufFactory(32));
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes.back().isComplete);
}

TEST_F(PatrolRegion, regionsThatComeAndGoBetweenPassesAreAudited) {
  const ChipMemory::Ptr a = region("a", 0x1000, 16);
  fill(a, 0, 2);
  audit();
  settle();
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(shadow->patrolState(), Driver::PatrolState::stopped);
  const ChipMemory::Ptr b = region("b", 0x2000, 16);
  fill(b, 0, 2);
  shadow->chipMemoryDel(a->address());
  audit();
  settle();
  damage(a, 1, 99);
  damage(b, 1, 99);
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(a, 1), 99u);
  EXPECT_EQ(held(b, 1), 2u);
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->chipMemoryDelAll();
  audit();
  steps(5);
  EXPECT_EQ(shadow->state(), HardwareShadow::idle());  // nothing to audit
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(PatrolRegion, thatLeavesAndReturnsHasItsMarksStill) {
  ChipMemory::Ptr cm = region("table", 0x1000, 16);
  audit();
  fill(cm, 0, 4);
  settle();
  ASSERT_TRUE(shadow->isWritten(cm, 2));
  shadow->openFindingIs(cm, 9, true);
  const auto move = [&](const auto& doIt) {
    shadow->stateIs(HardwareShadow::unconfigured());
    doIt();
    shadow->stateIs(HardwareShadow::configured());
  };
  move([&] { shadow->chipMemoryDel(cm->address()); });
  move([&] { shadow->chipMemoryIs(cm); });
  EXPECT_TRUE(shadow->isWritten(cm, 2));
  EXPECT_FALSE(shadow->isWritten(cm, 5));
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 9));
  // Another object at the address has none.
  const ChipMemory::Ptr other = Hardware::chipMemoryFactory("other", cm->address(), 16, 4, 4, chip);
  other->shadowEnabledIs(true);
  move([&] { shadow->chipMemoryIs(other); });
  EXPECT_FALSE(shadow->isWritten(other, 2));
  move([&] { shadow->chipMemoryIs(cm); });
  EXPECT_TRUE(shadow->isWritten(cm, 2));
}

TEST_F(PatrolRegion, thatLeavesIsNotKeptAliveByItsMarks) {
  ChipMemory::Ptr cm = region("table", 0x1000, 16);
  audit();
  fill(cm, 0, 4);
  settle();
  struct Existing : ChipMemory::NotifieeConst {
    using NotifieeConst::NotifieeConst;
  };
  const auto exists = Zint::makePtr<Existing>(loop.activity, cm);
  exists->isNonReferencingIs(true);
  const Hardware::ChipAddress address = cm->address();
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->chipMemoryDel(address);
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_NE(exists->notifier(), nullptr);
  cm = nullptr;
  EXPECT_EQ(exists->notifier(), nullptr);
}

TEST_F(PatrolRegion, storeReplacedWithinTheKeptReadIsNotWrittenFromTheOldOne) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 16);
  const U32 mask = 0xff000000;
  policyOf(cm)->maskIs({reinterpret_cast<const U8*>(&mask), 4}, Rewrite::kept);
  fill(cm, 0, 2);
  audit();
  settle();
  damage(cm, 1, 99);
  chip->afterRead = [&](U64, U32 entries) {
    if (entries != 1) return;
    cm->entriesIs(15);  // a new store, in which nothing is known
    chip->afterRead = nullptr;
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 1), 99u);
  EXPECT_EQ(chip->writes, 0u);
}

TEST_F(PatrolRegion, clientsWriteWithinTheKeptReadIsNotOverwritten) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 16);
  const U32 mask = 0xff000000;
  policyOf(cm)->maskIs({reinterpret_cast<const U8*>(&mask), 4}, Rewrite::kept);
  fill(cm, 0, 2);
  audit();
  settle();
  damage(cm, 1, 99);
  chip->afterRead = [&](U64, U32 entries) {
    if (entries == 1) put(cm, 1, 0x12000021);
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 1), 0x12000021u);
  EXPECT_EQ(count(Verdict::writtenMeanwhile), 1u);
  EXPECT_EQ(passes.back().differences, 0u);
  EXPECT_EQ(shadow->findings(), 0u);
}

TEST_F(PatrolRegion, clientsWriteWithinTheVetoIsNotOverwritten) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 16);
  fill(cm, 0, 2);
  audit();
  settle();
  damage(cm, 1, 99);
  veto = [&](const Driver::Finding&) {
    offer(cm, 1, 0x21);
    return false;
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 1), 99u);
  EXPECT_EQ(count(Verdict::writtenMeanwhile), 1u);
  EXPECT_EQ(passes.back().differences, 0u);
}

}  // namespace
