// The running system's objects as a tree of names. "/" holds the objects of the world and those
// that were given a name. Below an object are its attributes and collections, below a collection
// its members, by their key or by their own name:
//
//   /shadow/state    /shadow/chipMemory/mac/mode    /shadow/chipMemory/4295491584/chipHam
//
// Each use of a path looks it up: a path holds no object.
#pragma once

#include <Zint/GenericIf.h>

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Telemetry {

using Path = std::vector<std::string>;

// "/shadow/state"
UMBRA_API std::string textOf(const Path& path);

// What a path leads to.
struct Place {
  enum Kind { root, object, collection, value };

  Path path;
  Kind kind = root;
  // The object; of a collection the one whose it is; of a value nothing but its text.
  Zint::Result result;
  // The attribute that led here and its object; null for a member of a collection, for a computed
  // value and in "/".
  const Zint::Member* member = nullptr;
  Zint::Result owner;
  bool isComputed = false;

  std::string name() const { return textOf(path); }
  // REQUIRES: an object or a collection.
  Zint::GenericIf_ view() const { return Zint::GenericIf_::of(result); }
  // REQUIRES: a collection.
  Zint::GenericIf::List_ list() const { return view().list(member->name); }
};

class MemberWalk;

class UMBRA_API Names {
 public:
  // A look-up that can be divided: a collection is searched for a name a number of members at a
  // time. The names must outlive it.
  class UMBRA_API Lookup {
   public:
    // A collection that can be searched only as a whole is refused when it has more members than
    // that. `beforeRead` is called before an attribute is read, and may throw.
    using BeforeRead = std::function<void(const Zint::Result& object, const Zint::Member&)>;
    Lookup(const Names& names, Path path, U32 mostWhole = ~0u, BeforeRead beforeRead = {});
    Lookup(Lookup&&) noexcept;
    ~Lookup();

    // Goes on, past that many members of a collection at most. True: the place is found. Error with
    // a near miss when there is none.
    bool step(U32 members);
    // REQUIRES: it is found.
    Place& place() { return place_; }

   private:
    bool stepInCollection(const std::string& name, U32 members);
    bool findHinted(const std::string& name);

    const Names* names_;
    Path path_;
    U32 mostWhole_;
    BeforeRead beforeRead_;
    std::size_t at_ = 0;
    Place place_;
    std::unique_ptr<MemberWalk> walk_;
    Zint::Result found_;
    std::string foundKey_;
    bool isFound_ = false;
  };

  explicit Names(std::vector<std::pair<std::string, Zint::Result>> objects);

  // The place that relative paths begin at.
  const Path& here() const { return here_; }
  // Error for a value: nothing can be below it.
  void hereIs(const std::string& path);

  // Error with a near miss when there is no such place.
  Place at(const std::string& path) const;
  Place at(const Path& path) const;
  // The place above, which must be an object or "/", and the last name of the path.
  std::pair<Place, std::string> above(const std::string& path) const;

  // Resolves "..", "." and the leading "/".
  Path absolute(const std::string& path) const;

  // Gives an object a name in "/"; null removes the name. Error for a name of the world and for a
  // text that is no name.
  void objectIs(const std::string& name, const Zint::Result& object);
  std::vector<std::string> objects() const;
  // The objects themselves, in the same order.
  std::vector<Zint::Result> results() const;

 private:
  // REQUIRES: no collection.
  Place below(
      const Place& place, const std::string& name,
      const std::function<void(const Zint::Result& object, const Zint::Member&)>& beforeRead) const;

  // The key of a member that was found by its name, by its path, and the size of the collection
  // then: it is looked at first when the name is asked for again.
  struct Hint {
    std::string key;
    U32 size;
  };
  static constexpr std::size_t mostHints = 1024;

  std::vector<std::pair<std::string, Zint::Result>> objects_;
  std::size_t fixed_;  // that many belong to the world
  Path here_;
  mutable std::unordered_map<std::string, Hint> hints_;
};

// Values that are computed and shown beside the attributes of an object: a region's
// `entries`, which the type registry does not list.
struct Computed {
  std::string name;
  std::string text;
  std::string typeName;
  std::string after;  // the attribute that it is shown after
};
UMBRA_API std::vector<Computed> computedOf(const Zint::Result& object);

// The members of a type, those of its base types first.
UMBRA_API std::vector<const Zint::Member*> membersOf(const Zint::Type& type);

// The name in the text of an object, as it is written in a path: mac of 'mac'#2, and in its quotes
// when it has other characters than letters, digits, '-', '_' and '.'; "" when it has none.
UMBRA_API std::string nameIn(const Zint::String8& text);
// Whether `text` is that of an object with this name: 'mac'#2 and mac or 'mac'.
UMBRA_API bool isNamed(const Zint::String8& text, const std::string& name);

}  // namespace Telemetry
