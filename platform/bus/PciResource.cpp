#include <platform/bus/PciResource.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>
#include <fcntl.h>
#include <platform/bus/BusError.h>
#include <platform/bus/SysfsFile.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace Platform {
namespace {

constexpr U64 ioPorts = 0x100;  // in the flags of a resource

struct Resource {
  U64 begin = 0, end = 0, flags = 0;
};

// Line n of the file that lists the resources: begin, end (inclusive) and flags.
Resource resourceOf(const std::string& path, U32 number) {
  std::ifstream in(path);
  std::string line;
  for (U32 i = 0; i <= number; ++i) {
    if (!std::getline(in, line)) return {};
  }
  Resource resource;
  std::istringstream fields(line);
  fields >> std::hex >> resource.begin >> resource.end >> resource.flags;
  return fields ? resource : Resource{};
}

}  // namespace

PciResource::PciResource(Zint::String8 device, U32 resource, const PciOptions& options)
    : MappedBus(options),
      device_(std::move(device)),
      resource_(resource),
      enablesMemory_(options.enablesMemory) {
  open();
}

PciResource::~PciResource() = default;

std::string PciResource::path(const char* file) const { return device_.bytes() + "/" + file; }

Zint::String8 PciResource::name() const {
  return Zint::String8("pci " + std::filesystem::path(device_.bytes()).filename().string() +
                       " resource " + std::to_string(resource_));
}

void PciResource::open() {
  const Descriptor file(name(), path(("resource" + std::to_string(resource_)).c_str()), O_RDWR);
  const Resource resource = resourceOf(path("resource"), resource_);
  if ((resource.flags & ioPorts) != 0) {
    Zint::throwRangeException(Zint::format("%s is of I/O ports", name().c_str()));
  }
  if (resource.end <= resource.begin) {
    Zint::throwRangeException(Zint::format("%s is empty", name().c_str()));
  }
  if (enablesMemory_ && numberOf(path("enable")) == U64{0}) std::ofstream(path("enable")) << "1\n";
  // The kernel maps whole pages: a small resource begins within its page.
  const U64 skip = resource.begin % static_cast<U64>(sysconf(_SC_PAGESIZE));
  try {
    map(file.number(), 0, skip + (resource.end - resource.begin + 1), skip);
  } catch (const BusError& refused) {
    std::error_code unread;
    const std::filesystem::path driver =
        std::filesystem::read_symlink(path("driver"), unread).filename();
    if (unread) throw;
    throw BusError(
        name(), 0, refused.error(),
        ("cannot be mapped while the kernel's driver " + driver.string() + " has it").c_str());
  }
}

void PciResource::reopen() {
  unmap();
  open();
}

Zint::String8 PciResource::identity() const { return identityOfPci(name(), device_.bytes()); }

Zint::ValidPtr<PciResource> pciResourceFactory(Zint::String8 device, U32 resource,
                                               const PciOptions& options) {
  return Zint::makePtr<PciResource>(std::move(device), resource, options);
}

}  // namespace Platform
