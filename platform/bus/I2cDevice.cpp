#include <platform/bus/I2cDevice.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <platform/bus/BusError.h>
#include <platform/bus/SysfsFile.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <vector>

namespace Platform {
namespace {

constexpr U32 numberBytes = 4;                   // of the longest register number
constexpr U32 longestData = 8192 - numberBytes;  // of a message that i2c-dev takes

// The register's number as it goes over the bus, the highest byte first.
void putNumber(U8* to, U32 number, U32 bytes) {
  for (U32 i = 0; i < bytes; ++i) to[i] = static_cast<U8>(number >> (8 * (bytes - 1 - i)));
}

const char* const failedRead = "the read failed";
const char* const failedWrite = "the write failed";

}  // namespace

I2cDevice::I2cDevice(Zint::String8 device, U32 chip, const I2cFormat& format)
    : device_(std::move(device)), chip_(chip), format_(format) {
  if (chip_ > 0x7f) {
    Zint::throwRangeException(
        Zint::format("%s: the chip address 0x%x has more than 7 bits", device_.c_str(), chip_));
  }
  if (format_.addressBytes == 0 || format_.addressBytes > numberBytes ||
      format_.bytesOfNumber == 0 || format_.longestTransfer < 8 ||
      format_.bytesOfNumber > std::min(format_.longestTransfer, longestData)) {
    Zint::throwRangeException(Zint::format(
        "%s: a format of %u address bytes, %u bytes of a number and transfers of %u bytes",
        device_.c_str(), format_.addressBytes, format_.bytesOfNumber, format_.longestTransfer));
  }
}

I2cDevice::~I2cDevice() = default;

Zint::String8 I2cDevice::name() const {
  return Zint::format("i2c %s chip 0x%02x", device_.c_str(), chip_);
}

int I2cDevice::call(unsigned long request, void* argument) {
  if (file_ == nullptr) {
    errno = ENODEV;
    return -1;
  }
  return ioctl(file_->number(), request, argument);
}

void I2cDevice::open() {
  file_ = nullptr;
  file_ = std::make_unique<Descriptor>(name(), device_.bytes(), O_RDWR);
  unsigned long can = 0;
  if (call(I2C_FUNCS, &can) < 0) throw BusError(name(), 0, errno, "the adapter does not answer");
  const bool isByteNumber = format_.addressBytes == 1;
  if ((can & I2C_FUNC_I2C) != 0) {
    way_ = Way::combined;
  } else if (isByteNumber && (can & I2C_FUNC_SMBUS_I2C_BLOCK) == I2C_FUNC_SMBUS_I2C_BLOCK &&
             format_.bytesOfNumber <= I2C_SMBUS_BLOCK_MAX) {
    way_ = Way::smbusBlock;
  } else if (isByteNumber && (can & I2C_FUNC_SMBUS_WORD_DATA) == I2C_FUNC_SMBUS_WORD_DATA &&
             format_.bytesOfNumber == 2) {
    way_ = Way::smbusWord;
  } else if (isByteNumber && (can & I2C_FUNC_SMBUS_BYTE_DATA) == I2C_FUNC_SMBUS_BYTE_DATA &&
             format_.bytesOfNumber == 1) {
    way_ = Way::smbusByte;
  } else {
    throw BusError(name(), 0, EOPNOTSUPP, "the adapter cannot reach its registers");
  }
  if (way_ == Way::combined) return;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the call takes the number in the pointer's place
  if (call(I2C_SLAVE, reinterpret_cast<void*>(std::uintptr_t{chip_})) < 0) {
    throw BusError(name(), 0, errno, "the chip cannot be addressed");
  }
}

void I2cDevice::reopen() { open(); }

U32 I2cDevice::numberOfRegister(const RegisterRun& run) const {
  const U64 bytes = U64{run.width} * run.count;
  const U64 end = (run.address + bytes) / format_.bytesOfNumber;
  const bool fits = run.address + bytes <= U64{1} << 32 && end <= U64{1}
                                                                      << (8 * format_.addressBytes);
  if (run.address % format_.bytesOfNumber != 0 || bytes % format_.bytesOfNumber != 0 || !fits) {
    Zint::throwRangeException(Zint::format(
        "%s: %u registers of %u bytes at 0x%x %s", name().c_str(), run.count, run.width,
        run.address, fits ? "are no whole numbers" : "are beyond the chip's last number"));
  }
  return run.address / format_.bytesOfNumber;
}

U32 I2cDevice::longestTransfer() const {
  switch (way_) {
    case Way::combined:
      return std::min(format_.longestTransfer, longestData);
    case Way::smbusBlock:
      return std::min<U32>(format_.longestTransfer, I2C_SMBUS_BLOCK_MAX);
    case Way::smbusWord:
      return 2;
    default:
      return 1;
  }
}

// Whole numbers, and whole registers where one transfer can have one.
U32 I2cDevice::longestPiece(U32 width) const {
  const U32 longest = longestTransfer();
  const U32 both = std::lcm(width, format_.bytesOfNumber);
  const U32 unit = both != 0 && both <= longest ? both : format_.bytesOfNumber;
  return longest / unit * unit;
}

void I2cDevice::read(const RegisterRun& run, U8* bytes) {
  U32 number = numberOfRegister(run);
  const U32 most = longestPiece(run.width);
  for (auto left = static_cast<U64>(run.width) * run.count; left > 0;) {
    const U32 size = static_cast<U32>(std::min<U64>(left, most));
    readPiece(number, bytes, size);
    number += size / format_.bytesOfNumber;
    bytes += size;
    left -= size;
  }
}

void I2cDevice::write(const RegisterRun& run, const U8* bytes) {
  U32 number = numberOfRegister(run);
  const U32 most = longestPiece(run.width);
  for (auto left = static_cast<U64>(run.width) * run.count; left > 0;) {
    const U32 size = static_cast<U32>(std::min<U64>(left, most));
    writePiece(number, bytes, size);
    number += size / format_.bytesOfNumber;
    bytes += size;
    left -= size;
  }
}

// A transfer that was not made whole has failed, too.
void I2cDevice::transfer(unsigned long request, void* argument, U32 address, const char* what) {
  ++transfers_;
  const int done = call(request, argument);
  if (done < 0) throw BusError(name(), address, errno, what);
  if (request == I2C_RDWR &&
      done != static_cast<int>(static_cast<i2c_rdwr_ioctl_data*>(argument)->nmsgs)) {
    throw BusError(name(), address, EIO, what);
  }
}

void I2cDevice::readPiece(U32 number, U8* bytes, U32 size) {
  const U32 address = number * format_.bytesOfNumber;
  if (way_ == Way::combined) {
    U8 numberOnBus[numberBytes];
    putNumber(numberOnBus, number, format_.addressBytes);
    const auto chip = static_cast<U16>(chip_);
    i2c_msg messages[] = {{chip, 0, static_cast<U16>(format_.addressBytes), numberOnBus},
                          {chip, I2C_M_RD, static_cast<U16>(size), bytes}};
    i2c_rdwr_ioctl_data both{messages, 2};
    return transfer(I2C_RDWR, &both, address, failedRead);
  }
  i2c_smbus_data data{};
  i2c_smbus_ioctl_data command{I2C_SMBUS_READ, static_cast<U8>(number), I2C_SMBUS_BYTE_DATA, &data};
  if (way_ == Way::smbusWord) command.size = I2C_SMBUS_WORD_DATA;
  if (way_ == Way::smbusBlock) {
    command.size = I2C_SMBUS_I2C_BLOCK_DATA;
    data.block[0] = static_cast<U8>(size);
  }
  transfer(I2C_SMBUS, &command, address, failedRead);
  if (way_ == Way::smbusByte) {
    bytes[0] = data.byte;
  } else if (way_ == Way::smbusWord) {
    // The low byte goes over the bus first.
    bytes[0] = static_cast<U8>(data.word);
    bytes[1] = static_cast<U8>(data.word >> 8);
  } else {
    if (data.block[0] != size) throw BusError(name(), address, EIO, failedRead);
    std::memcpy(bytes, data.block + 1, size);
  }
}

void I2cDevice::writePiece(U32 number, const U8* bytes, U32 size) {
  const U32 address = number * format_.bytesOfNumber;
  if (way_ == Way::combined) {
    std::vector<U8> message(format_.addressBytes + size);
    putNumber(message.data(), number, format_.addressBytes);
    std::memcpy(message.data() + format_.addressBytes, bytes, size);
    i2c_msg only{static_cast<U16>(chip_), 0, static_cast<U16>(message.size()), message.data()};
    i2c_rdwr_ioctl_data one{&only, 1};
    return transfer(I2C_RDWR, &one, address, failedWrite);
  }
  i2c_smbus_data data{};
  i2c_smbus_ioctl_data command{I2C_SMBUS_WRITE, static_cast<U8>(number), I2C_SMBUS_BYTE_DATA,
                               &data};
  if (way_ == Way::smbusByte) {
    data.byte = bytes[0];
  } else if (way_ == Way::smbusWord) {
    command.size = I2C_SMBUS_WORD_DATA;
    data.word = static_cast<U16>(bytes[0] | bytes[1] << 8);
  } else {
    command.size = I2C_SMBUS_I2C_BLOCK_DATA;
    data.block[0] = static_cast<U8>(size);
    std::memcpy(data.block + 1, bytes, size);
  }
  transfer(I2C_SMBUS, &command, address, failedWrite);
}

Zint::ValidPtr<I2cDevice> i2cDeviceFactory(Zint::String8 device, U32 chip,
                                           const I2cFormat& format) {
  const I2cDevice::Ptr made = Zint::makePtr<I2cDevice>(std::move(device), chip, format);
  made->open();
  return made;
}

}  // namespace Platform
