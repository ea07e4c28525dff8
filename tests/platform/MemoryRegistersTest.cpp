#include <Hardware/ChipMemory.h>
#include <Hardware/GenericChipHam.h>
#include <Zint/Exception.h>
#include <gtest/gtest.h>
#include <platform/MemoryRegisters.h>

namespace {

using Platform::memoryRegistersFactory;

U32 readOf(Platform::MemoryRegisters& registers, U32 address) {
  U32 value = 0xdead;
  registers.read(address, &value);
  return value;
}

TEST(MemoryRegisters, neverWrittenHoldsZero) {
  EXPECT_EQ(readOf(*memoryRegistersFactory(0x1000, 8), 0x1004), 0u);
}

TEST(MemoryRegisters, write_isRead) {
  const auto registers = memoryRegistersFactory(0x1000, 8);
  registers->write(0x1004, 0x11223344);
  EXPECT_EQ(readOf(*registers, 0x1004), 0x11223344u);
  EXPECT_EQ(readOf(*registers, 0x1000), 0u);
}

TEST(MemoryRegisters, registerAt_damagesUncounted) {
  const auto registers = memoryRegistersFactory(0, 4);
  registers->registerAt(0) = 5;
  EXPECT_EQ(registers->reads(), 0u);
  EXPECT_EQ(registers->writes(), 0u);
  EXPECT_EQ(readOf(*registers, 0), 5u);
  EXPECT_EQ(registers->reads(), 1u);
}

TEST(MemoryRegisters, accessesAreCounted) {
  const auto registers = memoryRegistersFactory(0, 8);
  registers->write(0, 1);
  registers->write(4, 1);
  readOf(*registers, 0);
  EXPECT_EQ(registers->reads(), 1u);
  EXPECT_EQ(registers->writes(), 2u);
}

TEST(MemoryRegisters, addressWithoutRegisterIsRefusedAndNotCounted) {
  const auto registers = memoryRegistersFactory(0x1000, 8);
  U32 value = 7;
  for (const U32 address : {0u, 0xffcu, 0x1008u, 0xfffffffcu, 0x1001u, 0x1006u}) {
    EXPECT_THROW(registers->read(address, &value), Zint::RangeException) << address;
    EXPECT_THROW(registers->write(address, 1), Zint::RangeException) << address;
    EXPECT_THROW(registers->registerAt(address), Zint::RangeException) << address;
  }
  EXPECT_EQ(value, 7u);
  EXPECT_EQ(registers->reads() + registers->writes(), 0u);
}

TEST(MemoryRegisters, refusalNamesTheAddressAndTheRegisters) {
  const auto registers = memoryRegistersFactory(0x1000, 8);
  try {
    registers->write(0x2000, 1);
    FAIL() << "no exception";
  } catch (const Zint::RangeException& refused) {
    EXPECT_STREQ(refused.what(), "register address 0x00002000: there are 8 bytes from 0x00001000");
  }
}

TEST(MemoryRegisters, sizeThatDoesNotFitIsRefused) {
  EXPECT_THROW(memoryRegistersFactory(2, 4), Zint::RangeException);
  EXPECT_THROW(memoryRegistersFactory(0, 6), Zint::RangeException);
  EXPECT_THROW(memoryRegistersFactory(0, 0), Zint::RangeException);
  EXPECT_THROW(memoryRegistersFactory(0xfffffffc, 8), Zint::RangeException);
}

TEST(MemoryRegisters, lastRegisterOfTheAddressSpaceIsUsable) {
  const auto registers = memoryRegistersFactory(0xfffffff8, 8);
  EXPECT_EQ(registers->size(), 8u);
  EXPECT_EQ(registers->baseAddress(), 0xfffffff8u);
  registers->write(0xfffffffc, 3);
  EXPECT_EQ(readOf(*registers, 0xfffffffc), 3u);
}

TEST(MemoryRegisters, serveAnAccessMethod) {
  const auto registers = memoryRegistersFactory(0x1000, 16);
  const auto ham = Hardware::genericChipHamFactory("ham", Zint::Ptr<Fru::HamImpl>(registers));
  U32 words[] = {1, 2};
  ham->doWrite(Hardware::ChipAddress(0, 0x1008), reinterpret_cast<U8*>(words), 4, 2);
  EXPECT_EQ(registers->registerAt(0x1008), 1u);
  EXPECT_EQ(registers->registerAt(0x100c), 2u);
}

}  // namespace
