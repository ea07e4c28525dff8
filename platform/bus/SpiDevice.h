// A chip on an SPI bus, through the kernel's spidev.
//
//   auto bus = Platform::spiDeviceFactory("/dev/spidev0.0", {.addressBytes = 2});
//
// Many registers are one transfer. The bus has no acknowledge: a chip that is absent reads as
// whatever the wires hold, so the access method needs a sentinel.
#pragma once

#include <Zint/Ptr.h>
#include <platform/bus/RegisterBus.h>

#include <memory>
#include <optional>

namespace Platform {

class Descriptor;

// A transfer: the command byte, if there is one; the address, the highest byte first; the bytes
// between it and the data of a read; the data.
struct SpiFormat {
  std::optional<U8> readCommand = std::nullopt;
  std::optional<U8> writeCommand = std::nullopt;
  U32 addressBytes = 1;  // 0 to 4
  // Set in the first byte.
  U8 readFlag = 0;
  U8 writeFlag = 0;
  U32 dummyBytes = 0;          // at most 8
  U32 longestTransfer = 4096;  // bytes; the kernel's module decides (parameter bufsiz)
  U32 speed = 0;               // in Hz; 0 for the device's own
};

class UMBRA_API SpiDevice : public RegisterBus {
 public:
  using Ptr = Zint::Ptr<SpiDevice>;

  // A format that is out of these bounds: a range exception. A device that cannot be opened:
  // BusError.
  SpiDevice(Zint::String8 device, const SpiFormat& format);

  void read(const RegisterRun& run, U8* bytes) override;
  void write(const RegisterRun& run, const U8* bytes) override;
  void reopen() override;
  Zint::String8 name() const override;

  // So far.
  U32 transfers() const { return transfers_; }

 protected:
  ~SpiDevice() override;

  // The call of the system: -1 and errno where it fails. Tests give a chip of their own.
  virtual int call(unsigned long request, void* argument);

 private:
  U32 header(U8* to, U32 address, bool isRead) const;
  U32 longestPiece(const RegisterRun& run) const;
  void transfer(const U8* header, U32 headerSize, const U8* sent, U8* received, U32 size,
                U32 address);

  const Zint::String8 device_;
  const SpiFormat format_;
  std::unique_ptr<Descriptor> file_;
  U32 transfers_ = 0;
};

UMBRA_API Zint::ValidPtr<SpiDevice> spiDeviceFactory(Zint::String8 device,
                                                     const SpiFormat& format = {});

}  // namespace Platform
