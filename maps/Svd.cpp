// CMSIS-SVD.
#include <maps/Builder.h>

#include <unordered_map>

namespace Maps {
namespace {

using Node = Xml::Node;

// What elements within inherit.
struct SvdDefaults {
  U32 size = 32;
  std::optional<Access> access;
  std::optional<U64> resetValue;
  U64 resetMask = ~U64{0};
};

// An element and what it is derived from, the nearest first: the first that says something counts.
using SvdChain = std::vector<Node>;

class SvdReader {
 public:
  explicit SvdReader(const Xml& xml) : xml_(xml), builder_(xml, "CMSIS-SVD") {}
  Map read();

 private:
  void readPeripheral(Node node, const SvdDefaults& outer);
  void readBlock(const SvdChain& chain, const std::string& name, U64 address,
                 const SvdDefaults& defaults);
  void readGroup(Node registers, const std::string& prefix, U64 address, const SvdDefaults& outer,
                 U32 depth);
  void readCluster(Node node, const std::string& prefix, U64 address, const SvdDefaults& outer,
                   U32 depth);
  void readRegister(Node node, const std::string& prefix, U64 address, const SvdDefaults& outer);
  void readFields(Node fields, Layout& layout);
  void readField(Node node, Layout& layout);
  void readPlace(const SvdChain& chain, Field& field) const;
  void readValues(const SvdChain& chain, Field& field);

  SvdChain chainOf(Node node);
  Node basis(Node node, const std::string& path);
  Node named(Node container, const std::string& name);
  Node foundByPath(const std::string& path);
  static Node first(const SvdChain& chain, std::string_view name);
  std::string textOf(const SvdChain& chain, std::string_view name);
  std::string nameOf(const SvdChain& chain, const char* what);
  U64 offsetOf(const SvdChain& chain, std::string_view name, const std::string& whose) const;
  SvdDefaults defaultsOf(const SvdChain& chain, SvdDefaults outer);
  std::optional<Access> accessOf(Node node);
  void readEffects(const SvdChain& chain, ReadAction& read, WriteEffect& write);
  Dim dimOf(const SvdChain& chain, const std::string& name);
  std::vector<std::string> indexNames(Node node, U32 count, const std::string& name);

