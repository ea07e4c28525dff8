// A memory resource (BAR) of a PCI device, through the kernel's sysfs.
//
//   auto bus = Platform::pciResourceFactory("/sys/bus/pci/devices/0000:03:00.0", 0);
//
// It is mapped uncached, never combined: each access reaches the device as it is made, in order.
// Needs root, and a kernel that lets the resource be mapped: while a kernel driver has claimed it,
// most refuse (EINVAL), which the message says. Nothing tells of a removal beforehand; see
// VfioDevice for a bus that does.
#pragma once

#include <Zint/Ptr.h>
#include <platform/bus/MappedBus.h>

namespace Platform {

struct PciOptions : MappingOptions {
  // Switches the device's memory on where it is off, as it is after it was plugged in.
  bool enablesMemory = true;
};

class UMBRA_API PciResource : public MappedBus {
 public:
  using Ptr = Zint::Ptr<PciResource>;

  // `device` is its folder in sysfs, `resource` the number of the BAR. A resource that is of I/O
  // ports, or is empty: a range exception. One that cannot be opened or mapped: BusError.
  PciResource(Zint::String8 device, U32 resource, const PciOptions& options);

  void reopen() override;
  // Vendor, device, subsystem, class and revision. ChipAbsent when the device is not there.
  Zint::String8 identity() const override;
  Zint::String8 name() const override;

 protected:
  ~PciResource() override;

 private:
  std::string path(const char* file) const;
  void open();

  const Zint::String8 device_;
  const U32 resource_;
  const bool enablesMemory_;
};

UMBRA_API Zint::ValidPtr<PciResource> pciResourceFactory(Zint::String8 device, U32 resource,
                                                         const PciOptions& options = {});

}  // namespace Platform
