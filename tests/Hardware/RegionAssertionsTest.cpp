// The assertions that keep undefined territory from being entered: missing access methods, buffers
// that are absent or too small, entries without size, an index that was tampered with. Each is
// demanded with its full text; those about a region name it.
#include <Hardware/ChipReader.h>

#include "support/ShadowTest.h"

namespace {

using Zint::makePtr;

constexpr const char* clearRange = "void Hardware::ChipMemory::doClearRange(U32, U32, bool)";
constexpr const char* writeback = "void Hardware::ChipMemory::writeback(bool)";
constexpr const char* readSlice = "virtual void Hardware::ChipReader::doRead()";
constexpr const char* auditChips = "void Hardware::HardwareShadow::doAuditChips()";
constexpr const char* answered = "void Hardware::HardwareShadow::handleAuditReadRequestStatus()";
constexpr const char* findRegion =
    "Hardware::ChipMemory::Ptr Hardware::HardwareShadow::findChipMemory(const "
    "Hardware::ChipAddress&, U32)";
constexpr const char* writeEntries =
    "bool Hardware::HardwareShadow::shadowWriteAndCompareWithCache(const "
    "Hardware::ChipMemory::Ptr&, U32, U8*, U32)";
constexpr const char* readEntries =
    "bool Hardware::HardwareShadow::readFromCache(const Hardware::ChipMemory::Ptr&, U32, U8*, U32)";

class RegionAssertions : public Support::ShadowTest {
 protected:
  static Hal::Buf::Ptr buffer(U32 size) { return makePtr<Hal::Buf>(size); }
  ChipMemory::Ptr withoutHam() {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory("bare", ChipAddress(0x9000), 4, 4, 4, nullptr);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    cm->readFromCacheIs(true);
    return cm;
  }
  // Entries of no bytes, yet some address units apart.
  ChipMemory::Ptr withoutSize() {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory("hollow", ChipAddress(0x8000), 4, 0, 4, ham);
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    return cm;
  }
  void audited() {
    configure({mac});
    shadow->stateIs(HardwareShadow::auditing());
  }

