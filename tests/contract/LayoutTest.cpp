// Sizes and memory images that others rely on.
#include <Hardware/ChipAddress.h>
#include <Hardware/ChipMemory.h>
#include <Hardware/ChipMemoryArrayIndex.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Ptr.h>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::ChipMemoryArrayIndex;
using Hardware::HardwareShadow;

TEST(Layout, chipAddress_isTheLittleEndianImageOfTheValue) {
  static_assert(sizeof(ChipAddress) == 8);
  static_assert(std::is_trivially_copyable_v<ChipAddress>);
  const auto image = std::bit_cast<std::array<U8, 8>>(ChipAddress(0x0123456789abcdef));
  EXPECT_EQ(image, (std::array<U8, 8>{0xef, 0xcd, 0xab, 0x89, 0x67, 0x45, 0x23, 0x01}));
}

TEST(Layout, chipAddress_isTheLowWordAndThenTheHighWord) {
  static_assert(alignof(ChipAddress) == alignof(U32));
  const auto words = std::bit_cast<std::array<U32, 2>>(ChipAddress(0x11111111, 0x22222222));
  EXPECT_EQ(words, (std::array<U32, 2>{0x22222222, 0x11111111}));
  EXPECT_EQ(std::bit_cast<U64>(ChipAddress(7, 9)), ChipAddress(7, 9).value());
}

TEST(Layout, chipMemoryArrayIndex_isItsValue) {
  static_assert(sizeof(ChipMemoryArrayIndex) == 2);
  static_assert(std::is_trivially_copyable_v<ChipMemoryArrayIndex>);
  EXPECT_EQ(std::bit_cast<U16>(ChipMemoryArrayIndex(0xabcd)), 0xabcd);
}

template <class E>
constexpr bool signed32 = sizeof(E) == 4 && std::is_same_v<std::underlying_type_t<E>, S32>;

TEST(Layout, enumerations_areSigned32BitIntegers) {
  static_assert(signed32<ChipMemory::ChipMemoryMode>);
  static_assert(signed32<HardwareShadow::State>);
  static_assert(signed32<Zint::Request::State>);
  static_assert(signed32<Zint::Request::Status>);
  EXPECT_EQ(std::bit_cast<S32>(ChipMemory::buffered()), 2);
  EXPECT_EQ(std::bit_cast<S32>(HardwareShadow::auditing()), 3);
}

TEST(Layout, ptr_isAPlainPointer) {
  const ChipMemory::Ptr table =
      Hardware::chipMemoryFactory("table", ChipAddress(), 1, 4, 4, nullptr);
  static_assert(sizeof(table) == sizeof(void*));
  ChipMemory* plain;
  std::memcpy(&plain, static_cast<const void*>(&table), sizeof(plain));
  EXPECT_EQ(plain, table.ptr());
}

}  // namespace
