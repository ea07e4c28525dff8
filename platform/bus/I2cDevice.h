// A chip on an I2C bus, through the kernel's i2c-dev.
//
//   auto bus = Platform::i2cDeviceFactory("/dev/i2c-1", 0x50);
//
// What the adapter can do decides how registers are read: combined transfers (I2C_RDWR) where it
// has them, so that many registers are one transfer; else SMBus blocks of 32 bytes, words, bytes.
#pragma once

#include <Zint/Ptr.h>
#include <platform/bus/RegisterBus.h>

#include <memory>

namespace Platform {

class Descriptor;

struct I2cFormat {
  U32 addressBytes = 1;        // of a register's number, the highest first: 1 to 4
  U32 bytesOfNumber = 1;       // a register's number counts units of so many bytes
  U32 longestTransfer = 4096;  // data bytes of one transfer; the kernel takes 8,188 at most
};

class UMBRA_API I2cDevice : public RegisterBus {
 public:
  using Ptr = Zint::Ptr<I2cDevice>;

  // How a chip's registers are reached, the best first.
  enum class Way { combined, smbusBlock, smbusWord, smbusByte };

  // `chip` is its 7-bit address. A format that is out of these bounds: a range exception. The
  // factory opens the device: one that cannot be opened, or whose adapter cannot do any of the ways
  // (numbers of more than one byte need combined transfers): BusError.
  I2cDevice(Zint::String8 device, U32 chip, const I2cFormat& format);

  // No acknowledge, arbitration lost, a timeout: BusError with the adapter's errno.
  void read(const RegisterRun& run, U8* bytes) override;
  void write(const RegisterRun& run, const U8* bytes) override;
  void reopen() override;
  Zint::String8 name() const override;

  Way way() const { return way_; }
  // So far.
  U32 transfers() const { return transfers_; }

 protected:
  ~I2cDevice() override;

  // The call of the system: -1 and errno where it fails. Tests give an adapter of their own.
  virtual int call(unsigned long request, void* argument);
  // Opens the device, and asks the adapter. Call it once, after construction.
  void open();

 private:
  friend Zint::ValidPtr<I2cDevice> i2cDeviceFactory(Zint::String8 device, U32 chip,
                                                    const I2cFormat& format);

  U32 numberOfRegister(const RegisterRun& run) const;
  void transfer(unsigned long request, void* argument, U32 address, const char* what);
  void readPiece(U32 number, U8* bytes, U32 size);
  void writePiece(U32 number, const U8* bytes, U32 size);
  U32 longestTransfer() const;
  U32 longestPiece(U32 width) const;

  const Zint::String8 device_;
  const U32 chip_;
  const I2cFormat format_;
  std::unique_ptr<Descriptor> file_;
  Way way_ = Way::combined;
  U32 transfers_ = 0;
};

UMBRA_API Zint::ValidPtr<I2cDevice> i2cDeviceFactory(Zint::String8 device, U32 chip,
                                                     const I2cFormat& format = {});

}  // namespace Platform
