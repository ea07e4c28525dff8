// The collections at sizes far beyond a chip's: a million members are found, walked and removed,
// in a time that grows with their number and not with its square.
#include <Zint/HashMap.h>
#include <Zint/RbTreeMap.h>

#include <gtest/gtest.h>

namespace {

using Zint::makePtr;

constexpr U32 memberCount = 1'000'000;
// Odd, so that every number below 2^32 comes once.
constexpr U32 scatter = 2654435761;

class NumberedMember : public Zint::PtrInterface, public Zint::HashMapLink<NumberedMember> {
 public:
  explicit NumberedMember(U32 key) : key_(key) { ++living; }
  const U32& fwkKey() const { return key_; }

  static inline U32 living = 0;

 protected:
  ~NumberedMember() override { --living; }

 private:
  U32 key_;
};

template <class Map>
struct MillionMembers : testing::Test {};

using Maps =
    testing::Types<Zint::HashMap<NumberedMember, U32>, Zint::RbTreeMap<NumberedMember, U32>>;
TYPED_TEST_SUITE(MillionMembers, Maps);

// One test, because filling the map is most of its time.
TYPED_TEST(MillionMembers, areAllFoundAndAreWalkedOnceEachWhileEverySecondIsRemoved) {
  TypeParam map;
  for (U32 i = 0; i < memberCount; ++i) map.insert(makePtr<NumberedMember>(i * scatter));
  EXPECT_EQ(map.size(), memberCount);
  for (U32 i = 0; i < memberCount; ++i) {
    const NumberedMember* member = map.find(i * scatter);
    ASSERT_NE(member, nullptr) << i;
    ASSERT_EQ(member->fwkKey(), i * scatter);
  }
  for (U32 i = memberCount; i < 2 * memberCount; i += 7) ASSERT_EQ(map.find(i * scatter), nullptr);

  U32 visited = 0;
  for (auto it = map.iterator(); it; ++it) {
    if (++visited % 2 == 0) {
      ASSERT_NE(map.del(it->fwkKey()), nullptr);
    }
  }
  EXPECT_EQ(visited, memberCount);
  EXPECT_EQ(map.size(), memberCount / 2);
  EXPECT_EQ(NumberedMember::living, memberCount / 2);
  U32 left = 0;
  for (auto it = map.iterator(); it; ++it) ++left;
  EXPECT_EQ(left, memberCount / 2);
  map.delAll();
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(NumberedMember::living, 0u);
}

}  // namespace
