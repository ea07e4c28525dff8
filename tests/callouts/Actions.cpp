#include "callouts/Actions.h"

#include <Zint/Exception.h>

namespace CallOuts {
namespace {

// Refusals are no defects: the object is unchanged.
template <class Body>
void allowRefusal(Body body) {
  try {
    body();
  } catch (const Zint::RangeException&) {
  }
}

template <class Body>
void onShadow(World& w, Body body) {
  if (const AuditedShadow::Ptr shadow = w.shadow; shadow != nullptr) body(*shadow);
}
template <class Body>
void onRegion(World& w, World::Table table, Body body) {
  if (const ChipMemory::Ptr region = w.regions[table]; region != nullptr) body(region);
}

template <HardwareShadow::State (*state)()>
void stateIs(World& w) {
  onShadow(w, [](AuditedShadow& shadow) {
    // Of the states, only configured may follow unconfigured.
    if (state() != HardwareShadow::unconfigured() &&
        shadow.state() == HardwareShadow::unconfigured()) {
      shadow.stateIs(HardwareShadow::configured());
    }
    shadow.stateIs(state());
  });
}
void configureAnew(World& w) {
  onShadow(w, [](AuditedShadow& shadow) {
    shadow.stateIs(HardwareShadow::unconfigured());
    shadow.stateIs(HardwareShadow::configured());
    shadow.stateIs(HardwareShadow::auditing());
  });
}
template <bool paused>
void pausedIs(World& w) {
  onShadow(w, [](AuditedShadow& shadow) { shadow.pausedIs(paused); });
}
void pauseAndResume(World& w) {
  pausedIs<true>(w);
  pausedIs<false>(w);
}
template <bool override>
void overrideHardwareIs(World& w) {
  onShadow(w, [](AuditedShadow& shadow) { shadow.overrideHardwareIs(override); });
}
void clockDel(World& w) {
  onShadow(w, [](AuditedShadow& shadow) { shadow.clockIs(nullptr); });
}
void clockReplace(World& w) {
  if (w.otherClock == nullptr) w.otherClock = Zint::makePtr<CountedClock>("other", w.calls);
  onShadow(w, [&](AuditedShadow& shadow) { shadow.clockIs(w.otherClock); });
}
void activityReplace(World& w) {
  if (w.otherActivity == nullptr) {
    w.otherActivity = Zint::activityFactory("other", Zint::Ptr<const Zint::Clock>(w.clock));
  }
  onShadow(w, [&](AuditedShadow& shadow) { shadow.zintFwkActivityIs(w.otherActivity); });
}
void shadowDrop(World& w) {
  w.shadow = nullptr;
  for (auto& access : w.accesses) access = nullptr;
  w.alarms = nullptr;
}

template <World::Table table>
void policyDel(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    onRegion(w, table, [&](const ChipMemory::Ptr& region) { shadow.policyDel(region); });
  });
}
void policyReplace(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    onRegion(w, World::plain, [&](const ChipMemory::Ptr& region) {
      const Policy::Ptr policy = Driver::policyFactory(region);
      policy->ruleIs(15, 1, Driver::Rule::noRead);
      shadow.policyIs(policy);
    });
    onRegion(w, World::masked, [&](const ChipMemory::Ptr& region) {
      shadow.policyIs(Driver::policyFactory(region));
    });
  });
}
void policyChange(World& w) {
  if (const Policy::Ptr policy = w.policies[0]; policy != nullptr) {
    policy->maskIs({}, Driver::Rewrite::kept);
    policy->ruleIs(0, 16, Driver::Rule::repaired);
    policy->unwrittenIs(Driver::Unwritten::zero);
  }
  if (const Policy::Ptr policy = w.policies[1]; policy != nullptr) {
    const U8 mask[4] = {0xf, 0, 0, 0};
    policy->maskIs(mask, Driver::Rewrite::zero);
  }
}
void policiesDrop(World& w) {
  policyDel<World::masked>(w);
  policyDel<World::compared>(w);
  for (Policy::Ptr& policy : w.policies) policy = nullptr;
}
void chipDel(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) { shadow.chipDel(Chip::Ptr(w.chip)); });
}
void chipIs(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    shadow.chipIs(Driver::chipFactory("another", w.hamOf(World::plain)));
  });
}
void chipDrop(World& w) {
  chipDel(w);
  w.chip = nullptr;
}
void doChipReset(World& w) {
  if (const Chip::Ptr chip = w.chip; chip != nullptr) chip->doChipReset();
}
void doRestored(World& w) {
  onShadow(w, [](AuditedShadow& shadow) {
    for (const Chip::Ptr& chip : shadow.chips()) chip->doRestored();
  });
}

