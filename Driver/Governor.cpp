#include <Driver/Governor.h>

#include <Driver/Driver.h>
#include <algorithm>
#include <cmath>

namespace Driver {
namespace {

// How much of what is recent counts at the next turn.
constexpr double keptOfRecent = 0.75;
// The part of a pass up to which its own pace counts less than that of the last one.
constexpr double doubtfulPart = 0.2;
// A change of the announced period that is worth a notification.
constexpr double announcedChange = 0.001;
// A wish that is missed by less than this part of it is met.
constexpr double tolerance = 0.02;

}  // namespace

class Governor::Watch : public AuditedShadow::NotifieeConst {
 public:
  Watch(Governor* governor, const Zint::Ptr<Zint::ActivityConfig>& activity,
        const AuditedShadow::Ptr& shadow)
      : NotifieeConst(activity, shadow), governor_(governor), shadow_(shadow.ptr()) {
    isNonReferencingIs(true);
    interestIs(Zint::interestIn(AuditedShadow::Id::turn));
  }
  void handleNotification(Zint::ActivityConfig*) override {}
  void onTurn(const TurnResult& turn) override {
    if (const Governor::Ptr governor = governor_; governor != nullptr) governor->handleTurn(turn);
  }
  AuditedShadow* shadow() const { return notifier() == nullptr ? nullptr : shadow_; }
  void forget() {
    governor_ = nullptr;
    isRegisteredNotifieeIs(false);
  }

 protected:
  ~Watch() override = default;

 private:
  Governor* governor_;           // not counted, as the next one
  AuditedShadow* const shadow_;  // the notifier, which may be changed
};

Zint::Ptr<Governor> governorFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                    const AuditedShadow::Ptr& shadow) {
  return Zint::makePtr<Governor>(activity, shadow);
}

Governor::Governor(const Zint::Ptr<Zint::ActivityConfig>& activity,
                   const AuditedShadow::Ptr& shadow) {
  refuseNull(activity, "null activity parameter to Driver::Governor not allowed");
  refuseNull(shadow, "null shadow parameter to Driver::Governor not allowed");
  watch_ = Zint::makePtr<Watch>(this, activity, shadow);
  shadow->governor_ = this;
  apply();
}

Governor::~Governor() {
  if (watch_ == nullptr) return;
  AuditedShadow* const shadow = watch_->shadow();
  if (shadow != nullptr && shadow->governor_ == this) shadow->governor_ = nullptr;
  watch_->forget();
}

const Zint::Type* Governor::fwkType() const { return &governorType; }

AuditedShadow::Ptr Governor::shadow() const { return watch_->shadow(); }

// --- Wishes --------------------------------------------------------------------------------------

void Governor::periodIs(const Zint::Seconds& seconds) {
  if (!std::isfinite(seconds) || seconds < 0) {
    Zint::throwRangeException("the period must be finite and not negative");
  }
  if (!Zint::updated(period_, seconds)) return;
  const Ptr self(this);
  apply();
  notify(Id::period);
}

void Governor::shareIs(const double& share) {
  if (!(share > 0 && share <= 1)) {
    Zint::throwRangeException("the share must be above 0 and at most 1");
  }
  if (!Zint::updated(share_, share)) return;
  const Ptr self(this);
  apply();
  notify(Id::share);
}

void Governor::turnBoundIs(const Zint::Seconds& seconds) {
  if (!(seconds > 0)) Zint::throwRangeException("the turn bound must be above 0");
  if (!Zint::updated(turnBound_, seconds)) return;
  const Ptr self(this);
  longest_ = longestBefore_ = {};  // of another bound
  apply();
  notify(Id::turnBound);
}

// --- The turns of the shadow ---------------------------------------------------------------------

