// The base of every counted object: a reference count, the list of its notifiees, and the hooks
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

// The head of an object's list of notifiees: the attributes that any registered one is interested
// in.
struct NotifieeListHead {
  Interest interest = 0;
};

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
  // Called with true when the last counted reference is gone; destroys the object.
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

  // A new object has the count 1 (Zint::makePtr takes that reference over).
  std::size_t references() const { return references_; }
  // Whether the last reference is gone: pointers that are made from now on do not keep the object.
  bool isUnderDestruction() const { return references_ >= underDestruction; }
  void referencesInc() const { ++references_; }
  void referencesDec() const {
    if (--references_ == 0) [[unlikely]]
      lastReferenceDel();
  }

  // Notifies the notifiees that are interested in it, in the order of their places, that the
  // attribute has changed.
  void notify(AttributeId attribute) const {
    if (isObserved(attribute)) [[unlikely]]
      notifyAll(attribute);
  }

  // Calls `handler` for every interested notifiee of type N, in the order of their places and under
  // the exception guard: for changes that carry a key. Defined in <Zint/Notifiee.h>.
  template <class N, class Handler>
  void notifyEach(AttributeId attribute, Handler handler) const;

  // The text form of this object has a number, which the destructor gives back.
  void recordTextNumber() const { hasTextNumber_ = true; }

  // The number of registered notifiees; one that is switched off does not count.
  U32 notifiees() const { return notifiees_ == nullptr ? 0 : countNotifiees(); }
  // Whether a registered notifiee is interested in the attribute.
  bool isObserved(AttributeId attribute) const {
    return notifiees_ != nullptr && (notifiees_->interest & interestIn(attribute)) != 0;
  }

 protected:
  // Unregisters every notifiee; they forget this object.
  void notifieeDelAll() const;

 private:
  friend class NotifieeConst;
  friend class NotifieeWalk;

  // While the destructor runs, the count is this value, so that temporary pointers cannot reach
  // zero again.
  static constexpr std::size_t underDestruction = ~(~std::size_t{0} >> 1);

  [[gnu::cold, gnu::noinline]] void lastReferenceDel() const;
  void notifyAll(AttributeId attribute) const;
  U32 countNotifiees() const;
  inline NotifieeList* notifieeList() const;
  void notifieeAdd(NotifieeConst* notifiee) const;

  mutable std::size_t references_ = 1;
  mutable NotifieeListHead* notifiees_ = nullptr;  // owned; null until the first registration
  // One byte: derived classes use the three after it.
  mutable bool hasTextNumber_ : 1 = false;
  bool hasNotificationActive_ : 1 = false;
  bool nondestructing_ : 1 = true;
  bool markedForDeletion_ : 1 = false;
};

}  // namespace Zint
