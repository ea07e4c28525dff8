// Prints the types of the driver library. It names no class of it: those are registered by the
// library itself, also in a static link.
#include <Driver/Descriptions.h>

#include <cstdio>
#include <cstring>

int main() {
  for (const Zint::Type* type : Zint::TypeRegistry::types()) {
    if (std::strncmp(type->name, "Driver::", 8) == 0) std::puts(type->name);
  }
}
