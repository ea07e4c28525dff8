#include <Zint/Assert.h>
#include <Zint/PtrInterface.h>
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

void PtrInterface::lastReferenceDel() const {
  references_ = underDestruction;
  const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
}

}  // namespace Zint
