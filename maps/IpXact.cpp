// IP-XACT 2014, of a component its memory maps.
#include <maps/Builder.h>

#include <functional>

namespace Maps {
namespace {

using Node = Xml::Node;

// Digits of any base with underscores between them. False: they are none, or have over 64 bits.
bool ipXactDigits(const std::string& text, U32 base, U64& value) {
  std::string digits;
  for (const char c : text) {
    if (c != '_' && c != ' ') digits += c;
  }
  if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
  if (base == 16) return !digits.empty() && Xml::readNumber("0x" + digits, value);
  if (base == 2) return !digits.empty() && Xml::readNumber("#" + digits, value);
  if (base == 10) {
    return digits.find_first_not_of("0123456789") == std::string::npos &&
           Xml::readNumber(digits, value);
  }
  value = 0;
  for (const char c : digits) {
    if (c < '0' || c > '7' || value >> 61 != 0) return false;
    value = value << 3 | static_cast<U64>(c - '0');
  }
  return !digits.empty();
}

// 12, 0x1f, 'h1f, 8'b1010, 32'd12
bool ipXactNumber(std::string text, U64& value) {
  while (text.size() > 1 && text.front() == '(' && text.back() == ')') {
    text = text.substr(1, text.size() - 2);
  }
  const std::size_t quote = text.find('\'');
  if (quote == std::string::npos) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
      return ipXactDigits(text.substr(2), 16, value);
    }
    return ipXactDigits(text, 10, value);
  }
  std::size_t at = quote + 1;
  if (at < text.size() && (text[at] == 's' || text[at] == 'S')) ++at;
  if (at >= text.size()) return false;
  switch (text[at] | 0x20) {
    case 'h':
      return ipXactDigits(text.substr(at + 1), 16, value);
    case 'd':
      return ipXactDigits(text.substr(at + 1), 10, value);
    case 'o':
      return ipXactDigits(text.substr(at + 1), 8, value);
    case 'b':
      return ipXactDigits(text.substr(at + 1), 2, value);
    default:
      return false;
  }
}

// What a block or register file says for the registers within.
struct IpXactDefaults {
  std::optional<Access> access;
  bool isVolatile = false;
};

class IpXactReader {
 public:
  explicit IpXactReader(const Xml& xml) : xml_(xml), builder_(xml, "IP-XACT") {}
  Map read();

 private:
  void readMemoryMap(Node node, bool isAlone);
  void readBlock(Node node, const std::string& prefix);
  void readGroup(Node node, const std::string& prefix, U64 address, const IpXactDefaults& outer,
                 U32 depth);
  void readFile(Node node, const std::string& prefix, U64 address, const IpXactDefaults& outer,
                U32 depth);
  void readRegister(Node node, const std::string& prefix, U64 address, const IpXactDefaults& outer);
  void readField(Node node, Layout& layout);
  void readReset(Node owner, U32 low, U32 bits, Layout& layout, U64& known);
  U64 number(Node node) const;
  U64 numberOf(Node node, const char* name, const std::string& whose) const;
  std::string nameOf(Node node, const char* what);
  std::string textOf(Node node) {
    return builder_.keep(node, Xml::textOf(Xml::child(node, "description")));
  }
  IpXactDefaults defaultsOf(Node node, IpXactDefaults outer);
  std::optional<Access> accessOf(Node node);
  static bool isTrue(Node node) { return node && Xml::textOf(node) == "true"; }
  void eachElement(
      Node node, const std::string& name, U64 step, const char* stepFrom,
      const std::function<void(const std::string& suffix, U32 index, U64 distance)>& use);

  const Xml& xml_;
  Builder builder_;
  U64 unitBits_ = 8;  // of the memory map under way
};

Map IpXactReader::read() {
  const Node component = xml_.root();
  builder_.map().name = Xml::textOf(Xml::child(component, "name"));
  const Node maps = Xml::child(component, "memoryMaps");
  if (!maps) xml_.fail(component, "the component has no memoryMaps");
  U32 count = 0;
  Xml::eachChild(maps, [&](Node node) { count += Xml::is(node, "memoryMap") ? 1 : 0; });
  Xml::eachChild(maps, [&](Node node) {
    if (Xml::is(node, "memoryMap")) readMemoryMap(node, count == 1);
  });
  return builder_.result();
}

