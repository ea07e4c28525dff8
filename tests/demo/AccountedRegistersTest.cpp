#include <demo/common/AccountedRegisters.h>
#include <demo/common/SharedMemory.h>
#include <demo/common/SwitchLayout.h>
#include <gtest/gtest.h>

namespace {

using Demo::Account;

constexpr U32 vlan = 0x80000;

class AccountedRegistersTest : public testing::Test {
 protected:
  AccountedRegistersTest() {
    onChip(Demo::identityAddress.chipMemoryOffset()) = Demo::identity;
    ledger_.valueIs(Demo::identityAddress.chipMemoryOffset(), Demo::identity);
  }
  U32& onChip(U32 address) { return static_cast<U32*>(file_.data())[address / 4]; }
  U32 read(U32 address) {
    U32 value = 0;
    registers_->read(address, &value);
    return value;
  }
  Account account() const { return ledger_.account(static_cast<const U32*>(file_.data())); }

  Demo::SharedFolder folder_;
  const Demo::SharedMemory file_{folder_.registersPath(), Demo::registerFileSize};
  Demo::Ledger ledger_{Demo::registerFileSize};
  const Zint::Ptr<Demo::AccountedRegisters> registers_ = Zint::makePtr<Demo::AccountedRegisters>(
      Platform::mappedRegistersFactory(folder_.registersPath()), ledger_);
};

TEST_F(AccountedRegistersTest, writesReachTheChipAndAreNoErrors) {
  registers_->write(vlan, 5);
  EXPECT_EQ(onChip(vlan), 5u);
  EXPECT_EQ(read(vlan), 5u);
  EXPECT_EQ(account(), Account());
}

TEST_F(AccountedRegistersTest, absentChip_readsGiveAllOnesAndWritesAreLost) {
  registers_->write(vlan, 5);
  registers_->isAbsentIs(true);
  EXPECT_EQ(read(vlan), ~0u);
  EXPECT_EQ(read(Demo::identityAddress.chipMemoryOffset()), ~0u);
  registers_->write(vlan, 4);
  EXPECT_EQ(onChip(vlan), 5u);
  registers_->isAbsentIs(false);
  EXPECT_EQ(read(vlan), 5u);
  EXPECT_EQ(account(), (Account{.injected = 1, .lost = 1, .remaining = 1}));
  EXPECT_EQ(registers_->absentReads(), 2u);
  EXPECT_EQ(registers_->writesLost(), 1u);
}

TEST_F(AccountedRegistersTest, reset_tablesAreZeroAndTheIdentityStays) {
  registers_->write(vlan, 7);
  registers_->write(0x90100, 1);
  registers_->doReset();
  EXPECT_EQ(onChip(vlan) | onChip(0x90100), 0u);
  EXPECT_EQ(read(Demo::identityAddress.chipMemoryOffset()), Demo::identity);
  EXPECT_EQ(account(), (Account{.injected = 4, .forgotten = 4, .remaining = 4}));
}

TEST_F(AccountedRegistersTest, stuckBits_readZeroUntilTheyAreFreeAndWritten) {
  registers_->write(vlan, 7);
  registers_->stuckBitsAre(vlan, 3);
  EXPECT_EQ(read(vlan), 4u);
  registers_->write(vlan, 6);
  EXPECT_EQ(read(vlan), 4u);
  registers_->write(vlan + 4, 3);
  EXPECT_EQ(read(vlan + 4), 3u);
  EXPECT_EQ(account(), (Account{.injected = 2, .stuck = 2, .overwritten = 1, .remaining = 1}));
  registers_->stuckBitsAre(0, 0);
  EXPECT_EQ(read(vlan), 4u);
  registers_->write(vlan, 6);
  EXPECT_EQ(read(vlan), 6u);
  EXPECT_EQ(account(), (Account{.injected = 2, .stuck = 2, .overwritten = 2}));
}

}  // namespace
