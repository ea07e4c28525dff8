#include <Zint/HashMap.h>

#include <gmock/gmock.h>
#include <pthread.h>
#include <runtime/Probes.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <set>

namespace {

using testing::ElementsAre;
using Zint::HashMap;
using Zint::HashMapLink;
using Zint::makePtr;
using Zint::Ptr;

// A key that gives its own place: keys of equal `place` differ by their `id`.
struct Placed {
  U32 place;
  U32 id;
  friend auto operator<=>(const Placed&, const Placed&) = default;
};
U32 reversedHash(const Placed& key) { return key.place; }

template <class K>
class HashedMember : public Zint::PtrInterface, public HashMapLink<HashedMember<K>> {
 public:
  explicit HashedMember(K key) : key_(std::move(key)) { ++living; }
  const K& fwkKey() const { return key_; }

  static inline int living = 0;

 protected:
  ~HashedMember() override { --living; }

 private:
  K key_;
};

Support::Assertion assertionOfInsert(const char* condition) {
  return {"Zint/HashMap", 0, "void Zint::HashMap<V, K>::insert(const Zint::Ptr<T>&)", condition};
}

template <class K>
using HashedMap = HashMap<HashedMember<K>, K>;

template <class K>
Ptr<HashedMember<K>> insert(HashedMap<K>& map, K key) {
  Ptr<HashedMember<K>> member = makePtr<HashedMember<K>>(std::move(key));
  map.insert(member);
  return member;
}

template <class K>
std::vector<K> keys(const HashedMap<K>& map) {
  std::vector<K> keys;
  for (auto it = map.iterator(); it; ++it) keys.push_back(it->fwkKey());
  return keys;
}

std::vector<U32> ids(const HashedMap<Placed>& map) {
  std::vector<U32> ids;
  for (const Placed& key : keys(map)) ids.push_back(key.id);
  return ids;
}

TEST(HashMap, findsWhatWasInsertedUntilItIsDeleted) {
  HashedMap<U32> map;
  EXPECT_EQ(map.find(7), nullptr);
  const auto member = insert(map, 7u);
  EXPECT_EQ(map.find(7), member.ptr());
  EXPECT_EQ(map.find(8), nullptr);
  EXPECT_EQ(member->references(), 2u);
  EXPECT_EQ(map.del(7), member);
  EXPECT_EQ(map.del(7), nullptr);
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(member->references(), 1u);
}

TEST(HashMap, holdsItsMembersAlive) {
  {
    HashedMap<U32> map;
    insert(map, 1u);
    insert(map, 2u);
    EXPECT_EQ(HashedMember<U32>::living, 2);
    map.delAll();
    EXPECT_EQ(map.size(), 0u);
    EXPECT_EQ(HashedMember<U32>::living, 0);
    insert(map, 3u);
  }
  EXPECT_EQ(HashedMember<U32>::living, 0);
}

TEST(HashMap, aDeletedMemberMayEnterAgain) {
  HashedMap<U32> first;
  HashedMap<U32> second;
  const auto member = insert(first, 7u);
  first.del(7);
  second.insert(member);
  EXPECT_EQ(second.find(7), member.ptr());
}

TEST(HashMap, iteratesInTheOrderOfTheReversedHash) {
  HashedMap<U32> map;
  for (U32 key : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0x80000000u}) insert(map, key);
  EXPECT_THAT(keys(map), ElementsAre(0, 0x80000000u, 4, 2, 6, 1, 5, 3, 7));
}

TEST(HashMap, anIteratorLooksAheadWithoutMoving) {
  HashedMap<U32> map;
  for (U32 key : {0u, 1u, 2u, 3u}) insert(map, key);
  auto it = map.iterator();
  EXPECT_EQ(it.ahead(0), map.find(0));
  EXPECT_EQ(it.ahead(1), map.find(2));
  EXPECT_EQ(it.ahead(3), map.find(3));
  EXPECT_EQ(it.ahead(4), nullptr);
  EXPECT_EQ(it->fwkKey(), 0u);
  map.del(2);
  EXPECT_EQ(it.ahead(1), map.find(1));
  map.del(0);
  EXPECT_EQ(it.ahead(1), nullptr);
  ++it;
  EXPECT_EQ(it->fwkKey(), 1u);
  EXPECT_EQ(it.ahead(1), map.find(3));
}

