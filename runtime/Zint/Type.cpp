#include <Zint/Type.h>

#include <Zint/Exception.h>
#include <Zint/Sizes.h>

#include <algorithm>
#include <mutex>

namespace Zint {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<const Type*> types;
  std::vector<const Member*> factories;
};

// Leaked on purpose: destructors of libraries unregister after static destruction.
Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

// Null if there is none.
template <class T>
const T* findByName(const std::vector<const T*>& rows, std::string_view name) {
  const auto place = std::find_if(
      rows.begin(), rows.end(), [&](const T* row) { return std::string_view(row->name) == name; });
  return place == rows.end() ? nullptr : *place;
}

template <class T>
void addRow(std::vector<const T*>& rows, const T& row) {
  if (findByName(rows, row.name) != nullptr) {
    throwNameInUseException(String8(row.name) + " is registered already");
  }
  rows.push_back(&row);
}

}  // namespace

void ZintAttrIntrospectionFlags::refuse() {
  throwRangeException("ZintAttrIntrospectionFlags::value > 0x3f not allowed");
}

U32 Type::memberCount() const {
  return countOf(members) + (base == nullptr ? 0 : base->memberCount());
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
  std::lock_guard guard(registry().mutex);
  addRow(registry().types, type);
}

void TypeRegistry::typeDel(const Type& type) {
  std::lock_guard guard(registry().mutex);
  std::erase(registry().types, &type);
}

std::vector<const Type*> TypeRegistry::types() {
  std::lock_guard guard(registry().mutex);
  return registry().types;
}

const Type* TypeRegistry::find(std::string_view name) {
  std::lock_guard guard(registry().mutex);
  return findByName(registry().types, name);
}

void TypeRegistry::factoryIs(const Member& factory) {
  std::lock_guard guard(registry().mutex);
  addRow(registry().factories, factory);
}

void TypeRegistry::factoryDel(const Member& factory) {
  std::lock_guard guard(registry().mutex);
  std::erase(registry().factories, &factory);
}

std::vector<const Member*> TypeRegistry::factories() {
  std::lock_guard guard(registry().mutex);
  return registry().factories;
}

const Member* TypeRegistry::findFactory(std::string_view name) {
  std::lock_guard guard(registry().mutex);
  return findByName(registry().factories, name);
}

}  // namespace Zint
