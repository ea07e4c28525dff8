// Small observers and counted objects that the runtime's tests share.
#pragma once

#include <Zint/Activity.h>
#include <Zint/Exception.h>
#include <support/Death.h>

#include <functional>
#include <string>
#include <vector>

namespace Probes {

// A counted object that says whether it is alive.
class Life : public Zint::PtrInterface {
 public:
  explicit Life(bool& alive) : alive_(alive) { alive_ = true; }

 protected:
  ~Life() override { alive_ = false; }

 private:
  bool& alive_;
};

// An entity without attributes of its own that says whether it is alive.
class Thing : public Zint::Entity {
 public:
  explicit Thing(Zint::Name name, bool* alive = nullptr) : Entity(std::move(name)), alive_(alive) {
    if (alive_ != nullptr) *alive_ = true;
  }

 protected:
  ~Thing() override {
    if (alive_ != nullptr) *alive_ = false;
  }

 private:
  bool* alive_;
};

// Records every notification, then runs its reaction.
class Watch : public Zint::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;

  void handleNotification(Zint::ActivityConfig* activity) override {
    told.push_back(attribute());
    toldOn = activity;
    if (reaction) reaction();
  }
  void onNotificationException(Zint::AttributeId attribute) override {
    reported.push_back(attribute);
    if (onReport) onReport();
  }

  std::vector<Zint::AttributeId> told;
  std::vector<Zint::AttributeId> reported;
  Zint::ActivityConfig* toldOn = nullptr;
  std::function<void()> reaction;
  std::function<void()> onReport;

 protected:
  ~Watch() override = default;
};

// Records the time of every wake-up, then runs its reaction.
class Alarm : public Zint::Clock::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;

  void onTime() override {
    fired.push_back(Zint::now());
    if (reaction) reaction();
  }
  void onNotificationException(Zint::AttributeId attribute) override {
    reported.push_back(attribute);
  }

  std::vector<Zint::Seconds> fired;
  std::vector<Zint::AttributeId> reported;
  std::function<void()> reaction;

 protected:
  ~Alarm() override = default;
};

// The message of the range exception that `statement` raises; a failed expectation when it raises
// none.
template <class Statement>
std::string rangeMessage(Statement statement) {
  try {
    statement();
  } catch (const Zint::RangeException& exception) {
    return exception.what();
  }
  ADD_FAILURE() << "no range exception";
  return "";
}

}  // namespace Probes
