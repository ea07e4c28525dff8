#include <Zint/Notifiee.h>

#include <Zint/Activity.h>
#include <Zint/NotifieeList.h>
#include <Zint/Trace.h>
#include <Zint/Type.h>

namespace Zint {

namespace {

// The one place where what a handler threw is made visible. Call it from a catch clause only.
void traceException(const char* where, const Type* type, AttributeId attribute) noexcept {
  try {
    std::string what = "an exception of another kind";
    try {
      throw;  // cppcheck-suppress rethrowNoCurrentException
    } catch (const std::exception& exception) {
      what = exception.what();
    } catch (...) {
    }
    ZINT_TRACE(0, "exception in " << where << " of " << type->name << " attribute " << attribute
                                  << ": " << what);
  } catch (...) {  // no memory for this line either
  }
}

}  // namespace

NotifieeConst::NotifieeConst(const Ptr<ActivityConfig>& activity,
                             const Ptr<const PtrInterface>& notifier, bool active)
    : activity_(activity) {
  PtrInterface::hasNotificationActiveIs(active);
  NotifieeConst::notifierIs(notifier);
}

NotifieeConst::~NotifieeConst() { NotifieeConst::notifierIs(nullptr); }

// Leaves the list before the destructors run: a half-destroyed notifiee is not notified.
void NotifieeConst::zeroReferencesIs(bool zero) {
  leaveList();
  if (nonReferencing_) notifier_ = nullptr;
  PtrInterface::zeroReferencesIs(zero);
}

void NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier_ == notifier.ptr()) return;
  const bool registers = notifier != nullptr && (hasNotificationActive() || nonReferencing_);
  if (registers) notifier->notifieeAdd(this);  // may lack memory: nothing has changed so far
  leaveList();
  hasPlace_ = registered_ = registers;
  const PtrInterface* old = std::exchange(notifier_, notifier.ptr());
  if (nonReferencing_) return;
  if (notifier_ != nullptr) notifier_->referencesInc();
  if (old != nullptr) old->referencesDec();
}

void NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered_ == registered || notifier_ == nullptr) return;
  if (registered) return enterList();
  leaveList();
  if (nonReferencing_) notifier_ = nullptr;
}

void NotifieeConst::interestIs(Interest interest) {
  if (interest == this->interest()) return;
  interest_ = interest == everyAttribute ? nullptr : std::make_unique<Interest>(interest);
  if (registered_) notifier_->notifieeList()->updateInterest();
}

void NotifieeConst::isNonReferencingIs(bool nonReferencing) {
  if (nonReferencing == nonReferencing_) return;
  // The list is how it learns that the notifier is destroyed.
  if (nonReferencing) isRegisteredNotifieeIs(true);
  nonReferencing_ = nonReferencing;
  if (notifier_ == nullptr) return;
  nonReferencing ? notifier_->referencesDec() : notifier_->referencesInc();
}

void NotifieeConst::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  if (hasPlace_) notifier_->notifieeList()->recordSwitch(this, !active);
  if (!nonReferencing_ && notifier_ != nullptr) {
    if (active) {
      enterList();
    } else if (registered_) {
      registered_ = false;
      notifier_->notifieeList()->changeRegistered(false);
    }
  }
  PtrInterface::hasNotificationActiveIs(active);
}

// REQUIRES: a notifier. Takes a place only if this has none.
void NotifieeConst::enterList() {
  if (registered_) return;
  if (hasPlace_) {
    registered_ = true;
    notifier_->notifieeList()->changeRegistered(true);
  } else {
    notifier_->notifieeAdd(this);
    hasPlace_ = registered_ = true;
  }
}

void NotifieeConst::leaveList() {
  if (hasPlace_) notifier_->notifieeList()->remove(this, registered_);
  hasPlace_ = registered_ = false;
}

void NotifieeConst::zintFwkActivityIs(const Ptr<ActivityConfig>& activity) { activity_ = activity; }

void NotifieeConst::zintDoZombieReactors(bool zombie) { zintMarkedForDeletionIs(zombie); }

void NotifieeConst::handleNotification(ActivityConfig*) {}

void NotifieeConst::onNotificationException(AttributeId) {}

const Type* NotifieeConst::fwkType() const { return &notifieeType; }

// Called while the exception is being handled: the thread cannot be cancelled in here.
void NotifieeConst::reportException(AttributeId attribute) {
  traceException("a handler", notifier_ == nullptr ? fwkType() : notifier_->fwkType(), attribute);
  try {
    onNotificationException(attribute);
  } catch (...) {
    traceException("onNotificationException", fwkType(), attribute);
  }
}

NotifieeWalk::NotifieeWalk(const PtrInterface& notifier)
    : notifier_(&notifier), list_(notifier.notifieeList()) {
  if (list_ == nullptr) return;
  list_->beginWalk(start_, outerStart_);
  end_ = list_->size();
}

NotifieeWalk::~NotifieeWalk() {
  if (list_ != nullptr) list_->endWalk(outerStart_);
}

NotifieeConst* NotifieeWalk::next(Interest interest) {
  current_ = nullptr;  // first: its destructor may unregister the next one
  while (next_ < end_) {
    const std::size_t place = next_++;
    NotifieeConst* notifiee = (*list_)[place];
    if (notifiee != nullptr && (notifiee->interest() & interest) != 0 &&
        list_->wasActive(place, start_)) {
      current_ = notifiee;
      return notifiee;
    }
  }
  return nullptr;
}

// flatten inlines the walk: a notification costs little more than the handlers' calls.
[[gnu::flatten]] void PtrInterface::notifyAll(AttributeId attribute) const {
  NotifieeWalk walk(*this);
  while (NotifieeConst* notifiee = walk.next(interestIn(attribute))) {
    notifiee->runGuarded(attribute,
                         [notifiee] { notifiee->handleNotification(notifiee->activity_.ptr()); });
  }
}

}  // namespace Zint
