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
    if (value > 0x3f) refuse();
  }
  constexpr U32 value() const { return value_; }
  constexpr bool has(U32 bits) const { return (value_ & bits) == bits; }

 private:
  [[noreturn]] static void refuse();

  U32 value_ = 0;
};

// The object that a row works on. Of a counted object it is the address of its PtrInterface,
// whatever its class; of a value the value's own address. Rows convert it back
// (<Zint/Accessors.h>), so that clients never see it.
using ObjectAddress = void*;
using ConstObjectAddress = const void*;

// What an operation returns: its text, and the object if it is one.
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

// Names of arguments, null-terminated; one that begins with '?' may be left out.
using ArgumentNames = std::array<const char*, 8>;
// The texts of arguments in the order of their names; null for one that was left out.
using ArgumentTexts = std::span<const String8* const>;

// How a collection is reached; null for what it does not offer. Keys and values are texts. Made by
// the functions of <Zint/Collections.h>.
struct ListAccess {
  const char* keyName;    // "address"
  const char* valueType;  // "Hardware::ChipMemory"
  U32 (*size)(ConstObjectAddress object);
  std::vector<ListItem> (*items)(ConstObjectAddress object);
  Result (*find)(ConstObjectAddress object, const String8& key);  // text "null" if there is none
  void (*del)(ObjectAddress object, const String8& key);
  void (*delAll)(ObjectAddress object);
  ArgumentNames arguments;  // of `insert`
  Result (*insert)(ObjectAddress object, ArgumentTexts arguments);
};

// Who may use a member from outside the process: set an attribute, call an operation. To read an
// attribute is to look.
enum class Level : U8 { administer, operate, look };

// What the value of an attribute is where it is one number, and what its bits mean.
enum class NumberKind : U8 {
  none,            // a text
  boolean,         // 0 or 1
  unsignedNumber,  // as it is
  signedNumber,    // sign-extended; of an enumeration its number
  real             // those of a double
};

// A row of a type's description. Made by the functions of <Zint/Reflect.h>, which set each flag
// together with the function that it follows from.
struct Member {
  const char* name;
  const char* typeName;  // of the attribute, of the operation's result, "" for nothing
  ZintAttrIntrospectionFlags flags = {};
  ArgumentNames arguments{};  // of an operation
  String8 (*get)(ConstObjectAddress object) = nullptr;
  void (*set)(ObjectAddress object, const String8& text) = nullptr;
  Result (*target)(ConstObjectAddress object) = nullptr;  // of an attribute that is a pointer
  Result (*call)(ObjectAddress object, ArgumentTexts arguments) = nullptr;  // factory: null object
  const ListAccess* list = nullptr;
  S32 value = 0;  // of an enumerator
  // The number that an attribute is, read without a text: for what shows many objects often.
  U64 (*number)(ConstObjectAddress object) = nullptr;
  NumberKind numberKind = NumberKind::none;
  Level level = Level::administer;  // what one that states none needs
  const char* unit = "";            // "seconds"; "" for a plain number or a text
  const char* help = "";            // half a sentence for people

  // The row with a further column:
  //   readOnly<&Fan::period>("period").says("time of one turn"),
  //   operation<&Fan::doSpin>("doSpin", "turns", "?pause").needs(Level::operate),
  constexpr Member in(const char* otherUnit) const {
    Member row = *this;
    row.unit = otherUnit;
    return row;
  }
  constexpr Member says(const char* text) const {
    Member row = *this;
    row.help = text;
    return row;
  }
  constexpr Member needs(Level otherLevel) const {
    Member row = *this;
    row.level = otherLevel;
    return row;
  }
};

struct UMBRA_API Type {
  const char* name;  // qualified, "Hardware::ChipMemory"
  const char* kind = "reference-counted object";
  const Type* base = nullptr;  // whose members are this type's as well
  std::span<const Member> members = {};

  // Includes the members of the base types.
  U32 memberCount() const;
  // Null if there is none.
  const Member* find(std::string_view memberName) const;
  // The name of the member with that id, "unknown" if there is none.
  String8 attributeString(AttributeId attribute) const;
};

// The types and factories that can be found by name, in the order of their registration. A library
// registers its own when it is loaded. Thread-safe.
class UMBRA_API TypeRegistry {
 public:
  // A second type of the same name: the name-in-use exception.
  static void typeIs(const Type& type);
  static void typeDel(const Type& type);
  static std::vector<const Type*> types();
  // Null if there is none.
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
