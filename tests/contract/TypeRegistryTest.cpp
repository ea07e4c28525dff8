// What outsiders find in the type registry: every type, its members and their order, kinds and
// arguments, compared with a table written by hand.
#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/Descriptions.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Type.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Flags = Zint::ZintAttrIntrospectionFlags;
using Names = std::vector<std::string>;

// What may be done with a member.
enum What { enumerator, parameter, readOnly, settable, operation, query, collection };

struct MemberRow {
  const char* name;
  What what;
  Names arguments = {};       // of an operation where they are fixed, a collection's creation
  const char* typeName = "";  // where it is fixed
  const char* collectionKey = "";
};

struct TypeRow {
  const char* name;
  const char* kind;
  const char* base;  // "" for none
  std::vector<MemberRow> members;
};

std::vector<TypeRow> expectedTypes() {
  return {
      {"Hardware::ChipMemory::ChipMemoryMode",
       "enumeration",
       "",
       {{"normal", enumerator}, {"override", enumerator}, {"buffered", enumerator}}},
      {"Hardware::HardwareShadow::State",
       "enumeration",
       "",
       {{"unconfigured", enumerator},
        {"configured", enumerator},
        {"idle", enumerator},
        {"auditing", enumerator}}},
      {"Hardware::ChipAddress",
       "value",
       "",
       {{"value", settable},
        {"chipMemoryId", readOnly},
        {"chipMemoryOffset", readOnly},
        {"hash", readOnly},
        {"stringValue", readOnly},
        {"chipAddressIs", operation, {"memId", "offset"}}}},
      {"Hardware::ChipHam",
       "entity",
       "",
       {{"name", parameter},
        {"isNondestructing", settable},
        {"doRead", operation},
        {"doWrite", operation},
        {"doCompare", query},
        {"doReadToCache", query},
        {"doWriteToCache", operation},
        {"doReadFromCache", query},
        {"byteFromBitStream", query},
        {"byteToBitStream", query},
        {"bitFromBitStream", query},
        {"bitToBitStream", query},
        {"copyBits", query}}},
      {"Hardware::GenericChipHam",
       "entity",
       "Hardware::ChipHam",
       {{"hamImpl", parameter, {}, "Fru::HamImpl"}}},
      {"Hardware::ChipMemory",
       "reference-counted object",
       "",
       {{"name", parameter},
        {"address", parameter, {}, "Hardware::ChipAddress"},
        {"entrySize", parameter},
        {"stride", parameter},
        {"chipHam", parameter, {}, "Hardware::ChipHam"},
        {"indirectCmdRegAddr", settable},
        {"inRange", query, {"addr"}},
        {"shadowEnabled", settable},
        {"auditEnabled", settable},
        {"handleAuditEnabled", operation},
        {"mode", settable, {}, "Hardware::ChipMemory::ChipMemoryMode"},
        {"handleMode", operation},
        {"shadowStoreNeeded", settable},
        {"handleShadowStoreNeeded", operation},
        {"entryIndexFromAddress", query, {"addr"}},
        {"doClear", operation},
        {"doClearRange", operation, {"startIndex", "endIndex"}},
        {"writeback", operation, {"initializedOnly"}},
        {"readFromCache", settable},
        {"skipWriteIfMatchesCache", settable},
        {"readCacheHits", settable},
        {"writeCacheHits", settable},
        {"registersFixed", settable},
        {"lastFixTime", settable, {}, "Zint::Seconds"},
        {"hardware", settable, {}, "Hal::Buf"},
        {"shadow", settable, {}, "Hal::BufBase"},
        {"initialized", settable, {}, "Hal::BufBase"},
        {"entryInitialized", query, {"entryIndex"}},
        {"entryInitializedIs", operation, {"entryIndex"}},
        {"entryInitializedDel", operation, {"entryIndex"}},
        {"dirty", settable, {}, "Hal::BufBase"},
        {"allowsLogicalViews", settable},
        {"fwkKey", readOnly}}},
      {"Hardware::ChipReadRequest",
       "request entity",
       "Zint::Request",
       {{"handleState", operation},
        {"chipMemory", collection, {"chipMemory"}, "Zint::GenericIf::List_", "address"}}},
      {"Hardware::ChipReader",
       "reference-counted object",
       "",
       {{"zintFwkActivity", settable, {}, "Zint::ActivityConfig"},
        {"request", settable, {}, "Hardware::ChipReadRequest"},
        {"clock", settable, {}, "Zint::Clock"},
        {"maxEntriesPerRead", settable},
        {"readInterval", settable, {}, "Zint::Seconds"},
        {"doRead", operation},
        {"handleReadRequest", operation},
        {"currentChipMemory", settable, {}, "Hardware::ChipMemory"},
        {"entriesRead", settable},
        {"chipMemory", collection, {"chipMemory"}, "Zint::GenericIf::List_", "index"},
        {"chipMemoryMetadata", settable},
        {"hasNotificationActiveIs", operation},
        {"zintDoZombieReactors", operation}}},
      {"Hardware::ChipMemoryArrayIndex", "value", "", {{"value", settable}}},
      {"Hardware::ChipMemoryChunk",
       "entity",
       "Zint::Entity",
       {{"fwkKey", parameter},
        {"nextIndex", settable, {}, "Hardware::ChipMemoryArrayIndex"},
        {"offset", collection, {"index", "offset"}, "Zint::GenericIf::List_", "index"},
        {"chipMemory", collection, {"index", "chipMemory"}, "Zint::GenericIf::List_", "index"}}},
      {"Hardware::HardwareShadow",
       "reference-counted object",
       "",
       {{"zintFwkActivity", settable, {}, "Zint::ActivityConfig"},
        {"state", settable, {}, "Hardware::HardwareShadow::State"},
        {"overrideHardware", settable},
        {"removeOverrideOnlyChipMem", operation},
        {"clock", settable, {}, "Zint::Clock"},
        {"minIntervalBetweenAudits", settable, {}, "Zint::Seconds"},
        {"chipMemory", collection, {"chipMemory"}, "Zint::GenericIf::List_", "address"},
        {"lastChipMemory", settable, {}, "Hardware::ChipMemory"},
        {"findChipMemory", operation, {"address", "size"}},
        {"shadowWriteAndCompareWithCache", operation},
        {"shadowWriteHack", operation, {"address", "dataPtr", "size"}},
        {"readFromCacheHack", operation, {"address", "dataPtr", "size"}},
        {"shadowWriteU32", operation},
        {"readFromCacheU32", operation, {"address"}},
        {"audits", settable},
        {"auditReadRequest", settable, {}, "Hardware::ChipReadRequest"},
        {"chipMemoryChunk", collection, {"fwkKey"}, "Zint::GenericIf::List_", "fwkKey"},
        {"nextIndex", settable, {}, "Hardware::ChipMemoryArrayIndex"},
        {"chipMemoryId", collection, {"index", "chipMemoryId"}, "Zint::GenericIf::List_", "index"},
        {"chipMemoryChunkArray",
         collection,
         {"index", "chipMemoryChunk"},
         "Zint::GenericIf::List_",
         "index"},
        {"handleState", operation},
        {"lastAuditStartTime", settable, {}, "Zint::Seconds"},
        {"handleChipMemory", operation, {"address"}},
        {"handleAuditReadRequestStatus", operation},
        {"doFixBadRegister", operation},
        {"chipMemoryAuditEnabledIs", operation, {"chipMemory", "auditEnabled"}},
        {"chipMemoryEntriesUnderAudit", settable},
        {"hasNotificationActiveIs", operation},
        {"zintDoZombieReactors", operation}}},
      {"Hardware::ChipMemoryBogon",
       "entity",
       "",
       {{"name", parameter},
        {"isNondestructing", settable},
        {"chipMemory",
         collection,
         {"name", "address", "entrySize", "stride", "chipHam"},
         "Zint::GenericIf::List_",
         "name"}}},
  };
}

