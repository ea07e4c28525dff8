// What the sources of the rules share.
#pragma once

#include <Driver/AuditedShadow.h>
#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/ObjectText.h>

#include <optional>
#include <string>
#include <vector>

#include <telemetry/Names.h>
#include <telemetry/NamesText.h>

namespace Telemetry {

// The shadows and readers of "/".
class Audits {
 public:
  explicit Audits(const Names& names);

  // The shadow that audits by this request; null when none is auditing by it. A patrol is left out:
  // it passes over what it cannot read.
  const Hardware::HardwareShadow* auditing(const Hardware::ChipReadRequest& request) const;
  // Whether a patrol works through this request.
  bool isPatrolled(const Hardware::ChipReadRequest& request) const;
  // Whether a pass reads or compares the region, now or before it ends.
  bool isUnderAudit(const Hardware::ChipMemory& region) const;
  // The readers of a request.
  std::vector<const Hardware::ChipReader*> readersOf(
      const Hardware::ChipReadRequest& request) const;

 private:
  std::vector<Zint::Ptr<const Hardware::HardwareShadow>> shadows_;
  std::vector<Zint::Ptr<const Hardware::ChipReader>> readers_;
};

// What a line wants to do: an operation and its arguments; to set an attribute is the operation
// "mode=" with the argument "value".
struct Action {
  const Audits& audits;
  std::string name;
  const Zint::Arguments& arguments;

  // Nothing where the argument is missing or unreadable: the library refuses these by itself.
  template <class T>
  std::optional<T> argument(const char* wanted) const {
    for (const auto& [given, text] : arguments) {
      if (given != wanted) continue;
      try {
        return Zint::strepToValue<T>(text);
      } catch (const Zint::RangeException&) {
        return std::nullopt;
      }
    }
    return std::nullopt;
  }
};

// Error unless `holds`; `rule` says what does not hold.
void require(bool holds, const std::string& rule);

// "4 bytes"
std::string countText(U64 count, const char* unit);

// Whether the shadow audits by itself.
bool hasPatrol(const Hardware::HardwareShadow& shadow);

// An access of that many entries through the access method.
void requireAccess(const Hardware::ChipHam* ham, U32 entrySize, U64 entries);
// The shadow, dirty and initialized of the entries before `end`.
void requireStore(const Hardware::ChipMemory& region, U64 end);
// That a pass can read the region, and compare it where it does.
void requireAuditable(const Hardware::ChipMemory& region);
void requireAuditable(const Hardware::ChipReadRequest& request);
// That a patrol can read what it reads of them.
void requirePatrollable(const Hardware::ChipMemory& region);
void requirePatrollable(const Hardware::ChipReadRequest& request);
// The same of the regions that wait in a reader's queue.
void requireQueue(const Hardware::ChipReader& reader);

// One source per class.
void checkAccessMethod(const Hardware::ChipHam& ham, const Action& action);
void checkRegion(const Hardware::ChipMemory& region, const Action& action);
void checkDirectory(const Hardware::ChipMemoryBogon& directory, const Action& action);
void checkRequest(const Hardware::ChipReadRequest& request, const Action& action);
void checkReader(const Hardware::ChipReader& reader, const Action& action);
void checkShadow(const Hardware::HardwareShadow& shadow, const Action& action);
// What is there only where a shadow audits by itself.
void checkPatrol(const Hardware::HardwareShadow& shadow, const Action& action);
// Chips, accesses, writers and their requests.
void checkDriver(const Zint::Result& object, const Action& action);
// The data path: look-ups, reads and writes.
void checkDataPath(const Hardware::HardwareShadow& shadow, const Action& action);

}  // namespace Telemetry
