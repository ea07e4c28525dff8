#include <telemetry/NamesRules.h>

#include <telemetry/NamesRulesChecks.h>

namespace Telemetry {
namespace {

void check(const Zint::Result& object, const Action& action) {
  const Zint::PtrInterface* target = object.object.ptr();
  if (const auto* ham = dynamic_cast<const Hardware::ChipHam*>(target); ham != nullptr) {
    checkAccessMethod(*ham, action);
  } else if (const auto* region = dynamic_cast<const Hardware::ChipMemory*>(target);
             region != nullptr) {
    checkRegion(*region, action);
  } else if (const auto* directory = dynamic_cast<const Hardware::ChipMemoryBogon*>(target);
             directory != nullptr) {
    checkDirectory(*directory, action);
  } else if (const auto* request = dynamic_cast<const Hardware::ChipReadRequest*>(target);
             request != nullptr) {
    checkRequest(*request, action);
  } else if (const auto* reader = dynamic_cast<const Hardware::ChipReader*>(target);
             reader != nullptr) {
    checkReader(*reader, action);
  } else if (const auto* shadow = dynamic_cast<const Hardware::HardwareShadow*>(target);
             shadow != nullptr) {
    checkShadow(*shadow, action);
    checkDataPath(*shadow, action);
    checkPatrol(*shadow, action);
  } else {
    checkDriver(object, action);
  }
}

}  // namespace

void require(bool holds, const std::string& rule) {
  if (!holds) throw Error("refused: " + rule);
}

std::string countText(U64 count, const char* unit) {
  const std::string text = std::to_string(count) + " ";
  if (count == 1) return text + unit;
  return text + (std::string_view(unit) == "entry" ? "entries" : std::string(unit) + "s");
}

Audits::Audits(const Names& names) {
  for (const Zint::Result& each : names.results()) {
    if (const auto* shadow = dynamic_cast<const Hardware::HardwareShadow*>(each.object.ptr());
        shadow != nullptr) {
      shadows_.emplace_back(shadow);
    } else if (const auto* reader = dynamic_cast<const Hardware::ChipReader*>(each.object.ptr());
               reader != nullptr) {
      readers_.emplace_back(reader);
    }
  }
}

const Hardware::HardwareShadow* Audits::auditing(const Hardware::ChipReadRequest& request) const {
  for (const auto& shadow : shadows_) {
    if (!hasPatrol(*shadow) && shadow->state() == Hardware::HardwareShadow::auditing() &&
        shadow->auditReadRequest().ptr() == &request) {
      return shadow.ptr();
    }
  }
  return nullptr;
}

bool Audits::isPatrolled(const Hardware::ChipReadRequest& request) const {
  for (const auto& shadow : shadows_) {
    if (hasPatrol(*shadow) && shadow->state() == Hardware::HardwareShadow::auditing() &&
        shadow->auditReadRequest().ptr() == &request) {
      return true;
    }
  }
  return false;
}

bool Audits::isUnderAudit(const Hardware::ChipMemory& region) const {
  for (const auto& shadow : shadows_) {
    const auto request = shadow->auditReadRequest();
    if (request != nullptr && auditing(*request) == shadow.ptr() &&
        request->chipMemory(region.address()).ptr() == &region) {
      return true;
    }
  }
  for (const auto& reader : readers_) {
    if (reader->currentChipMemory().ptr() == &region) return true;
    const Hardware::ChipReader::Queue& waiting = reader->chipMemory();
    for (auto* each = waiting.head(); each != nullptr; each = waiting.after(*each)) {
      if (each->chipMemory().ptr() == &region) return true;
    }
  }
  return false;
}

std::vector<const Hardware::ChipReader*> Audits::readersOf(
    const Hardware::ChipReadRequest& request) const {
  std::vector<const Hardware::ChipReader*> readers;
  for (const auto& reader : readers_) {
    if (reader->request().ptr() == &request) readers.push_back(reader.ptr());
  }
  return readers;
}

void checkCall(const Names& names, const Zint::Result& object, const std::string& operation,
               const Zint::Arguments& arguments) {
  const Audits audits(names);
  check(object, {audits, operation, arguments});
}

void checkSet(const Names& names, const Zint::Result& object, const std::string& attribute,
              const Zint::String8& text) {
  const Audits audits(names);
  const Zint::Arguments arguments{{"value", text}};
  check(object, {audits, attribute + "=", arguments});
}

}  // namespace Telemetry
