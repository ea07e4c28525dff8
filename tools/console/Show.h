// Types and members as text for people.
#pragma once

#include <Zint/Type.h>

#include <string>
#include <vector>

namespace Console {

// "doClearRange(startIndex, endIndex)"; an argument that may be left out is in brackets.
std::string signature(const Zint::Member& operation);

// An operation as `call` finds it: one of the type's own, or one of a collection's.
struct Operation {
  std::string name;
  std::vector<std::string> arguments;  // those that may be left out begin with '?'
};
std::vector<Operation> operationsOf(const Zint::Type& type);
std::vector<Operation> factories();
std::string signature(const Operation& operation);

// What is known of a type, line by line.
std::string description(const Zint::Type& type);

// The registered type of that name, which may be its last part when only one ends so. Error with a
// near miss.
const Zint::Type& typeNamed(const std::string& name);

// The names that a value of the type can have; none unless it is a registered enumeration.
std::vector<std::string> enumerators(const std::string& typeName);

// Columns, each as wide as its widest text, two blanks between them.
std::string table(const std::vector<std::vector<std::string>>& rows, const std::string& indent);

}  // namespace Console
