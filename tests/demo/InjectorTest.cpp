#include <demo/chip/Injector.h>
#include <demo/common/SwitchLayout.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using Demo::Flip;
using Demo::FlipLog;
using Demo::switchTables;

class InjectorTest : public testing::Test {
 protected:
  std::vector<U32> registers_ = std::vector<U32>(Demo::registerFileSize / 4);
  std::unique_ptr<FlipLog> log_ = std::make_unique<FlipLog>();
};

TEST_F(InjectorTest, flip_changesOneBitAndLogsIt) {
  Demo::Injector injector(registers_.data(), *log_, 1);
  injector.flip();
  Flip flip;
  ASSERT_TRUE(log_->take(flip));
  EXPECT_EQ(flip.sequence, 0u);
  EXPECT_EQ(flip.before, 0u);
  EXPECT_EQ(std::popcount(flip.after), 1);
  EXPECT_EQ(registers_[flip.address / 4], flip.after);
  EXPECT_FALSE(log_->take(flip));
}

TEST_F(InjectorTest, flip_hitsEveryTableOnTheChipAndNothingBetweenTheirEntries) {
  std::map<U32, std::string> tableAt;
  for (const auto& table : switchTables) {
    for (U32 i = 0; i < table.registers(); ++i) tableAt[table.registerAddress(i)] = table.name;
  }
  Demo::Injector injector(registers_.data(), *log_, 1);
  std::set<std::string> hit;
  for (U32 i = 0; i < 1000; ++i) {
    injector.flip();
    Flip flip;
    ASSERT_TRUE(log_->take(flip));
    ASSERT_TRUE(tableAt.contains(flip.address)) << flip.address;
    hit.insert(tableAt[flip.address]);
  }
  EXPECT_EQ(hit, (std::set<std::string>{"acl", "mac", "port", "qos", "vlan"}));
}

TEST_F(InjectorTest, sameSeedMakesTheSameErrors) {
  std::vector<U32> others(registers_.size());
  FlipLog& log = *log_;
  Demo::Injector first(registers_.data(), log, 5);
  Demo::Injector second(others.data(), log, 5);
  for (U32 i = 0; i < 100; ++i) {
    first.flip();
    second.flip();
  }
  EXPECT_EQ(registers_, others);
}

TEST_F(InjectorTest, fullLog_nothingIsFlipped) {
  for (U32 i = 0; i < FlipLog::capacity; ++i) log_->append({0, 0, 1, i});
  Demo::Injector injector(registers_.data(), *log_, 1);
  injector.flip();
  EXPECT_EQ(std::count(registers_.begin(), registers_.end(), 0u),
            static_cast<std::ptrdiff_t>(registers_.size()));
}

TEST(FlipLogTest, keepsItsOrderBeyondItsCapacity) {
  const auto log = std::make_unique<FlipLog>();
  U32 taken = 0;
  for (U32 i = 0; i < 3 * FlipLog::capacity; ++i) {
    ASSERT_FALSE(log->isFull());
    log->append({i, 0, 0, i});
    if (i % 2 == 0) continue;
    for (Flip flip; log->take(flip);) ASSERT_EQ(flip.sequence, taken++);
  }
  EXPECT_EQ(taken, 3 * FlipLog::capacity);
}

TEST(FlipLogTest, isFullAtItsCapacityAndNoLongerWhenOneIsTaken) {
  const auto log = std::make_unique<FlipLog>();
  for (U32 i = 0; i < FlipLog::capacity; ++i) {
    EXPECT_FALSE(log->isFull());
    log->append({});
  }
  EXPECT_TRUE(log->isFull());
  Flip flip;
  EXPECT_TRUE(log->take(flip));
  EXPECT_FALSE(log->isFull());
}

// What both processes take for granted.
TEST(SwitchLayoutTest, tablesFillTheRegisterFileWithoutSharingRegisters) {
  std::set<U32> addresses;
  for (const auto& table : switchTables) {
    for (U32 i = 0; i < table.registers(); ++i) {
      const U32 address = table.registerAddress(i);
      ASSERT_TRUE(addresses.insert(address).second) << table.name << " register " << i;
      ASSERT_LT(address, Demo::registerFileSize);
      ASSERT_LT(address, table.end());
    }
  }
}

TEST(SwitchLayoutTest, registerAddressSkipsTheGapsOfASparseTable) {
  const auto& port = switchTables[2];
  ASSERT_STREQ(port.name, "port");
  EXPECT_TRUE(port.isSparse());
  EXPECT_EQ(port.registerAddress(2), 0x90008u);
  EXPECT_EQ(port.registerAddress(3), 0x90100u);
}

}  // namespace
