#include <telemetry/ControlLine.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include <telemetry/ControlText.h>
#include <telemetry/NamesText.h>

namespace Telemetry {
namespace {

using Json = nlohmann::json;

// Counted on the bytes, before the parser sees them.
void requireShallow(std::string_view line) {
  U32 depth = 0;
  bool isQuoted = false;
  for (std::size_t at = 0; at < line.size(); ++at) {
    const char c = line[at];
    if (isQuoted && c == '\\') {
      ++at;
    } else if (c == '"') {
      isQuoted = !isQuoted;
    } else if (!isQuoted && (c == '{' || c == '[')) {
      if (++depth > deepestLine) {
        throw Error("a line is at most " + std::to_string(deepestLine) + " levels deep");
      }
    } else if (!isQuoted && (c == '}' || c == ']')) {
      if (depth > 0) --depth;
    }
  }
}

// What the parser tells, taken down as a command.
class Reader : public nlohmann::json_sax<Json> {
 public:
  explicit Reader(ControlLine& line) : line_(line) {}

  bool null() override { return take(ControlValue::null, "null"); }
  bool boolean(bool value) override { return take(ControlValue::truth, value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override {
    return take(ControlValue::number, std::to_string(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return take(ControlValue::number, std::to_string(value));
  }
  // Whole numbers beyond 64 bits come here: they stay as they were written.
  bool number_float(number_float_t, const string_t& text) override {
    return take(ControlValue::number, text);
  }
  bool string(string_t& value) override { return take(ControlValue::text, std::move(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override {
    if (depth_ == 1 && key_ == "arguments" && !line_.arguments) {
      line_.arguments.emplace();
    } else if (depth_ != 0) {
      throw Error(key_ + ": only arguments is an object");
    }
    ++depth_;
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t) override { throw Error("a line has no arrays"); }
  bool end_array() override { return false; }
  bool key(string_t& name) override {
    key_ = std::move(name);
    ControlValues& values = depth_ == 1 ? line_.members : *line_.arguments;
    const bool isTwice =
        (depth_ == 1 && key_ == "arguments" && line_.arguments) ||
        std::any_of(values.begin(), values.end(), [&](const auto& it) { return it.first == key_; });
    if (isTwice) throw Error("a line has " + key_ + " twice");
    return true;
  }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception&) override {
    throw Error("no JSON at byte " + std::to_string(position));
  }

 private:
  bool take(ControlValue::Kind kind, std::string bytes) {
    if (depth_ == 0) throw Error("a line is an object");
    if (depth_ == 1 && key_ == "id") {
      takeId(kind, bytes);
    } else if (depth_ == 1 && key_ == "arguments") {
      throw Error("arguments is an object");
    }
    ControlValues& values = depth_ == 1 ? line_.members : *line_.arguments;
    values.emplace_back(key_, ControlValue{kind, std::move(bytes)});
    return true;
  }
  void takeId(ControlValue::Kind kind, const std::string& bytes) {
    const bool isIdentifier = kind == ControlValue::text || kind == ControlValue::number;
    if (!isIdentifier || bytes.size() > longestId) {
      throw Error("an id is a number or a text of at most " + std::to_string(longestId) + " bytes");
    }
    if (kind == ControlValue::number) {
      line_.id = bytes;
    } else {
      appendQuoted(line_.id, bytes);
    }
  }

  ControlLine& line_;
  std::string key_;
  U32 depth_ = 0;
};

}  // namespace

const ControlValue* ControlLine::find(std::string_view name) const {
  for (const auto& [each, value] : members) {
    if (each == name) return &value;
  }
  return nullptr;
}

ControlLine readLine(std::string_view line, std::string& id) {
  if (line.size() > longestLine) {
    throw Error("a line is at most " + std::to_string(longestLine) + " bytes long");
  }
  requireShallow(line);
  ControlLine result;
  Reader reader(result);
  try {
    Json::sax_parse(line, &reader);
  } catch (...) {
    id = result.id;
    throw;
  }
  id = result.id;
  return result;
}

}  // namespace Telemetry
