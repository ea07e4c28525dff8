// What registers do, their names, and what is refused.
#include <Hardware/GenericChipHam.h>
#include <testkit/FakeChip.h>

#include <sstream>

#include "testkit/Captured.h"

namespace TestKitTest {
namespace {

using TestKit::allBits;
using TestKit::Register;

template <class Acts>
std::string refusalOf(Acts acts) {
  try {
    acts();
  } catch (const Zint::RangeException& e) {
    return e.message().bytes();
  }
  return "none";
}

// One register of 4 bytes at 0 that holds `held`; what it holds after `value` is written.
U64 afterWrite(Register rules, U32 held, U32 value) {
  const auto chip = TestKit::fakeChipFactory("asic");
  rules.name = "r";
  chip->registerIs(rules);
  chip->valueIs("r", held);
  chip->write(0, value);
  return chip->value("r");
}

TEST(FakeChipRules, aBitWithoutARuleHoldsWhatIsWritten) {
  EXPECT_EQ(afterWrite({}, 0x0f, 0x3c), 0x3cu);
}
TEST(FakeChipRules, eachRuleOfAWriteHoldsForItsBitsAlone) {
  // Held 0011, written 0101; the low byte has the rule, the next one has none.
  const auto after = [](Register rules) { return afterWrite(rules, 0x3, 0xaa05); };
  EXPECT_EQ(after({.readOnly = 0xff}), 0xaa03u);
  EXPECT_EQ(after({.oneToClear = 0xff}), 0xaa02u);
  EXPECT_EQ(after({.oneToSet = 0xff}), 0xaa07u);
  EXPECT_EQ(after({.oneToToggle = 0xff}), 0xaa06u);
  EXPECT_EQ(after({.zeroToClear = 0xff}), 0xaa01u);
  EXPECT_EQ(after({.zeroToSet = 0xff}), 0xaafbu);
  EXPECT_EQ(after({.zeroToToggle = 0xff}), 0xaaf9u);
  EXPECT_EQ(after({.clearOnWrite = 0xff}), 0xaa00u);
  EXPECT_EQ(after({.setOnWrite = 0xff}), 0xaaffu);
}

TEST(FakeChipRules, writeOnceHoldsUntilTheReset) {
  const auto chip = TestKit::fakeChipFactory("asic");
  chip->registerIs({.name = "r", .resetValue = 1, .writeOnce = 0xff});
  chip->write(0, 5);
  chip->write(0, 0x106);
  EXPECT_EQ(chip->value("r"), 0x105u);
  chip->resetNow();
  EXPECT_EQ(chip->value("r"), 1u);
  chip->write(0, 7);
  EXPECT_EQ(chip->value("r"), 7u);
}

TEST(FakeChipRules, readsClearSetAndHideTheirBits) {
  const auto chip = TestKit::fakeChipFactory("asic");
  chip->registerIs({.name = "r",
                    .resetValue = 0x1234,
                    .writeOnly = 0xf000,
                    .clearOnRead = 0xf,
                    .setOnRead = 0xf0});
  EXPECT_EQ(chip->doRead(0, 4), 0x234u);
  EXPECT_EQ(chip->value("r"), 0x12f0u);
  EXPECT_EQ(chip->doRead(0, 4), 0x2f0u);
}

TEST_F(FakeChipTest, anAccessOfAPartTouchesThatPartAlone) {
  chip->registerIs({.name = "wide", .address = 0x300, .width = 8, .clearOnRead = allBits});
  chip->valueIs("wide", 0x1122334455667788);
  EXPECT_EQ(chip->doRead(0x304, 4), 0x11223344u);
  EXPECT_EQ(chip->value("wide"), 0x55667788u);
  chip->doWrite(0x302, 1, 0xabcd);
  EXPECT_EQ(chip->value("wide"), 0x55cd7788u);
}

TEST_F(FakeChipTest, resetValuesHoldFromTheStart) {
  EXPECT_EQ(chip->value("ctrl"), 3u);
  write("ctrl", 1);
  chip->resetNow();
  EXPECT_EQ(read("ctrl"), 3u);
}

TEST_F(FakeChipTest, testSideHasNoEffectAndIsNotCounted) {
  chip->valueIs("drops[1]", 9);
  EXPECT_EQ(chip->value("drops[1]"), 9u);
  EXPECT_EQ(chip->value("drops[1]"), 9u);
  EXPECT_EQ(chip->reads(), 0u);
  EXPECT_EQ(read("drops[1]"), 9u);
  EXPECT_EQ(read("drops[1]"), 0u);
  EXPECT_EQ(chip->reads("drops[1]"), 2u);
  EXPECT_EQ(chip->reads("drops"), 2u);
  EXPECT_EQ(chip->reads("mac"), 0u);
  EXPECT_EQ(chip->writes(), 0u);
}

TEST_F(FakeChipTest, aNameIsARegisterAnArrayOrAnAddress) {
  chip->valueIs("mac", 7);
  EXPECT_EQ(chip->value("mac[7]"), 7u);
  EXPECT_EQ(chip->value("0x11c"), 7u);
  EXPECT_EQ(chip->registerName(0x11d), "mac[7]");
  EXPECT_EQ(chip->registerName(0x120), "0x120");
  EXPECT_EQ(chip->valueText(0, 5), "ctrl 0x5 enable=1 speed=2");
  EXPECT_EQ(chip->valueText(0x102, 5), "mac[0]+2 0x5");
}

TEST_F(FakeChipTest, unknownNamesAreRefused) {
  for (const char* name : {"mac[8]", "mac[-1]", "mac[", "ctrl[0]", "nothing", "0x104x", "0x900"}) {
    EXPECT_EQ(refusalOf([&] { (void)chip->value(name); }),
              std::string("chip \"asic\": no register \"") + name + "\"");
  }
  EXPECT_EQ(refusalOf([&] { (void)chip->value("mac"); }),
            "chip \"asic\": \"mac\" is an array: name one of its registers");
}

TEST_F(FakeChipTest, registersThatCannotBeAreRefusedAndNothingHasChanged) {
  const auto refused = [&](const Register& r) { return refusalOf([&] { chip->registerIs(r); }); };
  EXPECT_EQ(refused({.name = "", .address = 0x400}), "chip \"asic\": a register without a name");
  EXPECT_EQ(refused({.name = "mac", .address = 0x400}),
            "chip \"asic\": register \"mac\" is there already");
  EXPECT_EQ(refused({.name = "x", .address = 0x400, .width = 3}),
            "chip \"asic\": register \"x\" has no such width");
  EXPECT_EQ(refused({.name = "x", .address = 0x400, .count = 2, .stride = 2}),
            "chip \"asic\": register \"x\" is wider than its stride");
  EXPECT_EQ(refused({.name = "x", .address = 0xf8, .width = 8, .count = 2}),
            "chip \"asic\": register \"x\" shares bytes with mac[0]");
  EXPECT_EQ(refused({.name = "x", .address = 0x102, .width = 1}),
            "chip \"asic\": register \"x\" shares bytes with mac[0]");
  EXPECT_EQ(refused({.name = "x", .address = allBits - 2}),
            "chip \"asic\": register \"x\" ends beyond all addresses");
  EXPECT_EQ(refused({.name = "x", .address = 0x400, .count = 1u << 25}),
            "chip \"asic\": register \"x\" has too many elements");
  EXPECT_EQ(chip->registerName(0xf8), "0xf8");
}

TEST_F(FakeChipTest, arraysMayBeInterleaved) {
  chip->registerIs({.name = "low", .address = 0x400, .count = 4, .stride = 8});
  chip->registerIs({.name = "high", .address = 0x404, .count = 4, .stride = 8});
  chip->doWrite(0x40c, 4, 1);
  EXPECT_EQ(chip->value("high[1]"), 1u);
  EXPECT_EQ(chip->value("low[1]"), 0u);
}

TEST_F(FakeChipTest, accessesOfNoRegisterAreRefusedAndNotCounted) {
  EXPECT_EQ(refusalOf([&] { chip->doRead(0x8, 4); }), "chip \"asic\": no register at 0x8");
  EXPECT_EQ(refusalOf([&] { chip->doRead(0x2, 4); }),
            "chip \"asic\": an access of 4 bytes at 0x2 reaches beyond ctrl");
  EXPECT_EQ(refusalOf([&] { chip->doWrite(0x0, 3, 1); }), "chip \"asic\": an access of 3 bytes");
  EXPECT_EQ(chip->reads() + chip->writes(), 0u);
  EXPECT_TRUE(chip->taken().empty());
}

TEST(PlainChip, everyAddressHoldsWhatWasWritten) {
  const auto chip = TestKit::fakeChipFactory("plain", TestKit::Unnamed::plain);
  chip->write(0x1234, 5);
  U32 value = 9;
  chip->read(0x1230, &value);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(chip->value("0x1234"), 5u);
  chip->doWrite(0x2000, 8, 0x1122334455667788);
  EXPECT_EQ(chip->doRead(0x2006, 2), 0x1122u);
  EXPECT_EQ(refusalOf([&] { chip->doRead(0x1230, 8); }),
            "chip \"plain\": an access of 8 bytes at 0x1230 reaches beyond 0x1230");
}

TEST_F(FakeChipTest, isTheRegisterAccessOfAnAccessMethod) {
  const auto ham = Hardware::genericChipHamFactory("asic", chip);
  U32 values[] = {1, 2, 3};
  ham->doWrite(Hardware::ChipAddress(0, 0x104), reinterpret_cast<U8*>(values), 4, 3);
  EXPECT_EQ(chip->value("mac[3]"), 3u);
  EXPECT_EQ(chip->writes("mac"), 3u);
}

TEST_F(FakeChipTest, takenHoldsTheAccessesSinceTheLastCall) {
  write("mac[1]", 5);
  EXPECT_EQ(read("mac[1]"), 5u);
  const TestKit::Access written{TestKit::Kind::write, 0x104, 4, 5};
  const TestKit::Access answered{TestKit::Kind::read, 0x104, 4, 5};
  EXPECT_EQ(chip->taken(), (std::vector<TestKit::Access>{written, answered}));
  EXPECT_TRUE(chip->taken().empty());
  std::ostringstream out;
  out << written;
  EXPECT_EQ(out.str(), "write 0x104 0x5 width 4");
}

TEST_F(FakeChipTest, lastAccessesNamesRegistersFieldsAndTimes) {
  const auto clock = Zint::Ptr<Zint::ManualClock>(Zint::manualClockFactory("clock"));
  write("lock", 1);
  chip->clockIs(clock);
  clock->timeIs(0.0125);
  write("ctrl", 5);
  EXPECT_EQ(chip->lastAccesses(),
            "    #1 write lock 0x1\n    #2 write ctrl 0x5 enable=1 speed=2 @12.5ms\n");
  EXPECT_EQ(chip->lastAccesses(1), "    #2 write ctrl 0x5 enable=1 speed=2 @12.5ms\n");
  for (U32 i = 0; i < 100; ++i) read("lock");
  EXPECT_THAT(chip->lastAccesses(), HasSubstr("#83 "));
  EXPECT_THAT(chip->lastAccesses(), Not(HasSubstr("#82 ")));
}

TEST_F(FakeChipTest, beforeAccessMayRefuseTheAccess) {
  chip->beforeAccessIs([](const TestKit::Access& access) {
    if (access.address == 4) throw std::runtime_error("not now");
  });
  EXPECT_THROW(write("lock", 1), std::runtime_error);
  EXPECT_EQ(chip->value("lock"), 0u);
  EXPECT_EQ(chip->writes(), 0u);
  write("ctrl", 1);
  EXPECT_EQ(chip->writes(), 1u);
}

TEST_F(FakeChipTest, beforeAccessMayReplaceItselfAndAccessTheChip) {
  chip->beforeAccessIs([&](const TestKit::Access&) {
    chip->beforeAccessIs({});
    write("lock", 2);
  });
  write("ctrl", 1);
  EXPECT_EQ(chip->value("lock"), 2u);
  EXPECT_EQ(chip->value("ctrl"), 1u);
}

}  // namespace
}  // namespace TestKitTest
