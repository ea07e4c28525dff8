// The notifiees of a publisher. Each hands on what it is notified of, until it is closed.
#pragma once

#include <Driver/Descriptions.h>
#include <telemetry/Publishing.h>

#include <string>

namespace Telemetry {

// What all of them have in common: what they work for.
class PublishingWatch {
 public:
  virtual ~PublishingWatch() = default;
  void close() { publishing_ = nullptr; }

 protected:
  explicit PublishingWatch(Publishing* publishing) : publishing_(publishing) {}
  // Runs `handler` while the publisher is held.
  template <class Handler>
  void whileHeld(Handler handler) {
    if (publishing_ == nullptr) return;
    const Publisher::Ptr hold(&publishing_->publisher());
    handler(*publishing_);
  }

 private:
  Publishing* publishing_;
};

inline void closeWatch(const Zint::Ptr<Zint::NotifieeConst>& watch) {
  if (auto* closing = dynamic_cast<PublishingWatch*>(watch.ptr())) closing->close();
}

class PlainShadowWatch : public Hardware::HardwareShadow::NotifieeConst, public PublishingWatch {
 public:
  PlainShadowWatch(Publishing* publishing, Publishing::Shadow* shadow,
                   const Zint::Ptr<Zint::ActivityConfig>& activity,
                   const Hardware::HardwareShadow::Ptr& hardware)
      : NotifieeConst(activity, hardware), PublishingWatch(publishing), shadow_(shadow) {
    interestIs(Zint::interestIn(Hardware::HardwareShadow::Id::chipMemory));
    isNonReferencingIs(true);
  }
  void onChipMemory(const Hardware::ChipAddress& address) override {
    whileHeld([&](Publishing& publishing) {
      shadow_->changed.push_back(address);
      publishing.handleRegions();
    });
  }

 private:
  Publishing::Shadow* shadow_;
};

class AuditedShadowWatch : public Driver::AuditedShadow::NotifieeConst, public PublishingWatch {
 public:
  using Id = Driver::AuditedShadow::Id;

  AuditedShadowWatch(Publishing* publishing, Publishing::Shadow* shadow,
                     const Zint::Ptr<Zint::ActivityConfig>& activity,
                     const Driver::AuditedShadow::Ptr& audited)
      : NotifieeConst(activity, audited), PublishingWatch(publishing), shadow_(shadow) {
    interestIs(Zint::interestIn(Id::chipMemory) | Zint::interestIn(Id::finding) |
               Zint::interestIn(Id::pass) | Zint::interestIn(Id::patrolState) |
               Zint::interestIn(Id::turn));
    isNonReferencingIs(true);
  }
  void onChipMemory(const Hardware::ChipAddress& address) override {
    whileHeld([&](Publishing& publishing) {
      shadow_->changed.push_back(address);
      publishing.handleRegions();
    });
  }
  void onFinding(const Driver::Finding& finding) override {
    whileHeld([&](Publishing& publishing) { publishing.handleFinding(*shadow_, finding); });
  }
  void onPass(const Driver::PassResult& pass) override {
    whileHeld([&](Publishing& publishing) { publishing.handlePass(*shadow_, pass); });
  }
  void onPatrolState() override {
    whileHeld([&](Publishing& publishing) { publishing.handlePatrolState(*shadow_); });
  }
  void onTurn(const Driver::TurnResult& turn) override {
    whileHeld([&](Publishing& publishing) { publishing.handleTurn(*shadow_, turn); });
  }

 private:
  Publishing::Shadow* shadow_;
};

class DriverChipWatch : public Driver::Chip::NotifieeConst, public PublishingWatch {
 public:
  using Id = Driver::Chip::Id;

  DriverChipWatch(Publishing* publishing, Publishing::Chip* subject,
                  const Zint::Ptr<Zint::ActivityConfig>& activity, const Driver::Chip::Ptr& chip)
      : NotifieeConst(activity, chip), PublishingWatch(publishing), subject_(subject) {
    interestIs(Zint::interestIn(Id::isAbsent) | Zint::interestIn(Id::isRestoring) |
               Zint::interestIn(Id::resets));
  }
  void onAbsent() override { tell(Id::isAbsent); }
  void onRestoring() override { tell(Id::isRestoring); }
  void onResets() override { tell(Id::resets); }

 private:
  void tell(Zint::AttributeId attribute) {
    whileHeld([&](Publishing& publishing) { publishing.handleChip(*subject_, attribute); });
  }

  Publishing::Chip* subject_;
};

// Marks what changes in the policy of a region.
class PolicyWatch : public Driver::Policy::NotifieeConst, public PublishingWatch {
 public:
  using Id = Driver::Policy::Id;

  PolicyWatch(Publishing* publishing, Publishing::Region* subject,
              const Zint::Ptr<Zint::ActivityConfig>& activity, const Driver::Policy::Ptr& policy)
      : NotifieeConst(activity, policy), PublishingWatch(publishing), subject_(subject) {
    interestIs(Zint::interestIn(Id::rule) | Zint::interestIn(Id::isOnce) |
               Zint::interestIn(Id::mask) | Zint::interestIn(Id::unwritten) |
               Zint::interestIn(Id::resetValue) | Zint::interestIn(Id::auditEvery));
    isNonReferencingIs(true);
  }
  void handleNotification(Zint::ActivityConfig*) override {
    whileHeld([&](Publishing&) {
      const std::string name = Driver::policyType.attributeString(attribute()).bytes();
      std::string& changes = subject_->policyChanges;
      if (changes.find(name) == std::string::npos) changes += (changes.empty() ? "" : ", ") + name;
    });
  }

 private:
  Publishing::Region* subject_;
};

class AlarmBoardWatch : public Driver::AlarmBoard::NotifieeConst, public PublishingWatch {
 public:
  AlarmBoardWatch(Publishing* publishing, Publishing::Board* subject,
                  const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Driver::AlarmBoard::Ptr& board)
      : NotifieeConst(activity, board), PublishingWatch(publishing), subject_(subject) {
    interestIs(Zint::interestIn(Driver::AlarmBoard::Id::alarm));
    isNonReferencingIs(true);
  }
  void onAlarm(Zint::String8 name) override {
    whileHeld([&](Publishing& publishing) { publishing.handleAlarm(*subject_, name, true); });
  }

 private:
  Publishing::Board* subject_;
};

}  // namespace Telemetry
