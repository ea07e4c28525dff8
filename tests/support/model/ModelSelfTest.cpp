// Worked examples run on the model itself: a model that is wrong proves nothing. Here: chips,
// regions, the directory, lookup, writes and reads.
#include "ModelSelfTest.h"

namespace Model {
namespace {

TEST_F(ModelSelfTest, textForms) {
  EXPECT_EQ(addressText(0x100000010ull), "0x1:00000010");
  EXPECT_EQ(addressText(0), "0x0:00000000");
  EXPECT_EQ(addressText(0xFFFFFFFFull), "0x0:ffffffff");
  EXPECT_EQ(stateText(static_cast<State>(7)), "HardwareShadow::State(7)");
  EXPECT_EQ(modeText(static_cast<Mode>(-1)), "ChipMemory::ChipMemoryMode(-1)");
  EXPECT_EQ(reversedBits(1), 0x80000000u);
}

TEST_F(ModelSelfTest, bitStreams) {
  Bytes stream = {0xAB, 0xCD};
  EXPECT_EQ(byteFromStream(stream.data(), 0), 0xAB);
  EXPECT_EQ(byteFromStream(stream.data(), 4), 0xDA);
  EXPECT_EQ(byteFromStream(stream.data(), 8), 0xCD);
  Bytes target = {0, 0};
  byteToStream(target.data(), 4, 0xFF);
  EXPECT_EQ(target, (Bytes{0xF0, 0x0F}));
  Bytes copied = {0, 0xF8};
  copyBits(copied.data(), 0, stream.data(), 3, 11);
  EXPECT_EQ(copied, (Bytes{0xB5, 0xF9}));
}

TEST_F(ModelSelfTest, genericMethodReadsWordByWord) {
  Bytes buffer(16);
  model.methodRead(ham, 0x500001000ull, buffer.data(), 8, 2);
  EXPECT_EQ(model.accesses(), (std::vector<Access>{{chip, false, 0x1000, 0},
                                                   {chip, false, 0x1004, 0},
                                                   {chip, false, 0x1008, 0},
                                                   {chip, false, 0x100c, 0}}));
  EXPECT_EQ(fatalOf([&] { model.methodRead(ham, 0, buffer.data(), 6, 0); }),
            "( entrySize % 4 ) == 0");
  model.accesses().clear();
  model.methodRead(ham, 0, buffer.data(), 0, 3);
  EXPECT_TRUE(model.accesses().empty());
}

TEST_F(ModelSelfTest, sparseMethodSteps) {
  int sparse = model.sparseMethodCreate("sparse", chip, 0x10);
  Bytes buffer = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0};
  model.methodWrite(sparse, 0x100000100ull, buffer.data(), 8, 2);
  EXPECT_EQ(model.accesses(), (std::vector<Access>{{chip, true, 0x100, 1},
                                                   {chip, true, 0x104, 2},
                                                   {chip, true, 0x110, 3},
                                                   {chip, true, 0x114, 4}}));
}

TEST_F(ModelSelfTest, failingAccessLeavesTheRestUndone) {
  Bytes buffer = {1, 0, 0, 0, 2, 0, 0, 0};
  model.chipFailIn(chip, 2);
  EXPECT_THROW(model.methodWrite(ham, 0, buffer.data(), 4, 2), AccessFailed);
  EXPECT_EQ(model.chipPeek(chip, 0), 1u);
  EXPECT_EQ(model.chipPeek(chip, 4), 0u);
  EXPECT_EQ(model.accesses().size(), 1u);
  model.methodWrite(ham, 0, buffer.data(), 4, 2);
  EXPECT_EQ(model.chipPeek(chip, 4), 2u);
}

TEST_F(ModelSelfTest, bufferSizes) {
  const u32 bitmap[][2] = {{16, 3}, {15, 2}, {0, 1}};
  for (auto [entries, bytes] : bitmap) {
    int region = audited("t", 0, entries);
    EXPECT_EQ(model.region(region).initialized->size(), bytes);
    EXPECT_EQ(model.region(region).dirty->size(), bytes);
    EXPECT_EQ(model.region(region).shadow->size(), entries * 4);
    EXPECT_EQ(model.region(region).hardware->size(), entries * 4);
  }
  EXPECT_FALSE(model.region(table("u", 0, 4)).shadow);
  EXPECT_EQ(model.region(table("u", 0, 4)).hardware, Bytes(16));
}

TEST_F(ModelSelfTest, addressArithmetic) {
  int region = table("t", 0x1000, 4);
  EXPECT_TRUE(model.inRange(region, 0x1000));
  EXPECT_TRUE(model.inRange(region, 0x100F));
  EXPECT_FALSE(model.inRange(region, 0x1010));
  EXPECT_FALSE(model.inRange(region, 0x0FFF));
  EXPECT_EQ(model.entryIndexFromAddress(region, 0x1006), 1u);
  int high = model.regionCreate("h", 0xFFFFFFF0, 2, 4, 0x10, ham);
  EXPECT_TRUE(model.inRange(high, 0x100000000ull));
  int wrapped = model.regionCreate("w", 0x1000, 0x10000, 0, 0x10000, ham);
  EXPECT_FALSE(model.inRange(wrapped, 0x1000));
}

TEST_F(ModelSelfTest, clearing) {
  int region = audited("t", 0x100, 8);
  EXPECT_EQ(fatalOf([&] { model.doClearRange(region, 2, 1, false); }), "startIndex <= endIndex");
  EXPECT_EQ(fatalOf([&] { model.doClearRange(region, 0, 9, false); }), "endIndex <= entries()");
  write(region, 7, 5);
  model.accesses().clear();
  model.doClearRange(region, 7, 8, true);
  EXPECT_EQ(model.accesses(),
            (std::vector<Access>{{chip, true, 0x11c, 0}, {chip, true, 0x120, 0}}));
  EXPECT_EQ(model.region(region).dirty, (Bytes{0x80, 1}));
  EXPECT_EQ(model.region(region).initialized, (Bytes{0x80, 1}));
  EXPECT_EQ(model.region(region).shadow, Bytes(32));
  model.doClear(region);
  EXPECT_EQ(model.region(region).dirty, (Bytes{0xFF, 0xFF}));
  model.modeIs(region, Mode::override_);
  EXPECT_TRUE(model.entryInitialized(region, 1000));
  model.doClearRange(region, 5, 2, true);
}

TEST_F(ModelSelfTest, leavingBufferedWritesBackAndStartsEmpty) {
  int region = audited("t", 0x100, 2);
  model.modeIs(region, Mode::buffered);
  write(region, 1, 7);
  EXPECT_TRUE(model.accesses().empty());
  model.trace().clear();
  model.modeIs(region, Mode::normal);
  EXPECT_EQ(texts(),
            (Lines{"t: Init done - writing back all shadows", "t: writing back initialzedOnly=0"}));
  EXPECT_EQ(model.accesses(),
            (std::vector<Access>{{chip, true, 0x100, 0}, {chip, true, 0x104, 7}}));
  EXPECT_EQ(model.region(region).initialized, Bytes(1));
  EXPECT_EQ(model.region(region).shadow, Bytes(8));
}

TEST_F(ModelSelfTest, writebackOfInitializedEntries) {
  int region = audited("t", 0x100, 10);
  write(region, 3, 3);
  write(region, 7, 7);
  model.accesses().clear();
  model.trace().clear();
  model.writeback(region, true);
  EXPECT_EQ(model.accesses(),
            (std::vector<Access>{{chip, true, 0x10c, 3}, {chip, true, 0x11c, 7}}));
  EXPECT_EQ(texts(), (Lines{"t: writing back initialzedOnly=1", "t: wrote back 2 entries"}));
}

TEST_F(ModelSelfTest, overrideCannotBeAudited) {
  int region = table("t", 0, 1);
  model.modeIs(region, Mode::override_);
  EXPECT_EQ(fatalOf([&] { model.auditEnabledIs(region, true); }),
            "!auditEnabled() || (mode() != override())");
}

TEST_F(ModelSelfTest, directoryChecksInOrder) {
  int directory = model.directoryCreate();
  int region = model.directoryChipMemoryIs(directory, "t", 0x100, 4, 4, 4, ham);
  EXPECT_EQ(model.directoryChipMemoryIs(directory, "t", 0x100, 4, 4, 4, ham), region);
  EXPECT_EQ(model.notifications().size(), 1u);
  auto messageOf = [&](u64 address, u32 entries, u32 stride) -> std::string {
    try {
      model.directoryChipMemoryIs(directory, "t", address, entries, 4, stride, ham);
    } catch (const NameInUse& error) {
      return error.text;
    }
    return "";
  };
  EXPECT_EQ(messageOf(0x100, 6, 8),
            "Reinstantiating the pointer interface where constructor parameter attribute _stride "
            "has a different value of 8 than the current value of 4 not allowed");
  EXPECT_EQ(model.region(region).entries, 6u);
  EXPECT_NE(messageOf(0x200, 7, 8).find("attribute _address "), std::string::npos);
  EXPECT_EQ(model.region(region).entries, 6u);
  EXPECT_EQ(model.directoryChipMemoryDel(directory, "u"), none);
  EXPECT_EQ(model.directoryChipMemoryDel(directory, "t"), region);
  EXPECT_EQ(model.notifications().size(), 2u);
}

TEST_F(ModelSelfTest, registryAndLookup) {
  int first = table("first", 0x700000100ull, 4);
  int second = table("second", 0x700000200ull, 4);
  model.chipMemoryIs(shadow, first);
  model.chipMemoryIs(shadow, first);
  EXPECT_EQ(texts(), (Lines{"ChipMemory: first address=0x7:00000100 entries=4 entrySize=4 "
                            "stride=4 indirectAddress=0x0"}));
  model.chipMemoryIs(shadow, second);
  EXPECT_THROW(model.chipMemoryIs(shadow, none), RangeError);
  EXPECT_EQ(model.findChipMemory(shadow, 0x700000100ull, 4), none);
  model.stateIs(shadow, State::configured);
  EXPECT_EQ(model.findChipMemory(shadow, 0x7000001ffull, 4), none);
  EXPECT_EQ(model.findChipMemory(shadow, 0x700000080ull, 4), none);
  EXPECT_EQ(model.findChipMemory(shadow, 0x800000100ull, 4), none);
  EXPECT_EQ(model.findChipMemory(shadow, 0x700000200ull, 4), second);
  EXPECT_EQ(
      fatalOf([&] { model.findChipMemory(shadow, 0x700000204ull, 3); }),
      "lastChipMemory_->allowsLogicalViews() || ( size % lastChipMemory_->entrySize() ) == 0");
  EXPECT_EQ(fatalOf([&] { model.findChipMemory(shadow, 0x700000104ull, 3); }),
            "cm->allowsLogicalViews() || ( size % cm->entrySize() ) == 0");
  model.indexClear(shadow);
  EXPECT_EQ(model.findChipMemory(shadow, 0x700000204ull, 4), second);
  EXPECT_EQ(fatalOf([&] { model.chipMemoryDel(shadow, 0x700000100ull); }),
            "state_ == unconfigured_ || overrideHardware_");
}

TEST_F(ModelSelfTest, removalClearsTheLastRegionAndBulkRemovalDoesNot) {
  int a = table("a", 0x100, 4);
  int b = table("b", 0x200, 4);
  int c = table("c", 0x300, 4);
  for (int region : {a, b, c}) model.chipMemoryIs(shadow, region);
  model.modeIs(b, Mode::override_);
  model.modeIs(c, Mode::buffered);
  model.stateIs(shadow, State::configured);
  EXPECT_EQ(model.findChipMemory(shadow, 0x200, 4), b);
  model.trace().clear();
  model.removeOverrideOnlyChipMem(shadow);
  EXPECT_TRUE(texts().empty());
  EXPECT_EQ(model.shadow(shadow).registry, (std::map<u64, int>{{0x100, a}, {0x300, c}}));
  EXPECT_EQ(model.shadow(shadow).last, b);
  EXPECT_EQ(model.findChipMemory(shadow, 0x300, 4), c);
  EXPECT_EQ(model.findChipMemory(shadow, 0x204, 4), b);
  model.stateIs(shadow, State::unconfigured);
  EXPECT_EQ(model.findChipMemory(shadow, 0x204, 4), none);
  model.lastChipMemoryIs(shadow, a);
  EXPECT_EQ(model.chipMemoryDel(shadow, 0x300), c);
  EXPECT_EQ(model.shadow(shadow).last, none);
}

TEST_F(ModelSelfTest, writePathDecisions) {
  int region = audited("t", 0x100, 4);
  model.skipWriteIfMatchesCacheIs(region, true);
  Bytes data = {0, 0, 0, 0, 2, 0, 0, 0};
  auto offer = [&](u32 size) {
    return model.shadowWriteAndCompareWithCache(shadow, region, 0, data.data(), size);
  };
  EXPECT_FALSE(model.shadowWriteAndCompareWithCache(shadow, none, 0, data.data(), 4));
  EXPECT_TRUE(offer(0));
  EXPECT_FALSE(offer(4));  // equal, but never initialized
  EXPECT_EQ(model.region(region).initialized, Bytes{1});
  EXPECT_FALSE(offer(8));  // a hit, then a miss
  EXPECT_EQ(model.region(region).writeCacheHits, 1u);
  EXPECT_TRUE(offer(8));
  EXPECT_EQ(model.region(region).writeCacheHits, 3u);
  data[0] = 1;
  model.overrideHardwareIs(shadow, true);
  EXPECT_TRUE(offer(4));
  EXPECT_EQ((*model.region(region).shadow)[0], 1);
  EXPECT_EQ(fatalOf([&] { offer(6); }), "size % cm->entrySize() == 0");
  EXPECT_EQ(fatalOf([&] { offer(20); }), "entry + numEntries <= cm->entries()");
  model.refuseWriteToCacheIs(ham, true);
  data[0] = 9;
  model.overrideHardwareIs(shadow, false);
  EXPECT_FALSE(offer(4));
  EXPECT_EQ((*model.region(region).shadow)[0], 1);
  model.modeIs(region, Mode::override_);
  EXPECT_TRUE(offer(20));
  EXPECT_EQ(texts().back(), "HardwareShadow::shadowWrite t entry 0x0 size 0x4");
}

TEST_F(ModelSelfTest, readPathDecisions) {
  int region = audited("t", 0x100, 16);
  model.chipMemoryIs(shadow, region);
  Bytes data(16, 0xEE);
  auto read = [&](u32 entry, u32 size) {
    return model.readFromCache(shadow, region, entry, data.data(), size);
  };
  EXPECT_EQ(fatalOf([&] { read(0, 4); }), "state_ != unconfigured()");
  model.stateIs(shadow, State::configured);
  for (u32 entry : {6u, 7u, 9u}) write(region, entry, entry);
  EXPECT_FALSE(read(6, 16));
  model.readFromCacheIs(region, true);
  model.trace().clear();
  EXPECT_FALSE(read(6, 16));
  EXPECT_EQ(texts(), Lines{"Read miss cache t 2 entries starting at 8 not in cache, will read "
                           "from hardware"});
  EXPECT_EQ(data, Bytes(16, 0xEE));
  write(region, 8, 8);
  model.trace().clear();
  EXPECT_TRUE(read(6, 16));
  EXPECT_EQ(texts(), Lines{"Read hit cache t 4 entries starting at 0x6"});
  EXPECT_EQ(data, (Bytes{6, 0, 0, 0, 7, 0, 0, 0, 8, 0, 0, 0, 9, 0, 0, 0}));
  EXPECT_EQ(model.region(region).readCacheHits, 4u);
  EXPECT_EQ(model.readFromCacheU32(shadow, 0x118), 6u);
  EXPECT_EQ(model.readFromCacheU32(shadow, 0x900), 0u);
  model.overrideHardwareIs(shadow, true);
  model.trace().clear();
  EXPECT_TRUE(read(0, 4));
  EXPECT_EQ(texts(), (Lines{"t: accessing uninitialized entry 0",
                            "Read hit cache t 1 entries starting at 0x0"}));
  model.modeIs(region, Mode::override_);
  data[0] = 1;
  EXPECT_TRUE(read(0, 16));
  EXPECT_EQ(data, Bytes(16));
}

TEST_F(ModelSelfTest, partialEntryBehindTheLastReadsZeros) {
  int region = audited("t", 0x100, 1);
  model.allowsLogicalViewsIs(region, true);
  model.readFromCacheIs(region, true);
  model.chipMemoryIs(shadow, region);
  model.stateIs(shadow, State::configured);
  write(region, 0, 0x04030201);
  Bytes data(6, 0xEE);
  EXPECT_TRUE(model.readFromCacheHack(shadow, 0x100, data.data(), 6));
  EXPECT_EQ(data, (Bytes{1, 2, 3, 4, 0, 0}));
  EXPECT_EQ(model.region(region).readCacheHits, 1u);
}

}  // namespace
}  // namespace Model
