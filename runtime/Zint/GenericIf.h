// Objects by name: reads and sets attributes as text, iterates over collections, calls operations.
//
//   Zint::GenericIf_ shadow(shadowPtr);
//   shadow.attributeIs("state", "'auditing'");
//   shadow.list("chipMemory").find("4096");
//   shadow.call("findChipMemory", {{"size", "4"}, {"address", "4096"}}).text;   // any order
//
// Whatever is unknown, missing, left over or unreadable raises a range exception that names the
// type, the member and the offending text, before anything has changed. A view of a const object
// refuses every change with "attempting to modify a const instance".
#pragma once

#include <Zint/Type.h>
#include <utility>

namespace Zint {

class GenericIf_;

using Arguments = std::vector<std::pair<String8, String8>>;

namespace GenericIf {

// A collection of an object.
class UMBRA_API List_ {
 public:
  static constexpr const char* typeName() { return "Zint::GenericIf::List_"; }
  static constexpr const char* kindName() { return "List"; }

  // The name of the keys, and the type of the members.
  const char* keyName() const { return member_->list->keyName; }
  const char* valueType() const { return member_->list->valueType; }
  U32 size() const { return member_->list->size(address_); }
  // A copy of the keys and values.
  std::vector<ListItem> items() const;
  // The text "null" if there is none.
  Result find(const String8& key) const;
  void del(const String8& key);
  void delAll();
  // Makes a member from the arguments, or inserts the one that they name.
  Result insert(const Arguments& arguments);

 private:
  friend class Zint::GenericIf_;
  List_(Ptr<const PtrInterface> holder, bool isConst, ConstObjectAddress address, const Type& type,
        const Member& member)
      : holder_(std::move(holder)),
        isConst_(isConst),
        address_(address),
        type_(&type),
        member_(&member) {}

  // Raises a range exception unless the collection offers the operation and may be changed.
  ObjectAddress mutableAddress(bool isOffered) const;

  Ptr<const PtrInterface> holder_;  // null for a value's
  bool isConst_;
  ConstObjectAddress address_;
  const Type* type_;
  const Member* member_;
};

}  // namespace GenericIf

class UMBRA_API GenericIf_ {
 public:
  // REQUIRES: not null (range exception "null ValidPtr").
  explicit GenericIf_(const ValidPtr<PtrInterface>& object);
  static GenericIf_ readOnlyView(const ValidPtr<const PtrInterface>& object);
  // The object of a result; a range exception if it has none.
  static GenericIf_ of(const Result& result);
  // A value, which must outlive this. REQUIRES: `value` points to an object of that type.
  static GenericIf_ ofValue(void* value, const Type& type) {
    return GenericIf_(nullptr, false, value, type);
  }

  const Type& type() const { return *type_; }
  const char* typeName() const { return type_->name; }
  const char* kindName() const { return type_->kind; }
  bool isConst() const { return isConst_; }
  const Ptr<const PtrInterface>& object() const { return holder_; }

  // The attribute's text; a collection's is the number of its members.
  String8 attribute(const String8& name) const;
  void attributeIs(const String8& name, const String8& text);
  // The object that a pointer attribute holds.
  Result target(const String8& name) const;
  GenericIf::List_ list(const String8& name) const;
  // Calls an operation, or on a collection xxx: xxxIs (insert), xxxDel (argument: the key) or
  // xxxDelAll.
  Result call(const String8& name, const Arguments& arguments);
  // Calls a registered factory.
  static Result make(const String8& factory, const Arguments& arguments);

 private:
  GenericIf_(Ptr<const PtrInterface> holder, bool isConst, ConstObjectAddress address,
             const Type& type)
      : holder_(std::move(holder)), isConst_(isConst), address_(address), type_(&type) {}

  const Member& member(const String8& name) const;
  // Raises a range exception if the object may not be changed.
  ObjectAddress mutableAddress() const;

  Ptr<const PtrInterface> holder_;  // null for a value
  bool isConst_;
  ConstObjectAddress address_;
  const Type* type_;
};

}  // namespace Zint
