#include <Zint/Strep.h>

#include <runtime/Probes.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

using Probes::rangeMessage;
using Zint::strepToValue;
using Zint::String8;
using Zint::valueToStrep;

constexpr S64 s64Min = std::numeric_limits<S64>::min();
constexpr S64 s64Max = std::numeric_limits<S64>::max();
constexpr U64 u64Max = std::numeric_limits<U64>::max();

// --- Integers ------------------------------------------------------------------------------------

TEST(StrepInteger, isWrittenInDecimal) {
  EXPECT_EQ(valueToStrep(U64{0}), "0");
  EXPECT_EQ(valueToStrep(u64Max), "18446744073709551615");
  EXPECT_EQ(valueToStrep(s64Min), "-9223372036854775808");
  EXPECT_EQ(valueToStrep(U32{16}), "16");
  EXPECT_EQ(valueToStrep(S32{-16}), "-16");
  EXPECT_EQ(valueToStrep(U8{200}), "200");
  EXPECT_EQ(valueToStrep(U16{65535}), "65535");
}

TEST(StrepInteger, the64BitParserAcceptsMinusTwoTo63UpToTwoTo64Minus1) {
  EXPECT_EQ(strepToValue<S64>("-9223372036854775808"), s64Min);
  EXPECT_EQ(strepToValue<S64>("-1"), -1);
  EXPECT_EQ(strepToValue<S64>("0"), 0);
  EXPECT_EQ(strepToValue<S64>("9223372036854775807"), s64Max);
  EXPECT_EQ(strepToValue<S64>("9223372036854775808"), s64Min) << "two's complement";
  EXPECT_EQ(strepToValue<S64>("18446744073709551615"), -1);
}

TEST(StrepInteger, oneBeyondTheRangeIsRefused) {
  EXPECT_THROW(strepToValue<S64>("-9223372036854775809"), Zint::RangeException);
  EXPECT_THROW(strepToValue<S64>("18446744073709551616"), Zint::RangeException);
  EXPECT_THROW(strepToValue<S64>("99999999999999999999999999"), Zint::RangeException);
}

TEST(StrepInteger, hexadecimal) {
  EXPECT_EQ(strepToValue<S64>("0x10"), 16);
  EXPECT_EQ(strepToValue<S64>("0xDeadBeef"), 0xdeadbeef);
  EXPECT_EQ(strepToValue<S64>("0xffffffffffffffff"), -1);
  EXPECT_EQ(strepToValue<S64>("-0x8000000000000000"), s64Min);
  EXPECT_THROW(strepToValue<S64>("0x10000000000000000"), Zint::RangeException);
  EXPECT_EQ(rangeMessage([] { strepToValue<S64>("0x"); }), "junk at column 1 deserializing S64");
}

TEST(StrepInteger, hexadecimalMayBeginWithAnyDigit) {
  EXPECT_EQ(strepToValue<S64>("0x0"), 0);
  EXPECT_EQ(strepToValue<S64>("0x0f"), 15);
  EXPECT_EQ(strepToValue<S64>("0xf0"), 240);
}

TEST(StrepInteger, leadingZerosAreDecimal) { EXPECT_EQ(strepToValue<S64>("0010"), 10); }

TEST(StrepInteger, textThatIsNoNumberIsRefused) {
  for (const char* text : {"", "-", "x1", "+1", " 1", "--1", "- 1", "-x", "\xff"}) {
    EXPECT_THROW(strepToValue<S64>(text), Zint::RangeException) << text;
  }
}

TEST(StrepInteger, leavesThePositionBehindTheNumber) {
  const String8 text("12,-3");
  auto pos = text.begin();
  S64 value = 0;
  Zint::sequenceToValue(pos, text.end(), value);
  EXPECT_EQ(value, 12);
  EXPECT_EQ(pos - text.begin(), 2);
  ++pos;
  Zint::sequenceToValue(pos, text.end(), value);
  EXPECT_EQ(value, -3);
  EXPECT_EQ(pos, text.end());
}

