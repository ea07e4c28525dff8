#include <telemetry/ControlSession.h>

#include <Zint/Exception.h>
#include <cxxabi.h>
#include <telemetry/ControlText.h>
#include <telemetry/NamesText.h>
#include <unistd.h>

#include <algorithm>

namespace Telemetry {
namespace {

// Bytes of a list after which a part is sent.
constexpr std::size_t partSize = 2048;
// Bytes of a line to a client.
constexpr std::size_t longestAnswer = 64 * 1024;
// So far behind, events are passed over.
constexpr U64 mostBehind = 500;

void appendFailure(std::string& out, const std::string& id, std::string_view why) {
  JsonMembers line(out);
  if (!id.empty()) line.json("id", id);
  line.flag("ok", false).text("error", why).end();
  out += '\n';
}

}  // namespace

const char* levelName(Zint::Level level) {
  switch (level) {
    case Zint::Level::administer:
      return "administer";
    case Zint::Level::operate:
      return "operate";
    case Zint::Level::look:
      return "look";
  }
  return "?";
}

// --- Answers ---

void ControlAnswer::item(std::string_view json, std::string& out) {
  hasItems_ = true;
  if (!items_.empty()) items_ += ',';
  items_ += json;
  if (items_.size() >= partSize) flush(true, out);
}

void ControlAnswer::flush(bool isMore, std::string& out) {
  JsonMembers line(out);
  if (!id_.empty()) line.json("id", id_);
  line.flag("ok", true);
  out += fields;
  if (hasItems_) line.json("items", "[" + items_ + "]");
  if (isMore) line.flag("more", true);
  line.end();
  out += '\n';
  items_.clear();
}

void ControlAnswer::fail(std::string_view why, std::string& out) const {
  appendFailure(out, id_, why);
}

// --- Commands ---

// One attribute that is looked at.
struct ControlSession::Watch {
  std::string path;
  Zint::String8 seen;
  const Zint::Member* member;
  U64 changes = 0;  // seen and not told
  std::unique_ptr<Names::Lookup> lookup;
};

ControlSession::ControlSession(ControlWorld& world, Zint::Level level, const ControlPeer& peer)
    : world_(world), level_(level), peer_(peer) {}
ControlSession::~ControlSession() = default;

std::string ControlSession::greeting() const {
  std::string out;
  JsonMembers line(out);
  line.number("umbra", U64{1}).text("name", world_.name);
  line.number("pid", static_cast<S64>(getpid())).text("version", UMBRA_VERSION);
  line.text("level", levelName(level_)).end();
  return out + "\n";
}

void ControlSession::lineIs(std::string line) { line_ = std::move(line); }

void ControlSession::step(std::string& out) {
  const std::size_t whole = out.size();
  try {
    if (task_ == nullptr) {
      command_ = std::exchange(line_, {});
      std::string id;
      try {
        const ControlLine line = readLine(command_, id);
        answer_ = std::make_unique<ControlAnswer>(id);
        task_ = taskOf(*this, line);
      } catch (...) {
        answer_ = std::make_unique<ControlAnswer>(id);
        throw;
      }
      return;
    }
    const bool isDone = task_->step(*answer_, out);
    if (isDone) answer_->end(out);
    if (const std::size_t size = out.size() - whole; size > longestAnswer) {
      throw Error("it is done, and its answer of " + std::to_string(size) +
                  " bytes is longer than a line may be");
    }
    if (!isDone) return;
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    out.resize(whole);
    answer_->fail(error.what(), out);
  } catch (...) {
    out.resize(whole);
    answer_->fail("an exception of a type of its own", out);
  }
  task_.reset();
}

void ControlSession::refuseLongLine(std::string& out) {
  appendFailure(out, "", "a line is at most " + std::to_string(longestLine) + " bytes long");
}

void ControlSession::levelIs(Zint::Level level) {
  if (level < level_) {
    throw Error("this session has the level " + std::string(levelName(level_)) +
                ", which can only be lowered");
  }
  level_ = level;
}

void ControlSession::require(Zint::Level needed, const std::string& what) const {
  if (isAllowed(level_, needed)) return;
  throw Error(what + " needs the level " + levelName(needed) + ", this session has " +
              levelName(level_));
}

void ControlSession::tellCommand() {
  ++world_.operations;
  if (world_.onCommand) world_.onCommand(peer_.uid, peer_.pid, command_);
}

// --- Watches and events ---

void ControlSession::watch(const std::string& path, const Zint::String8& text,
                           const Zint::Member* member) {
  unwatch(path);
  if (watches_.size() >= mostWatches) {
    throw Error("a session has at most " + std::to_string(mostWatches) + " watches");
  }
  watches_.push_back(std::make_unique<Watch>(Watch{path, text, member, 0, nullptr}));
}

bool ControlSession::unwatch(const std::string& path) {
  return std::erase_if(watches_, [&](const auto& each) { return each->path == path; }) != 0;
}

void ControlSession::unwatchAll() {
  watches_.clear();
  follows_ = false;
}

void ControlSession::follow(U64 number) {
  follows_ = true;
  followed_ = number;
}

void ControlSession::beginLook(Zint::Seconds time) {
  lookedAt_ = 0;
  if (!(time >= second_ && time < second_ + 1)) {
    second_ = time;
    linesLeft_ = linesPerSecond;
  }
}

bool ControlSession::takeLine() { return linesLeft_ != 0 && linesLeft_-- != 0; }

bool ControlSession::look(std::string& out) {
  if (lookedAt_ < watches_.size()) {
    // A watch that is gone leaves its place to the next one.
    if (lookAtWatch(*watches_[lookedAt_], out)) ++lookedAt_;
    return true;
  }
  return follows_ && lookAtEvent(out);
}

// False: look at this place again.
bool ControlSession::lookAtWatch(Watch& watch, std::string& out) {
  Zint::String8 text;
  try {
    if (watch.lookup == nullptr) {
      watch.lookup = std::make_unique<Names::Lookup>(
          world_.names, world_.names.absolute(watch.path), mostAsAWhole);
    }
    if (!watch.lookup->step(membersPerStep)) return false;
    Place& place = watch.lookup->place();
    text = place.kind == Place::collection ? place.view().attribute(place.member->name)
                                           : place.result.text;
    watch.lookup.reset();
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    JsonMembers line(out);
    line.text("watch", watch.path).text("gone", error.what()).end();
    out += '\n';
    const std::string path = watch.path;
    unwatch(path);
    return false;
  }
  if (text != watch.seen) {
    watch.seen = text;
    ++watch.changes;
  }
  if (watch.changes == 0 || !takeLine()) return true;
  JsonMembers line(out);
  line.text("watch", watch.path).value(text, watch.member);
  line.number("more", watch.changes - 1).end();
  out += '\n';
  watch.changes = 0;
  return true;
}

// One event. False: there is none, or this second has no more lines.
bool ControlSession::lookAtEvent(std::string& out) {
  const U64 newest = world_.events.newest ? world_.events.newest() : 0;
  if (newest <= followed_ || !takeLine()) return false;
  JsonMembers line(out);
  if (newest - followed_ > mostBehind) {
    line.number("skipped", newest - followed_ - linesPerSecond).end();
    followed_ = newest - linesPerSecond;
  } else if (std::string event; world_.events.json(++followed_, event)) {
    line.json("event", event).end();
  } else {
    line.number("skipped", U64{1}).end();
  }
  out += '\n';
  return true;
}

}  // namespace Telemetry
