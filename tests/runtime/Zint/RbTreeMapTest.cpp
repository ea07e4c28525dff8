#include <Zint/RbTreeMap.h>

#include <gmock/gmock.h>
#include <runtime/Probes.h>

#include <memory>
#include <optional>
#include <random>
#include <set>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::Ptr;

class TreeMember : public Zint::PtrInterface {
 public:
  explicit TreeMember(U32 key) : key_(key) { ++living; }
  const U32& fwkKey() const { return key_; }

  static inline int living = 0;

 protected:
  ~TreeMember() override { --living; }

 private:
  U32 key_;
};

using TreeMap = Zint::RbTreeMap<TreeMember, U32>;

struct RbTreeMapTest : testing::Test {
  RbTreeMapTest() {
    for (U32 key : {30u, 10u, 50u, 20u, 40u}) map.insert(makePtr<TreeMember>(key));
  }
  static std::vector<U32> rest(TreeMap::Iterator it) {
    std::vector<U32> rest;
    for (; it; ++it) rest.push_back(it->fwkKey());
    return rest;
  }

  TreeMap map;
};

TEST_F(RbTreeMapTest, iteratesInAscendingOrder) {
  EXPECT_THAT(rest(map.iterator()), ElementsAre(10, 20, 30, 40, 50));
  EXPECT_THAT(rest(TreeMap().iterator()), IsEmpty());
}

TEST_F(RbTreeMapTest, findsAndDeletesByKey) {
  EXPECT_EQ(map.size(), 5u);
  TreeMember* member = map.find(20);
  ASSERT_NE(member, nullptr);
  EXPECT_EQ(member->fwkKey(), 20u);
  EXPECT_EQ(map.find(21), nullptr);
  EXPECT_EQ(map.del(20).ptr(), member);
  EXPECT_EQ(map.del(20), nullptr);
  EXPECT_EQ(map.size(), 4u);
}

TEST_F(RbTreeMapTest, holdsItsMembersUntilTheyAreDeleted) {
  EXPECT_EQ(TreeMember::living, 5);
  map.delAll();
  EXPECT_EQ(TreeMember::living, 0);
  EXPECT_EQ(map.size(), 0u);
}

TEST_F(RbTreeMapTest, insertingASecondMemberOfAKeyFailsAnAssertion) {
  EXPECT_DEATH(
      map.insert(makePtr<TreeMember>(20u)),
      Support::Assertion("Zint/RbTreeMap", 0,
                         "void Zint::RbTreeMap<V, K>::insert(const Zint::Ptr<T>&)", "isNew"));
}

TEST_F(RbTreeMapTest, anIteratorSurvivesTheRemovalOfOthers) {
  auto it = map.iterator();
  ++it;
  map.del(10);
  map.del(30);
  EXPECT_EQ(it->fwkKey(), 20u);
  EXPECT_THAT(rest(it), ElementsAre(20, 40, 50));
}

TEST_F(RbTreeMapTest, anIteratorSurvivesTheRemovalOfItsMember) {
  auto it = map.iterator();
  ++it;
  map.del(20);
  EXPECT_EQ(it->fwkKey(), 20u) << "held until the next step";
  map.del(30);
  EXPECT_EQ(it->fwkKey(), 20u) << "not the one behind it";
  EXPECT_EQ(TreeMember::living, 4);
  ++it;
  EXPECT_EQ(TreeMember::living, 3);
  EXPECT_THAT(rest(it), ElementsAre(40, 50));
}

TEST_F(RbTreeMapTest, aCopyOfAnIteratorStandsWhereTheOriginalStood) {
  auto it = map.iterator();
  auto assigned = map.iterator();
  ++it;
  map.del(20);
  assigned = it;
  const auto copied = it;
  EXPECT_EQ(assigned->fwkKey(), 20u);
  EXPECT_THAT(rest(assigned), ElementsAre(20, 30, 40, 50)) << "as the original";
  EXPECT_THAT(rest(copied), ElementsAre(20, 30, 40, 50));
  EXPECT_THAT(rest(it), ElementsAre(20, 30, 40, 50));
}