TEST(HashMap, anIteratorOfADestroyedMapSeesNothingAhead) {
  auto map = std::make_unique<HashedMap<U32>>();
  insert(*map, 1u);
  insert(*map, 2u);
  auto it = map->iterator();
  map.reset();
  EXPECT_EQ(it.ahead(1), nullptr);
}

TEST(HashMap, aStringIsPlacedByItsStringHashReversed) {
  HashedMap<Zint::String8> map;
  std::vector<Zint::String8> expected = {"mac", "vlan", "route", "acl", "", "counters"};
  for (const Zint::String8& name : expected) insert(map, name);
  std::sort(expected.begin(), expected.end(), [](const auto& left, const auto& right) {
    return Zint::reversedBits(left.hash()) < Zint::reversedBits(right.hash());
  });
  EXPECT_EQ(keys(map), expected);
  EXPECT_NE(map.find("route"), nullptr);
}

TEST(HashMap, equalHashesAreInTheOrderOfTheirKeys) {
  HashedMap<Placed> map;
  for (U32 id : {5u, 3u, 9u}) insert(map, Placed{100, id});
  insert(map, Placed{99, 1});
  insert(map, Placed{101, 2});
  EXPECT_THAT(ids(map), ElementsAre(1, 3, 5, 9, 2));
  map.del({100, 3});
  insert(map, Placed{100, 4});
  EXPECT_THAT(ids(map), ElementsAre(1, 4, 5, 9, 2));
  for (const U32 absent : {0u, 3u, 6u, 10u}) EXPECT_EQ(map.find({100, absent}), nullptr) << absent;
}

// Chains of one hash each, some of them in one bucket, changed at every place.
TEST(HashMap, aCrowdOfEqualHashesIsKeptInOrder) {
  constexpr unsigned seed = 11;
  std::mt19937 random(seed);
  HashedMap<Placed> map;
  std::set<std::pair<U32, U32>> expected;
  for (int step = 0; step < 20'000; ++step) {
    const Placed key{static_cast<U32>(random() % 3) << 29 | static_cast<U32>(random() % 2),
                     static_cast<U32>(random() % 40)};
    const bool present = expected.erase({key.place, key.id}) != 0;
    ASSERT_EQ(map.find(key) != nullptr, present) << "seed " << seed << " step " << step;
    if (present) {
      map.del(key);
    } else {
      insert(map, key);
      expected.emplace(key.place, key.id);
    }
    if (step % 50 != 0) continue;
    std::vector<std::pair<U32, U32>> members;
    for (auto t = map.iterator(); t; ++t) members.emplace_back(t->fwkKey().place, t->fwkKey().id);
    ASSERT_TRUE(std::ranges::equal(members, expected)) << "seed " << seed << " step " << step;
  }
}

