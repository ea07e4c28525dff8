// A map that grows within the limits.
#include <maps/Builder.h>

#include <Zint/Sizes.h>

namespace Maps {

Builder::Builder(const Xml& xml, const char* format) : xml_(xml) {
  map_.file = xml.file();
  map_.format = format;
}

void Builder::step(Node at, U64 count) {
  steps_ += count;
  if (steps_ > Limits::steps) {
    xml_.fail(at, "the map has more than " + std::to_string(Limits::steps) + " elements");
  }
}

std::string Builder::keep(Node at, std::string text) {
  textBytes_ += text.size();
  if (textBytes_ > Limits::textBytes) xml_.fail(at, "the texts take more than 128 MiB");
  return text;
}

void Builder::note(Node at, const std::string& text) {
  if (map_.notes.size() < Limits::notes) map_.notes.push_back({xml_.lineOf(at), text});
}

U64 Builder::plus(Node at, U64 address, U64 distance) const {
  if (distance > ~U64{0} - address) xml_.fail(at, "an address has more than 64 bits");
  return address + distance;
}

U32 Builder::addBlock(Node at, Block block) {
  step(at);
  keep(at, block.name);
  block.line = xml_.lineOf(at);
  const std::string name = block.name;
  for (U32 n = 2; !blocks_.insert(block.name).second; ++n) {
    step(at);
    if (n == 2) note(at, name + ": a second block has this name");
    block.name = name + "~" + std::to_string(n);
  }
  map_.blocks.push_back(std::move(block));
  registers_.clear();
  return Zint::countOf(map_.blocks) - 1;
}

void Builder::add(Node at, const std::string& name, const std::string& array, U32 index,
                  U64 address, const std::shared_ptr<const Layout>& layout) {
  if (map_.registers.size() >= Limits::registers) {
    xml_.fail(at, "the map has more than " + std::to_string(Limits::registers) + " registers");
  }
  if (name.size() > Limits::nameBytes) {
    xml_.fail(at, "a register's name has more than " + std::to_string(Limits::nameBytes) +
                      " bytes: '" + name.substr(0, 40) + "...'");
  }
  plus(at, address, layout->bytes());
  keep(at, name);
  Register r;
  r.name = name;
  for (U32 n = 2; !registers_.insert(r.name).second; ++n) {
    step(at);
    if (n == 2) note(at, name + ": a second register has this name");
    r.name = name + "~" + std::to_string(n);
  }
  r.array = array;
  r.index = index;
  r.block = Zint::countOf(map_.blocks) - 1;
  r.address = address;
  r.layout = layout;
  r.line = xml_.lineOf(at);
  map_.registers.push_back(std::move(r));
}

Map Builder::result() {
  if (map_.registers.empty()) throw Error(map_.file, 0, "the map has no register");
  return std::move(map_);
}

std::string Builder::elementName(const std::string& name, const Dim& dim, U32 index) {
  if (!dim.isArray) return name;
  const std::string own = dim.names.empty() ? std::to_string(index) : dim.names[index];
  const std::size_t at = name.find("%s");
  if (at == std::string::npos) return name + "[" + own + "]";
  return name.substr(0, at) + own + name.substr(at + 2);
}

std::string Builder::arrayName(const std::string& name) {
  for (const std::string_view mark : {"[%s]", "%s"}) {
    const std::size_t at = name.find(mark);
    if (at != std::string::npos) return name.substr(0, at) + name.substr(at + mark.size());
  }
  return name;
}

void settle(Builder& builder, Xml::Node at, const std::string& name, Layout& layout) {
  if (layout.resetValue && (*layout.resetValue & ~layout.bits()) != 0) {
    builder.note(at, name + ": the reset value " + hexText(*layout.resetValue) +
                         " is wider than the register");
    layout.resetValue = *layout.resetValue & layout.bits();
  }
  layout.resetMask &= layout.bits();
  std::erase_if(layout.fields, [&](const Field& field) {
    if (field.low < layout.width) return false;
    builder.note(at, name + ": the field " + field.name + " lies beyond the register");
    return true;
  });
  for (Field& field : layout.fields) {
    if (U64{field.low} + field.bits <= layout.width) continue;
    builder.note(at, name + ": the field " + field.name + " is wider than the register");
    field.bits = layout.width - field.low;
  }
}

}  // namespace Maps
