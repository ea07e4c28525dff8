// The fake chip behind a bus: widths, absence, recordings.
#include <platform/bus/RegisterHam.h>
#include <testkit/ChipBus.h>
#include <testkit/RecordingBus.h>

#include <sstream>

#include "testkit/Captured.h"

namespace TestKitTest {
namespace {

using Hardware::ChipAddress;

class ChipBusTest : public testing::Test {
 protected:
  ChipBusTest() {
    chip->registerIs({.name = "id", .address = 0x0, .width = 2, .resetValue = 0x1234});
    chip->registerIs({.name = "port", .address = 0x10, .width = 2, .count = 8});
  }

  const TestKit::FakeChip::Ptr chip = TestKit::fakeChipFactory("asic");
  const Zint::Ptr<TestKit::ChipBus> bus = Zint::makePtr<TestKit::ChipBus>(chip);
};

TEST_F(ChipBusTest, aRunIsOneAccessARegisterInItsWidth) {
  const U16 values[] = {1, 2, 3};
  bus->write({0x12, 2, 3}, reinterpret_cast<const U8*>(values));
  EXPECT_EQ(chip->value("port[3]"), 3u);
  EXPECT_EQ(chip->writes("port"), 3u);
  U16 read[3] = {};
  bus->read({0x12, 2, 3}, reinterpret_cast<U8*>(read));
  EXPECT_EQ(read[1], 2u);
  EXPECT_EQ(chip->taken()[4], (TestKit::Access{TestKit::Kind::read, 0x14, 2, 2}));
}

TEST_F(ChipBusTest, noAnswerIsABusErrorWithTheAddress) {
  const TestKit::Fault failing = chip->failing("port[2]");
  U16 read[3] = {};
  try {
    bus->read({0x12, 2, 3}, reinterpret_cast<U8*>(read));
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Platform::BusError& e) {
    EXPECT_EQ(e.address(), 0x14u);
    EXPECT_EQ(e.error(), ETIMEDOUT);
    EXPECT_EQ(e.bus(), "fake asic");
  }
}

TEST_F(ChipBusTest, anAccessMethodSeesTheAbsenceAndTheReturn) {
  const auto ham = Platform::registerHamFactory("asic", bus, {.width = 2});
  ham->sentinelIs(0x0, 0x1234);
  U16 value = 7;
  ham->doWrite(ChipAddress(0, 0x10), reinterpret_cast<U8*>(&value), 2, 1);
  {
    const TestKit::Fault gone = chip->absent();
    EXPECT_THROW(ham->doRead(ChipAddress(0, 0x10), reinterpret_cast<U8*>(&value), 2, 1),
                 Platform::ChipAbsent);
    EXPECT_FALSE(ham->isPresent());
  }
  EXPECT_TRUE(ham->isPresent());
  EXPECT_GE(bus->reopened(), 1u);
  ham->doRead(ChipAddress(0, 0x10), reinterpret_cast<U8*>(&value), 2, 1);
  EXPECT_EQ(value, 7u);
}

TEST_F(ChipBusTest, recordedRunsAreALineARegister) {
  std::ostringstream out;
  const auto recorded = Zint::makePtr<TestKit::RecordingBus>(
      bus, std::make_unique<TestKit::RecordingWriter>(
               out, "asic", [&](U64 address) { return chip->registerName(address); }, nullptr));
  const U16 values[] = {1, 0x202};
  recorded->write({0x12, 2, 2}, reinterpret_cast<const U8*>(values));
  U16 read[2] = {};
  recorded->read({0x12, 2, 2}, reinterpret_cast<U8*>(read));
  EXPECT_EQ(read[1], 0x202u);
  const TestKit::Fault failing = chip->failing("port[2]");
  EXPECT_THROW(recorded->read({0x12, 2, 2}, reinterpret_cast<U8*>(read)), Platform::BusError);
  EXPECT_EQ(chip->writes(), 2u);
  EXPECT_THAT(out.str(), testing::StartsWith("# accesses of asic\n"
                                             "w2 0x12 port[1] 0x1 @0ms\n"
                                             "w2 0x14 port[2] 0x202 @0ms\n"
                                             "r2 0x12 port[1] 0x1 @0ms\n"
                                             "r2 0x14 port[2] 0x202 @0ms\n"
                                             "r2 0x12 port[1] ! @0ms fake asic"));
}

}  // namespace
}  // namespace TestKitTest
