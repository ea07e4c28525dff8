#include "tools/umbra/ConsoleSession.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <sstream>

namespace Tool {
namespace {

using Words = ConsoleSession::Words;

// Blanks end a word, except between single quotes, which stay in it; there a backslash takes the
// next character for what it is.
Words wordsOf(const std::string& line, std::size_t* lastBegin = nullptr) {
  Words words;
  if (line.starts_with('#')) return words;
  std::size_t at = 0;
  if (lastBegin != nullptr) *lastBegin = line.size();
  while (at < line.size()) {
    if (line[at] == ' ' || line[at] == '\t' || line[at] == '\r') {
      ++at;
      continue;
    }
    const std::size_t begin = at;
    bool isQuoted = false;
    for (; at < line.size() &&
           (isQuoted || (line[at] != ' ' && line[at] != '\t' && line[at] != '\r'));
         ++at) {
      if (line[at] == '\'') isQuoted = !isQuoted;
      if (isQuoted && line[at] == '\\' && at + 1 < line.size()) ++at;
    }
    if (lastBegin != nullptr && at == line.size()) *lastBegin = begin;
    if (isQuoted && lastBegin == nullptr) throw Failure("a quote is not closed");
    words.push_back(line.substr(begin, at - begin));
  }
  return words;
}

std::string wordIn(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return {};
  if (found->is_string()) return printable(found->get_ref<const std::string&>());
  return textOf(Form::text, *found);
}

// The parts of a path; what is quoted is not divided.
Words partsOf(const std::string& path) {
  Words parts(1);
  bool isQuoted = false;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '\'') isQuoted = !isQuoted;
    if (path[i] == '/' && !isQuoted) {
      parts.emplace_back();
      continue;
    }
    parts.back() += path[i];
    if (isQuoted && path[i] == '\\' && i + 1 < path.size()) parts.back() += path[++i];
  }
  return parts;
}

bool isPath(const std::string& word) {
  return word == "." || word == ".." || word.starts_with('/') || word.starts_with("./") ||
         word.starts_with("../");
}

}  // namespace

const std::vector<ConsoleSession::Verb>& ConsoleSession::verbs() {
  using S = ConsoleSession;
  static const std::vector<Verb> table = {
      {"ls", "[PATH]", "lists an object's attributes and collections, or a collection's members", 0,
       1, &S::doLs},
      {"cd", "[PATH]", "changes the place that paths begin at", 0, 1, &S::doCd},
      {"get", "PATH", "the text of an attribute or an object", 1, 1, &S::doGet},
      {"set", "PATH VALUE", "sets an attribute; a value that begins with / or . is a path", 2, 2,
       &S::doSet},
      {"call", "PATH [NAME=VALUE...]", "calls an operation and prints its result", 1, 16,
       &S::doCall},
      {"describe", "[PATH | TYPE]", "a type and its members", 0, 1, &S::doDescribe},
      {"watch", "PATH", "prints each change of an attribute", 1, 1, &S::doWatch},
      {"unwatch", "[PATH]", "ends a watch; without a path, all of them", 0, 1, &S::doUnwatch},
      {"events", "[NUMBER | follow]", "the newest events (10), or each one from now on", 0, 1,
       &S::doEvents},
      {"dump", "REGION [RANGE] [chip]",
       "entries as they are expected to be, and as the chip has them", 1, 3, &S::doDump},
      {"policy", "REGION ENTRY", "what the policy does with an entry", 2, 2, &S::doPolicy},
      {"check", "[SHADOW]", "what is wrong with the set-up", 0, 1, &S::doCheck},
      {"plan", "SHADOW", "what a replay would write", 1, 1, &S::doPlan},
      {"level", "look | operate", "lowers what this session may do", 1, 1, &S::doLevel},
      {"version", "", "the driver, and what this session may do", 0, 0, &S::doVersion},
      {"wait", "SECONDS", "prints what changes meanwhile", 1, 1, &S::doWait},
      {"help", "[COMMAND]", "explains all commands, or one", 0, 1, &S::doHelp},
      {"quit", "", "ends the session", 0, 0, &S::doQuit},
  };
  return table;
}

ConsoleSession::ConsoleSession(Control& control, const Settings& settings,
                               std::function<void(std::string)> print)
    : control_(control), settings_(settings), print_(std::move(print)) {
  control_.unaskedIs([this](const Json& unasked) { tell(unasked); });
}

