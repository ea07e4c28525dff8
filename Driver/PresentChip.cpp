#include <Driver/PresentChip.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>

namespace Driver {

PresentChip::PresentChip(Zint::Name name, const Hardware::ChipHam::Ptr& ham)
    : Chip(std::move(name), ham), presence_(dynamic_cast<Platform::Presence*>(ham.ptr())) {
  if (presence_ != nullptr) return;
  Zint::throwRangeException(Zint::format(
      "%s: its access method does not know whether the chip is present", this->name().c_str()));
}

PresentChip::~PresentChip() = default;

bool PresentChip::isPresent() {
  const Ptr self(this);
  const Hardware::ChipHam::Ptr held = chipHam();
  return presence_->isPresent() && Chip::isPresent();
}

Zint::Ptr<PresentChip> presentChipFactory(Zint::Name name, const Hardware::ChipHam::Ptr& ham) {
  return Zint::makePtr<PresentChip>(std::move(name), ham);
}

}  // namespace Driver
