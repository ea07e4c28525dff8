#include <Zint/Activity.h>
#include <Zint/Notifiee.h>
#include <Zint/ObjectText.h>
#include <Zint/Trace.h>
#include <Zint/Type.h>
#include <algorithm>
#include <vector>

namespace Zint {

// The notifiees of one object. While walks are under way, one that leaves becomes a hole, so that
// positions stay; the last walk to end closes the holes.
class NotifieeList {
 public:
  void add(NotifieeConst* notifiee) { members_.push_back(notifiee); }

  void del(NotifieeConst* notifiee) {
    auto place = std::find(members_.begin(), members_.end(), notifiee);
    if (walks_ == 0) {
      members_.erase(place);
    } else {
      *place = nullptr;
      holes_ = true;
    }
  }

  void walkBegun() { ++walks_; }
  void walkEnded() {
    if (--walks_ == 0 && std::exchange(holes_, false)) std::erase(members_, nullptr);
  }

  std::size_t size() const { return members_.size(); }
  NotifieeConst* operator[](std::size_t i) const { return members_[i]; }
  U32 count() const {
    return static_cast<U32>(members_.size()) -
           static_cast<U32>(std::count(members_.begin(), members_.end(), nullptr));
  }

 private:
  std::vector<NotifieeConst*> members_;
  U32 walks_ = 0;
  bool holes_ = false;
};

// The one place where what a handler threw is made visible. Call it from a catch clause only.
void exceptionTraced(const char* where, const Type* type, AttributeId attribute) noexcept {
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
  } catch (...) {  // no memory left even to say so
  }
}

NotifieeConst::NotifieeConst(const Ptr<ActivityConfig>& activity,
                             const Ptr<const PtrInterface>& notifier, bool active)
    : activity_(activity) {
  PtrInterface::hasNotificationActiveIs(active);
  NotifieeConst::notifierIs(notifier);
}

NotifieeConst::~NotifieeConst() { NotifieeConst::notifierIs(nullptr); }

// Leaves the list before the destructors run: nothing is told to a half-destroyed notifiee.
void NotifieeConst::zeroReferencesIs(bool zero) {
  isRegisteredNotifieeIs(false);
  PtrInterface::zeroReferencesIs(zero);
}

void NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier_ == notifier.ptr()) return;
  const bool place = notifier != nullptr && (hasNotificationActive() || nonReferencing_);
  if (place) notifier->notifieeAdd(this);  // may lack memory: nothing has changed so far
  if (registered_) notifier_->notifieeDel(this);
  registered_ = place;
  const PtrInterface* old = std::exchange(notifier_, notifier.ptr());
  if (nonReferencing_) return;
  if (notifier_ != nullptr) notifier_->referencesInc();
  if (old != nullptr) old->referencesDec();
}

void NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered_ == registered || notifier_ == nullptr) return;
  registered ? notifier_->notifieeAdd(this) : notifier_->notifieeDel(this);
  registered_ = registered;
  if (!registered && nonReferencing_) notifier_ = nullptr;
}

void NotifieeConst::isNonReferencingIs(bool nonReferencing) {
  if (nonReferencing == nonReferencing_) return;
  if (nonReferencing) isRegisteredNotifieeIs(true);  // the list is how it learns of the end
  nonReferencing_ = nonReferencing;
  if (notifier_ == nullptr) return;
  nonReferencing ? notifier_->referencesDec() : notifier_->referencesInc();
}

void NotifieeConst::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  if (!nonReferencing_) isRegisteredNotifieeIs(active);
  PtrInterface::hasNotificationActiveIs(active);
}

void NotifieeConst::zintFwkActivityIs(const Ptr<ActivityConfig>& activity) { activity_ = activity; }

void NotifieeConst::zintDoZombieReactors(bool zombie) { zintMarkedForDeletionIs(zombie); }

void NotifieeConst::handleNotification(ActivityConfig*) {}

void NotifieeConst::onNotificationException(AttributeId) {}

const Type* NotifieeConst::fwkType() const { return &notifieeType; }

// Called while the exception is being handled: the thread cannot be ended in here.
void NotifieeConst::exceptionReported(AttributeId attribute) {
  exceptionTraced("a handler", notifier_ == nullptr ? fwkType() : notifier_->fwkType(), attribute);
  try {
    onNotificationException(attribute);
  } catch (...) {
    exceptionTraced("onNotificationException", fwkType(), attribute);
  }
}

NotifieeWalk::NotifieeWalk(const PtrInterface& notifier)
    : notifier_(&notifier), list_(notifier.notifiees_) {
  if (list_ == nullptr) return;
  list_->walkBegun();
  end_ = list_->size();
}

NotifieeWalk::~NotifieeWalk() {
  if (list_ != nullptr) list_->walkEnded();
}

NotifieeConst* NotifieeWalk::next() {
  current_ = nullptr;  // first: its end may unregister the next one
  while (next_ < end_) {
    if (NotifieeConst* notifiee = (*list_)[next_++]; notifiee != nullptr) {
      current_ = notifiee;
      return notifiee;
    }
  }
  return nullptr;
}

// The walk's steps stand in line here: a notification costs little more than the handlers' calls.
[[gnu::flatten]] void PtrInterface::notifyAll(AttributeId attribute) const {
  NotifieeWalk walk(*this);
  while (NotifieeConst* notifiee = walk.next()) {
    notifiee->guarded(attribute,
                      [notifiee] { notifiee->handleNotification(notifiee->activity_.ptr()); });
  }
}

void PtrInterface::notifieeAdd(NotifieeConst* notifiee) const {
  if (notifiees_ == nullptr) notifiees_ = new NotifieeList;
  notifiees_->add(notifiee);
}

void PtrInterface::notifieeDel(NotifieeConst* notifiee) const { notifiees_->del(notifiee); }

U32 PtrInterface::notifieesCounted() const { return notifiees_->count(); }

void PtrInterface::notifieeDelAll() const {
  NotifieeWalk walk(*this);
  while (NotifieeConst* notifiee = walk.next()) notifiee->notifierIs(nullptr);
}

PtrInterface::~PtrInterface() {
  // One that threw in its constructor still holds its first reference.
  ZINT_ASSERT("Zint/PtrInterface", references_ == underDestruction || references_ == 1);
  if (hasTextNumber_) objectTextForgotten(this);
  if (notifiees_ == nullptr) return;
  references_ = underDestruction;
  notifieeDelAll();
  delete notifiees_;
}

}  // namespace Zint
