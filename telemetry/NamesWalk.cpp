#include <telemetry/NamesWalk.h>

#include <Driver/AlarmBoard.h>
#include <Driver/ChipWriteRequest.h>
#include <Driver/Descriptions.h>
#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/Descriptions.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/ObjectText.h>
#include <telemetry/NamesText.h>

namespace Telemetry {
namespace {

using Hardware::ChipMemory;
using Zint::valueToStrep;

Zint::Result resultOf(const Zint::Ptr<const Zint::PtrInterface>& object, bool isConst) {
  return {Zint::objectText(object.ptr()), object, isConst};
}

bool isNamedRegion(const ChipMemory& region, const std::string& name) {
  if (name.starts_with('\'')) return valueToStrep(region.name()).bytes() == name;
  return region.name().bytes() == name;
}

// Maps of the runtime, whose iterators survive the removal of members.
template <class Iterator>
class MapWalk : public MemberWalk {
 public:
  MapWalk(const Place& place, Iterator iterator)
      : holder_(place.result.object),
        isConst_(place.result.isConst),
        iterator_(std::move(iterator)) {}

  bool next() override {
    if (isBegun_ && iterator_) ++iterator_;
    isBegun_ = true;
    return static_cast<bool>(iterator_);
  }
  std::string key() const override { return valueToStrep(iterator_->fwkKey()).bytes(); }
  Zint::Result value() const override { return resultOf(member(), isConst_); }
  bool answersTo(const std::string& name) const override {
    if constexpr (isOfRegions) {
      return isNamedRegion(*member(), name);
    } else {
      return MemberWalk::answersTo(name);
    }
  }

 private:
  static constexpr bool isBound = requires(Iterator i) { i->chipMemory()->mode(); };
  static constexpr bool isOfRegions = isBound || requires(Iterator i) { i->mode(); };

  auto member() const {
    if constexpr (isBound) {
      return iterator_->chipMemory();
    } else {
      return *iterator_;
    }
  }

  const Zint::Ptr<const Zint::PtrInterface> holder_;  // of the map
  const bool isConst_;
  Iterator iterator_;
  bool isBegun_ = false;
};

// Keys that were copied, the member of each looked up in its turn. One that has left is passed
// over.
template <class Object, class Key, auto find>
class KeysWalk : public MemberWalk {
 public:
  KeysWalk(const Place& place, const Object* object, std::vector<Key> keys)
      : object_(object), isConst_(place.result.isConst), keys_(std::move(keys)) {}

  bool next() override {
    while (at_ < keys_.size()) {
      member_ = ((*object_).*find)(keys_[at_++]);
      if (member_ != nullptr) return true;
    }
    return false;
  }
  std::string key() const override { return valueToStrep(keys_[at_ - 1]).bytes(); }
  Zint::Result value() const override { return resultOf(member_, isConst_); }

 private:
  const Zint::Ptr<const Object> object_;
  const bool isConst_;
  const std::vector<Key> keys_;
  std::size_t at_ = 0;
  Zint::Ptr<const Zint::PtrInterface> member_;
};

// Dense arrays: each index is looked up in its turn.
class IndexWalk : public MemberWalk {
 public:
  explicit IndexWalk(const Place& place) : list_(place.list()) {}

  bool next() override {
    if (isBegun_) ++at_;
    isBegun_ = true;
    if (at_ >= list_.size()) return false;
    value_ = list_.find(key());
    return true;
  }
  std::string key() const override { return std::to_string(at_); }
  Zint::Result value() const override { return value_; }

 private:
  const Zint::GenericIf::List_ list_;
  U32 at_ = 0;
  bool isBegun_ = false;
  Zint::Result value_;
};

class CopyWalk : public MemberWalk {
 public:
  explicit CopyWalk(const Place& place) : items_(place.list().items()) {}

  bool next() override { return at_ < items_.size() && ++at_ != 0; }
  std::string key() const override { return items_[at_ - 1].key.bytes(); }
  Zint::Result value() const override { return items_[at_ - 1].value; }

 private:
  const std::vector<Zint::ListItem> items_;
  std::size_t at_ = 0;
};

bool isMember(const Zint::Member* member, const Zint::Type& type, std::string_view name) {
  const Zint::Member* own = type.find(name);
  return own != nullptr && own->list == member->list;
}

template <class Iterator>
std::unique_ptr<MemberWalk> mapWalk(const Place& place, Iterator iterator) {
  return std::make_unique<MapWalk<Iterator>>(place, std::move(iterator));
}

std::unique_ptr<MemberWalk> walkOfShadow(const Place& place,
                                         const Hardware::HardwareShadow& shadow) {
  const Zint::Type& type = Hardware::hardwareShadowType;
  if (isMember(place.member, type, "chipMemory"))
    return mapWalk(place, shadow.chipMemoryIterator());
  if (isMember(place.member, type, "chipMemoryChunk"))
    return mapWalk(place, shadow.chipMemoryChunkIterator());
  if (isMember(place.member, type, "chipMemoryId") ||
      isMember(place.member, type, "chipMemoryChunkArray")) {
    return std::make_unique<IndexWalk>(place);
  }
  return nullptr;
}

// Null: the collection is none of the library's large ones.
std::unique_ptr<MemberWalk> walkInTurns(const Place& place) {
  const Zint::PtrInterface* object = place.result.object.ptr();
  if (const auto* shadow = dynamic_cast<const Hardware::HardwareShadow*>(object); shadow != nullptr)
    return walkOfShadow(place, *shadow);
  if (const auto* request = dynamic_cast<const Hardware::ChipReadRequest*>(object);
      request != nullptr && isMember(place.member, Hardware::chipReadRequestType, "chipMemory")) {
    return mapWalk(place, request->chipMemoryIterator());
  }
  if (const auto* directory = dynamic_cast<const Hardware::ChipMemoryBogon*>(object);
      directory != nullptr && isMember(place.member, Hardware::chipMemoryBogonType, "chipMemory")) {
    return mapWalk(place, directory->chipMemoryIteratorConst());
  }
  if (const auto* chunk = dynamic_cast<const Hardware::ChipMemoryChunk*>(object);
      chunk != nullptr && chunk->fwkType()->find(place.member->name) == place.member) {
    return std::make_unique<IndexWalk>(place);
  }
  using Driver::ChipWriteRequest;
  if (const auto* request = dynamic_cast<const ChipWriteRequest*>(object);
      request != nullptr && isMember(place.member, Driver::chipWriteRequestType, "chipMemory")) {
    return std::make_unique<
        KeysWalk<ChipWriteRequest, Hardware::ChipAddress, &ChipWriteRequest::chipMemory>>(
        place, request, request->chipMemoryAddresses());
  }
  using Driver::AlarmBoard;
  if (const auto* board = dynamic_cast<const AlarmBoard*>(object);
      board != nullptr && isMember(place.member, Driver::alarmBoardType, "alarm")) {
    return std::make_unique<KeysWalk<AlarmBoard, Zint::String8, &AlarmBoard::alarm>>(
        place, board, board->alarmNames());
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<MemberWalk> walkOf(const Place& collection, U32 mostWhole) {
  if (auto walk = walkInTurns(collection)) return walk;
  if (const U32 size = collection.list().size(); size > mostWhole) {
    throw Error(collection.name() + " has " + std::to_string(size) +
                " members, and cannot be looked through in parts: name one by its " +
                collection.list().keyName());
  }
  return std::make_unique<CopyWalk>(collection);
}

}  // namespace Telemetry
