// The look-up of addresses beside a walk over all regions.
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>

#include <map>
#include <optional>

#include "fuzz/Fuzz.h"
#include "support/ManualLoop.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

constexpr std::size_t maxRegions = 64;

std::string nameOf(const ChipMemory* region) {
  return region == nullptr ? "no region" : region->name().bytes();
}

class Lookup {
 public:
  explicit Lookup(Fuzz::Input& input) : input_(input) {}

  void run() {
    while (!input_.empty()) {
      step();
      Fuzz::same("registered", registry_.size(), std::size_t{shadow_->chipMemorys()}, story_);
      Fuzz::same("last region", nameOf(last_), nameOf(shadow_->lastChipMemory().ptr()), story_);
    }
  }

 private:
  void step() {
    switch (input_.below(12)) {
      case 0:
      case 1:
        return made();
      case 2:
        return added();
      case 3:
        return removed();
      case 4:
        return stateChanged();
      case 5:
        return changed();
      case 6:
        story_.add("overrideHardware ", !shadow_->overrideHardware());
        return shadow_->overrideHardwareIs(!shadow_->overrideHardware());
      case 7:
        return removedInBulk();
      default:
        return sought();
    }
  }

  // Few memory ids and near offsets, so that regions meet and overlap; or any address.
  U64 anyAddress() {
    constexpr U64 ids[] = {0, 1, 2, 0x7fffffff, 0xffffffff, 5, 0x80000000, 3};
    if (input_.below(8) == 0) return input_.doubleWord();
    const U64 id = ids[input_.below(8)];
    const U32 offset = input_.coin() ? 0u - input_.byte() * 4u : input_.byte() * 16u;
    return id << 32 | offset;
  }
  ChipMemory* anyRegion() {
    return regions_.empty() ? nullptr
                            : regions_[input_.byte() % static_cast<U32>(regions_.size())].ptr();
  }
  bool locked() const {
    return shadow_->state() != HardwareShadow::unconfigured() && !shadow_->overrideHardware();
  }

  void made() {
    constexpr U32 sizes[] = {4, 4, 8, 1, 2, 12, 16, 5};
    if (regions_.size() == maxRegions) return;
    const ChipAddress address(anyAddress());
    const U32 entries = input_.below(40);
    const U32 entrySize = sizes[input_.below(8)];
    const U32 stride = input_.below(4) == 0 ? input_.word() : entrySize;
    const std::string name = "r" + std::to_string(regions_.size());
    regions_.push_back(
        Hardware::chipMemoryFactory(name, address, entries, entrySize, stride, ham_));
    story_.add(name, " at ", address.stringValue(), " entries ", entries, " entrySize ", entrySize,
               " stride ", stride);
    if (!locked()) registered(regions_.back().ptr());
  }
  void registered(ChipMemory* region) {
    story_.add("register ", nameOf(region));
    shadow_->chipMemoryIs(region);
    registry_[region->address().value()] = region;
  }
  void added() {
    if (ChipMemory* region = anyRegion(); region != nullptr && !locked()) registered(region);
  }
  void removed() {
    if (locked()) return;
    const ChipMemory* region = anyRegion();
    const ChipAddress address(
        region == nullptr || input_.below(8) == 0 ? anyAddress() : region->address().value());
    story_.add("remove ", address.stringValue());
    const auto place = registry_.find(address.value());
    const ChipMemory* expected = place == registry_.end() ? nullptr : place->second;
    Fuzz::same("removed", nameOf(expected), nameOf(shadow_->chipMemoryDel(address).ptr()), story_);
    if (expected == nullptr) return;
    registry_.erase(place);
    last_ = nullptr;
  }
  void removedInBulk() {
    const bool all = input_.below(4) == 0;
    story_.add(all ? "remove all" : "remove the regions in override");
    all ? shadow_->chipMemoryDelAll() : shadow_->removeOverrideOnlyChipMem();
    std::erase_if(registry_, [all](const auto& entry) {
      return all || entry.second->mode() == ChipMemory::override();
    });
  }
  void stateChanged() {
    const bool configure = shadow_->state() == HardwareShadow::unconfigured();
    story_.add(configure ? "configure" : "unconfigure");
    shadow_->stateIs(configure ? HardwareShadow::configured() : HardwareShadow::unconfigured());
    index_.clear();
    if (configure) {
      for (const auto& entry : registry_) index_.push_back(entry.second);
    } else {
      last_ = nullptr;
    }
  }
  void changed() {
    ChipMemory* region = anyRegion();
    if (region == nullptr) return;
    switch (input_.below(5)) {
      case 0: {
        const U32 entries = input_.below(40);
        story_.add(nameOf(region), " entries ", entries);
        return region->entriesIs(entries);
      }
      case 1:
        story_.add(nameOf(region), " views");
        return region->allowsLogicalViewsIs(!region->allowsLogicalViews());
      case 2:
        story_.add(nameOf(region), " is the last");
        last_ = input_.below(4) == 0 ? nullptr : region;
        return shadow_->lastChipMemoryIs(last_);
      case 3:
        story_.add(nameOf(region), " override");
        return region->modeIs(ChipMemory::override());
      default:
        return region->modeIs(ChipMemory::buffered());
    }
  }

