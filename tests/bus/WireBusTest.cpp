// I2C and SPI, on adapters that the tests play.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <platform/bus/BusError.h>
#include <platform/bus/I2cDevice.h>
#include <platform/bus/SpiDevice.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>

namespace {

using Platform::BusError;
using Platform::I2cDevice;
using Platform::I2cFormat;
using Platform::SpiFormat;

template <class E, class Access>
std::string textOf(Access access) {
  try {
    access();
  } catch (const E& refused) {
    return refused.what();
  }
  return "no exception";
}

// A chip of 256 or 64 Ki bytes behind an adapter with some abilities.
class I2cChip : public I2cDevice {
 public:
  I2cChip(unsigned long abilities, const I2cFormat& format)
      : I2cDevice("/dev/null", 0x50, format), abilities_(abilities), format_(format) {
    std::iota(memory.begin(), memory.end(), U8{1});
    open();
  }
  std::vector<U8> memory = std::vector<U8>(0x10000);
  int error = 0;      // of the next call
  U32 longest = 0;    // bytes of a message of a combined transfer, so far
  int messages = -1;  // that a combined transfer says it has made

 protected:
  int call(unsigned long request, void* argument) override {
    if (request == I2C_FUNCS) {
      *static_cast<unsigned long*>(argument) = abilities_;
      return 0;
    }
    if (request == I2C_SLAVE) return reinterpret_cast<std::uintptr_t>(argument) == 0x50 ? 0 : -1;
    if (error != 0) {
      errno = std::exchange(error, 0);
      return -1;
    }
    if (request == I2C_RDWR) return combined(*static_cast<i2c_rdwr_ioctl_data*>(argument));
    smbus(*static_cast<i2c_smbus_ioctl_data*>(argument));
    return 0;
  }

 private:
  std::size_t placeOf(const U8* number) const {
    std::size_t place = 0;
    for (U32 i = 0; i < format_.addressBytes; ++i) place = place << 8 | number[i];
    return place * format_.bytesOfNumber;
  }
  int combined(const i2c_rdwr_ioctl_data& data) {
    const i2c_msg& first = data.msgs[0];
    EXPECT_EQ(first.addr, 0x50);
    for (U32 i = 0; i < data.nmsgs; ++i) longest = std::max<U32>(longest, data.msgs[i].len);
    const std::size_t place = placeOf(first.buf);
    if (data.nmsgs == 2) {
      EXPECT_EQ(data.msgs[1].flags, I2C_M_RD);
      std::memcpy(data.msgs[1].buf, &memory[place], data.msgs[1].len);
    } else {
      std::memcpy(&memory[place], first.buf + format_.addressBytes,
                  first.len - format_.addressBytes);
    }
    return messages >= 0 ? messages : static_cast<int>(data.nmsgs);
  }
  void smbus(const i2c_smbus_ioctl_data& command) {
    U8* const at = &memory[command.command * format_.bytesOfNumber];
    const bool isRead = command.read_write == I2C_SMBUS_READ;
    if (command.size == I2C_SMBUS_BYTE_DATA) {
      isRead ? command.data->byte = *at : * at = command.data->byte;
    } else if (command.size == I2C_SMBUS_WORD_DATA) {
      if (isRead) {
        command.data->word = static_cast<U16>(at[0] | at[1] << 8);
      } else {
        at[0] = static_cast<U8>(command.data->word);
        at[1] = static_cast<U8>(command.data->word >> 8);
      }
    } else {
      const U8 size = command.data->block[0];
      isRead ? std::memcpy(command.data->block + 1, at, size)
             : std::memcpy(at, command.data->block + 1, size);
    }
  }