U32 expectedFlags(What what) {
  switch (what) {
    case enumerator:
      return Flags::constant;
    case parameter:
      return Flags::readable | Flags::constant | Flags::constructorParameter;
    case readOnly:
      return Flags::readable | Flags::constant;
    case settable:
      return Flags::readable | Flags::writable;
    case operation:
      return Flags::callable;
    case query:
      return Flags::callable | Flags::constant;
    case collection:
      return Flags::readable | Flags::collection;
  }
  return 0;
}

// The arguments that must be given, or all of them.
Names argumentNames(const std::array<const char*, 8>& arguments, bool optionalToo) {
  Names names;
  for (const char* name : arguments) {
    if (name == nullptr) break;
    const bool optional = *name == '?';
    if (!optional || optionalToo) names.push_back(name + (optional ? 1 : 0));
  }
  return names;
}

// The library's own; a program may have registered more behind them.
std::vector<const Zint::Type*> libraryTypes() {
  std::vector<const Zint::Type*> types = Zint::TypeRegistry::types();
  std::erase_if(types, [](const Zint::Type* type) {
    return !std::string(type->name).starts_with("Hardware::");
  });
  return types;
}

class TypeRegistryRow : public testing::TestWithParam<std::size_t> {
 protected:
  const TypeRow row = expectedTypes()[GetParam()];
  const Zint::Type& type = *libraryTypes().at(GetParam());
};

