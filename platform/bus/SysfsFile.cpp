#include <platform/bus/SysfsFile.h>

#include <fcntl.h>
#include <platform/bus/BusError.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace Platform {

Descriptor::Descriptor(const Zint::String8& bus, const std::string& path, int flags)
    : number_(open(path.c_str(), flags | O_CLOEXEC)) {
  if (number_ < 0) throw BusError(bus, 0, errno, (path + " cannot be opened").c_str());
}

Descriptor::~Descriptor() { close(number_); }

std::optional<std::string> lineOf(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  if (!std::getline(in, line)) return std::nullopt;
  return line;
}

std::optional<U64> numberOf(const std::string& path) {
  const std::optional<std::string> line = lineOf(path);
  if (!line) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const U64 number = std::strtoull(line->c_str(), &end, 0);
  if (end == line->c_str() || errno != 0) return std::nullopt;
  return number;
}

Zint::String8 identityOfPci(const Zint::String8& bus, const std::string& folder) {
  std::string identity;
  for (const char* file :
       {"vendor", "device", "subsystem_vendor", "subsystem_device", "class", "revision"}) {
    const std::optional<std::string> line = lineOf(folder + "/" + file);
    if (!line) throw ChipAbsent(bus, 0, 0, "is not there");
    identity += (identity.empty() ? "" : " ") + *line;
  }
  return Zint::String8(identity);
}

}  // namespace Platform
