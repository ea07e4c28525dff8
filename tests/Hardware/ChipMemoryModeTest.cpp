#include <Hardware/ChipMemory.h>

#include <gmock/gmock.h>

#include <sstream>

#include "runtime/Probes.h"

namespace Hardware {
namespace {

using Probes::rangeMessage;
using testing::HasSubstr;
using testing::Not;
using ChipMemoryMode = ChipMemory::ChipMemoryMode;

TEST(ChipMemoryModeText, enumerators_haveTheirNumbersAndStaticFunctions) {
  EXPECT_EQ(ChipMemory::normal(), ChipMemory::normal_);
  EXPECT_EQ(ChipMemory::normal_, 0);
  EXPECT_EQ(ChipMemory::override(), ChipMemory::override_);
  EXPECT_EQ(ChipMemory::override_, 1);
  EXPECT_EQ(ChipMemory::buffered(), ChipMemory::buffered_);
  EXPECT_EQ(ChipMemory::buffered_, 2);
}

struct ModeName {
  S32 number;
  const char* name;
};

class ChipMemoryModeTextNamed : public testing::TestWithParam<ModeName> {
 protected:
  const ChipMemoryMode value = static_cast<ChipMemoryMode>(GetParam().number);
  const Zint::String8 name = GetParam().name;
  const Zint::String8 quoted = Zint::String8("'") + name + "'";
};

TEST_P(ChipMemoryModeTextNamed, stringValue_isTheName) { EXPECT_EQ(stringValue(value), name); }

TEST_P(ChipMemoryModeTextNamed, instance_ofTheNumberAndOfTheName) {
  EXPECT_EQ(ChipMemory::ChipMemoryModeInstance(static_cast<U32>(GetParam().number)), value);
  EXPECT_EQ(ChipMemory::ChipMemoryModeInstance(name), value);
}

TEST_P(ChipMemoryModeTextNamed, strep_isTheNameInSingleQuotes) {
  EXPECT_EQ(valueToStrep(value), quoted);
}

TEST_P(ChipMemoryModeTextNamed, strep_readsBack) {
  EXPECT_EQ(Zint::strepToValue<ChipMemoryMode>(quoted), value);
  EXPECT_EQ(Zint::strepToValue(quoted, static_cast<const ChipMemoryMode*>(nullptr)), value);
}

TEST_P(ChipMemoryModeTextNamed, sequence_leavesThePositionBehindTheClosingQuote) {
  const Zint::String8 text = quoted + ", 5";
  auto pos = text.begin();
  auto read = static_cast<ChipMemoryMode>(-1);
  sequenceToValue(pos, text.end(), read);
  EXPECT_EQ(read, value);
  EXPECT_EQ(pos - text.begin(), static_cast<std::ptrdiff_t>(quoted.size()));
}

TEST_P(ChipMemoryModeTextNamed, stream_getsTheNameWithoutQuotes) {
  std::ostringstream out;
  out << value;
  EXPECT_EQ(out.str(), name.bytes());
}

INSTANTIATE_TEST_SUITE_P(Values, ChipMemoryModeTextNamed,
                         testing::Values(ModeName{0, "normal"}, ModeName{1, "override"},
                                         ModeName{2, "buffered"}));

TEST(ChipMemoryModeText, stringValue_ofAnotherNumberShowsTheNumber) {
  EXPECT_EQ(stringValue(static_cast<ChipMemoryMode>(3)), "ChipMemory::ChipMemoryMode(3)");
  EXPECT_EQ(stringValue(static_cast<ChipMemoryMode>(7)), "ChipMemory::ChipMemoryMode(7)");
  EXPECT_EQ(stringValue(static_cast<ChipMemoryMode>(-1)), "ChipMemory::ChipMemoryMode(-1)");
  EXPECT_EQ(stringValue(static_cast<ChipMemoryMode>(-2147483647 - 1)),
            "ChipMemory::ChipMemoryMode(-2147483648)");
}

TEST(ChipMemoryModeText, instance_ofAnotherNumberNamesTheQualifiedType) {
  for (U32 number : {3u, 7u, 0x80000000u, 0xffffffffu}) {
    EXPECT_THAT(rangeMessage([&] { ChipMemory::ChipMemoryModeInstance(number); }),
                HasSubstr("ChipMemory::ChipMemoryMode"));
  }
}

TEST(ChipMemoryModeText, instance_ofAnotherTextNamesTheShortType) {
  for (const char* text : {"", "Buffered", "buffered ", "buffere", "'buffered'", "1"}) {
    const std::string message =
        rangeMessage([&] { ChipMemory::ChipMemoryModeInstance(Zint::String8(text)); });
    EXPECT_THAT(message, HasSubstr("ChipMemoryMode")) << text;
    EXPECT_THAT(message, Not(HasSubstr("::"))) << text;
  }
}

TEST(ChipMemoryModeText, sequence_ofAnotherTextLeavesValueAndPositionUnchanged) {
  const Zint::String8 text = "'Buffered'";
  auto value = static_cast<ChipMemoryMode>(1);
  auto pos = text.begin();
  EXPECT_THROW(sequenceToValue(pos, text.end(), value), Zint::RangeException);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(pos, text.begin());
}

TEST(ChipMemoryModeText, junk_namesTheColumnAndTheWholeText) {
  EXPECT_EQ(rangeMessage([] { Zint::strepToValue<ChipMemoryMode>("'buffered'x"); }),
            "junk at column 10 deserializing 'buffered'x");
  EXPECT_EQ(rangeMessage([] { Zint::strepToValue<ChipMemoryMode>("'normal' 'buffered'"); }),
            "junk at column 8 deserializing 'normal' 'buffered'");
}

}  // namespace
}  // namespace Hardware
