#include "tools/console/Names.h"

#include <Hardware/ChipMemory.h>
#include <Zint/ObjectText.h>

#include <algorithm>
#include <cctype>

#include "tools/console/Error.h"
#include "tools/console/Suggest.h"
#include "tools/console/Values.h"
#include "tools/console/Words.h"

namespace Console {
namespace {

std::vector<std::string> namesBelow(const Place& place) {
  std::vector<std::string> names;
  if (place.kind == Place::object) {
    for (const Zint::Member* member : membersOf(place.view().type())) names.push_back(member->name);
    for (const Computed& each : computedOf(place.result)) names.push_back(each.name);
  } else if (place.kind == Place::collection) {
    for (const Zint::ListItem& item : place.list().items()) {
      names.push_back(keyText(*place.member->list, item.key.bytes()));
      if (const std::string name = nameIn(item.value.text); !name.empty()) names.push_back(name);
    }
  }
  return names;
}

Zint::Result memberOfCollection(const Place& place, const std::string& name) {
  const Zint::GenericIf::List_ list = place.list();
  try {
    const Zint::Result byKey = list.find(isAddressName(list.keyName()) ? integerText(name) : name);
    if (byKey.text != "null") return byKey;
  } catch (const Zint::RangeException&) {
    // No key at all: it may be a name yet.
  }
  Zint::Result found;
  for (const Zint::ListItem& item : list.items()) {
    if (item.key.bytes() == name) return item.value;  // there, and null
    if (!isNamed(item.value.text, name)) continue;
    if (found.object != nullptr) {
      throw Error(place.name() + " has several members named " + name + ": name its " +
                  list.keyName());
    }
    found = item.value;
  }
  if (found.object == nullptr) {
    throw Error(place.name() + " has no member " + name + didYouMean(name, namesBelow(place)));
  }
  return found;
}

}  // namespace

std::string textOf(const Path& path) {
  if (path.empty()) return "/";
  std::string text;
  for (const std::string& name : path) text += "/" + name;
  return text;
}

std::vector<const Zint::Member*> membersOf(const Zint::Type& type) {
  std::vector<const Zint::Member*> members;
  if (type.base != nullptr) members = membersOf(*type.base);
  for (const Zint::Member& member : type.members) members.push_back(&member);
  return members;
}

std::vector<Computed> computedOf(const Zint::Result& object) {
  const auto* region = dynamic_cast<const Hardware::ChipMemory*>(object.object.ptr());
  if (region == nullptr || region->fwkType()->find("entries") != nullptr) return {};
  return {{"entries", Zint::valueToStrep(region->entries()).bytes(), "U32", "entrySize"}};
}

std::string nameIn(const Zint::String8& text) {
  const std::string& bytes = text.bytes();
  const std::size_t hash = bytes.rfind('#');
  if (!bytes.starts_with('\'') || hash == std::string::npos || hash < 3) return "";
  const std::string bare = bytes.substr(1, hash - 2);
  const bool isPlain = std::all_of(bare.begin(), bare.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
  });
  return isPlain && bare != "." && bare != ".." ? bare : bytes.substr(0, hash);
}

bool isNamed(const Zint::String8& text, const std::string& name) {
  const std::string quoted = name.starts_with('\'') ? name : Zint::valueToStrep(name).bytes();
  const std::string& bytes = text.bytes();
  return bytes.starts_with(quoted + "#") && bytes.rfind('#') == quoted.size();
}

Names::Names(std::vector<std::pair<std::string, Zint::Result>> objects)
    : objects_(std::move(objects)), fixed_(objects_.size()) {
  for (auto& [name, object] : objects_) object.text = Zint::objectText(object.object.ptr());
}

void Names::hereIs(const std::string& path) {
  const Place place = at(path);
  if (place.kind == Place::value) {
    throw Error(place.name() + " is " + place.result.text.bytes() + ", nothing is below it");
  }
  here_ = place.path;
}

