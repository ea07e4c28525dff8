// Commands that read, set and call by name.
#include <Zint/ObjectText.h>

#include <algorithm>

#include "tools/console/Commands.h"
#include "tools/console/Error.h"
#include "tools/console/Session.h"
#include "tools/console/Show.h"
#include "tools/console/Suggest.h"

namespace Console {
namespace {

using Rows = std::vector<std::vector<std::string>>;

bool isReference(const std::string& value) {
  return value == "." || value == ".." || value.starts_with('/') || value.starts_with("./") ||
         value.starts_with("../");
}

bool isOneOf(const std::string& text, const std::vector<std::string>& texts) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

Zint::String8 textAt(const Place& place) {
  if (place.kind == Place::root) throw Error("/ is no object");
  return place.kind == Place::collection ? place.view().attribute(place.member->name)
                                         : place.result.text;
}

Zint::String8 valueOf(const Session& session, const std::string& word) {
  return isReference(word) ? textAt(session.names().at(word)) : Zint::String8(word);
}

void lsObject(Session& session, const Zint::GenericIf_& view) {
  Rows rows;
  for (const Zint::Member* member : membersOf(view.type())) {
    const std::string name = member->name;
    if (member->list != nullptr) {
      rows.push_back({name + "/", view.attribute(name).bytes() + " by " + member->list->keyName,
                      member->list->valueType});
    } else if (member->get != nullptr) {
      rows.push_back({name + (member->target != nullptr ? "/" : ""), view.attribute(name).bytes(),
                      member->typeName});
    }
  }
  session.out() << table(rows, "");
  for (const Operation& operation : operationsOf(view.type())) {
    session.out() << signature(operation) << "\n";
  }
}

void lsRoot(Session& session) {
  Rows rows;
  for (const std::string& name : session.names().objects()) {
    const Place place = session.names().at(Path{name});
    rows.push_back({name + "/", place.result.text.bytes(), place.view().typeName()});
  }
  session.out() << table(rows, "");
  for (const Operation& operation : factories()) session.out() << signature(operation) << "\n";
}

const Operation& operationNamed(const std::vector<Operation>& operations, const std::string& place,
                                const std::string& name) {
  std::vector<std::string> known;
  for (const Operation& operation : operations) {
    if (operation.name == name) return operation;
    known.push_back(operation.name);
  }
  throw Error(place + " has no operation " + name + didYouMean(name, known));
}

Zint::Result called(const Session& session, const Words& words, std::size_t first) {
  const auto [place, name] = session.names().above(words[first]);
  const bool isRoot = place.kind == Place::root;
  const std::vector<Operation> operations =
      isRoot ? factories() : operationsOf(place.view().type());
  const Operation& operation = operationNamed(operations, place.name(), name);

  std::vector<std::string> known = operation.arguments;
  for (std::string& each : known) each.erase(0, each.starts_with('?') ? 1 : 0);
  Zint::Arguments arguments;
  for (std::size_t i = first + 1; i < words.size(); ++i) {
    const auto [argument, value] = argumentOf(words[i]);
    if (!isOneOf(argument, known)) {
      throw Error(signature(operation) + " has no argument " + argument +
                  didYouMean(argument, known));
    }
    arguments.emplace_back(argument, valueOf(session, value));
  }
  return isRoot ? Zint::GenericIf_::made(name, arguments) : place.view().call(name, arguments);
}

}  // namespace

void doLs(Session& session, const Words& arguments) {
  const Place place = session.names().at(arguments.empty() ? "." : arguments[0]);
  switch (place.kind) {
    case Place::root:
      return lsRoot(session);
    case Place::object:
      return lsObject(session, place.view());
    case Place::value:
      session.out() << place.result.text << "\n";
      return;
    case Place::collection: {
      Rows rows;
      for (const Zint::ListItem& item : place.list().items()) {
        rows.push_back({item.key.bytes(), item.value.text.bytes()});
      }
      session.out() << table(rows, "");
    }
  }
}

void doCd(Session& session, const Words& arguments) {
  session.names().hereIs(arguments.empty() ? "/" : arguments[0]);
}

void doGet(Session& session, const Words& arguments) {
  session.out() << textAt(session.names().at(arguments[0])) << "\n";
}

void doSet(Session& session, const Words& arguments) {
  const Place place = session.names().at(arguments[0]);
  if (place.member == nullptr) throw Error(place.name() + " is no attribute");
  const Zint::String8 value = valueOf(session, arguments[1]);
  try {
    Zint::GenericIf_::of(place.owner).attributeIs(place.member->name, value);
  } catch (const Zint::RangeException& cause) {
    const std::vector<std::string> possible = enumerators(place.member->typeName);
    if (possible.empty() || isOneOf(value.bytes(), possible)) throw;
    std::string list;
    for (const std::string& each : possible) list += (list.empty() ? "" : ", ") + each;
    throw Error(std::string(cause.what()) + "; it is one of " + list);
  }
}

void doCall(Session& session, const Words& arguments) {
  const Zint::Result result = called(session, arguments, 0);
  if (!result.text.empty()) session.out() << result.text << "\n";
}

void doLet(Session& session, const Words& arguments) {
  if (arguments[1] != "=") throw Error(std::string("usage: let ") + commandNamed("let").arguments);
  const std::string& what = arguments[2];
  Zint::Result result;
  if (what == "call") {
    if (arguments.size() < 4) throw Error("let: call what?");
    result = called(session, arguments, 3);
  } else if (arguments.size() > 3) {
    throw Error("let: too much behind " + what);
  } else if (what != "null") {
    const Place place = session.names().at(what);
    if (place.kind == Place::collection) throw Error(place.name() + " is no object");
    result = place.result;
  }
  if (what != "null" && result.object == nullptr) {
    throw Error("let: no object: " + (result.text.empty() ? "no result" : result.text.bytes()));
  }
  session.names().objectIs(arguments[0], result);
}

}  // namespace Console