std::string ConsoleSession::prompt() const {
  return wordIn(control_.greeting(), "name") + ":" + here_ + "> ";
}

bool ConsoleSession::run(const std::string& line) {
  Words words = wordsOf(line);
  if (words.empty()) return true;
  const std::string name = words.front();
  words.erase(words.begin());
  for (const Verb& verb : verbs()) {
    if (name != verb.name) continue;
    if (words.size() < verb.least || words.size() > verb.most) {
      throw Failure(std::string("usage: ") + verb.name + " " + verb.arguments);
    }
    (this->*verb.run)(words);
    return !ends_;
  }
  throw Failure("unknown command " + name + "; help lists the commands");
}

std::string ConsoleSession::pathOf(const std::string& word) const {
  Words all;
  for (const std::string& part : partsOf(word.starts_with('/') ? word : here_ + "/" + word)) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!all.empty()) all.pop_back();
      continue;
    }
    all.push_back(part);
  }
  std::string path;
  for (const std::string& part : all) path += "/" + part;
  return path.empty() ? "/" : path;
}

std::string ConsoleSession::valueOf(const std::string& word) const {
  return isPath(word) ? pathOf(word) : word;
}

// With --json the answer itself is what is printed.
Json ConsoleSession::answer(Json request) {
  Json got = control_.ask(std::move(request));
  if (settings_.json) {
    print_(got.dump(-1, ' ', false, Json::error_handler_t::replace));
    got.clear();
  }
  return got;
}

void ConsoleSession::printTable(const Table& table) {
  std::ostringstream out;
  table.print(out, settings_.colour);
  std::string text = out.str();
  while (text.ends_with('\n')) text.pop_back();
  if (!text.empty()) print_(text);
}

void ConsoleSession::printItems(const Json& answer) {
  for (const Json& item : answer.value("items", Json::array())) {
    print_(item.is_string() ? printable(item.get_ref<const std::string&>())
                            : textOf(Form::text, item));
  }
}

void ConsoleSession::tell(const Json& unasked) {
  if (settings_.json) return print_(unasked.dump(-1, ' ', false, Json::error_handler_t::replace));
  if (unasked.contains("event")) {
    const Json& event = unasked["event"];
    std::string line = "event";
    for (const auto& [key, value] : event.items()) {
      if (!value.is_null() && value != "") line += " " + key + "=" + textOf(Form::text, value);
    }
    return print_(line);
  }
  std::string line = wordIn(unasked, "watch") + ": ";
  if (unasked.contains("gone")) return print_(line + "gone: " + wordIn(unasked, "gone"));
  line += wordIn(unasked, "text");
  if (unasked.value("more", 0) > 0) line += " (" + wordIn(unasked, "more") + " more changes)";
  print_(line);
}

void ConsoleSession::doLs(const Words& words) {
  const Json got = answer({{"do", "list"}, {"path", words.empty() ? here_ : pathOf(words[0])}});
  Table table("items", {{"name", "NAME"}, {"type", "TYPE"}, {"text", "VALUE"}, {"unit", "UNIT"}});
  for (const Json& item : got.value("items", Json::array())) {
    const bool isMember = item.contains("key");
    std::string name = wordIn(item, "name");
    if (isMember && name.empty()) name = wordIn(item, "key");
    table.row({name, wordIn(item, "type"), wordIn(item, "text"), wordIn(item, "unit")});
  }
  printTable(table);
}

void ConsoleSession::doCd(const Words& words) {
  const std::string path = words.empty() ? "/" : pathOf(words[0]);
  if (path != "/") {
    const Json got = control_.ask({{"do", "get"}, {"path", path}});
    const bool isObject = got.contains("items") || !got.contains("text");
    if (!isObject && !got.value("value", Json()).is_null()) {
      throw Failure(path + " is a value: nothing is below it");
    }
  }
  here_ = path;
}

void ConsoleSession::doGet(const Words& words) {
  const Json got = answer({{"do", "get"}, {"path", pathOf(words[0])}});
  if (got.empty()) return;
  const std::string unit = wordIn(got, "unit");
  std::string text = wordIn(got, "text");
  if (text.empty()) text = wordIn(got, got.contains("value") ? "value" : "type");
  print_(unit.empty() ? text : text + " " + unit);
}