  ChipMemory::Ptr mac = ShadowTest::audited("mac", 0x1000, 16);
  U32 word = 0;
  U8* data = reinterpret_cast<U8*>(&word);
};

// --- The region ---------------------------------------------------------------------------------

TEST_F(RegionAssertions, region_withoutStrideHasNoIndices) {
  const ChipMemory::Ptr flat =
      Hardware::chipMemoryFactory("flat", ChipAddress(0x1000), 4, 4, 0, ham);
  EXPECT_ASSERTION_OF("flat", flat->entryIndexFromAddress(ChipAddress(0x1000)),
                      "U32 Hardware::ChipMemory::entryIndexFromAddress(const "
                      "Hardware::ChipAddress&) const",
                      "stride_ != 0");
}

TEST_F(RegionAssertions, region_entryOutsideTheInitializedBitmap) {
  const char* rule = "initialized_ && entryIndex < bitsOf(*initialized_)";
  EXPECT_ASSERTION_OF("mac", mac->entryInitialized(24),
                      "bool Hardware::ChipMemory::entryInitialized(U32) const", rule);
  EXPECT_ASSERTION_OF("mac", mac->entryInitializedIs(24),
                      "void Hardware::ChipMemory::entryInitializedIs(U32)", rule);
  EXPECT_ASSERTION_OF("mac", mac->entryInitializedDel(24),
                      "void Hardware::ChipMemory::entryInitializedDel(U32)", rule);
}

TEST_F(RegionAssertions, region_clearingNeedsTheStore) {
  const ChipMemory::Ptr plain = region("plain", 0x5000, 4);
  EXPECT_ASSERTION_OF("plain", plain->doClear(), "void Hardware::ChipMemory::doClear()",
                      "shadow_ && dirty_ && initialized_");
  EXPECT_ASSERTION_OF("plain", plain->doClearRange(0, 1, false), clearRange,
                      "shadowBuf && dirtyBuf && initializedBuf");
}

TEST_F(RegionAssertions, region_clearingStaysInsideTheBuffers) {
  EXPECT_ASSERTION_OF("bare", withoutHam()->doClearRange(0, 1, true), clearRange,
                      "chipHam_ || !writeThrough");
  const Hal::BufBase::Ptr shadowBuf = mac->shadow();
  mac->shadowIs(buffer(16));
  EXPECT_ASSERTION_OF("mac", mac->doClearRange(0, 4, false), clearRange,
                      "startIndex >= end || end * entrySize_ <= shadowBuf->size()");
  mac->shadowIs(shadowBuf);
  mac->dirtyIs(buffer(1));
  EXPECT_ASSERTION_OF("mac", mac->doClearRange(0, 8, false), clearRange,
                      "endIndex < bitsOf(*dirtyBuf) && endIndex < bitsOf(*initializedBuf)");
}

TEST_F(RegionAssertions, region_writebackNeedsAnAccessMethodAndAWholeStore) {
  EXPECT_ASSERTION_OF("bare", withoutHam()->writeback(false), writeback, "chipHam_");
  mac->shadowIs(buffer(63));
  EXPECT_ASSERTION_OF("mac", mac->writeback(false), writeback,
                      "U64{entries_} * entrySize_ <= shadowBuf->size()");
}

TEST_F(RegionAssertions, region_eachEntryThatIsWrittenBackNeedsAnAccessMethodAndRoom) {
  const ChipMemory::Ptr bare = withoutHam();
  bare->entryInitializedIs(0);
  EXPECT_ASSERTION_OF("bare", bare->writeback(true), writeback, "chipHam_");
  mac->shadowIs(buffer(63));
  mac->entryInitializedIs(15);
  EXPECT_ASSERTION_OF("mac", mac->writeback(true), writeback,
                      "(U64{i} + 1) * entrySize_ <= shadowBuf->size()");
}

// --- Access methods -----------------------------------------------------------------------------

TEST_F(RegionAssertions, genericAccessNeedsRegistersForAnyWord) {
  const Hardware::ChipHam::Ptr loose = Hardware::genericChipHamFactory("loose", nullptr);
  EXPECT_ASSERTION(loose->doRead(ChipAddress(), data, 4, 1), 0,
                   "virtual void Hardware::GenericChipHam::doRead(const Hardware::ChipAddress&, "
                   "U8*, U32, U32)",
                   "registers || words == 0");
  EXPECT_ASSERTION(loose->doWrite(ChipAddress(), data, 4, 1), 0,
                   "virtual void Hardware::GenericChipHam::doWrite(const Hardware::ChipAddress&, "
                   "U8*, U32, U32)",
                   "registers || words == 0");
  loose->doRead(ChipAddress(), data, 4, 0);
  loose->doWrite(ChipAddress(), data, 0, 1);
}

// --- The reader ---------------------------------------------------------------------------------

TEST_F(RegionAssertions, reader_staysInsideTheRegionAndItsBuffer) {
  const auto reader = Hardware::chipReaderFactory(loop.activity, nullptr, loop.clock, 8, 0.1);
  reader->currentChipMemoryIs(mac);
  reader->entriesReadIs(17);
  EXPECT_ASSERTION_OF("mac", reader->doRead(), readSlice, "k <= m->entries()");
  reader->entriesReadIs(0);
  mac->hardwareIs(buffer(31));
  EXPECT_ASSERTION_OF(
      "mac", reader->doRead(), readSlice,
      "hardwareBuf && (U64{k} + readChunkSizeInEntries) * m->entrySize() <= hardwareBuf->size()");
  reader->currentChipMemoryIs(withoutHam());
  EXPECT_ASSERTION_OF("bare", reader->doRead(), readSlice, "m->chipHam()");
}

// --- The shadow's data path ---------------------------------------------------------------------

TEST_F(RegionAssertions, write_needsASizeAnAccessMethodAndRoom) {
  configure({mac});
  const auto write = [this](const ChipMemory::Ptr& cm, U32 entry) {
    shadow->shadowWriteAndCompareWithCache(cm, entry, data, 4);
  };
  EXPECT_ASSERTION_OF("hollow", write(withoutSize(), 0), writeEntries, "cm->entrySize() != 0");
  EXPECT_ASSERTION_OF("bare", write(withoutHam(), 0), writeEntries, "cm.chipHam()");
  const Hal::BufBase::Ptr shadowBuf = mac->shadow();
  mac->shadowIs(buffer(63));
  EXPECT_ASSERTION_OF("mac", write(mac, 15), writeEntries,
                      "numEntries == 0 || entry + numEntries <= StoreAccess::storedEntries(*cm)");
  mac->shadowIs(shadowBuf);
  mac->initializedIs(buffer(1));
  EXPECT_ASSERTION_OF("mac", write(mac, 8), writeEntries,
                      "numEntries == 0 || entry + numEntries <= StoreAccess::storedEntries(*cm)");
}

TEST_F(RegionAssertions, read_needsASizeAnAccessMethodAndWhatItReads) {
  configure({mac});
  mac->readFromCacheIs(true);
  const auto read = [this](const ChipMemory::Ptr& cm, U32 entry) {
    shadow->readFromCache(cm, entry, data, 4);
  };
  EXPECT_ASSERTION_OF("hollow", read(withoutSize(), 0), readEntries, "cm->entrySize() != 0");
  EXPECT_ASSERTION_OF("bare", read(withoutHam(), 0), readEntries, "cm->chipHam()");
  const Hal::BufBase::Ptr shadowBuf = mac->shadow();
  mac->shadowIs(buffer(63));
  EXPECT_ASSERTION_OF("mac", read(mac, 15), readEntries,
                      "inShadow == 0 || offset + inShadow <= shadowBuf->size()");
  mac->shadowIs(shadowBuf);
  mac->initializedIs(buffer(1));
  EXPECT_ASSERTION_OF("mac", read(mac, 8), readEntries,
                      "numEntries == 0 || end <= bitsOf(*initializedBuf)");
}

TEST_F(RegionAssertions, lookup_needsASizeToDivideBy) {
  const ChipMemory::Ptr hollow = withoutSize();
  configure({hollow});
  EXPECT_ASSERTION_OF("hollow", found(0x8000), findRegion, "cm->entrySize() != 0");
  shadow->lastChipMemoryIs(hollow);
  EXPECT_ASSERTION_OF("hollow", found(0x8000), findRegion, "lastChipMemory_->entrySize() != 0");
}

// --- The audit ----------------------------------------------------------------------------------

TEST_F(RegionAssertions, audit_needsItsRequest) {
  audited();
  shadow->auditReadRequestDel();
  EXPECT_ASSERTION(shadow->doStartAudit(), 0, "void Hardware::HardwareShadow::doStartAudit()",
                   "request");
  EXPECT_ASSERTION(shadow->handleAuditReadRequestStatus(), 0, answered, "request");
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, auditChips, "request");
}

