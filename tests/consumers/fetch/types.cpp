// Prints the registered types and factories. It names no class of the library: in a static link
// only what the library itself asks for is there.
#include <Zint/Type.h>

#include <cstdio>

int main() {
  for (const Zint::Type* type : Zint::TypeRegistry::types()) {
    std::puts(type->name);
  }
  for (const Zint::Member* factory : Zint::TypeRegistry::factories()) {
    std::puts(factory->name);
  }
}
