// The rules of the shadow: states, registry and audit.
#include <map>

#include <telemetry/NamesRulesChecks.h>

namespace Telemetry {

using Hardware::ChipMemory;
using Hardware::HardwareShadow;

namespace {

constexpr U32 mostIndexed = 65535;

// That the index can count the chunks, and the regions of each.
void requireIndexable(const HardwareShadow& shadow) {
  std::map<U32, U64> regions;
  // The index is emptied first, unless it counts no chunks.
  if (shadow.nextIndex() == 0) {
    for (auto chunk = shadow.chipMemoryChunkIterator(); chunk; ++chunk) {
      regions[chunk->fwkKey()] = chunk->nextIndex();
    }
  }
  for (auto member = shadow.chipMemoryIterator(); member; ++member) {
    const U64 count = ++regions[member->fwkKey().chipMemoryId()];
    require(count <= mostIndexed, "a chip memory id must not have more than 65,535 regions");
  }
  require(regions.size() <= mostIndexed, "there must not be more than 65,535 chip memory ids");
}

void requireState(const HardwareShadow& shadow, HardwareShadow::State state, const Audits& audits) {
  const auto request = shadow.auditReadRequest();
  switch (state) {
    case HardwareShadow::configured_:
      require(request == nullptr || request->chipMemorys() == 0,
              "configured must come after unconfigured: the audit's request still has regions");
      requireIndexable(shadow);
      break;
    case HardwareShadow::idle_:
      require(request != nullptr,
              "idle must come after configured, which makes the audit's request");
      break;
    case HardwareShadow::auditing_:
      require(request != nullptr,
              "auditing must come after configured, which makes the audit's request");
      if (hasPatrol(shadow)) {
        requirePatrollable(*request);
        break;
      }
      requireAuditable(*request);
      for (const Hardware::ChipReader* reader : audits.readersOf(*request)) requireQueue(*reader);
      break;
    case HardwareShadow::unconfigured_:
      break;
  }
}

void requireRegistry(const HardwareShadow& shadow) {
  require(shadow.state() == HardwareShadow::unconfigured() || shadow.overrideHardware(),
          "regions are registered and removed while the shadow is unconfigured, or while "
          "overrideHardware is true");
}

void requireRequest(const HardwareShadow& shadow, const Hardware::ChipReadRequest* request,
                    const Audits& audits) {
  if (shadow.state() == HardwareShadow::unconfigured()) return;
  require(request != nullptr,
          "the audit's request must not be null before the shadow is "
          "unconfigured");
  if (shadow.state() != HardwareShadow::auditing()) return;
  if (hasPatrol(shadow)) return requirePatrollable(*request);
  require(request->chipMemorys() != 0 || audits.readersOf(*request).empty(),
          "the request of a shadow that is auditing must have regions");
  requireAuditable(*request);
}

}  // namespace

void checkShadow(const HardwareShadow& shadow, const Action& action) {
  const std::string& name = action.name;
  const auto request = shadow.auditReadRequest();
  if (name == "state=") {
    const auto state = action.argument<HardwareShadow::State>("value");
    if (state && *state != shadow.state()) requireState(shadow, *state, action.audits);
  } else if (name == "handleState") {
    requireState(shadow, shadow.state(), action.audits);
  } else if (name == "auditReadRequest=") {
    if (const auto given = action.argument<Hardware::ChipReadRequest::Ptr>("value")) {
      requireRequest(shadow, given->ptr(), action.audits);
    }
  } else if (name == "chipMemoryIs") {
    const auto region = action.argument<ChipMemory::Ptr>("chipMemory");
    if (!region || *region == nullptr) return;
    if (shadow.chipMemory((*region)->address()) != *region) requireRegistry(shadow);
  } else if (name == "chipMemoryDel") {
    const auto address = action.argument<Hardware::ChipAddress>("address");
    if (address && shadow.chipMemory(*address) != nullptr) requireRegistry(shadow);
  } else if (name == "handleChipMemory") {
    requireRegistry(shadow);
  } else if (name == "chipMemoryAuditEnabledIs") {
    const auto region = action.argument<ChipMemory::Ptr>("chipMemory");
    const auto auditEnabled = action.argument<bool>("auditEnabled");
    if (!region || *region == nullptr || !auditEnabled) return;
    require(shadow.state() == HardwareShadow::idle(),
            "a region's audit is switched while the shadow is idle");
    require(!*auditEnabled || (*region)->mode() != ChipMemory::override(),
            "a region in mode override cannot be audited");
  } else if (name == "handleAuditReadRequestStatus") {
    if (shadow.state() != HardwareShadow::auditing() || request == nullptr) return;
    require(request->status() != Hardware::ChipReadRequest::failed_,
            "the request of a shadow that is auditing must not have failed");
    if (!hasPatrol(shadow)) requireAuditable(*request);
  } else if (name == "doFixBadRegister") {
    if (const auto region = action.argument<ChipMemory::Ptr>("chipMemory");
        region && *region != nullptr) {
      requireAccess((*region)->chipHam().ptr(), (*region)->entrySize(), 1);
    }
  }
}

}  // namespace Telemetry
