#include <platform/bus/UioDevice.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>
#include <fcntl.h>
#include <platform/bus/BusError.h>
#include <platform/bus/SysfsFile.h>
#include <unistd.h>

#include <filesystem>

namespace Platform {

UioDevice::UioDevice(Zint::String8 device, U32 number, const MappingOptions& options,
                     Zint::String8 sysfs)
    : MappedBus(options),
      device_(std::move(device)),
      number_(number),
      sysfs_(sysfs.bytes() + "/" + std::filesystem::path(device_.bytes()).filename().string()) {
  open();
}

UioDevice::~UioDevice() = default;

std::string UioDevice::mapPath(const char* file) const {
  return sysfs_ + "/maps/map" + std::to_string(number_) + "/" + file;
}

Zint::String8 UioDevice::name() const {
  return Zint::String8("uio " + device_.bytes() + " map " + std::to_string(number_));
}

void UioDevice::open() {
  const Descriptor file(name(), device_.bytes(), O_RDWR);
  const std::optional<U64> size = numberOf(mapPath("size"));
  if (!size || *size == 0) {
    Zint::throwRangeException(Zint::format("%s: there is no such map", name().c_str()));
  }
  // The kernel maps whole pages; map n is asked for by its number of pages.
  const U64 page = static_cast<U64>(sysconf(_SC_PAGESIZE));
  const U64 skip = numberOf(mapPath("offset")).value_or(0) % page;
  map(file.number(), number_ * page, skip + *size, skip);
}

void UioDevice::reopen() {
  unmap();
  open();
}

Zint::String8 UioDevice::identity() const {
  const std::optional<std::string> driver = lineOf(sysfs_ + "/name");
  if (!driver) throw ChipAbsent(name(), 0, 0, "is not there");
  return Zint::String8(*driver + " " + lineOf(sysfs_ + "/version").value_or("") + " " +
                       lineOf(mapPath("addr")).value_or(""));
}

Zint::ValidPtr<UioDevice> uioDeviceFactory(Zint::String8 device, U32 number,
                                           const MappingOptions& options, Zint::String8 sysfs) {
  return Zint::makePtr<UioDevice>(std::move(device), number, options, std::move(sysfs));
}

}  // namespace Platform