  const unsigned long abilities_;
  const I2cFormat format_;
};

struct WayCase {
  unsigned long abilities;
  I2cFormat format;
  I2cDevice::Way way;
  U32 transfers;  // of 64 bytes
};

class I2cWays : public testing::TestWithParam<WayCase> {};

TEST_P(I2cWays, aRunIsReadAndWrittenInTheFewestTransfersOfTheWay) {
  const auto chip = Zint::makePtr<I2cChip>(GetParam().abilities, GetParam().format);
  EXPECT_EQ(chip->way(), GetParam().way);
  U8 bytes[64];
  chip->read({0x20, 4, 16}, bytes);
  EXPECT_EQ(std::memcmp(bytes, &chip->memory[0x20], 64), 0);
  EXPECT_EQ(chip->transfers(), GetParam().transfers);
  for (U8& byte : bytes) byte = static_cast<U8>(~byte);
  chip->write({0x20, 4, 16}, bytes);
  EXPECT_EQ(std::memcmp(bytes, &chip->memory[0x20], 64), 0);
  EXPECT_EQ(chip->transfers(), 2 * GetParam().transfers);
  EXPECT_EQ(chip->memory[0x1f], 0x20);
  EXPECT_EQ(chip->memory[0x60], 0x61);
}

INSTANTIATE_TEST_SUITE_P(
    I2c, I2cWays,
    testing::Values(
        WayCase{I2C_FUNC_I2C | I2C_FUNC_SMBUS_BYTE_DATA, {}, I2cDevice::Way::combined, 1},
        WayCase{I2C_FUNC_I2C, {.addressBytes = 2}, I2cDevice::Way::combined, 1},
        WayCase{I2C_FUNC_I2C,
                {.addressBytes = 2, .bytesOfNumber = 4, .longestTransfer = 24},
                I2cDevice::Way::combined,
                3},
        WayCase{
            I2C_FUNC_SMBUS_I2C_BLOCK | I2C_FUNC_SMBUS_BYTE_DATA, {}, I2cDevice::Way::smbusBlock, 2},
        WayCase{I2C_FUNC_SMBUS_WORD_DATA, {.bytesOfNumber = 2}, I2cDevice::Way::smbusWord, 32},
        WayCase{I2C_FUNC_SMBUS_WORD_DATA | I2C_FUNC_SMBUS_BYTE_DATA,
                {},
                I2cDevice::Way::smbusByte,
                64}));

TEST(I2c, anAdapterThatCannotReachTheRegistersIsRefused) {
  EXPECT_EQ(textOf<BusError>([] { Zint::makePtr<I2cChip>(I2C_FUNC_SMBUS_QUICK, I2cFormat{}); }),
            "i2c /dev/null chip 0x50: the adapter cannot reach its registers at 0x0: Operation not "
            "supported");
  EXPECT_NE(textOf<BusError>([] {
              Zint::makePtr<I2cChip>(I2C_FUNC_SMBUS_I2C_BLOCK, I2cFormat{.addressBytes = 2});
            }),
            "no exception");
  EXPECT_EQ(textOf<BusError>([] { Platform::i2cDeviceFactory("/dev/null", 0x50); }),
            "i2c /dev/null chip 0x50: the adapter does not answer at 0x0: Inappropriate ioctl for "
            "device");
}

TEST(I2c, failuresNameTheRegisterAndTheAdaptersReason) {
  const auto chip = Zint::makePtr<I2cChip>(I2C_FUNC_I2C, I2cFormat{});
  U8 bytes[4] = {};
  chip->error = ENXIO;
  EXPECT_EQ(textOf<BusError>([&] {
              chip->read({0x10, 4, 1}, bytes);
            }),
            "i2c /dev/null chip 0x50: the read failed at 0x10: No such device or address");
  chip->error = ETIMEDOUT;
  EXPECT_EQ(textOf<BusError>([&] {
              chip->write({0x10, 4, 1}, bytes);
            }),
            "i2c /dev/null chip 0x50: the write failed at 0x10: Connection timed out");
  chip->messages = 1;  // only the address went out
  EXPECT_EQ(textOf<BusError>([&] {
              chip->read({0x10, 4, 1}, bytes);
            }),
            "i2c /dev/null chip 0x50: the read failed at 0x10: Input/output error");
}

TEST(I2c, runsThatTheNumbersDoNotReachAreRefused) {
  const auto chip = Zint::makePtr<I2cChip>(I2C_FUNC_I2C, I2cFormat{.bytesOfNumber = 2});
  U8 bytes[8] = {};
  EXPECT_EQ(textOf<Zint::RangeException>([&] {
              chip->read({0x11, 1, 2}, bytes);
            }),
            "i2c /dev/null chip 0x50: 2 registers of 1 bytes at 0x11 are no whole numbers");
  EXPECT_EQ(textOf<Zint::RangeException>([&] {
              chip->read({0x1fe, 4, 1}, bytes);
            }),
            "i2c /dev/null chip 0x50: 1 registers of 4 bytes at 0x1fe are beyond the chip's last "
            "number");
  chip->read({0x1fc, 4, 1}, bytes);
  EXPECT_EQ(textOf<Zint::RangeException>([] { Platform::i2cDeviceFactory("/dev/null", 0x80); }),
            "/dev/null: the chip address 0x80 has more than 7 bits");
}

TEST(I2c, noMessageIsLongerThanTheKernelTakes) {
  const auto chip = Zint::makePtr<I2cChip>(
      I2C_FUNC_I2C, I2cFormat{.addressBytes = 2, .longestTransfer = 0x20000});
  std::vector<U8> bytes(0x10000);
  chip->read({0, 4, 0x4000}, bytes.data());
  EXPECT_EQ(bytes, chip->memory);
  EXPECT_EQ(chip->longest, 8188u);
  for (U8& byte : bytes) byte = static_cast<U8>(~byte);
  chip->write({0, 4, 0x4000}, bytes.data());
  EXPECT_EQ(bytes, chip->memory);
  EXPECT_EQ(chip->longest, 8190u);
}

TEST(I2c, aNumberOfMoreBytesThanATransferIsRefused) {
  EXPECT_EQ(
      textOf<Zint::RangeException>([] {
        Zint::makePtr<I2cChip>(I2C_FUNC_I2C, I2cFormat{.bytesOfNumber = 16, .longestTransfer = 8});
      }),
      "/dev/null: a format of 1 address bytes, 16 bytes of a number and transfers of 8 bytes");
  EXPECT_EQ(textOf<BusError>([] {
              Zint::makePtr<I2cChip>(I2C_FUNC_SMBUS_I2C_BLOCK, I2cFormat{.bytesOfNumber = 64});
            }),
            "i2c /dev/null chip 0x50: the adapter cannot reach its registers at 0x0: Operation not "
            "supported");
}

TEST(I2c, noRegisterIsDividedBetweenTransfers) {
  const auto chip =
      Zint::makePtr<I2cChip>(I2C_FUNC_I2C, I2cFormat{.addressBytes = 2, .longestTransfer = 12});
  U8 bytes[24];
  chip->read({0, 8, 3}, bytes);
  EXPECT_EQ(chip->longest, 8u);
  EXPECT_EQ(chip->transfers(), 3u);
}

TEST(I2c, runsBeyondTheLastAddressAreRefusedBeforeAnyTransfer) {
  const auto chip = Zint::makePtr<I2cChip>(I2C_FUNC_I2C, I2cFormat{.addressBytes = 4});
  U8 bytes[8] = {};
  EXPECT_EQ(textOf<Zint::RangeException>([&] {
              chip->read({0xfffffffc, 4, 2}, bytes);
            }),
            "i2c /dev/null chip 0x50: 2 registers of 4 bytes at 0xfffffffc are beyond the chip's "
            "last number");
  EXPECT_NE(textOf<Zint::RangeException>([&] {
              chip->write({0, 8, 0x20000001}, bytes);
            }),
            "no exception");
  chip->read({0, 4, 0}, bytes);  // nothing
  EXPECT_EQ(chip->transfers(), 0u);
}

TEST(I2c, aDeviceThatIsNotOpenIsAnError) {
  const auto bus = Zint::makePtr<I2cDevice>("/dev/null", 0x50u, I2cFormat{});
  U8 bytes[4] = {};
  EXPECT_EQ(textOf<BusError>([&] {
              bus->read({0, 4, 1}, bytes);
            }),
            "i2c /dev/null chip 0x50: the read failed at 0x0: No such device");
}

// --- SPI ---

class SpiChip : public Platform::SpiDevice {
 public:
  explicit SpiChip(const SpiFormat& format) : SpiDevice("/dev/null", format) {}
  std::vector<std::vector<U8>> headers;
  std::vector<U8> memory = std::vector<U8>(0x10000, 3);
  U32 place = 0;  // of the next data
  int error = 0;
  int missing = 0;  // bytes that are not transferred

