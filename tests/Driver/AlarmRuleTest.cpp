#include <Driver/AlarmRule.h>
#include <Driver/Descriptions.h>
#include <Zint/GenericIf.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

using Driver::AlarmRule;

std::string refusedRule(Zint::Name name, AlarmRule::Scope scope, U32 count, double within,
                        double clearAfter) {
  try {
    Driver::alarmRuleFactory(std::move(name), scope, count, within, clearAfter);
  } catch (const Zint::RangeException& exception) {
    return exception.what();
  }
  return "";
}

TEST(AlarmRule, holdsWhatItWasMadeWith) {
  const auto rule = Driver::alarmRuleFactory("often", AlarmRule::chip_, 3, 60, 600);
  EXPECT_EQ(rule->name(), "often");
  EXPECT_EQ(rule->scope(), AlarmRule::chip_);
  EXPECT_EQ(rule->count(), 3u);
  EXPECT_EQ(rule->within(), 60);
  EXPECT_EQ(rule->clearAfter(), 600);
}

TEST(AlarmRule, refusesAnEmptyName) {
  EXPECT_EQ(refusedRule("", AlarmRule::chip_, 1, 1, 1), "an alarm rule needs a name");
}

TEST(AlarmRule, refusesAScopeThatThereIsNot) {
  EXPECT_EQ(refusedRule("a", static_cast<AlarmRule::Scope>(5), 1, 1, 1), "AlarmRule::Scope");
}

TEST(AlarmRule, refusesACountOutsideItsLimits) {
  const char* const text = "the count of an alarm rule must be from 1 to 65536";
  EXPECT_EQ(refusedRule("a", AlarmRule::entry_, 0, 1, 1), text);
  EXPECT_EQ(refusedRule("a", AlarmRule::entry_, 65537, 1, 1), text);
  EXPECT_EQ(refusedRule("a", AlarmRule::entry_, 65536, 0, 0), "");
}

TEST(AlarmRule, refusesTimesThatAreNoDuration) {
  const char* const text = "the times of an alarm rule must be finite and not negative";
  for (const double bad : {-1e-9, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    EXPECT_EQ(refusedRule("a", AlarmRule::entry_, 1, bad, 1), text);
    EXPECT_EQ(refusedRule("a", AlarmRule::entry_, 1, 1, bad), text);
  }
}

TEST(AlarmRule, isShownByName) {
  const auto rule = Driver::alarmRuleFactory("often", AlarmRule::manyAtOnce_, 3, 60, 0.5);
  const Zint::GenericIf_ byName{Zint::Ptr<Zint::PtrInterface>(rule)};
  EXPECT_EQ(byName.attribute("scope"), "'manyAtOnce'");
  EXPECT_EQ(byName.attribute("count"), "3");
  EXPECT_EQ(byName.attribute("within"), "60");
  EXPECT_EQ(byName.attribute("clearAfter"), "0.5");
}

TEST(AlarmRule, scopesAreReadAndWrittenAsNames) {
  std::ostringstream out;
  for (U32 i = 0; i < 5; ++i) out << AlarmRule::ScopeInstance(i) << ' ';
  EXPECT_EQ(out.str(), "entry region chip shadow manyAtOnce ");
  EXPECT_EQ(AlarmRule::ScopeInstance("region"), AlarmRule::region_);
  EXPECT_EQ(Zint::strepToValue<AlarmRule::Scope>("'shadow'"), AlarmRule::shadow_);
  EXPECT_THROW(AlarmRule::ScopeInstance("Region"), Zint::RangeException);
}

}  // namespace
