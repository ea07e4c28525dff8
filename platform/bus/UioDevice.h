// A memory map of a UIO device.
//
//   auto bus = Platform::uioDeviceFactory("/dev/uio0", 0);
#pragma once

#include <Zint/Ptr.h>
#include <platform/bus/MappedBus.h>

namespace Platform {

class UMBRA_API UioDevice : public MappedBus {
 public:
  using Ptr = Zint::Ptr<UioDevice>;

  // Map number `number` of `device`. Its size and its place within its first page stand in sysfs,
  // in a folder of the device's name under `sysfs`. A map that the device does not have: a range
  // exception. Failure: BusError.
  UioDevice(Zint::String8 device, U32 number, const MappingOptions& options, Zint::String8 sysfs);

  void reopen() override;
  // The driver's name and version, and the physical address of the map. ChipAbsent when the device
  // is not there.
  Zint::String8 identity() const override;
  Zint::String8 name() const override;

 protected:
  ~UioDevice() override;

 private:
  std::string mapPath(const char* file) const;
  void open();

  const Zint::String8 device_;
  const U32 number_;
  const std::string sysfs_;  // the device's own folder
};

UMBRA_API Zint::ValidPtr<UioDevice> uioDeviceFactory(Zint::String8 device, U32 number,
                                                     const MappingOptions& options = {},
                                                     Zint::String8 sysfs = "/sys/class/uio");

}  // namespace Platform
