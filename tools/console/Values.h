// Values as people write and read them. Texts come from the library; some are too long for a line,
// or less readable than another form that is also understood.
#pragma once

#include <Zint/Type.h>

#include <ostream>
#include <string>
#include <string_view>

namespace Console {

// The text of a value of that type for a line of a table. Bytes are cut short.
std::string shortText(std::string_view typeName, const std::string& text);
// Prints a value and a newline. Many bytes become rows, the first rows only.
void printValue(std::ostream& out, std::string_view typeName, const std::string& text);

}  // namespace Console
