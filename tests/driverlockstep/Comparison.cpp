// What is compared after each step.
#include <algorithm>
#include <sstream>

#include "driverlockstep/Session.h"

namespace DriverLockstep {
namespace {

template <class T>
void put(std::ostream& out, const T& value) {
  out << value;
}
void put(std::ostream& out, const Bytes& bytes) {
  for (const U8 byte : bytes) out << std::hex << static_cast<int>(byte) << " " << std::dec;
}

}  // namespace

template <class A, class B>
void Session::same(const std::string& what, const A& library, const B& model) const {
  if (library == model) return;
  std::ostringstream out;
  out << what << ": library ";
  put(out, library);
  out << ", model ";
  put(out, model);
  out << "\nevents of the step:\n";
  for (const Event& event : world_.events) out << "  " << event.text() << "\n";
  throw Mismatch{out.str()};
}

void Session::compareRegion(U32 r) {
  const auto& cm = world_.regions[r];
  const RegionModel& region = model_.regions[r];
  const std::string name = "r" + std::to_string(r);
  same(name + " registersFixed", cm->registersFixed(), region.registersFixed);
  same(name + " writeCacheHits", cm->writeCacheHits(), region.writeHits);
  same(name + " readCacheHits", cm->readCacheHits(), region.readHits);
  same(name + " has a store", cm->shadow() != nullptr, region.hasStore());
  for (U32 e = 0; e < region.entries.size(); ++e) {
    const EntryModel& entry = region.entries[e];
    const std::string place = name + " entry " + std::to_string(e) + " ";
    same(place + "on the chip", world_.onChip(r, e), entry.chip);
    if (!region.hasStore()) continue;
    same(place + "shadow", world_.shadowed(r, e), entry.shadow);
    same(place + "initialized", World::bit(cm->initialized(), e), entry.known);
    same(place + "written", world_.shadow->isWritten(cm, e), entry.written || entry.mark);
    same(place + "dirty", World::bit(cm->dirty(), e), entry.mark);
    same(place + "open", world_.shadow->hasOpenFinding(cm, e), entry.open);
    same(place + "quarantined", world_.shadow->isQuarantined(cm, e), entry.isQuarantined);
  }
}

void Session::compareChips() {
  for (U32 c = 0; c < plan_.chips; ++c) {
    const Driver::Chip& chip = *world_.chips[c];
    const ChipModel& model = model_.chips[c];
    const std::string name = "c" + std::to_string(c);
    same(name + " isAbsent", chip.isAbsent(), model.isAbsent);
    same(name + " absences", chip.absences(), model.absences);
    same(name + " isRestoring", chip.isRestoring(), model.isRestoring);
    same(name + " resets", chip.resets(), model.resets);
    same(name + " audits", chip.audits(), model.audits);
    if (model.isAbsent) same(name + " nextTry", chip.nextTry(), model.nextTry);
  }
}

void Session::compareState() {
  const Driver::AuditedShadow& shadow = *world_.shadow;
  const bool isAuditing = shadow.state() == Hardware::HardwareShadow::auditing();
  same("auditing", isAuditing, model_.isAuditing);
  same("audits", shadow.audits(), model_.audits);
  same("findings", shadow.findings(), model_.findings);
  same("repairs", shadow.repairs(), model_.repairs);
  same("transients", shadow.transients(), model_.transients);
  U32 quarantined = 0;
  bool canRead = false, isAnyAudited = false,
       isDisturbed = shadow.paused() || !isAuditing || isLate_;
  for (U32 r = 0; r < model_.regions.size(); ++r) {
    for (const EntryModel& entry : model_.regions[r].entries) quarantined += entry.isQuarantined;
    canRead = canRead || model_.canRead(r);
    const RegionModel& region = model_.regions[r];
    const ChipModel& chip = model_.chips[region.chip];
    isAnyAudited = isAnyAudited ||
                   (region.audited && region.hasStore() && !chip.isAbsent && !chip.isRestoring);
  }
  for (const ChipModel& chip : model_.chips) {
    isDisturbed = isDisturbed || chip.isAbsent || chip.isRestoring;
  }
  same("quarantined", shadow.quarantined(), quarantined);
  const std::string reason = shadow.patrolReason().bytes();
  if (!isDisturbed && canRead) same("reason", reason, std::string());
  if (!isAuditing || shadow.paused() || !isAnyAudited) {
    same("is there a reason", !reason.empty(), true);
  }
  if (isAuditing && !shadow.paused() && canRead) {
    same("is there a wake-up", world_.loop.activity->wakeTime() < Zint::never, true);
  }
  const Driver::PatrolState state = shadow.patrolState();
  same("patrolState", state, model_.patrolState());
  ++model_.met["state " + std::string(Driver::stringValue(state).bytes())];
  same("done of total", shadow.passEntriesDone() <= shadow.passEntries(), true);
}

void Session::compare() {
  for (U32 r = 0; r < model_.regions.size(); ++r) compareRegion(r);
  compareChips();
  compareState();
}

}  // namespace DriverLockstep
