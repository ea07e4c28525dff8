// The policy of a region: what it holds, what its mutators do, and what it tells its region.
#include <Driver/Policy.h>

#include <Driver/Driver.h>
#include <Driver/PolicyComparison.h>
#include <algorithm>
#include <bit>

namespace Driver {
namespace {

// One past the last entry.
U64 requirePolicyRun(U32 first, U32 count) {
  if (count == 0) Zint::throwRangeException("a run needs at least one entry");
  const U64 end = U64{first} + count;
  if (end > Runs<Rule>::endOfAll) {
    Zint::throwRangeException(
        Zint::format("%u entries from %u on end beyond the last entry number", count, first));
  }
  return end;
}

bool isZeroBytes(std::span<const U8> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](U8 byte) { return byte == 0; });
}

// Sets or clears the bits of [first, end). The number of those that change.
U32 bitmapBitsAre(U8* bitmap, U64 first, U64 end, bool set) {
  U32 changed = 0;
  while (first < end) {
    U8& byte = bitmap[first >> 3];
    const U32 count = static_cast<U32>(std::min(8 - (first & 7), end - first));
    const U32 bits = ((1u << count) - 1) << (first & 7);
    changed += static_cast<U32>(std::popcount(bits & (set ? ~byte : byte)));
    byte = static_cast<U8>(set ? byte | bits : byte & ~bits);
    first += count;
  }
  return changed;
}

U64 bitsOfBitmap(const Hal::Buf& bitmap) { return U64{bitmap.size()} * 8; }

}  // namespace

// Hears of a region that grows or shrinks.
class Policy::ZintChipMemory : public ChipMemory::NotifieeConst {
 public:
  ZintChipMemory(Policy* policy, const ChipMemory::Ptr& chipMemory)
      : ChipMemory::NotifieeConst(nullptr, chipMemory), policy_(policy) {
    // Nothing else: the region's data path stays as fast as without a notifiee.
    interestIs(Zint::interestIn(ChipMemory::Id::entries));
  }
  void onEntries() override {
    if (const Policy::Ptr policy = policy_; policy != nullptr) policy->handleEntries();
  }
  void policyIs(Policy* policy) { policy_ = policy; }

 private:
  Policy* policy_;  // not a counted reference
};

Zint::Ptr<Policy> policyFactory(const Policy::ChipMemory::Ptr& chipMemory) {
  return Zint::makePtr<Policy>(chipMemory);
}

Policy::Policy(const ChipMemory::Ptr& chipMemory) : chipMemory_(chipMemory) {
  if (chipMemory == nullptr) Zint::throwNullParameter("chipMemory", "Driver::Policy::chipMemory");
  reactor_ = Zint::makePtr<ZintChipMemory>(this, chipMemory);
}

Policy::~Policy() {
  reactor_->policyIs(nullptr);
  reactor_->isRegisteredNotifieeIs(false);
  isInForce_ = false;
  tellRegion();
}

const Zint::Type* Policy::fwkType() const { return &policyType; }

// --- Rules ---

void Policy::ruleIs(U32 first, U32 count, Rule rule) {
  const U64 end = requirePolicyRun(first, count);
  RuleInstance(static_cast<U32>(rule));
  if (rules_.holds(first, end, rule)) return;
  const Ptr self(this);
  rules_.roomIs();
  // What may lack memory comes first.
  const bool isVolatile = rule == Rule::volatile_;
  const U32 entries = chipMemory_->entries();
  Hal::Buf::Ptr bitmap = volatiles_;
  U32 marked = volatileEntries_;
  const bool isTooSmall = bitmap == nullptr ? isVolatile : bitsOfBitmap(*bitmap) < entries;
  if (isVolatilesStale_ || isTooSmall) {
    bitmap = Hal::bufFactory((entries >> 3) + 1);
    marked = markVolatileEntries(*bitmap);
  }
  rules_.runIs(first, end, rule);
  comparison_ = nullptr;
  if (bitmap != nullptr) {
    const U32 changed =
        bitmapBitsAre(bitmap->data(), first, std::min(end, U64{entries}), isVolatile);
    marked = isVolatile ? marked + changed : marked - changed;
  }
  volatiles_ = marked != 0 ? bitmap : nullptr;
  volatileEntries_ = marked;
  isVolatilesStale_ = false;
  tellRegion();
  notify(Id::rule);
}

