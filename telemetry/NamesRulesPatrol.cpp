// The rules of shadows that audit by themselves, and of what they work with: chips, accesses,
// writers and their requests. Almost all that is wrong there is refused by the library; what is
// left are accesses that an access method cannot make.
#include <Driver/ChipAccess.h>
#include <Driver/ChipWriter.h>
#include <Zint/Bytes.h>
#include <Zint/Sizes.h>

#include <telemetry/NamesRulesChecks.h>

namespace Telemetry {

using Driver::AuditedShadow;
using Driver::ChipWriteRequest;
using Hardware::ChipMemory;

bool hasPatrol(const Hardware::HardwareShadow& shadow) {
  return dynamic_cast<const AuditedShadow*>(&shadow) != nullptr;
}

namespace {

// What is done only with regions that have an access method.
void requireAnyAccess(const ChipMemory& region) {
  if (region.chipHam() != nullptr && region.mode() != ChipMemory::override()) {
    requireAccess(region.chipHam().ptr(), region.entrySize(), region.entries());
  }
}

void requireAccessOf(const ChipMemory::Ptr& region) {
  if (region != nullptr) requireAnyAccess(*region);
}

void requireWritable(const ChipWriteRequest& request) {
  for (const ChipWriteRequest::Group& group : request.groups()) {
    for (const ChipMemory::Ptr& region : group.chipMemory) requireAccessOf(region);
  }
}

void checkWriteRequest(const ChipWriteRequest& request, const Action& action) {
  if (action.name == "state=") {
    const auto state = action.argument<S32>("value");
    if (!state || request.notifiees() == 0) return;
    require(*state >= ChipWriteRequest::idle_ && *state <= ChipWriteRequest::stop_,
            "a request's state is 0 (idle), 1 (start) or 2 (stop), not " + std::to_string(*state));
    if (*state == ChipWriteRequest::start_) requireWritable(request);
  } else if (action.name == "chipMemoryIs" && request.state() == ChipWriteRequest::start_) {
    requireAccessOf(action.argument<ChipMemory::Ptr>("chipMemory").value_or(nullptr));
  }
}

void checkWriter(const Driver::ChipWriter& writer, const Action& action) {
  if (action.name == "request=") {
    const auto request = action.argument<ChipWriteRequest::Ptr>("value");
    if (request && *request != nullptr && (*request)->state() != ChipWriteRequest::idle_) {
      requireWritable(**request);
    }
  } else if (action.name == "doDiff" || action.name == "doWrite" || action.name == "doResume" ||
             action.name == "handleWriteRequest") {
    if (const auto request = writer.request(); request != nullptr) requireWritable(*request);
  } else if (action.name == "doLeaveBuffered") {
    requireAccessOf(action.argument<ChipMemory::Ptr>("chipMemory").value_or(nullptr));
  }
}

}  // namespace

void requirePatrollable(const ChipMemory& region) {
  if (region.shadowEnabled() && region.auditEnabled()) requireAnyAccess(region);
}

void requirePatrollable(const Hardware::ChipReadRequest& request) {
  for (auto member = request.chipMemoryIterator(); member; ++member) {
    requirePatrollable(*member->chipMemory());
  }
}

void checkPatrol(const Hardware::HardwareShadow& shadow, const Action& action) {
  if (!hasPatrol(shadow)) return;
  if (action.name == "doAudit") {
    requireAccessOf(action.argument<ChipMemory::Ptr>("chipMemory").value_or(nullptr));
  }
}

void checkDriver(const Zint::Result& object, const Action& action) {
  const Zint::PtrInterface* target = object.object.ptr();
  if (const auto* chip = dynamic_cast<const Driver::Chip*>(target); chip != nullptr) {
    const auto value = action.argument<Zint::Bytes>("value");
    if (action.name == "sentinelIs" && value && !value->bytes.empty() &&
        chip->chipHam() != nullptr) {
      requireAccess(chip->chipHam().ptr(), Zint::countOf(value->bytes), 1);
    }
  } else if (const auto* access = dynamic_cast<const Driver::ChipAccess*>(target);
             access != nullptr) {
    if (action.name == "read" || action.name == "write") requireAnyAccess(*access->chipMemory());
  } else if (const auto* request = dynamic_cast<const ChipWriteRequest*>(target);
             request != nullptr) {
    checkWriteRequest(*request, action);
  } else if (const auto* writer = dynamic_cast<const Driver::ChipWriter*>(target);
             writer != nullptr) {
    checkWriter(*writer, action);
  }
}

}  // namespace Telemetry
