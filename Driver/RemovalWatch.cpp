#include <Driver/RemovalWatch.h>

#include <Zint/Exception.h>

namespace Driver {

RemovalWatch::RemovalWatch(const Zint::Ptr<Zint::ActivityConfig>& activity,
                           const Zint::Ptr<const Zint::Clock>& clock,
                           const Zint::Ptr<Zint::PtrInterface>& bus)
    : NotifieeConst(activity, clock),
      bus_(bus),
      removable_(dynamic_cast<Platform::Removable*>(bus.ptr())) {
  if (removable_ == nullptr) {
    Zint::throwRangeException("removalWatchFactory: the bus tells nothing of removals");
  }
}

RemovalWatch::~RemovalWatch() = default;

void RemovalWatch::intervalIs(const Zint::Seconds& interval) {
  if (!(interval > 0)) Zint::throwRangeException("interval must be above 0");
  interval_ = interval;
}

void RemovalWatch::onTime() {
  const Ptr self(this);
  timeMinIs(Zint::now() + interval_);
  if (!removable_->isRemovalRequested()) return;
  removable_->letGo();
  ++removals_;
}

RemovalWatch::Ptr removalWatchFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                      const Zint::Ptr<const Zint::Clock>& clock,
                                      const Zint::Ptr<Zint::PtrInterface>& bus) {
  const RemovalWatch::Ptr watch = Zint::makePtr<RemovalWatch>(activity, clock, bus);
  watch->timeMinIs(0.0);
  return watch;
}

}  // namespace Driver