void Policy::onceIs(U32 first, U32 count, bool once) {
  const U64 end = requirePolicyRun(first, count);
  if (once_.holds(first, end, once)) return;
  once_.roomIs();
  once_.runIs(first, end, once);
  notify(Id::isOnce);
}

// --- Volatile entries ---

// Sets the bits of the region's volatile entries. Their number.
U32 Policy::markVolatileEntries(Hal::Buf& bitmap) const {
  U32 marked = 0;
  const U64 entries = chipMemory_->entries();
  Runs<Rule>::Cursor rules(rules_);
  for (U64 at = 0; at < entries; at = rules.end()) {
    rules.entryIs(at);
    if (rules.value() != Rule::volatile_) continue;
    marked += bitmapBitsAre(bitmap.data(), at, std::min(rules.end(), entries), true);
  }
  return marked;
}

void Policy::handleEntries() {
  const Ptr self(this);
  isVolatilesStale_ = true;
  const Hal::Buf::Ptr bitmap = Hal::bufFactory((chipMemory_->entries() >> 3) + 1);
  volatileEntries_ = markVolatileEntries(*bitmap);
  volatiles_ = volatileEntries_ != 0 ? bitmap : nullptr;
  isVolatilesStale_ = false;
  tellRegion();
}

// Takes back a bitmap that the region was given and still has.
void Policy::tellRegion() {
  const Hal::Buf::Ptr told = std::exchange(told_, isInForce_ ? volatiles_ : nullptr);
  const bool isOurs = told != nullptr && chipMemory_->volatileEntries() == told;
  if (told_ != nullptr ? chipMemory_->volatileEntries() != told_ : isOurs) {
    chipMemory_->volatileEntriesIs(told_);
  }
}

void Policy::isInForceIs(bool inForce) {
  const Ptr self(this);
  const bool changes = Zint::updated(isInForce_, inForce);
  tellRegion();
  if (changes) notify(Id::isInForce);
}

// --- Masks ---

void Policy::requireEntry(std::span<const U8> value) const {
  const U32 entrySize = chipMemory_->entrySize();
  if (value.empty() || value.size() == entrySize) return;
  Zint::throwRangeException(
      Zint::format("%zu bytes given where %u are needed", value.size(), entrySize));
}

// Null for an empty mask. Zeros mask no bit, whatever the rewrite.
Shared<Policy::Mask> Policy::makeMask(std::span<const U8> mask, Rewrite rewrite) const {
  requireEntry(mask);
  RewriteInstance(static_cast<U32>(rewrite));
  if (mask.empty()) return {};
  if (isZeroBytes(mask)) return {std::make_shared<const Mask>()};
  return {std::make_shared<const Mask>(Mask{{mask.begin(), mask.end()}, rewrite})};
}

void Policy::maskIs(std::span<const U8> mask, Rewrite rewrite) {
  Shared<Mask> made = makeMask(mask, rewrite);
  if (made.value != nullptr && made.value->bits.empty()) made = {};
  if (!Zint::updated(mask_, made)) return;
  comparison_ = nullptr;
  notify(Id::mask);
}

void Policy::maskIs(U32 first, U32 count, std::span<const U8> mask, Rewrite rewrite) {
  const U64 end = requirePolicyRun(first, count);
  const Shared<Mask> made = makeMask(mask, rewrite);
  if (masks_.holds(first, end, made)) return;
  masks_.roomIs();
  masks_.runIs(first, end, made);
  comparison_ = nullptr;
  notify(Id::mask);
}