TEST(TypeRegistry, types_areTheTwelveInTheirOrder) {
  Names names, expected;
  for (const Zint::Type* type : libraryTypes()) names.emplace_back(type->name);
  for (const TypeRow& row : expectedTypes()) expected.emplace_back(row.name);
  EXPECT_EQ(names, expected);
  EXPECT_EQ(names.size(), 12u);
}

TEST(TypeRegistry, types_standFirst) {
  EXPECT_EQ(Zint::TypeRegistry::types().front(), &Hardware::chipMemoryModeType);
  EXPECT_EQ(Zint::TypeRegistry::types().at(11), &Hardware::chipMemoryBogonType);
}

TEST_P(TypeRegistryRow, isFoundByItsQualifiedName) {
  EXPECT_STREQ(type.name, row.name);
  EXPECT_EQ(Zint::TypeRegistry::find(row.name), &type);
}

TEST_P(TypeRegistryRow, hasItsKindAndBase) {
  EXPECT_STREQ(type.kind, row.kind);
  EXPECT_STREQ(type.base == nullptr ? "" : type.base->name, row.base);
}

TEST_P(TypeRegistryRow, hasItsMembersInDeclarationOrder) {
  Names names, expected;
  for (const Zint::Member& member : type.members) names.emplace_back(member.name);
  for (const MemberRow& member : row.members) expected.emplace_back(member.name);
  EXPECT_EQ(names, expected);
}

TEST_P(TypeRegistryRow, membersHaveTheirArguments) {
  ASSERT_EQ(type.members.size(), row.members.size());
  for (std::size_t i = 0; i < row.members.size(); ++i) {
    const MemberRow& expected = row.members[i];
    const Zint::Member& member = type.members[i];
    SCOPED_TRACE(member.name);
    if (expected.what == collection) {
      ASSERT_NE(member.list, nullptr);
      EXPECT_STREQ(member.list->keyName, expected.collectionKey);
      EXPECT_EQ(argumentNames(member.list->arguments, false), expected.arguments);
    } else {
      EXPECT_EQ(member.list, nullptr);
      if (!expected.arguments.empty()) {
        EXPECT_EQ(argumentNames(member.arguments, true), expected.arguments);
      }
    }
  }
}

