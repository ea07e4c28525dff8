// Observers. A notifiee (reactor) watches one object, its notifier, and is told which attribute has
// changed:
//
//   class Watch : public Hardware::HardwareShadow::NotifieeConst {
//    public:
//     using NotifieeConst::NotifieeConst;
//     void onState() override { std::cout << notifier()->state() << "\n"; }
//   };
//   auto watch = Zint::makePtr<Watch>(activity, shadow);
//
// Invariants:
// 1. A notification is delivered synchronously, on the thread of the activity, in the order of
//    registration.
// 2. A walk tells those that were registered when it began: one that unregisters meanwhile is not
//    told, one that registers waits for the next change.
// 3. The notifier and the notifiee that is being told outlive the call, whatever it drops.
// 4. An exception never leaves a handler: it is traced at level 0 by the runtime's handle "Zint"
//    and reported to the notifiee.
// 5. A notifiee holds a counted reference to its notifier (until isNonReferencingIs(true)); a
//    notifier holds none to its notifiees.
#pragma once

#include <Zint/Api.h>
#include <Zint/Ptr.h>
#include <Zint/PtrInterface.h>
#include <Zint/Types.h>
#include <cxxabi.h>

namespace Zint {

class ActivityConfig;

class UMBRA_API NotifieeConst : public PtrInterface {
 public:
  // `notifier` may be null. One that is not `active` is only bound: it takes no place in the
  // notifier's list until it is switched on.
  NotifieeConst(const Ptr<ActivityConfig>& activity, const Ptr<const PtrInterface>& notifier,
                bool active = true);

  void hasNotificationActiveIs(bool active) override;
  void zeroReferencesIs(bool zero) override;
  const Type* fwkType() const override;

 protected:
  ~NotifieeConst() override;

 public:
  // Replaces what is watched; null for nothing.
  virtual void notifierIs(const Ptr<const PtrInterface>& notifier);
  virtual void zintFwkActivityIs(const Ptr<ActivityConfig>& activity);
  // Marks this reactor (un)fit to be told anything: its owner is being destroyed.
  virtual void zintDoZombieReactors(bool zombie);
  // Called by the runtime when `attribute()` has changed; typed notifiees dispatch from here.
  virtual void handleNotification(ActivityConfig* activity);
  virtual void onNotificationException(AttributeId attribute);

  const PtrInterface* notifier() const { return notifier_; }
  const Ptr<ActivityConfig>& zintFwkActivity() const { return activity_; }
  // The attribute that is being announced.
  AttributeId attribute() const { return attribute_; }

  bool isRegisteredNotifiee() const { return registered_; }
  // In or out of the notifier's list. Out of it, a counted notifier is kept, another forgotten.
  void isRegisteredNotifieeIs(bool registered);

  bool isNonReferencing() const { return nonReferencing_; }
  // True watches without keeping the notifier alive; the notifier is null once it has gone.
  void isNonReferencingIs(bool nonReferencing);

  // Whether a notification may be delivered now.
  bool isTold() const { return hasNotificationActive() && !zintMarkedForDeletion(); }

  // Runs `handler` as the reaction to `attribute`: only if this may be told, and under the guard.
  template <class Handler>
  void guarded(AttributeId attribute, Handler handler) {
    if (!isTold()) return;
    const AttributeId outer = std::exchange(attribute_, attribute);
    try {
      handler();
    } catch (abi::__forced_unwind&) {
      throw;
    } catch (...) {
      exceptionReported(attribute);
    }
    attribute_ = outer;
  }

 private:
  friend class PtrInterface;

  // Call it from a catch clause only.
  [[gnu::cold, gnu::noinline]] void exceptionReported(AttributeId attribute);

  const PtrInterface* notifier_ = nullptr;
  Ptr<ActivityConfig> activity_;
  AttributeId attribute_ = 0;
  bool registered_ = false;
  bool nonReferencing_ = false;
};

// The same as the observer `Const` of an `Object`, for one that may change what it observes.
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

// One walk over the notifiees of an object (invariants 2 and 3). The place to put a loop body:
//
//   for (NotifieeWalk walk(*this); NotifieeConst* notifiee = walk.next();) ...
class UMBRA_API NotifieeWalk {
 public:
  explicit NotifieeWalk(const PtrInterface& notifier);
  ~NotifieeWalk();
  NotifieeWalk(const NotifieeWalk&) = delete;
  NotifieeWalk& operator=(const NotifieeWalk&) = delete;

  // The next notifiee, held until the next call; null at the end.
  NotifieeConst* next();

 private:
  Ptr<const PtrInterface> notifier_;
  NotifieeList* list_;
  std::size_t next_ = 0;
  std::size_t end_ = 0;
  Ptr<NotifieeConst> current_;
};

template <class N, class Tell>
void PtrInterface::notifyEach(AttributeId attribute, Tell tell) const {
  if (notifiees_ == nullptr) return;
  NotifieeWalk walk(*this);
  while (NotifieeConst* notifiee = walk.next()) {
    if (auto* typed = dynamic_cast<N*>(notifiee)) {
      typed->guarded(attribute, [&] { tell(*typed); });
    }
  }
}

}  // namespace Zint