TEST(HashMap, theOrderDoesNotDependOnTheNumberOfBuckets) {
  constexpr unsigned seed = 7;
  std::mt19937 random(seed);
  std::set<U32> some;
  while (some.size() < 500) some.insert(static_cast<U32>(random()));
  HashedMap<U32> small;
  HashedMap<U32> large;
  for (U32 i = 0; i < 20'000; ++i) insert(large, i * 2654435761u);  // grows the buckets
  large.delAll();
  std::vector<U32> shuffled(some.begin(), some.end());
  for (U32 key : shuffled) insert(large, key);
  std::shuffle(shuffled.begin(), shuffled.end(), random);
  for (U32 key : shuffled) insert(small, key);
  EXPECT_EQ(keys(small), keys(large)) << "seed " << seed;
  EXPECT_TRUE(std::ranges::is_sorted(keys(small), {}, Zint::reversedBits));
}

TEST(HashMap, everyMemberIsFoundAtEverySizeOfGrowth) {
  HashedMap<U32> map;
  for (U32 count = 0; count < 3000; ++count) {
    insert(map, count << 20);
    ASSERT_NE(map.find((count / 2) << 20), nullptr);
    ASSERT_EQ(map.find(1), nullptr);
  }
  const auto all = keys(map);
  EXPECT_EQ(all.size(), 3000u);
  EXPECT_TRUE(std::ranges::is_sorted(all, {}, Zint::reversedBits));
}

TEST(HashMap, insertingAMemberWhoseLinkIsSetFailsTheAssertion) {
  HashedMap<Placed> map;
  const auto first = insert(map, Placed{1, 1});
  insert(map, Placed{1, 2});
  ASSERT_NE(first->fwkHmNext(), nullptr);
  EXPECT_DEATH(map.insert(first), assertionOfInsert("t->fwkHmNext() == 0"));
  HashedMap<Placed> other;
  EXPECT_DEATH(other.insert(first), assertionOfInsert("t->fwkHmNext() == 0"));
}

TEST(HashMap, insertingTheLastMemberOfAChainASecondTimeFailsAnAssertion) {
  HashedMap<U32> map;
  const auto only = insert(map, 1u);
  ASSERT_EQ(only->fwkHmNext(), nullptr);
  EXPECT_DEATH(map.insert(only), assertionOfInsert("link(*t).fwkHmMap_ == nullptr"));
}

TEST(HashMap, insertingASecondMemberOfAKeyFailsAnAssertion) {
  HashedMap<U32> map;
  insert(map, 1u);
  EXPECT_DEATH(insert(map, 1u), assertionOfInsert("!place.holdsKey"));
}

// A member must not lose the key under which it was inserted: among many of one hash it is not
// found again.
TEST(HashMapDeathTest, delAllOfAMemberWhoseKeyHasChanged) {
  struct Fickle : Zint::PtrInterface, HashMapLink<Fickle> {
    explicit Fickle(U32 id) : key{1, id} {}
    Placed fwkKey() const { return key; }
    Placed key;
  };
  HashMap<Fickle, Placed> map;
  const Ptr<Fickle> first = makePtr<Fickle>(0u);
  map.insert(first);
  for (U32 id = 1; id < 1000; ++id) map.insert(makePtr<Fickle>(id));
  first->key.id = 5000;
  EXPECT_DEATH(
      map.delAll(),
      (Support::Assertion{"Zint/HashMap", 0, "void Zint::HashMap<V, K>::delAll()", "keyIsKept"}));
  first->key.id = 0;
}

// Enters its map anew, under other keys, when it is destroyed.
class Returning : public Zint::PtrInterface, public HashMapLink<Returning> {
 public:
  Returning(HashMap<Returning, U32>& map, U32 key) : map_(map), key_(key) {}
  const U32& fwkKey() const { return key_; }

 protected:
  ~Returning() override {
    if (key_ < 1000) map_.insert(makePtr<Returning>(map_, key_ + 1000));
  }

 private:
  HashMap<Returning, U32>& map_;
  U32 key_;
};

TEST(HashMap, delAll_allowsMembersToInsertOthersInTheirDestructors) {
  HashMap<Returning, U32> map;
  for (U32 key = 0; key < 100; ++key) map.insert(makePtr<Returning>(map, key));
  map.delAll();
  map.delAll();
  EXPECT_EQ(map.size(), 0u);
}

struct HashMapIterator : testing::Test {
  HashMapIterator() {
    for (U32 id = 0; id < 5; ++id) insert(map, Placed{id << 28, id});
  }
  void del(U32 id) { map.del({id << 28, id}); }
  std::vector<U32> rest(HashedMap<Placed>::Iterator it) {
    std::vector<U32> rest;
    for (; it; ++it) rest.push_back(it->fwkKey().id);
    return rest;
  }

  HashedMap<Placed> map;
};

TEST_F(HashMapIterator, survivesTheRemovalOfItsMember) {
  auto it = map.iterator();
  ++it;
  del(1);
  EXPECT_EQ(it->fwkKey().id, 1u) << "held until the next step";
  EXPECT_THAT(rest(it), ElementsAre(1, 2, 3, 4));
}

TEST_F(HashMapIterator, survivesTheRemovalOfItsMemberAndThoseAfterIt) {
  auto it = map.iterator();
  del(0);
  del(1);
  del(2);
  EXPECT_EQ(it->fwkKey().id, 0u) << "not one of those after it";
  ++it;
  EXPECT_THAT(rest(it), ElementsAre(3, 4));
}

TEST_F(HashMapIterator, aCopyIsWhereTheOriginalWas) {
  auto it = map.iterator();
  auto assigned = map.iterator();
  ++it;
  ++it;
  del(2);
  assigned = it;
  const auto copied = it;
  del(3);
  EXPECT_EQ(assigned->fwkKey().id, 2u);
  EXPECT_THAT(rest(assigned), ElementsAre(2, 4)) << "as the original";
  EXPECT_THAT(rest(copied), ElementsAre(2, 4));
  EXPECT_THAT(rest(it), ElementsAre(2, 4));
}

TEST_F(HashMapIterator, survivesTheRemovalOfOthers) {
  auto it = map.iterator();
  ++it;
  del(0);
  del(2);
  EXPECT_THAT(rest(it), ElementsAre(1, 3, 4));
}

TEST_F(HashMapIterator, endsWhenAllAreRemoved) {
  auto it = map.iterator();
  map.delAll();
  ASSERT_TRUE(it);
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(HashMapIterator, survivesTheGrowthOfTheMap) {
  auto it = map.iterator();
  ++it;
  for (U32 id = 1000; id < 3000; ++id) insert(map, Placed{0xf0000000u + id, id});
  ++it;
  EXPECT_EQ(it->fwkKey().id, 2u);
}

TEST_F(HashMapIterator, survivesTheDestructionOfTheMap) {
  auto brief = std::make_unique<HashedMap<U32>>();
  insert(*brief, 1u);
  insert(*brief, 2u);
  auto it = brief->iterator();
  auto copy = it;
  brief = nullptr;
  EXPECT_EQ(it->fwkKey(), 2u);
  ++it;
  EXPECT_FALSE(it);
  copy = it;
  EXPECT_FALSE(copy);
}

TEST_F(HashMapIterator, copiesWalkOnTheirOwn) {
  auto first = map.iterator();
  ++first;
  auto second = first;
  ++second;
  del(1);
  del(2);
  EXPECT_THAT(rest(second), ElementsAre(2, 3, 4));
  second = first;
  EXPECT_THAT(rest(second), ElementsAre(1, 3, 4));
}

TEST_F(HashMapIterator, oneAssignedToItselfStaysWhereItIs) {
  auto it = map.iterator();
  ++it;
  const auto& same = it;
  it = same;
  del(2);
  EXPECT_THAT(rest(it), ElementsAre(1, 3, 4));
}

TEST_F(HashMapIterator, oneThatWasAssignedNoLongerFollowsItsOldMember) {
  auto first = map.iterator();
  auto second = map.iterator();
  ++second;
  second = first;
  del(0);
  EXPECT_THAT(rest(second), ElementsAre(0, 1, 2, 3, 4));
  EXPECT_THAT(rest(first), ElementsAre(0, 1, 2, 3, 4));
}

// Walks while members are removed at random: each one that is still there when its turn comes is
// visited once, in order.
TEST_F(HashMapIterator, visitsEveryRemainingMemberOnceWhateverIsRemoved) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    std::mt19937 random(seed);
    HashedMap<Placed> walked;
    std::vector<Placed> model;
    for (U32 id = 0; id < 60; ++id) model.push_back({static_cast<U32>(random() % 40) << 26, id});
    for (const Placed& key : model) insert(walked, key);
    std::ranges::stable_sort(model, {}, &Placed::place);
    std::size_t at = 0;
    for (auto it = walked.iterator(); it; ++it) {
      ASSERT_LT(at, model.size()) << "seed " << seed;
      ASSERT_EQ(it->fwkKey(), model[at]) << "seed " << seed;
      ++at;
      for (int removals = static_cast<int>(random() % 4); removals > 0; --removals) {
        if (model.empty()) break;
        const std::size_t victim = random() % model.size();
        walked.del(model[victim]);
        model.erase(model.begin() + static_cast<std::ptrdiff_t>(victim));
        if (victim < at) --at;
      }
    }
    ASSERT_EQ(at, model.size()) << "seed " << seed;
  }
}

