#include "tools/console/Show.h"

#include <algorithm>

#include "tools/console/Library.h"

namespace Console {
namespace {

using Flags = Zint::ZintAttrIntrospectionFlags;
using ArgumentNames = std::array<const char*, 8>;

std::vector<std::string> textsOf(const ArgumentNames& names) {
  std::vector<std::string> texts;
  for (const char* name : names) {
    if (name == nullptr) break;
    texts.emplace_back(name);
  }
  return texts;
}

std::string lastPart(std::string_view typeName) {
  return std::string(typeName.substr(typeName.rfind(':') + 1));
}

void appendCollectionOperations(const Zint::Member& member, std::vector<Operation>& operations) {
  const Zint::ListAccess& list = *member.list;
  const std::string name = member.name;
  if (list.insert != nullptr) operations.push_back({name + "Is", textsOf(list.arguments)});
  if (list.del != nullptr) operations.push_back({name + "Del", {list.keyName}});
  if (list.delAll != nullptr) operations.push_back({name + "DelAll", {}});
}

std::string note(const Zint::Member& member, const Zint::Type& type) {
  std::string text;
  if (member.list != nullptr) {
    text = std::string("of ") + member.list->valueType + " by " + member.list->keyName;
    if (member.list->insert != nullptr) {
      text += ", made from " + signature(Operation{"", textsOf(member.list->arguments)});
    }
    return text;
  }
  if (std::string_view(type.kind) == "enumeration") return "= " + std::to_string(member.value);
  if (member.call != nullptr) return member.flags.has(Flags::constant) ? "changes nothing" : "";
  if (member.flags.has(Flags::constructorParameter)) return "set once, when it is made";
  return member.set == nullptr ? "read only" : "";
}

}  // namespace

std::string signature(const Operation& operation) {
  std::string text = operation.name + "(";
  for (const std::string& argument : operation.arguments) {
    if (text.back() != '(') text += ", ";
    text += argument.starts_with('?') ? "[" + argument.substr(1) + "]" : argument;
  }
  return text + ")";
}

std::string signature(const Zint::Member& operation) {
  return signature(Operation{operation.name, textsOf(operation.arguments)});
}

std::vector<Operation> operationsOf(const Zint::Type& type) {
  std::vector<Operation> operations;
  for (const Zint::Member* member : membersOf(type)) {
    if (member->call != nullptr) operations.push_back({member->name, textsOf(member->arguments)});
    if (member->list != nullptr) appendCollectionOperations(*member, operations);
  }
  return operations;
}

std::vector<Operation> factories() {
  std::vector<Operation> operations;
  for (const Zint::Member* member : Zint::TypeRegistry::factories()) {
    operations.push_back({member->name, textsOf(member->arguments)});
  }
  return operations;
}

std::vector<std::string> enumerators(const std::string& typeName) {
  const Zint::Type* type = Zint::TypeRegistry::find(typeName);
  std::vector<std::string> texts;
  if (type == nullptr || std::string_view(type->kind) != "enumeration") return texts;
  for (const Zint::Member& each : type->members) texts.emplace_back(each.name);
  return texts;
}

std::string table(const std::vector<std::vector<std::string>>& rows, const std::string& indent) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line = indent;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

std::string description(const Zint::Type& type) {
  std::string text = std::string(type.name) + ": " + type.kind;
  if (type.base != nullptr) text += std::string(", derived from ") + type.base->name;
  std::vector<std::vector<std::string>> rows;
  for (const Zint::Member* member : membersOf(type)) {
    const bool isOperation = member->call != nullptr;
    rows.push_back(
        {isOperation ? signature(*member) : member->name, member->typeName, note(*member, type)});
  }
  return text + "\n" + table(rows, "  ");
}

const Zint::Type& typeNamed(const std::string& name) {
  if (const Zint::Type* type = Zint::TypeRegistry::find(name)) return *type;
  std::vector<std::string> known;
  std::vector<const Zint::Type*> found;
  for (const Zint::Type* type : Zint::TypeRegistry::types()) {
    known.emplace_back(type->name);
    known.push_back(lastPart(type->name));
    if (known.back() == name) found.push_back(type);
  }
  if (found.size() == 1) return *found[0];
  if (found.size() > 1) throw Error("several types are named " + name + ": give the whole name");
  throw Error("no type " + name + didYouMean(name, known));
}

}  // namespace Console