TEST_F(RbTreeMapTest, anAssignedIteratorStandsInTheMapOfTheOther) {
  TreeMap other;
  for (U32 key : {1u, 2u, 3u}) other.insert(makePtr<TreeMember>(key));
  auto it = map.iterator();
  it = other.iterator();
  map.del(10);
  other.del(1);
  EXPECT_THAT(rest(it), ElementsAre(1, 2, 3)) << "held, and moved on";
}

TEST_F(RbTreeMapTest, anAssignedIteratorMayEndBeforeTheOneItCameFrom) {
  std::optional<TreeMap::Iterator> brief = map.iterator();
  auto it = map.iterator();
  *brief = it;
  brief.reset();
  map.del(10);
  EXPECT_THAT(rest(it), ElementsAre(10, 20, 30, 40, 50));
}

TEST_F(RbTreeMapTest, anIteratorEndsWhenAllHaveGone) {
  auto it = map.iterator();
  map.delAll();
  ASSERT_TRUE(it);
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(RbTreeMapTest, anIteratorSeesWhatIsInsertedAheadOfIt) {
  auto it = map.iterator();
  ++it;
  map.insert(makePtr<TreeMember>(25u));
  map.insert(makePtr<TreeMember>(5u));
  EXPECT_THAT(rest(it), ElementsAre(20, 25, 30, 40, 50));
}

TEST_F(RbTreeMapTest, anIteratorSurvivesTheEndOfTheMap) {
  auto brief = std::make_unique<TreeMap>();
  brief->insert(makePtr<TreeMember>(1u));
  brief->insert(makePtr<TreeMember>(2u));
  auto it = brief->iterator();
  brief = nullptr;
  EXPECT_EQ(it->fwkKey(), 1u);
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(RbTreeMapTest, aMemberMayDeleteAnotherAtItsEnd) {
  class Chained : public Zint::PtrInterface {
   public:
    Chained(Zint::RbTreeMap<Chained, U32>& map, U32 key) : map_(map), key_(key) {}
    const U32& fwkKey() const { return key_; }

   protected:
    ~Chained() override { map_.del(key_ + 1); }

   private:
    Zint::RbTreeMap<Chained, U32>& map_;
    U32 key_;
  };
  Zint::RbTreeMap<Chained, U32> chained;
  for (U32 key = 0; key < 10; ++key) chained.insert(makePtr<Chained>(chained, key));
  auto it = chained.iterator();
  chained.delAll();
  EXPECT_EQ(chained.size(), 0u);
  ++it;
  EXPECT_FALSE(it);
}

// Walks while members come and go at random, against a standard set.
TEST_F(RbTreeMapTest, visitsWhatLiesAheadWhateverComesAndGoes) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    std::mt19937 random(seed);
    TreeMap walked;
    std::set<U32> model;
    for (int i = 0; i < 60; ++i) model.insert(static_cast<U32>(random() % 1000));
    for (U32 key : model) walked.insert(makePtr<TreeMember>(key));
    auto expected = model.begin();
    U32 last = 0;
    for (auto it = walked.iterator(); it; ++it) {
      ASSERT_NE(expected, model.end()) << "seed " << seed;
      ASSERT_EQ(it->fwkKey(), *expected) << "seed " << seed;
      last = *expected;
      for (int changes = static_cast<int>(random() % 4); changes > 0; --changes) {
        const U32 key = static_cast<U32>(random() % 1000);
        const auto victim = model.lower_bound(key);
        if (random() % 3 == 0) {
          // Only at the end, behind a member still ahead: an iterator whose member has left stands
          // on the next one already and would not see what comes between.
          if (model.empty() || *model.rbegin() <= last || key <= *model.rbegin()) continue;
          model.insert(key);
          walked.insert(makePtr<TreeMember>(key));
        } else if (victim != model.end()) {
          walked.del(*victim);
          model.erase(victim);
        }
      }
      expected = model.upper_bound(last);
    }
    ASSERT_EQ(expected, model.end()) << "seed " << seed;
  }
}

TEST(RbTreeMap, insertingNullIsRefusedAndNothingChanges) {
  TreeMap map;
  map.insert(makePtr<TreeMember>(1u));
  EXPECT_EQ(Probes::rangeMessage([&] { map.insert(nullptr); }),
            "null _member parameter to mutator for Zint::RbTreeMap::insert not allowed\"");
  EXPECT_EQ(map.size(), 1u);
}

}  // namespace
