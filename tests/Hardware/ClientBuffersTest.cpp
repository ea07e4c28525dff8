// Buffers that a client installs: one without any bytes may have a null address, and `data` may lie
// in any buffer of the region.
#include <support/ShadowTest.h>

namespace {

using namespace Support;

struct NoBytes : Hal::BufBase {
  NoBytes() : BufBase(nullptr, 0) {}
};

struct ClientBuffers : ShadowTest {
  static void emptyStoreIs(const ChipMemory::Ptr& cm) {
    cm->shadowIs(Zint::makePtr<NoBytes>());
    cm->dirtyIs(Zint::makePtr<NoBytes>());
    cm->initializedIs(Zint::makePtr<NoBytes>());
  }
};

TEST_F(ClientBuffers, doClear_buffersWithoutBytesAreLeftAlone) {
  const ChipMemory::Ptr cm = shadowed("table", 0x1000, 4);
  emptyStoreIs(cm);
  cm->doClear();
  EXPECT_EQ(cm->shadow()->size(), 0u);
}

TEST_F(ClientBuffers, doClearRange_theEntryPastTheLastOfAShadowWithoutBytesIsMarked) {
  const ChipMemory::Ptr cm = shadowed("table", 0x1000, 0);
  cm->shadowIs(Zint::makePtr<NoBytes>());
  cm->doClearRange(0, 0, false);
  EXPECT_TRUE(cm->entryInitialized(0));
}

TEST_F(ClientBuffers, doStartAudit_aDirtyBitmapWithoutBytesIsLeftAlone) {
  const ChipMemory::Ptr cm = audited("table", 0x1000, 4);
  configure({cm});
  cm->dirtyIs(Zint::makePtr<NoBytes>());
  shadow->stateIs(HardwareShadow::auditing());
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::start_);
}

struct WatchedBuf : Hal::Buf {
  WatchedBuf(U32 size, bool& isGone) : Buf(size), isGone_(isGone) {}
  ~WatchedBuf() override { isGone_ = true; }

 private:
  bool& isGone_;
};

// An access of one entry whose `data` is a buffer that the access method replaces.
struct ReplacedBuffers : ShadowTest {
  ReplacedBuffers() {
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    configure({cm});
    cm->entryInitializedIs(0);
    cm->dirtyIs(dirty);
    cm->hardwareIs(hardware);
    scripted->onCached = [this] {
      dirty = nullptr;
      hardware = nullptr;
      cm->dirtyIs(Zint::makePtr<Hal::Buf>(4u));
      cm->hardwareIs(Zint::makePtr<Hal::Buf>(16u));
      EXPECT_FALSE(isDirtyGone);
      EXPECT_FALSE(isHardwareGone);
    };
  }

  const ChipMemory::Ptr cm =
      Hardware::chipMemoryFactory("table", ChipAddress(0x1000), 4, 4, 4, scripted);
  bool isDirtyGone = false;
  bool isHardwareGone = false;
  Hal::Buf::Ptr dirty = Zint::makePtr<WatchedBuf>(4u, isDirtyGone);
  Hal::Buf::Ptr hardware = Zint::makePtr<WatchedBuf>(16u, isHardwareGone);
};

TEST_F(ReplacedBuffers, readFromCache_holdsEveryBufferThatMayBeItsData) {
  EXPECT_TRUE(shadow->readFromCache(cm, 0, cm->dirty()->data(), 4));
  EXPECT_TRUE(isDirtyGone && isHardwareGone);
}

TEST_F(ReplacedBuffers, shadowWriteAndCompareWithCache_holdsEveryBufferThatMayBeItsData) {
  EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(cm, 0, cm->hardware()->data(), 4));
  EXPECT_TRUE(isDirtyGone && isHardwareGone);
}

}  // namespace
