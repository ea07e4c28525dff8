#include <platform/bus/RegisterBus.h>

namespace Platform {

RegisterBus::~RegisterBus() = default;
void RegisterBus::reopen() {}
Zint::String8 RegisterBus::identity() const { return ""; }

}  // namespace Platform
