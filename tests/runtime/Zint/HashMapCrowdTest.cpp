// Keys that crowd few buckets: multiples of large numbers, and many keys of one hash.
#include <Zint/HashMap.h>

#include <gmock/gmock.h>
#include <runtime/Heap.h>

#include <algorithm>
#include <bit>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>

namespace {

using Zint::HashMap;
using Zint::HashMapLink;
using Zint::makePtr;
using Zint::Ptr;

// Keys of equal `hash` differ by their `id`. Counts its comparisons.
struct CountedKey {
  U32 hash;  // reversed
  U32 id;

  static inline U64 comparisons = 0;

  friend bool operator==(const CountedKey& a, const CountedKey& b) {
    ++comparisons;
    return a.hash == b.hash && a.id == b.id;
  }
  friend bool operator<(const CountedKey& a, const CountedKey& b) {
    ++comparisons;
    return a.hash != b.hash ? a.hash < b.hash : a.id < b.id;
  }
};
U32 reversedHash(const CountedKey& key) { return key.hash; }

class Crowded : public Zint::PtrInterface, public HashMapLink<Crowded> {
 public:
  explicit Crowded(CountedKey key) : key_(key) { ++living; }
  const CountedKey& fwkKey() const { return key_; }

  static inline int living = 0;

 protected:
  ~Crowded() override { --living; }

