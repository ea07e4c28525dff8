// What the runtime knows of a type: its name, its kind, its base and its members, so that each can
// be found, read, set and called by name.
#pragma once

#include <Zint/Api.h>
#include <Zint/Ptr.h>
#include <Zint/String8.h>
#include <Zint/Types.h>
#include <array>
#include <span>
#include <vector>

namespace Zint {

struct Type;

// What may be done with a member; six bits.
class UMBRA_API ZintAttrIntrospectionFlags {
 public:
  enum : U32 {
    readable = 0x01,
    writable = 0x02,
    callable = 0x04,
    collection = 0x08,
    constructorParameter = 0x10,
    constant = 0x20,  // does not change its object
  };

  constexpr ZintAttrIntrospectionFlags() = default;
  // More than six bits: a range exception.
  constexpr ZintAttrIntrospectionFlags(U32 value) : value_(value) {
    if (value > 0x3f) refused();
  }
  constexpr U32 value() const { return value_; }
  constexpr bool has(U32 bits) const { return (value_ & bits) == bits; }

 private:
  [[noreturn]] static void refused();

  U32 value_ = 0;
};

// What an operation gives back: its text, and the object when it is one.
struct Result {
  String8 text;
  Ptr<const PtrInterface> object = nullptr;
  bool isConst = true;  // the object may only be read
};

// One member of a collection.
struct ListItem {
  String8 key;
  Result value;
};

// How a collection is reached; what it does not offer is null. Keys and values as text.
struct ListAccess {
  const char* keyName;    // "address"
  const char* valueType;  // "Hardware::ChipMemory"
  U32 (*size)(const void* object);
  std::vector<ListItem> (*items)(const void* object);
  Result (*find)(const void* object, const String8& key);  // text "null" when there is none
  void (*del)(void* object, const String8& key);
  void (*delAll)(void* object);
  // The arguments from which a member is made or by which it is inserted; null-terminated.
  std::array<const char*, 8> arguments;
  Result (*insert)(void* object, std::span<const String8* const> arguments);
};

// A row of a type's description. Made by the functions of <Zint/Reflect.h>.
struct Member {
  const char* name;
  const char* typeName;  // of the attribute, of the operation's result, "" for nothing
  ZintAttrIntrospectionFlags flags;
  // Names of an operation's arguments, null-terminated; one that begins with '?' may be left out.
  std::array<const char*, 8> arguments{};
  String8 (*get)(const void* object) = nullptr;
  void (*set)(void* object, const String8& text) = nullptr;
  Result (*target)(const void* object) = nullptr;  // of an attribute that is a pointer
  // The arguments in their order; null for one that was left out. The object is null for a factory.
  Result (*call)(void* object, std::span<const String8* const> arguments) = nullptr;
  const ListAccess* list = nullptr;
  S32 value = 0;  // of an enumerator
};

// `object` above is a value's address, and a counted object's PtrInterface.
struct UMBRA_API Type {
  const char* name;  // qualified, "Hardware::ChipMemory"
  const char* kind = "reference-counted object";
  const Type* base = nullptr;  // whose members are this type's as well
  std::span<const Member> members = {};

  // The members of the base types count first.
  U32 memberCount() const;
  // Null when there is none.
  const Member* find(std::string_view memberName) const;
  // The name of the member with that id, "unknown" when there is none.
  String8 attributeString(AttributeId attribute) const;
};

// The types and factories that can be found by name, in the order of their registration. Filled
// when a library is loaded; reading and registering may happen on several threads.
class UMBRA_API TypeRegistry {
 public:
  // A second type of the same name: the name-in-use exception.
  static void typeIs(const Type& type);
  static void typeDel(const Type& type);
  static std::vector<const Type*> types();
  // Null when there is none.
  static const Type* find(std::string_view name);

  static void factoryIs(const Member& factory);
  static void factoryDel(const Member& factory);
  static std::vector<const Member*> factories();
  static const Member* findFactory(std::string_view name);
};

UMBRA_API extern const Type ptrInterfaceType;
UMBRA_API extern const Type notifieeType;
UMBRA_API extern const Type entityType;
UMBRA_API extern const Type requestType;
UMBRA_API extern const Type clockType;
UMBRA_API extern const Type activityType;

}  // namespace Zint
