// The ids under which changes are announced, and the flags of members.
#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/Descriptions.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Type.h>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using Flags = Zint::ZintAttrIntrospectionFlags;

// --- Flags --------------------------------------------------------------------------------------

TEST(IntrospectionFlags, sixBitsAreAccepted) {
  EXPECT_EQ(Flags(0x3f).value(), 0x3fu);
  EXPECT_EQ(Flags().value(), 0u);
}

TEST(IntrospectionFlags, moreThanSixBitsAreRefused) {
  for (const U32 value : {0x40u, 0x7fu, 0x80000000u, 0xffffffffu}) {
    try {
      const Flags flags(value);
      ADD_FAILURE() << flags.value() << " accepted";
    } catch (const Zint::RangeException& exception) {
      EXPECT_STREQ(exception.what(), "ZintAttrIntrospectionFlags::value > 0x3f not allowed");
    }
  }
}

// --- Attribute ids ------------------------------------------------------------------------------

TEST(AttributeIds, theDirectorysChipMemoryIs258) {
  EXPECT_EQ(U32{Hardware::ChipMemoryBogon::Id::chipMemory}, 258u);
  EXPECT_EQ(Hardware::chipMemoryBogonType.attributeString(258), "chipMemory");
}

// The ids that notifications carry are the positions in the table.
void expectIds(const Zint::Type& type, const std::vector<std::pair<U32, const char*>>& rows) {
  for (const auto& [id, name] : rows) EXPECT_EQ(type.attributeString(id), name) << id;
}

TEST(AttributeIds, ofARegion) {
  using Id = Hardware::ChipMemory::Id;
  expectIds(Hardware::chipMemoryType, {{Id::name, "name"},
                                       {Id::indirectCmdRegAddr, "indirectCmdRegAddr"},
                                       {Id::shadowEnabled, "shadowEnabled"},
                                       {Id::auditEnabled, "auditEnabled"},
                                       {Id::mode, "mode"},
                                       {Id::readFromCache, "readFromCache"},
                                       {Id::skipWriteIfMatchesCache, "skipWriteIfMatchesCache"},
                                       {Id::readCacheHits, "readCacheHits"},
                                       {Id::writeCacheHits, "writeCacheHits"},
                                       {Id::registersFixed, "registersFixed"},
                                       {Id::lastFixTime, "lastFixTime"},
                                       {Id::hardware, "hardware"},
                                       {Id::shadow, "shadow"},
                                       {Id::initialized, "initialized"},
                                       {Id::dirty, "dirty"},
                                       {Id::allowsLogicalViews, "allowsLogicalViews"},
                                       {Id::fwkKey, "fwkKey"},
                                       {Id::entries, "unknown"}});  // not among the shown members
}

TEST(AttributeIds, ofTheShadow) {
  using Id = Hardware::HardwareShadow::Id;
  expectIds(Hardware::hardwareShadowType,
            {{Id::zintFwkActivity, "zintFwkActivity"},
             {Id::state, "state"},
             {Id::overrideHardware, "overrideHardware"},
             {Id::minIntervalBetweenAudits, "minIntervalBetweenAudits"},
             {Id::chipMemory, "chipMemory"},
             {Id::audits, "audits"},
             {Id::lastAuditStartTime, "lastAuditStartTime"},
             {Id::chipMemoryEntriesUnderAudit, "chipMemoryEntriesUnderAudit"},
             {Id::zintDoZombieReactors, "zintDoZombieReactors"}});
}

TEST(AttributeIds, ofTheReader) {
  using Id = Hardware::ChipReader::Id;
  expectIds(Hardware::chipReaderType, {{Id::zintFwkActivity, "zintFwkActivity"},
                                       {Id::maxEntriesPerRead, "maxEntriesPerRead"},
                                       {Id::readInterval, "readInterval"},
                                       {Id::currentChipMemory, "currentChipMemory"},
                                       {Id::entriesRead, "entriesRead"},
                                       {Id::chipMemory, "chipMemory"},
                                       {Id::zintDoZombieReactors, "zintDoZombieReactors"}});
}

TEST(AttributeIds, ofRequestsAndAccessMethods) {
  using RequestId = Hardware::ChipReadRequest::Id;
  expectIds(Hardware::chipReadRequestType, {{RequestId::name, "name"},
                                            {RequestId::isNondestructing, "isNondestructing"},
                                            {RequestId::state, "state"},
                                            {RequestId::status, "status"},
                                            {RequestId::generation, "generation"},
                                            {RequestId::handleState, "handleState"},
                                            {RequestId::chipMemory, "chipMemory"}});
  using HamId = Hardware::GenericChipHam::Id;
  expectIds(Hardware::genericChipHamType,
            {{HamId::name, "name"}, {HamId::lastMember, "copyBits"}, {HamId::hamImpl, "hamImpl"}});
}

}  // namespace
