#include <Driver/RegisterTable.h>
#include <gtest/gtest.h>

namespace {

using Driver::Rewrite;
using Driver::Rule;
using Driver::TableField;
using Driver::TableRegion;
using Driver::TableRegister;
using Bytes = std::vector<U8>;

constexpr TableField tableFields[] = {{"valid", 0, 1}, {"port", 1, 4}, {"age", 16, 16}};
constexpr TableRegister tableRegisters[] = {
    {.name = "mac[0]", .mask = 0xFF00, .rewrite = Rewrite::zero, .fields = tableFields},
    {.name = "mac[1]", .mask = 0xFF00, .rewrite = Rewrite::zero, .fields = tableFields},
    {.name = "mode",
     .rule = Rule::detectOnly,
     .isOnce = true,
     .resetValue = 0x12345678,
     .resetMask = 0xFFFFFFFF},
    {.name = "half", .resetValue = 1, .resetMask = 1},
};
constexpr TableRegion tableRegions[] = {
    {.name = "table", .address = 0x1000, .entrySize = 4, .stride = 4, .registers = tableRegisters}};

struct RegisterTableTest : testing::Test {
  Hardware::ChipMemory::Ptr region = Driver::chipMemoryOf(tableRegions[0], nullptr, 0x200000000);
  Zint::Ptr<Driver::RegisterNames> names = Driver::registerNamesOf(tableRegions);

