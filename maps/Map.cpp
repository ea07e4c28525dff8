// The texts of a map's values.
#include <maps/Map.h>

#include <charconv>

namespace Maps {
namespace {

std::string placeText(const std::string& file, U32 line) {
  return line == 0 ? file : file + ":" + std::to_string(line);
}

std::string tokenOfParts(const std::optional<Access>& access, ReadAction read, WriteEffect write) {
  std::string token;
  if (access) {
    constexpr const char* tokens[] = {"RW", "RO", "WO", "W1", "RW1"};
    token = tokens[static_cast<int>(*access)];
  }
  constexpr const char* reads[] = {"", "RC", "RS", "RM", "RX"};
  constexpr const char* writes[] = {"", "W1C", "W1S", "W1T", "W0C", "W0S", "W0T", "WC", "WS", "WU"};
  for (const std::string more : {reads[static_cast<int>(read)], writes[static_cast<int>(write)]}) {
    if (!more.empty()) token += (token.empty() ? "" : " ") + more;
  }
  if (token.empty()) return "-";
  // The notation that the field uses most.
  if (token == "RW W1C") return "RW1C";
  if (token == "RW W1S") return "RW1S";
  if (token == "RO RC") return "RC";
  return token;
}

}  // namespace

Error::Error(const std::string& file, U32 line, const std::string& text)
    : RangeException(Zint::String8(placeText(file, line) + ": " + text)), line_(line) {}
Error::~Error() = default;

const char* textOf(Access access) {
  constexpr const char* names[] = {"read-write", "read-only", "write-only", "writeOnce",
                                   "read-writeOnce"};
  return names[static_cast<int>(access)];
}

const char* textOf(ReadAction action) {
  constexpr const char* names[] = {"none", "clear", "set", "modify", "modifyExternal"};
  return names[static_cast<int>(action)];
}

const char* textOf(WriteEffect effect) {
  constexpr const char* names[] = {"modify",      "oneToClear", "oneToSet",     "oneToToggle",
                                   "zeroToClear", "zeroToSet",  "zeroToToggle", "clear",
                                   "set",         "user"};
  return names[static_cast<int>(effect)];
}

std::string tokenOf(const Field& field, const Layout& layout) {
  return tokenOfParts(field.access ? field.access : layout.access, field.readAction,
                      field.writeEffect);
}

std::string tokenOf(const Layout& layout) {
  if (layout.readAction != ReadAction::none || layout.writeEffect != WriteEffect::modify ||
      layout.fields.empty()) {
    return tokenOfParts(layout.access, layout.readAction, layout.writeEffect);
  }
  std::string token;
  for (const Field& field : layout.fields) {
    if (field.isReserved) continue;
    const std::string own = tokenOf(field, layout);
    if (!token.empty() && own != token) return "mixed";
    token = own;
  }
  return token.empty() ? tokenOfParts(layout.access, layout.readAction, layout.writeEffect) : token;
}

std::string hexText(U64 value) {
  char text[16];
  return "0x" + std::string(text, std::to_chars(text, text + sizeof text, value, 16).ptr);
}

}  // namespace Maps
