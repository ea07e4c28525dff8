// Small files of the kernel: a number or a line each. Used by the buses alone.
#pragma once

#include <Zint/String8.h>
#include <Zint/Types.h>

#include <optional>
#include <string>

namespace Platform {

// Closed when it goes.
class Descriptor {
 public:
  // Opens; BusError of `bus` where that fails.
  Descriptor(const Zint::String8& bus, const std::string& path, int flags);
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

// The first line, without its end; nothing where the file cannot be read.
std::optional<std::string> lineOf(const std::string& path);
// The number in the first line: decimal, or hexadecimal after 0x.
std::optional<U64> numberOf(const std::string& path);

// The ids of the PCI device whose folder that is. ChipAbsent of `bus` when it is not there.
Zint::String8 identityOfPci(const Zint::String8& bus, const std::string& folder);

}  // namespace Platform