void IpXactReader::readMemoryMap(Node node, bool isAlone) {
  const std::string prefix = isAlone ? std::string() : nameOf(node, "a memory map") + ".";
  unitBits_ = 8;
  if (const Node bits = Xml::child(node, "addressUnitBits")) unitBits_ = number(bits);
  if (unitBits_ == 0 || unitBits_ % 8 != 0 || unitBits_ > 1024) {
    xml_.fail(node, "addressUnitBits are " + std::to_string(unitBits_));
  }
  Xml::eachChild(node, [&](Node child) {
    if (Xml::is(child, "addressBlock")) readBlock(child, prefix);
    if (Xml::is(child, "bank")) builder_.note(child, "a bank is left out");
  });
}

void IpXactReader::readBlock(Node node, const std::string& prefix) {
  Block block;
  block.name = prefix + nameOf(node, "an address block");
  block.text = textOf(node);
  block.address = numberOf(node, "baseAddress", block.name);
  if (block.address > ~U64{0} / (unitBits_ / 8)) xml_.fail(node, "an address has over 64 bits");
  block.address *= unitBits_ / 8;
  const U64 address = block.address;
  if (Xml::textOf(Xml::child(node, "usage")) == "reserved") {
    const U64 range = numberOf(node, "range", block.name);
    if (range > ~U64{0} / (unitBits_ / 8)) xml_.fail(node, "an address has over 64 bits");
    block.reserved.emplace_back(address, builder_.plus(node, address, range * (unitBits_ / 8)));
  }
  builder_.addBlock(node, std::move(block));
  readGroup(node, "", address, defaultsOf(node, {}), 0);
}

void IpXactReader::readGroup(Node node, const std::string& prefix, U64 address,
                             const IpXactDefaults& outer, U32 depth) {
  Xml::eachChild(node, [&](Node child) {
    if (Xml::is(child, "register")) readRegister(child, prefix, address, outer);
    if (Xml::is(child, "registerFile")) readFile(child, prefix, address, outer, depth + 1);
  });
}

// Calls use(suffix, index, distance) for each element of an array, which may have several
// dimensions, the last one nearest; once for what is none. The index is notInArray then.
void IpXactReader::eachElement(
    Node node, const std::string& name, U64 step, const char* stepFrom,
    const std::function<void(const std::string& suffix, U32 index, U64 distance)>& use) {
  std::vector<U64> dims;
  U64 count = 1;
  Xml::eachChild(node, [&](Node child) {
    if (!Xml::is(child, "dim")) return;
    dims.push_back(number(child));
    if (dims.back() == 0) xml_.fail(child, name + " is an array without elements");
    if (dims.back() > Limits::registers || (count *= dims.back()) > Limits::registers) {
      xml_.fail(child, name + " is an array of more than " + std::to_string(Limits::registers) +
                           " elements");
    }
  });
  if (dims.empty()) return use("", notInArray, 0);
  if (step == 0 || step > U64{1} << 40) {
    xml_.fail(node, name + " is an array whose " + stepFrom + " is " + std::to_string(step));
  }
  builder_.step(node, count * dims.size());
  for (U64 i = 0; i < count; ++i) {
    std::string suffix;
    U64 rest = i;
    for (std::size_t d = dims.size(); d-- > 0; rest /= dims[d]) {
      suffix.insert(0, "[" + std::to_string(rest % dims[d]) + "]");
    }
    use(suffix, static_cast<U32>(i), i * step);
  }
}

