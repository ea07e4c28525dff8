// The platform's register access: what a generic access method needs of it.
#pragma once

#include <Zint/PtrInterface.h>

namespace Fru {

class UMBRA_API HamImpl : public Zint::PtrInterface {
 public:
  const Zint::Type* fwkType() const override;

 protected:
  ~HamImpl() override;

 public:
  // Reads the 32-bit register at a byte address into `*value`, in host byte order.
  virtual void read(U32 address, U32* value) = 0;
  // Writes the 32-bit register at a byte address.
  virtual void write(U32 address, U32 value) = 0;
};

// The name under which reflection shows it.
constexpr const char* zintTypeName(const HamImpl*) { return "Fru::HamImpl"; }

}  // namespace Fru
