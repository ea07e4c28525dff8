// The states: their texts, and what entering each one does.
#include <Hardware/HardwareShadow.h>
#include <Hardware/Umbra.h>
#include <Zint/Enumeration.h>

namespace Hardware {
namespace {

constexpr const char* stateNames[] = {"unconfigured", "configured", "idle", "auditing"};
constexpr Zint::Enumeration states{"HardwareShadow::State", "State", stateNames};

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
  Zint::String8 text;
  auto p = pos;
  Zint::sequenceToValue(p, end, text);
  state = HardwareShadow::StateInstance(text);
  pos = p;
}

std::ostream& operator<<(std::ostream& out, const HardwareShadow::State& state) {
  return out << stringValue(state);
}

// The value is announced before it is acted on, so that observers see configured and then idle.
// When an observer sets another value, only that one is acted on.
void HardwareShadow::stateIs(State state) {
  if (!Zint::updated(state_, state)) return;
  const Ptr self(this);
  const U32 change = ++stateChanges_;
  notify(Id::state);
  if (change == stateChanges_) handleState();
}

void HardwareShadow::handleState() {
  UMBRA_TRACE(0, __LINE__, "HardwareShadow::handleState( " << state_ << " )");
  // Each step is told to others: one who sets another state meanwhile has the last word.
  const Ptr self(this);
  const U32 change = stateChanges_;
  switch (state_) {
    case configured_:
      if (auditReadRequest() != nullptr) {
        UMBRA_ASSERT(__LINE__, auditReadRequest()->chipMemorys() == 0);
      } else {
        auditReadRequestIs(chipReadRequestFactory("UmbraReadRequest"));
      }
      indexBuilt();
      if (change == stateChanges_) stateIs(idle_);
      break;
    case idle_:
      if (clock_ != nullptr) clock_->timeMinIs(Zint::never);
      UMBRA_ASSERT(__LINE__, auditReadRequest());
      auditReadRequest()->stateIs(ChipReadRequest::stop_);
      break;
    case auditing_:
      UMBRA_ASSERT(__LINE__, auditReadRequest());
      if (auditReadRequest()->chipMemorys() == 0) {
        stateIs(idle_);
      } else if (clock_ != nullptr) {
        clock_->timeMinIs(0.0);
      }
      break;
    case unconfigured_:
      // None yet when an observer turned the very first configured down.
      if (const ChipReadRequest::Ptr request = auditReadRequest(); request != nullptr) {
        request->stateIs(ChipReadRequest::stop_);
        if (change == stateChanges_) request->chipMemoryDelAll();
      }
      if (change != stateChanges_) break;
      indexCleared();
      if (change == stateChanges_) chipMemoryEntriesUnderAuditIs(0);
      break;
    default:
      UMBRA_ASSERT(__LINE__, 0);
  }
}

// Enters every registered region into the index, and the audited ones into the audit's request.
void HardwareShadow::indexBuilt() {
  if (nextIndex_ != 0) indexCleared();
  const ChipReadRequest::Ptr request = auditReadRequest();
  const U32 change = stateChanges_;
  U32 entriesUnderAudit = 0;
  for (auto reactor = chipMemory_.iterator(); reactor; ++reactor) {
    const ChipMemory::Ptr cm = reactor->chipMemory();
    indexed(cm);
    if (cm->mode() != ChipMemory::override() && cm->auditEnabled()) {
      request->chipMemoryIs(cm);
      if (change != stateChanges_) return;
      entriesUnderAudit += cm->entries();
    }
  }
  chipMemoryEntriesUnderAuditIs(entriesUnderAudit);
}

}  // namespace Hardware
