// The base of every counted object: a reference count, the list of who observes it, and the hooks
// that its classes override.
//
// THE COUNT IS NOT ATOMIC: an object belongs to the thread of its activity, and only that thread
// may touch it or any pointer to it.
//
// RE-ENTRANCY, the one rule: whoever calls out (a virtual operation, a notification, an access
// method) holds itself and copies its `const Ptr&` arguments first; after that only the copy is
// used. What may be changed by the call is compared with a mark (<Zint/Epoch.h>).
#pragma once

#include <Zint/Api.h>
#include <Zint/Types.h>

namespace Zint {

class NotifieeConst;
class NotifieeList;
struct Type;

class UMBRA_API PtrInterface {
 public:
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  // --- Virtual operations, in slot order -------------------------------------------------------
  // Switches the reactors of this object on or off.
  virtual void hasNotificationActiveIs(bool active);
  // The number of broken rules that the runtime sees in this object, auditErrors() among them.
  virtual U32 zintAuditErrors() const;
  // The number of broken rules that the class itself sees; 0 for a sound object.
  virtual U32 auditErrors() const;
  // False announces that the object is being deleted.
  virtual void isNondestructingIs(bool nondestructing);
  // Called with true when the last counted reference has gone; ends in the destructor.
  virtual void zeroReferencesIs(bool zero);
  virtual const Type* fwkType() const;

 protected:
  PtrInterface() = default;
  virtual ~PtrInterface();

 public:
  bool hasNotificationActive() const { return hasNotificationActive_; }
  bool isNondestructing() const { return nondestructing_; }
  bool zintMarkedForDeletion() const { return markedForDeletion_; }
  void zintMarkedForDeletionIs(bool marked) { markedForDeletion_ = marked; }

  // The count is 1 at birth (Zint::makePtr takes that reference over).
  std::size_t references() const { return references_; }
  void referencesInc() const { ++references_; }
  void referencesDec() const {
    if (--references_ == 0) [[unlikely]]
      lastReferenceDel();
  }

  // Tells every notifiee, in the order of registration, that the attribute has changed.
  void notify(AttributeId attribute) const {
    if (notifiees_ != nullptr) [[unlikely]]
      notifyAll(attribute);
  }

  // Calls `tell` for every active notifiee of type N, in the order of registration and under the
  // exception guard: for changes that carry a key. Defined in <Zint/Notifiee.h>.
  template <class N, class Tell>
  void notifyEach(AttributeId attribute, Tell tell) const;

  // A number in texts was given to this object: it must be taken back when the object goes.
  void textNumberGiven() const { hasTextNumber_ = true; }

  // The number of registered notifiees.
  U32 notifiees() const { return notifiees_ == nullptr ? 0 : notifieesCounted(); }

 protected:
  // Unregisters every notifiee; they forget this object.
  void notifieeDelAll() const;

 private:
  friend class NotifieeConst;
  friend class NotifieeWalk;

  // From the moment the last reference goes, the count stands this high, so that pointers made and
  // dropped while the object is being destroyed never reach zero a second time.
  static constexpr std::size_t underDestruction = ~(~std::size_t{0} >> 1);

  [[gnu::cold, gnu::noinline]] void lastReferenceDel() const;
  void notifyAll(AttributeId attribute) const;
  U32 notifieesCounted() const;
  void notifieeAdd(NotifieeConst* notifiee) const;
  void notifieeDel(NotifieeConst* notifiee) const;

  mutable std::size_t references_ = 1;
  mutable NotifieeList* notifiees_ = nullptr;  // owned; null until the first registration
  mutable bool hasTextNumber_ = false;
  bool hasNotificationActive_ = false;
  bool nondestructing_ = true;
  bool markedForDeletion_ = false;
};

}  // namespace Zint
