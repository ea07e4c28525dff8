#include <Driver/Alarm.h>

#include <Driver/AlarmBoard.h>
#include <Driver/Driver.h>
#include <Zint/Enumeration.h>

namespace Driver {
namespace {

constexpr const char* alarmStateNames[] = {"cleared", "raised", "acknowledged"};
constexpr Zint::Enumeration alarmStates{"Alarm::State", "State", alarmStateNames};

}  // namespace

Alarm::Alarm(Zint::Name name, const AlarmRule::Ptr& rule, Zint::String8 subject)
    : Entity(std::move(name)), rule_(rule), subject_(std::move(subject)) {}

Alarm::~Alarm() = default;
Alarm::NotifieeConst::~NotifieeConst() = default;

const Zint::Type* Alarm::fwkType() const { return &alarmType; }

bool Alarm::doAcknowledge() {
  if (state_ != raised_) return false;
  const Ptr self(this);
  // One that is not cleared has a board. To read its clock is a call out.
  const Zint::Ptr<AlarmBoard> board(static_cast<AlarmBoard*>(parent()));
  const Zint::Seconds time = board->clock()->time();
  if (state_ != raised_) return false;
  state_ = acknowledged_;
  acknowledgedTime_ = time;
  notify(Id::state);
  board->alarmNotify(name());
  return true;
}

// --- Notifiees ---

Alarm::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                    const Zint::Ptr<const Alarm>& alarm, bool active)
    : Entity::NotifieeConst(activity, alarm, active) {}

void Alarm::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::state:
      return onState();
    case Id::findings:
      return onFindings();
    default:
      return Entity::NotifieeConst::handleNotification(activity);
  }
}

// --- The states ---

Alarm::State Alarm::StateInstance(U32 value) {
  return static_cast<State>(Zint::enumerationInstance(alarmStates, value));
}

Alarm::State Alarm::StateInstance(const Zint::String8& text) {
  return static_cast<State>(Zint::enumerationInstance(alarmStates, text));
}

Zint::String8 stringValue(Alarm::State state) { return Zint::enumerationText(alarmStates, state); }

Zint::String8 valueToStrep(const Alarm::State& state) {
  return Zint::valueToStrep(stringValue(state));
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     Alarm::State& state) {
  state = static_cast<Alarm::State>(Zint::readEnumeration(alarmStates, pos, end));
}

std::ostream& operator<<(std::ostream& out, const Alarm::State& state) {
  return out << stringValue(state);
}

}  // namespace Driver
