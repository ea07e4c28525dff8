// The work of a publisher, divided among turns.
#include <telemetry/Publishing.h>

#include <Zint/Sizes.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <telemetry/PublishingWatches.h>
#include <telemetry/Telemetry.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace Telemetry {
namespace {

// Between two turns of work that is not done in one.
constexpr Zint::Seconds restBetweenTurns = 0.0005;

void requireDirectory(const std::string& directory) {
  if (::mkdir(directory.c_str(), 0755) == 0) return;
  const int made = errno;
  const bool isThere = made == EEXIST;
  const int flags = AT_EACCESS;
  if (isThere && ::faccessat(AT_FDCWD, (directory + "/.").c_str(), W_OK | X_OK, flags) == 0) return;
  Zint::throwRangeException("the directory " + directory + " cannot be written: " +
                            std::generic_category().message(isThere ? errno : made));
}

void requireName(const std::string& name) {
  const auto isAllowed = [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
  };
  if (name.empty() || name.size() > 63 || name.front() == '.' ||
      !std::all_of(name.begin(), name.end(), isAllowed)) {
    Zint::throwRangeException(
        "the name of a publisher has 1 to 63 of the characters A-Z a-z 0-9 . _ - and does not "
        "begin with a dot");
  }
}

void requireNobodyElse(const std::string& path, const std::string& name) {
  std::string refusal;
  try {
    const LiveReader there(path);
    const Liveness::State state = there.liveness().state;
    if (state == Liveness::live || state == Liveness::stalled) {
      refusal = name + " is published by process " + std::to_string(there.pid()) + " already";
    }
  } catch (const Zint::RangeException&) {
    // None, or one that will be replaced.
  }
  if (!refusal.empty()) Zint::throwRangeException(refusal);
}

std::string checkedPath(const std::string& name, const PublisherOptions& options,
                        const char* ending) {
  requireName(name);
  requireDirectory(options.directory);
  const std::string path = options.directory + "/" + name;
  requireNobodyElse(path + ".live", name);
  return path + ending;
}

void requireSeconds(Zint::Seconds seconds, const char* what) {
  if (!(seconds > 0 && seconds < Zint::never)) {
    Zint::throwRangeException(std::string(what) + " must be a number above 0");
  }
}

LiveView::Settings liveSettings(const std::string& name, const PublisherOptions& options) {
  requireSeconds(options.period, "period");
  requireSeconds(options.turnBudget, "turnBudget");
  LiveView::Settings settings;
  settings.path = checkedPath(name, options, ".live");
  settings.name = name;
  settings.rows = {8, 8, options.regions, options.alarms, 32, 8, 1};
  return settings;
}

EventLog::Settings eventSettings(const std::string& name, const PublisherOptions& options) {
  return {.path = checkedPath(name, options, ".events"),
          .name = name,
          .records = options.events,
          .rate = options.eventRate,
          .burst = options.eventBurst};
}

}  // namespace

// Its wake-up.
class Publishing::Pulse : public Zint::Clock::NotifieeConst {
 public:
  Pulse(Publishing* publishing, const Zint::Ptr<Zint::ActivityConfig>& activity,
        const Zint::Ptr<const Zint::Clock>& clock)
      : NotifieeConst(activity, clock), publishing_(publishing) {}
  void onTime() override {
    if (publishing_ == nullptr) return;
    const Publisher::Ptr hold(&publishing_->publisher());
    publishing_->handleTime();
  }
  void close() { publishing_ = nullptr; }

 private:
  Publishing* publishing_;
};

Publishing::ChipMemory::Ptr Publishing::Region::region() const {
  return ChipMemory::Ptr(
      const_cast<ChipMemory*>(static_cast<const ChipMemory*>(held.ptr())));  // rows only read it
}
Driver::Chip::Ptr Publishing::Chip::driverChip() const {
  return Driver::Chip::Ptr(const_cast<Driver::Chip*>(static_cast<const Driver::Chip*>(held.ptr())));
}
Publishing::HardwareShadow::Ptr Publishing::Shadow::hardware() const {
  return HardwareShadow::Ptr(
      const_cast<HardwareShadow*>(static_cast<const HardwareShadow*>(weak->notifier())));
}
Driver::AuditedShadow::Ptr Publishing::Shadow::audited() const {
  return Driver::AuditedShadow::Ptr(dynamic_cast<Driver::AuditedShadow*>(hardware().ptr()));
}
Driver::AlarmBoard::Ptr Publishing::Board::board() const {
  return Driver::AlarmBoard::Ptr(
      const_cast<Driver::AlarmBoard*>(static_cast<const Driver::AlarmBoard*>(weak->notifier())));
}

Publishing::Publishing(Publisher& publisher, const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const Zint::Ptr<const Zint::Clock>& clock, const PublisherOptions& options)
    : publisher_(publisher),
      activity_(activity),
      clock_(clock),
      options_(options),
      view_(liveSettings(publisher.name().bytes(), options),
            [this](const std::string& error) { publisher_.errorIs(error); }),
      events_(eventSettings(publisher.name().bytes(), options),
              [this](const std::string& error) { publisher_.errorIs(error); }) {
  events_.add({.kind = EventKind::start, .verdict = static_cast<U32>(::getpid())}, times());
  if (options.trace) {
    const std::string& name = publisher.name().bytes();
    trace_ = std::make_unique<TraceLog>(
        TraceLog::Settings{options.directory + "/" + name + ".trace", name},
        [this](const std::string& error) { publisher_.errorIs(error); }, times());
  }
  pulse_ = Zint::makePtr<Pulse>(this, activity, clock);
  wakeAt(0.0);
}

