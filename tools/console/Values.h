// Values as people write and read them. Texts come from the library; some are too long for a line,
// or less readable than another form that is also understood.
#pragma once

#include <Zint/Type.h>

#include <ostream>
#include <string>
#include <string_view>

namespace Console {

// A chip address as the traces print it: "0x2:00001f00" for "8589942528". Other texts stay as they
// are.
std::string addressText(const std::string& text);
// The way back: "8589942528" for "0x2:00001f00". Other texts stay as they are.
std::string integerText(const std::string& text);

// Whether an argument or a key of that name is a chip address.
bool isAddressName(std::string_view name);

// The text of a value of that type for a line of a table. Bytes are cut short.
std::string shortText(std::string_view typeName, const std::string& text);
// A key of a collection.
std::string keyText(const Zint::ListAccess& list, const std::string& key);

// Prints a value and a newline. Many bytes become rows, the first rows only.
void printValue(std::ostream& out, std::string_view typeName, const std::string& text);

}  // namespace Console
