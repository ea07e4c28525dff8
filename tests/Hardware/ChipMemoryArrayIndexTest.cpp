#include <Hardware/ChipMemoryArrayIndex.h>

#include <gmock/gmock.h>

#include <sstream>

namespace Hardware {
namespace {

using testing::HasSubstr;

std::string parseMessage(const Zint::String8& text) {
  try {
    Zint::strepToValue<ChipMemoryArrayIndex>(text);
  } catch (const Zint::RangeException& exception) {
    return exception.what();
  }
  return "nothing thrown";
}

TEST(ChipMemoryArrayIndex, isZeroAtFirst) { EXPECT_EQ(ChipMemoryArrayIndex().value(), 0u); }

TEST(ChipMemoryArrayIndex, valueIs_setsTheValue) {
  ChipMemoryArrayIndex index(3);
  index.valueIs(65535);
  EXPECT_EQ(index.value(), 65535u);
}

TEST(ChipMemoryArrayIndex, strep_isTheUnsignedInteger) {
  EXPECT_EQ(valueToStrep(ChipMemoryArrayIndex(0)), "0");
  EXPECT_EQ(valueToStrep(ChipMemoryArrayIndex(40000)), "40000");
  EXPECT_EQ(valueToStrep(ChipMemoryArrayIndex(65535)), "65535");
}

TEST(ChipMemoryArrayIndex, stream_getsTheStrepWhateverItsBase) {
  std::ostringstream out;
  out << std::hex << ChipMemoryArrayIndex(40000);
  EXPECT_EQ(out.str(), "40000");
}

TEST(ChipMemoryArrayIndex, strep_readsBack) {
  for (U32 value = 0; value < 0x10000; value += 0xff) {
    const ChipMemoryArrayIndex index(static_cast<U16>(value));
    EXPECT_EQ(Zint::strepToValue<ChipMemoryArrayIndex>(valueToStrep(index)).value(), value);
  }
}

TEST(ChipMemoryArrayIndex, fromTextRange_leavesThePositionBehindTheNumber) {
  const Zint::String8 text = "[17]";
  auto pos = text.begin() + 1;
  EXPECT_EQ(ChipMemoryArrayIndex(pos, text.end()).value(), 17u);
  EXPECT_EQ(pos - text.begin(), 3);
}

struct Truncated {
  const char* text;
  U16 value;
};

class ChipMemoryArrayIndexTruncated : public testing::TestWithParam<Truncated> {};

TEST_P(ChipMemoryArrayIndexTruncated, keepsTheLow16Bits) {
  EXPECT_EQ(Zint::strepToValue<ChipMemoryArrayIndex>(GetParam().text).value(), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Texts, ChipMemoryArrayIndexTruncated,
                         testing::Values(Truncated{"65535", 65535}, Truncated{"65536", 0},
                                         Truncated{"65537", 1}, Truncated{"-1", 65535},
                                         Truncated{"4294967298", 2},
                                         Truncated{"18446744073709551615", 65535}));

TEST(ChipMemoryArrayIndex, unreadable_raisesARangeExceptionThatNamesTheAttribute) {
  for (const char* text : {"", "x", "-", "18446744073709551616"}) {
    EXPECT_THAT(parseMessage(text), HasSubstr("value")) << text;
  }
}

TEST(ChipMemoryArrayIndex, unreadable_leavesTheIndexUnchanged) {
  const Zint::String8 text = "x";
  ChipMemoryArrayIndex index(5);
  auto pos = text.begin();
  EXPECT_THROW(sequenceToValue(pos, text.end(), index), Zint::RangeException);
  EXPECT_EQ(index.value(), 5u);
}

TEST(ChipMemoryArrayIndex, junk_namesTheColumnAndTheWholeText) {
  EXPECT_EQ(parseMessage("65537 7"), "junk at column 5 deserializing 65537 7");
  EXPECT_EQ(parseMessage("3x"), "junk at column 1 deserializing 3x");
}

TEST(ChipMemoryArrayIndex, strepToValue_takesATypeTag) {
  const ChipMemoryArrayIndex* tag = nullptr;
  EXPECT_EQ(Zint::strepToValue("12", tag).value(), 12u);
}

}  // namespace
}  // namespace Hardware