TEST(StrepInteger, aRefusalLeavesPositionAndValueAsTheyWere) {
  const String8 text("70000,x");
  auto pos = text.begin();
  U16 narrow = 5;
  EXPECT_THROW(Zint::sequenceToValue(pos, text.end(), narrow), Zint::RangeException);
  EXPECT_EQ(narrow, 5);
  EXPECT_EQ(pos, text.begin());
  pos += 6;
  S64 wide = 6;
  EXPECT_THROW(Zint::sequenceToValue(pos, text.end(), wide), Zint::RangeException);
  EXPECT_EQ(wide, 6);
  EXPECT_EQ(pos - text.begin(), 6);
}

TEST(StrepInteger, aRefusalQuotesTheTextFromThereOn) {
  EXPECT_NE(rangeMessage([] { strepToValue<S64>("fast"); }).find("\"fast\""), std::string::npos);
}

TEST(StrepInteger, aNarrowTypeHoldsItsRangeOnly) {
  EXPECT_EQ(strepToValue<U8>("255"), 255);
  EXPECT_THROW(strepToValue<U8>("256"), Zint::RangeException);
  EXPECT_THROW(strepToValue<U8>("-1"), Zint::RangeException);
  EXPECT_EQ(strepToValue<U16>("65535"), 65535);
  EXPECT_THROW(strepToValue<U16>("65536"), Zint::RangeException);
  EXPECT_EQ(strepToValue<U32>("4294967295"), 4294967295u);
  EXPECT_THROW(strepToValue<U32>("4294967296"), Zint::RangeException);
  EXPECT_THROW(strepToValue<U32>("-1"), Zint::RangeException);
  EXPECT_THROW(strepToValue<U32>("18446744073709551615"), Zint::RangeException);
  EXPECT_EQ(strepToValue<S32>("-2147483648"), std::numeric_limits<S32>::min());
  EXPECT_EQ(strepToValue<S32>("2147483647"), std::numeric_limits<S32>::max());
  EXPECT_THROW(strepToValue<S32>("2147483648"), Zint::RangeException);
  EXPECT_THROW(strepToValue<S32>("-2147483649"), Zint::RangeException);
}

TEST(StrepInteger, aNarrowSignedTypeDoesNotTakeATwosComplementOf64Bits) {
  EXPECT_THROW(strepToValue<S32>("18446744073709551615"), Zint::RangeException);
  EXPECT_THROW(strepToValue<S32>("0xffffffff80000000"), Zint::RangeException);
}

TEST(StrepInteger, u64HoldsItsRangeOnly) {
  EXPECT_EQ(strepToValue<U64>("18446744073709551615"), u64Max);
  EXPECT_EQ(strepToValue<U64>("9223372036854775808"), U64{1} << 63);
  EXPECT_THROW(strepToValue<U64>("-1"), Zint::RangeException);
  EXPECT_THROW(strepToValue<U64>("18446744073709551616"), Zint::RangeException);
}

TEST(StrepInteger, roundTrip) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 2000; ++i) {
    const U64 value = random() >> (random() % 64);
    ASSERT_EQ(strepToValue<U64>(valueToStrep(value)), value);
    ASSERT_EQ(strepToValue<S64>(valueToStrep(static_cast<S64>(value))), static_cast<S64>(value));
    ASSERT_EQ(static_cast<U64>(strepToValue<S64>(valueToStrep(value))), value);
  }
}

// --- What is left over ---------------------------------------------------------------------------

