#include <Hardware/OverrideCheck.h>

namespace Hardware {
namespace {

BaseFunctions readBaseFunctions() {
  const ChipHam::Ptr ham = Zint::makePtr<ChipHam>("base");
  const ChipMemory::Ptr region = chipMemoryFactory("base", ChipAddress(), 0, 0, 0, nullptr);
  return {virtualTable(*region),
          slotFunction(*ham, &ChipHam::doCompare),
          slotFunction(*ham, &ChipHam::doWriteToCache),
          slotFunction(*ham, &ChipHam::doReadFromCache),
          slotFunction(*region, &ChipMemory::readCacheHitsInc),
          slotFunction(*region, &ChipMemory::readCacheHitsIs),
          slotFunction(*region, &ChipMemory::writeCacheHitsInc),
          slotFunction(*region, &ChipMemory::writeCacheHitsIs)};
}

}  // namespace

// NOLINTNEXTLINE(cert-err58-cpp): without memory for two small objects, a process cannot start
const BaseFunctions baseFunctions = readBaseFunctions();

}  // namespace Hardware
