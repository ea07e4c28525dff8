// CMSIS-SVD: what elements are derived from, and their parts.
#include <maps/Svd.h>

#include <algorithm>

namespace Maps {

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
Xml::Node SvdReader::basis(Node node, const std::string& path) {
  if (const Node neighbour = named(node.parent(), path)) return neighbour;
  if (const Node found = foundByPath(path)) return found;
  // A path that begins in the same peripheral.
  for (Node at = node.parent(); at; at = at.parent()) {
    if (!Xml::is(at, "peripheral")) continue;
    return foundByPath(Xml::textOf(Xml::child(at, "name")) + "." + path);
  }
  return {};
}

Xml::Node SvdReader::named(Node container, const std::string& name) {
  const auto [place, isNew] = byName_.try_emplace(container.internal_object());
  auto& elements = place->second;
  if (isNew) {
    Xml::eachChild(container, [&](Node child) {
      const Node own = Xml::child(child, "name");
      if (!own) return;
      const std::string text = Xml::textOf(own);
      elements.try_emplace(text, child);
      elements.try_emplace(Builder::arrayName(text), child);
    });
  }
  const auto at = elements.find(name);
  return at == elements.end() ? Node() : at->second;
}

Xml::Node SvdReader::foundByPath(const std::string& path) {
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

Xml::Node SvdReader::first(const SvdChain& chain, std::string_view name) {
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
  // Files have odd ones. They are not needed to access a register: unknown is enough.
  const auto known = [&](Node node) -> std::optional<U64> {
    U64 value = 0;
    const std::string text = Xml::textOf(node);
    if (Xml::readNumber(text, value)) return value;
    builder_.note(node, "no number of 64 bits: '" + text.substr(0, 40) + "'");
    return std::nullopt;
  };
  if (const Node node = first(chain, "resetValue")) outer.resetValue = known(node);
  if (const Node node = first(chain, "resetMask")) outer.resetMask = known(node).value_or(0);
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

}  // namespace Maps
