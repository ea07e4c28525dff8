// What is done with the entries of one region: rules for runs of entries, masks of bits that are
// not compared, and what an entry is before anybody wrote it.
//
//   auto policy = policyFactory(table);
//   policy->ruleIs(16, 16, Rule::detectOnly);            // entries 16 to 31
//   policy->ruleIs(32, 4, Rule::volatile_);
//   policy->maskIs(statusBits, Rewrite::kept);           // of every entry
//   policy->maskIs(8, 1, clearOnWriteBits, Rewrite::zero);
//   policy->unwrittenIs(Unwritten::baseline);
//   std::cout << policy->text(20) << "\n";               // detectOnly (entries 16 to 31), mask ...
//
// A later run replaces what earlier ones said of the same entries; equal neighbours are one run.
// Runs may lie beyond the region's `entries`, which may grow: unmatchedRuns() lists those.
// Memory is bounded by the number of runs. Without memory a mutator throws and changes nothing.
//
// Volatile entries are made known to the region (ChipMemory::volatileEntries): its data path keeps
// off them also when nothing is audited. A policy that is destroyed or out of force takes its
// bitmap back, unless the region has another one by then. Entries of all other rules are served and
// skipped as ever.
#pragma once

#include <Driver/Rules.h>
#include <Driver/Runs.h>
#include <Hardware/ChipMemory.h>
#include <memory>
#include <span>
#include <vector>

namespace Driver {

// A value that copies share: equal when the values are. Null is no value.
template <class T>
struct Shared {
  std::shared_ptr<const T> value;

  friend bool operator==(const Shared& left, const Shared& right) {
    return left.value == right.value || (left.value && right.value && *left.value == *right.value);
  }
};

class UMBRA_API Policy : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<Policy>;
  using ChipMemory = Hardware::ChipMemory;

  struct Id {
    enum : Zint::AttributeId {
      chipMemory = Zint::firstAttributeId,
      rule,
      ruleIs,
      isOnce,
      onceIs,
      mask,
      rewrite,
      maskIs,
      maskOfRunIs,
      isPlain,
      unwritten,
      resetValue,
      resetValueIs,
      auditEvery,
      isInForce,
      unmatchedRuns,
      text,
      lastMember = text
    };
  };

