// CMSIS-SVD: peripherals, clusters, registers and fields.
#include <maps/Svd.h>

namespace Maps {

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
    builder_.step(node, 10);
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
  if (layout->width == 0 || layout->width > Limits::bits) {
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
  builder_.step(node, dim.count);
  for (U32 i = 0; i < dim.count; ++i) {
    field.name = Builder::elementName(name, dim, i);
    builder_.keep(node, field.name + field.text);
    layout.fields.push_back(field);
    // dimIncrement of a field counts bits.
    const U64 low = field.low + dim.step;
    if (low >= Limits::bits && i + 1 < dim.count)
      xml_.fail(node, name + " reaches beyond any register");
    field.low = static_cast<U32>(low);
  }
}

void SvdReader::readPlace(const SvdChain& chain, Field& field) const {
  U64 low = 0, high = 0;
  if (const Node range = first(chain, "bitRange")) {
    const std::string text = Xml::textOf(range);
    const std::size_t colon = text.find(':');
    if (!text.starts_with('[') || !text.ends_with(']') || colon == std::string::npos ||
        !Xml::readNumber(std::string_view(text).substr(1, colon - 1), high) ||
        !Xml::readNumber(std::string_view(text).substr(colon + 1, text.size() - colon - 2), low)) {
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
  if (high < low || high >= Limits::bits) {
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

Map readSvd(const Xml& xml) { return SvdReader(xml).read(); }

}  // namespace Maps