void Governor::handleTurn(const TurnResult& turn) {
  const AuditedShadow::Ptr shadow = this->shadow();
  if (shadow == nullptr) return;
  if (turn.start < turnStart_) {  // another clock
    hasPeriod_ = false;
    unpaid_ = 0;
    turnStart_ = turn.start;
  }
  if (turn.isFirst || (!hasPeriod_ && !turn.isOutsidePass)) beginPeriod(turn);
  // The share is kept on the average: a turn that came late lets the next one begin earlier, by no
  // more than what it takes itself.
  unpaid_ = std::max(unpaid_ - (turn.start - turnStart_) * share_, -turn.duration) + turn.duration;
  turnStart_ = turn.start;
  turnEnd_ = turn.start + turn.duration;
  if (turn.isOutsidePass) {
    workOutside_ += turn.duration;
    return;
  }
  isInPass_ = !turn.isLast;
  if (turn.duration > longest_.duration) longest_ = turn;
  const U64 entries = shadow->passEntries();
  // The shadow announces its progress after the turn.
  const U64 behind =
      turn.isLast ? entries : std::min(shadow->passEntriesDone() + turn.entries, entries);
  learn(turn, behind, entries);
  announce(work_ + expectedWorkLeft(behind, entries));
  const Zint::Seconds left = workLeft(behind, entries);
  const double part = work_ + left > 0 ? work_ / (work_ + left)
                      : entries > 0    ? static_cast<double>(behind) / static_cast<double>(entries)
                                       : 1;
  const Zint::Seconds next = std::max(periodStart_ + announced_ * part, nextAllowed());
  if (turn.isLast) {
    lastProfile_ = profile_;
    hasLastProfile_ = true;
    shadow->minIntervalBetweenAuditsIs(next - periodStart_);
  } else {
    shadow->sliceIntervalIs(std::max(next - turnEnd_, 0.0));
  }
}

void Governor::beginPeriod(const TurnResult& turn) {
  if (hasPeriod_ && turn.start > periodStart_) {
    const double share = (work_ + workOutside_) / (turn.start - periodStart_);
    if (Zint::updated(achievedShare_, share)) notify(Id::achievedShare);
  }
  hasPeriod_ = true;
  periodStart_ = turn.start;
  work_ = workOutside_ = 0;
  place_ = 0;
  profile_ = {};
  longestBefore_ = std::exchange(longest_, {});
}

// When the share lets the next turn begin.
Zint::Seconds Governor::nextAllowed() const {
  return turnStart_ + std::min(unpaid_ / share_, longestPeriod);
}

double Governor::placeOf(U64 behind, U64 entries) {
  if (entries == 0) return parts;
  return static_cast<double>(behind) / static_cast<double>(entries) * parts;
}

// Remembers what the turn took for the part of the pass that it went.
void Governor::learn(const TurnResult& turn, U64 behind, U64 entries) {
  work_ += turn.duration;
  recentWork_ = recentWork_ * keptOfRecent + turn.duration;
  recentEntries_ = recentEntries_ * keptOfRecent + static_cast<double>(turn.entries);
  const double place = placeOf(behind, entries);
  for (U32 part = static_cast<U32>(place_) + 1; part <= place; ++part) {
    profile_[part] = work_ - turn.duration * (place - part) / (place - place_);
  }
  place_ = place;
  profile_[parts] = work_;
}

// As the turns of late went on.
Zint::Seconds Governor::workLeft(U64 behind, U64 entries) const {
  const Zint::Seconds asOfLate =
      recentEntries_ > 0 ? recentWork_ / recentEntries_ * static_cast<double>(entries - behind) : 0;
  return std::max(asOfLate, expectedWorkLeft(behind, entries));
}

// As the last pass went on from here, faster or slower as this one has been so far.
Zint::Seconds Governor::expectedWorkLeft(U64 behind, U64 entries) const {
  if (!hasLastProfile_ || entries == 0) {
    return recentEntries_ > 0 ? recentWork_ / recentEntries_ * static_cast<double>(entries - behind)
                              : 0;
  }
  const double place = placeOf(behind, entries);
  const U32 part = std::min(static_cast<U32>(place), parts - 1);
  const Zint::Seconds all = lastProfile_[parts];
  const Zint::Seconds before =
      lastProfile_[part] + (lastProfile_[part + 1] - lastProfile_[part]) * (place - part);
  // A few turns do not yet say that this pass is faster or slower.
  const Zint::Seconds sure = std::max(before, all * doubtfulPart);
  const double factor = sure > 0 ? 1 + (work_ - before) / sure : 1;
  return (all - before) * factor;
}

