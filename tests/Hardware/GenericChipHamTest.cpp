#include <Hardware/GenericChipHam.h>

#include <gmock/gmock.h>

#include <cstring>
#include <stdexcept>

#include "support/Death.h"
#include "support/RecordingRegisters.h"

namespace Hardware {
namespace {

using Support::Access;
using testing::ElementsAre;
using testing::IsEmpty;

class GenericChipHamTest : public testing::Test {
 protected:
  const Zint::Ptr<Support::RecordingRegisters> registers =
      Zint::makePtr<Support::RecordingRegisters>();
  const GenericChipHam::Ptr ham = genericChipHamFactory("generic", registers);
  U8 buffer[24] = {};

  U32 word(U32 index) const {
    U32 value;
    std::memcpy(&value, buffer + 4 * index, 4);
    return value;
  }
  void wordIs(U32 index, U32 value) { std::memcpy(buffer + 4 * index, &value, 4); }
};

TEST_F(GenericChipHamTest, factory_keepsNameAndRegisterAccess) {
  EXPECT_EQ(ham->name(), "generic");
  EXPECT_EQ(ham->hamImpl(), registers);
  EXPECT_EQ(ham->references(), 1u);
  EXPECT_EQ(registers->references(), 2u);
}

TEST_F(GenericChipHamTest, doRead_leavesTheBytesWhereARegisterAccessStoresNothing) {
  struct Silent : Fru::HamImpl {
    void read(U32, U32*) override {}
    void write(U32, U32) override {}
  };
  const GenericChipHam::Ptr silent = genericChipHamFactory("silent", Zint::makePtr<Silent>());
  wordIs(0, 0x12345678);
  wordIs(1, 0x9abcdef0);
  silent->doRead(ChipAddress(), buffer, 4, 2);
  EXPECT_EQ(word(0), 0x12345678u);
  EXPECT_EQ(word(1), 0x9abcdef0u);
}

// Wherever the buffer begins.
TEST_F(GenericChipHamTest, doRead_storesAtAnyByte) {
  registers->registers = {{0, 0x11223344}, {4, 0x55667788}};
  for (U32 at = 0; at < 4; ++at) {
    std::memset(buffer, 0xEE, sizeof buffer);
    ham->doRead(ChipAddress(), buffer + at, 4, 2);
    U32 values[2];
    std::memcpy(values, buffer + at, 8);
    EXPECT_THAT(values, ElementsAre(0x11223344, 0x55667788));
    EXPECT_TRUE(at == 0 || buffer[at - 1] == 0xEE);
    EXPECT_EQ(buffer[at + 8], 0xEE);
  }
}

TEST_F(GenericChipHamTest, attributeString_addsHamImpl) {
  EXPECT_EQ(ham->attributeString(GenericChipHam::Id::hamImpl), "hamImpl");
  EXPECT_EQ(ham->attributeString(GenericChipHam::Id::name), "name");
  EXPECT_EQ(ham->attributeString(1), "unknown");
}

TEST_F(GenericChipHamTest, doRead_readsWordByWordInAscendingOrderAtTheLowWord) {
  registers->registers = {{0x1000, 0x11111111}, {0x1004, 2}, {0x1008, 3}, {0x100c, 0xfedcba98}};
  buffer[16] = 0xEE;
  ham->doRead(ChipAddress(5, 0x1000), buffer, 8, 2);
  EXPECT_THAT(
      registers->log,
      ElementsAre(Access{Access::read, 0x1000, 0x11111111}, Access{Access::read, 0x1004, 2},
                  Access{Access::read, 0x1008, 3}, Access{Access::read, 0x100c, 0xfedcba98}));
  EXPECT_EQ(word(0), 0x11111111u);
  EXPECT_EQ(word(1), 2u);
  EXPECT_EQ(word(2), 3u);
  EXPECT_EQ(word(3), 0xfedcba98u);
  EXPECT_EQ(buffer[16], 0xEE);
}

TEST_F(GenericChipHamTest, doWrite_writesWordByWordInAscendingOrderAtTheLowWord) {
  for (U32 i = 0; i < 4; ++i) wordIs(i, 0xfedcba98 + i);
  ham->doWrite(ChipAddress(5, 0x1000), buffer, 8, 2);
  EXPECT_THAT(registers->log, ElementsAre(Access{Access::write, 0x1000, 0xfedcba98},
                                          Access{Access::write, 0x1004, 0xfedcba99},
                                          Access{Access::write, 0x1008, 0xfedcba9a},
                                          Access{Access::write, 0x100c, 0xfedcba9b}));
}

TEST_F(GenericChipHamTest, doWrite_leavesTheBufferAlone) {
  wordIs(0, 77);
  ham->doWrite(ChipAddress(0x20), buffer, 4, 1);
  EXPECT_EQ(word(0), 77u);
}

TEST_F(GenericChipHamTest, unalignedBuffersServe) {
  registers->registers[0x10] = 0x04030201;
  ham->doRead(ChipAddress(0x10), buffer + 1, 4, 1);
  ham->doWrite(ChipAddress(0x20), buffer + 1, 4, 1);
  EXPECT_EQ(registers->registers[0x20], 0x04030201u);
}

TEST_F(GenericChipHamTest, noEntries_noAccess) {
  ham->doRead(ChipAddress(0x1000), nullptr, 4, 0);
  ham->doWrite(ChipAddress(0x1000), nullptr, 4, 0);
  EXPECT_THAT(registers->log, IsEmpty());
}

TEST_F(GenericChipHamTest, entrySizeZero_noAccess) {
  ham->doRead(ChipAddress(0x1000), nullptr, 0, 3);
  ham->doWrite(ChipAddress(0x1000), nullptr, 0, 3);
  EXPECT_THAT(registers->log, IsEmpty());
}

class GenericChipHamEntrySize : public GenericChipHamTest,
                                public testing::WithParamInterface<U32> {};

TEST_P(GenericChipHamEntrySize, doRead_isFatalBeforeAnyAccessEvenForNoEntries) {
  EXPECT_ASSERTION(
      ham->doRead(ChipAddress(), buffer, GetParam(), 0), 128,
      "virtual void Hardware::GenericChipHam::doRead(const Hardware::ChipAddress&, U8*, U32, U32)",
      "( entrySize % 4 ) == 0");
}

TEST_P(GenericChipHamEntrySize, doWrite_isFatalBeforeAnyAccessEvenForNoEntries) {
  EXPECT_ASSERTION(
      ham->doWrite(ChipAddress(), buffer, GetParam(), 0), 140,
      "virtual void Hardware::GenericChipHam::doWrite(const Hardware::ChipAddress&, U8*, U32, U32)",
      "( entrySize % 4 ) == 0");
}

INSTANTIATE_TEST_SUITE_P(NoMultipleOf4, GenericChipHamEntrySize, testing::Values(1, 2, 3, 6));

TEST_F(GenericChipHamTest, oddEntrySize_isCheckedBeforeTheFirstAccess) {
  registers->beforeAccess = [](Access::Kind, U32) { throw std::runtime_error("an access"); };
  EXPECT_DEATH(ham->doRead(ChipAddress(), buffer, 6, 2), "entrySize % 4");
  EXPECT_DEATH(ham->doWrite(ChipAddress(), buffer, 6, 2), "entrySize % 4");
}

TEST_F(GenericChipHamTest, doRead_passesAnExceptionThroughAndLeavesTheBufferPartlyFilled) {
  registers->registers = {{0x10, 1}, {0x14, 2}, {0x18, 3}};
  registers->beforeAccess = [](Access::Kind, U32 address) {
    if (address == 0x18) throw std::runtime_error("bus");
  };
  EXPECT_THROW(ham->doRead(ChipAddress(0x10), buffer, 4, 4), std::runtime_error);
  EXPECT_EQ(word(0), 1u);
  EXPECT_EQ(word(1), 2u);
  EXPECT_EQ(word(2), 0u);
  EXPECT_EQ(registers->log.size(), 2u);
}

TEST_F(GenericChipHamTest, doWrite_passesAnExceptionThroughAndLeavesTheChipPartlyWritten) {
  for (U32 i = 0; i < 4; ++i) wordIs(i, i + 1);
  registers->beforeAccess = [](Access::Kind, U32 address) {
    if (address == 0x18) throw std::runtime_error("bus");
  };
  EXPECT_THROW(ham->doWrite(ChipAddress(0x10), buffer, 4, 4), std::runtime_error);
  EXPECT_THAT(registers->log,
              ElementsAre(Access{Access::write, 0x10, 1}, Access{Access::write, 0x14, 2}));
}

TEST_F(GenericChipHamTest, cacheSideIsTheBases) {
  U8 from[] = {1, 2, 3, 4}, to[4] = {};
  EXPECT_TRUE(ham->doReadToCache(to, from, 4));
  EXPECT_TRUE(ham->doCompare(to, from, 4));
  EXPECT_THAT(registers->log, IsEmpty());
}

// Drops its owner's reference to itself in the first access.
class OwnerDropping : public Fru::HamImpl {
 public:
  OwnerDropping(GenericChipHam::Ptr& owner, std::vector<U32>& accesses)
      : owner_(owner), accesses_(accesses) {}
  void read(U32 address, U32* value) override {
    owner_ = nullptr;
    *value = address;
    accesses_.push_back(address);
  }
  void write(U32 address, U32) override {
    owner_ = nullptr;
    accesses_.push_back(address);
  }

 protected:
  ~OwnerDropping() override { accesses_.push_back(0xdead); }

 private:
  GenericChipHam::Ptr& owner_;
  std::vector<U32>& accesses_;
};

TEST(GenericChipHamLifetime, registerAccess_outlivesTheCallInWhichItsOwnerDropsIt) {
  U8 buffer[8] = {};
  std::vector<U32> accesses;
  GenericChipHam::Ptr owner;
  owner = genericChipHamFactory("a", Zint::makePtr<OwnerDropping>(owner, accesses));
  owner.ptr()->doRead(ChipAddress(0x10), buffer, 4, 2);
  EXPECT_THAT(accesses, ElementsAre(0x10, 0x14, 0xdead));
  accesses.clear();
  owner = genericChipHamFactory("b", Zint::makePtr<OwnerDropping>(owner, accesses));
  owner.ptr()->doWrite(ChipAddress(0x10), buffer, 4, 2);
  EXPECT_THAT(accesses, ElementsAre(0x10, 0x14, 0xdead));
}

}  // namespace
}  // namespace Hardware
