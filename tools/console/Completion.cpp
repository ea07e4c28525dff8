#include "tools/console/Completion.h"

#include <Zint/Trace.h>

#include <algorithm>

#include "tools/console/Commands.h"
#include "tools/console/Session.h"
#include "tools/console/Show.h"
#include "tools/console/Values.h"

namespace Console {
namespace {

using Candidates = std::vector<std::string>;

Candidates withBlanks(Candidates candidates) {
  for (std::string& each : candidates) each += " ";
  return candidates;
}

Candidates candidatesBelow(const Place& place, const Names& names, Takes takes) {
  Candidates candidates;
  const bool operations = takes == Takes::operation;
  switch (place.kind) {
    case Place::root:
      for (const std::string& name : names.objects()) candidates.push_back(name + "/");
      if (!operations) break;
      for (const Operation& each : factories()) candidates.push_back(each.name + " ");
      break;
    case Place::object:
      for (const Zint::Member* member : membersOf(place.view().type())) {
        const std::string name = member->name;
        if (member->list != nullptr || member->target != nullptr) {
          candidates.push_back(name + "/");
        } else if (member->get != nullptr && !operations) {
          candidates.push_back(name + " ");
        }
      }
      if (!operations) {
        for (const Computed& each : computedOf(place.result)) candidates.push_back(each.name + " ");
        break;
      }
      for (const Operation& each : operationsOf(place.view().type())) {
        candidates.push_back(each.name + " ");
      }
      break;
    case Place::collection:
      for (const Zint::ListItem& item : place.list().items()) {
        const std::string name = nameIn(item.value.text);
        const char* const end = item.value.object == nullptr ? " " : "/";
        const std::string key = keyText(*place.member->list, item.key.bytes());
        candidates.push_back((name.empty() ? key : name) + end);
      }
      break;
    case Place::value:
      break;
  }
  return candidates;
}

Candidates types() {
  Candidates candidates;
  for (const Zint::Type* type : Zint::TypeRegistry::types()) {
    const std::string name = type->name;
    candidates.push_back(name + " ");
    candidates.push_back(name.substr(name.rfind(':') + 1) + " ");
  }
  return candidates;
}

Candidates commandNames() {
  Candidates candidates;
  for (const Command& command : commands()) candidates.emplace_back(command.name);
  return withBlanks(candidates);
}

// The values that an attribute can have, when these can be listed.
Candidates valuesOf(const Place& place) {
  if (place.member == nullptr) return {};
  const std::string name = place.member->typeName;
  if (name == "bool") return {"true ", "false "};
  return withBlanks(enumerators(name));
}

// Completes one line: its words before the cursor, and the word under it.
class Completer {
 public:
  Completer(const Session& session, const Typed& typed)
      : session_(session), typed_(typed), answer_{typed.begin, {}} {}

  Completion complete() {
    const Words& before = typed_.before;
    if (before.empty()) {
      offer(commandNames());
    } else {
      const Command& command = commandNamed(before[0]);
      const std::string name = command.name;
      if (before.size() == 1) {
        completeFirstArgument(command.takes);
      } else if (name == "set" && before.size() == 2) {
        completeValue([&] { return valuesOf(session_.names().at(before[1])); });
      } else if (name == "call") {
        completeArgument(1);
      } else if (name == "let") {
        completeLet();
      } else if (name == "trace" && before.size() == 2) {
        offer(withBlanks({session_.world().traceHandle, Zint::zintTrace().name()}));
      } else if (name == "wait" && before.size() == 2) {
        offer({"passes "});
      }
    }
    return std::move(answer_);
  }

 private:
  // Keeps those that begin with the text from `answer_.begin` on.
  void offer(const Candidates& candidates) {
    const std::string stem = typed_.word.substr(answer_.begin - typed_.begin);
    for (const std::string& each : candidates) {
      if (each.starts_with(stem)) answer_.candidates.push_back(each);
    }
    std::sort(answer_.candidates.begin(), answer_.candidates.end());
    const auto end = std::unique(answer_.candidates.begin(), answer_.candidates.end());
    answer_.candidates.erase(end, answer_.candidates.end());
  }

  void completeFirstArgument(Takes takes) {
    switch (takes) {
      case Takes::place:
      case Takes::attribute:
      case Takes::operation:
        return completePath(takes);
      case Takes::watched:
        return offer(withBlanks(session_.watches().paths()));
      case Takes::type:
        return offer(types());
      case Takes::command:
        return offer(commandNames());
      case Takes::level:
        return offer(withBlanks({"off", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}));
      case Takes::nothing:
      case Takes::newName:
        return;
    }
  }

  // The path from `answer_.begin` on: its last name is completed.
  void completePath(Takes takes) {
    const std::string text = typed_.word.substr(answer_.begin - typed_.begin);
    std::size_t slash = 0;
    for (std::size_t at = 0; (at = findUnquoted(text, '/', at)) != std::string::npos;) {
      slash = ++at;
    }
    answer_.begin += slash;
    const std::string prefix = slash == 0 ? "." : text.substr(0, slash);
    offer(candidatesBelow(session_.names().at(prefix), session_.names(), takes));
  }

  template <class Values>
  void completeValue(Values values) {
    const char first = typed_.word.c_str()[answer_.begin - typed_.begin];
    if (first == '/' || first == '.') {
      completePath(Takes::place);
    } else {
      offer(values());
    }
  }

  // An argument of the operation that word `operation` names.
  void completeArgument(std::size_t operation) {
    const std::size_t equals = findUnquoted(typed_.word, '=');
    if (equals != std::string::npos) {
      answer_.begin += equals + 1;
      return completeValue([] { return Candidates(); });
    }
    const auto [place, name] = session_.names().above(typed_.before[operation]);
    Candidates candidates;
    for (const Operation& each :
         place.kind == Place::root ? factories() : operationsOf(place.view().type())) {
      if (each.name != name) continue;
      for (const std::string& one : each.arguments) {
        const std::string bare = one.starts_with('?') ? one.substr(1) : one;
        if (!isGiven(bare)) candidates.push_back(bare + "=");
      }
    }
    offer(candidates);
  }

  bool isGiven(const std::string& argument) const {
    return std::any_of(typed_.before.begin(), typed_.before.end(),
                       [&](const std::string& word) { return word.starts_with(argument + "="); });
  }

  void completeLet() {
    const std::size_t words = typed_.before.size();
    if (words == 2) return offer({"= "});
    if (words == 3) {
      if (findUnquoted(typed_.word, '/') == std::string::npos) offer({"call ", "null "});
      return completePath(Takes::place);
    }
    if (typed_.before[3] != "call") return;
    if (words == 4) return completePath(Takes::operation);
    completeArgument(4);
  }

  const Session& session_;
  const Typed& typed_;
  Completion answer_;
};

}  // namespace

std::string Completion::common() const {
  if (candidates.empty()) return "";
  std::string common = candidates[0];
  for (const std::string& each : candidates) {
    const auto differ = std::mismatch(common.begin(), common.end(), each.begin(), each.end()).first;
    common.erase(differ, common.end());
  }
  return common;
}

Completion completion(const Session& session, std::string_view line) {
  const Typed words = typed(line);
  try {
    return Completer(session, words).complete();
  } catch (const std::exception&) {
    // A wrong line cannot be completed; its error is reported when it is entered.
    return {line.size(), {}};
  }
}

}  // namespace Console
