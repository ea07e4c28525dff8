// A memory region of a PCI device that belongs to VFIO.
//
//   auto bus = Platform::vfioDeviceFactory("/sys/bus/pci/devices/0000:03:00.0", 0);
//
// The device is this process's alone, behind the IOMMU. It must be bound to the kernel's driver
// vfio-pci, and be alone in its group or with others that are.
//
// When the device is to be removed the kernel asks, and waits: isRemovalRequested(), then letGo().
// Driver::RemovalWatch does both between the slices of an audit. While the memory of the device is
// off, or it is being reset, an access is SIGBUS: use `isGuarded`.
#pragma once

#include <Zint/Ptr.h>
#include <platform/bus/MappedBus.h>
#include <platform/bus/Removable.h>

#include <memory>

namespace Platform {

class Descriptor;

class UMBRA_API VfioDevice : public MappedBus, public Removable {
 public:
  using Ptr = Zint::Ptr<VfioDevice>;

  // `device` is its folder in sysfs, `region` the number of the BAR. Its memory is switched on.
  // A region that cannot be mapped, a device that is not vfio-pci's or cannot be opened: BusError.
  VfioDevice(Zint::String8 device, U32 region, const MappingOptions& options, Zint::String8 folder);

  // Not before a removal that was asked for has happened: ChipAbsent.
  void reopen() override;
  // Vendor, device, subsystem, class and revision. ChipAbsent when the device is not there.
  Zint::String8 identity() const override;
  Zint::String8 name() const override;

  // Readable once the kernel has asked; -1 while the device is not open.
  int removalDescriptor() const override;
  bool isRemovalRequested() override;
  // Unmaps the region and closes the device; nothing while it is not open.
  void letGo() override;

 protected:
  ~VfioDevice() override;

 private:
  struct Files;

  void open();
  bool isVfios() const;
  U64 inode() const;

  const Zint::String8 device_;
  const U32 region_;
  const std::string folder_;
  std::unique_ptr<Files> files_;
  U64 letGo_ = 0;  // the inode of the folder when it let go; 0 otherwise
};

// `folder` holds the files of VFIO.
UMBRA_API Zint::ValidPtr<VfioDevice> vfioDeviceFactory(Zint::String8 device, U32 region,
                                                       const MappingOptions& options = {},
                                                       Zint::String8 folder = "/dev/vfio");

}  // namespace Platform