// Null where no bit is masked.
const Policy::Mask* Policy::maskOf(U32 entry) const {
  const Mask* own = masks_.at(entry).value.get();
  const Mask* mask = own != nullptr ? own : mask_.value.get();
  return mask == nullptr || mask->bits.empty() ? nullptr : mask;
}

const U8* Policy::mask(U32 entry) const {
  const Mask* mask = maskOf(entry);
  return mask == nullptr ? nullptr : mask->bits.data();
}

Rewrite Policy::rewrite(U32 entry) const {
  const Mask* mask = maskOf(entry);
  return mask == nullptr ? Rewrite::kept : mask->rewrite;
}

U32 Policy::maskEnd(U32 entry, U32 end) const {
  const Mask* mask = maskOf(entry);
  for (U64 at = masks_.endOf(entry); at < end; at = masks_.endOf(static_cast<U32>(at))) {
    const Mask* next = maskOf(static_cast<U32>(at));
    if (next == mask || (next != nullptr && mask != nullptr && *next == *mask)) continue;
    return static_cast<U32>(at);
  }
  return end;
}

// --- Comparison and rewrite of one entry ---

bool Policy::isPlain() const {
  return rules_.isEmpty() && masks_.isEmpty() && mask_.value == nullptr &&
         unwritten_ == Unwritten::adopted;
}

bool Policy::equals(U32 entry, const U8* a, const U8* b) const {
  const U8* mask = this->mask(entry);
  const U32 entrySize = chipMemory_->entrySize();
  for (U32 i = 0; i < entrySize; ++i) {
    if (((a[i] ^ b[i]) & (mask == nullptr ? 0xff : ~mask[i])) != 0) return false;
  }
  return true;
}

void Policy::mergeForRewrite(U32 entry, const U8* expected, const U8* actual, U8* out) const {
  const U32 entrySize = chipMemory_->entrySize();
  const Mask* mask = maskOf(entry);
  for (U32 i = 0; i < entrySize; ++i) {
    U32 masked = 0;
    U32 instead = 0;
    if (mask != nullptr && mask->rewrite != Rewrite::shadow) {
      masked = mask->bits[i];
      if (mask->rewrite == Rewrite::kept) instead = actual[i];
    }
    out[i] = static_cast<U8>((expected[i] & ~masked) | (instead & masked));
  }
}

// --- Before anybody wrote; the patrol's passes ---

void Policy::unwrittenIs(Unwritten unwritten) {
  UnwrittenInstance(static_cast<U32>(unwritten));
  if (Zint::updated(unwritten_, unwritten)) notify(Id::unwritten);
}

void Policy::resetValueIs(U32 first, U32 count, std::span<const U8> value) {
  const U64 end = requirePolicyRun(first, count);
  requireEntry(value);
  Shared<std::vector<U8>> made;
  if (!isZeroBytes(value)) {
    made.value = std::make_shared<const std::vector<U8>>(value.begin(), value.end());
  }
  if (resets_.holds(first, end, made)) return;
  resets_.roomIs();
  resets_.runIs(first, end, made);
  notify(Id::resetValue);
}

const U8* Policy::resetValue(U32 entry) const {
  const std::vector<U8>* value = resets_.at(entry).value.get();
  return value == nullptr ? nullptr : value->data();
}

void Policy::auditEveryIs(U32 passes) {
  if (passes == 0) Zint::throwRangeException("auditEvery must not be 0");
  if (Zint::updated(auditEvery_, passes)) notify(Id::auditEvery);
}

// --- Notifiees ---

Policy::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                     const Zint::Ptr<const Policy>& policy, bool active)
    : Zint::NotifieeConst(activity, policy, active) {}

Policy::NotifieeConst::~NotifieeConst() = default;

void Policy::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::rule:
      return onRule();
    case Id::isOnce:
      return onIsOnce();
    case Id::mask:
      return onMask();
    case Id::unwritten:
      return onUnwritten();
    case Id::resetValue:
      return onResetValue();
    case Id::auditEvery:
      return onAuditEvery();
    case Id::isInForce:
      return onIsInForce();
    default:
      return Zint::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Driver
