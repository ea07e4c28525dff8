#include <platform/bus/BusError.h>

#include <Zint/Strep.h>

#include <string>
#include <system_error>

namespace Platform {
namespace {

Zint::String8 messageOf(const Zint::String8& bus, U32 address, int error, const char* what) {
  std::string text = Zint::format("%s: %s at 0x%x", bus.c_str(), what, address).bytes();
  if (error != 0) text += ": " + std::generic_category().message(error);
  return Zint::String8(std::move(text));
}

}  // namespace

BusError::BusError(Zint::String8 bus, U32 address, int error, const char* what)
    : Exception(messageOf(bus, address, error, what)),
      bus_(std::move(bus)),
      address_(address),
      error_(error) {}

BusError::~BusError() = default;
ChipAbsent::~ChipAbsent() = default;

}  // namespace Platform
