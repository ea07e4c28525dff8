// The rules of read requests and readers.
#include <telemetry/NamesRulesChecks.h>

namespace Telemetry {

using Hardware::ChipReader;
using Hardware::ChipReadRequest;

void requireAuditable(const ChipReadRequest& request) {
  for (auto member = request.chipMemoryIterator(); member; ++member) {
    requireAuditable(*member->chipMemory());
  }
}

void requireQueue(const ChipReader& reader) {
  const ChipReader::Queue& waiting = reader.chipMemory();
  for (auto* each = waiting.head(); each != nullptr; each = waiting.after(*each)) {
    requireAuditable(*each->chipMemory());
  }
}

namespace {

// What a reader does with this state of its request.
void requireCommand(const ChipReadRequest& request, S32 state, bool isQueueEmpty) {
  require(state >= ChipReadRequest::idle_ && state <= ChipReadRequest::stop_,
          "a request's state is 0 (idle), 1 (start) or 2 (stop), not " + std::to_string(state));
  if (state != ChipReadRequest::start_) return;
  require(request.chipMemorys() != 0 || !isQueueEmpty,
          request.name().bytes() + " has no regions: a reader must have something to read");
  requireAuditable(request);
}

bool isStarted(const ChipReader& reader) {
  return reader.request() != nullptr && reader.request()->state() == ChipReadRequest::start_;
}

// That the next slice can be read.
void requireSlice(const ChipReader& reader, const Hardware::ChipMemory* current, U32 entriesRead) {
  require(current != nullptr, "the reader has no current region");
  requireAuditable(*current);
  require(entriesRead < current->entries(),
          "entriesRead (" + std::to_string(entriesRead) + ") must be below the entries (" +
              std::to_string(current->entries()) + ") of " + current->name().bytes());
  requireQueue(reader);
}

}  // namespace

void checkRequest(const ChipReadRequest& request, const Action& action) {
  const Hardware::HardwareShadow* auditing = action.audits.auditing(request);
  const auto readers = action.audits.readersOf(request);
  if (action.name == "state=") {
    const auto state = action.argument<S32>("value");
    if (!state || request.notifiees() == 0) return;
    bool isQueueEmpty = true;
    for (const ChipReader* reader : readers) isQueueEmpty &= reader->chipMemorys() == 0;
    requireCommand(request, *state, isQueueEmpty);
  } else if (action.name == "status=") {
    const auto status = action.argument<S32>("value");
    const bool isPatrolled = action.audits.isPatrolled(request);
    if (!status || (auditing == nullptr && !isPatrolled)) return;
    require(*status != ChipReadRequest::failed_,
            "the request of a shadow that is auditing must not fail: set the shadow idle first");
    if (*status == ChipReadRequest::done_ && !isPatrolled) requireAuditable(request);
  } else if (action.name == "chipMemoryIs") {
    const auto region = action.argument<Hardware::ChipMemory::Ptr>("chipMemory");
    const bool isRead = auditing != nullptr || request.state() == ChipReadRequest::start_;
    if (region && *region != nullptr && isRead) requireAuditable(**region);
    if (region && *region != nullptr && action.audits.isPatrolled(request)) {
      requirePatrollable(**region);
    }
  } else if (action.name == "chipMemoryDel") {
    const auto address = action.argument<Hardware::ChipAddress>("address");
    require(!address || auditing == nullptr || request.chipMemorys() != 1 ||
                request.chipMemory(*address) == nullptr,
            "the last region under audit must not be removed before the shadow is idle");
  } else if (action.name == "chipMemoryDelAll") {
    require(auditing == nullptr || request.chipMemorys() == 0,
            "the last region under audit must not be removed before the shadow is idle");
  }
}

void checkReader(const ChipReader& reader, const Action& action) {
  const std::string& name = action.name;
  const Hardware::ChipMemory* current = reader.currentChipMemory().ptr();
  if (name == "doRead") {
    requireSlice(reader, current, reader.entriesRead());
  } else if (name == "handleReadRequest") {
    if (const auto request = reader.request(); request != nullptr) {
      requireCommand(*request, request->state(), reader.chipMemorys() == 0);
    }
  } else if (name == "request=") {
    if (const auto request = action.argument<ChipReadRequest::Ptr>("value");
        request && *request != nullptr) {
      requireCommand(**request, (*request)->state(), reader.chipMemorys() == 0);
    }
  } else if (name == "clock=") {
    const auto clock = action.argument<Zint::Ptr<const Zint::Clock>>("value");
    if (clock && *clock != nullptr && isStarted(reader)) {
      requireSlice(reader, current, reader.entriesRead());
    }
  } else if (name == "currentChipMemory=") {
    const auto region = action.argument<Hardware::ChipMemory::Ptr>("value");
    if (region && isStarted(reader)) requireSlice(reader, region->ptr(), reader.entriesRead());
  } else if (name == "entriesRead=") {
    const auto entriesRead = action.argument<U32>("value");
    if (entriesRead && isStarted(reader)) requireSlice(reader, current, *entriesRead);
  } else if (name == "chipMemoryIs") {
    if (const auto region = action.argument<Hardware::ChipMemory::Ptr>("chipMemory");
        region && *region != nullptr) {
      requireAuditable(**region);
    }
  }
}

}  // namespace Telemetry
