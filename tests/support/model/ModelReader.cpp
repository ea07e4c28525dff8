// Read requests and readers.
#include <algorithm>
#include <tuple>

#include "Model.h"

namespace Model {

// --- Read requests.

int System::requestCreate(const std::string& name) {
  requests_.emplace_back();
  requests_.back().name = name;
  return static_cast<int>(requests_.size()) - 1;
}

int System::requestChipMemory(int handle, u64 address) const {
  for (const RequestMember& member : requests_.at(handle).members) {
    if (member.address == address) return member.region;
  }
  return none;
}

void System::requestChipMemoryIs(int handle, int region) {
  if (region == none) {
    throw RangeError{
        "null _chipMemory parameter to mutator for Hardware::ChipReadRequest::chipMemory not "
        "allowed\""};
  }
  u64 address = regions_.at(region).address;
  std::vector<RequestMember>& members = requests_.at(handle).members;
  auto present = std::find_if(members.begin(), members.end(),
                              [&](const RequestMember& m) { return m.address == address; });
  if (present != members.end()) {
    if (present->region == region) return;
    present->region = region;
  } else {
    // Members of the same order are sorted by their addresses.
    u32 order = reversedBits(static_cast<u32>(address));
    auto after = std::find_if(members.begin(), members.end(), [&](const RequestMember& m) {
      return std::tie(m.order, m.address) > std::tie(order, address);
    });
    members.insert(after, {order, address, region});
  }
  notify(Notification::Kind::requestMember, handle, address);
}

int System::requestChipMemoryDel(int handle, u64 address) {
  std::vector<RequestMember>& members = requests_.at(handle).members;
  auto present = std::find_if(members.begin(), members.end(),
                              [&](const RequestMember& m) { return m.address == address; });
  if (present == members.end()) return none;
  int removed = present->region;
  members.erase(present);
  notify(Notification::Kind::requestMember, handle, address);
  return removed;
}

void System::requestChipMemoryDelAll(int handle) {
  while (!requests_.at(handle).members.empty()) {
    requestChipMemoryDel(handle, requests_.at(handle).members.front().address);
  }
}

// Commands: a value that is already held is stored and announced, too.

void System::requestStateIs(int handle, u32 state) {
  Request& request = requests_.at(handle);
  request.state = state;
  request.generation++;
  notify(Notification::Kind::requestState, handle, state);
  notifyObservers(handle, false);
}

void System::requestStatusIs(int handle, u32 status) {
  requests_.at(handle).status = status;
  notify(Notification::Kind::requestStatus, handle, status);
  notifyObservers(handle, true);
}

// --- Readers.

int System::readerCreate(int request, u32 maxEntriesPerRead, double readInterval) {
  readers_.emplace_back();
  int handle = static_cast<int>(readers_.size()) - 1;
  Reader& reader = readers_.back();
  reader.request = request;
  reader.maxEntriesPerRead = maxEntriesPerRead;
  reader.readInterval = readInterval;
  if (request != none) observe(request, {Actor::reader, handle});
  return handle;
}

void System::readerDestroy(int handle) {
  Reader& reader = readers_.at(handle);
  if (reader.request != none) unobserve(reader.request, {Actor::reader, handle});
  reader = Reader{};
  reader.alive = false;
}

// Binding another request serves the state that it already has; a first request is only bound.
void System::readerRequestIs(int handle, int request) {
  Reader& reader = readers_.at(handle);
  if (reader.request == request) return;
  bool rebound = reader.request != none;
  if (rebound) unobserve(reader.request, {Actor::reader, handle});
  reader.request = request;
  if (request == none) return;
  observe(request, {Actor::reader, handle});
  if (rebound) readerHandleReadRequest(handle);
}

void System::maxEntriesPerReadIs(int reader, u32 entries) {
  readers_.at(reader).maxEntriesPerRead = entries;
}

void System::readIntervalIs(int reader, double seconds) {
  readers_.at(reader).readInterval = seconds;
}

int System::readerDeq(Reader& reader) {
  if (reader.queue.empty()) return none;
  int head = reader.queue.front();
  reader.queue.erase(reader.queue.begin());
  return head;
}

void System::readerHandleReadRequest(int handle) {
  static const char* function = "void Hardware::ChipReader::handleReadRequest()";
  Reader& reader = readers_.at(handle);
  guard(reader.request != none, "reader without a request");
  const Request& request = requests_.at(reader.request);
  if (tracing(0)) {
    trace(0, "handleReadRequest", 299, "handleReadRequest " + decimal(request.state));
  }
  switch (request.state) {
    case 0:
      return;
    case 1:
      // What is still queued stays first.
      for (const RequestMember& member : request.members) reader.queue.push_back(member.region);
      reader.entriesRead = 0;
      reader.current = readerDeq(reader);
      require(reader.current != none, "currentChipMemory_", function, 313);
      arm(reader.alarm, 0.0);
      return;
    case 2:
      arm(reader.alarm, never);
      reader.queue.clear();
      reader.current = none;
      return;
    default:
      require(false, "0", function, 323);
  }
}

void System::readerHandleTimeout(int handle) {
  Reader& reader = readers_.at(handle);
  guard(reader.request != none, "reader without a request");
  if (requests_.at(reader.request).state != 1) return;
  require(reader.current != none, "currentChipMemory_",
          "void Hardware::ChipReader::handleTimeout()", 334);
  if (tracing(9)) trace(9, "handleTimeout", 336, "ChipReader::handleTimeout");
  readerDoRead(handle);
  if (reader.current != none) {
    arm(reader.alarm, now_ + reader.readInterval);
  } else {
    requestStatusIs(reader.request, 3);
  }
}

void System::readerDoRead(int handle) {
  static const char* function = "virtual void Hardware::ChipReader::doRead()";
  Reader& reader = readers_.at(handle);
  require(reader.current != none, "currentChipMemory_", function, 350);
  require(regions_.at(reader.current).mode != Mode::override_,
          "(currentChipMemory_->mode() != ChipMemory::override())", function, 352);
  u32 done = 0;
  while (done < reader.maxEntriesPerRead && reader.current != none) {
    Region& region = regions_.at(reader.current);
    u32 first = reader.entriesRead;
    guard(first <= region.entries, "region shrunk below what was read already");
    u32 left = region.entries - first;
    u32 chunk = std::min(reader.maxEntriesPerRead - done, left);
    require(chunk != 0, "readChunkSizeInEntries", function, 363);
    guard(region.hardware && (u64{first} + chunk) * region.entrySize <= region.hardware->size(),
          "hardware smaller than the slice");
    u64 address = region.address + first * region.stride;
    if (tracing(6)) {
      trace(6, "doRead", 366,
            "ChipReader::doRead " + region.name + " 0x" + hexadecimal(address) + " 0x" +
                hexadecimal(chunk) + " entries");
    }
    methodRead(region.method, address,
               region.hardware->data() + std::size_t{first} * region.entrySize, region.entrySize,
               chunk);
    reader.entriesRead += chunk;
    if (reader.entriesRead == region.entries) {
      reader.entriesRead = 0;
      reader.current = readerDeq(reader);
    }
    done += chunk;
  }
}

}  // namespace Model
