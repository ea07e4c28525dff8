#include <Zint/Enumeration.h>

namespace Zint {

String8 enumerationText(const Enumeration& enumeration, S32 value) {
  if (static_cast<U32>(value) < enumeration.values.size()) {
    return enumeration.values[static_cast<U32>(value)];
  }
  return format("%s(%d)", enumeration.qualifiedName, value);
}

S32 enumerationInstance(const Enumeration& enumeration, U32 value) {
  if (value >= enumeration.values.size()) throwRangeException(enumeration.qualifiedName);
  return static_cast<S32>(value);
}

S32 enumerationInstance(const Enumeration& enumeration, const String8& text) {
  S32 value = 0;
  for (const char* name : enumeration.values) {
    if (text == name) return value;
    ++value;
  }
  throwRangeException(enumeration.name);
}

S32 readEnumeration(const Enumeration& enumeration, String8::IteratorConst& pos,
                    const String8::IteratorConst& end) {
  String8 name;
  auto p = pos;
  sequenceToValue(p, end, name);
  const S32 value = enumerationInstance(enumeration, name);
  pos = p;
  return value;
}

}  // namespace Zint