void IpXactReader::readFile(Node node, const std::string& prefix, U64 address,
                            const IpXactDefaults& outer, U32 depth) {
  if (depth > Limits::derivations) xml_.fail(node, "register files are nested too deep");
  const std::string name = nameOf(node, "a register file");
  const IpXactDefaults defaults = defaultsOf(node, outer);
  const U64 offset = numberOf(node, "addressOffset", name);
  const U64 range = Xml::child(node, "range") ? numberOf(node, "range", name) : 0;
  const U64 unit = unitBits_ / 8;
  if (offset > U64{1} << 56 || range > U64{1} << 40) xml_.fail(node, "an address has over 64 bits");
  eachElement(node, name, range * unit, "range", [&](const auto& suffix, U32, U64 distance) {
    builder_.step(node, 10);
    const U64 at = builder_.plus(node, builder_.plus(node, address, offset * unit), distance);
    readGroup(node, prefix + name + suffix + ".", at, defaults, depth);
  });
}

void IpXactReader::readRegister(Node node, const std::string& prefix, U64 address,
                                const IpXactDefaults& outer) {
  builder_.step(node);
  const std::string name = nameOf(node, "a register");
  const IpXactDefaults defaults = defaultsOf(node, outer);
  const auto layout = std::make_shared<Layout>();
  const U64 size = numberOf(node, "size", name);
  if (size == 0 || size > Limits::bits) {
    xml_.fail(node, name + " has a size of " + std::to_string(size) + " bits");
  }
  layout->width = static_cast<U32>(size);
  layout->access = defaults.access;
  layout->isVolatile = defaults.isVolatile;
  layout->text = textOf(node);
  layout->isAlternate = bool(Xml::child(node, "alternateRegisters"));
  U64 known = 0;
  layout->resetValue = 0;
  Xml::eachChild(node, [&](Node child) {
    if (Xml::is(child, "field")) readField(child, *layout);
  });
  readReset(node, 0, layout->width, *layout, known);
  Xml::eachChild(node, [&](Node child) {
    if (!Xml::is(child, "field")) return;
    const U64 low = numberOf(child, "bitOffset", name), bits = numberOf(child, "bitWidth", name);
    readReset(child, static_cast<U32>(low), static_cast<U32>(bits), *layout, known);
  });
  if (known == 0) layout->resetValue = std::nullopt;
  layout->resetMask = known;
  settle(builder_, node, prefix + name, *layout);
  const U64 unit = unitBits_ / 8, offset = numberOf(node, "addressOffset", prefix + name);
  if (offset > U64{1} << 56) xml_.fail(node, "an address has over 64 bits");
  const U64 begin = builder_.plus(node, address, offset * unit);
  // Elements follow each other as closely as the address units allow.
  const U64 step = (layout->bytes() + unit - 1) / unit * unit;
  eachElement(node, name, step, "size", [&](const auto& suffix, U32 index, U64 distance) {
    builder_.add(node, prefix + name + suffix, index == notInArray ? std::string() : prefix + name,
                 index, builder_.plus(node, begin, distance), layout);
  });
}

