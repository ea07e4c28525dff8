// What the patrol observes: its shadow, chips, stores, policies, and the clock. Used by Patrol
// alone.
#pragma once

#include <Driver/Patrol.h>

namespace Driver {

// Observes the shadow from inside; does not keep it alive.
class Patrol::SelfWatch : public Hardware::HardwareShadow::NotifieeConst {
 public:
  SelfWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol)
      : NotifieeConst(activity, Hardware::HardwareShadow::Ptr(&patrol.shadow_)), patrol_(&patrol) {
    isNonReferencingIs(true);
    // Nothing else: what the patrol tells costs nothing while nobody listens.
    Zint::Interest interest = 0;
    for (const Zint::AttributeId id : std::initializer_list<Zint::AttributeId>{
             Hardware::HardwareShadow::Id::state, Hardware::HardwareShadow::Id::overrideHardware,
             Hardware::HardwareShadow::Id::clock,
             Hardware::HardwareShadow::Id::minIntervalBetweenAudits,
             Hardware::HardwareShadow::Id::chipMemory, AuditedShadow::Id::sliceInterval}) {
      interest |= Zint::interestIn(id);
    }
    interestIs(interest);
  }
  void handleNotification(Zint::ActivityConfig*) override {
    if (patrol_ != nullptr) patrol_->handleAttribute(attribute());
  }
  void onChipMemory(const Hardware::ChipAddress& address) override {
    if (patrol_ != nullptr) patrol_->handleRegion(address);
  }
  void forget() { patrol_ = nullptr; }

 private:
  Patrol* patrol_;
};

class Patrol::ChipWatch : public Chip::NotifieeConst {
 public:
  ChipWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol, const Chip::Ptr& chip)
      : NotifieeConst(activity, chip), patrol_(&patrol) {}
  void onResets() override {
    if (patrol_ != nullptr) patrol_->handleReset(Chip::Ptr(const_cast<Chip*>(notifier())));
  }
  void onRestoring() override {
    if (patrol_ == nullptr || notifier()->isRestoring()) return;
    patrol_->handleRestored(Chip::Ptr(const_cast<Chip*>(notifier())));
  }
  void forget() {
    patrol_ = nullptr;
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

// A store was made anew: the last of its three buffers is there.
class Patrol::StoreWatch : public Hardware::ChipMemory::NotifieeConst {
 public:
  StoreWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol,
             const Hardware::ChipMemory::Ptr& region)
      : NotifieeConst(activity, region), patrol_(&patrol) {
    isNonReferencingIs(true);
    interestIs(Zint::interestIn(Hardware::ChipMemory::Id::initialized));
  }
  void handleNotification(Zint::ActivityConfig*) override {
    if (patrol_ == nullptr || notifier() == nullptr) return;
    const auto marks = patrol_->marks_.find(notifier());
    if (marks != patrol_->marks_.end()) patrol_->applyUnwritten(*marks->second);
    patrol_->handleKnown();
  }
  void forget() {
    patrol_ = nullptr;
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

// Knows whether a region that has left still exists.
class Patrol::RemovedWatch : public Hardware::ChipMemory::NotifieeConst {
 public:
  RemovedWatch(const Zint::Ptr<Zint::ActivityConfig>& activity,
               const Hardware::ChipMemory::Ptr& region)
      : NotifieeConst(activity, region) {
    isNonReferencingIs(true);
    interestIs(0);
  }
};

// What an entry is before anybody wrote it has changed, or whether it is compared.
class Patrol::PolicyWatch : public Policy::NotifieeConst {
 public:
  PolicyWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol,
              const Policy::Ptr& policy)
      : NotifieeConst(activity, policy), patrol_(&patrol) {
    isNonReferencingIs(true);
    interestIs(Zint::interestIn(Policy::Id::unwritten) | Zint::interestIn(Policy::Id::resetValue) |
               Zint::interestIn(Policy::Id::rule));
  }
  void handleNotification(Zint::ActivityConfig*) override {
    if (patrol_ == nullptr || notifier() == nullptr) return;
    const auto marks = patrol_->marks_.find(notifier()->chipMemory().ptr());
    if (marks != patrol_->marks_.end()) patrol_->applyUnwritten(*marks->second);
    patrol_->handleKnown();
  }
  void forget() {
    patrol_ = nullptr;
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

class Patrol::SliceClock : public Zint::Clock::NotifieeConst {
 public:
  SliceClock(const Zint::Ptr<Zint::ActivityConfig>& activity,
             const Zint::Ptr<const Zint::Clock>& clock, Patrol& patrol)
      : NotifieeConst(activity, clock, patrol.shadow_.hasNotificationActive()), patrol_(&patrol) {}
  void onTime() override {
    if (patrol_ == nullptr) return;
    const AuditedShadow::Ptr shadow(&patrol_->shadow_);
    patrol_->doSlice();
  }
  void forget() {
    patrol_ = nullptr;
    timeMinIs(Zint::never);
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

}  // namespace Driver
