// A policy with many runs against arrays that hold rule and mask of each entry.
#include <Driver/Policy.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "support/Random.h"

namespace {

using Driver::Policy;
using Driver::Rewrite;
using Driver::Rule;

// Images that begin with entry 0 and end with `end`, so that a sanitizer sees what is read beyond.
struct ImagePair {
  explicit ImagePair(std::size_t bytes) : a(new U8[bytes]), b(new U8[bytes]) {}
  std::unique_ptr<U8[]> a, b;
};

struct PolicyModel {
  PolicyModel(Support::Random& numbers, U32 count, U32 size)
      : random(numbers), entries(count), entrySize(size), rules(count), masks(count), zeros(size) {}

  std::vector<U8> mask() {
    std::vector<U8> bytes(entrySize);
    switch (random.below(4)) {
      case 0:
        return {};
      case 1:
        return bytes;
      case 2:
        for (U8& byte : bytes) byte = 0xff;
        return bytes;
      default:
        for (U8& byte : bytes) byte = random.byte();
        return bytes;
    }
  }
  void change(U32 longest) {
    const U32 first = random.below(entries);
    const U32 count = 1 + random.below(std::min(longest, entries - first));
    switch (random.below(8)) {
      case 0:
        regionMask = mask();
        rewrites = static_cast<Rewrite>(random.below(3));
        return policy->maskIs(regionMask, rewrites);
      case 1:
      case 2: {
        const std::vector<U8> own = mask();
        for (U32 e = first; e < first + count; ++e) masks[e] = own;
        return policy->maskIs(first, count, own, Rewrite::zero);
      }
      default: {
        const Rule rule = static_cast<Rule>(random.below(6));
        for (U32 e = first; e < first + count; ++e) rules[e] = rule;
        return policy->ruleIs(first, count, rule);
      }
    }
  }
  const std::vector<U8>& maskOf(U32 entry) const {
    const std::vector<U8>& mask = masks[entry].empty() ? regionMask : masks[entry];
    return mask.empty() ? zeros : mask;
  }
  Rewrite rewriteOf(U32 entry) const {
    const std::vector<U8>& mask = maskOf(entry);
    if (mask == zeros) return Rewrite::kept;
    return masks[entry].empty() ? rewrites : Rewrite::zero;
  }
  bool differs(U32 entry, const ImagePair& images) const {
    if (!isCompared(rules[entry])) return false;
    const std::vector<U8>& mask = maskOf(entry);
    for (U32 i = 0; i < entrySize; ++i) {
      const std::size_t at = std::size_t{entry} * entrySize + i;
      if (((images.a[at] ^ images.b[at]) & ~mask[i]) != 0) return true;
    }
    return false;
  }
  void checkRuns() const {
    for (U32 e = 0; e < entries; ++e) {
      ASSERT_EQ(policy->rule(e), rules[e]);
      ASSERT_EQ(policy->rewrite(e), rewriteOf(e));
      const std::vector<U8>& mask = maskOf(e);
      const U8* seen = policy->mask(e);
      ASSERT_EQ(seen == nullptr, mask == zeros);
      ASSERT_TRUE(seen == nullptr || std::memcmp(seen, mask.data(), entrySize) == 0);
    }
  }
  void checkEnds(U32 entry) const {
    U32 end = entry + 1;
    while (end < entries && rules[end] == rules[entry]) ++end;
    ASSERT_EQ(policy->ruleEnd(entry, entries), end);
    end = entry + 1;
    const std::vector<U8>& mask = maskOf(entry);
    while (end < entries && maskOf(end) == mask && rewriteOf(end) == rewriteOf(entry)) ++end;
    ASSERT_EQ(policy->maskEnd(entry, entries), end);
  }
  void checkComparison() {
    const U32 end = random.between(1, entries);
    const U32 first = random.below(end);
    const std::size_t bytes = std::size_t{end} * entrySize;
    const ImagePair images(bytes);
    for (std::size_t i = 0; i < bytes; ++i) {
      images.a[i] = random.byte();
      // In most worlds only what may differ does.
      const std::vector<U8>& mask = masks[i / entrySize];
      const bool free = !isCompared(rules[i / entrySize]);
      images.b[i] = images.a[i];
      if (free) images.b[i] = random.byte();
      if (!mask.empty()) {
        images.b[i] = static_cast<U8>(images.b[i] ^ (random.byte() & mask[i % entrySize]));
      }
    }
    const U32 flips = random.below(4);
    for (U32 i = 0; i < flips; ++i) {
      images.b[random.below(static_cast<U32>(bytes))] ^= random.byte();
    }
    for (U32 from = first;;) {
      U32 expected = from;
      while (expected < end && !differs(expected, images)) ++expected;
      ASSERT_EQ(policy->differentEntry(images.a.get(), images.b.get(), from, end), expected)
          << "entries of " << entrySize << ", " << from << " to " << end;
      if (expected == end) break;
      from = expected + 1;
    }
    for (U32 e = first; e < std::min(end, first + 8); ++e) {
      const std::vector<U8>& mask = maskOf(e);
      const U8* a = images.a.get() + std::size_t{e} * entrySize;
      const U8* b = images.b.get() + std::size_t{e} * entrySize;
      std::vector<U8> out(entrySize), expected(entrySize);
      bool equal = true;
      for (U32 i = 0; i < entrySize; ++i) {
        equal = equal && ((a[i] ^ b[i]) & ~mask[i]) == 0;
        const U8 instead[] = {b[i], 0, a[i]};
        expected[i] = static_cast<U8>((a[i] & ~mask[i]) |
                                      (instead[static_cast<U32>(rewriteOf(e))] & mask[i]));
      }
      ASSERT_EQ(policy->equals(e, a, b), equal);
      policy->mergeForRewrite(e, a, b, out.data());
      ASSERT_EQ(out, expected);
    }
  }

