// Registers that are read together: what is handed up, when the chip is asked again, and what an
// audit of many small regions costs.
#include <Driver/AuditedShadow.h>
#include <Driver/PresentChip.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/bus/RegisterHam.h>

#include <chrono>
#include <numeric>
#include <thread>

#include "bus/FakeBus.h"
#include "support/ManualLoop.h"

namespace {

using Hardware::ChipAddress;
using Platform::RegisterHam;
using Platform::RegisterRun;
using Runs = std::vector<RegisterRun>;

constexpr Zint::Seconds longTime = 1000;

class Gather : public testing::Test {
 protected:
  Gather() {
    std::iota(bus->bytes.begin(), bus->bytes.end(), U8{1});
    ham->gatherIs(0x20, 0xe0, 0x40, longTime);
  }
  std::vector<U8> read(U32 address, U32 registers) {
    std::vector<U8> bytes(4 * std::size_t{registers});
    ham->doRead(ChipAddress(0, address), bytes.data(), 4, registers);
    return bytes;
  }
  std::vector<U8> onChip(U32 address, U32 registers) const {
    return {bus->bytes.begin() + address, bus->bytes.begin() + address + 4 * registers};
  }
  template <class Make>
  static std::string refusal(Make make) {
    try {
      make();
    } catch (const Zint::RangeException& refused) {
      return refused.what();
    }
    return "no exception";
  }

  Zint::Ptr<BusTest::FakeBus> bus = Zint::makePtr<BusTest::FakeBus>(std::size_t{0x200});
  RegisterHam::Ptr ham = Platform::registerHamFactory("ham", bus);
};

TEST_F(Gather, aWindowIsReadOnceForAllOfItsRegisters) {
  for (const U32 address : {0x48u, 0x40u, 0x7cu}) EXPECT_EQ(read(address, 1), onChip(address, 1));
  EXPECT_EQ(read(0x4c, 12), onChip(0x4c, 12));
  EXPECT_EQ(bus->reads, (Runs{{0x40, 4, 16}}));
}

TEST_F(Gather, nothingBesideTheRangeIsEverRead) {
  read(0x3c, 1);
  read(0xc0, 1);
  EXPECT_EQ(bus->reads, (Runs{{0x20, 4, 8}, {0xc0, 4, 8}}));
  bus->reads.clear();
  EXPECT_EQ(read(0x10, 2), onChip(0x10, 2));
  EXPECT_EQ(read(0xe0, 2), onChip(0xe0, 2));
  EXPECT_EQ(bus->reads, (Runs{{0x10, 4, 2}, {0xe0, 4, 2}}));
}

TEST_F(Gather, aRunOverSeveralWindowsIsPutTogether) {
  EXPECT_EQ(read(0x38, 34), onChip(0x38, 34));
  EXPECT_EQ(bus->reads, (Runs{{0x20, 4, 8}, {0x40, 4, 16}, {0x80, 4, 16}}));
  bus->reads.clear();
  EXPECT_EQ(read(0xd8, 4), onChip(0xd8, 4));  // the end of the range, and two registers beyond it
  EXPECT_EQ(bus->reads, (Runs{{0xc0, 4, 8}, {0xe0, 4, 2}}));
}

TEST_F(Gather, theSecondReadOfARegisterReachesTheChip) {
  EXPECT_EQ(read(0x40, 1), onChip(0x40, 1));
  bus->bytes[0x40] ^= 0xff;
  EXPECT_EQ(read(0x40, 1), onChip(0x40, 1));
  EXPECT_EQ(bus->reads.size(), 2u);
}

TEST_F(Gather, aWriteDropsItsWindow) {
  read(0x40, 1);
  read(0x80, 1);
  U8 bytes[4] = {9, 9, 9, 9};
  ham->doWrite(ChipAddress(0, 0x44), bytes, 4, 1);
  EXPECT_EQ(read(0x44, 1), std::vector<U8>(4, 9));
  read(0x84, 1);
  EXPECT_EQ(bus->reads.size(), 3u);  // the other window is as it was
}

TEST_F(Gather, whatIsTooOldIsReadAgain) {
  ham->gatherDelAll();
  ham->gatherIs(0x20, 0xe0, 0x40, 0.001);
  read(0x40, 1);
  const auto read_ = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - read_ < std::chrono::milliseconds(2)) {
  }
  read(0x44, 1);
  EXPECT_EQ(bus->reads.size(), 2u);
}

TEST_F(Gather, aWindowIsJudgedWhenItIsRead) {
  ham->sentinelIs(0x100, 0x04030201);
  bus->answer = 0;
  bus->isGone = true;
  EXPECT_THROW(read(0x40, 1), Platform::ChipAbsent);
  bus->isGone = false;
  EXPECT_EQ(read(0x40, 1), onChip(0x40, 1));  // nothing of the absence was kept
}

TEST_F(Gather, afterAnAbsenceNothingFromBeforeIsHandedUp) {
  ham->sentinelIs(0x100, 0x04030201);
  read(0x40, 1);
  bus->isGone = true;
  EXPECT_FALSE(ham->isPresent());
  bus->isGone = false;
  bus->bytes[0x44] ^= 0xff;
  EXPECT_EQ(read(0x44, 1), onChip(0x44, 1));
}

