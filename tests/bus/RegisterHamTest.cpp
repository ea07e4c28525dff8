// The access method over a bus: widths, byte order, and chips that are gone.
#include <Driver/PresentChip.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/bus/RegisterHam.h>

#include <algorithm>

#include "bus/FakeBus.h"
#include "support/Death.h"

namespace {

using Hardware::ChipAddress;
using Platform::BusError;
using Platform::ChipAbsent;
using Platform::RegisterFormat;
using Platform::RegisterHam;
using Platform::RegisterRun;

constexpr std::endian otherOrder =
    std::endian::native == std::endian::little ? std::endian::big : std::endian::little;
constexpr U32 sentinelAddress = 0x100;
constexpr U32 sentinelValue = 0x5ca1ab1e;

template <class E, class Access>
std::string refusalOf(Access access) {
  try {
    access();
  } catch (const E& refused) {
    return refused.what();
  }
  return "no exception";
}

class RegisterHamTest : public testing::Test {
 protected:
  RegisterHamTest() {
    for (std::size_t i = 0; i < bus->bytes.size(); ++i) bus->bytes[i] = static_cast<U8>(i * 7 + 1);
    std::memcpy(&bus->bytes[sentinelAddress], &sentinelValue, 4);
  }
  RegisterHam::Ptr made(const RegisterFormat& format = {}) {
    return Platform::registerHamFactory("ham", bus, format);
  }
  RegisterHam::Ptr watched(const RegisterFormat& format = {}) {
    const RegisterHam::Ptr ham = made(format);
    ham->sentinelIs(sentinelAddress, sentinelValue);
    return ham;
  }
  static std::vector<U8> read(const RegisterHam::Ptr& ham, U32 address, U32 size, U32 entries = 1) {
    std::vector<U8> bytes(std::size_t{size} * entries, 0xee);
    ham->doRead(ChipAddress(0, address), bytes.data(), size, entries);
    return bytes;
  }
  static void write(const RegisterHam::Ptr& ham, U32 address, std::vector<U8> bytes) {
    ham->doWrite(ChipAddress(0, address), bytes.data(), static_cast<U32>(bytes.size()), 1);
  }
  // The bus's own bytes from there on.
  std::vector<U8> onBus(U32 address, U32 size) const {
    return {bus->bytes.begin() + address, bus->bytes.begin() + address + size};
  }