  Support::Random& random;
  const U32 entries, entrySize;
  std::vector<Rule> rules;
  std::vector<std::vector<U8>> masks;
  const std::vector<U8> zeros;
  std::vector<U8> regionMask;
  Rewrite rewrites = Rewrite::kept;
  const Policy::Ptr policy = Driver::policyFactory(Hardware::chipMemoryFactory(
      "table", Hardware::ChipAddress(0), entries, entrySize, entrySize, nullptr));
};

void checkWorlds(U32 worlds, U32 entries, U32 changes, U32 longest) {
  const U32 sizes[] = {1, 2, 3, 4, 5, 8, 12, 16, 20, 24, 64, 100};
  for (U32 seed = 0; seed < worlds; ++seed) {
    SCOPED_TRACE(seed);
    Support::Random random(seed);
    PolicyModel model(random, entries, random.oneOf(sizes));
    for (U32 round = 0; round < 3 && !testing::Test::HasFatalFailure(); ++round) {
      for (U32 i = 0; i < changes; ++i) model.change(longest);
      model.checkRuns();
      for (U32 i = 0; i < 10; ++i) model.checkEnds(random.below(entries));
      for (U32 i = 0; i < 3; ++i) model.checkComparison();
    }
    ASSERT_FALSE(testing::Test::HasFatalFailure());
  }
}

TEST(PolicyComparison, ofFewLongRunsIsThatOfAnArray) { checkWorlds(60, 300, 4, 300); }
TEST(PolicyComparison, ofManyShortRunsIsThatOfAnArray) { checkWorlds(12, 2500, 1000, 3); }
TEST(PolicyComparison, ofRunsOfAllLengthsIsThatOfAnArray) { checkWorlds(12, 2500, 80, 400); }

// Regular patterns in all stretches, and an end within each of them.
TEST(PolicyComparison, ofEveryOtherEntryIsThatOfAnArray) {
  for (const U32 period : {2u, 3u, 4u, 16u, 100u}) {
    const U32 entries = 5000;
    const auto cm =
        Hardware::chipMemoryFactory("t", Hardware::ChipAddress(0), entries, 4, 4, nullptr);
    const Policy::Ptr policy = Driver::policyFactory(cm);
    for (U32 e = 0; e < entries; e += period) policy->ruleIs(e, 1, Rule::volatile_);
    std::vector<U8> a(4 * entries, 1), b(4 * entries, 1);
    for (U32 e = 0; e < entries; e += period) b[4 * e + 3] = 2;
    ASSERT_EQ(policy->differentEntry(a.data(), b.data(), 0, entries), entries);
    for (U32 e = 0; e < entries; ++e) {
      b[4 * e + 1] = 2;
      ASSERT_EQ(policy->differentEntry(a.data(), b.data(), e / 2, entries),
                e % period == 0 ? entries : e);
      ASSERT_EQ(policy->differentEntry(a.data(), b.data(), e / 2, e), e);
      b[4 * e + 1] = 1;
    }
  }
}

TEST(PolicyComparison, ofNothingFindsNothing) {
  const auto make = [](U32 entrySize) {
    return Driver::policyFactory(Hardware::chipMemoryFactory("t", Hardware::ChipAddress(0), 8,
                                                             entrySize, entrySize, nullptr));
  };
  EXPECT_EQ(make(4)->differentEntry(nullptr, nullptr, 3, 3), 3u);
  EXPECT_EQ(make(0)->differentEntry(nullptr, nullptr, 0, 8), 8u);
  const Policy::Ptr empty = make(0);
  empty->ruleIs(0, 4, Rule::detectOnly);
  EXPECT_EQ(empty->differentEntry(nullptr, nullptr, 0, 8), 8u);
}

// A policy with a run for each entry of a large region, and its images.
struct LargePolicy {
  LargePolicy() {
    for (U32 e = 0; e < entries; e += 2) policy->ruleIs(e, 1, Rule::volatile_);
  }
  U32 differentEntry(U32 first, U32 end) const {
    return policy->differentEntry(a.data(), b.data(), first, end);
  }