Publishing::~Publishing() {
  if (pulse_ != nullptr) pulse_->close();
}

Times Publishing::times() const {
  const Zint::Seconds time = clock_->time();
  const bool isReal = !clock_->isManual();
  return {.monotonic = timeOfSeconds(isReal ? Zint::MonotonicClock::systemTime() : time),
          .wallClock = options_.wallClock == nullptr ? Machine().wallClock()
                                                     : timeOfSeconds(options_.wallClock->time()),
          .clock = time};
}

// --- Turns ---

void Publishing::wakeAt(Zint::Seconds time) {
  if (pulse_ != nullptr && (!pulse_->isArmed() || pulse_->timeMin() > time))
    pulse_->timeMinIs(time);
}

void Publishing::handleTime() {
  const Zint::Seconds begin = Zint::MonotonicClock::systemTime();
  const Budget budget(options_.turnBudget);
  bool isMore = true;
  while (isMore && !budget.isSpent()) isMore = step(budget);
  longestTurn_ = std::max(longestTurn_, Zint::MonotonicClock::systemTime() - begin);
  wakeAt(isMore ? clock_->time() + restBetweenTurns : nextRound_);
}

// False: there is nothing to do before the next round.
bool Publishing::step(const Budget& budget) {
  const Times now = times();
  if (!isInRound_ && now.clock >= nextRound_) beginRound();
  // The trace first: its parts take longest.
  return (trace_ != nullptr && trace_->work(budget, now)) || dropDestroyed(budget) ||
         events_.work(budget, now) || takeRegions(budget) || view_.work(budget, now) ||
         continueRound(budget);
}

void Publishing::doPublish() {
  const Budget endless(Zint::never);
  isInRound_ = false;
  beginRound();
  while (step(endless)) {
  }
  wakeAt(nextRound_);
}

void Publishing::beginRound() {
  const Times now = times();
  isInRound_ = true;
  roundTable_ = 0;
  roundSlot_ = 0;
  nextRound_ = now.clock + options_.period;
  view_.check();
  events_.check();
  if (trace_ != nullptr) trace_->check(now);
  for (std::size_t i = 0; i < shadows_.size(); ++i) {
    tellAdopted(*shadows_[i]);
    lookAtChips(*shadows_[i]);
  }
  events_.tellSuppressed(now);
  view_.beat(Heartbeat::running, now);
}

bool Publishing::continueRound(const Budget& budget) {
  if (!isInRound_) return false;
  do {
    while (roundTable_ < tableIds &&
           roundSlot_ >= view_.slots(static_cast<TableId>(roundTable_)).size()) {
      ++roundTable_;
      roundSlot_ = 0;
    }
    if (roundTable_ == tableIds) {
      isInRound_ = false;
      return false;
    }
    const TableId table = static_cast<TableId>(roundTable_);
    Subject* subject = view_.slots(table)[roundSlot_++];
    if (subject != nullptr) publishInRound(table, *subject);
  } while (!budget.isSpent());
  return true;
}

void Publishing::publishInRound(TableId table, Subject& subject) {
  using What = RowSource::What;
  if (table == TableId::region) {
    Region& region = static_cast<Region&>(subject);
    if (lookAtRegion(region)) publishFigures(region, What::numbers);
    return;
  }
  publishFigures(subject, What::allButConstants);
}

void Publishing::publishFigures(Subject& subject, RowSource::What what) {
  subject.figures.advance(clock_->time());
  view_.publish(subject, what);
}

// --- The end ---

void Publishing::close() {
  const Times now = times();
  for (const auto& shadow : shadows_) {
    tellAdopted(*shadow);
    for (Region* region : shadow->due) publishFigures(*region, RowSource::What::numbers);
    publishFigures(*shadow, RowSource::What::allButConstants);
    closeWatch(shadow->watch);
    for (const auto& chip : shadow->chips) closeWatch(chip->watch);
    for (const auto& [address, region] : shadow->regions) closeWatch(region->policyWatch);
  }
  for (const auto& board : boards_) closeWatch(board->watch);
  events_.tellSuppressed(now);
  events_.add({.kind = EventKind::end, .verdict = static_cast<U32>(::getpid())}, now);
  view_.beat(Heartbeat::ended, now);
  if (trace_ != nullptr) trace_->end(now);
}

void Publishing::handleAssertion(const Zint::AssertionFailure& failure) noexcept {
  try {
    events_.add({.kind = EventKind::assertion,
                 .verdict = static_cast<U32>(failure.line),
                 .region = failure.detail,
                 .text = failure.condition},
                times());
  } catch (...) {
    // There is no file, and no memory: nothing can be left.
  }
  view_.markFailed();
  if (trace_ != nullptr) trace_->markFailed();
}

}  // namespace Telemetry
