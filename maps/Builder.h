// What both importers share: a map that grows within the limits. Not installed.
#pragma once

#include <maps/Xml.h>

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

namespace Maps {

// An array as the file has it.
struct Dim {
  bool isArray = false;
  U32 count = 1;
  U64 step = 0;                    // bytes from element to element
  std::vector<std::string> names;  // of the elements, in place of their numbers; else empty
};

class Builder {
 public:
  using Node = Xml::Node;

  Builder(const Xml& xml, const char* format);

  // Counts one element that is looked at; beyond the limits an Error.
  void step(Node at, U64 count = 1);
  // Counts a text that the map keeps, and returns it.
  std::string keep(Node at, std::string text);
  void note(Node at, const std::string& text);
  // Address plus distance; an Error where that has more than 64 bits.
  U64 plus(Node at, U64 address, U64 distance) const;

  // A block or register whose name is there already gets "~2" behind it.
  U32 addBlock(Node at, Block block);
  // To the block that was added last.
  void add(Node at, const std::string& name, const std::string& array, U32 index, U64 address,
           const std::shared_ptr<const Layout>& layout);
  Map& map() { return map_; }
  Map result();

  // The name of element `index`: "%s" is replaced by its number or name; without "%s" it is
  // appended, "[3]".
  static std::string elementName(const std::string& name, const Dim& dim, U32 index);
  // The name that all elements share: without "[%s]" or "%s".
  static std::string arrayName(const std::string& name);

 private:
  const Xml& xml_;
  Map map_;
  std::unordered_set<std::string> blocks_;
  std::unordered_set<std::string> registers_;  // of the block under way
  U64 steps_ = 0;
  U64 textBytes_ = 0;
};

// Looks for what makes no sense in a layout: fields beyond the width are cut off or left out, a
// reset value beyond it is cut off, each with a note.
void settle(Builder& builder, Xml::Node at, const std::string& name, Layout& layout);

Map readSvd(const Xml& xml);
Map readIpXact(const Xml& xml);

}  // namespace Maps