  // Notified of changes of rule, isOnce, mask (also of its rewrite), unwritten, resetValue,
  // auditEvery and isInForce. A change of runs names no entries.
  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const Policy>& policy, bool active = true);
    const Policy* notifier() const {
      return static_cast<const Policy*>(Zint::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onRule() {}
    virtual void onIsOnce() {}
    virtual void onMask() {}
    virtual void onUnwritten() {}
    virtual void onResetValue() {}
    virtual void onAuditEvery() {}
    virtual void onIsInForce() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, Policy> {
    using NotifieeOf::NotifieeOf;
  };

  // Null: a range exception.
  explicit Policy(const ChipMemory::Ptr& chipMemory);

  const Zint::Type* fwkType() const override;

 protected:
  ~Policy() override;

 public:
  const ChipMemory::Ptr& chipMemory() const { return chipMemory_; }  // constant

  // --- Rules. A run of no entry, one that wraps, or an unknown rule: range exceptions ------------
  Rule rule(U32 entry) const { return rules_.at(entry); }
  void ruleIs(U32 first, U32 count, Rule rule);
  // The first entry after `entry`, at most `end`, whose rule differs.
  U32 ruleEnd(U32 entry, U32 end) const { return atMost(rules_.endOf(entry), end); }
  // Not to be merged with others nor repeated at replay.
  bool isOnce(U32 entry) const { return once_.at(entry); }
  void onceIs(U32 first, U32 count, bool once);
  U32 onceEnd(U32 entry, U32 end) const { return atMost(once_.endOf(entry), end); }

  // --- Masks: entrySize bytes, a set bit is not compared -----------------------------------------

  // Of every entry without a mask of its own; empty for none. Another size: a range exception.
  void maskIs(std::span<const U8> mask, Rewrite rewrite);
  // Of a run, in place of the region's; empty lets the region's hold again, zeros let every bit be
  // compared.
  void maskIs(U32 first, U32 count, std::span<const U8> mask, Rewrite rewrite);
  // Null: no bit is masked. Valid until the next change of a mask.
  const U8* mask(U32 entry) const;
  Rewrite rewrite(U32 entry) const;  // kept where no bit is masked
  // The first entry after `entry`, at most `end`, whose mask or rewrite differs.
  U32 maskEnd(U32 entry, U32 end) const;

  // --- Comparison --------------------------------------------------------------------------------

  // Every entry is repaired, no bit is masked, and unwritten entries are adopted.
  bool isPlain() const;
  // The first entry in [first, end) that its rule lets be compared (isCompared) and whose unmasked
  // bits differ between the two images, which begin with entry 0; `end` if there is none. Reads
  // nothing beyond entry end - 1.
  U32 differentEntry(const U8* shadow, const U8* hardware, U32 first, U32 end) const;
  // differentEntry() prepares the comparison of the entries that it is called for, where a change
  // has made that necessary: 25 to 260 ns a run. Who wants to do no more of it at once than he must
  // calls this one first: of [first, end) it prepares those that are not, but no more than one step
  // of about 1,024 entries. Returns the first that is not prepared then, `end` if there is none.
  U32 doPrepare(U32 first, U32 end) const;
  // Since the last change; those beyond the region count, too.
  U64 entriesPrepared() const;
  // Whether one entry's values are equal under its mask, whatever its rule.
  bool equals(U32 entry, const U8* a, const U8* b) const;
  // What a rewrite of the entry writes: the expected bits, and in place of the masked ones what
  // rewrite() says, `actual` being what the chip holds (may be null where that is not `kept`).
  // `out` may be either.
  void mergeForRewrite(U32 entry, const U8* expected, const U8* actual, U8* out) const;

  // --- Before anybody wrote ----------------------------------------------------------------------
  Unwritten unwritten() const { return unwritten_; }
  void unwrittenIs(Unwritten unwritten);
  // entrySize bytes; empty for zeros, which it is where none was given.
  void resetValueIs(U32 first, U32 count, std::span<const U8> value);
  // Null: zeros. Valid until the next change of a reset value.
  const U8* resetValue(U32 entry) const;

  // --- The rest ----------------------------------------------------------------------------------

  // The patrol reads the region in each n-th pass. 0: a range exception.
  U32 auditEvery() const { return auditEvery_; }
  void auditEveryIs(U32 passes);
  // False: the region's data path does not know of the volatile entries. True, the default, tells
  // it again, also when another policy has been told of since.
  bool isInForce() const { return isInForce_; }
  void isInForceIs(bool inForce);
  // Whether something was set for entries that the region does not have, and what: a text such as
  // "detectOnly (entries 60 to 69), once (entry 99)".
  bool hasUnmatchedRun() const;
  Zint::String8 unmatchedRuns() const;
  // All that holds for the entry, for people, in one line.
  Zint::String8 text(U32 entry) const;

 private:
  class ZintChipMemory;
  class Comparison;
  struct Mask {
    std::vector<U8> bits;  // empty: no bit is masked
    Rewrite rewrite;
    bool operator==(const Mask&) const = default;
  };

  static Zint::String8 textOfMask(const Mask& mask);
  const Mask* maskOf(U32 entry) const;
  Shared<Mask> makeMask(std::span<const U8> mask, Rewrite rewrite) const;
  void requireEntry(std::span<const U8> value) const;
  U32 markVolatileEntries(Hal::Buf& bitmap) const;
  void handleEntries();
  void tellRegion();
  static U32 atMost(U64 entry, U32 end) { return entry < end ? static_cast<U32>(entry) : end; }

  const ChipMemory::Ptr chipMemory_;
  Zint::Ptr<ZintChipMemory> reactor_;
  Runs<Rule> rules_;
  Runs<bool> once_;
  Shared<Mask> mask_;         // of the region; null for none
  Runs<Shared<Mask>> masks_;  // in its place; null: the region's
  Runs<Shared<std::vector<U8>>> resets_;
  Unwritten unwritten_ = Unwritten::adopted;
  U32 auditEvery_ = 1;
  bool isInForce_ = true;
  Hal::Buf::Ptr volatiles_;        // the bitmap; null while no entry of the region is volatile
  Hal::Buf::Ptr told_;             // what the region was given
  U32 volatileEntries_ = 0;        // bits that are set in it
  bool isVolatilesStale_ = false;  // there was no memory for it when the region grew
  mutable std::unique_ptr<Comparison> comparison_;  // null after a change
};

UMBRA_API Zint::Ptr<Policy> policyFactory(const Policy::ChipMemory::Ptr& chipMemory);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const Policy*) { return "Driver::Policy"; }

}  // namespace Driver