void IpXactReader::readField(Node node, Layout& layout) {
  builder_.step(node);
  Field field;
  field.name = nameOf(node, "a field");
  const U64 low = numberOf(node, "bitOffset", field.name);
  const U64 bits = numberOf(node, "bitWidth", field.name);
  if (bits == 0 || bits > Limits::bits || low >= Limits::bits) {
    xml_.fail(node, field.name + " has " + std::to_string(bits) + " bits from bit " +
                        std::to_string(low) + " on");
  }
  field.low = static_cast<U32>(low);
  field.bits = static_cast<U32>(bits);
  if (const Node access = Xml::child(node, "access")) field.access = accessOf(access);
  field.isVolatile = isTrue(Xml::child(node, "volatile"));
  field.isReserved = isTrue(Xml::child(node, "reserved"));
  field.text = textOf(node);
  if (const Node action = Xml::child(node, "readAction")) {
    const std::string text = Xml::textOf(action);
    field.readAction = text == "clear" ? ReadAction::clear
                       : text == "set" ? ReadAction::set
                                       : ReadAction::modify;
  }
  if (const Node effect = Xml::child(node, "modifiedWriteValue")) {
    const std::string text = Xml::textOf(effect);
    field.writeEffect = WriteEffect::user;
    for (const WriteEffect known :
         {WriteEffect::modify, WriteEffect::oneToClear, WriteEffect::oneToSet,
          WriteEffect::oneToToggle, WriteEffect::zeroToClear, WriteEffect::zeroToSet,
          WriteEffect::zeroToToggle, WriteEffect::clear, WriteEffect::set}) {
      if (text == Maps::textOf(known)) field.writeEffect = known;
    }
  }
  std::string read, write;
  Xml::eachChild(Xml::child(node, "enumeratedValues"), [&](Node item) {
    if (!Xml::is(item, "enumeratedValue")) return;
    builder_.step(item);
    const std::string usage = item.attribute("usage").value();
    Value value;
    value.name = builder_.keep(item, Xml::textOf(Xml::child(item, "name")));
    const std::string text = Xml::textOf(Xml::child(item, "description"));
    if (!text.empty()) field.text += builder_.keep(item, " / " + text);
    const bool isKnown = ipXactNumber(Xml::textOf(Xml::child(item, "value")), value.value);
    const std::string one = value.name + "=" + std::to_string(value.value) + " ";
    if (usage != "write") read += one;
    if (usage != "read") write += one;
    if (isKnown && usage != "write") field.values.push_back(std::move(value));
  });
  field.hasTwoMeanings = read != write;
  layout.fields.push_back(std::move(field));
}

// A reset of another kind than the hard one (resetTypeRef) is left out.
void IpXactReader::readReset(Node owner, U32 low, U32 bits, Layout& layout, U64& known) {
  Xml::eachChild(Xml::child(owner, "resets"), [&](Node reset) {
    if (!Xml::is(reset, "reset")) return;
    const std::string kind = reset.attribute("resetTypeRef").value();
    if (!kind.empty() && kind != "HARD") return;
    const Node valueNode = Xml::child(reset, "value");
    if (!valueNode || low > 63) return;
    const U64 width = bits > 63 ? ~U64{0} : (U64{1} << bits) - 1;
    U64 mask = width;
    if (const Node node = Xml::child(reset, "mask")) mask &= number(node);
    const U64 value = number(valueNode);
    if ((value & ~width) != 0) builder_.note(reset, "a reset value is wider than its bits");
    layout.resetValue = (*layout.resetValue & ~(mask << low)) | ((value & mask) << low);
    known |= mask << low;
  });
}

U64 IpXactReader::number(Node node) const {
  const std::string text = Xml::textOf(node);
  U64 value = 0;
  if (!ipXactNumber(text, value)) {
    xml_.fail(node, std::string(Xml::nameOf(node)) + " is no literal number of 64 bits: '" +
                        text.substr(0, 40) + "'");
  }
  return value;
}

U64 IpXactReader::numberOf(Node node, const char* name, const std::string& whose) const {
  const Node child = Xml::child(node, name);
  if (!child) xml_.fail(node, whose + " has no " + name);
  return number(child);
}

std::string IpXactReader::nameOf(Node node, const char* what) {
  std::string name = builder_.keep(node, Xml::textOf(Xml::child(node, "name")));
  if (name.empty()) xml_.fail(node, std::string(what) + " has no name");
  return name;
}

IpXactDefaults IpXactReader::defaultsOf(Node node, IpXactDefaults outer) {
  if (const Node access = Xml::child(node, "access")) outer.access = accessOf(access);
  if (const Node isVolatile = Xml::child(node, "volatile")) outer.isVolatile = isTrue(isVolatile);
  return outer;
}

std::optional<Access> IpXactReader::accessOf(Node node) {
  const std::string text = Xml::textOf(node);
  for (const Access access : {Access::readWrite, Access::readOnly, Access::writeOnly,
                              Access::writeOnce, Access::readWriteOnce}) {
    if (text == Maps::textOf(access)) return access;
  }
  builder_.note(node, "unknown access '" + text.substr(0, 40) + "'");
  return std::nullopt;
}

}  // namespace

Map readIpXact(const Xml& xml) { return IpXactReader(xml).read(); }

}  // namespace Maps
