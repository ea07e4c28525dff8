// Describes collections: the accessors that a class has for one become its row.
//
//   class Rack : public Zint::Entity {
//    public:
//     using Entity::Entity;
//     Zint::Ptr<Fan> fan(U32 slot) const;                  // null if there is none
//     U32 fans() const { return static_cast<U32>(fan_.size()); }
//     const std::map<U32, Zint::Ptr<Fan>>& fanMap() const { return fan_; }
//     void fanIs(U32 slot, const Zint::Ptr<Fan>& fan) { fan_[slot] = fan; }
//     void fanDel(U32 slot) { fan_.erase(slot); }
//     void fanDelAll() { fan_.clear(); }
//
//    private:
//     std::map<U32, Zint::Ptr<Fan>> fan_;
//   };
//
//   constexpr Zint::ListAccess rackFans =
//       Zint::mapList<&Rack::fan, &Rack::fans, &Rack::fanMap, &Rack::fanDel, &Rack::fanDelAll,
//                     &Rack::fanIs>("slot", "slot", "fan");
//   constexpr Zint::Member rackMembers[] = {Zint::collection("fan", rackFans)};
//
// Accessors may also be free functions whose first parameter is the object. What a collection does
// not offer is left out at the end, or nullptr. `insert` is called with the named arguments, and
// its result is that of the insertion.
#pragma once

#include <Zint/Reflect.h>
#include <functional>
#include <vector>

namespace Zint {

namespace Detail {

// What is the same for all: removal by key and of everything, and insertion.
template <class Key, auto del, auto delAll, auto insert, class... Names>
constexpr void setMutators(ListAccess& list, Names... insertArguments) {
  if constexpr (!std::is_null_pointer_v<decltype(del)>) {
    list.del = [](ObjectAddress object, const String8& key) {
      invoke<del>(object, read<Key>(key));
    };
  }
  if constexpr (!std::is_null_pointer_v<decltype(delAll)>) {
    list.delAll = [](ObjectAddress object) { invoke<delAll>(object); };
  }
  if constexpr (!std::is_null_pointer_v<decltype(insert)>) {
    static_assert(sizeof...(insertArguments) == parameterCount<insert>);
    list.arguments = {insertArguments...};
    list.insert = call<insert>;
  }
}

// The keys of a walk: an iterator of the runtime's maps, or a range of keys or of pairs that begin
// with one.
template <class Key, class Walk>
std::vector<Key> keysOf(Walk&& walk) {
  std::vector<Key> keys;
  if constexpr (requires { walk->fwkKey(); }) {
    for (; walk; ++walk) keys.push_back(walk->fwkKey());
  } else {
    for (const auto& element : walk) {
      if constexpr (requires { element.first; }) {
        keys.push_back(element.first);
      } else {
        keys.push_back(element);
      }
    }
  }
  return keys;
}

}  // namespace Detail

// A collection by key.
//   find    the member of a key; a null pointer or an empty std::optional if there is none
//   size    the number of members
//   walk    an iterator of a HashMap or RbTreeMap, or a range of keys or of pairs (std::map)
//   del     removes the member of a key
//   delAll  removes every member
//   insert  makes or inserts one
template <auto find, auto size, auto walk, auto del = nullptr, auto delAll = nullptr,
          auto insert = nullptr, class... Names>
constexpr ListAccess mapList(const char* keyName, Names... insertArguments) {
  using Key = Detail::ParameterOf<find, 0>;
  ListAccess list{};
  list.keyName = keyName;
  list.valueType = typeNameOf<Detail::ResultOf<find>>();
  list.size = [](ConstObjectAddress object) -> U32 { return Detail::invoke<size>(object); };
  list.items = [](ConstObjectAddress object) {
    std::vector<ListItem> items;
    for (const Key& key : Detail::keysOf<Key>(Detail::invoke<walk>(object))) {
      items.push_back({valueToStrep(key), Detail::makeResult(Detail::invoke<find>(object, key))});
    }
    return items;
  };
  list.find = [](ConstObjectAddress object, const String8& key) {
    return Detail::makeResult(Detail::invoke<find>(object, Detail::read<Key>(key)));
  };
  Detail::setMutators<Key, del, delAll, insert>(list, insertArguments...);
  return list;
}

// A dense array by its index, whose text is that of the integer type Index.
//   at         the element at an index
//   size       the number of elements
//   set        sets the element at an index
//   del        sets an element back to the default
//   delAll     removes every element
//   valueName  the name of set's second argument; that of the first is "index"
template <class Index, auto at, auto size, auto set = nullptr, auto del = nullptr,
          auto delAll = nullptr>
constexpr ListAccess arrayList(const char* valueName) {
  ListAccess list{};
  list.keyName = "index";
  list.valueType = typeNameOf<Detail::ResultOf<at>>();
  list.size = [](ConstObjectAddress object) -> U32 { return Detail::invoke<size>(object); };
  list.items = [](ConstObjectAddress object) {
    std::vector<ListItem> items;
    for (U32 i = 0; i < Detail::invoke<size>(object); ++i) {
      const auto element = Detail::invoke<at>(object, static_cast<Index>(i));
      items.push_back({valueToStrep(i), Detail::makeResult(element)});
    }
    return items;
  };
  list.find = [](ConstObjectAddress object, const String8& key) {
    const auto index = Detail::read<Index>(key);
    const bool exists = index < Detail::invoke<size>(object);
    return exists ? Detail::makeResult(Detail::invoke<at>(object, index)) : Result{"null"};
  };
  if constexpr (!std::is_null_pointer_v<decltype(set)>) {
    list.arguments = {"index", valueName};
    list.insert = [](ObjectAddress object, ArgumentTexts texts) {
      const auto index = Detail::read<Index>(*texts[0]);
      const auto value = Detail::read<Detail::ParameterOf<set, 1>>(*texts[1]);
      Detail::invoke<set>(object, index, value);
      return Result{};
    };
  }
  Detail::setMutators<Index, del, delAll, nullptr>(list);
  return list;
}

// A LinkQueue by the index of its members, from head to tail.
//   queue   the queue
//   value   what a member holds, a function of the member
//   del     removes the member of an index
//   delAll  removes every member
//   insert  appends one
template <auto queue, auto value, auto del = nullptr, auto delAll = nullptr, auto insert = nullptr,
          class... Names>
constexpr ListAccess queueList(Names... insertArguments) {
  using Index = decltype(Detail::ResultOf<queue>::Metadata::head);
  ListAccess list{};
  list.keyName = "index";
  list.valueType = typeNameOf<Detail::ResultOf<value>>();
  list.size = [](ConstObjectAddress object) -> U32 { return Detail::invoke<queue>(object).size(); };
  list.items = [](ConstObjectAddress object) {
    std::vector<ListItem> items;
    const auto& members = Detail::invoke<queue>(object);
    for (auto* member = members.head(); member != nullptr; member = members.after(*member)) {
      items.push_back(
          {valueToStrep(member->zint_index()), Detail::makeResult(std::invoke(value, *member))});
    }
    return items;
  };
  list.find = [](ConstObjectAddress object, const String8& key) {
    const auto index = Detail::read<Index>(key);
    const auto& members = Detail::invoke<queue>(object);
    auto* member = members.head();
    while (member != nullptr && member->zint_index() != index) member = members.after(*member);
    return member == nullptr ? Result{"null"} : Detail::makeResult(std::invoke(value, *member));
  };
  Detail::setMutators<Index, del, delAll, insert>(list, insertArguments...);
  return list;
}

}  // namespace Zint
