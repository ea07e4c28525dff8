// The states: their texts, and what entering each one does.
#include <Hardware/HardwareShadow.h>

#include <Hardware/Umbra.h>
#include <Zint/Enumeration.h>

namespace Hardware {
namespace {

constexpr const char* stateNames[] = {"unconfigured", "configured", "idle", "auditing"};
constexpr Zint::Enumeration states{"HardwareShadow::State", "State", stateNames};

bool isAudited(const ChipMemory& cm) {
  return cm.auditEnabled() && cm.mode() != ChipMemory::override();
}

}  // namespace

HardwareShadow::State HardwareShadow::StateInstance(U32 value) {
  return static_cast<State>(Zint::enumerationInstance(states, value));
}

HardwareShadow::State HardwareShadow::StateInstance(const Zint::String8& text) {
  return static_cast<State>(Zint::enumerationInstance(states, text));
}

Zint::String8 stringValue(HardwareShadow::State state) {
  return Zint::enumerationText(states, state);
}

Zint::String8 valueToStrep(const HardwareShadow::State& state) {
  return Zint::valueToStrep(stringValue(state));
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     HardwareShadow::State& state) {
  state = static_cast<HardwareShadow::State>(Zint::readEnumeration(states, pos, end));
}

std::ostream& operator<<(std::ostream& out, const HardwareShadow::State& state) {
  return out << stringValue(state);
}

// The notification comes before the action, so that notifiees see configured and then idle. A state
// that is set re-entrantly is acted on when the action under way has finished.
void HardwareShadow::stateIs(State state) {
  if (state_ == state) return;
  const Ptr self(this);
  const bool isReentrant = !commands_.empty();
  commands_.push_back(state);
  state_ = state;
  stateChanges_.advance();
  if (isReentrant) return notify(Id::state);

  // Also when an action throws.
  struct Reset {
    ~Reset() {
      shadow.commands_.clear();
      shadow.isActing_ = false;
    }
    HardwareShadow& shadow;
  } const reset{*this};
  notify(Id::state);
  isActing_ = true;
  for (; !commands_.empty(); commands_.erase(commands_.begin())) handleState();
}

void HardwareShadow::handleState() {
  const Ptr self(this);
  const State state = stateInAction();
  UMBRA_TRACE(0, __LINE__, "HardwareShadow::handleState( " << state << " )");
  switch (state) {
    case configured_: {
      if (auditReadRequest() != nullptr) {
        UMBRA_ASSERT(__LINE__, auditReadRequest()->chipMemorys() == 0);
      } else {
        auditReadRequestIs(chipReadRequestFactory("UmbraReadRequest"));
      }
      if (nextIndex() != 0) clearIndex();
      UMBRA_ASSERT(__LINE__, auditReadRequest());  // a notifiee may have dropped it
      const ChipReadRequest::Ptr request = auditReadRequest();
      buildIndexAndEnrol(*request);
      if (commands_.size() <= 1) stateIs(idle_);
      break;
    }
    case idle_:
      wakeClockAt(Zint::never);
      UMBRA_ASSERT(__LINE__, auditReadRequest());
      auditReadRequest()->stateIs(ChipReadRequest::stop_);
      break;
    case auditing_:
      UMBRA_ASSERT(__LINE__, auditReadRequest());
      if (auditReadRequest()->chipMemorys() != 0) {
        wakeClockAt(0.0);
      } else if (commands_.size() <= 1) {
        stateIs(idle_);
      }
      break;
    case unconfigured_:
      emptyAuditReadRequest();
      clearIndex();
      chipMemoryEntriesUnderAuditIs(0);
      break;
    default:
      UMBRA_ASSERT(__LINE__, 0);
  }
}

// While nobody is notified of the request's regions, they enter it in the same walk of the
// registry.
void HardwareShadow::buildIndexAndEnrol(ChipReadRequest& request) {
  const bool enrolsAtOnce =
      request.chipMemorys() == 0 && !request.isObserved(ChipReadRequest::Id::chipMemory);
  enrolments_.advance();
  bool isAnyAudited = false;
  U32 entries = 0;
  index_.build(chipMemory_.iterator(), [&](const ChipMemory::Ptr& cm) {
    if (!isAudited(*cm)) return;
    isAnyAudited = true;
    if (!enrolsAtOnce) return;
    request.newChipMemory(cm);
    entries += cm->entries();
  });
  if (!enrolsAtOnce) entries = enrolAuditedRegions(request, isAnyAudited);
  chipMemoryEntriesUnderAuditIs(entries);
}

// Returns their entries, counted at the end: notifiees may switch the audit of regions on and off.
U32 HardwareShadow::enrolAuditedRegions(ChipReadRequest& request, bool isAnyAudited) const {
  if (isAnyAudited) {
    for (auto reactor = chipMemory_.iterator(); reactor; ++reactor) {
      const ChipMemory::Ptr cm = reactor->chipMemory();
      if (isAudited(*cm)) request.chipMemoryIs(cm);
    }
  }
  U32 entries = 0;
  for (auto member = request.chipMemoryIterator(); member; ++member) {
    entries += member->chipMemory()->entries();
  }
  return entries;
}

// There is no request if the shadow was never configured.
void HardwareShadow::emptyAuditReadRequest() {
  const ChipReadRequest::Ptr request = auditReadRequest();
  if (request == nullptr) return;
  request->stateIs(ChipReadRequest::stop_);
  enrolments_.advance();
  request->chipMemoryDelAll();
}

void HardwareShadow::wakeClockAt(const Zint::Seconds& time) {
  if (const Zint::Ptr<ZintClock> clock = clock_; clock != nullptr) clock->timeMinIs(time);
}

}  // namespace Hardware