void Governor::announce(Zint::Seconds work) {
  passWork_ = work;
  const Zint::Seconds announced =
      std::max(period_, std::min((work + workOutside_) / share_, longestPeriod));
  if (std::abs(announced - announced_) <= announced_ * announcedChange) return;
  announced_ = announced;
  notify(Id::announcedPeriod);
}

// Sets what does not wait for a turn.
void Governor::apply() {
  const AuditedShadow::Ptr shadow = this->shadow();
  if (shadow == nullptr) return;
  announce(passWork_);
  shadow->turnBoundIs(turnBound_);
  shadow->maxEntriesPerSliceIs(largestSlice);
  const bool isBetween = hasPeriod_ && !isInPass_;
  shadow->minIntervalBetweenAuditsIs(isBetween ? std::max(announced_, nextAllowed() - periodStart_)
                                               : announced_);
  // A turn that waits as long as the old wish had it begins anew.
  if (isInPass_ && shadow->sliceInterval() > announced_ / parts) {
    shadow->sliceIntervalIs(std::max(nextAllowed() - turnEnd_, 0.0));
  }
}

bool Governor::holdsShare() const { return achievedShare_ <= share_ * (1 + tolerance); }

// --- For people ----------------------------------------------------------------------------------

double Governor::progress() const {
  const AuditedShadow::Ptr shadow = this->shadow();
  if (shadow == nullptr || shadow->passEntries() == 0) return 0;
  return static_cast<double>(shadow->passEntriesDone()) /
         static_cast<double>(shadow->passEntries());
}

Zint::Seconds Governor::timeLeft() const {
  const AuditedShadow::Ptr shadow = this->shadow();
  if (shadow == nullptr) return Zint::never;
  if (shadow->patrolState() == PatrolState::reading) return (1 - progress()) * announced_;
  return shadow->patrolState() == PatrolState::waiting ? 0 : Zint::never;
}

// What of a turn that was longer than the bound was not put off to the next one.
Zint::String8 Governor::reasonOfLongest() const {
  const TurnResult& turn = longest();
  const Zint::Seconds most = turnBound_ * (1 + tolerance);
  const Zint::Seconds rest = turn.duration - turn.accessTime;
  if (rest > most) {
    return Zint::format("%g s of it were no access, but comparisons or notifiees", rest);
  }
  if (turn.duration - turn.longestAccess <= most) {
    return Zint::format("one access of it took %g s and is not divided", turn.longestAccess);
  }
  return Zint::format("%g s of it were accesses that belong together, the longest of %g s",
                      turn.accessTime, turn.longestAccess);
}

Zint::String8 Governor::wishes() const {
  Zint::String8 text = Zint::format("period %g s: ", period_);
  if (announced_ <= period_ * (1 + tolerance)) {
    text += "met";
  } else if (period_ == 0) {
    text += Zint::format("%g s, as often as the share allows", announced_);
  } else {
    text += Zint::format("%g s (%g s more), because a pass takes %g s of work", announced_,
                         announced_ - period_, passWork_);
    if (workOutside_ > 0) text += Zint::format(" and %g s of it were done outside", workOutside_);
  }
  text += Zint::format("; share %g %%: ", share_ * 100);
  if (holdsShare()) {
    text += "met";
  } else {
    text += Zint::format(
        "%g %% (%g %% more) in the last period, because turns or audits on demand "
        "took longer than was known",
        achievedShare_ * 100, (achievedShare_ - share_) * 100);
  }
  text += Zint::format("; turn %g s: ", turnBound_);
  const Zint::Seconds longest = longestTurn();
  if (longest <= turnBound_ * (1 + tolerance)) {
    text += "met";
  } else {
    text += Zint::format("%g s (%g s more), because ", longest, longest - turnBound_) +
            reasonOfLongest();
  }
  return text;
}

// --- Notifiees -----------------------------------------------------------------------------------

Governor::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                       const Zint::Ptr<const Governor>& governor, bool active)
    : Zint::NotifieeConst(activity, governor, active) {}

Governor::NotifieeConst::~NotifieeConst() = default;

void Governor::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::announcedPeriod:
      return onAnnouncedPeriod();
    case Id::achievedShare:
      return onAchievedShare();
    default:
      return Zint::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Driver