TEST_F(Gather, rangesThatAreImpossibleAreRefused) {
  EXPECT_EQ(refusal([this] { ham->gatherIs(0x100, 0x100, 64, 1); }),
            "windows of 64 bytes from 0x100 to 0x100, of registers of 4 bytes");
  EXPECT_NE(refusal([this] { ham->gatherIs(0x102, 0x110, 64, 1); }), "no exception");
  EXPECT_NE(refusal([this] { ham->gatherIs(0x100, 0x110, 6, 1); }), "no exception");
  EXPECT_NE(refusal([this] { ham->gatherIs(0x100, 0x110, 64, 0); }), "no exception");
  EXPECT_EQ(refusal([this] { ham->gatherIs(0xd0, 0x110, 64, 1); }),
            "the range from 0xd0 to 0x110 overlaps another one");
  EXPECT_NE(refusal([this] { ham->gatherIs(0x0, 0x24, 64, 1); }), "no exception");
  ham->gatherIs(0xe0, 0x110, 64, 1);
}

TEST_F(Gather, aRegisterThatIsNotAlignedToTheRangeIsReadByItself) {
  for (const U32 address : {0x42u, 0x21u, 0xdeu}) EXPECT_EQ(read(address, 1), onChip(address, 1));
  EXPECT_EQ(bus->reads, (Runs{{0x42, 4, 1}, {0x21, 4, 1}, {0xde, 4, 1}}));
}

TEST_F(Gather, nothingOlderIsHandedUpThanWhatWasReadBefore) {
  read(0x24, 1);                              // the window has 0x20, too
  bus->bytes[0x20] ^= 0xff;                   // and is old now
  EXPECT_EQ(read(0x1c, 2), onChip(0x1c, 2));  // begins before the range
  EXPECT_EQ(read(0x20, 1), onChip(0x20, 1));
}

TEST_F(Gather, whatIsWrittenReentrantlyIsNotHandedUpAsItWas) {
  U8 written[4] = {9, 9, 9, 9};
  bus->after = [&] {
    bus->after = nullptr;
    ham->doWrite(ChipAddress(0, 0x44), written, 4, 1);
  };
  EXPECT_EQ(read(0x40, 1), onChip(0x40, 1));
  EXPECT_EQ(read(0x44, 1), std::vector<U8>(4, 9));
}

TEST_F(Gather, whatIsReadReentrantlyIsNotHandedUpAsItWasBefore) {
  bus->after = [&] {
    bus->after = nullptr;
    bus->bytes[0x44] = bus->bytes[0x48] = 0x99;
    EXPECT_EQ(read(0x44, 1), onChip(0x44, 1));
  };
  EXPECT_EQ(read(0x40, 1), onChip(0x40, 1));
  EXPECT_EQ(read(0x48, 1), onChip(0x48, 1));
}

TEST_F(Gather, anAccessMayEndAndChangeTheGathering) {
  bus->after = [&] {
    bus->after = nullptr;
    ham->gatherDelAll();
  };
  EXPECT_EQ(read(0x40, 20), onChip(0x40, 20));
  ham->gatherIs(0x20, 0xe0, 0x40, longTime);
  bus->after = [&] {
    bus->after = nullptr;
    ham->gatherDelAll();
    ham->gatherIs(0x40, 0x60, 0x10, longTime);
  };
  EXPECT_EQ(read(0x40, 20), onChip(0x40, 20));
}

// Two accesses' time of set-up for a transfer, and a tenth for each of its registers: 4,096 regions
// of 4 registers that lie side by side.
TEST(GatheredAudit, aPassTakesLittleMoreThanTheLeastPossible) {
  constexpr U32 regions = 4096, registers = 4;
  const auto costOf = [](U32 window) {
    const auto bus = Zint::makePtr<BusTest::FakeBus>(std::size_t{regions * registers * 4});
    for (std::size_t i = 0; i < bus->bytes.size(); ++i)
      bus->bytes[i] = static_cast<U8>(i * 2654435761u >> 13);
    const RegisterHam::Ptr ham = Platform::registerHamFactory("ham", bus);
    if (window != 0) ham->gatherIs(0, regions * registers * 4, window, longTime);
    Support::ManualLoop loop;
    const auto shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
    for (U32 i = 0; i < regions; ++i) {
      const auto region = Hardware::chipMemoryFactory("region", ChipAddress(0, i * registers * 4),
                                                      registers, 4, 4, ham);
      region->shadowEnabledIs(true);
      region->auditEnabledIs(true);
      shadow->chipMemoryIs(region);
    }
    shadow->stateIs(Hardware::HardwareShadow::configured());
    shadow->stateIs(Hardware::HardwareShadow::auditing());
    for (U32 turns = 0; shadow->audits() == 0 && turns < 100'000; ++turns) loop.turnAt(turns);
    EXPECT_EQ(shadow->audits(), 1u);
    double cost = 0;
    for (const RegisterRun& run : bus->reads) cost += 2 + 0.1 * run.count;
    return cost / (regions * registers);
  };
  const double alone = costOf(0), gathered = costOf(1024);
  EXPECT_LE(alone, 0.65);
  EXPECT_LE(gathered, 0.12);
  RecordProperty("alone", std::to_string(alone));
  RecordProperty("gathered", std::to_string(gathered));
  std::cout << "of one by one: " << alone << " without gathering, " << gathered << " with it, "
            << 0.1 + 2.0 / (regions * registers) << " the least possible\n";
}

}  // namespace