 private:
  CountedKey key_;
};

using CrowdedMap = HashMap<Crowded, CountedKey>;
using Keys = std::vector<CountedKey>;
using Order = std::set<std::pair<U32, U32>>;

void insertAll(CrowdedMap& map, const Keys& keys) {
  for (const CountedKey& key : keys) map.insert(makePtr<Crowded>(key));
}

std::size_t longestChain(const CrowdedMap& map) {
  std::map<const Crowded*, std::size_t> lengths;  // of the chain that ends with a member
  std::size_t longest = 0;
  for (auto member = map.iterator(); member; ++member) {
    const std::size_t length = ++lengths[(*member).ptr()];
    longest = std::max(longest, length);
    if (const Crowded* next = member->fwkHmNext().ptr(); next != nullptr) lengths[next] = length;
  }
  return longest;
}

// What a map holds, in the order of a walk.
std::vector<std::pair<U32, U32>> walked(const CrowdedMap& map) {
  std::vector<std::pair<U32, U32>> walked;
  for (auto member = map.iterator(); member; ++member) {
    walked.emplace_back(member->fwkKey().hash, member->fwkKey().id);
  }
  return walked;
}

struct Kind {
  const char* name;
  U32 (*key)(U32 i, U32 random);  // the hash, not reversed
};

// Blocks at large distances, each with some registers; whole sets of keys with one odd key among
// them; keys that differ in ever more bits.
const Kind kinds[] = {
    {"multiplesOf4KiB", [](U32 i, U32) { return i << 12; }},
    {"multiplesOf64KiB", [](U32 i, U32) { return i % 65536 << 16; }},
    {"multiplesOf64KiBAndOneOther", [](U32 i, U32) { return i == 0 ? 4 : i % 65536 << 16; }},
    {"sixteenRegistersInBlocksOf64KiB",
     [](U32 i, U32) { return (i / 16) % 65536 << 16 | i % 16 * 4; }},
    {"coarseMultiplesBeforeFineOnes",
     [](U32 i, U32) {
       return i << (i < 16 ? 28 : i < 64 ? 24 : i < 512 ? 18 : 12);
     }},
    {"powersOfTwoAndWhatIsNear", [](U32 i, U32 random) { return 1u << (i % 32) ^ random % 64; }},
    {"multiplesOf8BeforeAll", [](U32 i, U32) { return i < 4096 ? i * 8 : i - 4096; }},
    {"random", [](U32, U32 random) { return random; }},
};

struct HashMapCrowd : testing::TestWithParam<Kind> {
  // Distinct keys in the order in which the kind gives them.
  static Keys keys(U32 count) {
    std::mt19937 random(3);
    std::set<U32> used;
    Keys keys;
    for (U32 i = 0; i < 4 * count && keys.size() < count; ++i) {
      const U32 hash = Zint::reversedBits(GetParam().key(i, static_cast<U32>(random())));
      if (used.insert(hash).second) keys.push_back({hash, 0});
    }
    return keys;
  }
};

TEST_P(HashMapCrowd, chainsStayShortAndAllAreFoundInOrder) {
  Keys all = keys(20'000);
  for (const unsigned seed : {0u, 5u}) {  // as they come, and shuffled
    std::mt19937 random(seed);
    if (seed != 0) std::shuffle(all.begin(), all.end(), random);
    CrowdedMap map;
    insertAll(map, all);
    EXPECT_LE(longestChain(map), 8u) << "seed " << seed;
    EXPECT_EQ(map.size(), all.size());
    Order order;
    for (const CountedKey& key : all) {
      ASSERT_NE(map.find(key), nullptr) << "seed " << seed;
      ASSERT_EQ(map.find({key.hash, 1}), nullptr) << "seed " << seed;
      order.emplace(key.hash, key.id);
    }
    EXPECT_TRUE(std::ranges::equal(walked(map), order)) << "seed " << seed;
  }
  EXPECT_EQ(Crowded::living, 0);
}

TEST_P(HashMapCrowd, removalInAnyOrderLeavesTheOthers) {
  Keys all = keys(3'000);
  std::mt19937 random(17);
  CrowdedMap map;
  insertAll(map, all);
  std::shuffle(all.begin(), all.end(), random);
  while (!all.empty()) {
    const Ptr<Crowded> removed = map.del(all.back());
    ASSERT_NE(removed, nullptr);
    ASSERT_EQ(removed->references(), 1u);
    ASSERT_EQ(removed->fwkHmNext(), nullptr);
    ASSERT_EQ(map.find(all.back()), nullptr);
    ASSERT_EQ(map.del(all.back()), nullptr);
    all.pop_back();
    if (all.size() % 250 != 0) continue;
    Order order;
    for (const CountedKey& key : all) order.emplace(key.hash, key.id);
    ASSERT_TRUE(std::ranges::equal(walked(map), order)) << all.size() << " left";
  }
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(Crowded::living, 0);
}

// Members come and go at random, also several of one hash, while walks are under way.
TEST_P(HashMapCrowd, walksVisitInOrderWhatStaysWhateverComesAndGoes) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    std::mt19937 random(seed);
    const Keys some = keys(600);
    CrowdedMap map;
    Order order;
    auto change = [&](U32 odds) {
      CountedKey key = some[random() % some.size()];
      if (random() % 2 == 0) key = {some[random() % 3].hash, static_cast<U32>(random() % 64)};
      const bool isHeld = order.contains({key.hash, key.id});
      ASSERT_EQ(map.find(key) != nullptr, isHeld) << "seed " << seed;
      if (isHeld && random() % 100 < odds) {
        map.del(key);
        order.erase({key.hash, key.id});
      } else if (!isHeld && random() % 100 >= odds) {
        map.insert(makePtr<Crowded>(key));
        order.emplace(key.hash, key.id);
      }
    };
    for (const U32 odds : {10u, 50u, 90u, 20u, 98u}) {  // grows, and shrinks almost to nothing
      for (int step = 0; step < 2000; ++step) ASSERT_NO_FATAL_FAILURE(change(odds));
      ASSERT_TRUE(std::ranges::equal(walked(map), order)) << "seed " << seed << " odds " << odds;
      // The walk is where the model says: at the first that was after its last member.
      auto member = map.iterator();
      std::optional<std::pair<U32, U32>> last;
      while (member) {
        const std::pair<U32, U32> at(member->fwkKey().hash, member->fwkKey().id);
        ASSERT_TRUE(!last || *last < at) << "seed " << seed;
        // Changes before the step: the place after is that of the step, unless its own member left.
        for (int i = 0; i < 3; ++i) ASSERT_NO_FATAL_FAILURE(change(odds));
        const bool hasLeft = member.hasLeft();
        const auto next = order.upper_bound(at);
        const bool isNextKnown = !hasLeft;
        ++member;
        last = at;
        if (!isNextKnown) continue;
        ASSERT_EQ(static_cast<bool>(member), next != order.end()) << "seed " << seed;
        if (member) {
          ASSERT_EQ(std::pair(member->fwkKey().hash, member->fwkKey().id), *next);
        }
      }
    }
    map.delAll();
    ASSERT_EQ(map.size(), 0u);
    ASSERT_EQ(Crowded::living, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, HashMapCrowd, testing::ValuesIn(kinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

// --- One hash ------------------------------------------------------------------------------------

struct HashMapOneHash : testing::TestWithParam<U32> {
  static Keys shuffledKeys(U32 count) {
    Keys keys;
    for (U32 id = 0; id < count; ++id) keys.push_back({0x12345678, id});
    std::mt19937 random(23);
    std::shuffle(keys.begin(), keys.end(), random);
    return keys;
  }
  // Comparisons of keys for each of them, in units of the logarithm of their number.
  template <class Use>
  static double comparisonsOf(const Keys& keys, Use use) {
    const U64 before = CountedKey::comparisons;
    for (const CountedKey& key : keys) use(key);
    const double each =
        static_cast<double>(CountedKey::comparisons - before) / static_cast<double>(keys.size());
    return each / static_cast<int>(std::bit_width(keys.size()));
  }
};

TEST_P(HashMapOneHash, comparesLogarithmicallyManyKeys) {
  const Keys keys = shuffledKeys(GetParam());
  CrowdedMap map;
  EXPECT_LE(comparisonsOf(keys, [&map](auto& key) { map.insert(makePtr<Crowded>(key)); }), 6);
  EXPECT_LE(comparisonsOf(keys, [&map](auto& key) { map.find(key); }), 3);
  EXPECT_LE(comparisonsOf(keys, [&map](auto& key) { map.find({key.hash, key.id + 10'000}); }), 3);
  EXPECT_LE(comparisonsOf(keys, [&map](auto& key) { map.del(key); }), 6);
  EXPECT_EQ(map.size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Sizes, HashMapOneHash, testing::Values(8u, 100u, 1000u, 8000u));

TEST(HashMapCrowding, otherHashesBesideMembersOfOneHashAreFoundInOrder) {
  CrowdedMap map;
  Order order;
  const auto insert = [&](U32 hash, U32 id) {
    map.insert(makePtr<Crowded>(CountedKey{hash, id}));
    order.emplace(hash, id);
  };
  for (U32 id = 0; id < 100; ++id) insert(0x12345678, id);
  // Hashes that differ in each bit, the last one first.
  for (U32 bit = 0; bit < 32; ++bit) {
    insert(0x12345678u ^ 1u << bit, 7);
    ASSERT_TRUE(std::ranges::equal(walked(map), order)) << bit;
  }
  for (U32 id = 0; id < 100; ++id) {
    ASSERT_NE(map.del({0x12345678, id}), nullptr);
    order.erase({0x12345678, id});
    ASSERT_TRUE(std::ranges::equal(walked(map), order)) << id;
  }
}

// --- No memory -----------------------------------------------------------------------------------

// Each insertion is tried with 0, 1, 2 ... blocks until it succeeds.
TEST_P(HashMapCrowd, insertThatRunsOutOfMemoryChangesNothing) {
  Keys all = keys(300);
  for (U32 id = 1; id < 30; ++id) all.push_back({all[7].hash, id});
  CrowdedMap map;
  Order order;
  U32 refusals = 0;
  for (const CountedKey& key : all) {
    const Ptr<Crowded> member = makePtr<Crowded>(key);
    for (U32 blocks = 0;; ++blocks) {
      Runtime::Heap::Limit limit(blocks);
      try {
        map.insert(member);
        break;
      } catch (const std::bad_alloc&) {
        limit.end();
        ++refusals;
        ASSERT_EQ(map.size(), order.size());
        ASSERT_EQ(member->references(), 1u);
        ASSERT_EQ(member->fwkHmNext(), nullptr);
        ASSERT_EQ(map.find(key), nullptr);
        ASSERT_TRUE(std::ranges::equal(walked(map), order));
      }
    }
    order.emplace(key.hash, key.id);
    ASSERT_EQ(map.find(key), member.ptr());
  }
  EXPECT_GE(refusals, 5u);
  EXPECT_TRUE(std::ranges::equal(walked(map), order));
}

TEST_P(HashMapCrowd, removalTakesNoMemory) {
  const Keys all = keys(2'000);
  CrowdedMap map;
  insertAll(map, all);
  Runtime::Heap::Limit limit(0);
  for (std::size_t i = 0; i < all.size() / 2; ++i) ASSERT_NE(map.del(all[i]), nullptr);
  map.delAll();
  limit.end();
  EXPECT_EQ(map.size(), 0u);
}

}  // namespace
