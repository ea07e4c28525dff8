// The descriptions of the library's types: one table per type, rows in the order shown to users.
// Compiled for size.
#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/Umbra.h>
#include <Zint/Reflect.h>

namespace Hardware {

// NOLINTNEXTLINE(cert-err58-cpp): initialised as a constant
constinit Zint::TraceHandle umbraTraceHandle(Zint::TraceHandle::constant, "Umbra", false);

namespace {

using Zint::attribute;
using Zint::Bytes;
using Zint::collection;
using Zint::constructorParameter;
using Zint::enumerator;
using Zint::factory;
using Zint::ListAccess;
using Zint::ListItem;
using Zint::Member;
using Zint::operation;
using Zint::readOnly;
using Zint::Result;
using Zint::String8;
using Zint::Type;
using Zint::Detail::object;
using Zint::Detail::read;
using Zint::Detail::result;
using Texts = std::span<const String8* const>;

// Arguments that can be read but do not fit the operation: reported, like those that cannot be
// read, with the type, the member and the texts. REQUIRES: nothing has changed yet.
[[noreturn]] void argumentsRefused(const String8& why) {
  throw Zint::Detail::Unreadable(Zint::RangeException(why));
}

void regionNeeded(const ChipMemory::Ptr& cm) {
  if (cm == nullptr) argumentsRefused("a region is needed");
}

// --- Bytes in texts: their number must be what the operation touches ---

// No bytes have a place as well: an access of length 0 still wants one.
U8* placeOf(Bytes& bytes) {
  static U8 nothing;
  return bytes.bytes.empty() ? &nothing : bytes.bytes.data();
}

U8* ofSize(Bytes& bytes, U64 size) {
  if (bytes.bytes.size() != size) {
    argumentsRefused(Zint::format("%zu bytes given where %llu are needed", bytes.bytes.size(),
                                  static_cast<unsigned long long>(size)));
  }
  return placeOf(bytes);
}

// Room for an answer; what a client asks for by name is kept within reason.
Bytes room(U64 size) {
  if (size > 1u << 24) {
    argumentsRefused(Zint::format("%llu bytes are more than a text should hold",
                                  static_cast<unsigned long long>(size)));
  }
  return {std::vector<U8>(static_cast<std::size_t>(size))};
}

// "true 001f80"
Result answer(bool served, const Bytes& bytes) {
  return {Zint::valueToStrep(served) + (served ? " " : "") +
          (served ? Zint::valueToStrep(bytes) : String8())};
}

Result hamRead(ChipHam& ham, ChipAddress address, U32 entrySize, U32 entries) {
  Bytes bytes = room(U64{entrySize} * entries);
  ham.doRead(address, placeOf(bytes), entrySize, entries);
  return {Zint::valueToStrep(bytes)};
}
void hamWrite(ChipHam& ham, ChipAddress address, Bytes buffer, U32 entrySize, U32 entries) {
  ham.doWrite(address, ofSize(buffer, U64{entrySize} * entries), entrySize, entries);
}
bool hamCompare(const ChipHam& ham, Bytes a, Bytes b) {
  return ham.doCompare(placeOf(a), ofSize(b, a.bytes.size()), static_cast<U32>(b.bytes.size()));
}
template <auto copy, class Ham>
Result hamCopy(Ham& ham, Bytes source) {
  Bytes destination = room(source.bytes.size());
  const bool done =
      (ham.*copy)(placeOf(destination), placeOf(source), static_cast<U32>(source.bytes.size()));
  return answer(done, destination);
}

// A stream must reach from the first bit to the last.
U8* stream(Bytes& bytes, U64 bit, U64 bits) {
  if (bit + bits > bytes.bytes.size() * U64{8}) {
    argumentsRefused("the bits reach beyond the stream");
  }
  return placeOf(bytes);
}
U8 streamByte(const ChipHam& ham, Bytes bytes, U32 bit) {
  return ham.byteFromBitStream(stream(bytes, bit, 8), bit);
}
Bytes streamByteIs(const ChipHam& ham, Bytes bytes, U32 bit, U8 value) {
  ham.byteToBitStream(stream(bytes, bit, 8), bit, value);
  return bytes;
}
bool streamBit(const ChipHam& ham, Bytes bytes, U32 bit) {
  return ham.bitFromBitStream(stream(bytes, bit, 1), bit);
}
Bytes streamBitIs(const ChipHam& ham, Bytes bytes, U32 bit, bool value) {
  ham.bitToBitStream(stream(bytes, bit, 1), bit, value);
  return bytes;
}
Bytes streamCopied(const ChipHam& ham, Bytes destination, U32 destinationBit, Bytes source,
                   U32 sourceBit, U32 bits) {
  ham.copyBits(stream(destination, destinationBit, bits), destinationBit,
               stream(source, sourceBit, bits), sourceBit, bits);
  return destination;
}

void regionCleared(ChipMemory& cm, U32 startIndex, U32 endIndex) {
  cm.doClearRange(startIndex, endIndex, false);
}

bool shadowWrite(HardwareShadow& shadow, ChipMemory::Ptr cm, U32 entry, Bytes data, U32 size) {
  return shadow.shadowWriteAndCompareWithCache(cm, entry, ofSize(data, size), size);
}
void shadowWriteAt(HardwareShadow& shadow, ChipAddress address, Bytes data, U32 size) {
  shadow.shadowWriteHack(address, ofSize(data, size), size);
}
Result shadowReadAt(HardwareShadow& shadow, ChipAddress address, Bytes data, U32 size) {
  if (data.bytes.empty()) data = room(size);
  const bool served = shadow.readFromCacheHack(address, ofSize(data, size), size);
  return answer(served, data);
}
void registerFixed(HardwareShadow& shadow, ChipMemory::Ptr cm, U32 entry, Bytes data) {
  regionNeeded(cm);
  shadow.doFixBadRegister(cm, entry, ofSize(data, cm->entrySize()));
}
void auditSwitched(HardwareShadow& shadow, ChipMemory::Ptr cm, bool auditEnabled) {
  regionNeeded(cm);
  shadow.chipMemoryAuditEnabledIs(cm, auditEnabled);
}
void chipMemoryHandled(HardwareShadow& shadow, ChipAddress address) {
  shadow.handleChipMemory(address);
}

// --- Collections ---

template <class V>
Result found(const V& value, bool exists) {
  return exists ? result(value) : Result{"null"};
}

// A dense array by its index.
template <class C, auto at, auto size, auto is, auto del, auto delAll>
constexpr ListAccess arrayList(const char* valueType, const char* valueName) {
  ListAccess list{};
  list.keyName = "index";
  list.valueType = valueType;
  list.size = [](const void* o) { return (object<C>(o).*size)(); };
  list.items = [](const void* o) {
    std::vector<ListItem> items;
    const C& c = object<C>(o);
    for (U32 i = 0; i < (c.*size)(); ++i) {
      items.push_back({Zint::valueToStrep(i), result((c.*at)(static_cast<U16>(i)))});
    }
    return items;
  };
  list.find = [](const void* o, const String8& key) {
    const U16 index = read<U16>(key);
    const C& c = object<C>(o);
    return found((c.*at)(index), index < (c.*size)());
  };
  list.del = [](void* o, const String8& key) { (object<C>(o).*del)(read<U16>(key)); };
  list.delAll = [](void* o) { (object<C>(o).*delAll)(); };
  list.arguments = {"index", valueName};
  list.insert = [](void* o, Texts texts) {
    using V = std::remove_cvref_t<decltype((std::declval<C&>().*at)(U16{}))>;
    const U16 index = read<U16>(*texts[0]);
    const V value = read<V>(*texts[1]);
    (object<C>(o).*is)(index, value);
    return Result{};
  };
  return list;
}

// Regions by their address or another key: `regionOf` gives the region of a member of the walk.
template <class C, class K, auto iterator, auto regionOf, auto keyOf>
std::vector<ListItem> regionItems(const void* o) {
  std::vector<ListItem> items;
  for (auto member = (object<C>(o).*iterator)(); member; ++member) {
    items.push_back({result(K(keyOf(**member))).text, result(regionOf(**member))});
  }
  return items;
}

ChipMemory::Ptr boundRegion(const HardwareShadow::ZintChipMemory& member) {
  return member.chipMemory();
}
ChipAddress boundKey(const HardwareShadow::ZintChipMemory& member) { return member.fwkKey(); }
ChipMemory::Ptr requestedRegion(const ChipReadRequest::ZintChipMemory& member) {
  return member.chipMemory();
}
ChipAddress requestedKey(const ChipReadRequest::ZintChipMemory& member) { return member.fwkKey(); }
ChipMemory::Ptr directoryRegion(const ChipMemory& member) {
  return ChipMemory::Ptr(const_cast<ChipMemory*>(&member));
}
String8 directoryKey(const ChipMemory& member) { return member.name(); }
ChipMemoryChunk::Ptr itself(const ChipMemoryChunk& chunk) {
  return ChipMemoryChunk::Ptr(const_cast<ChipMemoryChunk*>(&chunk));
}
U32 chunkKey(const ChipMemoryChunk& chunk) { return chunk.fwkKey(); }

template <class C>
constexpr ListAccess regionsByAddress() {
  ListAccess list{};
  list.keyName = "address";
  list.valueType = "Hardware::ChipMemory";
  list.size = [](const void* o) { return object<C>(o).chipMemorys(); };
  list.find = [](const void* o, const String8& key) {
    const ChipMemory::Ptr region = object<C>(o).chipMemory(read<ChipAddress>(key));
    return found(region, region != nullptr);
  };
  list.del = [](void* o, const String8& key) {
    object<C>(o).chipMemoryDel(read<ChipAddress>(key));
  };
  list.delAll = [](void* o) { object<C>(o).chipMemoryDelAll(); };
  list.arguments = {"chipMemory"};
  list.insert = [](void* o, Texts texts) {
    const auto region = read<ChipMemory::Ptr>(*texts[0]);
    object<C>(o).chipMemoryIs(region);
    return result(region);
  };
  return list;
}

constexpr ListAccess requestRegions = [] {
  ListAccess list = regionsByAddress<ChipReadRequest>();
  list.items = regionItems<ChipReadRequest, ChipAddress, &ChipReadRequest::chipMemoryIterator,
                           requestedRegion, requestedKey>;
  return list;
}();

constexpr ListAccess shadowRegions = [] {
  ListAccess list = regionsByAddress<HardwareShadow>();
  list.items = regionItems<HardwareShadow, ChipAddress, &HardwareShadow::chipMemoryIterator,
                           boundRegion, boundKey>;
  return list;
}();

constexpr ListAccess shadowChunks = [] {
  ListAccess list{};
  list.keyName = "fwkKey";
  list.valueType = "Hardware::ChipMemoryChunk";
  list.size = [](const void* o) { return object<HardwareShadow>(o).chipMemoryChunks(); };
  list.items =
      regionItems<HardwareShadow, U32, &HardwareShadow::chipMemoryChunkIterator, itself, chunkKey>;
  list.find = [](const void* o, const String8& key) {
    const auto chunk = object<HardwareShadow>(o).chipMemoryChunk(read<U32>(key));
    return found(chunk, chunk != nullptr);
  };
  list.del = [](void* o, const String8& key) {
    object<HardwareShadow>(o).chipMemoryChunkDel(read<U32>(key));
  };
  list.delAll = [](void* o) { object<HardwareShadow>(o).chipMemoryChunkDelAll(); };
  list.arguments = {"fwkKey"};
  list.insert = [](void* o, Texts texts) {
    return result(object<HardwareShadow>(o).chipMemoryChunkIs(read<U32>(*texts[0])));
  };
  return list;
}();

constexpr ListAccess readerQueue = [] {
  ListAccess list{};
  list.keyName = "index";
  list.valueType = "Hardware::ChipMemory";
  list.size = [](const void* o) { return object<ChipReader>(o).chipMemorys(); };
  list.items = [](const void* o) {
    std::vector<ListItem> items;
    const ChipReader::Queue& queue = object<ChipReader>(o).chipMemory();
    for (auto* member = queue.head(); member != nullptr; member = queue.after(*member)) {
      items.push_back({Zint::valueToStrep(member->zint_index()), result(member->chipMemory())});
    }
    return items;
  };
  list.find = [](const void* o, const String8& key) {
    const U32 index = read<U32>(key);
    const ChipReader::Queue& queue = object<ChipReader>(o).chipMemory();
    auto* member = queue.head();
    while (member != nullptr && member->zint_index() != index) member = queue.after(*member);
    return member == nullptr ? Result{"null"} : result(member->chipMemory());
  };
  list.del = [](void* o, const String8& key) {
    object<ChipReader>(o).chipMemoryDel(read<U32>(key));
  };
  list.delAll = [](void* o) { object<ChipReader>(o).chipMemoryDelAll(); };
  list.arguments = {"chipMemory"};
  list.insert = [](void* o, Texts texts) {
    const auto region = read<ChipMemory::Ptr>(*texts[0]);
    regionNeeded(region);
    object<ChipReader>(o).chipMemoryEnq(region);
    return result(region);
  };
  return list;
}();

constexpr ListAccess directoryRegions = [] {
  using C = ChipMemoryBogon;
  ListAccess list{};
  list.keyName = "name";
  list.valueType = "Hardware::ChipMemory";
  list.size = [](const void* o) { return object<C>(o).chipMemorys(); };
  list.items = regionItems<C, String8, &C::chipMemoryIteratorConst, directoryRegion, directoryKey>;
  list.find = [](const void* o, const String8& key) {
    const ChipMemory::Ptr region = object<C>(o).chipMemory(read<String8>(key));
    return found(region, region != nullptr);
  };
  list.del = [](void* o, const String8& key) { object<C>(o).chipMemoryDel(read<String8>(key)); };
  list.delAll = [](void* o) { object<C>(o).chipMemoryDelAll(); };
  // A region's constructor parameters, and the number of its entries, which may change later: asked
  // for again without it, a region keeps the one that it has.
  list.arguments = {"name", "address", "entrySize", "stride", "chipHam", "?entries"};
  list.insert = [](void* o, Texts texts) {
    C& directory = object<C>(o);
    const auto name = read<String8>(*texts[0]);
    const auto address = read<ChipAddress>(*texts[1]);
    const auto entrySize = read<U32>(*texts[2]);
    const auto stride = read<U32>(*texts[3]);
    const auto chipHam = read<Zint::Ptr<ChipHam>>(*texts[4]);
    const ChipMemory::Ptr existing = directory.chipMemory(name);
    const U32 held = existing == nullptr ? 0 : existing->entries();
    const U32 entries = texts[5] == nullptr ? held : read<U32>(*texts[5]);
    return result(directory.chipMemoryIs(name, address, entries, entrySize, stride, chipHam));
  };
  return list;
}();

constexpr ListAccess shadowIds =
    arrayList<HardwareShadow, &HardwareShadow::chipMemoryId, &HardwareShadow::chipMemoryIds,
              &HardwareShadow::chipMemoryIdIs, &HardwareShadow::chipMemoryIdDel,
              &HardwareShadow::chipMemoryIdDelAll>("U32", "chipMemoryId");
constexpr ListAccess shadowChunkArray =
    arrayList<HardwareShadow, &HardwareShadow::chipMemoryChunkArray,
              &HardwareShadow::chipMemoryChunkArrays, &HardwareShadow::chipMemoryChunkArrayIs,
              &HardwareShadow::chipMemoryChunkArrayDel,
              &HardwareShadow::chipMemoryChunkArrayDelAll>("Hardware::ChipMemoryChunk",
                                                           "chipMemoryChunk");
constexpr ListAccess chunkOffsets =
    arrayList<ChipMemoryChunk, &ChipMemoryChunk::offset, &ChipMemoryChunk::offsets,
              &ChipMemoryChunk::offsetIs, &ChipMemoryChunk::offsetDel,
              &ChipMemoryChunk::offsetDelAll>("U32", "offset");
constexpr ListAccess chunkRegions =
    arrayList<ChipMemoryChunk, &ChipMemoryChunk::chipMemory, &ChipMemoryChunk::chipMemorys,
              &ChipMemoryChunk::chipMemoryIs, &ChipMemoryChunk::chipMemoryDel,
              &ChipMemoryChunk::chipMemoryDelAll>("Hardware::ChipMemory", "chipMemory");

// --- The tables ---

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
    attribute<&ChipAddress::value, &ChipAddress::valueIs>("value"),
    readOnly<&ChipAddress::chipMemoryId>("chipMemoryId"),
    readOnly<&ChipAddress::chipMemoryOffset>("chipMemoryOffset"),
    readOnly<&ChipAddress::hash>("hash"),
    readOnly<&ChipAddress::stringValue>("stringValue"),
    operation<&ChipAddress::chipAddressIs>("chipAddressIs", "memId", "offset"),
};

constexpr Member chipHamMembers[] = {
    constructorParameter<&ChipHam::name>("name"),
    attribute<&ChipHam::isNondestructing, &ChipHam::isNondestructingIs>("isNondestructing"),
    operation<&hamRead>("doRead", "address", "entrySize", "entries"),
    operation<&hamWrite>("doWrite", "address", "buffer", "entrySize", "entries"),
    operation<&hamCompare>("doCompare", "a", "b"),
    operation<&hamCopy<&ChipHam::doReadToCache, const ChipHam>>("doReadToCache", "source"),
    operation<&hamCopy<&ChipHam::doWriteToCache, ChipHam>>("doWriteToCache", "source"),
    operation<&hamCopy<&ChipHam::doReadFromCache, const ChipHam>>("doReadFromCache", "source"),
    operation<&streamByte>("byteFromBitStream", "stream", "bit"),
    operation<&streamByteIs>("byteToBitStream", "stream", "bit", "value"),
    operation<&streamBit>("bitFromBitStream", "stream", "bit"),
    operation<&streamBitIs>("bitToBitStream", "stream", "bit", "value"),
    operation<&streamCopied>("copyBits", "destination", "destinationBit", "source", "sourceBit",
                             "bits"),
};

constexpr Member genericChipHamMembers[] = {
    constructorParameter<&GenericChipHam::hamImpl>("hamImpl"),
};

using M = ChipMemory;
constexpr Member chipMemoryMembers[] = {
    constructorParameter<&M::name>("name"),
    constructorParameter<&M::address>("address"),
    constructorParameter<&M::entrySize>("entrySize"),
    constructorParameter<&M::stride>("stride"),
    constructorParameter<&M::chipHam>("chipHam"),
    attribute<&M::indirectCmdRegAddr, &M::indirectCmdRegAddrIs>("indirectCmdRegAddr"),
    operation<&M::inRange>("inRange", "addr"),
    attribute<&M::shadowEnabled, &M::shadowEnabledIs>("shadowEnabled"),
    attribute<&M::auditEnabled, &M::auditEnabledIs>("auditEnabled"),
    operation<&M::handleAuditEnabled>("handleAuditEnabled"),
    attribute<&M::mode, &M::modeIs>("mode"),
    operation<&M::handleMode>("handleMode"),
    attribute<&M::shadowStoreNeeded, &M::shadowStoreNeededIs>("shadowStoreNeeded"),
    operation<&M::handleShadowStoreNeeded>("handleShadowStoreNeeded"),
    operation<&M::entryIndexFromAddress>("entryIndexFromAddress", "addr"),
    operation<&M::doClear>("doClear"),
    operation<&regionCleared>("doClearRange", "startIndex", "endIndex"),
    operation<&M::writeback>("writeback", "initializedOnly"),
    attribute<&M::readFromCache, &M::readFromCacheIs>("readFromCache"),
    attribute<&M::skipWriteIfMatchesCache, &M::skipWriteIfMatchesCacheIs>(
        "skipWriteIfMatchesCache"),
    attribute<&M::readCacheHits, &M::readCacheHitsIs>("readCacheHits"),
    attribute<&M::writeCacheHits, &M::writeCacheHitsIs>("writeCacheHits"),
    attribute<&M::registersFixed, &M::registersFixedIs>("registersFixed"),
    attribute<&M::lastFixTime, &M::lastFixTimeIs>("lastFixTime"),
    attribute<&M::hardware, &M::hardwareIs>("hardware"),
    attribute<&M::shadow, &M::shadowIs>("shadow"),
    attribute<&M::initialized, &M::initializedIs>("initialized"),
    operation<&M::entryInitialized>("entryInitialized", "entryIndex"),
    operation<&M::entryInitializedIs>("entryInitializedIs", "entryIndex"),
    operation<&M::entryInitializedDel>("entryInitializedDel", "entryIndex"),
    attribute<&M::dirty, &M::dirtyIs>("dirty"),
    attribute<&M::allowsLogicalViews, &M::allowsLogicalViewsIs>("allowsLogicalViews"),
    readOnly<&M::fwkKey>("fwkKey"),
};

constexpr Member chipReadRequestMembers[] = {
    operation<&ChipReadRequest::handleState>("handleState"),
    collection("chipMemory", requestRegions),
};

using R = ChipReader;
constexpr Member chipReaderMembers[] = {
    attribute<&R::zintFwkActivity, &R::zintFwkActivityIs>("zintFwkActivity"),
    attribute<&R::request, &R::requestIs>("request"),
    attribute<&R::clock, &R::clockIs>("clock"),
    attribute<&R::maxEntriesPerRead, &R::maxEntriesPerReadIs>("maxEntriesPerRead"),
    attribute<&R::readInterval, &R::readIntervalIs>("readInterval"),
    operation<&R::doRead>("doRead"),
    operation<&R::handleReadRequest>("handleReadRequest"),
    attribute<&R::currentChipMemory, &R::currentChipMemoryIs>("currentChipMemory"),
    attribute<&R::entriesRead, &R::entriesReadIs>("entriesRead"),
    collection("chipMemory", readerQueue),
    attribute<&R::chipMemoryMetadata, &R::chipMemoryMetadataIs>("chipMemoryMetadata"),
    operation<&R::hasNotificationActiveIs>("hasNotificationActiveIs", "hasNotificationActive"),
    operation<&R::zintDoZombieReactors>("zintDoZombieReactors", "zombie"),
};

constexpr Member chipMemoryArrayIndexMembers[] = {
    attribute<&ChipMemoryArrayIndex::value, &ChipMemoryArrayIndex::valueIs>("value"),
};

constexpr Member chipMemoryChunkMembers[] = {
    constructorParameter<&ChipMemoryChunk::fwkKey>("fwkKey"),
    attribute<&ChipMemoryChunk::nextIndex, &ChipMemoryChunk::nextIndexIs>("nextIndex"),
    collection("offset", chunkOffsets),
    collection("chipMemory", chunkRegions),
};

using S = HardwareShadow;
constexpr Member hardwareShadowMembers[] = {
    attribute<&S::zintFwkActivity, &S::zintFwkActivityIs>("zintFwkActivity"),
    attribute<&S::state, &S::stateIs>("state"),
    attribute<&S::overrideHardware, &S::overrideHardwareIs>("overrideHardware"),
    operation<&S::removeOverrideOnlyChipMem>("removeOverrideOnlyChipMem"),
    attribute<&S::clock, &S::clockIs>("clock"),
    attribute<&S::minIntervalBetweenAudits, &S::minIntervalBetweenAuditsIs>(
        "minIntervalBetweenAudits"),
    collection("chipMemory", shadowRegions),
    attribute<&S::lastChipMemory, &S::lastChipMemoryIs>("lastChipMemory"),
    operation<&S::findChipMemory>("findChipMemory", "address", "size"),
    operation<&shadowWrite>("shadowWriteAndCompareWithCache", "chipMemory", "entry", "data",
                            "size"),
    operation<&shadowWriteAt>("shadowWriteHack", "address", "dataPtr", "size"),
    operation<&shadowReadAt>("readFromCacheHack", "address", "?dataPtr", "size"),
    operation<&S::shadowWriteU32>("shadowWriteU32", "address", "value"),
    operation<&S::readFromCacheU32>("readFromCacheU32", "address"),
    attribute<&S::audits, &S::auditsIs>("audits"),
    attribute<&S::auditReadRequest, &S::auditReadRequestIs>("auditReadRequest"),
    collection("chipMemoryChunk", shadowChunks),
    attribute<&S::nextIndex, &S::nextIndexIs>("nextIndex"),
    collection("chipMemoryId", shadowIds),
    collection("chipMemoryChunkArray", shadowChunkArray),
    operation<&S::handleState>("handleState"),
    attribute<&S::lastAuditStartTime, &S::lastAuditStartTimeIs>("lastAuditStartTime"),
    operation<&chipMemoryHandled>("handleChipMemory", "address"),
    operation<&S::handleAuditReadRequestStatus>("handleAuditReadRequestStatus"),
    operation<&registerFixed>("doFixBadRegister", "chipMemory", "entry", "data"),
    operation<&auditSwitched>("chipMemoryAuditEnabledIs", "chipMemory", "auditEnabled"),
    attribute<&S::chipMemoryEntriesUnderAudit, &S::chipMemoryEntriesUnderAuditIs>(
        "chipMemoryEntriesUnderAudit"),
    operation<&S::hasNotificationActiveIs>("hasNotificationActiveIs", "hasNotificationActive"),
    operation<&S::zintDoZombieReactors>("zintDoZombieReactors", "zombie"),
};

constexpr Member chipMemoryBogonMembers[] = {
    constructorParameter<&ChipMemoryBogon::name>("name"),
    attribute<&ChipMemoryBogon::isNondestructing, &ChipMemoryBogon::isNondestructingIs>(
        "isNondestructing"),
    collection("chipMemory", directoryRegions),
};

constexpr Member factories[] = {
    factory<&chipMemoryFactory>("chipMemoryFactory", "Hardware::ChipMemory", "name", "address",
                                "entries", "entrySize", "stride", "chipHam"),
    factory<&chipMemoryBogonFactory>("chipMemoryBogonFactory", "Hardware::ChipMemoryBogon", "name"),
    factory<&genericChipHamFactory>("genericChipHamFactory", "Hardware::GenericChipHam", "name",
                                    "hamImpl"),
    factory<&chipReadRequestFactory>("chipReadRequestFactory", "Hardware::ChipReadRequest", "name"),
    factory<&chipReaderFactory>("chipReaderFactory", "Hardware::ChipReader", "activity", "request",
                                "clock", "maxEntriesPerRead", "readInterval"),
    factory<&hardwareShadowFactory>("hardwareShadowFactory", "Hardware::HardwareShadow", "activity",
                                    "clock"),
};

constexpr char object_[] = "reference-counted object";

}  // namespace