  static bool contains(const ChipMemory& region, U64 address) {
    const U64 first = region.address().value();
    const U32 span = region.stride() * region.entries();
    return first <= address && address < first + span;
  }
  // The region of the index that starts at the address or nearest below, in the same memory.
  ChipMemory* nearest(U64 address) const {
    ChipMemory* nearest = nullptr;
    for (ChipMemory* region : index_) {
      const U64 first = region->address().value();
      if (first >> 32 != address >> 32 || first > address) continue;
      if (nearest == nullptr || first > nearest->address().value()) nearest = region;
    }
    return nearest;
  }
  void sought() {
    const ChipMemory* near = anyRegion();
    U64 address = anyAddress();
    if (near != nullptr && input_.below(8) != 0) {
      const U32 span = near->stride() * near->entries();
      const U32 distance = input_.coin() ? input_.byte() : span - input_.below(3);
      address = near->address().value() + distance - (input_.below(4) == 0 ? 2 : 0);
    }
    const U32 size = input_.below(4) == 0 ? input_.byte() : 4;
    story_.add("find ", ChipAddress(address).stringValue(), " size ", size);
    ChipMemory* expected = last_;
    if (expected == nullptr || !contains(*expected, address)) {
      expected = nearest(address);
      if (expected != nullptr && !contains(*expected, address)) expected = nullptr;
    }
    const bool refused =
        expected != nullptr && !expected->allowsLogicalViews() && size % expected->entrySize() != 0;
    try {
      const ChipMemory::Ptr found = shadow_->findChipMemory(ChipAddress(address), size);
      Fuzz::same("found", nameOf(expected), nameOf(found.ptr()), story_);
      Fuzz::same("size refused", refused, false, story_);
      if (found == nullptr) return;
      last_ = expected;
      const U64 distance = address - expected->address().value();
      Fuzz::same("entry", static_cast<U32>(distance / expected->stride()),
                 found->entryIndexFromAddress(ChipAddress(address)), story_);
    } catch (const Fuzz::Asserted& asserted) {
      Fuzz::same(asserted.failure.condition, refused, true, story_);
    }
  }

  Fuzz::Input& input_;
  Fuzz::Story story_;
  Support::ManualLoop loop_;
  const Hardware::ChipHam::Ptr ham_ = Zint::makePtr<Hardware::ChipHam>("ham");
  std::vector<ChipMemory::Ptr> regions_;
  const HardwareShadow::Ptr shadow_ = Hardware::hardwareShadowFactory(loop_.activity, loop_.clock);

  std::map<U64, ChipMemory*> registry_;
  std::vector<ChipMemory*> index_;
  ChipMemory* last_ = nullptr;
};

void run(const U8* bytes, std::size_t size) {
  Fuzz::Quiet quiet;
  Fuzz::Input input(bytes, size);
  Lookup(input).run();
}

}  // namespace

FUZZ_TARGET("index", run)
