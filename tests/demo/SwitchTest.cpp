#include <Zint/Exception.h>
#include <demo/common/AccountedRegisters.h>
#include <demo/common/Switch.h>
#include <demo/common/Traffic.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/ManualLoop.h"

namespace {

using Demo::Table;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

// A register file in memory that counts its accesses and keeps the ledger.
class Registers : public Fru::HamImpl {
 public:
  explicit Registers(Demo::Ledger& ledger) : ledger_(ledger) {
    values[Demo::identityAddress.chipMemoryOffset() / 4] = Demo::identity;
  }
  void read(U32 address, U32* value) override {
    ++reads;
    *value = values.at(address / 4);
  }
  void write(U32 address, U32 value) override {
    ++writes;
    U32& held = values.at(address / 4);
    ledger_.recordWrite(address, std::exchange(held, value), value);
  }
  std::vector<U32> values = std::vector<U32>(Demo::registerFileSize / 4);
  U32 reads = 0;
  U32 writes = 0;

 private:
  Demo::Ledger& ledger_;
};

class SwitchTest : public testing::Test {
 protected:
  SwitchTest() {
    switch_.bringUp();
    switch_.shadow()->stateIs(HardwareShadow::auditing());
  }

  Table& table(const std::string& name) {
    for (Table& each : switch_.tables()) {
      if (each.region->name() == name) return each;
    }
    throw std::out_of_range(name);
  }
  // Runs until that many passes are complete.
  void passed(U32 passes) {
    while (switch_.shadow()->audits() < passes) loop_.turnAt(loop_.clock->time() + 0.001);
  }
  void damage(U32 address, U32 bit) {
    const U32 before = registers_->values[address / 4];
    registers_->values[address / 4] ^= bit;
    ledger_.recordDamage(address, before, before ^ bit);
  }
  U32 differing() {
    U32 differing = 0;
    for (const Table& each : switch_.tables()) {
      differing += Demo::Switch::registersDiffering(each, registers_->values.data());
    }
    return differing;
  }
  void accessesForgotten() { registers_->reads = registers_->writes = 0; }

  Support::ManualLoop loop_;
  Demo::Ledger ledger_{Demo::registerFileSize};
  Zint::Ptr<Registers> registers_ = Zint::makePtr<Registers>(ledger_);
  Demo::Switch switch_{loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock), registers_,
                       ledger_};
};

TEST_F(SwitchTest, bringUp_writesEveryRegisterOfEveryTableOnce) {
  U32 expected = 0;
  for (const auto& layout : Demo::switchTables) {
    expected += layout.registers();
    for (U32 i = 0; i < layout.registers(); ++i) {
      const bool isZero = i / layout.registersPerEntry() % 8 == 7;
      ASSERT_EQ(registers_->values[layout.registerAddress(i) / 4] == 0, isZero)
          << layout.name << " " << i;
    }
  }
  EXPECT_EQ(registers_->writes, expected);
  EXPECT_EQ(registers_->reads, 0u);
}

TEST_F(SwitchTest, bringUp_leavesTheGapsOfTheSparseTableAlone) {
  EXPECT_EQ(registers_->values[0x9000c / 4], 0u);
  EXPECT_NE(registers_->values[0x90100 / 4], 0u);
}

TEST_F(SwitchTest, bringUp_sixTablesInTheirModes) {
  EXPECT_EQ(switch_.tables().size(), 6u);
  EXPECT_EQ(table("acl").region->mode(), ChipMemory::normal());
  EXPECT_EQ(table("stack").region->mode(), ChipMemory::override());
  EXPECT_EQ(table("mac").region->entries(), 65536u);
}

TEST_F(SwitchTest, bringUp_everyEntryOnTheChipIsKnownAndWritten) {
  for (const Table& each : switch_.tables()) {
    if (!each.layout->isOnChip()) continue;
    for (U32 e = 0; e < each.layout->entries; ++e) {
      ASSERT_TRUE(each.region->entryInitialized(e)) << each.layout->name << " " << e;
      ASSERT_TRUE(switch_.shadow()->isWritten(each.region, e)) << each.layout->name << " " << e;
    }
  }
  EXPECT_EQ(differing(), 0u);
  passed(2);
  EXPECT_EQ(switch_.shadow()->differences(), 0u);
}

TEST_F(SwitchTest, damageBeforeTheFirstPassIsRepaired_alsoInATableThatWasBuffered) {
  damage(0xa0000, 0x10);
  damage(0xa0070, 0x10);  // an entry of zeros
  passed(2);
  EXPECT_EQ(differing(), 0u);
  EXPECT_EQ(ledger_.account(registers_->values.data()),
            (Demo::Account{.injected = 2, .repaired = 2}));
}

TEST_F(SwitchTest, nothingIsWrongWithItsSetUp) {
  EXPECT_THAT(switch_.complaints(), testing::IsEmpty());
  table("acl").region->modeIs(ChipMemory::buffered());
  EXPECT_THAT(switch_.complaints(), testing::SizeIs(1));
}

TEST_F(SwitchTest, oneChipHoldsAllTablesButTheAbsentOne) {
  for (Table& each : switch_.tables()) {
    EXPECT_EQ(switch_.shadow()->chip(each.region) == switch_.chip(), each.layout->isOnChip())
        << each.layout->name;
  }
  EXPECT_TRUE(switch_.chip()->isPresent());
  registers_->values[Demo::identityAddress.chipMemoryOffset() / 4] = ~0u;
  EXPECT_FALSE(switch_.chip()->isPresent());
}

