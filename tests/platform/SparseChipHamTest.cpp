#include <Hardware/ChipMemory.h>
#include <Hardware/ChipReader.h>
#include <Zint/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/SparseChipHam.h>

#include <stdexcept>
#include <vector>

#include "support/Death.h"
#include "support/ManualLoop.h"
#include "support/RecordingRegisters.h"

namespace {

using Hardware::ChipAddress;
using Support::Access;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SparseChipHamTest : public testing::Test {
 protected:
  Platform::SparseChipHam::Ptr ham(U32 stride) {
    return Platform::sparseChipHamFactory("ports", Zint::Ptr<Fru::HamImpl>(registers_), stride);
  }
  static U8* bytes(U32* words) { return reinterpret_cast<U8*>(words); }

  Zint::Ptr<Support::RecordingRegisters> registers_ = Zint::makePtr<Support::RecordingRegisters>();
};

TEST_F(SparseChipHamTest, doWrite_entriesStandStrideApartAndTheirRegistersArePacked) {
  U32 words[] = {1, 2, 3, 4};
  ham(0x100)->doWrite(ChipAddress(5, 0x2000), bytes(words), 8, 2);
  EXPECT_THAT(registers_->taken(),
              ElementsAre(Access{Access::write, 0x2000, 1}, Access{Access::write, 0x2004, 2},
                          Access{Access::write, 0x2100, 3}, Access{Access::write, 0x2104, 4}));
}

TEST_F(SparseChipHamTest, doRead_fillsTheBufferWithoutGaps) {
  registers_->registers = {{0x2000, 1}, {0x2004, 2}, {0x2100, 3}, {0x2104, 4}, {0x2008, 99}};
  U32 words[5] = {0, 0, 0, 0, 77};
  ham(0x100)->doRead(ChipAddress(5, 0x2000), bytes(words), 8, 2);
  EXPECT_THAT(words, ElementsAre(1u, 2u, 3u, 4u, 77u));
  EXPECT_THAT(registers_->taken(),
              ElementsAre(Access{Access::read, 0x2000, 1}, Access{Access::read, 0x2004, 2},
                          Access{Access::read, 0x2100, 3}, Access{Access::read, 0x2104, 4}));
}

TEST_F(SparseChipHamTest, strideOfTheEntrySizeIsThePackedLayout) {
  U32 words[] = {1, 2};
  ham(4)->doWrite(ChipAddress(0, 0x10), bytes(words), 4, 2);
  EXPECT_THAT(registers_->taken(),
              ElementsAre(Access{Access::write, 0x10, 1}, Access{Access::write, 0x14, 2}));
}

TEST_F(SparseChipHamTest, registerAddressesWrapIn32Bits) {
  U32 words[] = {1, 2};
  ham(0x100)->doWrite(ChipAddress(1, 0xffffff80), bytes(words), 4, 2);
  EXPECT_THAT(registers_->taken(),
              ElementsAre(Access{Access::write, 0xffffff80, 1}, Access{Access::write, 0x80, 2}));
}

TEST_F(SparseChipHamTest, noEntriesMakeNoAccess) {
  ham(8)->doRead(ChipAddress(0, 0), nullptr, 4, 0);
  ham(8)->doWrite(ChipAddress(0, 0), nullptr, 4, 0);
  EXPECT_THAT(registers_->taken(), IsEmpty());
}

TEST_F(SparseChipHamTest, entrySizeThatIsNoMultipleOf4IsFatal) {
  const std::string read =
      "virtual void Platform::SparseChipHam::doRead(const Hardware::ChipAddress&, U8*, U32, U32)";
  const std::string write =
      "virtual void Platform::SparseChipHam::doWrite(const Hardware::ChipAddress&, U8*, U32, U32)";
  U32 words[4] = {};
  const auto pattern = [](const std::string& function) {
    return Support::Assertion("platform/SparseChipHam", 0, function, "( entrySize % 4 ) == 0");
  };
  EXPECT_DEATH(ham(8)->doRead(ChipAddress(0, 0), bytes(words), 6, 1), pattern(read));
  EXPECT_DEATH(ham(8)->doWrite(ChipAddress(0, 0), bytes(words), 6, 1), pattern(write));
  EXPECT_DEATH(ham(8)->doRead(ChipAddress(0, 0), bytes(words), 6, 0), pattern(read));
}

TEST_F(SparseChipHamTest, strideThatIsNoMultipleOf4IsRefused) {
  try {
    ham(6);
    FAIL() << "no exception";
  } catch (const Zint::RangeException& refused) {
    EXPECT_STREQ(refused.what(), "ports: the stride 6 is no multiple of 4");
  }
}

TEST_F(SparseChipHamTest, whatARegisterAccessThrowsPassesThroughAndEarlierWordsAreDone) {
  registers_->beforeAccess = [](Access::Kind, U32 address) {
    if (address == 0x100) throw std::runtime_error("bus");
  };
  U32 words[] = {1, 2};
  EXPECT_THROW(ham(0x100)->doWrite(ChipAddress(0, 0), bytes(words), 4, 2), std::runtime_error);
  EXPECT_THAT(registers_->taken(), ElementsAre(Access{Access::write, 0, 1}));
}

TEST_F(SparseChipHamTest, anAccessMayDropTheLastReference) {
  Platform::SparseChipHam::Ptr dropped = ham(0x100);
  registers_->beforeAccess = [&dropped](Access::Kind, U32) { dropped = nullptr; };
  U32 words[] = {1, 2};
  dropped->doWrite(ChipAddress(0, 0), bytes(words), 4, 2);
  EXPECT_EQ(registers_->taken().size(), 2u);
}

TEST_F(SparseChipHamTest, attributes) {
  const auto access = ham(0x40);
  EXPECT_EQ(access->name(), "ports");
  EXPECT_EQ(access->stride(), 0x40u);
  EXPECT_TRUE(access->hamImpl() == Zint::Ptr<Fru::HamImpl>(registers_));
}

// The reader asks for several entries at once and starts in the middle of the region.
TEST_F(SparseChipHamTest, readerFillsTheHardwareBufferOfASparseRegion) {
  Support::ManualLoop loop;
  const auto region =
      Hardware::chipMemoryFactory("ports", ChipAddress(0, 0x1000), 5, 4, 0x20, ham(0x20));
  for (U32 e = 0; e < 5; ++e) registers_->registers[0x1000 + 0x20 * e] = 10 + e;
  const auto request = Hardware::chipReadRequestFactory("read");
  request->chipMemoryIs(region);
  const auto reader = Hardware::chipReaderFactory(
      loop.activity, request, Zint::Ptr<const Zint::Clock>(loop.clock), 2, 0.001);
  request->stateIs(Zint::Request::start_);
  for (Zint::Seconds time : {0.0, 0.1, 0.2}) loop.turnAt(time);
  EXPECT_EQ(request->status(), Zint::Request::done_);
  const U32* words = reinterpret_cast<const U32*>(region->hardware()->data());
  EXPECT_THAT(std::vector<U32>(words, words + 5), ElementsAre(10u, 11u, 12u, 13u, 14u));
}

}  // namespace
