// Lets a chip go when the kernel asks for it: between two slices of the audit, so that the kernel
// waits for one of them at most and for the interval of this watch.
//
//   auto watch = Driver::removalWatchFactory(activity, clock, bus);   // bus: Platform::VfioDevice
//
// The chip's next access finds it absent, and the patrol is suspended until it has returned.
#pragma once

#include <Zint/Clock.h>
#include <platform/bus/Removable.h>

namespace Driver {

class UMBRA_API RemovalWatch : public Zint::Clock::NotifieeConst {
 public:
  using Ptr = Zint::Ptr<RemovalWatch>;

  // Holds the bus. Neither may be null, and the bus must be a Platform::Removable: range
  // exceptions.
  RemovalWatch(const Zint::Ptr<Zint::ActivityConfig>& activity,
               const Zint::Ptr<const Zint::Clock>& clock, const Zint::Ptr<Zint::PtrInterface>& bus);

  // How often it looks, in seconds of its clock: 0.01. REQUIRES: above 0 (range exception).
  Zint::Seconds interval() const { return interval_; }
  void intervalIs(const Zint::Seconds& interval);
  // How often it has let go.
  U32 removals() const { return removals_; }

  void onTime() override;

 protected:
  ~RemovalWatch() override;

 private:
  const Zint::Ptr<Zint::PtrInterface> bus_;
  Platform::Removable* const removable_;  // of the bus
  Zint::Seconds interval_ = 0.01;
  U32 removals_ = 0;
};

// Begins at once.
UMBRA_API RemovalWatch::Ptr removalWatchFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                                const Zint::Ptr<const Zint::Clock>& clock,
                                                const Zint::Ptr<Zint::PtrInterface>& bus);

}  // namespace Driver
