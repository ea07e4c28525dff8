#include <Hardware/HardwareShadow.h>

#include <gmock/gmock.h>

#include <sstream>

#include "runtime/Probes.h"

namespace Hardware {
namespace {

using Probes::rangeMessage;
using testing::HasSubstr;
using testing::Not;
using ShadowState = HardwareShadow::State;

TEST(HardwareShadowStateText, enumerators_haveTheirNumbersAndStaticFunctions) {
  EXPECT_EQ(HardwareShadow::unconfigured(), HardwareShadow::unconfigured_);
  EXPECT_EQ(HardwareShadow::unconfigured_, 0);
  EXPECT_EQ(HardwareShadow::configured(), HardwareShadow::configured_);
  EXPECT_EQ(HardwareShadow::configured_, 1);
  EXPECT_EQ(HardwareShadow::idle(), HardwareShadow::idle_);
  EXPECT_EQ(HardwareShadow::idle_, 2);
  EXPECT_EQ(HardwareShadow::auditing(), HardwareShadow::auditing_);
  EXPECT_EQ(HardwareShadow::auditing_, 3);
}

struct StateName {
  S32 number;
  const char* name;
};

class HardwareShadowStateTextNamed : public testing::TestWithParam<StateName> {
 protected:
  const ShadowState value = static_cast<ShadowState>(GetParam().number);
  const Zint::String8 name = GetParam().name;
  const Zint::String8 quoted = Zint::String8("'") + name + "'";
};

TEST_P(HardwareShadowStateTextNamed, stringValue_isTheName) { EXPECT_EQ(stringValue(value), name); }

TEST_P(HardwareShadowStateTextNamed, instance_ofTheNumberAndOfTheName) {
  EXPECT_EQ(HardwareShadow::StateInstance(static_cast<U32>(GetParam().number)), value);
  EXPECT_EQ(HardwareShadow::StateInstance(name), value);
}

TEST_P(HardwareShadowStateTextNamed, strep_isTheNameInSingleQuotes) {
  EXPECT_EQ(valueToStrep(value), quoted);
}

TEST_P(HardwareShadowStateTextNamed, strep_readsBack) {
  EXPECT_EQ(Zint::strepToValue<ShadowState>(quoted), value);
  EXPECT_EQ(Zint::strepToValue(quoted, static_cast<const ShadowState*>(nullptr)), value);
}

TEST_P(HardwareShadowStateTextNamed, sequence_leavesThePositionBehindTheClosingQuote) {
  const Zint::String8 text = quoted + ", 5";
  auto pos = text.begin();
  auto read = static_cast<ShadowState>(-1);
  sequenceToValue(pos, text.end(), read);
  EXPECT_EQ(read, value);
  EXPECT_EQ(pos - text.begin(), static_cast<std::ptrdiff_t>(quoted.size()));
}

TEST_P(HardwareShadowStateTextNamed, stream_getsTheNameWithoutQuotes) {
  std::ostringstream out;
  out << value;
  EXPECT_EQ(out.str(), name.bytes());
}

INSTANTIATE_TEST_SUITE_P(Values, HardwareShadowStateTextNamed,
                         testing::Values(StateName{0, "unconfigured"}, StateName{1, "configured"},
                                         StateName{2, "idle"}, StateName{3, "auditing"}));

TEST(HardwareShadowStateText, stringValue_ofAnotherNumberShowsTheNumber) {
  EXPECT_EQ(stringValue(static_cast<ShadowState>(4)), "HardwareShadow::State(4)");
  EXPECT_EQ(stringValue(static_cast<ShadowState>(7)), "HardwareShadow::State(7)");
  EXPECT_EQ(stringValue(static_cast<ShadowState>(-1)), "HardwareShadow::State(-1)");
  EXPECT_EQ(stringValue(static_cast<ShadowState>(-2147483647 - 1)),
            "HardwareShadow::State(-2147483648)");
}

TEST(HardwareShadowStateText, instance_ofAnotherNumberNamesTheQualifiedType) {
  for (U32 number : {4u, 7u, 0x80000000u, 0xffffffffu}) {
    EXPECT_THAT(rangeMessage([&] { HardwareShadow::StateInstance(number); }),
                HasSubstr("HardwareShadow::State"));
  }
}

TEST(HardwareShadowStateText, instance_ofAnotherTextNamesTheShortType) {
  for (const char* text : {"", "Idle", "Auditing", "auditing ", "auditin", "'auditing'", "1"}) {
    const std::string message =
        rangeMessage([&] { HardwareShadow::StateInstance(Zint::String8(text)); });
    EXPECT_THAT(message, HasSubstr("State")) << text;
    EXPECT_THAT(message, Not(HasSubstr("::"))) << text;
  }
}

TEST(HardwareShadowStateText, sequence_ofAnotherTextLeavesValueAndPositionUnchanged) {
  const Zint::String8 text = "'Auditing'";
  auto value = static_cast<ShadowState>(1);
  auto pos = text.begin();
  EXPECT_THROW(sequenceToValue(pos, text.end(), value), Zint::RangeException);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(pos, text.begin());
}

TEST(HardwareShadowStateText, junk_namesTheColumnAndTheWholeText) {
  EXPECT_EQ(rangeMessage([] { Zint::strepToValue<ShadowState>("'auditing'x"); }),
            "junk at column 10 deserializing 'auditing'x");
  EXPECT_EQ(rangeMessage([] { Zint::strepToValue<ShadowState>("'unconfigured' 'auditing'"); }),
            "junk at column 14 deserializing 'unconfigured' 'auditing'");
}

}  // namespace
}  // namespace Hardware