  std::string difference(U32 entry, const Bytes& expected, const Bytes& actual,
                         const Bytes& mask = {}) {
    return names->differenceText(*region, entry, expected, actual, mask).bytes();
  }
};

TEST_F(RegisterTableTest, chipMemoryOf_hasTheTablesLayout) {
  EXPECT_EQ("table", region->name());
  EXPECT_EQ(Hardware::ChipAddress(2, 0x1000), region->address());
  EXPECT_EQ(4u, region->entries());
  EXPECT_EQ(4u, region->entrySize());
  EXPECT_EQ(4u, region->stride());
}

TEST_F(RegisterTableTest, policyOf_hasRulesMasksAndWholeResetValues) {
  const auto policy = Driver::policyOf(region, tableRegions[0]);
  EXPECT_EQ(Rule::repaired, policy->rule(1));
  EXPECT_EQ(Rule::detectOnly, policy->rule(2));
  EXPECT_TRUE(policy->isOnce(2));
  EXPECT_FALSE(policy->isOnce(3));
  ASSERT_NE(nullptr, policy->mask(1));
  EXPECT_EQ(0xFF, policy->mask(1)[1]);
  EXPECT_EQ(Rewrite::zero, policy->rewrite(1));
  EXPECT_EQ(nullptr, policy->mask(2));
  ASSERT_NE(nullptr, policy->resetValue(2));
  EXPECT_EQ(0x78, policy->resetValue(2)[0]);
  EXPECT_EQ(0x12, policy->resetValue(2)[3]);
  EXPECT_EQ(nullptr, policy->resetValue(3));
}

TEST_F(RegisterTableTest, policyOf_anotherRegionIsRefused) {
  const auto other =
      Hardware::chipMemoryFactory("other", Hardware::ChipAddress(0, 0), 4, 2, 2, nullptr);
  EXPECT_THROW(Driver::policyOf(other, tableRegions[0]), Zint::RangeException);
}

TEST_F(RegisterTableTest, entryName_isTheRegisters) {
  EXPECT_EQ("mac[1]", names->entryName(*region, 1));
  EXPECT_EQ("", names->entryName(*region, 4));
  const auto other =
      Hardware::chipMemoryFactory("other", Hardware::ChipAddress(0, 0), 4, 4, 4, nullptr);
  EXPECT_EQ("", names->entryName(*other, 1));
}

TEST_F(RegisterTableTest, differenceText_namesTheFieldsThatDiffer) {
  EXPECT_EQ("mac[1].valid expected 1 actual 0", difference(1, {1, 0, 0, 0}, {0, 0, 0, 0}));
  EXPECT_EQ("mac[1].port expected 3 actual 8, mac[1].age expected 0x1234 actual 0x1235",
            difference(1, {6, 0, 0x34, 0x12}, {16, 0, 0x35, 0x12}));
  EXPECT_EQ("", difference(1, {6, 0, 0x34, 0x12}, {6, 0, 0x34, 0x12}));
}

TEST_F(RegisterTableTest, differenceText_leavesMaskedBitsOut) {
  EXPECT_EQ("mac[1].port expected 3 actual 8",
            difference(1, {6, 0, 0x34, 0x12}, {16, 0, 0x35, 0x12}, {0, 0, 0xFF, 0xFF}));
}

TEST_F(RegisterTableTest, differenceText_ofBitsWithoutAFieldNamesTheRegister) {
  EXPECT_EQ("mode expected 1 actual 2", difference(2, {1, 0, 0, 0}, {2, 0, 0, 0}));
  EXPECT_EQ("mac[0] expected 0x100 actual 0", difference(0, {0, 1, 0, 0}, {0, 0, 0, 0}));
}

TEST_F(RegisterTableTest, differenceText_ofManyFieldsIsShort) {
  std::vector<TableField> many;
  for (U32 i = 0; i < 32; ++i) many.push_back({"bit", i, 1});
  const TableRegister one[] = {{.name = "r", .fields = many}};
  const TableRegion own[] = {{.name = "table", .registers = one}};
  const auto text = Driver::registerNamesOf(own)->differenceText(
      *region, 0, Bytes{0xFF, 0xFF, 0xFF, 0xFF}, Bytes(4), {});
  EXPECT_NE(std::string::npos, text.bytes().find("r.bit expected 1 actual 0 and 24 more"));
}

TEST_F(RegisterTableTest, valueText_namesAllFields) {
  EXPECT_EQ("mac[0] valid=1 port=3 age=0x1234",
            names->valueText(*region, 0, Bytes{7, 0, 0x34, 0x12}));
  EXPECT_EQ("mode", names->valueText(*region, 2, Bytes(4)));
}

TEST(RegisterTable, tableOfOneKind_namesItsEntriesByNumber) {
  constexpr TableRegister one[] = {
      {.name = "vlan", .rule = Rule::detectOnly, .fields = tableFields}};
  const TableRegion own[] = {{.name = "vlan", .registers = one, .entries = 64}};
  const auto vlan = Driver::chipMemoryOf(own[0], nullptr);
  EXPECT_EQ(64u, vlan->entries());
  EXPECT_EQ(Rule::detectOnly, Driver::policyOf(vlan, own[0])->rule(63));
  const auto vlanNames = Driver::registerNamesOf(own);
  EXPECT_EQ("vlan[17]", vlanNames->entryName(*vlan, 17));
  EXPECT_EQ("", vlanNames->entryName(*vlan, 64));
  EXPECT_EQ("vlan[17].valid expected 1 actual 0",
            vlanNames->differenceText(*vlan, 17, Bytes{1, 0, 0, 0}, Bytes(4), {}));
}

TEST(RegisterTable, twoRegionsOfAName_areRefused) {
  const TableRegion twice[] = {tableRegions[0], tableRegions[0]};
  EXPECT_THROW(Driver::registerNamesOf(twice), Zint::RangeException);
}

TEST(RegisterTable, fieldOf_readsAcrossBytesAndBeyondTheEnd) {
  const Bytes bytes = {0x80, 0x01, 0xFF};
  EXPECT_EQ(3u, Driver::fieldOf(bytes, 7, 2));
  EXPECT_EQ(0xFFu, Driver::fieldOf(bytes, 16, 64));
  EXPECT_EQ(0u, Driver::fieldOf(bytes, 4096, 4));
  EXPECT_EQ(0xFF0180u, Driver::fieldOf(bytes, 0, 4096));
}

}  // namespace