// Runs a function in its destructor.
class Ending : public Zint::PtrInterface, public HashMapLink<Ending> {
 public:
  Ending(U32 id, std::function<void()> inDestructor)
      : key_{id << 28, id}, inDestructor_(std::move(inDestructor)) {}
  const Placed& fwkKey() const { return key_; }

 protected:
  ~Ending() override {
    if (inDestructor_) inDestructor_();
  }

 private:
  Placed key_;
  std::function<void()> inDestructor_;
};

// At the first of five members, which has left and is destroyed by the next step.
struct HashMapStep : testing::Test {
  using EndingMap = HashMap<Ending, Placed>;

  HashMapStep() {
    insert(0, [this] { inFirstDestructor(); });
    insert(1, [this] { inSecondDestructor(); });
    for (U32 id = 2; id < 5; ++id) insert(id, nullptr);
  }
  void insert(U32 id, std::function<void()> inDestructor) {
    map->insert(makePtr<Ending>(id, std::move(inDestructor)));
  }
  void del(U32 id) { map->del({id << 28, id}); }
  std::vector<U32> walked() {
    std::vector<U32> walked;
    for (auto it = map->iterator(); it; ++it) {
      walked.push_back(it->fwkKey().id);
      if (walked.size() == 1) del(0);
    }
    return walked;
  }