TEST_P(TypeRegistryRow, membersHaveTheirFlagsAndTypes) {
  ASSERT_EQ(type.members.size(), row.members.size());
  for (std::size_t i = 0; i < row.members.size(); ++i) {
    const MemberRow& expected = row.members[i];
    const Zint::Member& member = type.members[i];
    SCOPED_TRACE(member.name);
    EXPECT_EQ(member.flags.value(), expectedFlags(expected.what));
    EXPECT_LE(member.flags.value(), 0x3fu);
    const bool isTypeFixed = *expected.typeName != '\0';
    EXPECT_STREQ(isTypeFixed ? member.typeName : "", expected.typeName);
    const bool isReadable =
        expected.what == parameter || expected.what == readOnly || expected.what == settable;
    EXPECT_EQ(member.get != nullptr, isReadable);
    EXPECT_EQ(member.set != nullptr, expected.what == settable);
    EXPECT_EQ(member.call != nullptr, expected.what == operation || expected.what == query);
  }
}

TEST_P(TypeRegistryRow, attributeIdsAre256AndThePositionBehindTheBase) {
  const U32 before = type.base == nullptr ? 0 : type.base->memberCount();
  EXPECT_EQ(type.memberCount(), before + row.members.size());
  for (U32 i = 0; i < row.members.size(); ++i) {
    EXPECT_EQ(type.attributeString(256 + before + i), row.members[i].name);
  }
  EXPECT_EQ(type.attributeString(256 + type.memberCount()), "unknown");
  EXPECT_EQ(type.attributeString(255), "unknown");
  EXPECT_EQ(type.attributeString(0), "unknown");
}

INSTANTIATE_TEST_SUITE_P(types, TypeRegistryRow, testing::Range<std::size_t>(0, 12),
                         [](const testing::TestParamInfo<std::size_t>& row) {
                           const std::string name = expectedTypes()[row.param].name;
                           return name.substr(name.rfind(':') + 1);
                         });

TEST(TypeRegistry, enumerators_haveTheirNumbers) {
  for (const Zint::Type* type :
       {&Hardware::chipMemoryModeType, &Hardware::hardwareShadowStateType}) {
    S32 next = 0;
    for (const Zint::Member& member : type->members) EXPECT_EQ(member.value, next++) << member.name;
  }
}

TEST(TypeRegistry, find_ofAnUnknownNameIsNull) {
  EXPECT_EQ(Zint::TypeRegistry::find("Hardware::ChipMemor"), nullptr);
  EXPECT_EQ(Zint::TypeRegistry::find("ChipMemory"), nullptr);
  EXPECT_EQ(Zint::TypeRegistry::find(""), nullptr);
  EXPECT_EQ(Zint::TypeRegistry::findFactory("chipMemory"), nullptr);
}

TEST(TypeRegistry, typeIs_aSecondTypeOfTheNameIsRefused) {
  const Zint::Type again{"Hardware::ChipMemory"};
  const std::size_t before = Zint::TypeRegistry::types().size();
  EXPECT_THROW(Zint::TypeRegistry::typeIs(again), Zint::NameInUseException);
  EXPECT_EQ(Zint::TypeRegistry::types().size(), before);
  EXPECT_EQ(Zint::TypeRegistry::find("Hardware::ChipMemory"), &Hardware::chipMemoryType);
}

TEST(TypeRegistry, factories_areThoseOfTheLibraryWithTheirArguments) {
  const std::vector<std::pair<std::string, Names>> expected = {
      {"chipMemoryFactory", {"name", "address", "entries", "entrySize", "stride", "chipHam"}},
      {"chipMemoryBogonFactory", {"name"}},
      {"genericChipHamFactory", {"name", "hamImpl"}},
      {"chipReadRequestFactory", {"name"}},
      {"chipReaderFactory", {"activity", "request", "clock", "maxEntriesPerRead", "readInterval"}},
      {"hardwareShadowFactory", {"activity", "clock"}},
  };
  std::vector<std::pair<std::string, Names>> found;
  for (const Zint::Member* factory : Zint::TypeRegistry::factories()) {
    found.emplace_back(factory->name, argumentNames(factory->arguments, true));
    EXPECT_EQ(Zint::TypeRegistry::findFactory(factory->name), factory);
  }
  EXPECT_EQ(found, expected);
}

}  // namespace