TEST_F(RegionAssertions, audit_ofOneRegionIsSwitchedInItsRequest) {
  configure({mac});
  shadow->auditReadRequestDel();
  EXPECT_ASSERTION(shadow->chipMemoryAuditEnabledIs(mac, false), 0,
                   "void Hardware::HardwareShadow::chipMemoryAuditEnabledIs(const "
                   "Hardware::ChipMemory::Ptr&, bool)",
                   "request");
}

// A trace sink that steers what it listens to.
TEST_F(RegionAssertions, audit_mustNotEndWhileItsAnswerIsTraced) {
  class EndingSink : public Zint::TraceSink {
   public:
    explicit EndingSink(HardwareShadow& shadow) : shadow_(shadow) {}
    void traceLine(const Zint::TraceLine& line) override {
      if (std::string(line.text).starts_with("HardwareShadow::handleAuditReadRequestStatus")) {
        shadow_.stateIs(HardwareShadow::idle());
      }
    }

   private:
    HardwareShadow& shadow_;
  };
  audited();
  EXPECT_ASSERTION(
      {
        EndingSink sink(*shadow);
        Zint::traceSinkIs(&sink);
        shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
      },
      0, answered, "state_ == auditing_");
}

TEST_F(RegionAssertions, audit_needsAnAccessMethodAndWholeBuffers) {
  audited();
  const Hal::BufBase::Ptr shadowBuf = mac->shadow();
  mac->dirtyIs(buffer(1));
  EXPECT_ASSERTION_OF("mac", shadow->doAuditChips(), auditChips,
                      "entries <= StoreAccess::storedEntries(*cm)");
  mac->shadowIs(buffer(63));
  EXPECT_ASSERTION_OF("mac", shadow->doAuditChips(), auditChips,
                      "entries <= StoreAccess::storedEntries(*cm)");
  mac->hardwareIs(buffer(63));
  EXPECT_ASSERTION_OF("mac", shadow->doAuditChips(), auditChips,
                      "U64{entries} * entrySize <= hardwareBuf->size()");
}

TEST_F(RegionAssertions, audit_needsAnAccessMethod) {
  const ChipMemory::Ptr bare = withoutHam();
  configure({bare});
  shadow->stateIs(HardwareShadow::auditing());
  EXPECT_ASSERTION_OF("bare", shadow->doAuditChips(), auditChips, "cm->chipHam()");
  EXPECT_ASSERTION_OF("bare", shadow->doFixBadRegister(bare, 0, data),
                      "virtual void Hardware::HardwareShadow::doFixBadRegister(const "
                      "Hardware::ChipMemory::Ptr&, U32, U8*)",
                      "cm->chipHam()");
}

}  // namespace
