#include "RtlBus.h"

#include <Zint/Exception.h>
#include <Zint/Strep.h>

#include <cstring>

namespace Rtl {
namespace {

constexpr U32 addressSpace = 0x10000;

void check(const Platform::RegisterRun& run) {
  const bool isInside = U64{run.address} + U64{4} * run.count <= addressSpace;
  if (run.width == 4 && run.address % 4 == 0 && isInside) return;
  Zint::throwRangeException(
      Zint::format("rtl: no %u registers of %u bytes at %#x", run.count, run.width, run.address));
}

}  // namespace

RtlBus::~RtlBus() = default;

void RtlBus::read(const Platform::RegisterRun& run, U8* bytes) {
  check(run);
  for (U32 i = 0; i < run.count; ++i) {
    const U32 value = chip_.read(run.address + 4 * i);
    std::memcpy(bytes + 4 * i, &value, 4);
  }
}

void RtlBus::write(const Platform::RegisterRun& run, const U8* bytes) {
  check(run);
  for (U32 i = 0; i < run.count; ++i) {
    U32 value;
    std::memcpy(&value, bytes + 4 * i, 4);
    chip_.write(run.address + 4 * i, value);
  }
}

}  // namespace Rtl
