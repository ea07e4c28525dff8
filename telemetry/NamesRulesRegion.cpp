// The rules of access methods, regions and directories.
#include <Hardware/GenericChipHam.h>
#include <platform/SparseChipHam.h>

#include <algorithm>
#include <typeinfo>

#include <telemetry/NamesRulesChecks.h>

namespace Telemetry {

using Hardware::ChipMemory;

void requireAccess(const Hardware::ChipHam* ham, U32 entrySize, U64 entries) {
  require(ham != nullptr, "the region has no access method");
  require(typeid(*ham) != typeid(Hardware::ChipHam),
          "the access method " + ham->name().bytes() + " is a base without registers");
  const auto* generic = dynamic_cast<const Hardware::GenericChipHam*>(ham);
  const auto* sparse = dynamic_cast<const Platform::SparseChipHam*>(ham);
  if (generic == nullptr && sparse == nullptr) return;
  require(entrySize % 4 == 0, "entrySize (" + std::to_string(entrySize) +
                                  ") must be a multiple of 4 for the access method " +
                                  ham->name().bytes());
  const bool hasRegisters =
      generic != nullptr ? generic->hamImpl() != nullptr : sparse->hamImpl() != nullptr;
  require(hasRegisters || entrySize * entries == 0,
          "the access method " + ham->name().bytes() + " has no register access: hamImpl is null");
}

void requireStore(const ChipMemory& region, U64 end) {
  require(
      region.shadow() != nullptr && region.dirty() != nullptr && region.initialized() != nullptr,
      region.name().bytes() +
          " has no shadow: shadowEnabled must be true, and mode normal or "
          "buffered");
  const U64 needed = end * region.entrySize();
  require(needed <= region.shadow()->size(),
          countText(end, "entry") + " (" + countText(needed, "byte") +
              ") must fit into the shadow of " + countText(region.shadow()->size(), "byte"));
  const U64 bits = 8 * U64{std::min(region.dirty()->size(), region.initialized()->size())};
  require(end <= bits,
          "dirty and initialized must have a bit for each of " + countText(end, "entry"));
}

void requireAuditable(const ChipMemory& region) {
  const std::string name = region.name().bytes();
  require(region.mode() != ChipMemory::override(),
          name + " is in mode override: it cannot be read");
  require(region.entries() != 0, name + " has no entries: there is nothing to read");
  const U64 needed = U64{region.entries()} * region.entrySize();
  require(region.hardware() != nullptr && needed <= region.hardware()->size(),
          name + ": hardware must hold " + countText(region.entries(), "entry") + " (" +
              countText(needed, "byte") + "); it keeps the size that it was made with");
  requireAccess(region.chipHam().ptr(), region.entrySize(), region.entries());
  if (region.shadowStoreNeeded()) requireStore(region, region.entries());
}

void checkAccessMethod(const Hardware::ChipHam& ham, const Action& action) {
  if (action.name != "doRead" && action.name != "doWrite") return;
  const auto entrySize = action.argument<U32>("entrySize");
  const auto entries = action.argument<U32>("entries");
  if (entrySize && entries) requireAccess(&ham, *entrySize, *entries);
}

namespace {

void requireWriteback(const ChipMemory& region, bool initializedOnly) {
  if (region.shadow() == nullptr) return;
  if (initializedOnly && region.entries() == 0) return;
  if (initializedOnly) {
    requireStore(region, region.entries());
  } else {
    const U64 needed = U64{region.entries()} * region.entrySize();
    require(needed <= region.shadow()->size(), "all entries (" + countText(needed, "byte") +
                                                   ") must fit into the shadow of " +
                                                   countText(region.shadow()->size(), "byte"));
  }
  requireAccess(region.chipHam().ptr(), region.entrySize(), region.entries());
}

void requireClearRange(const ChipMemory& region, U32 startIndex, U32 endIndex) {
  require(endIndex <= region.entries(), "endIndex (" + std::to_string(endIndex) +
                                            ") must not be above entries (" +
                                            std::to_string(region.entries()) + ")");
  require(startIndex <= endIndex, "startIndex (" + std::to_string(startIndex) +
                                      ") must not be above endIndex (" + std::to_string(endIndex) +
                                      ")");
  requireStore(region, std::min(U64{endIndex} + 1, U64{region.entries()}));
  const U64 bits = 8 * U64{std::min(region.dirty()->size(), region.initialized()->size())};
  require(endIndex < bits,
          "dirty and initialized must have a bit for endIndex (" + std::to_string(endIndex) + ")");
}

void requireBit(const ChipMemory& region, U32 entryIndex) {
  require(region.initialized() != nullptr, region.name().bytes() + " has no shadow");
  require(entryIndex < U64{region.initialized()->size()} * 8,
          "entryIndex (" + std::to_string(entryIndex) + ") must be below entries (" +
              std::to_string(region.entries()) + ")");
}

// A buffer that takes the place of one that the library relies on.
void requireBuffer(const ChipMemory& region, const Hal::BufBase* buffer, U64 needed) {
  const U64 held = buffer == nullptr ? 0 : buffer->size();
  require(buffer != nullptr && needed <= held,
          region.name().bytes() + " needs a buffer of " + countText(needed, "byte") +
              " here, not " + (buffer == nullptr ? "null" : "one of " + std::to_string(held)));
}

void checkMode(const ChipMemory& region, const Action& action) {
  const auto mode = action.argument<ChipMemory::ChipMemoryMode>("value");
  if (!mode || *mode == region.mode()) return;
  if (*mode == ChipMemory::normal()) requireWriteback(region, false);
  require(*mode != ChipMemory::override() || !action.audits.isUnderAudit(region),
          region.name().bytes() +
              " is being audited: it must not enter override before the shadow is idle");
}

}  // namespace

void checkRegion(const ChipMemory& region, const Action& action) {
  const std::string& name = action.name;
  const bool isOverride = region.mode() == ChipMemory::override();
  const U64 storeSize = U64{region.entries()} * region.entrySize();
  if (name == "entryIndexFromAddress") {
    require(region.stride() != 0,
            region.name().bytes() + " has stride 0: no address is an entry's");
  } else if (name == "auditEnabled=") {
    require(!isOverride || !action.argument<bool>("value").value_or(false),
            "a region in mode override cannot be audited");
  } else if (name == "handleAuditEnabled") {
    require(!isOverride || !region.auditEnabled(), "a region in mode override cannot be audited");
  } else if (name == "mode=") {
    checkMode(region, action);
  } else if (name == "handleMode") {
    if (region.mode() == ChipMemory::normal()) requireWriteback(region, false);
  } else if (name == "hardware=") {
    if (const auto buffer = action.argument<Zint::Ptr<Hal::Buf>>("value");
        buffer && action.audits.isUnderAudit(region)) {
      requireBuffer(region, buffer->ptr(), storeSize);
    }
  } else if (name == "shadow=" || name == "dirty=" || name == "initialized=") {
    const auto buffer = action.argument<Hal::BufBase::Ptr>("value");
    const U64 needed = name == "shadow=" ? storeSize : (U64{region.entries()} + 7) / 8;
    if (buffer && region.shadowStoreNeeded()) requireBuffer(region, buffer->ptr(), needed);
  } else if (!isOverride) {
    if (name == "doClear") {
      requireStore(region, 0);
    } else if (name == "doClearRange") {
      const auto startIndex = action.argument<U32>("startIndex");
      const auto endIndex = action.argument<U32>("endIndex");
      if (startIndex && endIndex) requireClearRange(region, *startIndex, *endIndex);
    } else if (name == "writeback") {
      if (const auto only = action.argument<bool>("initializedOnly")) {
        requireWriteback(region, *only);
      }
    } else if (name.starts_with("entryInitialized")) {
      if (const auto index = action.argument<U32>("entryIndex")) requireBit(region, *index);
    }
  }
}

void checkDirectory(const Hardware::ChipMemoryBogon& directory, const Action& action) {
  if (action.name != "chipMemoryIs") return;
  const auto name = action.argument<Zint::String8>("name");
  const auto entries = action.argument<U32>("entries");
  if (!name || !entries) return;
  const ChipMemory::Ptr region = directory.chipMemory(*name);
  require(
      region == nullptr || region->entries() == *entries || !action.audits.isUnderAudit(*region),
      name->bytes() + " is being audited: its entries must not change before the shadow is idle");
}

}  // namespace Telemetry