void ConsoleSession::doSet(const Words& words) {
  const Json got =
      answer({{"do", "set"}, {"path", pathOf(words[0])}, {"value", valueOf(words[1])}});
  if (!got.empty()) print_(wordIn(got, "text"));
}

void ConsoleSession::doCall(const Words& words) {
  Json arguments = Json::object();
  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::size_t at = words[i].find('=');
    if (at == std::string::npos || at == 0) throw Failure("'" + words[i] + "' is no NAME=VALUE");
    arguments[words[i].substr(0, at)] = valueOf(words[i].substr(at + 1));
  }
  const Json got =
      answer({{"do", "call"}, {"path", pathOf(words[0])}, {"arguments", std::move(arguments)}});
  const std::string text = wordIn(got, "text");
  if (!text.empty()) print_(text);
}

void ConsoleSession::doDescribe(const Words& words) {
  Json request = {{"do", "describe"}};
  if (!words.empty() && words[0].find("::") != std::string::npos) {
    request["type"] = words[0];
  } else {
    request["path"] = words.empty() ? here_ : pathOf(words[0]);
  }
  const Json got = answer(std::move(request));
  if (got.empty()) return;
  const std::string base = wordIn(got, "base");
  print_(wordIn(got, "type") + ", " + wordIn(got, "kind") + (base.empty() ? "" : ", is a " + base));
  Table table("items", {{"name", "NAME"},
                        {"kind", "KIND"},
                        {"type", "TYPE"},
                        {"level", "LEVEL"},
                        {"unit", "UNIT"},
                        {"help", "HELP"}});
  for (const Json& item : got.value("items", Json::array())) {
    std::string name = wordIn(item, "name");
    const auto arguments = item.find("arguments");
    if (arguments != item.end() && arguments->is_array()) {
      std::string all;
      for (const Json& one : *arguments) all += (all.empty() ? "" : ", ") + textOf(Form::text, one);
      name += "(" + all + ")";
    }
    table.row({name, wordIn(item, "kind"), wordIn(item, "type"), wordIn(item, "level"),
               wordIn(item, "unit"), wordIn(item, "help")});
  }
  printTable(table);
}

void ConsoleSession::doWatch(const Words& words) {
  const Json got = answer({{"do", "watch"}, {"path", pathOf(words[0])}});
  if (!got.empty()) print_(pathOf(words[0]) + ": " + wordIn(got, "text"));
}

void ConsoleSession::doUnwatch(const Words& words) {
  Json request = {{"do", "unwatch"}};
  if (!words.empty()) request["path"] = pathOf(words[0]);
  answer(std::move(request));
}

void ConsoleSession::doEvents(const Words& words) {
  if (!words.empty() && words[0] == "follow") {
    answer({{"do", "events"}, {"most", 0}, {"follow", true}});
    return;
  }
  const U64 count = words.empty() ? 10 : rangeOf(words[0], ~U64{0}).first;
  const Json newest = control_.ask({{"do", "events"}, {"most", 1}});
  const U64 last = newest.value("newest", Json(0)).is_number() ? newest["newest"].get<U64>() : 0;
  const Json got =
      answer({{"do", "events"}, {"since", last - std::min(last, count)}, {"most", count}});
  for (const Json& item : got.value("items", Json::array())) tell({{"event", item}});
}

void ConsoleSession::doPolicy(const Words& words) {
  const Json got = answer({{"do", "policyText"},
                           {"path", pathOf(words[0])},
                           {"entry", rangeOf(words[1], ~U64{0}).first}});
  if (!got.empty()) print_(wordIn(got, "text"));
}

void ConsoleSession::doDump(const Words& words) {
  Words rest(words.begin() + 1, words.end());
  const bool chip = !rest.empty() && rest.back() == "chip";
  if (chip) rest.pop_back();
  const std::string path = pathOf(words[0]);
  const U64 entries = entriesOf(control_, path);
  const auto [first, count] =
      rest.empty() ? std::pair<U64, U64>(0, std::min<U64>(entries, 16)) : rangeOf(rest[0], entries);
  const Json got =
      answer({{"do", "dump"}, {"path", path}, {"first", first}, {"count", count}, {"chip", chip}});
  Table table("items", {{"entry", "ENTRY", Form::number},
                        {"address", "ADDRESS"},
                        {"expected", "EXPECTED"},
                        {"actual", chip ? "ACTUAL" : "LAST READ"},
                        {"known", "KNOWN BY"},
                        {"policy", "POLICY"}});
  for (const Json& item : got.value("items", Json::array())) {
    table.row({item.value("entry", Json()), wordIn(item, "address"), wordIn(item, "expected"),
               wordIn(item, "actual"), knownBy(item), wordIn(item, "policy")});
  }
  printTable(table);
}