 protected:
  int call(unsigned long request, void* argument) override {
    EXPECT_EQ(request, static_cast<unsigned long>(SPI_IOC_MESSAGE(2)));
    if (error != 0) {
      errno = std::exchange(error, 0);
      return -1;
    }
    const auto* parts = static_cast<const spi_ioc_transfer*>(argument);
    const auto at = [](U64 address) {
      return reinterpret_cast<U8*>(static_cast<std::uintptr_t>(address));
    };
    headers.emplace_back(at(parts[0].tx_buf), at(parts[0].tx_buf) + parts[0].len);
    if (parts[1].rx_buf != 0) std::memcpy(at(parts[1].rx_buf), &memory[place], parts[1].len);
    if (parts[1].tx_buf != 0) std::memcpy(&memory[place], at(parts[1].tx_buf), parts[1].len);
    place += parts[1].len;
    return static_cast<int>(parts[0].len + parts[1].len) - missing;
  }
};

TEST(Spi, theHeaderIsCommandAddressAndDummyBytes) {
  U8 bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const auto chip = Zint::makePtr<SpiChip>(SpiFormat{
      .readCommand = U8{0x0b}, .writeCommand = U8{0x02}, .addressBytes = 3, .dummyBytes = 1});
  chip->read({0x123456, 4, 2}, bytes);
  chip->place = 0;
  chip->write({0x10, 4, 2}, bytes);
  EXPECT_EQ(chip->headers,
            (std::vector<std::vector<U8>>{{0x0b, 0x12, 0x34, 0x56, 0}, {0x02, 0, 0, 0x10}}));
  const auto flagged = Zint::makePtr<SpiChip>(SpiFormat{.readFlag = 0x80});
  flagged->read({0x12, 1, 1}, bytes);
  flagged->write({0x12, 1, 1}, bytes);
  EXPECT_EQ(flagged->headers, (std::vector<std::vector<U8>>{{0x92}, {0x12}}));
}

TEST(Spi, aLongRunIsDividedBetweenWholeRegisters) {
  const auto chip = Zint::makePtr<SpiChip>(SpiFormat{.addressBytes = 2, .longestTransfer = 32});
  std::vector<U8> bytes(64);
  chip->read({0x100, 8, 8}, bytes.data());
  EXPECT_EQ(bytes, std::vector<U8>(64, 3));
  EXPECT_EQ(chip->headers, (std::vector<std::vector<U8>>{{1, 0}, {1, 0x10}, {1, 0x20}, {1, 0x30}}));
  EXPECT_EQ(chip->transfers(), 4u);
}

TEST(Spi, runsBeyondTheLastAddressAreRefusedBeforeAnyTransfer) {
  const auto chip = Zint::makePtr<SpiChip>(SpiFormat{.addressBytes = 4});
  U8 bytes[8] = {};
  EXPECT_EQ(textOf<Zint::RangeException>([&] {
              chip->read({0xfffffffc, 4, 2}, bytes);
            }),
            "spi /dev/null: 2 registers of 4 bytes at 0xfffffffc are beyond the last address");
  EXPECT_NE(textOf<Zint::RangeException>([&] {
              chip->write({0, 8, 0x20000001}, bytes);
            }),
            "no exception");
  chip->read({0, 4, 0}, bytes);  // nothing
  EXPECT_EQ(chip->transfers(), 0u);
}

TEST(Spi, aDeviceThatDidNotComeBackIsAnError) {
  const std::string file = testing::TempDir() + "spi-" + std::to_string(getpid());
  std::ofstream(file) << "1";
  const auto bus = Platform::spiDeviceFactory(Zint::String8(file));
  std::filesystem::remove(file);
  EXPECT_NE(textOf<BusError>([&] { bus->reopen(); }), "no exception");
  U8 bytes[4] = {};  // of another access method, which does not know
  EXPECT_EQ(textOf<BusError>([&] {
              bus->read({0, 4, 1}, bytes);
            }),
            "spi " + file + ": the read failed at 0x0: No such device");
}

TEST(Spi, failuresAndShortTransfersAreErrors) {
  const auto chip = Zint::makePtr<SpiChip>(SpiFormat{});
  U8 bytes[4] = {};
  chip->error = ESHUTDOWN;
  EXPECT_EQ(
      textOf<BusError>([&] {
        chip->read({0x10, 4, 1}, bytes);
      }),
      "spi /dev/null: the read failed at 0x10: Cannot send after transport endpoint shutdown");
  chip->missing = 1;
  EXPECT_EQ(textOf<BusError>([&] {
              chip->write({0x10, 4, 1}, bytes);
            }),
            "spi /dev/null: the write failed at 0x10: Input/output error");
  EXPECT_EQ(textOf<Zint::RangeException>([&] {
              chip->read({0xfe, 4, 1}, bytes);
            }),
            "spi /dev/null: 1 registers of 4 bytes at 0xfe are beyond the last address");
  EXPECT_NE(
      textOf<Zint::RangeException>([] { Zint::makePtr<SpiChip>(SpiFormat{.dummyBytes = 9}); }),
      "no exception");
  EXPECT_EQ(textOf<BusError>([] { Platform::spiDeviceFactory("/dev/no-such-spi"); }),
            "spi /dev/no-such-spi: /dev/no-such-spi cannot be opened at 0x0: No such file or "
            "directory");
}

}  // namespace
