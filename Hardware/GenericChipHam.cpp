#include <Hardware/GenericChipHam.h>

#include <Hardware/Umbra.h>
#include <cstdint>
#include <cstring>

namespace Hardware {

GenericChipHam::GenericChipHam(Zint::Name name, const Zint::Ptr<Fru::HamImpl>& hamImpl)
    : ChipHam(std::move(name)), hamImpl_(hamImpl) {}

GenericChipHam::~GenericChipHam() = default;

const Zint::Type* GenericChipHam::fwkType() const { return &genericChipHamType; }

// The register access is held during the loop: an access may drop the last other reference to it,
// and the last one to this object as well. It stores into the buffer itself: one that stores
// nothing leaves the buffer's bytes. Only where those are no aligned word, it is given a copy of
// them.
void GenericChipHam::doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) {
  UMBRA_ASSERT(128, ( entrySize % 4 ) == 0);
  const Zint::Ptr<Fru::HamImpl> registers = hamImpl_;
  U32 registerAddress = address.chipMemoryOffset();
  const U64 words = static_cast<U64>(entrySize / 4) * entries;
  UMBRA_ASSERT(__LINE__, registers || words == 0);
  const bool isAligned = reinterpret_cast<std::uintptr_t>(buffer) % alignof(U32) == 0;
  for (U64 left = words; left > 0; --left) {
    if (isAligned) {
      registers->read(registerAddress, reinterpret_cast<U32*>(buffer));
    } else {
      U32 value;
      std::memcpy(&value, buffer, 4);
      registers->read(registerAddress, &value);
      std::memcpy(buffer, &value, 4);
    }
    registerAddress += 4;
    buffer += 4;
  }
}

void GenericChipHam::doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) {
  UMBRA_ASSERT(140, ( entrySize % 4 ) == 0);
  const Zint::Ptr<Fru::HamImpl> registers = hamImpl_;
  U32 registerAddress = address.chipMemoryOffset();
  const U64 words = static_cast<U64>(entrySize / 4) * entries;
  UMBRA_ASSERT(__LINE__, registers || words == 0);
  for (U64 left = words; left > 0; --left) {
    U32 value;
    std::memcpy(&value, buffer, 4);
    registers->write(registerAddress, value);
    registerAddress += 4;
    buffer += 4;
  }
}

Zint::Ptr<GenericChipHam> genericChipHamFactory(Zint::Name name,
                                                const Zint::Ptr<Fru::HamImpl>& hamImpl) {
  return Zint::makePtr<GenericChipHam>(std::move(name), hamImpl);
}

}  // namespace Hardware
