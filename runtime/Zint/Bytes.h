// Raw bytes with a text form of two hexadecimal digits a byte: 001f80.
#pragma once

#include <Zint/Strep.h>
#include <vector>

namespace Zint {

struct Bytes {
  std::vector<U8> bytes;
};

UMBRA_API String8 valueToStrep(const Bytes& value);
// Reads as many whole bytes as there are; an odd digit is left over.
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               Bytes& value);

constexpr const char* zintTypeName(const Bytes*) { return "Bytes"; }

}  // namespace Zint
