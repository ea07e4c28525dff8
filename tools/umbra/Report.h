// What a subcommand has to say: facts and tables, printed as text for people or as one object of
// JSON for programs. Both are made from the same values.
//
//   Report report;
//   report.facts({{"driver", "driver", Form::text, "switch1"}});
//   Table& regions = report.table("regions", {{"name", "REGION"}, {"repairs", "REPAIRS",
//   Form::count}}); regions.row({"vlan", 17}); report.print(settings);
#pragma once

#include <deque>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/umbra/Command.h"

namespace Tool {

using Json = nlohmann::ordered_json;

// What a value is, and so how it is written.
enum class Form {
  text,
  state,     // a word with a colour: live, dead, raised ...
  flag,      // a boolean: yes and no
  number,    // as it is
  count,     // a number with commas
  time,      // nanoseconds of wall-clock time; in JSON a text of ISO 8601 in UTC
  duration,  // seconds
  share,     // 0 to 1; as text in percent
  bytes      // a size
};

struct Fact {
  const char* key;
  const char* title;
  Form form;
  Json value;  // null: not known
};

struct Column {
  const char* key;
  const char* title;
  Form form = Form::text;
};

class Table {
 public:
  Table(std::string key, std::vector<Column> columns)
      : key_(std::move(key)), columns_(std::move(columns)) {}

  // As many values as columns.
  void row(std::vector<Json> values);
  std::size_t size() const { return rows_.size(); }
  const std::string& key() const { return key_; }
  // Printed where the table is empty.
  void emptyIs(std::string text) { empty_ = std::move(text); }

  Json json() const;
  void print(std::ostream& out, bool colour) const;

 private:
  std::string key_;
  std::string empty_;
  std::vector<Column> columns_;
  std::vector<std::vector<Json>> rows_;
};

class Report {
 public:
  void facts(std::vector<Fact> facts);
  // The reference stays valid.
  Table& table(std::string key, std::vector<Column> columns);
  // A value that text does not show.
  void value(const char* key, Json value);
  // A line that JSON does not show.
  void line(std::string text);

  Json json() const;
  std::string text(bool colour) const;
  // To standard output; through a pager where the settings say so and it is longer than the screen.
  void print(const Settings& settings) const;

 private:
  struct Hidden {
    const char* key;
    Json value;
  };
  std::deque<std::variant<std::vector<Fact>, Table, Hidden, std::string>> parts_;
};

// `value` as people read it, and as JSON has it.
std::string textOf(Form form, const Json& value);
Json jsonOf(Form form, const Json& value);

std::string durationText(double seconds);
// Local time, to milliseconds.
std::string timeText(long long nanoseconds);
// ISO 8601 in UTC, to nanoseconds.
std::string isoTime(long long nanoseconds);
long long wallClockNow();  // nanoseconds
// Without what a terminal would take for a command; at most `columns` columns where that is not 0.
std::string printable(std::string_view text, std::size_t columns = 0);
// Columns on a terminal.
std::size_t columnsOf(std::string_view text);
// The escape sequence for a state's word, empty for one without a colour.
std::string_view colourOf(std::string_view word);

// Standard output, whole: false texts are replaced, a closed pipe ends quietly.
void write(const std::string& text);
void writeJson(const Json& json);

}  // namespace Tool
