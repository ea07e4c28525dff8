// The rules of the patrol, in the simplest form that they can have: a few flags for each entry. It
// follows the events that the library gives and says which one must come next.
//
// What a turn reads is left to the library, within its bounds: the model takes a slice from the
// accesses, up to the question whether the chip is present, and then knows every access, verdict
// and count that must follow.
#pragma once

#include <Driver/AuditedShadow.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "driverlockstep/Events.h"
#include "driverlockstep/World.h"

namespace DriverLockstep {

struct Mismatch {
  std::string text;
};

struct EntryModel {
  Bytes shadow, chip;
  bool known = false;
  bool mark = false;     // written since the last visit
  bool written = false;  // and collected
  bool open = false;
  bool assumed = false;  // known from the policy alone
  bool touched = false;  // a client wrote it while the slice was judged
  // What is remembered of its repairs.
  bool isQuarantined = false;
  U32 cleanVisits = 0;
  std::vector<Zint::Seconds> repairs;
  Zint::Seconds lastDifference = 0;
  // The policy.
  Driver::Rule rule = Driver::Rule::repaired;
  std::optional<Bytes> mask;
  Driver::Rewrite rewrite = Driver::Rewrite::kept;
  Bytes reset;
};

struct RegionModel {
  U32 chip = 0;
  U32 entrySize = 0;
  bool skips = false, serves = false, audited = false, shadowEnabled = true;
  Hardware::ChipMemory::ChipMemoryMode mode = Hardware::ChipMemory::normal_;
  bool hasPolicy = false;
  Driver::Unwritten unwritten = Driver::Unwritten::adopted;
  std::vector<EntryModel> entries;
  U32 registersFixed = 0;
  U64 writeHits = 0, readHits = 0;

  bool hasStore() const { return shadowEnabled && mode != Hardware::ChipMemory::override_; }
};

struct ChipModel {
  bool isAbsent = false, isRestoring = false;
  bool isAlive = false;     // a slice of it was read since it became absent, if it did
  U32 probedResets = 0;     // concluded since its last complete pass; three at most
  bool isRestored = false;  // after a reset, and not completely audited since
  bool isTold = false;      // others have told of its reset: it is asked when it is restored
  bool isAsked = false;     // its next answer is about that reset
  U32 relapses = 0;         // absences since all of it was audited
  U32 absences = 0, resets = 0, audits = 0, tries = 0;
  Zint::Seconds nextTry = Zint::never;
};

struct Settings {
  U32 slice = 1;
  bool judgeAtOnce = false, rereads = false, verifies = false, findsResets = true;
  U32 repairsPerTurn = ~0u, repairsPerPass = ~0u;
  U32 quarantineRepairs = 0, quarantineVisits = 3;
  Zint::Seconds quarantineTime = 60;
};

class Model {
 public:
  Model(const Plan& plan, const World& world);

  // --- What clients and owners do ---
  void offer(U32 region, U32 entry, const Bytes& value);
  void writeChip(U32 region, U32 entry, const Bytes& value);
  bool readFromCache(U32 region, U32 entry, Bytes& value);
  void clearRange(U32 region, U32 first, U32 last);
  void modeIs(U32 region, Hardware::ChipMemory::ChipMemoryMode mode);
  void shadowEnabledIs(U32 region, bool enabled);
  void auditEnabledIs(U32 region, bool enabled) { regions[region].audited = enabled; }
  // After rules, masks, reset values or `unwritten` have changed.
  void handlePolicy(U32 region);
  void policyDel(U32 region);
  void quarantineDel(U32 region, U32 entry);
  void doChipReset(U32 chip, bool hasTold = false);
  void doRestored(U32 chip) {
    ChipModel& model = chips[chip];
    model.isRestored = model.isRestored || model.isRestoring;
    model.isAsked = model.isRestoring && model.isTold;
    model.isRestoring = model.isTold = false;
  }
  void stateIs(bool isAuditing);

