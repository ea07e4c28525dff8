// The steps.
#include "driverlockstep/Session.h"

#include <algorithm>
#include <cstdio>

namespace DriverLockstep {
namespace {

using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

struct StepKind {
  const char* name;
  U32 weight;
};
constexpr StepKind stepKinds[] = {
#define X(name, weight) {#name, weight},
    DRIVER_LOCKSTEP_STEPS(X)
#undef X
};

}  // namespace

std::string Step::text() const {
  char text[80];
  std::snprintf(text, sizeof text, "{Kind::%s, %u, %u, %u, %u},",
                stepKinds[static_cast<int>(kind)].name, a, b, c, d);
  return text;
}

Session::Session(U64 seed) : plan_(seed), world_(plan_), model_(plan_, world_) {}

Step Session::draw(Support::Random& random) {
  static const U32 total = [] {
    U32 sum = 0;
    for (const StepKind& kind : stepKinds) sum += kind.weight;
    return sum;
  }();
  U32 at = random.below(total);
  Step step;
  U8 kind = 0;
  while (at >= stepKinds[kind].weight) at -= stepKinds[kind++].weight;
  step.kind = static_cast<Kind>(kind);
  step.a = random.below(1000);
  step.b = random.below(1000);
  step.c = random.below(1000);
  step.d = random.below(1000);
  return step;
}

// Few different values, zero often: they meet again.
Bytes Session::value(U32 region, U32 seed) const {
  constexpr U8 values[] = {0, 0, 1, 0x80, 0xff};
  Bytes bytes(plan_.regions[region].entrySize);
  for (U8& byte : bytes) {
    byte = values[seed % 5];
    seed = seed * 7 + 3;
  }
  return bytes;
}

void Session::writeBoth(U32 region, U32 entry, const Bytes& value) {
  model_.writeChip(region, entry, value);
  world_.writeChip(region, entry, value);
}

void Session::loseState(U32 chip) {
  for (U32 r = 0; r < model_.regions.size(); ++r) {
    if (model_.regions[r].chip != chip) continue;
    for (U32 e = 0; e < model_.regions[r].entries.size(); ++e) {
      EntryModel& entry = model_.regions[r].entries[e];
      entry.chip = world_.onChip(r, e) = entry.reset;
    }
  }
}

void Session::turn() {
  world_.step();
  isLate_ = false;
  model_.follow(world_.events, world_.loop.clock->time());
  bool canRead = false;
  for (U32 r = 0; r < model_.regions.size(); ++r) canRead = canRead || model_.canRead(r);
  if (!world_.events.empty() || !canRead || !model_.isAuditing || world_.shadow->paused()) {
    turnsWithoutEvents_ = 0;
  } else if (++turnsWithoutEvents_ == 20) {
    throw Mismatch{"the patrol is dead"};
  }
  for (std::size_t i = 0; i < pending_.size();) {
    if (--pending_[i].turns > 0) {
      ++i;
      continue;
    }
    const Pending now = pending_[i];
    pending_.erase(pending_.begin() + static_cast<std::ptrdiff_t>(i));
    writeBoth(now.region, now.entry, now.value);
  }
}

bool Session::isAnythingAudited() const {
  return std::any_of(model_.regions.begin(), model_.regions.end(),
                     [](const RegionModel& region) { return region.audited && region.hasStore(); });
}

Driver::Policy::Ptr Session::policy(U32 region) {
  const auto& cm = world_.regions[region];
  if (world_.shadow->policy(cm) == nullptr) {
    world_.shadow->policyIs(Driver::policyFactory(cm));
    model_.regions[region].hasPolicy = true;
  }
  return world_.shadow->policy(cm);
}

void Session::changePolicy(const Step& step, U32 r, U32 e, U32 count) {
  const Driver::Policy::Ptr held = policy(r);
  RegionModel& region = model_.regions[r];
  switch (step.kind) {
    case Kind::rule: {
      const Rule rule = static_cast<Rule>(step.d % 2 == 0 ? 0 : step.d / 2 % 6);
      held->ruleIs(e, count, rule);
      for (U32 i = e; i < e + count; ++i) region.entries[i].rule = rule;
      break;
    }
    case Kind::mask: {
      const Bytes mask = value(r, step.d);
      const Rewrite rewrite = static_cast<Rewrite>(step.d % 3);
      held->maskIs(e, count, mask, rewrite);
      for (U32 i = e; i < e + count; ++i) {
        region.entries[i].mask = mask;
        region.entries[i].rewrite = rewrite;
      }
      break;
    }
    case Kind::unwritten:
      held->unwrittenIs(static_cast<Unwritten>(step.d % 4));
      region.unwritten = static_cast<Unwritten>(step.d % 4);
      break;
    default: {
      const Bytes reset = value(r, step.d);
      held->resetValueIs(e, count, reset);
      for (U32 i = e; i < e + count; ++i) region.entries[i].reset = reset;
      break;
    }
  }
  model_.handlePolicy(r);
}

void Session::setting(U32 which, U32 value) {
  Driver::AuditedShadow& shadow = *world_.shadow;
  Settings& settings = model_.settings;
  switch (which % 10) {
    case 0:
      shadow.maxEntriesPerSliceIs(settings.slice = 1 + value % 9);
      shadow.maxEntriesPerReplaySliceIs(settings.slice);
      break;
    case 1:
      shadow.judgeAtOnceIs(settings.judgeAtOnce = value % 4 == 0);
      break;
    case 2:
      shadow.rereadsIs(settings.rereads = value % 2 == 0);
      break;
    case 3:
      shadow.verifiesIs(settings.verifies = value % 2 == 0);
      break;
    case 4:
      shadow.findsResetsIs(settings.findsResets = value % 4 != 0);
      break;
    case 5:
      shadow.maxRepairsPerTurnIs(settings.repairsPerTurn = value % 2 == 0 ? ~0u : 1 + value % 3);
      break;
    case 6:
      shadow.maxRepairsPerPassIs(settings.repairsPerPass = value % 2 == 0 ? ~0u : value % 4);
      break;
    case 7:
      shadow.quarantineRepairsIs(settings.quarantineRepairs = value % 4);
      break;
    case 8:
      shadow.quarantineVisitsIs(settings.quarantineVisits = 1 + value % 3);
      break;
    default:
      settings.quarantineTime = value % 2 == 0 ? 60 : 3.25;
      shadow.quarantineTimeIs(settings.quarantineTime);
      break;
  }
}

void Session::perform(const Step& step) {
  const U32 r = step.a % static_cast<U32>(plan_.regions.size());
  const U32 entries = plan_.regions[r].entries;
  const U32 e = step.b % entries;
  const U32 count = 1 + step.c % (entries - e);
  const U32 c = step.a % plan_.chips;
  const auto& cm = world_.regions[r];
  RegionModel& region = model_.regions[r];
  Driver::AuditedShadow& shadow = *world_.shadow;
  world_.events.clear();
  const Zint::Seconds now = world_.loop.clock->time();
  switch (step.kind) {
    case Kind::turn:
      turn();
      break;
    case Kind::write:
    case Kind::offer: {
      if (!region.hasStore()) break;
      const Bytes offered = value(r, step.d);
      model_.offer(r, e, offered);
      world_.offer(r, e, offered);
      if (step.kind == Kind::write) {
        writeBoth(r, e, offered);
      } else {
        pending_.push_back({1 + step.c % 6, r, e, offered});
      }
      break;
    }
    case Kind::read: {
      Bytes served(region.entrySize), wanted(region.entrySize);
      if (!region.hasStore() && region.mode != ChipMemory::override_) break;
      same("served", shadow.readFromCache(cm, e, served.data(), region.entrySize),
           model_.readFromCache(r, e, wanted));
      same("read value", served, wanted);
      break;
    }
    case Kind::clear:
      if (!region.hasStore()) break;
      cm->doClearRange(e, e + count - 1, false);
      model_.clearRange(r, e, e + count - 1);
      break;
    case Kind::flip: {
      const U32 byte = step.c % region.entrySize;
      const U8 bit = static_cast<U8>(1u << step.d % 8);
      world_.onChip(r, e)[byte] ^= bit;
      region.entries[e].chip[byte] ^= bit;
      break;
    }
    case Kind::glitch:
      world_.faults[region.chip].glitches.insert({r, e});
      break;
    case Kind::stick:
      world_.faults[region.chip].stuck.insert({r, e});
      break;
    case Kind::unstick:
      world_.faults[region.chip].stuck.clear();
      break;
    case Kind::absent:
      world_.faults[c].absence = static_cast<Absence>(1 + step.d % 3);
      break;
    case Kind::present:
      world_.faults[c].absence = Absence::none;
      world_.faults[c].throwsAfter = world_.faults[c].vanishesAfter = ~0u;
      break;
    case Kind::throwOnce:
      world_.faults[c].throwsAfter = step.d % 6;
      break;
    case Kind::vanish:
      world_.faults[c].vanishesAfter = step.d % 6;
      break;
    case Kind::loseState:
      loseState(c);
      break;
    case Kind::chipReset:
      loseState(c);
      model_.doChipReset(c);
      world_.chips[c]->doChipReset();
      break;
    case Kind::checkFindsReset:
      loseState(c);
      world_.faults[c].forgot = true;
      break;
    case Kind::restored:
      for (U32 i = 0; i < model_.regions.size(); ++i) {
        if (model_.regions[i].chip != c || step.d % 5 == 0) continue;
        for (U32 n = 0; n < model_.regions[i].entries.size(); ++n) {
          const EntryModel& entry = model_.regions[i].entries[n];
          if (entry.written || entry.mark) writeBoth(i, n, Bytes(entry.shadow));
        }
      }
      model_.doRestored(c);
      world_.chips[c]->doRestored();
      break;
    case Kind::rule:
    case Kind::mask:
    case Kind::unwritten:
    case Kind::resetValue:
      changePolicy(step, r, e, count);
      break;
    case Kind::policyDel:
      shadow.policyDel(cm);
      model_.policyDel(r);
      break;
    case Kind::pause:
    case Kind::resume:
      model_.isPaused = step.kind == Kind::pause;
      shadow.pausedIs(step.kind == Kind::pause);
      break;
    case Kind::idle:
      model_.stateIs(false);
      shadow.stateIs(HardwareShadow::idle());
      break;
    case Kind::audit:
      shadow.stateIs(HardwareShadow::auditing());
      model_.stateIs(isAnythingAudited() || shadow.state() == HardwareShadow::auditing());
      break;
    case Kind::buffer:
    case Kind::normal:
      if (world_.faults[region.chip].absence == Absence::throws ||
          world_.faults[region.chip].throwsAfter != ~0u ||
          world_.faults[region.chip].vanishesAfter != ~0u) {
        break;
      }
      if (step.kind == Kind::normal && cm->mode() == ChipMemory::buffered() && region.hasStore()) {
        for (U32 i = 0; i < entries; ++i) model_.writeChip(r, i, Bytes(region.entries[i].shadow));
      }
      world_.intrusion.reset();
      model_.modeIs(r, step.kind == Kind::buffer ? ChipMemory::buffered() : ChipMemory::normal());
      cm->modeIs(step.kind == Kind::buffer ? ChipMemory::buffered() : ChipMemory::normal());
      world_.events.erase(
          std::remove_if(world_.events.begin(), world_.events.end(),
                         [](const Event& event) { return event.what == What::write; }),
          world_.events.end());
      break;
    case Kind::shadowOff:
    case Kind::shadowOn:
      model_.shadowEnabledIs(r, step.kind == Kind::shadowOn);
      cm->shadowEnabledIs(step.kind == Kind::shadowOn);
      break;
    case Kind::auditEnabled:
      if (shadow.state() != HardwareShadow::idle()) break;
      model_.auditEnabledIs(r, step.d % 4 != 0);
      shadow.chipMemoryAuditEnabledIs(cm, step.d % 4 != 0);
      break;
    case Kind::veto:
      if (!world_.vetoed.insert({r, e}).second) world_.vetoed.clear();
      break;
    case Kind::vetoThrows:
      world_.vetoThrows = step.d % 2 == 0;
      break;
    case Kind::setting:
      setting(step.a, step.b);
      break;
    case Kind::quarantineDel:
      shadow.quarantineDel(cm, e);
      model_.quarantineDel(r, e);
      break;
    case Kind::doAudit: {
      if (!region.hasStore()) break;
      if (model_.chips[region.chip].isRestoring) {
        same("an audit of a chip that is restored", shadow.doAudit(cm, e, count).isComplete, false);
        break;
      }
      const Driver::PassResult result = shadow.doAudit(cm, e, count);
      model_.followAudit(world_.events, now, r, e, count, result);
      world_.events.clear();
      break;
    }
    case Kind::intrude:
      if (!region.hasStore()) break;
      world_.intrusion = World::Intrusion{step.c % 4, r, e, value(r, step.d), step.c % 3 != 0};
      break;
    case Kind::wait:
      world_.loop.clock->timeIs(now + (1 + step.d) / 8.0);
      isLate_ = true;
      break;
    case Kind::count:
      break;
  }
  if (step.kind != Kind::turn) model_.follow(world_.events, now);
  if (step.kind == Kind::restored) same("asked of its reset", model_.chips[c].isAsked, false);
  compare();
}

}  // namespace DriverLockstep
