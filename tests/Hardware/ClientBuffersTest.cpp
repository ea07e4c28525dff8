// Buffers that a client installs: one without any bytes may have a null address.
#include <fakes/ShadowTest.h>

namespace {

using namespace Fakes;

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

}  // namespace