  Zint::Ptr<BusTest::FakeBus> bus = Zint::makePtr<BusTest::FakeBus>(0x200);
};

TEST_F(RegisterHamTest, anEntryIsARunOfRegistersOfTheirWidth) {
  for (const U32 width : {1u, 2u, 4u, 8u}) {
    bus->reads.clear();
    EXPECT_EQ(read(made({.width = width}), 0x10, 8, 3), onBus(0x10, 24));
    EXPECT_EQ(bus->reads, (std::vector<RegisterRun>{{0x10, width, 24 / width}}));
  }
}

TEST_F(RegisterHamTest, theOtherByteOrderIsReversedRegisterByRegister) {
  for (const U32 width : {1u, 2u, 4u, 8u}) {
    const RegisterHam::Ptr ham = made({.width = width, .order = otherOrder});
    std::vector<U8> expected = onBus(0x20, 16);
    for (auto value = expected.begin(); value != expected.end(); value += width)
      std::reverse(value, value + width);
    EXPECT_EQ(read(ham, 0x20, 16), expected) << width;

    const std::vector<U8> before = onBus(0x20, 16);
    write(ham, 0x20, expected);
    EXPECT_EQ(onBus(0x20, 16), before) << width;
  }
}

TEST_F(RegisterHamTest, aLongWriteInTheOtherOrderLeavesTheCallersBytes) {
  const RegisterHam::Ptr ham = made({.width = 8, .order = otherOrder});
  std::vector<U8> bytes(0x1f0);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<U8>(i);
  std::vector<U8> given = bytes;
  ham->doWrite(ChipAddress(0, 0), given.data(), 8, 0x1f0 / 8);
  EXPECT_EQ(given, bytes);
  EXPECT_EQ(read(ham, 0, 8, 0x1f0 / 8), bytes);
}

TEST_F(RegisterHamTest, noEntriesAreNoAccess) {
  const RegisterHam::Ptr ham = made();
  ham->doRead(ChipAddress(0, 0), nullptr, 4, 0);
  ham->doWrite(ChipAddress(0, 0), nullptr, 4, 0);
  EXPECT_TRUE(bus->reads.empty() && bus->writes.empty());
}

TEST_F(RegisterHamTest, formatsThatAreImpossibleAreRefused) {
  EXPECT_EQ(refusalOf<Zint::RangeException>([&] { made({.width = 3}); }),
            "ham: registers of 3 bytes; 1, 2, 4 and 8 are possible");
  EXPECT_EQ(refusalOf<Zint::RangeException>([&] { made({.failuresToAbsent = 0}); }),
            "ham: failuresToAbsent must be above 0");
  EXPECT_EQ(
      refusalOf<Zint::RangeException>([&] { Platform::registerHamFactory("ham", nullptr, {}); }),
      "null _bus parameter to mutator for Platform::RegisterHam not allowed\"");
}

TEST_F(RegisterHamTest, anEntryThatIsNoWholeNumberOfRegistersIsFatal) {
  const RegisterHam::Ptr ham = made({.width = 8});
  U8 bytes[16] = {};
  const auto pattern = [](const char* condition) {
    return Support::Assertion(
        "platform/RegisterHam", 0,
        "Platform::RegisterRun Platform::{anonymous}::runOf(U32, U32, U32, U32)", condition);
  };
  const char* const whole = "( entrySize % width ) == 0";
  EXPECT_DEATH(ham->doRead(ChipAddress(0, 0), bytes, 12, 1), pattern(whole));
  EXPECT_DEATH(ham->doWrite(ChipAddress(0, 0), bytes, 12, 1), pattern(whole));
  EXPECT_DEATH(ham->doRead(ChipAddress(0, 0), bytes, 8, 1u << 30),
               pattern("count <= ~U32{0} / width"));
}

// --- Chips that are gone ---

TEST_F(RegisterHamTest, whatAnAbsentChipAnswersIsNeverHandedUp) {
  for (const U8 answer : {U8{0xff}, U8{0x00}, U8{0x5a}}) {
    for (const U32 entries : {1u, 4u, 64u}) {
      if (answer == 0x5a && entries < 4) continue;  // one such register is data
      const RegisterHam::Ptr ham = watched();
      bus->answer = answer;
      bus->isGone = true;
      EXPECT_EQ(refusalOf<ChipAbsent>([&] { read(ham, 0x10, 4, entries); }),
                "fake: the sentinel has not its value at 0x100")
          << int{answer} << " " << entries;
      EXPECT_TRUE(ham->isAbsent());
      bus->isGone = false;
      EXPECT_EQ(read(ham, 0x10, 4), onBus(0x10, 4));
      EXPECT_FALSE(ham->isAbsent());
    }
  }
}

TEST_F(RegisterHamTest, oneRegisterOfAllOnesAmongOthersIsSuspicious) {
  const RegisterHam::Ptr ham = watched();
  std::fill_n(&bus->bytes[0x14], 4, U8{0xff});
  bus->reads.clear();
  EXPECT_EQ(read(ham, 0x10, 4, 3), onBus(0x10, 12));  // the sentinel says that the chip is there
  EXPECT_EQ(bus->reads, (std::vector<RegisterRun>{{0x10, 4, 3}, {sentinelAddress, 4, 1}}));
}

TEST_F(RegisterHamTest, whatLooksLikeDataCostsNoFurtherAccess) {
  const RegisterHam::Ptr ham = watched();
  bus->reads.clear();
  read(ham, 0x10, 4, 8);
  EXPECT_EQ(bus->reads.size(), 1u);
}

TEST_F(RegisterHamTest, theSentinelIsReadAfterTheData) {
  const RegisterHam::Ptr ham = watched();
  std::fill_n(&bus->bytes[0x10], 16, U8{0});
  bus->after = [&] { bus->isGone = true; };  // goes between the two
  EXPECT_EQ(refusalOf<ChipAbsent>([&] { read(ham, 0x10, 16); }),
            "fake: the sentinel has not its value at 0x100");
}

TEST_F(RegisterHamTest, onlyTheBitsOfTheMaskCount) {
  const RegisterHam::Ptr ham = made();
  ham->sentinelIs(sentinelAddress, sentinelValue ^ 0xff, ~U64{0xff});
  EXPECT_TRUE(ham->isPresent());
  ham->sentinelIs(sentinelAddress, sentinelValue ^ 0x100, ~U64{0xff});
  EXPECT_FALSE(ham->isPresent());
}

TEST_F(RegisterHamTest, aSentinelOfEachWidthIsReadInItsOrder) {
  for (const std::endian order : {std::endian::native, otherOrder}) {
    for (const U32 width : {1u, 2u, 4u, 8u}) {
      const RegisterHam::Ptr ham = made({.width = width, .order = order});
      U64 value = 0x1122334455667788;
      if (width < 8) value &= (U64{1} << (8 * width)) - 1;
      for (U32 i = 0; i < width; ++i) {
        const U32 shift = 8 * (order == std::endian::little ? i : width - 1 - i);
        bus->bytes[0x40 + i] = static_cast<U8>(value >> shift);
      }
      ham->sentinelIs(0x40, value);
      EXPECT_TRUE(ham->isPresent()) << width;
    }
  }
}

TEST_F(RegisterHamTest, aWriteThatIsFlushedNoticesThatTheChipHasGone) {
  const RegisterHam::Ptr ham = watched({.flushesWrites = true});
  bus->isGone = true;
  EXPECT_EQ(refusalOf<ChipAbsent>([&] {
              write(ham, 0x10, {1, 2, 3, 4});
            }),
            "fake: the sentinel has not its value at 0x100");
  bus->isGone = false;
  bus->reads.clear();
  write(ham, 0x10, {1, 2, 3, 4});
  EXPECT_EQ(bus->reads.back(), (RegisterRun{sentinelAddress, 4, 1}));
}

TEST_F(RegisterHamTest, failuresInARowAreAnAbsence) {
  const RegisterHam::Ptr ham = watched({.failuresToAbsent = 3});
  bus->failures = 2;
  EXPECT_EQ(refusalOf<BusError>([&] { read(ham, 0x10, 4); }),
            "fake: the access failed at 0x10: Connection timed out");
  EXPECT_NE(refusalOf<BusError>([&] { write(ham, 0x10, {1, 2, 3, 4}); }), "no exception");
  EXPECT_FALSE(ham->isAbsent());
  read(ham, 0x10, 4);  // not in a row any more
  bus->failures = 3;
  refusalOf<BusError>([&] { read(ham, 0x10, 4); });
  refusalOf<BusError>([&] { read(ham, 0x10, 4); });
  EXPECT_EQ(refusalOf<ChipAbsent>([&] { read(ham, 0x10, 4); }),
            "fake: does not answer at 0x10: Connection timed out");
  EXPECT_TRUE(ham->isAbsent());
}

TEST_F(RegisterHamTest, afterAnAbsenceTheBusIsOpenedAnewBeforeAnyAccess) {
  const RegisterHam::Ptr ham = watched();
  bus->isGone = true;
  refusalOf<ChipAbsent>([&] { read(ham, 0x10, 4); });
  bus->cannotOpen = true;
  bus->writes.clear();
  EXPECT_EQ(refusalOf<ChipAbsent>([&] {
              write(ham, 0x10, {1, 2, 3, 4});
            }),
            "fake: cannot be opened at 0x0: No such file or directory");
  EXPECT_TRUE(bus->writes.empty());
  EXPECT_EQ(bus->reopened, 1u);
  bus->cannotOpen = bus->isGone = false;
  write(ham, 0x10, {1, 2, 3, 4});
  EXPECT_EQ(onBus(0x10, 4), (std::vector<U8>{1, 2, 3, 4}));
  EXPECT_EQ(bus->reopened, 2u);
}

TEST_F(RegisterHamTest, anotherChipAtTheSamePlaceIsNeverServed) {
  const RegisterHam::Ptr ham = watched();
  bus->isGone = true;
  refusalOf<ChipAbsent>([&] { read(ham, 0x10, 4); });
  bus->isGone = false;
  bus->serial = "two";
  bus->writes.clear();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(refusalOf<ChipAbsent>([&] {
                write(ham, 0x10, {1, 2, 3, 4});
              }),
              "fake: another chip answers at 0x10");
  }
  EXPECT_FALSE(ham->isPresent());
  EXPECT_TRUE(bus->writes.empty());
  bus->serial = "one";
  EXPECT_TRUE(ham->isPresent());
}

