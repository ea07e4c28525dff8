// Paces the patrol of an audited shadow: how often a pass, at most how much of the thread, at most
// how long a turn.
//
//   auto governor = Driver::governorFactory(activity, shadow);
//   governor->periodIs(60);        // from the start of a pass to the start of the next one
//   governor->shareIs(0.05);       // of the thread's time, at most
//   governor->turnBoundIs(0.001);  // seconds, and no more than the access that reaches it
//   std::cout << governor->wishes() << "\n";   // "period 60 s: 71.7 s (11.7 s more), because ..."
//
// The share is more important than the period, the turn bound more important than both. The work of
// a pass is spread evenly over its period. What it takes is learned from the turns themselves, so
// costs that change are followed.
//
// The share counts what the shadow's clock shows around the turns of the patrol, with all that is
// done in them (repairs, further reads, notifiees), and around audits on demand (doAudit). The
// replay after a reset does not count. Where the clock stands still during accesses, as a manual
// one does, they cost nothing: slices are the largest there are.
//
// As long as it lives the governor sets maxEntriesPerSlice, sliceInterval, turnBound and
// minIntervalBetweenAudits of the shadow, which knows it as its governor(). It does not keep the
// shadow alive.
#pragma once

#include <Driver/AuditedShadow.h>
#include <array>

namespace Driver {

class UMBRA_API Governor : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<Governor>;

  struct Id {
    enum : Zint::AttributeId {
      shadow = Zint::firstAttributeId,
      period,
      share,
      turnBound,
      announcedPeriod,
      achievedShare,
      passWork,
      longestTurn,
      progress,
      timeLeft,
      wishes,
      lastMember = wishes
    };
  };

  // Of period, share, turnBound, announcedPeriod and achievedShare.
  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const Governor>& governor, bool active = true);
    const Governor* notifier() const {
      return static_cast<const Governor*>(Zint::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onAnnouncedPeriod() {}
    virtual void onAchievedShare() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, Governor> {
    using NotifieeOf::NotifieeOf;
  };

  // The slices of accesses that cost nothing.
  static constexpr U32 largestSlice = 65536;
  // Seconds. The share makes no wait longer than this, however small it is.
  static constexpr Zint::Seconds longestPeriod = 1e9;

  // Null: a range exception.
  Governor(const Zint::Ptr<Zint::ActivityConfig>& activity, const AuditedShadow::Ptr& shadow);

  const Zint::Type* fwkType() const override;

 protected:
  ~Governor() override;

 public:
  AuditedShadow::Ptr shadow() const;  // null once it is destroyed

  // --- Wishes ---
  // Seconds from start to start; 60. 0: as often as the share allows. REQUIRES: finite and not
  // below 0 (range exception).
  Zint::Seconds period() const { return period_; }
  void periodIs(const Zint::Seconds& seconds);
  // 0.05. A new share holds from the start of the last turn on: what that turn has to wait for is
  // worked out anew. REQUIRES: above 0, at most 1 (range exception).
  double share() const { return share_; }
  void shareIs(const double& share);
  // Seconds; 0.001. `never` is no bound. REQUIRES: above 0 (range exception).
  Zint::Seconds turnBound() const { return turnBound_; }
  void turnBoundIs(const Zint::Seconds& seconds);

  // --- What comes of them ---
  // From the start of this pass to the start of the next one, or of the next one where none is
  // under way. The wish, until the first turn has shown what accesses cost.
  Zint::Seconds announcedPeriod() const { return announced_; }
  // Of the last whole period; 0 before its end.
  double achievedShare() const { return achievedShare_; }
  // Seconds of work of a pass, as far as it is known.
  Zint::Seconds passWork() const { return passWork_; }
  // Of this pass and the one before it.
  Zint::Seconds longestTurn() const { return longest().duration; }
  // Whether the share was kept in the last whole period, but for a fiftieth of it.
  bool holdsShare() const;
  // Of the pass under way, from 0 to 1; 1 between two passes.
  double progress() const;
  // Seconds until its end at the announced pace; 0 between two passes, `never` while the patrol
  // stands still.
  Zint::Seconds timeLeft() const;
  // For people, one line: each wish, and where it cannot be met what holds instead, by how much it
  // misses the wish, and why.
  Zint::String8 wishes() const;

 private:
  class Watch;
  // The work of a pass at each of these parts of its entries.
  static constexpr U32 parts = 64;
  using Profile = std::array<Zint::Seconds, parts + 1>;

  const TurnResult& longest() const {
    return longest_.duration >= longestBefore_.duration ? longest_ : longestBefore_;
  }
  Zint::String8 reasonOfLongest() const;
  void handleTurn(const TurnResult& turn);
  void beginPeriod(const TurnResult& turn);
  Zint::Seconds nextAllowed() const;
  static double placeOf(U64 behind, U64 entries);
  void learn(const TurnResult& turn, U64 behind, U64 entries);
  Zint::Seconds workLeft(U64 behind, U64 entries) const;
  Zint::Seconds expectedWorkLeft(U64 behind, U64 entries) const;
  void announce(Zint::Seconds work);
  void apply();

  Zint::Ptr<Watch> watch_;
  Zint::Seconds period_ = 60;
  double share_ = 0.05;
  Zint::Seconds turnBound_ = 0.001;
  Zint::Seconds announced_ = 60;
  double achievedShare_ = 0;
  Zint::Seconds passWork_ = 0;
  TurnResult longest_;        // turn of this pass
  TurnResult longestBefore_;  // of the one before it

  // --- The period under way ---
  bool hasPeriod_ = false;
  bool isInPass_ = false;
  Zint::Seconds periodStart_ = 0;
  Zint::Seconds turnStart_ = 0;  // of the last turn
  Zint::Seconds turnEnd_ = 0;
  Zint::Seconds work_ = 0;         // of the turns of this pass
  Zint::Seconds workOutside_ = 0;  // since the start of this pass
  Zint::Seconds unpaid_ = 0;       // work whose share of the time has not passed at turnStart_
  double recentWork_ = 0;          // the latest turns weigh most
  double recentEntries_ = 0;
  double place_ = 0;          // in parts, up to which this pass has gone
  Profile profile_ = {};      // of this pass, as far as it went
  Profile lastProfile_ = {};  // of the last one that was not ended early
  bool hasLastProfile_ = false;
};

UMBRA_API Zint::Ptr<Governor> governorFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                              const AuditedShadow::Ptr& shadow);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const Governor*) { return "Driver::Governor"; }

}  // namespace Driver
