#include <Hardware/ChipHam.h>
#include <Zint/Activity.h>

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "support/Death.h"

namespace Hardware {
namespace {

class ChipHamTest : public testing::Test {
 protected:
  const ChipHam::Ptr ham = Zint::makePtr<ChipHam>("ham0");
};

TEST_F(ChipHamTest, name_isTheEntitysName) { EXPECT_EQ(ham->name(), "ham0"); }

TEST_F(ChipHamTest, attributeString_ofTheEntityAndOfUnknownIds) {
  EXPECT_EQ(ham->attributeString(ChipHam::Id::name), "name");
  EXPECT_EQ(ham->attributeString(0), "unknown");
  EXPECT_EQ(ham->attributeString(10000), "unknown");
}

TEST_F(ChipHamTest, doRead_isFatalInTheBase) {
  U8 buffer[4];
  EXPECT_ASSERTION(
      ham->doRead(ChipAddress(), buffer, 4, 1), 34,
      "virtual void Hardware::ChipHam::doRead(const Hardware::ChipAddress&, U8*, U32, U32)", "0");
}

TEST_F(ChipHamTest, doWrite_isFatalInTheBase) {
  U8 buffer[4];
  EXPECT_ASSERTION(
      ham->doWrite(ChipAddress(), buffer, 4, 1), 40,
      "virtual void Hardware::ChipHam::doWrite(const Hardware::ChipAddress&, U8*, U32, U32)", "0");
}

TEST_F(ChipHamTest, doRead_isFatalInTheBaseEvenForNoEntries) {
  EXPECT_ASSERTION(
      ham->doRead(ChipAddress(), nullptr, 0, 0), 34,
      "virtual void Hardware::ChipHam::doRead(const Hardware::ChipAddress&, U8*, U32, U32)", "0");
}

// --- The end -----------------------------------------------------------------------------------

class EndObserver : public ChipHam::NotifieeConst {
 public:
  using ChipHam::NotifieeConst::NotifieeConst;
  void onIsNondestructing() override {
    ++ends;
    nameAtTheEnd = notifier()->name();
  }
  int ends = 0;
  Zint::String8 nameAtTheEnd;
};

TEST_F(ChipHamTest, notifiee_isToldOfTheDestruction) {
  ChipHam::Ptr mortal = Zint::makePtr<ChipHam>("mortal");
  const auto observer = Zint::makePtr<EndObserver>(nullptr, Zint::Ptr<const ChipHam>(mortal));
  observer->isNonReferencingIs(true);
  EXPECT_EQ(observer->ends, 0);
  mortal = nullptr;
  EXPECT_EQ(observer->ends, 1);
  EXPECT_EQ(observer->nameAtTheEnd, "mortal");
  EXPECT_EQ(observer->notifier(), nullptr);
}

TEST_F(ChipHamTest, isNondestructingIs_isAnnouncedOnceForEachChange) {
  const auto observer = Zint::makePtr<EndObserver>(nullptr, Zint::Ptr<const ChipHam>(ham));
  ham->isNondestructingIs(false);
  ham->isNondestructingIs(false);
  EXPECT_EQ(observer->ends, 1);
  ham->isNondestructingIs(true);
  EXPECT_EQ(observer->ends, 2);
}

// --- The cache side ----------------------------------------------------------------------------

TEST_F(ChipHamTest, doCompare_ofNothingIsTrueForDifferentPointers) {
  U8 a[] = {1}, b[] = {2};
  EXPECT_TRUE(ham->doCompare(a, b, 0));
}

TEST_F(ChipHamTest, nothingIsComparedAndCopiedThroughNullPointers) {
  EXPECT_TRUE(ham->doCompare(nullptr, nullptr, 0));
  EXPECT_TRUE(ham->doReadToCache(nullptr, nullptr, 0));
  EXPECT_TRUE(ham->doWriteToCache(nullptr, nullptr, 0));
  EXPECT_TRUE(ham->doReadFromCache(nullptr, nullptr, 0));
}

TEST_F(ChipHamTest, doCompare_seesADifferenceInTheLastByteAlone) {
  U8 a[] = {1, 2, 3}, b[] = {1, 2, 4};
  EXPECT_FALSE(ham->doCompare(a, b, 3));
}

TEST_F(ChipHamTest, doCompare_ofEveryLengthSeesExactlyTheBytesInside) {
  U8 a[70] = {}, b[70] = {};
  for (U32 difference = 0; difference < 70; ++difference) {
    b[difference] = 0x80;
    for (U32 bytes = 0; bytes <= 70; ++bytes) {
      EXPECT_EQ(ham->doCompare(a, b, bytes), bytes <= difference) << bytes << " " << difference;
    }
    b[difference] = 0;
  }
}

using Copy = bool (*)(ChipHam&, U8* destination, U8* source, U32 bytes);

class ChipHamCopy : public testing::TestWithParam<Copy> {};

TEST_P(ChipHamCopy, copiesExactlyTheBytesAndSucceeds) {
  const ChipHam::Ptr ham = Zint::makePtr<ChipHam>("ham");
  U8 source[] = {1, 2, 3, 4, 5}, destination[] = {9, 9, 9, 9, 9};
  EXPECT_TRUE(GetParam()(*ham, destination, source, 3));
  EXPECT_EQ(std::vector<U8>(destination, destination + 5), (std::vector<U8>{1, 2, 3, 9, 9}));
  EXPECT_TRUE(GetParam()(*ham, destination + 3, source, 0));
  EXPECT_EQ(destination[3], 9);
}

INSTANTIATE_TEST_SUITE_P(Operations, ChipHamCopy,
                         testing::Values(Copy{[](ChipHam& ham, U8* to, U8* from, U32 n) {
                                           return ham.doReadToCache(to, from, n);
                                         }},
                                         Copy{[](ChipHam& ham, U8* to, U8* from, U32 n) {
                                           return ham.doWriteToCache(to, from, n);
                                         }},
                                         Copy{[](ChipHam& ham, U8* to, U8* from, U32 n) {
                                           return ham.doReadFromCache(to, from, n);
                                         }}));

// --- Bit streams -------------------------------------------------------------------------------

// As many bytes as it says, so that a sanitizer sees an access behind them.
std::unique_ptr<U8[]> exactBytes(const std::vector<U8>& bytes) {
  auto copy = std::make_unique<U8[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return copy;
}

TEST_F(ChipHamTest, bitFromBitStream_countsFromTheLeastSignificantBit) {
  U8 stream[] = {0x01, 0x80, 0x10};
  for (U32 bit = 0; bit < 24; ++bit) {
    EXPECT_EQ(ham->bitFromBitStream(stream, bit), bit == 0 || bit == 15 || bit == 20) << bit;
  }
}

TEST_F(ChipHamTest, bitToBitStream_changesThatBitAlone) {
  for (U32 bit = 0; bit < 16; ++bit) {
    U8 zeros[] = {0, 0}, ones[] = {0xff, 0xff};
    ham->bitToBitStream(zeros, bit, true);
    ham->bitToBitStream(ones, bit, false);
    EXPECT_EQ(zeros[0] | zeros[1] << 8, 1 << bit);
    EXPECT_EQ(ones[0] | ones[1] << 8, 0xffff & ~(1 << bit));
    ham->bitToBitStream(zeros, bit, false);
    ham->bitToBitStream(ones, bit, true);
    EXPECT_EQ(zeros[0] | zeros[1] << 8, 0);
    EXPECT_EQ(ones[0] | ones[1] << 8, 0xffff);
  }
}

TEST_F(ChipHamTest, byteFromBitStream_atByteAndInnerPositions) {
  U8 stream[] = {0xAB, 0xCD};
  EXPECT_EQ(ham->byteFromBitStream(stream, 0), 0xAB);
  EXPECT_EQ(ham->byteFromBitStream(stream, 4), 0xDA);
  EXPECT_EQ(ham->byteFromBitStream(stream, 8), 0xCD);
  EXPECT_EQ(ham->byteFromBitStream(stream, 1), 0xD5);
  EXPECT_EQ(ham->byteFromBitStream(stream, 7), 0x9B);
}

TEST_F(ChipHamTest, byteFromBitStream_readsOneByteAtAByteBoundary) {
  const auto last = exactBytes({0x5A});
  EXPECT_EQ(ham->byteFromBitStream(last.get(), 0), 0x5A);
}

TEST_F(ChipHamTest, byteToBitStream_acrossTwoBytes) {
  U8 stream[] = {0x00, 0x00};
  ham->byteToBitStream(stream, 4, 0xFF);
  EXPECT_EQ(stream[0], 0xF0);
  EXPECT_EQ(stream[1], 0x0F);
}

TEST_F(ChipHamTest, byteToBitStream_keepsTheBitsAround) {
  for (U32 bit = 0; bit <= 8; ++bit) {
    U8 ones[] = {0xff, 0xff}, zeros[] = {0, 0};
    ham->byteToBitStream(ones, bit, 0x00);
    ham->byteToBitStream(zeros, bit, 0xA5);
    EXPECT_EQ(ones[0] | ones[1] << 8, 0xffff & ~(0xff << bit)) << bit;
    EXPECT_EQ(zeros[0] | zeros[1] << 8, 0xA5 << bit) << bit;
  }
}

TEST_F(ChipHamTest, byteToBitStream_writesOneByteAtAByteBoundary) {
  const auto last = exactBytes({0});
  ham->byteToBitStream(last.get(), 0, 0x5A);
  EXPECT_EQ(last[0], 0x5A);
}

TEST_F(ChipHamTest, copyBits_of11BitsKeepsTheBitsBehind) {
  U8 source[] = {0xA8, 0x3C};  // its bits 3 to 13: 0x795
  U8 destination[] = {0xff, 0xff, 0xff};
  ham->copyBits(destination, 0, source, 3, 11);
  EXPECT_EQ(destination[0], 0x95);
  EXPECT_EQ(destination[1], 0xf8 | 0x7);
  EXPECT_EQ(destination[2], 0xff);
  U8 zeros[] = {0, 0, 0};
  ham->copyBits(zeros, 0, source, 3, 11);
  EXPECT_EQ(zeros[0] | zeros[1] << 8 | zeros[2] << 16, 0x795);
}

TEST_F(ChipHamTest, copyBits_ofNoneChangesNothing) {
  U8 source[] = {0xff}, destination[] = {0x12};
  ham->copyBits(destination, 5, source, 3, 0);
  EXPECT_EQ(destination[0], 0x12);
}

// Against a bit-by-bit copy, in buffers that end with the last bit.
TEST_F(ChipHamTest, copyBits_equalsACopyBitByBit) {
  std::mt19937 random(20240611);
  const auto below = [&random](U32 limit) { return static_cast<U32>(random() % limit); };
  for (int round = 0; round < 2000; ++round) {
    const U32 bits = below(70), from = below(20), to = below(20);
    std::vector<U8> source((from + bits + 7) / 8), expected((to + bits + 7) / 8);
    for (U8& byte : source) byte = static_cast<U8>(random());
    for (U8& byte : expected) byte = static_cast<U8>(random());
    const auto exactSource = exactBytes(source), exact = exactBytes(expected);
    for (U32 k = 0; k < bits; ++k) {
      const U32 value = (source[(from + k) / 8] >> ((from + k) % 8)) & 1u;
      U8& byte = expected[(to + k) / 8];
      const U32 mask = 1u << ((to + k) % 8);
      byte = static_cast<U8>((byte & ~mask) | (value != 0 ? mask : 0));
    }
    ham->copyBits(exact.get(), to, exactSource.get(), from, bits);
    ASSERT_EQ(std::vector<U8>(exact.get(), exact.get() + expected.size()), expected)
        << "round " << round << ": " << bits << " bits from " << from << " to " << to;
  }
}

}  // namespace
}  // namespace Hardware
