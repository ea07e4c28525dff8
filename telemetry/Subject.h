// One object that has a row in the live view.
#pragma once

#include <Zint/Notifiee.h>
#include <telemetry/RegionFigures.h>
#include <telemetry/RowSource.h>

#include <string>
#include <vector>

namespace Telemetry {

enum class TableId : U32 { shadow, reader, region, alarm, chip, governor, publisher };
constexpr U32 tableIds = 7;

// A pointer that does not keep its object alive.
class WeakPointer : public Zint::NotifieeConst {
 public:
  WeakPointer(const Zint::Ptr<Zint::ActivityConfig>& activity,
              const Zint::Ptr<const Zint::PtrInterface>& object)
      : NotifieeConst(activity, object) {
    interestIs(0);
    isNonReferencingIs(true);
  }
};

struct Subject {
  Subject() = default;
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;

  static constexpr U32 noSlot = ~0u;

  const Zint::PtrInterface* object() const {
    return held != nullptr ? held.ptr() : weak->notifier();
  }
  // What it is matched by with the row of an earlier driver.
  std::string key() const;

  TableId table = TableId::region;
  std::string name;
  std::string shadow;  // the name of its shadow; empty for a shadow
  std::string chip;    // of a region
  const Zint::Type* type = nullptr;
  // One of them.
  Zint::Ptr<const Zint::PtrInterface> held = nullptr;
  Zint::Ptr<WeakPointer> weak = nullptr;
  RegionFigures figures = {};  // of a region, a chip, a shadow
  S64 since = 0;               // wall clock: the totals count from then on
  std::vector<Total> totals = {};
  U32 slot = noSlot;   // its row
  bool isDue = false;  // has changed since it was published
};

}  // namespace Telemetry
