// One chip as the patrol sees it: whether it answers, and whether it still has its state. These are
// two facts, never one.
//
//   auto chip = Driver::chipFactory("switch0", ham);         // the regions of one access method
//   chip->sentinelIs(ChipAddress(0, 0x0), idBytes);          // a register with a known value
//   shadow->chipIs(chip);
//   ...
//   chip->doChipReset();                                      // the driver has reset it
//
// A chip belongs to one audited shadow at a time: what a reset has destroyed is the whole chip, and
// one replay brings it back. A second shadow refuses it; where two shadows share a chip, each has
// an object of its own for it, and the driver tells both of a reset.
//
// An audited shadow makes a chip of its own for each access method that has none. It drops such a
// chip again once no region has the access method any more and nobody else holds the chip: when the
// last region leaves, when as many regions have left as are still there, or when it is configured.
#pragma once

#include <Hardware/ChipHam.h>
#include <Hardware/ChipMemory.h>
#include <Zint/Clock.h>
#include <Zint/Entity.h>
#include <span>
#include <vector>

namespace Driver {

class ChipWriteRequest;
class Patrol;

class UMBRA_API Chip : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<Chip>;

  struct Id : Entity::Id {
    enum : Zint::AttributeId {
      chipHam = isNondestructing + 1,
      isAbsent,
      reason,
      since,
      nextTry,
      tries,
      absences,
      retryMin,
      retryMax,
      isRestoring,
      resets,
      restoresItself,
      replay,
      doChipReset,
      doRestored,
      isPresent,
      wasReset,
      audits,
      sentinelIs,
      lastMember = sentinelIs
    };
  };

  // Of `isAbsent`, `isRestoring`, `resets` and the other attributes.
  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const Chip>& chip)
        : Entity::NotifieeConst(activity, chip) {}
    const Chip* notifier() const {
      return static_cast<const Chip*>(Entity::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onAbsent() {}     // isAbsent has changed
    virtual void onRestoring() {}  // isRestoring has changed
    virtual void onResets() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, Chip> {
    using NotifieeOf::NotifieeOf;
  };

  // `ham` may be null for a derived class that overrides holds() and isPresent().
  Chip(Zint::Name name, const Hardware::ChipHam::Ptr& ham);

  const Zint::Type* fwkType() const override;

 protected:
  ~Chip() override;

 public:
  // --- For a derived class to override -----------------------------------------------------------
  // Whether a region belongs to this chip. The base: those of its access method.
  virtual bool holds(const Hardware::ChipMemory& region) const;
  // Whether the chip answers: reads the sentinel, if there is one. May throw, which means no.
  virtual bool isPresent();
  // Whether the chip has lost its state since the last call, from a generation or scratch register
  // for instance. Asked before each pass, after each absence, also one within a replay, and once
  // for each doChipReset(): before the replay begins, or in doRestored() where the driver writes
  // the chip. That answer is about the same reset and counts for nothing. The base: never. May
  // throw: then the chip is absent.
  virtual bool wasReset();

  const Hardware::ChipHam::Ptr& chipHam() const { return chipHam_; }

  // --- Sentinel: a register whose value is known. An absent chip answers all-ones on one bus, 0 on
  // another. ---
  // Entries of value.size() bytes; only the bits that are set in `mask` count (all where it is
  // empty). An empty value removes the sentinel. REQUIRES: an access method, and a mask as long as
  // the value (range exceptions).
  void sentinelIs(const Hardware::ChipAddress& address, std::span<const U8> value,
                  std::span<const U8> mask = {});
  bool hasSentinel() const { return !sentinelValue_.empty(); }

  // --- Absent: does not answer ---
  bool isAbsent() const { return isAbsent_; }
  // Why, and since when (time of the shadow's clock).
  const Zint::String8& reason() const { return reason_; }
  Zint::Seconds since() const { return since_; }
  // When the patrol looks again, whatever the interval of its passes; `never` while it is present.
  Zint::Seconds nextTry() const { return nextTry_; }
  U32 tries() const { return tries_; }        // in this absence
  U32 absences() const { return absences_; }  // so far
  // The first wait, which doubles up to the longest: with each try that fails, and with each
  // absence that begins before all of the chip was audited again. REQUIRES: above 0 (range
  // exception).
  Zint::Seconds retryMin() const { return retryMin_; }
  void retryMinIs(const Zint::Seconds& seconds);
  Zint::Seconds retryMax() const { return retryMax_; }
  void retryMaxIs(const Zint::Seconds& seconds);

  // --- Reset: forgot what was written ---
  // Tells that the chip has lost its state. Its audit waits, what was written is replayed, and the
  // audit goes on.
  void doChipReset();
  // Ends the wait where `restoresItself` is off: the driver has written the chip.
  void doRestored();
  bool isRestoring() const { return isRestoring_; }
  U32 resets() const { return resets_; }
  // Whether the audited shadow replays by itself after a reset; on by default.
  bool restoresItself() const { return restoresItself_; }
  void restoresItselfIs(bool restoresItself);
  // What is replayed, in which order. Null: all regions of the chip, by address. The audited shadow
  // writes it, with a writer of its own: give the request no other one while `restoresItself` is
  // on.
  const Zint::Ptr<ChipWriteRequest>& replay() const { return replay_; }
  void replayIs(const Zint::Ptr<ChipWriteRequest>& request);

  // Complete passes over the regions of this chip.
  U32 audits() const { return audits_; }

 private:
  friend class Patrol;

  void absentIs(bool isAbsent, const Zint::String8& reason, Zint::Seconds time);
  void restoringIs(bool isRestoring);
  void auditsInc();

  Hardware::ChipHam::Ptr chipHam_;
  Hardware::ChipAddress sentinel_;
  std::vector<U8> sentinelValue_;
  std::vector<U8> sentinelMask_;
  bool isAbsent_ = false;
  bool isRestoring_ = false;
  bool restoresItself_ = true;
  Zint::String8 reason_;
  Zint::Seconds since_ = 0;
  Zint::Seconds nextTry_ = Zint::never;
  Zint::Seconds retryMin_ = 1;
  Zint::Seconds retryMax_ = 60;
  U32 tries_ = 0;
  U32 absences_ = 0;
  U32 relapses_ = 0;  // absences since all of it was audited
  U32 resets_ = 0;
  U32 audits_ = 0;
  const Patrol* patrol_ = nullptr;  // of the shadow that has it; null while none has
  Zint::Ptr<ChipWriteRequest> replay_;
};

UMBRA_API Zint::Ptr<Chip> chipFactory(Zint::Name name, const Hardware::ChipHam::Ptr& ham);

constexpr const char* zintTypeName(const Chip*) { return "Driver::Chip"; }

}  // namespace Driver