  // Follows what a turn gave, or a mutator; throws a Mismatch.
  void follow(const Events& events, Zint::Seconds now);
  // The same for an audit on demand.
  void followAudit(const Events& events, Zint::Seconds now, U32 region, U32 first, U32 count,
                   const Driver::PassResult& result);

  bool isVolatile(U32 region, U32 entry) const {
    return regions[region].entries[entry].rule == Driver::Rule::volatile_;
  }
  bool isInPass() const { return pass_ != nullptr; }
  Driver::PatrolState patrolState() const;
  // A region whose entries the patrol can read now.
  bool canRead(U32 region) const;

  std::vector<RegionModel> regions;
  std::vector<ChipModel> chips;
  Settings settings;
  bool isAuditing = false, isPaused = false;
  U32 audits = 0;
  U64 findings = 0, repairs = 0, transients = 0;
  std::map<std::string, U64> met;  // situations, counted

 private:
  struct Pass {
    std::vector<U32> next;        // per region: the first entry that was not visited
    std::vector<bool> takesPart;  // regions
    std::vector<bool> isLenient;  // what is read of them changed on the way
    std::vector<bool> hasRead, chipProbed, regionProbed, chipFailed, chipReset, chipVanished;
    bool isEnded = false;     // by another state
    bool isOnDemand = false;  // nobody asks whether the chip was reset
    U64 entries = 0, differences = 0, repairs = 0, adopted = 0;
  };
  enum class Judged { done, endOfTurn, isVoid, isReset };
  struct Read {
    U32 entry;
    Bytes value;
  };
  struct Slice {
    U32 region = 0, first = 0, end = 0;
    std::vector<Read> reads;
  };

  // --- The events under way ---
  bool atEnd() const { return at_ == events_->size(); }
  const Event& peek() const;
  const Event& take(What what, U32 region, U32 entry);
  // Takes clients' writes that stand next.
  void takeClients();
  void takeWrite(U32 region, U32 entry, const Bytes& value);
  [[noreturn]] void fail(const std::string& text) const;

  Pass newPass() const;
  void beginPass();
  void endPass(const Event& event);
  void slice(Pass& pass, U32 first, U32 end);
  Judged judge(Pass& pass, Slice& slice, U32& judgedEnd);
  Judged judgeEntry(Pass& pass, U32 region, U32 entry, Bytes& actual);
  Judged repair(Pass& pass, U32 region, U32 entry, Bytes& actual);
  bool chipWasReset(Pass& pass, const Slice& slice, U32 entry, bool& isVoid);
  bool hasProbe(U32 chip, const std::set<std::pair<U32, U32>>& seen) const;
  std::optional<Bytes> readOne(U32 region, U32 entry);
  bool isStillPresent(U32 chip);
  void retry();
  void tell(Pass& pass, U32 region, U32 entry, const Bytes& expected, const Bytes& actual,
            Driver::Verdict verdict, Driver::Nature nature = Driver::Nature::unverified);
  void isAbsent(U32 chip, Pass* pass);
  void countVisit(EntryModel& entry, const Bytes& actual);
  void remember(EntryModel& entry, Driver::Nature& nature);
  void clearMark(EntryModel& entry);

  bool equal(const EntryModel& entry, const Bytes& a, const Bytes& b) const;
  bool differs(U32 region, U32 entry, const Bytes& actual) const;
  bool isProbe(U32 region, U32 entry) const;
  void regionChanged(U32 region);
  void newStore(RegionModel& region);
  void applyUnwritten(RegionModel& region);

  const World& world_;
  const Events* events_ = nullptr;
  std::size_t at_ = 0;
  Zint::Seconds now_ = 0;
  std::unique_ptr<Pass> pass_;
  U32 readInTurn_ = 0;
  U32 repairsInTurn_ = 0;
};

}  // namespace DriverLockstep
