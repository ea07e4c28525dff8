// What all commands share, and those of the session itself.
#include <telemetry/ControlTask.h>

#include <Driver/Descriptions.h>
#include <Hal/Buf.h>
#include <Zint/Strep.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace Telemetry {

const std::string& textIn(const ControlLine& line, const char* name) {
  const ControlValue* value = line.find(name);
  if (value == nullptr || value->kind != ControlValue::text) {
    throw Error(std::string(name) + " must be a text");
  }
  return value->bytes;
}

std::string pathIn(const ControlLine& line) {
  return line.find("path") == nullptr ? "/" : textIn(line, "path");
}

U64 numberIn(const ControlLine& line, const char* name, U64 otherwise) {
  const ControlValue* value = line.find(name);
  if (value == nullptr) return otherwise;
  if (value->kind != ControlValue::number) throw Error(std::string(name) + " must be a number");
  try {
    return Zint::strepToValue<U64>(value->bytes);
  } catch (const Zint::RangeException&) {
    throw Error(std::string(name) + " must be a whole number of at most 64 bits, not " +
                value->bytes);
  }
}

bool flagIn(const ControlLine& line, const char* name) {
  const ControlValue* value = line.find(name);
  if (value == nullptr) return false;
  if (value->kind != ControlValue::truth) {
    throw Error(std::string(name) + " must be true or false");
  }
  return value->bytes == "true";
}

bool isCostly(const Zint::Member& member) {
  static const Zint::Member* const costly[] = {
      Driver::chipWriterType.find("plan"), Driver::chipWriterType.find("remarks"),
      Driver::chipWriterType.find("differences"), Driver::chipWriteRequestType.find("stringValue")};
  return std::find(std::begin(costly), std::end(costly), &member) != std::end(costly);
}

bool isTooLong(const Zint::Result& object, const Zint::Member& member) {
  constexpr U32 longest = 1024;  // bytes of a buffer
  const auto* buffer = dynamic_cast<const Hal::BufBase*>(object.object.ptr());
  return buffer != nullptr && buffer->size() > longest &&
         std::string_view(member.typeName) == "Bytes";
}

Zint::String8 textAt(const Place& place) {
  if (place.kind == Place::root) throw Error("/ is no object");
  return place.kind == Place::collection ? place.view().attribute(place.member->name)
                                         : place.result.text;
}

// --- Look-ups ---

namespace {

Names::Lookup lookupIn(ControlSession& session, const std::string& path) {
  const bool readsCostly = isAllowed(session.level(), Zint::Level::operate);
  return Names::Lookup(
      session.world().names, session.world().names.absolute(path), mostAsAWhole,
      [readsCostly](const Zint::Result& object, const Zint::Member& member) {
        if (isTooLong(object, member)) {
          throw Error(std::string(member.name) +
                      " is longer than a line may be: dump shows it entry by entry");
        }
        if (readsCostly || !isCostly(member)) return;
        throw Error(std::string(member.name) +
                    " goes through all regions: to read it needs the level operate");
      });
}

}  // namespace

PathTask::PathTask(ControlSession& session, const std::string& path)
    : session_(session), lookup_(lookupIn(session, path)) {}

bool PathTask::step(ControlAnswer& answer, std::string& out) {
  if (!lookup_) return proceed(answer, out);
  if (!lookup_->step(membersPerStep)) return false;
  place_ = std::move(lookup_->place());
  lookup_.reset();
  return begin(answer, out);
}

ValueLookup::ValueLookup(ControlSession& session, const ControlValue& value) : text_(value.bytes) {
  if (value.kind == ControlValue::text && value.bytes.starts_with('/')) {
    lookup_.emplace(lookupIn(session, value.bytes));
  }
}

bool ValueLookup::step() {
  if (!lookup_) return true;
  if (!lookup_->step(membersPerStep)) return false;
  text_ = textAt(lookup_->place());
  lookup_.reset();
  return true;
}

// --- Commands of the session itself ---

namespace {

class PingTask : public ControlTask {
 public:
  bool step(ControlAnswer&, std::string&) override { return true; }
};

class VersionTask : public ControlTask {
 public:
  explicit VersionTask(ControlSession& session) : session_(session) {}
  bool step(ControlAnswer& answer, std::string&) override {
    AnswerFields fields(answer);
    fields.number("umbra", U64{1}).text("name", session_.world().name);
    fields.number("pid", static_cast<S64>(getpid())).text("version", UMBRA_VERSION);
    fields.text("level", levelName(session_.level())).number("uid", U64{session_.peer().uid});
    return true;
  }

 private:
  ControlSession& session_;
};

Zint::Level levelNamed(const std::string& name) {
  for (const Zint::Level level :
       {Zint::Level::look, Zint::Level::operate, Zint::Level::administer}) {
    if (name == levelName(level)) return level;
  }
  throw Error("level must be look, operate or administer, not " + name);
}

class LevelTask : public ControlTask {
 public:
  LevelTask(ControlSession& session, const ControlLine& line)
      : session_(session), wanted_(levelNamed(textIn(line, "level"))) {}
  bool step(ControlAnswer& answer, std::string&) override {
    session_.levelIs(wanted_);
    AnswerFields(answer).text("level", levelName(wanted_));
    return true;
  }

 private:
  ControlSession& session_;
  const Zint::Level wanted_;
};

class UnwatchTask : public ControlTask {
 public:
  UnwatchTask(ControlSession& session, const ControlLine& line)
      : session_(session), path_(line.find("path") == nullptr ? "" : textIn(line, "path")) {}
  bool step(ControlAnswer&, std::string&) override {
    if (path_.empty()) {
      session_.unwatchAll();
    } else if (!session_.unwatch(textOf(session_.world().names.absolute(path_)))) {
      throw Error(path_ + " is not watched");
    }
    return true;
  }

 private:
  ControlSession& session_;
  const std::string path_;
};

std::unique_ptr<ControlTask> sessionTask(ControlSession& session, const std::string& command,
                                         const ControlLine& line) {
  if (command == "ping") return std::make_unique<PingTask>();
  if (command == "version") return std::make_unique<VersionTask>(session);
  if (command == "level") return std::make_unique<LevelTask>(session, line);
  if (command == "unwatch") return std::make_unique<UnwatchTask>(session, line);
  return nullptr;
}

constexpr auto commandNames = std::to_array<std::string_view>(
    {"ping", "version", "level", "list", "get", "describe", "set", "call", "forget", "watch",
     "unwatch", "events", "policyText", "dump", "check", "plan"});

}  // namespace

std::unique_ptr<ControlTask> taskOf(ControlSession& session, const ControlLine& line) {
  const std::string& command = textIn(line, "do");
  for (const auto group : {sessionTask, lookingTask, changingTask, driverTask}) {
    if (auto task = group(session, command, line)) return task;
  }
  throw Error("no command " + command +
              didYouMean(command, {commandNames.begin(), commandNames.end()}));
}

}  // namespace Telemetry
