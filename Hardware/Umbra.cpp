// The descriptions of the library's types: one table per type, rows in the order shown to users.
// Adapters are in ByName. Compiled for size.
#include <Hardware/Umbra.h>

#include <Hardware/ByName.h>
#include <Hardware/Descriptions.h>
#include <Hardware/GenericChipHam.h>
#include <Zint/Collections.h>

#include <algorithm>

namespace Hardware {

// NOLINTNEXTLINE(cert-err58-cpp): initialised as a constant
constinit Zint::TraceHandle umbraTraceHandle(Zint::TraceHandle::constant, "Umbra", false);

namespace {

using Zint::arrayList;
using Zint::attribute;
using Zint::collection;
using Zint::constructorParameter;
using Zint::enumerator;
using Zint::factory;
using Zint::ListAccess;
using Zint::mapList;
using Zint::Member;
using Zint::operation;
using Zint::queueList;
using Zint::readOnly;
using Zint::Type;

constexpr Member modeMembers[] = {
    enumerator("normal", ChipMemory::normal_),
    enumerator("override", ChipMemory::override_),
    enumerator("buffered", ChipMemory::buffered_),
};

constexpr Member stateMembers[] = {
    enumerator("unconfigured", HardwareShadow::unconfigured_),
    enumerator("configured", HardwareShadow::configured_),
    enumerator("idle", HardwareShadow::idle_),
    enumerator("auditing", HardwareShadow::auditing_),
};

constexpr Member chipAddressMembers[] = {
    attribute<&ChipAddress::value, &ChipAddress::valueIs>("value").says(
        "the address as one number"),
    readOnly<&ChipAddress::chipMemoryId>("chipMemoryId").says("the memory that it lies in"),
    readOnly<&ChipAddress::chipMemoryOffset>("chipMemoryOffset")
        .says("the offset in bytes within the memory"),
    readOnly<&ChipAddress::hash>("hash"),
    readOnly<&ChipAddress::stringValue>("stringValue"),
    operation<&ChipAddress::chipAddressIs>("chipAddressIs", "memId", "offset"),
};

constexpr Member chipHamMembers[] = {
    constructorParameter<&ChipHam::name>("name").says("its name"),
    attribute<&ChipHam::isNondestructing, &ChipHam::isNondestructingIs>("isNondestructing"),
    operation<&ByName::doRead>("doRead", "address", "entrySize", "entries")
        .says("reads entries of the chip")
        .needs(Zint::Level::operate),
    operation<&ByName::doWrite>("doWrite", "address", "buffer", "entrySize", "entries")
        .says("writes entries of the chip"),
    operation<&ByName::doCompare>("doCompare", "a", "b")
        .says("whether two buffers hold the same entry")
        .needs(Zint::Level::look),
    operation<&ByName::doReadToCache>("doReadToCache", "source"),
    operation<&ByName::doWriteToCache>("doWriteToCache", "source"),
    operation<&ByName::doReadFromCache>("doReadFromCache", "source"),
    operation<&ByName::byteFromBitStream>("byteFromBitStream", "stream", "bit"),
    operation<&ByName::byteToBitStream>("byteToBitStream", "stream", "bit", "value"),
    operation<&ByName::bitFromBitStream>("bitFromBitStream", "stream", "bit"),
    operation<&ByName::bitToBitStream>("bitToBitStream", "stream", "bit", "value"),
    operation<&ByName::copyBits>("copyBits", "destination", "destinationBit", "source", "sourceBit",
                                 "bits"),
};
ZINT_CHECK_IDS(ChipHam, chipHamMembers, Zint::firstAttributeId, name, isNondestructing, doRead,
               doWrite, doCompare, doReadToCache, doWriteToCache, doReadFromCache,
               byteFromBitStream, byteToBitStream, bitFromBitStream, bitToBitStream, copyBits);

constexpr Member genericChipHamMembers[] = {
    constructorParameter<&GenericChipHam::hamImpl>("hamImpl").says(
        "the register access that it works through"),
};
ZINT_CHECK_IDS(GenericChipHam, genericChipHamMembers, ChipHam::Id::lastMember + 1, hamImpl);

using M = ChipMemory;
constexpr Member chipMemoryMembers[] = {
    constructorParameter<&M::name>("name").says("its name"),
    constructorParameter<&M::address>("address").says("the chip address of its first entry"),
    constructorParameter<&M::entrySize>("entrySize").in("bytes").says("size of an entry"),
    constructorParameter<&M::stride>("stride").in("bytes").says(
        "distance from one entry to the next on the chip"),
    constructorParameter<&M::chipHam>("chipHam").says("the access method that reaches the chip"),
    attribute<&M::indirectCmdRegAddr, &M::indirectCmdRegAddrIs>("indirectCmdRegAddr")
        .says("register through which it is reached indirectly"),
    operation<&M::inRange>("inRange", "addr")
        .says("whether the address belongs to one of its entries")
        .needs(Zint::Level::look),
    attribute<&M::shadowEnabled, &M::shadowEnabledIs>("shadowEnabled")
        .says("whether the shadow keeps its entries")
        .needs(Zint::Level::operate),
    attribute<&M::auditEnabled, &M::auditEnabledIs>("auditEnabled")
        .says("whether the audit reads and compares it")
        .needs(Zint::Level::operate),
    operation<&M::handleAuditEnabled>("handleAuditEnabled"),
    attribute<&M::mode, &M::modeIs>("mode")
        .says("normal, buffered: writes are held back, or override: the chip is left alone")
        .needs(Zint::Level::operate),
    operation<&M::handleMode>("handleMode"),
    attribute<&M::shadowStoreNeeded, &M::shadowStoreNeededIs>("shadowStoreNeeded")
        .says("whether it has the buffers of a shadow"),
    operation<&M::handleShadowStoreNeeded>("handleShadowStoreNeeded"),
    operation<&M::entryIndexFromAddress>("entryIndexFromAddress", "addr")
        .says("the entry that an address belongs to")
        .needs(Zint::Level::look),
    operation<&M::doClear>("doClear").says("sets every entry to zero"),
    operation<&ByName::doClearRange>("doClearRange", "startIndex", "endIndex")
        .says("sets entries to zero"),
    operation<&M::writeback>("writeback", "initializedOnly")
        .says("writes what the shadow holds to the chip"),
    attribute<&M::readFromCache, &M::readFromCacheIs>("readFromCache")
        .says("whether reads are answered by the shadow")
        .needs(Zint::Level::operate),
    attribute<&M::skipWriteIfMatchesCache, &M::skipWriteIfMatchesCacheIs>("skipWriteIfMatchesCache")
        .says("whether a write of what is known is left out")
        .needs(Zint::Level::operate),
    attribute<&M::readCacheHits, &M::readCacheHitsIs>("readCacheHits")
        .says("reads that the shadow answered"),
    attribute<&M::writeCacheHits, &M::writeCacheHitsIs>("writeCacheHits")
        .says("writes that were left out because the value was known"),
    attribute<&M::registersFixed, &M::registersFixedIs>("registersFixed")
        .says("entries that the audit has rewritten"),
    attribute<&M::lastFixTime, &M::lastFixTimeIs>("lastFixTime")
        .says("when the audit last rewrote an entry"),
    attribute<&M::hardware, &M::hardwareIs>("hardware").says("the buffer of what was read last"),
    attribute<&M::shadow, &M::shadowIs>("shadow").says("the buffer of what the chip should hold"),
    attribute<&M::initialized, &M::initializedIs>("initialized")
        .says("a bit for each entry whose value is known"),
    operation<&M::entryInitialized>("entryInitialized", "entryIndex")
        .says("whether the value of an entry is known")
        .needs(Zint::Level::look),
    operation<&M::entryInitializedIs>("entryInitializedIs", "entryIndex"),
    operation<&M::entryInitializedDel>("entryInitializedDel", "entryIndex"),
    attribute<&M::dirty, &M::dirtyIs>("dirty").says(
        "a bit for each entry that was written since the audit's last visit"),
    attribute<&M::allowsLogicalViews, &M::allowsLogicalViewsIs>("allowsLogicalViews")
        .says("whether accesses may differ from the entry size"),
    readOnly<&M::fwkKey>("fwkKey").says("its key in a directory"),
};
ZINT_CHECK_IDS(ChipMemory, chipMemoryMembers, Zint::firstAttributeId, name, address, entrySize,
               stride, chipHam, indirectCmdRegAddr, inRange, shadowEnabled, auditEnabled,
               handleAuditEnabled, mode, handleMode, shadowStoreNeeded, handleShadowStoreNeeded,
               entryIndexFromAddress, doClear, doClearRange, writeback, readFromCache,
               skipWriteIfMatchesCache, readCacheHits, writeCacheHits, registersFixed, lastFixTime,
               hardware, shadow, initialized, entryInitialized, entryInitializedIs,
               entryInitializedDel, dirty, allowsLogicalViews, fwkKey);

constexpr ListAccess requestRegions =
    mapList<&ChipReadRequest::chipMemory, &ChipReadRequest::chipMemorys,
            &ChipReadRequest::chipMemoryIterator, &ChipReadRequest::chipMemoryDel,
            &ChipReadRequest::chipMemoryDelAll, &ByName::insertIntoRequest>("address",
                                                                            "chipMemory");
constexpr Member chipReadRequestMembers[] = {
    operation<&ChipReadRequest::handleState>("handleState"),
    collection("chipMemory", requestRegions).says("the regions that are read"),
};
ZINT_CHECK_IDS(ChipReadRequest, chipReadRequestMembers, Zint::Request::Id::generation + 1,
               handleState, chipMemory);

using R = ChipReader;
constexpr ListAccess readerQueue =
    queueList<&R::chipMemory, &R::ZintChipMemory::chipMemory, &R::chipMemoryDel,
              &R::chipMemoryDelAll, &ByName::appendToReader>("chipMemory");
constexpr Member chipReaderMembers[] = {
    attribute<&R::zintFwkActivity, &R::zintFwkActivityIs>("zintFwkActivity"),
    attribute<&R::request, &R::requestIs>("request").says("what it reads"),
    attribute<&R::clock, &R::clockIs>("clock").says("the clock that its slices follow"),
    attribute<&R::maxEntriesPerRead, &R::maxEntriesPerReadIs>("maxEntriesPerRead")
        .in("entries")
        .says("entries of a slice at most")
        .needs(Zint::Level::operate),
    attribute<&R::readInterval, &R::readIntervalIs>("readInterval")
        .says("time from one slice to the next")
        .needs(Zint::Level::operate),
    operation<&R::doRead>("doRead").says("reads the next slice"),
    operation<&R::handleReadRequest>("handleReadRequest"),
    attribute<&R::currentChipMemory, &R::currentChipMemoryIs>("currentChipMemory")
        .says("the region that is being read"),
    attribute<&R::entriesRead, &R::entriesReadIs>("entriesRead")
        .in("entries")
        .says("entries of it that have been read"),
    collection("chipMemory", readerQueue).says("the regions that wait"),
    attribute<&R::chipMemoryMetadata, &R::chipMemoryMetadataIs>("chipMemoryMetadata"),
    operation<&R::hasNotificationActiveIs>("hasNotificationActiveIs", "hasNotificationActive"),
    operation<&R::zintDoZombieReactors>("zintDoZombieReactors", "zombie"),
};
ZINT_CHECK_IDS(ChipReader, chipReaderMembers, Zint::firstAttributeId, zintFwkActivity, request,
               clock, maxEntriesPerRead, readInterval, doRead, handleReadRequest, currentChipMemory,
               entriesRead, chipMemory, chipMemoryMetadata, hasNotificationActiveIs,
               zintDoZombieReactors);

constexpr Member chipMemoryArrayIndexMembers[] = {
    attribute<&ChipMemoryArrayIndex::value, &ChipMemoryArrayIndex::valueIs>("value"),
};

using Chunk = ChipMemoryChunk;
constexpr ListAccess chunkOffsets =
    arrayList<U16, &Chunk::offset, &Chunk::offsets, &Chunk::offsetIs, &Chunk::offsetDel,
              &Chunk::offsetDelAll>("offset");
constexpr ListAccess chunkRegions =
    arrayList<U16, &Chunk::chipMemory, &Chunk::chipMemorys, &Chunk::chipMemoryIs,
              &Chunk::chipMemoryDel, &Chunk::chipMemoryDelAll>("chipMemory");
constexpr Member chipMemoryChunkMembers[] = {
    constructorParameter<&ChipMemoryChunk::fwkKey>("fwkKey"),
    attribute<&ChipMemoryChunk::nextIndex, &ChipMemoryChunk::nextIndexIs>("nextIndex"),
    collection("offset", chunkOffsets),
    collection("chipMemory", chunkRegions),
};

using S = HardwareShadow;
constexpr ListAccess shadowRegions =
    mapList<&S::chipMemory, &S::chipMemorys, &S::chipMemoryIterator, &S::chipMemoryDel,
            &S::chipMemoryDelAll, &ByName::insertIntoShadow>("address", "chipMemory");
constexpr ListAccess shadowChunks =
    mapList<&S::chipMemoryChunk, &S::chipMemoryChunks, &S::chipMemoryChunkIterator,
            &S::chipMemoryChunkDel, &S::chipMemoryChunkDelAll, &S::chipMemoryChunkIs>("fwkKey",
                                                                                      "fwkKey");
constexpr ListAccess shadowIds =
    arrayList<U16, &S::chipMemoryId, &S::chipMemoryIds, &S::chipMemoryIdIs, &S::chipMemoryIdDel,
              &S::chipMemoryIdDelAll>("chipMemoryId");
constexpr ListAccess shadowChunkArray =
    arrayList<U16, &S::chipMemoryChunkArray, &S::chipMemoryChunkArrays, &S::chipMemoryChunkArrayIs,
              &S::chipMemoryChunkArrayDel, &S::chipMemoryChunkArrayDelAll>("chipMemoryChunk");
constexpr Member hardwareShadowMembers[] = {
    attribute<&S::zintFwkActivity, &S::zintFwkActivityIs>("zintFwkActivity"),
    attribute<&S::state, &S::stateIs>("state")
        .says("unconfigured, configured, idle or auditing")
        .needs(Zint::Level::operate),
    attribute<&S::overrideHardware, &S::overrideHardwareIs>("overrideHardware")
        .says("whether no write needs the chip and no pass begins")
        .needs(Zint::Level::operate),
    operation<&S::removeOverrideOnlyChipMem>("removeOverrideOnlyChipMem"),
    attribute<&S::clock, &S::clockIs>("clock").says("the clock that its passes follow"),
    attribute<&S::minIntervalBetweenAudits, &S::minIntervalBetweenAuditsIs>(
        "minIntervalBetweenAudits")
        .says("time from the start of one pass to the next at least")
        .needs(Zint::Level::operate),
    collection("chipMemory", shadowRegions).says("its regions"),
    attribute<&S::lastChipMemory, &S::lastChipMemoryIs>("lastChipMemory")
        .says("the region that was found last"),
    operation<&S::findChipMemory>("findChipMemory", "address", "size")
        .says("the region that contains an address")
        .needs(Zint::Level::operate),
    operation<&ByName::shadowWriteAndCompareWithCache>("shadowWriteAndCompareWithCache",
                                                       "chipMemory", "entry", "data", "size"),
    operation<&ByName::shadowWriteHack>("shadowWriteHack", "address", "dataPtr", "size"),
    operation<&ByName::readFromCacheHack>("readFromCacheHack", "address", "?dataPtr", "size"),
    operation<&S::shadowWriteU32>("shadowWriteU32", "address", "value"),
    operation<&S::readFromCacheU32>("readFromCacheU32", "address"),
    attribute<&S::audits, &S::auditsIs>("audits").says("passes that were completed"),
    attribute<&S::auditReadRequest, &S::auditReadRequestIs>("auditReadRequest")
        .says("the request by which the audit reads"),
    collection("chipMemoryChunk", shadowChunks).says("the index of the look-up, by chip memory id"),
    attribute<&S::nextIndex, &S::nextIndexIs>("nextIndex").says("chip memory ids in the index"),
    collection("chipMemoryId", shadowIds),
    collection("chipMemoryChunkArray", shadowChunkArray),
    operation<&S::handleState>("handleState"),
    attribute<&S::lastAuditStartTime, &S::lastAuditStartTimeIs>("lastAuditStartTime")
        .says("when the last pass began"),
    operation<&ByName::handleChipMemory>("handleChipMemory", "address"),
    operation<&S::handleAuditReadRequestStatus>("handleAuditReadRequestStatus"),
    operation<&ByName::doFixBadRegister>("doFixBadRegister", "chipMemory", "entry", "data"),
    operation<&ByName::chipMemoryAuditEnabledIs>("chipMemoryAuditEnabledIs", "chipMemory",
                                                 "auditEnabled")
        .says("switches the audit of a region")
        .needs(Zint::Level::operate),
    attribute<&S::chipMemoryEntriesUnderAudit, &S::chipMemoryEntriesUnderAuditIs>(
        "chipMemoryEntriesUnderAudit")
        .in("entries")
        .says("entries of all regions under audit"),
    operation<&S::hasNotificationActiveIs>("hasNotificationActiveIs", "hasNotificationActive"),
    operation<&S::zintDoZombieReactors>("zintDoZombieReactors", "zombie"),
};
ZINT_CHECK_IDS(HardwareShadow, hardwareShadowMembers, Zint::firstAttributeId, zintFwkActivity,
               state, overrideHardware, removeOverrideOnlyChipMem, clock, minIntervalBetweenAudits,
               chipMemory, lastChipMemory, findChipMemory, shadowWriteAndCompareWithCache,
               shadowWriteHack, readFromCacheHack, shadowWriteU32, readFromCacheU32, audits,
               auditReadRequest, chipMemoryChunk, nextIndex, chipMemoryId, chipMemoryChunkArray,
               handleState, lastAuditStartTime, handleChipMemory, handleAuditReadRequestStatus,
               doFixBadRegister, chipMemoryAuditEnabledIs, chipMemoryEntriesUnderAudit,
               hasNotificationActiveIs, zintDoZombieReactors);

using D = ChipMemoryBogon;
constexpr ListAccess directoryRegions =
    mapList<&D::chipMemory, &D::chipMemorys, &D::chipMemoryIteratorConst, &D::chipMemoryDel,
            &D::chipMemoryDelAll, &ByName::findOrMake>("name", "name", "address", "entrySize",
                                                       "stride", "chipHam", "?entries");
constexpr Member chipMemoryBogonMembers[] = {
    constructorParameter<&ChipMemoryBogon::name>("name").says("its name"),
    attribute<&ChipMemoryBogon::isNondestructing, &ChipMemoryBogon::isNondestructingIs>(
        "isNondestructing"),
    collection("chipMemory", directoryRegions).says("its regions"),
};
ZINT_CHECK_IDS(ChipMemoryBogon, chipMemoryBogonMembers, Zint::firstAttributeId, name,
               isNondestructing, chipMemory);

constexpr Member factories[] = {
    factory<&chipMemoryFactory>("chipMemoryFactory", "name", "address", "entries", "entrySize",
                                "stride", "chipHam"),
    factory<&chipMemoryBogonFactory>("chipMemoryBogonFactory", "name"),
    factory<&genericChipHamFactory>("genericChipHamFactory", "name", "hamImpl"),
    factory<&chipReadRequestFactory>("chipReadRequestFactory", "name"),
    factory<&chipReaderFactory>("chipReaderFactory", "activity", "request", "clock",
                                "maxEntriesPerRead", "readInterval"),
    factory<&hardwareShadowFactory>("hardwareShadowFactory", "activity", "clock"),
};

template <class T>
constexpr Type describe(const char* kind, const Type* base, std::span<const Member> members) {
  return {Zint::typeNameOf<T>(), kind, base, members};
}

constexpr const char* countedObject = "reference-counted object";

}  // namespace

constexpr Type chipMemoryModeType =
    describe<ChipMemory::ChipMemoryMode>("enumeration", nullptr, modeMembers);
constexpr Type hardwareShadowStateType =
    describe<HardwareShadow::State>("enumeration", nullptr, stateMembers);
constexpr Type chipAddressType = describe<ChipAddress>("value", nullptr, chipAddressMembers);
constexpr Type chipHamType = describe<ChipHam>("entity", nullptr, chipHamMembers);
constexpr Type genericChipHamType =
    describe<GenericChipHam>("entity", &chipHamType, genericChipHamMembers);
constexpr Type chipMemoryType = describe<ChipMemory>(countedObject, nullptr, chipMemoryMembers);
constexpr Type chipReadRequestType =
    describe<ChipReadRequest>("request entity", &Zint::requestType, chipReadRequestMembers);
constexpr Type chipReaderType = describe<ChipReader>(countedObject, nullptr, chipReaderMembers);
constexpr Type chipMemoryArrayIndexType =
    describe<ChipMemoryArrayIndex>("value", nullptr, chipMemoryArrayIndexMembers);
constexpr Type chipMemoryChunkType =
    describe<ChipMemoryChunk>("entity", &Zint::entityType, chipMemoryChunkMembers);
constexpr Type hardwareShadowType =
    describe<HardwareShadow>(countedObject, nullptr, hardwareShadowMembers);
constexpr Type chipMemoryBogonType =
    describe<ChipMemoryBogon>("entity", nullptr, chipMemoryBogonMembers);

namespace {

// In the order of registration.
constexpr const Type* types[] = {
    &chipMemoryModeType,       &hardwareShadowStateType, &chipAddressType,     &chipHamType,
    &genericChipHamType,       &chipMemoryType,          &chipReadRequestType, &chipReaderType,
    &chipMemoryArrayIndexType, &chipMemoryChunkType,     &hardwareShadowType,  &chipMemoryBogonType,
};

constexpr std::size_t typeNamesSize = [] {
  std::size_t size = 0;
  for (const Type* type : types) size += std::string_view(type->name).size() + 1;
  return size;
}();

// The same names in a section of their own, each terminated by a zero byte, for tools that read the
// file.
[[gnu::section(".zint.type"), gnu::used, gnu::retain]] constexpr auto typeNames = [] {
  std::array<char, typeNamesSize> names{};
  auto end = names.begin();
  for (const Type* type : types) {
    const std::string_view name = type->name;
    end = std::copy(name.begin(), name.end(), end) + 1;
  }
  return names;
}();

[[gnu::constructor]] void registerTypes() {
  umbraTraceHandle.registerHandle();
  for (const Type* type : types) Zint::TypeRegistry::typeIs(*type);
  for (const Member& row : factories) Zint::TypeRegistry::factoryIs(row);
}

[[gnu::destructor]] void unregisterTypes() {
  for (const Type* type : types) Zint::TypeRegistry::typeDel(*type);
  for (const Member& row : factories) Zint::TypeRegistry::factoryDel(row);
}

}  // namespace

}  // namespace Hardware
