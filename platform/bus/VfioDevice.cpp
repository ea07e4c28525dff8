#include <platform/bus/VfioDevice.h>

#include <fcntl.h>
#include <linux/pci_regs.h>
#include <linux/vfio.h>
#include <platform/bus/BusError.h>
#include <platform/bus/SysfsFile.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Platform {
namespace {

// The name that a link of sysfs ends with; empty where there is none.
std::string targetOf(const std::string& link) {
  std::error_code none;
  const std::filesystem::path target = std::filesystem::read_symlink(link, none);
  return none ? "" : target.filename().string();
}

}  // namespace

// What keeps the device: closing all of them gives it back.
struct VfioDevice::Files {
  Files(const Zint::String8& bus, const std::string& folder, const std::string& number)
      : container(bus, folder + "/vfio", O_RDWR), group(bus, folder + "/" + number, O_RDWR) {}
  ~Files() {
    for (const int descriptor : {request, device}) {
      if (descriptor >= 0) close(descriptor);
    }
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  Descriptor container;
  Descriptor group;
  int device = -1;
  int request = -1;  // an event: the kernel asks for the device
};

VfioDevice::VfioDevice(Zint::String8 device, U32 region, const MappingOptions& options,
                       Zint::String8 folder)
    : MappedBus(options), device_(std::move(device)), region_(region), folder_(folder.bytes()) {
  open();
}

VfioDevice::~VfioDevice() { unmap(); }

Zint::String8 VfioDevice::name() const {
  return Zint::String8("vfio " + std::filesystem::path(device_.bytes()).filename().string() +
                       " region " + std::to_string(region_));
}

Zint::String8 VfioDevice::identity() const { return identityOfPci(name(), device_.bytes()); }

bool VfioDevice::isVfios() const { return targetOf(device_.bytes() + "/driver") == "vfio-pci"; }

// 0 where the folder is not there.
U64 VfioDevice::inode() const {
  struct stat folder {};
  return stat(device_.c_str(), &folder) == 0 ? folder.st_ino : 0;
}

void VfioDevice::open() {
  const Zint::String8 bus = name();
  const auto fail = [&bus](const char* what) { throw BusError(bus, 0, errno, what); };
  if (!isVfios()) throw BusError(bus, 0, 0, "is not bound to vfio-pci");
  auto files = std::make_unique<Files>(bus, folder_, targetOf(device_.bytes() + "/iommu_group"));

  vfio_group_status status{};
  status.argsz = sizeof status;
  const int group = files->group.number();
  int container = files->container.number();
  if (ioctl(group, VFIO_GROUP_GET_STATUS, &status) < 0) fail("its group does not answer");
  if ((status.flags & VFIO_GROUP_FLAGS_VIABLE) == 0) {
    throw BusError(bus, 0, 0, "another device of its group is not vfio-pci's");
  }
  if (ioctl(group, VFIO_GROUP_SET_CONTAINER, &container) < 0) fail("its group is refused");
  if (ioctl(container, VFIO_SET_IOMMU, VFIO_TYPE1_IOMMU) < 0) fail("its IOMMU is refused");
  const std::string address = std::filesystem::path(device_.bytes()).filename().string();
  files->device = ioctl(group, VFIO_GROUP_GET_DEVICE_FD, address.c_str());
  if (files->device < 0) fail("cannot be opened");

  // Memory and bus mastering on, as a driver of the kernel would.
  vfio_region_info config{};
  config.argsz = sizeof config;
  config.index = VFIO_PCI_CONFIG_REGION_INDEX;
  U16 command = 0;
  if (ioctl(files->device, VFIO_DEVICE_GET_REGION_INFO, &config) < 0) fail("has no config space");
  const auto commandPlace = static_cast<off_t>(config.offset + PCI_COMMAND);
  if (pread(files->device, &command, sizeof command, commandPlace) != sizeof command) {
    fail("its config space cannot be read");
  }
  command = static_cast<U16>(command | PCI_COMMAND_MEMORY | PCI_COMMAND_MASTER);
  if (pwrite(files->device, &command, sizeof command, commandPlace) != sizeof command) {
    fail("its memory cannot be switched on");
  }

  vfio_region_info region{};
  region.argsz = sizeof region;
  region.index = region_;
  if (ioctl(files->device, VFIO_DEVICE_GET_REGION_INFO, &region) < 0) fail("has no such region");
  if ((region.flags & VFIO_REGION_INFO_FLAG_MMAP) == 0 || region.size == 0) {
    throw BusError(bus, 0, 0, "cannot be mapped");
  }

  // The kernel's request to let it go, as an event.
  files->request = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (files->request < 0) fail("no event can be made");
  alignas(vfio_irq_set) char bytes[sizeof(vfio_irq_set) + sizeof(int)] = {};
  auto* const irqs = reinterpret_cast<vfio_irq_set*>(bytes);
  irqs->argsz = sizeof bytes;
  irqs->flags = VFIO_IRQ_SET_DATA_EVENTFD | VFIO_IRQ_SET_ACTION_TRIGGER;
  irqs->index = VFIO_PCI_REQ_IRQ_INDEX;
  irqs->count = 1;
  std::memcpy(irqs->data, &files->request, sizeof(int));
  if (ioctl(files->device, VFIO_DEVICE_SET_IRQS, irqs) < 0) fail("its removal cannot be watched");

  map(files->device, region.offset, region.size, 0);
  files_ = std::move(files);
}

void VfioDevice::reopen() {
  // The kernel waits for what was let go: it must not be taken again before it is gone. A device
  // that has returned has another folder.
  if (letGo_ != 0 && letGo_ == inode() && isVfios()) {
    throw ChipAbsent(name(), 0, 0, "is being removed");
  }
  letGo_ = 0;
  unmap();
  files_ = nullptr;
  open();
}

int VfioDevice::removalDescriptor() const { return files_ == nullptr ? -1 : files_->request; }

bool VfioDevice::isRemovalRequested() {
  if (files_ == nullptr) return false;
  pollfd event{files_->request, POLLIN, 0};
  return poll(&event, 1, 0) > 0;
}

void VfioDevice::letGo() {
  if (files_ == nullptr) return;  // what has returned meanwhile was not let go
  letGo_ = inode();
  unmap();
  files_ = nullptr;
}

Zint::ValidPtr<VfioDevice> vfioDeviceFactory(Zint::String8 device, U32 region,
                                             const MappingOptions& options, Zint::String8 folder) {
  return Zint::makePtr<VfioDevice>(std::move(device), region, options, std::move(folder));
}

}  // namespace Platform