TEST(StrepJunk, namesTheZeroBasedColumnAndTheType) {
  EXPECT_EQ(rangeMessage([] { strepToValue<U64>("12 "); }), "junk at column 2 deserializing U64");
  EXPECT_EQ(rangeMessage([] { strepToValue<S64>("-12x"); }), "junk at column 3 deserializing S64");
  EXPECT_EQ(rangeMessage([] { strepToValue<U32>("1,2"); }), "junk at column 1 deserializing U32");
  EXPECT_EQ(rangeMessage([] { strepToValue<U8>("0x1g"); }), "junk at column 3 deserializing U8");
  EXPECT_EQ(rangeMessage([] { strepToValue<bool>("truely"); }),
            "junk at column 4 deserializing bool");
  EXPECT_EQ(rangeMessage([] { strepToValue<double>("1.5s"); }),
            "junk at column 3 deserializing double");
  EXPECT_EQ(rangeMessage([] { strepToValue<String8>("'a'b"); }),
            "junk at column 3 deserializing String8");
}

TEST(StrepJunk, isReportedAtAnyLength) {
  const std::string longText(100'000, '7');
  const String8 text(longText);
  auto pos = text.begin() + 99'999;
  const std::string message = rangeMessage([&] { Zint::refuseJunk(text, pos, text); });
  EXPECT_EQ(message, "junk at column 99999 deserializing " + longText);
}

TEST(StrepJunk, atTheEndThereIsNone) {
  const String8 text("12");
  EXPECT_NO_THROW(Zint::refuseJunk(text, text.end(), "U64"));
  const String8 empty;
  EXPECT_NO_THROW(Zint::refuseJunk(empty, empty.end(), "U64"));
}

TEST(StrepJunk, format_writesAnyLength) {
  const std::string longText(10'000, 'x');
  EXPECT_EQ(Zint::format("%s-%d", longText.c_str(), -3), String8(longText + "--3"));
  EXPECT_EQ(Zint::format("0x%x:%08x", 2u, 0x1f00u), "0x2:00001f00");
}

// --- Strings -------------------------------------------------------------------------------------

TEST(StrepString, isWrittenInSingleQuotes) {
  EXPECT_EQ(valueToStrep(String8("buffered")), "'buffered'");
  EXPECT_EQ(valueToStrep(String8("")), "''");
  EXPECT_EQ(valueToStrep(String8("it's")), "'it\\'s'");
  EXPECT_EQ(valueToStrep(String8("a\\b")), "'a\\\\b'");
  EXPECT_EQ(valueToStrep(String8("a\n\x7f")), "'a\\x0a\\x7f'");
  EXPECT_EQ(valueToStrep(String8("\x1f ~\x80")), "'\\x1f ~\x80'") << "control characters alone";
}

TEST(StrepString, theQuotesAreRemoved) {
  EXPECT_EQ(strepToValue<String8>("'buffered'"), "buffered");
  EXPECT_EQ(strepToValue<String8>("''"), "");
  EXPECT_EQ(strepToValue<String8>("'two words'"), "two words");
  EXPECT_EQ(strepToValue<String8>("'it\\'s'"), "it's");
  EXPECT_EQ(strepToValue<String8>("'\\x41'"), "A");
  EXPECT_EQ(strepToValue<String8>("'\\x4A\\xAf\\xF4'"), "J\xaf\xf4") << "digits of both cases";
}

TEST(StrepString, aBareWordEndsAtASpace) {
  const String8 text("buffered mode");
  auto pos = text.begin();
  String8 value;
  Zint::sequenceToValue(pos, text.end(), value);
  EXPECT_EQ(value, "buffered");
  EXPECT_EQ(pos - text.begin(), 8);
}

TEST(StrepString, anUnclosedOneIsRefused) {
  for (const char* text : {"'", "'abc", "'abc\\", "'abc\\'", "", " abc", "'\\x4"}) {
    EXPECT_THROW(strepToValue<String8>(text), Zint::RangeException) << text;
  }
}

// What lies behind the given end is not read.
TEST(StrepString, oneThatEndsInAnEscapeIsRefused) {
  const String8 text("'\\x41'");
  for (const int length : {2, 3, 4, 5}) {
    auto pos = text.begin();
    String8 value;
    EXPECT_THROW(Zint::sequenceToValue(pos, text.begin() + length, value), Zint::RangeException)
        << length;
  }
}

TEST(StrepString, roundTripOfEveryByte) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  EXPECT_EQ(strepToValue<String8>(valueToStrep(String8(every))), String8(every));
}

TEST(StrepString, roundTripOfRandomBytes) {
  std::mt19937 random(11);
  const std::string alphabet = "\\'x0aF \n\x80";
  for (int i = 0; i < 5000; ++i) {
    std::string text;
    for (U32 length = static_cast<U32>(random() % 12); length > 0; --length) {
      text += alphabet[random() % alphabet.size()];
    }
    ASSERT_EQ(strepToValue<String8>(valueToStrep(String8(text))), String8(text));
  }
}

// --- Doubles and bools ---------------------------------------------------------------------------

TEST(StrepDouble, isTheShortestTextThatReadsBack) {
  EXPECT_EQ(valueToStrep(0.1), "0.1");
  EXPECT_EQ(valueToStrep(2.0), "2");
  EXPECT_EQ(valueToStrep(-0.5), "-0.5");
  EXPECT_EQ(valueToStrep(1e300), "1e+300");
}

TEST(StrepDouble, roundTrip) {
  std::mt19937_64 random(5);
  for (int i = 0; i < 5000; ++i) {
    const U64 bits = random();
    double value;
    static_assert(sizeof value == sizeof bits);
    __builtin_memcpy(&value, &bits, sizeof value);
    if (std::isnan(value)) continue;
    ASSERT_EQ(strepToValue<double>(valueToStrep(value)), value);
  }
  for (double value : {0.0, 5e-324, 1.7976931348623157e308, 0.1, 1.0 / 3}) {
    EXPECT_EQ(strepToValue<double>(valueToStrep(value)), value);
  }
}

TEST(StrepDouble, infinityReadsBackAndNotANumberIsRefused) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(strepToValue<double>(valueToStrep(infinity)), infinity);
  EXPECT_EQ(strepToValue<double>(valueToStrep(-infinity)), -infinity);
  EXPECT_THROW(strepToValue<double>("nan"), Zint::RangeException);
}

