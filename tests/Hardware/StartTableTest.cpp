// The table finds what a search over the whole array finds, whatever the distances.
#include <Hardware/StartTable.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace Hardware {
namespace {

U32 expectedPlace(const std::vector<U32>& numbers, U32 sought) {
  const auto above = std::upper_bound(numbers.begin(), numbers.end(), sought);
  return above == numbers.begin() ? 0 : static_cast<U32>(above - numbers.begin()) - 1;
}

// Compares the answers around each number, in the middle of each gap, and at both ends.
void expectRightAnswers(const std::vector<U32>& numbers) {
  const U32 count = static_cast<U32>(numbers.size());
  StartTable none, starts;
  starts.build(numbers.data(), count);
  const auto check = [&](U32 sought) {
    const U32 expected = expectedPlace(numbers, sought);
    ASSERT_EQ(starts.lastNotAbove(numbers.data(), count, sought), expected) << sought;
    ASSERT_EQ(none.lastNotAbove(numbers.data(), count, sought), expected) << sought;
  };
  check(0);
  check(~0u);
  for (U32 i = 0; i < count; ++i) {
    check(numbers[i] - 1);
    check(numbers[i]);
    check(numbers[i] + 1);
    if (i > 0) check(numbers[i - 1] + (numbers[i] - numbers[i - 1]) / 2);
  }
}

std::vector<U32> spaced(U32 count, U32 first, U32 distance) {
  std::vector<U32> numbers;
  for (U32 i = 0; i < count; ++i) numbers.push_back(first + i * distance);
  return numbers;
}

TEST(StartTable, answersForEvenDistances) {
  for (const U32 count : {1u, 2u, 3u, 7u, 8u, 9u, 1000u})
    for (const U32 distance : {1u, 3u, 64u, 96u, 4096u, 65536u}) {
      SCOPED_TRACE(testing::Message() << count << " numbers " << distance << " apart");
      expectRightAnswers(spaced(count, 0, distance));
      expectRightAnswers(spaced(count, 12345, distance));
    }
}

TEST(StartTable, answersForTheWholeRange) {
  expectRightAnswers({0});
  expectRightAnswers({~0u});
  expectRightAnswers({0, ~0u});
  expectRightAnswers({0, 1, ~0u - 1, ~0u});
  expectRightAnswers(spaced(65535, 0, 65536));
  expectRightAnswers(spaced(65535, 1, 65537));
}

TEST(StartTable, answersForCrowdedNumbers) {
  std::vector<U32> numbers = spaced(3000, 0x10000000, 4);
  expectRightAnswers(numbers);
  numbers.push_back(0xf0000000);
  expectRightAnswers(numbers);
  numbers.insert(numbers.begin(), 7);
  expectRightAnswers(numbers);
}

TEST(StartTable, answersForRandomDistances) {
  std::mt19937 random(1);
  for (U32 round = 0; round < 300; ++round) {
    std::vector<U32> numbers(1 + random() % 300);
    const U32 shift = static_cast<U32>(random() % 30);
    for (U32& number : numbers) number = static_cast<U32>(random()) >> shift;
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    expectRightAnswers(numbers);
  }
}

TEST(StartTable, clearedOneSearchesTheWholeArray) {
  StartTable starts;
  const std::vector<U32> old = {1, 2, 3}, numbers = {5, 9};
  starts.build(old.data(), 3);
  starts.clear();
  EXPECT_EQ(starts.lastNotAbove(numbers.data(), 2, 9), 1u);
  starts.build(numbers.data(), 0);
  EXPECT_EQ(starts.lastNotAbove(numbers.data(), 2, 8), 0u);
}

}  // namespace
}  // namespace Hardware
