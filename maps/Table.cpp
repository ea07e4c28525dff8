// Tables of a plan, in memory and as a header.
#include <maps/Table.h>

#include <maps/Ascii.h>
#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>

namespace Maps {
namespace {

constexpr const char* tableKeywords[] = {
    "alignas",  "alignof",   "and",     "asm",   "auto",      "bool",     "break",   "case",
    "catch",    "char",      "class",   "const", "constexpr", "continue", "default", "delete",
    "do",       "double",    "else",    "enum",  "explicit",  "export",   "extern",  "false",
    "float",    "for",       "friend",  "goto",  "if",        "inline",   "int",     "long",
    "mutable",  "namespace", "new",     "not",   "operator",  "or",       "private", "protected",
    "public",   "register",  "return",  "short", "signed",    "sizeof",   "static",  "struct",
    "switch",   "template",  "this",    "throw", "true",      "try",      "typedef", "union",
    "unsigned", "using",     "virtual", "void",  "volatile",  "while",    "xor"};

bool isIdentifier(std::string_view text) {
  if (text.empty() || isDigit(text[0])) return false;
  for (const char c : text) {
    if (!isLetterOrDigit(c) && c != '_') return false;
  }
  return std::find(std::begin(tableKeywords), std::end(tableKeywords), text) ==
         std::end(tableKeywords);
}

void requireSpace(const std::string& space) {
  for (std::size_t begin = 0; begin <= space.size();) {
    const std::size_t end = std::min(space.find("::", begin), space.size());
    if (!isIdentifier(std::string_view(space).substr(begin, end - begin))) {
      Zint::throwRangeException(Zint::String8("no namespace of C++: '" + space + "'"));
    }
    begin = end + 2;
  }
}

// "UART0.CTRL..BAUD" as a name of C++ that no other region has: "uart0_ctrl_baud".
std::string identifierOf(const std::string& name, std::unordered_set<std::string>& taken) {
  std::string text;
  for (const char c : name) {
    if (isLetterOrDigit(c))
      text += toLower(c);
    else if (!text.empty() && text.back() != '_')
      text += '_';
  }
  while (!text.empty() && text.back() == '_') text.pop_back();
  if (!isIdentifier(text)) text = "region_" + text;
  std::string unique = text;
  for (U32 n = 2; !taken.insert(unique).second; ++n) unique = text + "_" + std::to_string(n);
  return unique;
}

// As a literal of C++.
std::string literalOf(std::string_view text) {
  std::string literal = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\' || c == '?') {
      literal += '\\';
      literal += c;
    } else if (byte < 32 || byte >= 127) {
      // Three digits end an octal escape, whatever follows.
      literal += '\\';
      for (const U32 shift : {6u, 3u, 0u}) literal += static_cast<char>('0' + (byte >> shift & 7u));
    } else {
      literal += c;
    }
  }
  return literal + "\"";
}

std::string ruleLiteral(Driver::Rule rule) {
  return rule == Driver::Rule::volatile_ ? "volatile_" : Driver::stringValue(rule).bytes();
}

// Without what would end a comment of one line.
std::string commentOf(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 32 || c == '\\') c = ' ';
  }
  return text;
}

class HeaderWriter {
 public:
  HeaderWriter(const Plan& plan, const std::string& space) : plan_(plan), space_(space) {}

  std::string result() {
    const std::vector<Region> regions = regionsOf(plan_);
    text_ = "// The registers of " + commentOf(plan_.map.name) + ", as " +
            commentOf(plan_.map.file.substr(plan_.map.file.rfind('/') + 1)) +
            " describes them.\n// Made by `umbra map header`: change the map or its overlay, not "
            "this file.\n#pragma once\n\n#include <Driver/RegisterTable.h>\n\nnamespace " +
            space_ + " {\n\n";
    writeFields(regions);
    for (std::size_t i = 0; i < regions.size(); ++i) writeRegisters(i, regions[i]);
    writeRegions(regions);
    return text_ + "}  // namespace " + space_ + "\n";
  }

 private:
  // Layouts that have the same fields share a table.
  void writeFields(const std::vector<Region>& regions) {
    std::map<std::string, std::string> tables;
    for (const Region& region : regions) {
      for (const U32 which : region.registers) {
        const Layout* const layout = plan_.map.registers[which].layout.get();
        if (layout->fields.empty() || fields_.contains(layout)) continue;
        std::string rows;
        for (const Field& field : layout->fields) {
          rows += "    {" + literalOf(field.name) + ", " + std::to_string(field.low) + ", " +
                  std::to_string(field.bits) + "},\n";
        }
        const auto [table, isNew] = tables.emplace(rows, "fields" + std::to_string(tables.size()));
        if (isNew) {
          text_ +=
              "inline constexpr Driver::TableField " + table->second + "[] = {\n" + rows + "};\n";
        }
        fields_.emplace(layout, table->second);
      }
    }
    text_ += "\n";
  }