Path Names::absolute(const std::string& path) const {
  Path result = path.starts_with('/') ? Path() : here_;
  for (std::size_t at = 0; at <= path.size();) {
    const std::size_t end = std::min(findUnquoted(path, '/', at), path.size());
    const std::string name = path.substr(at, end - at);
    at = end + 1;
    if (name.empty() || name == ".") continue;
    if (name != "..") {
      result.push_back(name);
    } else if (!result.empty()) {
      result.pop_back();
    }
  }
  return result;
}

Place Names::at(const std::string& path) const { return at(absolute(path)); }

Place Names::at(const Path& path) const {
  Place place;
  for (const std::string& name : path) {
    Place next = below(place, name);
    next.path = place.path;
    next.path.push_back(name);
    place = std::move(next);
  }
  return place;
}

std::pair<Place, std::string> Names::above(const std::string& path) const {
  Path full = absolute(path);
  if (full.empty()) throw Error("/ is no member of anything");
  const std::string name = full.back();
  full.pop_back();
  Place place = at(full);
  if (place.kind == Place::collection || place.kind == Place::value) {
    throw Error(place.name() + " is no object, it has no member " + name);
  }
  return {std::move(place), name};
}

Place Names::below(const Place& place, const std::string& name) const {
  Place next;
  switch (place.kind) {
    case Place::root: {
      const auto found = std::find_if(objects_.begin(), objects_.end(),
                                      [&](const auto& each) { return each.first == name; });
      if (found == objects_.end()) throw Error("no object /" + name + didYouMean(name, objects()));
      next.kind = Place::object;
      next.result = found->second;
      return next;
    }
    case Place::object: {
      const Zint::GenericIf_ view = place.view();
      const Zint::Member* member = view.type().find(name);
      if (member == nullptr) {
        for (const Computed& each : computedOf(place.result)) {
          if (each.name != name) continue;
          next.kind = Place::value;
          next.result = Zint::Result{each.text};
          next.isComputed = true;
          return next;
        }
        throw Error(place.name() + " (" + view.typeName() + ") has no member " + name +
                    didYouMean(name, namesBelow(place)));
      }
      next.member = member;
      next.owner = place.result;
      if (member->list != nullptr) {
        next.kind = Place::collection;
        next.result = place.result;
        return next;
      }
      if (member->get == nullptr) {
        throw Error(place.name() + "/" + name + " is an operation: use call");
      }
      if (member->target != nullptr) {
        next.result = view.target(name);
      } else {
        next.result = Zint::Result{view.attribute(name)};
      }
      break;
    }
    case Place::collection:
      next.result = memberOfCollection(place, name);
      break;
    case Place::value:
      throw Error(place.name() + " is " + place.result.text.bytes() + ", nothing is below it");
  }
  next.kind = next.result.object == nullptr ? Place::value : Place::object;
  return next;
}

void Names::objectIs(const std::string& name, const Zint::Result& object) {
  const bool isWord = std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '_' || c == '-';
  });
  if (!isWord || name.empty()) throw Error(name + " is no name: letters, digits, - and _");
  const auto place = std::find_if(objects_.begin(), objects_.end(),
                                  [&](const auto& each) { return each.first == name; });
  const auto index = static_cast<std::size_t>(place - objects_.begin());
  if (index < fixed_) throw Error("/" + name + " is part of the system and keeps its name");
  if (place != objects_.end()) objects_.erase(place);
  if (object.object != nullptr) objects_.emplace_back(name, object);
}

std::vector<std::string> Names::objects() const {
  std::vector<std::string> names;
  for (const auto& [name, object] : objects_) names.push_back(name);
  return names;
}

std::vector<Zint::Result> Names::results() const {
  std::vector<Zint::Result> results;
  for (const auto& [name, object] : objects_) results.push_back(object);
  return results;
}

}  // namespace Console
