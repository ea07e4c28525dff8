// PCI resources and UIO maps, on files that stand for the kernel's.
#include <Hardware/ChipMemory.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/bus/BusError.h>
#include <platform/bus/PciResource.h>
#include <platform/bus/RegisterHam.h>
#include <platform/bus/SigbusGuard.h>
#include <platform/bus/UioDevice.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/Sanitizers.h"

namespace {

using Platform::BusError;
using Platform::ChipAbsent;
using Platform::PciResource;
using Platform::RegisterRun;
using testing::HasSubstr;
using testing::StartsWith;

template <class E, class Access>
std::string messageOf(Access access) {
  try {
    access();
  } catch (const E& refused) {
    return refused.what();
  }
  return "no exception";
}

class KernelFolder : public testing::Test {
 protected:
  KernelFolder()
      : folder(testing::TempDir() + "bus-" + std::to_string(getpid()) + "-" +
               testing::UnitTest::GetInstance()->current_test_info()->name()) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
  }
  ~KernelFolder() override { std::filesystem::remove_all(folder); }

  void fileIs(const std::string& name, const std::string& bytes) const {
    std::filesystem::create_directories(std::filesystem::path(folder + "/" + name).parent_path());
    std::ofstream(folder + "/" + name, std::ios::binary) << bytes;
  }
  std::string file(const std::string& name) const {
    std::ifstream in(folder + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  const std::string folder;
};

class PciResourceTest : public KernelFolder {
 protected:
  PciResourceTest() {
    fileIs("resource",
           "0x00000000fe000000 0x00000000fe000fff 0x0000000000040200\n"
           "0x000000000000c000 0x000000000000c01f 0x0000000000040101\n"
           "0x0000000000000000 0x0000000000000000 0x0000000000000000\n");
    for (const char* file : {"vendor", "device", "subsystem_vendor", "subsystem_device", "class"})
      fileIs(file, std::string("0x") + file[0] + "\n");
    fileIs("revision", "0x03\n");
    fileIs("enable", "1\n");
    for (const char* file : {"resource0", "resource1", "resource2"})
      fileIs(file, std::string(0x1000, '\0'));
  }
  PciResource::Ptr made(U32 resource = 0, const Platform::PciOptions& options = {}) const {
    return Platform::pciResourceFactory(Zint::String8(folder), resource, options);
  }
  std::string name(U32 resource = 0) const {
    return "pci " + std::filesystem::path(folder).filename().string() + " resource " +
           std::to_string(resource);
  }
};

TEST_F(PciResourceTest, registersOfEachWidthAreInTheFile) {
  const PciResource::Ptr bus = made();
  EXPECT_EQ(bus->size(), 0x1000u);
  EXPECT_EQ(bus->name().bytes(), name());
  for (const U32 width : {1u, 2u, 4u, 8u}) {
    U8 bytes[16], again[16];
    for (U32 i = 0; i < 16; ++i) bytes[i] = static_cast<U8>(width * 16 + i);
    bus->write({0x40 * width, width, 16 / width}, bytes);
    EXPECT_EQ(std::memcmp(file("resource0").data() + 0x40 * width, bytes, 16), 0);
    bus->read({0x40 * width, width, 16 / width}, again);
    EXPECT_EQ(std::memcmp(again, bytes, 16), 0);
  }
}

TEST_F(PciResourceTest, halvesAreTheSameRegisterWhicheverGoesFirst) {
  for (const Platform::Halves halves : {Platform::Halves::lowFirst, Platform::Halves::highFirst}) {
    Platform::PciOptions options;
    options.halves = halves;
    const PciResource::Ptr bus = made(0, options);
    const U64 value = 0x1122334455667788;
    bus->write({8, 8, 1}, reinterpret_cast<const U8*>(&value));
    U64 read = 0;
    bus->read({8, 8, 1}, reinterpret_cast<U8*>(&read));
    EXPECT_EQ(read, value);
    EXPECT_EQ(std::memcmp(file("resource0").data() + 8, &value, 8), 0);
  }
}

TEST_F(PciResourceTest, runsBeyondTheResourceAreRefusedBeforeAnyAccess) {
  const PciResource::Ptr bus = made();
  U8 bytes[16] = {};
  EXPECT_EQ(messageOf<Zint::RangeException>([&] {
              bus->read({0xff8, 4, 3}, bytes);
            }),
            name() + ": 3 registers of 4 bytes at 0xff8 are not within its 0x1000 bytes");
  EXPECT_EQ(messageOf<Zint::RangeException>([&] {
              bus->write({2, 4, 1}, bytes);
            }),
            name() + ": 1 registers of 4 bytes at 0x2 are not aligned within its 0x1000 bytes");
  EXPECT_EQ(messageOf<Zint::RangeException>([&] {
              bus->read({0xfffffffc, 4, 1}, bytes);
            }),
            name() + ": 1 registers of 4 bytes at 0xfffffffc are not within its 0x1000 bytes");
}

TEST_F(PciResourceTest, widthsThatNoAccessHasAreRefused) {
  const PciResource::Ptr bus = made();
  U8 bytes[16] = {};
  for (const U32 width : {0u, 3u, 16u}) {
    const std::string expected = name() + ": 1 registers of " + std::to_string(width) +
                                 " bytes at 0x0 are not aligned within its 0x1000 bytes";
    EXPECT_EQ(messageOf<Zint::RangeException>([&] { bus->read({0, width, 1}, bytes); }), expected);
  }
}

// The kernel maps whole pages, from the one on in which the resource begins.
TEST_F(PciResourceTest, aResourceThatIsSmallerThanAPageBeginsWithinIt) {
  fileIs("resource", "0x00000000fe000100 0x00000000fe0001ff 0x0000000000040200\n");
  const PciResource::Ptr bus = made();
  EXPECT_EQ(bus->size(), 0x100u);
  const U32 value = 0x11223344;
  bus->write({8, 4, 1}, reinterpret_cast<const U8*>(&value));
  EXPECT_EQ(std::memcmp(file("resource0").data() + 0x108, &value, 4), 0);
}

TEST_F(PciResourceTest, whatIsNoMemoryIsRefused) {
  EXPECT_EQ(messageOf<Zint::RangeException>([&] { made(1); }), name(1) + " is of I/O ports");
  EXPECT_EQ(messageOf<Zint::RangeException>([&] { made(2); }), name(2) + " is empty");
  EXPECT_THAT(messageOf<BusError>([&] { made(3); }),
              HasSubstr("resource3 cannot be opened at 0x0: No such file or directory"));
}

TEST_F(PciResourceTest, memoryThatIsOffIsSwitchedOn) {
  fileIs("enable", "0\n");
  Platform::PciOptions options;
  options.enablesMemory = false;
  made(0, options);
  EXPECT_EQ(file("enable"), "0\n");
  made();
  EXPECT_EQ(file("enable"), "1\n");
}

TEST_F(PciResourceTest, anotherCardHasAnotherIdentity) {
  const PciResource::Ptr bus = made();
  const Zint::String8 identity = bus->identity();
  EXPECT_EQ(identity.bytes(), "0xv 0xd 0xs 0xs 0xc 0x03");
  fileIs("revision", "0x04\n");
  EXPECT_NE(bus->identity(), identity);
  std::filesystem::remove(folder + "/vendor");
  EXPECT_EQ(messageOf<ChipAbsent>([&] { bus->identity(); }), name() + ": is not there at 0x0");
}

TEST_F(PciResourceTest, aDeviceThatHasGoneIsAbsentAndOneThatReturnsIsMappedAnew) {
  const PciResource::Ptr bus = made();
  const auto ham = Platform::registerHamFactory("ham", bus);
  U32 value = 0x11223344;
  bus->write({0, 4, 1}, reinterpret_cast<const U8*>(&value));
  ham->sentinelIs(0, value);
  EXPECT_TRUE(ham->isPresent());

  std::filesystem::rename(folder, folder + ".gone");  // the old mapping still answers: with zeros
  value = 0;
  bus->write({0, 4, 1}, reinterpret_cast<const U8*>(&value));
  EXPECT_FALSE(ham->isPresent());
  U8 bytes[4];
  EXPECT_THAT(messageOf<ChipAbsent>([&] { ham->doRead(Hardware::ChipAddress(0, 8), bytes, 4, 1); }),
              HasSubstr("does not answer at 0x0: No such file or directory"));
  EXPECT_THAT(messageOf<ChipAbsent>([&] {
                bus->read({0, 4, 1}, bytes);
              }),
              HasSubstr("is not mapped"));

  std::filesystem::rename(folder + ".gone", folder);
  std::filesystem::remove(folder + "/resource0");  // a new file: the old mapping would be another's
  value = 0x11223344;
  fileIs("resource0",
         std::string(reinterpret_cast<const char*>(&value), 4) + std::string(0xffc, '\x01'));
  ham->doRead(Hardware::ChipAddress(0, 8), bytes, 4, 1);
  EXPECT_EQ(std::memcmp(bytes, "\x01\x01\x01\x01", 4), 0);
}

// --- SIGBUS ---

class SigbusGuardTest : public PciResourceTest {
 protected:
  // A process that dies is one of its own, in which nothing has installed the guard before. It
  // leaves no destructor to remove its folder.
  SigbusGuardTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  ~SigbusGuardTest() override { GTEST_FLAG_SET(death_test_style, "fast"); }

  PciResource::Ptr guarded() const {
    Platform::PciOptions options;
    options.isGuarded = true;
    return made(0, options);
  }
  // The memory goes away under the mapping.
  void loseMemory() const { std::filesystem::resize_file(folder + "/resource0", 0); }
};

TEST_F(SigbusGuardTest, anAccessToMemoryThatIsGoneIsAnAbsence) {
  const PciResource::Ptr bus = guarded();
  const PciResource::Ptr other = guarded();
  loseMemory();
  U32 value = 0;
  EXPECT_EQ(messageOf<ChipAbsent>([&] {
              bus->read({8, 4, 1}, reinterpret_cast<U8*>(&value));
            }),
            name() + ": its memory is gone at 0x8");
  EXPECT_EQ(value, ~0u);
  EXPECT_NE(messageOf<ChipAbsent>([&] {
              other->write({8, 4, 1}, reinterpret_cast<U8*>(&value));
            }),
            "no exception");
  // Also what the replaced page answers by itself.
  EXPECT_NE(messageOf<ChipAbsent>([&] {
              bus->read({0, 4, 1}, reinterpret_cast<U8*>(&value));
            }),
            "no exception");
  std::filesystem::resize_file(folder + "/resource0", 0x1000);
  bus->reopen();
  bus->read({8, 4, 1}, reinterpret_cast<U8*>(&value));
  EXPECT_EQ(value, 0u);
}

TEST_F(SigbusGuardTest, severalThreadsMayLoseTheirMappingsAtOnce) {
  std::vector<PciResource::Ptr> buses;
  for (int i = 0; i < 4; ++i) buses.push_back(guarded());
  loseMemory();
  std::vector<std::string> said(buses.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < buses.size(); ++i) {
    threads.emplace_back([&, i] {
      U32 value;
      said[i] = messageOf<ChipAbsent>([&] {
        buses[i]->read({8, 4, 1}, reinterpret_cast<U8*>(&value));
      });
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(said, testing::Each(name() + ": its memory is gone at 0x8"));
}

TEST_F(SigbusGuardTest, mappingsBeyondTheLastPlaceAreRefused) {
  std::vector<int> places;
  char memory[1];
  for (int place = 0; (place = Platform::SigbusGuard::add(memory, 1)) >= 0;)
    places.push_back(place);
  EXPECT_LE(places.size(), Platform::SigbusGuard::mappings);
  EXPECT_EQ(messageOf<BusError>([&] { guarded(); }),
            name() + ": there is no room for another guarded mapping at 0x0");
  for (const int place : places) Platform::SigbusGuard::remove(place);
  guarded();
}

TEST_F(SigbusGuardTest, aForeignFaultEndsTheProcessAsBefore) {
  if (Support::addressesAreSanitized()) GTEST_SKIP() << "the sanitizer has a handler of its own";
  EXPECT_EXIT(
      {
        const PciResource::Ptr bus = guarded();
        fileIs("foreign", std::string(0x1000, '\0'));
        const int descriptor = open((folder + "/foreign").c_str(), O_RDWR);
        auto* memory = static_cast<volatile char*>(
            mmap(nullptr, 0x1000, PROT_READ, MAP_SHARED, descriptor, 0));
        std::filesystem::resize_file(folder + "/foreign", 0);
        std::filesystem::remove_all(folder);
        static_cast<void>(memory[0]);
        std::exit(0);
      },
      testing::KilledBySignal(SIGBUS), "");
}

TEST_F(SigbusGuardTest, aForeignFaultGoesToTheHandlerThatWasThereBefore) {
  EXPECT_EXIT(
      {
        struct sigaction own {};
        own.sa_handler = [](int) { _exit(7); };
        sigaction(SIGBUS, &own, nullptr);
        const PciResource::Ptr bus = guarded();
        std::filesystem::remove_all(folder);
        raise(SIGBUS);
        std::exit(0);
      },
      testing::ExitedWithCode(7), "");
}

// It is no fault, and nothing makes it again.
TEST_F(SigbusGuardTest, aSignalThatSomebodySendsEndsTheProcessAsBefore) {
  if (Support::addressesAreSanitized()) GTEST_SKIP() << "the sanitizer has a handler of its own";
  EXPECT_EXIT(
      {
        signal(SIGBUS, SIG_DFL);
        const PciResource::Ptr bus = guarded();
        std::filesystem::remove_all(folder);
        raise(SIGBUS);
        std::exit(0);
      },
      testing::KilledBySignal(SIGBUS), "");
}

TEST_F(SigbusGuardTest, aSignalThatIsIgnoredLeavesTheGuard) {
  EXPECT_EXIT(
      {
        signal(SIGBUS, SIG_IGN);
        const PciResource::Ptr bus = guarded();
        raise(SIGBUS);
        loseMemory();
        U8 bytes[4];
        const std::string said = messageOf<ChipAbsent>([&] { bus->read({8, 4, 1}, bytes); });
        std::filesystem::remove_all(folder);
        std::exit(said == name() + ": its memory is gone at 0x8" ? 7 : 0);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(SigbusGuardTest, aHandlerFromBeforeMayJumpAndTheGuardStays) {
  EXPECT_EXIT(
      {
        static sigjmp_buf back;
        struct sigaction own {};
        own.sa_handler = [](int) { siglongjmp(back, 1); };
        sigaction(SIGBUS, &own, nullptr);
        const PciResource::Ptr bus = guarded();
        if (sigsetjmp(back, 1) == 0) raise(SIGBUS);
        loseMemory();
        U8 bytes[4];
        const std::string said = messageOf<ChipAbsent>([&] { bus->read({8, 4, 1}, bytes); });
        std::filesystem::remove_all(folder);
        std::exit(said == name() + ": its memory is gone at 0x8" ? 7 : 0);
      },
      testing::ExitedWithCode(7), "");
}

// --- UIO ---

class UioDeviceTest : public KernelFolder {
 protected:
  UioDeviceTest() {
    page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    fileIs("class/uio0/name", "generic\n");
    fileIs("class/uio0/version", "1.0\n");
    fileIs("class/uio0/maps/map1/addr", "0xfe000000\n");
    fileIs("class/uio0/maps/map1/size", "0x100\n");
    fileIs("class/uio0/maps/map1/offset", "0x40\n");
    fileIs("uio0", std::string(3 * page, '\x05'));
  }
  Platform::UioDevice::Ptr made(U32 number = 1) const {
    return Platform::uioDeviceFactory(Zint::String8(folder + "/uio0"), number, {},
                                      Zint::String8(folder + "/class"));
  }
  std::size_t page;
};

TEST_F(UioDeviceTest, mapNIsAtItsPageAndBeginsWithinIt) {
  const auto bus = made();
  EXPECT_EQ(bus->size(), 0x100u);
  U32 value = 0x11223344;
  bus->write({8, 4, 1}, reinterpret_cast<const U8*>(&value));
  EXPECT_EQ(std::memcmp(file("uio0").data() + page + 0x48, &value, 4), 0);
  EXPECT_EQ(bus->name().bytes(), "uio " + folder + "/uio0 map 1");
  EXPECT_EQ(bus->identity().bytes(), "generic 1.0 0xfe000000");
}

TEST_F(UioDeviceTest, aMapThatIsNotThereIsRefused) {
  EXPECT_EQ(messageOf<Zint::RangeException>([&] { made(0); }),
            "uio " + folder + "/uio0 map 0: there is no such map");
  std::filesystem::remove_all(folder + "/class/uio0");
  EXPECT_NE(messageOf<Zint::RangeException>([&] { made(); }), "no exception");
}

}  // namespace