TEST_F(RegisterHamTest, withoutASentinelOneFailureAfterAReturnIsEnough) {
  const RegisterHam::Ptr ham = made({.failuresToAbsent = 3});
  bus->failures = 4;
  for (int i = 0; i < 3; ++i) refusalOf<BusError>([&] { read(ham, 0x10, 4); });
  EXPECT_TRUE(ham->isAbsent());
  EXPECT_NE(refusalOf<ChipAbsent>([&] { read(ham, 0x10, 4); }), "no exception");
  read(ham, 0x10, 4);
  EXPECT_FALSE(ham->isAbsent());
}

TEST_F(RegisterHamTest, aChipThatGoesWithinARunIsNoticedByItsLastRegister) {
  const RegisterHam::Ptr ham = watched();
  bus->after = [&] { bus->isGone = true; };
  std::fill_n(&bus->bytes[0x1c], 4, U8{0});  // what an emulator answers for it
  EXPECT_THROW(read(ham, 0x10, 16), ChipAbsent);
}

TEST_F(RegisterHamTest, aReturnThatTheBusRefusesIsAnAbsence) {
  const RegisterHam::Ptr ham = watched();
  bus->isGone = true;
  EXPECT_THROW(read(ham, 0x10, 4), ChipAbsent);
  bus->refusal = "fake is empty";
  EXPECT_EQ(refusalOf<ChipAbsent>([&] { read(ham, 0x10, 4); }),
            "fake: cannot be opened anew (fake is empty) at 0x10");
  bus->refusal = "";
  bus->isGone = false;
  EXPECT_EQ(read(ham, 0x10, 4), onBus(0x10, 4));
}