  std::function<void()> inFirstDestructor = [] {}, inSecondDestructor = [] {};
  std::unique_ptr<EndingMap> map = std::make_unique<EndingMap>();
};

TEST_F(HashMapStep, survivesTheRemovalOfTheNextMemberByTheDestructorOfTheLast) {
  inFirstDestructor = [&] { del(1); };
  EXPECT_THAT(walked(), ElementsAre(0, 1, 2, 3, 4)) << "the next is held until the step after";
  EXPECT_EQ(map->size(), 3u);
}

TEST_F(HashMapStep, survivesTheRemovalOfSeveralMembersByTheDestructorOfTheLast) {
  inFirstDestructor = [&] {
    for (const U32 id : {2u, 1u, 4u}) del(id);
  };
  EXPECT_THAT(walked(), ElementsAre(0, 1, 3));
  EXPECT_EQ(map->size(), 1u);
}

TEST_F(HashMapStep, survivesDestructorsThatCallOneAnother) {
  inFirstDestructor = [&] { del(1); };
  inSecondDestructor = [&] {
    del(2);
    del(3);
  };
  EXPECT_THAT(walked(), ElementsAre(0, 1, 2, 4));
  EXPECT_EQ(map->size(), 1u);
}

TEST_F(HashMapStep, endsWhenTheDestructorOfTheLastMemberDestroysTheMap) {
  inFirstDestructor = [&] { map = nullptr; };
  EXPECT_THAT(walked(), ElementsAre(0, 1)) << "the next is held until the step after";
  EXPECT_EQ(map, nullptr);
}

// Runs `body` on a thread with a stack of 128 KiB.
template <class Body>
void onSmallStack(Body body) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 * 1024), 0);
  pthread_t thread;
  const auto start = [](void* argument) -> void* {
    (*static_cast<Body*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, start, &body), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

// All are of one hash, and so of one chain.
TEST(HashMap, aMillionMembersAreDestroyedWithoutRecursion) {
  constexpr U32 members = 1'000'000;
  auto map = std::make_unique<HashedMap<Placed>>();
  for (U32 id = members; id-- > 0;) insert(*map, Placed{5, id});
  ASSERT_EQ(map->size(), members);
  std::size_t chain = 0;
  for (const HashedMember<Placed>* m = map->find({5, 0}); m != nullptr; m = m->fwkHmNext().ptr()) {
    ++chain;
  }
  ASSERT_EQ(chain, members);
  onSmallStack([&] { map = nullptr; });
  EXPECT_EQ(HashedMember<Placed>::living, 0);
}

TEST(HashMap, insertingNullIsRefusedAndNothingChanges) {
  HashedMap<U32> map;
  insert(map, 1u);
  EXPECT_EQ(Probes::rangeMessage([&] { map.insert(nullptr); }),
            "null _t parameter to mutator for Zint::HashMap::insert not allowed\"");
  EXPECT_EQ(map.size(), 1u);
}

}  // namespace