  static constexpr U32 entries = 1u << 18;
  const Policy::Ptr policy = Driver::policyFactory(
      Hardware::chipMemoryFactory("t", Hardware::ChipAddress(0), entries, 4, 4, nullptr));
  std::vector<U8> a = std::vector<U8>(4 * entries), b = a;
};

TEST(PolicyComparison, isPreparedForTheEntriesThatAreCompared) {
  const LargePolicy large;
  EXPECT_EQ(large.policy->entriesPrepared(), 0u);
  EXPECT_EQ(large.differentEntry(0, 1000), 1000u);
  EXPECT_EQ(large.policy->entriesPrepared(), 1024u);
  EXPECT_EQ(large.differentEntry(large.entries - 1000, large.entries), large.entries);
  EXPECT_LE(large.policy->entriesPrepared(), 3 * 1024u);
  EXPECT_EQ(large.differentEntry(0, 1024), 1024u);
  EXPECT_LE(large.policy->entriesPrepared(), 3 * 1024u);
  large.policy->ruleIs(1, 1, Rule::volatile_);
  EXPECT_EQ(large.policy->entriesPrepared(), 0u);
}

TEST(PolicyComparison, doPrepareGoesOneStep) {
  const LargePolicy large;
  EXPECT_EQ(large.policy->doPrepare(5000, 100000), 6144u - 1024);
  EXPECT_EQ(large.policy->doPrepare(5000, 5100), 5100u);
  EXPECT_EQ(large.policy->entriesPrepared(), 1024u);
  // Up to what is prepared, and over it.
  EXPECT_EQ(large.policy->doPrepare(3000, 100000), 3072u);
  EXPECT_EQ(large.policy->doPrepare(3072, 100000), 5120u);
  EXPECT_EQ(large.policy->entriesPrepared(), 3 * 1024u);
  EXPECT_EQ(large.policy->doPrepare(7, 7), 7u);
}

TEST(PolicyComparison, aLongRunIsPreparedAtOnce) {
  const LargePolicy large;
  large.policy->ruleIs(2000, 200000, Rule::detectOnly);
  EXPECT_EQ(large.policy->doPrepare(2048, large.entries), 201728u);
  EXPECT_EQ(large.policy->doPrepare(large.entries - 10, large.entries), large.entries);
}

// Whatever was prepared before, in which order.
TEST(PolicyComparison, ofPartsInAnyOrderFindsEachDifference) {
  for (U32 seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    Support::Random random(seed);
    LargePolicy large;
    large.policy->ruleIs(random.below(large.entries / 2), 50000, Rule::detectOnly);
    const U8 mask[] = {0xff, 0, 0, 0};
    large.policy->maskIs(random.below(large.entries / 2), 3000, mask, Rewrite::kept);
    for (U32 i = 0; i < 50; ++i) {
      const U32 first = random.below(large.entries);
      const U32 end = first + 1 + random.below(std::min(20000u, large.entries - first));
      const U32 different = random.between(first, end - 1);
      large.b[4 * different + 1] = 1;
      const bool isFound = isCompared(large.policy->rule(different));
      ASSERT_EQ(large.differentEntry(first, end), isFound ? different : end);
      large.b[4 * different + 1] = 0;
    }
  }
}

TEST(PolicyComparison, thePlainOneIsOverAllBits) {
  const auto cm = Hardware::chipMemoryFactory("t", Hardware::ChipAddress(0), 9, 3, 3, nullptr);
  const Policy::Ptr policy = Driver::policyFactory(cm);
  std::vector<U8> a(27), b(27);
  b[20] = 1;
  EXPECT_EQ(policy->differentEntry(a.data(), b.data(), 0, 9), 6u);
  EXPECT_EQ(policy->differentEntry(a.data(), b.data(), 7, 9), 9u);
}

}  // namespace
