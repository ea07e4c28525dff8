#include <Hardware/ChipAddress.h>

#include <gmock/gmock.h>

#include <sstream>

#include "runtime/Probes.h"

namespace Hardware {
namespace {

using Probes::rangeMessage;
using testing::HasSubstr;

TEST(ChipAddress, isZeroAtFirst) { EXPECT_EQ(ChipAddress().value(), 0u); }

TEST(ChipAddress, valueIs_setsTheWholeValue) {
  ChipAddress address(7, 7);
  address.valueIs(0x0123456789abcdef);
  EXPECT_EQ(address.value(), 0x0123456789abcdefu);
  EXPECT_EQ(address.chipMemoryId(), 0x01234567u);
  EXPECT_EQ(address.chipMemoryOffset(), 0x89abcdefu);
}

TEST(ChipAddress, chipAddressIs_takesTheHighWordFirst) {
  ChipAddress address;
  address.chipAddressIs(0x1, 0x10);
  EXPECT_EQ(address.value(), 0x100000010u);
  EXPECT_EQ(address, ChipAddress(0x1, 0x10));
}

// --- Text ------------------------------------------------------------------------------------

struct Text {
  U32 high, low;
  const char* stringValue;
  const char* strep;
};

class ChipAddressText : public testing::TestWithParam<Text> {};

TEST_P(ChipAddressText, stringValue_hasTheHighWordAColonAndEightDigits) {
  ChipAddress address;
  address.chipAddressIs(GetParam().high, GetParam().low);
  EXPECT_EQ(address.stringValue(), GetParam().stringValue);
}

TEST_P(ChipAddressText, strep_isTheWholeValueAsOneUnsignedInteger) {
  EXPECT_EQ(valueToStrep(ChipAddress(GetParam().high, GetParam().low)), GetParam().strep);
}

TEST_P(ChipAddressText, strep_readsBack) {
  const ChipAddress address(GetParam().high, GetParam().low);
  EXPECT_EQ(Zint::strepToValue<ChipAddress>(valueToStrep(address)), address);
}

TEST_P(ChipAddressText, stream_getsTheStrepWhateverItsBase) {
  std::ostringstream out;
  out << std::hex << ChipAddress(GetParam().high, GetParam().low);
  EXPECT_EQ(out.str(), GetParam().strep);
}

INSTANTIATE_TEST_SUITE_P(
    Values, ChipAddressText,
    testing::Values(Text{0x1, 0x10, "0x1:00000010", "4294967312"}, Text{0, 0, "0x0:00000000", "0"},
                    Text{0, 0xffffffff, "0x0:ffffffff", "4294967295"},
                    Text{2, 0x1f00, "0x2:00001f00", "8589942528"},
                    Text{0xABCDEF01, 0xABCDEF, "0xabcdef01:00abcdef", "12379813738296626671"},
                    Text{0x7fffffff, 0xffffffff, "0x7fffffff:ffffffff", "9223372036854775807"},
                    Text{0x80000000, 0, "0x80000000:00000000", "9223372036854775808"},
                    Text{0xffffffff, 0xffffffff, "0xffffffff:ffffffff", "18446744073709551615"}));

// --- Parse -----------------------------------------------------------------------------------

TEST(ChipAddress, fromTextRange_leavesThePositionBehindTheNumber) {
  const Zint::String8 text = "ab4294967312,5";
  auto pos = text.begin() + 2;
  EXPECT_EQ(ChipAddress(pos, text.end()), ChipAddress(1, 0x10));
  EXPECT_EQ(pos - text.begin(), 12);
}

TEST(ChipAddress, fromTextRange_stopsAtTheEndOfTheRange) {
  const Zint::String8 text = "1234";
  auto pos = text.begin();
  EXPECT_EQ(ChipAddress(pos, text.begin() + 2), ChipAddress(12));
  EXPECT_EQ(pos - text.begin(), 2);
}

TEST(ChipAddress, fromTextRange_readsASignedInteger) {
  EXPECT_EQ(Zint::strepToValue<ChipAddress>("-1"), ChipAddress(0xffffffff, 0xffffffff));
  EXPECT_EQ(Zint::strepToValue<ChipAddress>("-9223372036854775808"), ChipAddress(0x80000000, 0));
}

TEST(ChipAddress, strepToValue_takesATypeTag) {
  const ChipAddress* tag = nullptr;
  EXPECT_EQ(Zint::strepToValue("16", tag), ChipAddress(16));
}

class ChipAddressUnreadable : public testing::TestWithParam<const char*> {};

TEST_P(ChipAddressUnreadable, raisesARangeExceptionThatNamesTheAttribute) {
  const Zint::String8 text = GetParam();
  EXPECT_THAT(rangeMessage([&] { Zint::strepToValue<ChipAddress>(text); }), HasSubstr("value"));
}

TEST_P(ChipAddressUnreadable, leavesTheAddressUnchanged) {
  const Zint::String8 text = GetParam();
  ChipAddress address(3, 4);
  auto pos = text.begin();
  EXPECT_THROW(sequenceToValue(pos, text.end(), address), Zint::RangeException);
  EXPECT_EQ(address, ChipAddress(3, 4));
}

INSTANTIATE_TEST_SUITE_P(Texts, ChipAddressUnreadable,
                         testing::Values("", "x", "-", " 1", "'1'", "18446744073709551616",
                                         "-9223372036854775809"));

struct Junk {
  const char* text;
  const char* message;
};

class ChipAddressJunk : public testing::TestWithParam<Junk> {};

TEST_P(ChipAddressJunk, namesTheColumnAndTheWholeText) {
  EXPECT_EQ(rangeMessage([] { Zint::strepToValue<ChipAddress>(GetParam().text); }),
            GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Texts, ChipAddressJunk,
                         testing::Values(Junk{"16x", "junk at column 2 deserializing 16x"},
                                         Junk{"16 ", "junk at column 2 deserializing 16 "},
                                         Junk{"-1-", "junk at column 2 deserializing -1-"},
                                         Junk{"1.5", "junk at column 1 deserializing 1.5"},
                                         Junk{"18446744073709551615,",
                                              "junk at column 20 deserializing "
                                              "18446744073709551615,"},
                                         Junk{"100%s%n",
                                              "junk at column 3 deserializing 100%s%n"}));

TEST(ChipAddress, junkMessage_holdsATextOfAnyLength) {
  const std::string text = "7" + std::string(100000, 'z');
  EXPECT_EQ(rangeMessage([&] { Zint::strepToValue<ChipAddress>(text); }),
            "junk at column 1 deserializing " + text);
}

// --- Order, hash, arithmetic -----------------------------------------------------------------

TEST(ChipAddress, order_isThatOfUnsignedNumbersHighWordFirst) {
  const ChipAddress ascending[] = {
      ChipAddress(0, 0),          ChipAddress(0, 1),          ChipAddress(0, 0x7fffffff),
      ChipAddress(0, 0x80000000), ChipAddress(0, 0xffffffff), ChipAddress(1, 0),
      ChipAddress(0x7fffffff, 5), ChipAddress(0x80000000, 4), ChipAddress(0xffffffff, 0xffffffff)};
  for (const ChipAddress& a : ascending) {
    for (const ChipAddress& b : ascending) {
      EXPECT_EQ(a < b, &a < &b) << a << " " << b;
      EXPECT_EQ(a == b, &a == &b) << a << " " << b;
      EXPECT_EQ(a > b, &a > &b) << a << " " << b;
    }
  }
}

TEST(ChipAddress, hash_isTheLowWordWithItsBitsReversed) {
  for (U32 bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(ChipAddress(0, 1u << bit).hash(), 1u << (31 - bit));
  }
  EXPECT_EQ(ChipAddress(0, 0x00000fed).hash(), 0xb7f00000u);
  EXPECT_EQ(ChipAddress(0, 0).hash(), 0u);
}

TEST(ChipAddress, hash_leavesTheHighWordOut) {
  EXPECT_EQ(ChipAddress(0x12345678, 0x40).hash(), ChipAddress(0, 0x40).hash());
}

TEST(ChipAddress, mapsReverseTheHashOnceOnly) {
  EXPECT_EQ(reversedHash(ChipAddress(9, 0x1)), 0x80000000u);
}

TEST(ChipAddress, plus_carriesIntoTheHighWord) {
  EXPECT_EQ(ChipAddress(1, 0xfffffff0).plus(0x10), ChipAddress(2, 0));
  EXPECT_EQ(ChipAddress(1, 0xfffffff0).plus(0xffffffff), ChipAddress(2, 0xffffffef));
}

}  // namespace
}  // namespace Hardware
