// What the words of a description betray: registers whose read or write does more than to read or
// write, and registers that change by themselves. Tags say it for few of them, so the words decide,
// too. A word too many costs a person a look; a word too few may cost data.
#pragma once

#include <Zint/Api.h>
#include <string>
#include <string_view>

namespace Maps {

enum class Hint { none, read, write, change };

struct UMBRA_API FoundHint {
  Hint hint = Hint::none;
  std::string words;  // that were found, in lower case
};

// The first hint of a description, and of a name such as "RX_FIFO" or "intStatus".
UMBRA_API FoundHint hintOfText(std::string_view text);
UMBRA_API FoundHint hintOfName(std::string_view name);
// "a read has effects", "a write has effects", "it changes by itself"
UMBRA_API const char* textOf(Hint hint);

}  // namespace Maps