TEST_F(RegisterHamTest, aBusThatThrowsAnythingIsNotPresent) {
  const RegisterHam::Ptr ham = watched();
  bus->after = [] { throw 42; };
  EXPECT_FALSE(ham->isPresent());
  bus->after = nullptr;
  EXPECT_TRUE(ham->isPresent());
}

TEST_F(RegisterHamTest, whetherItIsPresentIsAskedOfItsIdentityToo) {
  const RegisterHam::Ptr ham = made();
  bus->serial = "two";
  EXPECT_FALSE(ham->isPresent());
  EXPECT_TRUE(ham->isAbsent());
  bus->serial = "one";
  EXPECT_TRUE(ham->isPresent());
}

TEST_F(RegisterHamTest, aBusThatAnotherAccessMethodHasOpenedAnewIsCheckedFirst) {
  const RegisterHam::Ptr ham = watched(), other = made({.width = 1});
  bus->isGone = true;
  EXPECT_THROW(read(ham, 0x10, 4), ChipAbsent);
  bus->isGone = false;
  bus->serial = "two";  // the other access method has noticed nothing
  EXPECT_FALSE(ham->isPresent());
  bus->writes.clear();
  EXPECT_EQ(refusalOf<ChipAbsent>([&] { write(other, 0x10, {1}); }),
            "fake: another chip answers at 0x10");
  EXPECT_TRUE(bus->writes.empty());
  bus->serial = "one";
  write(other, 0x10, {1});
  EXPECT_EQ(read(ham, 0x10, 4), onBus(0x10, 4));
  const U32 reopened = bus->reopened;
  read(other, 0x10, 1);
  read(ham, 0x10, 4);
  EXPECT_EQ(bus->reopened, reopened);  // once it has been checked, nobody opens it again
}

TEST_F(RegisterHamTest, aSentinelWithoutABitThatCountsIsRefused) {
  const RegisterHam::Ptr ham = made({.width = 1});
  EXPECT_EQ(refusalOf<Zint::RangeException>([&] { ham->sentinelIs(4, 0x100, 0x100); }),
            "ham: no bit of the sentinel at 0x4 counts");
  EXPECT_FALSE(ham->hasSentinel());
}

TEST_F(RegisterHamTest, theSentinelMayBeSetWhileItIsRead) {
  const RegisterHam::Ptr ham = watched();
  U32 reads = 0;
  bus->after = [&] {
    if (++reads == 1) ham->sentinelIs(0x40, 0x12345678);
  };
  EXPECT_TRUE(ham->isPresent());
  EXPECT_FALSE(ham->isPresent());
}

TEST_F(RegisterHamTest, theCostOfAnAccessIsMeasured) {
  const RegisterHam::Ptr ham = made();
  EXPECT_EQ(ham->costPerAccess(), 0);
  read(ham, 0x10, 4, 8);
  EXPECT_GT(ham->costPerAccess(), 0);
}

TEST_F(RegisterHamTest, anAccessMayDropTheAccessMethod) {
  RegisterHam::Ptr ham = watched();
  RegisterHam* const dropped = ham.ptr();
  std::fill_n(&bus->bytes[0x10], 4, U8{0});
  bus->after = [&] { ham = nullptr; };
  U8 bytes[4];
  dropped->doRead(ChipAddress(0, 0x10), bytes, 4, 1);
  EXPECT_EQ(std::vector<U8>(bytes, bytes + 4), std::vector<U8>(4, 0));
}

// --- The chip that the patrol asks ---

TEST_F(RegisterHamTest, askingMayDropTheChip) {
  const RegisterHam::Ptr ham = watched();
  auto chip = Driver::presentChipFactory("chip", ham);
  Driver::PresentChip* const asked = chip.ptr();
  bus->after = [&] { chip = nullptr; };
  EXPECT_TRUE(asked->isPresent());
}

TEST_F(RegisterHamTest, theChipOfThePatrolAsksTheRegisterAccess) {
  const RegisterHam::Ptr ham = watched();
  const auto chip = Driver::presentChipFactory("chip", ham);
  EXPECT_TRUE(chip->isPresent());
  bus->isGone = true;
  EXPECT_FALSE(chip->isPresent());
  bus->isGone = false;
  EXPECT_TRUE(chip->isPresent());
  EXPECT_EQ(refusalOf<Zint::RangeException>([] { Driver::presentChipFactory("chip", nullptr); }),
            "chip: its access method does not know whether the chip is present");
}

}  // namespace
