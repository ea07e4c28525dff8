#include <platform/bus/SpiDevice.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <platform/bus/BusError.h>
#include <platform/bus/SysfsFile.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

namespace Platform {
namespace {

constexpr U32 longestHeader = 1 + 4 + 8;

// The kernel takes addresses as 64-bit numbers.
U64 numberOfAddress(const void* bytes) { return reinterpret_cast<std::uintptr_t>(bytes); }

}  // namespace

SpiDevice::SpiDevice(Zint::String8 device, const SpiFormat& format)
    : device_(std::move(device)), format_(format) {
  if (format_.addressBytes > 4 || format_.dummyBytes > 8 ||
      format_.longestTransfer < longestHeader + 8) {
    Zint::throwRangeException(Zint::format(
        "%s: a format of %u address bytes, %u dummy bytes and transfers of %u bytes",
        device_.c_str(), format_.addressBytes, format_.dummyBytes, format_.longestTransfer));
  }
  reopen();
}

SpiDevice::~SpiDevice() = default;

Zint::String8 SpiDevice::name() const { return Zint::String8("spi " + device_.bytes()); }

int SpiDevice::call(unsigned long request, void* argument) {
  if (file_ == nullptr) {
    errno = ENODEV;
    return -1;
  }
  return ioctl(file_->number(), request, argument);
}

void SpiDevice::reopen() {
  file_ = nullptr;
  file_ = std::make_unique<Descriptor>(name(), device_.bytes(), O_RDWR);
}

// Writes what goes before the data, and returns its size.
U32 SpiDevice::header(U8* to, U32 address, bool isRead) const {
  U8* next = to;
  if (const std::optional<U8> command = isRead ? format_.readCommand : format_.writeCommand)
    *next++ = *command;
  for (U32 i = format_.addressBytes; i > 0; --i)
    *next++ = static_cast<U8>(address >> (8 * (i - 1)));
  if (isRead) next = std::fill_n(next, format_.dummyBytes, U8{0});
  if (next != to) to[0] = static_cast<U8>(to[0] | (isRead ? format_.readFlag : format_.writeFlag));
  return static_cast<U32>(next - to);
}

// Whole registers.
U32 SpiDevice::longestPiece(const RegisterRun& run) const {
  if (run.address + U64{run.width} * run.count > U64{1} << (8 * format_.addressBytes)) {
    Zint::throwRangeException(
        Zint::format("%s: %u registers of %u bytes at 0x%x are beyond the last address",
                     name().c_str(), run.count, run.width, run.address));
  }
  const U32 longest = format_.longestTransfer - longestHeader;
  return longest - longest % std::max(run.width, 1u);
}

// One transfer: the chip stays selected from the header to the end of the data.
void SpiDevice::transfer(const U8* header, U32 headerSize, const U8* sent, U8* received, U32 size,
                         U32 address) {
  ++transfers_;
  spi_ioc_transfer parts[2] = {};
  parts[0].tx_buf = numberOfAddress(header);
  parts[0].len = headerSize;
  parts[0].speed_hz = format_.speed;
  parts[1].tx_buf = numberOfAddress(sent);
  parts[1].rx_buf = numberOfAddress(received);
  parts[1].len = size;
  parts[1].speed_hz = format_.speed;
  const char* const failed = received != nullptr ? "the read failed" : "the write failed";
  const int done = call(SPI_IOC_MESSAGE(2), parts);
  if (done < 0) throw BusError(name(), address, errno, failed);
  if (static_cast<U32>(done) != headerSize + size) throw BusError(name(), address, EIO, failed);
}

void SpiDevice::read(const RegisterRun& run, U8* bytes) {
  const U32 most = longestPiece(run);
  U32 address = run.address;
  for (auto left = static_cast<U64>(run.width) * run.count; left > 0;) {
    const U32 size = static_cast<U32>(std::min<U64>(left, most));
    U8 head[longestHeader];
    transfer(head, header(head, address, true), nullptr, bytes, size, address);
    address += size;
    bytes += size;
    left -= size;
  }
}

void SpiDevice::write(const RegisterRun& run, const U8* bytes) {
  const U32 most = longestPiece(run);
  U32 address = run.address;
  for (auto left = static_cast<U64>(run.width) * run.count; left > 0;) {
    const U32 size = static_cast<U32>(std::min<U64>(left, most));
    U8 head[longestHeader];
    transfer(head, header(head, address, false), bytes, nullptr, size, address);
    address += size;
    bytes += size;
    left -= size;
  }
}

Zint::ValidPtr<SpiDevice> spiDeviceFactory(Zint::String8 device, const SpiFormat& format) {
  return Zint::makePtr<SpiDevice>(std::move(device), format);
}

}  // namespace Platform