template <World::Table table, U32 entries>
void entriesIs(World& w) {
  onRegion(w, table, [](const ChipMemory::Ptr& region) { region->entriesIs(entries); });
}
template <World::Table table, ChipMemory::ChipMemoryMode (*mode)()>
void modeIs(World& w) {
  onRegion(w, table, [](const ChipMemory::Ptr& region) {
    if (mode() == ChipMemory::override()) region->auditEnabledIs(false);
    region->modeIs(mode());
  });
}
template <World::Table table>
void shadowEnabledDel(World& w) {
  onRegion(w, table, [](const ChipMemory::Ptr& region) { region->shadowEnabledIs(false); });
}
template <World::Table table>
void storeReplace(World& w) {
  onRegion(w, table, [](const ChipMemory::Ptr& region) {
    region->shadowEnabledIs(false);
    region->shadowEnabledIs(true);
  });
}
void auditEnabledDel(World& w) {
  onRegion(w, World::plain, [](const ChipMemory::Ptr& region) { region->auditEnabledIs(false); });
}
void auditEnabledDelByShadow(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    onRegion(w, World::masked, [&](const ChipMemory::Ptr& region) {
      shadow.stateIs(HardwareShadow::idle());
      // The state of an action that has not run yet has no request.
      if (shadow.state() != HardwareShadow::idle() || shadow.auditReadRequest() == nullptr) return;
      shadow.chipMemoryAuditEnabledIs(region, false);
      shadow.stateIs(HardwareShadow::auditing());
    });
  });
}
void hardwareDel(World& w) {
  onRegion(w, World::compared, [](const ChipMemory::Ptr& region) { region->hardwareIs(nullptr); });
}
void doClear(World& w) {
  onRegion(w, World::masked, [](const ChipMemory::Ptr& region) {
    if (region->shadow() != nullptr && region->mode() == ChipMemory::normal()) region->doClear();
  });
}
// The shadow's registry lets it go, and so does everybody else.
template <World::Table table>
void regionDrop(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    onRegion(w, table, [&](const ChipMemory::Ptr& region) {
      const bool wasOverridden = shadow.overrideHardware();
      shadow.overrideHardwareIs(true);
      shadow.chipMemoryDel(region->address());
      shadow.overrideHardwareIs(wasOverridden);
    });
    shadow.policyDel(w.regions[table]);
  });
  if (const ChipWriteRequest::Ptr request = w.request; request != nullptr) {
    if (w.regions[table] != nullptr) request->chipMemoryDel(ChipMemory::Ptr(w.regions[table]));
  }
  w.accesses[table] = nullptr;
  w.regions[table] = nullptr;
}
void chipMemoryDelAll(World& w) {
  onShadow(w, [](AuditedShadow& shadow) { shadow.chipMemoryDelAll(); });
}

void offer(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    for (const ChipMemory::Ptr& region : w.regions) {
      if (region == nullptr || region->entries() < 8) continue;
      if (region->shadowStoreNeeded() && region->shadow() == nullptr) continue;
      U32 value = 0x77770000;
      const ChipMemory::Ptr kept = region;
      if (!shadow.shadowWriteAndCompareWithCache(kept, 5, reinterpret_cast<U8*>(&value), 4)) {
        kept->chipHam()->doWrite(kept->entryAddress(5), reinterpret_cast<U8*>(&value), 4, 1);
      }
    }
  });
}
void clientWrite(World& w) {
  allowRefusal([&] { w.write(World::masked, 1, 3, 0x66660000); });
  allowRefusal([&] { w.write(World::plain, 3, 8, 0x66660000); });
  allowRefusal([&] { w.write(World::held, 3, 2, 0x66660000); });
}
void clientRead(World& w) {
  allowRefusal([&] { w.read(World::compared, 0, 16); });
}
void doAudit(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    for (const World::Table table : {World::masked, World::plain, World::compared}) {
      onRegion(w, table, [&](const ChipMemory::Ptr& region) {
        allowRefusal([&] { shadow.doAudit(region, 0, region->entries()); });
      });
    }
  });
}
void damageAgain(World& w) { w.damage(World::plain, 5, 0x4); }
void quarantineDel(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    for (U32 entry = 0; entry < World::entries; ++entry) {
      shadow.quarantineDel(w.regions[World::plain], entry);
    }
  });
}
void openFindings(World& w) {
  onShadow(w, [&](AuditedShadow& shadow) {
    onRegion(w, World::plain, [&](const ChipMemory::Ptr& region) {
      for (U32 entry = 0; entry < 9; ++entry) shadow.openFindingIs(region, entry, true);
    });
  });
}

