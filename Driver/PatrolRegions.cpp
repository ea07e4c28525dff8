// What the patrol knows of regions: policies, and marks that outlive a registration.
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolRun.h>
#include <Driver/PatrolWatches.h>
#include <algorithm>
#include <new>
#include <utility>

namespace Driver {

using Hardware::ChipMemory;
using Hardware::HardwareShadow;

// A region was registered, or its place is free.
void Patrol::handleRegion(const Hardware::ChipAddress& address) {
  const ChipMemory::Ptr there = shadow_.chipMemory(address);
  if (there != nullptr && keptMarks_.contains(there.ptr())) marksOf(there);
  std::vector<std::unique_ptr<RegionMarks>> dropped;  // their regions' destructors may call back
  const auto marksThere = marksAt_.equal_range(address.value());
  for (auto at = marksThere.first; at != marksThere.second;) {
    const auto marks = marks_.find(at->second);
    if (marks->second->region != there && marks->second->policy == nullptr) {
      dropped.push_back(std::move(marks->second));
      marks_.erase(marks);
      at = marksAt_.erase(at);
    } else {
      ++at;
    }
  }
  dropMarks(dropped);
  // Once for as many as are left: each removal costs no more than before.
  if (there == nullptr && ++removals_ >= shadow_.chipMemorys()) dropChips();
}

// So that no slice has to rehash them.
void Patrol::reserveMarks() {
  marks_.reserve(regionsUnderAudit());
  marksAt_.reserve(regionsUnderAudit());
}

// Bulk removals are not notified of.
void Patrol::dropRemoved() {
  std::vector<std::unique_ptr<RegionMarks>> dropped;
  for (auto at = marksAt_.begin(); at != marksAt_.end();) {
    const auto marks = marks_.find(at->second);
    const ChipMemory::Ptr& region = marks->second->region;
    if (marks->second->policy == nullptr && shadow_.chipMemory(region->address()) != region) {
      dropped.push_back(std::move(marks->second));
      marks_.erase(marks);
      at = marksAt_.erase(at);
    } else {
      ++at;
    }
  }
  dropMarks(dropped);
  dropChips();
}

// The audit's request goes on with a region whose place another one has taken: what it expects of
// the chip is out of date.
bool Patrol::isReplaced(const ChipMemory& region) const {
  const ChipMemory::Ptr there = shadow_.chipMemory(region.address());
  return there != nullptr && there.ptr() != &region;
}

// Those of a region that still exists are kept for its return, but for the repairs.
void Patrol::dropMarks(std::vector<std::unique_ptr<RegionMarks>>& dropped) {
  U32 quarantined = 0;
  std::vector<ChipMemory::Ptr> regions;  // their destructors may call back
  regions.reserve(dropped.size());
  for (std::unique_ptr<RegionMarks>& marks : dropped) {
    for (const auto& [entry, history] : marks->repairs) {
      --histories_;
      quarantined += history.isQuarantined ? 1 : 0;
    }
    marks->repairs.clear();
    regions.push_back(marks->region);
    keepMarks(marks);
  }
  if (keptMarks_.size() > mostKeptMarks_) dropKeptMarks();
  if (quarantined != 0) shadow_.quarantinedIs(shadow_.quarantined() - quarantined);
}

void Patrol::keepMarks(std::unique_ptr<RegionMarks>& marks) {
  const bool isAnySet = marks->written.size() + marks->assumed.size() + marks->open.size() != 0 &&
                        marks->store == marks->region->dirty();
  // This one, and the one of the caller.
  if (!isAnySet || marks->region->references() <= 2) return;
  const ChipMemory* const region = marks->region.ptr();
  try {
    KeptMarks& kept = keptMarks_[region];
    kept.watch = Zint::makePtr<RemovedWatch>(shadow_.zintFwkActivity(), marks->region);
    marks->region = nullptr;
    kept.marks = std::move(marks);
  } catch (const std::bad_alloc&) {
    keptMarks_.erase(region);
  }
}

// Null: there are none.
std::unique_ptr<RegionMarks> Patrol::takeKeptMarks(const ChipMemory* region) {
  const auto found = keptMarks_.find(region);
  if (found == keptMarks_.end()) return nullptr;
  KeptMarks kept = std::move(found->second);
  keptMarks_.erase(found);
  return kept.watch->notifier() == region ? std::move(kept.marks) : nullptr;
}

// Those of regions that do not exist any more.
void Patrol::dropKeptMarks() {
  std::erase_if(keptMarks_,
                [](const auto& kept) { return kept.second.watch->notifier() == nullptr; });
  mostKeptMarks_ = 2 * keptMarks_.size() + 16;
}

const RegionMarks* Patrol::marks(const ChipMemory* region) const {
  const auto found = marks_.find(region);
  return found == marks_.end() ? nullptr : found->second.get();
}

RegionMarks& Patrol::marksOf(const ChipMemory::Ptr& region) {
  std::unique_ptr<RegionMarks>& marks = marks_[region.ptr()];
  if (marks == nullptr) {
    try {
      std::unique_ptr<RegionMarks> made = takeKeptMarks(region.ptr());
      if (made == nullptr) made = std::make_unique<RegionMarks>();
      made->region = region;
      marksAt_.emplace(region->address().value(), region.ptr());
      marks = std::move(made);
    } catch (...) {
      marks_.erase(region.ptr());
      throw;
    }
  }
  if (marks->store != region->dirty()) {
    marks->store = region->dirty();
    marks->written.clear();
    marks->assumed.clear();
    marks->open.clear();
  }
  return *marks;
}

void Patrol::policyIs(const ChipMemory::Ptr& region, const Policy::Ptr& policy) {
  const AuditedShadow::Ptr self(&shadow_);
  commands_.advance();
  RegionMarks& marks = marksOf(region);
  const Policy::Ptr old = std::exchange(marks.policy, policy);
  const Zint::Ptr<Zint::NotifieeConst> watch = std::exchange(marks.watch, nullptr);
  const Zint::Ptr<Zint::NotifieeConst> policyWatch = std::exchange(marks.policyWatch, nullptr);
  if (watch != nullptr) static_cast<StoreWatch&>(*watch).forget();
  if (policyWatch != nullptr) static_cast<PolicyWatch&>(*policyWatch).forget();
  if (old != nullptr && old != policy) old->isInForceIs(false);
  if (policy != nullptr) {
    marks.watch = Zint::makePtr<StoreWatch>(shadow_.zintFwkActivity(), *this, region);
    marks.policyWatch = Zint::makePtr<PolicyWatch>(shadow_.zintFwkActivity(), *this, policy);
    applyUnwritten(marks);
    policy->isInForceIs(true);
  }
  resume();
}

// Gives entries that nobody wrote the value that the policy says they have.
void Patrol::applyUnwritten(RegionMarks& marks) {
  if (marks.policy == nullptr) return;
  const ChipMemory& region = *marks.region;
  marksOf(marks.region);  // forgets what belongs to an old store
  const Unwritten unwritten = marks.policy->unwritten();
  const bool isAssumed = unwritten == Unwritten::zero || unwritten == Unwritten::defaults;
  if (!isAssumed && marks.assumed.size() == 0) return;
  const Hal::BufBase::Ptr shadow = region.shadow();
  if (shadow == nullptr || region.initialized() == nullptr || region.entrySize() == 0) return;
  const U32 stored = std::min(region.entries(), shadow->size() / region.entrySize());
  const U32 entries =
      static_cast<U32>(std::min(U64{stored}, U64{region.initialized()->size()} * 8));
  for (U32 e = 0; e < entries; ++e) {
    if (marks.assumed.at(e)) {
      marks.assumed.atIs(e, false);
      if (isWritten(region, e)) continue;
      std::fill_n(shadow->data() + std::size_t{e} * region.entrySize(), region.entrySize(), U8{0});
      marks.region->entryInitializedDel(e);
    }
    if (!isAssumed || region.entryInitialized(e) || !isCompared(marks.policy->rule(e))) continue;
    marks.assumed.atIs(e, true);
    if (unwritten == Unwritten::defaults) {
      if (const U8* value = marks.policy->resetValue(e); value != nullptr) {
        std::copy_n(value, region.entrySize(),
                    shadow->data() + std::size_t{e} * region.entrySize());
      }
    }
    marks.region->entryInitializedIs(e);
  }
}

bool Patrol::isWritten(const ChipMemory& region, U32 entry) const {
  const Hal::BufBase::Ptr dirty = region.dirty();
  if (dirty == nullptr) return false;
  if (U64{dirty->size()} * 8 > entry && (dirty->data()[entry >> 3] >> (entry & 7) & 1) != 0) {
    return true;
  }
  const RegionMarks* marks = this->marks(&region);
  return marks != nullptr && marks->store == dirty && marks->written.at(entry);
}

void Patrol::quarantineDel(const ChipMemory::Ptr& region, U32 entry) {
  const auto marks = marks_.find(region.ptr());
  if (marks == marks_.end()) return;
  const auto history = marks->second->repairs.find(entry);
  if (history == marks->second->repairs.end()) return;
  const bool isLifted = history->second.isQuarantined;
  marks->second->repairs.erase(history);
  --histories_;
  if (isLifted) shadow_.quarantinedIs(shadow_.quarantined() - 1);
}

Zint::String8 Patrol::policyText(const ChipMemory::Ptr& region, U32 entry) const {
  const auto text = [&](const char* what) { return region->name() + ": " + what; };
  if (entry >= region->entries()) return text("no such entry");
  if (shadow_.chipMemory(region->address()) != region) return text("not registered");
  if (!region->shadowEnabled()) return text("not audited: shadowEnabled is off");
  if (region->mode() == ChipMemory::override()) return text("not audited: mode override");
  if (!region->auditEnabled()) return text("not audited: auditEnabled is off");
  if (shadow_.state() != HardwareShadow::unconfigured()) {
    const Zint::Ptr<Hardware::ChipReadRequest> request = shadow_.auditReadRequest();
    if (request != nullptr && request->chipMemory(region->address()) != region) {
      return text("not audited: auditEnabled was set after configured");
    }
    // It begins with the name.
    if (const Zint::String8 obstacle = whyNotHeld(*region); !obstacle.empty()) {
      return text("not audited") + obstacle.bytes().substr(region->name().bytes().size());
    }
  }
  const RegionMarks* marks = this->marks(region.ptr());
  Zint::String8 answer = marks == nullptr || marks->policy == nullptr
                             ? Zint::String8("repaired (no policy)")
                             : marks->policy->text(entry);
  if (region->mode() == ChipMemory::buffered()) answer += "; deferred: mode buffered";
  if (marks != nullptr) {
    const auto history = marks->repairs.find(entry);
    if (history != marks->repairs.end() && history->second.isQuarantined) {
      answer += "; in quarantine";
    }
  }
  if (shadow_.state() != HardwareShadow::auditing()) {
    answer += "; the shadow is " + stringValue(shadow_.state()).bytes();
  }
  if (shadow_.overrideHardware()) answer += "; overrideHardware is set";
  if (shadow_.paused()) answer += "; paused";
  if (const Chip::Ptr chip = findChip(*region); chip != nullptr) {
    if (chip->isAbsent()) answer += "; " + chip->name() + " is absent: " + chip->reason();
    if (chip->isRestoring()) answer += "; " + chip->name() + " is being restored";
  }
  return answer;
}

}  // namespace Driver
