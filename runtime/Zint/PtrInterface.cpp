#include <Zint/PtrInterface.h>

#include <Zint/Assert.h>
#include <Zint/Notifiee.h>
#include <Zint/NotifieeList.h>
#include <Zint/ObjectText.h>
#include <Zint/Type.h>

namespace Zint {

void PtrInterface::hasNotificationActiveIs(bool active) { hasNotificationActive_ = active; }

U32 PtrInterface::zintAuditErrors() const {
  const bool countBroken = references_ == 0;
  return (countBroken ? 1 : 0) + auditErrors();
}

U32 PtrInterface::auditErrors() const { return 0; }

void PtrInterface::isNondestructingIs(bool nondestructing) { nondestructing_ = nondestructing; }

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) delete this;
}

const Type* PtrInterface::fwkType() const { return &ptrInterfaceType; }

// The text number is given back last: a notifiee that is notified here may still ask for the text.
PtrInterface::~PtrInterface() {
  // An object whose constructor threw still has its first reference.
  ZINT_ASSERT("Zint/PtrInterface", references_ == underDestruction || references_ == 1);
  if (notifiees_ != nullptr) {
    references_ = underDestruction;
    notifieeDelAll();
    delete notifieeList();
  }
  if (hasTextNumber_) forgetObjectText(this);
}

void PtrInterface::notifieeAdd(NotifieeConst* notifiee) const {
  if (notifiees_ == nullptr) notifiees_ = new NotifieeList;
  notifieeList()->add(notifiee);
}

// Those that are switched off have a place, too.
void PtrInterface::notifieeDelAll() const {
  if (notifiees_ == nullptr) return;
  NotifieeWalk walk(*this);  // places do not move
  const NotifieeList& list = *notifieeList();
  for (std::size_t place = 0, end = list.size(); place < end; ++place) {
    const Ptr<NotifieeConst> notifiee(list[place]);
    if (notifiee == nullptr) continue;
    notifiee->notifierIs(nullptr);
    // It may be overridden: nothing may be left that points to this object.
    if (list[place] != nullptr) notifiee->NotifieeConst::notifierIs(nullptr);
  }
}

U32 PtrInterface::countNotifiees() const { return notifieeList()->registered(); }

void PtrInterface::lastReferenceDel() const {
  references_ = underDestruction;
  const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
}

}  // namespace Zint