void requestStart(World& w) {
  if (const ChipWriteRequest::Ptr request = w.request; request != nullptr) {
    request->stateIs(Zint::Request::start_);
  }
}
void requestStop(World& w) {
  if (const ChipWriteRequest::Ptr request = w.request; request != nullptr) {
    request->stateIs(Zint::Request::stop_);
  }
}
void requestEmpty(World& w) {
  if (const ChipWriteRequest::Ptr request = w.request; request != nullptr) {
    request->chipMemoryDelAll();
  }
}
void requestDrop(World& w) {
  if (const ChipWriter::Ptr writer = w.writer; writer != nullptr) writer->requestIs(nullptr);
  w.request = nullptr;
}
void doLeaveBuffered(World& w) {
  if (const ChipWriter::Ptr writer = w.writer; writer != nullptr) {
    onRegion(w, World::held, [&](const ChipMemory::Ptr& region) {
      allowRefusal([&] { writer->doLeaveBuffered(region); });
    });
  }
}
void doResume(World& w) {
  if (const ChipWriter::Ptr writer = w.writer; writer != nullptr) writer->doResume();
}
void doDiff(World& w) {
  if (const ChipWriter::Ptr writer = w.writer; writer != nullptr) {
    allowRefusal([&] { writer->doDiff(); });
  }
}
void writerDrop(World& w) { w.writer = nullptr; }
void boardDrop(World& w) {
  w.alarms = nullptr;
  w.board = nullptr;
}
void ruleDelAll(World& w) {
  if (const Driver::AlarmBoard::Ptr board = w.board; board != nullptr) board->ruleDelAll();
}
void doAcknowledge(World& w) {
  if (const Driver::AlarmBoard::Ptr board = w.board; board != nullptr) {
    for (const Zint::String8& name : board->alarmNames()) {
      if (board->alarm(name) != nullptr) board->doAcknowledge(name);
    }
  }
}
void governorDrop(World& w) { w.governor = nullptr; }
void governorReplace(World& w) {
  w.governor = nullptr;
  w.addGovernor();
}
void wishesChange(World& w) {
  if (const Driver::Governor::Ptr governor = w.governor; governor != nullptr) {
    governor->shareIs(0.01);
    governor->turnBoundIs(Zint::never);
    governor->periodIs(0.25);
  }
}
void watchesDrop(World& w) {
  for (auto& watch : w.watches) watch = nullptr;
}
void everythingDrop(World& w) {
  watchesDrop(w);
  shadowDrop(w);
  for (ChipMemory::Ptr& region : w.regions) region = nullptr;
  for (Policy::Ptr& policy : w.policies) policy = nullptr;
  writerDrop(w);
  boardDrop(w);
  governorDrop(w);
  w.request = nullptr;
  w.chip = nullptr;
}
void throwThis(World&) { throw 42; }

constexpr Action everyAction[] = {
    {"idle", stateIs<HardwareShadow::idle>},
    {"unconfigured", stateIs<HardwareShadow::unconfigured>},
    {"auditing", stateIs<HardwareShadow::auditing>},
    {"configured anew", configureAnew},
    {"paused", pausedIs<true>},
    {"paused and resumed", pauseAndResume},
    {"overridden", overrideHardwareIs<true>},
    {"overridden no more", overrideHardwareIs<false>},
    {"no clock", clockDel},
    {"another clock", clockReplace},
    {"another activity", activityReplace},
    {"drop the shadow", shadowDrop},
    {"policyDel masked", policyDel<World::masked>},
    {"policyDel compared", policyDel<World::compared>},
    {"policyIs", policyReplace},
    {"change policies", policyChange},
    {"drop the policies", policiesDrop},
    {"chipDel", chipDel},
    {"chipIs", chipIs},
    {"drop the chip", chipDrop},
    {"doChipReset", doChipReset},
    {"doRestored", doRestored},
    {"fewer entries", entriesIs<World::masked, 6>},
    {"fewer compared entries", entriesIs<World::compared, 5>},
    {"more entries", entriesIs<World::plain, 24>},
    {"buffered", modeIs<World::masked, ChipMemory::buffered>},
    {"override", modeIs<World::plain, ChipMemory::override>},
    {"normal", modeIs<World::held, ChipMemory::normal>},
    {"shadowEnabled off, masked", shadowEnabledDel<World::masked>},
    {"shadowEnabled off, compared", shadowEnabledDel<World::compared>},
    {"another store, plain", storeReplace<World::plain>},
    {"another store, held", storeReplace<World::held>},
    {"auditEnabled off", auditEnabledDel},
    {"auditEnabled off by the shadow", auditEnabledDelByShadow},
    {"no hardware buffer", hardwareDel},
    {"doClear", doClear},
    {"drop the masked region", regionDrop<World::masked>},
    {"drop the compared region", regionDrop<World::compared>},
    {"drop the held region", regionDrop<World::held>},
    {"chipMemoryDelAll", chipMemoryDelAll},
    {"offer writes", offer},
    {"write as a client", clientWrite},
    {"read as a client", clientRead},
    {"doAudit", doAudit},
    {"damage", damageAgain},
    {"quarantineDel", quarantineDel},
    {"open findings", openFindings},
    {"start the request", requestStart},
    {"stop the request", requestStop},
    {"empty the request", requestEmpty},
    {"drop the request", requestDrop},
    {"doLeaveBuffered", doLeaveBuffered},
    {"doResume", doResume},
    {"doDiff", doDiff},
    {"drop the writer", writerDrop},
    {"drop the board", boardDrop},
    {"ruleDelAll", ruleDelAll},
    {"doAcknowledge", doAcknowledge},
    {"drop the governor", governorDrop},
    {"another governor", governorReplace},
    {"other wishes", wishesChange},
    {"drop the watches", watchesDrop},
    {"drop everything", everythingDrop},
    {"throw", throwThis},
};

}  // namespace

std::span<const Action> actions() { return everyAction; }

}  // namespace CallOuts
