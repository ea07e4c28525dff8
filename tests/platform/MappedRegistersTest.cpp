#include <Hardware/ChipMemory.h>
#include <Hardware/GenericChipHam.h>
#include <Zint/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/MappedRegisters.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <system_error>

namespace {

using testing::AllOf;
using testing::HasSubstr;

class MappedRegistersTest : public testing::Test {
 protected:
  MappedRegistersTest()
      : path_(testing::TempDir() + "registers-" +
              testing::UnitTest::GetInstance()->current_test_info()->name()) {
    std::filesystem::remove(path_);
  }
  ~MappedRegistersTest() override { std::filesystem::remove(path_); }

  void fileIs(const std::string& bytes) { std::ofstream(path_, std::ios::binary) << bytes; }
  std::string file() const {
    std::ifstream in(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  Platform::MappedRegisters::Ptr created(U32 size, U32 baseAddress = 0) {
    return Platform::mappedRegistersFactory(path_, baseAddress, size);
  }

  // The message of the range exception that the access raises.
  template <class Access>
  static std::string refusal(Access access) {
    try {
      access();
    } catch (const Zint::RangeException& refused) {
      return refused.what();
    }
    return "no exception";
  }

  std::string path_;
};

TEST_F(MappedRegistersTest, write_isInTheFileInHostOrder) {
  const auto registers = created(8);
  registers->write(4, 0x11223344);
  U32 second = 0;
  std::memcpy(&second, file().data() + 4, 4);
  EXPECT_EQ(second, 0x11223344u);
  EXPECT_EQ(file().substr(0, 4), std::string(4, '\0'));
}

TEST_F(MappedRegistersTest, read_seesWhatAnotherMappingWrote) {
  const auto chip = created(16);
  const auto driver = Platform::mappedRegistersFactory(path_);
  chip->write(12, 77);
  U32 value = 0;
  driver->read(12, &value);
  EXPECT_EQ(value, 77u);
}

TEST_F(MappedRegistersTest, wholeFileIsMappedAsItStands) {
  fileIs("abcdefgh");
  const auto registers = Platform::mappedRegistersFactory(path_);
  EXPECT_EQ(registers->size(), 8u);
  U32 value = 0;
  registers->read(4, &value);
  EXPECT_EQ(std::memcmp(&value, "efgh", 4), 0);
}

TEST_F(MappedRegistersTest, createdSize_extendsAnOldFileAndKeepsItsBytes) {
  fileIs("abcd");
  const auto registers = created(8);
  EXPECT_EQ(file(), std::string("abcd") + std::string(4, '\0'));
}

TEST_F(MappedRegistersTest, baseAddress_isTheAddressOfTheFirstRegister) {
  const auto registers = created(8, 0x1000);
  registers->write(0x1000, 1);
  registers->write(0x1004, 2);
  U32 value = 0;
  Platform::mappedRegistersFactory(path_)->read(4, &value);
  EXPECT_EQ(value, 2u);
  EXPECT_EQ(registers->baseAddress(), 0x1000u);
}

TEST_F(MappedRegistersTest, addressBehindTheMappingIsRefusedByName) {
  const auto registers = created(8, 0x1000);
  U32 value = 5;
  EXPECT_EQ(refusal([&] { registers->read(0x1008, &value); }),
            path_ +
                ": register address 0x00001008 is outside the mapping from 0x00001000 to "
                "0x00001007");
  EXPECT_EQ(value, 5u);
  EXPECT_THAT(refusal([&] { registers->write(0x1008, 1); }), HasSubstr("0x00001008"));
}

TEST_F(MappedRegistersTest, addressBelowTheMappingIsRefused) {
  const auto registers = created(8, 0x1000);
  EXPECT_THAT(refusal([&] { registers->write(0xffc, 1); }), HasSubstr("outside the mapping"));
  EXPECT_THAT(refusal([&] { registers->write(0, 1); }), HasSubstr("outside the mapping"));
}

TEST_F(MappedRegistersTest, unalignedAddressIsRefusedByName) {
  const auto registers = created(8);
  EXPECT_EQ(refusal([&] { registers->write(2, 1); }),
            path_ +
                ": register address 0x00000002 is no multiple of 4; mapped is 0x00000000 to "
                "0x00000007");
}

TEST_F(MappedRegistersTest, refusedWriteLeavesTheFileAlone) {
  const auto registers = created(8);
  refusal([&] { registers->write(6, ~0u); });
  refusal([&] { registers->write(8, ~0u); });
  EXPECT_EQ(file(), std::string(8, '\0'));
}

TEST_F(MappedRegistersTest, bytesBehindTheLastWholeRegisterAreOutside) {
  fileIs("abcdef");
  const auto registers = Platform::mappedRegistersFactory(path_);
  U32 value;
  EXPECT_THAT(refusal([&] { registers->read(4, &value); }), HasSubstr("outside the mapping"));
}

TEST_F(MappedRegistersTest, mappingMayReachTheEndOfTheAddressSpace) {
  const auto registers = created(8, 0xfffffff8);
  registers->write(0xfffffffc, 9);
  U32 value = 0;
  registers->read(0xfffffffc, &value);
  EXPECT_EQ(value, 9u);
  EXPECT_THAT(refusal([&] { registers->read(0, &value); }),
              HasSubstr("outside the mapping from 0xfffffff8 to 0xffffffff"));
}

TEST_F(MappedRegistersTest, mappingMayNotReachBeyondTheAddressSpace) {
  EXPECT_THAT(refusal([&] { created(12, 0xfffffff8); }),
              AllOf(HasSubstr(path_), HasSubstr("12 bytes"), HasSubstr("0xfffffff8")));
}

TEST_F(MappedRegistersTest, unalignedBaseAddressIsRefusedBeforeTheFileIsTouched) {
  EXPECT_THAT(refusal([&] { created(8, 2); }), AllOf(HasSubstr(path_), HasSubstr("0x00000002")));
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(MappedRegistersTest, emptyFileIsRefused) {
  fileIs("");
  EXPECT_THAT(refusal([&] { Platform::mappedRegistersFactory(path_); }),
              AllOf(HasSubstr(path_), HasSubstr("0 bytes")));
}

TEST_F(MappedRegistersTest, missingFileIsASystemErrorWithThePath) {
  try {
    Platform::mappedRegistersFactory(path_);
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_THAT(error.what(), HasSubstr("open " + path_));
  }
}

TEST_F(MappedRegistersTest, whatCannotBeMappedIsASystemErrorWithThePath) {
  // A folder cannot be opened for writing.
  try {
    Platform::mappedRegistersFactory(testing::TempDir());
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::is_a_directory);
    EXPECT_THAT(error.what(), HasSubstr(testing::TempDir()));
  }
}

TEST_F(MappedRegistersTest, registerAt_isTheRegisterItself) {
  const auto registers = created(8);
  registers->registerAt(4) = 3;
  U32 value = 0;
  registers->read(4, &value);
  EXPECT_EQ(value, 3u);
  EXPECT_THAT(refusal([&] { registers->registerAt(8) = 1; }), HasSubstr("0x00000008"));
}

TEST_F(MappedRegistersTest, servesTheGenericAccessMethod) {
  const auto registers = created(32, 0x100);
  const auto ham = Hardware::genericChipHamFactory("ham", Zint::Ptr<Fru::HamImpl>(registers));
  U32 out[] = {1, 2, 3, 4};
  ham->doWrite(Hardware::ChipAddress(7, 0x108), reinterpret_cast<U8*>(out), 8, 2);
  U32 in[4] = {};
  ham->doRead(Hardware::ChipAddress(7, 0x108), reinterpret_cast<U8*>(in), 8, 2);
  EXPECT_THAT(in, testing::ElementsAre(1u, 2u, 3u, 4u));
  U32 first = 5;
  registers->read(0x104, &first);
  EXPECT_EQ(first, 0u);
}

}  // namespace
