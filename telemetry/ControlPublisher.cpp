// A control socket beside a publisher: it has the publisher's name and objects, and writes who
// changed what to its event log.
#include <Zint/Bytes.h>
#include <telemetry/ControlSocket.h>
#include <telemetry/ControlText.h>
#include <telemetry/EventReader.h>
#include <telemetry/Publisher.h>
#include <telemetry/Telemetry.h>

#include <algorithm>
#include <cctype>
#include <optional>

namespace Telemetry {
namespace {

// As a name of "/": other characters than letters, digits, '-' and '_' become '-'.
std::string pathName(std::string name) {
  std::replace_if(
      name.begin(), name.end(),
      [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_'; }, '-');
  return name;
}

template <class Object>
void addObjects(ControlSocket& control, const Publisher& publisher, const char* otherwise,
                const std::vector<Zint::Ptr<Object>>& objects) {
  U32 count = 0;
  for (const Zint::Ptr<Object>& object : objects) {
    std::string name = pathName(publisher.nameOf(*object).bytes());
    ++count;
    if (name.empty()) name = otherwise + (count == 1 ? "" : std::to_string(count));
    control.objectIs(name, object);
  }
}

// Reads the log of the publisher as other processes do.
class LoggedEvents {
 public:
  explicit LoggedEvents(const Publisher::Ptr& publisher) : path_(publisher->eventsPath()) {}

  U64 newest() {
    try {
      if (!reader_ || reader_->isReplaced()) reader_.emplace(path_);
      return reader_->last();
    } catch (const std::exception&) {
      reader_.reset();  // not made yet, or removed
      return 0;
    }
  }
  bool json(U64 number, std::string& text) const {
    if (!reader_) return false;
    const EventReader::Batch batch = reader_->read(number, 1);
    if (batch.events.empty() || batch.events[0].number != number) return false;
    append(text, batch.events[0]);
    return true;
  }

 private:
  static void append(std::string& out, const Event& event) {
    JsonMembers members(out);
    members.number("number", event.number).text("kind", Telemetry::nameOf(event.kind));
    members.number("time", event.wallClock).number("monotonic", event.monotonic);
    members.number("verdict", U64{event.verdict});
    if (event.kind == EventKind::finding) {
      members.number("nature", U64{event.nature}).number("entry", U64{event.entry});
    }
    if (event.uid != nobody) members.number("uid", U64{event.uid}).number("pid", U64{event.pid});
    const auto text = [&](const char* name, const std::string& value) {
      if (!value.empty()) members.text(name, value);
    };
    text("region", event.region);
    text("chip", event.chip);
    text("expected", Zint::valueToStrep(Zint::Bytes{event.expected}).bytes());
    text("actual", Zint::valueToStrep(Zint::Bytes{event.actual}).bytes());
    text("text", event.text);
    members.end();
  }

  const std::string path_;
  std::optional<EventReader> reader_;
};

}  // namespace

ControlSocket::Ptr controlSocketFactory(const Publisher::Ptr& publisher,
                                        const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const Zint::Ptr<const Zint::Clock>& clock, bool administers,
                                        ControlOptions options) {
  refuseNull(publisher, "controlSocketFactory: null publisher");
  options.directory = publisher->directory().bytes();
  const auto control = controlSocketFactory(activity, clock, publisher->name().bytes(), options);
  control->administersIs(administers);
  addObjects(*control, *publisher, "shadow", publisher->shadows());
  addObjects(*control, *publisher, "reader", publisher->readers());
  addObjects(*control, *publisher, "alarms", publisher->alarmBoards());
  addObjects(*control, *publisher, "governor", publisher->governors());
  control->objectIs("publisher", publisher);
  control->onCommandIs([publisher](U32 uid, U32 pid, const std::string& line) {
    publisher->commandIs(uid, pid, line);
  });
  const auto events = std::make_shared<LoggedEvents>(publisher);
  control->eventsIs(
      {.newest = [events] { return events->newest(); },
       .json = [events](U64 number, std::string& text) { return events->json(number, text); }});
  publisher->socketsAre(control->path().bytes(), control->administerPath().bytes());
  return control;
}

}  // namespace Telemetry
