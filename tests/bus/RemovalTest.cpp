// A kernel that asks for a device, and what a driver does then. VFIO itself: ./dev rig.
#include <Driver/PresentChip.h>
#include <Driver/RemovalWatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/bus/RegisterHam.h>
#include <platform/bus/VfioDevice.h>

#include <filesystem>

#include "bus/FakeBus.h"
#include "support/ManualLoop.h"

namespace {

class AskedBus : public BusTest::FakeBus, public Platform::Removable {
 public:
  AskedBus() : FakeBus(0x100) {}
  int removalDescriptor() const override { return -1; }
  bool isRemovalRequested() override { return isAsked; }
  void letGo() override {
    ++letGos;
    isAsked = false;
    isGone = cannotOpen = true;
  }
  U32 letGos = 0;
  bool isAsked = false;
};

template <class E, class Make>
std::string complaintOf(Make make) {
  try {
    make();
  } catch (const E& refused) {
    return refused.what();
  }
  return "no exception";
}

struct Removal : testing::Test {
  Support::ManualLoop loop;
  Zint::Ptr<AskedBus> bus = Zint::makePtr<AskedBus>();
  Driver::RemovalWatch::Ptr watch =
      Driver::removalWatchFactory(loop.activity, loop.clock, Zint::Ptr<Zint::PtrInterface>(bus));
};

TEST_F(Removal, theDeviceIsLetGoWithinAnIntervalOfTheRequest) {
  EXPECT_EQ(watch->interval(), 0.01);
  loop.turnAt(0.005);
  bus->isAsked = true;
  EXPECT_EQ(bus->letGos, 0u);
  loop.turnAt(0.02);
  EXPECT_EQ(bus->letGos, 1u);
  EXPECT_EQ(watch->removals(), 1u);
  loop.turnAt(1);
  EXPECT_EQ(bus->letGos, 1u);
}

TEST_F(Removal, theChipIsAbsentThenAndPresentWhenItHasReturned) {
  const auto ham = Platform::registerHamFactory("ham", bus);
  bus->bytes[0] = 7;
  ham->sentinelIs(0, 7);
  const auto chip = Driver::presentChipFactory("chip", ham);
  EXPECT_TRUE(chip->isPresent());
  bus->isAsked = true;
  loop.turnAt(0.02);
  EXPECT_FALSE(chip->isPresent());
  EXPECT_FALSE(chip->isPresent());
  bus->isGone = bus->cannotOpen = false;
  EXPECT_TRUE(chip->isPresent());
}

TEST_F(Removal, whatCannotBeWatchedIsRefused) {
  EXPECT_EQ(complaintOf<Zint::RangeException>([this] { watch->intervalIs(0); }),
            "interval must be above 0");
  EXPECT_EQ(watch->interval(), 0.01);
  const auto plain = Zint::makePtr<BusTest::FakeBus>(std::size_t{4});
  EXPECT_EQ(complaintOf<Zint::RangeException>([&] {
              Driver::removalWatchFactory(loop.activity, loop.clock,
                                          Zint::Ptr<Zint::PtrInterface>(plain));
            }),
            "removalWatchFactory: the bus tells nothing of removals");
  EXPECT_NE(complaintOf<Zint::RangeException>(
                [&] { Driver::removalWatchFactory(loop.activity, loop.clock, nullptr); }),
            "no exception");
}

TEST(Vfio, aDeviceThatIsNotVfiosIsRefused) {
  const std::string folder = testing::TempDir() + "vfio-" + std::to_string(getpid());
  std::filesystem::create_directories(folder);
  const auto made = [&folder] {
    Platform::vfioDeviceFactory(Zint::String8(folder), 0, {}, Zint::String8(folder));
  };
  const std::string name = "vfio " + std::filesystem::path(folder).filename().string();
  EXPECT_EQ(complaintOf<Platform::BusError>(made),
            name + " region 0: is not bound to vfio-pci at 0x0");
  std::filesystem::create_symlink("drivers/vfio-pci", folder + "/driver");
  EXPECT_EQ(complaintOf<Platform::BusError>(made),
            name + " region 0: " + folder +
                "/vfio cannot be opened at 0x0: No such file or "
                "directory");
  std::filesystem::remove_all(folder);
}

}  // namespace
