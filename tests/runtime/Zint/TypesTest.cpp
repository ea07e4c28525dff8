#include <Zint/Types.h>
#include <gtest/gtest.h>

namespace {

TEST(Types, reversedBits_movesBit0ToBit31) {
  EXPECT_EQ(Zint::reversedBits(0x00000001), 0x80000000u);
  EXPECT_EQ(Zint::reversedBits(0x80000000), 0x00000001u);
  EXPECT_EQ(Zint::reversedBits(0x12345678), 0x1e6a2c48u);
  EXPECT_EQ(Zint::reversedBits(0), 0u);
  EXPECT_EQ(Zint::reversedBits(0xffffffff), 0xffffffffu);
}

TEST(Types, reversedBits_ofEachSingleBit) {
  for (unsigned bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(Zint::reversedBits(1u << bit), 1u << (31 - bit)) << bit;
  }
}

TEST(Types, updated_storesAndSaysWhetherTheValueIsNew) {
  U32 held = 3;
  EXPECT_FALSE(Zint::updated(held, 3u));
  EXPECT_TRUE(Zint::updated(held, 4u));
  EXPECT_EQ(held, 4u);
}

TEST(Types, widthsAreFixed) {
  EXPECT_EQ(sizeof(U8), 1u);
  EXPECT_EQ(sizeof(U16), 2u);
  EXPECT_EQ(sizeof(U32), 4u);
  EXPECT_EQ(sizeof(U64), 8u);
  EXPECT_EQ(sizeof(S32), 4u);
  EXPECT_EQ(sizeof(S64), 8u);
  EXPECT_EQ(sizeof(Zint::Seconds), 8u);
}

}  // namespace
