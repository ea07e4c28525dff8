#include <telemetry/Names.h>

#include <Hardware/ChipMemory.h>
#include <Zint/ObjectText.h>

#include <algorithm>
#include <cctype>

#include <telemetry/NamesText.h>
#include <telemetry/NamesWalk.h>

namespace Telemetry {
namespace {

// Of how many members of a collection near misses are looked for.
constexpr U32 mostSuggested = 64;

std::vector<std::string> namesBelow(const Place& place) {
  std::vector<std::string> names;
  if (place.kind == Place::object) {
    for (const Zint::Member* member : membersOf(place.view().type())) names.push_back(member->name);
    for (const Computed& each : computedOf(place.result)) names.push_back(each.name);
  } else if (place.kind == Place::collection && place.list().size() <= mostSuggested) {
    for (const Zint::ListItem& item : place.list().items()) {
      names.push_back(keyText(*place.member->list, item.key.bytes()));
      if (const std::string name = nameIn(item.value.text); !name.empty()) names.push_back(name);
    }
  }
  return names;
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
  Lookup lookup(*this, path);
  while (!lookup.step(~0u)) {
  }
  return std::move(lookup.place());
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

Place Names::below(const Place& place, const std::string& name,
                   const Lookup::BeforeRead& beforeRead) const {
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
      if (beforeRead) beforeRead(place.result, *member);
      if (member->target != nullptr) {
        next.result = view.target(name);
      } else {
        next.result = Zint::Result{view.attribute(name)};
      }
      break;
    }
    case Place::collection:
    case Place::value:
      throw Error(place.name() + " is " + place.result.text.bytes() + ", nothing is below it");
  }
  next.kind = next.result.object == nullptr ? Place::value : Place::object;
  return next;
}

Names::Lookup::Lookup(const Names& names, Path path, U32 mostWhole, BeforeRead beforeRead)
    : names_(&names),
      path_(std::move(path)),
      mostWhole_(mostWhole),
      beforeRead_(std::move(beforeRead)) {}
Names::Lookup::Lookup(Lookup&&) noexcept = default;
Names::Lookup::~Lookup() = default;

bool Names::Lookup::step(U32 members) {
  if (at_ == path_.size()) return true;
  const std::string& name = path_[at_];
  if (place_.kind == Place::collection) {
    if (!stepInCollection(name, members)) return false;
    place_.result = std::move(found_);
    place_.kind = place_.result.object == nullptr ? Place::value : Place::object;
    place_.member = nullptr;
    place_.owner = {};
    walk_.reset();
    found_ = {};
    isFound_ = false;
  } else {
    Place next = names_->below(place_, name, beforeRead_);
    next.path = std::move(place_.path);
    place_ = std::move(next);
  }
  place_.path.push_back(name);
  return ++at_ == path_.size();
}

// The member that had the name before, if it has it still and none has come or gone.
bool Names::Lookup::findHinted(const std::string& name) {
  const auto hint = names_->hints_.find(textOf(place_.path) + "/" + name);
  if (hint == names_->hints_.end()) return false;
  const Zint::GenericIf::List_ list = place_.list();
  if (list.size() == hint->second.size) {
    found_ = list.find(hint->second.key);
    if (found_.object != nullptr && isNamed(found_.text, name)) return true;
    found_ = {};
  }
  names_->hints_.erase(hint);
  return false;
}

bool Names::Lookup::stepInCollection(const std::string& name, U32 members) {
  if (walk_ == nullptr) {
    const Zint::GenericIf::List_ list = place_.list();
    try {
      found_ = list.find(isAddressName(list.keyName()) ? integerText(name) : name);
      if (found_.text != "null") return true;
    } catch (const Zint::RangeException&) {
      // No key at all: it may be a name yet.
    }
    found_ = {};
    if (findHinted(name)) return true;
    walk_ = walkOf(place_, mostWhole_);
    return false;
  }
  for (U32 i = 0; i < members; ++i) {
    if (!walk_->next()) {
      if (isFound_) {
        if (names_->hints_.size() >= mostHints) names_->hints_.clear();
        names_->hints_[textOf(place_.path) + "/" + name] = {foundKey_, place_.list().size()};
        return true;
      }
      throw Error(place_.name() + " has no member " + name + didYouMean(name, namesBelow(place_)));
    }
    if (!walk_->answersTo(name)) continue;
    // A key is one member's alone, also of a null one, which a look-up by its key does not show.
    if (walk_->key() == name) {
      found_ = walk_->value();
      return true;
    }
    if (isFound_) {
      throw Error(place_.name() + " has several members named " + name + ": name its " +
                  place_.list().keyName());
    }
    found_ = walk_->value();
    foundKey_ = walk_->key();
    isFound_ = true;
  }
  return false;
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

}  // namespace Telemetry
