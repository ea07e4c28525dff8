#include <Zint/Epoch.h>

#include <gtest/gtest.h>

namespace Zint {
namespace {

TEST(EpochTest, mark_isSupersededByTheNextAdvance) {
  Epoch epoch;
  const Epoch::Mark mark(epoch);
  EXPECT_FALSE(mark.isSuperseded());
  epoch.advance();
  EXPECT_TRUE(mark.isSuperseded());
}

TEST(EpochTest, advance_returnsAMarkOfTheChangeItself) {
  Epoch epoch;
  const Epoch::Mark first = epoch.advance();
  EXPECT_FALSE(first.isSuperseded());
  const Epoch::Mark second = epoch.advance();
  EXPECT_TRUE(first.isSuperseded());
  EXPECT_FALSE(second.isSuperseded());
}

TEST(EpochTest, layout_isOneCounter) { EXPECT_EQ(sizeof(Epoch), sizeof(U32)); }

}  // namespace
}  // namespace Zint