TEST(StrepDouble, textThatIsNoNumberIsRefused) {
  for (const char* text : {"", "x", ".", "-", "e5", " 1", "1e999"}) {
    EXPECT_THROW(strepToValue<double>(text), Zint::RangeException) << text;
  }
}

TEST(StrepBool, writtenAsWordsAndReadFromWordsOrDigits) {
  EXPECT_EQ(valueToStrep(true), "true");
  EXPECT_EQ(valueToStrep(false), "false");
  EXPECT_TRUE(strepToValue<bool>("true"));
  EXPECT_TRUE(strepToValue<bool>("1"));
  EXPECT_FALSE(strepToValue<bool>("false"));
  EXPECT_FALSE(strepToValue<bool>("0"));
}

TEST(StrepBool, anythingElseIsRefused) {
  for (const char* text : {"", "t", "True", "yes", "2", "10", "tru"}) {
    EXPECT_THROW(strepToValue<bool>(text), Zint::RangeException) << text;
  }
}

TEST(StrepBool, nothingBehindTheEndIsLookedAt) {
  const String8 text("true");
  for (std::ptrdiff_t length = 0; length < 4; ++length) {
    auto pos = text.begin();
    bool value = false;
    EXPECT_THROW(Zint::sequenceToValue(pos, text.begin() + length, value), Zint::RangeException);
    EXPECT_EQ(pos, text.begin());
  }
}

TEST(Strep, junk_namesAllOfATextWithANul) {
  const String8 text(std::string("a\0b", 3));
  try {
    Zint::refuseJunk(text, text.begin() + 1, text);
    ADD_FAILURE();
  } catch (const Zint::RangeException& exception) {
    EXPECT_EQ(exception.message(), String8("junk at column 1 deserializing ") + text);
    EXPECT_STREQ(exception.what(), "junk at column 1 deserializing a\\x00b");
  }
}

}  // namespace
