// Commands under way that work at a place. No installed header.
#pragma once

#include <telemetry/ControlSession.h>
#include <telemetry/ControlText.h>
#include <telemetry/NamesText.h>
#include <optional>

namespace Telemetry {

// Members of a line. Error where one is missing or of another kind.
const std::string& textIn(const ControlLine& line, const char* name);
std::string pathIn(const ControlLine& line);  // "/" where there is none
U64 numberIn(const ControlLine& line, const char* name, U64 otherwise);
bool flagIn(const ControlLine& line, const char* name);

// Looks its place up first, a part at a time.
class PathTask : public ControlTask {
 public:
  PathTask(ControlSession& session, const std::string& path);
  bool step(ControlAnswer& answer, std::string& out) final;

 protected:
  // The place is there. True: all is done.
  virtual bool begin(ControlAnswer& answer, std::string& out) = 0;
  virtual bool proceed(ControlAnswer&, std::string&) { return true; }

  ControlSession& session() { return session_; }
  ControlWorld& world() { return session_.world(); }
  Place& place() { return place_; }
  const Place& place() const { return place_; }

 private:
  ControlSession& session_;
  std::optional<Names::Lookup> lookup_;
  Place place_;
};

// What a value of a line means: the text itself, or that at its path.
class ValueLookup {
 public:
  ValueLookup(ControlSession& session, const ControlValue& value);
  bool step();
  const Zint::String8& text() const { return text_; }

 private:
  std::optional<Names::Lookup> lookup_;
  Zint::String8 text_;
};

// The attribute's value as it is at a place.
Zint::String8 textAt(const Place& place);
// Whether reading the attribute takes time with the size of the driver's tables.
bool isCostly(const Zint::Member& member);
// Whether it is the bytes of a buffer, and too many of them for a line.
bool isTooLong(const Zint::Result& object, const Zint::Member& member);

// One source for each group of commands.
std::unique_ptr<ControlTask> lookingTask(ControlSession& session, const std::string& command,
                                         const ControlLine& line);
std::unique_ptr<ControlTask> changingTask(ControlSession& session, const std::string& command,
                                          const ControlLine& line);
std::unique_ptr<ControlTask> driverTask(ControlSession& session, const std::string& command,
                                        const ControlLine& line);

// Appends to the answer's own members.
class AnswerFields : public JsonMembers {
 public:
  explicit AnswerFields(ControlAnswer& answer) : JsonMembers(answer.fields, true) {}
};

}  // namespace Telemetry