void ConsoleSession::doCheck(const Words& words) {
  Json request = {{"do", "check"}};
  if (!words.empty()) request["path"] = pathOf(words[0]);
  const Json got = answer(std::move(request));
  if (got.contains("items") && got["items"].empty()) print_("nothing is wrong");
  printItems(got);
}

void ConsoleSession::doPlan(const Words& words) {
  const Json got = answer({{"do", "plan"}, {"path", pathOf(words[0])}});
  if (got.contains("items") && got["items"].empty()) print_("nothing to write");
  printItems(got);
}

void ConsoleSession::doLevel(const Words& words) {
  const Json got = answer({{"do", "level"}, {"level", words[0]}});
  if (!got.empty()) print_(wordIn(got, "level"));
}

void ConsoleSession::doVersion(const Words&) {
  const Json got = answer({{"do", "version"}});
  if (got.empty()) return;
  print_(wordIn(got, "name") + ", process " + wordIn(got, "pid") + ", version " +
         wordIn(got, "version") + ", level " + wordIn(got, "level"));
}

void ConsoleSession::doWait(const Words& words) {
  char* end = nullptr;
  const double seconds = std::strtod(words[0].c_str(), &end);
  if (end == words[0].c_str() || *end != '\0' || !(seconds >= 0) || seconds > 86'400) {
    throw Failure("'" + words[0] + "' is no number of seconds");
  }
  using Clock = std::chrono::steady_clock;
  const auto until = Clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    control_.receive();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    if (left <= 0) return;
    pollfd wanted{control_.descriptor(), POLLIN, 0};
    // A signal ends the wait.
    if (poll(&wanted, 1, static_cast<int>(left)) < 0) return;
  }
}

void ConsoleSession::doHelp(const Words& words) {
  bool isKnown = false;
  for (const Verb& verb : verbs()) {
    if (!words.empty() && words[0] != verb.name) continue;
    isKnown = true;
    std::string usage = std::string(verb.name) + " " + verb.arguments;
    usage.resize(std::max<std::size_t>(usage.size(), 28), ' ');
    print_("  " + usage + "  " + verb.help);
  }
  if (!isKnown) throw Failure("unknown command " + words[0] + "; help lists the commands");
}

void ConsoleSession::doQuit(const Words&) { ends_ = true; }

ConsoleSession::Completion ConsoleSession::completion(const std::string& line) {
  Completion found;
  const Words words = wordsOf(line, &found.begin);
  const std::string word = line.substr(found.begin);
  const bool isFirst = words.size() <= 1 && (words.empty() || found.begin < line.size());
  const auto add = [&](const std::string& begin, const std::string& name, const char* end) {
    const std::string whole = begin + name;
    if (!name.empty() && whole.starts_with(word)) found.words.push_back(whole + end);
  };
  if (isFirst) {
    for (const Verb& verb : verbs()) add("", verb.name, " ");
    return found;
  }
  if (words.front() == "help") {
    for (const Verb& verb : verbs()) add("", verb.name, "");
    return found;
  }
  const std::size_t slash = word.rfind('/');
  const std::string above = slash == std::string::npos ? "" : word.substr(0, slash + 1);
  const std::string place = pathOf(above.empty() ? "." : above);
  const auto got = control_.askIfAllowed({{"do", "list"}, {"path", place}, {"most", 1000}});
  if (!got) return found;
  for (const Json& item : got->value("items", Json::array())) {
    const std::string name = wordIn(item, "name");
    const bool isPlace =
        got->value("kind", std::string()) != "object" || wordIn(item, "kind") == "collection";
    add(above, name.empty() ? wordIn(item, "key") : name, isPlace ? "/" : "");
  }
  if (words.front() == "call") {
    const auto described = control_.askIfAllowed({{"do", "describe"}, {"path", place}});
    for (const Json& item : described ? described->value("items", Json::array()) : Json::array()) {
      if (wordIn(item, "kind") == "operation") add(above, wordIn(item, "name"), " ");
    }
  }
  std::sort(found.words.begin(), found.words.end());
  return found;
}

}  // namespace Tool
