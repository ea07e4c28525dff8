#include <Zint/DynArray.h>

#include <runtime/Heap.h>
#include <runtime/Probes.h>

#include <memory>

namespace {

using Runtime::Heap::watched;
using Zint::DynArray;
using Zint::makePtr;
using Zint::Ptr;

TEST(DynArray, readOutsideYieldsTheDefault) {
  DynArray<U32, U16> numbers;
  EXPECT_EQ(numbers.at(0), 0u);
  EXPECT_EQ(numbers.at(65535), 0u);
  numbers.atIs(0, 7);
  EXPECT_EQ(numbers.at(1), 0u);
  const DynArray<Ptr<Probes::Life>, U16> pointers;
  EXPECT_EQ(pointers.at(3), nullptr);
  EXPECT_EQ(numbers.size(), 1u) << "a read grows nothing";
}

TEST(DynArray, writeBeyondTheEndGrowsIt) {
  DynArray<U32, U16> array;
  array.atIs(5, 55);
  EXPECT_EQ(array.size(), 6u);
  EXPECT_EQ(array.at(4), 0u);
  EXPECT_EQ(array.at(5), 55u);
  array.atIs(5, 56);
  EXPECT_EQ(array.size(), 6u);
  EXPECT_EQ(array.at(5), 56u);
}

TEST(DynArray, theHighestIndexOf16BitsFits) {
  DynArray<U32, U16> array;
  array.atIs(65535, 9);
  EXPECT_EQ(array.size(), 65536u);
  EXPECT_EQ(array.at(65535), 9u);
}

TEST(DynArray, growthKeepsWhatIsStored) {
  DynArray<U32, U32> array;
  for (U32 i = 0; i < 1000; ++i) array.atIs(i, i * i);
  for (U32 i = 0; i < 1000; ++i) ASSERT_EQ(array.at(i), i * i);
  EXPECT_EQ(array.data()[31], 31u * 31u);
}

TEST(DynArray, del_setsTheDefaultAndTakesTheLastElementOff) {
  DynArray<U32, U16> array;
  for (U16 i = 0; i < 3; ++i) array.atIs(i, i + 10u);
  array.del(1);
  EXPECT_EQ(array.size(), 3u);
  EXPECT_EQ(array.at(1), 0u);
  EXPECT_EQ(array.at(2), 12u);
  array.del(2);
  EXPECT_EQ(array.size(), 2u);
  array.del(2);
  EXPECT_EQ(array.size(), 2u) << "outside: nothing to take off";
  EXPECT_EQ(array.at(0), 10u);
}

TEST(DynArray, delAll_leavesNothing) {
  DynArray<U32, U16> array;
  array.atIs(3, 1);
  array.delAll();
  EXPECT_EQ(array.size(), 0u);
  EXPECT_EQ(array.at(3), 0u);
}

TEST(DynArray, releasesTheReferencesItHeld) {
  bool alive = false;
  DynArray<Ptr<Probes::Life>, U16> array;
  array.atIs(2, makePtr<Probes::Life>(alive));
  EXPECT_TRUE(alive);
  array.del(2);
  EXPECT_FALSE(alive);
  array.atIs(0, makePtr<Probes::Life>(alive));
  array.delAll();
  EXPECT_FALSE(alive);
}

TEST(DynArray, growthTo2147483647EntriesFailsTheAssertion) {
  DynArray<U8, U32> array;
  const Support::Assertion expected(
      "Zint/DynArray", 0, "void Zint::DynArray<V, I>::atIs(I, const V&)", "newEntries<2147483647");
  EXPECT_DEATH(array.atIs(2147483646u, 1), expected);
  EXPECT_DEATH(array.atIs(0xffffffffu, 1), expected);
  EXPECT_EQ(array.at(0xffffffffu), 0) << "a read is no growth";
}

// Makes `array` hold numbers other than 0 and watches its block from then on.
void filledAndWatched(DynArray<U32, U32>& array) {
  for (U32 i = 0; i < 100; ++i) array.atIs(i, 0xa5a5a5a5);
  watched = {array.data(), array.size() * sizeof(U32), false, false};
}

TEST(DynArray, theStorageIsZeroBeforeItIsFreed) {
  auto array = std::make_unique<DynArray<U32, U32>>();
  filledAndWatched(*array);
  array = nullptr;
  ASSERT_TRUE(watched.released);
  EXPECT_TRUE(watched.wasZero);
}

TEST(DynArray, theStorageIsZeroBeforeItIsFreedAlsoAfterDelAll) {
  auto array = std::make_unique<DynArray<U32, U32>>();
  filledAndWatched(*array);
  array->delAll();
  array = nullptr;
  ASSERT_TRUE(watched.released);
  EXPECT_TRUE(watched.wasZero);
}

TEST(DynArray, theStorageIsZeroBeforeGrowthFreesIt) {
  DynArray<U32, U32> array;
  filledAndWatched(array);
  array.atIs(100'000, 1);
  ASSERT_TRUE(watched.released);
  EXPECT_TRUE(watched.wasZero);
}

TEST(DynArray, atIs_takesAValueFromTheArrayItself) {
  DynArray<std::string, U32> array;
  const std::string text(100, 'x');
  array.atIs(0, text);
  for (U32 i = 1; i < 100; ++i) array.atIs(i, array.data()[i - 1]);
  EXPECT_EQ(array.at(99), text);
  EXPECT_EQ(array.at(0), text);
}

}  // namespace