constinit const Type chipMemoryModeType{"Hardware::ChipMemory::ChipMemoryMode", "enumeration",
                                        nullptr, modeMembers};
constinit const Type hardwareShadowStateType{"Hardware::HardwareShadow::State", "enumeration",
                                             nullptr, stateMembers};
constinit const Type chipAddressType{"Hardware::ChipAddress", "value", nullptr, chipAddressMembers};
constinit const Type chipHamType{"Hardware::ChipHam", "entity", nullptr, chipHamMembers};
constinit const Type genericChipHamType{"Hardware::GenericChipHam", "entity", &chipHamType,
                                        genericChipHamMembers};
constinit const Type chipMemoryType{"Hardware::ChipMemory", object_, nullptr, chipMemoryMembers};
constinit const Type chipReadRequestType{"Hardware::ChipReadRequest", "request entity",
                                         &Zint::requestType, chipReadRequestMembers};
constinit const Type chipReaderType{"Hardware::ChipReader", object_, nullptr, chipReaderMembers};
constinit const Type chipMemoryArrayIndexType{"Hardware::ChipMemoryArrayIndex", "value", nullptr,
                                              chipMemoryArrayIndexMembers};
constinit const Type chipMemoryChunkType{"Hardware::ChipMemoryChunk", "entity", &Zint::entityType,
                                         chipMemoryChunkMembers};
