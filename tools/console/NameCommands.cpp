// Commands that read, set and call by name.
#include <Zint/ObjectText.h>

#include <algorithm>

#include "tools/console/Commands.h"
#include "tools/console/Library.h"
#include "tools/console/Session.h"
#include "tools/console/Show.h"
#include "tools/console/Values.h"

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

// Of the value at a place; "?" where there is no value of a known type.
std::string typeNameAt(const Place& place) {
  return place.kind == Place::value && place.member != nullptr ? place.member->typeName : "?";
}

Zint::String8 valueOf(const Session& session, const std::string& word) {
  return isReference(word) ? textAt(session.names().at(word)) : Zint::String8(word);
}

void listObject(Session& session, const Place& place) {
  const Zint::GenericIf_ view = place.view();
  const std::vector<Computed> computed = computedOf(place.result);
  Rows rows;
  for (const Zint::Member* member : membersOf(view.type())) {
    const std::string name = member->name;
    if (member->list != nullptr) {
      rows.push_back({name + "/", view.attribute(name).bytes() + " by " + member->list->keyName,
                      member->list->valueType});
    } else if (member->get != nullptr) {
      rows.push_back({name + (member->target != nullptr ? "/" : ""),
                      shortText(member->typeName, view.attribute(name).bytes()), member->typeName});
    }
    for (const Computed& each : computed) {
      if (each.after == name) rows.push_back({each.name, each.text, each.typeName + ", computed"});
    }
  }
  session.out() << table(rows, "");
  for (const Operation& operation : operationsOf(view.type())) {
    session.out() << signature(operation) << "\n";
  }
}

void listRoot(Session& session) {
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

// A result, and the name of its type; "" where the registry does not know it.
struct Called {
  Zint::Result result;
  std::string typeName;
};

Called callOperation(const Session& session, const Words& words, std::size_t first) {
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
    const Zint::String8 text = valueOf(session, value);
    arguments.emplace_back(argument, isAddressName(argument) ? integerText(text.bytes()) : text);
  }
  if (isRoot) return {Zint::GenericIf_::make(name, arguments), ""};
  const Zint::Member* member = place.view().type().find(name);
  const bool isConstant =
      member != nullptr && member->flags.has(Zint::ZintAttrIntrospectionFlags::constant);
  // What may only be read is refused by the library.
  if (session.world().checksRules && (isConstant || !place.result.isConst)) {
    checkCall(session.names(), place.result, name, arguments);
  }
  return {place.view().call(name, arguments), member == nullptr ? "" : member->typeName};
}

}  // namespace

void requireAttribute(const Place& place) {
  if (place.isComputed) throw Error(place.name() + " is computed: it can only be read");
  if (place.member == nullptr) throw Error(place.name() + " is no attribute");
}

void doLs(Session& session, const Words& arguments) {
  const Place place = session.names().at(arguments.empty() ? "." : arguments[0]);
  switch (place.kind) {
    case Place::root:
      return listRoot(session);
    case Place::object:
      return listObject(session, place);
    case Place::value:
      return printValue(session.out(), typeNameAt(place), place.result.text.bytes());
    case Place::collection: {
      Rows rows;
      for (const Zint::ListItem& item : place.list().items()) {
        rows.push_back({keyText(*place.member->list, item.key.bytes()), item.value.text.bytes()});
      }
      session.out() << table(rows, "");
    }
  }
}

void doCd(Session& session, const Words& arguments) {
  session.names().hereIs(arguments.empty() ? "/" : arguments[0]);
}

void doGet(Session& session, const Words& arguments) {
  const Place place = session.names().at(arguments[0]);
  printValue(session.out(), typeNameAt(place), textAt(place).bytes());
}

void doSet(Session& session, const Words& arguments) {
  const Place place = session.names().at(arguments[0]);
  requireAttribute(place);
  Zint::String8 value = valueOf(session, arguments[1]);
  if (std::string_view(place.member->typeName) == "Hardware::ChipAddress") {
    value = integerText(value.bytes());
  }
  if (session.world().checksRules && !place.owner.isConst) {
    checkSet(session.names(), place.owner, place.member->name, value);
  }
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
  const Called called = callOperation(session, arguments, 0);
  const std::string& text = called.result.text.bytes();
  if (!text.empty()) printValue(session.out(), called.typeName, text);
}

void doLet(Session& session, const Words& arguments) {
  if (arguments[1] != "=") throw Error(std::string("usage: let ") + commandNamed("let").arguments);
  const std::string& what = arguments[2];
  Zint::Result result;
  if (what == "call") {
    if (arguments.size() < 4) throw Error("let: call what?");
    result = callOperation(session, arguments, 3).result;
  } else if (arguments.size() > 3) {
    throw Error("let: too much after " + what);
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