  void writeRegisters(std::size_t index, const Region& region) {
    text_ += "// " + commentOf(region.name) + "\ninline constexpr Driver::TableRegister registers" +
             std::to_string(index) + "[] = {\n";
    const bool isOneKind = isOfOneKind(plan_, region);
    for (const U32 which : region.registers) {
      const Register& r = plan_.map.registers[which];
      const Choice& choice = plan_.choices[which];
      text_ += "    {.name = " + literalOf(isOneKind ? region.name : plan_.map.nameOf(r)) +
               ", .rule = Driver::Rule::" + ruleLiteral(*choice.rule);
      if (choice.mask != 0) {
        text_ += ", .mask = " + hexText(choice.mask) +
                 "u, .rewrite = Driver::Rewrite::" + Driver::stringValue(choice.rewrite).bytes();
      }
      if (choice.isOnce) text_ += ", .isOnce = true";
      if (r.layout->resetValue) {
        text_ += ", .resetValue = " + hexText(*r.layout->resetValue) +
                 "u, .resetMask = " + hexText(r.layout->resetMask) + "u";
      }
      const auto fields = fields_.find(r.layout.get());
      if (fields != fields_.end()) text_ += ", .fields = " + fields->second;
      text_ += "},\n";
      if (isOneKind) break;
    }
    text_ += "};\n";
  }

  void writeRegions(const std::vector<Region>& regions) {
    if (regions.empty()) {
      text_ += "inline constexpr std::span<const Driver::TableRegion> regions;  // none\n\n";
      return;
    }
    std::string constants;
    text_ += "\ninline constexpr Driver::TableRegion regions[] = {\n";
    std::unordered_set<std::string> taken = {"regions"};
    for (std::size_t i = 0; i < regions.size(); ++i) {
      const Region& region = regions[i];
      const std::string number = std::to_string(i);
      taken.insert("registers" + number);
      text_ +=
          "    {.name = " + literalOf(region.name) + ", .address = " + hexText(region.address) +
          "u, .entrySize = " + std::to_string(region.entrySize) +
          ", .stride = " + std::to_string(region.stride) + ", .registers = registers" + number +
          (isOfOneKind(plan_, region) ? ", .entries = " + std::to_string(region.entries) : "") +
          "},\n";
      constants += "inline constexpr const Driver::TableRegion& " +
                   identifierOf(region.name, taken) + " = regions[" + number + "];\n";
    }
    text_ += "};\n\n" + constants + "\n";
  }

  const Plan& plan_;
  const std::string& space_;
  std::unordered_map<const Layout*, std::string> fields_;
  std::string text_;
};

}  // namespace

Table::Table(const Plan& plan) {
  std::unordered_map<const Layout*, std::span<const Driver::TableField>> fieldsOf;
  for (const Region& region : regionsOf(plan)) {
    auto& registers = registers_.emplace_back();
    const bool isOneKind = isOfOneKind(plan, region);
    if (!isOneKind) registers.reserve(region.registers.size());
    for (const U32 which : region.registers) {
      const Register& r = plan.map.registers[which];
      const Choice& choice = plan.choices[which];
      auto [fields, isNew] = fieldsOf.try_emplace(r.layout.get());
      if (isNew) {
        auto& kept = fields_.emplace_back();
        for (const Field& field : r.layout->fields) {
          kept.push_back({keep(field.name), field.low, field.bits});
        }
        fields->second = kept;
      }
      registers.push_back({.name = keep(isOneKind ? region.name : plan.map.nameOf(r)),
                           .rule = *choice.rule,
                           .mask = choice.mask,
                           .rewrite = choice.rewrite,
                           .isOnce = choice.isOnce,
                           .resetValue = r.layout->resetValue.value_or(0),
                           .resetMask = r.layout->resetValue ? r.layout->resetMask : 0,
                           .fields = fields->second});
      if (isOneKind) break;
    }
    regions_.push_back({.name = keep(region.name),
                        .address = region.address,
                        .entrySize = region.entrySize,
                        .stride = region.stride,
                        .registers = registers,
                        .entries = isOneKind ? region.entries : 0});
  }
}

std::string headerText(const Plan& plan, const std::string& space) {
  requireSpace(space);
  return HeaderWriter(plan, space).result();
}

}  // namespace Maps
