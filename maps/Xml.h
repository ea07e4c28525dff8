// A document of XML as the importers see it: elements by their local name, numbers, and the line
// where something stands. Not installed.
#pragma once

#include <maps/Import.h>

#include <pugixml.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace Maps {

class Xml {
 public:
  using Node = pugi::xml_node;

  // What is no XML, or is nested too deep: an Error.
  Xml(std::string_view text, std::string file);

  const std::string& file() const { return file_; }
  Node root() const { return document_.document_element(); }
  U32 lineOf(Node node) const;
  [[noreturn]] void fail(Node at, const std::string& text) const;

  // The name without its namespace's prefix.
  static std::string_view nameOf(Node node);
  static bool is(Node node, std::string_view name) {
    return node.type() == pugi::node_element && nameOf(node) == name;
  }
  // The first child element of that name; a null node if there is none.
  static Node child(Node node, std::string_view name);
  // Calls use(child) for each child element.
  template <class Use>
  static void eachChild(Node node, Use use) {
    for (Node child = node.first_child(); child; child = child.next_sibling()) {
      if (child.type() == pugi::node_element) use(child);
    }
  }
  // The text of an element, without white space at its ends; runs of it within are one space.
  static std::string textOf(Node node);

  // Of an element that holds a number: decimal, 0x..., #binary, 0b..., with k, m, g or t behind.
  U64 number(Node node) const;
  U32 number32(Node node, const char* what) const;
  // The same of a text that stands in `at`. False: it is no number, or has more than 64 bits.
  static bool readNumber(std::string_view text, U64& value);

 private:
  void checkDepth() const;

  std::string file_;
  std::vector<std::size_t> lines_;  // where each begins
  pugi::xml_document document_;
};

}  // namespace Maps
