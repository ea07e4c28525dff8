// The rules of the shadow's data path: look-ups, writes and reads.
#include <telemetry/NamesRulesChecks.h>

namespace Telemetry {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

namespace {

// The region that a look-up finds; null when there is none. The arrays of the index can be changed
// by name: they must hold what their counts say.
ChipMemory::Ptr regionFound(const HardwareShadow& shadow, const ChipAddress& address) {
  const ChipMemory::Ptr& last = shadow.lastChipMemory();
  if (last != nullptr && last->inRange(address)) return last;
  const U16 chunks = shadow.nextIndex();
  require(chunks <= shadow.chipMemoryIds(), "nextIndex must not be above the size of chipMemoryId");
  Hardware::ChipMemoryChunk::Ptr chunk;
  bool isFound = false;
  for (U32 i = 0; i < chunks && !isFound; ++i) {
    const auto index = static_cast<U16>(i);
    isFound = shadow.chipMemoryId(index) == address.chipMemoryId();
    if (isFound) chunk = shadow.chipMemoryChunkArray(index);
  }
  if (!isFound) return nullptr;
  require(chunk != nullptr, "chipMemoryChunkArray must have a chunk for each chipMemoryId");
  const U16 regions = chunk->nextIndex();
  require(regions <= chunk->offsets(), "the chunk's nextIndex must not be above its offsets");
  ChipMemory::Ptr found;
  for (U32 i = 0; i < regions; ++i) {
    const auto index = static_cast<U16>(i);
    const ChipMemory::Ptr region = chunk->chipMemory(index);
    require(region != nullptr, "the chunk's chipMemory must have a region for each offset");
    if (chunk->offset(index) <= address.chipMemoryOffset()) found = region;
  }
  require(regions != 0, "a chunk of the index must have regions");
  return found != nullptr && found->inRange(address) ? found : nullptr;
}

ChipMemory::Ptr requireLookUp(const HardwareShadow& shadow, const ChipAddress& address, U32 size) {
  ChipMemory::Ptr region = regionFound(shadow, address);
  if (region == nullptr || size == region->entrySize()) return region;
  require(region->entrySize() != 0, region->name().bytes() + " has entries of no bytes");
  require(region->allowsLogicalViews() || size % region->entrySize() == 0,
          "size (" + std::to_string(size) + ") must be a multiple of the entrySize (" +
              std::to_string(region->entrySize()) + ") of " + region->name().bytes() +
              ", which does not allow logical views");
  return region;
}

void requireEntries(const ChipMemory& region, U32 entry, U64 count) {
  require(entry + count <= region.entries(),
          "entry (" + std::to_string(entry) + ") and " + countText(count, "entry") +
              " must lie within the entries (" + std::to_string(region.entries()) + ") of " +
              region.name().bytes());
}

void requireWrite(const ChipMemory& region, U32 entry, U32 size) {
  if (region.mode() == ChipMemory::override()) return;
  const U32 entrySize = region.entrySize();
  require(entrySize != 0, region.name().bytes() + " has entries of no bytes");
  require(size % entrySize == 0, "size (" + std::to_string(size) +
                                     ") must be a multiple of the entrySize (" +
                                     std::to_string(entrySize) + ") of " + region.name().bytes());
  const U64 count = size / entrySize;
  requireEntries(region, entry, count);
  requireStore(region, entry + count);
  require(region.chipHam() != nullptr || count == 0, "the region has no access method");
}

void requireRead(const HardwareShadow& shadow, const ChipMemory& region, U32 entry, U32 size) {
  require(shadow.state() != HardwareShadow::unconfigured(),
          "the shadow must not be unconfigured when it is read");
  if (!region.readFromCache() && !shadow.overrideHardware()) return;
  if (region.mode() == ChipMemory::override()) return;
  require(region.entrySize() != 0, region.name().bytes() + " has entries of no bytes");
  const U64 count = size / region.entrySize();
  requireEntries(region, entry, count);
  requireStore(region, entry + count);
  require(region.chipHam() != nullptr, "the region has no access method");
}

}  // namespace

void checkDataPath(const HardwareShadow& shadow, const Action& action) {
  const std::string& name = action.name;
  if (name == "shadowWriteAndCompareWithCache") {
    const auto region = action.argument<ChipMemory::Ptr>("chipMemory");
    const auto entry = action.argument<U32>("entry");
    const auto size = action.argument<U32>("size");
    if (region && *region != nullptr && entry && size) requireWrite(**region, *entry, *size);
    return;
  }
  const bool isWrite = name == "shadowWriteHack" || name == "shadowWriteU32";
  const bool isRead = name == "readFromCacheHack" || name == "readFromCacheU32";
  if (!isWrite && !isRead && name != "findChipMemory") return;
  const auto address = action.argument<ChipAddress>("address");
  const auto size = name.ends_with("U32") ? U32{4} : action.argument<U32>("size");
  if (!address || !size) return;
  const ChipMemory::Ptr region = requireLookUp(shadow, *address, *size);
  if (region == nullptr) return;
  // An address in range has a stride: a region with stride 0 contains none.
  const U32 entry = region->entryIndexFromAddress(*address);
  if (isWrite) requireWrite(*region, entry, *size);
  if (isRead) requireRead(shadow, *region, entry, *size);
}

}  // namespace Telemetry
