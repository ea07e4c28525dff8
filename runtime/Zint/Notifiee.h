// Observers. A notifiee (reactor) observes one object, its notifier, and is notified of the
// attribute that has changed:
//
//   class Watch : public Hardware::HardwareShadow::NotifieeConst {
//    public:
//     using NotifieeConst::NotifieeConst;
//     void onState() override { std::cout << notifier()->state() << "\n"; }
//   };
//   auto watch = Zint::makePtr<Watch>(activity, shadow);
//
// Invariants:
// 1. A notification is delivered synchronously, on the thread of the activity, in the order of the
//    notifiees' places: the order in which they registered. A notifiee that is switched off and on
//    (hasNotificationActiveIs) keeps its place, one that registers anew takes the last one.
// 2. A walk is a snapshot. It notifies each notifiee that was registered and switched on when the
//    walk began, and is so at its turn. One that has unregistered is not notified. One that was
//    switched off and on again is. One that registered, or was off at the beginning, waits for the
//    next change.
// 3. The notifier and the notifiee that is being notified outlive the call, whatever it drops.
// 4. An exception never leaves a handler: it is traced at level 0 by the runtime's handle "Zint"
//    and reported to the notifiee.
// 5. A notifiee holds a counted reference to its notifier (until isNonReferencingIs(true)); a
//    notifier holds none to its notifiees. Both kinds are notified alike.
#pragma once

#include <Zint/Api.h>
#include <Zint/Ptr.h>
#include <Zint/PtrInterface.h>
#include <Zint/Types.h>
#include <cxxabi.h>

#include <memory>

namespace Zint {

class ActivityConfig;

class UMBRA_API NotifieeConst : public PtrInterface {
 public:
  // `notifier` may be null. A notifiee that is not `active` takes no place in the notifier's list
  // until it is switched on.
  NotifieeConst(const Ptr<ActivityConfig>& activity, const Ptr<const PtrInterface>& notifier,
                bool active = true);

  void hasNotificationActiveIs(bool active) override;
  void zeroReferencesIs(bool zero) override;
  const Type* fwkType() const override;

 protected:
  ~NotifieeConst() override;

 public:
  // Replaces the notifier; null for none. The old place is given up.
  virtual void notifierIs(const Ptr<const PtrInterface>& notifier);
  virtual void zintFwkActivityIs(const Ptr<ActivityConfig>& activity);
  // True: the owner is being destroyed, so this is not notified any more. False removes the mark.
  virtual void zintDoZombieReactors(bool zombie);
  // Called by the runtime when `attribute()` has changed; typed notifiees dispatch from here.
  virtual void handleNotification(ActivityConfig* activity);
  virtual void onNotificationException(AttributeId attribute);

  const PtrInterface* notifier() const { return notifier_; }
  const Ptr<ActivityConfig>& zintFwkActivity() const { return activity_; }
  // The attribute whose change this is being notified of.
  AttributeId attribute() const { return attribute_; }

  bool isRegisteredNotifiee() const { return registered_; }
  // Enters or leaves the notifier's list. After leaving, a counted notifier is kept, another one is
  // forgotten.
  void isRegisteredNotifieeIs(bool registered);

  // The attributes that this is notified of: every one by default. A change takes effect at once,
  // also for a walk under way. Wake-ups of a clock do not depend on it.
  Interest interest() const { return interest_ == nullptr ? everyAttribute : *interest_; }
  void interestIs(Interest interest);

  bool isNonReferencing() const { return nonReferencing_; }
  // True: does not keep the notifier alive, and the notifier is null once it is destroyed.
  void isNonReferencingIs(bool nonReferencing);

  // Whether a notification may be delivered now.
  bool isNotifiable() const { return hasNotificationActive() && !zintMarkedForDeletion(); }

  // Runs `handler` as the reaction to `attribute`: only if this is notifiable, and under the guard.
  template <class Handler>
  void runGuarded(AttributeId attribute, Handler handler) {
    if (!isNotifiable()) return;
    const AttributeId outer = std::exchange(attribute_, attribute);
    try {
      handler();
    } catch (abi::__forced_unwind&) {  // cancels the thread; must not be stopped
      throw;
    } catch (...) {
      reportException(attribute);
    }
    attribute_ = outer;
  }

 private:
  friend class PtrInterface;

  void enterList();
  void leaveList();
  // Call it from a catch clause only.
  [[gnu::cold, gnu::noinline]] void reportException(AttributeId attribute);

  bool hasPlace_ = false;    // in the notifier's list
  bool registered_ = false;  // implies a place; one with a place may be switched off
  bool nonReferencing_ = false;
  const PtrInterface* notifier_ = nullptr;
  Ptr<ActivityConfig> activity_;
  AttributeId attribute_ = 0;
  std::unique_ptr<Interest> interest_;  // null for everything: most have no other
};

// The same as the notifiee `Const` of an `Object`, for one that may change its notifier.
template <class Const, class Object>
class NotifieeOf : public Const {
 public:
  template <class... More>
  NotifieeOf(const Ptr<ActivityConfig>& activity, const Ptr<Object>& object, More... more)
      : Const(activity, object, more...) {}
  Object* notifier() const { return const_cast<Object*>(Const::notifier()); }

 protected:
  ~NotifieeOf() override = default;
};

// One walk over the notifiees of an object (invariants 2 and 3), on the stack:
//
//   for (NotifieeWalk walk(*this); NotifieeConst* notifiee = walk.next(everyAttribute);) ...
class UMBRA_API NotifieeWalk {
 public:
  explicit NotifieeWalk(const PtrInterface& notifier);
  ~NotifieeWalk();
  NotifieeWalk(const NotifieeWalk&) = delete;
  NotifieeWalk& operator=(const NotifieeWalk&) = delete;

  // The next notifiee that is interested in one of these, held until the next call; null at the
  // end.
  NotifieeConst* next(Interest interest);

 private:
  Ptr<const PtrInterface> notifier_;
  NotifieeList* list_;
  std::size_t next_ = 0;  // places
  std::size_t end_ = 0;
  std::size_t start_ = 0;  // see NotifieeList::beginWalk
  std::size_t outerStart_ = 0;
  Ptr<NotifieeConst> current_;
};

template <class N, class Handler>
void PtrInterface::notifyEach(AttributeId attribute, Handler handler) const {
  if (!isObserved(attribute)) return;
  NotifieeWalk walk(*this);
  while (NotifieeConst* notifiee = walk.next(interestIn(attribute))) {
    if (auto* typed = dynamic_cast<N*>(notifiee)) {
      typed->runGuarded(attribute, [&] { handler(*typed); });
    }
  }
}

}  // namespace Zint
