// JSON as the control socket writes it. No installed header.
//
//   JsonLine line(out);
//   line.text("name", name).number("pid", U64{17}).flag("ok", true);
//   line.end();                                   // the brace and the newline
#pragma once

#include <Zint/GenericIf.h>
#include <string>
#include <string_view>

namespace Telemetry {

// Appends the text in quotes. Bytes that are no UTF-8 become U+FFFD.
void appendQuoted(std::string& out, std::string_view text);

// Members of one object, appended as they come.
class JsonMembers {
 public:
  // `goesOn`: after other members of an object that somebody else has begun.
  explicit JsonMembers(std::string& out, bool goesOn = false) : out_(&out), isFirst_(!goesOn) {
    if (!goesOn) *out_ += '{';
  }

  JsonMembers& text(std::string_view name, std::string_view value);
  JsonMembers& number(std::string_view name, U64 value);
  JsonMembers& number(std::string_view name, S64 value);
  JsonMembers& flag(std::string_view name, bool value);
  // JSON that is complete in itself.
  JsonMembers& json(std::string_view name, std::string_view value);
  // `text`, and `value` where JSON has the same.
  JsonMembers& value(const Zint::String8& text, const Zint::Member* member);
  void end() { *out_ += '}'; }

 private:
  std::string& begin(std::string_view name);

  std::string* out_;
  bool isFirst_;
};

// The JSON of a value's text: of a number, a truth value, a text in quotes, null; "" of any other.
std::string jsonOf(const Zint::String8& text, const Zint::Member* member);

}  // namespace Telemetry
