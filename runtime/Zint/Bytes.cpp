#include <Zint/Bytes.h>

namespace Zint {

String8 valueToStrep(const Bytes& value) {
  String8 text;
  for (U8 byte : value.bytes) text += format("%02x", byte);
  return text;
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end, Bytes& value) {
  Bytes read;
  auto p = pos;
  while (end - p >= 2 && hexDigit(p[0]) >= 0 && hexDigit(p[1]) >= 0) {
    read.bytes.push_back(static_cast<U8>(hexDigit(p[0]) * 16 + hexDigit(p[1])));
    p += 2;
  }
  pos = p;
  value = std::move(read);
}

}  // namespace Zint