TEST_F(SwitchTest, entryThatDiffersAgainAndAgainIsLeftAloneAndRaisesAnAlarm) {
  for (U32 i = 1; i <= 4; ++i) {
    damage(0x80010, 1);
    passed(2 * i);
  }
  EXPECT_EQ(table("vlan").region->registersFixed(), 3u);
  EXPECT_EQ(switch_.shadow()->quarantined(), 1u);
  ASSERT_NE(switch_.alarms()->alarm("often/vlan/2"), nullptr);
  EXPECT_EQ(switch_.alarms()->alarm("often/vlan/2")->state(), Driver::Alarm::raised_);
}

TEST_F(SwitchTest, equalConfigurationDoesNotReachTheChipOfATableThatSkips) {
  accessesForgotten();
  switch_.configureEntries(table("vlan"), 3, 4);
  EXPECT_EQ(registers_->writes, 0u);
  EXPECT_EQ(table("vlan").region->writeCacheHits(), 4u);
  switch_.configureEntries(table("mac"), 3, 4);
  EXPECT_EQ(registers_->writes, 8u);
}

TEST_F(SwitchTest, newVersionReachesTheChip) {
  accessesForgotten();
  const U32 before = registers_->values[0x80018 / 4];
  ++table("vlan").versions[3];
  switch_.configureEntries(table("vlan"), 3, 1);
  EXPECT_EQ(registers_->writes, 2u);
  EXPECT_NE(registers_->values[0x80018 / 4], before);
}

TEST_F(SwitchTest, readsComeFromTheCacheWhereItMayServeThem) {
  accessesForgotten();
  U32 words[6];
  switch_.read(table("port"), 1, reinterpret_cast<U8*>(words), 2);
  EXPECT_EQ(registers_->reads, 0u);
  EXPECT_EQ(words[3], registers_->values[0x90200 / 4]);
  switch_.read(table("qos"), 1, reinterpret_cast<U8*>(words), 2);
  EXPECT_EQ(registers_->reads, 2u);
  EXPECT_EQ(words[1], registers_->values[0xb0008 / 4]);
}

TEST_F(SwitchTest, tableInOverrideModeNeverReachesTheChip) {
  accessesForgotten();
  U32 words[4] = {1, 2, 3, 4};
  switch_.write(table("stack"), 0, reinterpret_cast<U8*>(words), 1);
  switch_.read(table("stack"), 0, reinterpret_cast<U8*>(words), 1);
  EXPECT_EQ(words[0], 0u);
  EXPECT_EQ(registers_->reads + registers_->writes, 0u);
  EXPECT_EQ(Demo::Switch::registersDiffering(table("stack"), registers_->values.data()), 0u);
}

TEST_F(SwitchTest, damageIsFoundRepairedAndEntered) {
  passed(1);
  damage(0x90204, 0x100);  // register 1 of entry 2 of the sparse table
  EXPECT_EQ(Demo::Switch::registersDiffering(table("port"), registers_->values.data()), 1u);
  passed(2);
  EXPECT_EQ(differing(), 0u);
  EXPECT_EQ(switch_.shadow()->differences(*table("port").region), 1u);
  EXPECT_EQ(switch_.shadow()->differences(*table("mac").region), 0u);
  EXPECT_EQ(table("port").region->registersFixed(), 1u);
  EXPECT_EQ(ledger_.account(registers_->values.data()),
            (Demo::Account{.injected = 1, .repaired = 1}));
}

TEST_F(SwitchTest, passProgress_risesFromTheFirstSliceToTheEnd) {
  EXPECT_EQ(switch_.passProgress(), 0.0);
  double last = -1;
  while (switch_.shadow()->audits() == 0) {
    loop_.turnAt(loop_.clock->time() + 0.001);
    EXPECT_GE(switch_.passProgress(), last);
    last = switch_.passProgress();
    EXPECT_GE(last, 0.0);
    EXPECT_LE(last, 1.0);
  }
  EXPECT_EQ(last, 1.0);
}

// Chip, shadow and ledger agree whatever the traffic does, also in the middle of passes.
TEST_F(SwitchTest, trafficKeepsChipAndShadowEqual) {
  passed(1);
  const auto traffic = Zint::makePtr<Demo::Traffic>(
      loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock), switch_, 3);
  for (U32 i = 0; i < 2000; ++i) {
    traffic->slice();
    loop_.turnAt(loop_.clock->time() + 0.001);
  }
  EXPECT_EQ(differing(), 0u);
  EXPECT_EQ(ledger_.account(registers_->values.data()), Demo::Account());
  EXPECT_EQ(switch_.shadow()->differences(), 0u);
  for (const Table& each : switch_.tables()) {
    EXPECT_GT(each.entriesRead, 0u) << each.region->name();
    EXPECT_GT(each.entriesWritten, 0u) << each.region->name();
  }
}

TEST_F(SwitchTest, traffic_beginsAndEndsWhenItIsTold) {
  const auto traffic = Zint::makePtr<Demo::Traffic>(
      loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock), switch_, 3);
  const auto read = [this] {
    U64 all = 0;
    for (const Table& each : switch_.tables()) all += each.entriesRead;
    return all;
  };
  loop_.turnAt(1.0);
  EXPECT_EQ(read(), 0u);
  traffic->trafficIs(true);
  loop_.turnAt(1.0);
  const U64 one = read();
  EXPECT_GT(one, 0u);
  loop_.turnAt(1.01);
  const U64 two = read();
  EXPECT_GT(two, one);
  traffic->trafficIs(false);
  loop_.turnAt(2.0);
  EXPECT_EQ(read(), two);
}

}  // namespace
