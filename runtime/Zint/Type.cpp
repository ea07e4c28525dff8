#include <Zint/Activity.h>
#include <Zint/Exception.h>
#include <Zint/Reflect.h>
#include <Zint/Request.h>
#include <Zint/Type.h>

#include <algorithm>
#include <mutex>

namespace Zint {
namespace {

struct Registered {
  std::mutex mutex;
  std::vector<const Type*> types;
  std::vector<const Member*> factories;
};

// Lives until the process is gone: libraries are loaded before, and unloaded after, everything
// else.
Registered& registered() {
  static Registered* registered = new Registered;
  return *registered;
}

template <class T>
const T* named(const std::vector<const T*>& rows, std::string_view name) {
  const auto place = std::find_if(
      rows.begin(), rows.end(), [&](const T* row) { return std::string_view(row->name) == name; });
  return place == rows.end() ? nullptr : *place;
}

template <class T>
void added(std::vector<const T*>& rows, const T& row) {
  if (named(rows, row.name) != nullptr) {
    throwNameInUseException(String8(row.name) + " is registered already");
  }
  rows.push_back(&row);
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

constexpr Member entityMembers[] = {
    constructorParameter<&Entity::name>("name"),
    attribute<&PtrInterface::isNondestructing, &PtrInterface::isNondestructingIs>(
        "isNondestructing"),
};
constexpr Member requestMembers[] = {
    attribute<&Request::state, &Request::stateIs>("state"),
    attribute<&Request::status, &Request::statusIs>("status"),
    attribute<&Request::generation, &Request::generationIs>("generation"),
};
constexpr Member clockMembers[] = {readOnly<&Clock::time>("time")};
constexpr Member activityMembers[] = {readOnly<&ActivityConfig::wakeTime>("wakeTime")};

}  // namespace

constinit const Type ptrInterfaceType{"Zint::PtrInterface"};
constinit const Type notifieeType{"Zint::NotifieeConst"};
constinit const Type entityType{"Zint::Entity", "entity", nullptr, entityMembers};
constinit const Type requestType{"Zint::Request", "request entity", &entityType, requestMembers};
constinit const Type clockType{"Zint::Clock", "entity", &entityType, clockMembers};
constinit const Type activityType{"Zint::ActivityConfig", "entity", &entityType, activityMembers};

void ZintAttrIntrospectionFlags::refused() {
  throwRangeException("ZintAttrIntrospectionFlags::value > 0x3f not allowed");
}

U32 Type::memberCount() const {
  return static_cast<U32>(members.size()) + (base == nullptr ? 0 : base->memberCount());
}

const Member* Type::find(std::string_view memberName) const {
  for (const Member& member : members) {
    if (memberName == member.name) return &member;
  }
  return base == nullptr ? nullptr : base->find(memberName);
}

String8 Type::attributeString(AttributeId attribute) const {
  const U32 before = base == nullptr ? 0 : base->memberCount();
  if (attribute < firstAttributeId + before) {
    return base == nullptr ? "unknown" : base->attributeString(attribute);
  }
  const U32 position = attribute - firstAttributeId - before;
  return position < members.size() ? members[position].name : "unknown";
}

void TypeRegistry::typeIs(const Type& type) {
  std::lock_guard guard(registered().mutex);
  added(registered().types, type);
}

void TypeRegistry::typeDel(const Type& type) {
  std::lock_guard guard(registered().mutex);
  std::erase(registered().types, &type);
}

std::vector<const Type*> TypeRegistry::types() {
  std::lock_guard guard(registered().mutex);
  return registered().types;
}

const Type* TypeRegistry::find(std::string_view name) {
  std::lock_guard guard(registered().mutex);
  return named(registered().types, name);
}

void TypeRegistry::factoryIs(const Member& factory) {
  std::lock_guard guard(registered().mutex);
  added(registered().factories, factory);
}

void TypeRegistry::factoryDel(const Member& factory) {
  std::lock_guard guard(registered().mutex);
  std::erase(registered().factories, &factory);
}

std::vector<const Member*> TypeRegistry::factories() {
  std::lock_guard guard(registered().mutex);
  return registered().factories;
}

const Member* TypeRegistry::findFactory(std::string_view name) {
  std::lock_guard guard(registered().mutex);
  return named(registered().factories, name);
}

String8 valueToStrep(const Bytes& value) {
  String8 text;
  for (U8 byte : value.bytes) text += format("%02x", byte);
  return text;
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end, Bytes& value) {
  Bytes read;
  auto p = pos;
  while (end - p >= 2 && hexValue(p[0]) >= 0 && hexValue(p[1]) >= 0) {
    read.bytes.push_back(static_cast<U8>(hexValue(p[0]) * 16 + hexValue(p[1])));
    p += 2;
  }
  pos = p;
  value = std::move(read);
}

}  // namespace Zint