  const Xml& xml_;
  Builder builder_;
  // Per container: its elements by name.
  std::unordered_map<const void*, std::unordered_map<std::string, Node>> byName_;
};

Map SvdReader::read() {
  const Node device = xml_.root();
  builder_.map().name = Xml::textOf(Xml::child(device, "name"));
  const SvdDefaults defaults = defaultsOf({device}, {});
  const Node peripherals = Xml::child(device, "peripherals");
  if (!peripherals) xml_.fail(device, "the device has no peripherals");
  Xml::eachChild(peripherals, [&](Node node) {
    if (Xml::is(node, "peripheral")) readPeripheral(node, defaults);
  });
  return builder_.result();
}

// ---- what is derived ----------------------------------------------------------------------------

SvdChain SvdReader::chainOf(Node node) {
  SvdChain chain;
  for (Node at = node; at;) {
    builder_.step(at);
    for (const Node& before : chain) {
      if (before == at) xml_.fail(node, "derivedFrom goes in a circle");
    }
    if (chain.size() > Limits::derivations) {
      xml_.fail(node, "derivedFrom goes over more than " + std::to_string(Limits::derivations) +
                          " elements");
    }
    chain.push_back(at);
    const std::string path = at.attribute("derivedFrom").value();
    if (path.empty()) break;
    at = basis(at, path);
    if (!at) xml_.fail(chain.back(), "derivedFrom names nothing: '" + path.substr(0, 80) + "'");
  }
  return chain;
}

// What `path` means at an element: a neighbour, or a path from a peripheral on.
Node SvdReader::basis(Node node, const std::string& path) {
  if (const Node neighbour = named(node.parent(), path)) return neighbour;
  if (const Node found = foundByPath(path)) return found;
  // A path that begins in the same peripheral.
  for (Node at = node.parent(); at; at = at.parent()) {
    if (!Xml::is(at, "peripheral")) continue;
    return foundByPath(Xml::textOf(Xml::child(at, "name")) + "." + path);
  }
  return {};
}

Node SvdReader::named(Node container, const std::string& name) {
  auto [found, isNew] = byName_.try_emplace(container.internal_object());
  if (isNew) {
    Xml::eachChild(container, [&](Node child) {
      const Node own = Xml::child(child, "name");
      if (!own) return;
      const std::string text = Xml::textOf(own);
      found->second.try_emplace(text, child);
      found->second.try_emplace(Builder::arrayName(text), child);
    });
  }
  const auto at = found->second.find(name);
  return at == found->second.end() ? Node() : at->second;
}

Node SvdReader::foundByPath(const std::string& path) {
  Node container = Xml::child(xml_.root(), "peripherals");
  for (std::size_t begin = 0;;) {
    const std::size_t end = path.find('.', begin);
    const Node found = named(container, path.substr(begin, end - begin));
    if (!found || end == std::string::npos) return found;
    begin = end + 1;
    container = Xml::is(found, "peripheral") ? Xml::child(found, "registers")
                : Xml::is(found, "register") ? Xml::child(found, "fields")
                                             : found;
  }
}

Node SvdReader::first(const SvdChain& chain, std::string_view name) {
  for (const Node& node : chain) {
    if (const Node found = Xml::child(node, name)) return found;
  }
  return {};
}

std::string SvdReader::textOf(const SvdChain& chain, std::string_view name) {
  const Node node = first(chain, name);
  return node ? builder_.keep(node, Xml::textOf(node)) : std::string();
}

// ---- parts of elements --------------------------------------------------------------------------

std::string SvdReader::nameOf(const SvdChain& chain, const char* what) {
  std::string name = textOf(chain, "name");
  if (name.empty()) xml_.fail(chain.front(), std::string(what) + " has no name");
  return name;
}

U64 SvdReader::offsetOf(const SvdChain& chain, std::string_view name,
                        const std::string& whose) const {
  const Node node = first(chain, name);
  if (!node) xml_.fail(chain.front(), whose + " has no " + std::string(name));
  return xml_.number(node);
}

SvdDefaults SvdReader::defaultsOf(const SvdChain& chain, SvdDefaults outer) {
  if (const Node node = first(chain, "size")) outer.size = xml_.number32(node, "size");
  if (const Node node = first(chain, "access")) outer.access = accessOf(node);
  if (const Node node = first(chain, "resetValue")) outer.resetValue = xml_.number(node);
  if (const Node node = first(chain, "resetMask")) outer.resetMask = xml_.number(node);
  return outer;
}

std::optional<Access> SvdReader::accessOf(Node node) {
  const std::string text = Xml::textOf(node);
  for (const Access access : {Access::readWrite, Access::readOnly, Access::writeOnly,
                              Access::writeOnce, Access::readWriteOnce}) {
    if (text == Maps::textOf(access)) return access;
  }
  builder_.note(node, "unknown access '" + text.substr(0, 40) + "'");
  return std::nullopt;
}

void SvdReader::readEffects(const SvdChain& chain, ReadAction& read, WriteEffect& write) {
  if (const Node node = first(chain, "readAction")) {
    const std::string text = Xml::textOf(node);
    read = ReadAction::modify;  // also where the word is unknown
    for (const ReadAction action :
         {ReadAction::clear, ReadAction::set, ReadAction::modify, ReadAction::modifyExternal}) {
      if (text == Maps::textOf(action)) read = action;
    }
  }
  if (const Node node = first(chain, "modifiedWriteValues")) {
    const std::string text = Xml::textOf(node);
    write = WriteEffect::user;
    for (const WriteEffect effect :
         {WriteEffect::modify, WriteEffect::oneToClear, WriteEffect::oneToSet,
          WriteEffect::oneToToggle, WriteEffect::zeroToClear, WriteEffect::zeroToSet,
          WriteEffect::zeroToToggle, WriteEffect::clear, WriteEffect::set}) {
      if (text == Maps::textOf(effect)) write = effect;
    }
  }
}

Dim SvdReader::dimOf(const SvdChain& chain, const std::string& name) {
  Dim dim;
  const Node count = first(chain, "dim");
  if (!count) return dim;
  dim.isArray = true;
  const U64 elements = xml_.number(count);
  if (elements == 0) xml_.fail(count, name + " is an array without elements");
  if (elements > Limits::registers) {
    xml_.fail(count, name + " is an array of more than " + std::to_string(Limits::registers) +
                         " elements");
  }
  dim.count = static_cast<U32>(elements);
  builder_.step(count, dim.count);
  dim.step = offsetOf(chain, "dimIncrement", name);
  if (dim.step > U64{1} << 40) xml_.fail(count, name + " has elements more than 1 TiB apart");
  if (const Node node = first(chain, "dimIndex")) dim.names = indexNames(node, dim.count, name);
  return dim;
}

// "0-3", "A-D" or "LOW,HIGH". Another number of names than elements: a note, and numbers.
std::vector<std::string> SvdReader::indexNames(Node node, U32 count, const std::string& name) {
  const std::string text = Xml::textOf(node);
  std::vector<std::string> names;
  const std::size_t dash = text.find('-');
  U64 low = 0, high = 0;
  if (dash == 1 && text.size() == 3 && text[0] >= 'A' && text[2] >= text[0] && text[2] <= 'z') {
    for (char c = text[0]; c <= text[2]; ++c) names.emplace_back(1, c);
  } else if (dash != std::string::npos && Xml::readNumber(text.substr(0, dash), low) &&
             Xml::readNumber(text.substr(dash + 1), high)) {
    if (high >= low && high - low == count - 1) {
      for (U64 i = low; i <= high; ++i) names.push_back(std::to_string(i));
    }
  } else {
    for (std::size_t begin = 0; begin <= text.size();) {
      const std::size_t end = std::min(text.find(',', begin), text.size());
      std::string one = text.substr(begin, end - begin);
      while (one.starts_with(' ')) one.erase(0, 1);
      while (one.ends_with(' ')) one.pop_back();
      names.push_back(builder_.keep(node, one));
      begin = end + 1;
    }
  }
  if (names.size() == count) return names;
  builder_.note(node, name + ": dimIndex does not name " + std::to_string(count) + " elements");
  return {};
}

// ---- peripherals, clusters, registers -----------------------------------------------------------

void SvdReader::readPeripheral(Node node, const SvdDefaults& outer) {
  const SvdChain chain = chainOf(node);
  const std::string name = nameOf({node}, "a peripheral");
  const U64 address = offsetOf(chain, "baseAddress", name);
  const SvdDefaults defaults = defaultsOf(chain, outer);
  const Dim dim = dimOf({node}, name);
  for (U32 i = 0; i < dim.count; ++i) {
    readBlock(chain, Builder::elementName(name, dim, i),
              builder_.plus(node, address, dim.isArray ? i * dim.step : 0), defaults);
  }
}

void SvdReader::readBlock(const SvdChain& chain, const std::string& name, U64 address,
                          const SvdDefaults& defaults) {
  Block block;
  block.name = name;
  block.text = textOf(chain, "description");
  block.address = address;
  block.isAlternate = bool(Xml::child(chain.front(), "alternatePeripheral"));
  for (const Node& node : chain) {
    const std::size_t before = block.reserved.size();
    bool isThere = false;
    Xml::eachChild(node, [&](Node child) {
      if (!Xml::is(child, "addressBlock")) return;
      builder_.step(child);
      isThere = true;
      if (Xml::textOf(Xml::child(child, "usage")) != "reserved") return;
      if (block.reserved.size() >= 1000) xml_.fail(child, name + " has over 1000 address blocks");
      const U64 begin = builder_.plus(child, address, offsetOf({child}, "offset", name));
      block.reserved.emplace_back(begin,
                                  builder_.plus(child, begin, offsetOf({child}, "size", name)));
    });
    if (isThere || block.reserved.size() != before) break;
  }
  builder_.addBlock(chain.front(), std::move(block));
  if (const Node registers = first(chain, "registers")) {
    readGroup(registers, "", address, defaults, 0);
  }
}

void SvdReader::readGroup(Node registers, const std::string& prefix, U64 address,
                          const SvdDefaults& outer, U32 depth) {
  Xml::eachChild(registers, [&](Node child) {
    if (Xml::is(child, "register")) readRegister(child, prefix, address, outer);
    if (Xml::is(child, "cluster")) readCluster(child, prefix, address, outer, depth + 1);
  });
}

void SvdReader::readCluster(Node node, const std::string& prefix, U64 address,
                            const SvdDefaults& outer, U32 depth) {
  if (depth > Limits::derivations) {
    xml_.fail(node, "clusters are nested deeper than " + std::to_string(Limits::derivations));
  }
  const SvdChain chain = chainOf(node);
  const std::string name = nameOf(chain, "a cluster");
  const Dim dim = dimOf(chain, name);
  const SvdDefaults defaults = defaultsOf(chain, outer);
  const U64 offset = offsetOf(chain, "addressOffset", name);
  // The nearest that has registers has all of them.
  Node registers = chain.front();
  for (const Node& candidate : chain) {
    registers = candidate;
    if (Xml::child(candidate, "register") || Xml::child(candidate, "cluster")) break;
  }
  for (U32 i = 0; i < dim.count; ++i) {
    builder_.step(node);
    const U64 at = builder_.plus(node, builder_.plus(node, address, offset), i * dim.step);
    readGroup(registers, prefix + Builder::elementName(name, dim, i) + ".", at, defaults, depth);
  }
}

void SvdReader::readRegister(Node node, const std::string& prefix, U64 address,
                             const SvdDefaults& outer) {
  const SvdChain chain = chainOf(node);
  std::string name = nameOf(chain, "a register");
  if (const Node group = first(chain, "alternateGroup")) name += "_" + Xml::textOf(group);
  const Dim dim = dimOf(chain, name);
  const SvdDefaults defaults = defaultsOf(chain, outer);
  const auto layout = std::make_shared<Layout>();
  layout->width = defaults.size;
  if (layout->width == 0 || layout->width > 4096) {
    xml_.fail(node, name + " has a size of " + std::to_string(layout->width) + " bits");
  }
  layout->access = defaults.access;
  layout->resetValue = defaults.resetValue;
  layout->resetMask = defaults.resetMask;
  layout->isAlternate = bool(first(chain, "alternateRegister"));
  layout->text = textOf(chain, "description");
  readEffects(chain, layout->readAction, layout->writeEffect);
  if (const Node fields = first(chain, "fields")) readFields(fields, *layout);
  settle(builder_, node, prefix + name, *layout);
  const U64 begin = builder_.plus(node, address, offsetOf(chain, "addressOffset", prefix + name));
  const std::string array = dim.isArray ? prefix + Builder::arrayName(name) : std::string();
  for (U32 i = 0; i < dim.count; ++i) {
    builder_.add(node, prefix + Builder::elementName(name, dim, i), array,
                 dim.isArray ? i : notInArray, builder_.plus(node, begin, i * dim.step), layout);
  }
}

// ---- fields -------------------------------------------------------------------------------------

void SvdReader::readFields(Node fields, Layout& layout) {
  Xml::eachChild(fields, [&](Node child) {
    if (Xml::is(child, "field")) readField(child, layout);
  });
}

void SvdReader::readField(Node node, Layout& layout) {
  const SvdChain chain = chainOf(node);
  Field field;
  const std::string name = nameOf(chain, "a field");
  readPlace(chain, field);
  if (const Node access = first(chain, "access")) field.access = accessOf(access);
  readEffects(chain, field.readAction, field.writeEffect);
  field.text = textOf(chain, "description");
  readValues(chain, field);
  const Dim dim = dimOf(chain, name);
  if (dim.count > 4096) xml_.fail(node, name + " is an array of more than 4096 fields");
  for (U32 i = 0; i < dim.count; ++i) {
    field.name = Builder::elementName(name, dim, i);
    builder_.keep(node, field.name + field.text);
    layout.fields.push_back(field);
    // dimIncrement of a field counts bits.
    const U64 low = field.low + dim.step;
    if (low > 4096 && i + 1 < dim.count) xml_.fail(node, name + " reaches beyond any register");
    field.low = static_cast<U32>(low);
  }
}

void SvdReader::readPlace(const SvdChain& chain, Field& field) const {
  U64 low = 0, high = 0;
  if (const Node range = first(chain, "bitRange")) {
    const std::string text = Xml::textOf(range);
    const std::size_t colon = text.find(':');
    if (!text.starts_with('[') || !text.ends_with(']') || colon == std::string::npos ||
        !Xml::readNumber(text.substr(1, colon - 1), high) ||
        !Xml::readNumber(text.substr(colon + 1, text.size() - colon - 2), low)) {
      xml_.fail(range, "a bitRange is written [high:low], not '" + text.substr(0, 40) + "'");
    }
  } else if (const Node offset = first(chain, "bitOffset")) {
    low = high = xml_.number32(offset, "bitOffset");
    if (const Node width = first(chain, "bitWidth")) {
      high = low + xml_.number32(width, "bitWidth") - 1;
    }
  } else {
    const Node lsb = first(chain, "lsb"), msb = first(chain, "msb");
    if (!lsb || !msb) xml_.fail(chain.front(), "a field has no bits");
    low = xml_.number32(lsb, "lsb");
    high = xml_.number32(msb, "msb");
  }
  if (high < low || high > 4095) {
    xml_.fail(chain.front(),
              "a field has the bits " + std::to_string(high) + " down to " + std::to_string(low));
  }
  field.low = static_cast<U32>(low);
  field.bits = static_cast<U32>(high - low + 1);
}

// Where reading and writing have values of their own, a write of what was read does something else.
void SvdReader::readValues(const SvdChain& chain, Field& field) {
  for (const Node& node : chain) {
    std::string read, write;
    bool isThere = false;
    Xml::eachChild(node, [&](Node list) {
      if (!Xml::is(list, "enumeratedValues")) return;
      isThere = true;
      const std::string usage = Xml::textOf(Xml::child(list, "usage"));
      std::string names;
      Xml::eachChild(list, [&](Node item) {
        if (!Xml::is(item, "enumeratedValue")) return;
        builder_.step(item);
        Value value;
        value.name = builder_.keep(item, Xml::textOf(Xml::child(item, "name")));
        const std::string text = Xml::textOf(Xml::child(item, "description"));
        if (!text.empty()) field.text += builder_.keep(item, " / " + text);
        const bool isKnown = Xml::readNumber(Xml::textOf(Xml::child(item, "value")), value.value);
        names += value.name + "=" + std::to_string(value.value) + " ";
        if (isKnown && usage != "write") field.values.push_back(std::move(value));
      });
      if (usage != "write") read += names;
      if (usage != "read") write += names;
    });
    if (!isThere) continue;
    field.hasTwoMeanings = read != write;
    return;
  }
}

}  // namespace

Map readSvd(const Xml& xml) { return SvdReader(xml).read(); }

}  // namespace Maps
