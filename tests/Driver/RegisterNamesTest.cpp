// What a patrol tells by name.
#include <Driver/RegisterTable.h>

#include "PatrolTest.h"

namespace {

using Driver::Verdict;

constexpr Driver::TableField macFields[] = {{"valid", 0, 1}, {"port", 1, 4}};
constexpr Driver::TableRegister macRegisters[] = {{.name = "mac", .fields = macFields}};
constexpr Driver::TableRegion macTable[] = {
    {.name = "mac", .registers = macRegisters, .entries = 32}};

// Names that throw, or drop themselves.
class OddNames : public Driver::RegisterNames {
 public:
  Zint::String8 entryName(const ChipMemory&, U32) const override { return "odd"; }
  Zint::String8 differenceText(const ChipMemory&, U32, std::span<const U8>, std::span<const U8>,
                               std::span<const U8>) const override {
    if (drop) drop();
    if (throws) throw std::runtime_error("no name");
    return "odd differs";
  }
  Zint::String8 valueText(const ChipMemory&, U32, std::span<const U8>) const override { return ""; }

  bool throws = false;
  std::function<void()> drop;
};

class RegisterNamesTest : public Support::PatrolTest {
 protected:
  // The text of the finding of a damage to entry 17.
  std::string textOfDamage(U32 written, U32 damaged) {
    write(mac, 17, written);
    audit();
    EXPECT_TRUE(pass());
    texts.clear();
    set(mac, 17, damaged);
    EXPECT_TRUE(pass());
    return texts.empty() ? "" : texts.back();
  }

  ChipMemory::Ptr mac = region("mac", 0x1000, 32);
};

TEST_F(RegisterNamesTest, findingWithoutNames_isToldByNumberAlone) {
  EXPECT_EQ("mac entry 17: expected x07x00x00x00, actual x06x00x00x00: repaired",
            textOfDamage(7, 6));
  EXPECT_EQ(nullptr, shadow->registerNames());
}

TEST_F(RegisterNamesTest, findingWithNames_tellsTheFieldsThatDiffer) {
  shadow->registerNamesIs(Driver::registerNamesOf(macTable));
  EXPECT_EQ(
      "mac entry 17: expected x07x00x00x00, actual x00x00x00x00: repaired; "
      "mac[17].valid expected 1 actual 0, mac[17].port expected 3 actual 0",
      textOfDamage(7, 0));
}

TEST_F(RegisterNamesTest, maskedBits_areNotTold) {
  shadow->registerNamesIs(Driver::registerNamesOf(macTable));
  const auto policy = Driver::policyFactory(mac);
  const U8 port[] = {0x1E, 0, 0, 0};
  policy->maskIs(port, Driver::Rewrite::kept);
  shadow->policyIs(policy);
  EXPECT_EQ(
      "mac entry 17: expected x07x00x00x00, actual x00x00x00x00: repaired; "
      "mac[17].valid expected 1 actual 0",
      textOfDamage(7, 0));
}

TEST_F(RegisterNamesTest, namesThatThrow_areNone) {
  const auto names = Zint::makePtr<OddNames>();
  names->throws = true;
  shadow->registerNamesIs(names);
  EXPECT_EQ("mac entry 17: expected x07x00x00x00, actual x00x00x00x00: repaired",
            textOfDamage(7, 0));
}

TEST_F(RegisterNamesTest, namesThatAreTakenBackWhileTheyAreAsked_end) {
  Zint::Ptr<OddNames> names = Zint::makePtr<OddNames>();
  names->drop = [this] { shadow->registerNamesIs(nullptr); };
  shadow->registerNamesIs(names);
  names = nullptr;
  EXPECT_EQ("mac entry 17: expected x07x00x00x00, actual x00x00x00x00: repaired; odd differs",
            textOfDamage(7, 0));
  EXPECT_EQ(nullptr, shadow->registerNames());
}

TEST_F(RegisterNamesTest, aFindingThatIsKept_keepsItsNames) {
  std::string kept;
  Driver::Finding copy;
  onFinding = [&](const Driver::Finding& finding) {
    if (finding.verdict == Verdict::repaired) copy = finding;
  };
  shadow->registerNamesIs(Driver::registerNamesOf(macTable));
  textOfDamage(7, 6);
  shadow->registerNamesIs(nullptr);
  const U8 expected[] = {7, 0, 0, 0}, actual[] = {6, 0, 0, 0};
  copy.expected = expected;
  copy.actual = actual;
  EXPECT_EQ("mac[17].valid expected 1 actual 0", copy.byName());
}

}  // namespace
