#include "World.h"

#include <cstdio>

#include "support/Client.h"

namespace Sweep {
namespace {

std::string hex(const U8* bytes, U32 size) {
  std::string text;
  char digits[3];
  for (U32 i = 0; i < size; ++i) {
    (void)std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}

std::string brokenRegion(const ChipMemory& cm, bool staleStore) {
  const std::string name = cm.name().bytes();
  if (cm.zintAuditErrors() != 0) return name + ": errors seen by itself";
  const bool store = cm.shadow() != nullptr;
  if ((cm.dirty() != nullptr) != store || (cm.initialized() != nullptr) != store) {
    return name + ": a part of the store is missing";
  }
  if (!store) return "";
  if (cm.dirty()->size() != cm.initialized()->size()) return name + ": bitmaps of two stores";
  if (staleStore) return "";
  if (!cm.shadowStoreNeeded()) return name + ": a store that is not needed";
  if (cm.shadow()->size() != cm.entries() * cm.entrySize() ||
      cm.dirty()->size() != (cm.entries() >> 3) + 1) {
    return name + ": a store of another size";
  }
  for (U32 e = 0; e < cm.entries(); ++e) {
    const U8* entry = cm.shadow()->data() + e * cm.entrySize();
    if (cm.entryInitialized(e)) continue;
    for (U32 i = 0; i < cm.entrySize(); ++i) {
      if (entry[i] != 0) return name + ": an unknown entry with a value";
    }
  }
  return "";
}

std::string regionImage(const ChipMemory& cm) {
  std::string text = cm.name().bytes() + " entries " + std::to_string(cm.entries()) + " mode " +
                     std::to_string(cm.mode()) + (cm.shadowEnabled() ? " shadowed" : "") +
                     (cm.auditEnabled() ? " audited" : "");
  if (cm.shadow() == nullptr) return text + "\n";
  text += "\n  shadow " + hex(cm.shadow()->data(), cm.shadow()->size());
  return text + "\n  initialized " + hex(cm.initialized()->data(), cm.initialized()->size()) + "\n";
}

}  // namespace

bool World::written(const ChipMemory::Ptr& cm, U32 entry, U32 value, U32 entries) {
  U32 values[32];
  for (U32 i = 0; i < entries; ++i) values[i] = value + i;
  Support::clientWrite(*shadow, cm, entry, reinterpret_cast<U8*>(values), 4 * entries);
  return true;
}

bool World::read(const ChipMemory::Ptr& cm, U32 entry, U32& value) {
  value = Support::clientRead(*shadow, cm, entry);
  return true;
}

bool World::shadowed(const ChipMemory::Ptr& cm) {
  cm->shadowEnabledIs(true);
  // An attempt that failed has set the attribute already: the reaction is repeated.
  if (cm->shadowStoreNeeded() && cm->shadow() == nullptr) cm->handleShadowStoreNeeded();
  return true;
}

bool World::configured() {
  if (shadow->state() == HardwareShadow::idle()) return true;
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->stateIs(HardwareShadow::configured());
  return shadow->state() == HardwareShadow::idle();
}

bool World::pass() {
  const U32 before = shadow->audits();
  shadow->stateIs(HardwareShadow::idle());
  shadow->stateIs(HardwareShadow::auditing());
  run([&] { return shadow->audits() != before; });
  shadow->stateIs(HardwareShadow::idle());
  return shadow->audits() == before + 1;
}

std::string World::broken() const {
  for (const ChipMemory::Ptr& cm : {a, b, c, spare}) {
    if (cm == nullptr) continue;
    if (std::string rule = brokenRegion(*cm, staleStore); !rule.empty()) return rule;
  }
  if (directory != nullptr) {
    U32 members = 0;
    for (auto region = directory->chipMemoryIteratorConst(); region; ++region, ++members) {
      if (directory->chipMemory(region->name()) != *region) return "a region not found by name";
      if (std::string rule = brokenRegion(**region, staleStore); !rule.empty()) return rule;
    }
    if (members != directory->chipMemorys()) return "the directory counts wrongly";
  }
  if (directoryObserver != nullptr &&
      directoryObserver->told + directoryObserver->reported != changes) {
    return "a change of the directory was not announced";
  }
  if (modeObserver != nullptr &&
      modeObserver->told + modeObserver->reported != modeObserver->begun) {
    return "an exception of an observer was not reported";
  }
  if (reader != nullptr && reader->zintAuditErrors() != 0) return "errors seen by the reader";
  if (shadow == nullptr) return "";
  if (keepsClock && (shadow->clock() == nullptr || reader->clock() == nullptr)) {
    return "a clock was lost";
  }
  if (keepsRequest && (shadow->auditReadRequest() == nullptr || reader->request() == nullptr)) {
    return "a request was lost";
  }
  if (shadow->zintAuditErrors() != 0) return "errors seen by the shadow";
  U32 registered = 0;
  for (auto reactor = shadow->chipMemoryIterator(); reactor; ++reactor, ++registered) {
    const ChipMemory::Ptr& cm = reactor->chipMemory();
    if (shadow->chipMemory(cm->address()) != cm) return "a registered region is not found";
    const ChipMemory::Ptr found = shadow->findChipMemory(cm->address(), cm->entrySize());
    if (found != nullptr && found->address() != cm->address()) return "the index is wrong";
    const bool whole =
        shadow->state() == HardwareShadow::idle() || shadow->state() == HardwareShadow::auditing();
    if (whole && found == nullptr && !shadow->overrideHardware()) return "the index lacks a region";
  }
  if (registered != shadow->chipMemorys()) return "the registry counts wrongly";
  const ChipReadRequest::Ptr request = shadow->auditReadRequest();
  if (request != nullptr && shadow->state() != HardwareShadow::configured()) {
    U32 entries = 0;
    for (auto member = request->chipMemoryIterator(); member; ++member) {
      entries += member->chipMemory()->entries();
    }
    if (entries != shadow->chipMemoryEntriesUnderAudit()) return "entries under audit are wrong";
  }
  return "";
}

std::string World::image() const {
  std::string text = "chip";
  for (U32 i = 0; i < Chip::registers; ++i) {
    if (chip->words[i] == 0) continue;
    char word[32];
    (void)std::snprintf(word, sizeof word, " %03x:%08x", 4 * i,
                        static_cast<unsigned>(chip->words[i]));
    text += word;
  }
  text += "\n";
  for (const ChipMemory::Ptr& cm : {a, b, c, spare}) {
    if (cm != nullptr) text += regionImage(*cm);
  }
  if (directory != nullptr) {
    for (auto region = directory->chipMemoryIteratorConst(); region; ++region) {
      text += "directory " + regionImage(**region);
    }
  }
  if (shadow != nullptr) {
    text += "state " + stringValue(shadow->state()).bytes() + " chunks " +
            std::to_string(shadow->nextIndex()) + " entries under audit " +
            std::to_string(shadow->chipMemoryEntriesUnderAudit()) + " registered";
    for (auto reactor = shadow->chipMemoryIterator(); reactor; ++reactor) {
      text += " " + reactor->chipMemory()->name().bytes();
    }
    text += "\n";
  }
  if (ownRequest != nullptr) {
    text += "request status " + std::to_string(ownRequest->status()) + " members " +
            std::to_string(ownRequest->chipMemorys()) + "\n";
  }
  return text + "answer " + std::to_string(answer) + "\n";
}

}  // namespace Sweep
