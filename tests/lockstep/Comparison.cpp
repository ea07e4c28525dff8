#include "lockstep/Comparison.h"

#include <Mirl/Mirl.h>

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <sstream>

namespace Lockstep {
namespace {

using Model::none;

template <class T>
std::string describe(const T& value) {
  std::ostringstream out;
  if constexpr (std::is_enum_v<T>) {
    out << static_cast<S64>(value);
  } else if constexpr (std::is_same_v<T, double>) {
    out << std::hexfloat << value << std::defaultfloat << " (" << value << ")";
  } else {
    out << +value;
  }
  return out.str();
}
std::string describe(const std::string& value) { return "\"" + value + "\""; }

std::string describe(const Bytes& bytes) {
  std::ostringstream out;
  out << std::hex << std::setfill('0');
  for (U8 byte : bytes) out << std::setw(2) << U32{byte};
  return out.str();
}

std::string describe(const Model::Access& access) {
  std::ostringstream out;
  out << (access.write ? "write 0x" : "read 0x") << std::hex << access.address << " 0x"
      << access.value;
  return out.str();
}

std::string describe(const Model::Notification& notification) {
  return "notification " + std::to_string(static_cast<int>(notification.kind)) + " of " +
         std::to_string(notification.owner) + " key " + std::to_string(notification.key) + " '" +
         notification.name + "'";
}

// Whether the text contains the parts in this order. The fixed texts belong to the record's format.
bool occursIn(const std::string& text, const std::vector<std::string>& parts) {
  std::size_t from = 0;
  for (const std::string& part : parts) {
    from = text.find(part, from);
    if (from == std::string::npos) return false;
    from += part.size();
  }
  return true;
}

std::string describe(const Model::Record& record) {
  std::string text = "values";
  for (U32 value : record.values) text += " " + std::to_string(value);
  text += " texts";
  for (const std::string& part : record.texts) text += " '" + part + "'";
  return text;
}

// The model quotes functions as g++ spells them. Other compilers differ in all but the name.
std::string spellFunction(const std::string& function) {
#ifdef __clang__
  const std::size_t end = function.find('(');
  const std::size_t begin = function.rfind(' ', end) + 1;
  return function.substr(begin, end - begin);
#else
  return function;
#endif
}

}  // namespace

template <class T, class U>
bool Comparison::same(const char* what, const T& expected, const U& actual) {
  if (expected == static_cast<T>(actual)) [[likely]]
    return true;
  difference_ = what;
  difference_ += ": the model has ";
  difference_ += describe(expected);
  difference_ += ", the library ";
  difference_ += describe(static_cast<T>(actual));
  return false;
}

bool Comparison::compareAll() {
  for (int region = 0; region < model_.regions(); ++region) {
    if (!compareRegion(region)) return false;
  }
  return compareRegistry() && compareIndex() && compareRegisters();
}

bool Comparison::compareFatal(const Model::Fatal& expected) {
  const auto& failure = subject_.failure();
  if (!failure) {
    difference_ = "the model ends the process: " + expected.condition + " in " + expected.function +
                  "; the library goes on";
    return false;
  }
  if (expected.condition.empty()) {
    difference_ = "the library ends the process: " + failure->condition + " in " +
                  failure->function + "; the model goes on";
    return false;
  }
  if (expected.textOpen) return true;
  return same("condition", expected.condition, failure->condition) &&
         same("function", spellFunction(expected.function), spellFunction(failure->function)) &&
         same("source", std::string("Hardware/Umbra"), failure->source) &&
         (expected.line == 0 || same("line", expected.line, failure->line));
}

bool Comparison::compareAnswers(const Answer& expected, const Answer& actual) {
  return same("exception", expected.error, actual.error) &&
         same("answer", expected.value, actual.value) && same("data", expected.data, actual.data);
}

bool Comparison::compareLogs(const Call& call, bool requestNew) {
  auto& expected = model_.accesses();
  auto& actual = subject_.accesses();
  if (expected != actual) [[unlikely]] {
    const std::size_t common = std::min(expected.size(), actual.size());
    std::size_t i = 0;
    while (i < common && expected[i] == actual[i]) ++i;
    difference_ = "access " + std::to_string(i) + ": the model has " +
                  (i < expected.size() ? describe(expected[i]) : "none") + ", the library " +
                  (i < actual.size() ? describe(actual[i]) : "none");
    return false;
  }
  expected.clear();
  actual.clear();
  return same("exceptions in handlers", static_cast<U32>(model_.guarded().size()),
              subject_.guarded()) &&
         compareTrace() && compareRecords() && compareNotifications(call, requestNew);
}

bool Comparison::compareTrace() {
  auto& expected = model_.trace();
  auto& actual = subject_.trace();
  for (std::size_t i = 0; i < std::max(expected.size(), actual.size()); ++i) {
    if (i >= expected.size() || i >= actual.size()) {
      difference_ = "trace line " + std::to_string(i) + ": the model has " +
                    (i < expected.size() ? describe(expected[i].text) : "none") + ", the library " +
                    (i < actual.size() ? describe(actual[i].text) : "none");
      return false;
    }
    const Model::TraceLine& line = expected[i];
    if (!same("trace text", line.text, actual[i].text) ||
        !same("trace level", static_cast<U32>(line.level), actual[i].level) ||
        (line.line != 0 && !same("trace line number", line.line, actual[i].line)) ||
        !same("trace source", std::string("Hardware/Umbra"), actual[i].source) ||
        !same("trace function", std::string(line.function), actual[i].function) ||
        !same("trace context", std::string(line.context), actual[i].context)) {
      difference_ += " (trace line \"" + line.text + "\")";
      return false;
    }
  }
  expected.clear();
  actual.clear();
  return true;
}

bool Comparison::compareRecords() {
  auto& expected = model_.records();
  bool any = false;
  for (U32 level : {0u, 8u}) {
    const std::vector<Mirl::Record> records = Mirl::theTraceFile.records(level);
    any = any || !records.empty();
    std::size_t next = 0;
    // The ring keeps the last ones.
    for (U64 lost = Mirl::theTraceFile.ringBuf(level).lost(); lost > 0; ++next) {
      if (next == expected.size()) return same("records of the level", 0u, records.size());
      lost -= expected[next].level == static_cast<int>(level);
    }
    for (const Mirl::Record& record : records) {
      Model::Record actual{static_cast<int>(level), {}, {}};
      for (const Mirl::Argument& argument : record.arguments) {
        if (const auto* number = std::get_if<Mirl::Number>(&argument)) {
          actual.values.push_back(static_cast<U32>(number->value));
        } else {
          actual.texts.push_back(std::get<Zint::String8>(argument).bytes());
        }
      }
      while (next < expected.size() && expected[next].level != actual.level) ++next;
      if (next == expected.size()) {
        difference_ = "record: the model has none, the library " + describe(actual);
        return false;
      }
      if (expected[next].values != actual.values ||
          !(actual.texts.empty() ? occursIn(record.text.bytes(), expected[next].texts)
                                 : expected[next].texts == actual.texts)) {
        difference_ = "record: the model has " + describe(expected[next]) + ", the library " +
                      describe(actual);
        return false;
      }
      ++next;
    }
    for (; next < expected.size(); ++next) {
      if (expected[next].level == static_cast<int>(level)) {
        difference_ = "record: the model has " + describe(expected[next]) + ", the library none";
        return false;
      }
    }
  }
  if (any) Mirl::theTraceFile.clear();
  expected.clear();
  return true;
}

bool Comparison::compareNotifications(const Call& call, bool requestNew) {
  using Kind = Model::Notification::Kind;
  auto& expected = model_.notifications();
  auto& actual = subject_.notifications();
  if (requestNew) {
    // Nothing is notified of a request while the library makes it.
    const auto ofRequest = [](const Model::Notification& n) {
      return n.kind == Kind::requestState || n.kind == Kind::requestStatus ||
             n.kind == Kind::requestMember;
    };
    std::erase_if(expected, ofRequest);
    std::erase_if(actual, ofRequest);
  }
  if (call.operation == Operation::directory && call.variant == 2) {
    // The order in which a directory is emptied depends on a hash.
    const auto byName = [](const auto& a, const auto& b) { return a.name < b.name; };
    std::sort(expected.begin(), expected.end(), byName);
    std::sort(actual.begin(), actual.end(), byName);
  }
  for (std::size_t i = 0; i < std::max(expected.size(), actual.size()); ++i) {
    if (i < expected.size() && i < actual.size() && expected[i] == actual[i]) continue;
    difference_ = "notification " + std::to_string(i) + ": the model has " +
                  (i < expected.size() ? describe(expected[i]) : "none") + ", the library " +
                  (i < actual.size() ? describe(actual[i]) : "none");
    return false;
  }
  expected.clear();
  actual.clear();
  return true;
}

bool Comparison::compareBuffer(const char* name, int region, const std::optional<Bytes>& expected,
                               const Hal::BufBase* actual) {
  if (expected.has_value() == (actual != nullptr)) {
    if (!expected) return true;
    if (expected->size() == actual->size() &&
        (actual->size() == 0 || std::memcmp(expected->data(), actual->data(), actual->size()) == 0))
        [[likely]]
      return true;
  }
  const auto contents = [](const U8* data, std::size_t size) {
    return describe(Bytes(data, data + size));
  };
  difference_ = std::string(name) + " of r" + std::to_string(region) + ": the model has " +
                (expected ? contents(expected->data(), expected->size()) : "none") +
                ", the library " +
                (actual != nullptr ? contents(actual->data(), actual->size()) : "none");
  return false;
}

bool Comparison::compareRegion(int handle) {
  const Model::Region& expected = model_.region(handle);
  const Hardware::ChipMemory& actual = *subject_.region(handle);
  if (same("entries", expected.entries, actual.entries()) &&
      same("entrySize", expected.entrySize, actual.entrySize()) &&
      same("stride", expected.stride, actual.stride()) &&
      same("address", expected.address, actual.address().value()) &&
      same("indirectCmdRegAddr", expected.indirectCmdRegAddr, actual.indirectCmdRegAddr()) &&
      same("shadowEnabled", expected.shadowEnabled, actual.shadowEnabled()) &&
      same("auditEnabled", expected.auditEnabled, actual.auditEnabled()) &&
      same("mode", static_cast<S32>(expected.mode), static_cast<S32>(actual.mode())) &&
      same("shadowStoreNeeded", expected.shadowStoreNeeded(), actual.shadowStoreNeeded()) &&
      same("readFromCache", expected.readFromCache, actual.readFromCache()) &&
      same("skipWriteIfMatchesCache", expected.skipWriteIfMatchesCache,
           actual.skipWriteIfMatchesCache()) &&
      same("allowsLogicalViews", expected.allowsLogicalViews, actual.allowsLogicalViews()) &&
      same("readCacheHits", expected.readCacheHits, actual.readCacheHits()) &&
      same("writeCacheHits", expected.writeCacheHits, actual.writeCacheHits()) &&
      same("registersFixed", expected.registersFixed, actual.registersFixed()) &&
      same("lastFixTime", expected.lastFixTime, actual.lastFixTime()) &&
      compareBuffer("hardware", handle, expected.hardware, actual.hardware().ptr()) &&
      compareBuffer("shadow", handle, expected.shadow, actual.shadow().ptr()) &&
      compareBuffer("initialized", handle, expected.initialized, actual.initialized().ptr()) &&
      compareBuffer("dirty", handle, expected.dirty, actual.dirty().ptr())) {
    return true;
  }
  difference_ += " (r" + std::to_string(handle) + ")";
  return false;
}

bool Comparison::compareShadow() {
  const Model::Shadow& expected = model_.shadow(shadow);
  const Hardware::HardwareShadow& actual = subject_.shadow();
  const auto handle = [this](int region) {
    return region == none ? nullptr : subject_.region(region).ptr();
  };
  if (handle(expected.last) != actual.lastChipMemory().ptr()) {
    difference_ = "lastChipMemory is not r" + std::to_string(expected.last);
    return false;
  }
  return same("state", static_cast<S32>(expected.state), static_cast<S32>(actual.state())) &&
         same("overrideHardware", expected.overrideHardware, actual.overrideHardware()) &&
         same("minIntervalBetweenAudits", expected.minIntervalBetweenAudits,
              actual.minIntervalBetweenAudits()) &&
         same("lastAuditStartTime", expected.lastAuditStartTime, actual.lastAuditStartTime()) &&
         same("audits", expected.audits, actual.audits()) &&
         same("chipMemoryEntriesUnderAudit", expected.entriesUnderAudit,
              actual.chipMemoryEntriesUnderAudit()) &&
         same("chipMemorys", expected.registry.size(), actual.chipMemorys()) &&
         same("wakeTime", model_.nextWakeUp(), subject_.wakeTime()) &&
         same("chipMemorys of the directory", model_.directory(directory).members.size(),
              subject_.directory().chipMemorys());
}

bool Comparison::compareRequest() {
  const int handle = model_.shadow(shadow).request;
  const Hardware::ChipReadRequest::Ptr audit = subject_.shadow().auditReadRequest();
  if (!same("auditReadRequest exists", handle != none, audit != nullptr)) return false;
  if (handle == none) return true;
  if (audit != subject_.request(handle)) {
    difference_ = "auditReadRequest is another one";
    return false;
  }
  const Model::Request& expected = model_.request(handle);
  if (!same("name of the request", expected.name, audit->name().bytes()) ||
      !same("state of the request", expected.state, static_cast<U32>(audit->state())) ||
      !same("status of the request", expected.status, static_cast<U32>(audit->status())) ||
      !same("generation of the request", static_cast<U32>(expected.generation),
            audit->generation()) ||
      !same("members of the request", expected.members.size(), audit->chipMemorys())) {
    return false;
  }
  std::size_t i = 0;
  for (auto member = audit->chipMemoryIterator(); member; ++member, ++i) {
    if (i >= expected.members.size() ||
        subject_.region(expected.members[i].region) != member->chipMemory()) {
      difference_ = "member " + std::to_string(i) + " of the request is another region";
      return false;
    }
  }
  return true;
}

bool Comparison::compareReader(int handle) {
  const Model::Reader& expected = model_.reader(handle);
  const Hardware::ChipReader& actual = subject_.reader();
  const auto* current =
      expected.current == none ? nullptr : subject_.region(expected.current).ptr();
  if (current != actual.currentChipMemory().ptr()) {
    difference_ = "currentChipMemory is not r" + std::to_string(expected.current);
    return false;
  }
  if (!same("entriesRead", expected.entriesRead, actual.entriesRead()) ||
      !same("maxEntriesPerRead", expected.maxEntriesPerRead, actual.maxEntriesPerRead()) ||
      !same("readInterval", expected.readInterval, actual.readInterval()) ||
      !same("length of the queue", expected.queue.size(), actual.chipMemorys())) {
    return false;
  }
  const auto* waiting = actual.chipMemory().head();
  for (int region : expected.queue) {
    if (waiting == nullptr || waiting->chipMemory() != subject_.region(region)) {
      difference_ = "r" + std::to_string(region) + " is not in its place in the queue";
      return false;
    }
    waiting = actual.chipMemory().after(*waiting);
  }
  return true;
}

bool Comparison::compareRegistry() {
  auto member = model_.shadow(shadow).registry.begin();
  for (auto actual = subject_.shadow().chipMemoryIterator(); actual; ++actual, ++member) {
    if (member == model_.shadow(shadow).registry.end() ||
        !same("registered address", member->first, actual->fwkKey().value()) ||
        subject_.region(member->second) != actual->chipMemory()) {
      difference_ += " (registry)";
      return false;
    }
  }
  for (const auto& [name, region] : model_.directory(directory).members) {
    if (subject_.directory().chipMemory(name) != subject_.region(region)) {
      difference_ = "the directory's " + name + " is not r" + std::to_string(region);
      return false;
    }
  }
  return true;
}

bool Comparison::compareIndex() {
  const auto& expected = model_.shadow(shadow).index;
  const Hardware::HardwareShadow& actual = subject_.shadow();
  if (!same("nextIndex", expected.size(), U16{actual.nextIndex()}) ||
      !same("chipMemoryIds", expected.size(), actual.chipMemoryIds()) ||
      !same("chipMemoryChunkArrays", expected.size(), actual.chipMemoryChunkArrays()) ||
      !same("chipMemoryChunks", expected.size(), actual.chipMemoryChunks())) {
    return false;
  }
  U16 i = 0;
  for (const auto& [id, regions] : expected) {
    const Hardware::ChipMemoryChunk::Ptr chunk = actual.chipMemoryChunkArray(i);
    if (!same("chipMemoryId", id, actual.chipMemoryId(i)) ||
        !same("chunk exists", true, chunk != nullptr && chunk == actual.chipMemoryChunk(id)) ||
        !same("regions of the chunk", regions.size(), U16{chunk->nextIndex()})) {
      return false;
    }
    U16 j = 0;
    for (const auto& [offset, region] : regions) {
      if (!same("offset", offset, chunk->offset(j)) ||
          !same("region of the chunk", true, chunk->chipMemory(j) == subject_.region(region))) {
        return false;
      }
      ++j;
    }
    ++i;
  }
  return true;
}

bool Comparison::compareRegisters() {
  for (const auto& [address, value] : subject_.registers()) {
    if (!same("register", model_.chipPeek(chip, address), value)) return false;
  }
  return true;
}

}  // namespace Lockstep