constinit const Type hardwareShadowType{"Hardware::HardwareShadow", object_, nullptr,
                                        hardwareShadowMembers};
constinit const Type chipMemoryBogonType{"Hardware::ChipMemoryBogon", "entity", nullptr,
                                         chipMemoryBogonMembers};

namespace {

constexpr const Type* types[] = {
    &chipMemoryModeType,       &hardwareShadowStateType, &chipAddressType,     &chipHamType,
    &genericChipHamType,       &chipMemoryType,          &chipReadRequestType, &chipReaderType,
    &chipMemoryArrayIndexType, &chipMemoryChunkType,     &hardwareShadowType,  &chipMemoryBogonType,
};

// The same names in a section of their own, each ended by a zero byte, for tools that read the
// file.
[[gnu::section(".zint.type"), gnu::used, gnu::retain]] const char typeNames[] =
    "Hardware::ChipMemory::ChipMemoryMode\0"
    "Hardware::HardwareShadow::State\0"
    "Hardware::ChipAddress\0"
    "Hardware::ChipHam\0"
    "Hardware::GenericChipHam\0"
    "Hardware::ChipMemory\0"
    "Hardware::ChipReadRequest\0"
    "Hardware::ChipReader\0"
    "Hardware::ChipMemoryArrayIndex\0"
    "Hardware::ChipMemoryChunk\0"
    "Hardware::HardwareShadow\0"
    "Hardware::ChipMemoryBogon";

[[gnu::constructor]] void registered() {
  umbraTraceHandle.registered();
  for (const Type* type : types) Zint::TypeRegistry::typeIs(*type);
  for (const Member& made : factories) Zint::TypeRegistry::factoryIs(made);
}

[[gnu::destructor]] void unregistered() {
  for (const Type* type : types) Zint::TypeRegistry::typeDel(*type);
  for (const Member& made : factories) Zint::TypeRegistry::factoryDel(made);
}

}  // namespace

}  // namespace Hardware
