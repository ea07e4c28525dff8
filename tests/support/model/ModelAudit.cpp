// Shadows: states and audit.
#include <algorithm>
#include <cstring>

#include "Model.h"

namespace Model {

void System::stateIs(int handle, State state) {
  Shadow& shadow = shadows_.at(handle);
  if (shadow.state == state) return;
  const bool isReentrant = !shadow.commands.empty();
  shadow.commands.push_back(state);
  shadow.state = state;
  // Announced before it is acted on, so that notifiees see a value that is passed through.
  notify(Notification::Kind::shadowState, handle, static_cast<u64>(state));
  if (isReentrant) return;
  while (!shadow.commands.empty()) {
    handleState(handle, shadow.commands.front());
    shadow.commands.erase(shadow.commands.begin());
  }
}

void System::overrideHardwareIs(int shadow, bool overrideHardware) {
  shadows_.at(shadow).overrideHardware = overrideHardware;
}

void System::minIntervalBetweenAuditsIs(int shadow, double seconds) {
  shadows_.at(shadow).minIntervalBetweenAudits = seconds;
}

void System::auditReadRequestIs(int handle, int request) {
  Shadow& shadow = shadows_.at(handle);
  if (shadow.request == request) return;
  if (shadow.request != none) unobserve(shadow.request, {Actor::shadow, handle});
  shadow.request = request;
  if (request != none) observe(request, {Actor::shadow, handle});
}

void System::handleState(int handle, State state) {
  static const char* function = "void Hardware::HardwareShadow::handleState()";
  Shadow& shadow = shadows_.at(handle);
  if (tracing(0)) {
    trace(0, "handleState", 0, "HardwareShadow::handleState( " + stateText(state) + " )");
  }
  // A client's state comes after this one: the shadow sets none of its own.
  const auto isLast = [&] { return shadow.commands.size() <= 1; };
  switch (state) {
    case State::configured:
      handleConfigured(handle);
      return;
    case State::idle:
      arm(shadow.alarm, never);
      require(shadow.request != none, "auditReadRequest()", function);
      requestStateIs(shadow.request, 2);
      return;
    case State::auditing:
      require(shadow.request != none, "auditReadRequest()", function);
      if (requests_.at(shadow.request).members.empty()) {
        if (isLast()) stateIs(handle, State::idle);
      } else {
        arm(shadow.alarm, 0.0);
      }
      return;
    case State::unconfigured:
      guard(shadow.request != none, "unconfigured without a request");
      requestStateIs(shadow.request, 2);
      requestChipMemoryDelAll(shadow.request);
      shadow.index.clear();
      shadow.last = none;
      shadow.entriesUnderAudit = 0;
      return;
  }
  require(false, "0", function);
}

void System::handleConfigured(int handle) {
  Shadow& shadow = shadows_.at(handle);
  if (shadow.request != none) {
    require(requests_.at(shadow.request).members.empty(), "auditReadRequest()->chipMemorys() == 0",
            "void Hardware::HardwareShadow::handleState()");
  } else {
    auditReadRequestIs(handle, requestCreate("UmbraReadRequest"));
  }
  // Left over when the state before was not unconfigured.
  if (!shadow.index.empty()) {
    shadow.index.clear();
    shadow.last = none;
  }
  u32 sum = 0;
  for (const auto& [address, member] : shadow.registry) {
    auto& chunk = shadow.index[static_cast<u32>(address >> 32)];
    guard(shadow.index.size() <= 65535 && chunk.size() < 65535, "index full");
    chunk[static_cast<u32>(address)] = member;
    const Region& region = regions_.at(member);
    if (region.mode != Mode::override_ && region.auditEnabled) {
      requestChipMemoryIs(shadow.request, member);
      sum += region.entries;
    }
  }
  shadow.entriesUnderAudit = sum;
  if (shadow.commands.size() <= 1) stateIs(handle, State::idle);
}

void System::chipMemoryAuditEnabledIs(int handle, int regionHandle, bool enabled) {
  Shadow& shadow = shadows_.at(handle);
  require(shadow.state == State::idle, "state_ == idle_",
          "void Hardware::HardwareShadow::chipMemoryAuditEnabledIs("
          "const Hardware::ChipMemory::Ptr&, bool)");
  const Region& region = regions_.at(regionHandle);
  if (region.auditEnabled == enabled) return;
  auditEnabledIs(regionHandle, enabled);
  if (region.mode == Mode::override_) return;
  // The sum follows the membership: what joins is added, what leaves or is replaced is subtracted.
  const int member = requestChipMemory(shadow.request, region.address);
  if (enabled) {
    if (member == regionHandle) return;
    if (member != none) shadow.entriesUnderAudit -= regions_.at(member).entries;
    requestChipMemoryIs(shadow.request, regionHandle);
    shadow.entriesUnderAudit += region.entries;
  } else if (member != none) {
    requestChipMemoryDel(shadow.request, region.address);
    shadow.entriesUnderAudit -= regions_.at(member).entries;
  }
}

void System::doStartAudit(int handle) {
  Shadow& shadow = shadows_.at(handle);
  if (shadow.state != State::auditing || shadow.overrideHardware) return;
  if (tracing(0)) trace(0, "doStartAudit", 0, "HardwareShadow::doStartAudit");
  for (const RequestMember& member : requests_.at(shadow.request).members) {
    Region& region = regions_.at(member.region);
    if (!region.shadowEnabled || region.mode == Mode::override_) continue;
    require(region.dirty.has_value(), "dirty", "void Hardware::HardwareShadow::doStartAudit()");
    std::fill(region.dirty->begin(), region.dirty->end(), u8{0});
  }
  shadow.lastAuditStartTime = now_;
  requestStateIs(shadow.request, 1);
}

void System::handleAuditReadRequestStatus(int handle) {
  static const char* function = "void Hardware::HardwareShadow::handleAuditReadRequestStatus()";
  Shadow& shadow = shadows_.at(handle);
  if (shadow.state != State::auditing) return;
  u32 status = requests_.at(shadow.request).status;
  if (tracing(0)) {
    trace(0, "handleAuditReadRequestStatus", 0,
          "HardwareShadow::handleAuditReadRequestStatus " + decimal(status));
  }
  require(status != 2, "false", function);
  if (status == 3) doAuditChips(handle);
}

void System::doAuditChips(int handle) {
  Shadow& shadow = shadows_.at(handle);
  if (tracing(0)) trace(0, "doAuditChips", 0, "HardwareShadow::doAuditChips");
  guard(shadow.request != none, "audit without a request");
  for (const RequestMember& member : requests_.at(shadow.request).members) {
    auditRegion(handle, member.region);
  }
  shadow.audits++;
  arm(shadow.alarm, shadow.lastAuditStartTime + shadow.minIntervalBetweenAudits);
}

void System::auditRegion(int shadow, int regionHandle) {
  static const char* function = "void Hardware::HardwareShadow::doAuditChips()";
  Region& region = regions_.at(regionHandle);
  if (!region.shadowEnabled || region.mode == Mode::override_ || !region.auditEnabled) return;
  require(region.hardware.has_value(), "hardwareBuf", function);
  require(region.shadow.has_value(), "shadowBuf", function);
  require(region.dirty.has_value(), "dirtyBuf", function);
  require(region.initialized.has_value(), "initializedBuf", function);
  guard(u64{region.entries} * region.entrySize <= region.hardware->size(),
        "hardware smaller than the region");
  guard(u64{region.entries} * region.entrySize <= region.shadow->size(),
        "shadow smaller than the region");
  for (u32 entry = 0; entry < region.entries; entry++) {
    std::size_t offset = std::size_t{entry} * region.entrySize;
    u8* shadowEntry = region.shadow->data() + offset;
    const u8* hardwareEntry = region.hardware->data() + offset;
    if (std::equal(shadowEntry, shadowEntry + region.entrySize, hardwareEntry)) continue;
    if (!bitAt(*region.initialized, entry)) {
      if (tracing(8)) {
        trace(8, "doAuditChips", 0,
              "Difference found in uninitialized entry " + decimal(entry) + " of memory " +
                  region.name);
      }
      if (!methods_.at(region.method).refuseReadToCache) {
        std::memcpy(shadowEntry, hardwareEntry, region.entrySize);
        setBit(*region.initialized, entry);
      }
    } else if (bitAt(*region.dirty, entry)) {
      if (tracing(8)) {
        trace(8, "doAuditChips", 0,
              "Difference found in entry " + decimal(entry) +
                  " but it was written since the audit began");
      }
      record(8, {entry}, {});
    } else {
      reportDifference(region, entry);
      doFixBadRegister(shadow, regionHandle, entry, shadowEntry);
    }
  }
}

void System::reportDifference(const Region& region, u32 entry) {
  if (tracing(0)) {
    trace(0, "doAuditChips", 0,
          "Difference found in entry " + decimal(entry) + " of memory " + region.name);
  }
  record(0, {entry}, {region.name});
  auto hexByte = [](u8 byte) {
    return std::string{'x', "0123456789ABCDEF"[byte / 16], "0123456789ABCDEF"[byte % 16]};
  };
  std::string expected;
  std::string actual;
  for (u32 i = 0; i < region.entrySize; i++) {
    u8 wanted = (*region.shadow)[std::size_t{entry} * region.entrySize + i];
    u8 found = (*region.hardware)[std::size_t{entry} * region.entrySize + i];
    if (wanted != found) record(0, {i, wanted, found}, {"Byte ", " expected ", " actual "});
    expected += hexByte(wanted);
    actual += hexByte(found);
  }
  if (tracing(0)) trace(0, "doAuditChips", 0, "Expected: " + expected + " Actual: " + actual);
  record(0, {}, {expected, actual});
}

void System::doFixBadRegister(int, int regionHandle, u32 entry, const u8* data) {
  Region& region = regions_.at(regionHandle);
  region.registersFixed++;
  region.lastFixTime = now_;
  methodWrite(region.method, region.address + entry * region.stride, data, region.entrySize, 1);
}

}  // namespace Model
