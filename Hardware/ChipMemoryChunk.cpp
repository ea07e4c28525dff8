#include <Hardware/ChipMemoryChunk.h>

#include <Hardware/Umbra.h>

namespace Hardware {

ChipMemoryChunk::ChipMemoryChunk(U32 fwkKey)
    : Entity(Zint::format("%u", fwkKey)), fwkKey_(fwkKey) {}

ChipMemoryChunk::~ChipMemoryChunk() = default;

const Zint::Type* ChipMemoryChunk::fwkType() const { return &chipMemoryChunkType; }

U32 ChipMemoryChunk::auditErrors() const {
  U32 errors = 0;
  for (U16 i = 0; i < nextIndex_; ++i) {
    if (chipMemory_.at(i) == nullptr) ++errors;
    if (i > 0 && offset_.at(i) <= offset_.at(static_cast<U16>(i - 1))) ++errors;
  }
  return errors;
}

}  // namespace Hardware
